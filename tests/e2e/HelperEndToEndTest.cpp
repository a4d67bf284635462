// SoftwareUpdateHelper as built, in a sandbox: it waits for the running updater to quit,
// replaces the bundle, detaches the image and relaunches; killed half-way it leaves the old
// bundle in place and working, and a later run finishes the job; a refused command line or
// a failed replacement touches nothing. Each failure status leaves the user a working updater
// at the destination, or a log line naming where the previous one is.
#include "support/ChildProcess.h"
#include "support/QtPrinters.h"
#include "support/Sandbox.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRandomGenerator>
#include <QThread>

#include <csignal>
#include <unistd.h>

namespace {

using vltest::FakeBundle;
using vltest::RunResult;
using vltest::Sandbox;

class HelperEndToEnd : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(sb_.isValid());
        ASSERT_TRUE(sb_.installFakeTools());
        destination_ = sb_.sysPath(QStringLiteral("/Applications/Velmora Software Update.app"));
        volume_ = sb_.sysPath(QStringLiteral("/Volumes/Velmora Software Update"));
        source_ = volume_ + QStringLiteral("/Velmora Software Update.app");
        marker_ = sb_.tmpPath(QStringLiteral("relaunched"));
        FakeBundle old;
        old.path = destination_;
        old.identifier = QStringLiteral("com.velmora.SoftwareUpdate");
        old.version = QStringLiteral("100");
        old.name = QStringLiteral("SoftwareUpdate");
        ASSERT_FALSE(sb_.createBundle(old).isEmpty());
        FakeBundle fresh = old;
        fresh.path = source_;
        fresh.version = QStringLiteral("200");
        fresh.executable = QStringLiteral("#!/bin/sh\necho relaunched > '%1'\n").arg(marker_).toUtf8();
        ASSERT_FALSE(sb_.createBundle(fresh).isEmpty());
    }

    QStringList helperArgs(bool silent) const
    {
        QStringList args{"-source", source_, "-destination", destination_, "-mountpath", volume_};
        if (silent)
            args << "-silent" << "1";
        return args;
    }

    std::unique_ptr<vltest::ChildProcess> startHelper(bool silent) const
    {
        auto p = std::make_unique<vltest::ChildProcess>();
        return sb_.start(*p, Sandbox::helperExecutable(), helperArgs(silent)) ? std::move(p) : nullptr;
    }

    QString infoVersion() const
    {
        const std::optional<QVariant> info = sb_.readPlist(destination_ + QStringLiteral("/Contents/Info.plist"));
        return info ? info->toMap().value(QStringLiteral("CFBundleVersion")).toString() : QString();
    }

    QStringList leftovers() const
    {
        return QDir(sb_.sysPath(QStringLiteral("/Applications"))).entryList({QStringLiteral(".Velmora*")},
                                                                           QDir::AllEntries | QDir::Hidden);
    }

    // The installed updater still starts and ends normally.
    bool destinationRuns() const { return bundleRuns(destination_); }

    static bool bundleRuns(const QString& bundle)
    {
        return vltest::runToSuccess(bundle + QStringLiteral("/Contents/MacOS/SoftwareUpdate"), {QStringLiteral("0")}, 10000);
    }

    // The new version's executable cannot be started: its interpreter does not exist.
    bool breakNewExecutable()
    {
        return sb_.writeFile(source_ + QStringLiteral("/Contents/MacOS/SoftwareUpdate"), "#!/nonexistent/interpreter\n", true);
    }

    bool waitForFile(const QString& path) const
    {
        QElapsedTimer waited;
        waited.start();
        while (!QFileInfo::exists(path) && waited.elapsed() < 5000)
            QThread::msleep(50);
        return QFileInfo::exists(path);
    }

    // The helper's own log, from the user's log folder or the machine's.
    QString helperLog() const
    {
        QString log;
        for (const QString& folder : {sb_.homePath(QStringLiteral("Library/Logs/Velmora")), sb_.sysPath(QStringLiteral("/Library/Logs/Velmora"))}) {
            for (const QString& name : QDir(folder).entryList({QStringLiteral("SoftwareUpdateHelper*.log")}, QDir::Files)) {
                QFile f(folder + QLatin1Char('/') + name);
                if (f.open(QIODevice::ReadOnly))
                    log += QString::fromUtf8(f.readAll());
            }
        }
        return log;
    }

    Sandbox sb_;
    QString destination_, volume_, source_, marker_;
};

