#pragma once
// BinHex 4.0 to data fork. Text before the first line that starts with ":" is skipped; the
// characters up to the closing ":" are six-bit groups (line breaks, spaces and tabs ignored),
// run-length expanded (0x90 marks a repeat of the previous byte, 0x90 0x00 a literal 0x90).
// The decoded stream is the header (name, type, creator, flags, fork lengths, CRC), the data
// fork and its CRC, then the resource fork, which is dropped. Both CRCs are checked; the data
// fork's bytes are handed out as they arrive, so a CRC failure is reported at its end and the
// download then fails and removes its file.
// Lifecycle and threads: see SourceDecoder.

#include "install/SourceDecoder.h"

namespace install {

class BinHexDecoder final : public SourceDecoder {
public:
    [[nodiscard]] bool feed(QByteArrayView in, QByteArray& out) override;
    [[nodiscard]] bool finish() override;

private:
    enum class Stage { SeekStart, Encoded, Done, Failed };
    enum class Section { Header, Data, DataCrc, Rest };

    [[nodiscard]] bool takeSixBits(int value, QByteArray& out);
    [[nodiscard]] bool expandRun(std::uint8_t byte, QByteArray& out);
    [[nodiscard]] bool takeByte(std::uint8_t byte, QByteArray& out);
    [[nodiscard]] bool headerComplete();
    bool failWith(const QString& why);

    Stage stage_ = Stage::SeekStart;
    Section section_ = Section::Header;
    bool atLineStart_ = true;
    std::uint32_t bitBuffer_ = 0;
    int bitCount_ = 0;
    bool haveLast_ = false;
    bool afterMarker_ = false;
    std::uint8_t last_ = 0;

    QByteArray header_;
    std::uint32_t dataRemaining_ = 0;
    std::uint16_t dataCrc_ = 0;
    QByteArray crcBytes_;
};

} // namespace install
