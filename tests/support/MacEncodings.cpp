#include "support/MacEncodings.h"

#include <cstdint>

namespace vltest {

namespace {

void putBE(QByteArray& b, qsizetype at, quint32 v, int bytes)
{
    for (int i = 0; i < bytes; ++i)
        b[at + i] = char((v >> (8 * (bytes - 1 - i))) & 0xFF);
}

QByteArray be(quint32 v, int bytes)
{
    QByteArray b(bytes, 0);
    putBE(b, 0, v, bytes);
    return b;
}

QByteArray padded(QByteArray b)
{
    b.append(QByteArray((128 - b.size() % 128) % 128, 0));
    return b;
}

quint16 crc16(const QByteArray& bytes)
{
    quint16 crc = 0;
    for (const char c : bytes) {
        crc ^= quint16(quint8(c) << 8);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 0x8000) ? quint16((crc << 1) ^ 0x1021) : quint16(crc << 1);
    }
    return crc;
}

QByteArray rle90(const QByteArray& in)
{
    QByteArray out;
    for (qsizetype i = 0; i < in.size();) {
        const char c = in[i];
        qsizetype run = 1;
        while (i + run < in.size() && in[i + run] == c && run < 255)
            ++run;
        if (c == char(0x90))
            out += QByteArray("\x90\x00", 2);
        else
            out += c;
        if (run > 2) {
            out += char(0x90);
            out += char(run);
        } else if (run == 2) {
            out += c == char(0x90) ? QByteArray("\x90\x00", 2) : QByteArray(1, c);
        }
        i += run;
    }
    return out;
}

} // namespace

// A MacBinary II file (or I when `withCrc` is false) with a secondary header of `secondary` bytes.
QByteArray encodeMacBinary(const QByteArray& data, const QByteArray& rsrc, bool withCrc, int secondary)
{
    QByteArray h(128, 0);
    const QByteArray name("Update.dmg");
    h[1] = char(name.size());
    h.replace(2, name.size(), name);
    h.replace(65, 8, "devrddsk");
    putBE(h, 83, quint32(data.size()), 4);
    putBE(h, 87, quint32(rsrc.size()), 4);
    if (withCrc) {
        putBE(h, 120, quint32(secondary), 2);
        h[122] = char(129);
        h[123] = char(129);
        putBE(h, 124, crc16(h.left(124)), 2);
    }
    QByteArray out = h;
    if (secondary > 0)
        out += padded(QByteArray(secondary, 'S'));
    return out + padded(data) + padded(rsrc);
}

QByteArray encodeBinHex(const QByteArray& data, const QByteArray& rsrc, bool breakDataCrc)
{
    const QByteArray name("Update.dmg");
    QByteArray header = char(name.size()) + name + QByteArray(1, 0) + "devrddsk" + QByteArray(2, 0)
        + be(quint32(data.size()), 4) + be(quint32(rsrc.size()), 4);
    header += be(crc16(header), 2);
    const quint16 dataCrc = crc16(data) ^ (breakDataCrc ? 1 : 0);
    const QByteArray stream = header + data + be(dataCrc, 2) + rsrc + be(crc16(rsrc), 2);
    const QByteArray packed = rle90(stream);
    static const char alphabet[] = "!\"#$%&'()*+,-012345689@ABCDEFGHIJKLMNPQRSTUVXYZ[`abcdefhijklmpqr";
    QByteArray text;
    quint32 bits = 0;
    int count = 0;
    for (const char c : packed) {
        bits = (bits << 8) | quint8(c);
        count += 8;
        while (count >= 6) {
            count -= 6;
            text += alphabet[(bits >> count) & 0x3F];
        }
    }
    if (count > 0)
        text += alphabet[(bits << (6 - count)) & 0x3F];
    QByteArray wrapped;
    for (qsizetype i = 0; i < text.size(); i += 64)
        wrapped += text.mid(i, 64) + "\r\n";
    return "(This file must be converted with BinHex 4.0)\r\n\r\n:" + wrapped + ":\r\n";
}

} // namespace vltest
