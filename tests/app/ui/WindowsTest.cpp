// The windows with the real controller on Qt's offscreen platform: the list and Install, the
// install sheet, the prompt, alerts asked from a worker, and accessible names on every control;
// and the update list's rules as the controller serves them (columns, release notes and their
// links) and the Help menu's log.
// Tests that start a worker wait for it with waitUntil(), which keeps this thread serving it.

#include "AppController.h"
#include "InstallProgressSheet.h"
#include "MainWindow.h"
#include "PreferencesWindow.h"
#include "ReleaseNotesBrowser.h"
#include "UpdateProgressSheet.h"
#include "UpdateRecord.h"
#include "UpdateTableModel.h"
#include "UpdateWindow.h"
#include "WidgetsUserInterface.h"
#include "lifecycle/PreferenceKeys.h"
#include "platform/plist/PropertyList.h"
#include "platform/system/UserDefaults.h"
#include "shared/VLAlert.h"
#include "shared/VLBugReporter.h"

#include "support/LogFixture.h"
#include "support/QtPrinters.h"
#include "support/RecordingWorkspace.h"
#include "support/TestServer.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QDeadlineTimer>
#include <QLabel>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QTableView>
#include <QTest>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace {

UpdateRecord download(const QString& url)
{
    return {{record::kType, record::kTypeSparkle}, {record::kTitle, QStringLiteral("Velmora Notes 1.3")},
            {record::kSelected, 1}, {record::kUrl, url}, {record::kChangeList, QStringLiteral("<p>Tags</p>")}};
}

class WindowsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        log_.environment().set("TMPDIR", log_.path(QStringLiteral("tmp")));
        log_.environment().set("VELMORA_UPDATE_SERVER", QStringLiteral("https://127.0.0.1:9"));
        ASSERT_TRUE(QDir().mkpath(log_.path(QStringLiteral("tmp"))));
        ASSERT_TRUE(QDir().mkpath(log_.path(QStringLiteral("sysroot/Applications"))));
        sys::UserDefaults::standard().removeObjectForKey(VLBugReporter::exitKey());
        auto windows = std::make_unique<WidgetsUserInterface>(QString());
        windows_ = windows.get();
        controller_ = AppController::init(std::move(windows));
        windows_->attach(*controller_);
    }
    void TearDown() override
    {
        // Nothing a worker still holds may outlive the controller.
        waitUntil([&] { return !checkRunning(); });
        for (QWidget* window : QApplication::topLevelWidgets())
            window->hide();
        sys::UserDefaults::standard().setArguments({});
    }
    // Turns the event loop until `done` holds; false after a generous guard against hanging.
    static bool waitUntil(const std::function<bool()>& done)
    {
        QDeadlineTimer guard(60000);
        while (!done() && !guard.hasExpired())
            QApplication::processEvents(QEventLoop::AllEvents, 20);
        return done();
    }
    // The alert box on screen, once it is up.
    static QMessageBox* waitForAlert()
    {
        QMessageBox* found = nullptr;
        waitUntil([&] {
            for (QWidget* widget : QApplication::allWidgets()) {
                if (auto* box = qobject_cast<QMessageBox*>(widget); box && box->isVisible())
                    found = box;
            }
            return found != nullptr;
        });
        return found;
    }
    void setRows(const QList<UpdateRecord>& rows)
    {
        {
            std::lock_guard lock(controller_->dataArrayLock);
            controller_->dataArray = rows;
        }
        windows_->reloadTableView();
        controller_->updateInstallButtonStatus();
    }
    MainWindow& main() { return *windows_->mainWindow(); }
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
    // The application's quit ran: it records the exit date, as every quit does.
    static bool terminated() { return sys::UserDefaults::standard().objectForKey(VLBugReporter::exitKey()).isValid(); }
    bool checkRunning() { return !std::unique_lock(controller_->controllerLock, std::try_to_lock).owns_lock(); }

    vltest::LogFixture log_;
    vltest::ScopedRecordingWorkspace workspace_;
    WidgetsUserInterface* windows_ = nullptr; // owned by the controller
    std::unique_ptr<AppController> controller_;
    vltest::TestServer server_;
};

