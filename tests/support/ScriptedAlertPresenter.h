#pragma once
// ScriptedAlertPresenter: an alert presenter for in-process tests. It records every alert it is
// asked for (texts, window, suppression box, the thread it was shown on, whether it was ordered
// out) and answers each alert as scripted: at once inside beginSheetModalForWindow, later from
// the main thread's event loop, or never (left on screen until ordered out).
//
// Lifecycle: install with VLAlert::setPresenter() for one test and remove it afterwards.
// Threads: VLAlert calls it on the main thread; read the records once the alert call returned.

#include "shared/VLAlert.h"

#include "platform/system/MainThread.h"

#include <QCoreApplication>
#include <QList>
#include <QSet>
#include <QTimer>

#include <memory>
#include <tuple>
#include <utility>

namespace vltest {

class ScriptedAlert final : public VLPlatformAlert, public std::enable_shared_from_this<ScriptedAlert> {
public:
    enum class When { AtOnce, Later, Never };

    QString messageText, defaultButton, otherButton, informativeText;
    bool suppressionShown = false;
    bool suppressionChecked = false;
    std::function<void(bool)> toggleSuppression;
    bool beganOnMainThread = false;
    QObject* window = nullptr;
    bool orderedOut = false;

    ScriptedAlert(When when, int answer) : when_(when), answer_(answer) {}

    // The user presses the button with this return code (ignored once the alert is gone).
    void press(int returnCode)
    {
        if (!visible_)
            return;
        visible_ = false;
        const auto didEnd = std::exchange(didEnd_, {});
        didEnd(returnCode);
    }

    void showSuppressionButton(bool checked, std::function<void(bool)> toggled) override
    {
        suppressionShown = true;
        suppressionChecked = checked;
        toggleSuppression = std::move(toggled);
    }
    void beginSheetModalForWindow(QObject* sheetWindow, std::function<void(int)> didEnd) override
    {
        beganOnMainThread = sys::isMainThread();
        window = sheetWindow;
        visible_ = true;
        didEnd_ = std::move(didEnd);
        if (when_ == When::AtOnce)
            press(answer_);
        else if (when_ == When::Later)
            QTimer::singleShot(0, QCoreApplication::instance(), [self = weak_from_this()] {
                if (const auto alert = self.lock())
                    alert->press(alert->answer_);
            });
    }
    bool isWindowVisible() const override { return visible_; }
    void orderOut() override
    {
        orderedOut = true;
        visible_ = false;
        didEnd_ = {};
    }

private:
    const When when_;
    const int answer_;
    bool visible_ = false;
    std::function<void(int)> didEnd_;
};

class ScriptedAlertPresenter final : public VLAlertPresenter {
public:
    using When = ScriptedAlert::When;

    QObject* window = nullptr;        // what mainWindow() answers
    QSet<QObject*> windowsWithSheet;  // windows that already show a sheet
    QList<QObject*> broughtToFront;
    // Every alert made, in order; kept alive here as a real presenter keeps its windows.
    QList<std::shared_ptr<ScriptedAlert>> alerts;

    // How alerts beyond the script are answered (with the default button).
    When unscripted = When::Never;

    // How the next alert is answered.
    void script(When when, int returnCode = VLAlert::defaultReturn) { script_.append({when, returnCode}); }

    std::shared_ptr<VLPlatformAlert> alertWithMessageText(const QString& messageText, const QString& defaultButton,
                                                          const QString& /*alternateButton*/, const QString& otherButton,
                                                          const QString& informativeText) override
    {
        const auto [when, answer] = script_.isEmpty() ? std::pair{unscripted, int(VLAlert::defaultReturn)}
                                                     : script_.takeFirst();
        auto alert = std::make_shared<ScriptedAlert>(when, answer);
        std::tie(alert->messageText, alert->defaultButton, alert->otherButton, alert->informativeText) =
            std::tie(messageText, defaultButton, otherButton, informativeText);
        alerts.append(alert);
        return alert;
    }
    QObject* mainWindow() override { return window; }
    bool hasAttachedSheet(QObject* sheetWindow) override { return windowsWithSheet.contains(sheetWindow); }
    void bringToFront(QObject* frontWindow) override { broughtToFront.append(frontWindow); }

private:
    QList<std::pair<When, int>> script_;
};

} // namespace vltest
