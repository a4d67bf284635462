#pragma once
// runTool: runs a command-line tool of the system and waits for it, for the platform services
// that work through one (archives). The tool starts with posix_spawn, without a shell: its
// standard input is the null device, its output goes to a file (or the null device), its
// error output is collected for the caller's message.
//
// Not QProcess: QProcess starts its child in a way that lets the child run through the thread
// checker's hooks on the parent's memory, and after that the checker no longer sees the
// parent's locks (every later lock on that thread looks like none).
//
// Thread-safety: any thread; each call waits for its own child only.

#include <QString>
#include <QStringList>

namespace sys {

struct ToolRun {
    bool started = false;
    int status = -1; // the exit status; -1 when the tool ended by a signal
    QString errors;  // the tool's error output, or why it could not start
};

// workingFolder and outputFile may be empty (the caller's folder; the null device).
ToolRun runTool(const QString& tool, const QStringList& arguments, const QString& workingFolder,
                const QString& outputFile);

} // namespace sys