TEST_F(WindowsTest, ACheckListsTheUpdateSelectsItAndTheCheckColumnDrivesInstall)
{
    startServer();
    QFile::copy(QStringLiteral(VELMORA_CORPUS_DIR "/appcasts/maccy-single-item-cdata-html-description.xml"),
                log_.path(QStringLiteral("served/maccy.xml")));
    const QString app = log_.path(QStringLiteral("sysroot/Applications/Maccy.app/Contents"));
    for (const auto& [file, values] : {std::pair{"/Info.plist", QVariantMap{{QStringLiteral("CFBundleIdentifier"), QStringLiteral("com.velmora.Maccy")},
                                                                            {QStringLiteral("CFBundleVersion"), QStringLiteral("50")}}},
                                       {"/Resources/VLUpdates.plist", QVariantMap{{QStringLiteral("SUFeedURL"), server_.url(QStringLiteral("/maccy.xml"))}}}})
        ASSERT_TRUE(QDir().mkpath(app + QStringLiteral("/Resources")) && plist::writeXmlFileAtomically(values, app + QLatin1String(file)));
    // Check for Updates follows the main window.
    QAction* check = main().findChild<QAction*>(QStringLiteral("menuCheckForUpdates"));
    main().hide();
    EXPECT_FALSE(check->isEnabled());
    windows_->showMainWindow();
    ASSERT_TRUE(check->isEnabled());
    check->trigger();
    ASSERT_TRUE(waitUntil([&] { return !checkRunning() && main().model()->rowCount() == 1; }))
        << vltest::LogFixture::logText().toStdString();

    EXPECT_FALSE(main().windowUpdateProgress()->isVisible());
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
    // A disk image link in the notes opens in the browser and quits.
    const QString image = controller_->dataArray.value(0).value(record::kUrl).toString();
    Q_EMIT main().webView()->anchorClicked(QUrl(image));
    EXPECT_EQ(workspace_.opened(), QStringList{image});
    EXPECT_TRUE(terminated());
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
}

TEST_F(WindowsTest, ThePromptShowsTheStoredStartupChoiceAndItsButtonsStore)
{
    ASSERT_TRUE(sys::writeGlobalPreferences({{prefs::kCheckAtStartup, false}}));
    UpdateWindow& window = prompt();
    EXPECT_TRUE(window.isVisible());
    EXPECT_FALSE(main().isVisible());
    EXPECT_EQ(window.updateInfoLabel()->text(),
              QStringLiteral("Velmora Notes 1.3 (130) is available. Currently installed version is 1.2 (120)."));
    EXPECT_FALSE(window.updateCheckAtStartup()->isChecked());
    window.updateCheckAtStartup()->click();
    EXPECT_EQ(sys::readGlobalPreferences().value(prefs::kCheckAtStartup), QVariant(true));
    window.skipButton()->click();
    EXPECT_EQ(sys::readGlobalPreferences().value(prefs::kSkippedVersions).toMap().value(QStringLiteral("com.velmora.Notes")),
              QVariant(QStringLiteral("130")));
    EXPECT_TRUE(terminated());
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
    EXPECT_FALSE(terminated());
    controller_->cancelInstall();
    // The pass ends (cancelled) while its server is still there.
    EXPECT_TRUE(waitUntil([&] { return !checkRunning(); }));
}

