#pragma once
// VLBugReporter: notices that the previous run of an application crashed and hands the newest
// crash report to the vendor's "Bug Reporter" application.
//
// State lives outside the class: two dates per application, "launch" (written when the
// application starts, after the check) and "exit" (written when it ends normally), kept in the
// application's standard user defaults, or, when a property-list path is given, in that file
// (a dictionary with the two keys). A run that never wrote "exit" leaves "exit" earlier than
// "launch"; the next start then looks for a crash report newer than "launch".
//
// Static members only; call from one thread at a time per application (normally the main
// thread at start and at termination). Nothing here fails loudly: unreadable folders or
// files simply yield no report.

#include <QObject>
#include <QString>
#include <optional>

class VLBugReporter {
public:
    VLBugReporter() = delete;

    // Forward to the longest form with an empty name (use the main bundle's CFBundleName),
    // no property-list path (use the user defaults) and no delegate.
    static void startBugReporter();
    static void startBugReporterWithDelegate(QObject* delegate);
    static void startBugReporter(const QString& appName, const QString& plistPath);
    // Runs the crash check; when it finds a report and `delegate` has an invokable
    // applicationDidCrashWithLog(QString), queues that call to the delegate's thread without
    // waiting (the delegate is not owned and must outlive the queued call). Then records
    // "launch" = now. Empty appName / plistPath mean "none".
    static void startBugReporter(const QString& appName, const QString& plistPath, QObject* delegate);

    // Record "exit" = now (in the user defaults, or in the file at plistPath).
    static void stopBugReporter();
    static void stopBugReporter(const QString& plistPath);

    // The newest crash report of the previous run, or nullopt when that run ended normally or
    // left no report newer than its launch. Opens the report with the Bug Reporter unless the
    // setting "disable-crash-reporter" is on.
    [[nodiscard]] static std::optional<QString> checkForCrashes();
    [[nodiscard]] static std::optional<QString> checkForCrashes(const QString& appName, const QString& plistPath);

    // Gives the file back to the user whose home folder ("/Users/<name>/...") holds it, through
    // <root>/usr/sbin/chown with a 5-second time-out; other paths are left alone.
    static void chownPlist(const QString& path);

    // The keys of the two dates.
    static QString launchKey() { return QStringLiteral("launch"); }
    static QString exitKey() { return QStringLiteral("exit"); }
};
