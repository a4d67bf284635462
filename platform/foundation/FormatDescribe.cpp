// The text "%@" prints for a value: the value's own description.

#include "platform/foundation/Format.h"
#include "platform/foundation/Foundation.h"
#include "platform/plist/PropertyList.h"

#include <QDateTime>
#include <QStringList>
#include <QTimeZone>

namespace fnd {

namespace {

// Data as "<48656c6c 6f>": lower-case hex, a space after every four bytes.
QString describeData(const QByteArray& bytes)
{
    QString out;
    out.reserve(2 + bytes.size() * 2 + bytes.size() / 4);
    out += u'<';
    for (qsizetype i = 0; i < bytes.size(); ++i) {
        if (i > 0 && i % 4 == 0)
            out += u' ';
        out += QString::number(quint8(bytes[i]), 16).rightJustified(2, u'0');
    }
    out += u'>';
    return out;
}

// Dates print in UTC with a fixed "+0000" offset; fractions of a second are dropped.
QString describeDate(const QDateTime& date)
{
    return date.toUTC().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")) + QStringLiteral(" +0000");
}

} // namespace

QString describeForFormat(const QVariant& value)
{
    if (!value.isValid())
        return QStringLiteral("(null)");
    switch (value.metaType().id()) {
    case QMetaType::QString:
        return value.toString();
    case QMetaType::QByteArray:
        return describeData(value.toByteArray());
    case QMetaType::QDateTime:
        return describeDate(value.toDateTime());
    case QMetaType::QChar:
        return QString(value.value<QChar>());
    case QMetaType::Nullptr:
        return QStringLiteral("<null>");
    case QMetaType::QVariantList:
    case QMetaType::QVariantMap:
        return plist::description(value);
    case QMetaType::QStringList: {
        QVariantList list;
        for (const QString& s : value.toStringList())
            list.append(s);
        return plist::description(list);
    }
    default:
        break;
    }
    if (isNumber(value))
        return stringValue(value);
    // Anything else that knows its text (a URL, for instance) prints that text.
    if (value.canConvert<QString>())
        return value.toString();
    return QStringLiteral("<%1>").arg(QString::fromLatin1(value.metaType().name()));
}

} // namespace fnd