// The alert texts, answers and suppression rules are the alert's own tests'; here: which
// window an alert sits on, how modal it is, and that its keys and box reach the controller.
TEST_F(WindowsTest, AlertsAreSheetsOfTheMainWindowOrFreeStandingWhenItShowsOne)
{
    windows_->showMainWindow();
    // A worker's blocking alert waits for the pressed button (Escape: the alternate one).
    std::atomic<int> answer{42};
    std::thread worker([&] {
        answer = VLAlert::alertSheetWithMessageText(QStringLiteral("Notes is a paid upgrade. Are you sure you wish to install it?"),
                                                    QStringLiteral("Install"), QStringLiteral("Don't Install"), QString(), QString(),
                                                    VLAlert::mainWindow(), true);
    });
    QMessageBox* box = waitForAlert();
    ASSERT_TRUE(box);
    QTest::keyClick(box, Qt::Key_Escape);
    ASSERT_TRUE(waitUntil([&] { return answer != 42; }));
    worker.join();
    EXPECT_EQ(answer, VLAlert::alternateReturn);
    // While the window shows a sheet an alert stands free, and its box writes its default.
    windows_->showUpdateProgress();
    const QString key = QStringLiteral("suppressLaunchAgentWarning");
    VLAlert::alertSheetWithMessageText(QStringLiteral("Error: Unable to create LaunchAgent"), QString(), QString(), QString(),
                                       QString(), VLAlert::mainWindow(), nullptr, QString(), false, nullptr, key);
    box = waitForAlert();
    ASSERT_TRUE(box && box->checkBox());
    EXPECT_TRUE(box->parentWidget() == nullptr && box->windowModality() == Qt::ApplicationModal);
    box->checkBox()->click();
    EXPECT_TRUE(sys::UserDefaults::standard().boolForKey(key));
    QTest::keyClick(box, Qt::Key_Return);
    windows_->endProgress();
    // The controller's alert is a sheet; "No updates found" does not quit on Return without
    // autoQuit (the windowed end-to-end test presses it with autoQuit and sees the quit).
    sys::UserDefaults::standard().setInteger(0, prefs::kAutoQuit);
    controller_->showAlert(QStringLiteral("No updates found"), QStringLiteral("Your software is up-to-date."));
    box = waitForAlert();
    ASSERT_TRUE(box);
    EXPECT_TRUE(box->parentWidget() == &main() && box->windowModality() == Qt::WindowModal);
    QTest::keyClick(box, Qt::Key_Return);
    EXPECT_FALSE(terminated());
}

