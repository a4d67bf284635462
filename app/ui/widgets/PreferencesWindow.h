#pragma once
// PreferencesWindow: the two boxes of the user's update preferences. The start-up box
// (prefsCheckForUpdatesAtStartup) is stored in the vendor's shared file by the controller; the
// weekly box (prefsAutoUpdateCheck) is stored in "autoUpdateCheck" and installs or removes the
// scheduled job. Both take effect at once, so nothing is lost if the application ends with the
// window open. Escape and Close close it.
//
// Lifecycle: owned by the windowed interface; shown on demand. Main thread only.

#include <QDialog>

#include <memory>

namespace Ui {
class PreferencesWindow;
}
class AppController;
class QCheckBox;

class PreferencesWindow final : public QDialog {
    Q_OBJECT
public:
    explicit PreferencesWindow(AppController& controller, QWidget* parent = nullptr);
    ~PreferencesWindow() override;

    // Displays stored values without acting on them.
    void setCheckForUpdatesAtStartup(bool ticked);
    void setAutoUpdateCheck(bool ticked);

    QCheckBox* prefsCheckForUpdatesAtStartup() const;
    QCheckBox* prefsAutoUpdateCheck() const;

protected:
    void showEvent(QShowEvent* event) override;

private:
    AppController& controller_; // not owned
    std::unique_ptr<Ui::PreferencesWindow> ui_;
};
