// The web site's addresses: one row per rule of joining and escaping, on a base address taken
// from the environment contract.
#include "shared/VLSiteLinks.h"

#include "support/ScopedEnvironment.h"

#include <gtest/gtest.h>

#include <functional>

namespace {

struct SiteRow {
    const char* rule;
    const char* base;
    std::function<QUrl()> make;
    const char* expected; // fully encoded; nullptr: no valid address
};

TEST(VLSiteLinks, AddressesFollowTheBaseAndEscapeOnlyTheBugReport)
{
    const std::optional<QString> none;
    const QString app = QStringLiteral("software_update");
    const SiteRow rows[] = {
        {"the base as given", "https://www.example.org/", [] { return VLSiteLinks::velmoraURL(); },
         "https://www.example.org/"},
        {"a trailing slash is not doubled", "https://www.example.org/", [] { return VLSiteLinks::velmoraProductsURL(); },
         "https://www.example.org/products"},
        {"a base without slash gets one", "http://127.0.0.1:8080", [] { return VLSiteLinks::harrowURL(); },
         "http://127.0.0.1:8080/products/harrow"},
        {"no subapp: question mark then version", "https://s.test/",
         [&] { return VLSiteLinks::bugReportURLWithAppName(app, none, QStringLiteral("2.1")); },
         "https://s.test/support/software_update/bugreport/?version=2.1"},
        {"subapp: app parameter, ampersand, version", "https://s.test/",
         [&] { return VLSiteLinks::bugReportURLWithAppName(app, QStringLiteral("Tessel"), QStringLiteral("2.1")); },
         "https://s.test/support/software_update/bugreport/?app=Tessel&version=2.1"},
        {"an empty subapp is given", "https://s.test/",
         [&] { return VLSiteLinks::bugReportURLWithAppName(app, QString(), QStringLiteral("3")); },
         "https://s.test/support/software_update/bugreport/?app=&version=3"},
        {"spaces and non-ASCII escaped as UTF-8", "https://s.test/",
         [] { return VLSiteLinks::bugReportURLWithAppName(QStringLiteral("Café Tools"), std::nullopt, QStringLiteral("1 b")); },
         "https://s.test/support/Caf%C3%A9%20Tools/bugreport/?version=1%20b"},
        {"percent and hash escaped, never decoded", "https://s.test/",
         [&] { return VLSiteLinks::bugReportURLWithAppName(app, QStringLiteral("a%20b"), QStringLiteral("1#2")); },
         "https://s.test/support/software_update/bugreport/?app=a%2520b&version=1%232"},
        {"legal punctuation is left alone", "https://s.test/",
         [&] { return VLSiteLinks::bugReportURLWithAppName(app, QStringLiteral("x&y=(z)"), QStringLiteral("1+2")); },
         "https://s.test/support/software_update/bugreport/?app=x&y=(z)&version=1+2"},
        {"feature request with subapp", "https://s.test/",
         [&] { return VLSiteLinks::featureRequestURLWithAppName(app, QStringLiteral("Harrow")); },
         "https://s.test/support/software_update/featurerequest/?app=Harrow"},
        {"feature request without subapp", "https://s.test/",
         [&] { return VLSiteLinks::featureRequestURLWithAppName(app, std::nullopt); },
         "https://s.test/support/software_update/featurerequest/"},
        {"support page", "https://s.test/", [&] { return VLSiteLinks::supportURLForAppName(app); },
         "https://s.test/support/software_update"},
        {"unescaped text with a space is no address", "https://s.test/",
         [] { return VLSiteLinks::supportURLForAppName(QStringLiteral("My App")); }, nullptr},
        {"the short form takes the main bundle's version", "https://s.test/",
         [] { return VLSiteLinks::bugReportURLWithAppName(QStringLiteral("x"), std::nullopt); },
         "https://s.test/support/x/bugreport/?version=(null)"},
    };
    for (const SiteRow& row : rows) {
        vltest::ScopedEnvironment env;
        env.set("VELMORA_WEB_SITE", QString::fromUtf8(row.base));
        const QUrl url = row.make();
        if (!row.expected) {
            EXPECT_FALSE(url.isValid()) << row.rule << ": " << url.toString().toStdString();
            continue;
        }
        EXPECT_TRUE(url.isValid()) << row.rule;
        EXPECT_EQ(url.toString(QUrl::FullyEncoded).toStdString(), row.expected) << row.rule;
    }
}

} // namespace
