#pragma once
// The three installers' tests on the top-level names of a mounted volume, written as plain
// code with exactly the outcome each installer needs. Matching ignores case throughout.
//
//   application installer: a name ending in ".app" always matches; a name ending in
//       ".prefPane" matches unless it contains "Uninstall" (so an uninstaller application
//       next to the application can be taken, in listing order);
//   package installer:     ends in "pkg" (no dot needed) and does not contain "Uninstall";
//   self installer:        ends in ".app" and does not contain "Uninstall".
//
// Pure functions; callable from any thread.

#include <QString>
#include <QStringList>

#include <optional>

namespace install {

[[nodiscard]] bool isInstallableBundleName(const QString& name);
[[nodiscard]] bool isInstallerPackageName(const QString& name);
[[nodiscard]] bool isUpdaterApplicationName(const QString& name);

// The first name of `names` (kept in its order) that `test` accepts.
[[nodiscard]] std::optional<QString> firstMatching(const QStringList& names, bool (*test)(const QString&));

} // namespace install
