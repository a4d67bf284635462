#pragma once
// The entry point's run modes. The mode is chosen before any window exists, in a fixed
// order of precedence: the "checkpath" default (normally "-checkpath P" on the command
// line), then "-list" / "-autocheck", then "-install", else the windowed application.
// The windowless modes run synchronously on the main thread of a QCoreApplication and end
// with exit status 0 or 1.

#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <optional>

namespace runmodes {

int run(int argc, char** argv);

int runCheckpath(const QString& checkPath);
int runListOrAutocheck(const QStringList& arguments);
int runInstall(const QStringList& arguments);
int runWindowedApplication(int argc, char** argv);

// The Sparkle feed of the application at `appPath` for "-install sparkle": the SUFeedURL of
// its Info dictionary `info`, else that of Contents/Resources/VLUpdates.plist, else that of
// Contents/VLUpdates.plist. Unlike the scan, which takes the first descriptor file that
// exists, a descriptor without the key passes on to the next. "" when none has it.
QString installFeedOf(const QString& appPath, const QVariantMap& info);

// The identifiers after "-forceIDs", split at ","; nullopt when the switch is absent or last.
std::optional<QStringList> forcedIdentifiers(const QStringList& arguments);

// Said on standard error when a mode has to continue as the windowed application, which
// this build does not have yet; the caller then exits with status 1.
int windowedApplicationUnavailable(const char* reason);

} // namespace runmodes
