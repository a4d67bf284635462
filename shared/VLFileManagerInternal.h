#pragma once
// Helpers shared by the VLFileManager sources; not part of the library's public interface.
// Every function here is safe on any thread.

#include "platform/foundation/Format.h"
#include "platform/system/WorkerPool.h"

#include <QString>

#include <functional>

namespace vlfm {

// True when something (a broken symbolic link included) sits at the path.
bool existsNoFollow(const QString& path);

// Writes a line to the system console (the platform's NSLog).
void consoleWithArgs(const QString& format, const QList<fnd::FormatArg>& args);
template <typename... A> void console(const QString& format, const A&... args)
{
    consoleWithArgs(format, {fnd::FormatArg(args)...});
}

// The strerror text of an errno value, as a localised error description.
QString errorText(int error);

// The ordinary (unprivileged) item operations behind the escalation ladder. Each returns false
// and fills `error` with the localised reason on failure.
// removeItem: recursive, never follows symbolic links.
bool removeItem(const QString& path, QString* error);
// copyItem: recursive; links copied as links; permissions and dates kept; fails when the
// destination exists.
bool copyItem(const QString& source, const QString& destination, QString* error);
// moveItem: fails when the destination exists; across file systems it copies, then removes.
bool moveItem(const QString& source, const QString& destination, QString* error);
// createFolder: with intermediate folders; an existing folder is success.
bool createFolder(const QString& path, QString* error);
// Dates (access, modification) and permission bits of `from` onto `to`.
bool copyMetadata(const QString& from, const QString& to, QString* error);

// Polls `reached` until it holds or `seconds` have passed; on the main thread events are
// dispatched in 10 ms slices meanwhile, elsewhere the thread sleeps 0.3 s between checks.
// Returns the final check.
bool waitForState(const std::function<bool()>& reached, int seconds);

// A serial background queue for delegate messages. The destructor waits for every message
// still queued, so a delegate never outlives the operation that was handed it.
class DelegateQueue {
public:
    DelegateQueue() = default;
    DelegateQueue(const DelegateQueue&) = delete;
    DelegateQueue& operator=(const DelegateQueue&) = delete;

    void post(std::function<void()> work) { pool_.start(std::move(work)); }
    void drain() { pool_.waitForDone(); }

private:
    sys::WorkerPool pool_{1}; // its destructor waits for what is still queued
};

} // namespace vlfm
