// VLTaskEx asynchronous form: a detached reader thread launches the child and hands its
// output to the delegate chunk by chunk, then one empty chunk, then ends the run.

#include "shared/VLTaskEx.h"
#include "shared/VLLog.h"

#include "platform/foundation/PlatformException.h"

#include <QFileInfo>

#include <thread>
#include <unistd.h>

VLTaskEx::~VLTaskEx()
{
    // As terminateAsyncTask, except that the pipe is left to the child object.
    setDelegate(nullptr);
    setObject(QVariant());
    if (const auto child = theTask_.get(); child && child->isRunning())
        child->terminate();
    theTask_.clear();
}

VLTaskEx::Delivery VLTaskEx::delegate() const
{
    std::lock_guard lock(fieldsMutex_);
    return delegate_;
}

void VLTaskEx::setDelegate(Delivery delegate)
{
    std::lock_guard lock(fieldsMutex_);
    delegate_ = std::move(delegate);
}

QVariant VLTaskEx::object() const
{
    std::lock_guard lock(fieldsMutex_);
    return object_;
}

void VLTaskEx::setObject(const QVariant& object)
{
    std::lock_guard lock(fieldsMutex_);
    object_ = object;
}

void VLTaskEx::asyncDataFromTask(const QString& path, const QStringList& arguments, Delivery delegate,
    const QVariant& object, const std::optional<Environment>& environment)
{
    setDelegate(std::move(delegate));
    setObject(object);
    auto child = std::make_shared<VLChildProcess>(path, arguments);
    child->setStandardOutput(VLChildProcess::Stream::Pipe);
    child->setStandardError(VLChildProcess::Stream::Null);
    if (environment)
        child->setEnvironment(*environment);
    theTask_.set(std::move(child));
    std::thread([self = shared_from_this()] { self->launchAsyncTask(); }).detach();
}

void VLTaskEx::launchAsyncTask()
{
    // Our own reference: terminateAsyncTask may clear theTask while we read.
    const std::shared_ptr<VLChildProcess> child = theTask_.get();
    if (!child) {
        VLLog::appendLogAndPrint(QStringLiteral("Unable to launch async task - no task set"));
        return;
    }
    const QString& path = child->launchPath();
    if (!QFileInfo::exists(path) || ::access(QFile::encodeName(path).constData(), X_OK) != 0) {
        VLLog::appendLog(QStringLiteral("Unable to launch async task - task does not exist or is not executable"));
        return;
    }
    try {
        child->launch();
        for (;;) {
            const QByteArray chunk = child->readAvailableOutput();
            if (chunk.isEmpty())
                break;
            asyncTaskReturnData(chunk);
        }
        asyncTaskReturnData(QByteArray());
    } catch (const fnd::PlatformException& e) {
        VLLog::appendLogAndPrint(QStringLiteral("Exception: %@"), e.reason());
    } catch (const std::exception& e) {
        VLLog::appendLogAndPrint(QStringLiteral("Exception: %@"), QString::fromUtf8(e.what()));
    }
}

void VLTaskEx::asyncTaskReturnData(const QByteArray& chunk)
{
    const Delivery delivery = delegate();
    const QVariant context = object();
    if (!chunk.isEmpty()) {
        if (delivery)
            delivery(chunk, *this, context);
        return;
    }
    // The end of output: one empty delivery, then the run ends whether or not anyone listened.
    if (delivery)
        delivery(QByteArray(), *this, context);
    terminateAsyncTask();
}

void VLTaskEx::terminateAsyncTask()
{
    const std::shared_ptr<VLChildProcess> child = theTask_.get();
    if (child)
        child->closeOutput();
    setDelegate(nullptr);
    setObject(QVariant());
    if (child && child->isRunning())
        child->terminate();
    theTask_.clear();
}
