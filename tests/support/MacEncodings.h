#pragma once
// Test encoders for the classic Mac transfer encodings the download decodes: MacBinary II
// (or I) and BinHex 4.0 with run-length packing. Written from the formats, independently of
// the decoders they check. Pure functions; any thread.

#include <QByteArray>

namespace vltest {

// A MacBinary file holding `data` and `rsrc`; MacBinary I (no header CRC) when !withCrc;
// `secondary` bytes of secondary header (MacBinary II only).
QByteArray encodeMacBinary(const QByteArray& data, const QByteArray& rsrc, bool withCrc = true, int secondary = 0);

// A BinHex 4.0 text holding `data` and `rsrc`; the data fork's CRC is wrong when breakDataCrc.
QByteArray encodeBinHex(const QByteArray& data, const QByteArray& rsrc, bool breakDataCrc = false);

} // namespace vltest
