// VLLog, file side: the application name, paths, the new-log operation with its rotation
// and banner, the writer's per-line operation with the roll-over, and availableLogs.

#include "shared/VLLog.h"
#include "shared/VLLogInternal.h"
#include "shared/VLLocalPaths.h"

#include "platform/foundation/Foundation.h"
#include "platform/system/Bundle.h"
#include "platform/system/SystemEnvironment.h"
#include "platform/system/UserDefaults.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <unistd.h>

namespace {

const QString kLogSubfolder = QStringLiteral("/Logs/Velmora");

// The running executable: the main bundle's, or (a bare tool has no CFBundleExecutable) the
// process's own file, as the platform's bundle object reports it for tools.
QString executablePath()
{
    if (const auto path = sys::Bundle::mainBundle().executablePath(); path && !path->isEmpty())
        return *path;
    return QCoreApplication::instance() ? QCoreApplication::applicationFilePath() : QString();
}

QString generationPath(const QString& folder, const QString& name, int generation)
{
    return QStringLiteral("%1/%2.%3.log").arg(folder, name).arg(generation);
}

QString currentPathFor(const QString& name)
{
    // Root's current file lives in the local domain; everything else in the user domain.
    if (::getuid() == 0)
        return VLLocalPaths::libraryDirectory(false) + kLogSubfolder + QStringLiteral("/%1.1.log").arg(name);
    return generationPath(VLLog::logFolder(), name, 1);
}

bool disabledBySwitch()
{
    return sys::globalSwitchIsOn(QStringLiteral("disable-logging"));
}

void writeAll(int fd, const QByteArray& bytes)
{
    qsizetype done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.constData() + done, static_cast<size_t>(bytes.size() - done));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            throw std::runtime_error(std::strerror(errno));
        done += n;
    }
}

double physicalMemoryGigabytes()
{
    const double bytes = double(::sysconf(_SC_PHYS_PAGES)) * double(::sysconf(_SC_PAGESIZE));
    return bytes / 1024.0 / 1024.0 / 1024.0;
}

} // namespace

QString VLLog::appNameLocked() const
{
    if (!d_->appName.isEmpty())
        return d_->appName;
    return QFileInfo(executablePath()).completeBaseName();
}

QString VLLog::appName()
{
    VLLog& log = sharedController();
    std::lock_guard lock(log.d_->fileMutex);
    return log.appNameLocked();
}

QString VLLog::logFolder()
{
    return VLLocalPaths::libraryDirectory(true) + kLogSubfolder;
}

QString VLLog::currentLogPath()
{
    return currentPathFor(appName());
}

QStringList VLLog::availableLogs()
{
    const QString folder = logFolder();
    const QString name = appName();
    QStringList logs;
    for (int generation = 1; generation <= vllog::kGenerations; ++generation) {
        const QString path = generationPath(folder, name, generation);
        if (QFileInfo::exists(path))
            logs.append(path);
    }
    return logs;
}

bool VLLog::rotateGenerations(const QString& folder, const QString& name)
{
    const QString oldest = generationPath(folder, name, vllog::kGenerations);
    if (QFileInfo::exists(oldest))
        QFile::remove(oldest);
    for (int generation = vllog::kGenerations - 1; generation >= 1; --generation) {
        const QString from = generationPath(folder, name, generation);
        const QString to = generationPath(folder, name, generation + 1);
        if (!QFileInfo::exists(from))
            continue;
        if (::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) != 0) {
            if (!d_->noPrinting)
                vllog::printToStandardOutput(QStringLiteral("Unable to move file %1 to %2.\n").arg(from, to));
            return false;
        }
    }
    return true;
}

