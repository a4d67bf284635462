// The download controller: starting the one download of an update, its delegate, the
// blocking download used by -install, and the status and progress requests of the install
// panel. The download and its delegate run on the thread that starts it: the main thread
// for the installation pass, the detached download thread for -install. Every operation
// catches exceptions through ExceptionGuard under its full method name: with a window it
// then ends as if it had run out; without one the run ends with status 1.

#include "AppController.h"
#include "ExceptionGuard.h"
#include "UpdateRecord.h"
#include "install/Download.h"
#include "install/InstallSupport.h"
#include "install/SourceDecoder.h"
#include "platform/system/MainThread.h"
#include "platform/system/PrivateFolder.h"
#include "shared/VLLog.h"
#include "shared/VLTaskNotification.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QFileInfo>
#include <QTimer>

namespace {
constexpr int kDownloadTimeoutSeconds = 60;
const double kProgressSteps[] = {0.2, 0.4, 0.6, 0.8};
} // namespace

void AppController::startDownloadForObject(const UpdateRecord& record)
{
    guard::guarded(hasGUI, "-[AppController startDownloadForObject:]", [&] {
        const QString url = record.value(record::kUrl).toString();
        const std::optional<QString> destination = install::downloadedFileOf(downloadPath, record);
        if (!url.isEmpty() && !destination) {
            // A name that could reach outside the download folder is never used: the item fails
            // as a failed download does, instead of waiting for a Cancel that may never come.
            VLLog::appendLog(QStringLiteral("Creating download request for URL %@..."), url);
            downloadFinished = false;
            downloadDidFailWithError(
                QStringLiteral("The address %1 does not name a file that can be stored safely.").arg(url));
            return;
        }
        startDownloadingURL(url, destination.value_or(QString()));
    });
}

void AppController::startDownloadingURL(const QString& url, const QString& destination)
{
    guard::guarded(hasGUI, "-[AppController startDownloadingURL:toDestination:]", [&] {
        VLLog::appendLog(QStringLiteral("Creating download request for URL %@..."), url);
        if (url.isEmpty() || destination.isEmpty()) {
            if (hasGUI)
                return;
            const QString text = QStringLiteral("Unable to download file - no URL specified");
            VLLog::appendLogAndPrint(QStringLiteral("%@"), text);
            VLTaskNotification::postTaskErrorString(text);
            VLTaskNotification::postTaskFinished();
            install::endProcess(1);
        }
        downloadFinished = false;
        downloadError = false;
        lastProgress = 0;
        downloader.reset();
        Download::Delegate delegate;
        delegate.didReceiveResponse = [this](const UrlResponseInfo& r) { downloadDidReceiveResponse(r); };
        delegate.didReceiveDataOfLength = [this](quint64 length) { downloadDidReceiveDataOfLength(length); };
        delegate.didFinish = [this] { downloadDidFinish(); };
        delegate.didFail = [this](const QString& description) { downloadDidFailWithError(description); };
        delegate.shouldDecodeSourceDataOfMIMEType = &AppController::shouldDecodeSourceDataOfMIMEType;
        downloader = Download::create(url, kDownloadTimeoutSeconds, std::move(delegate));
        if (!downloader) {
            VLTaskNotification::postTaskErrorString(QStringLiteral("Unable to initiate download"));
            VLLog::appendLog(QStringLiteral("Unable to initiate download."));
            downloadError = true;
            ui().alertPanel(QStringLiteral("Unable to initiate download."), QString());
            return;
        }
        VLLog::appendLog(QStringLiteral("Downloader initialized successfully..."));
        // The folder must be this process's own, never reached through a link (PrivateFolder.h);
        // when it is not, nothing is written and the item fails as a failed download does.
        QString refusal;
        if (!sys::makePrivateFolder(QFileInfo(destination).absolutePath(), &refusal)) {
            downloadDidFailWithError(refusal);
            return;
        }
        downloader->setDestination(destination, true);
        downloader->setDeletesFileUponFailure(true);
        downloader->start();
    });
}

