// The description text of property-list values: the old-style form the platform prints
// for dictionaries and arrays, with its indentation quirks and its quoting rule.

#include "platform/plist/PlistInternal.h"
#include "platform/plist/PropertyList.h"

#include <QDateTime>

namespace plist {
namespace {

using detail::Kind;

QString hexUnit(char16_t unit)
{
    return QStringLiteral("\\U%1").arg(uint(unit), 4, 16, QLatin1Char('0'));
}

bool isBare(const QString& text)
{
    if (text.isEmpty())
        return false;
    for (const QChar c : text) {
        const char16_t u = c.unicode();
        if (!((u >= 'a' && u <= 'z') || (u >= 'A' && u <= 'Z') || (u >= '0' && u <= '9')))
            return false;
    }
    return true;
}

// Characters outside printable ASCII (other controls and DEL included) become \Uxxxx with
// lower-case hex, one escape per UTF-16 unit, so the text stays ASCII and reads back.
QString quoteIfNeeded(const QString& text)
{
    if (isBare(text))
        return text;
    QString out;
    out.reserve(text.size() + 2);
    out += u'"';
    for (const QChar c : text) {
        const char16_t u = c.unicode();
        switch (u) {
        case u'"': out += QStringLiteral("\\\""); break;
        case u'\\': out += QStringLiteral("\\\\"); break;
        case u'\n': out += QStringLiteral("\\n"); break;
        case u'\t': out += QStringLiteral("\\t"); break;
        case u'\r': out += QStringLiteral("\\r"); break;
        default:
            if (u < 0x20 || u >= 0x7F)
                out += hexUnit(u);
            else
                out += c;
        }
    }
    out += u'"';
    return out;
}

QString dataText(const QByteArray& data)
{
    QString out = QStringLiteral("<");
    const QByteArray hex = data.toHex();
    for (qsizetype i = 0; i < hex.size(); i += 8) {
        if (i > 0)
            out += u' ';
        out += QString::fromLatin1(hex.mid(i, 8));
    }
    return out + u'>';
}

QString realText(double value)
{
    return QString::fromLatin1(detail::formatDouble(value, 16));
}

// The bare text of a leaf, before the quoting rule.
QString leafText(const QVariant& value, Kind kind)
{
    switch (kind) {
    case Kind::String: return value.toString();
    case Kind::Integer: return QString::number(value.toLongLong());
    case Kind::Unsigned: return QString::number(value.toULongLong());
    case Kind::Real: return realText(value.toDouble());
    case Kind::Boolean: return value.toBool() ? QStringLiteral("1") : QStringLiteral("0");
    case Kind::Date: return value.toDateTime().toUTC().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss '+0000'"));
    case Kind::Uid: return QStringLiteral("{value = %1}").arg(value.value<PlistUid>().value);
    case Kind::Null: return QStringLiteral("<null>");
    default: return value.toString();
    }
}

void describe(QString& out, const QVariant& value, int level);

// Everything is appended to one buffer: building each level's text and copying it into its
// parent would cost depth times the output size on deeply nested values.
void describeArray(QString& out, const QVariantList& list, int level)
{
    const QString indent(4 * level, u' ');
    const QString inner(4 * (level + 1), u' ');
    out += indent + u'(';
    for (qsizetype i = 0; i < list.size(); ++i) {
        out += u'\n' + inner;
        describe(out, list[i], level + 1);
        if (i + 1 < list.size())
            out += u',';
    }
    out += u'\n' + indent + u')';
}

void describeDictionary(QString& out, const QVariantMap& map, int level)
{
    const QString indent(4 * level, u' ');
    const QString inner(4 * (level + 1), u' ');
    out += indent + u'{';
    // QVariantMap iterates in UTF-16 code-unit order, the order compare: sorts keys in.
    for (auto it = map.cbegin(); it != map.cend(); ++it) {
        out += u'\n' + inner + quoteIfNeeded(it.key()) + QStringLiteral(" = ");
        describe(out, it.value(), level + 1);
        out += u';';
    }
    out += u'\n' + indent + u'}';
}

// A collection at `level` starts with its own indentation; that is what puts five spaces
// after "key =" and sixteen before a dictionary inside an array inside a dictionary.
void describe(QString& out, const QVariant& value, int level)
{
    const Kind kind = detail::kindOf(value);
    if (kind == Kind::Array)
        describeArray(out, detail::arrayOf(value), level);
    else if (kind == Kind::Dictionary)
        describeDictionary(out, value.toMap(), level);
    else if (kind == Kind::Data)
        out += dataText(value.toByteArray()); // printed without quotes, as older systems did
    else
        out += quoteIfNeeded(leafText(value, kind));
}

} // namespace

QString description(const QVariant& value)
{
    const Kind kind = detail::kindOf(value);
    if (kind != Kind::Array && kind != Kind::Dictionary && kind != Kind::Data)
        return leafText(value, kind);
    QString out;
    describe(out, value, 0);
    return out;
}

} // namespace plist
