// The preferences window: it shows what is stored when it opens, and each box stores at once.

#include "PreferencesWindow.h"
#include "WindowsFixture.h"
#include "lifecycle/PreferenceKeys.h"
#include "platform/system/UserDefaults.h"

#include "support/QtPrinters.h"

#include <QCheckBox>
#include <QTest>

namespace {

using PreferencesWindowTest = vltest::WindowsFixture;

TEST_F(PreferencesWindowTest, OpensOnTheStoredValuesAndStoresEachBoxAtOnce)
{
    ASSERT_TRUE(sys::writeGlobalPreferences({{prefs::kCheckAtStartup, false}, {QStringLiteral("disable-logging"), true}}));
    sys::UserDefaults::standard().setInteger(0, prefs::kAutoUpdateCheck);
    main().showPreferences();
    PreferencesWindow& prefsWindow = *main().preferencesWindow();
    EXPECT_FALSE(prefsWindow.prefsCheckForUpdatesAtStartup()->isChecked());
    EXPECT_FALSE(prefsWindow.prefsAutoUpdateCheck()->isChecked());

    prefsWindow.prefsCheckForUpdatesAtStartup()->click();
    prefsWindow.prefsAutoUpdateCheck()->click();
    EXPECT_EQ(sys::readGlobalPreferences(),
              (QVariantMap{{prefs::kCheckAtStartup, true}, {QStringLiteral("disable-logging"), true}}));
    EXPECT_EQ(sys::UserDefaults::standard().integerForKey(prefs::kAutoUpdateCheck), 1);

    QTest::keyClick(&prefsWindow, Qt::Key_Escape);
    EXPECT_FALSE(prefsWindow.isVisible());
    // Changed elsewhere while closed: the next opening shows the file as it is now.
    ASSERT_TRUE(sys::writeGlobalPreferences({}));
    main().showPreferences();
    EXPECT_TRUE(prefsWindow.prefsCheckForUpdatesAtStartup()->isChecked());
}

} // namespace