void VLLog::createNewLogImpl(const QString& name, bool noPrinting)
{
    d_->noPrinting = noPrinting;
    if (d_->loggingDisabled)
        return;
    {
        std::lock_guard lock(d_->fileMutex);
        if (d_->fd >= 0)
            ::close(d_->fd);
        d_->fd = -1;
    }
    if (disabledBySwitch()) {
        if (!noPrinting)
            vllog::printToStandardOutput(QStringLiteral("Logging is disabled\n"));
        d_->loggingDisabled = true;
        return;
    }
    QString logName;
    {
        std::lock_guard lock(d_->fileMutex);
        if (!name.isEmpty() && appNameLocked().isEmpty())
            d_->appName = name;
        d_->bytesWritten = 0;
        if (appNameLocked().isEmpty())
            d_->appName = QStringLiteral("Unknown");
        logName = appNameLocked();
    }
    const QString folder = logFolder();
    const QString current = currentPathFor(logName);
    if (!QFileInfo::exists(folder) && !QDir().mkpath(folder)) {
        if (!noPrinting)
            vllog::printToStandardOutput(QStringLiteral("Unable to create folder %1.\n").arg(folder));
        return;
    }
    if (QFileInfo::exists(current) && !rotateGenerations(folder, logName))
        return;
    QSaveFile empty(current);
    if (!empty.open(QIODevice::WriteOnly) || !empty.commit()) {
        if (!noPrinting)
            vllog::printToStandardOutput(QStringLiteral("Unable to create log file %1 - %2\n").arg(current, empty.errorString()));
        return;
    }
    const int fd = ::open(QFile::encodeName(current).constData(), O_WRONLY | O_APPEND | O_CLOEXEC);
    if (fd < 0)
        return;
    {
        std::lock_guard lock(d_->fileMutex);
        if (d_->fd >= 0)
            ::close(d_->fd);
        d_->fd = fd;
    }
    writeBanner();
}

void VLLog::writeBanner()
{
    fastAppendLog(QStringLiteral("Log started: %@\n"), vllog::timeStamp());
    const sys::Bundle bundle = sys::Bundle::mainBundle();
    const QVariant version = bundle.objectForInfoDictionaryKey(QStringLiteral("CFBundleVersion"));
    if (version.isValid())
        fastAppendLog(QStringLiteral("Version: %@\n"), version);
    if (const QString executable = executablePath(); !executable.isEmpty())
        fastAppendLog(QStringLiteral("Path: %@\n"), executable);
    const long processors = ::sysconf(_SC_NPROCESSORS_CONF);
    appendLog(QStringLiteral("System: macOS %@, %li CPU(s), %0.2f GB RAM\n"), sys::productVersion(), processors,
        physicalMemoryGigabytes());
    fastAppendLog(QStringLiteral("Running in 64-bit mode\n"));
}

void VLLog::appendLogOnThread(const QString& text)
{
    if (d_->loggingDisabled)
        return;
    try {
        bool rollOver = false;
        bool opened = true;
        {
            std::lock_guard lock(d_->fileMutex);
            if (d_->fd < 0) {
                const QString path = currentPathFor(appNameLocked());
                // Append to what is there; never create the file here.
                d_->fd = ::open(QFile::encodeName(path).constData(), O_WRONLY | O_APPEND | O_CLOEXEC);
                opened = d_->fd >= 0;
            }
            if (opened) {
                const QString line = vllog::timeStamp() + QStringLiteral(" - ") + fnd::trimWhitespaceAndNewlines(text) + QLatin1Char('\n');
                const QByteArray bytes = line.toUtf8();
                writeAll(d_->fd, bytes);
                d_->bytesWritten += static_cast<quint64>(bytes.size());
                rollOver = d_->bytesWritten >= vllog::kRollOverBytes && !d_->rollingOver;
                d_->rollingOver = d_->rollingOver || rollOver;
            }
        }
        if (!opened) {
            printError(QStringLiteral("Unable to log the following information: %1\n").arg(text));
            printError(QStringLiteral("Unable to open log for output\n"));
        }
        if (rollOver) {
            // Lines queued before this point still belong in the old file. The one-name form
            // of createNewLog allows printing again, as it does for any caller.
            finishWriting();
            createNewLog(appName());
            appendLog(QStringLiteral("Log truncated at 500KB"));
            std::lock_guard lock(d_->fileMutex);
            d_->rollingOver = false;
        }
        d_->bytesInQueue -= static_cast<quint64>(text.size());
    } catch (const std::exception& e) {
        printError(QStringLiteral("Exception writing to log: %1\n").arg(QString::fromUtf8(e.what())));
    }
}
