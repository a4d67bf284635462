// The controller's initialisers, the start-up box rule, where "-forceIDs" and "-install
// sparkle" find their values.

#include "AppController.h"
#include "lifecycle/PreferenceKeys.h"
#include "lifecycle/RunModes.h"
#include "platform/system/UserDefaults.h"

#include "support/FixturePlist.h"
#include "support/LogFixture.h"

#include <QDir>
#include <QFile>
#include <gtest/gtest.h>

namespace {

TEST(Lifecycle, OnlyTheWindowedInitialiserRegistersDefaults)
{
    vltest::LogFixture log; // first in this executable: no defaults are registered before it
    log.environment().set("TMPDIR", log.path(QStringLiteral("tmp")));
    sys::UserDefaults& defaults = sys::UserDefaults::standard();
    EXPECT_FALSE(AppController::initWithoutGUI()->hasGUI);
    EXPECT_EQ(defaults.integerForKey(prefs::kAutoQuit) + defaults.integerForKey(prefs::kAutoUpdateCheck), 0);
    EXPECT_TRUE(AppController::init()->hasGUI);
    EXPECT_EQ(defaults.integerForKey(prefs::kAutoQuit), 1);
    EXPECT_EQ(defaults.integerForKey(prefs::kAutoUpdateCheck), 1);
}

TEST(Lifecycle, OnlyAStoredNumberNoUnticksTheStartupBox)
{
    EXPECT_TRUE(prefs::checkAtStartupEnabled({}));
    EXPECT_FALSE(prefs::checkAtStartupEnabled({{prefs::kCheckAtStartup, 0}}));
    EXPECT_TRUE(prefs::checkAtStartupEnabled({{prefs::kCheckAtStartup, QStringLiteral("NO")}}));
}

TEST(Lifecycle, ForcedIdentifiersFollowTheSwitchAndAreAbsentWhenItIsLast)
{
    const QString s = QStringLiteral("-forceIDs");
    EXPECT_EQ(runmodes::forcedIdentifiers({QStringLiteral("x"), QStringLiteral("-list"), s, QStringLiteral("a,b")}),
              (QStringList{QStringLiteral("a"), QStringLiteral("b")}));
    EXPECT_FALSE(runmodes::forcedIdentifiers({QStringLiteral("x"), QStringLiteral("-list"), s}).has_value());
}

TEST(Lifecycle, TheInstallFeedComesFromInfoThenEachDescriptorThatHasIt)
{
    const QVariantMap noFeed{{QStringLiteral("VLGroupID"), QStringLiteral("grp")}};
    const auto feed = [](const char* url) { return QVariantMap{{QStringLiteral("SUFeedURL"), QString::fromUtf8(url)}}; };
    struct Case {
        QVariantMap info;
        std::optional<QVariantMap> resources; // Contents/Resources/VLUpdates.plist, absent when nullopt
        std::optional<QVariantMap> contents;  // Contents/VLUpdates.plist
        const char* expected;
    };
    const Case cases[] = {
        {feed("info"), feed("resources"), feed("contents"), "info"},
        {noFeed, feed("resources"), feed("contents"), "resources"},
        {noFeed, noFeed, feed("contents"), "contents"},
        {noFeed, std::nullopt, feed("contents"), "contents"},
        {noFeed, noFeed, noFeed, ""},
    };
    for (const Case& c : cases) {
        QTemporaryDir dir;
        const QString app = dir.filePath(QStringLiteral("Tessel.app"));
        ASSERT_TRUE(QDir().mkpath(app + QStringLiteral("/Contents/Resources")));
        for (const auto& [relative, descriptor] : {std::pair{"/Contents/Resources/VLUpdates.plist", c.resources},
                                                   std::pair{"/Contents/VLUpdates.plist", c.contents}}) {
            QFile file(app + QString::fromLatin1(relative));
            ASSERT_TRUE(!descriptor || (file.open(QIODevice::WriteOnly) && file.write(vltest::fixturePlistXml(*descriptor)) > 0));
        }
        EXPECT_EQ(runmodes::installFeedOf(app, c.info), QString::fromUtf8(c.expected)) << c.expected;
    }
}

} // namespace
