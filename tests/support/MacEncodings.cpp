#include "support/MacEncodings.h"

namespace vltest {

namespace {

QByteArray be(quint32 v, int bytes)
{
    QByteArray b;
    for (int i = bytes - 1; i >= 0; --i)
        b += char((v >> (8 * i)) & 0xFF);
    return b;
}

QByteArray padded(QByteArray b) { return b.append(QByteArray((128 - b.size() % 128) % 128, 0)); }

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

// Each byte, 0x90 escaped as 0x90 0x00; a run of three or more as the byte, 0x90, its count.
QByteArray rle90(const QByteArray& in)
{
    QByteArray out;
    for (qsizetype i = 0, run = 1; i < in.size(); i += run, run = 1) {
        while (i + run < in.size() && in[i + run] == in[i] && run < 255)
            ++run;
        const QByteArray one = in[i] == char(0x90) ? QByteArray("\x90\x00", 2) : QByteArray(1, in[i]);
        out += run > 2 ? one + char(0x90) + char(run) : one.repeated(run);
    }
    return out;
}

} // namespace

QByteArray encodeMacBinary(const QByteArray& data, const QByteArray& rsrc, bool withCrc, int secondary)
{
    QByteArray h(128, 0);
    const QByteArray name("Update.dmg");
    h[1] = char(name.size());
    h.replace(2, name.size(), name);
    h.replace(65, 8, "devrddsk");
    h.replace(83, 8, be(quint32(data.size()), 4) + be(quint32(rsrc.size()), 4));
    if (withCrc) {
        h.replace(120, 4, be(quint32(secondary), 2) + char(129) + char(129));
        h.replace(124, 2, be(crc16(h.left(124)), 2));
    }
    return h + (secondary > 0 ? padded(QByteArray(secondary, 'S')) : QByteArray()) + padded(data) + padded(rsrc);
}

QByteArray encodeBinHex(const QByteArray& data, const QByteArray& rsrc, bool breakDataCrc)
{
    const QByteArray name("Update.dmg");
    QByteArray header = char(name.size()) + name + QByteArray(1, 0) + "devrddsk" + QByteArray(2, 0)
        + be(quint32(data.size()), 4) + be(quint32(rsrc.size()), 4);
    header += be(crc16(header), 2);
    const quint16 dataCrc = crc16(data) ^ (breakDataCrc ? 1 : 0);
    const QByteArray packed = rle90(header + data + be(dataCrc, 2) + rsrc + be(crc16(rsrc), 2));
    static const char alphabet[] = "!\"#$%&'()*+,-012345689@ABCDEFGHIJKLMNPQRSTUVXYZ[`abcdefhijklmpqr";
    QByteArray text;
    quint32 bits = 0;
    int count = 0;
    for (const char c : packed) {
        bits = (bits << 8) | quint8(c);
        for (count += 8; count >= 6;)
            text += alphabet[(bits >> (count -= 6)) & 0x3F];
    }
    if (count > 0)
        text += alphabet[(bits << (6 - count)) & 0x3F];
    QByteArray wrapped;
    for (qsizetype i = 0; i < text.size(); i += 64)
        wrapped += text.mid(i, 64) + "\r\n";
    return "(This file must be converted with BinHex 4.0)\r\n\r\n:" + wrapped + ":\r\n";
}

} // namespace vltest
