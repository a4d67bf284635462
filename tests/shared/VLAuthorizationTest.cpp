// Privileged operations as root: refusals, trash naming and the root account's deletions.
// The unprivileged side is exercised in VLFileManagerLadderTest and, for the privileged tool
// runner itself, in VLAuthorizationChannelTest.
#include "VLFileManagerTestSupport.h"

#include "shared/VLAuthorization.h"

#include <QDeadlineTimer>
#include <QFileInfo>
#include <QRegularExpression>

#include <algorithm>

namespace {

class VLAuthorizationTest : public vltest::FileOpsSandboxTest {
protected:
    void SetUp() override
    {
        FileOpsSandboxTest::SetUp();
        if (!VLAuthorization::isRoot())
            GTEST_SKIP() << "these cases describe the root account";
    }
    VLAuthorization& auth = VLAuthorization::sharedController(false);
};

TEST_F(VLAuthorizationTest, RootRunsToolsDirectlyAndRefusesSystemFoldersAndMissingSources)
{
    EXPECT_TRUE(auth.authStart() && auth.isAuthorized() && auth.canAuthorize());
    EXPECT_EQ(auth.authExecTask(sandbox.sysPath(QStringLiteral("/usr/bin/no-such-tool")), {}), -2);
    EXPECT_EQ(auth.authExecTask(sandbox.sysPath(QStringLiteral("/bin/mkdir")), {QStringLiteral("-p"), sandbox.tmpPath(QStringLiteral("x"))}, false), 0);
    EXPECT_TRUE(QFileInfo::exists(sandbox.tmpPath(QStringLiteral("x"))));
    const QString missing = sandbox.tmpPath(QStringLiteral("missing"));
    QFile(sandbox.toolLogPath()).resize(0);
    EXPECT_FALSE(auth.authRemoveFile(sandbox.sysPath(QStringLiteral("/usr/bin"))));
    EXPECT_FALSE(auth.authRemoveFile(sandbox.home()));
    EXPECT_FALSE(auth.authTrashFile(sandbox.sysPath(QStringLiteral("/Applications"))));
    EXPECT_FALSE(auth.authTrashFolderContents(sandbox.sysPath(QStringLiteral("/System/Library"))));
    EXPECT_FALSE(auth.authMoveFolderContents(sandbox.sysPath(QStringLiteral("/bin")), sandbox.tmp()));
    EXPECT_FALSE(auth.authMoveFile(sandbox.sysPath(QStringLiteral("/sbin/tool")), sandbox.tmp()));
    EXPECT_FALSE(auth.authMoveFile(QString(), missing) || auth.authMoveFile(missing, QString()) || auth.authMoveFile(missing, missing + 'x'));
    EXPECT_FALSE(auth.authCopyFile(QString(), missing) || auth.authCopyFile(missing, missing + 'x'));
    EXPECT_TRUE(sandbox.toolCalls().isEmpty());
}

TEST_F(VLAuthorizationTest, TrashNamesAvoidTakenNames)
{
    const QString trash = sandbox.homePath(QStringLiteral(".Trash/"));
    // name, pattern of the trash name when the plain one is taken
    const std::pair<const char*, const char*> cases[] = {{"name", "^name_\\d{14}\\.$"}, {"Report.pdf", "^Report_\\d{14}\\.pdf$"}};
    for (const auto& [name, pattern] : cases) {
        QStringList destinations;
        for (const char* folder : {"one/", "two/"}) {
            const QString file = sandbox.tmpPath(QLatin1String(folder) + QLatin1String(name));
            ASSERT_TRUE(writeFile(file));
            ASSERT_TRUE(auth.authTrashFile(file));
            // The move runs detached: the second trash must find the first one's name taken.
            const QDeadlineTimer guard(60000);
            while (QFileInfo::exists(file) && !guard.hasExpired())
                QThread::msleep(20);
            destinations << waitForCalls(QStringLiteral("mv")).value(0).value(3);
            QFile(sandbox.toolLogPath()).resize(0);
        }
        EXPECT_EQ(destinations[0], trash + QLatin1String(name));
        EXPECT_TRUE(destinations[1].startsWith(trash) && QRegularExpression(QLatin1String(pattern)).match(destinations[1].mid(trash.size())).hasMatch())
            << destinations[1].toStdString();
    }
}

TEST_F(VLAuthorizationTest, DeleteOnRootAccountRemovesInsteadOfMoving)
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
    QList<QStringList> calls = waitForCalls(QStringLiteral("rm"), 3).mid(1);
    std::sort(calls.begin(), calls.end()); // detached removals may record in either order
    EXPECT_EQ(calls, (QList<QStringList>{{QStringLiteral("rm"), QStringLiteral("-R"), QStringLiteral("-f"), folder + QStringLiteral("/a")},
                                         {QStringLiteral("rm"), QStringLiteral("-R"), QStringLiteral("-f"), folder + QStringLiteral("/b")}}));
}

} // namespace
