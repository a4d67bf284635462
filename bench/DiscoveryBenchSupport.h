#pragma once
// Helpers of the discovery benchmarks: a Mac-like tree in the temporary folder, vendor
// bundles in it, a run of the built updater with its peak memory, and the local test server.
// Single-threaded; benchmarks only.

#include "FileOpsBenchSupport.h"

#include "platform/plist/PropertyList.h"

#include <QCoreApplication>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <cstdio>
#include <fcntl.h>
#include <cstdlib>
#include <memory>
#include <vector>

namespace bench {

// The source folder of this build, read from the build folder's CMake cache.
inline QString sourceDirectory()
{
    QFile cache(QCoreApplication::applicationDirPath() + QStringLiteral("/../CMakeCache.txt"));
    if (!cache.open(QIODevice::ReadOnly))
        return QString();
    const QRegularExpression line(QStringLiteral("^CMAKE_HOME_DIRECTORY:INTERNAL=(.*)$"), QRegularExpression::MultilineOption);
    return line.match(QString::fromUtf8(cache.readAll())).captured(1).trimmed();
}

inline QString updaterExecutable()
{
    return QCoreApplication::applicationDirPath()
        + QStringLiteral("/../Velmora Software Update.app/Contents/MacOS/SoftwareUpdate");
}

inline bool writePlist(const QString& path, const QVariantMap& value)
{
    QDir().mkpath(QFileInfo(path).path());
    return plist::writeXmlFileAtomically(value, path);
}

inline bool makeVendorBundle(const QString& path, const QString& identifier, const QVariantMap& descriptor)
{
    return writePlist(path + QStringLiteral("/Contents/Info.plist"),
                      {{QStringLiteral("CFBundleIdentifier"), identifier}, {QStringLiteral("CFBundleVersion"), QStringLiteral("5")},
                       {QStringLiteral("CFBundleShortVersionString"), QStringLiteral("1.0")}})
        && writePlist(path + QStringLiteral("/Contents/Resources/VLUpdates.plist"), descriptor);
}

// A sandbox: <root>/home, <root>/tmp, <root>/sysroot with the log folders a Mac has.
struct BenchRoot {
    QTemporaryDir dir;
    QString home() const { return dir.filePath(QStringLiteral("home")); }
    QString tmp() const { return dir.filePath(QStringLiteral("tmp")); }
    QString sysroot() const { return dir.filePath(QStringLiteral("sysroot")); }
    bool prepare() const
    {
        return dir.isValid() && QDir().mkpath(home() + QStringLiteral("/Library/Logs/Velmora"))
            && QDir().mkpath(home() + QStringLiteral("/Library/Preferences"))
            && QDir().mkpath(tmp()) && QDir().mkpath(sysroot() + QStringLiteral("/Library/Logs/Velmora"))
            && QDir().mkpath(sysroot() + QStringLiteral("/Applications"));
    }
    void applyEnvironment(const QString& server, const QString& caFile) const
    {
        qputenv("HOME", home().toLocal8Bit());
        qputenv("TMPDIR", (tmp() + QLatin1Char('/')).toLocal8Bit());
        qputenv("VELMORA_SYSROOT", sysroot().toLocal8Bit());
        qputenv("VELMORA_UPDATE_SERVER", server.toLocal8Bit());
        qputenv("VELMORA_WEB_SITE", (server + QLatin1Char('/')).toLocal8Bit());
        if (!caFile.isEmpty())
            qputenv("VELMORA_CA_FILE", caFile.toLocal8Bit());
    }
};

// Runs the built updater with `arguments` in a child (the environment as this process has
// it), keeping its standard output in `output`; wall time and peak memory of that child.
inline ChildRun runUpdater(const QStringList& arguments, const QString& outputFile)
{
    return runInChild([&] {
        const int fd = ::open(QFile::encodeName(outputFile).constData(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        if (fd < 0)
            return false;
        ::dup2(fd, 1);
        ::close(fd);
        const QByteArray program = QFile::encodeName(updaterExecutable());
        std::vector<QByteArray> storage = {program};
        for (const QString& a : arguments)
            storage.push_back(a.toLocal8Bit());
        std::vector<char*> argv;
        for (QByteArray& s : storage)
            argv.push_back(s.data());
        argv.push_back(nullptr);
        ::execv(program.constData(), argv.data());
        return false;
    });
}

// The local HTTPS server (scripts/testserver.py) on a folder; stops when destroyed.
class LocalServer {
public:
    bool start(const QString& root, int delayMs)
    {
        const QString script = sourceDirectory() + QStringLiteral("/scripts/testserver.py");
        process_.setProgram(QStringLiteral("/usr/bin/python3"));
        process_.setArguments({script, QStringLiteral("--root"), root, QStringLiteral("--cert-dir"), certs_.path(),
                               QStringLiteral("--delay-ms"), QString::number(delayMs)});
        process_.setProcessChannelMode(QProcess::SeparateChannels);
        process_.start();
        if (!process_.waitForStarted(15000))
            return false;
        while (!process_.canReadLine() && process_.waitForReadyRead(30000)) {
        }
        port_ = process_.readLine().trimmed().toInt();
        return port_ > 0;
    }
    ~LocalServer()
    {
        process_.terminate();
        process_.waitForFinished(5000);
    }
    QString baseUrl() const { return QStringLiteral("https://127.0.0.1:%1").arg(port_); }
    QString caFile() const { return certs_.filePath(QStringLiteral("ca.pem")); }

private:
    QTemporaryDir certs_;
    QProcess process_;
    int port_ = 0;
};

} // namespace bench
