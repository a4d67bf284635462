#pragma once
// VLLog: the one log of the process. A file per application name in the user's
// Library/Logs/Velmora, five generations, written by one serial background writer.
// All members are static and act on the shared instance; callable from any thread.
//
// Call style: VLLog::appendLog(QStringLiteral("Checking %@ (%i)"), path, version);

#include "platform/foundation/Format.h"

#include <QString>
#include <QStringList>

class VLLog {
public:
    VLLog(const VLLog&) = delete;
    VLLog& operator=(const VLLog&) = delete;

    static VLLog& sharedController();

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
    template <typename... A> static void appendLogAndPrint(const QString& format, const A&... args)
    {
        appendLogAndPrintWithArgs(format, {fnd::FormatArg(args)...});
    }
    template <typename... A> static void appendLogAndDebugPrint(const QString& format, const A&... args)
    {
        appendLogAndDebugPrintWithArgs(format, {fnd::FormatArg(args)...});
    }
    template <typename... A> static void debugPrint(const QString&, const A&...) {}

    static void appendLogWithArgs(const QString& format, const QList<fnd::FormatArg>& args);
    static void fastAppendLogWithArgs(const QString& format, const QList<fnd::FormatArg>& args);
    static void appendLogAndPrintWithArgs(const QString& format, const QList<fnd::FormatArg>& args);
    static void appendLogAndDebugPrintWithArgs(const QString& format, const QList<fnd::FormatArg>& args);

    static void finishWriting();
    static QStringList availableLogs();
    static QString escapeTextForLogging(const QString& text);
    static void willTerminate();

private:
    VLLog();
    ~VLLog();
};
