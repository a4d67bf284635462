#include "shared/VLBugReporter.h"

#include "platform/plist/PropertyList.h"
#include "platform/system/Bundle.h"
#include "platform/system/SystemEnvironment.h"
#include "platform/system/UserDefaults.h"
#include "platform/system/Workspace.h"
#include "shared/VLLocalPaths.h"
#include "shared/VLLog.h"
#include "shared/VLTaskEx.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QPointer>

#include <algorithm>

// Choices made where the platform has no direct counterpart:
// - "Listing order" is the folder's entry names sorted by UTF-16 code unit, so crash
//   reports named "<App>_<date>..." list oldest first and the newest is the last.
// - "disable-crash-reporter" is read from the vendor's shared preferences file, as the log
//   reads "disable-logging": on for the text "1", the boolean YES, or the number 1 (a number
//   1 equals YES where the setting comes from).
// - Opening the report with a Bug Reporter application starts that bundle's executable with
//   the report's path as its argument, not waited for. Without one in or beside the running
//   application, the application with identifier "com.velmora.BugReporter" is looked up in the
//   user's and the machine's Applications folders (and their Utilities); when none is found
//   the report goes to the workspace's opener, which picks the application for it.

namespace {

const char* const kCrashFolders[] = {"CrashReporter", "DiagnosticReports"};

QString bugReporterIdentifier() { return QStringLiteral("com.velmora.BugReporter"); }

std::optional<QDateTime> dateFrom(const QVariant& value)
{
    if (value.typeId() != QMetaType::QDateTime || !value.toDateTime().isValid())
        return std::nullopt;
    return value.toDateTime();
}

// The two dates, from the file at plistPath or from the user defaults.
std::pair<std::optional<QDateTime>, std::optional<QDateTime>> recordedDates(const QString& plistPath)
{
    if (plistPath.isEmpty()) {
        auto& defaults = sys::UserDefaults::standard();
        return {defaults.dateForKey(VLBugReporter::launchKey()), defaults.dateForKey(VLBugReporter::exitKey())};
    }
    const QVariantMap dates = plist::readDictionaryFile(plistPath).value_or(QVariantMap());
    return {dateFrom(dates.value(VLBugReporter::launchKey())), dateFrom(dates.value(VLBugReporter::exitKey()))};
}

void recordDate(const QString& key, const QString& plistPath)
{
    const QDateTime now = QDateTime::currentDateTimeUtc();
    if (plistPath.isEmpty()) {
        auto& defaults = sys::UserDefaults::standard();
        defaults.setObject(now, key);
        if (!defaults.synchronize())
            VLLog::appendLog(QStringLiteral("Unable to save the %@ date"), key);
        return;
    }
    QVariantMap dates = plist::readDictionaryFile(plistPath).value_or(QVariantMap());
    dates.insert(key, now);
    QString error;
    if (!plist::writeXmlFileAtomically(dates, plistPath, &error))
        VLLog::appendLog(QStringLiteral("Unable to write %@: %@"), plistPath, error);
    VLBugReporter::chownPlist(plistPath);
}

// The last entry of `folder` in listing order whose name begins with "<appName>_" (any case).
std::optional<QString> lastReportIn(const QString& folder, const QString& appName)
{
    QStringList names = QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    std::sort(names.begin(), names.end(), [](const QString& a, const QString& b) { return a.compare(b) < 0; });
    const QString prefix = appName + QLatin1Char('_');
    for (auto it = names.crbegin(); it != names.crend(); ++it)
        if (it->startsWith(prefix, Qt::CaseInsensitive))
            return QDir(folder).filePath(*it);
    return std::nullopt;
}

std::optional<QString> newestReportSince(const QDateTime& launch, const QString& appName)
{
    for (bool userDomain : {true, false}) {
        for (const char* sub : kCrashFolders) {
            const QString folder = VLLocalPaths::logDirectory(userDomain) + QLatin1Char('/') + QLatin1String(sub);
            const auto report = lastReportIn(folder, appName);
            if (report && QFileInfo(*report).lastModified() > launch)
                return report;
        }
    }
    return std::nullopt;
}

std::optional<QString> bugReporterBesideApplication()
{
    const sys::Bundle app = sys::Bundle::mainBundle();
    const QStringList candidates{
        app.resourcePath() + QStringLiteral("/Bug Reporter.app"),
        QCoreApplication::applicationDirPath() + QStringLiteral("/Bug Reporter.app"),
        app.bundlePath() + QStringLiteral("/Contents/MacOS/Bug Reporter.app"),
    };
    for (const QString& path : candidates)
        if (QFileInfo(path).isDir())
            return path;
    return std::nullopt;
}

// Looked up as the workspace does: the bundles are read, not opened in this process, so they
// never become findable by identifier for the updater's own lookups.
std::optional<QString> bugReporterByIdentifier()
{
    for (bool userDomain : {true, false}) {
        const QString apps = VLLocalPaths::applicationDirectory(userDomain);
        for (const QString& folder : {apps, apps + QStringLiteral("/Utilities")}) {
            for (const QString& name : QDir(folder).entryList({QStringLiteral("*.app")}, QDir::Dirs)) {
                const auto bundle = sys::Bundle::readWithoutOpening(QDir(folder).filePath(name));
                if (bundle && bundle->bundleIdentifier() == bugReporterIdentifier())
                    return bundle->bundlePath();
            }
        }
    }
    return std::nullopt;
}

void openReport(const QString& report)
{
    auto app = bugReporterBesideApplication();
    if (!app)
        app = bugReporterByIdentifier();
    const auto bundle = app ? sys::Bundle::readWithoutOpening(*app) : std::nullopt;
    if (const auto executable = bundle ? bundle->executablePath() : std::nullopt) {
        VLTaskEx::runTaskAndReturn(*executable, {report});
        return;
    }
    // No Bug Reporter installed: the desktop opener picks the application for the report.
    if (!sys::workspace().openFile(report))
        VLLog::appendLog(QStringLiteral("Unable to open the crash report %@"), report);
}

void tellDelegate(QObject* delegate, const QString& report)
{
    const QByteArray signature = QMetaObject::normalizedSignature("applicationDidCrashWithLog(QString)");
    if (!delegate || delegate->metaObject()->indexOfMethod(signature.constData()) < 0)
        return;
    QPointer<QObject> target(delegate);
    auto call = [target, report] {
        if (target)
            QMetaObject::invokeMethod(target.data(), "applicationDidCrashWithLog", Qt::DirectConnection,
                                      Q_ARG(QString, report));
    };
    // Queued to the main thread so that the caller never waits for the delegate.
    if (QCoreApplication::instance())
        QMetaObject::invokeMethod(QCoreApplication::instance(), call, Qt::QueuedConnection);
    else
        call();
}

} // namespace

