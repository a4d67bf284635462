// Standard folders and path tests. The superuser correction and the system-folder trim keep
// their odd cuts on purpose: the vendor's applications compute the same answers and must agree.

#include "shared/VLLocalPaths.h"

#include "platform/foundation/Foundation.h"
#include "platform/system/SystemEnvironment.h"

#include <QStringList>
#include <QUuid>

#include <cstdlib>
#include <ctime>
#include <pwd.h>
#include <unistd.h>

namespace {

QString joinPath(const QString& base, const QString& component)
{
    return fnd::stringByAppendingPathComponent(base, component);
}

QString folderName(VLLocalPaths::DirectoryKind kind)
{
    using K = VLLocalPaths::DirectoryKind;
    switch (kind) {
    case K::Application: return QStringLiteral("Applications");
    case K::AdminApplication: return QStringLiteral("Applications/Utilities");
    case K::Document: return QStringLiteral("Documents");
    case K::Library: return QStringLiteral("Library");
    case K::Caches: return QStringLiteral("Library/Caches");
    case K::ApplicationSupport: return QStringLiteral("Library/Application Support");
    case K::Movies: return QStringLiteral("Movies");
    case K::Desktop: return QStringLiteral("Desktop");
    case K::Documentation: return QStringLiteral("Library/Documentation");
    }
    return {};
}

// The home the standard-folder search uses: the superuser's is /var/root, as on the Mac
// layout this program expects, whatever HOME says; the superuser correction then re-bases
// those paths on HOME. Everyone else's is HOME.
QString searchHome()
{
    return getuid() == 0 ? QStringLiteral("/var/root") : sys::homeDirectory();
}

// The platform's standard-folder search: every folder of the kind in the domain, "~" expanded.
QStringList searchStandardFolders(VLLocalPaths::DirectoryKind kind, VLLocalPaths::Domain domain)
{
    const QString folder = folderName(kind);
    if (folder.isEmpty())
        return {};
    switch (domain) {
    case VLLocalPaths::Domain::User: return {joinPath(searchHome(), folder)};
    case VLLocalPaths::Domain::Local: return {sys::rooted(QLatin1Char('/') + folder)};
    case VLLocalPaths::Domain::System: return {sys::rooted(QStringLiteral("/System/") + folder)};
    }
    return {};
}

VLLocalPaths::Domain domainFor(bool userDomain)
{
    return userDomain ? VLLocalPaths::Domain::User : VLLocalPaths::Domain::Local;
}

QString directory(VLLocalPaths::DirectoryKind kind, VLLocalPaths::Domain domain)
{
    return VLLocalPaths::pathForDirectory(kind, domain).value_or(QString());
}

const QString kAlphabet = QStringLiteral("abcdefghijklmnopqrstuvwxyz0123456789");

} // namespace

QString VLLocalPaths::correctedUserPath(const QString& foundPath, unsigned userId, const QString& home)
{
    if (userId != 0)
        return foundPath;
    QString rest = foundPath;
    if (rest.startsWith(QStringLiteral("/var/root")))
        rest = rest.mid(9);
    // 16, one fewer than the prefix's length: the prefix's last letter survives. Kept as is.
    if (rest.startsWith(QStringLiteral("/private/var/root")))
        rest = rest.mid(16);
    return joinPath(home, rest);
}

std::optional<QString> VLLocalPaths::pathForDirectory(DirectoryKind kind, Domain domain)
{
    const QStringList found = searchStandardFolders(kind, domain);
    if (found.isEmpty())
        return std::nullopt;
    if (domain == Domain::User)
        return correctedUserPath(found.first(), static_cast<unsigned>(getuid()), userDirectory());
    return found.first();
}

QString VLLocalPaths::applicationDirectory(bool userDomain) { return directory(DirectoryKind::Application, domainFor(userDomain)); }
QString VLLocalPaths::adminApplicationDirectory(bool userDomain) { return directory(DirectoryKind::AdminApplication, domainFor(userDomain)); }
QString VLLocalPaths::documentDirectory(bool userDomain) { return directory(DirectoryKind::Document, domainFor(userDomain)); }
QString VLLocalPaths::libraryDirectory(bool userDomain) { return directory(DirectoryKind::Library, domainFor(userDomain)); }
QString VLLocalPaths::cacheDirectory(bool userDomain) { return directory(DirectoryKind::Caches, domainFor(userDomain)); }
QString VLLocalPaths::appSupportDirectory(bool userDomain) { return directory(DirectoryKind::ApplicationSupport, domainFor(userDomain)); }
QString VLLocalPaths::movieDirectory() { return directory(DirectoryKind::Movies, Domain::User); }
QString VLLocalPaths::desktopDirectory() { return directory(DirectoryKind::Desktop, Domain::User); }
QString VLLocalPaths::systemLibraryDirectory() { return directory(DirectoryKind::Library, Domain::System); }
QString VLLocalPaths::localDocumentationDirectory() { return directory(DirectoryKind::Documentation, Domain::Local); }

QString VLLocalPaths::prefsDirectory(bool userDomain)
{
    const QString library = libraryDirectory(userDomain);
    return library.isNull() ? QString() : joinPath(library, QStringLiteral("Preferences"));
}

