// Sandbox: running the built executables, fake tools, test archives and ownership.
#include "support/Sandbox.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vltest {

namespace {

// Where the program runs each tool from, relative to the system root.
const char* const kToolPaths[] = {
    "/usr/bin/hdiutil", "/usr/sbin/installer", "/usr/bin/killall",
    "/usr/bin/touch", "/usr/bin/xattr", "/usr/bin/xdg-open", "/usr/bin/pkexec",
    "/usr/sbin/diskutil", "/usr/sbin/chown", "/bin/launchctl", "/bin/rm", "/bin/mv",
    "/bin/cp", "/bin/mkdir", "/bin/chmod", "/usr/bin/systemctl",
};

// Tools that are the machine's own, linked into the system root: archives are real zip files.
const char* const kRealToolPaths[] = {"/usr/bin/zip", "/usr/bin/unzip"};

bool runTool(const QString& program, const QStringList& args)
{
    QProcess p;
    p.start(program, args);
    return p.waitForFinished(30000) && p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0;
}

// Writes `files` (relative path -> data) under `folder`.
bool writeTree(const QString& folder, const QMap<QString, QByteArray>& files)
{
    for (auto it = files.cbegin(); it != files.cend(); ++it) {
        const QString path = folder + QLatin1Char('/') + it.key();
        QDir().mkpath(QFileInfo(path).absolutePath());
        QFile f(path);
        if (!f.open(QIODevice::WriteOnly) || f.write(it.value()) != it.value().size())
            return false;
        // Files under MacOS/ are executables in every bundle the tests build.
        if (it.key().contains(QLatin1String("/MacOS/")))
            f.setPermissions(f.permissions() | QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther);
    }
    return true;
}

bool chownTree(const QString& path, uint uid)
{
    if (::lchown(QFile::encodeName(path).constData(), uid, uid) != 0)
        return false;
    QDirIterator it(path, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext())
        if (::lchown(QFile::encodeName(it.next()).constData(), uid, uid) != 0)
            return false;
    return true;
}

} // namespace

QString RunResult::describe() const
{
    return QStringLiteral("exit %1%2%3\n--- stdout ---\n%4\n--- stderr ---\n%5")
        .arg(exitCode)
        .arg(timedOut ? QStringLiteral(" (timed out)") : QString())
        .arg(crashed ? QStringLiteral(" (crashed)") : QString())
        .arg(out(), err());
}

QString Sandbox::updaterExecutable()
{
    return QStringLiteral(VELMORA_UPDATER_BUNDLE "/Contents/MacOS/SoftwareUpdate");
}

QString Sandbox::helperExecutable()
{
    return QStringLiteral(VELMORA_HELPER_BUNDLE "/Contents/MacOS/SoftwareUpdateHelper");
}

RunResult Sandbox::runUpdater(const QStringList& args, const RunOptions& options) const
{
    return run(updaterExecutable(), args, options);
}

RunResult Sandbox::runHelper(const QStringList& args, const RunOptions& options) const
{
    return run(helperExecutable(), args, options);
}

RunResult Sandbox::run(const QString& program, const QStringList& args, const RunOptions& options) const
{
    QProcessEnvironment env = environment();
    for (const QString& key : options.unsetEnv)
        env.remove(key);
    for (auto it = options.extraEnv.cbegin(); it != options.extraEnv.cend(); ++it)
        env.insert(it.key(), it.value());
    if (options.uid)
        env.insert(QStringLiteral("USER"), QStringLiteral("nobody"));

    QProcess p;
    p.setProcessEnvironment(env);
    p.setWorkingDirectory(options.workingDirectory.isEmpty() ? root() : options.workingDirectory);
    if (options.uid) {
        const uint uid = *options.uid;
        // Runs in the child between fork and exec: only async-signal-safe calls.
        p.setChildProcessModifier([uid] {
            if (::setgroups(0, nullptr) != 0 || ::setgid(uid) != 0 || ::setuid(uid) != 0)
                ::_exit(126);
        });
    }
    RunResult result;
    p.start(program, args);
    if (!p.waitForStarted(10000)) {
        result.stderrData = p.errorString().toUtf8();
        return result;
    }
    result.started = true;
    if (!options.stdinData.isEmpty())
        p.write(options.stdinData);
    p.closeWriteChannel();
    if (!p.waitForFinished(options.timeoutMs)) {
        result.timedOut = true;
        p.kill();
        p.waitForFinished(5000);
    }
    result.stdoutData = p.readAllStandardOutput();
    result.stderrData = p.readAllStandardError();
    result.crashed = !result.timedOut && p.exitStatus() == QProcess::CrashExit;
    if (!result.timedOut && !result.crashed)
        result.exitCode = p.exitCode();
    return result;
}

