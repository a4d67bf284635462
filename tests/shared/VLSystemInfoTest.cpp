// What the library reads about its surroundings: the user's and the machine's folders (with
// the kept cuts of the superuser correction and the system-folder comparison), the running
// system's version, and the web site's addresses (one row per rule of joining and escaping).
#include "shared/VLLocalPaths.h"
#include "shared/VLOSDetect.h"
#include "shared/VLSiteLinks.h"
#include "support/ChildProcess.h"
#include "support/Sandbox.h"
#include "support/ScopedEnvironment.h"
#include "support/TestData.h"

#include <QCoreApplication>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cstring>
#include <functional>

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
    for (const QJsonValue& row : vltest::dataRows("shared/data/VLLocalPathsSystemFolders")) {
        const QJsonObject c = row.toObject();
        EXPECT_EQ(VLLocalPaths::isPathSystemDirectory(c[u"path"].toString(), c[u"exact"].toBool()), c[u"system"].toBool())
            << c[u"why"].toString().toStdString();
    }
    EXPECT_TRUE(VLLocalPaths::isPathOnTimeMachineVolume(QStringLiteral("/Volumes/TM/Backups.backupdb/mac/App.app")));
    EXPECT_FALSE(VLLocalPaths::isPathOnTimeMachineVolume(QStringLiteral("/Users/x/Backups.backupdb/y")));
    // Under a system root both the rooted and the real machine folders are refused.
    env.set("VELMORA_SYSROOT", QStringLiteral("/sb"));
    EXPECT_TRUE(VLLocalPaths::isPathSystemDirectory(QStringLiteral("/sb/usr/lib")) && VLLocalPaths::isPathSystemDirectory(QStringLiteral("/usr/lib")));
    EXPECT_FALSE(VLLocalPaths::isPathSystemDirectory(QStringLiteral("/sb/Applications/Tessel.app")));
    EXPECT_TRUE(VLLocalPaths::isPathOnTimeMachineVolume(QStringLiteral("/sb/Volumes/TM/Backups.backupdb")));
}

TEST(VLOSDetect, ParsesAndComparesTheRunningSystemsVersion)
{
    using V = VLOSDetect::Version;
    const std::pair<const char*, V> cases[] = {{"14.2.1", V{14, 2, 1}}, {"15", V{15, 0, 0}}, {"1.2.3.4", V{}}, {"10.-1", V{}}, {"x.1", V{}}};
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(VLOSDetect::parseVersion(QLatin1String(text)), expected) << text;

    QTemporaryDir root;
    vltest::ScopedEnvironment env;
    env.set("VELMORA_SYSROOT", root.path());
    EXPECT_EQ(VLOSDetect::osVersionString(), QStringLiteral("0.0.0")) << "no version file";
    for (const char* version : {"10.9.5", "10.10", "11.0"}) {
        ASSERT_TRUE(vltest::Sandbox::writePlist(root.filePath(QStringLiteral("System/Library/CoreServices/SystemVersion.plist")),
                                                QVariantMap{{QStringLiteral("ProductVersion"), QLatin1String(version)}}));
        // The minor number counts only when the major ones are equal.
        EXPECT_EQ(VLOSDetect::isYosemiteOrHigher(), std::strcmp(version, "10.9.5") != 0) << version;
        EXPECT_EQ(VLOSDetect::isElCapitanOrHigher(), std::strcmp(version, "11.0") == 0) << version;
    }
    EXPECT_EQ(VLOSDetect::osVersionString(), QStringLiteral("11.0.0"));
}

TEST(VLSiteLinks, AddressesFollowTheBaseAndEscapeOnlyTheBugReport)
{
    using L = VLSiteLinks;
    const QString app = QStringLiteral("software_update");
    const auto bug = [&](std::optional<QString> subapp, const char* version) { return L::bugReportURLWithAppName(app, subapp, QLatin1String(version)); };
    const struct {
        const char* base;
        std::function<QUrl()> make;
        const char* expected; // fully encoded; nullptr: no valid address
    } rows[] = {
        {"https://www.example.org/", [] { return L::velmoraProductsURL(); }, "https://www.example.org/products"},
        {"http://127.0.0.1:8080", [] { return L::harrowURL(); }, "http://127.0.0.1:8080/products/harrow"},
        {"https://s.test/", [&] { return bug(std::nullopt, "2.1"); }, "https://s.test/support/software_update/bugreport/?version=2.1"},
        {"https://s.test/", [&] { return bug(QStringLiteral("Tessel"), "2.1"); }, "https://s.test/support/software_update/bugreport/?app=Tessel&version=2.1"},
        {"https://s.test/", [&] { return bug(QString(), "3"); }, "https://s.test/support/software_update/bugreport/?app=&version=3"},
        {"https://s.test/", [&] { return bug(QStringLiteral("a%20b"), "1#2"); }, "https://s.test/support/software_update/bugreport/?app=a%2520b&version=1%232"},
        {"https://s.test/", [&] { return bug(QStringLiteral("x&y=(z)"), "1+2"); }, "https://s.test/support/software_update/bugreport/?app=x&y=(z)&version=1+2"},
        {"https://s.test/", [] { return L::bugReportURLWithAppName(QStringLiteral("Café Tools"), std::nullopt, QStringLiteral("1 b")); },
         "https://s.test/support/Caf%C3%A9%20Tools/bugreport/?version=1%20b"},
        {"https://s.test/", [] { return L::bugReportURLWithAppName(QStringLiteral("x"), std::nullopt); }, "https://s.test/support/x/bugreport/?version=(null)"},
        {"https://s.test/", [&] { return L::featureRequestURLWithAppName(app, std::nullopt); }, "https://s.test/support/software_update/featurerequest/"},
        {"https://s.test/", [] { return L::supportURLForAppName(QStringLiteral("My App")); }, nullptr}, // unescaped text with a space
    };
    for (const auto& row : rows) {
        vltest::ScopedEnvironment env;
        env.set("VELMORA_WEB_SITE", QString::fromUtf8(row.base));
        const QUrl url = row.make();
        EXPECT_EQ(url.isValid() ? url.toString(QUrl::FullyEncoded).toStdString() : "<invalid>", row.expected ? row.expected : "<invalid>");
    }
}

} // namespace
