// A verified copy (SHA-256) of a large file to two destinations against `cp` to both followed
// by `sha256sum` of the source and both copies, measured in the same run. Prints the ratio.
#include "FileOpsBenchSupport.h"

#include "shared/VLFileManager.h"

#include <QCoreApplication>

#include <cstdio>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const qint64 size = bench::benchBytes();
    const QString source = bench::makeRandomFile(QStringLiteral("VerifiedCopyBench.bin"), size);
    if (source.isEmpty()) {
        std::fprintf(stderr, "VerifiedCopyBench: cannot write the test file in %s\n", qPrintable(QDir::tempPath()));
        return 1;
    }
    const QStringList copies{QDir::temp().filePath(QStringLiteral("VerifiedCopyBench.1")),
                             QDir::temp().filePath(QStringLiteral("VerifiedCopyBench.2"))};
    const auto removeCopies = [&] {
        for (const QString& copy : copies)
            QFile::remove(copy);
    };

    double theirs = 0;
    for (const QString& copy : copies) {
        const double seconds = bench::timeTool(QStringLiteral("cp"), {source, copy});
        theirs = seconds < 0 ? -1 : theirs + seconds;
    }
    QByteArray sums;
    const double summing = bench::timeTool(QStringLiteral("sha256sum"), QStringList{source} + copies, &sums);
    theirs = summing < 0 || theirs < 0 ? -1 : theirs + summing;
    removeCopies();

    QVariantMap settings;
    VLFileManagerDelegate delegate;
    delegate.fileCopyFinished = [&](const QVariantMap& final) { settings = final; };
    QElapsedTimer timer;
    timer.start();
    const bool copied = VLFileManager::copyFileWithProgress(source, copies, VLFileManager::VerifySHA256, &delegate,
                                                            QVariant(), QVariant());
    const double ours = double(timer.nsecsElapsed()) / 1e9;
    removeCopies();
    QFile::remove(source);

    const QString digest = settings.value(QStringLiteral("sourceChecksum")).toString();
    if (theirs <= 0 || !copied || digest.isEmpty() || !sums.startsWith(digest.toLatin1())) {
        std::fprintf(stderr, "VerifiedCopyBench: a run failed or the digests differ\n");
        return 1;
    }
    std::printf("verified copy %s to 2 destinations (SHA-256): %.2f s vs cp + sha256sum %.2f s, ratio %.2f\n",
                qPrintable(bench::sizeLabel(size)), ours, theirs, ours / theirs);
    return 0;
}
