#pragma once
// Shared by the transfer-encoding decoder targets. The downloads hand a decoder whatever
// chunks the network delivers, so every input is decoded in chunks whose sizes it chooses:
//   byte 0       bit 7: encode mode; bits 5-6: encoder variant; bits 0-3: n, the number of
//                chunk sizes that follow;
//   bytes 1..n   chunk sizes (0 to 255, an empty chunk included), used in turn until the
//                stream is consumed (n = 0: the stream in one chunk);
//   the rest     the stream.
// Decode mode: the stream is decoded once in one piece and once in the chunks, stopping at
// the first refused chunk as the download does; both runs must agree on the bytes handed
// out, the verdict and the error. Encode mode: the stream is a data fork, encoded by the
// test encoders (the variant picks the options) and decoded in the chunks; the decoder must
// hand back exactly the data fork and finish cleanly. A failed check aborts.

#include "install/SourceDecoder.h"

#include <QByteArray>
#include <QList>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>

namespace decoderfuzz {

struct Input {
    bool encode = false;
    int variant = 0; // 0 to 3
    QList<int> chunkSizes;
    QByteArray stream;
};

inline Input splitInput(const uint8_t* data, size_t size)
{
    Input input;
    if (size == 0)
        return input;
    const int count = data[0] & 0x0F;
    input.encode = (data[0] & 0x80) != 0;
    input.variant = (data[0] >> 5) & 0x03;
    size_t at = 1;
    for (; at < size && input.chunkSizes.size() < count; ++at)
        input.chunkSizes.append(data[at]);
    if (std::all_of(input.chunkSizes.begin(), input.chunkSizes.end(), [](int s) { return s == 0; }))
        input.chunkSizes.clear();
    input.stream = QByteArray(reinterpret_cast<const char*>(data + at), qsizetype(size - at));
    return input;
}

struct Outcome {
    bool ok = false;
    QByteArray out;
    QString error;
};

inline Outcome decode(const QString& mimeType, const QByteArray& stream, const QList<int>& chunkSizes)
{
    const std::unique_ptr<install::SourceDecoder> decoder = install::decoderForMIMEType(mimeType);
    if (!decoder) {
        std::fprintf(stderr, "no decoder for %s\n", qPrintable(mimeType));
        std::abort();
    }
    Outcome outcome;
    qsizetype at = 0;
    for (int i = 0; at < stream.size(); ++i) {
        const qsizetype size = chunkSizes.isEmpty() ? stream.size() : chunkSizes[i % chunkSizes.size()];
        const QByteArrayView chunk = QByteArrayView(stream).sliced(at, std::min(size, stream.size() - at));
        at += chunk.size();
        if (!decoder->feed(chunk, outcome.out)) {
            outcome.error = decoder->error();
            return outcome;
        }
    }
    outcome.ok = decoder->finish();
    outcome.error = decoder->error();
    return outcome;
}

inline void check(bool condition, const char* what)
{
    if (!condition) {
        std::fprintf(stderr, "check failed: %s\n", what);
        std::abort();
    }
}

// `encoder` turns a data fork into the encoded stream for the given variant.
inline int run(const QString& mimeType, const uint8_t* data, size_t size,
               const std::function<QByteArray(const QByteArray&, int)>& encoder)
{
    const Input input = splitInput(data, size);
    if (input.encode) {
        const Outcome decoded = decode(mimeType, encoder(input.stream, input.variant), input.chunkSizes);
        check(decoded.ok && decoded.error.isEmpty(), "a well-formed stream was refused");
        check(decoded.out == input.stream, "the decoded data fork differs from the encoded one");
        return 0;
    }
    const Outcome whole = decode(mimeType, input.stream, {});
    const Outcome chunked = decode(mimeType, input.stream, input.chunkSizes);
    check(whole.ok == chunked.ok, "the verdict depends on the chunk boundaries");
    check(whole.out == chunked.out, "the bytes handed out depend on the chunk boundaries");
    check(whole.error == chunked.error, "the error depends on the chunk boundaries");
    check(whole.ok == whole.error.isEmpty(), "a refusal without an error, or an error on success");
    return 0;
}

} // namespace decoderfuzz
