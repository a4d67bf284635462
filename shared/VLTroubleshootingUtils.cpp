#include "shared/VLTroubleshootingUtils.h"

#include "platform/foundation/Format.h"
#include "platform/foundation/Foundation.h"
#include "platform/system/FileTree.h"
#include "platform/system/Workspace.h"
#include "shared/VLAlert.h"
#include "shared/VLFileManager.h"
#include "shared/VLLocalPaths.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>

namespace {

const char* const kCrashFolders[] = {"CrashReporter", "DiagnosticReports"};

// Printed text goes to standard output, one line per message.
template <typename... A> void print(const QString& format, const A&... args)
{
    std::puts(fnd::format(format, args...).toUtf8().constData());
    std::fflush(stdout);
}

void showAlert(const QString& messageText, const QString& informativeText)
{
    (void)VLAlert::alertSheetWithMessageText(messageText, informativeText, VLAlert::mainWindow());
}

bool viewLog(const QString& appName, const QString& nameFormat, const QString& missingText)
{
    const QString path = VLLocalPaths::libraryDirectory(true) + QStringLiteral("/Logs/Velmora")
                         + fnd::format(nameFormat, appName);
    if (!QFileInfo::exists(path)) {
        showAlert(QStringLiteral("No log found"), missingText);
        return false;
    }
    return sys::workspace().openFile(path);
}

QStringList entriesOf(const QString& folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                                  QDir::Name);
}

// One gathering: the staging folder and how many files went into it.
class Gathering {
public:
    explicit Gathering(QString staging) : staging_(std::move(staging)) {}

    // Copies folder/name below the staging folder's mirror of `folder`. False after printing
    // "Unable to copy log: ..." when the copy failed.
    bool copyEntry(const QString& folder, const QString& name)
    {
        const QString destinationFolder = staging_ + folder;
        if (!QFileInfo(destinationFolder).isDir())
            QDir().mkpath(destinationFolder); // a failure shows as the copy's own
        QString source = fnd::stringByAppendingPathComponent(folder, name);
        const QFileInfo entry(source);
        if (entry.isSymLink() && entry.exists())
            source = entry.symLinkTarget();
        const QString destination = fnd::stringByAppendingPathComponent(destinationFolder, name);
        if (sys::filetree::exists(destination))
            return true;
        QString error;
        if (!sys::filetree::copyTree(source, destination, &error)) {
            print(QStringLiteral("Unable to copy log: %@"), error);
            return false;
        }
        ++count_;
        return true;
    }

    // Copies `path` as it is below the staging folder's mirror of its parent folder. False after
    // printing "Unable to copy file: ..." when the copy failed.
    bool copyAdditionalFile(const QString& path)
    {
        const QString destinationFolder = staging_ + fnd::stringByDeletingLastPathComponent(path);
        if (!QFileInfo(destinationFolder).isDir())
            (void)VLFileManager::createDirectory(destinationFolder); // a failure shows as the copy's own
        QString error;
        if (!sys::filetree::copyTree(path, fnd::stringByAppendingPathComponent(destinationFolder,
                                                                               fnd::lastPathComponent(path)),
                                     &error)) {
            print(QStringLiteral("Unable to copy file: %@"), error);
            return false;
        }
        ++count_;
        return true;
    }

    bool gatherDomain(bool userDomain, const QStringList& names)
    {
        return gatherLogs(VLLocalPaths::libraryDirectory(userDomain) + QStringLiteral("/Logs/Velmora"), names)
               && gatherCrashReports(VLLocalPaths::logDirectory(userDomain), names)
               && gatherPreferences(VLLocalPaths::prefsDirectory(userDomain), names);
    }

    int count() const { return count_; }

private:
    bool gatherLogs(const QString& folder, const QStringList& names)
    {
        for (const QString& entry : entriesOf(folder)) {
            const bool wanted = entry.endsWith(QStringLiteral(".log"))
                                && std::any_of(names.cbegin(), names.cend(),
                                               [&](const QString& name) { return entry.startsWith(name); });
            if (wanted && !copyEntry(folder, entry))
                return false;
        }
        return true;
    }

    bool gatherCrashReports(const QString& logFolder, const QStringList& names)
    {
        for (const char* sub : kCrashFolders) {
            const QString folder = logFolder + QLatin1Char('/') + QLatin1String(sub);
            for (const QString& entry : entriesOf(folder)) {
                const bool report = entry.endsWith(QStringLiteral(".crash")) || entry.endsWith(QStringLiteral(".ips"));
                const bool wanted = report && std::any_of(names.cbegin(), names.cend(), [&](const QString& name) {
                                        return entry.startsWith(name + QLatin1Char('_'));
                                    });
                if (wanted && !copyEntry(folder, entry))
                    return false;
            }
        }
        return true;
    }

