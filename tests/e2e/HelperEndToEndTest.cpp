// SoftwareUpdateHelper as built, in a sandbox: it waits for the running updater to quit,
// replaces the bundle, detaches the image and relaunches; killed half-way it leaves the old
// bundle in place and working, and a later run finishes the job; a refused command line or a
// failed replacement touches nothing. Each failure status leaves the user a working updater at
// the destination, or a log line naming where the previous one is.
#include "EndToEnd.h"

#include "support/ChildProcess.h"

#include <QDir>
#include <QFileInfo>
#include <QRandomGenerator>

namespace {

using e2e::waitFor;
using vltest::FakeBundle;
using vltest::RunResult;
using vltest::Sandbox;

class HelperEndToEnd : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(sb_.isValid() && sb_.installFakeTools());
        FakeBundle old{destination_, "com.velmora.SoftwareUpdate", "100", {}, "SoftwareUpdate"};
        ASSERT_FALSE(sb_.createBundle(old).isEmpty());
        FakeBundle fresh = old;
        fresh.path = source_;
        fresh.version = "200";
        fresh.executable = QStringLiteral("#!/bin/sh\necho relaunched > '%1'\n").arg(marker_).toUtf8();
        ASSERT_FALSE(sb_.createBundle(fresh).isEmpty());
    }

    RunResult runHelper(const QStringList& args, const vltest::RunOptions& options = {}) const
    {
        return sb_.run(Sandbox::helperExecutable(), args, options);
    }
    QStringList helperArgs(bool silent) const
    {
        QStringList args{"-source", source_, "-destination", destination_, "-mountpath", volume_};
        return silent ? args << "-silent" << "1" : args;
    }
    QString infoVersion(const QString& bundle = {}) const
    {
        const QString info = (bundle.isEmpty() ? destination_ : bundle) + "/Contents/Info.plist";
        return sb_.readPlist(info).value_or(QVariant()).toMap().value("CFBundleVersion").toString();
    }
    QStringList leftovers() const
    {
        return QDir(sb_.sysPath("/Applications")).entryList({".Velmora*"}, QDir::AllEntries | QDir::Hidden);
    }
    // The updater at `bundle` still starts and ends normally.
    static bool runs(const QString& bundle)
    {
        return vltest::runToSuccess(bundle + "/Contents/MacOS/SoftwareUpdate", {"0"}, 10000);
    }
    // The new version's executable cannot be started: its interpreter does not exist.
    bool breakNewExecutable() { return sb_.writeFile(source_ + "/Contents/MacOS/SoftwareUpdate", "#!/nonexistent/interpreter\n", true); }
    // The helper's own log, from the user's log folder or the machine's.
    QString helperLog() const
    {
        QString log;
        for (const QString& folder : {sb_.homePath("Library/Logs/Velmora"), sb_.sysPath("/Library/Logs/Velmora")})
            for (const QString& name : QDir(folder).entryList({"SoftwareUpdateHelper*.log"}, QDir::Files))
                log += QString::fromUtf8(Sandbox::readFile(folder + '/' + name));
        return log;
    }

    Sandbox sb_;
    const QString destination_ = sb_.sysPath("/Applications/Velmora Software Update.app");
    const QString volume_ = sb_.sysPath("/Volumes/Velmora Software Update");
    const QString source_ = volume_ + "/Velmora Software Update.app";
    const QString marker_ = sb_.tmpPath("relaunched");
};

TEST_F(HelperEndToEnd, ReplacesDetachesAndRelaunchesOnceTheUpdaterHasQuit)
{
    vltest::ChildProcess updater, helper;
    ASSERT_TRUE(updater.start(destination_ + "/Contents/MacOS/SoftwareUpdate", {"300"}));
    ASSERT_TRUE(sb_.start(helper, Sandbox::helperExecutable(), helperArgs(false)));
    ASSERT_TRUE(waitFor([&] { return helperLog().contains("Waiting for"); })) << helperLog().toStdString();
    updater.terminate();
    ASSERT_TRUE(updater.waitForFinished(5000));

    ASSERT_TRUE(helper.waitForFinished(20000));
    EXPECT_EQ(helper.exitCode(), 0) << helper.standardError().toStdString();
    EXPECT_EQ(infoVersion(), "200");
    EXPECT_EQ(leftovers(), QStringList());
    EXPECT_EQ(sb_.toolCalls("hdiutil"), (QList<QStringList>{{"hdiutil", "detach", volume_, "-force"}}));
    EXPECT_FALSE(QFileInfo::exists(volume_));
    EXPECT_TRUE(waitFor([&] { return QFileInfo::exists(marker_); })) << "the new updater was not started";
    for (const char* step : {"Moving the new bundle into place...", "Unmounting disk image", "Relaunching"})
        EXPECT_TRUE(helperLog().contains(step)) << step << "\n" << helperLog().toStdString();
}

