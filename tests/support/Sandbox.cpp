// Sandbox: the tree, files, fake tools, test archives, ownership and running programs.
#include "support/Sandbox.h"

#include "platform/plist/PropertyList.h"
#include "support/ChildProcess.h"
#include "support/FixturePlist.h"
#include "support/TestServer.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTextStream>

#include <sys/stat.h>
#include <unistd.h>

extern char** environ;

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


const char* const kLayout[] = {
    "home/Library/Preferences", "home/Library/Logs", "home/Library/Application Support",
    "home/Library/PreferencePanes", "home/Desktop", "home/Applications", "home/.Trash", "tmp",
    "sysroot/Applications", "sysroot/Library/Preferences", "sysroot/Library/Logs",
    "sysroot/Library/PreferencePanes", "sysroot/Library/Application Support",
    "sysroot/Users/Shared", "sysroot/Volumes", "sysroot/System/Library/CoreServices",
    "sysroot/usr/bin", "sysroot/usr/sbin", "sysroot/bin",
};

} // namespace

Sandbox::Sandbox(const QString& osVersion) : dir_(std::make_unique<QTemporaryDir>())
{
    if (!dir_->isValid())
        return;
    // Readable by everyone, so a run under an unprivileged uid can reach the tree.
    ::chmod(QFile::encodeName(dir_->path()).constData(), 0755);
    for (const char* folder : kLayout)
        QDir().mkpath(root() + QLatin1Char('/') + QLatin1String(folder));
    if (!writePlist(sysPath(QStringLiteral("/System/Library/CoreServices/SystemVersion.plist")),
                    QVariantMap{{QStringLiteral("ProductName"), QStringLiteral("macOS")},
                                {QStringLiteral("ProductVersion"), osVersion}}))
        qWarning("sandbox: could not write SystemVersion.plist");
}

Sandbox::~Sandbox()
{
    if (dir_ && qEnvironmentVariableIsSet("VELMORA_KEEP_SANDBOX")) {
        dir_->setAutoRemove(false);
        QTextStream(stderr) << "sandbox kept at " << dir_->path() << '\n';
    }
}

bool Sandbox::isValid() const { return dir_->isValid(); }
QString Sandbox::root() const { return dir_->path(); }
QString Sandbox::home() const { return root() + QStringLiteral("/home"); }
QString Sandbox::tmp() const { return root() + QStringLiteral("/tmp"); }
QString Sandbox::sysroot() const { return root() + QStringLiteral("/sysroot"); }
QString Sandbox::sysPath(const QString& absolutePath) const { return sysroot() + absolutePath; }
QString Sandbox::homePath(const QString& relativePath) const { return home() + QLatin1Char('/') + relativePath; }
QString Sandbox::tmpPath(const QString& relativePath) const { return tmp() + QLatin1Char('/') + relativePath; }

bool Sandbox::makeDir(const QString& path) { return QDir().mkpath(path); }

bool Sandbox::writeFile(const QString& path, const QByteArray& data, bool executable)
{
    if (!QDir().mkpath(QFileInfo(path).absolutePath()))
        return false;
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate) || f.write(data) != data.size())
        return false;
    f.close();
    if (executable)
        return f.setPermissions(f.permissions() | QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther);
    return true;
}

bool Sandbox::writePlist(const QString& path, const QVariant& value) { return writeFile(path, fixturePlistXml(value)); }

