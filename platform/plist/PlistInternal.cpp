#include "platform/plist/PlistInternal.h"

#include "platform/plist/PropertyList.h"

#include <QStringList>
#include <charconv>
#include <cmath>

namespace plist::detail {

std::optional<QDateTime> dateFromReferenceSeconds(double seconds)
{
    // 3.2e12 s is about 100000 years: far beyond any real date, well inside QDateTime.
    if (!std::isfinite(seconds) || std::fabs(seconds) > 3.2e12)
        return std::nullopt;
    const double msecs = std::floor((seconds + kReferenceDateOffset) * 1000.0);
    return QDateTime::fromMSecsSinceEpoch(static_cast<qint64>(msecs), Qt::UTC);
}

double referenceSecondsFromDate(const QDateTime& date)
{
    return static_cast<double>(date.toMSecsSinceEpoch()) / 1000.0 - kReferenceDateOffset;
}

QByteArray formatDouble(double value, int precision)
{
    char buffer[64];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::general, precision);
    return QByteArray(buffer, static_cast<int>(result.ptr - buffer));
}

Kind kindOf(const QVariant& value)
{
    switch (value.typeId()) {
    case QMetaType::QString:
        return Kind::String;
    case QMetaType::Int:
    case QMetaType::Long:
    case QMetaType::LongLong:
    case QMetaType::Short:
    case QMetaType::SChar:
        return Kind::Integer;
    case QMetaType::UInt:
    case QMetaType::ULong:
    case QMetaType::ULongLong:
    case QMetaType::UShort:
    case QMetaType::UChar:
        return Kind::Unsigned;
    case QMetaType::Double:
    case QMetaType::Float:
        return Kind::Real;
    case QMetaType::Bool:
        return Kind::Boolean;
    case QMetaType::QDateTime:
        return value.toDateTime().isValid() ? Kind::Date : Kind::Unsupported;
    case QMetaType::QByteArray:
        return Kind::Data;
    case QMetaType::QVariantList:
    case QMetaType::QStringList:
        return Kind::Array;
    case QMetaType::QVariantMap:
        return Kind::Dictionary;
    case QMetaType::Nullptr:
    case QMetaType::UnknownType:
        return Kind::Null;
    default:
        break;
    }
    if (value.typeId() == qMetaTypeId<PlistUid>())
        return Kind::Uid;
    return Kind::Unsupported;
}

QVariantList arrayOf(const QVariant& value)
{
    if (value.typeId() == QMetaType::QStringList) {
        QVariantList list;
        const QStringList strings = value.toStringList();
        list.reserve(strings.size());
        for (const QString& s : strings)
            list.append(s);
        return list;
    }
    return value.toList();
}

} // namespace plist::detail
