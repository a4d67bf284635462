// libFuzzer target: the BinHex decoder fed in chunks (see DecoderFuzz.h for the input layout
// and the checks). Encoder variants: bit 0 adds the data again as the resource fork, bit 1 a
// resource fork of repeated run markers; the decoder must read past both and drop them.
#include "DecoderFuzz.h"

#include "support/MacEncodings.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    return decoderfuzz::run(QStringLiteral("application/binhex"), data, size,
                            [](const QByteArray& fork, int variant) {
        QByteArray rsrc;
        if (variant & 1)
            rsrc += fork;
        if (variant & 2)
            rsrc += QByteArray(300, char(0x90));
        return vltest::encodeBinHex(fork, rsrc);
    });
}
