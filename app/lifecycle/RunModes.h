#pragma once
// The entry point's run modes. The mode is chosen before any window exists, in a fixed
// order of precedence: the "checkpath" default (normally "-checkpath P" on the command
// line), then "-list" / "-autocheck", then "-install", then "-explain", else the windowed
// application. "-explain" comes last among the switches so that every command line that
// meant something before it existed still means the same ("-list -explain" lists).
// The windowless modes run synchronously on the main thread of a QCoreApplication and end
// with exit status 0 or 1, or continue as the windowed application (-checkpath that found an
// update, -autocheck that found updates): their application object is gone by then, and the
// windowed application starts with the process's own, unchanged arguments.

#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

#include <optional>

class AppController;

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
// "-explain [<path or bundle ID>]": the check of -list, then why each application is or is
// not offered. Exit 0 when the report was printed.
int runExplain(const QStringList& arguments);

// The check of -list, -autocheck and -explain: the updater's own update alone when there is
// one, else the full check with the forced identifiers. With a report on the controller,
// the self check's verdict goes there too.
QVariantList collectUpdates(AppController& controller, const QStringList& arguments);

// What "-format" asks of -list and -explain: "-format json" gives JSON; no "-format" gives
// the usual text. Any other value (or none after it) also gives the usual text, after a
// note on standard error, so that a command line that worked before still prints the same.
enum class OutputFormat { Text, Json };
OutputFormat outputFormat(const QStringList& arguments);
// Prints `root` as indented JSON (UTF-8) with a final newline on standard output.
void printJson(const QJsonObject& root);

// The Sparkle feed of the application at `appPath` for "-install sparkle": the SUFeedURL of
// its Info dictionary `info`, else that of Contents/Resources/VLUpdates.plist, else that of
// Contents/VLUpdates.plist. Unlike the scan, which takes the first descriptor file that
// exists, a descriptor without the key passes on to the next. "" when none has it.
QString installFeedOf(const QString& appPath, const QVariantMap& info);

// The identifiers after "-forceIDs", split at ","; nullopt when the switch is absent or last.
std::optional<QStringList> forcedIdentifiers(const QStringList& arguments);

} // namespace runmodes