// Killed while it copies, the old bundle stays in place and runs; the next (silent) run clears
// what the killed one left, finishes the replacement and starts nothing.
TEST_F(HelperEndToEnd, KilledHalfWayTheOldBundleStillRunsAndTheNextRunFinishes)
{
    // A large file keeps the copy busy long enough to be interrupted.
    QByteArray block(1 << 20, 0);
    for (auto& c : block)
        c = char(QRandomGenerator::global()->bounded(256));
    ASSERT_TRUE(sb_.writeFile(source_ + "/Contents/Resources/big.bin", block.repeated(192)));

    vltest::ChildProcess helper;
    ASSERT_TRUE(sb_.start(helper, Sandbox::helperExecutable(), helperArgs(true)));
    ASSERT_TRUE(waitFor([&] { return !leftovers().isEmpty(); })) << "the copy was never seen under way";
    helper.kill();
    ASSERT_TRUE(helper.waitForFinished(5000));
    EXPECT_EQ(infoVersion(), "100");
    EXPECT_TRUE(runs(destination_));

    const RunResult again = runHelper(helperArgs(true));
    ASSERT_EQ(again.exitCode, 0) << again.describe().toStdString();
    EXPECT_EQ(infoVersion(), "200");
    EXPECT_EQ(leftovers(), QStringList());
    // A relaunch is logged before the helper ends.
    EXPECT_FALSE(helperLog().contains("Relaunching"));
    EXPECT_FALSE(QFileInfo::exists(marker_));
}

TEST_F(HelperEndToEnd, RefusedCommandLinesAndFailedCopiesTouchNothing)
{
    const QString missing = sb_.sysPath("/Volumes/Gone/Velmora Software Update.app");
    // A new version whose executable may not be run would leave no updater that starts.
    const QString unrunnable = volume_ + "/Unrunnable/Velmora Software Update.app";
    ASSERT_FALSE(sb_.createBundle({unrunnable, "com.velmora.SoftwareUpdate", "300", {}, "SoftwareUpdate"}).isEmpty());
    ASSERT_TRUE(QFile::setPermissions(unrunnable + "/Contents/MacOS/SoftwareUpdate", QFile::ReadOwner | QFile::WriteOwner));
    const QString applications = sb_.sysPath("/Applications");
    const struct {
        QStringList args;
        int status;
    } cases[] = {
        {{"-source", source_, "-destination", destination_}, 1},
        {{"-source", source_, "-destination", destination_, "-mountpath"}, 1},
        {{"-source", source_, "-destination", "Applications/Velmora Software Update.app", "-mountpath", volume_}, 1},
        {{"-source", source_, "-destination", applications, "-mountpath", volume_}, 1},
        {{"-source", destination_, "-destination", destination_, "-mountpath", volume_}, 1},
        {{"-source", source_, "-destination", destination_, "-mountpath", volume_, "-bogus", "1"}, 1},
        // A source that could not be started, or is not there: the old bundle stays.
        {{"-source", unrunnable, "-destination", destination_, "-mountpath", volume_, "-silent", "1"}, 3},
        {{"-source", missing, "-destination", destination_, "-mountpath", volume_, "-silent", "1"}, 3},
    };
    for (const auto& c : cases) {
        const RunResult r = runHelper(c.args);
        EXPECT_EQ(r.exitCode, c.status) << c.args.join(' ').toStdString() << r.describe().toStdString();
        EXPECT_EQ(infoVersion(), "100");
        EXPECT_EQ(leftovers(), QStringList());
    }
    EXPECT_TRUE(runs(destination_));
}

