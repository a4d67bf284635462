// libFuzzer target: the MacBinary decoder fed in chunks (see DecoderFuzz.h for the input
// layout and the checks). Encoder variants: bit 0 writes MacBinary I (no header CRC), bit 1
// adds a secondary header (MacBinary II only); the second half of the data doubles as the
// resource fork, which the decoder must drop.
#include "DecoderFuzz.h"

#include "support/MacEncodings.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    return decoderfuzz::run(QStringLiteral("application/macbinary"), data, size,
                            [](const QByteArray& fork, int variant) {
        const bool withCrc = (variant & 1) == 0;
        const int secondary = withCrc && (variant & 2) ? 130 : 0;
        return vltest::encodeMacBinary(fork, fork.sliced(fork.size() / 2), withCrc, secondary);
    });
}
