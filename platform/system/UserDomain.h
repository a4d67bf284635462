#pragma once
// The folders every account has in its user domain on the Mac, made for an account that has
// never had them (a fresh Linux home): $HOME/Library, and in it Preferences, Logs,
// "Application Support" and Caches. Nothing else is made, and nothing outside the home.
//
// - Made only inside an existing home: a missing home is reported and nothing is created
//   (every writer then reports its own failure, as before).
// - Made with mode 0700; for a run as the superuser, given to the owner of the home folder
//   (user and group), so a root run never leaves root-owned folders in a user's Library.
// - Folders already there keep their mode and owner.
// - A symbolic link (or anything but a folder) at one of the names is never followed and
//   nothing is made through it: "The folder <path> is a symbolic link." and the like.
// Refusals are written to the system log (sys::nsLog), once per home.
//
// The updater and its helper call it first thing, and the platform's own preference writers
// call it before they write, so it holds before the first write into the user domain (the
// privileged co-process writes nothing there of its own). The work is done once per home folder per process; later calls only return what
// the first found. Any thread.

#include <QString>

namespace sys {

// True when the five folders are folders now (made or already there); false with the reason
// in `refusal` otherwise. Callers may go on with their write: it reports its own failure.
[[nodiscard]] bool prepareUserDomain(QString* refusal = nullptr);

} // namespace sys
