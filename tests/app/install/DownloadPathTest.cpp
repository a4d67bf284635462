#include "install/DownloadPath.h"

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
    if (!c.component) {
        EXPECT_FALSE(component.has_value());
    } else {
        ASSERT_TRUE(component.has_value());
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
    NameCase{"https://ex.com/get?file=App.zip", "get", true},
    NameCase{"https://ex.com/a/b.tar.gz", "b.tar.gz", true},
    NameCase{"https://ex.com/a/.hidden", ".hidden", true},
    // Names that would reach outside the download folder are refused.
    NameCase{"https://ex.com", "", false},
    NameCase{"https://ex.com/", "/", false},
    NameCase{"https://ex.com/a/.", ".", false},
    NameCase{"https://ex.com/a/..", "..", false},
    NameCase{"https://ex.com/a/%2E%2E", "..", false},
    NameCase{"https://ex.com/a/my%2Ffile.zip", "my/file.zip", false},
    NameCase{"https://ex.com/a/%2F", "/", false},
    NameCase{"https://ex.com/a/..%2F..%2Fetc%2Fpasswd", "../../etc/passwd", false},
    // Not a URL at all.
    NameCase{"", nullptr, false},
    NameCase{"https://ex.com/a b.dmg", nullptr, false}));

TEST(DownloadName, AnEncodedNulIsRefused)
{
    const QString url = QStringLiteral("https://ex.com/a/x%00y.dmg");
    EXPECT_EQ(install::urlLastPathComponent(url), QString(QStringLiteral("x")) + QChar(0) + QStringLiteral("y.dmg"));
    EXPECT_FALSE(install::safeDownloadName(url).has_value());
}

TEST(DownloadFilePath, JoinsTheFolderWithTheSafeNameOnly)
{
    EXPECT_EQ(install::downloadFilePath(QStringLiteral("/tmp/Velmora Update Temp"), QStringLiteral("https://e.x/A.dmg")),
              QStringLiteral("/tmp/Velmora Update Temp/A.dmg"));
    EXPECT_EQ(install::downloadFilePath(QStringLiteral("/tmp/T/"), QStringLiteral("https://e.x/A.dmg")),
              QStringLiteral("/tmp/T/A.dmg"));
    EXPECT_FALSE(install::downloadFilePath(QStringLiteral("/tmp/T"), QStringLiteral("https://e.x/..")).has_value());
    EXPECT_FALSE(install::downloadFilePath(QString(), QStringLiteral("https://e.x/A.dmg")).has_value());
}

} // namespace
