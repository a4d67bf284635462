#pragma once
// MacBinary (I, II and III) to data fork. The 128-byte header is checked (zero bytes at
// offsets 0, 74 and 82, a name of 1 to 63 bytes, and either a valid header CRC or, for
// MacBinary I, zeros where the later versions keep their fields); the secondary header is
// skipped, the data fork passed through, everything after it dropped.
// Lifecycle and threads: see SourceDecoder.

#include "install/SourceDecoder.h"

namespace install {

class MacBinaryDecoder final : public SourceDecoder {
public:
    static constexpr int kHeaderSize = 128;

    [[nodiscard]] bool feed(QByteArrayView in, QByteArray& out) override;
    [[nodiscard]] bool finish() override;

private:
    [[nodiscard]] bool parseHeader();

    QByteArray header_;
    bool headerDone_ = false;
    bool failed_ = false;
    std::uint64_t skipRemaining_ = 0; // secondary header, padded to 128 bytes
    std::uint64_t dataRemaining_ = 0;
};

} // namespace install
