// Format detection and the file helpers of the property-list codecs.

#include "platform/plist/PlistInternal.h"
#include "platform/plist/PropertyList.h"

#include <QFile>
#include <QSaveFile>

namespace plist {
namespace {

// Registered once per process so that PlistUid can travel through queued calls by name.
const int kUidMetaType = qRegisterMetaType<PlistUid>("plist::PlistUid");

// Property lists the program reads are small; anything larger is refused before reading.
constexpr qint64 kMaxFileSize = 64 * 1024 * 1024;

} // namespace

std::optional<QVariant> read(const QByteArray& bytes, QString* error, Format* detected)
{
    Q_UNUSED(kUidMetaType);
    if (bytes.startsWith("bplist0")) {
        if (detected)
            *detected = Format::Binary;
        return readBinary(bytes, error);
    }
    QString xmlError;
    if (auto value = readXml(bytes, &xmlError)) {
        if (detected)
            *detected = Format::Xml;
        return value;
    }
    QString textError;
    if (auto value = readOpenStep(bytes, &textError)) {
        if (detected)
            *detected = Format::OpenStep;
        return value;
    }
    // Neither reader took it: both reasons, since either form may have been meant.
    detail::setError(error, xmlError + QStringLiteral("; ") + textError);
    return std::nullopt;
}

std::optional<QVariant> readFile(const QString& path, QString* error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        detail::setError(error, QStringLiteral("cannot open %1: %2").arg(path, file.errorString()));
        return std::nullopt;
    }
    if (file.size() > kMaxFileSize) {
        detail::setError(error, QStringLiteral("%1 is too large for a property list").arg(path));
        return std::nullopt;
    }
    const QByteArray bytes = file.readAll();
    QString why;
    auto value = read(bytes, &why);
    if (!value)
        detail::setError(error, QStringLiteral("%1: %2").arg(path, why));
    return value;
}

bool writeXmlFileAtomically(const QVariant& root, const QString& path, QString* error)
{
    const QByteArray xml = writeXml(root);
    if (xml.isEmpty()) {
        detail::setError(error, QStringLiteral("value has no property-list form"));
        return false;
    }
    QSaveFile file(path);
    file.setDirectWriteFallback(false);
    if (!file.open(QIODevice::WriteOnly) || file.write(xml) != xml.size() || !file.commit()) {
        detail::setError(error, QStringLiteral("cannot write %1: %2").arg(path, file.errorString()));
        return false;
    }
    return true;
}

std::optional<QVariantMap> readDictionaryFile(const QString& path, QString* error)
{
    const auto value = readFile(path, error);
    if (!value)
        return std::nullopt;
    if (value->typeId() != QMetaType::QVariantMap) {
        detail::setError(error, QStringLiteral("%1 does not hold a dictionary").arg(path));
        return std::nullopt;
    }
    return value->toMap();
}

} // namespace plist
