// VLTaskEx: the static forms (checks, run and wait, capture, exit status) and decoding.
// Time-out instance forms: VLTaskExTimer.cpp; asynchronous form: VLTaskExAsync.cpp.

#include "shared/VLTaskEx.h"
#include "shared/VLLog.h"
#include "shared/VLTaskExCapture.h"

#include "platform/foundation/PlatformException.h"
#include "platform/system/Workspace.h"

#include <QFileInfo>
#include <QStringDecoder>

#include <unistd.h>

namespace {

QString reasonOf(const std::exception& e)
{
    if (const auto* platform = dynamic_cast<const fnd::PlatformException*>(&e))
        return platform->reason();
    return QString::fromUtf8(e.what());
}

// "Executable" as the file system reports it; a package (an application bundle and the
// like) is never runnable even though its folder is searchable.
bool isRunnable(const QString& path, bool mustExist)
{
    if (path.isEmpty())
        return false;
    if (mustExist && !QFileInfo::exists(path))
        return false;
    if (::access(QFile::encodeName(path).constData(), X_OK) != 0)
        return false;
    return !sys::workspace().isPackage(path);
}

void logRefusal(const QString& path)
{
    VLLog::appendLogAndPrint(QStringLiteral("Error: %@ is not executable"), path);
}

QString decode(const QByteArray& data, VLTaskEx::Encoding encoding)
{
    switch (encoding) {
    case VLTaskEx::Encoding::ASCII:
        for (char c : data) {
            if (static_cast<unsigned char>(c) > 0x7F)
                return QString();
        }
        return QString::fromLatin1(data);
    case VLTaskEx::Encoding::Latin1:
        return QString::fromLatin1(data);
    case VLTaskEx::Encoding::UTF8:
        break;
    }
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder.decode(data);
    return decoder.hasError() ? QString() : text;
}

// Starts a child with standard output and error on the null device, hands it to `task` when
// given, and waits for it to exit. Launch failures propagate to the caller.
std::shared_ptr<VLChildProcess> runSilentlyToExit(const QString& path, const QStringList& arguments, VLTaskRef* task)
{
    auto child = std::make_shared<VLChildProcess>(path, arguments);
    child->setStandardOutput(VLChildProcess::Stream::Null);
    child->setStandardError(VLChildProcess::Stream::Null);
    if (task)
        task->set(child);
    child->launch();
    child->waitUntilExit();
    return child;
}

} // namespace

std::shared_ptr<VLTaskEx> VLTaskEx::create()
{
    return std::shared_ptr<VLTaskEx>(new VLTaskEx());
}

bool VLTaskEx::runTask(const QString& path, const QStringList& arguments, VLTaskRef* task)
{
    // Only an absolute path is checked; anything else is left to fail at launch.
    if (path.startsWith(QLatin1Char('/')) && !isRunnable(path, false)) {
        logRefusal(path);
        return false;
    }
    try {
        runSilentlyToExit(path, arguments, task);
        return true;
    } catch (const std::exception& e) {
        VLLog::appendLog(QStringLiteral("Exception running task %@: %@"), path, reasonOf(e));
        return false;
    }
}

void VLTaskEx::runTaskAndReturn(const QString& path, const QStringList& arguments)
{
    if (!isRunnable(path, false)) {
        // The finished text is the format: a "%" in the path is formatted once more there.
        VLLog::appendLogAndPrint(QStringLiteral("Error: %1 is not executable").arg(path));
        return;
    }
    VLChildProcess child(path, arguments);
    child.setStandardOutput(VLChildProcess::Stream::Null);
    child.setStandardError(VLChildProcess::Stream::Null);
    // Not caught, as for the exit-status family. Leaving scope hands the child to the reaper.
    child.launch();
}

std::optional<QByteArray> VLTaskEx::dataFromTask(const QString& path, const QStringList& arguments, VLTaskRef* task,
    const std::optional<Environment>& environment, bool logOutput, bool logError)
{
    if (!isRunnable(path, true)) {
        logRefusal(path);
        return std::nullopt;
    }
    try {
        auto child = std::make_shared<VLChildProcess>(path, arguments);
        if (task)
            task->set(child);
        if (environment)
            child->setEnvironment(*environment);
        child->setStandardOutput(logOutput ? VLChildProcess::Stream::Pipe : VLChildProcess::Stream::Inherit);
        child->setStandardInput(VLChildProcess::Stream::Pipe);
        child->setStandardError(logError ? VLChildProcess::Stream::Pipe : VLChildProcess::Stream::Null);
        child->launch();
        const vltask::Capture capture = vltask::runCaptureLoop([&child] { return child->readAvailableOutput(); },
            [&child] { return child->readAvailableError(); }, logOutput, logError);
        // The child is not waited for; releasing it hands it to the reaper if it still runs.
        child->closeOutput();
        child->closeError();
        return capture.result();
    } catch (const std::exception& e) {
        VLLog::appendLogAndPrint(QStringLiteral("Exception running task %@: %@"), path, reasonOf(e));
        return std::nullopt;
    }
}

std::optional<QByteArray> VLTaskEx::dataFromTaskTimeout(const QString& path, const QStringList& arguments,
    double seconds, bool logOutput, bool logError)
{
    return create()->dataFromTaskWithTimer(path, arguments, seconds, logOutput, logError);
}

QString VLTaskEx::stringFromTask(const QString& path, const QStringList& arguments, VLTaskRef* task)
{
    return stringFromTask(path, arguments, Encoding::ASCII, task);
}

QString VLTaskEx::stringFromTask(const QString& path, const QStringList& arguments, Encoding encoding, VLTaskRef* task)
{
    const auto data = dataFromTask(path, arguments, task);
    return data ? decode(*data, encoding) : QString();
}

QString VLTaskEx::stringFromTaskTimeout(const QString& path, const QStringList& arguments, double seconds)
{
    return stringFromTaskTimeout(path, arguments, Encoding::ASCII, seconds);
}

QString VLTaskEx::stringFromTaskTimeout(const QString& path, const QStringList& arguments, Encoding encoding,
    double seconds, bool logOutput, bool logError)
{
    const auto data = dataFromTaskTimeout(path, arguments, seconds, logOutput, logError);
    return data ? decode(*data, encoding) : QString();
}

int VLTaskEx::terminationCodeFromTask(const QString& path, const QStringList& arguments, VLTaskRef* task)
{
    if (!isRunnable(path, false)) {
        logRefusal(path);
        return -1;
    }
    return runSilentlyToExit(path, arguments, task)->terminationStatus();
}

int VLTaskEx::terminationCodeFromTaskTimeout(const QString& path, const QStringList& arguments, double seconds)
{
    return create()->terminationCodeFromTaskWithTimer(path, arguments, seconds);
}

void VLTaskEx::runTaskTimeout(const QString& path, const QStringList& arguments, double seconds)
{
    create()->runTaskWithTimer(path, arguments, seconds);
}