void VLBugReporter::startBugReporter() { startBugReporter(QString(), QString(), nullptr); }

void VLBugReporter::startBugReporterWithDelegate(QObject* delegate) { startBugReporter(QString(), QString(), delegate); }

void VLBugReporter::startBugReporter(const QString& appName, const QString& plistPath)
{
    startBugReporter(appName, plistPath, nullptr);
}

void VLBugReporter::startBugReporter(const QString& appName, const QString& plistPath, QObject* delegate)
{
    if (const auto report = checkForCrashes(appName, plistPath))
        tellDelegate(delegate, *report);
    recordDate(launchKey(), plistPath);
}

void VLBugReporter::stopBugReporter() { stopBugReporter(QString()); }

void VLBugReporter::stopBugReporter(const QString& plistPath) { recordDate(exitKey(), plistPath); }

std::optional<QString> VLBugReporter::checkForCrashes() { return checkForCrashes(QString(), QString()); }

std::optional<QString> VLBugReporter::checkForCrashes(const QString& appName, const QString& plistPath)
{
    const auto [launch, exit] = recordedDates(plistPath);
    if (!launch || (exit && *exit >= *launch))
        return std::nullopt;
    QString name = appName;
    if (name.isEmpty())
        name = sys::Bundle::mainBundle().objectForInfoDictionaryKey(QStringLiteral("CFBundleName")).toString();
    if (name.isEmpty())
        return std::nullopt; // no name to match reports against: nothing can be attributed
    const auto report = newestReportSince(*launch, name);
    if (!report)
        return std::nullopt;
    VLLog::appendLog(QStringLiteral("Application crashed on last launch"));
    if (sys::globalSwitchIsOn(QStringLiteral("disable-crash-reporter"))) {
        VLLog::appendLogAndPrint(QStringLiteral("Crash reporter disabled"));
        return report;
    }
    openReport(*report);
    return report;
}

void VLBugReporter::chownPlist(const QString& path)
{
    const QStringList parts = path.split(QLatin1Char('/'), Qt::SkipEmptyParts);
    const qsizetype users = parts.indexOf(QStringLiteral("Users"));
    if (users < 0 || users + 1 >= parts.size())
        return;
    VLTaskEx::runTaskTimeout(sys::rooted(QStringLiteral("/usr/sbin/chown")), {parts.at(users + 1), path}, 5);
}
