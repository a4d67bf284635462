#pragma once
// Running processes. An "application" is a process whose executable lies in
// X.app/Contents/MacOS/; its name is the bundle's CFBundleName (or the folder's name less
// ".app"), its path the bundle path, its identifier CFBundleIdentifier ("" when absent).
// Stateless functions: every call reads the process table afresh. Any thread.

#include <QList>
#include <QString>
#include <QStringList>
#include <sys/types.h>

namespace sys {

struct RunningApplication {
    QString path;       // bundle path, e.g. /Applications/Tessel.app
    QString name;       // display name
    QString identifier; // bundle identifier, "" when the bundle has none
    QList<pid_t> pids;  // every process of this application (one entry per bundle path)
};

// The current user's running applications, one entry per bundle path, ordered by the
// lowest process id of each (the order in which they were started, roughly).
QList<RunningApplication> launchedApplications();

// Whether an application with exactly this bundle identifier runs. An empty identifier is
// never running: an application without one does not answer to an absent identifier.
bool isApplicationRunning(const QString& bundleIdentifier);

// Executable paths of every process of the current user that can be read.
QStringList processExecutablePaths();

// The polite quit: SIGTERM to every process of the application whose bundle path equals
// `bundlePath` exactly. Returns the number of processes signalled.
int sendTerminate(const QString& bundlePath);

} // namespace sys
