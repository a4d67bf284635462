#pragma once
// What the controller asks of the interface. The windowed application implements it with
// Qt Widgets (app/ui/widgets/); the windowless modes use NullUserInterface. The controller
// calls these on the main thread only (through sys::runOnMainThreadAndWait from workers).

#include <QString>

class UserInterface {
public:
    virtual ~UserInterface() = default;

    // Update list and check progress.
    virtual void reloadTableView() = 0;
    virtual void updateInstallButtonStatus() = 0;
    virtual void selectFirstItem() = 0;
    virtual void startUpdateProgress() = 0;
    virtual void showUpdateProgress() = 0;
    virtual void endProgress() = 0;
    // An alert sheet on the main window; ends the application when "autoQuit" is 1.
    virtual void showAlert(const QString& message, const QString& info) = 0;

    // Installation progress panel.
    virtual void showInstallProgress() = 0;
    virtual void setInstallStatusText(const QString& status) = 0;
    virtual void startInstallProgress() = 0;
    virtual void hideDownloadDataText() = 0;
    virtual void updateReceivedData(double received, double total) = 0;
    virtual void setDownloadProgress(double expectedLength, double received) = 0;
    virtual void setDownloadProgressIndeterminate() = 0;

    // A modal alert panel (message, informative text).
    virtual void alertPanel(const QString& message, const QString& info) = 0;
    // A blocking two- or three-button sheet; returns 1 for the default button, 0 for the
    // alternate one, -1 for the other one.
    virtual int blockingSheet(const QString& message, const QString& defaultButton,
                              const QString& alternateButton, const QString& info) = 0;

    // Installation (app/install): the "update available" window hands over to the main window.
    virtual void hideUpdateWindowAndShowMainWindow() = 0;
    // A sheet on the install progress panel (message, informative text); returns at once.
    virtual void installPanelSheet(const QString& message, const QString& info) = 0;
    // A non-blocking two-button sheet on the install progress panel. Only one at a time.
    virtual void beginInstallPanelSheet(const QString& message, const QString& defaultButton,
                                        const QString& alternateButton, const QString& info) = 0;
    // -1 while that sheet is open; once it ended, 1 for the default button, 0 for the other.
    virtual int installPanelSheetResult() = 0;
    // Orders that sheet out if it is still open.
    virtual void closeInstallPanelSheet() = 0;
    // Hides the application's windows (the self-update hands over to its helper).
    virtual void hideApplication() = 0;
    // Asks the application to quit through its normal termination.
    virtual void terminateApplication() = 0;

    // Preferences window: the "check for updates at start-up" box.
    virtual void setPrefsCheckForUpdatesAtStartup(bool ticked) = 0;
};

// The interface of the windowless modes: every request is a no-op.
class NullUserInterface final : public UserInterface {
public:
    void reloadTableView() override {}
    void updateInstallButtonStatus() override {}
    void selectFirstItem() override {}
    void startUpdateProgress() override {}
    void showUpdateProgress() override {}
    void endProgress() override {}
    void showAlert(const QString&, const QString&) override {}
    void showInstallProgress() override {}
    void setInstallStatusText(const QString&) override {}
    void startInstallProgress() override {}
    void hideDownloadDataText() override {}
    void updateReceivedData(double, double) override {}
    void setDownloadProgress(double, double) override {}
    void setDownloadProgressIndeterminate() override {}
    void alertPanel(const QString&, const QString&) override {}
    int blockingSheet(const QString&, const QString&, const QString&, const QString&) override { return 1; }
    void hideUpdateWindowAndShowMainWindow() override {}
    void installPanelSheet(const QString&, const QString&) override {}
    void beginInstallPanelSheet(const QString&, const QString&, const QString&, const QString&) override {}
    int installPanelSheetResult() override { return 0; }
    void closeInstallPanelSheet() override {}
    void hideApplication() override {}
    void terminateApplication() override {}
    void setPrefsCheckForUpdatesAtStartup(bool) override {}
};
