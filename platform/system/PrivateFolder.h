#pragma once
// A folder that belongs to the process's user alone, and files written in it, as a shared
// temporary folder needs them: another local user can plant a symbolic link or a folder of
// their own at the name before we get there, to redirect what we write or remove.
// - The folder is created with mode 0700; an existing one of ours is narrowed to 0700.
// - A symbolic link at the folder's name is never followed, whatever it points to.
// - A folder owned by another user (root included, for a run that is not root) is refused.
// - Files are opened without following a symbolic link at their name.
// Refusals name the folder: "The folder <path> is a symbolic link." and the like.
// Stateless functions; any thread.

#include <QString>

#include <memory>

class QFile;

namespace sys {

// Creates `path` (missing parents with the ordinary mode) or checks the folder already there.
// false, with the reason in `refusal`, when the folder cannot be used.
[[nodiscard]] bool makePrivateFolder(const QString& path, QString* refusal);
// Whether `path` is such a folder now; creates and changes nothing.
[[nodiscard]] bool isPrivateFolder(const QString& path, QString* refusal = nullptr);
// `path` opened for writing, created (mode 0666 less the umask) or truncated; nullptr with
// the reason in `error` when it cannot be, a symbolic link at `path` included.
[[nodiscard]] std::unique_ptr<QFile> openForWritingNoFollow(const QString& path, QString* error);

} // namespace sys