TEST(ReleaseNotesBrowser, LoadsImagesOnlyFromItsResourceFolder)
{
    QTemporaryDir folder;
    QImage icon(4, 4, QImage::Format_ARGB32);
    icon.fill(Qt::blue);
    ASSERT_TRUE(QDir().mkpath(folder.filePath(QStringLiteral("Resources"))));
    ReleaseNotesBrowser notes;
    notes.setResourceFolder(folder.filePath(QStringLiteral("Resources")));
    for (const auto& [name, loads] : {std::pair{"Resources/icon-18.png", true}, {"private.png", false}, {"Resources/../private.png", false}}) {
        ASSERT_TRUE(icon.save(folder.filePath(QString::fromLatin1(name))));
        EXPECT_EQ(notes.loadResource(QTextDocument::ImageResource, QUrl::fromLocalFile(folder.filePath(QString::fromLatin1(name)))).isValid(), loads) << name;
    }
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

UpdateRecord listed(const QString& title, const QVariantMap& extra = {})
{
    UpdateRecord r = download(QStringLiteral("https://downloads.example.com/%1.dmg").arg(title));
    r.insert(record::kTitle, title);
    r.insert(record::kChangeList, QStringLiteral("<p>%1 notes</p>").arg(title));
    r.insert(extra);
    return r;
}

TEST(UpdateList, ColumnsShowTheRecordWithManualOnlyAndPaidMarks)
{
    const QList<UpdateRecord> rows = {
        listed(QStringLiteral("Studio"), {{record::kManualOnly, true}, {record::kPaidUpgrade, true},
                                          {record::kRequirementsString, QStringLiteral("macOS 12")}}),
        listed(QStringLiteral("Cut"), {{record::kPaidUpgrade, true}})};
    const auto value = [&](const char* column, int row) { return AppController::tableViewObjectValue(rows, QString::fromLatin1(column), row); };
    EXPECT_EQ(value("check", 0), QVariant(0)) << "manual-only is never ticked, whatever it says";
    EXPECT_FALSE(AppController::tableViewCheckCellEnabled(rows.at(0)));
    EXPECT_EQ(value("check", 1), QVariant(1));
    EXPECT_EQ(value("title", 0), QVariant(QStringLiteral("Studio (Paid Upgrade) (Manual Only)")));
    EXPECT_EQ(value("title", 1), QVariant(QStringLiteral("Cut (Paid Upgrade)")));
    EXPECT_EQ(value("requirements", 0), QVariant(QStringLiteral("macOS 12")));
    EXPECT_FALSE(value("title", 2).isValid());
}

TEST(UpdateList, ReleaseNotesCarryTheirBoxesAndAnEscapedManualLink)
{
    const QString paidManual = AppController::changeListForUpdate(
        listed(QStringLiteral("Studio"), {{record::kManualOnly, true}, {record::kPaidUpgrade, true}}));
    EXPECT_LT(paidManual.indexOf(QStringLiteral("<b>Paid upgrade:</b>")), paidManual.indexOf(QStringLiteral("<b>Important:</b>")));
    EXPECT_TRUE(paidManual.contains(QStringLiteral(">Install manually</a> (updater will close)")));
    const QString ordinary = AppController::changeListForUpdate(listed(QStringLiteral("Notes")));
    EXPECT_FALSE(ordinary.contains(QStringLiteral("Paid upgrade:")));
    EXPECT_GT(ordinary.indexOf(QStringLiteral("<a href=\"https://downloads.example.com/Notes.dmg\">Install update manually</a>")),
              ordinary.indexOf(QStringLiteral("Notes notes")));
    // An address cannot end its attribute and add markup of its own.
    const QString hostile = AppController::changeListForUpdate(
        listed(QStringLiteral("X"), {{record::kUrl, QStringLiteral("https://x/a.dmg\"><img src=\"file:///etc/passwd")}}));
    EXPECT_TRUE(hostile.contains(QStringLiteral("a.dmg&quot;&gt;&lt;img")));
}

TEST_F(WindowsTest, LinksGoToTheBrowserAndDirectInstallerDownloadsQuit)
{
    struct Case { const char* url; bool opened; bool quits; };
    // The one that quits comes last: a quit happens once.
    const QList<Case> cases = {{"https://www.velmora.com/notes", true, false}, {"https://downloads.velmora.com/Notes.dmg.html", true, false},
                               {"file:///usr/bin/xterm", false, false}, {"http://downloads.velmora.com/Notes.ZIP?mirror=2", true, true}};
    for (const Case& c : cases) {
        const QString url = QString::fromLatin1(c.url);
        EXPECT_FALSE(controller_->decidePolicyForNavigation(url, true)) << "the notes view never follows a link itself";
        EXPECT_EQ(workspace_.opened().contains(url), c.opened) << c.url;
        EXPECT_EQ(terminated(), c.quits) << c.url;
    }
    // Loading the notes themselves is allowed.
    EXPECT_TRUE(controller_->decidePolicyForNavigation(QStringLiteral("about:blank"), false));
}

// The Help menu's log item looks for the log under the name the updater's logs really have, the
// executable's name, not its display name.
TEST_F(WindowsTest, ViewLogOpensTheLogNamedAfterTheExecutable)
{
    // Where the log of a user's run lies (a root run writes elsewhere, and that is kept).
    const QString userLog = VLLog::logFolder() + QLatin1Char('/') + VLLog::appName() + QStringLiteral(".1.log");
    QFile file(userLog);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.close();
    controller_->viewLog();
    EXPECT_EQ(workspace_.opened(), QStringList{userLog});
}

} // namespace
