// Sandbox: running programs, fake tools, test archives and ownership.
#include "support/ChildProcess.h"
#include "support/Sandbox.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

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

// A tar of `files` (relative path -> data) under `top` in `archivePath`.
bool makeTar(const QString& archivePath, const QString& top, const QMap<QString, QByteArray>& files)
{
    QTemporaryDir staging;
    if (!staging.isValid())
        return false;
    for (auto it = files.cbegin(); it != files.cend(); ++it) {
        // Files under MacOS/ are executables in every bundle the tests build.
        if (!Sandbox::writeFile(staging.filePath(top + QLatin1Char('/') + it.key()), it.value(),
                                it.key().contains(QLatin1String("/MacOS/"))))
            return false;
    }
    QDir().mkpath(QFileInfo(archivePath).absolutePath());
    return runToSuccess(QStringLiteral("/bin/tar"), {QStringLiteral("-C"), staging.path(), QStringLiteral("-cf"), archivePath, top});
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

QString Sandbox::helperExecutable()
{
    return QStringLiteral(VELMORA_HELPER_BUNDLE "/Contents/MacOS/SoftwareUpdateHelper");
}

RunResult Sandbox::runUpdater(const QStringList& args, const RunOptions& options) const
{
    return run(QStringLiteral(VELMORA_UPDATER_BUNDLE "/Contents/MacOS/SoftwareUpdate"), args, options);
}

RunResult Sandbox::runHelper(const QStringList& args, const RunOptions& options) const
{
    return run(helperExecutable(), args, options);
}

bool Sandbox::start(ChildProcess& child, const QString& program, const QStringList& args, const RunOptions& options) const
{
    Environment env = environment();
    env.insert(options.extraEnv);
    if (options.uid)
        env.insert(QStringLiteral("USER"), QStringLiteral("nobody"));
    ChildOptions childOptions;
    childOptions.environment = env.toStringList();
    childOptions.workingDirectory = options.workingDirectory.isEmpty() ? root() : options.workingDirectory;
    childOptions.uid = options.uid;
    return child.start(program, args, childOptions);
}

RunResult Sandbox::run(const QString& program, const QStringList& args, const RunOptions& options) const
{
    RunResult result;
    ChildProcess p;
    if (!start(p, program, args, options)) {
        result.stderrData = p.errorString().toUtf8();
        return result;
    }
    result.timedOut = !p.waitForFinished(options.timeoutMs);
    if (result.timedOut) {
        p.kill();
        (void)p.waitForFinished(5000);
    }
    result.stdoutData = p.standardOutput();
    result.stderrData = p.standardError();
    result.crashed = !result.timedOut && p.crashed();
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
        if (!QFile::copy(script, target) || ::chmod(QFile::encodeName(target).constData(), 0755) != 0)
            return false;
    }
    for (const char* tool : kRealToolPaths) {
        const QString target = sysPath(QLatin1String(tool));
        QFile::remove(target);
        if (!QFile::link(QLatin1String(tool), target))
            return false;
    }
    // Unprivileged runs record their calls and attach volumes too.
    return writeFile(toolLogPath(), {}) && ::chmod(QFile::encodeName(toolLogPath()).constData(), 0666) == 0
        && ::chmod(QFile::encodeName(sysPath(QStringLiteral("/Volumes"))).constData(), 01777) == 0;
}

QList<QStringList> Sandbox::toolCalls(const QString& tool) const
{
    QList<QStringList> calls;
    for (const QByteArray& line : readFile(toolLogPath()).split('\n')) {
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

bool Sandbox::makeDiskImage(const QString& archivePath, const QString& volumeName, const QMap<QString, QByteArray>& files)
{
    return makeTar(archivePath, volumeName, files);
}

bool Sandbox::makePackage(const QString& packagePath, const QMap<QString, QByteArray>& payloadFiles)
{
    return makeTar(packagePath, QStringLiteral("payload"), payloadFiles);
}

bool Sandbox::giveHomeTo(uint uid) { return chownTree(home(), uid) && chownTree(tmp(), uid); }

std::optional<uint> Sandbox::unprivilegedUid()
{
    if (::geteuid() != 0)
        return std::nullopt;
    return 65534u;
}

} // namespace vltest
