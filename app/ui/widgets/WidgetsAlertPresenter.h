#pragma once
// WidgetsAlertPresenter: the windowed application's presenter of VLAlert's alerts. An alert is
// a message box made by AlertBoxes, shown as a window-modal sheet on its window (or as an
// application-modal alert without one), with the optional suppression box under the text.
//
// Lifecycle: registered with VLAlert::setPresenter() when the windows are made; the main
// window it names outlives it. Main thread only, as VLAlert calls it.

#include "shared/VLAlert.h"

#include <QPointer>
#include <QWidget>

class WidgetsAlertPresenter final : public VLAlertPresenter {
public:
    explicit WidgetsAlertPresenter(QWidget* mainWindow);

    std::shared_ptr<VLPlatformAlert> alertWithMessageText(const QString& messageText, const QString& defaultButton,
                                                          const QString& alternateButton, const QString& otherButton,
                                                          const QString& informativeText) override;
    QObject* mainWindow() override;
    bool hasAttachedSheet(QObject* window) override;
    void bringToFront(QObject* window) override;

private:
    QPointer<QWidget> mainWindow_;
};
