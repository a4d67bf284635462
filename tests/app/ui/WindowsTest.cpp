// The windows with the real controller on Qt's offscreen platform. Main window: a check against
// a local server fills the list, the check column drives the install button, Return installs
// and Escape on the install sheet cancels, the byte line of a large download, the menus, the
// alert that quits, a link in the notes. The single-update prompt and its buttons, the
// preferences, alerts asked from a worker, and accessible names on every control.

#include "InstallProgressSheet.h"
#include "PreferencesWindow.h"
#include "ReleaseNotesBrowser.h"
#include "UpdateProgressSheet.h"
#include "UpdateRecord.h"
#include "UpdateTableModel.h"
#include "UpdateWindow.h"
#include "WindowsFixture.h"
#include "lifecycle/PreferenceKeys.h"
#include "platform/plist/PropertyList.h"
#include "platform/system/UserDefaults.h"
#include "shared/VLAlert.h"

#include "support/QtPrinters.h"
#include "support/TestServer.h"

#include <QAction>
#include <QCheckBox>
#include <QFile>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QTableView>
#include <QTest>

#include <atomic>
#include <thread>

namespace {

using vltest::TestServer;

UpdateRecord download(const QString& url)
{
    return {{record::kType, record::kTypeSparkle}, {record::kTitle, QStringLiteral("Velmora Notes 1.3")},
            {record::kSelected, 1}, {record::kUrl, url}, {record::kChangeList, QStringLiteral("<p>Tags</p>")}};
}

class WindowsTest : public vltest::WindowsFixture {
protected:
    // A local server for the test, named as update server and web site.
    void startServer(const QJsonObject& routes = {})
    {
        vltest::TestServerOptions options;
        options.root = log_.path(QStringLiteral("served"));
        ASSERT_TRUE(QDir().mkpath(options.root));
        ASSERT_TRUE(server_.setRoutes(routes));
        ASSERT_TRUE(server_.start(options)) << server_.errorString().toStdString();
        log_.environment().set("VELMORA_WEB_SITE", server_.baseUrl() + QStringLiteral("/"));
        log_.environment().set("VELMORA_CA_FILE", server_.caFile());
    }
    void TearDown() override
    {
        WindowsFixture::TearDown();
        sys::UserDefaults::standard().setArguments({});
    }
    // The launch with "-checkpath" and a record handed over in "updateGroupDict": the prompt.
    UpdateWindow& prompt(const QString& url = QStringLiteral("https://127.0.0.1:9/Notes.dmg"))
    {
        UpdateRecord notes = download(url);
        notes.insert({{record::kNewVersion, 130}, {record::kOldVersion, 120}, {record::kOldVersionString, QStringLiteral("1.2")},
                      {record::kBundleId, QStringLiteral("com.velmora.Notes")}});
        sys::UserDefaults::standard().setObject(notes, prefs::kUpdateGroupDict);
        sys::UserDefaults::standard().setArguments({QStringLiteral("SoftwareUpdate"), QStringLiteral("-checkpath"),
                                                    QStringLiteral("/Applications/Velmora Notes.app")});
        controller_->applicationDidFinishLaunching();
        return *windows_->updateWindow();
    }
    QAction* action(const char* name) { return main().findChild<QAction*>(QString::fromLatin1(name)); }
    bool checkRunning() { return !std::unique_lock(controller_->controllerLock, std::try_to_lock).owns_lock(); }

