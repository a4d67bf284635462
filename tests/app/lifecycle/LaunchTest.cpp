// The windowed launch of "-checkpath" with a recording interface: the silent ends (up to date, a
// skipped version given as number or text, nothing handed over). The window test shows the prompt.

#include "AppController.h"
#include "UpdateRecord.h"
#include "lifecycle/PreferenceKeys.h"
#include "platform/system/UserDefaults.h"

#include "support/LogFixture.h"
#include "support/RecordingUserInterface.h"

#include <gtest/gtest.h>

namespace {

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
    UpdateRecord asText = kNotes;
    asText.insert(record::kNewVersion, QStringLiteral("130"));
    EXPECT_EQ(launch(record::upToDateMarker()), QStringList{"terminate"});
    EXPECT_EQ(launch(kNotes, skipped130), QStringList{"terminate"});
    EXPECT_EQ(launch(asText, skipped130), QStringList{"terminate"});
    EXPECT_EQ(launch(std::nullopt), QStringList{"terminate"});
    // A newer version than the skipped one is offered.
    asText.insert(record::kNewVersion, QStringLiteral("131"));
    EXPECT_TRUE(launch(asText, skipped130).contains(QStringLiteral("showUpdateWindow")));
}

} // namespace
