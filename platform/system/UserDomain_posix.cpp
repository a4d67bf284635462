// The user domain's standard folders with plain POSIX calls on descriptors: each folder is
// made and opened relative to its parent's descriptor, never through a symbolic link, so a
// link planted at ~/Library cannot send a superuser run into another folder.

#include "platform/system/UserDomain.h"

#include "platform/system/SystemEnvironment.h"
#include "platform/system/SystemLog.h"

#include <QFile>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

namespace sys {

namespace {

const char* const kLibraryFolders[] = {"Preferences", "Logs", "Application Support", "Caches"};

struct Owner {
    bool change = false; // only a superuser run gives what it makes away
    uid_t user = 0;
    gid_t group = 0;
};

QString systemError(int code)
{
    return QString::fromLocal8Bit(std::strerror(code));
}

// Descriptor of the folder `name` inside the folder open at `parentFd`, made first when
// nothing is at the name; -1 with the reason in `refusal`.
int madeFolder(int parentFd, const QString& path, const char* name, const Owner& owner, QString* refusal)
{
    const bool made = ::mkdirat(parentFd, name, 0700) == 0;
    if (!made && errno != EEXIST) {
        *refusal = QStringLiteral("The folder %1 cannot be created (%2).").arg(path, systemError(errno));
        return -1;
    }
    const int fd = ::openat(parentFd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
        const int code = errno;
        struct stat entry {};
        if (::fstatat(parentFd, name, &entry, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(entry.st_mode))
            *refusal = QStringLiteral("The folder %1 is a symbolic link.").arg(path);
        else if (code == ENOTDIR)
            *refusal = QStringLiteral("The folder %1 is not a folder.").arg(path);
        else
            *refusal = QStringLiteral("The folder %1 cannot be opened (%2).").arg(path, systemError(code));
        return -1;
    }
    if (!made)
        return fd;
    // The umask may have taken the owner's own bits; the owner is the home's for a root run.
    if (::fchmod(fd, 0700) != 0 || (owner.change && ::fchown(fd, owner.user, owner.group) != 0)) {
        *refusal = QStringLiteral("The folder %1 cannot be given to its user (%2).").arg(path, systemError(errno));
        ::close(fd);
        return -1;
    }
    return fd;
}

bool prepare(const QString& home, QString* refusal)
{
    // An empty HOME (or "/") would put the user's Library in the machine's.
    if (home.isEmpty()) {
        *refusal = QStringLiteral("The home folder is not known.");
        return false;
    }
    const int homeFd = ::open(QFile::encodeName(home).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (homeFd < 0) {
        *refusal = QStringLiteral("The home folder %1 cannot be opened (%2).").arg(home, systemError(errno));
        return false;
    }
    struct stat homeInfo {};
    Owner owner;
    if (::geteuid() == 0 && ::fstat(homeFd, &homeInfo) == 0 && homeInfo.st_uid != 0)
        owner = {true, homeInfo.st_uid, homeInfo.st_gid};
    const QString libraryPath = home + QStringLiteral("/Library");
    const int libraryFd = madeFolder(homeFd, libraryPath, "Library", owner, refusal);
    ::close(homeFd);
    if (libraryFd < 0)
        return false;
    bool allThere = true;
    for (const char* name : kLibraryFolders) {
        QString why;
        const int fd = madeFolder(libraryFd, libraryPath + QLatin1Char('/') + QLatin1String(name), name, owner, &why);
        if (fd >= 0) {
            ::close(fd);
            continue;
        }
        // The other folders are still made: one bad entry should not cost the user the rest.
        *refusal = refusal->isEmpty() ? why : *refusal + QLatin1Char(' ') + why;
        allThere = false;
    }
    ::close(libraryFd);
    return allThere;
}

} // namespace

bool prepareUserDomain(QString* refusal)
{
    static std::mutex mutex;
    static std::optional<QString> preparedHome;
    static bool preparedResult = false;
    static QString preparedRefusal;

    const QString home = homeDirectory();
    std::lock_guard lock(mutex);
    if (home != preparedHome) {
        QString why;
        preparedResult = prepare(home, &why);
        preparedRefusal = why;
        preparedHome = home;
        if (!preparedResult)
            nsLogText(why + QStringLiteral(" The user's Library folders were not all made."));
    }
    if (refusal)
        *refusal = preparedRefusal;
    return preparedResult;
}

} // namespace sys