    bool gatherPreferences(const QString& folder, const QStringList& names)
    {
        for (const QString& name : names) {
            const QString compact = QString(name).remove(QLatin1Char(' '));
            QString file = fnd::format(QStringLiteral("com.velmora.%@.plist"), compact);
            if (!sys::filetree::exists(fnd::stringByAppendingPathComponent(folder, file)))
                file = fnd::format(QStringLiteral("com.velmora.%@.plist"), compact.toLower());
            if (sys::filetree::exists(fnd::stringByAppendingPathComponent(folder, file)) && !copyEntry(folder, file))
                return false;
        }
        return true;
    }

    const QString staging_;
    int count_ = 0;
};

// Removes what is at the staging path and makes a new folder there, private to this user: in a
// shared temporary folder nobody else may place or change what goes into the archive.
bool prepareStagingFolder(const QString& staging)
{
    QString error;
    if (sys::filetree::exists(staging) && !sys::filetree::removeTree(staging, &error)) {
        print(QStringLiteral("Error removing existing folder: %@"), error);
        return false;
    }
    QDir().mkpath(fnd::stringByDeletingLastPathComponent(staging));
    if (::mkdir(QFile::encodeName(staging).constData(), 0700) != 0) {
        print(QStringLiteral("Error creating temp folder: %@"), QString::fromLocal8Bit(std::strerror(errno)));
        return false;
    }
    return true;
}

// "<Desktop>/<name> Logs.zip", or with a time stamp when that is taken.
QString archivePath(const QString& firstName)
{
    const QString archive = VLLocalPaths::desktopDirectory() + fnd::format(QStringLiteral("/%@ Logs.zip"), firstName);
    if (!sys::filetree::exists(archive))
        return archive;
    const QString stamp = QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMddHHmmss"));
    return fnd::stringByDeletingPathExtension(archive) + fnd::format(QStringLiteral("_%@.zip"), stamp);
}

} // namespace

bool VLTroubleshootingUtils::viewLogForApp(const QString& appName)
{
    return viewLog(appName, QStringLiteral("/%@.1.log"), QStringLiteral("You must perform a task before viewing the log."));
}

bool VLTroubleshootingUtils::viewTaskLogForApp(const QString& appName)
{
    return viewLog(appName, QStringLiteral("/%@.1.task.log"),
                   QStringLiteral("You must run the application as a task (e.g. through Task Scheduler) before "
                                  "viewing a log."));
}

bool VLTroubleshootingUtils::gatherLogsForAppWithName(const QString& appName)
{
    return gatherLogsForAppsWithNames(QStringList{appName});
}

bool VLTroubleshootingUtils::gatherLogsForAppsWithNames(const QStringList& appNames)
{
    return gatherLogsForAppsWithNames(appNames, false);
}

bool VLTroubleshootingUtils::gatherLogsForAppsWithNames(const QStringList& appNames, bool silent)
{
    return gatherLogsForAppsWithNames(appNames, silent, QStringList());
}

bool VLTroubleshootingUtils::gatherLogsForAppsWithNames(const QStringList& appNames, bool silent,
                                                        const QStringList& additionalFiles)
{
    if (appNames.isEmpty())
        return false;
    const QString staging = stagingFolder();
    if (!prepareStagingFolder(staging))
        return false;

    Gathering gathering(staging);
    for (const bool userDomain : {true, false})
        if (!gathering.gatherDomain(userDomain, appNames))
            return false;
    for (const QString& path : additionalFiles)
        if (!gathering.copyAdditionalFile(path))
            return false;

    if (gathering.count() == 0) {
        if (!silent)
            showAlert(QStringLiteral("No logs found"), QStringLiteral("There were no logs available to gather."));
        return false;
    }
    const bool archived = VLFileManager::compressFile(staging, archivePath(appNames.first()));
    (void)sys::filetree::removeTree(staging); // only the staging folder's own copies are lost
    if (!archived) {
        if (!silent)
            showAlert(QStringLiteral("Logs could not be gathered"), QStringLiteral("Please check your file permissions."));
        return false;
    }
    if (!silent)
        showAlert(QStringLiteral("Logs gathered successfully"),
                  QStringLiteral("The gathered logs were placed on your desktop."));
    return true;
}

QString VLTroubleshootingUtils::stagingFolder() { return VLLocalPaths::tempDirectory() + QStringLiteral("VL_App_Logs"); }
