// VLTaskEx time-out instance forms: a timer thread that sleeps its whole time and then asks
// the main thread to terminate the instance's running child.

#include "shared/VLTaskEx.h"
#include "shared/VLLog.h"

#include "platform/system/MainThread.h"

#include <atomic>
#include <chrono>
#include <cmath>
#include <thread>

namespace {

// Marks the timer cancelled when the call it guards returns, however it returns.
class TimerCancel {
public:
    explicit TimerCancel(std::shared_ptr<std::atomic<bool>> cancelled) : cancelled_(std::move(cancelled)) {}
    ~TimerCancel() { *cancelled_ = true; }
    TimerCancel(const TimerCancel&) = delete;
    TimerCancel& operator=(const TimerCancel&) = delete;

private:
    std::shared_ptr<std::atomic<bool>> cancelled_;
};

} // namespace

// Whole seconds by truncation toward zero. Cancelling only marks the timer: it sleeps its
// full time (holding the instance) either way. A cancelled timer then skips `timeout`, so a
// timer left over from an earlier call on the same instance never terminates a later child.
std::shared_ptr<std::atomic<bool>> VLTaskEx::startTimer(double seconds)
{
    const double whole = std::trunc(seconds);
    const auto sleep = std::chrono::seconds(whole > 0 && std::isfinite(whole) ? static_cast<long long>(whole) : 0);
    auto cancelled = std::make_shared<std::atomic<bool>>(false);
    std::thread([self = shared_from_this(), sleep, cancelled] {
        std::this_thread::sleep_for(sleep);
        if (*cancelled)
            return;
        sys::runOnMainThreadAndWait([&self] { self->timeout(); });
    }).detach();
    return cancelled;
}

void VLTaskEx::timeout()
{
    const std::shared_ptr<VLChildProcess> child = theTask_.get();
    if (!child || !child->isRunning())
        return;
    VLLog::appendLogAndPrint(QStringLiteral("Task %@ timed out. Terminating..."), child->launchPath());
    child->terminate();
}

void VLTaskEx::runTaskWithTimer(const QString& path, const QStringList& arguments, double seconds)
{
    TimerCancel cancel(startTimer(seconds));
    theTask_.clear();
    // A local slot, not theTask: this form's timer never finds a child, so it waits for the
    // child however long it runs.
    VLTaskRef local;
    runTask(path, arguments, &local);
    theTask_.clear();
}

std::optional<QByteArray> VLTaskEx::dataFromTaskWithTimer(const QString& path, const QStringList& arguments,
    double seconds, bool logOutput, bool logError)
{
    TimerCancel cancel(startTimer(seconds));
    theTask_.clear();
    auto data = dataFromTask(path, arguments, &theTask_, std::nullopt, logOutput, logError);
    theTask_.clear();
    return data;
}

int VLTaskEx::terminationCodeFromTaskWithTimer(const QString& path, const QStringList& arguments, double seconds)
{
    TimerCancel cancel(startTimer(seconds));
    theTask_.clear();
    const int status = terminationCodeFromTask(path, arguments, &theTask_);
    theTask_.clear();
    return status;
}
