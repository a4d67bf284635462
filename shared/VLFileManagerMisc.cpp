// Touching files, empty files, waiting for files, MIME types and workspace notifications.
#include "shared/VLFileManager.h"
#include "shared/VLAuthorization.h"
#include "shared/VLFileManagerInternal.h"
#include "shared/VLLocalPaths.h"
#include "shared/VLLog.h"
#include "shared/VLTaskEx.h"

#include "platform/foundation/Foundation.h"
#include "platform/system/SystemEnvironment.h"
#include "platform/system/Workspace.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QMimeDatabase>
#include <QThread>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Longest wait of waitForFileWrites: a writer that never closes must not hang the caller.
constexpr int kFileWritesLimitSeconds = 60;

// True when /proc/<pid>/fdinfo/<fd> shows the descriptor open for writing.
bool descriptorWrites(const QString& pid, const QString& fd)
{
    QFile info(QStringLiteral("/proc/%1/fdinfo/%2").arg(pid, fd));
    if (!info.open(QIODevice::ReadOnly))
        return false;
    for (const QByteArray& line : info.readAll().split('\n'))
        if (line.startsWith("flags:")) {
            bool ok = false;
            const int flags = line.mid(6).trimmed().toInt(&ok, 8);
            return ok && (flags & O_ACCMODE) != O_RDONLY;
        }
    return false;
}

} // namespace

void VLFileManager::touchFile(const QString& path, bool setCreation)
{
    const QString touch = sys::rooted(QStringLiteral("/usr/bin/touch"));
    const QStringList arguments{QStringLiteral("-c"), path};
    if (::access(QFile::encodeName(path).constData(), W_OK) == 0) {
        VLTaskEx::runTaskTimeout(touch, arguments, 5);
        if (setCreation)
            (void)setCreationDate(QDateTime::currentDateTime(), path);
    } else {
        if (setCreation)
            (void)setCreationDate(QDateTime::currentDateTime(), path);
        (void)VLAuthorization::sharedController().authExecTask(touch, arguments, false);
    }
    sys::workspace().notifyFileChanged(path);
}

bool VLFileManager::createEmptyFile(const QString& path)
{
    const QString temporary = VLLocalPaths::tempFile();
    QFile file(temporary);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        VLLog::appendLog(QStringLiteral("Unable to create file %@: %@"), temporary, file.errorString());
        return false;
    }
    file.close();
    return moveFile(temporary, path);
}

bool VLFileManager::waitForFileCreation(const QString& path, int seconds)
{
    QElapsedTimer elapsed;
    elapsed.start();
    const auto created = [&] { return QFileInfo(path).size() > 0; };
    while (!created() && elapsed.elapsed() < qint64(seconds) * 1000) {
        VLLog::appendLog(QStringLiteral("File %@ is not yet created. Waiting..."), path);
        ::usleep(500);
    }
    return created();
}

// Processes whose descriptors we may not read (other users' processes without privileges)
// cannot be seen and count as not writing.
bool VLFileManager::fileIsOpenForWriting(const QString& path)
{
    struct stat target {};
    if (::stat(QFile::encodeName(path).constData(), &target) != 0)
        return false;
    const QStringList pids = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& pid : pids) {
        if (!pid.front().isDigit())
            continue;
        const QString fdFolder = QStringLiteral("/proc/%1/fd").arg(pid);
        for (const QString& fd : QDir(fdFolder).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot)) {
            struct stat st {};
            if (::stat(QFile::encodeName(fdFolder + QLatin1Char('/') + fd).constData(), &st) != 0)
                continue;
            if (st.st_dev == target.st_dev && st.st_ino == target.st_ino && descriptorWrites(pid, fd))
                return true;
        }
    }
    return false;
}

void VLFileManager::waitForFileWrites(const QString& path, bool lock)
{
    QElapsedTimer elapsed;
    elapsed.start();
    while (fileIsOpenForWriting(path)) {
        if (elapsed.elapsed() >= kFileWritesLimitSeconds * 1000) {
            VLLog::appendLog(QStringLiteral("File %@ is still open for writing; no longer waiting."), path);
            break;
        }
        QThread::msleep(100);
    }
    if (lock)
        (void)lockFile(path);
}

QString VLFileManager::mimeTypeForFileExtension(const QString& extension)
{
    const QMimeType type = QMimeDatabase().mimeTypeForFile(QStringLiteral("file.") + extension,
                                                            QMimeDatabase::MatchExtension);
    if (extension.isEmpty() || !type.isValid() || type.isDefault())
        return QStringLiteral("application/octet-stream");
    return type.name();
}

QString VLFileManager::mimeTypeForFileAtPath(const QString& path)
{
    return mimeTypeForFileExtension(fnd::pathExtension(path));
}

void VLFileManager::notifyFileSystemChanged(const QString& path)
{
    sys::workspace().notifyFileChanged(path);
}

// The platform keeps no separate cache to disable; kept for callers.
void VLFileManager::disableFileSystemCachingForFile(const QString&) {}

bool VLFileManager::isPackageAtPath(const QString& path)
{
    return !path.isEmpty() && sys::workspace().isPackage(path);
}
