#include "platform/plist/XmlEncoding.h"

#include "platform/plist/PlistInternal.h"

#include <QStringDecoder>

namespace plist::detail {
namespace {

std::optional<QStringConverter::Encoding> encodingFromMarks(const QByteArray& b, qsizetype* bomLength)
{
    using E = QStringConverter::Encoding;
    *bomLength = 0;
    auto starts = [&](std::initializer_list<unsigned char> prefix) {
        if (b.size() < qsizetype(prefix.size()))
            return false;
        qsizetype i = 0;
        for (unsigned char c : prefix) {
            if (static_cast<unsigned char>(b[i++]) != c)
                return false;
        }
        return true;
    };
    struct Mark { std::initializer_list<unsigned char> bytes; E encoding; bool isBom; };
    // Longer marks first: FF FE 00 00 is UTF-32LE, not UTF-16LE.
    const Mark marks[] = {
        {{0xFF, 0xFE, 0x00, 0x00}, E::Utf32LE, true}, {{0x00, 0x00, 0xFE, 0xFF}, E::Utf32BE, true},
        {{0xEF, 0xBB, 0xBF}, E::Utf8, true},          {{0xFE, 0xFF}, E::Utf16BE, true},
        {{0xFF, 0xFE}, E::Utf16LE, true},             {{0x3C, 0x00, 0x00, 0x00}, E::Utf32LE, false},
        {{0x00, 0x00, 0x00, 0x3C}, E::Utf32BE, false}, {{0x3C, 0x00}, E::Utf16LE, false},
        {{0x00, 0x3C}, E::Utf16BE, false},
    };
    for (const Mark& mark : marks) {
        if (starts(mark.bytes)) {
            *bomLength = mark.isBom ? qsizetype(mark.bytes.size()) : 0;
            return mark.encoding;
        }
    }
    return std::nullopt;
}

// The value of encoding="..." in a leading <?xml ... ?> declaration, or empty.
QByteArray declaredEncoding(const QByteArray& b)
{
    if (!b.startsWith("<?xml"))
        return {};
    const qsizetype close = b.indexOf("?>");
    const QByteArray declaration = b.left(close < 0 ? 0 : close);
    const qsizetype key = declaration.indexOf("encoding");
    if (key < 0)
        return {};
    qsizetype at = declaration.indexOf('=', key);
    while (at >= 0 && ++at < declaration.size() && (declaration[at] == ' ' || declaration[at] == '\t')) {}
    if (at < 0 || at >= declaration.size() || (declaration[at] != '"' && declaration[at] != '\''))
        return {};
    const qsizetype end = declaration.indexOf(declaration[at], at + 1);
    return end < 0 ? QByteArray() : declaration.mid(at + 1, end - at - 1).trimmed().toLower();
}

} // namespace

std::optional<QByteArray> xmlToUtf8(const QByteArray& bytes, QString* error)
{
    qsizetype bomLength = 0;
    if (const auto marked = encodingFromMarks(bytes, &bomLength)) {
        if (*marked == QStringConverter::Utf8)
            return bytes.mid(bomLength);
        QStringDecoder decoder(*marked);
        return QString(decoder(bytes.mid(bomLength))).toUtf8();
    }
    const QByteArray name = declaredEncoding(bytes);
    // ASCII is a subset of UTF-8; files that claim ASCII but carry UTF-8 read as intended.
    if (name.isEmpty() || name == "utf-8" || name == "utf8" || name == "us-ascii" || name == "ascii")
        return bytes;
    QStringDecoder decoder(name.constData());
    if (!decoder.isValid()) {
        setError(error, QStringLiteral("unsupported encoding \"%1\"").arg(QString::fromLatin1(name)));
        return std::nullopt;
    }
    return QString(decoder(bytes)).toUtf8();
}

} // namespace plist::detail
