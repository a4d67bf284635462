#include "shared/VLLocalPaths.h"
#include "support/ChildProcess.h"
#include "support/Sandbox.h"
#include "support/ScopedEnvironment.h"

#include <QCoreApplication>

#include <gtest/gtest.h>

#include <unistd.h>

namespace {

TEST(VLLocalPaths, SuperuserCorrectionKeepsItsCuts)
{
    // found path, user id, corrected path
    const std::tuple<const char*, unsigned, const char*> cases[] = {
        {"/var/root/Library", 0, "/home/u/Library"},
        {"/private/var/root/Library", 0, "/home/u/t/Library"}, // sixteen, not seventeen
        {"/Users/x/Library", 0, "/home/u/Users/x/Library"},
        {"/var/root/Library", 501, "/var/root/Library"},
    };
    for (const auto& [found, uid, expected] : cases)
        EXPECT_EQ(VLLocalPaths::correctedUserPath(QString::fromUtf8(found), uid, QStringLiteral("/home/u")), QString::fromUtf8(expected)) << found;
}

// Runs again in a child as the unprivileged user (VLLP_CHILD set), which must get the same answers.
TEST(VLLocalPaths, UserFoldersAreInHomeForSuperuserAndOthers)
{
    vltest::ScopedEnvironment env;
    env.set("HOME", QStringLiteral("/home/tester/"));
    env.set("VELMORA_SYSROOT", QStringLiteral("/sb"));
    env.set("TMPDIR", QStringLiteral("/scratch"));
    EXPECT_EQ(VLLocalPaths::libraryDirectory(true), QStringLiteral("/home/tester/Library"));
    EXPECT_EQ(VLLocalPaths::prefsDirectory(true), QStringLiteral("/home/tester/Library/Preferences"));
    EXPECT_EQ(VLLocalPaths::libraryDirectory(false), QStringLiteral("/sb/Library"));
    EXPECT_EQ(VLLocalPaths::trashDirectory(), QStringLiteral("/home/tester/.Trash"));
    EXPECT_EQ(VLLocalPaths::tempDirectory(), QStringLiteral("/scratch/"));
    EXPECT_TRUE(VLLocalPaths::tempFile().startsWith(QStringLiteral("/scratch/")));
    const std::optional<uint> nobody = vltest::Sandbox::unprivilegedUid();
    if (qEnvironmentVariableIsSet("VLLP_CHILD") || !nobody) {
        EXPECT_EQ(VLLocalPaths::username() == QStringLiteral("root"), ::getuid() == 0);
        return;
    }
    env.set("VLLP_CHILD", QStringLiteral("1"));
    vltest::ChildProcess child;
    ASSERT_TRUE(child.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--gtest_filter=VLLocalPaths.UserFolders*")},
                            {.workingDirectory = QStringLiteral("/"), .uid = nobody}));
    ASSERT_TRUE(child.waitForFinished(60000));
    EXPECT_TRUE(child.exitCode() == 0 && child.standardOutput().contains("[  PASSED  ] 1 test")) << child.standardOutput().toStdString();
}

TEST(VLLocalPaths, SystemFoldersKeepTheirTrimmedComparison)
{
    vltest::ScopedEnvironment env;
    env.set("HOME", QStringLiteral("/home/tester"));
    env.unset("VELMORA_SYSROOT");
    // path, exact match, system folder
    const std::tuple<const char*, bool, bool> cases[] = {
        {"/", true, true},
        {"/usr/local/bin", false, false},
        {"/usr/bin", false, true},
        {"/usr/bin", true, false},
        {"/usr/", true, false},           // trimmed to "/us"
        {"/Users/Shared/", false, false}, // trimmed to "/Users/Share"
        {"/Applications/Tessel.app", false, false},
        {"/home/tester/Library/Preferences", true, true},
        {"/home/tester/Library/Preferences/x.plist", false, false},
        {"/private/var/tmp", false, true},
    };
    for (const auto& [path, exact, system] : cases)
        EXPECT_EQ(VLLocalPaths::isPathSystemDirectory(QString::fromUtf8(path), exact), system) << path << " exact " << exact;
    EXPECT_TRUE(VLLocalPaths::isPathOnTimeMachineVolume(QStringLiteral("/Volumes/TM/Backups.backupdb/mac/App.app")));
    EXPECT_FALSE(VLLocalPaths::isPathOnTimeMachineVolume(QStringLiteral("/Users/x/Backups.backupdb/y")));
    // Under a system root both the rooted and the real machine folders are refused.
    env.set("VELMORA_SYSROOT", QStringLiteral("/sb"));
    EXPECT_TRUE(VLLocalPaths::isPathSystemDirectory(QStringLiteral("/sb/usr/lib")) && VLLocalPaths::isPathSystemDirectory(QStringLiteral("/usr/lib")));
    EXPECT_FALSE(VLLocalPaths::isPathSystemDirectory(QStringLiteral("/sb/Applications/Tessel.app")));
    EXPECT_TRUE(VLLocalPaths::isPathOnTimeMachineVolume(QStringLiteral("/sb/Volumes/TM/Backups.backupdb")));
}

} // namespace
