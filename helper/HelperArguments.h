#pragma once
// The helper's command line: -source S -destination D -mountpath M [-silent 1], options in
// any order, each followed by its value. S and D must be absolute paths of application
// bundles (names ending in ".app") and must differ; anything else is refused before the
// helper touches a file, so a wrong call can never move or remove an unrelated folder.
//
// Pure; any thread.

#include <QString>
#include <QStringList>

#include <optional>

namespace helper {

struct Arguments {
    QString source;      // the new updater bundle (on the mounted image)
    QString destination; // the installed updater bundle to replace
    QString mountPath;   // the image to detach when done
    bool silent = false; // "-silent 1": do not relaunch
};

// `args` without the program name. nullopt with `error` set when the line is unusable.
[[nodiscard]] std::optional<Arguments> parseArguments(const QStringList& args, QString* error);

} // namespace helper
