#pragma once
// Decoders for downloads that arrive wrapped in a classic Mac transfer encoding: MacBinary
// and BinHex 4.0 responses are stored as their data fork, the way the platform's URL
// download decodes them. Both decode as a stream: the download hands each chunk over as it
// arrives and writes the decoded bytes straight to the file, so memory stays bounded by the
// chunk size whatever the download's size. Resource forks are read past and dropped.
//
// Lifecycle: one decoder per download, fed in order, then finish() once. Not thread-safe;
// used by the thread that runs the download.

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <cstdint>
#include <memory>

namespace install {

class SourceDecoder {
public:
    virtual ~SourceDecoder() = default;
    // Decodes `in`, appending the data-fork bytes it completes to `out`. false on malformed
    // input; error() then says why and the decoder accepts nothing more.
    [[nodiscard]] virtual bool feed(QByteArrayView in, QByteArray& out) = 0;
    // The stream has ended: false when it ended before the whole data fork arrived.
    [[nodiscard]] virtual bool finish() = 0;
    QString error() const { return error_; }

protected:
    bool fail(const QString& why)
    {
        if (error_.isEmpty())
            error_ = why;
        return false;
    }
    QString error_;
};

// The decoding decision of the download: "application/macbinary" and "application/binhex"
// are decoded; everything else (notably "application/gzip") is stored as it arrives.
[[nodiscard]] bool shouldDecodeSourceDataOfMIMEType(const QString& mimeType);
// A decoder for the two decoded types, nullptr for every other type.
[[nodiscard]] std::unique_ptr<SourceDecoder> decoderForMIMEType(const QString& mimeType);

// CRC-16 with polynomial 0x1021, initial value 0, no reflection: the checksum of both
// MacBinary II headers and BinHex sections.
[[nodiscard]] std::uint16_t crc16Ccitt(QByteArrayView bytes, std::uint16_t crc = 0);

} // namespace install
