// The installation pass: paid-upgrade confirmations, then each selected record downloaded and
// installed strictly one after another on a worker thread that holds the controller's lock,
// then a re-check (something was handled) or a list refresh. Also the temporary folder and
// the human-readable size.

#include "AppController.h"
#include "ExceptionGuard.h"
#include "UpdateRecord.h"
#include "install/Download.h"
#include "install/InstallSupport.h"
#include "platform/system/PrivateFolder.h"
#include "shared/VLLog.h"
#include "shared/VLTaskNotification.h"

#include <cmath>
#include <thread>

namespace {
const QString kSelfGroupID = QStringLiteral("com.velmora.SoftwareUpdate");

bool isSelected(const UpdateRecord& record)
{
    return record.value(record::kSelected).toLongLong() == 1;
}
} // namespace

void AppController::installClick()
{
    guard::guarded(hasGUI, "-[AppController installClick:]", [&] {
        std::thread([this] { installSelectedItems(); }).detach();
    });
}

void AppController::updateInstallClick()
{
    guard::guarded(hasGUI, "-[AppController updateInstallClick:]", [&] {
        ui().hideUpdateWindowAndShowMainWindow();
        std::thread([this] { installSelectedItems(); }).detach();
    });
}

QString AppController::formatFileSize(double bytes)
{
    constexpr double kUnit = 1.0 / 1024.0;
    if (bytes < 1024.0)
        return QString::asprintf("%f B", std::floor(bytes));
    if (bytes < 1048576.0)
        return QString::asprintf("%.2f KB", bytes * kUnit);
    if (bytes < 1073741824.0)
        return QString::asprintf("%.1f MB", bytes * kUnit * kUnit);
    return QString::asprintf("%.2f GB", bytes * kUnit * kUnit * kUnit);
}

// The folder is private to this process's user (see PrivateFolder.h): one that cannot be
// used, a planted link or another user's folder, counts as one that could not be created.
void AppController::createTempFolder()
{
    guard::guarded(hasGUI, "-[AppController createTempFolder]", [&] {
        QString refusal;
        if (sys::makePrivateFolder(downloadPath, &refusal))
            return;
        VLLog::appendLog(QStringLiteral("%@"), refusal);
        const QString info = QStringLiteral("Please check you have the necessary permissions to write to this location.");
        const QString text = fnd::format(QStringLiteral("Unable to create temp directory at %@. "), downloadPath) + info;
        VLTaskNotification::postTaskErrorString(text);
        VLLog::appendLog(QStringLiteral("%@"), text);
        if (hasGUI) {
            install::onMain([&] {
                ui().alertPanel(fnd::format(QStringLiteral("Unable to create temp directory at %@."), downloadPath), info);
            });
        }
    });
}

namespace {

// Asks every paid-upgrade confirmation, in list order, before anything is downloaded. A
// declined record is deselected in the pass's copy and in the list the table shows.
void confirmPaidUpgrades(AppController& c, QList<UpdateRecord>& items)
{
    for (qsizetype i = 0; i < items.size(); ++i) {
        UpdateRecord& record = items[i];
        if (!isSelected(record) || !record.value(record::kPaidUpgrade).toBool())
            continue;
        int answer = 1;
        install::onMain([&] {
            answer = c.ui().blockingSheet(
                fnd::format(QStringLiteral("%@ is a paid upgrade. Are you sure you wish to install it?"),
                            record.value(record::kTitle)),
                QStringLiteral("Install"), QStringLiteral("Don't Install"), QString());
        });
        if (answer != 0)
            continue;
        record.insert(record::kSelected, 0);
        {
            std::lock_guard lock(c.dataArrayLock);
            if (i < c.dataArray.size() && c.dataArray[i].value(record::kTitle) == record.value(record::kTitle))
                c.dataArray[i].insert(record::kSelected, 0);
        }
        install::onMain([&] { c.ui().reloadTableView(); });
    }
}

enum class Wait { Finished, Failed, Cancelled };

// Polls the download's flags once a second until it ends or the user cancels.
Wait waitForDownload(AppController& c)
{
    for (;;) {
        if (c.downloadFinished)
            return Wait::Finished;
        if (c.downloadError)
            return Wait::Failed;
        if (c.updateCancelled) {
            install::onMain([&] {
                if (c.downloader)
                    c.downloader->cancel();
            });
            return Wait::Cancelled;
        }
        install::sleepSeconds(1.0);
    }
}

void installDownloaded(AppController& c, const UpdateRecord& record)
{
    install::onMain([&] { c.hideDownloadDataText(); });
    if (record.value(record::kType).toString() == record::kTypeSparkle)
        c.installSparkleApp(record);
    else if (record.value(record::kGroupId).toString() == kSelfGroupID)
        c.installSelfUpdate(record);
    else
        c.installGroupApp(record, true);
}

// Steps 1 to 5 of the pass; returns how many items were handled.
int runPass(AppController& c)
{
    VLLog::appendLog(QStringLiteral("Beginning installation..."));
    VLLog::appendLog(QStringLiteral("Closing conflicting apps..."));
    c.closeConflictingApps();
    c.updateCancelled = false;
    QList<UpdateRecord> items;
    {
        std::lock_guard lock(c.dataArrayLock);
        items = c.dataArray;
    }
    confirmPaidUpgrades(c, items);
    VLLog::appendLog(QStringLiteral("Showing progress dialog..."));
    install::onMain([&] { c.ui().showInstallProgress(); });
    VLLog::appendLog(QStringLiteral("Creating temp folder..."));
    int handled = 0;
    for (const UpdateRecord& record : std::as_const(items)) {
        c.createTempFolder();
        if (!isSelected(record))
            continue;
        VLLog::appendLog(QStringLiteral("Beginning file download..."));
        install::onMain([&] {
            c.setInstallStatus(fnd::format(QStringLiteral("Downloading %@..."), record.value(record::kTitle)));
            c.startInstallProgress();
            c.startDownloadForObject(record);
        });
        const Wait outcome = waitForDownload(c);
        if (outcome == Wait::Cancelled)
            break;
        if (outcome == Wait::Finished && !c.downloadError)
            installDownloaded(c, record);
        ++handled;
    }
    return handled;
}

void finishPass(AppController& c, int handled)
{
    install::onMain([&] { c.ui().endProgress(); });
    if (c.updateCancelled || handled == 0)
        install::onMain([&] { c.ui().reloadTableView(); });
    else
        c.checkForUpdates(std::nullopt);
}

} // namespace

void AppController::installSelectedItems()
{
    std::lock_guard lock(controllerLock);
    const std::optional<int> handled = guard::guardedOr(hasGUI, "-[AppController installSelectedItems]",
        std::optional<int>(), [&] { return std::optional<int>(runPass(*this)); });
    if (handled) {
        finishPass(*this, *handled);
        return;
    }
    // With a window an exception ends the pass as if it had run out: panel closed, list redrawn.
    install::onMain([&] {
        ui().endProgress();
        ui().reloadTableView();
    });
}
