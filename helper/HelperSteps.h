#pragma once
// The helper's steps around the replacement: waiting for the updater to be gone, detaching
// the disk image and starting the new updater. Each logs what it does to the helper's log.
// Called from the helper's main thread, one after another.

#include <QString>

namespace helper {

// Waits until no process runs an executable inside `bundle` (the updater that started us
// is one). false when one still runs after `seconds`.
[[nodiscard]] bool waitForBundleToQuit(const QString& bundle, int seconds);

// "<root>/usr/bin/hdiutil" "detach" `mountPath` "-force", waiting at most 5 seconds.
void detachImage(const QString& mountPath);

// Starts the bundle's executable (Contents/MacOS/<CFBundleExecutable>) detached from us.
[[nodiscard]] bool relaunch(const QString& bundle);

} // namespace helper
