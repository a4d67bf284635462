// Tree copy and removal with plain POSIX calls: Qt's file classes follow symbolic links,
// which would copy a link's target or remove files outside the tree.

#include "platform/system/FileTree.h"

#include <QFile>

#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace sys::filetree {

namespace {

QByteArray native(const QString& path)
{
    return QFile::encodeName(path);
}

bool fail(QString* error, const QString& what, const QString& path, int code)
{
    if (error)
        *error = what + QStringLiteral(" ") + path + QStringLiteral(": ") + QString::fromLocal8Bit(std::strerror(code));
    return false;
}

QStringList entriesOf(const QString& folder, bool* ok)
{
    QStringList names;
    DIR* dir = ::opendir(native(folder).constData());
    *ok = dir != nullptr;
    if (!dir)
        return names;
    while (const dirent* entry = ::readdir(dir)) {
        const QString name = QFile::decodeName(entry->d_name);
        if (name != QStringLiteral(".") && name != QStringLiteral(".."))
            names.append(name);
    }
    ::closedir(dir);
    return names;
}

bool copyFileContents(const QString& source, const QString& destination, mode_t mode, QString* error)
{
    const int in = ::open(native(source).constData(), O_RDONLY | O_CLOEXEC);
    if (in < 0)
        return fail(error, QStringLiteral("Cannot open"), source, errno);
    // O_EXCL: never write through something that appeared at the destination meanwhile.
    const int out = ::open(native(destination).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (out < 0) {
        const int code = errno;
        ::close(in);
        return fail(error, QStringLiteral("Cannot create"), destination, code);
    }
    std::vector<char> buffer(1 << 16);
    bool ok = true;
    int code = 0;
    for (;;) {
        const ssize_t got = ::read(in, buffer.data(), buffer.size());
        if (got == 0)
            break;
        if (got < 0) {
            if (errno == EINTR)
                continue;
            ok = false;
            code = errno;
            break;
        }
        for (ssize_t written = 0; written < got && ok;) {
            const ssize_t put = ::write(out, buffer.data() + written, size_t(got - written));
            if (put < 0 && errno != EINTR) {
                ok = false;
                code = errno;
            } else if (put > 0) {
                written += put;
            }
        }
        if (!ok)
            break;
    }
    if (ok && ::fchmod(out, mode & 07777) != 0) {
        ok = false;
        code = errno;
    }
    ::close(in);
    if (::close(out) != 0 && ok) {
        ok = false;
        code = errno;
    }
    return ok || fail(error, QStringLiteral("Cannot copy"), source, code);
}

void copyTimes(const QString& destination, const struct stat& info)
{
    const timespec times[2] = {info.st_atim, info.st_mtim};
    // Times are a courtesy: a file system that refuses them does not fail the copy.
    (void)::utimensat(AT_FDCWD, native(destination).constData(), times, AT_SYMLINK_NOFOLLOW);
}

bool copyEntry(const QString& source, const QString& destination, QString* error)
{
    struct stat info {};
    if (::lstat(native(source).constData(), &info) != 0)
        return fail(error, QStringLiteral("Cannot read"), source, errno);
    if (S_ISLNK(info.st_mode)) {
        QByteArray raw(4096, '\0');
        const ssize_t length = ::readlink(native(source).constData(), raw.data(), size_t(raw.size()));
        if (length < 0 || length >= raw.size())
            return fail(error, QStringLiteral("Cannot read link"), source, length < 0 ? errno : ENAMETOOLONG);
        raw.truncate(length);
        if (::symlink(raw.constData(), native(destination).constData()) != 0)
            return fail(error, QStringLiteral("Cannot create link"), destination, errno);
        copyTimes(destination, info);
        return true;
    }
    if (S_ISREG(info.st_mode)) {
        if (!copyFileContents(source, destination, info.st_mode, error))
            return false;
        copyTimes(destination, info);
        return true;
    }
    if (!S_ISDIR(info.st_mode))
        return fail(error, QStringLiteral("Cannot copy special file"), source, ENOTSUP);
    // Owner-writable while filling it; the real permission bits are set afterwards.
    if (::mkdir(native(destination).constData(), 0700) != 0)
        return fail(error, QStringLiteral("Cannot create folder"), destination, errno);
    bool listed = false;
    const QStringList names = entriesOf(source, &listed);
    if (!listed)
        return fail(error, QStringLiteral("Cannot list"), source, errno);
    for (const QString& name : names) {
        if (!copyEntry(source + QLatin1Char('/') + name, destination + QLatin1Char('/') + name, error))
            return false;
    }
    if (::chmod(native(destination).constData(), info.st_mode & 07777) != 0)
        return fail(error, QStringLiteral("Cannot set permissions of"), destination, errno);
    copyTimes(destination, info);
    return true;
}

} // namespace

bool exists(const QString& path)
{
    struct stat info {};
    return !path.isEmpty() && ::lstat(native(path).constData(), &info) == 0;
}

bool copyTree(const QString& source, const QString& destination, QString* error)
{
    if (exists(destination))
        return fail(error, QStringLiteral("Destination exists:"), destination, EEXIST);
    if (copyEntry(source, destination, error))
        return true;
    QString ignored;
    (void)removeTree(destination, &ignored);
    return false;
}

bool removeTree(const QString& path, QString* error)
{
    struct stat info {};
    if (::lstat(native(path).constData(), &info) != 0)
        return errno == ENOENT || fail(error, QStringLiteral("Cannot read"), path, errno);
    if (!S_ISDIR(info.st_mode)) {
        if (::unlink(native(path).constData()) != 0)
            return fail(error, QStringLiteral("Cannot remove"), path, errno);
        return true;
    }
    bool listed = false;
    const QStringList names = entriesOf(path, &listed);
    if (!listed)
        return fail(error, QStringLiteral("Cannot list"), path, errno);
    bool ok = true;
    for (const QString& name : names)
        ok = removeTree(path + QLatin1Char('/') + name, error) && ok;
    if (ok && ::rmdir(native(path).constData()) != 0)
        return fail(error, QStringLiteral("Cannot remove folder"), path, errno);
    return ok;
}

} // namespace sys::filetree
