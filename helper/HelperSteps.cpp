#include "HelperSteps.h"

#include "platform/foundation/PlatformException.h"
#include "platform/system/Bundle.h"
#include "platform/system/ProcessList.h"
#include "platform/system/SystemEnvironment.h"
#include "shared/VLLog.h"
#include "shared/VLTaskEx.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>

#include <chrono>
#include <thread>

namespace helper {

namespace {

bool anyProcessInside(const QStringList& prefixes)
{
    for (const QString& executable : sys::processExecutablePaths()) {
        for (const QString& prefix : prefixes) {
            if (executable.startsWith(prefix))
                return true;
        }
    }
    return false;
}

} // namespace

bool waitForBundleToQuit(const QString& bundle, int seconds)
{
    QStringList prefixes = {QDir::cleanPath(bundle) + QLatin1Char('/')};
    const QString canonical = QFileInfo(bundle).canonicalFilePath();
    if (!canonical.isEmpty() && !prefixes.contains(canonical + QLatin1Char('/')))
        prefixes << canonical + QLatin1Char('/');
    VLLog::appendLog(QStringLiteral("Waiting for %@ to quit..."), bundle);
    QElapsedTimer waited;
    waited.start();
    while (anyProcessInside(prefixes)) {
        if (waited.elapsed() >= qint64(seconds) * 1000)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    VLLog::appendLog(QStringLiteral("%@ is not running."), bundle);
    return true;
}

void detachImage(const QString& mountPath)
{
    const QString tool = sys::rooted(QStringLiteral("/usr/bin/hdiutil"));
    VLLog::appendLog(QStringLiteral("Unmounting disk image %@..."), mountPath);
    VLChildProcess child(tool, {QStringLiteral("detach"), mountPath, QStringLiteral("-force")});
    child.setStandardOutput(VLChildProcess::Stream::Null);
    child.setStandardError(VLChildProcess::Stream::Null);
    try {
        child.launch();
    } catch (const fnd::PlatformException& e) {
        VLLog::appendLog(QStringLiteral("Unable to run %@: %@"), tool, e.reason());
        return;
    }
    QElapsedTimer waited;
    waited.start();
    while (child.isRunning()) {
        if (waited.elapsed() >= 5000) {
            VLLog::appendLog(QStringLiteral("Task %@ timed out. Terminating..."), tool);
            child.terminate();
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    child.waitUntilExit();
    VLLog::appendLog(QStringLiteral("%@ detach ended with status %i."), tool, child.terminationStatus());
}

bool relaunch(const QString& bundle)
{
    const std::optional<sys::Bundle> found = sys::Bundle::bundleWithPath(bundle);
    const std::optional<QString> executable = found ? found->executablePath() : std::nullopt;
    if (!executable || !QFileInfo(*executable).isExecutable()) {
        VLLog::appendLog(QStringLiteral("Unable to relaunch: %@ has no executable."), bundle);
        return false;
    }
    VLLog::appendLog(QStringLiteral("Relaunching %@..."), *executable);
    if (!QProcess::startDetached(*executable, {}, QFileInfo(bundle).absolutePath())) {
        VLLog::appendLog(QStringLiteral("Unable to start %@."), *executable);
        return false;
    }
    return true;
}

} // namespace helper
