// The escalation ladder and the operations that run system tools, against recording fake tools
// in a sandboxed system root; the unprivileged rungs run this executable again as "nobody".
#include "VLFileManagerTestSupport.h"

#include "shared/VLAuthorization.h"
#include "shared/VLFileManager.h"
#include "support/ZipListing.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFileInfo>
#include <QTimer>

#include <sys/stat.h>

namespace {

using vltest::FileOpsSandboxTest;

class VLFileManagerLadder : public FileOpsSandboxTest {};

TEST_F(VLFileManagerLadder, OrdinaryOperationsRunNoTools)
{
    const QString missing = sandbox.tmpPath(QStringLiteral("not-here"));
    EXPECT_TRUE(VLFileManager::trashFile(missing) && VLFileManager::removeFileTimeout(missing, 1));
    // A folder on a volume that is not mounted is refused before any attempt.
    EXPECT_FALSE(VLFileManager::createDirectory(sandbox.sysPath(QStringLiteral("/Volumes/NoDisk/Folder"))));

    const QString file = sandbox.tmpPath(QStringLiteral("work/Report.txt"));
    ASSERT_TRUE(writeFile(file, "report"));
    ASSERT_TRUE(VLFileManager::trashFile(file));
    EXPECT_EQ(readFile(sandbox.homePath(QStringLiteral(".Trash/Report.txt"))), QByteArray("report"));
    const QString tree = sandbox.tmpPath(QStringLiteral("tree"));
    ASSERT_TRUE(VLFileManager::createDirectoryTimeout(tree + QStringLiteral("/a/b"), 2));
    ASSERT_TRUE(writeFile(tree + QStringLiteral("/a/b/Readme.TXT")));
    ASSERT_TRUE(VLFileManager::copyFileTimeout(tree, sandbox.tmpPath(QStringLiteral("tree2")), 2));
    EXPECT_EQ(readFile(sandbox.tmpPath(QStringLiteral("tree2/a/b/Readme.TXT"))), QByteArray("data"));
    // A rename that changes only the case.
    EXPECT_TRUE(VLFileManager::moveFileTimeout(tree + QStringLiteral("/a/b/Readme.TXT"), tree + QStringLiteral("/a/b/readme.txt"), 2));
    EXPECT_EQ(QDir(tree + QStringLiteral("/a/b")).entryList(QDir::Files), QStringList{QStringLiteral("readme.txt")});
    ASSERT_TRUE(VLFileManager::removeFileTimeout(tree, 2));
    EXPECT_FALSE(QFileInfo::exists(tree));
    EXPECT_TRUE(sandbox.toolCalls().isEmpty());
}

TEST_F(VLFileManagerLadder, ExistingDestinationsGoToThePrivilegedToolsAsRoot)
{
    if (!VLAuthorization::isRoot())
        GTEST_SKIP() << "the root rung needs root";
    const QString source = sandbox.tmpPath(QStringLiteral("new"));
    const QString target = sandbox.tmpPath(QStringLiteral("old"));
    ASSERT_TRUE(writeFile(source, "copied"));
    ASSERT_TRUE(writeFile(target, "old"));
    // The ordinary copy refuses to replace; the privileged one forces it.
    EXPECT_TRUE(VLFileManager::copyFile(source, target));
    EXPECT_EQ(waitForCalls(QStringLiteral("cp")),
              (QList<QStringList>{{QStringLiteral("cp"), QStringLiteral("-f"), QStringLiteral("-p"), QStringLiteral("-R"), source, target}}));
    EXPECT_FALSE(VLFileManager::copyFile(source, target, false)); // no escalation allowed: no new call
    EXPECT_EQ(sandbox.toolCalls(QStringLiteral("cp")).size(), 1);

    // The time-out form waits until the privileged move (a second late) has landed, keeping
    // the main thread's events flowing meanwhile.
    ASSERT_TRUE(writeFile(source, "moved"));
    env.set("FAKE_MV_SLEEP", QStringLiteral("1"));
    bool timerRan = false;
    QTimer::singleShot(50, [&] { timerRan = true; });
    EXPECT_TRUE(VLFileManager::moveFileTimeout(source, target, 10));
    EXPECT_EQ(readFile(target), QByteArray("moved"));
    EXPECT_FALSE(QFileInfo::exists(source));
    EXPECT_TRUE(timerRan);
    EXPECT_EQ(waitForCalls(QStringLiteral("mv")), (QList<QStringList>{{QStringLiteral("mv"), QStringLiteral("-f"), source, target}}));
    // Too short a wait reports the state it found, not the start of the change.
    ASSERT_TRUE(writeFile(source, "newer"));
    EXPECT_FALSE(VLFileManager::moveFileTimeout(source, target, 0));
    const QDeadlineTimer guard(60000);
    while (QFileInfo::exists(source) && !guard.hasExpired())
        QThread::msleep(20); // let the detached move finish inside the sandbox
}

TEST_F(VLFileManagerLadder, LocksArchivesAndTools)
{
    const QString folder = sandbox.tmpPath(QStringLiteral("Docs"));
    ASSERT_TRUE(writeFile(folder + QStringLiteral("/inner/a.txt")));
    EXPECT_TRUE(VLFileManager::lockFolder(folder));
    EXPECT_TRUE(VLFileManager::isFileLocked(folder + QStringLiteral("/inner/a.txt")));
    EXPECT_TRUE(VLFileManager::unlockFolder(folder));
    EXPECT_FALSE(VLFileManager::isFileLocked(folder + QStringLiteral("/inner/a.txt")));

    // A second archive sends the first (parent kept) to the Trash; unpacking over a folder too.
    const QString zip = sandbox.tmpPath(QStringLiteral("docs.zip"));
    EXPECT_TRUE(VLFileManager::compressFile(folder + QStringLiteral("/inner"), zip));
    EXPECT_TRUE(VLFileManager::compressFile(folder + QStringLiteral("/inner"), zip, false));
    EXPECT_EQ(vltest::zipMembers(zip), QStringList{QStringLiteral("a.txt")});
    EXPECT_EQ(vltest::zipMembers(sandbox.homePath(QStringLiteral(".Trash/docs.zip"))),
              (QStringList{QStringLiteral("inner/"), QStringLiteral("inner/a.txt")}));
    const QString out = sandbox.tmpPath(QStringLiteral("out"));
    ASSERT_TRUE(writeFile(out + QStringLiteral("/old.txt")));
    EXPECT_TRUE(VLFileManager::decompressFile(zip, out));
    EXPECT_EQ(QDir(out).entryList(QDir::Files), QStringList{QStringLiteral("a.txt")});
    EXPECT_TRUE(QFileInfo::exists(sandbox.homePath(QStringLiteral(".Trash/out/old.txt"))));
    EXPECT_FALSE(VLFileManager::compressFile(sandbox.tmpPath(QStringLiteral("gone")), sandbox.tmpPath(QStringLiteral("gone.zip"))));

    // Removing a locked file clears the lock first.
    EXPECT_TRUE(VLFileManager::lockFile(folder + QStringLiteral("/inner/a.txt")));
    EXPECT_TRUE(VLFileManager::removeFile(folder, false));
    // Touching never creates; the fake disk utility prints no property list, so no information.
    VLFileManager::touchFile(folder);
    EXPECT_FALSE(VLFileManager::infoForDiskAtMountpoint(QStringLiteral("/")).has_value());
    EXPECT_EQ(sandbox.toolCalls(), (QList<QStringList>{{QStringLiteral("touch"), QStringLiteral("-c"), folder},
                                                       {QStringLiteral("diskutil"), QStringLiteral("info"), QStringLiteral("-plist"), QStringLiteral("/")}}));
}

TEST_F(VLFileManagerLadder, Mounts)
{
    ASSERT_TRUE(sandbox.makeDir(sandbox.sysPath(QStringLiteral("/Volumes/Disk"))));
    // path, drive mounted, volume mounted
    const std::tuple<const char*, bool, bool> cases[] = {
        {"/Volumes/Disk/folder", true, true}, {"/Volumes/Gone/folder", false, false},
        {"/VolumesX/Gone", true, false}, // only the prefix without slash looks here
        {"/Applications/X", true, true},
    };
    for (const auto& [path, drive, volume] : cases) {
        EXPECT_EQ(VLFileManager::isDriveMountedForPath(sandbox.sysPath(QLatin1String(path))), drive) << path;
        EXPECT_EQ(VLFileManager::isVolumeMountedForPath(sandbox.sysPath(QLatin1String(path))), volume) << path;
    }
}

// ---- the unprivileged rungs: this executable again, as "nobody" ----------------------------

// Runs in the child only (VLFO_CHILD names the case); skipped in ordinary runs.
TEST(VLFileManagerLadderChild, Run)
{
    const QString scenario = qEnvironmentVariable("VLFO_CHILD");
    if (scenario.isEmpty())
        GTEST_SKIP() << "runs only as the unprivileged child of the ladder tests";
    const QString target = qEnvironmentVariable("VLFO_TARGET");
    ASSERT_FALSE(VLAuthorization::isRoot());
    VLAuthorization& auth = VLAuthorization::sharedController(scenario != QStringLiteral("remove-no-interface"));
    if (scenario == QStringLiteral("remove")) {
        EXPECT_TRUE(VLFileManager::removeFile(target));
    } else if (scenario == QStringLiteral("trash")) {
        EXPECT_TRUE(VLFileManager::trashFile(target));
    } else {
        EXPECT_FALSE(auth.canAuthorize());
        EXPECT_FALSE(VLFileManager::removeFile(target));
        EXPECT_TRUE(VLFileManager::removeFile(target + QStringLiteral("-missing"))); // no prompt needed
    }
}

TEST_F(VLFileManagerLadder, UnprivilegedFailuresEscalateThroughTheRunnerOnlyWithAnInterface)
{
    const std::optional<uint> nobody = vltest::Sandbox::unprivilegedUid();
    if (!nobody)
        GTEST_SKIP() << "needs root to run a child as an unprivileged user";
    ASSERT_TRUE(sandbox.giveHomeTo(*nobody));
    // A file in a folder of root's that "nobody" may read but not change. pkexec's stand-in
    // runs the tool as the same user, so the file stays.
    const QString file = sandbox.root() + QStringLiteral("/rootonly/file");
    ASSERT_TRUE(writeFile(file));
    ::chmod(QFile::encodeName(sandbox.root() + QStringLiteral("/rootonly")).constData(), 0755);
    const QList<QStringList> prompt{{QStringLiteral("pkexec"), VLAuthorizationChannel::runnerPath()}};
    const struct {
        const char* scenario;
        QList<QStringList> calls; // of the privileged tool
    } cases[] = {
        {"remove", {{QStringLiteral("rm"), QStringLiteral("-Rdf"), file}}},
        {"trash", {{QStringLiteral("mv"), QStringLiteral("-f"), file, sandbox.homePath(QStringLiteral(".Trash/file"))}}},
        {"remove-no-interface", {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.scenario);
        ASSERT_TRUE(QFile(sandbox.toolLogPath()).resize(0) || !QFileInfo::exists(sandbox.toolLogPath()));
        const vltest::RunResult result = sandbox.run(QCoreApplication::applicationFilePath(), {QStringLiteral("--gtest_filter=VLFileManagerLadderChild.Run")},
            {.uid = nobody, .extraEnv = {{QStringLiteral("VLFO_CHILD"), QLatin1String(c.scenario)}, {QStringLiteral("VLFO_TARGET"), file}}});
        ASSERT_EQ(result.exitCode, 0) << result.describe().toStdString();
        EXPECT_EQ(sandbox.toolCalls(QStringLiteral("pkexec")), c.calls.isEmpty() ? QList<QStringList>() : prompt);
        EXPECT_EQ(c.calls.isEmpty() ? QList<QStringList>() : waitForCalls(c.calls[0][0]), c.calls);
        EXPECT_EQ(result.err().contains(QStringLiteral("Unable to authorize")), c.calls.isEmpty()) << result.err().toStdString();
        EXPECT_TRUE(QFileInfo::exists(file));
    }
}

} // namespace
