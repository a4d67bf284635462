#pragma once
// Property-list values and codecs.
//
// Values are QVariant: QString (string), qlonglong / qulonglong (integer; qulonglong only
// above INT64_MAX), double (real), bool (boolean), QDateTime in UTC (date), QByteArray
// (data), QVariantList (array), QVariantMap (dictionary; QString keys, which QMap keeps in
// UTF-16 code-unit order, the order Foundation's compare: gives). Keyed-archive UIDs are
// PlistUid. Bytes in, bytes out: no function here touches the file system except the two
// file helpers at the end.
//
// Every reader is bounded: depth at most 512, a cap on objects and on total work, and
// cycles are detected. A failure returns std::nullopt and fills `error` with a readable
// reason; nothing is thrown.

#include <QByteArray>
#include <QMetaType>
#include <QString>
#include <QVariant>
#include <optional>

namespace plist {

struct PlistUid {
    quint64 value = 0;
    bool operator==(const PlistUid& o) const { return value == o.value; }
};

enum class Format { Xml, Binary, OpenStep };

// Detects the format by content ("bplist0" header -> binary; else XML; else the old-style text).
std::optional<QVariant> read(const QByteArray& bytes, QString* error = nullptr, Format* detected = nullptr);
std::optional<QVariant> readXml(const QByteArray& bytes, QString* error = nullptr);
std::optional<QVariant> readBinary(const QByteArray& bytes, QString* error = nullptr);
std::optional<QVariant> readOpenStep(const QByteArray& bytes, QString* error = nullptr);

// The XML property list Foundation writes (tabs, sorted keys, its number and date forms).
QByteArray writeXml(const QVariant& root);
// A binary property list (bplist00) of the value.
QByteArray writeBinary(const QVariant& root);

// The description text of a value (Foundation's -description of NSDictionary/NSArray/leaf).
QString description(const QVariant& value);

// Decodes an NSKeyedArchiver archive (binary or XML) whose root object is a dictionary.
// Supported classes: NSDictionary, NSMutableDictionary, NSArray, NSMutableArray, NSString,
// NSMutableString, NSNumber, NSDate, NSData, NSMutableData, NSNull. Anything else fails.
std::optional<QVariantMap> decodeKeyedArchiveDictionary(const QByteArray& bytes, QString* error = nullptr);
// Encodes a dictionary as a keyed archive (binary form), root class NSMutableDictionary.
QByteArray encodeKeyedArchive(const QVariantMap& root);

// File helpers: read any format; write XML atomically (temporary file, then rename).
std::optional<QVariant> readFile(const QString& path, QString* error = nullptr);
bool writeXmlFileAtomically(const QVariant& root, const QString& path, QString* error = nullptr);

// Convenience: a dictionary read from a file, or std::nullopt when missing/unreadable/not a dictionary.
std::optional<QVariantMap> readDictionaryFile(const QString& path, QString* error = nullptr);

} // namespace plist

Q_DECLARE_METATYPE(plist::PlistUid)