QString VLLocalPaths::logDirectory(bool userDomain)
{
    const QString library = libraryDirectory(userDomain);
    return library.isNull() ? QString() : joinPath(library, QStringLiteral("Logs"));
}

QString VLLocalPaths::userDirectory()
{
    return sys::homeDirectory();
}

QString VLLocalPaths::username()
{
    // getpwuid_r: getpwuid's static buffer is not safe across threads.
    passwd entry {};
    passwd* result = nullptr;
    char buffer[4096];
    if (getpwuid_r(geteuid(), &entry, buffer, sizeof buffer, &result) != 0 || !result)
        return QString::fromLocal8Bit(qgetenv("USER"));
    return QString::fromLocal8Bit(result->pw_name);
}

QString VLLocalPaths::trashDirectory()
{
    return joinPath(userDirectory(), QStringLiteral(".Trash"));
}

std::optional<QString> VLLocalPaths::darwinCacheDirectory()
{
    return joinPath(sys::homeDirectory(), QStringLiteral("Library/Caches"));
}

QString VLLocalPaths::tempDirectory()
{
    return sys::temporaryDirectory();
}

QString VLLocalPaths::uuid()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
}

QString VLLocalPaths::randomString(int length)
{
    // Reseeded on every call with seconds times processor clock (a 32-bit product), so two
    // calls within one second and clock tick repeat; tempFile adds a uuid for uniqueness.
    const auto seconds = static_cast<quint32>(std::time(nullptr));
    const auto ticks = static_cast<quint32>(std::clock());
    std::srand(seconds * ticks);
    QString out;
    for (int i = 0; i < length; ++i)
        out.append(kAlphabet.at(std::rand() % kAlphabet.size()));
    return out;
}

QString VLLocalPaths::tempFile()
{
    return joinPath(tempDirectory(), uuid() + randomString(8));
}

QString VLLocalPaths::ensureTrailingSlash(const QString& path)
{
    if (path.isEmpty() || path.endsWith(QLatin1Char('/')))
        return path;
    return path + QLatin1Char('/');
}

QString VLLocalPaths::stripTrailingSlash(const QString& path)
{
    if (path.size() >= 2 && path.endsWith(QLatin1Char('/')))
        return path.left(path.size() - 1);
    return path;
}

bool VLLocalPaths::isPathSystemDirectory(const QString& path)
{
    return isPathSystemDirectory(path, false);
}

namespace {

// A machine-wide folder in both its real and its system-root form: with a system root set,
// refusing the real "/usr" as well costs nothing and guards the real machine.
QStringList realAndRooted(const QString& absolutePath)
{
    const QString rooted = sys::rooted(absolutePath);
    return rooted == absolutePath ? QStringList{absolutePath} : QStringList{absolutePath, rooted};
}

QStringList exactSystemFolders()
{
    using VL = VLLocalPaths;
    QStringList folders;
    for (bool user : {true, false}) {
        folders << VL::applicationDirectory(user) << VL::adminApplicationDirectory(user) << VL::documentDirectory(user)
                << VL::libraryDirectory(user) << VL::prefsDirectory(user) << VL::cacheDirectory(user)
                << VL::appSupportDirectory(user);
    }
    folders << VL::desktopDirectory() << VL::userDirectory() << VL::systemLibraryDirectory()
            << VL::localDocumentationDirectory();
    for (const char* fixed : {"/Users/Shared", "/usr", "/var", "/bin", "/sbin", "/System"})
        folders << realAndRooted(QString::fromLatin1(fixed));
    return folders;
}

bool isBelowSystemFolder(const QString& path)
{
    for (const QString& usr : realAndRooted(QStringLiteral("/usr/"))) {
        const QString local = usr + QStringLiteral("local/");
        if (path.startsWith(usr) && !path.startsWith(local))
            return true;
    }
    for (const char* prefix : {"/var/", "/bin/", "/sbin/", "/private/var/", "/System/"}) {
        for (const QString& folder : realAndRooted(QString::fromLatin1(prefix))) {
            if (path.startsWith(folder))
                return true;
        }
    }
    return false;
}

} // namespace

bool VLLocalPaths::isPathSystemDirectory(const QString& path, bool exactMatch)
{
    if (path == QStringLiteral("/") || (!sys::systemRoot().isEmpty() && path == sys::rooted(QStringLiteral("/"))))
        return true;
    if (path.size() < 3)
        return false;
    QString compared = path;
    // Two characters, not one: "/usr/" is compared as "/us", so a folder of the exact list
    // written with a trailing slash is not recognised.
    if (compared.endsWith(QLatin1Char('/')))
        compared.chop(2);
    if (exactSystemFolders().contains(compared))
        return true;
    if (exactMatch)
        return false;
    return isBelowSystemFolder(compared);
}

bool VLLocalPaths::isPathOnTimeMachineVolume(const QString& path)
{
    if (!path.startsWith(sys::rooted(QStringLiteral("/Volumes/"))))
        return false;
    return path.split(QLatin1Char('/')).contains(QStringLiteral("Backups.backupdb"));
}