// Status 2: an updater hung in its termination (it ignores the polite quit) is waited for, 60
// seconds as the helper documents, and then nothing is replaced.
TEST_F(HelperEndToEnd, UpdaterThatNeverQuitsLeavesEverythingInPlace)
{
    vltest::ChildProcess updater;
    ASSERT_TRUE(updater.start("/bin/sh", {"-c", "trap '' TERM; exec \"$0\" 300", destination_ + "/Contents/MacOS/SoftwareUpdate"}));
    const QString exe = QStringLiteral("/proc/%1/exe").arg(updater.pid());
    ASSERT_TRUE(waitFor([&] { return QFileInfo(exe).symLinkTarget().startsWith(destination_); }));
    const RunResult r = runHelper(helperArgs(false));
    EXPECT_EQ(r.exitCode, 2) << r.describe().toStdString();
    EXPECT_EQ(infoVersion(), "100");
    EXPECT_EQ(leftovers(), QStringList());
    EXPECT_TRUE(QFileInfo::exists(volume_)) << "the image stays mounted for another try";
    EXPECT_TRUE(sb_.toolCalls("hdiutil").isEmpty());
    EXPECT_TRUE(helperLog().contains("did not quit; nothing was replaced")) << helperLog().toStdString();
    updater.kill();
    ASSERT_TRUE(updater.waitForFinished(5000));
    EXPECT_TRUE(runs(destination_));
}

// Status 5: the new updater cannot start, so the previous one is put back and started.
TEST_F(HelperEndToEnd, NewUpdaterThatCannotStartIsReplacedByThePreviousOne)
{
    ASSERT_TRUE(breakNewExecutable());
    const QString oldMarker = sb_.tmpPath("old-relaunched");
    ASSERT_TRUE(sb_.writeFile(destination_ + "/Contents/MacOS/SoftwareUpdate",
                              QStringLiteral("#!/bin/sh\necho old > '%1'\n").arg(oldMarker).toUtf8(), true));
    const RunResult r = runHelper(helperArgs(false));
    EXPECT_EQ(r.exitCode, 5) << r.describe().toStdString();
    EXPECT_EQ(infoVersion(), "100");
    EXPECT_EQ(leftovers(), QStringList());
    EXPECT_TRUE(waitFor([&] { return QFileInfo::exists(oldMarker); })) << "the previous updater was not started again";
    EXPECT_FALSE(QFileInfo::exists(volume_));
}

// Status 4: the previous updater cannot be put back; the log names where it is.
TEST_F(HelperEndToEnd, PreviousUpdaterThatCannotBePutBackIsNamedInTheLog)
{
    const std::optional<uint> uid = Sandbox::unprivilegedUid();
    if (!uid)
        GTEST_SKIP() << "needs root to run the helper as an unprivileged user";
    ASSERT_TRUE(sb_.giveHomeTo(*uid));
    const QString applications = sb_.sysPath("/Applications");
    ASSERT_TRUE(vltest::runToSuccess("/bin/chown", {"-R", QStringLiteral("%1:%1").arg(*uid), applications}));
    ASSERT_TRUE(breakNewExecutable());
    // While the image is detached, the applications folder is locked against its owner (as an
    // administrator or a management tool may do): the new updater cannot be moved out again.
    ASSERT_TRUE(sb_.writeFile(sb_.sysPath("/usr/bin/hdiutil"), QStringLiteral("#!/bin/sh\nchmod 0555 '%1'\n").arg(applications).toUtf8(), true));

    const RunResult r = runHelper(helperArgs(false), {.uid = uid});
    ASSERT_TRUE(QFile::setPermissions(applications, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    EXPECT_EQ(r.exitCode, 4) << r.describe().toStdString();
    const QStringList kept = leftovers();
    ASSERT_EQ(kept.size(), 1) << kept.join(' ').toStdString();
    const QString previous = applications + '/' + kept.first();
    EXPECT_TRUE(helperLog().contains(previous)) << helperLog().toStdString();
    EXPECT_EQ(infoVersion(previous), "100");
    EXPECT_TRUE(runs(previous));
}

} // namespace
