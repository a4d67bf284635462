// The XML property-list writer: one tab per level, keys sorted, Foundation's number, date
// and data forms, so that files we write look like the ones the platform writes.

#include "platform/plist/PlistInternal.h"
#include "platform/plist/PropertyList.h"

#include <QDateTime>
#include <QLoggingCategory>
#include <cmath>

namespace plist {
namespace {

Q_LOGGING_CATEGORY(lcXmlWriter, "velmora.plist.xml")

using detail::Kind;

QByteArray escapeText(const QString& text)
{
    QByteArray out = text.toUtf8();
    // Only these three are escaped; quotes and control characters go out raw.
    out.replace('&', "&amp;");
    out.replace('<', "&lt;");
    out.replace('>', "&gt;");
    return out;
}

QByteArray realText(double value)
{
    if (value == 0.0)
        return "0.0";
    if (std::isnan(value))
        return "nan";
    if (std::isinf(value))
        return value > 0 ? "+infinity" : "-infinity";
    return detail::formatDouble(value, 17);
}

QByteArray dateText(const QDateTime& date)
{
    const QDateTime utc = date.toUTC();
    const int year = utc.date().year();
    QByteArray text = QByteArray::number(std::abs(year)).rightJustified(4, '0');
    if (year < 0)
        text.prepend('-');
    text += utc.toString(QStringLiteral("-MM-dd'T'HH:mm:ss'Z'")).toLatin1();
    return text;
}

void appendData(QByteArray& out, const QByteArray& data, int indent)
{
    const QByteArray tabs(indent, '\t');
    const int lineLength = 76 - 8 * std::min(indent, 8);
    const QByteArray encoded = data.toBase64();
    out += "<data>\n";
    for (qsizetype at = 0; at < encoded.size(); at += lineLength)
        out += tabs + encoded.mid(at, lineLength) + '\n';
    out += tabs + "</data>\n";
}

class XmlWriter {
public:
    QByteArray out;

    bool append(const QVariant& value, int indent)
    {
        if (indent > kMaxDepth)
            return fail(QStringLiteral("nesting deeper than %1").arg(kMaxDepth));
        out += QByteArray(indent, '\t');
        switch (detail::kindOf(value)) {
        case Kind::String:
            out += "<string>" + escapeText(value.toString()) + "</string>\n";
            return true;
        case Kind::Integer:
            out += "<integer>" + QByteArray::number(value.toLongLong()) + "</integer>\n";
            return true;
        case Kind::Unsigned:
            out += "<integer>" + QByteArray::number(value.toULongLong()) + "</integer>\n";
            return true;
        case Kind::Real:
            out += "<real>" + realText(value.toDouble()) + "</real>\n";
            return true;
        case Kind::Boolean:
            out += value.toBool() ? "<true/>\n" : "<false/>\n";
            return true;
        case Kind::Date:
            out += "<date>" + dateText(value.toDateTime()) + "</date>\n";
            return true;
        case Kind::Data:
            appendData(out, value.toByteArray(), indent);
            return true;
        case Kind::Uid:
            appendUid(value.value<PlistUid>(), indent);
            return true;
        case Kind::Array:
            return appendArray(detail::arrayOf(value), indent);
        case Kind::Dictionary:
            return appendDictionary(value.toMap(), indent);
        case Kind::Null:
        case Kind::Unsupported:
            break;
        }
        return fail(QStringLiteral("value of type %1 has no property-list form")
                        .arg(QString::fromLatin1(value.typeName() ? value.typeName() : "invalid")));
    }

private:
    bool fail(const QString& why)
    {
        qCWarning(lcXmlWriter) << "Cannot write XML property list:" << why;
        return false;
    }

    void appendUid(const PlistUid& uid, int indent)
    {
        const QByteArray inner(indent + 1, '\t');
        out += "<dict>\n" + inner + "<key>CF$UID</key>\n" + inner + "<integer>" + QByteArray::number(uid.value)
            + "</integer>\n" + QByteArray(indent, '\t') + "</dict>\n";
    }

    bool appendArray(const QVariantList& list, int indent)
    {
        if (list.isEmpty()) {
            out += "<array/>\n";
            return true;
        }
        out += "<array>\n";
        for (const QVariant& element : list) {
            if (!append(element, indent + 1))
                return false;
        }
        out += QByteArray(indent, '\t') + "</array>\n";
        return true;
    }

    bool appendDictionary(const QVariantMap& map, int indent)
    {
        if (map.isEmpty()) {
            out += "<dict/>\n";
            return true;
        }
        out += "<dict>\n";
        const QByteArray inner(indent + 1, '\t');
        // QVariantMap iterates in UTF-16 code-unit order, the sorted order the platform writes.
        for (auto it = map.cbegin(); it != map.cend(); ++it) {
            out += inner + "<key>" + escapeText(it.key()) + "</key>\n";
            if (!append(it.value(), indent + 1))
                return false;
        }
        out += QByteArray(indent, '\t') + "</dict>\n";
        return true;
    }
};

} // namespace

QByteArray writeXml(const QVariant& root)
{
    XmlWriter writer;
    writer.out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                 "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                 "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
                 "<plist version=\"1.0\">\n";
    if (!writer.append(root, 0))
        return {};
    writer.out += "</plist>\n";
    return writer.out;
}

} // namespace plist