    TestServer server_;
};


TEST_F(WindowsTest, ACheckListsTheUpdateSelectsItAndTheCheckColumnDrivesInstall)
{
    startServer();
    QFile::copy(QStringLiteral(VELMORA_CORPUS_DIR "/appcasts/maccy-single-item-cdata-html-description.xml"),
                log_.path(QStringLiteral("served/maccy.xml")));
    const QString app = log_.path(QStringLiteral("sysroot/Applications/Maccy.app/Contents"));
    ASSERT_TRUE(QDir().mkpath(app + QStringLiteral("/Resources")));
    ASSERT_TRUE(plist::writeXmlFileAtomically(QVariantMap{{QStringLiteral("CFBundleIdentifier"), QStringLiteral("com.velmora.Maccy")},
                                                          {QStringLiteral("CFBundleVersion"), QStringLiteral("50")}},
                                              app + QStringLiteral("/Info.plist")));
    ASSERT_TRUE(plist::writeXmlFileAtomically(QVariantMap{{QStringLiteral("SUFeedURL"), server_.url(QStringLiteral("/maccy.xml"))}},
                                              app + QStringLiteral("/Resources/VLUpdates.plist")));
    windows_->showMainWindow();
    controller_->menuCheckForUpdates();
    ASSERT_TRUE(waitUntil([&] { return !checkRunning() && main().model()->rowCount() == 1; }))
        << vltest::LogFixture::logText().toStdString();

    EXPECT_FALSE(main().windowUpdateProgress()->isVisible());
    const QModelIndex title = main().model()->index(0, UpdateTableModel::TitleColumn);
    EXPECT_EQ(title.data().toString(), QStringLiteral("2.7.1"));
    EXPECT_EQ(main().tableView()->selectionModel()->selectedRows().value(0).row(), 0);
    EXPECT_TRUE(main().webView()->toPlainText().contains(QStringLiteral("Enabled Khmer translation.")));
    EXPECT_EQ(main().statusLine()->text(), QStringLiteral("1 update available"));
    ASSERT_TRUE(main().installBtn()->isEnabled());

    // Space on the check cell unticks it, as a click would, and Install goes grey at once.
    main().tableView()->setCurrentIndex(main().model()->index(0, UpdateTableModel::CheckColumn));
    QTest::keyClick(main().tableView(), Qt::Key_Space);
    EXPECT_FALSE(main().installBtn()->isEnabled());
    EXPECT_EQ(controller_->dataArray.value(0).value(record::kSelected), QVariant(0));
    QTest::keyClick(main().tableView(), Qt::Key_Space);
    EXPECT_TRUE(main().installBtn()->isEnabled());
}

TEST_F(WindowsTest, ReturnInstallsAndEscapeOnTheSheetCancelsTheDownload)
{
    startServer({{QStringLiteral("/Notes.dmg"), QJsonObject{{QStringLiteral("endless"), true}}}});
    windows_->showMainWindow();
    setRows({download(server_.url(QStringLiteral("/Notes.dmg")))});

    QTest::keyClick(main().tableView(), Qt::Key_Return);
    InstallProgressSheet* sheet = main().windowInstallProgress();
    ASSERT_TRUE(waitUntil([&] { return sheet->isVisible() && server_.requestedPaths().contains(QStringLiteral("/Notes.dmg")); }));
    EXPECT_EQ(sheet->installStatusText()->text(), QStringLiteral("Downloading Velmora Notes 1.3..."));
    EXPECT_EQ(sheet->installProgressBar()->maximum(), 0) << "no length announced: an indeterminate bar";

    QTest::keyClick(sheet, Qt::Key_Escape);
    EXPECT_TRUE(controller_->updateCancelled);
    ASSERT_TRUE(waitUntil([&] { return !checkRunning(); }));
    EXPECT_FALSE(sheet->isVisible());
    EXPECT_EQ(main().model()->rowCount(), 1) << "a cancelled pass only redraws the list";
    EXPECT_EQ(server_.requestedPaths(), QStringList{QStringLiteral("/Notes.dmg")});
}

TEST_F(WindowsTest, ALargeDownloadShowsItsBytesOnADeterminateBar)
{
    windows_->showMainWindow();
    windows_->showInstallProgress();
    UrlResponseInfo response;
    response.expectedLength = qint64(1) << 30;
    controller_->downloadDidReceiveResponse(response);
    controller_->downloadDidReceiveDataOfLength(quint64(1) << 28);
    const InstallProgressSheet* sheet = main().windowInstallProgress();
    EXPECT_EQ(sheet->installProgressBar()->value() * 4, sheet->installProgressBar()->maximum());
    EXPECT_TRUE(sheet->downloadDataText()->isVisible());
    EXPECT_EQ(sheet->downloadDataText()->text(), QStringLiteral("256.0 MB / 1.00 GB"));
    controller_->hideDownloadDataText();
    EXPECT_FALSE(sheet->downloadDataText()->isVisible());
}

TEST_F(WindowsTest, CheckForUpdatesFollowsTheMainWindowAndTheMenusKeepTheStandardKeys)
{
    main().hide();
    EXPECT_FALSE(action("menuCheckForUpdates")->isEnabled());
    windows_->showMainWindow();
    EXPECT_TRUE(action("menuCheckForUpdates")->isEnabled());
    EXPECT_TRUE(action("quit")->shortcuts().contains(QKeySequence(Qt::CTRL | Qt::Key_Q)));
    EXPECT_TRUE(action("closeWindow")->shortcuts().contains(QKeySequence(Qt::CTRL | Qt::Key_W)));
    EXPECT_TRUE(action("showPreferences")->shortcuts().contains(QKeySequence(Qt::CTRL | Qt::Key_Comma)));
}

TEST_F(WindowsTest, TheNoUpdatesAlertIsASheetThatQuitsOnReturnOnlyWithAutoQuit)
{
    windows_->showMainWindow();
    for (const int autoQuit : {0, 1}) {
        sys::UserDefaults::standard().setInteger(autoQuit, prefs::kAutoQuit);
        controller_->showAlert(QStringLiteral("No updates found"), QStringLiteral("Your software is up-to-date."));
        QMessageBox* box = waitForAlert();
        ASSERT_TRUE(box);
        EXPECT_EQ(box->windowModality(), Qt::WindowModal);
        QTest::keyClick(box, Qt::Key_Return);
        EXPECT_EQ(windows_->terminationRequested(), autoQuit == 1);
    }
}

TEST_F(WindowsTest, AManualOnlyRowCannotBeTickedAndItsDiskImageLinkOpensInTheBrowserAndQuits)
{
    windows_->showMainWindow();
    UpdateRecord manual = download(QStringLiteral("https://downloads.velmora.com/Notes.dmg"));
    manual.insert(record::kManualOnly, true);
    setRows({manual});
    const QModelIndex check = main().model()->index(0, UpdateTableModel::CheckColumn);
    EXPECT_FALSE(check.flags() & Qt::ItemIsEnabled);
    EXPECT_FALSE(main().model()->setData(check, Qt::Checked, Qt::CheckStateRole));
    main().selectFirstItem();
    ASSERT_TRUE(main().webView()->toHtml().contains(QStringLiteral("Install manually")));
    Q_EMIT main().webView()->anchorClicked(QUrl(QStringLiteral("https://downloads.velmora.com/Notes.dmg")));
    EXPECT_TRUE(windows_->terminationRequested());
    EXPECT_EQ(workspace_.opened(), QStringList{"https://downloads.velmora.com/Notes.dmg"});
}

TEST_F(WindowsTest, PreferencesOpenOnTheStoredValuesAndEachBoxStoresAtOnce)
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

TEST_F(WindowsTest, ThePromptShowsTheStoredStartupChoiceAndItsButtonsStore)
{
    ASSERT_TRUE(sys::writeGlobalPreferences({{prefs::kCheckAtStartup, false}}));
    UpdateWindow& window = prompt();
    EXPECT_TRUE(window.isVisible());
    EXPECT_FALSE(main().isVisible());
    EXPECT_TRUE(window.updateInfoLabel()->font().bold());
    EXPECT_EQ(window.updateWebView()->toPlainText().trimmed(), QStringLiteral("Tags"));
    EXPECT_FALSE(window.updateCheckAtStartup()->isChecked());
    EXPECT_TRUE(window.installUpdateButton()->isDefault());
    window.updateCheckAtStartup()->click();
    EXPECT_EQ(sys::readGlobalPreferences().value(prefs::kCheckAtStartup), QVariant(true));
    window.skipButton()->click();
    EXPECT_EQ(sys::readGlobalPreferences().value(prefs::kSkippedVersions).toMap().value(QStringLiteral("com.velmora.Notes")),
              QVariant(QStringLiteral("130")));
    EXPECT_TRUE(windows_->terminationRequested());
}

TEST_F(WindowsTest, ReturnInThePromptHandsOverToTheMainWindowAndInstalls)
{
    startServer({{QStringLiteral("/Notes.dmg"), QJsonObject{{QStringLiteral("hang"), true}}}});
    UpdateWindow& window = prompt(server_.url(QStringLiteral("/Notes.dmg")));
    QTest::keyClick(&window, Qt::Key_Return);
    EXPECT_FALSE(window.isVisible());
    EXPECT_TRUE(main().isVisible());
    ASSERT_TRUE(waitUntil([&] { return server_.requestedPaths().contains(QStringLiteral("/Notes.dmg")); }));
    EXPECT_TRUE(main().windowInstallProgress()->isVisible());
    EXPECT_FALSE(windows_->terminationRequested());
    controller_->cancelInstall();
    // The pass ends (cancelled) while its server is still there.
    EXPECT_TRUE(waitUntil([&] { return !checkRunning(); }));
}

TEST_F(WindowsTest, AWorkersBlockingAlertIsASheetAndReturnsThePressedButton)
{
    windows_->showMainWindow();
    std::atomic<int> answer{42};
    std::thread worker([&] {
        answer = VLAlert::alertSheetWithMessageText(QStringLiteral("Notes is a paid upgrade. Are you sure you wish to install it?"),
                                                    QStringLiteral("Install"), QStringLiteral("Don't Install"), QString(),
                                                    QStringLiteral("100% of %d stays as written"), VLAlert::mainWindow(), true);
    });
    QMessageBox* box = waitForAlert();
    ASSERT_TRUE(box);
    EXPECT_EQ(box->parentWidget(), &main());
    EXPECT_EQ(box->windowModality(), Qt::WindowModal);
    EXPECT_EQ(box->informativeText(), QStringLiteral("100% of %d stays as written"));
    EXPECT_EQ(box->defaultButton()->text(), QStringLiteral("Install"));
    QTest::keyClick(box, Qt::Key_Escape); // the alternate button
    ASSERT_TRUE(waitUntil([&] { return answer != 42; }));
    worker.join();
    EXPECT_EQ(answer, VLAlert::alternateReturn);
}

TEST_F(WindowsTest, AWindowThatShowsASheetGetsAFreeStandingAlertAndTheSuppressionBoxWritesItsDefault)
{
    windows_->showMainWindow();
    windows_->showUpdateProgress();
    const QString key = QStringLiteral("suppressLaunchAgentWarning");
    VLAlert::alertSheetWithMessageText(QStringLiteral("Error: Unable to create LaunchAgent"), QString(), QString(), QString(),
                                       QString(), VLAlert::mainWindow(), nullptr, QString(), false, nullptr, key);
    QMessageBox* box = waitForAlert();
    ASSERT_TRUE(box && box->checkBox());
    EXPECT_EQ(box->parentWidget(), nullptr);
    EXPECT_EQ(box->windowModality(), Qt::ApplicationModal);
    EXPECT_FALSE(box->checkBox()->isChecked());
    box->checkBox()->click();
    EXPECT_TRUE(sys::UserDefaults::standard().boolForKey(key));
    QTest::keyClick(box, Qt::Key_Return);
}

TEST(ReleaseNotesBrowser, LoadsImagesOnlyFromItsResourceFolder)
{
    QTemporaryDir folder;
    QImage icon(4, 4, QImage::Format_ARGB32);
    icon.fill(Qt::blue);
    ASSERT_TRUE(QDir().mkpath(folder.filePath(QStringLiteral("Resources"))));
    ASSERT_TRUE(icon.save(folder.filePath(QStringLiteral("Resources/icon-18.png"))));
    ASSERT_TRUE(icon.save(folder.filePath(QStringLiteral("private.png"))));
    ReleaseNotesBrowser notes;
    notes.setResourceFolder(folder.filePath(QStringLiteral("Resources")));
    const auto load = [&](const QString& path) {
        return notes.loadResource(QTextDocument::ImageResource, QUrl::fromLocalFile(path));
    };
    EXPECT_TRUE(load(folder.filePath(QStringLiteral("Resources/icon-18.png"))).isValid());
    EXPECT_FALSE(load(folder.filePath(QStringLiteral("private.png"))).isValid());
    EXPECT_FALSE(load(folder.filePath(QStringLiteral("Resources/../private.png"))).isValid());
    EXPECT_FALSE(notes.loadResource(QTextDocument::ImageResource, QUrl(QStringLiteral("https://tracker.example.com/p.png"))).isValid());
}

TEST_F(WindowsTest, EveryControlHasAnAccessibleNameOrText)
{
    const QList<QWidget*> windows{&main(), main().windowUpdateProgress(), main().windowInstallProgress(),
                            main().preferencesWindow(), windows_->updateWindow()};
    for (QWidget* window : windows) {
        for (QWidget* control : window->findChildren<QWidget*>()) {
            if (control->focusPolicy() == Qt::NoFocus && !qobject_cast<QProgressBar*>(control))
                continue;
            const auto* button = qobject_cast<QAbstractButton*>(control);
            const bool named = !control->accessibleName().isEmpty() || (button && !button->text().isEmpty());
            EXPECT_TRUE(named) << window->objectName().toStdString() << " / " << control->metaObject()->className()
                               << " " << control->objectName().toStdString();
        }
    }
}

} // namespace
