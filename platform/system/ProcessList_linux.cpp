// Running processes from /proc. Only processes of the calling user are looked at (the
// platform lists the applications of the user's login session); other users' processes are
// skipped even when /proc would let a superuser read them.

#include "platform/system/ProcessList.h"

#include "platform/system/Bundle.h"

#include <QDir>
#include <QFileInfo>
#include <QMap>

#include <algorithm>
#include <csignal>
#include <sys/stat.h>
#include <unistd.h>

namespace sys {

namespace {

struct ProcessEntry {
    pid_t pid = 0;
    QString executable;
};

// The executable of one process; "" when it cannot be read (another user's, a kernel
// thread, or gone). A replaced or removed executable reads as "<path> (deleted)": the
// marker is dropped so that the process still answers to the path it was started from.
QString executableOf(const QString& pidFolder)
{
    QString target = QFile::symLinkTarget(pidFolder + QStringLiteral("/exe"));
    const QString deleted = QStringLiteral(" (deleted)");
    if (target.endsWith(deleted))
        target.chop(deleted.size());
    return target;
}

QList<ProcessEntry> userProcesses()
{
    QList<ProcessEntry> entries;
    const uid_t me = getuid();
    const QStringList names = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& name : names) {
        bool numeric = false;
        const long pid = name.toLong(&numeric);
        if (!numeric || pid <= 0)
            continue;
        const QString folder = QStringLiteral("/proc/") + name;
        struct stat info {};
        if (::stat(QFile::encodeName(folder).constData(), &info) != 0 || info.st_uid != me)
            continue;
        const QString executable = executableOf(folder);
        if (!executable.isEmpty())
            entries.append({static_cast<pid_t>(pid), executable});
    }
    std::sort(entries.begin(), entries.end(), [](const ProcessEntry& a, const ProcessEntry& b) { return a.pid < b.pid; });
    return entries;
}

// X.app for an executable in X.app/Contents/MacOS/; "" otherwise.
QString applicationBundleOf(const QString& executable)
{
    const QString folder = QFileInfo(executable).path();
    const QString macOSFolder = QStringLiteral("/Contents/MacOS");
    if (!folder.endsWith(macOSFolder))
        return {};
    const QString bundle = folder.left(folder.size() - macOSFolder.size());
    if (!bundle.endsWith(QStringLiteral(".app"), Qt::CaseInsensitive) || bundle.size() <= 4)
        return {};
    return bundle;
}

RunningApplication describeApplication(const QString& bundlePath)
{
    RunningApplication app;
    app.path = bundlePath;
    QString folderName = QFileInfo(bundlePath).fileName();
    folderName.chop(4); // ".app", checked by applicationBundleOf
    app.name = folderName;
    if (const auto bundle = Bundle::readWithoutOpening(bundlePath)) {
        const QVariant name = bundle->objectForInfoDictionaryKey(QStringLiteral("CFBundleName"));
        if (name.typeId() == QMetaType::QString && !name.toString().isEmpty())
            app.name = name.toString();
        app.identifier = bundle->bundleIdentifier().value_or(QString());
    }
    return app;
}

} // namespace

QList<RunningApplication> launchedApplications()
{
    QList<RunningApplication> apps;
    QMap<QString, qsizetype> indexByPath;
    for (const ProcessEntry& process : userProcesses()) {
        const QString bundle = applicationBundleOf(process.executable);
        if (bundle.isEmpty())
            continue;
        auto found = indexByPath.constFind(bundle);
        if (found == indexByPath.constEnd()) {
            found = indexByPath.insert(bundle, apps.size());
            apps.append(describeApplication(bundle));
        }
        apps[found.value()].pids.append(process.pid);
    }
    return apps;
}

bool isApplicationRunning(const QString& bundleIdentifier)
{
    if (bundleIdentifier.isEmpty())
        return false;
    for (const RunningApplication& app : launchedApplications()) {
        if (app.identifier == bundleIdentifier)
            return true;
    }
    return false;
}

QStringList processExecutablePaths()
{
    QStringList paths;
    for (const ProcessEntry& process : userProcesses())
        paths.append(process.executable);
    return paths;
}

int sendTerminate(const QString& bundlePath)
{
    int signalled = 0;
    for (const RunningApplication& app : launchedApplications()) {
        if (app.path != bundlePath)
            continue;
        for (pid_t pid : app.pids) {
            if (::kill(pid, SIGTERM) == 0)
                ++signalled;
        }
    }
    return signalled;
}

} // namespace sys
