#include "install/BinHexDecoder.h"

#include <array>

namespace install {

namespace {

constexpr char kAlphabet[] = "!\"#$%&'()*+,-012345689@ABCDEFGHIJKLMNPQRSTUVXYZ[`abcdefhijklmpqr";
constexpr std::uint8_t kRunMarker = 0x90;

const std::array<int, 256>& sixBitTable()
{
    static const std::array<int, 256> table = [] {
        std::array<int, 256> t{};
        t.fill(-1);
        for (int i = 0; i < 64; ++i)
            t[std::uint8_t(kAlphabet[i])] = i;
        return t;
    }();
    return table;
}

bool isSpace(char c)
{
    return c == '\r' || c == '\n' || c == ' ' || c == '\t';
}

std::uint32_t bigEndian32(const QByteArray& b, int at)
{
    return (std::uint32_t(std::uint8_t(b[at])) << 24) | (std::uint32_t(std::uint8_t(b[at + 1])) << 16)
        | (std::uint32_t(std::uint8_t(b[at + 2])) << 8) | std::uint32_t(std::uint8_t(b[at + 3]));
}

std::uint16_t bigEndian16(const QByteArray& b, int at)
{
    return std::uint16_t((std::uint8_t(b[at]) << 8) | std::uint8_t(b[at + 1]));
}

} // namespace

bool BinHexDecoder::failWith(const QString& why)
{
    stage_ = Stage::Failed;
    return fail(why);
}

bool BinHexDecoder::feed(QByteArrayView in, QByteArray& out)
{
    for (const char c : in) {
        switch (stage_) {
        case Stage::Failed:
            return false;
        case Stage::Done:
            return true;
        case Stage::SeekStart:
            if (c == ':' && atLineStart_)
                stage_ = Stage::Encoded;
            atLineStart_ = c == '\n' || c == '\r';
            break;
        case Stage::Encoded:
            if (c == ':') {
                stage_ = Stage::Done;
                return true;
            }
            if (isSpace(c))
                break;
            if (sixBitTable()[std::uint8_t(c)] < 0)
                return failWith(QStringLiteral("The BinHex data holds a character outside its alphabet."));
            if (!takeSixBits(sixBitTable()[std::uint8_t(c)], out))
                return false;
            break;
        }
    }
    return stage_ != Stage::Failed;
}

bool BinHexDecoder::takeSixBits(int value, QByteArray& out)
{
    bitBuffer_ = (bitBuffer_ << 6) | std::uint32_t(value);
    bitCount_ += 6;
    if (bitCount_ < 8)
        return true;
    bitCount_ -= 8;
    const auto byte = std::uint8_t(bitBuffer_ >> bitCount_);
    bitBuffer_ &= (1u << bitCount_) - 1;
    return expandRun(byte, out);
}

bool BinHexDecoder::expandRun(std::uint8_t byte, QByteArray& out)
{
    if (afterMarker_) {
        afterMarker_ = false;
        if (byte == 0) {
            last_ = kRunMarker;
            haveLast_ = true;
            return takeByte(kRunMarker, out);
        }
        if (!haveLast_)
            return failWith(QStringLiteral("The BinHex data starts with a repeat."));
        for (int i = 1; i < byte; ++i) {
            if (!takeByte(last_, out))
                return false;
        }
        return true;
    }
    if (byte == kRunMarker) {
        afterMarker_ = true;
        return true;
    }
    last_ = byte;
    haveLast_ = true;
    return takeByte(byte, out);
}

bool BinHexDecoder::headerComplete()
{
    // name length, name, version, type, creator, flags, data length, resource length, CRC
    const int nameLength = std::uint8_t(header_[0]);
    const int size = 1 + nameLength + 1 + 4 + 4 + 2 + 4 + 4 + 2;
    if (header_.size() < size)
        return false;
    const int crcAt = size - 2;
    if (crc16Ccitt(QByteArrayView(header_).first(crcAt)) != bigEndian16(header_, crcAt)) {
        failWith(QStringLiteral("The BinHex header is damaged (CRC mismatch)."));
        return true;
    }
    dataRemaining_ = bigEndian32(header_, crcAt - 8);
    section_ = Section::Data;
    return true;
}

bool BinHexDecoder::takeByte(std::uint8_t byte, QByteArray& out)
{
    switch (section_) {
    case Section::Header:
        header_.append(char(byte));
        if (header_.size() == 1 && (byte < 1 || byte > 63))
            return failWith(QStringLiteral("The BinHex header names a file of impossible length."));
        if (headerComplete() && stage_ == Stage::Failed)
            return false;
        if (section_ == Section::Data && dataRemaining_ == 0)
            section_ = Section::DataCrc;
        return true;
    case Section::Data:
        out.append(char(byte));
        dataCrc_ = crc16Ccitt(QByteArrayView(reinterpret_cast<const char*>(&byte), 1), dataCrc_);
        if (--dataRemaining_ == 0)
            section_ = Section::DataCrc;
        return true;
    case Section::DataCrc:
        crcBytes_.append(char(byte));
        if (crcBytes_.size() < 2)
            return true;
        if (bigEndian16(crcBytes_, 0) != dataCrc_)
            return failWith(QStringLiteral("The BinHex data fork is damaged (CRC mismatch)."));
        section_ = Section::Rest;
        return true;
    case Section::Rest:
        return true;
    }
    return true;
}

bool BinHexDecoder::finish()
{
    if (stage_ == Stage::Failed)
        return false;
    if (section_ != Section::Rest)
        return fail(QStringLiteral("The BinHex data ended before the end of its data fork."));
    return true;
}

} // namespace install
