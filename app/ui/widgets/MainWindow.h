#pragma once
// MainWindow: the main window (windowMain) with the update list (tableView), the release notes
// of the selected row (webView), a status line and the install button (installBtn), the menus,
// and the two progress sheets and the preferences window it parents.
//
// It binds controls to the controller's operations and shows what the controller tells the
// interface; it decides nothing itself. Return anywhere in the window that does not use the key
// itself presses Install; the menus carry the platform's standard shortcuts.
//
// Lifecycle: owned by the windowed interface; its size and splitter position are kept in the
// updater's defaults between launches. Main thread only.

#include <QMainWindow>

#include <memory>

namespace Ui {
class MainWindow;
}
class AppController;
class InstallProgressSheet;
class PreferencesWindow;
class QLabel;
class QPushButton;
class QTableView;
class ReleaseNotesBrowser;
class UpdateProgressSheet;
class UpdateTableModel;

class MainWindow final : public QMainWindow {
    Q_OBJECT
public:
    MainWindow(AppController& controller, const QString& resourceFolder);
    ~MainWindow() override;

    void reloadTable();
    void selectFirstItem();
    void setInstallButtonEnabled(bool enabled);
    void showPreferences();
    // Stores the window's size and splitter position in the updater's defaults.
    void saveWindowState() const;

    QTableView* tableView() const;
    ReleaseNotesBrowser* webView() const;
    QPushButton* installBtn() const;
    QLabel* statusLine() const;
    UpdateTableModel* model() const { return model_; }
    UpdateProgressSheet* windowUpdateProgress() const { return updateProgress_; }
    InstallProgressSheet* windowInstallProgress() const { return installProgress_; }
    PreferencesWindow* preferencesWindow() const { return preferences_; }

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

private:
    void setUpTable();
    void setUpMenus();
    void validateMenuItems();
    void restoreWindowState();
    int selectedRow() const;

    AppController& controller_; // not owned
    std::unique_ptr<Ui::MainWindow> ui_;
    UpdateTableModel* model_ = nullptr;               // Qt child
    UpdateProgressSheet* updateProgress_ = nullptr;   // Qt child
    InstallProgressSheet* installProgress_ = nullptr; // Qt child
    PreferencesWindow* preferences_ = nullptr;        // Qt child
};
