// One sweep over the real-world property lists and keyed archives of the corpus: every file
// reads, survives both writers, describes the same after its description is read back, and
// maps to JSON whole. A few values are pinned where a quirk of the formats decides them.
#include "platform/plist/PlistJson.h"
#include "platform/plist/PropertyList.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonObject>
#include <gtest/gtest.h>

#include <limits>

namespace {

QMap<QString, QByteArray> corpusFiles(const QString& folder)
{
    QMap<QString, QByteArray> files;
    const QDir dir(QStringLiteral(VELMORA_CORPUS_DIR "/") + folder);
    for (const QString& name : dir.entryList(QDir::Files)) {
        QFile file(dir.filePath(name));
        if (file.open(QIODevice::ReadOnly))
            files.insert(name, file.readAll());
    }
    return files;
}

TEST(PropertyListCorpus, EveryPropertyListReadsRoundTripsAndDescribesTheSame)
{
    QMap<QString, QVariant> values;
    for (const QString& folder : {QStringLiteral("plists/xml"), QStringLiteral("plists/binary")}) {
        const QMap<QString, QByteArray> files = corpusFiles(folder);
        ASSERT_GE(files.size(), 8) << qPrintable(folder);
        for (auto file = files.cbegin(); file != files.cend(); ++file) {
            SCOPED_TRACE(file.key().toStdString());
            QString error;
            plist::Format format = plist::Format::OpenStep;
            const std::optional<QVariant> value = plist::read(file.value(), &error, &format);
            if (file.key().startsWith(QStringLiteral("malformed-"))) {
                EXPECT_FALSE(value);
                EXPECT_FALSE(error.isEmpty());
                continue;
            }
            ASSERT_TRUE(value) << qPrintable(error);
            EXPECT_EQ(format, folder.endsWith(QStringLiteral("binary")) ? plist::Format::Binary : plist::Format::Xml);
            ASSERT_EQ(value->typeId(), QMetaType::QVariantMap);
            EXPECT_EQ(plist::readXml(plist::writeXml(*value)), value);
            EXPECT_EQ(plist::readBinary(plist::writeBinary(*value)), value);
            const QString text = plist::description(*value);
            const std::optional<QVariant> reread = plist::readOpenStep(text.toUtf8(), &error);
            ASSERT_TRUE(reread) << qPrintable(error);
            EXPECT_EQ(plist::description(*reread), text);
            EXPECT_EQ(plist::toJsonValue(*value).toObject().size(), value->toMap().size());
            values.insert(QFileInfo(file.key()).completeBaseName(), *value);
        }
    }
    // The same Info.plist stored in both forms reads to the same value.
    const QVariant binary = values.value(QStringLiteral("updateengine-test-app-info-doc-types"));
    EXPECT_FALSE(binary.toMap().isEmpty());
    EXPECT_EQ(binary, values.value(QStringLiteral("updateengine-test-app-info-doc-types-long-lines")));

    // Pins: integers at both ends of the range (a 16-byte integer in binary), a hexadecimal XML
    // integer, and UTF-8 bytes in a string tagged ASCII read as the UTF-8 the writer meant.
    for (const char* name : {"all-scalar-types-int128-uint64-date-data", "all-value-types-uint64-max-data-date"}) {
        const QVariantMap all = values.value(QLatin1String(name)).toMap();
        EXPECT_EQ(all.value("BiggestNumber"), QVariant(qulonglong(18446744073709551615ull))) << name;
        EXPECT_EQ(all.value("SmallestNumber"), QVariant(std::numeric_limits<qlonglong>::min())) << name;
        EXPECT_EQ(all.value("Birthdate").toDateTime(), QDateTime(QDate(1981, 5, 16), QTime(11, 32, 6), Qt::UTC)) << name;
    }
    EXPECT_EQ(values.value(QStringLiteral("all-value-types-uint64-max-data-date")).toMap().value("HexademicalNumber"),
              QVariant(qlonglong(0xDEADBEEF)));
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
            EXPECT_FALSE(value);
            EXPECT_TRUE(error.contains(QStringLiteral("NSMutableArray"))) << qPrintable(error);
            continue;
        }
        ASSERT_TRUE(value) << qPrintable(error);
        EXPECT_FALSE(value->isEmpty());
        EXPECT_EQ(plist::decodeKeyedArchiveDictionary(plist::encodeKeyedArchive(*value), &error), value) << qPrintable(error);
        values.insert(QFileInfo(file.key()).completeBaseName(), *value);
    }
    // Pins: a mutable set decodes as a list in stored order, a mutable string as its text, and
    // one URL object shared by two keys as the same absolute address for both.
    const QVariantMap inner = values.value(QStringLiteral("instruments-config-nsdictionary-nested-set-and-mutable-string"))
                                  .value("tc").toList().value(0).toMap();
    EXPECT_EQ(inner.value("kdf2"), QVariant(QVariantList{qlonglong(630784000), qlonglong(833617920), qlonglong(830472456)}));
    EXPECT_EQ(inner.value("uuid"), QStringLiteral("2C46B61A-CDA9-4D59-B901-22E28B08C260"));
    const QVariantMap shared = values.value(QStringLiteral("xml-nsdictionary-two-keys-share-one-nsurl"));
    EXPECT_EQ(shared.value("copyOne"), QStringLiteral("https://example.com/foo/bar?a=b#hash"));
    EXPECT_EQ(shared.value("copyTwo"), shared.value("copyOne"));
}

} // namespace
