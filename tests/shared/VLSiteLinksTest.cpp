// The web site's addresses: one row per rule of joining and escaping.
#include "shared/VLSiteLinks.h"

#include "support/ScopedEnvironment.h"

#include <gtest/gtest.h>

#include <functional>

namespace {

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