void AppController::downloadObject(const UpdateRecord& record)
{
    guard::guarded(hasGUI, "-[AppController downloadObject:]", [&] {
        downloadFinished = false;
        downloadError = false;
        updateCancelled = false;
        startDownloadForObject(record);
        const bool onMainThread = sys::isMainThread();
        while (!downloadFinished && !downloadError) {
            if (updateCancelled) {
                VLLog::appendLog(QStringLiteral("Download cancelled."));
                if (downloader)
                    downloader->cancel();
                downloader.reset();
                QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
                return;
            }
            // One round: up to 0.01 s of events on the main thread, 0.2 s elsewhere.
            QEventLoop round;
            QTimer::singleShot(onMainThread ? 10 : 200, &round, &QEventLoop::quit);
            round.exec();
        }
        VLLog::appendLog(QStringLiteral("Download ended."));
        if (!onMainThread) {
            // The download's network objects belong to this thread: release them before it ends.
            downloader.reset();
            QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        }
    });
}

void AppController::setDownloadResponse(const UrlResponseInfo& response)
{
    VLLog::appendLog(QStringLiteral("Download response set"));
    downloadResponse = response;
}

void AppController::downloadDidReceiveResponse(const UrlResponseInfo& response)
{
    guard::guarded(hasGUI, "-[AppController download:didReceiveResponse:]", [&] {
        VLLog::appendLog(QStringLiteral("download response: %@"), response.description());
        bytesReceived = 0;
        setDownloadResponse(response);
    });
}

void AppController::downloadDidReceiveDataOfLength(quint64 length)
{
    guard::guarded(hasGUI, "-[AppController download:didReceiveDataOfLength:]", [&] {
        VLLog::appendLog(QStringLiteral("received data length: %lu"), length);
        if (updateCancelled) {
            VLLog::appendLog(QStringLiteral("Download cancelled."));
            if (downloader)
                downloader->cancel();
            return;
        }
        const double expected = double(downloadResponse.expectedLength);
        bytesReceived += double(length);
        if (downloadResponse.expectedLength < 0) {
            VLLog::appendLog(QStringLiteral("Expected length is unknown"));
            if (hasGUI)
                ui().setDownloadProgressIndeterminate();
            return;
        }
        if (hasGUI)
            ui().setDownloadProgress(expected, bytesReceived);
        updateReceivedData(bytesReceived, expected);
        const double fraction = expected > 0 ? bytesReceived / expected : 1.0;
        if (!hasGUI) {
            for (const double step : kProgressSteps) {
                if (fraction >= step && lastProgress < step) {
                    VLTaskNotification::postIncrementProgress();
                    break;
                }
            }
        }
        lastProgress = fraction;
    });
}

void AppController::downloadDidFinish()
{
    guard::guarded(hasGUI, "-[AppController downloadDidFinish:]", [&] {
        VLLog::appendLog(QStringLiteral("Download finished."));
        downloader.reset();
        setInstallStatus(QStringLiteral("Finishing download..."));
        downloadFinished = true;
        hideDownloadDataText();
    });
}

void AppController::downloadDidFailWithError(const QString& localizedDescription)
{
    guard::guarded(hasGUI, "-[AppController download:didFailWithError:]", [&] {
        downloader.reset();
        const QString text = fnd::format(QStringLiteral("Download failed - %@"), localizedDescription);
        VLTaskNotification::postTaskErrorString(text);
        VLTaskNotification::postTaskFinished();
        VLLog::appendLog(QStringLiteral("%@"), text);
        downloadError = true;
        hideDownloadDataText();
        if (hasGUI) {
            ui().alertPanel(QStringLiteral("Download failed."), localizedDescription);
            install::onMain([this] { ui().endProgress(); });
        }
    });
}

bool AppController::shouldDecodeSourceDataOfMIMEType(const QString& mimeType)
{
    return install::shouldDecodeSourceDataOfMIMEType(mimeType);
}

void AppController::setInstallStatus(const QString& status)
{
    guard::guarded(hasGUI, "-[AppController setInstallStatus:]", [&] {
        if (hasGUI)
            ui().setInstallStatusText(status);
        else
            install::putLine(status);
    });
}

void AppController::startInstallProgress()
{
    guard::guarded(hasGUI, "-[AppController startInstallProgress]", [&] {
        if (hasGUI)
            ui().startInstallProgress();
    });
}

void AppController::hideDownloadDataText()
{
    guard::guarded(hasGUI, "-[AppController hideDownloadDataText]", [&] {
        if (hasGUI)
            ui().hideDownloadDataText();
    });
}

void AppController::updateReceivedData(double received, double total)
{
    guard::guarded(hasGUI, "-[AppController updateReceivedData:totalLength:]", [&] {
        if (hasGUI)
            ui().updateReceivedData(received, total);
    });
}
