#include "shared/VLLocalPaths.h"
#include "support/ScopedEnvironment.h"

#include <QRegularExpression>
#include <gtest/gtest.h>

#include <functional>

#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr uid_t kNobody = 65534;

TEST(VLLocalPaths, SuperuserCorrectionKeepsItsCuts)
{
    struct Case {
        const char* found;
        unsigned uid;
        const char* expected;
    };
    const Case cases[] = {
        {"/var/root/Library", 0, "/home/u/Library"},
        {"/var/root", 0, "/home/u"},
        {"/private/var/root/Library", 0, "/home/u/t/Library"}, // sixteen, not seventeen
        {"/var/root/private/var/root/Library", 0, "/home/u/t/Library"},
        {"/Users/x/Library", 0, "/home/u/Users/x/Library"},
        {"/var/root/Library", 501, "/var/root/Library"},
        {"/private/var/root/Library", 501, "/private/var/root/Library"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(VLLocalPaths::correctedUserPath(QString::fromUtf8(c.found), c.uid, QStringLiteral("/home/u")),
                  QString::fromUtf8(c.expected))
            << c.found << " uid " << c.uid;
    }
}

// Runs `check` in a child process under the unprivileged user id; its exit code says what
// it found (0 = as expected, 1 = not, 2 = could not drop privileges).
int runAsNobody(const std::function<bool()>& check)
{
    const pid_t child = fork();
    if (child == 0) {
        if (setgid(kNobody) != 0 || setuid(kNobody) != 0)
            _exit(2);
        _exit(check() ? 0 : 1);
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status))
        return -1;
    return WEXITSTATUS(status);
}

TEST(VLLocalPaths, UserFoldersAreInHomeForSuperuserAndOthers)
{
    if (getuid() != 0)
        GTEST_SKIP() << "needs to start as the superuser to test both user ids";
    vltest::ScopedEnvironment env;
    env.set("HOME", QStringLiteral("/home/tester"));
    env.set("VELMORA_SYSROOT", QStringLiteral("/sb"));

    // Superuser: the search gives /var/root/..., corrected onto HOME.
    EXPECT_EQ(VLLocalPaths::pathForDirectory(VLLocalPaths::DirectoryKind::Library, VLLocalPaths::Domain::User),
              QStringLiteral("/home/tester/Library"));
    EXPECT_EQ(VLLocalPaths::prefsDirectory(true), QStringLiteral("/home/tester/Library/Preferences"));
    EXPECT_EQ(VLLocalPaths::logDirectory(true), QStringLiteral("/home/tester/Library/Logs"));
    EXPECT_EQ(VLLocalPaths::libraryDirectory(false), QStringLiteral("/sb/Library"));

    const auto expectUnprivileged = [] {
        return VLLocalPaths::libraryDirectory(true) == QStringLiteral("/home/tester/Library")
            && VLLocalPaths::appSupportDirectory(true) == QStringLiteral("/home/tester/Library/Application Support")
            && VLLocalPaths::libraryDirectory(false) == QStringLiteral("/sb/Library");
    };
    EXPECT_EQ(runAsNobody(expectUnprivileged), 0);
    // The child really ran under the unprivileged id.
    EXPECT_EQ(runAsNobody([] { return getuid() == kNobody && VLLocalPaths::username() != QStringLiteral("root"); }), 0);
}

TEST(VLLocalPaths, StandardFoldersByDomain)
{
    vltest::ScopedEnvironment env;
    env.set("HOME", QStringLiteral("/home/tester/"));
    env.set("VELMORA_SYSROOT", QStringLiteral("/sb"));
    env.set("TMPDIR", QStringLiteral("/scratch"));
    const QList<QPair<QString, QString>> table{
        {VLLocalPaths::applicationDirectory(true), QStringLiteral("/home/tester/Applications")},
        {VLLocalPaths::applicationDirectory(false), QStringLiteral("/sb/Applications")},
        {VLLocalPaths::cacheDirectory(false), QStringLiteral("/sb/Library/Caches")},
        {VLLocalPaths::logDirectory(false), QStringLiteral("/sb/Library/Logs")},
        {VLLocalPaths::systemLibraryDirectory(), QStringLiteral("/sb/System/Library")},
        {VLLocalPaths::localDocumentationDirectory(), QStringLiteral("/sb/Library/Documentation")},
        {VLLocalPaths::trashDirectory(), QStringLiteral("/home/tester/.Trash")},
        {VLLocalPaths::darwinCacheDirectory().value_or(QString()), QStringLiteral("/home/tester/Library/Caches")},
        {VLLocalPaths::tempDirectory(), QStringLiteral("/scratch/")},
    };
    for (const auto& [got, expected] : table)
        EXPECT_EQ(got, expected);
}

