#pragma once
// Whole-tree file operations on POSIX paths, used by the workspace: never following
// symbolic links, so a link inside a tree is copied or removed as a link.
// Stateless functions; any thread.

#include <QString>

namespace sys::filetree {

// True when something (a link included, even a dangling one) is at the path.
bool exists(const QString& path);
// Copies `source` to `destination`, which must not exist: folders recursively, files with
// their permission bits and modification times, symbolic links as links. On failure the
// partial copy is removed and `error` says why.
[[nodiscard]] bool copyTree(const QString& source, const QString& destination, QString* error = nullptr);
// Removes a file, link or whole folder tree. False when anything could not be removed
// (what could be removed is gone).
[[nodiscard]] bool removeTree(const QString& path, QString* error = nullptr);

} // namespace sys::filetree
