// Privileged operations as root: refusals, trash naming and the exact tool arguments.
// The unprivileged side (pkexec, no interface, refusal) is exercised in VLFileManagerLadderTest
// and, for the privileged tool runner itself, in VLAuthorizationChannelTest.
#include "VLFileManagerTestSupport.h"

#include "shared/VLAuthorization.h"

#include <QFileInfo>
#include <QRegularExpression>

#include <algorithm>

namespace {

class VLAuthorizationAsRoot : public vltest::FileOpsSandboxTest {
protected:
    void SetUp() override
    {
        FileOpsSandboxTest::SetUp();
        if (!VLAuthorization::isRoot())
            GTEST_SKIP() << "these cases describe the root account";
    }
    VLAuthorization& auth = VLAuthorization::sharedController(false);
};

// Refusals come before any privilege question, so they hold for every account.
class VLAuthorizationRefusals : public vltest::FileOpsSandboxTest {
protected:
    VLAuthorization& auth = VLAuthorization::sharedController(false);
};

TEST_F(VLAuthorizationAsRoot, RootNeedsNoGrant)
{
    EXPECT_TRUE(auth.authStart());
    EXPECT_TRUE(auth.isAuthorized());
    EXPECT_TRUE(auth.canAuthorize());
    EXPECT_TRUE(auth.userDirectory().isEmpty());
    EXPECT_EQ(auth.authExecTask(sandbox.sysPath(QStringLiteral("/usr/bin/no-such-tool")), {}), -2);
    EXPECT_EQ(auth.authExecTask(sandbox.sysPath(QStringLiteral("/bin/mkdir")), {QStringLiteral("-p"), sandbox.tmpPath(QStringLiteral("x"))}, false), 0);
    EXPECT_TRUE(QFileInfo::exists(sandbox.tmpPath(QStringLiteral("x"))));
    EXPECT_TRUE(sandbox.toolCalls(QStringLiteral("pkexec")).isEmpty());
}

TEST_F(VLAuthorizationRefusals, SystemFoldersAreRefusedBeforeAnythingRuns)
{
    const QString usr = sandbox.sysPath(QStringLiteral("/usr"));
    EXPECT_FALSE(auth.authRemoveFile(usr));
    EXPECT_FALSE(auth.authRemoveFile(sandbox.sysPath(QStringLiteral("/usr/bin"))));
    EXPECT_FALSE(auth.authRemoveFile(sandbox.home()));
    EXPECT_FALSE(auth.authTrashFile(sandbox.sysPath(QStringLiteral("/Applications"))));
    EXPECT_FALSE(auth.authTrashFolderContents(sandbox.sysPath(QStringLiteral("/System/Library"))));
    EXPECT_FALSE(auth.authMoveFolderContents(sandbox.sysPath(QStringLiteral("/bin")), sandbox.tmp()));
    EXPECT_FALSE(auth.authMoveFile(sandbox.sysPath(QStringLiteral("/sbin/tool")), sandbox.tmp()));
    EXPECT_TRUE(sandbox.toolCalls().isEmpty());
}

TEST_F(VLAuthorizationRefusals, NullAndMissingSourcesRunNothing)
{
    const QString missing = sandbox.tmpPath(QStringLiteral("missing"));
    EXPECT_FALSE(auth.authMoveFile(QString(), missing));
    EXPECT_FALSE(auth.authMoveFile(missing, QString()));
    EXPECT_FALSE(auth.authMoveFile(missing, sandbox.tmpPath(QStringLiteral("elsewhere"))));
    EXPECT_FALSE(auth.authCopyFile(QString(), missing));
    EXPECT_FALSE(auth.authCopyFile(missing, sandbox.tmpPath(QStringLiteral("elsewhere"))));
    EXPECT_TRUE(sandbox.toolCalls().isEmpty());
}

TEST_F(VLAuthorizationAsRoot, ToolArguments)
{
    const QString source = sandbox.tmpPath(QStringLiteral("src"));
    ASSERT_TRUE(writeFile(source));
    const QString folder = sandbox.tmpPath(QStringLiteral("made/deep"));
    EXPECT_TRUE(auth.authCopyFile(source, sandbox.tmpPath(QStringLiteral("copy"))));
    EXPECT_TRUE(auth.authCreateDir(folder));
    EXPECT_TRUE(auth.authRemoveFile(sandbox.tmpPath(QStringLiteral("copy"))));
    EXPECT_EQ(waitForCalls(QStringLiteral("cp")),
              (QList<QStringList>{{QStringLiteral("cp"), QStringLiteral("-f"), QStringLiteral("-p"), QStringLiteral("-R"), source,
                                   sandbox.tmpPath(QStringLiteral("copy"))}}));
    EXPECT_EQ(waitForCalls(QStringLiteral("mkdir")), (QList<QStringList>{{QStringLiteral("mkdir"), QStringLiteral("-p"), folder}}));
    EXPECT_EQ(waitForCalls(QStringLiteral("rm")),
              (QList<QStringList>{{QStringLiteral("rm"), QStringLiteral("-Rdf"), sandbox.tmpPath(QStringLiteral("copy"))}}));
}

TEST_F(VLAuthorizationAsRoot, TrashNamesAvoidTakenNames)
{
    const QString trash = sandbox.homePath(QStringLiteral(".Trash"));
    const struct {
        const char* name;
        const char* pattern; // of the trash name when the plain one is taken
    } cases[] = {{"name", "^name_\\d{14}\\.$"}, {"Report.pdf", "^Report_\\d{14}\\.pdf$"}};
    int moves = 0;
    for (const auto& c : cases) {
        const QString name = QString::fromLatin1(c.name);
        const QString first = sandbox.tmpPath(QStringLiteral("one/") + name);
        const QString second = sandbox.tmpPath(QStringLiteral("two/") + name);
        ASSERT_TRUE(writeFile(first, "first"));
        ASSERT_TRUE(writeFile(second, "second"));
        ASSERT_TRUE(auth.authTrashFile(first));
        QList<QStringList> calls = waitForCalls(QStringLiteral("mv"), ++moves);
        ASSERT_EQ(calls.size(), moves);
        EXPECT_EQ(calls.last(), (QStringList{QStringLiteral("mv"), QStringLiteral("-f"), first, trash + QLatin1Char('/') + name}));
        // The move runs detached: the second trash must find the first one's name taken.
        QElapsedTimer t;
        t.start();
        while (!QFileInfo::exists(trash + QLatin1Char('/') + name) && t.elapsed() < 5000)
            QThread::msleep(20);

        ASSERT_TRUE(auth.authTrashFile(second));
        calls = waitForCalls(QStringLiteral("mv"), ++moves);
        ASSERT_EQ(calls.size(), moves);
        const QString destination = calls.last().value(3);
        EXPECT_TRUE(destination.startsWith(trash + QLatin1Char('/'))) << destination.toStdString();
        EXPECT_TRUE(QRegularExpression(QString::fromLatin1(c.pattern)).match(destination.mid(trash.size() + 1)).hasMatch())
            << destination.toStdString();
    }
}

TEST_F(VLAuthorizationAsRoot, DeleteOnRootAccountRemovesInsteadOfMoving)
{
    const QString file = sandbox.tmpPath(QStringLiteral("doomed/file.txt"));
    ASSERT_TRUE(writeFile(file));
    ASSERT_TRUE(auth.authTrashFile(file, true));
    // The removal aims at the trash name; the source itself stays in place.
    EXPECT_EQ(waitForCalls(QStringLiteral("rm")),
              (QList<QStringList>{{QStringLiteral("rm"), QStringLiteral("-Rdf"), sandbox.homePath(QStringLiteral(".Trash/file.txt"))}}));
    EXPECT_TRUE(QFileInfo::exists(file));

    const QString folder = sandbox.tmpPath(QStringLiteral("contents"));
    ASSERT_TRUE(writeFile(folder + QStringLiteral("/a")));
    ASSERT_TRUE(writeFile(folder + QStringLiteral("/b")));
    EXPECT_TRUE(auth.authTrashFolderContents(folder, true));
    QList<QStringList> calls = waitForCalls(QStringLiteral("rm"), 3);
    ASSERT_EQ(calls.size(), 3);
    calls.removeFirst();
    std::sort(calls.begin(), calls.end()); // detached removals may record in either order
    EXPECT_EQ(calls, (QList<QStringList>{{QStringLiteral("rm"), QStringLiteral("-R"), QStringLiteral("-f"), folder + QStringLiteral("/a")},
                                                {QStringLiteral("rm"), QStringLiteral("-R"), QStringLiteral("-f"), folder + QStringLiteral("/b")}}));
}

} // namespace
