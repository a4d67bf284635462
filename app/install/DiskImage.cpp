#include "install/DiskImage.h"

#include "AppController.h"
#include "platform/system/SystemEnvironment.h"
#include "platform/foundation/PlatformException.h"
#include "shared/VLLog.h"
#include "shared/VLTaskEx.h"

#include <QDir>

#include <chrono>
#include <thread>

namespace install {

namespace {
constexpr double kAttachTimeoutSeconds = 10;
constexpr double kDetachTimeoutSeconds = 5;

// Runs the image tool and waits at most `seconds` for it, then terminates it. The time-out
// is enforced here on the calling thread, so it holds on the main thread of -install too.
void runBounded(const QString& tool, const QStringList& arguments, double seconds)
{
    VLChildProcess child(tool, arguments);
    child.setStandardOutput(VLChildProcess::Stream::Null);
    child.setStandardError(VLChildProcess::Stream::Null);
    try {
        child.launch();
    } catch (const fnd::PlatformException& e) {
        VLLog::appendLog(QStringLiteral("Exception running task %@: %@"), tool, e.reason());
        return;
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (child.isRunning()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            VLLog::appendLog(QStringLiteral("Task %@ timed out. Terminating..."), tool);
            child.terminate();
            child.waitUntilExit();
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}
} // namespace

QString DiskImage::volumesFolder()
{
    return sys::rooted(QStringLiteral("/Volumes"));
}

QString DiskImage::imageTool()
{
    return sys::rooted(QStringLiteral("/usr/bin/hdiutil"));
}

QStringList DiskImage::topLevelNames(const QString& folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
}

QStringList DiskImage::volumeNames()
{
    return topLevelNames(volumesFolder());
}

void DiskImage::attach(const QString& imageFile)
{
    runBounded(imageTool(), {QStringLiteral("attach"), imageFile, QStringLiteral("-nobrowse")}, kAttachTimeoutSeconds);
}

QStringList DiskImage::newVolumeNames(const QStringList& before, const QStringList& after)
{
    return AppController::compareExclusiveItems(before, after);
}

std::optional<QString> DiskImage::newVolumePath(const QStringList& before, const QStringList& after)
{
    const QStringList names = newVolumeNames(before, after);
    if (names.isEmpty())
        return std::nullopt;
    return volumesFolder() + QLatin1Char('/') + names.first();
}

void DiskImage::detach(const QString& volumePath)
{
    runBounded(imageTool(), {QStringLiteral("detach"), volumePath, QStringLiteral("-force")}, kDetachTimeoutSeconds);
}

} // namespace install
