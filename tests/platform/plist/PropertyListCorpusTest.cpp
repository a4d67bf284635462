// One sweep over the real-world property lists and keyed archives of the corpus: every file
// reads, survives both writers, describes the same after its description is read back, and
// maps to JSON whole. Values are pinned only where a quirk of the formats decides them.
#include "platform/plist/PlistJson.h"
#include "platform/plist/PropertyList.h"

#include <QDateTime>
#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

// The files of a corpus folder by base name (no extension).
static QMap<QString, QByteArray> corpusFiles(const QString& folder)
{
    QMap<QString, QByteArray> files;
    const QDir dir(QStringLiteral(VELMORA_CORPUS_DIR "/") + folder);
    for (const QFileInfo& info : dir.entryInfoList(QDir::Files)) {
        QFile file(info.filePath());
        files.insert(info.completeBaseName(), file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray());
    }
    return files;
}

TEST(PropertyListCorpus, EveryPropertyListReadsRoundTripsAndDescribesTheSame)
{
    QMap<QString, QVariant> values;
    for (const char* folder : {"plists/xml", "plists/binary"}) {
        const QMap<QString, QByteArray> files = corpusFiles(QLatin1String(folder));
        ASSERT_GE(files.size(), 8) << folder;
        for (auto file = files.cbegin(); file != files.cend(); ++file) {
            SCOPED_TRACE(file.key().toStdString());
            QString error;
            plist::Format format = plist::Format::OpenStep;
            const std::optional<QVariant> value = plist::read(file.value(), &error, &format);
            EXPECT_EQ(error.isEmpty(), value.has_value());
            if (file.key().startsWith(QStringLiteral("malformed-"))) {
                EXPECT_FALSE(value);
                continue;
            }
            ASSERT_TRUE(value && value->typeId() == QMetaType::QVariantMap) << qPrintable(error);
            EXPECT_EQ(format, QLatin1String(folder).endsWith(QLatin1String("binary")) ? plist::Format::Binary : plist::Format::Xml);
            EXPECT_EQ(plist::readXml(plist::writeXml(*value)), value);
            EXPECT_EQ(plist::readBinary(plist::writeBinary(*value)), value);
            const QString text = plist::description(*value);
            EXPECT_EQ(plist::description(plist::readOpenStep(text.toUtf8(), &error).value_or(QVariant())), text) << qPrintable(error);
            EXPECT_EQ(plist::toJsonValue(*value).toObject().size(), value->toMap().size());
            values.insert(file.key(), *value);
        }
    }
    const QVariant binary = values.value(QStringLiteral("updateengine-test-app-info-doc-types"));
    EXPECT_FALSE(binary.toMap().isEmpty());
    EXPECT_EQ(binary, values.value(QStringLiteral("updateengine-test-app-info-doc-types-long-lines"))) << "one Info.plist in both forms";

    // Integers at both ends of the range (a 16-byte integer in binary), a hexadecimal XML
    // integer, and UTF-8 bytes in a string tagged ASCII read as the UTF-8 the writer meant.
    for (const char* name : {"all-scalar-types-int128-uint64-date-data", "all-value-types-uint64-max-data-date"}) {
        const QVariantMap all = values.value(QLatin1String(name)).toMap();
        EXPECT_EQ(all.value("BiggestNumber"), QVariant(qulonglong(18446744073709551615ull))) << name;
        EXPECT_EQ(all.value("SmallestNumber"), QVariant(std::numeric_limits<qlonglong>::min())) << name;
        EXPECT_EQ(all.value("Birthdate").toDateTime(), QDateTime(QDate(1981, 5, 16), QTime(11, 32, 6), Qt::UTC)) << name;
    }
    EXPECT_EQ(values.value(QStringLiteral("all-value-types-uint64-max-data-date")).toMap().value("HexademicalNumber"), QVariant(qlonglong(0xDEADBEEF)));
    EXPECT_EQ(values.value(QStringLiteral("dictionary-bundle-info-utf8-bytes-in-ascii-string")).toMap().value("DCSDictionaryCopyright"),
              QStringLiteral("Copyright \u00a9 2007 Apple Inc."));
}

TEST(PropertyListCorpus, EveryKeyedArchiveDecodesAndSurvivesReEncoding)
{
    QMap<QString, QVariantMap> values;
    const QMap<QString, QByteArray> files = corpusFiles(QStringLiteral("keyed-archives"));
    ASSERT_GE(files.size(), 6);
    for (auto file = files.cbegin(); file != files.cend(); ++file) {
        SCOPED_TRACE(file.key().toStdString());
        QString error;
        const std::optional<QVariantMap> value = plist::decodeKeyedArchiveDictionary(file.value(), &error);
        if (file.key().startsWith(QStringLiteral("non-dict-root"))) {
            EXPECT_TRUE(!value && error.contains(QStringLiteral("NSMutableArray"))) << qPrintable(error);
            continue;
        }
        ASSERT_TRUE(value && !value->isEmpty()) << qPrintable(error);
        EXPECT_EQ(plist::decodeKeyedArchiveDictionary(plist::encodeKeyedArchive(*value), &error), value) << qPrintable(error);
        values.insert(file.key(), *value);
    }
    // A mutable set decodes as a list in stored order, a mutable string as its text, and one
    // URL object shared by two keys as the same absolute address for both.
    const QVariantMap inner = values.value(QStringLiteral("instruments-config-nsdictionary-nested-set-and-mutable-string"))
                                  .value("tc").toList().value(0).toMap();
    EXPECT_EQ(inner.value("kdf2"), QVariant(QVariantList{qlonglong(630784000), qlonglong(833617920), qlonglong(830472456)}));
    EXPECT_EQ(inner.value("uuid"), QStringLiteral("2C46B61A-CDA9-4D59-B901-22E28B08C260"));
    const QVariantMap shared = values.value(QStringLiteral("xml-nsdictionary-two-keys-share-one-nsurl"));
    EXPECT_EQ(shared.value("copyOne"), QStringLiteral("https://example.com/foo/bar?a=b#hash"));
    EXPECT_EQ(shared.value("copyTwo"), shared.value("copyOne"));
}

TEST(PlistJson, EachValueTypeKeepsItsTypeAndWhatJsonCannotHoldIsNull)
{
    const struct { QVariant value; const char* json; } rows[] = {
        {true, "[true]"}, {qlonglong(9007199254740993LL), "[9007199254740993]"}, {std::numeric_limits<qlonglong>::min(), "[-9223372036854775808]"},
        {qulonglong(18446744073709551615ull), "[18446744073709552000]"}, {1.6, "[1.6]"}, {std::nan(""), "[null]"},
        {std::numeric_limits<double>::infinity(), "[null]"}, {QVariant(), "[null]"}, {QVariant::fromValue(nullptr), "[null]"},
        {QDateTime(QDate(2024, 5, 1), QTime(9, 30, 0, 250), Qt::UTC), "[\"2024-05-01T09:30:00.250Z\"]"},
        {QDateTime(QDate(2024, 5, 1), QTime(11, 30), Qt::OffsetFromUTC, 7200), "[\"2024-05-01T09:30:00Z\"]"},
        {QByteArray("\x00\xff", 2), "[\"AP8=\"]"}, {QVariant::fromValue(plist::PlistUid{7}), "[7]"},
        {QVariantMap{{"a", QVariantList{qlonglong(1), QStringLiteral("x")}}}, "[{\"a\":[1,\"x\"]}]"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(QJsonDocument(QJsonArray{plist::toJsonValue(row.value)}).toJson(QJsonDocument::Compact), QByteArray(row.json)) << row.json;
}
