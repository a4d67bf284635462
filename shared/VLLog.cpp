// VLLog: the shared instance, line queuing, escaping, printing and shut-down. The file side
// (new log, rotation, writing one line) is in VLLogFile.cpp.

#include "shared/VLLog.h"
#include "shared/VLLogInternal.h"

#include "platform/foundation/Foundation.h"
#include "platform/foundation/PlatformException.h"
#include "platform/system/Bundle.h"
#include "platform/system/MainThread.h"

#include <QDateTime>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <mutex>
#include <unistd.h>

namespace {

std::mutex& finishMutex()
{
    static std::mutex mutex;
    return mutex;
}

std::terminate_handler previousTerminateHandler = nullptr;

// Logs the reason of an exception nobody caught, makes sure it is on disk, then lets the
// previous handler end the process.
[[noreturn]] void terminateWithLog()
{
    if (std::exception_ptr pending = std::current_exception()) {
        QString reason;
        try {
            std::rethrow_exception(pending);
        } catch (const fnd::PlatformException& e) {
            reason = e.reason();
        } catch (const std::exception& e) {
            reason = QString::fromUtf8(e.what());
        } catch (...) {
            reason = QStringLiteral("unknown exception");
        }
        VLLog::appendLogAndPrint(reason);
        VLLog::finishWriting();
    }
    if (previousTerminateHandler)
        previousTerminateHandler();
    std::abort();
}

void exitHook()
{
    VLLog::willTerminate();
}

} // namespace

namespace vllog {

QString timeStamp()
{
    // Formatted once per second: the writer stamps every line, often thousands a second.
    thread_local qint64 formattedSecond = -1;
    thread_local QString formatted;
    const QDateTime now = QDateTime::currentDateTimeUtc();
    if (const qint64 second = now.toSecsSinceEpoch(); second != formattedSecond) {
        formatted = now.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")) + QStringLiteral(" +0000");
        formattedSecond = second;
    }
    return formatted;
}

void printToStandardOutput(const QString& text)
{
    const QByteArray bytes = text.toUtf8();
    std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stdout);
    std::fflush(stdout);
}

} // namespace vllog

VLLog::VLLog()
    : d_(std::make_unique<Impl>())
{
}

VLLog::~VLLog() = default;

VLLog& VLLog::sharedController()
{
    // Never destroyed: the exit hook drains it, and static destruction order cannot then
    // pull the writer away from a late caller.
    static VLLog* instance = [] {
        auto* created = new VLLog();
        // The writer looks up the main bundle (the log's name, the banner) while the exit hook
        // drains it. Making the bundle cache and the executable's path here, before the hook is
        // registered, has them destroyed only after the hook has run.
        (void)sys::Bundle::mainBundle();
        std::atexit(exitHook);
        previousTerminateHandler = std::set_terminate(terminateWithLog);
        return created;
    }();
    return *instance;
}

void VLLog::createNewLog()
{
    createNewLog(QString(), false);
}

void VLLog::createNewLog(const QString& name)
{
    createNewLog(name, false);
}

void VLLog::createNewLog(const QString& name, bool noPrinting)
{
    // On the writer, in queue order: lines queued before this call still go to the old file.
    VLLog& log = sharedController();
    log.d_->writer.runAndWait([&] { log.createNewLogImpl(name, noPrinting); });
}

namespace {

// The characters after which a percent sign is printed as it stands.
constexpr char16_t kLiteralAfterPercent[] = u" .!,-;:+";

// Whether escaping changes the text: some percent sign is followed by one of those
// characters, or "%%%" occurs. Most formats ("Scanning folder: %@") need nothing.
bool needsEscaping(QStringView text)
{
    for (qsizetype i = text.indexOf(u'%'); i >= 0 && i + 1 < text.size(); i = text.indexOf(u'%', i + 1)) {
        if (QStringView(kLiteralAfterPercent).contains(text[i + 1]))
            return true;
    }
    return text.contains(u"%%%");
}

} // namespace

QString VLLog::escapeTextForLogging(const QString& text)
{
    if (!needsEscaping(text))
        return text;
    QString escaped = text;
    for (const QChar next : QStringView(kLiteralAfterPercent)) {
        const QString single = QLatin1Char('%') + next;
        escaped.replace(single, QLatin1Char('%') + single);
    }
    escaped.replace(QStringLiteral("%%%"), QStringLiteral("%%"));
    return escaped;
}

