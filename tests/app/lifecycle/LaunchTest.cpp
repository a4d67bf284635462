// The windowed launch with a recording interface: the single-update prompt for a record handed
// over in "updateGroupDict", the silent ends (up to date, skipped version, nothing to check),
// and the normal launch with its check on a worker thread.

#include "AppController.h"
#include "UpdateRecord.h"
#include "lifecycle/PreferenceKeys.h"
#include "platform/system/UserDefaults.h"

#include "support/LogFixture.h"
#include "support/QtPrinters.h"
#include "support/RecordingUserInterface.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QThread>
#include <gtest/gtest.h>

namespace {

const UpdateRecord kNotes{{record::kType, record::kTypeSparkle},
                          {record::kTitle, QStringLiteral("Velmora Notes 1.3")},
                          {record::kNewVersion, 130},
                          {record::kOldVersion, 120},
                          {record::kOldVersionString, QStringLiteral("1.2")},
                          {record::kBundleId, QStringLiteral("com.velmora.Notes")},
                          {record::kChangeList, QStringLiteral("<ul><li>Tags</li></ul>")},
                          {record::kSelected, 1}};

class LaunchTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        // Nothing may reach a real server: the self check meets a closed port.
        log_.environment().set("VELMORA_UPDATE_SERVER", QStringLiteral("https://127.0.0.1:9"));
        log_.environment().set("TMPDIR", log_.path(QStringLiteral("tmp")));
        auto ui = std::make_unique<vltest::RecordingUserInterface>();
        ui_ = ui.get();
        controller_ = AppController::init(std::move(ui));
    }
    void TearDown() override { sys::UserDefaults::standard().setArguments({}); }

    void launchWithCheckpath(const std::optional<UpdateRecord>& handedOver, const QString& path = QStringLiteral("/nowhere.app"))
    {
        if (handedOver)
            sys::UserDefaults::standard().setObject(*handedOver, prefs::kUpdateGroupDict);
        sys::UserDefaults::standard().setArguments({QStringLiteral("SoftwareUpdate"), QStringLiteral("-checkpath"), path});
        controller_->applicationDidFinishLaunching();
    }

    vltest::LogFixture log_;
    vltest::RecordingUserInterface* ui_ = nullptr; // owned by the controller
    std::unique_ptr<AppController> controller_;
};

TEST_F(LaunchTest, TheHandedOverRecordIsShownOnceInThePrompt)
{
    launchWithCheckpath(kNotes);
    const QStringList calls = ui_->calls();
    ASSERT_EQ(calls.size(), 5) << calls.join(QLatin1Char('\n')).toStdString();
    EXPECT_EQ(calls.at(0), QStringLiteral("updateCheckAtStartup:1"));
    EXPECT_EQ(calls.at(1), QStringLiteral("updateInfo:Velmora Notes 1.3 (130) is available. Currently installed version is 1.2 (120)."));
    EXPECT_TRUE(calls.at(2).startsWith(QStringLiteral("updateNotes:<style>")));
    EXPECT_TRUE(calls.at(2).endsWith(QStringLiteral("<div style=\"font-family:Helvetica;margin:10px;\"><ul><li>Tags</li></ul></div>")));
    EXPECT_EQ(calls.mid(3), (QStringList{"showUpdateWindow", "activateApplication"}));
    EXPECT_EQ(controller_->dataArray, QList<UpdateRecord>{kNotes});
    EXPECT_FALSE(sys::UserDefaults::standard().objectForKey(prefs::kUpdateGroupDict).isValid());
}

struct SilentEnd {
    const char* name;
    std::optional<UpdateRecord> handedOver;
    QVariantMap shared;
};

class SilentEndTest : public LaunchTest, public ::testing::WithParamInterface<SilentEnd> {};

TEST_P(SilentEndTest, EndsWithoutAWindow)
{
    ASSERT_TRUE(sys::writeGlobalPreferences(GetParam().shared));
    launchWithCheckpath(GetParam().handedOver);
    EXPECT_EQ(ui_->calls(), QStringList{"terminate"});
}

UpdateRecord withVersionString(const QString& version)
{
    UpdateRecord r = kNotes;
    r.insert(record::kNewVersion, version);
    return r;
}

const QVariantMap kSkipped130{{prefs::kSkippedVersions, QVariantMap{{QStringLiteral("com.velmora.Notes"), QStringLiteral("130")}}}};

INSTANTIATE_TEST_SUITE_P(Prompt, SilentEndTest, ::testing::Values(
    SilentEnd{"UpToDate", record::upToDateMarker(), {}},
    SilentEnd{"SkippedNumber", kNotes, kSkipped130},
    SilentEnd{"SkippedString", withVersionString(QStringLiteral("130")), kSkipped130},
    SilentEnd{"NothingHandedOverAndNoBundle", std::nullopt, {}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(LaunchTest, ANewerVersionThanTheSkippedOneIsOffered)
{
    ASSERT_TRUE(sys::writeGlobalPreferences(kSkipped130));
    launchWithCheckpath(withVersionString(QStringLiteral("131")));
    EXPECT_TRUE(ui_->calls().contains(QStringLiteral("showUpdateWindow")));
}

TEST_F(LaunchTest, TheNormalLaunchShowsTheMainWindowAndChecksOnAWorker)
{
    controller_->applicationDidFinishLaunching();
    const QStringList first = ui_->calls();
    ASSERT_GE(first.size(), 4);
    EXPECT_EQ(first.at(0), QStringLiteral("prefsCheckAtStartup:1"));
    EXPECT_TRUE(first.at(1).startsWith(QStringLiteral("notes:<style>")));
    EXPECT_EQ(first.mid(2, 2), (QStringList{"showMainWindow", "activateApplication"}));

    // The check runs on its own thread and asks the interface through this thread's loop.
    QDeadlineTimer guard(60000);
    while (!ui_->calls().contains(QStringLiteral("showAlert:No updates found")) && !guard.hasExpired())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
    EXPECT_TRUE(ui_->calls().contains(QStringLiteral("showAlert:No updates found")));
    std::lock_guard lock(controller_->controllerLock); // the check has let go of the controller
}

} // namespace
