#pragma once
// Where a download is stored: the temporary download folder joined with the last path
// component of the record's "url". The component is taken as the platform's URL type takes
// it (only the path counts, one trailing "/" ignored, located in the still-encoded path and
// then percent-decoded). Because the name comes from a server, a name that could reach
// outside the temporary folder ("", ".", "..", "/" itself or anything holding "/" or a NUL
// once decoded) is refused, so nothing outside that folder is ever written or removed
// because of what a server sent.
//
// Pure functions; callable from any thread.

#include <QString>

#include <optional>

namespace install {

// The URL's last path component, percent-decoded; "" for an empty path, "/" for the path "/".
// nullopt when the text is not a URL at all.
[[nodiscard]] std::optional<QString> urlLastPathComponent(const QString& url);

// The last path component when it is safe to use as a file name inside the download folder.
[[nodiscard]] std::optional<QString> safeDownloadName(const QString& url);

// downloadFolder joined with the safe name; nullopt when the name is refused or the folder empty.
[[nodiscard]] std::optional<QString> downloadFilePath(const QString& downloadFolder, const QString& url);

} // namespace install