void VLLog::appendTextToLog(const QString& text)
{
    const QString trimmed = fnd::trimWhitespaceAndNewlines(text);
    if (trimmed.isEmpty())
        return;
    d_->bytesInQueue += static_cast<quint64>(trimmed.size());
    d_->writer.enqueue([this, trimmed] { appendLogOnThread(trimmed); });
}

void VLLog::fastAppendLogWithArgs(const QString& format, const QList<fnd::FormatArg>& args)
{
    VLLog& log = sharedController();
    if (format.isNull() || log.d_->loggingDisabled)
        return;
    log.appendTextToLog(fnd::formatWithArgs(escapeTextForLogging(format), args));
}

void VLLog::appendLogWithArgs(const QString& format, const QList<fnd::FormatArg>& args)
{
    VLLog& log = sharedController();
    if (format.isNull() || log.d_->loggingDisabled)
        return;
    const QString text = fnd::formatWithArgs(escapeTextForLogging(format), args);
    log.appendTextToLog(text);
    // Short progress lines from workers reach the disk before the worker goes on.
    if (!sys::isMainThread() && text.size() >= 1 && text.size() <= 99 && log.d_->bytesInQueue <= 99)
        finishWriting();
}

void VLLog::appendLogAndDebugPrintWithArgs(const QString& format, const QList<fnd::FormatArg>& args)
{
    if (format.isNull())
        return;
    // The finished text becomes appendLog's format: it is escaped and formatted once more.
    appendLogWithArgs(fnd::trimWhitespaceAndNewlines(fnd::formatWithArgs(format, args)), {});
}

void VLLog::appendLogAndPrintWithArgs(const QString& format, const QList<fnd::FormatArg>& args)
{
    if (format.isNull())
        return;
    const QString text = fnd::trimWhitespaceAndNewlines(fnd::formatWithArgs(format, args));
    appendLogWithArgs(text, {});
    if (sharedController().d_->noPrinting)
        return;
    QString echo = text;
    echo.remove(QStringLiteral("%@"));
    echo.replace(QStringLiteral("%"), QStringLiteral("%%"));
    echo.remove(QChar(u'\0'));
    vllog::printToStandardOutput(echo + QLatin1Char('\n'));
}

void VLLog::finishWriting()
{
    VLLogWriter& writer = sharedController().d_->writer;
    // The writer itself (roll-over) drains inline and must not queue behind a caller that
    // is waiting for it.
    if (writer.isWriterThread()) {
        writer.finishWriting();
        return;
    }
    std::lock_guard lock(finishMutex());
    writer.finishWriting();
}

void VLLog::willTerminate()
{
    VLLog& log = sharedController();
    VLLogWriter& writer = log.d_->writer;
    if (writer.pendingCount() <= vllog::kMaxPendingAtExit) {
        // A writer held by a test must be let go, or the drain would wait for ever.
        writer.setPausedForTesting(false);
        finishWriting();
    } else {
        writer.cancelAll();
    }
    writer.stop();
    std::lock_guard lock(log.d_->fileMutex);
    log.d_->appName.clear();
    if (log.d_->fd >= 0)
        ::close(log.d_->fd);
    log.d_->fd = -1;
}

void VLLog::printError(const QString& text) const
{
    if (d_->loggingDisabled || d_->noPrinting)
        return;
    vllog::printToStandardOutput(text);
}

void VLLog::resetForTesting()
{
    // The writer is kept (callers on other threads may be logging): it is only let go, drained
    // and, after willTerminate(), given a thread again.
    VLLog& log = sharedController();
    log.d_->writer.restartForTesting();
    finishWriting();
    {
        std::lock_guard lock(log.d_->fileMutex);
        if (log.d_->fd >= 0)
            ::close(log.d_->fd);
        log.d_->fd = -1;
        log.d_->appName.clear();
        log.d_->bytesWritten = 0;
        log.d_->rollingOver = false;
    }
    // Lines discarded at termination never gave their characters back.
    log.d_->bytesInQueue = 0;
    log.d_->loggingDisabled = false;
    log.d_->noPrinting = false;
}

void VLLog::setWriterPausedForTesting(bool paused)
{
    sharedController().d_->writer.setPausedForTesting(paused);
}
