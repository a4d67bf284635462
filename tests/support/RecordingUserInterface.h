#pragma once
// RecordingUserInterface: an interface for in-process tests of the controller that records
// every request as "name" or "name:first argument", in order, and answers blocking sheets with
// `sheetAnswer`. Requests arrive on the main thread; calls() may be read from any thread.

#include "ui/UserInterface.h"

#include <QStringList>

#include <mutex>

namespace vltest {

// Records every request of the controller as "name" or "name:first argument".
class RecordingUserInterface final : public UserInterface {
public:
    int sheetAnswer = 1;
    // What installPanelSheetResult() answers once the sheet was shown (-1: still open).
    int installSheetAnswer = -1;
    QStringList calls() const
    {
        std::lock_guard lock(mutex_);
        return calls_;
    }

    void reloadTableView() override { add(QStringLiteral("reloadTableView")); }
    void updateInstallButtonStatus() override {}
    void selectFirstItem() override {}
    void startUpdateProgress() override {}
    void showUpdateProgress() override {}
    void endProgress() override { add(QStringLiteral("endProgress")); }
    void showAlert(const QString& m, const QString&) override { add(QStringLiteral("showAlert:") + m); }
    void showInstallProgress() override { add(QStringLiteral("showInstallProgress")); }
    void setInstallStatusText(const QString& s) override { add(QStringLiteral("status:") + s); }
    void startInstallProgress() override { add(QStringLiteral("startInstallProgress")); }
    void hideDownloadDataText() override {}
    void updateReceivedData(double, double) override {}
    void setDownloadProgress(double, double) override {}
    void setDownloadProgressIndeterminate() override {}
    void alertPanel(const QString& m, const QString&) override { add(QStringLiteral("alertPanel:") + m); }
    int blockingSheet(const QString& m, const QString&, const QString&, const QString&) override
    {
        add(QStringLiteral("sheet:") + m);
        return sheetAnswer;
    }
    void hideUpdateWindowAndShowMainWindow() override {}
    void installPanelSheet(const QString& m, const QString&) override { add(QStringLiteral("installPanelSheet:") + m); }
    void beginInstallPanelSheet(const QString& m, const QString&, const QString&, const QString&) override
    {
        add(QStringLiteral("installSheet:") + m);
    }
    int installPanelSheetResult() override { return installSheetAnswer; }
    void closeInstallPanelSheet() override { add(QStringLiteral("closeInstallSheet")); }
    void hideApplication() override {}
    void terminateApplication() override {}
    void setPrefsCheckForUpdatesAtStartup(bool) override {}

private:
    void add(const QString& call)
    {
        std::lock_guard lock(mutex_);
        calls_ << call;
    }
    mutable std::mutex mutex_;
    QStringList calls_;
};

} // namespace vltest
