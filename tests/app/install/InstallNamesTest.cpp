// The names an installation goes by: the stored name of a download (the URL's last path
// component as the platform takes it, every name that could reach outside the download folder
// refused), and what each installer takes from a mounted volume, with the quirks kept on purpose.
#include "install/DownloadPath.h"
#include "install/VolumeFilters.h"

#include <gtest/gtest.h>

namespace {

struct NameCase {
    const char* url;
    const char* component; // nullptr: not a URL
    bool safe;
};

class DownloadNameTest : public ::testing::TestWithParam<NameCase> {};

TEST_P(DownloadNameTest, LastComponentAndSafety)
{
    const NameCase& c = GetParam();
    const std::optional<QString> component = install::urlLastPathComponent(QString::fromUtf8(c.url));
    ASSERT_EQ(component.has_value(), c.component != nullptr);
    if (c.component) {
        EXPECT_EQ(*component, QString::fromUtf8(c.component));
    }
    const std::optional<QString> safe = install::safeDownloadName(QString::fromUtf8(c.url));
    EXPECT_EQ(safe.has_value(), c.safe);
    if (safe) {
        EXPECT_EQ(*safe, QString::fromUtf8(c.component));
    }
}

INSTANTIATE_TEST_SUITE_P(Urls, DownloadNameTest, ::testing::Values(
    // Only the path counts; the component is found encoded, then decoded.
    NameCase{"https://ex.com/dl/App%20Name%201.2.dmg?sig=a.b#x.y", "App Name 1.2.dmg", true},
    NameCase{"https://ex.com/dl/", "dl", true},
    // Names that would reach outside the download folder are refused.
    NameCase{"https://ex.com", "", false},
    NameCase{"https://ex.com/", "/", false},
    NameCase{"https://ex.com/a/.", ".", false},
    NameCase{"https://ex.com/a/%2E%2E", "..", false},
    NameCase{"https://ex.com/a/..%2F..%2Fetc%2Fpasswd", "../../etc/passwd", false},
    NameCase{"https://ex.com/a b.dmg", nullptr, false}));

TEST(DownloadName, AnEncodedNulIsRefusedAndOnlyASafeNameIsJoined)
{
    const QString nul = QStringLiteral("https://ex.com/a/x%00y.dmg");
    EXPECT_EQ(install::urlLastPathComponent(nul), QString(QStringLiteral("x")) + QChar(0) + QStringLiteral("y.dmg"));
    EXPECT_FALSE(install::safeDownloadName(nul).has_value());
    EXPECT_FALSE(install::downloadFilePath(QStringLiteral("/tmp/T"), QStringLiteral("https://e.x/..")).has_value());
    EXPECT_FALSE(install::downloadFilePath(QString(), QStringLiteral("https://e.x/A.dmg")).has_value());
}

// The quirks the filters keep; the uninstaller package passed over is the install run's.
TEST(VolumeFilters, EachInstallerTakesTheFirstNameItsFilterAccepts)
{
    // "not Uninstall" binds to preference panes only: an uninstaller application is taken,
    // except by the updater's own installer.
    const QStringList apps = {QStringLiteral("Uninstall Tessel.prefPane"), QStringLiteral("Uninstall Tessel.app"), QStringLiteral("TESSEL.APP")};
    EXPECT_EQ(install::firstMatching(apps, &install::isInstallableBundleName), QStringLiteral("Uninstall Tessel.app"));
    EXPECT_EQ(install::firstMatching(apps, &install::isUpdaterApplicationName), QStringLiteral("TESSEL.APP"));
    // Packages: any name ending in "pkg", dot or not.
    EXPECT_EQ(install::firstMatching({QStringLiteral("Tessel.pkg.zip"), QStringLiteral("Tesselpkg")}, &install::isInstallerPackageName),
              QStringLiteral("Tesselpkg"));
}

} // namespace
