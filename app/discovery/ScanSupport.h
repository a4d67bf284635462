#pragma once
// Helpers shared by the two installed-app scans (Scan.cpp): the folder listing with its
// error text, the update descriptor lookup, the descent rule and the guard against link
// cycles. Any thread; the cycle guard keeps its state per thread.

#include <QList>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <filesystem>
#include <optional>

namespace discovery::scan {

// One entry of a folder listing. The listing also tells what the entry is (on the usual
// file systems), so most entries need no call of their own to be told a folder from a file;
// nothing is asked of the file system until one of the questions below is.
struct FolderEntry {
    QString name;
    std::filesystem::directory_entry listed;
    // The name is the entry's own (valid UTF-8): a path built from it reaches the entry.
    bool exactName = false;
};

// The entries of a folder in the order the file system returns them (hidden ones included),
// or nullopt after logging "Error getting contents of directory %@: %@".
[[nodiscard]] std::optional<QList<FolderEntry>> listFolder(const QString& folder);

// Whether the entry at `path` (the folder joined with the entry's name) exists and is a
// folder, following links. Asks the file system only for a link, or when the listing could
// not tell.
[[nodiscard]] bool isExistingFolder(const FolderEntry& entry, const QString& path);

// Whether the entry is certainly no symbolic link. Asks the file system only when the
// listing could not tell.
[[nodiscard]] bool isKnownNotLink(const FolderEntry& entry);

// "Contents/Resources/VLUpdates.plist" when something exists there, else
// "Contents/VLUpdates.plist" when something exists there, else nullopt.
[[nodiscard]] std::optional<QString> descriptorPath(const QString& bundle);

// A descriptor that cannot be read as a dictionary reads as one without keys.
[[nodiscard]] QVariantMap readDescriptor(const QString& path);

// The raw destination of a symbolic link as stored in the link (relative or absolute), or
// nullopt when the path is not a link.
[[nodiscard]] std::optional<QString> linkDestination(const QString& path);

// Guards one folder of a walk against cycles through symbolic links that the plain prefix
// test lets through (relative links, links to a sibling that links back): a folder whose
// real path is already being walked further up on this thread is refused. Only a link can
// lead back, so a plain sub-folder of the folder walked last takes its real path from it
// without asking the file system. Lifetime: one per folder visit; the constructor enters
// the folder, the destructor leaves it.
class CycleGuard {
public:
    CycleGuard(const QString& folder, bool isLink);
    ~CycleGuard();
    CycleGuard(const CycleGuard&) = delete;
    CycleGuard& operator=(const CycleGuard&) = delete;
    // False when the folder is already on this thread's walk (nothing was entered).
    [[nodiscard]] bool entered() const { return entered_; }

private:
    bool entered_ = false;
};

} // namespace discovery::scan
