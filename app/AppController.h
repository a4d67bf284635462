#pragma once
// AppController: the one controller of the updater. It holds the list of update records,
// the download state and the check queue, and implements entry, discovery, installation
// and the interface's operations. Its member functions are defined in the subsystem
// folders, one source file per concern:
//   lifecycle/  initialisers, preference stores, launch and termination
//   discovery/  installed-app scan, Sparkle check, group check, self check, driver, network
//   install/    download controller, disk-image / package / self installers, running apps
//
// Lifecycle: created by init() (windowed, also used by -checkpath) or initWithoutGUI()
// (the command-line modes). Threads: see each section; interface requests always go
// through `ui` on the main thread. Copy is deleted.

#include "platform/system/SerialLane.h"
#include "platform/system/WorkerPool.h"
#include "ui/UserInterface.h"

#include <QDateTime>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVariantMap>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

// An update record: a dictionary with the fixed keys of UpdateRecord.h.
using UpdateRecord = QVariantMap;

// What the response of a feed or download request told us (the platform's URL response).
struct UrlResponseInfo {
    QString url;            // the final address, after redirects
    int statusCode = 0;     // HTTP status, 0 when none
    qint64 expectedLength = -1; // -1 when the server sent no length
    QString mimeType;
    QString description() const;
};

class Download; // install/Download.h: the running download (the URL download object)
namespace discovery {
struct CheckVerdict; // discovery/CheckVerdict.h: why a check answered as it did
class CheckReport;   // discovery/CheckReport.h: the verdicts of one full check, for -explain
} // namespace discovery

class AppController {
public:
    AppController(const AppController&) = delete;
    AppController& operator=(const AppController&) = delete;
    ~AppController();

    // ---- lifecycle/ ---------------------------------------------------------------------
    // The windowed initialiser: crash check, new log, registered defaults.
    static std::unique_ptr<AppController> init(std::unique_ptr<UserInterface> ui = nullptr);
    // The command-line initialiser: task log, no registered defaults, no interface.
    static std::unique_ptr<AppController> initWithoutGUI();

    // The windowed launch (lifecycle/Launch.cpp), on the main thread once the event loop runs:
    // the embedded-copy refusal, the scheduled job, then the single-update prompt ("checkpath"
    // set) or the normal launch with its check on a detached thread.
    void applicationDidFinishLaunching();
    void applicationWillTerminate();
    bool applicationShouldTerminateAfterLastWindowClosed() const { return true; }
    void loadPreferenceSettings();
    void cancelUpdateCheck() { updateCancelled = true; }

    // ---- lifecycle/user choices (main thread) ---------------------------------------------
    void toggleCheckAtStartup(bool ticked);                // the single-update prompt's box
    void prefsToggleCheckForUpdatesAtStartup(bool ticked); // the preferences window's box
    void updateIgnoreVersionClick();
    void updateRemindLaterClick();
    void menuResetIgnoredUpdates();
    void menuCheckForUpdates();
    // The preferences box for the scheduled check: stores "autoUpdateCheck", then toggles.
    void prefsToggleAutoUpdateCheck(bool ticked);
    void toggleAutoUpdateCheck(int value);
    void startAutoUpdateCheckJob();
    void stopAutoUpdateCheckJob();

    // ---- ui/ update list, release notes, alerts, menus (main thread unless said) ----------
    // Table columns by identifier: "check", "title", "curSize", "requirements".
    int numberOfRowsInTableView();
    // What the column shows for `row` of `rows` (an invalid value for an unknown column or row).
    static QVariant tableViewObjectValue(const QList<UpdateRecord>& rows, const QString& column, int row);
    // Whether the check box of a record may be changed (not for manual-only records).
    static bool tableViewCheckCellEnabled(const UpdateRecord& record);
    void tableViewSetObjectValue(const QVariant& value, const QString& column, int row);
    void tableViewSelectionDidChange(int selectedRow); // -1: no selection
    void updateInstallButtonStatus();
    static QString changeListForUpdate(const UpdateRecord& record);
    void setWebViewHTMLString(const QString& html);
    void setHTMLString(const QString& html, UserInterface::NotesView view);
    // A navigation in a release-notes view; true when the view may follow it itself.
    bool decidePolicyForNavigation(const QString& url, bool linkClicked);
    // Menu items are named by their action ("menuCheckForUpdates:").
    bool validateUserInterfaceItem(const QString& action);
    // Any thread: the alert sheet on the main window, shown on the main thread, waiting.
    void showAlert(const QString& message, const QString& info);
    void noUpdateAlertDidEnd();
    void helpReportBug();
    void helpSuggestFeature();
    void helpVLHome();
    void viewLog();
    void viewHelperLog();
    void gatherLogs();

    // ---- discovery/scan -----------------------------------------------------------------
    // Vendor bundle paths under `folder`; with `bundleIDs` given, it receives the group IDs
    // of the descriptors found (nullopt on failure). nullopt on failure or cancellation.
    std::optional<QStringList> VLAppsInFolder(const QString& folder, std::optional<QStringList>* bundleIDs = nullptr);
    std::optional<QStringList> groupIDsInFolder(const QString& folder);
    bool groupIDExists(const QString& groupID);
    static bool isFileBlacklisted(const QString& path);

