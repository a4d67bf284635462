#include "shared/VLAlert.h"

#include "platform/foundation/Format.h"
#include "platform/system/MainThread.h"
#include "platform/system/SystemLog.h"
#include "platform/system/UserDefaults.h"
#include "shared/VLLog.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>

#include <chrono>
#include <system_error>
#include <thread>

// Choices made where the platform has no direct counterpart:
// - The blocking wait on the main thread runs a nested event loop in 10 ms slices, checking
//   alertEnded between slices; any event may be dispatched meanwhile, as in a modal session.
// - The suppression binding is one-way after the alert appears: the box starts with the user
//   default's value and every change of the box is written to the default at once. An alert is
//   short-lived, so a change of the default made elsewhere while it is shown is not reflected.
// - The timer of a timed alert starts counting once the alert has appeared. Started before the
//   call that shows the alert (as it is), a short timer could otherwise fire before that call
//   resets alertEnded, and the caller would then wait for an answer nobody was asked for.

namespace {

const QString kMessageText = QStringLiteral("messageText");
const QString kDefaultButtonTitle = QStringLiteral("defaultButtonTitle");
const QString kAlternateButtonTitle = QStringLiteral("alternateButtonTitle");
const QString kOtherButtonTitle = QStringLiteral("otherButtonTitle");
const QString kInformativeText = QStringLiteral("informativeText");
const QString kDidEndSelector = QStringLiteral("didEndSelector");
const QString kSuppressionBinding = QStringLiteral("suppressionBinding");

std::mutex presenterMutex;
std::shared_ptr<VLAlertPresenter> registeredPresenter;

void insertGiven(QVariantMap& settings, const QString& key, const QString& value)
{
    if (!value.isEmpty())
        settings.insert(key, value);
}

// Keeps the main thread's events flowing for at most 10 ms.
void dispatchEventsBriefly()
{
    QEventLoop loop;
    QTimer::singleShot(10, &loop, &QEventLoop::quit);
    loop.exec();
}

void bindSuppressionButton(VLPlatformAlert& alert, const QString& userDefault)
{
    const bool checked = sys::UserDefaults::standard().boolForKey(userDefault);
    alert.showSuppressionButton(checked, [userDefault](bool value) {
        sys::UserDefaults::standard().setBool(value, userDefault);
    });
}

} // namespace

std::shared_ptr<VLAlert> VLAlert::create() { return std::shared_ptr<VLAlert>(new VLAlert); }

VLAlert::~VLAlert() = default;

int VLAlert::alertSheetWithMessageText(const QString& messageText, const QString& informativeText,
                                       QObject* parentWindow)
{
    return alertSheetWithMessageText(messageText, QString(), QString(), QString(), informativeText, parentWindow,
                                     nullptr, QString(), true, nullptr);
}

int VLAlert::alertSheetWithMessageText(const QString& messageText, const QString& defaultButton,
                                       const QString& alternateButton, const QString& otherButton,
                                       const QString& informativeText, QObject* parentWindow, bool block)
{
    return alertSheetWithMessageText(messageText, defaultButton, alternateButton, otherButton, informativeText,
                                     parentWindow, nullptr, QString(), block, nullptr);
}

int VLAlert::alertSheetWithMessageText(const QString& messageText, const QString& defaultButton,
                                       const QString& alternateButton, const QString& otherButton,
                                       const QString& informativeText, QObject* parentWindow,
                                       VLAlertDelegate* /*delegate: ignored*/, const QString& /*didEndSelector: ignored*/,
                                       bool /*block: ignored*/)
{
    return alertSheetWithMessageText(messageText, defaultButton, alternateButton, otherButton, informativeText,
                                     parentWindow, nullptr, QString(), true, nullptr);
}

int VLAlert::alertSheetWithMessageText(const QString& messageText, const QString& defaultButton,
                                       const QString& alternateButton, const QString& otherButton,
                                       const QString& informativeText, QObject* parentWindow,
                                       VLAlertDelegate* delegate, const QString& didEndSelector, bool block,
                                       std::shared_ptr<VLAlert> alertObject)
{
    return alertSheetWithMessageText(messageText, defaultButton, alternateButton, otherButton, informativeText,
                                     parentWindow, delegate, didEndSelector, block, std::move(alertObject), QString());
}

int VLAlert::alertSheetWithMessageText(const QString& messageText, const QString& defaultButton,
                                       const QString& alternateButton, const QString& otherButton,
                                       const QString& informativeText, QObject* parentWindow,
                                       VLAlertDelegate* delegate, const QString& didEndSelector, bool block,
                                       std::shared_ptr<VLAlert> alertObject, const QString& suppressionBinding)
{
    const std::shared_ptr<VLAlert> object = alertObject ? std::move(alertObject) : create();
    object->setParentWindow(parentWindow);
    object->setDelegate(delegate);
    object->alertEnded_ = false;

    const QString selector = didEndSelector.isEmpty() ? defaultEndSelector() : didEndSelector;
    if (!object->delegate()->respondsToSelector(selector)) {
        sys::nsLog(QStringLiteral("Alert error: delegate does not respond to selector %@"), selector);
        return -1;
    }

    QVariantMap settings;
    insertGiven(settings, kMessageText, messageText);
    insertGiven(settings, kDefaultButtonTitle, defaultButton);
    insertGiven(settings, kAlternateButtonTitle, alternateButton);
    insertGiven(settings, kOtherButtonTitle, otherButton);
    insertGiven(settings, kInformativeText, informativeText);
    insertGiven(settings, kDidEndSelector, selector);
    insertGiven(settings, kSuppressionBinding, suppressionBinding);
    sys::runOnMainThreadAndWait([&] { object->alertSheetWithDictionary(settings); });

    if (!block)
        return -1; // the answer reaches the delegate only
    object->waitUntilEnded();
    sys::runOnMainThreadAndWait([&] { object->closeAlert(); });
    return object->returnCode();
}