bool Sandbox::installFakeTools()
{
    const QString script = QStringLiteral(VELMORA_SOURCE_DIR "/scripts/fake-tools/faketool.py");
    for (const char* tool : kToolPaths) {
        const QString target = sysPath(QLatin1String(tool));
        QDir().mkpath(QFileInfo(target).absolutePath());
        QFile::remove(target);
        // A copy, not a link: the tool is named after the path it is run as.
        if (!QFile::copy(script, target))
            return false;
        QFile(target).setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadGroup
                                     | QFile::ExeGroup | QFile::ReadOther | QFile::ExeOther);
    }
    for (const char* tool : kRealToolPaths) {
        const QString target = sysPath(QLatin1String(tool));
        QFile::remove(target);
        if (!QFile::link(QLatin1String(tool), target))
            return false;
    }
    // Unprivileged runs record their calls and attach volumes too.
    QFile log(toolLogPath());
    if (!log.open(QIODevice::Append))
        return false;
    log.close();
    ::chmod(QFile::encodeName(toolLogPath()).constData(), 0666);
    ::chmod(QFile::encodeName(sysPath(QStringLiteral("/Volumes"))).constData(), 01777);
    return true;
}

QList<QStringList> Sandbox::toolCalls(const QString& tool) const
{
    QList<QStringList> calls;
    QFile f(toolLogPath());
    if (!f.open(QIODevice::ReadOnly))
        return calls;
    for (const QByteArray& line : f.readAll().split('\n')) {
        const QJsonObject o = QJsonDocument::fromJson(line).object();
        if (o.isEmpty() || (!tool.isEmpty() && o.value(QStringLiteral("tool")).toString() != tool))
            continue;
        QStringList argv;
        for (const QJsonValue& v : o.value(QStringLiteral("argv")).toArray())
            argv << v.toString();
        calls << argv;
    }
    return calls;
}

bool Sandbox::makeDiskImage(const QString& archivePath, const QString& volumeName,
                            const QMap<QString, QByteArray>& files)
{
    QTemporaryDir staging;
    if (!staging.isValid() || !writeTree(staging.path() + QLatin1Char('/') + volumeName, files))
        return false;
    QDir().mkpath(QFileInfo(archivePath).absolutePath());
    return runTool(QStringLiteral("/bin/tar"), {QStringLiteral("-C"), staging.path(), QStringLiteral("-cf"),
                                                archivePath, volumeName});
}

bool Sandbox::makePackage(const QString& packagePath, const QMap<QString, QByteArray>& payloadFiles)
{
    QTemporaryDir staging;
    if (!staging.isValid() || !writeTree(staging.path() + QStringLiteral("/payload"), payloadFiles))
        return false;
    QDir().mkpath(QFileInfo(packagePath).absolutePath());
    return runTool(QStringLiteral("/bin/tar"), {QStringLiteral("-C"), staging.path(), QStringLiteral("-cf"),
                                                packagePath, QStringLiteral("payload")});
}

bool Sandbox::giveHomeTo(uint uid)
{
    return chownTree(home(), uid) && chownTree(tmp(), uid);
}

std::optional<uint> Sandbox::unprivilegedUid()
{
    if (::geteuid() != 0)
        return std::nullopt;
    return 65534u;
}

} // namespace vltest
