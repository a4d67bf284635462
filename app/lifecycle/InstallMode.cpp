// Mode "-install <type> <path or bundle ID>": download and install one update without a
// window, for a vendor client application that listens for progress notifications.
// The type is always argument 2 and the target argument 3, wherever "-install" stands.

#include "lifecycle/RunModes.h"

#include "AppController.h"
#include "UpdateRecord.h"
#include "platform/foundation/Foundation.h"
#include "platform/plist/PropertyList.h"
#include "platform/system/Bundle.h"
#include "platform/system/SystemEnvironment.h"
#include "platform/system/SystemLog.h"
#include "shared/VLLog.h"
#include "shared/VLTaskNotification.h"

#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>

#include <cstdio>
#include <thread>
#include <unistd.h>

namespace runmodes {

namespace {

const QString kVendorPrefix = QStringLiteral("com.velmora.");

// The task error, the system log and task finished: how -install reports a failure.
int failInstall(const QString& message)
{
    VLTaskNotification::postTaskErrorString(message);
    sys::nsLogText(message);
    VLTaskNotification::postTaskFinished();
    return 1;
}


// A relative path names the application from the working directory, as command-line tools
// read their arguments. The installer splits the record's path into folder and name as the
// platform does, and a relative path has no folder to split off, so it is made absolute here.
QString applicationPathOf(const QString& target)
{
    if (target.isEmpty() || target.startsWith(QLatin1Char('/')))
        return target;
    return fnd::stringByAppendingPathComponent(QDir::currentPath(), target);
}

std::optional<UpdateRecord> sparkleRecord(AppController& controller, const QString& target)
{
    const QString appPath = applicationPathOf(target);
    const QString infoPath = fnd::stringByAppendingPathComponent(appPath, QStringLiteral("Contents/Info.plist"));
    const QVariantMap info = plist::readDictionaryFile(infoPath).value_or(QVariantMap{});
    return controller.updateSparkleFeed(installFeedOf(appPath, info), appPath,
                                        fnd::stringValue(info.value(QStringLiteral("CFBundleIdentifier"))),
                                        fnd::intValue(info.value(QStringLiteral("CFBundleVersion"))),
                                        fnd::stringValue(info.value(QStringLiteral("CFBundleShortVersionString"))));
}

// The record the vendor update server publishes for a bundle identifier.
std::optional<UpdateRecord> serverRecord(AppController& controller, const QString& bundleID)
{
    const QString url = sys::updateServerBase() + QStringLiteral("/rss/appcasts/%1.xml").arg(bundleID);
    const std::optional<QByteArray> data = controller.dataFromURLSync(url);
    if (!data)
        return std::nullopt;
    const std::optional<QVariant> parsed = plist::read(*data);
    if (!parsed || parsed->typeId() != QMetaType::QVariantMap)
        return std::nullopt;
    return parsed->toMap();
}

// The main thread turns its event loop in slices of at most five seconds until the
// download thread sets one of the flags. Each slice also looks at the flags every 50 ms,
// so a finished download does not wait out the rest of its slice.
void waitForDownload(AppController& controller)
{
    const auto settled = [&] {
        return controller.downloadFinished || controller.downloadError || controller.updateCancelled;
    };
    while (!settled()) {
        QEventLoop slice;
        QElapsedTimer elapsed;
        elapsed.start();
        QTimer poll;
        QObject::connect(&poll, &QTimer::timeout, &slice, [&] {
            if (settled() || elapsed.elapsed() >= 5000)
                slice.quit();
        });
        poll.start(50);
        slice.exec();
    }
}

void announce(const QString& status)
{
    VLLog::appendLog(status);
    std::puts(status.toUtf8().constData());
    std::fflush(stdout);
}

void installRecord(AppController& controller, const QString& type, const UpdateRecord& found)
{
    if (type == record::kTypeGroup) {
        controller.installGroupApp(found, true);
    } else if (type == record::kTypeSparkle) {
        controller.installSparkleApp(found);
    } else if (type == record::kTypeSelf) {
        controller.installSelfUpdate(found);
        return;
    } else {
        return;
    }
    std::puts("Done.");
    std::fflush(stdout);
    VLTaskNotification::postTaskFinished();
}

} // namespace

QString installFeedOf(const QString& appPath, const QVariantMap& info)
{
    const QString key = QStringLiteral("SUFeedURL");
    if (info.contains(key))
        return fnd::stringValue(info.value(key));
    for (const char* relative : {"Contents/Resources/VLUpdates.plist", "Contents/VLUpdates.plist"}) {
        const QString path = fnd::stringByAppendingPathComponent(appPath, QString::fromLatin1(relative));
        const QVariantMap descriptor = plist::readDictionaryFile(path).value_or(QVariantMap{});
        if (descriptor.contains(key))
            return fnd::stringValue(descriptor.value(key));
    }
    return QString();
}

int runInstall(const QStringList& arguments)
{
    if (arguments.size() < 4) {
        sys::nsLogText(QStringLiteral("Invalid argument count"));
        return 1;
    }
    const QString type = arguments.at(2);
    const QString target = arguments.at(3);
    if (type != record::kTypeSparkle && !target.startsWith(kVendorPrefix)) {
        return failInstall(fnd::format(
            QStringLiteral("Unable to install update - the bundle ID %@ does not correspond to a Velmora application."), target));
    }

    std::unique_ptr<AppController> controller = AppController::initWithoutGUI();
    const std::optional<UpdateRecord> found = type == record::kTypeSparkle ? sparkleRecord(*controller, target)
                                                                           : serverRecord(*controller, target);
    if (!found)
        return failInstall(fnd::format(QStringLiteral("Unable to download info for application %@."), target));

    announce(QStringLiteral("Downloading installer..."));
    VLTaskNotification::postIncrementProgress();

    std::thread download([&] { controller->downloadObject(*found); });
    if (!controller->downloadFinished)
        waitForDownload(*controller);
    download.join();

    if (controller->updateCancelled) {
        VLLog::appendLog(QStringLiteral("Update canceled"));
        sys::nsLogText(QStringLiteral("Update canceled"));
        VLTaskNotification::postTaskFinished();
        return 1;
    }
    if (controller->downloadError) {
        VLLog::appendLog(QStringLiteral("Unable to download update - an error occurred."));
        return failInstall(QStringLiteral(
            "Unable to download update - an error occurred. Please check your software update logs for more details."));
    }

    VLTaskNotification::postIncrementProgress();
    announce(QStringLiteral("Installing update..."));
    // Succeeds only when the process already has root rights; the installers then run as root.
    [[maybe_unused]] const int rootResult = setuid(0);
    installRecord(*controller, type, *found);
    return 0;
}

} // namespace runmodes
