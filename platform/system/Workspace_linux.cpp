// The Linux workspace. Recycling renames with RENAME_NOREPLACE so an item already in the
// Trash is never overwritten, even by a race with another process.

#include "platform/system/LinuxWorkspace.h"

#include "platform/foundation/Foundation.h"
#include "platform/system/Bundle.h"
#include "platform/system/FileTree.h"
#include "platform/system/SystemEnvironment.h"
#include "platform/system/SystemLogging.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QSet>

#include <cerrno>
#include <cstdio>
#include <fcntl.h>

namespace sys {

namespace {

// A single name inside a folder: anything else could reach outside the folder.
bool isPlainName(const QString& name)
{
    return !name.isEmpty() && name != QStringLiteral(".") && name != QStringLiteral("..")
        && !name.contains(QLatin1Char('/')) && !name.contains(QChar(0));
}

enum class RenameResult { Done, Taken, CrossDevice, Failed };

RenameResult renameNoReplace(const QString& from, const QString& to)
{
    const QByteArray source = QFile::encodeName(from);
    const QByteArray target = QFile::encodeName(to);
    if (::renameat2(AT_FDCWD, source.constData(), AT_FDCWD, target.constData(), RENAME_NOREPLACE) == 0)
        return RenameResult::Done;
    switch (errno) {
    case EEXIST: return RenameResult::Taken;
    case EXDEV: return RenameResult::CrossDevice;
    default: break;
    }
    qCWarning(lcSystem) << "Cannot move" << from << "to" << to << ":" << qt_error_string(errno);
    return RenameResult::Failed;
}

// Across file systems: copy first, remove the original only once the copy is complete.
bool moveByCopy(const QString& from, const QString& to)
{
    QString error;
    if (!filetree::copyTree(from, to, &error)) {
        qCWarning(lcSystem) << "Cannot copy to the Trash:" << error;
        return false;
    }
    if (!filetree::removeTree(from, &error)) {
        // The complete copy is in the Trash, so nothing is lost; the caller still learns
        // that the item did not leave its place.
        qCWarning(lcSystem) << "Copied to the Trash but could not remove the original:" << error;
        return false;
    }
    return true;
}

bool startOpener(const QString& argument)
{
    const QString opener = rooted(QStringLiteral("/usr/bin/xdg-open"));
    const QFileInfo tool(opener);
    if (!tool.isFile() || !tool.isExecutable()) {
        qCWarning(lcSystem) << "No opener at" << opener;
        return false;
    }
    return QProcess::startDetached(opener, {argument});
}

bool isInstallerPackage(const QString& path)
{
    const QString extension = QFileInfo(path).suffix().toLower();
    return extension == QStringLiteral("pkg") || extension == QStringLiteral("mpkg");
}

// Installer packages open in the system's Installer, as they do on macOS: the bundle
// <root>/System/Library/CoreServices/Installer.app, its executable started with the package.
// It then runs as an application like any other, with the Installer's identifier.
bool startInstaller(const QString& package)
{
    const QString installer = rooted(QStringLiteral("/System/Library/CoreServices/Installer.app"));
    const std::optional<Bundle> bundle = Bundle::bundleWithPath(installer);
    const std::optional<QString> executable = bundle ? bundle->executablePath() : std::nullopt;
    if (!executable || !QFileInfo(*executable).isExecutable()) {
        qCWarning(lcSystem) << "No Installer at" << installer;
        return false;
    }
    return QProcess::startDetached(*executable, {package});
}

const QSet<QString>& packageExtensions()
{
    static const QSet<QString> extensions{
        QStringLiteral("app"), QStringLiteral("prefpane"), QStringLiteral("plugin"), QStringLiteral("bundle"),
        QStringLiteral("component"), QStringLiteral("vst"), QStringLiteral("vst3"), QStringLiteral("kext"),
        QStringLiteral("framework"), QStringLiteral("mdimporter"), QStringLiteral("qlgenerator"),
        QStringLiteral("saver"), QStringLiteral("pkg"), QStringLiteral("mpkg")};
    return extensions;
}

// The name recycle() gives `name` in `trashFolder`: the name itself when free, else
// "<base> 2.<ext>", "<base> 3.<ext>", ...
QString uniqueTrashName(const QString& trashFolder, const QString& name, int attempt)
{
    if (attempt <= 1)
        return trashFolder + QLatin1Char('/') + name;
    // A leading dot does not start an extension (".profile" has none).
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    const bool hasExtension = dot > 0 && dot < name.size() - 1;
    const QString base = hasExtension ? name.left(dot) : name;
    const QString extension = hasExtension ? name.mid(dot) : QString();
    return trashFolder + QLatin1Char('/') + base + QLatin1Char(' ') + QString::number(attempt) + extension;
}

} // namespace

std::unique_ptr<Workspace> makePlatformWorkspace()
{
    return std::make_unique<LinuxWorkspace>();
}

bool LinuxWorkspace::recycle(const QString& sourceFolder, const QString& trashFolder, const QString& name)
{
    // No folder is no folder: it never stands for the root.
    const QString source = sourceFolder + QLatin1Char('/') + name;
    if (sourceFolder.isEmpty() || !isPlainName(name) || !filetree::exists(source))
        return false;
    if (!QDir().mkpath(trashFolder)) {
        qCWarning(lcSystem) << "Cannot create the Trash folder" << trashFolder;
        return false;
    }
    // Bounded: a Trash with ten thousand copies of one name is treated as a failure.
    for (int attempt = 1; attempt <= 10000; ++attempt) {
        const QString target = uniqueTrashName(trashFolder, name, attempt);
        switch (renameNoReplace(source, target)) {
        case RenameResult::Done: return true;
        case RenameResult::Taken: continue;
        case RenameResult::Failed: return false;
        case RenameResult::CrossDevice:
            if (filetree::exists(target))
                continue;
            return moveByCopy(source, target);
        }
    }
    return false;
}

bool LinuxWorkspace::copy(const QString& sourceFolder, const QString& destinationFolder, const QString& name)
{
    const QString source = sourceFolder + QLatin1Char('/') + name;
    const QString destination = destinationFolder + QLatin1Char('/') + name;
    if (!isPlainName(name) || !filetree::exists(source) || !QFileInfo(destinationFolder).isDir())
        return false;
    QString error;
    if (!filetree::copyTree(source, destination, &error)) {
        qCWarning(lcSystem) << "Copy failed:" << error;
        return false;
    }
    return true;
}

bool LinuxWorkspace::openFile(const QString& path)
{
    if (path.isEmpty() || !filetree::exists(path))
        return false;
    if (isInstallerPackage(path))
        return startInstaller(path);
    return startOpener(path);
}

bool LinuxWorkspace::openURL(const QString& url)
{
    if (url.isEmpty())
        return false;
    return startOpener(url);
}

void LinuxWorkspace::notifyFileChanged(const QString&) {}

bool LinuxWorkspace::isPackage(const QString& path)
{
    // The extension as the platform reads it from the path ("X.app/" is an "app"). It is
    // looked at first: the scans ask about every folder, and most have none.
    return packageExtensions().contains(fnd::pathExtension(path).toLower()) && QFileInfo(path).isDir();
}

QStringList LinuxWorkspace::mountedLocalVolumes()
{
    QStringList volumes{QStringLiteral("/")};
    QFile mounts(QStringLiteral("/proc/self/mounts"));
    if (mounts.open(QIODevice::ReadOnly)) {
        // Bounded read: a mount table is small; a huge one is cut, not trusted.
        const QList<QByteArray> lines = mounts.read(1 << 20).split('\n');
        for (const QByteArray& line : lines) {
            const QList<QByteArray> fields = line.split(' ');
            if (fields.size() < 2 || !fields.at(0).startsWith("/dev/"))
                continue;
            // The table escapes spaces and other bytes as octal "\040".
            const QString point = QString::fromUtf8(fields.at(1)).replace(QStringLiteral("\\040"), QStringLiteral(" "));
            if (!volumes.contains(point))
                volumes.append(point);
        }
    }
    const QString volumesFolder = rooted(QStringLiteral("/Volumes"));
    for (const QString& name : QDir(volumesFolder).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name)) {
        const QString point = volumesFolder + QLatin1Char('/') + name;
        if (!volumes.contains(point))
            volumes.append(point);
    }
    return volumes;
}

} // namespace sys
