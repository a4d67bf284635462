// Writes the generated seeds of the fuzz targets whose inputs the shared corpus does not hold:
//   FuzzSeeds <corpus folder> <seed folder>
// <seed folder>/MacBinaryDecoderFuzz and BinHexDecoderFuzz get encoded files in the input
// layout of DecoderFuzz.h (whole and chunked, decode and encode mode, each encoder option,
// one damaged checksum); <seed folder>/OpenStepPlistFuzz gets the description text of every
// XML property list under <corpus folder>/plists/xml. Exits non-zero when a file cannot be
// read or written.
#include "platform/plist/PropertyList.h"
#include "support/MacEncodings.h"

#include <QDir>
#include <QFile>
#include <QList>

#include <cstdio>

namespace {

bool writeSeed(const QString& folder, const QString& name, const QByteArray& bytes)
{
    QDir().mkpath(folder);
    QFile file(folder + QLatin1Char('/') + name);
    if (file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size())
        return true;
    std::fprintf(stderr, "FuzzSeeds: cannot write %s\n", qPrintable(file.fileName()));
    return false;
}

// The leading bytes of DecoderFuzz.h: mode, variant and chunk sizes.
QByteArray prefix(bool encode, int variant, const QList<int>& chunkSizes)
{
    QByteArray p(1, char((encode ? 0x80 : 0) | (variant << 5) | chunkSizes.size()));
    for (const int size : chunkSizes)
        p += char(size);
    return p;
}

QByteArray sampleFork(int size)
{
    QByteArray fork;
    for (int i = 0; i < size; ++i)
        fork += char(i % 7 == 0 ? 0x90 : (i / 5) % 256); // runs and run markers
    return fork;
}

bool writeDecoderSeeds(const QString& folder, bool binHex)
{
    const QList<QList<int>> chunkings = {{}, {1}, {0, 7, 128, 3}, {127, 1, 64}};
    const QList<int> sizes = {0, 5, 700};
    bool ok = true;
    int n = 0;
    for (int variant = 0; variant < 4; ++variant) {
        for (const int size : sizes) {
            const QByteArray fork = sampleFork(size);
            const QByteArray rsrc = variant & 1 ? fork : QByteArray();
            const QByteArray encoded = binHex ? vltest::encodeBinHex(fork, rsrc, variant == 3)
                                              : vltest::encodeMacBinary(fork, rsrc, variant != 2, variant == 3 ? 130 : 0);
            const QList<int>& chunks = chunkings[n % chunkings.size()];
            ok &= writeSeed(folder, QStringLiteral("decode-%1").arg(n), prefix(false, 0, chunks) + encoded);
            ok &= writeSeed(folder, QStringLiteral("encode-%1").arg(n), prefix(true, variant, chunks) + fork);
            ++n;
        }
    }
    return ok;
}

bool writeOpenStepSeeds(const QString& corpus, const QString& folder)
{
    const QDir xml(corpus + QStringLiteral("/plists/xml"));
    const QStringList names = xml.entryList(QDir::Files, QDir::Name);
    if (names.isEmpty()) {
        std::fprintf(stderr, "FuzzSeeds: no property lists in %s\n", qPrintable(xml.path()));
        return false;
    }
    bool ok = true;
    for (const QString& name : names) {
        QFile file(xml.filePath(name));
        if (!file.open(QIODevice::ReadOnly))
            return false;
        if (const std::optional<QVariant> value = plist::readXml(file.readAll()))
            ok &= writeSeed(folder, name + QStringLiteral(".txt"), plist::description(*value).toUtf8());
    }
    return ok;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: FuzzSeeds <corpus folder> <seed folder>\n");
        return 2;
    }
    const QString corpus = QString::fromLocal8Bit(argv[1]);
    const QString seeds = QString::fromLocal8Bit(argv[2]);
    // Every folder is written even when an earlier one failed, so one run reports every fault.
    bool ok = writeDecoderSeeds(seeds + QStringLiteral("/MacBinaryDecoderFuzz"), false);
    ok = writeDecoderSeeds(seeds + QStringLiteral("/BinHexDecoderFuzz"), true) && ok;
    ok = writeOpenStepSeeds(corpus, seeds + QStringLiteral("/OpenStepPlistFuzz")) && ok;
    return ok ? 0 : 1;
}
