#include "install/MacBinaryDecoder.h"

namespace install {

namespace {

std::uint32_t bigEndian32(const QByteArray& b, int at)
{
    return (std::uint32_t(std::uint8_t(b[at])) << 24) | (std::uint32_t(std::uint8_t(b[at + 1])) << 16)
        | (std::uint32_t(std::uint8_t(b[at + 2])) << 8) | std::uint32_t(std::uint8_t(b[at + 3]));
}

std::uint16_t bigEndian16(const QByteArray& b, int at)
{
    return std::uint16_t((std::uint8_t(b[at]) << 8) | std::uint8_t(b[at + 1]));
}

bool allZero(const QByteArray& b, int from, int to)
{
    for (int i = from; i < to; ++i) {
        if (b[i] != 0)
            return false;
    }
    return true;
}

} // namespace

bool MacBinaryDecoder::parseHeader()
{
    const int nameLength = std::uint8_t(header_[1]);
    if (header_[0] != 0 || header_[74] != 0 || header_[82] != 0 || nameLength < 1 || nameLength > 63)
        return fail(QStringLiteral("The data is not in MacBinary format."));
    const bool crcValid = crc16Ccitt(QByteArrayView(header_).first(124)) == bigEndian16(header_, 124);
    // MacBinary I has no CRC; it keeps zeros where versions II and III store their fields.
    if (!crcValid && !allZero(header_, 99, 128))
        return fail(QStringLiteral("The MacBinary header is damaged."));
    const std::uint32_t secondary = crcValid ? bigEndian16(header_, 120) : 0;
    skipRemaining_ = (std::uint64_t(secondary) + 127) / 128 * 128;
    dataRemaining_ = bigEndian32(header_, 83);
    headerDone_ = true;
    return true;
}

bool MacBinaryDecoder::feed(QByteArrayView in, QByteArray& out)
{
    if (failed_)
        return false;
    if (!headerDone_) {
        const qsizetype take = std::min<qsizetype>(kHeaderSize - header_.size(), in.size());
        header_.append(in.first(take));
        in = in.sliced(take);
        if (header_.size() < kHeaderSize)
            return true;
        if (!parseHeader()) {
            failed_ = true;
            return false;
        }
    }
    const auto skip = qsizetype(std::min<std::uint64_t>(skipRemaining_, std::uint64_t(in.size())));
    skipRemaining_ -= std::uint64_t(skip);
    in = in.sliced(skip);
    const auto take = qsizetype(std::min<std::uint64_t>(dataRemaining_, std::uint64_t(in.size())));
    out.append(in.first(take));
    dataRemaining_ -= std::uint64_t(take);
    return true;
}

bool MacBinaryDecoder::finish()
{
    if (failed_)
        return false;
    if (!headerDone_)
        return fail(QStringLiteral("The MacBinary data ended inside its header."));
    if (skipRemaining_ > 0 || dataRemaining_ > 0)
        return fail(QStringLiteral("The MacBinary data ended before the end of its data fork."));
    return true;
}

} // namespace install