int VLAlert::timedAlertSheetWithMessageText(const QString& messageText, const QString& defaultButton,
                                            const QString& alternateButton, const QString& otherButton,
                                            const QString& informativeText, QObject* parentWindow, double interval)
{
    const std::shared_ptr<VLAlert> object = create();
    try {
        // The thread owns the object until it has fired, however early the caller returns.
        std::thread([object, interval] { object->defaultReturnAfterTimeInterval(interval); }).detach();
    } catch (const std::system_error& error) {
        VLLog::appendLog(QStringLiteral("Unable to start the alert timer: %s"), error.what());
    }
    return alertSheetWithMessageText(messageText, defaultButton, alternateButton, otherButton, informativeText,
                                     parentWindow, nullptr, defaultEndSelector(), true, object);
}

void VLAlert::setPresenter(std::shared_ptr<VLAlertPresenter> presenter)
{
    const std::lock_guard lock(presenterMutex);
    registeredPresenter = std::move(presenter);
}

std::shared_ptr<VLAlertPresenter> VLAlert::presenter()
{
    const std::lock_guard lock(presenterMutex);
    return registeredPresenter;
}

QObject* VLAlert::mainWindow()
{
    const auto current = presenter();
    if (!current)
        return nullptr;
    QObject* window = nullptr;
    sys::runOnMainThreadAndWait([&] { window = current->mainWindow(); });
    return window;
}

void VLAlert::alertSheetWithDictionary(const QVariantMap& settings)
{
    const QString messageText = settings.value(kMessageText).toString();
    // Through "%@", so that percent signs in the text are shown as they are.
    const QString informativeText = fnd::format(QStringLiteral("%@"), settings.value(kInformativeText).toString());
    const QString selector = settings.value(kDidEndSelector, defaultEndSelector()).toString();

    const auto presenter = VLAlert::presenter();
    if (presenter)
        alert_ = presenter->alertWithMessageText(messageText, settings.value(kDefaultButtonTitle).toString(),
                                                 settings.value(kAlternateButtonTitle).toString(),
                                                 settings.value(kOtherButtonTitle).toString(), informativeText);
    if (!alert_) {
        answerWithoutPresenter(messageText, informativeText, selector);
        return;
    }
    const QString binding = settings.value(kSuppressionBinding).toString();
    if (!binding.isEmpty())
        bindSuppressionButton(*alert_, binding);

    // A window shows one sheet at a time: a second alert stands on its own instead.
    if (parentWindow() && presenter->hasAttachedSheet(parentWindow()))
        setParentWindow(nullptr);
    if (parentWindow())
        presenter->bringToFront(parentWindow());

    markShown();
    const std::shared_ptr<VLAlert> self = shared_from_this();
    VLAlertDelegate* target = delegate();
    alert_->beginSheetModalForWindow(parentWindow(), [self, target, selector](int returnCode) {
        target->performEndSelector(selector, *self, returnCode);
    });
}

void VLAlert::answerWithoutPresenter(const QString& messageText, const QString& informativeText,
                                     const QString& selector)
{
    VLLog::appendLog(QStringLiteral("Alert without a window to show it: %@ - %@"), messageText, informativeText);
    markShown();
    delegate()->performEndSelector(selector, *this, defaultReturn);
}

void VLAlert::alertDidEnd(int returnCode)
{
    returnCode_ = returnCode;
    alertEnded_ = true;
}

void VLAlert::defaultReturnAfterTimeInterval(double interval)
{
    {
        std::unique_lock lock(shownMutex_);
        shownCondition_.wait(lock, [this] { return shown_; });
    }
    if (interval > 0)
        std::this_thread::sleep_for(std::chrono::duration<double>(interval));
    returnCode_ = defaultReturn;
    alertEnded_ = true;
}

void VLAlert::closeAlert()
{
    if (alert_ && alert_->isWindowVisible())
        alert_->orderOut();
    alert_.reset();
}

bool VLAlert::respondsToSelector(const QString& selector) const { return selector == defaultEndSelector(); }

void VLAlert::performEndSelector(const QString& selector, VLAlert& /*alert: this object*/, int returnCode)
{
    if (respondsToSelector(selector))
        alertDidEnd(returnCode);
}

void VLAlert::waitUntilEnded() const
{
    const bool mainThread = QCoreApplication::instance() && sys::isMainThread();
    while (!alertEnded_) {
        if (mainThread)
            dispatchEventsBriefly();
        else
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
}

void VLAlert::markShown()
{
    {
        const std::lock_guard lock(shownMutex_);
        shown_ = true;
    }
    shownCondition_.notify_all();
}
