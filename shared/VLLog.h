#pragma once
// VLLog: the one log of the process. A text file per application name in the user's
// Library/Logs/Velmora, kept as five generations (<name>.1.log is the newest), written by one
// serial background writer so that callers never wait on the disk, except appendLog from a
// background thread with a short line and a nearly empty queue, which waits until its line
// is on disk. Every line is "<UTC time stamp> - <text>\n".
//
// Call style: VLLog::appendLog(QStringLiteral("Checking %@ (%i)"), path, version);
// Formats are escaped first (escapeTextForLogging): "% ", "%.", "%," and the like print a
// literal percent sign and consume no argument. Arguments are never escaped.
//
// The application name: the executable's file name without extension wins over a name
// passed to createNewLog (which is adopted only when there is no executable path); an empty
// name becomes "Unknown". When the process runs as user id 0 the current file lies in the
// local-domain Library/Logs/Velmora while folder creation, rotation and availableLogs keep
// to the user domain; this asymmetry is deliberate.
//
// Rotation (a new log when the current file exists): generation 5 is deleted when it is a
// file, then 4, 3, 2, 1 each move up one place. A move never replaces what is already there:
// the first that fails prints "Unable to move file <from> to <to>." and no new file is started.
//
// Switch: "disable-logging" in com.velmora.global.plist (the user's Preferences folder) set
// to the string "1" or a number equal to true turns logging off for the rest of the process.
//
// Lifecycle: the shared instance is created on first use and never destroyed; an exit hook
// (std::atexit) runs willTerminate: with at most 10 pending lines they are written, with 11 or
// more they are discarded. Uncaught exceptions are logged through a terminate handler.
// Threads: all members are static and may be called from any thread.

#include "platform/foundation/Format.h"

#include <QString>
#include <QStringList>

#include <cstddef>
#include <memory>

class VLLog {
public:
    VLLog(const VLLog&) = delete;
    VLLog& operator=(const VLLog&) = delete;

    static VLLog& sharedController();

    // Runs on the writer after the lines queued before the call (so they still go to the
    // old file) and returns when the new file has been started or has failed.
    static void createNewLog();
    static void createNewLog(const QString& name);
    static void createNewLog(const QString& name, bool noPrinting);

    template <typename... A> static void appendLog(const QString& format, const A&... args)
    {
        appendLogWithArgs(format, {fnd::FormatArg(args)...});
    }
    template <typename... A> static void fastAppendLog(const QString& format, const A&... args)
    {
        fastAppendLogWithArgs(format, {fnd::FormatArg(args)...});
    }
    // Formats (without escaping) and trims, logs the result through appendLog (so it is
    // escaped and formatted a second time, without arguments), then echoes it to standard
    // output with "%@" removed, "%" doubled and NUL characters removed; the doubled percent
    // signs do show on the console. Pass only arguments that hold no conversions.
    template <typename... A> static void appendLogAndPrint(const QString& format, const A&... args)
    {
        appendLogAndPrintWithArgs(format, {fnd::FormatArg(args)...});
    }
    // As appendLogAndPrint, without the echo.
    template <typename... A> static void appendLogAndDebugPrint(const QString& format, const A&... args)
    {
        appendLogAndDebugPrintWithArgs(format, {fnd::FormatArg(args)...});
    }
    // Does nothing in this build.
    template <typename... A> static void debugPrint(const QString&, const A&...) {}

    static void appendLogWithArgs(const QString& format, const QList<fnd::FormatArg>& args);
    static void fastAppendLogWithArgs(const QString& format, const QList<fnd::FormatArg>& args);
    static void appendLogAndPrintWithArgs(const QString& format, const QList<fnd::FormatArg>& args);
    static void appendLogAndDebugPrintWithArgs(const QString& format, const QList<fnd::FormatArg>& args);

    // Blocks until every queued line has been written.
    static void finishWriting();
    // Paths of the existing generations 1 to 5 in the user-domain log folder, in that order.
    static QStringList availableLogs();
    static QString escapeTextForLogging(const QString& text);
    static void willTerminate();

    // The name the log files carry (see the precedence rule above).
    static QString appName();
    // The user-domain log folder: libraryDirectory(true) + "/Logs/Velmora".
    static QString logFolder();
    // The file lines go to (local domain for user id 0, see above).
    static QString currentLogPath();

    // Test-only. resetForTesting() drains the writer (giving it a thread again after
    // willTerminate) and gives the shared instance a fresh state (name, file, flags,
    // counters) as if the process had just started; other threads may go on logging
    // meanwhile. setWriterPausedForTesting() holds the writer so a queue can build up.
    static void resetForTesting();
    static void setWriterPausedForTesting(bool paused);

private:
    struct Impl;
    friend struct Impl;

    VLLog();
    ~VLLog();

    void appendTextToLog(const QString& text);
    void appendLogOnThread(const QString& text);
    void createNewLogImpl(const QString& name, bool noPrinting);
    void writeBanner();
    [[nodiscard]] bool rotateGenerations(const QString& folder, const QString& name);
    QString appNameLocked() const;
    void printError(const QString& text) const;

    std::unique_ptr<Impl> d_;
};