    // ---- discovery/sparkle, group, self -------------------------------------------------
    // Each returns an update record, the up-to-date marker, or nullopt (skipped, refused, failed).
    // With `why` given, it also receives the rule that decided the answer.
    std::optional<UpdateRecord> updateSparkleFeed(const QString& feedURL, const QString& appPath,
                                                  const QString& bundleID, qint64 version,
                                                  const QString& stringVersion, discovery::CheckVerdict* why = nullptr);
    std::optional<UpdateRecord> updateGroup(const QString& groupID, const QString& app, const QString& subapp,
                                            qint64 version, const QString& versionString,
                                            const QString& bundleID, bool forceUpdate = false,
                                            discovery::CheckVerdict* why = nullptr);
    std::optional<UpdateRecord> checkForUpdatesToSelf(discovery::CheckVerdict* why = nullptr);

    // ---- discovery/driver ---------------------------------------------------------------
    void checkForUpdatesToAll();
    void checkForUpdates(const std::optional<QStringList>& forcedIDs);
    // One bundle; a group member's group step may be left to the worker running groupChecks,
    // so the check is complete only once every updateQueue task has ended.
    void checkForUpdatesToApp(const QString& bundlePath);
    // True when the record was appended (no record with its title was there).
    bool addObjectToDataArray(const UpdateRecord& record);
    QList<UpdateRecord> uniqueObjectsInArray(const QList<UpdateRecord>& list);
    static bool isGroup(const QString& groupID, const QList<UpdateRecord>& list);
    // array:compareExclusiveItemsInArray: - the items of the longer list the other lacks.
    static QStringList compareExclusiveItems(const QStringList& a, const QStringList& b);

    // ---- discovery/network --------------------------------------------------------------
    // Blocking download of a URL's body on the calling thread's own network thread; never
    // uses the caller's event loop, so it may be called from any thread. nullopt on error.
    std::optional<QByteArray> dataFromURLSync(const QString& url, UrlResponseInfo* response = nullptr,
                                              QString* error = nullptr);
    // `error`, when given, receives the decoding error (empty when there was no data).
    std::optional<QVariant> dictionaryFromData(const std::optional<QByteArray>& data, QString* error = nullptr);

    // ---- install/download ---------------------------------------------------------------
    void installClick();
    void updateInstallClick();
    void cancelInstall() { updateCancelled = true; }
    void installSelectedItems();
    void startDownloadForObject(const UpdateRecord& record);
    void startDownloadingURL(const QString& url, const QString& destination);
    void downloadObject(const UpdateRecord& record);
    void setInstallStatus(const QString& status);
    void startInstallProgress();
    void hideDownloadDataText();
    void updateReceivedData(double received, double total);
    static QString formatFileSize(double bytes);
    void createTempFolder();
    // The running download's delegate (install/DownloadController.cpp), called on the thread
    // that started the download, in the order response, data..., then finish or failure.
    void downloadDidReceiveResponse(const UrlResponseInfo& response);
    void downloadDidReceiveDataOfLength(quint64 length);
    void downloadDidFinish();
    void downloadDidFailWithError(const QString& localizedDescription);
    static bool shouldDecodeSourceDataOfMIMEType(const QString& mimeType);
    void setDownloadResponse(const UrlResponseInfo& response);

    // ---- install/installers -------------------------------------------------------------
    void installSparkleApp(const UpdateRecord& record);
    void installGroupApp(const UpdateRecord& record, bool autoInstall);
    void installSelfUpdate(const UpdateRecord& record);

    // ---- install/running apps -----------------------------------------------------------
    void closeAppWithPath(const QString& path);
    void closeAppsWithGroupID(const QString& groupID);
    void closeConflictingApps();
    void showDockIcon();
    static bool isProcessRunning(const QString& executableName);

    // ---- state (declaration order of the data model) ------------------------------------
    bool hasGUI = false;
    bool isPermanentInstaller = true;
    QList<UpdateRecord> dataArray;            // guarded by dataArrayLock
    std::atomic<bool> updateCancelled{false};
    bool logReset = false;
    QString downloadPath;
    // The group steps of the bundle checks, one at a time, run by the update queue's workers
    // (discovery/Driver.cpp); it takes the place of holding dataArrayLock for the whole step.
    // Declared before the queue, whose end waits for the workers that may be running it.
    sys::SerialLane groupChecks;
    sys::WorkerPool updateQueue;              // at most 4 checks at once
    std::atomic<bool> downloadFinished{false};
    std::atomic<bool> downloadError{false};
    std::unique_ptr<Download> downloader;     // main thread (or the -install download thread)
    UrlResponseInfo downloadResponse;
    double bytesReceived = 0;
    double lastProgress = 0;
    // Set by -explain for one full check (not owned): the scan and the driver record every
    // bundle's verdict there. Null otherwise, and then nothing is recorded.
    discovery::CheckReport* checkReport = nullptr;

    // checkedUpdates and skippedBundleIDs are replaced whole (read, copy, replace) without a
    // lock of their own, as the checks expect; the accessors only make each read and each
    // replacement atomic so that concurrent checks are free of data races.
    QVariantMap checkedUpdates() const;
    void setCheckedUpdates(const QVariantMap& value);
    QStringList skippedBundleIDs() const;
    void setSkippedBundleIDs(const QStringList& value);

    std::recursive_mutex controllerLock;      // "the controller's lock"
    std::recursive_mutex dataArrayLock;       // "the lock of dataArray"

    UserInterface& ui() { return *ui_; }

private:
    explicit AppController(bool withGUI, std::unique_ptr<UserInterface> ui);

    std::unique_ptr<UserInterface> ui_;
    mutable std::mutex swapLock_;
    QVariantMap checkedUpdates_;
    QStringList skippedBundleIDs_;
};
