#include "platform/foundation/PlatformException.h"

namespace fnd {

namespace {

// The class name the platform reports for a property-list value.
QString platformClassOf(const QVariant& v)
{
    switch (v.typeId()) {
    case QMetaType::QString: return QStringLiteral("__NSCFString");
    case QMetaType::Bool: return QStringLiteral("__NSCFBoolean");
    case QMetaType::QVariantList: return QStringLiteral("__NSArrayM");
    case QMetaType::QVariantMap: return QStringLiteral("__NSDictionaryM");
    case QMetaType::QByteArray: return QStringLiteral("__NSCFData");
    case QMetaType::QDateTime: return QStringLiteral("__NSDate");
    default: return QStringLiteral("__NSCFNumber");
    }
}

} // namespace

PlatformException unrecognizedSelector(const QVariant& receiver, const char* selector)
{
    return PlatformException(
        QStringLiteral("NSInvalidArgumentException"),
        QStringLiteral("-[%1 %2]: unrecognized selector sent to instance").arg(platformClassOf(receiver), QLatin1String(selector)));
}

} // namespace fnd
