// The controller's initialisers, the start-up box rule, where "-forceIDs" and "-install
// sparkle" find their values, and the silent ends of a windowed "-checkpath" launch (up to date,
// a skipped version, nothing handed over; the window test shows the prompt). Then the user's choices as the windows' controls store them: the start-up boxes,
// skipping and resetting versions, the weekly job. The vendor's shared file belongs to every
// vendor application, so other keys must survive.

#include "AppController.h"
#include "UpdateRecord.h"
#include "lifecycle/PreferenceKeys.h"
#include "lifecycle/RunModes.h"
#include "platform/plist/PropertyList.h"
#include "platform/system/UserDefaults.h"

#include "support/FixturePlist.h"
#include "support/LogFixture.h"
#include "support/QtPrinters.h"
#include "support/RecordingUserInterface.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
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
        QVariantMap resources; // Contents/Resources/VLUpdates.plist
        QVariantMap contents;  // Contents/VLUpdates.plist
        const char* expected;
    };
    const Case cases[] = {
        {feed("info"), feed("resources"), feed("contents"), "info"},
        {noFeed, feed("resources"), feed("contents"), "resources"},
        {noFeed, noFeed, feed("contents"), "contents"},
        {noFeed, noFeed, noFeed, ""},
    };
    for (const Case& c : cases) {
        QTemporaryDir dir;
        const QString app = dir.filePath(QStringLiteral("Tessel.app"));
        ASSERT_TRUE(QDir().mkpath(app + QStringLiteral("/Contents/Resources")));
        for (const auto& [relative, descriptor] : {std::pair{"/Contents/Resources/VLUpdates.plist", c.resources},
                                                   std::pair{"/Contents/VLUpdates.plist", c.contents}}) {
            QFile file(app + QString::fromLatin1(relative));
            ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write(vltest::fixturePlistXml(descriptor)) > 0);
        }
        EXPECT_EQ(runmodes::installFeedOf(app, c.info), QString::fromUtf8(c.expected)) << c.expected;
    }
}

const UpdateRecord kNotes{{record::kType, record::kTypeSparkle}, {record::kTitle, QStringLiteral("Velmora Notes 1.3")},
                          {record::kNewVersion, 130}, {record::kOldVersion, 120}, {record::kOldVersionString, QStringLiteral("1.2")},
                          {record::kBundleId, QStringLiteral("com.velmora.Notes")}};

class LaunchTest : public ::testing::Test {
protected:
    void TearDown() override { sys::UserDefaults::standard().setArguments({}); }

    // A fresh launch with "-checkpath" and, when given, the record handed over; what the interface was asked.
    QStringList launch(const std::optional<UpdateRecord>& handedOver, const QVariantMap& shared = {})
    {
        controller_.reset();
        log_.reset();
        log_.emplace();
        log_->environment().set("VELMORA_UPDATE_SERVER", QStringLiteral("https://127.0.0.1:9")); // nothing reaches a server
        log_->environment().set("TMPDIR", log_->path(QStringLiteral("tmp")));
        EXPECT_TRUE(sys::writeGlobalPreferences(shared));
        auto recording = std::make_unique<vltest::RecordingUserInterface>();
        const vltest::RecordingUserInterface& ui = *recording;
        controller_ = AppController::init(std::move(recording));
        if (handedOver)
            sys::UserDefaults::standard().setObject(*handedOver, prefs::kUpdateGroupDict);
        sys::UserDefaults::standard().setArguments({QStringLiteral("SoftwareUpdate"), QStringLiteral("-checkpath"), QStringLiteral("/nowhere.app")});
        controller_->applicationDidFinishLaunching();
        EXPECT_FALSE(sys::UserDefaults::standard().objectForKey(prefs::kUpdateGroupDict).isValid()) << "handed over once only";
        return ui.calls();
    }

    std::optional<vltest::LogFixture> log_;
    std::unique_ptr<AppController> controller_;
};

TEST_F(LaunchTest, UpToDateSkippedOrNothingHandedOverEndsWithoutAWindow)
{
    const QVariantMap skipped130{{prefs::kSkippedVersions, QVariantMap{{QStringLiteral("com.velmora.Notes"), QStringLiteral("130")}}}};
    EXPECT_EQ(launch(record::upToDateMarker()), QStringList{"terminate"});
    // The record's number is compared as text with the skipped version.
    EXPECT_EQ(launch(kNotes, skipped130), QStringList{"terminate"});
    EXPECT_EQ(launch(std::nullopt), QStringList{"terminate"});
    // A newer version than the skipped one is offered.
    UpdateRecord newer = kNotes;
    newer.insert(record::kNewVersion, QStringLiteral("131"));
    EXPECT_TRUE(launch(newer, skipped130).contains(QStringLiteral("showUpdateWindow")));
}

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
