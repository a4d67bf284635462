#pragma once
// The entry point's run modes. The mode is chosen before any window exists, in a fixed
// order of precedence: the "checkpath" default (normally "-checkpath P" on the command
// line), then "-list" / "-autocheck", then "-install", else the windowed application.
// The windowless modes run synchronously on the main thread of a QCoreApplication and end
// with exit status 0 or 1, or continue as the windowed application (-checkpath that found an
// update, -autocheck that found updates): their application object is gone by then, and the
// windowed application starts with the process's own, unchanged arguments.

#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <optional>

namespace runmodes {

// The windowed application's entry (it lives with the windows, which only the executable links).
using WindowedEntry = int (*)(int argc, char** argv);

int run(int argc, char** argv, WindowedEntry windowedApplication);

// What a windowless mode ends with: an exit status, or nullopt to continue as the windowed
// application.
using ModeOutcome = std::optional<int>;

ModeOutcome runCheckpath(const QString& checkPath);
ModeOutcome runListOrAutocheck(const QStringList& arguments);
int runInstall(const QStringList& arguments);

// The Sparkle feed of the application at `appPath` for "-install sparkle": the SUFeedURL of
// its Info dictionary `info`, else that of Contents/Resources/VLUpdates.plist, else that of
// Contents/VLUpdates.plist. Unlike the scan, which takes the first descriptor file that
// exists, a descriptor without the key passes on to the next. "" when none has it.
QString installFeedOf(const QString& appPath, const QVariantMap& info);

// The identifiers after "-forceIDs", split at ","; nullopt when the switch is absent or last.
std::optional<QStringList> forcedIdentifiers(const QStringList& arguments);

} // namespace runmodes
