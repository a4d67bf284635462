// The controller's initialisers and preference rules.

#include "AppController.h"
#include "lifecycle/PreferenceKeys.h"
#include "lifecycle/RunModes.h"
#include "platform/system/UserDefaults.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <cstdlib>

namespace {

class LifecycleTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(dir_.isValid());
        oldHome_ = qgetenv("HOME");
        oldTmp_ = qgetenv("TMPDIR");
        qputenv("HOME", dir_.filePath(QStringLiteral("home")).toUtf8());
        qputenv("TMPDIR", dir_.filePath(QStringLiteral("tmp")).toUtf8());
        sys::UserDefaults::standard().setArguments({});
    }
    void TearDown() override
    {
        qputenv("HOME", oldHome_);
        qputenv("TMPDIR", oldTmp_);
    }
    QTemporaryDir dir_;
    QByteArray oldHome_;
    QByteArray oldTmp_;
};

TEST_F(LifecycleTest, OnlyTheWindowedInitialiserRegistersDefaults)
{
    auto windowless = AppController::initWithoutGUI();
    EXPECT_FALSE(windowless->hasGUI);
    EXPECT_EQ(sys::UserDefaults::standard().integerForKey(prefs::kAutoQuit), 0);
    EXPECT_EQ(sys::UserDefaults::standard().integerForKey(prefs::kAutoUpdateCheck), 0);
    windowless.reset();

    auto windowed = AppController::init();
    EXPECT_TRUE(windowed->hasGUI);
    EXPECT_EQ(sys::UserDefaults::standard().integerForKey(prefs::kAutoQuit), 1);
    EXPECT_EQ(sys::UserDefaults::standard().integerForKey(prefs::kAutoUpdateCheck), 1);
    EXPECT_EQ(sys::UserDefaults::standard().integerForKey(prefs::kShowBetaUpdates), 0);
}

TEST_F(LifecycleTest, DownloadFolderLiesInTheTemporaryFolderAndChecksRunFourAtATime)
{
    auto controller = AppController::initWithoutGUI();
    EXPECT_EQ(controller->downloadPath, dir_.filePath(QStringLiteral("tmp/Velmora Update Temp")));
    EXPECT_EQ(controller->updateQueue.maxThreadCount(), 4);
    controller->cancelUpdateCheck();
    EXPECT_TRUE(controller->updateCancelled);
}

TEST(PreferenceRules, StartupBoxIsUntickedOnlyForAStoredNo)
{
    using prefs::checkAtStartupEnabled;
    EXPECT_TRUE(checkAtStartupEnabled({}));
    EXPECT_FALSE(checkAtStartupEnabled({{prefs::kCheckAtStartup, false}}));
    EXPECT_FALSE(checkAtStartupEnabled({{prefs::kCheckAtStartup, 0}}));
    EXPECT_TRUE(checkAtStartupEnabled({{prefs::kCheckAtStartup, true}}));
    EXPECT_TRUE(checkAtStartupEnabled({{prefs::kCheckAtStartup, QStringLiteral("NO")}}));
}

TEST(ForcedIdentifiers, FollowTheSwitchAndAreAbsentWhenItIsLast)
{
    using runmodes::forcedIdentifiers;
    const QString s = QStringLiteral("-forceIDs");
    EXPECT_EQ(forcedIdentifiers({QStringLiteral("x"), QStringLiteral("-list"), s, QStringLiteral("a,b")}),
              (QStringList{QStringLiteral("a"), QStringLiteral("b")}));
    EXPECT_FALSE(forcedIdentifiers({QStringLiteral("x"), QStringLiteral("-list"), s}).has_value());
    EXPECT_FALSE(forcedIdentifiers({QStringLiteral("x"), QStringLiteral("-list")}).has_value());
}

} // namespace
