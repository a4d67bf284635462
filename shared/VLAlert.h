#pragma once
// VLAlert: shows an alert as a sheet on a parent window from any thread and, when asked to,
// blocks the calling thread until the user answers, returning the code of the pressed button.
// Also: an alert that answers itself with the default button after a time, and an optional
// suppression check box whose value is bound to a user default.
//
// The logic lives here; the windows belong to an alert presenter (VLAlertPresenter) that the
// windowed application registers with setPresenter(). Windows are plain QObject pointers at
// this level; the presenter knows what they really are. Without a presenter an alert is written
// to the log and answered at once with the default button, so windowless runs never wait.
//
// Return codes (the platform's codes of the three buttons): defaultReturn 1, alternateReturn 0,
// otherReturn -1. The calls that do not block return -1, whatever the answer will be.
//
// Delegates: the end message goes to a VLAlertDelegate, named by an end selector (its
// keyword-style name). With no delegate the alert object is its own delegate, and it only
// answers to the default selector "alertDidEnd:returnCode:contextInfo:". A delegate that does not
// respond to the selector makes the call log "Alert error: ..." and return -1, showing nothing.
// A blocking call with a delegate of the caller's returns once alertEnded is set: the delegate
// does that by calling alertDidEnd() on the alert object it is handed.
//
// Lifecycle: the static members create one VLAlert per alert, owned through std::shared_ptr:
// by the calling thread while it waits, by the presenter's end handler while the alert is on
// screen, and by the timer thread of a timed alert until that timer has fired (so a timer that
// fires after the caller has returned writes into a live object, to no further effect).
// Threads: the static members may be called from any thread (a blocking call on the main thread
// keeps events flowing; elsewhere it polls every 0.2 s). Interface work runs on the main thread
// through sys::runOnMainThreadAndWait. alertEnded and returnCode are atomics: the main thread or
// the timer thread writes them while the caller's thread reads them.

#include <QObject>
#include <QPointer>
#include <QString>
#include <QVariantMap>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>

class VLAlert;

// One alert window made by a presenter. Main thread only. The presenter keeps an alert that is on
// screen alive until it has been answered or ordered out, whoever else holds it.
class VLPlatformAlert {
public:
    VLPlatformAlert() = default;
    VLPlatformAlert(const VLPlatformAlert&) = delete;
    VLPlatformAlert& operator=(const VLPlatformAlert&) = delete;
    virtual ~VLPlatformAlert() = default;

    // Shows the suppression check box, checked or not as given; `toggled` receives each later
    // change the user makes.
    virtual void showSuppressionButton(bool checked, std::function<void(bool checked)> toggled) = 0;
    // Shows the alert as a window-modal sheet on `window`, or as a free-standing modal alert when
    // `window` is null. May return before the answer; `didEnd` then receives the pressed button's
    // return code once, on the main thread. The alert lets go of `didEnd` once it has called it or
    // has been ordered out (the handler owns the VLAlert that owns this alert).
    virtual void beginSheetModalForWindow(QObject* window, std::function<void(int returnCode)> didEnd) = 0;
    [[nodiscard]] virtual bool isWindowVisible() const = 0;
    // Takes the alert off screen without an answer: `didEnd` is not called afterwards.
    virtual void orderOut() = 0;
};

// The windowed application's side of alerts. Registered once with VLAlert::setPresenter();
// every member is called on the main thread.
class VLAlertPresenter {
public:
    VLAlertPresenter() = default;
    VLAlertPresenter(const VLAlertPresenter&) = delete;
    VLAlertPresenter& operator=(const VLAlertPresenter&) = delete;
    virtual ~VLAlertPresenter() = default;

    // A new alert with these texts, shown as they stand (no format is applied). An empty default
    // button title means the platform's own ("OK"); an empty alternate or other title means no
    // such button.
    [[nodiscard]] virtual std::shared_ptr<VLPlatformAlert> alertWithMessageText(const QString& messageText,
                                                                               const QString& defaultButton,
                                                                               const QString& alternateButton,
                                                                               const QString& otherButton,
                                                                               const QString& informativeText) = 0;
    // The application's main window; null when there is none.
    [[nodiscard]] virtual QObject* mainWindow() = 0;
    // Whether `window` already shows a sheet.
    [[nodiscard]] virtual bool hasAttachedSheet(QObject* window) = 0;
    // Brings `window` to the front and makes it the key window.
    virtual void bringToFront(QObject* window) = 0;
};

// Receives the end message of an alert. Not owned by the alert: it must outlive the answer.
class VLAlertDelegate {
public:
    virtual ~VLAlertDelegate() = default;
    // Whether the delegate implements the end selector of that name.
    [[nodiscard]] virtual bool respondsToSelector(const QString& selector) const = 0;
    // The end message, on the main thread: the alert object that ended and the button's code.
    virtual void performEndSelector(const QString& selector, VLAlert& alert, int returnCode) = 0;
};

class VLAlert final : public VLAlertDelegate, public std::enable_shared_from_this<VLAlert> {
public:
    static constexpr int defaultReturn = 1;
    static constexpr int alternateReturn = 0;
    static constexpr int otherReturn = -1;

