#include "install/SourceDecoder.h"

#include "install/BinHexDecoder.h"
#include "install/MacBinaryDecoder.h"

namespace install {

namespace {
const QString kMacBinary = QStringLiteral("application/macbinary");
const QString kBinHex = QStringLiteral("application/binhex");
const QString kGzip = QStringLiteral("application/gzip");
} // namespace

bool shouldDecodeSourceDataOfMIMEType(const QString& mimeType)
{
    if (mimeType == kMacBinary || mimeType == kBinHex)
        return true;
    // gzip is named on purpose and still not decoded: the file is stored as it arrives.
    if (mimeType == kGzip)
        return false;
    return false;
}

std::unique_ptr<SourceDecoder> decoderForMIMEType(const QString& mimeType)
{
    if (!shouldDecodeSourceDataOfMIMEType(mimeType))
        return nullptr;
    if (mimeType == kMacBinary)
        return std::make_unique<MacBinaryDecoder>();
    return std::make_unique<BinHexDecoder>();
}

std::uint16_t crc16Ccitt(QByteArrayView bytes, std::uint16_t crc)
{
    for (const char c : bytes) {
        crc ^= std::uint16_t(std::uint8_t(c) << 8);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 0x8000) ? std::uint16_t((crc << 1) ^ 0x1021) : std::uint16_t(crc << 1);
    }
    return crc;
}

} // namespace install
