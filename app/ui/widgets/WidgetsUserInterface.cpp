#include "WidgetsUserInterface.h"

#include "AlertBoxes.h"
#include "AppController.h"
#include "InstallProgressSheet.h"
#include "MainWindow.h"
#include "PreferencesWindow.h"
#include "ReleaseNotesBrowser.h"
#include "UpdateProgressSheet.h"
#include "UpdateWindow.h"
#include "WidgetsAlertPresenter.h"
#include "shared/VLAlert.h"

#include <QApplication>

WidgetsUserInterface::WidgetsUserInterface(QString resourceFolder)
    : resourceFolder_(std::move(resourceFolder))
{
}

WidgetsUserInterface::~WidgetsUserInterface()
{
    if (mainWindow_)
        VLAlert::setPresenter(nullptr);
}

void WidgetsUserInterface::attach(AppController& controller)
{
    controller_ = &controller;
    mainWindow_ = std::make_unique<MainWindow>(controller, resourceFolder_);
    updateWindow_ = std::make_unique<UpdateWindow>(controller, resourceFolder_);
    VLAlert::setPresenter(std::make_shared<WidgetsAlertPresenter>(mainWindow_.get()));
    QObject::connect(qApp, &QCoreApplication::aboutToQuit, mainWindow_.get(), [this] { finish(); });
}

void WidgetsUserInterface::finish()
{
    if (finished_)
        return;
    finished_ = true;
    if (mainWindow_->isVisible())
        mainWindow_->saveWindowState();
    controller_->applicationWillTerminate();
}

QWidget* WidgetsUserInterface::installPanel() const
{
    return mainWindow_->windowInstallProgress();
}

QWidget* WidgetsUserInterface::sheetParent() const
{
    InstallProgressSheet* install = mainWindow_->windowInstallProgress();
    if (install->isVisible())
        return install;
    if (mainWindow_->isVisible())
        return mainWindow_.get();
    return updateWindow_->isVisible() ? updateWindow_.get() : nullptr;
}

void WidgetsUserInterface::showMainWindow()
{
    mainWindow_->show();
    mainWindow_->raise();
    mainWindow_->activateWindow();
}

bool WidgetsUserInterface::isMainWindowVisible()
{
    return mainWindow_ && mainWindow_->isVisible(); // asked while the window is being made, too
}

void WidgetsUserInterface::reloadTableView()
{
    mainWindow_->reloadTable();
}

void WidgetsUserInterface::setInstallButtonEnabled(bool enabled)
{
    mainWindow_->setInstallButtonEnabled(enabled);
}

void WidgetsUserInterface::selectFirstItem()
{
    mainWindow_->selectFirstItem();
}

void WidgetsUserInterface::setNotesHTML(NotesView view, const QString& html)
{
    ReleaseNotesBrowser* notes = view == NotesView::Main ? mainWindow_->webView() : updateWindow_->updateWebView();
    notes->setHtml(html);
}

void WidgetsUserInterface::activateApplication()
{
    for (QWidget* window : QApplication::topLevelWidgets()) {
        if (window->isVisible() && !window->isMinimized()) {
            window->raise();
            window->activateWindow();
        }
    }
}

void WidgetsUserInterface::startUpdateProgress()
{
    // An indeterminate bar animates by itself while it is shown.
}

void WidgetsUserInterface::showUpdateProgress()
{
    mainWindow_->windowUpdateProgress()->present();
}

void WidgetsUserInterface::endProgress()
{
    InstallProgressSheet* install = mainWindow_->windowInstallProgress();
    if (install->isVisible()) {
        install->dismiss();
        return;
    }
    mainWindow_->windowUpdateProgress()->dismiss();
}

void WidgetsUserInterface::showAlert(const QString& message, const QString& info)
{
    alerts::showSheet(sheetParent(), {message, info, {}, {}}, [this](int) { controller_->noUpdateAlertDidEnd(); });
}

void WidgetsUserInterface::showInstallProgress()
{
    mainWindow_->windowInstallProgress()->present();
}

void WidgetsUserInterface::setInstallStatusText(const QString& status)
{
    mainWindow_->windowInstallProgress()->setStatus(status);
}

void WidgetsUserInterface::startInstallProgress()
{
    mainWindow_->windowInstallProgress()->startIndeterminate();
}

void WidgetsUserInterface::hideDownloadDataText()
{
    mainWindow_->windowInstallProgress()->hideReceivedData();
}

void WidgetsUserInterface::updateReceivedData(double received, double total)
{
    mainWindow_->windowInstallProgress()->setReceivedDataText(
        QStringLiteral("%1 / %2").arg(AppController::formatFileSize(received), AppController::formatFileSize(total)));
}

void WidgetsUserInterface::setDownloadProgress(double expectedLength, double received)
{
    mainWindow_->windowInstallProgress()->setDownloadProgress(expectedLength, received);
}

void WidgetsUserInterface::setDownloadProgressIndeterminate()
{
    mainWindow_->windowInstallProgress()->startIndeterminate();
}

void WidgetsUserInterface::alertPanel(const QString& message, const QString& info)
{
    VLAlert::alertSheetWithMessageText(message, info, nullptr);
}

int WidgetsUserInterface::blockingSheet(const QString& message, const QString& defaultButton,
                                        const QString& alternateButton, const QString& info)
{
    return VLAlert::alertSheetWithMessageText(message, defaultButton, alternateButton, QString(), info,
                                              sheetParent(), true);
}

void WidgetsUserInterface::hideUpdateWindowAndShowMainWindow()
{
    updateWindow_->hide();
    showMainWindow();
}

void WidgetsUserInterface::installPanelSheet(const QString& message, const QString& info)
{
    VLAlert::alertSheetWithMessageText(message, info, installPanel());
}

void WidgetsUserInterface::beginInstallPanelSheet(const QString& message, const QString& defaultButton,
                                                  const QString& alternateButton, const QString& info)
{
    closeInstallPanelSheet();
    installPanelSheet_ = VLAlert::create();
    VLAlert::alertSheetWithMessageText(message, defaultButton, alternateButton, QString(), info, installPanel(),
                                       nullptr, QString(), false, installPanelSheet_);
}

int WidgetsUserInterface::installPanelSheetResult()
{
    if (!installPanelSheet_ || !installPanelSheet_->alertEnded())
        return -1;
    return installPanelSheet_->returnCode();
}

void WidgetsUserInterface::closeInstallPanelSheet()
{
    if (!installPanelSheet_)
        return;
    installPanelSheet_->closeAlert();
    installPanelSheet_.reset();
}

void WidgetsUserInterface::hideApplication()
{
    for (QWidget* window : QApplication::topLevelWidgets())
        window->hide();
}

void WidgetsUserInterface::terminateApplication()
{
    finish();
    QCoreApplication::exit(0);
}

void WidgetsUserInterface::setPrefsCheckForUpdatesAtStartup(bool ticked)
{
    mainWindow_->preferencesWindow()->setCheckForUpdatesAtStartup(ticked);
}

void WidgetsUserInterface::setUpdateInfoLabel(const QString& text)
{
    updateWindow_->setHeadline(text);
}

void WidgetsUserInterface::setUpdateCheckAtStartup(bool ticked)
{
    updateWindow_->setCheckAtStartup(ticked);
}

void WidgetsUserInterface::showUpdateWindow()
{
    updateWindow_->show();
    updateWindow_->raise();
    updateWindow_->activateWindow();
}
