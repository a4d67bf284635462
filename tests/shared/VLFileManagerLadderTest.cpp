// The escalation ladder and the operations that run system tools, against recording fake tools
// in a sandboxed system root; the unprivileged rungs run this executable again as "nobody".
#include "VLFileManagerTestSupport.h"

#include "shared/VLAuthorization.h"
#include "shared/VLFileManager.h"
#include "support/ZipListing.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QTimer>

#include <sys/stat.h>
#include <unistd.h>

namespace {

using vltest::FileOpsSandboxTest;

class VLFileManagerLadder : public FileOpsSandboxTest {};

TEST_F(VLFileManagerLadder, MissingPathsSucceedWithoutRunningAnything)
{
    const QString missing = sandbox.tmpPath(QStringLiteral("not-here"));
    EXPECT_TRUE(VLFileManager::trashFile(missing));
    EXPECT_TRUE(VLFileManager::removeFile(missing));
    EXPECT_TRUE(VLFileManager::trashFileTimeout(missing, 1));
    EXPECT_TRUE(VLFileManager::removeFileTimeout(missing, 1));
    // A folder on a volume that is not mounted is refused before any attempt.
    EXPECT_FALSE(VLFileManager::createDirectory(sandbox.sysPath(QStringLiteral("/Volumes/NoDisk/Folder"))));
    EXPECT_TRUE(sandbox.toolCalls().isEmpty());
}

TEST_F(VLFileManagerLadder, OrdinaryOperationsNeedNoTools)
{
    const QString file = sandbox.tmpPath(QStringLiteral("work/Report.txt"));
    ASSERT_TRUE(writeFile(file, "report"));
    ASSERT_TRUE(VLFileManager::trashFile(file));
    EXPECT_EQ(readFile(sandbox.homePath(QStringLiteral(".Trash/Report.txt"))), QByteArray("report"));

    const QString tree = sandbox.tmpPath(QStringLiteral("tree"));
    ASSERT_TRUE(VLFileManager::createDirectoryTimeout(tree + QStringLiteral("/a/b"), 2));
    ASSERT_TRUE(writeFile(tree + QStringLiteral("/a/b/f")));
    ASSERT_TRUE(VLFileManager::copyFileTimeout(tree, sandbox.tmpPath(QStringLiteral("tree2")), 2));
    EXPECT_EQ(readFile(sandbox.tmpPath(QStringLiteral("tree2/a/b/f"))), QByteArray("data"));
    ASSERT_TRUE(VLFileManager::removeFileTimeout(tree, 2));
    EXPECT_FALSE(QFileInfo::exists(tree));
    EXPECT_TRUE(sandbox.toolCalls().isEmpty());
}

TEST_F(VLFileManagerLadder, CaseOnlyRename)
{
    const QString folder = sandbox.tmpPath(QStringLiteral("case"));
    ASSERT_TRUE(writeFile(folder + QStringLiteral("/Readme.TXT"), "text"));
    EXPECT_TRUE(VLFileManager::moveFileTimeout(folder + QStringLiteral("/Readme.TXT"), folder + QStringLiteral("/readme.txt"), 2));
    EXPECT_EQ(QDir(folder).entryList(QDir::Files), QStringList{QStringLiteral("readme.txt")});
    EXPECT_TRUE(sandbox.toolCalls().isEmpty());
}

TEST_F(VLFileManagerLadder, ExistingDestinationsGoToThePrivilegedToolsAsRoot)
{
    if (!VLAuthorization::isRoot())
        GTEST_SKIP() << "the root rung needs root";
    const QString source = sandbox.tmpPath(QStringLiteral("new"));
    const QString target = sandbox.tmpPath(QStringLiteral("old"));
    ASSERT_TRUE(writeFile(source, "new"));
    ASSERT_TRUE(writeFile(target, "old"));
    // The ordinary move refuses to replace; the privileged one forces it, and the time-out
    // form waits until the source is gone.
    EXPECT_TRUE(VLFileManager::moveFileTimeout(source, target, 5));
    EXPECT_EQ(readFile(target), QByteArray("new"));
    EXPECT_EQ(waitForCalls(QStringLiteral("mv")),
              (QList<QStringList>{{QStringLiteral("mv"), QStringLiteral("-f"), source, target}}));

    ASSERT_TRUE(writeFile(source, "newer"));
    EXPECT_TRUE(VLFileManager::copyFile(source, target));
    EXPECT_EQ(waitForCalls(QStringLiteral("cp")),
              (QList<QStringList>{{QStringLiteral("cp"), QStringLiteral("-f"), QStringLiteral("-p"), QStringLiteral("-R"), source, target}}));
    EXPECT_FALSE(VLFileManager::copyFile(source, target, false)); // no escalation allowed: no new call
    EXPECT_EQ(sandbox.toolCalls(QStringLiteral("cp")).size(), 1);
}

TEST_F(VLFileManagerLadder, TimeoutFormsWaitForTheChangeAndKeepEventsFlowing)
{
    if (!VLAuthorization::isRoot())
        GTEST_SKIP() << "the root rung needs root";
    const QString source = sandbox.tmpPath(QStringLiteral("slow-new"));
    const QString target = sandbox.tmpPath(QStringLiteral("slow-old"));
    ASSERT_TRUE(writeFile(source, "new"));
    ASSERT_TRUE(writeFile(target, "old"));
    env.set("FAKE_MV_SLEEP", QStringLiteral("1")); // the privileged move lands a second later
    bool timerRan = false;
    QTimer::singleShot(50, [&] { timerRan = true; });
    QElapsedTimer elapsed;
    elapsed.start();
    EXPECT_TRUE(VLFileManager::moveFileTimeout(source, target, 10));
    EXPECT_GE(elapsed.elapsed(), 900);
    EXPECT_TRUE(timerRan); // the main thread dispatched events while it waited
    EXPECT_EQ(readFile(target), QByteArray("new"));

    // Too short a wait reports the state it found, not the start of the change.
    ASSERT_TRUE(writeFile(source, "newer"));
    EXPECT_FALSE(VLFileManager::moveFileTimeout(source, target, 0));
    for (elapsed.restart(); QFileInfo::exists(source) && elapsed.elapsed() < 5000;)
        QThread::msleep(20); // let the detached move finish inside the sandbox
}

TEST_F(VLFileManagerLadder, LocksAreWritePermissions)
{
    const QString folder = sandbox.tmpPath(QStringLiteral("locked"));
    ASSERT_TRUE(writeFile(folder + QStringLiteral("/inner/file")));
    EXPECT_TRUE(VLFileManager::lockFolder(folder));
    EXPECT_TRUE(VLFileManager::isFileLocked(folder));
    EXPECT_TRUE(VLFileManager::isFileLocked(folder + QStringLiteral("/inner/file")));
    EXPECT_EQ(QFileInfo(folder + QStringLiteral("/inner/file")).permissions() & QFile::ReadOwner, QFile::ReadOwner);
    EXPECT_TRUE(VLFileManager::unlockFolder(folder));
    EXPECT_FALSE(VLFileManager::isFileLocked(folder + QStringLiteral("/inner/file")));
    // Removing a locked file clears the lock first.
    EXPECT_TRUE(VLFileManager::lockFile(folder + QStringLiteral("/inner/file")));
    EXPECT_TRUE(VLFileManager::removeFile(folder, false));
}

TEST_F(VLFileManagerLadder, ArchivesReplaceWhatIsThereThroughTheTrash)
{
    const QString source = sandbox.tmpPath(QStringLiteral("Docs"));
    ASSERT_TRUE(writeFile(source + QStringLiteral("/a.txt")));
    const QString zip = sandbox.tmpPath(QStringLiteral("docs.zip"));
    EXPECT_TRUE(VLFileManager::compressFile(source, zip));
    EXPECT_TRUE(VLFileManager::compressFile(source, zip, false));
    EXPECT_EQ(vltest::zipMembers(zip), QStringList{QStringLiteral("a.txt")});
    // The first archive (parent kept) went to the Trash before the second was made.
    EXPECT_EQ(vltest::zipMembers(sandbox.homePath(QStringLiteral(".Trash/docs.zip"))),
              (QStringList{QStringLiteral("Docs/"), QStringLiteral("Docs/a.txt")}));

    const QString out = sandbox.tmpPath(QStringLiteral("out"));
    ASSERT_TRUE(writeFile(out + QStringLiteral("/old.txt")));
    EXPECT_TRUE(VLFileManager::decompressFile(zip, out));
    EXPECT_EQ(QDir(out).entryList(QDir::Files), QStringList{QStringLiteral("a.txt")});
    EXPECT_TRUE(QFileInfo::exists(sandbox.homePath(QStringLiteral(".Trash/out/old.txt"))));

    EXPECT_FALSE(VLFileManager::compressFile(sandbox.tmpPath(QStringLiteral("gone")), sandbox.tmpPath(QStringLiteral("gone.zip"))));
}

TEST_F(VLFileManagerLadder, ToolsAreRunWithTheirArguments)
{
    const QString file = sandbox.tmpPath(QStringLiteral("file"));
    VLFileManager::touchFile(file);
    EXPECT_EQ(sandbox.toolCalls(QStringLiteral("touch")), (QList<QStringList>{{QStringLiteral("touch"), QStringLiteral("-c"), file}}));

    // The fake disk utility prints nothing: no property list, so no information.
    EXPECT_FALSE(VLFileManager::infoForDiskAtMountpoint(QStringLiteral("/")).has_value());
    EXPECT_EQ(sandbox.toolCalls(QStringLiteral("diskutil")),
              (QList<QStringList>{{QStringLiteral("diskutil"), QStringLiteral("info"), QStringLiteral("-plist"), QStringLiteral("/")}}));
}

TEST_F(VLFileManagerLadder, DriveMountedOnlyMattersUnderVolumes)
{
    ASSERT_TRUE(sandbox.makeDir(sandbox.sysPath(QStringLiteral("/Volumes/Disk"))));
    const struct {
        const char* path;
        bool drive;
        bool volume;
    } cases[] = {
        {"/Volumes/Disk/folder", true, true},
        {"/Volumes/Gone/folder", false, false},
        {"/Volumes/Gone", false, false},
        {"/Volumes", true, true},
        {"/VolumesX/Gone", true, false}, // only the prefix without slash looks here
        {"/Applications/X", true, true},
    };
    for (const auto& c : cases) {
        const QString path = sandbox.sysPath(QString::fromLatin1(c.path));
        EXPECT_EQ(VLFileManager::isDriveMountedForPath(path), c.drive) << c.path;
        EXPECT_EQ(VLFileManager::isVolumeMountedForPath(path), c.volume) << c.path;
    }
}

TEST_F(VLFileManagerLadder, MetadataIsRefusedOffAppleFileSystems)
{
    const QString file = sandbox.tmpPath(QStringLiteral("meta"));
    ASSERT_TRUE(writeFile(file));
    if (VLFileManager::isMacFilesystemAtPath(file))
        GTEST_SKIP() << "the temporary folder is on an Apple file system";
    EXPECT_FALSE(VLFileManager::setMetadataValue(QStringLiteral("v"), QStringLiteral("com.velmora.test"), file));
    EXPECT_FALSE(VLFileManager::metadataValueForKey(QStringLiteral("com.velmora.test"), file).has_value());
    EXPECT_FALSE(VLFileManager::filesystemForPath(file).isEmpty());
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
    if (scenario == QStringLiteral("remove")) {
        VLAuthorization::sharedController(true);
        EXPECT_TRUE(VLFileManager::removeFile(target));
    } else if (scenario == QStringLiteral("trash")) {
        VLAuthorization::sharedController(true);
        EXPECT_TRUE(VLFileManager::trashFile(target));
    } else if (scenario == QStringLiteral("remove-no-interface")) {
        VLAuthorization& auth = VLAuthorization::sharedController(false);
        EXPECT_FALSE(auth.canAuthorize());
        EXPECT_FALSE(auth.authStart());
        EXPECT_FALSE(VLFileManager::removeFile(target));
        EXPECT_TRUE(VLFileManager::removeFile(target + QStringLiteral("-missing"))); // no prompt needed
    } else if (scenario == QStringLiteral("refused")) {
        VLAuthorization& auth = VLAuthorization::sharedController(true);
        EXPECT_EQ(auth.authExecTask(target, {QStringLiteral("-p"), QStringLiteral("/nonexistent-dir")}, false), -1);
        EXPECT_FALSE(auth.isAuthorized());
        // The user accepts the next prompt. The tool fails (nobody may create that folder),
        // which the caller never learns: it ran.
        qunsetenv("FAKE_PKEXEC_DENY");
        EXPECT_EQ(auth.authExecTask(target, {QStringLiteral("-p"), QStringLiteral("/nonexistent-dir")}, false), 0);
    } else {
        ADD_FAILURE() << "unknown case " << scenario.toStdString();
    }
}

class VLFileManagerUnprivileged : public FileOpsSandboxTest {
protected:
    void SetUp() override
    {
        FileOpsSandboxTest::SetUp();
        if (!vltest::Sandbox::unprivilegedUid())
            GTEST_SKIP() << "needs root to run a child as an unprivileged user";
        // A folder of root's that "nobody" may read but not change.
        folder = sandbox.root() + QStringLiteral("/rootonly");
        ASSERT_TRUE(writeFile(folder + QStringLiteral("/file")));
        ::chmod(QFile::encodeName(folder).constData(), 0755);
    }

