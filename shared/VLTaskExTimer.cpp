// VLTaskEx time-out instance forms: a timer thread that sleeps its whole time and then asks
// the main thread to terminate the instance's running child.

#include "shared/VLTaskEx.h"
#include "shared/VLLog.h"

#include "platform/system/MainThread.h"

#include <chrono>
#include <cmath>
#include <thread>

// Whole seconds by truncation toward zero. The timer is never stopped: it sleeps its full
// time (holding the instance) and then performs `timeout`, also when the call it guarded has
// long returned. By then the call has cleared theTask, so `timeout` finds nothing, unless
// the instance was given another child meanwhile; that child is the one it terminates.
void VLTaskEx::startTimer(double seconds)
{
    const double whole = std::trunc(seconds);
    const auto sleep = std::chrono::seconds(whole > 0 && std::isfinite(whole) ? static_cast<long long>(whole) : 0);
    std::thread([self = shared_from_this(), sleep] {
        std::this_thread::sleep_for(sleep);
        sys::runOnMainThreadAndWait([&self] { self->timeout(); });
    }).detach();
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
    startTimer(seconds);
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
    startTimer(seconds);
    theTask_.clear();
    auto data = dataFromTask(path, arguments, &theTask_, std::nullopt, logOutput, logError);
    theTask_.clear();
    return data;
}

int VLTaskEx::terminationCodeFromTaskWithTimer(const QString& path, const QStringList& arguments, double seconds)
{
    startTimer(seconds);
    theTask_.clear();
    const int status = terminationCodeFromTask(path, arguments, &theTask_);
    theTask_.clear();
    return status;
}
