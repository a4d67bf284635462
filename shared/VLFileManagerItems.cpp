// The ordinary item operations (remove, copy, move, create folder) behind the escalation ladder.
#include "shared/VLFileManagerInternal.h"

#include "platform/foundation/Foundation.h"

#include <QDir>
#include <QFile>

#include <cerrno>
#include <cstdio>
#include <climits>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vlfm {
namespace {

QByteArray native(const QString& path) { return QFile::encodeName(path); }

bool fail(QString* error, int code)
{
    if (error)
        *error = errorText(code);
    return false;
}

QStringList entriesOf(const QString& folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                                  QDir::Name);
}

bool copyFileBytes(const QString& source, const QString& destination, QString* error)
{
    QFile in(source);
    if (!in.open(QIODevice::ReadOnly)) {
        if (error)
            *error = in.errorString();
        return false;
    }
    QFile out(destination);
    if (!out.open(QIODevice::WriteOnly | QIODevice::NewOnly)) {
        if (error)
            *error = out.errorString();
        return false;
    }
    QByteArray buffer(65536, Qt::Uninitialized);
    for (;;) {
        const qint64 got = in.read(buffer.data(), buffer.size());
        if (got < 0 || (got > 0 && out.write(buffer.constData(), got) != got)) {
            if (error)
                *error = got < 0 ? in.errorString() : out.errorString();
            return false;
        }
        if (got == 0)
            return true;
    }
}

} // namespace

bool removeItem(const QString& path, QString* error)
{
    struct stat st {};
    if (::lstat(native(path).constData(), &st) != 0)
        return fail(error, errno);
    if (S_ISDIR(st.st_mode)) {
        for (const QString& name : entriesOf(path))
            if (!removeItem(fnd::stringByAppendingPathComponent(path, name), error))
                return false;
        if (::rmdir(native(path).constData()) != 0)
            return fail(error, errno);
        return true;
    }
    if (::unlink(native(path).constData()) != 0)
        return fail(error, errno);
    return true;
}

bool copyItem(const QString& source, const QString& destination, QString* error)
{
    struct stat st {};
    if (::lstat(native(source).constData(), &st) != 0)
        return fail(error, errno);
    if (existsNoFollow(destination))
        return fail(error, EEXIST);
    if (S_ISLNK(st.st_mode)) {
        QByteArray raw(PATH_MAX, Qt::Uninitialized);
        const ssize_t length = ::readlink(native(source).constData(), raw.data(), raw.size());
        if (length < 0)
            return fail(error, errno);
        raw.truncate(int(length));
        return ::symlink(raw.constData(), native(destination).constData()) == 0 || fail(error, errno);
    }
    if (S_ISDIR(st.st_mode)) {
        if (::mkdir(native(destination).constData(), 0700) != 0)
            return fail(error, errno);
        for (const QString& name : entriesOf(source))
            if (!copyItem(fnd::stringByAppendingPathComponent(source, name),
                          fnd::stringByAppendingPathComponent(destination, name), error))
                return false;
    } else if (!copyFileBytes(source, destination, error)) {
        return false;
    }
    return copyMetadata(source, destination, error);
}

bool moveItem(const QString& source, const QString& destination, QString* error)
{
    if (!existsNoFollow(source))
        return fail(error, ENOENT);
    // A rename to the same item (a case-only rename on a case-insensitive volume) is allowed.
    if (existsNoFollow(destination) && source != destination) {
        struct stat a {}, b {};
        const bool same = ::lstat(native(source).constData(), &a) == 0 &&
                          ::lstat(native(destination).constData(), &b) == 0 && a.st_dev == b.st_dev &&
                          a.st_ino == b.st_ino;
        if (!same)
            return fail(error, EEXIST);
    }
    if (::rename(native(source).constData(), native(destination).constData()) == 0)
        return true;
    if (errno != EXDEV)
        return fail(error, errno);
    return copyItem(source, destination, error) && removeItem(source, error);
}

bool createFolder(const QString& path, QString* error)
{
    struct stat st {};
    if (::stat(native(path).constData(), &st) == 0)
        return S_ISDIR(st.st_mode) || fail(error, EEXIST);
    const QString parent = fnd::stringByDeletingLastPathComponent(path);
    if (!parent.isEmpty() && parent != path && !createFolder(parent, error))
        return false;
    if (::mkdir(native(path).constData(), 0755) != 0 && errno != EEXIST)
        return fail(error, errno);
    return true;
}

bool copyMetadata(const QString& from, const QString& to, QString* error)
{
    struct stat st {};
    if (::lstat(native(from).constData(), &st) != 0)
        return fail(error, errno);
    const struct timespec times[2] = {st.st_atim, st.st_mtim};
    if (::utimensat(AT_FDCWD, native(to).constData(), times, AT_SYMLINK_NOFOLLOW) != 0)
        return fail(error, errno);
    if (S_ISLNK(st.st_mode))
        return true;
    if (::chmod(native(to).constData(), st.st_mode & 07777) != 0)
        return fail(error, errno);
    return true;
}

} // namespace vlfm
