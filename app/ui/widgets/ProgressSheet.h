#pragma once
// ProgressSheet: what the two progress sheets share. A window-modal dialog on the main window
// whose Cancel button (and Escape) only asks the work to stop, through the cancel action;
// the sheet stays up until the controller ends the progress, so what the user sees always
// matches what the worker is doing. The title-bar close button does the same as Cancel.
//
// Lifecycle: owned by the main window. Main thread only.

#include <QDialog>

#include <functional>

class QProgressBar;

class ProgressSheet : public QDialog {
    Q_OBJECT
public:
    void setCancelAction(std::function<void()> cancel);

    // Shown as a sheet unless already visible; the bar starts moving.
    void present();
    // Ordered out, if visible; the bar stops.
    void dismiss();

    void reject() override;

protected:
    explicit ProgressSheet(QWidget* parent);
    // Called by the subclass once its layout exists.
    void setProgressBar(QProgressBar* bar);
    void closeEvent(QCloseEvent* event) override;

private:
    std::function<void()> cancel_;
    QProgressBar* bar_ = nullptr; // owned by the layout
};