TEST_F(HelperEndToEnd, WaitsForTheUpdaterThenReplacesDetachesAndRelaunches)
{
    vltest::ChildProcess updater;
    ASSERT_TRUE(updater.start(destination_ + QStringLiteral("/Contents/MacOS/SoftwareUpdate"), {QStringLiteral("300")}));
    std::unique_ptr<vltest::ChildProcess> helper = startHelper(false);
    ASSERT_TRUE(helper);
    // While the updater runs nothing is replaced.
    EXPECT_FALSE(helper->waitForFinished(1500));
    EXPECT_EQ(infoVersion(), QStringLiteral("100"));
    updater.terminate();
    ASSERT_TRUE(updater.waitForFinished(5000));

    ASSERT_TRUE(helper->waitForFinished(20000));
    EXPECT_EQ(helper->exitCode(), 0) << helper->standardError().toStdString();
    EXPECT_EQ(infoVersion(), QStringLiteral("200"));
    EXPECT_EQ(leftovers(), QStringList());
    EXPECT_EQ(sb_.toolCalls(QStringLiteral("hdiutil")), (QList<QStringList>{{"hdiutil", "detach", volume_, "-force"}}));
    EXPECT_FALSE(QFileInfo::exists(volume_));
    EXPECT_TRUE(waitForFile(marker_)) << "the new updater was not started";

    // Every step went to the helper's own log.
    const QString log = helperLog();
    for (const char* step : {"Waiting for", "Moving the new bundle into place...", "Unmounting disk image", "Relaunching"})
        EXPECT_TRUE(log.contains(QString::fromUtf8(step))) << step << "\n" << log.toStdString();
}

TEST_F(HelperEndToEnd, SilentRunDoesNotRelaunch)
{
    const RunResult r = sb_.runHelper(helperArgs(true));
    ASSERT_EQ(r.exitCode, 0) << r.describe().toStdString();
    EXPECT_EQ(infoVersion(), QStringLiteral("200"));
    QThread::msleep(500);
    EXPECT_FALSE(QFileInfo::exists(marker_));
}

TEST_F(HelperEndToEnd, KilledHalfWayTheOldBundleStillRuns)
{
    // A large file keeps the copy busy long enough to be interrupted.
    QByteArray block(1 << 20, 0);
    for (auto& c : block)
        c = char(QRandomGenerator::global()->bounded(256));
    QFile big(source_ + QStringLiteral("/Contents/Resources/big.bin"));
    ASSERT_TRUE(QDir().mkpath(QFileInfo(big).absolutePath()));
    ASSERT_TRUE(big.open(QIODevice::WriteOnly));
    for (int i = 0; i < 192; ++i)
        big.write(block);
    big.close();

    std::unique_ptr<vltest::ChildProcess> helper = startHelper(true);
    ASSERT_TRUE(helper);
    QElapsedTimer waited;
    waited.start();
    while (leftovers().isEmpty() && waited.elapsed() < 10000)
        QThread::usleep(200);
    ASSERT_FALSE(leftovers().isEmpty()) << "the copy was never seen under way";
    helper->kill();
    ASSERT_TRUE(helper->waitForFinished(5000));

    EXPECT_EQ(infoVersion(), QStringLiteral("100"));
    EXPECT_TRUE(destinationRuns());

    // The next run clears what the killed one left and finishes the replacement.
    const RunResult again = sb_.runHelper(helperArgs(true));
    ASSERT_EQ(again.exitCode, 0) << again.describe().toStdString();
    EXPECT_EQ(infoVersion(), QStringLiteral("200"));
    EXPECT_EQ(leftovers(), QStringList());
}

TEST_F(HelperEndToEnd, RefusedCommandLinesAndFailedCopiesTouchNothing)
{
    struct Case {
        QStringList args;
        int status;
    };
    const QString missing = sb_.sysPath(QStringLiteral("/Volumes/Gone/Velmora Software Update.app"));
    // A new version whose executable may not be run would leave no updater that starts.
    const QString unrunnable = volume_ + QStringLiteral("/Unrunnable/Velmora Software Update.app");
    FakeBundle broken;
    broken.path = unrunnable;
    broken.identifier = QStringLiteral("com.velmora.SoftwareUpdate");
    broken.version = QStringLiteral("300");
    broken.name = QStringLiteral("SoftwareUpdate");
    ASSERT_FALSE(sb_.createBundle(broken).isEmpty());
    ASSERT_TRUE(QFile::setPermissions(unrunnable + QStringLiteral("/Contents/MacOS/SoftwareUpdate"), QFile::ReadOwner | QFile::WriteOwner));
    const QList<Case> cases = {
        {{"-source", source_, "-destination", destination_}, 1},
        {{"-source", source_, "-destination", destination_, "-mountpath"}, 1},
        {{"-source", source_, "-destination", "Applications/Velmora Software Update.app", "-mountpath", volume_}, 1},
        {{"-source", source_, "-destination", sb_.sysPath(QStringLiteral("/Applications")), "-mountpath", volume_}, 1},
        {{"-source", destination_, "-destination", destination_, "-mountpath", volume_}, 1},
        {{"-source", source_, "-destination", destination_, "-mountpath", volume_, "-bogus", "1"}, 1},
        // A new version that could not be started, and a source that is not there: the
        // replacement fails and the old bundle stays.
        {{"-source", unrunnable, "-destination", destination_, "-mountpath", volume_, "-silent", "1"}, 3},
        {{"-source", missing, "-destination", destination_, "-mountpath", volume_, "-silent", "1"}, 3},
    };
    for (const Case& c : cases) {
        const RunResult r = sb_.runHelper(c.args);
        EXPECT_EQ(r.exitCode, c.status) << c.args.join(QLatin1Char(' ')).toStdString() << r.describe().toStdString();
        EXPECT_EQ(infoVersion(), QStringLiteral("100"));
        EXPECT_TRUE(QFileInfo::exists(sb_.sysPath(QStringLiteral("/Applications"))));
        EXPECT_EQ(leftovers(), QStringList());
    }
    EXPECT_TRUE(destinationRuns());
}

