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
};
