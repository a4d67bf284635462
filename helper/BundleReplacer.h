#pragma once
// Replaces an installed bundle with a new one so that a failure, or the helper being killed,
// at any point leaves a working bundle at the destination:
//   1. the new bundle is copied to a hidden sibling of the destination
//      ("<parent>/.<name>.new-<pid>"); the installed bundle is untouched meanwhile;
//   2. the installed bundle is renamed aside ("<parent>/.<name>.old-<pid>");
//   3. the copy is renamed into place; if that fails the old bundle is renamed back;
//   4. the old bundle stays aside until the caller knows the new one starts: then it is
//      discarded, or else put back in place of the new one.
// Steps 2 and 3 (and the two renames of putting back) are two renames within one folder: only
// a kill between exactly those two calls leaves the destination missing, and the next run
// repairs it first (a leftover ".old-" sibling goes back into place when the destination is
// missing; leftover copies and old bundles are removed otherwise). Only these hidden siblings
// are ever removed.
//
// Stateless; one call at a time per destination.

#include <QString>

namespace helper {

enum class ReplaceStatus {
    Replaced,            // the destination now holds the new bundle
    FailedUnchanged,     // nothing replaced; the old bundle is in place
    FailedOldMovedAside, // the old bundle could not be put back; `detail` names where it is
};

struct ReplaceResult {
    ReplaceStatus status = ReplaceStatus::FailedUnchanged;
    QString detail;   // what failed, for the log
    QString previous; // where the old bundle is kept aside; "" when it is in place or there was none
};

// Undoes or removes what an interrupted earlier run left beside `destination`.
void repairInterruptedReplacement(const QString& destination);

// A source that is not a bundle with a runnable executable (Contents/MacOS/<CFBundleExecutable>)
// is refused before anything is touched: installed, it would leave no updater that starts.
[[nodiscard]] ReplaceResult replaceBundle(const QString& source, const QString& destination);

// Removes the old bundle kept aside by a replacement, once the new one is known to do.
void discardPrevious(const ReplaceResult& replaced);

// Puts the old bundle kept aside back at `destination` and removes the new one. false, with
// the reason in `why`, when it could not be put back; `previous` then still holds it.
[[nodiscard]] bool putPreviousBack(const QString& destination, const QString& previous, QString* why);

} // namespace helper
