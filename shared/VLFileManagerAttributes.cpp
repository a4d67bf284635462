// File attributes: dates, the "locked" flag, permission bits and extended attributes.
#include "shared/VLFileManager.h"
#include "shared/VLFileManagerInternal.h"
#include "shared/VLLog.h"

#include "platform/foundation/Foundation.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>

namespace {

constexpr mode_t kWriteBits = S_IWUSR | S_IWGRP | S_IWOTH;
const QString kProgressKey = QStringLiteral("com.apple.progress.fractionCompleted");

QByteArray native(const QString& path) { return QFile::encodeName(path); }

// Extended attributes of the platform's user namespace.
QByteArray attributeName(const QString& key) { return "user." + key.toUtf8(); }

bool changeLock(const QString& path, bool lock)
{
    struct stat st {};
    if (::stat(native(path).constData(), &st) != 0)
        return false; // nothing there (or a broken link): nothing to lock or unlock
    const bool locked = (st.st_mode & kWriteBits) == 0;
    if (locked == lock)
        return true;
    const mode_t mode = lock ? (st.st_mode & ~kWriteBits) : (st.st_mode | S_IWUSR);
    if (::chmod(native(path).constData(), mode & 07777) == 0)
        return true;
    VLLog::fastAppendLog(QStringLiteral("Unable to unlock file %@: %@"), path, vlfm::errorText(errno));
    return false;
}

bool changeFolderLock(const QString& path, bool lock)
{
    struct stat st {};
    if (::lstat(native(path).constData(), &st) != 0)
        return false;
    bool allChanged = true;
    // Unlock the folder before its entries and lock it after them, so that its own flag never
    // stands in the way of the entries.
    if (!lock && !changeLock(path, false))
        allChanged = false;
    if (S_ISDIR(st.st_mode)) {
        const QStringList entries =
            QDir(path).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
        for (const QString& name : entries)
            if (!changeFolderLock(fnd::stringByAppendingPathComponent(path, name), lock))
                allChanged = false;
    }
    if (lock && !changeLock(path, true))
        allChanged = false;
    return allChanged;
}

bool removeAttribute(const QString& key, const QString& path)
{
    return ::removexattr(native(path).constData(), attributeName(key).constData()) == 0 || errno == ENODATA;
}

} // namespace

std::optional<QDateTime> VLFileManager::modificationDateForFile(const QString& path)
{
    const QFileInfo info(path);
    if (!info.exists())
        return std::nullopt;
    return info.lastModified();
}

std::optional<QDateTime> VLFileManager::creationDateForFile(const QString& path)
{
    const QDateTime birth = QFileInfo(path).birthTime();
    if (!birth.isValid())
        return std::nullopt;
    return birth;
}

bool VLFileManager::setModificationDate(const QDateTime& date, const QString& path)
{
    const qint64 ms = date.toMSecsSinceEpoch();
    // Floor division keeps the nanoseconds in range for dates before 1970.
    const qint64 seconds = ms >= 0 ? ms / 1000 : -((-ms + 999) / 1000);
    const struct timespec times[2] = {{0, UTIME_OMIT}, {time_t(seconds), long(ms - seconds * 1000) * 1000000}};
    if (date.isValid() && ::utimensat(AT_FDCWD, native(path).constData(), times, 0) == 0)
        return true;
    VLLog::appendLog(QStringLiteral("Error setting modification date for file %@: %@"), path,
                     vlfm::errorText(date.isValid() ? errno : EINVAL));
    return false;
}

// Linux records a birth time but offers no call that sets it.
bool VLFileManager::setCreationDate(const QDateTime&, const QString& path)
{
    VLLog::appendLog(QStringLiteral("Unable to set creation date for file %@: not supported on this platform"), path);
    return false;
}

bool VLFileManager::isFileLocked(const QString& path)
{
    struct stat st {};
    return ::stat(native(path).constData(), &st) == 0 && (st.st_mode & kWriteBits) == 0;
}

bool VLFileManager::lockFile(const QString& path) { return changeLock(path, true); }
bool VLFileManager::unlockFile(const QString& path) { return changeLock(path, false); }
bool VLFileManager::lockFolder(const QString& path) { return changeFolderLock(path, true); }
bool VLFileManager::unlockFolder(const QString& path) { return changeFolderLock(path, false); }

bool VLFileManager::setPosixPermissions(int permissions, const QString& path)
{
    if (::chmod(native(path).constData(), mode_t(permissions) & 07777) == 0)
        return true;
    VLLog::appendLog(QStringLiteral("Error setting permissions for file %@: %@"), path, vlfm::errorText(errno));
    return false;
}

// An attribute that is simply absent is not an error and is not logged.
std::optional<QString> VLFileManager::metadataValueForKey(const QString& key, const QString& path)
{
    if (!isMacFilesystemAtPath(path)) {
        VLLog::appendLog(QStringLiteral("Unable to get Finder metadata - this is not an Apple-formatted drive."));
        return std::nullopt;
    }
    const QByteArray name = attributeName(key);
    const ssize_t size = ::getxattr(native(path).constData(), name.constData(), nullptr, 0);
    QByteArray value(size > 0 ? int(size) : 0, Qt::Uninitialized);
    const ssize_t got = size < 0 ? size : ::getxattr(native(path).constData(), name.constData(), value.data(), value.size());
    if (got < 0) {
        if (errno != ENODATA)
            VLLog::appendLog(QStringLiteral("Error retrieving file attribute: %i"), errno);
        return std::nullopt;
    }
    value.truncate(int(got));
    return QString::fromUtf8(value);
}

bool VLFileManager::setMetadataValue(const QString& value, const QString& key, const QString& path)
{
    if (!isMacFilesystemAtPath(path)) {
        VLLog::appendLog(QStringLiteral("Unable to set Finder metadata - this is not an Apple-formatted drive."));
        return false;
    }
    const QByteArray bytes = value.toUtf8();
    if (::setxattr(native(path).constData(), attributeName(key).constData(), bytes.constData(), size_t(bytes.size()), 0) == 0)
        return true;
    VLLog::appendLog(QStringLiteral("Error setting extended attribute for file %@ - %i"), path, errno);
    return false;
}

// The creation-date marker that goes with the bar cannot be set on Linux (see setCreationDate);
// the attribute itself is written directly instead of through a command-line tool.
bool VLFileManager::setFinderProgress(double fraction, const QString& path)
{
    if (fraction < 0)
        return removeFinderProgressForFile(path);
    if (!isMacFilesystemAtPath(path))
        return false;
    return setMetadataValue(fnd::numberString(fraction), kProgressKey, path);
}

bool VLFileManager::removeFinderProgressForFile(const QString& path)
{
    if (!isMacFilesystemAtPath(path))
        return false;
    return removeAttribute(kProgressKey, path);
}
