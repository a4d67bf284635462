#pragma once
// VLTroubleshootingUtils: shows an application's log with the default application, and gathers
// an application's logs, crash reports and preference files into a zip archive on the desktop
// for the vendor's support.
//
// Gathering copies into a staging folder, <temporary folder>VL_App_Logs, that mirrors where
// each file came from (its source folder's full path below the staging folder), in two passes:
// the user's domain, then the machine's. Per pass: logs in <Library>/Logs/Velmora whose names
// begin with an application name and end in ".log"; crash reports in <Logs>/CrashReporter and
// <Logs>/DiagnosticReports named "<name>_..." ending in ".crash" or ".ips"; the preference file
// "com.velmora.<name without spaces>.plist", else the same name in lower case. A symbolic link
// whose target exists is gathered as its target; a dangling one as the link itself. Then any
// additional files. The staging folder becomes "<Desktop>/<first name> Logs.zip", or, when that
// exists, "<Desktop>/<first name> Logs_<YYYYmmddHHMMSS>.zip" (local time); the first is kept.
// Nothing but the staging folder and the new archive is written; sources are only read.
//
// Messages: failures print one line on standard output ("Error removing existing folder: ...",
// "Error creating temp folder: ...", "Unable to copy log: ...", "Unable to copy file: ...") and
// end the operation with false, leaving the staging folder behind. Unless silent, the user is
// told the outcome with an alert on the main window (VLAlert, which blocks until answered).
//
// Static members only, no state. They run on the calling thread (any thread); alerts go
// through VLAlert to the main thread.

#include <QString>
#include <QStringList>

class VLTroubleshootingUtils {
public:
    VLTroubleshootingUtils() = delete;

    // Opens <user Library>/Logs/Velmora/<appName>.1.log with the desktop's default application.
    // A missing log shows "No log found" and returns false; otherwise whether the opener started.
    static bool viewLogForApp(const QString& appName);
    // The same for <appName>.1.task.log, the log of windowless runs.
    static bool viewTaskLogForApp(const QString& appName);

    // Forward to the longest form: one name, not silent, no additional files.
    static bool gatherLogsForAppWithName(const QString& appName);
    static bool gatherLogsForAppsWithNames(const QStringList& appNames);
    static bool gatherLogsForAppsWithNames(const QStringList& appNames, bool silent);
    // True when an archive was made. An empty name list returns false at once. Each additional
    // file is copied as it is (a link stays a link) and must not be among what was already
    // gathered: a copy onto an existing file fails like any other.
    [[nodiscard]] static bool gatherLogsForAppsWithNames(const QStringList& appNames, bool silent,
                                                         const QStringList& additionalFiles);

    // The staging folder, <temporary folder>VL_App_Logs.
    static QString stagingFolder();
};
