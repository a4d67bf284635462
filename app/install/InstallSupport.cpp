#include "install/InstallSupport.h"

#include "UpdateRecord.h"
#include "discovery/Network.h"
#include "install/DownloadPath.h"
#include "platform/foundation/PlatformException.h"
#include "platform/system/FileTree.h"
#include "platform/system/MainThread.h"
#include "platform/system/PrivateFolder.h"
#include "platform/system/SystemLog.h"
#include "shared/VLFileManager.h"
#include "shared/VLLog.h"
#include "shared/VLTaskNotification.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace install {

void onMain(const std::function<void()>& work)
{
    sys::runOnMainThreadAndWait(work);
}

void sleepSeconds(double seconds)
{
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

void endProcess(int status)
{
    discovery::stopNetworkThreads();
    VLLog::finishWriting();
    std::fflush(nullptr);
    if (sys::isMainThread())
        std::exit(status);
    std::_Exit(status);
}

void putLine(const QString& text)
{
    std::puts(text.toUtf8().constData());
    std::fflush(stdout);
}

std::optional<QString> downloadedFileOf(const QString& downloadFolder, const UpdateRecord& record)
{
    // Only text has a last path component; any other value is sent a message it does not
    // implement, as on the platform. A missing address is no name at all.
    const QVariant url = record.value(record::kUrl);
    if (url.isValid() && url.typeId() != QMetaType::QString)
        throw fnd::unrecognizedSelector(url, "lastPathComponent");
    return downloadFilePath(downloadFolder, url.toString());
}

void removeDownloadFolder(const QString& downloadFolder)
{
    QString refusal;
    if (!sys::isPrivateFolder(downloadFolder, &refusal)) {
        VLLog::appendLog(QStringLiteral("Not removing the download folder: %@"), refusal);
        return;
    }
    QString error;
    if (!sys::filetree::removeTree(downloadFolder, &error))
        VLLog::appendLog(QStringLiteral("Unable to remove the download folder: %@"), error);
}

QString titleOf(const UpdateRecord& record)
{
    return record.value(record::kTitle).toString();
}

void reportInstallFailure(AppController& c, const UpdateRecord& record, const QString& windowlessText,
                          const QString& windowedInfo)
{
    if (c.hasGUI) {
        onMain([&] { c.ui().alertPanel(fnd::format(QStringLiteral("Unable to install %@"), titleOf(record)), windowedInfo); });
        return;
    }
    VLTaskNotification::postTaskErrorString(windowlessText);
    VLLog::appendLog(QStringLiteral("%@"), windowlessText);
    sys::nsLogText(windowlessText);
}

void refuseDownload(AppController& c, const UpdateRecord& record, const QString& info)
{
    const QString text = fnd::format(QStringLiteral("Unable to install %@. "), titleOf(record)) + info;
    VLLog::appendLogAndPrint(QStringLiteral("%@"), text);
    if (c.hasGUI)
        onMain([&] { c.ui().installPanelSheet(fnd::format(QStringLiteral("Unable to install %@"), titleOf(record)), info); });
    else
        VLTaskNotification::postTaskErrorString(text);
}

bool verifyDownloadChecksum(AppController& c, const UpdateRecord& record, const QString& file)
{
    if (!record.contains(record::kServerChecksum))
        return true;
    VLLog::appendLog(QStringLiteral("Getting checksum..."));
    const QString server = record.value(record::kServerChecksum).toString();
    const QString local = VLFileManager::sha1HashForFile(file).value_or(QString());
    if (!local.isEmpty() && local == server)
        return true;
    VLLog::appendLog(QStringLiteral("Local checksum %@ didn't match server checksum %@."), local, server);
    refuseDownload(c, record, QStringLiteral("Downloaded file is different from the server's version. Please redownload this update."));
    return false;
}

} // namespace install
