// Sizes, unique names, wildcard paths, empty folders and file-name cleaning.
#include "shared/VLFileManager.h"
#include "shared/VLFileManagerInternal.h"

#include "platform/foundation/Foundation.h"

#include <QDir>
#include <QFileInfo>
#include <QSet>

#include <sys/stat.h>

namespace {

// Entry names of a folder, hidden ones included, in name order so that results are stable.
QStringList listing(const QString& folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                                  QDir::Name);
}

// Folders are followed through symbolic links; `visited` holds the canonical folders on the
// current branch so that a link back up the tree cannot recurse forever.
quint64 sizeOf(const QString& path, QSet<QString>& visited)
{
    struct stat st {};
    if (::stat(QFile::encodeName(path).constData(), &st) == 0 && S_ISDIR(st.st_mode)) {
        const QString canonical = QFileInfo(path).canonicalFilePath();
        if (visited.contains(canonical))
            return 0;
        visited.insert(canonical);
        quint64 total = 0;
        for (const QString& name : listing(path))
            total += sizeOf(fnd::stringByAppendingPathComponent(path, name), visited);
        visited.remove(canonical);
        return total;
    }
    if (::lstat(QFile::encodeName(path).constData(), &st) != 0)
        return 0;
    return quint64(st.st_size);
}

bool isPlainFolder(const QString& path)
{
    struct stat st {};
    return ::lstat(QFile::encodeName(path).constData(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool isIgnoredEntry(const QString& name)
{
    return name == QStringLiteral(".DS_Store") || name == QStringLiteral("Icon\r");
}

} // namespace

quint64 VLFileManager::fileSize(const QString& path)
{
    QSet<QString> visited;
    return sizeOf(path, visited);
}

QString VLFileManager::formatFileSize(double bytes)
{
    constexpr double kKB = 1024.0;
    constexpr double kMB = kKB * 1024.0;
    constexpr double kGB = kMB * 1024.0;
    constexpr double kTB = kGB * 1024.0;
    if (bytes < kKB)
        return fnd::format(QStringLiteral("%0.0f B"), bytes);
    if (bytes < kMB)
        return fnd::format(QStringLiteral("%0.2f KB"), bytes / kKB);
    if (bytes < kGB)
        return fnd::format(QStringLiteral("%0.2f MB"), bytes / kMB);
    if (bytes < kTB)
        return fnd::format(QStringLiteral("%0.2f GB"), bytes / kGB);
    return fnd::format(QStringLiteral("%0.2f TB"), bytes / kTB);
}

QString VLFileManager::uniqueFilename(const QString& path)
{
    if (!vlfm::existsNoFollow(path))
        return path;
    const QString stem = fnd::stringByDeletingPathExtension(path);
    const QString extension = fnd::pathExtension(path);
    for (qint64 n = 2;; ++n) {
        QString candidate = stem + fnd::format(QStringLiteral(" %li"), n);
        if (!extension.isEmpty())
            candidate = fnd::stringByAppendingPathExtension(candidate, extension);
        if (!vlfm::existsNoFollow(candidate))
            return candidate;
    }
}

// The leading "/" component restarts at the base (or the root); a trailing "/" changes nothing.
// The search-subfolders flag has never had an effect and is kept for callers only.
QStringList VLFileManager::filesMatchingWildcardPath(const QString& path, const QString& basePath, bool)
{
    if (!path.contains(QLatin1Char('*')))
        return {basePath.isEmpty() ? path : fnd::stringByAppendingPathComponent(basePath, path)};

    const QString start = basePath.isEmpty() ? QStringLiteral("/") : basePath;
    QStringList candidates{start};
    const QStringList components = fnd::pathComponents(path);
    for (int i = 0; i < components.size(); ++i) {
        const QString& component = components.at(i);
        QStringList next;
        if (component == QStringLiteral("/")) {
            if (i == 0)
                next = {start};
            else
                continue;
        } else if (component.contains(QLatin1Char('*'))) {
            for (const QString& folder : candidates)
                for (const QString& name : listing(folder))
                    if (fnd::likeMatch(name, component)) {
                        const QString joined = fnd::stringByAppendingPathComponent(folder, name);
                        if (QFileInfo::exists(joined))
                            next.append(joined);
                    }
        } else {
            for (const QString& candidate : candidates) {
                const QString joined = fnd::stringByAppendingPathComponent(candidate, component);
                if (QFileInfo::exists(joined))
                    next.append(joined);
            }
        }
        candidates = next;
    }
    return candidates;
}

QString VLFileManager::decodeWildcardPath(const QString& path, const QString& basePath)
{
    const QStringList matches = filesMatchingWildcardPath(path, basePath);
    if (!matches.isEmpty())
        return matches.first();
    return fnd::stringByAppendingPathComponent(basePath, path);
}

// A symbolic link inside the folder counts as a file, never as a folder to descend into.
bool VLFileManager::isFolderEmpty(const QString& path)
{
    const QStringList entries = listing(path);
    if (entries.isEmpty())
        return true;
    if (entries.size() == 1 && isIgnoredEntry(entries.first()))
        return true;
    for (const QString& name : entries) {
        if (isIgnoredEntry(name))
            continue;
        const QString entry = fnd::stringByAppendingPathComponent(path, name);
        if (!isPlainFolder(entry) || !isFolderEmpty(entry))
            return false;
    }
    return true;
}

QString VLFileManager::validateFilename(const QString& name, bool includeSlashes)
{
    if (name == QStringLiteral("."))
        return QString();
    QString result = name.startsWith(QLatin1Char('.')) ? name.mid(1) : name;
    result = fnd::trimWhitespaceAndNewlines(result);
    if (includeSlashes)
        result.remove(QLatin1Char('/'));
    result.remove(QLatin1Char(':'));
    return result;
}

bool VLFileManager::fileExistsAtPath(const QString& path)
{
    return !path.isEmpty() && QFileInfo::exists(path);
}

bool VLFileManager::isDirectoryAtPath(const QString& path)
{
    return !path.isEmpty() && QFileInfo(path).isDir();
}

bool VLFileManager::isSymbolicLinkAtPath(const QString& path)
{
    return !path.isEmpty() && QFileInfo(path).isSymLink();
}
