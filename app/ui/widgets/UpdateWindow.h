#pragma once
// UpdateWindow: the single-update prompt (windowUpdate) shown when a vendor application's
// "Check for Updates" link found an update: the application's icon, the headline
// (updateInfoLabel), the release notes (updateWebView), the start-up box (updateCheckAtStartup)
// and "Skip This Version", "Remind Me Later" and "Install Update" (the default button). Escape
// is "Remind Me Later". Every control goes straight to the controller's action.
//
// Lifecycle: owned by the windowed interface. Main thread only.

#include <QDialog>

#include <memory>

namespace Ui {
class UpdateWindow;
}
class AppController;
class QCheckBox;
class QLabel;
class QPushButton;
class ReleaseNotesBrowser;

class UpdateWindow final : public QDialog {
    Q_OBJECT
public:
    UpdateWindow(AppController& controller, const QString& resourceFolder);
    ~UpdateWindow() override;

    void setHeadline(const QString& text);
    // Sets the box without telling the controller (it is a display of the stored value).
    void setCheckAtStartup(bool ticked);

    QLabel* updateInfoLabel() const;
    QCheckBox* updateCheckAtStartup() const;
    ReleaseNotesBrowser* updateWebView() const;
    QPushButton* skipButton() const;
    QPushButton* remindLaterButton() const;
    QPushButton* installUpdateButton() const;

    void reject() override;

private:
    AppController& controller_; // not owned
    std::unique_ptr<Ui::UpdateWindow> ui_;
};
