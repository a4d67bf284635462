#include "shared/VLLocalPaths.h"
#include "support/ScopedEnvironment.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
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

TEST(VLLocalPaths, UserFoldersAreInHomeForSuperuserAndOthers)
{
    vltest::ScopedEnvironment env;
    env.set("HOME", QStringLiteral("/home/tester/"));
    env.set("VELMORA_SYSROOT", QStringLiteral("/sb"));
    env.set("TMPDIR", QStringLiteral("/scratch"));
    const auto asExpected = [] {
        return VLLocalPaths::libraryDirectory(true) == QStringLiteral("/home/tester/Library")
            && VLLocalPaths::prefsDirectory(true) == QStringLiteral("/home/tester/Library/Preferences")
            && VLLocalPaths::libraryDirectory(false) == QStringLiteral("/sb/Library") && VLLocalPaths::trashDirectory() == QStringLiteral("/home/tester/.Trash")
            && VLLocalPaths::tempDirectory() == QStringLiteral("/scratch/") && VLLocalPaths::tempFile().startsWith(QStringLiteral("/scratch/"));
    };
    EXPECT_TRUE(asExpected());
    if (getuid() != 0)
        return;
    // The same answers for an unprivileged user, in a child that really runs as one.
    const pid_t child = fork();
    if (child == 0)
        _exit(setgid(65534) == 0 && setuid(65534) == 0 && getuid() == 65534 && VLLocalPaths::username() != QStringLiteral("root") && asExpected() ? 0 : 1);
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
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
