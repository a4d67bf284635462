#pragma once
// What the controller asks of the interface. The windowed application implements it with
// Qt Widgets (app/ui/widgets/); the windowless modes use NullUserInterface. The controller
// calls these on the main thread only (through sys::runOnMainThreadAndWait from workers).

#include <QString>

class UserInterface {
public:
    // The two release-notes views: the main window's and the single-update prompt's.
    enum class NotesView { Main, Update };

    virtual ~UserInterface() = default;

    // Main window: update list, release notes, install button.
    virtual void showMainWindow() = 0;
    virtual bool isMainWindowVisible() = 0;
    virtual void reloadTableView() = 0;
    virtual void setInstallButtonEnabled(bool enabled) = 0;
    // Selects row 0 when the list is not empty.
    virtual void selectFirstItem() = 0;
    // Replaces a release-notes view's document (a complete HTML text).
    virtual void setNotesHTML(NotesView view, const QString& html) = 0;
    // Raises the visible windows and asks the desktop to activate the application.
    virtual void activateApplication() = 0;

    // Check progress.
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
    // A sheet on the install progress panel (message, informative text); returns once answered.
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

    // The single-update prompt: its headline, its start-up box, and bringing it to the front.
    virtual void setUpdateInfoLabel(const QString& text) = 0;
    virtual void setUpdateCheckAtStartup(bool ticked) = 0;
    virtual void showUpdateWindow() = 0;
};

// The interface of the windowless modes: every request is a no-op.
class NullUserInterface final : public UserInterface {
public:
    void showMainWindow() override {}
    bool isMainWindowVisible() override { return false; }
    void reloadTableView() override {}
    void setInstallButtonEnabled(bool) override {}
    void selectFirstItem() override {}
    void setNotesHTML(NotesView, const QString&) override {}
    void activateApplication() override {}
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
    void setUpdateInfoLabel(const QString&) override {}
    void setUpdateCheckAtStartup(bool) override {}
    void showUpdateWindow() override {}
};
