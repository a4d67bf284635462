// The escalation ladder: trash, remove, create, copy and move, each tried the ordinary way
// first and then, when allowed, through VLAuthorization; and the time-out forms that poll.
#include "shared/VLFileManager.h"
#include "shared/VLAuthorization.h"
#include "shared/VLFileManagerInternal.h"
#include "shared/VLLocalPaths.h"
#include "shared/VLLog.h"

#include "platform/foundation/Foundation.h"
#include "platform/system/Workspace.h"

#include <QDir>
#include <QFileInfo>

#include <sys/stat.h>
#include <unistd.h>

namespace {

VLAuthorization& authorization() { return VLAuthorization::sharedController(); }

QStringList entriesOf(const QString& folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                                  QDir::Name);
}

bool isRealFolder(const QString& path)
{
    struct stat st {};
    return ::lstat(QFile::encodeName(path).constData(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool isCaseOnlyRename(const QString& source, const QString& destination)
{
    return source.toLower() == destination.toLower();
}

// Trashes every matching non-folder under `folder`; folders are descended into, never trashed.
void trashMatching(const QString& folder, const std::function<bool(const QString&)>& matches, QStringList& tried)
{
    for (const QString& name : entriesOf(folder)) {
        const QString entry = fnd::stringByAppendingPathComponent(folder, name);
        if (isRealFolder(entry)) {
            trashMatching(entry, matches, tried);
        } else if (matches(name)) {
            tried.append(entry);
            (void)VLFileManager::trashFile(entry);
        }
    }
}

} // namespace

bool VLFileManager::trashFile(const QString& path, bool shouldAuth)
{
    if (!vlfm::existsNoFollow(path))
        return true;
    unlockFile(path);
    const QString parent = fnd::stringByDeletingLastPathComponent(path);
    if (sys::workspace().recycle(parent, VLLocalPaths::trashDirectory(), fnd::lastPathComponent(path)))
        return true;
    return shouldAuth && authorization().authTrashFile(path);
}

bool VLFileManager::trashFileTimeout(const QString& path, int seconds)
{
    if (!trashFile(path))
        return false;
    return vlfm::waitForState([&] { return !vlfm::existsNoFollow(path); }, seconds);
}

bool VLFileManager::trashDirectoryContents(const QString& folder, bool shouldAuth)
{
    bool allTrashed = true;
    for (const QString& name : entriesOf(folder))
        if (!trashFile(fnd::stringByAppendingPathComponent(folder, name), shouldAuth))
            allTrashed = false;
    return allTrashed;
}

QStringList VLFileManager::trashFilesOfType(const QString& extension, const QString& folder)
{
    QStringList tried;
    trashMatching(folder, [&](const QString& name) { return fnd::pathExtension(name).compare(extension, Qt::CaseInsensitive) == 0; },
                  tried);
    return tried;
}

QStringList VLFileManager::trashFilesNamed(const QString& name, const QString& folder)
{
    QStringList tried;
    trashMatching(folder, [&](const QString& entryName) { return entryName == name; }, tried);
    return tried;
}

bool VLFileManager::removeFile(const QString& path, bool shouldAuth)
{
    if (!vlfm::existsNoFollow(path))
        return true;
    unlockFile(path);
    QString error;
    if (vlfm::removeItem(path, &error))
        return true;
    VLLog::appendLog(QStringLiteral("Error removing file: %@. Authorizing..."), error);
    return shouldAuth && authorization().authRemoveFile(path);
}

bool VLFileManager::removeFileTimeout(const QString& path, int seconds)
{
    if (!removeFile(path, true))
        return false;
    return vlfm::waitForState([&] { return !vlfm::existsNoFollow(path); }, seconds);
}

bool VLFileManager::removeFolderIfEmpty(const QString& path)
{
    return isFolderEmpty(path) && removeFile(path);
}

bool VLFileManager::createDirectory(const QString& path, bool shouldAuth)
{
    if (!isDriveMountedForPath(path)) {
        vlfm::console(QStringLiteral("Unable to create directory. Drive is not mounted."));
        return false;
    }
    QString error;
    if (vlfm::createFolder(path, &error))
        return true;
    VLLog::appendLog(QStringLiteral("Error creating folder: %@. Authorizing..."), error);
    return shouldAuth && authorization().authCreateDir(path);
}

bool VLFileManager::createDirectoryTimeout(const QString& path, int seconds)
{
    if (!createDirectory(path))
        return false;
    return vlfm::waitForState([&] { return QFileInfo::exists(path); }, seconds);
}

QString VLFileManager::createDirectoryStructure(const QString& path, const QString& destination)
{
    const QString folder = isDirectoryAtPath(path) && !isPackageAtPath(path)
                               ? path
                               : fnd::stringByDeletingLastPathComponent(path);
    const QString joined = fnd::stringByAppendingPathComponent(destination, folder);
    if (!QFileInfo::exists(joined))
        (void)createDirectory(joined); // a failure is logged there; callers test the folder
    return joined;
}

bool VLFileManager::copyFile(const QString& source, const QString& destination, bool shouldAuth)
{
    if (source.isEmpty()) {
        VLLog::appendLogAndPrint(QStringLiteral("Error copying file: source path is nil"));
        return false;
    }
    if (destination.isEmpty()) {
        VLLog::appendLogAndPrint(QStringLiteral("Error copying file %@: destination path is nil"), source);
        return false;
    }
    unlockFile(fnd::stringByDeletingLastPathComponent(destination));
    QString error;
    // An existing destination fails here on purpose: the privileged copy below overwrites it.
    if (vlfm::copyItem(source, destination, &error))
        return true;
    VLLog::appendLog(QStringLiteral("Error copying file: %@. Authorizing..."), error);
    return shouldAuth && authorization().authCopyFile(source, destination);
}

bool VLFileManager::copyFileTimeout(const QString& source, const QString& destination, int seconds)
{
    if (!copyFile(source, destination))
        return false;
    return vlfm::waitForState([&] { return vlfm::existsNoFollow(destination); }, seconds);
}

bool VLFileManager::copyContentsOfDirectory(const QString& source, const QString& destination, int seconds)
{
    for (const QString& name : entriesOf(source)) {
        VLLog::fastAppendLog(QStringLiteral("File: %@"), name);
        if (!copyFileTimeout(fnd::stringByAppendingPathComponent(source, name),
                             fnd::stringByAppendingPathComponent(destination, name), seconds))
            return false;
    }
    return true;
}

bool VLFileManager::moveFile(const QString& source, const QString& destination, bool shouldAuth)
{
    if (vlfm::existsNoFollow(destination))
        unlockFile(destination);
    unlockFolder(fnd::stringByAppendingPathComponent(destination, fnd::lastPathComponent(source)));
    QString error;
    if (isCaseOnlyRename(source, destination)) {
        const QString interim = uniqueFilename(destination);
        if (vlfm::moveItem(source, interim, &error) && vlfm::moveItem(interim, destination, &error))
            return true;
    }
    if (vlfm::moveItem(source, destination, &error))
        return true;
    VLLog::appendLog(QStringLiteral("Error moving file from %@ to %@: %@."), source, destination, error);
    if (!shouldAuth)
        return false;
    VLLog::appendLog(QStringLiteral("Authorizing..."));
    return authorization().authMoveFile(source, destination);
}

bool VLFileManager::moveFileTimeout(const QString& source, const QString& destination, int seconds)
{
    if (!moveFile(source, destination))
        return false;
    if (isCaseOnlyRename(source, destination)) {
        ::usleep(500);
        return true;
    }
    return vlfm::waitForState([&] { return !vlfm::existsNoFollow(source); }, seconds);
}
