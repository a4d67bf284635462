// sha1HashForFile of a large file against `openssl dgst -sha1`, measured in the same run, and
// the peak memory of our hashing process against its 32 MiB budget. Prints ratios, asserts none.
#include "FileOpsBenchSupport.h"

#include "shared/VLFileManager.h"

#include <QCoreApplication>

#include <cstdio>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const qint64 size = bench::benchBytes();
    const QString path = bench::makeRandomFile(QStringLiteral("FileHashBench.bin"), size);
    if (path.isEmpty()) {
        std::fprintf(stderr, "FileHashBench: cannot write the test file in %s\n", qPrintable(QDir::tempPath()));
        return 1;
    }
    // One untimed pass of each puts the file in the page cache for both.
    QByteArray reference;
    bench::timeTool(QStringLiteral("openssl"), {QStringLiteral("dgst"), QStringLiteral("-sha1"), path});
    (void)VLFileManager::sha1HashForFile(path);

    const double theirs = bench::timeTool(QStringLiteral("openssl"), {QStringLiteral("dgst"), QStringLiteral("-sha1"), path}, &reference);
    const std::optional<QString> ours = VLFileManager::sha1HashForFile(path);
    const bench::ChildRun run = bench::runInChild([&] { return VLFileManager::sha1HashForFile(path).has_value(); });
    QFile::remove(path);

    if (theirs <= 0 || !run.ok || !ours || !reference.contains(ours->toLatin1())) {
        std::fprintf(stderr, "FileHashBench: a run failed or the digests differ\n");
        return 1;
    }
    const QString label = bench::sizeLabel(size);
    std::printf("sha1HashForFile %s: %.2f s vs openssl %.2f s, ratio %.2f\n", qPrintable(label), run.seconds, theirs,
                run.seconds / theirs);
    std::printf("sha1HashForFile %s peak RSS: %.1f MiB vs budget 32 MiB, ratio %.2f\n", qPrintable(label), run.peakMiB,
                run.peakMiB / 32.0);
    return 0;
}
