#include "PlistJson.h"

#include "PropertyList.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonObject>
#include <QVariantList>
#include <QVariantMap>

#include <cmath>
#include <limits>

namespace plist {
namespace {

bool isSigned(int id)
{
    return id == QMetaType::Int || id == QMetaType::LongLong || id == QMetaType::Long || id == QMetaType::Short
        || id == QMetaType::SChar || id == QMetaType::Char;
}

bool isUnsigned(int id)
{
    return id == QMetaType::UInt || id == QMetaType::ULongLong || id == QMetaType::ULong || id == QMetaType::UShort
        || id == QMetaType::UChar;
}

QJsonValue fromUnsigned(qulonglong n)
{
    if (n > qulonglong(std::numeric_limits<qint64>::max()))
        return QJsonValue(double(n));
    return QJsonValue(qint64(n));
}

QJsonValue fromReal(double d)
{
    return std::isfinite(d) ? QJsonValue(d) : QJsonValue(QJsonValue::Null);
}

QString isoDate(const QDateTime& date)
{
    const QDateTime utc = date.toUTC();
    return utc.toString(utc.time().msec() ? Qt::ISODateWithMs : Qt::ISODate);
}

} // namespace

QJsonValue toJsonValue(const QVariant& value)
{
    const int id = value.metaType().id();
    if (!value.isValid() || id == QMetaType::Nullptr)
        return QJsonValue(QJsonValue::Null);
    if (id == QMetaType::Bool)
        return QJsonValue(value.toBool());
    if (isSigned(id))
        return QJsonValue(qint64(value.toLongLong()));
    if (isUnsigned(id))
        return fromUnsigned(value.toULongLong());
    if (id == QMetaType::Double || id == QMetaType::Float)
        return fromReal(value.toDouble());
    if (id == QMetaType::QString)
        return QJsonValue(value.toString());
    if (id == QMetaType::QByteArray)
        return QJsonValue(QString::fromLatin1(value.toByteArray().toBase64()));
    if (id == QMetaType::QDateTime)
        return QJsonValue(isoDate(value.toDateTime()));
    if (id == qMetaTypeId<PlistUid>())
        return fromUnsigned(value.value<PlistUid>().value);
    if (id == QMetaType::QVariantMap) {
        QJsonObject object;
        const QVariantMap map = value.toMap();
        for (auto it = map.cbegin(); it != map.cend(); ++it)
            object.insert(it.key(), toJsonValue(it.value()));
        return object;
    }
    if (id == QMetaType::QVariantList || id == QMetaType::QStringList) {
        QJsonArray array;
        for (const QVariant& item : value.toList())
            array.append(toJsonValue(item));
        return array;
    }
    return QJsonValue(value.toString());
}

} // namespace plist
