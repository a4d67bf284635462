#pragma once
// Zip archives, made and opened by the platform's archiving tool, always run from under the
// system root. Linux (Archive_linux.cpp): <root>/usr/bin/zip and <root>/usr/bin/unzip. macOS
// (an Archive_mac.cpp beside it): <root>/usr/bin/ditto with "-ck" [--keepParent] SRC DST to
// make an archive and "-xk" ARCHIVE DST to open one.
//
// Stateless functions; each call runs the tool to its end (no time-out, as the archiving tool
// has none) on the caller's thread. Any thread. Paths may be relative to the process's
// working folder; names beginning with "-" or holding spaces are passed safely.

#include <QString>

namespace sys {

// Makes a zip archive of `source` (a file or a folder) at `destinationFile`, replacing a file
// there. Folders are stored recursively with symbolic links kept as links. With keepParent the
// entries begin with the source's own name ("Logs/a.log"); without it a folder's contents are at
// the top of the archive ("a.log"). On failure `error` (when given) says why and no partial
// archive is left behind.
[[nodiscard]] bool compressArchive(const QString& source, const QString& destinationFile, bool keepParent,
                                   QString* error = nullptr);

// Unpacks the zip archive into `destinationFolder` (created when missing), replacing files of the
// same names there. Entries that would reach outside the folder are not written.
[[nodiscard]] bool extractArchive(const QString& archive, const QString& destinationFolder,
                                  QString* error = nullptr);

} // namespace sys
