#pragma once
// Small pieces shared by the download controller and the installers: waiting, ending the
// process of a windowless run, the downloaded file's path, the checksum test and the
// two-way wording of installer failures.
// Stateless; callable from any thread (endProcess: see there).

#include "AppController.h"

#include <QString>

#include <functional>
#include <optional>

namespace install {

// Runs `work` on the main thread and waits for it ("on the main thread, waiting").
void onMain(const std::function<void()>& work);

// Sleeps the calling thread.
void sleepSeconds(double seconds);

// Ends a windowless run: stops the network threads, drains the log and the standard streams,
// then exits with `status`
// (the ordinary exit on the main thread, an immediate one on a worker so that no static
// destructor runs under the feet of other threads).
[[noreturn]] void endProcess(int status);

// Writes a status line to standard output and flushes it (puts).
void putLine(const QString& text);

// The downloaded file of a record: downloadFolder joined with the last path component of
// "url"; nullopt when that name is refused (see DownloadPath.h). Throws the platform's
// unrecognised-message exception when "url" holds something other than text.
[[nodiscard]] std::optional<QString> downloadedFileOf(const QString& downloadFolder, const UpdateRecord& record);

// Removes the download folder and everything in it, only when it is this process's own
// folder (PrivateFolder.h): a link or another user's folder at its name is left alone and
// logged, so nothing outside the folder is ever removed.
void removeDownloadFolder(const QString& downloadFolder);

// A failure of an installer, worded both ways: without a window `windowlessText` is posted
// as the task error, appended to the log and written to the system log; with one an alert
// panel shows "Unable to install <title>" with `windowedInfo`.
void reportInstallFailure(AppController& c, const UpdateRecord& record, const QString& windowlessText,
                          const QString& windowedInfo);

// A download the installer will not use: "Unable to install <title>. <info>" is logged and
// printed, then posted as the task error (windowless) or shown as a sheet "Unable to install
// <title>" with `info` on the install panel (windowed).
void refuseDownload(AppController& c, const UpdateRecord& record, const QString& info);

// The download's checksum test, when the record carries "serverChecksum": the file's SHA-1
// as lower-case hex must equal it exactly (an unreadable file never matches). On mismatch it
// logs, prints, and tells the user (task error, or a sheet on the install panel) and returns
// false; the file is left where it is.
[[nodiscard]] bool verifyDownloadChecksum(AppController& c, const UpdateRecord& record, const QString& file);

// The record's "title".
QString titleOf(const UpdateRecord& record);

} // namespace install
