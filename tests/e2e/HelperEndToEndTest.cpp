// SoftwareUpdateHelper as built, in a sandbox: it waits for the running updater to quit,
// replaces the bundle, detaches the image and relaunches; killed half-way it leaves the old
// bundle in place and working, and a later run finishes the job; a refused command line or
// a failed replacement touches nothing.
#include "support/ChildProcess.h"
#include "support/QtPrinters.h"
#include "support/Sandbox.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QThread>

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
        vltest::ChildOptions options;
        options.environment = sb_.environment().toStringList();
        return p->start(Sandbox::helperExecutable(), helperArgs(silent), options) ? std::move(p) : nullptr;
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
    bool destinationRuns() const
    {
        return vltest::runToSuccess(destination_ + QStringLiteral("/Contents/MacOS/SoftwareUpdate"), {QStringLiteral("0")}, 10000);
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
    QElapsedTimer waited;
    waited.start();
    while (!QFileInfo::exists(marker_) && waited.elapsed() < 5000)
        QThread::msleep(50);
    EXPECT_TRUE(QFileInfo::exists(marker_)) << "the new updater was not started";

    // Every step went to the helper's own log.
    QString log;
    for (const QString& folder : {sb_.homePath(QStringLiteral("Library/Logs/Velmora")), sb_.sysPath(QStringLiteral("/Library/Logs/Velmora"))}) {
        for (const QString& name : QDir(folder).entryList({QStringLiteral("SoftwareUpdateHelper*.log")}, QDir::Files)) {
            QFile f(folder + QLatin1Char('/') + name);
            if (f.open(QIODevice::ReadOnly))
                log += QString::fromUtf8(f.readAll());
        }
    }
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
    const QList<Case> cases = {
        {{"-source", source_, "-destination", destination_}, 1},
        {{"-source", source_, "-destination", destination_, "-mountpath"}, 1},
        {{"-source", source_, "-destination", "Applications/Velmora Software Update.app", "-mountpath", volume_}, 1},
        {{"-source", source_, "-destination", sb_.sysPath(QStringLiteral("/Applications")), "-mountpath", volume_}, 1},
        {{"-source", destination_, "-destination", destination_, "-mountpath", volume_}, 1},
        {{"-source", source_, "-destination", destination_, "-mountpath", volume_, "-bogus", "1"}, 1},
        // A source that is not there: the replacement fails and the old bundle stays.
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

} // namespace
