// Volumes: mounted-drive tests under the system root's /Volumes, mount points, file-system names
// and the disk information of the disk utility.
#include "shared/VLFileManager.h"
#include "shared/VLFileManagerInternal.h"
#include "shared/VLLog.h"
#include "shared/VLTaskEx.h"

#include "platform/foundation/Foundation.h"
#include "platform/plist/PropertyList.h"
#include "platform/system/SystemEnvironment.h"
#include "platform/system/Workspace.h"

#include <QFile>
#include <QFileInfo>

namespace {

// The path relative to the system root ("/Volumes/X/..."), or the path itself when it lies
// outside the root: the /Volumes rules apply to the root's own /Volumes.
QString unrooted(const QString& path)
{
    const QString root = sys::systemRoot();
    if (!root.isEmpty() && path.startsWith(root + QLatin1Char('/')))
        return path.mid(root.size());
    return path;
}

// "true unless the path starts with the prefix and its first three components do not exist".
bool mountedForPrefix(const QString& path, const QString& prefix)
{
    const QString relative = unrooted(path);
    if (!relative.startsWith(prefix))
        return true;
    const QStringList components = fnd::pathComponents(relative);
    if (components.size() < 3)
        return true;
    QString volume;
    for (int i = 0; i < 3; ++i)
        volume = fnd::stringByAppendingPathComponent(volume, components.at(i));
    return QFileInfo::exists(sys::rooted(volume));
}

// Undoes the octal escapes (\040 for a space ...) of /proc/self/mountinfo fields.
QString unescapeMountField(const QByteArray& field)
{
    QByteArray out;
    for (int i = 0; i < field.size(); ++i) {
        if (field.at(i) == '\\' && i + 3 < field.size()) {
            bool ok = false;
            const int code = field.mid(i + 1, 3).toInt(&ok, 8);
            if (ok) {
                out.append(char(code));
                i += 3;
                continue;
            }
        }
        out.append(field.at(i));
    }
    return QFile::decodeName(out);
}

} // namespace

bool VLFileManager::isDriveMountedForPath(const QString& path)
{
    return mountedForPrefix(path, QStringLiteral("/Volumes/"));
}

bool VLFileManager::isVolumeMountedForPath(const QString& path)
{
    return mountedForPrefix(path, QStringLiteral("/Volumes"));
}

std::optional<QString> VLFileManager::volumeMountPointForPath(const QString& path)
{
    for (const QString& volume : sys::workspace().mountedLocalVolumes()) {
        if (volume == QStringLiteral("/"))
            continue;
        if (path == volume || path.startsWith(volume + QLatin1Char('/')))
            return volume;
    }
    if (unrooted(path).startsWith(QStringLiteral("/Volumes")))
        return std::nullopt;
    return QStringLiteral("/");
}

// The kernel's name for the file system of the longest mount point holding the path
// ("ext4", "tmpfs", "btrfs", "hfsplus", "apfs" ...); "" when it cannot be told.
QString VLFileManager::filesystemForPath(const QString& path)
{
    const QString canonical = QFileInfo(path).canonicalFilePath();
    if (canonical.isEmpty())
        return QString();
    QFile mounts(QStringLiteral("/proc/self/mountinfo"));
    if (!mounts.open(QIODevice::ReadOnly))
        return QString();
    QString best;
    QString type;
    // Each line: id parent major:minor root mountpoint options [optional...] - fstype source ...
    for (const QByteArray& line : mounts.readAll().split('\n')) {
        const QList<QByteArray> fields = line.split(' ');
        const int separator = fields.indexOf(QByteArray("-"));
        if (fields.size() < 5 || separator < 0 || separator + 1 >= fields.size())
            continue;
        const QString mountPoint = unescapeMountField(fields.at(4));
        const bool holds = canonical == mountPoint || mountPoint == QStringLiteral("/") ||
                           canonical.startsWith(mountPoint + QLatin1Char('/'));
        if (holds && mountPoint.size() >= best.size()) {
            best = mountPoint;
            type = QString::fromLatin1(fields.at(separator + 1));
        }
    }
    return type;
}

// The kernel calls HFS+ "hfsplus"; it counts as an Apple file system like "hfs+".
bool VLFileManager::isMacFilesystemAtPath(const QString& path)
{
    const QString type = filesystemForPath(path).toLower();
    return type == QStringLiteral("hfs") || type == QStringLiteral("hfs+") || type == QStringLiteral("hfsplus") ||
           type == QStringLiteral("apfs");
}

std::optional<QVariantMap> VLFileManager::infoForDiskAtMountpoint(const QString& mountPoint)
{
    const std::optional<QByteArray> output = VLTaskEx::dataFromTaskTimeout(
        sys::rooted(QStringLiteral("/usr/sbin/diskutil")),
        {QStringLiteral("info"), QStringLiteral("-plist"), mountPoint}, 10);
    QString error;
    const std::optional<QVariant> value = output ? plist::read(*output, &error) : std::nullopt;
    if (!value || value->typeId() != QMetaType::QVariantMap) {
        if (error.isEmpty())
            error = QStringLiteral("no property list dictionary in the output");
        VLLog::appendLog(QStringLiteral("Error converting diskutil output: %@"), error);
        return std::nullopt;
    }
    return value->toMap();
}
