#pragma once
// Helpers shared by the two installed-app scans (Scan.cpp): the folder listing with its
// error text, the update descriptor lookup, the descent rule and the guard against link
// cycles. Any thread; the cycle guard keeps its state per thread.

#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <optional>

namespace discovery::scan {

// The entry names of a folder in the order the file system returns them (hidden ones
// included), or nullopt after logging "Error getting contents of directory %@: %@".
[[nodiscard]] std::optional<QStringList> listFolder(const QString& folder);

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
