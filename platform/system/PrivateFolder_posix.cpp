// Private folders with plain POSIX calls: Qt's file classes follow symbolic links.

#include "platform/system/PrivateFolder.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace sys {

namespace {

QByteArray native(const QString& path)
{
    return QFile::encodeName(path);
}

bool refuse(QString* refusal, const QString& path, const QString& why)
{
    if (refusal)
        *refusal = QStringLiteral("The folder %1 %2").arg(path, why);
    return false;
}

QString systemError(int code)
{
    return QString::fromLocal8Bit(std::strerror(code));
}

// Opens the folder itself (never a link at its name) and checks what it is and whose it is.
// The open descriptor, or -1 after setting `refusal`.
int openOwnFolder(const QString& path, QString* refusal)
{
    const int fd = ::open(native(path).constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
        const int code = errno;
        struct stat link {};
        if (::lstat(native(path).constData(), &link) == 0 && S_ISLNK(link.st_mode))
            refuse(refusal, path, QStringLiteral("is a symbolic link."));
        else if (code == ENOTDIR)
            refuse(refusal, path, QStringLiteral("is not a folder."));
        else
            refuse(refusal, path, QStringLiteral("cannot be opened (%1).").arg(systemError(code)));
        return -1;
    }
    struct stat info {};
    if (::fstat(fd, &info) != 0 || info.st_uid != ::geteuid()) {
        ::close(fd);
        refuse(refusal, path, QStringLiteral("belongs to another user."));
        return -1;
    }
    return fd;
}

} // namespace

bool makePrivateFolder(const QString& path, QString* refusal)
{
    const QString parent = QFileInfo(path).absolutePath();
    if (!QDir().mkpath(parent))
        return refuse(refusal, path, QStringLiteral("cannot be created (its parent %1 cannot be made).").arg(parent));
    if (::mkdir(native(path).constData(), 0700) != 0 && errno != EEXIST)
        return refuse(refusal, path, QStringLiteral("cannot be created (%1).").arg(systemError(errno)));
    const int fd = openOwnFolder(path, refusal);
    if (fd < 0)
        return false;
    struct stat info {};
    // A folder of ours left open to others by an earlier run is narrowed, so nobody else can
    // add or replace entries in it.
    const bool narrowed = ::fstat(fd, &info) == 0 && ((info.st_mode & 07777) == 0700 || ::fchmod(fd, 0700) == 0);
    const int code = errno;
    ::close(fd);
    if (!narrowed)
        return refuse(refusal, path, QStringLiteral("cannot be made private (%1).").arg(systemError(code)));
    return true;
}

bool isPrivateFolder(const QString& path, QString* refusal)
{
    const int fd = openOwnFolder(path, refusal);
    if (fd < 0)
        return false;
    ::close(fd);
    return true;
}

std::unique_ptr<QFile> openForWritingNoFollow(const QString& path, QString* error)
{
    const int fd = ::open(native(path).constData(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0666);
    if (fd < 0) {
        if (error)
            *error = systemError(errno);
        return nullptr;
    }
    auto file = std::make_unique<QFile>(path);
    if (!file->open(fd, QIODevice::WriteOnly, QFileDevice::AutoCloseHandle)) {
        ::close(fd);
        if (error)
            *error = file->errorString();
        return nullptr;
    }
    return file;
}

} // namespace sys
