#include "support/Sandbox.h"

#include "platform/plist/PropertyList.h"
#include "support/FixturePlist.h"
#include "support/TestServer.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTextStream>

#include <sys/stat.h>

extern char** environ;

namespace vltest {

namespace {

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
    const QString descriptor = contents + (bundle.updatesInResources ? QStringLiteral("/Resources") : QString())
        + QStringLiteral("/VLUpdates.plist");
    if (bundle.updates && !writePlist(descriptor, *bundle.updates))
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

} // namespace vltest