TEST(VLLocalPaths, TrailingSlashes)
{
    const QList<QPair<QString, QString>> strip{
        {QStringLiteral("/"), QStringLiteral("/")},
        {QStringLiteral("/Applications/"), QStringLiteral("/Applications")},
        {QStringLiteral("a//"), QStringLiteral("a/")},
        {QStringLiteral("a"), QStringLiteral("a")},
        {QString(), QString()},
    };
    for (const auto& [in, out] : strip)
        EXPECT_EQ(VLLocalPaths::stripTrailingSlash(in), out) << in.toStdString();
    EXPECT_EQ(VLLocalPaths::ensureTrailingSlash(QStringLiteral("/tmp")), QStringLiteral("/tmp/"));
    EXPECT_EQ(VLLocalPaths::ensureTrailingSlash(QStringLiteral("/tmp/")), QStringLiteral("/tmp/"));
    EXPECT_EQ(VLLocalPaths::ensureTrailingSlash(QString()), QString());
}

TEST(VLLocalPaths, SystemFolders)
{
    vltest::ScopedEnvironment env;
    env.set("HOME", QStringLiteral("/home/tester"));
    env.unset("VELMORA_SYSROOT");
    struct Case {
        const char* path;
        bool exact;
        bool system;
    };
    const Case cases[] = {
        {"/", true, true},
        {"/a", false, false},
        {"/usr/local/bin", false, false},
        {"/usr/bin", false, true},
        {"/usr/bin", true, false},
        {"/usr", true, true},
        {"/usr/", true, false},           // trimmed to "/us"
        {"/Users/Shared/", false, false}, // trimmed to "/Users/Share"
        {"/Users/Shared", true, true},
        {"/Applications", true, true},
        {"/Applications/Tessel.app", false, false},
        {"/home/tester", true, true},
        {"/home/tester/Library/Preferences", true, true},
        {"/home/tester/Library/Preferences/x.plist", false, false},
        {"/home/tester/Desktop", true, true},
        {"/System/Library/Frameworks", false, true},
        {"/private/var/tmp", false, true},
        {"/Library/Application Support", true, true},
        {"/Library/Application Support/Velmora", false, false},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(VLLocalPaths::isPathSystemDirectory(QString::fromUtf8(c.path), c.exact), c.system)
            << c.path << " exact " << c.exact;
    }

    // Under a system root both the rooted and the real machine folders are refused.
    env.set("VELMORA_SYSROOT", QStringLiteral("/sb"));
    EXPECT_TRUE(VLLocalPaths::isPathSystemDirectory(QStringLiteral("/sb/Applications"), true));
    EXPECT_TRUE(VLLocalPaths::isPathSystemDirectory(QStringLiteral("/sb/usr/lib")));
    EXPECT_FALSE(VLLocalPaths::isPathSystemDirectory(QStringLiteral("/sb/usr/local/lib")));
    EXPECT_TRUE(VLLocalPaths::isPathSystemDirectory(QStringLiteral("/usr/lib")));
    EXPECT_FALSE(VLLocalPaths::isPathSystemDirectory(QStringLiteral("/sb/Applications/Tessel.app")));
}

TEST(VLLocalPaths, TimeMachineVolumes)
{
    vltest::ScopedEnvironment env;
    env.unset("VELMORA_SYSROOT");
    EXPECT_TRUE(VLLocalPaths::isPathOnTimeMachineVolume(QStringLiteral("/Volumes/TM/Backups.backupdb/mac/App.app")));
    EXPECT_FALSE(VLLocalPaths::isPathOnTimeMachineVolume(QStringLiteral("/Volumes/TM/Backups.backupdb2/x")));
    EXPECT_FALSE(VLLocalPaths::isPathOnTimeMachineVolume(QStringLiteral("/Users/x/Backups.backupdb/y")));
    env.set("VELMORA_SYSROOT", QStringLiteral("/sb"));
    EXPECT_TRUE(VLLocalPaths::isPathOnTimeMachineVolume(QStringLiteral("/sb/Volumes/TM/Backups.backupdb")));
}

TEST(VLLocalPaths, RandomStringsAndTemporaryNames)
{
    EXPECT_EQ(VLLocalPaths::randomString(0), QString());
    const QRegularExpression alphabet(QStringLiteral("^[a-z0-9]{8}$"));
    for (int i = 0; i < 20; ++i)
        EXPECT_TRUE(alphabet.match(VLLocalPaths::randomString(8)).hasMatch());
    vltest::ScopedEnvironment env;
    env.set("TMPDIR", QStringLiteral("/scratch"));
    const QString first = VLLocalPaths::tempFile();
    const QString second = VLLocalPaths::tempFile();
    EXPECT_TRUE(first.startsWith(QStringLiteral("/scratch/")));
    EXPECT_NE(first, second);
    EXPECT_NE(VLLocalPaths::uuid(), VLLocalPaths::uuid());
}

} // namespace
