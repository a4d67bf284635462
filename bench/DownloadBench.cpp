// A large download through the updater's download object against `curl -o` from the same
// local server in the same run, and the peak memory of the downloading process against its
// 64 MiB budget (the body goes straight to disk). Prints ratios, asserts none.
// The server is plain HTTP on 127.0.0.1, so the figures measure the client, not TLS.
#include "FileOpsBenchSupport.h"

#include "install/Download.h"

#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <cstdio>

namespace {

// The source tree, as the build folder's CMake cache records it.
QString sourceDirectory()
{
    QFile cache(QCoreApplication::applicationDirPath() + QStringLiteral("/../CMakeCache.txt"));
    if (cache.open(QIODevice::ReadOnly)) {
        while (!cache.atEnd()) {
            const QByteArray line = cache.readLine().trimmed();
            if (line.startsWith("CMAKE_HOME_DIRECTORY:INTERNAL="))
                return QString::fromUtf8(line.mid(line.indexOf('=') + 1));
        }
    }
    return QCoreApplication::applicationDirPath() + QStringLiteral("/../..");
}

// Starts scripts/testserver.py on `root`; returns its base address, "" on failure.
QString startServer(QProcess& server, const QString& root)
{
    server.setProgram(QStringLiteral("/usr/bin/python3"));
    server.setArguments({sourceDirectory() + QStringLiteral("/scripts/testserver.py"), QStringLiteral("--root"), root,
                         QStringLiteral("--http-only")});
    server.start();
    if (!server.waitForStarted() || !server.waitForReadyRead(15000))
        return QString();
    const int port = server.readLine().trimmed().toInt();
    return port > 0 ? QStringLiteral("http://127.0.0.1:%1").arg(port) : QString();
}

bool downloadWithUpdater(const QString& url, const QString& destination)
{
    bool ok = false;
    QEventLoop loop;
    std::unique_ptr<Download> download;
    Download::Delegate delegate;
    delegate.didFinish = [&] { ok = true; download.reset(); loop.quit(); };
    delegate.didFail = [&](const QString& why) {
        std::fprintf(stderr, "DownloadBench: %s\n", qPrintable(why));
        download.reset();
        loop.quit();
    };
    delegate.didReceiveDataOfLength = [](quint64) {};
    download = Download::create(url, 60, std::move(delegate));
    if (!download)
        return false;
    download->setDestination(destination, true);
    download->start();
    loop.exec();
    return ok;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const qint64 size = bench::benchBytes();
    QTemporaryDir served;
    const QString source = bench::makeRandomFile(QStringLiteral("DownloadBench.bin"), size);
    if (!served.isValid() || source.isEmpty() || !QFile::rename(source, served.filePath(QStringLiteral("update.dmg")))) {
        std::fprintf(stderr, "DownloadBench: cannot write the test file in %s\n", qPrintable(QDir::tempPath()));
        return 1;
    }
    QProcess server;
    const QString base = startServer(server, served.path());
    if (base.isEmpty()) {
        std::fprintf(stderr, "DownloadBench: the local server did not start\n");
        return 1;
    }
    const QString url = base + QStringLiteral("/update.dmg");
    const QString theirsFile = QDir::temp().filePath(QStringLiteral("DownloadBench.curl"));
    const QString oursFile = QDir::temp().filePath(QStringLiteral("DownloadBench.ours"));

    const double theirs = bench::timeTool(QStringLiteral("curl"), {QStringLiteral("-s"), QStringLiteral("-o"), theirsFile, url});
    const bench::ChildRun run = bench::runInChild([&] { return downloadWithUpdater(url, oursFile); });
    const bool complete = QFileInfo(oursFile).size() == size && QFileInfo(theirsFile).size() == size;
    QFile::remove(theirsFile);
    QFile::remove(oursFile);
    server.terminate();
    server.waitForFinished(5000);

    if (theirs <= 0 || !run.ok || !complete) {
        std::fprintf(stderr, "DownloadBench: a download failed or came out short\n");
        return 1;
    }
    const QString label = bench::sizeLabel(size);
    std::printf("download %s over local HTTP: %.2f s vs curl -o %.2f s, ratio %.2f\n", qPrintable(label), run.seconds,
                theirs, run.seconds / theirs);
    std::printf("download %s peak RSS: %.1f MiB vs budget 64 MiB, ratio %.2f\n", qPrintable(label), run.peakMiB,
                run.peakMiB / 64.0);
    return 0;
}
