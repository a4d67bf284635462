#pragma once
// Property-list values and codecs.
//
// Values are QVariant: QString (string), qlonglong / qulonglong (integer; qulonglong only
// above INT64_MAX), double (real), bool (boolean), QDateTime in UTC (date), QByteArray
// (data), QVariantList (array), QVariantMap (dictionary; QString keys, which QMap keeps in
// UTF-16 code-unit order, the order Foundation's compare: gives). Keyed-archive UIDs are
// PlistUid. Bytes in, bytes out: no function here touches the file system except the file
// helpers at the end. All functions are pure and may be called from any thread.
//
// Every reader is bounded: depth at most 512, a cap on objects and on total work, and
// cycles are detected. A failure returns std::nullopt and fills `error` with a readable
// reason; nothing is thrown.
//
// Decisions where the formats leave a choice:
// - binary: duplicate dictionary keys keep the first occurrence (XML keeps the last, as the
//   XML reader of the platform does); an unpaired UTF-16 surrogate becomes U+FFFD; a string
//   tagged ASCII that carries 8-bit bytes is read as UTF-8 when it is valid UTF-8, else as
//   Latin-1, rather than failing the whole file; the null, fill and set markers are refused.
// - writers: a value with no property-list form (an invalid QVariant, a QUrl, ...) makes
//   writeXml return an empty QByteArray. Nothing here writes the binary form or keyed
//   archives: the program only reads them.

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

// Deepest nesting of arrays and dictionaries any reader accepts.
inline constexpr int kMaxDepth = 512;

// Detects the format by content ("bplist0" header -> binary; else XML; else the old-style text).
std::optional<QVariant> read(const QByteArray& bytes, QString* error = nullptr, Format* detected = nullptr);
std::optional<QVariant> readXml(const QByteArray& bytes, QString* error = nullptr);
std::optional<QVariant> readBinary(const QByteArray& bytes, QString* error = nullptr);
// The old-style text form: every leaf is a string, except <hex> which is data.
std::optional<QVariant> readOpenStep(const QByteArray& bytes, QString* error = nullptr);

// The XML property list Foundation writes (tabs, sorted keys, its number and date forms).
// Empty when the value has no property-list form.
QByteArray writeXml(const QVariant& root);

// The description text of a value (Foundation's -description of NSDictionary/NSArray/leaf).
// Leaves alone print their bare text; inside collections they follow the quoting rule.
// Data prints in the older form "<48656c6c 6f>" (unquoted inside collections); a null
// (NSNull, QVariant::fromValue(nullptr) or an invalid QVariant) prints "<null>".
QString description(const QVariant& value);

// Decodes an NSKeyedArchiver archive (binary or XML) whose root object is a dictionary.
// Supported classes: NSDictionary, NSMutableDictionary, NSArray, NSMutableArray, NSSet,
// NSMutableSet (as a list in stored order), NSString, NSMutableString, NSNumber, NSDate,
// NSData, NSMutableData, NSNull (as QVariant::fromValue(nullptr)) and NSURL (as the
// absolute address string). Anything else fails.
std::optional<QVariantMap> decodeKeyedArchiveDictionary(const QByteArray& bytes, QString* error = nullptr);

// File helpers: read any format; write XML atomically (temporary file, then rename).
std::optional<QVariant> readFile(const QString& path, QString* error = nullptr);
[[nodiscard]] bool writeXmlFileAtomically(const QVariant& root, const QString& path, QString* error = nullptr);

// Convenience: a dictionary read from a file, or std::nullopt when missing/unreadable/not a dictionary.
std::optional<QVariantMap> readDictionaryFile(const QString& path, QString* error = nullptr);

} // namespace plist

Q_DECLARE_METATYPE(plist::PlistUid)
