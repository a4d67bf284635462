// One sweep over the real-world property lists and keyed archives of the corpus: every file
// reads, survives the XML writer, describes the same after its description is read back, and
// maps to JSON whole; data the corpus holds in both forms reads the same from either reader.
// Values are pinned only where the formats leave a choice.
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

TEST(PropertyListCorpus, EveryFileReadsRoundTripsAndDescribesTheSame)
{
    QMap<QString, QVariantMap> values;
    for (const QString folder : {"plists/xml", "plists/binary", "keyed-archives"}) {
        const QMap<QString, QByteArray> files = corpusFiles(folder);
        ASSERT_GE(files.size(), 6) << qPrintable(folder);
        const bool archives = folder == QLatin1String("keyed-archives");
        for (auto file = files.cbegin(); file != files.cend(); ++file) {
            SCOPED_TRACE(file.key().toStdString());
            QString error;
            plist::Format format = plist::Format::OpenStep;
            std::optional<QVariant> value;
            if (!archives)
                value = plist::read(file.value(), &error, &format);
            else if (const std::optional<QVariantMap> archive = plist::decodeKeyedArchiveDictionary(file.value(), &error))
                value = *archive;
            EXPECT_EQ(error.isEmpty(), value.has_value());
            if (file.key().startsWith(QStringLiteral("malformed-")) || file.key().startsWith(QStringLiteral("non-dict-root-"))) {
                EXPECT_FALSE(value);
                continue;
            }
            ASSERT_TRUE(value && value->typeId() == QMetaType::QVariantMap && !value->toMap().isEmpty()) << qPrintable(error);
            if (archives) {
                EXPECT_EQ(plist::decodeKeyedArchiveDictionary(plist::encodeKeyedArchive(value->toMap()), &error), value->toMap()) << qPrintable(error);
            } else {
                EXPECT_EQ(format, folder.endsWith(QLatin1String("binary")) ? plist::Format::Binary : plist::Format::Xml);
                EXPECT_EQ(plist::readXml(plist::writeXml(*value)), value);
            }
            const QString text = plist::description(*value);
            EXPECT_EQ(plist::description(plist::readOpenStep(text.toUtf8(), &error).value_or(QVariant())), text) << qPrintable(error);
            EXPECT_EQ(plist::toJsonValue(*value).toObject().size(), value->toMap().size());
            values.insert(file.key(), value->toMap());
        }
    }
    const QVariantMap docTypes = values.value(QStringLiteral("updateengine-test-app-info-doc-types"));
    EXPECT_TRUE(!docTypes.isEmpty() && docTypes == values.value(QStringLiteral("updateengine-test-app-info-doc-types-long-lines"))) << "one Info.plist in both forms";
    // Every scalar type in both forms (each file has two keys the other lacks).
    QVariantMap binary = values.value(QStringLiteral("all-scalar-types-int128-uint64-date-data"));
    QVariantMap xml = values.value(QStringLiteral("all-value-types-uint64-max-data-date"));
    EXPECT_TRUE(binary.remove("EmptyArray") + binary.remove("EmptyDictionary") + xml.remove("HexademicalNumber") + xml.remove("Pets") == 4);
    EXPECT_EQ(binary, xml);
    // Above INT64_MAX an integer is unsigned (a 16-byte integer in binary); UTF-8 bytes in a
    // string tagged ASCII read as the UTF-8 the writer meant.
    EXPECT_TRUE(binary.value("BiggestNumber").typeId() == QMetaType::ULongLong && binary.value("BiggestNumber").toULongLong() == 18446744073709551615ull);
    EXPECT_EQ(values.value(QStringLiteral("dictionary-bundle-info-utf8-bytes-in-ascii-string")).value("DCSDictionaryCopyright"),
              QStringLiteral("Copyright \u00a9 2007 Apple Inc."));
    // A mutable set decodes as a list in stored order, a mutable string as its text, and one
    // URL object shared by two keys as the same absolute address for both.
    const QVariantMap inner = values.value(QStringLiteral("instruments-config-nsdictionary-nested-set-and-mutable-string")).value("tc").toList().value(0).toMap();
    EXPECT_EQ(inner.value("kdf2"), QVariant(QVariantList{qlonglong(630784000), qlonglong(833617920), qlonglong(830472456)}));
    EXPECT_EQ(inner.value("uuid"), QStringLiteral("2C46B61A-CDA9-4D59-B901-22E28B08C260"));
    const QVariantMap shared = values.value(QStringLiteral("xml-nsdictionary-two-keys-share-one-nsurl"));
    EXPECT_TRUE(shared.value("copyOne") == QStringLiteral("https://example.com/foo/bar?a=b#hash") && shared.value("copyTwo") == shared.value("copyOne"));
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
