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
    bool mainWindowVisible = true;
    // What installPanelSheetResult() answers once the sheet was shown (-1: still open).
    int installSheetAnswer = -1;
    QStringList calls() const
    {
        std::lock_guard lock(mutex_);
        return calls_;
    }

    void showMainWindow() override { add(QStringLiteral("showMainWindow")); }
    bool isMainWindowVisible() override { return mainWindowVisible; }
    void reloadTableView() override { add(QStringLiteral("reloadTableView")); }
    void setInstallButtonEnabled(bool enabled) override
    {
        add(QStringLiteral("installButton:") + (enabled ? QStringLiteral("on") : QStringLiteral("off")));
    }
    void selectFirstItem() override {}
    void setNotesHTML(NotesView view, const QString& html) override
    {
        add((view == NotesView::Main ? QStringLiteral("notes:") : QStringLiteral("updateNotes:")) + html);
    }
    void activateApplication() override { add(QStringLiteral("activateApplication")); }
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
    void terminateApplication() override { add(QStringLiteral("terminate")); }
    void setPrefsCheckForUpdatesAtStartup(bool ticked) override
    {
        add(QStringLiteral("prefsCheckAtStartup:") + QString::number(ticked));
    }
    void setUpdateInfoLabel(const QString& text) override { add(QStringLiteral("updateInfo:") + text); }
    void setUpdateCheckAtStartup(bool ticked) override { add(QStringLiteral("updateCheckAtStartup:") + QString::number(ticked)); }
    void showUpdateWindow() override { add(QStringLiteral("showUpdateWindow")); }

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