QByteArray Sandbox::readFile(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

std::optional<QVariant> Sandbox::readPlist(const QString& path) { return plist::readFile(path); }

QString Sandbox::userPreferencesFile(const QString& domain) const
{
    return homePath(QStringLiteral("Library/Preferences/") + domain + QStringLiteral(".plist"));
}

bool Sandbox::writeUserDefaults(const QString& domain, const QVariantMap& values)
{
    return writePlist(userPreferencesFile(domain), values);
}

QString Sandbox::createBundle(const FakeBundle& bundle)
{
    if (bundle.path.isEmpty())
        return {};
    const QString name = bundle.name.isEmpty() ? QFileInfo(bundle.path).completeBaseName() : bundle.name;
    QVariantMap info{{QStringLiteral("CFBundleName"), name},
                     {QStringLiteral("CFBundleExecutable"), name},
                     {QStringLiteral("CFBundlePackageType"), QStringLiteral("APPL")}};
    const std::pair<const char*, QString> optional[] = {
        {"CFBundleIdentifier", bundle.identifier}, {"CFBundleVersion", bundle.version},
        {"CFBundleShortVersionString", bundle.shortVersion}};
    for (const auto& [key, value] : optional)
        if (!value.isEmpty())
            info.insert(QLatin1String(key), value);
    info.insert(bundle.extraInfo);
    const QString contents = bundle.path + QStringLiteral("/Contents");
    if (!writePlist(contents + QStringLiteral("/Info.plist"), info))
        return {};
    if (bundle.updates && !writePlist(contents + QStringLiteral("/Resources/VLUpdates.plist"), *bundle.updates))
        return {};
    const QString exe = contents + QStringLiteral("/MacOS/") + name;
    if (!bundle.executable.isEmpty())
        return writeFile(exe, bundle.executable, true) ? bundle.path : QString();
    // A real binary inside the bundle, so a running copy is found by its executable path.
    QDir().mkpath(contents + QStringLiteral("/MacOS"));
    QFile::remove(exe);
    return QFile::copy(QStringLiteral("/bin/sleep"), exe) ? bundle.path : QString();
}

void Sandbox::useServer(const TestServer& server)
{
    setEnv(QStringLiteral("VELMORA_UPDATE_SERVER"), server.baseUrl());
    setEnv(QStringLiteral("VELMORA_WEB_SITE"), server.baseUrl() + QLatin1Char('/'));
    setEnv(QStringLiteral("VELMORA_CA_FILE"), server.caFile());
}

void Sandbox::setEnv(const QString& name, const QString& value) { env_.insert(name, value); }

QStringList Environment::toStringList() const
{
    QStringList entries;
    for (auto it = cbegin(); it != cend(); ++it)
        entries << it.key() + QLatin1Char('=') + it.value();
    return entries;
}

Environment Sandbox::environment() const
{
    Environment env;
    for (char** entry = environ; *entry; ++entry) {
        const QString text = QFile::decodeName(*entry);
        const QString key = text.section(QLatin1Char('='), 0, 0);
        // Neither the test's own settings nor its display reach the run.
        if (!key.startsWith(QLatin1String("VELMORA_")) && !key.startsWith(QLatin1String("FAKE_"))
            && key != QLatin1String("DISPLAY") && key != QLatin1String("WAYLAND_DISPLAY")
            && key != QLatin1String("QT_QPA_PLATFORM"))
            env.insert(key, text.section(QLatin1Char('='), 1));
    }
    env.insert(QStringLiteral("HOME"), home());
    env.insert(QStringLiteral("TMPDIR"), tmp());
    env.insert(QStringLiteral("VELMORA_SYSROOT"), sysroot());
    env.insert(QStringLiteral("FAKE_TOOL_LOG"), toolLogPath());
    env.insert(env_);
    return env;
}

QString Sandbox::toolLogPath() const { return sysroot() + QStringLiteral("/tool-calls.log"); }

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
    result.timedOut = !p.waitForFinished(120000);
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
    QTemporaryDir staging;
    if (!staging.isValid())
        return false;
    for (auto it = files.cbegin(); it != files.cend(); ++it) {
        // Files under MacOS/ are executables in every bundle the tests build.
        if (!writeFile(staging.filePath(volumeName + QLatin1Char('/') + it.key()), it.value(),
                       it.key().contains(QLatin1String("/MacOS/"))))
            return false;
    }
    return makeDir(QFileInfo(archivePath).absolutePath())
        && runToSuccess(QStringLiteral("/bin/tar"), {QStringLiteral("-C"), staging.path(), QStringLiteral("-cf"), archivePath, volumeName});
}

bool Sandbox::giveHomeTo(uint uid) { return chownTree(home(), uid) && chownTree(tmp(), uid); }

std::optional<uint> Sandbox::unprivilegedUid()
{
    if (::geteuid() != 0)
        return std::nullopt;
    return 65534u;
}

} // namespace vltest
