// The transfer-encoding decoders: the data fork comes through whatever the chunking, and
// anything that is not the format (or is damaged or cut short) is refused with an error.
#include "install/BinHexDecoder.h"
#include "install/MacBinaryDecoder.h"
#include "install/SourceDecoder.h"

#include "support/MacEncodings.h"

#include <gtest/gtest.h>

#include <QRandomGenerator>

namespace {

// Decodes `input` fed in chunks of `chunk` bytes; nullopt (with an error) when refused.
template <typename Decoder>
std::optional<QByteArray> decode(const QByteArray& input, qsizetype chunk)
{
    Decoder d;
    QByteArray out;
    for (qsizetype i = 0; i < input.size(); i += chunk) {
        if (!d.feed(QByteArrayView(input).sliced(i, std::min(chunk, input.size() - i)), out)) {
            EXPECT_FALSE(d.error().isEmpty());
            return std::nullopt;
        }
    }
    if (!d.finish()) {
        EXPECT_FALSE(d.error().isEmpty());
        return std::nullopt;
    }
    return out;
}

QByteArray randomBytes(qsizetype n)
{
    QByteArray b(n, 0);
    for (auto& c : b)
        c = char(QRandomGenerator::global()->bounded(256));
    return b;
}

TEST(SourceDecoding, TheDataForkSurvivesAnyChunking)
{
    const QByteArray data = randomBytes(70000);
    for (const qsizetype chunk : {qsizetype(1), qsizetype(129), qsizetype(65536)}) {
        for (const bool crc : {true, false})
            EXPECT_EQ(decode<install::MacBinaryDecoder>(vltest::encodeMacBinary(data, randomBytes(300), crc), chunk), data) << chunk;
        // Long runs split over several repeats, and the run marker byte itself.
        const QByteArray runs = data.left(5000) + QByteArray(700, 'A') + QByteArray(5, char(0x90)) + QByteArray("\x90\x01\x90", 3);
        EXPECT_EQ(decode<install::BinHexDecoder>(vltest::encodeBinHex(runs, randomBytes(100)), chunk), runs) << chunk;
    }
    EXPECT_EQ(decode<install::MacBinaryDecoder>(vltest::encodeMacBinary("payload", {}, true, 200), 50), QByteArray("payload"));
    EXPECT_EQ(decode<install::MacBinaryDecoder>(vltest::encodeMacBinary({}, "rsrc"), 1000), QByteArray());
    EXPECT_EQ(decode<install::BinHexDecoder>(vltest::encodeBinHex({}, {}), 7), QByteArray());
}

TEST(SourceDecoding, WhatIsNotTheFormatOrIsDamagedIsRefused)
{
    const QByteArray good = vltest::encodeMacBinary("payload", {});
    QByteArray damagedCrc = good;
    damagedCrc[124] = char(damagedCrc[124] ^ 0xFF);
    QByteArray notZero = good;
    notZero[0] = 1;
    QByteArray noName = vltest::encodeMacBinary("payload", {}, false);
    noName[1] = 0;
    for (const QByteArray& input : {damagedCrc, notZero, noName, good.left(128 + 3), QByteArray("<html>not found</html>").leftJustified(300, ' ')})
        EXPECT_FALSE(decode<install::MacBinaryDecoder>(input, 64).has_value());

    const QByteArray hqx = vltest::encodeBinHex(randomBytes(2000), {});
    QByteArray badChar = hqx;
    badChar[hqx.indexOf('\n', hqx.indexOf(':')) + 5] = '~';
    for (const QByteArray& input : {vltest::encodeBinHex("abcdef", {}, true), badChar, hqx.left(hqx.size() / 2) + ":", hqx.left(hqx.size() / 2),
                                    QByteArray("no colon anywhere")})
        EXPECT_FALSE(decode<install::BinHexDecoder>(input, 16).has_value());
}

} // namespace
