#include "install/BinHexDecoder.h"
#include "install/MacBinaryDecoder.h"
#include "install/SourceDecoder.h"

#include "support/MacEncodings.h"

#include <gtest/gtest.h>

#include <QRandomGenerator>

namespace {

using install::BinHexDecoder;
using install::MacBinaryDecoder;
using install::SourceDecoder;

// Feeds `input` in chunks of `chunk` bytes; nullopt when the decoder refused it.
std::optional<QByteArray> decodeInChunks(SourceDecoder& d, const QByteArray& input, qsizetype chunk)
{
    QByteArray out;
    for (qsizetype i = 0; i < input.size(); i += chunk) {
        if (!d.feed(QByteArrayView(input).sliced(i, std::min(chunk, input.size() - i)), out))
            return std::nullopt;
    }
    if (!d.finish())
        return std::nullopt;
    return out;
}

QByteArray randomBytes(qsizetype n)
{
    QByteArray b(n, 0);
    for (auto& c : b)
        c = char(QRandomGenerator::global()->bounded(256));
    return b;
}

TEST(Crc16, KnownCheckValue)
{
    EXPECT_EQ(install::crc16Ccitt("123456789"), 0x31C3);
}

TEST(SourceDecoding, OnlyMacBinaryAndBinHexAreDecoded)
{
    EXPECT_TRUE(install::shouldDecodeSourceDataOfMIMEType(QStringLiteral("application/macbinary")));
    EXPECT_TRUE(install::shouldDecodeSourceDataOfMIMEType(QStringLiteral("application/binhex")));
    EXPECT_FALSE(install::shouldDecodeSourceDataOfMIMEType(QStringLiteral("application/gzip")));
    EXPECT_FALSE(install::shouldDecodeSourceDataOfMIMEType(QStringLiteral("application/octet-stream")));
    EXPECT_EQ(install::decoderForMIMEType(QStringLiteral("application/gzip")), nullptr);
}

TEST(MacBinary, DataForkSurvivesAnyChunking)
{
    const QByteArray data = randomBytes(70000);
    const QByteArray rsrc = randomBytes(300);
    for (const bool crc : {true, false}) {
        for (const qsizetype chunk : {qsizetype(1), qsizetype(127), qsizetype(129), qsizetype(65536)}) {
            MacBinaryDecoder d;
            EXPECT_EQ(decodeInChunks(d, vltest::encodeMacBinary(data, rsrc, crc), chunk), data) << "crc " << crc << " chunk " << chunk;
        }
    }
}

TEST(MacBinary, SecondaryHeaderAndEmptyForkAreHandled)
{
    MacBinaryDecoder withSecondary;
    EXPECT_EQ(decodeInChunks(withSecondary, vltest::encodeMacBinary("payload", {}, true, 200), 50), QByteArray("payload"));
    MacBinaryDecoder empty;
    EXPECT_EQ(decodeInChunks(empty, vltest::encodeMacBinary({}, "rsrc"), 1000), QByteArray());
}

TEST(MacBinary, RejectsWhatIsNotMacBinary)
{
    const QByteArray good = vltest::encodeMacBinary("payload", {});
    QByteArray damagedCrc = good;
    damagedCrc[124] = char(damagedCrc[124] ^ 0xFF);
    QByteArray notZero = good;
    notZero[0] = 1;
    QByteArray noName = vltest::encodeMacBinary("payload", {}, false);
    noName[1] = 0;
    const QByteArray truncated = good.left(128 + 3);
    for (const QByteArray& input : {damagedCrc, notZero, noName, truncated, QByteArray("short"),
                                    QByteArray("<html>not found</html>").leftJustified(300, ' ')}) {
        MacBinaryDecoder d;
        EXPECT_FALSE(decodeInChunks(d, input, 64).has_value());
        EXPECT_FALSE(d.error().isEmpty());
    }
}

TEST(BinHex, DataForkSurvivesRunsMarkersAndChunking)
{
    QByteArray data = randomBytes(5000);
    data += QByteArray(700, 'A');           // long runs, split over several repeats
    data += QByteArray(5, char(0x90));      // the marker byte itself, repeated
    data += QByteArray("\x90\x01\x90", 3);
    const QByteArray rsrc = randomBytes(100);
    for (const qsizetype chunk : {qsizetype(1), qsizetype(3), qsizetype(65), qsizetype(100000)}) {
        BinHexDecoder d;
        EXPECT_EQ(decodeInChunks(d, vltest::encodeBinHex(data, rsrc), chunk), data) << "chunk " << chunk;
    }
    BinHexDecoder empty;
    EXPECT_EQ(decodeInChunks(empty, vltest::encodeBinHex({}, {}), 7), QByteArray());
}

TEST(BinHex, RejectsDamageAndTruncation)
{
    const QByteArray good = vltest::encodeBinHex(randomBytes(2000), {});
    const qsizetype start = good.indexOf('\n', good.indexOf(':'));
    ASSERT_GT(start, 0);
    QByteArray badChar = good;
    badChar[start + 5] = '~';
    QByteArray truncated = good.left(good.size() / 2) + ":";
    for (const QByteArray& input : {vltest::encodeBinHex("abcdef", {}, true), badChar, truncated, good.left(good.size() / 2),
                                    QByteArray("no colon anywhere")}) {
        BinHexDecoder d;
        EXPECT_FALSE(decodeInChunks(d, input, 16).has_value());
        EXPECT_FALSE(d.error().isEmpty());
    }
}

} // namespace