TEST_F(HelperEndToEnd, UpdaterThatNeverQuitsLeavesEverythingInPlace)
{
    // An updater hung in its termination: it ignores the polite quit.
    QProcess updater;
    updater.setChildProcessModifier([] { ::signal(SIGTERM, SIG_IGN); });
    updater.start(destination_ + QStringLiteral("/Contents/MacOS/SoftwareUpdate"), {QStringLiteral("300")});
    ASSERT_TRUE(updater.waitForStarted());
    ::kill(pid_t(updater.processId()), SIGTERM);
    ASSERT_FALSE(updater.waitForFinished(500));

    const RunResult r = sb_.runHelper(helperArgs(false));
    EXPECT_EQ(r.exitCode, 2) << r.describe().toStdString();
    EXPECT_EQ(infoVersion(), QStringLiteral("100"));
    EXPECT_EQ(leftovers(), QStringList());
    EXPECT_TRUE(QFileInfo::exists(volume_)) << "the image stays mounted for another try";
    EXPECT_TRUE(sb_.toolCalls(QStringLiteral("hdiutil")).isEmpty());
    EXPECT_TRUE(helperLog().contains(QStringLiteral("did not quit; nothing was replaced"))) << helperLog().toStdString();
    updater.kill();
    ASSERT_TRUE(updater.waitForFinished(5000));
    EXPECT_TRUE(destinationRuns());
}

TEST_F(HelperEndToEnd, NewUpdaterThatCannotStartIsReplacedByThePreviousOne)
{
    ASSERT_TRUE(breakNewExecutable());
    const QString oldMarker = sb_.tmpPath(QStringLiteral("old-relaunched"));
    ASSERT_TRUE(sb_.writeFile(destination_ + QStringLiteral("/Contents/MacOS/SoftwareUpdate"),
                              QStringLiteral("#!/bin/sh\necho old > '%1'\n").arg(oldMarker).toUtf8(), true));

    const RunResult r = sb_.runHelper(helperArgs(false));
    EXPECT_EQ(r.exitCode, 5) << r.describe().toStdString();
    EXPECT_EQ(infoVersion(), QStringLiteral("100"));
    EXPECT_EQ(leftovers(), QStringList());
    EXPECT_TRUE(waitForFile(oldMarker)) << "the previous updater was not started again";
    EXPECT_TRUE(destinationRuns());
    EXPECT_FALSE(QFileInfo::exists(volume_));
}

TEST_F(HelperEndToEnd, PreviousUpdaterThatCannotBePutBackIsNamedInTheLog)
{
    const std::optional<uint> uid = Sandbox::unprivilegedUid();
    if (!uid)
        GTEST_SKIP() << "needs root to run the helper as an unprivileged user";
    ASSERT_TRUE(sb_.giveHomeTo(*uid));
    const QString applications = sb_.sysPath(QStringLiteral("/Applications"));
    const QString owner = QStringLiteral("%1:%1").arg(*uid);
    ASSERT_EQ(QProcess::execute(QStringLiteral("/bin/chown"), {QStringLiteral("-R"), owner, applications}), 0);
    ASSERT_TRUE(breakNewExecutable());
    // While the image is detached, the applications folder is locked against its owner (as an
    // administrator or a management tool may do): the new updater cannot be moved out again.
    ASSERT_TRUE(sb_.writeFile(sb_.sysPath(QStringLiteral("/usr/bin/hdiutil")),
                              QStringLiteral("#!/bin/sh\nchmod 0555 '%1'\n").arg(applications).toUtf8(), true));

    vltest::RunOptions options;
    options.uid = uid;
    const RunResult r = sb_.runHelper(helperArgs(false), options);
    ASSERT_TRUE(QFile::setPermissions(applications, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    EXPECT_EQ(r.exitCode, 4) << r.describe().toStdString();
    const QStringList kept = leftovers();
    ASSERT_EQ(kept.size(), 1) << kept.join(QLatin1Char(' ')).toStdString();
    const QString previous = applications + QLatin1Char('/') + kept.first();
    EXPECT_TRUE(helperLog().contains(previous)) << helperLog().toStdString();
    EXPECT_EQ(sb_.readPlist(previous + QStringLiteral("/Contents/Info.plist")).value_or(QVariant()).toMap().value(QStringLiteral("CFBundleVersion")),
              QStringLiteral("100"));
    EXPECT_TRUE(bundleRuns(previous));
}

} // namespace
