// The single-update prompt opened by the real launch for a record handed over by -checkpath:
// what it shows, and its keys and buttons, with what each stores.

#include "InstallProgressSheet.h"
#include "ReleaseNotesBrowser.h"
#include "UpdateRecord.h"
#include "UpdateWindow.h"
#include "WindowsFixture.h"
#include "lifecycle/PreferenceKeys.h"
#include "platform/system/UserDefaults.h"

#include "support/QtPrinters.h"
#include "support/TestServer.h"

#include <QCheckBox>
#include <QLabel>
#include <QPushButton>
#include <QTest>

namespace {

class UpdateWindowTest : public vltest::WindowsFixture {
protected:
    void TearDown() override
    {
        WindowsFixture::TearDown();
        sys::UserDefaults::standard().setArguments({});
    }
    // The launch with "-checkpath" and the record handed over in "updateGroupDict".
    UpdateWindow& prompt(const QString& url = QStringLiteral("https://127.0.0.1:9/Notes.dmg"))
    {
        const UpdateRecord notes{{record::kType, record::kTypeSparkle}, {record::kTitle, QStringLiteral("Velmora Notes 1.3")},
                                 {record::kNewVersion, 130}, {record::kOldVersion, 120},
                                 {record::kOldVersionString, QStringLiteral("1.2")},
                                 {record::kBundleId, QStringLiteral("com.velmora.Notes")},
                                 {record::kChangeList, QStringLiteral("<p>Tags and faster search.</p>")},
                                 {record::kSelected, 1}, {record::kUrl, url}};
        sys::UserDefaults::standard().setObject(notes, prefs::kUpdateGroupDict);
        sys::UserDefaults::standard().setArguments({QStringLiteral("SoftwareUpdate"), QStringLiteral("-checkpath"),
                                                    QStringLiteral("/Applications/Velmora Notes.app")});
        controller_->applicationDidFinishLaunching();
        return *windows_->updateWindow();
    }
    static QString skipped()
    {
        return sys::readGlobalPreferences().value(prefs::kSkippedVersions).toMap().value(QStringLiteral("com.velmora.Notes")).toString();
    }
};

TEST_F(UpdateWindowTest, ShowsTheHeadlineInBoldTheNotesAndTheStoredStartupChoice)
{
    ASSERT_TRUE(sys::writeGlobalPreferences({{prefs::kCheckAtStartup, false}}));
    UpdateWindow& window = prompt();
    EXPECT_TRUE(window.isVisible());
    EXPECT_FALSE(main().isVisible());
    EXPECT_EQ(window.updateInfoLabel()->text(),
              QStringLiteral("Velmora Notes 1.3 (130) is available. Currently installed version is 1.2 (120)."));
    EXPECT_TRUE(window.updateInfoLabel()->font().bold());
    EXPECT_EQ(window.updateWebView()->toPlainText().trimmed(), QStringLiteral("Tags and faster search."));
    EXPECT_FALSE(window.updateCheckAtStartup()->isChecked());
    EXPECT_TRUE(window.installUpdateButton()->isDefault());

    window.updateCheckAtStartup()->click();
    EXPECT_EQ(sys::readGlobalPreferences().value(prefs::kCheckAtStartup), QVariant(true));
}

TEST_F(UpdateWindowTest, EscapeRemindsLaterAndStoresNothing)
{
    UpdateWindow& window = prompt();
    QTest::keyClick(&window, Qt::Key_Escape);
    EXPECT_TRUE(windows_->terminationRequested());
    EXPECT_TRUE(skipped().isEmpty());
}

TEST_F(UpdateWindowTest, SkipStoresTheVersionAndQuits)
{
    prompt().skipButton()->click();
    EXPECT_EQ(skipped(), QStringLiteral("130"));
    EXPECT_TRUE(windows_->terminationRequested());
}

TEST_F(UpdateWindowTest, ReturnHandsOverToTheMainWindowAndInstalls)
{
    vltest::TestServer server;
    ASSERT_TRUE(server.setRoutes({{QStringLiteral("/Notes.dmg"), QJsonObject{{QStringLiteral("hang"), true}}}}));
    ASSERT_TRUE(server.start()) << server.errorString().toStdString();
    log_.environment().set("VELMORA_CA_FILE", server.caFile());

    UpdateWindow& window = prompt(server.url(QStringLiteral("/Notes.dmg")));
    QTest::keyClick(&window, Qt::Key_Return);
    EXPECT_FALSE(window.isVisible());
    EXPECT_TRUE(main().isVisible());
    ASSERT_TRUE(waitUntil([&] { return server.requestedPaths().contains(QStringLiteral("/Notes.dmg")); }));
    EXPECT_TRUE(main().windowInstallProgress()->isVisible());
    EXPECT_FALSE(windows_->terminationRequested());
    controller_->cancelInstall();
    // The pass ends (cancelled) while its server is still there.
    EXPECT_TRUE(waitUntil([&] { return std::unique_lock(controller_->controllerLock, std::try_to_lock).owns_lock(); }));
}

} // namespace
