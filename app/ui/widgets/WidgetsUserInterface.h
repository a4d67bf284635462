#pragma once
// WidgetsUserInterface: the windowed application's interface, with Qt Widgets. It owns the
// main window (with its sheets and the preferences window) and the single-update prompt and
// performs what the controller asks of the interface.
//
// Lifecycle: made before the controller (which takes ownership of it), then attached to that
// controller; the windows, and the alert presenter VLAlert uses, are made at attach(). Ending the application goes through
// terminateApplication() or the application's own quit: either way the controller's
// applicationWillTerminate() runs once and the window's state is stored.
// Main thread only (workers reach it through sys::runOnMainThreadAndWait).

#include "ui/UserInterface.h"

#include <memory>

class AppController;
class MainWindow;
class QWidget;
class UpdateWindow;
class VLAlert;

class WidgetsUserInterface final : public UserInterface {
public:
    // `resourceFolder`: the bundle's Resources folder (icons).
    explicit WidgetsUserInterface(QString resourceFolder);
    ~WidgetsUserInterface() override;
    WidgetsUserInterface(const WidgetsUserInterface&) = delete;
    WidgetsUserInterface& operator=(const WidgetsUserInterface&) = delete;

    // Makes the windows; `controller` owns this object and outlives the windows.
    void attach(AppController& controller);
    // Once: the controller's termination and the window's state. Also on the application's quit.
    void finish();

    MainWindow* mainWindow() const { return mainWindow_.get(); }
    UpdateWindow* updateWindow() const { return updateWindow_.get(); }

    void showMainWindow() override;
    bool isMainWindowVisible() override;
    void reloadTableView() override;
    void setInstallButtonEnabled(bool enabled) override;
    void selectFirstItem() override;
    void setNotesHTML(NotesView view, const QString& html) override;
    void activateApplication() override;
    void startUpdateProgress() override;
    void showUpdateProgress() override;
    void endProgress() override;
    void showAlert(const QString& message, const QString& info) override;
    void showInstallProgress() override;
    void setInstallStatusText(const QString& status) override;
    void startInstallProgress() override;
    void hideDownloadDataText() override;
    void updateReceivedData(double received, double total) override;
    void setDownloadProgress(double expectedLength, double received) override;
    void setDownloadProgressIndeterminate() override;
    void alertPanel(const QString& message, const QString& info) override;
    int blockingSheet(const QString& message, const QString& defaultButton, const QString& alternateButton,
                      const QString& info) override;
    void hideUpdateWindowAndShowMainWindow() override;
    void installPanelSheet(const QString& message, const QString& info) override;
    void beginInstallPanelSheet(const QString& message, const QString& defaultButton,
                                const QString& alternateButton, const QString& info) override;
    int installPanelSheetResult() override;
    void closeInstallPanelSheet() override;
    void hideApplication() override;
    void terminateApplication() override;
    void setPrefsCheckForUpdatesAtStartup(bool ticked) override;
    void setUpdateInfoLabel(const QString& text) override;
    void setUpdateCheckAtStartup(bool ticked) override;
    void showUpdateWindow() override;

private:
    // The window alerts attach to: the install sheet while it is up, else the visible window.
    QWidget* sheetParent() const;
    QWidget* installPanel() const;

    QString resourceFolder_;
    AppController* controller_ = nullptr; // owns this object
    std::unique_ptr<MainWindow> mainWindow_;
    std::unique_ptr<UpdateWindow> updateWindow_;
    std::shared_ptr<VLAlert> installPanelSheet_; // the running-application sheet, while it is up
    bool finished_ = false;
};