    // The default end selector, the one the alert object itself answers to.
    static QString defaultEndSelector() { return QStringLiteral("alertDidEnd:returnCode:contextInfo:"); }

    // A new alert object for the long forms' `alertObject` argument.
    [[nodiscard]] static std::shared_ptr<VLAlert> create();

    // ---- the static forms; each forwards to the full form ----
    // The platform's default button only, no delegate, default end selector, blocking.
    static int alertSheetWithMessageText(const QString& messageText, const QString& informativeText,
                                         QObject* parentWindow);
    // No delegate, default end selector, the given blocking flag.
    static int alertSheetWithMessageText(const QString& messageText, const QString& defaultButton,
                                         const QString& alternateButton, const QString& otherButton,
                                         const QString& informativeText, QObject* parentWindow, bool block);
    // Ignores `delegate`, `didEndSelector` and `block` on purpose, as it always has: no delegate,
    // default end selector, blocking, a new alert object.
    static int alertSheetWithMessageText(const QString& messageText, const QString& defaultButton,
                                         const QString& alternateButton, const QString& otherButton,
                                         const QString& informativeText, QObject* parentWindow,
                                         VLAlertDelegate* delegate, const QString& didEndSelector, bool block);
    // No suppression binding.
    static int alertSheetWithMessageText(const QString& messageText, const QString& defaultButton,
                                         const QString& alternateButton, const QString& otherButton,
                                         const QString& informativeText, QObject* parentWindow,
                                         VLAlertDelegate* delegate, const QString& didEndSelector, bool block,
                                         std::shared_ptr<VLAlert> alertObject);
    // The full form. Empty texts and a null delegate / alert object mean "not given"; an empty
    // `suppressionBinding` means no check box.
    static int alertSheetWithMessageText(const QString& messageText, const QString& defaultButton,
                                         const QString& alternateButton, const QString& otherButton,
                                         const QString& informativeText, QObject* parentWindow,
                                         VLAlertDelegate* delegate, const QString& didEndSelector, bool block,
                                         std::shared_ptr<VLAlert> alertObject, const QString& suppressionBinding);
    // Blocks until the user answers or `interval` seconds after the alert has appeared, whichever
    // comes first; the timer answers with the default button (1).
    static int timedAlertSheetWithMessageText(const QString& messageText, const QString& defaultButton,
                                              const QString& alternateButton, const QString& otherButton,
                                              const QString& informativeText, QObject* parentWindow,
                                              double interval);

    // ---- the presenter ----
    // Registers the presenter (null removes it). Call on the main thread, with no alert on screen.
    static void setPresenter(std::shared_ptr<VLAlertPresenter> presenter);
    [[nodiscard]] static std::shared_ptr<VLAlertPresenter> presenter();
    // The application's main window as the presenter knows it; null without a presenter. Any thread.
    [[nodiscard]] static QObject* mainWindow();

    // ---- instance operations ----
    // Main thread only: shows the alert the settings dictionary describes (keys "messageText",
    // "defaultButtonTitle", "alternateButtonTitle", "otherButtonTitle", "informativeText",
    // "didEndSelector", "suppressionBinding", each present only when given).
    void alertSheetWithDictionary(const QVariantMap& settings);
    // The default end handler: stores the code, then sets alertEnded.
    void alertDidEnd(int returnCode);
    // Timer thread: waits until the alert is on screen, sleeps `interval` seconds, then answers 1.
    void defaultReturnAfterTimeInterval(double interval);
    // Main thread only: orders a visible alert out, then lets the platform alert go.
    void closeAlert();

    // ---- properties ----
    [[nodiscard]] QObject* parentWindow() const { return parentWindow_.data(); }
    void setParentWindow(QObject* window) { parentWindow_ = window; }
    // The alert object itself when no delegate was set.
    [[nodiscard]] VLAlertDelegate* delegate() { return delegate_ ? delegate_ : this; }
    void setDelegate(VLAlertDelegate* delegate) { delegate_ = delegate; }
    [[nodiscard]] bool alertEnded() const { return alertEnded_.load(); }
    [[nodiscard]] int returnCode() const { return returnCode_.load(); }
    // Main thread only.
    [[nodiscard]] std::shared_ptr<VLPlatformAlert> alert() const { return alert_; }

    // VLAlertDelegate: the alert object answers to the default end selector only.
    [[nodiscard]] bool respondsToSelector(const QString& selector) const override;
    void performEndSelector(const QString& selector, VLAlert& alert, int returnCode) override;

    VLAlert(const VLAlert&) = delete;
    VLAlert& operator=(const VLAlert&) = delete;
    ~VLAlert() override;

private:
    VLAlert() = default;

    void waitUntilEnded() const;
    void markShown();
    void answerWithoutPresenter(const QString& messageText, const QString& informativeText,
                                const QString& selector);

    QPointer<QObject> parentWindow_;
    VLAlertDelegate* delegate_ = nullptr; // not owned; null means the alert object itself
    std::atomic<bool> alertEnded_{false};
    std::atomic<int> returnCode_{0};
    std::shared_ptr<VLPlatformAlert> alert_;

    // Set once the alert has been shown (or answered without a presenter); the timer waits for it.
    std::mutex shownMutex_;
    std::condition_variable shownCondition_;
    bool shown_ = false;
};
