// The user's choices as the windows' controls store them: the start-up boxes, skipping and
// resetting versions, the weekly job. The vendor's shared file belongs to every vendor
// application, so other keys must survive.

#include "AppController.h"
#include "UpdateRecord.h"
#include "lifecycle/PreferenceKeys.h"
#include "platform/plist/PropertyList.h"
#include "platform/system/UserDefaults.h"

#include "support/LogFixture.h"
#include "support/QtPrinters.h"
#include "support/RecordingUserInterface.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <gtest/gtest.h>

namespace {

const QString kOtherAppsKey = QStringLiteral("disable-logging");

class UserChoicesTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        auto ui = std::make_unique<vltest::RecordingUserInterface>();
        ui_ = ui.get();
        controller_ = AppController::init(std::move(ui));
    }
    void show(const UpdateRecord& offered)
    {
        std::lock_guard lock(controller_->dataArrayLock);
        controller_->dataArray = {offered};
    }
    static QVariantMap shared() { return sys::readGlobalPreferences(); }
    static void writeShared(const QVariantMap& values) { ASSERT_TRUE(sys::writeGlobalPreferences(values)); }
    bool terminated() const { return ui_->calls().contains(QStringLiteral("terminate")); }

    vltest::LogFixture log_;
    vltest::RecordingUserInterface* ui_ = nullptr; // owned by the controller
    std::unique_ptr<AppController> controller_;
};

// With a record the prompt's box stores (the window test clicks it); without one, nothing.
TEST_F(UserChoicesTest, ThePromptsStartupBoxStoresNothingWithoutARecordThePreferencesBoxAlways)
{
    controller_->toggleCheckAtStartup(false);
    EXPECT_FALSE(QFileInfo::exists(sys::globalPreferencesPath()));
    writeShared({{kOtherAppsKey, true}});
    controller_->prefsToggleCheckForUpdatesAtStartup(false);
    EXPECT_EQ(shared(), (QVariantMap{{kOtherAppsKey, true}, {prefs::kCheckAtStartup, false}}));
}

TEST_F(UserChoicesTest, SkippingStoresTheVersionAsADecimalStringUnderTheGroupThenQuits)
{
    // Nothing offered: nothing stored, no quit. No identifier: no version stored, but a quit.
    controller_->updateIgnoreVersionClick();
    EXPECT_FALSE(QFileInfo::exists(sys::globalPreferencesPath()) || terminated());
    show({{record::kNewVersion, QStringLiteral("130")}});
    controller_->updateIgnoreVersionClick();
    EXPECT_EQ(shared().value(prefs::kSkippedVersions), QVariant(QVariantMap{}));
    EXPECT_TRUE(terminated());

    writeShared({{kOtherAppsKey, true}, {prefs::kSkippedVersions, QVariantMap{{QStringLiteral("com.velmora.Other"), QStringLiteral("7")}}}});
    show({{record::kNewVersion, 120}, {record::kGroupId, QStringLiteral("com.velmora.studio")}, {record::kBundleId, QStringLiteral("com.velmora.Cut")}});
    controller_->updateIgnoreVersionClick();
    EXPECT_EQ(shared(), (QVariantMap{{kOtherAppsKey, true},
                                     {prefs::kSkippedVersions, QVariantMap{{QStringLiteral("com.velmora.Other"), QStringLiteral("7")},
                                                                           {QStringLiteral("com.velmora.studio"), QStringLiteral("120")}}}}));
}

TEST_F(UserChoicesTest, ResetRemovesSkippedVersionsOnlyAndAnUnreadableFileIsNeverReplaced)
{
    controller_->menuResetIgnoredUpdates();
    EXPECT_FALSE(QFileInfo::exists(sys::globalPreferencesPath())) << "no file is created";
    writeShared({{kOtherAppsKey, true}, {prefs::kSkippedVersions, QVariantMap{{QStringLiteral("a"), QStringLiteral("1")}}}});
    controller_->menuResetIgnoredUpdates();
    EXPECT_EQ(shared(), (QVariantMap{{kOtherAppsKey, true}}));

    const QByteArray damaged = "<?xml version=\"1.0\"?><plist><dict><key>disable-logging</key>";
    QFile file(sys::globalPreferencesPath());
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(damaged) > 0);
    file.close();
    controller_->prefsToggleCheckForUpdatesAtStartup(false);
    controller_->menuResetIgnoredUpdates();
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll(), damaged);
}

// The test executable lies outside the applications folder, so no job is ever installed; a copy
// that is not the permanent installation removes the job whatever the box says.
TEST_F(UserChoicesTest, TheWeeklyBoxStoresItsValueAndOnlyTheApplicationsFolderCopyKeepsAJob)
{
    const QString job = log_.path(QStringLiteral("home/Library/LaunchAgents/com.velmora.SoftwareUpdateAutoCheck.plist"));
    controller_->prefsToggleAutoUpdateCheck(true);
    EXPECT_EQ(sys::UserDefaults::standard().integerForKey(prefs::kAutoUpdateCheck), 1);
    EXPECT_FALSE(QFileInfo::exists(job));

    ASSERT_TRUE(QDir().mkpath(QFileInfo(job).path()));
    ASSERT_TRUE(plist::writeXmlFileAtomically(QVariantMap{{QStringLiteral("Label"), QStringLiteral("x")}}, job, nullptr));
    controller_->isPermanentInstaller = false;
    controller_->toggleAutoUpdateCheck(1);
    EXPECT_FALSE(QFileInfo::exists(job));

    controller_->prefsToggleAutoUpdateCheck(false);
    EXPECT_EQ(sys::UserDefaults::standard().integerForKey(prefs::kAutoUpdateCheck), 0);
}

} // namespace