    vltest::RunResult runChild(const QString& scenario, const QString& target, QMap<QString, QString> extra = {})
    {
        vltest::RunOptions options;
        options.uid = vltest::Sandbox::unprivilegedUid();
        options.extraEnv = std::move(extra);
        options.extraEnv.insert(QStringLiteral("VLFO_CHILD"), scenario);
        options.extraEnv.insert(QStringLiteral("VLFO_TARGET"), target);
        return sandbox.run(QCoreApplication::applicationFilePath(),
                           {QStringLiteral("--gtest_filter=VLFileManagerLadderChild.Run")}, options);
    }

    // The one prompt of a process: pkexec starting the privileged tool runner.
    static QList<QStringList> runnerPrompt()
    {
        return {{QStringLiteral("pkexec"), VLAuthorizationChannel::runnerPath()}};
    }

    QString folder;
};

TEST_F(VLFileManagerUnprivileged, PermissionFailureEscalatesThroughTheRunner)
{
    const QString file = folder + QStringLiteral("/file");
    const vltest::RunResult result = runChild(QStringLiteral("remove"), file);
    ASSERT_EQ(result.exitCode, 0) << result.describe().toStdString();
    EXPECT_EQ(sandbox.toolCalls(QStringLiteral("pkexec")), runnerPrompt());
    EXPECT_EQ(waitForCalls(QStringLiteral("rm")), (QList<QStringList>{{QStringLiteral("rm"), QStringLiteral("-Rdf"), file}}));
    // pkexec's stand-in runs the tool as the same user, so the file of root's stays.
    EXPECT_TRUE(QFileInfo::exists(file));
}

TEST_F(VLFileManagerUnprivileged, TrashFallsBackToThePrivilegedMove)
{
    ASSERT_TRUE(sandbox.giveHomeTo(*vltest::Sandbox::unprivilegedUid()));
    const QString file = folder + QStringLiteral("/file");
    const vltest::RunResult result = runChild(QStringLiteral("trash"), file);
    ASSERT_EQ(result.exitCode, 0) << result.describe().toStdString();
    EXPECT_EQ(sandbox.toolCalls(QStringLiteral("pkexec")), runnerPrompt());
    EXPECT_EQ(waitForCalls(QStringLiteral("mv")),
              (QList<QStringList>{{QStringLiteral("mv"), QStringLiteral("-f"), file, sandbox.homePath(QStringLiteral(".Trash/file"))}}));
}

TEST_F(VLFileManagerUnprivileged, NoInterfaceMeansNoEscalation)
{
    const vltest::RunResult result = runChild(QStringLiteral("remove-no-interface"), folder + QStringLiteral("/file"));
    ASSERT_EQ(result.exitCode, 0) << result.describe().toStdString();
    EXPECT_TRUE(result.err().contains(QStringLiteral("Unable to authorize"))) << result.err().toStdString();
    EXPECT_TRUE(sandbox.toolCalls().isEmpty());
}

TEST_F(VLFileManagerUnprivileged, RefusedPasswordDialogIsNotAuthorisedAndAskedAgain)
{
    const vltest::RunResult result = runChild(QStringLiteral("refused"), sandbox.sysPath(QStringLiteral("/bin/mkdir")),
                                              {{QStringLiteral("FAKE_PKEXEC_DENY"), QStringLiteral("1")}});
    ASSERT_EQ(result.exitCode, 0) << result.describe().toStdString();
    // Refused, then asked again by the next operation and granted.
    EXPECT_EQ(sandbox.toolCalls(QStringLiteral("pkexec")), runnerPrompt() + runnerPrompt());
    EXPECT_EQ(sandbox.toolCalls(QStringLiteral("mkdir")),
              (QList<QStringList>{{QStringLiteral("mkdir"), QStringLiteral("-p"), QStringLiteral("/nonexistent-dir")}}));
}

} // namespace
