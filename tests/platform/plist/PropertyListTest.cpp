// The property-list formats, one section each: the binary reader's refusals and the choices where
// the format is silent, the XML reader and writer, the old-style description and its reader,
// keyed archives, and one sweep over the real-world files of the corpus. The plain tables of
// malformed files are the data files in data/, one row per rule with its reason.
#include "platform/plist/PlistJson.h"
#include "platform/plist/PropertyList.h"
#include "support/TestData.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringDecoder>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

static QByteArray hex(const char* text)
{
    return QByteArray::fromHex(QByteArray(text));
}

static QByteArray bigEndian(quint64 value, int width)
{
    QByteArray out;
    for (int shift = 8 * (width - 1); shift >= 0; shift -= 8)
        out += char((value >> shift) & 0xFF);
    return out;
}

// A consistent bplist00 of the given objects (each a marker and its payload), the first the root.
static QByteArray file(const QList<QByteArray>& objects, int refSize = 1, int offsetSize = 1)
{
    QByteArray out("bplist00");
    QByteArray table;
    for (const QByteArray& object : objects) {
        table += bigEndian(quint64(out.size()), offsetSize);
        out += object;
    }
    return out + table + QByteArray(6, '\0') + char(offsetSize) + char(refSize) + bigEndian(quint64(objects.size()), 8)
        + bigEndian(0, 8) + bigEndian(quint64(out.size()), 8);
}

TEST(BinaryPlist, MalformedFilesFailWithAReason)
{
    for (const QJsonValue& value : vltest::dataRows("platform/plist/data/BinaryPlist", "malformed")) {
        const QJsonObject row = value.toObject();
        QString error;
        EXPECT_FALSE(plist::readBinary(QByteArray::fromHex(row.value("bytes").toString().toLatin1()), &error)) << row.value("why").toString().toStdString();
        EXPECT_TRUE(error.contains(row.value("reason").toString())) << row.value("why").toString().toStdString() << ": " << qPrintable(error);
    }
    QString error; // 300 objects cannot be reached with one-byte references
    EXPECT_FALSE(plist::readBinary(file(QList<QByteArray>(300, hex("1001")), 1, 2), &error));
    EXPECT_TRUE(error.contains(QStringLiteral("too small"))) << qPrintable(error);
}

TEST(BinaryPlist, DepthIsCappedAndSharedObjectsAreReadOnce)
{
    auto chain = [](int levels) {
        QList<QByteArray> objects;
        for (int i = 0; i < levels; ++i)
            objects.append(hex("A1") + bigEndian(quint64(i + 1), 2));
        return file(objects << hex("1007"), 2, 4);
    };
    EXPECT_TRUE(plist::readBinary(chain(plist::kMaxDepth)));
    QString error;
    EXPECT_FALSE(plist::readBinary(chain(10000), &error));
    EXPECT_TRUE(error.contains(QStringLiteral("nesting"))) << qPrintable(error);

    // Each level refers twice to the next: 2^60 paths through 61 objects. Legal; without
    // sharing parsed objects this would never finish.
    QList<QByteArray> dag;
    for (int i = 0; i < 60; ++i)
        dag.append(hex("A2") + char(i + 1) + char(i + 1));
    const auto value = plist::readBinary(file(dag << hex("5161")), &error);
    ASSERT_TRUE(value) << qPrintable(error);
    QVariant leaf = *value;
    for (int i = 0; i < 60; ++i)
        leaf = leaf.toList().value(1);
    EXPECT_EQ(leaf, QStringLiteral("a"));
}

TEST(BinaryPlist, ChoicesWhereTheFormatIsSilent)
{
    // Duplicate keys: the first occurrence wins.
    EXPECT_EQ(plist::readBinary(file({hex("D201010203"), hex("516b"), hex("1001"), hex("1002")})), QVariant(QVariantMap{{"k", qlonglong(1)}}));
    // An unpaired surrogate becomes U+FFFD; a proper pair is kept.
    EXPECT_EQ(plist::readBinary(file({hex("65D8000041D83DDE00DC00")})), QVariant(QStringLiteral("\ufffdA\U0001F600\ufffd")));
    // A sign-extended 16-byte negative reads as the int64; a value wider than 64 bits fails.
    EXPECT_EQ(plist::readBinary(file({hex("14FFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFE")})), QVariant(qlonglong(-2)));
    EXPECT_FALSE(plist::readBinary(file({hex("1400000000000000010000000000000000")})));
    EXPECT_EQ(plist::readBinary(file({hex("81012C")})), QVariant::fromValue(plist::PlistUid{300})) << "a UID wider than a byte";
}

static QByteArray document(const QByteArray& body)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist version=\"1.0\">\n" + body + "</plist>\n";
}

TEST(XmlPlist, ReaderRules)
{
    const auto read = [](const QByteArray& xml, QString* error) { return plist::readXml("<?xml version=\"1.0\"?><plist version=\"1.0\">" + xml + "</plist>", error); };
    const struct { QByteArray xml; QVariant expected; } accepted[] = {
        {"<string> a </string>", QStringLiteral(" a ")}, {"<string/>", QString()}, {"<string>x<![CDATA[<y>&]]>z</string>", QStringLiteral("x<y>&z")},
        {"<string>a&lt;b&#x41;&#66;&quot;&apos;&amp;</string>", QStringLiteral("a<bAB\"'&")}, {"<integer> +  12</integer>", qlonglong(12)},
        {"<integer>-0x10</integer>", qlonglong(-16)}, {"<real> +1e3</real>", 1000.0}, {"<real>-INF</real>", -std::numeric_limits<double>::infinity()},
        {"<date>2024-01-01T00:00:00Z</date>", QDateTime(QDate(2024, 1, 1), QTime(0, 0), Qt::UTC)},
        {"<data>SGVs*bG8=\n</data>", QByteArray("Hello")}, // junk outside the alphabet is skipped, as the platform does
        {"<data>SGVsbG8</data>", QByteArray("Hel")},      // an incomplete quartet is dropped
        {"<true />", true}, {"<dict><key>a</key><string>1</string><key>a</key><string>2</string></dict>", QVariantMap{{"a", QStringLiteral("2")}}},
        {"<dict foo=\"x\"><key>CF$UID</key><integer>7</integer></dict>", QVariant::fromValue(plist::PlistUid{7})},
        {"<dict><key>CF$UID</key><string>7</string></dict>", QVariantMap{{"CF$UID", QStringLiteral("7")}}},
        {"<array>\n <string>a</string><!-- c --><?pi x?>\t<string>b</string></array>", QVariantList{QStringLiteral("a"), QStringLiteral("b")}},
    };
    for (const auto& row : accepted) {
        QString error;
        const auto value = read(row.xml, &error);
        ASSERT_TRUE(value.has_value()) << row.xml.constData() << ": " << qPrintable(error);
        EXPECT_EQ(*value, row.expected) << row.xml.constData();
        EXPECT_EQ(value->typeId(), row.expected.typeId()) << row.xml.constData();
    }
    for (const QJsonValue& value : vltest::dataRows("platform/plist/data/XmlPlist", "malformed")) {
        QString error;
        EXPECT_FALSE(read(value.toObject().value("xml").toString().toUtf8(), &error)) << value.toObject().value("why").toString().toStdString();
        EXPECT_FALSE(error.isEmpty()) << value.toObject().value("why").toString().toStdString();
    }
    EXPECT_TRUE(std::isnan(plist::readXml("<real>NaN</real>").value_or(0.0).toDouble()));
    EXPECT_EQ(plist::readXml("  <string>x</string> junk"), QVariant(QStringLiteral("x"))) << "a bare value is a document";
}

TEST(XmlPlist, EncodingsEntitiesAndDepth)
{
    const QByteArray body = "<plist><string>caf\xc3\xa9</string></plist>";
    QStringEncoder toUtf16(QStringEncoder::Utf16LE, QStringEncoder::Flag::WriteBom);
    for (const QByteArray& xml : {QByteArray("\xEF\xBB\xBF") + body, QByteArray(toUtf16(QString::fromUtf8(body))),
                                  QByteArray("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><string>caf\xe9</string>")})
        EXPECT_EQ(plist::readXml(xml), QVariant(QStringLiteral("caf\u00e9")));
    QString error;
    EXPECT_FALSE(plist::readXml("<?xml version=\"1.0\" encoding=\"x-no-such\"?><string/>", &error));
    EXPECT_TRUE(error.contains(QStringLiteral("x-no-such")));

    // Entities declared in the document are never expanded or fetched.
    for (const QByteArray& xml : {QByteArray("<!DOCTYPE plist [ <!ENTITY a \"aaaa\"> <!ENTITY b \"&a;&a;&a;\"> ]><plist><string>&b;</string></plist>"),
                                  QByteArray("<!DOCTYPE plist [ <!ENTITY x SYSTEM \"file:///etc/passwd\"> ]><plist><string>&x;</string></plist>")}) {
        EXPECT_FALSE(plist::readXml(xml, &error));
        EXPECT_TRUE(error.contains(QStringLiteral("unknown entity"))) << qPrintable(error);
    }
    EXPECT_EQ(plist::readXml("<!DOCTYPE plist [ <!ENTITY % p SYSTEM \"http://127.0.0.1:1/x\"> %p; ]><plist><string>ok</string></plist>"),
              QVariant(QStringLiteral("ok")));
    auto nested = [](int levels) { return QByteArray("<array>").repeated(levels) + QByteArray("</array>").repeated(levels); };
    EXPECT_TRUE(plist::readXml(nested(plist::kMaxDepth + 1)));
    EXPECT_FALSE(plist::readXml(nested(10000), &error));
    EXPECT_TRUE(error.contains(QStringLiteral("nesting"))) << qPrintable(error);
}

TEST(XmlPlist, WriterIsByteExact)
{
    EXPECT_EQ(plist::writeXml(QVariantMap{{"updates", QVariantList{QVariantMap{{"name", QStringLiteral("Foo")}, {"size", qlonglong(1024)}}}}}),
              document("<dict>\n\t<key>updates</key>\n\t<array>\n\t\t<dict>\n\t\t\t<key>name</key>\n\t\t\t<string>Foo</string>\n"
                       "\t\t\t<key>size</key>\n\t\t\t<integer>1024</integer>\n\t\t</dict>\n\t</array>\n</dict>\n"));
    // The number and date forms; strings, collections and data are held to reading back (corpus sweep).
    const struct { QVariant value; QByteArray body; } rows[] = {
        {0.0, "<real>0.0</real>\n"}, {0.1, "<real>0.10000000000000001</real>\n"}, {2.0, "<real>2</real>\n"}, {std::nan(""), "<real>nan</real>\n"},
        {-std::numeric_limits<double>::infinity(), "<real>-infinity</real>\n"},
        {QDateTime::fromMSecsSinceEpoch(1704067200999, Qt::UTC), "<date>2024-01-01T00:00:00Z</date>\n"},
        {QDateTime(QDate(33, 2, 3), QTime(4, 5, 6), Qt::UTC), "<date>0033-02-03T04:05:06Z</date>\n"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(plist::writeXml(row.value), document(row.body)) << row.body.constData();
    EXPECT_TRUE(plist::writeXml(QVariantList{QVariant()}).isEmpty());
}

// Writes reaching the file whole, with no temporary left, are proven by the user defaults.
TEST(XmlPlist, AFailedWriteKeepsTheOldFileAndOnlyADictionaryIsADictionaryFile)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("prefs.plist"));
    QString error;
    ASSERT_TRUE(plist::writeXmlFileAtomically(QVariantList{qlonglong(1)}, path));
    EXPECT_FALSE(plist::readDictionaryFile(path, &error));
    EXPECT_TRUE(error.contains(QStringLiteral("dictionary")));
    EXPECT_FALSE(plist::writeXmlFileAtomically(QVariant(), path));
    EXPECT_EQ(plist::readFile(path), QVariant(QVariantList{qlonglong(1)})) << "a failed write leaves the old file";
}

TEST(Description, NestedCollectionsStartWithTheirOwnIndentation)
{
    const QVariantMap updates{{"updates", QVariantList{
        QVariantMap{{"version", QStringLiteral("1.2.3")}, {"name", QStringLiteral("Foo")}, {"size", qlonglong(1024)}},
        QVariantMap{{"name", QStringLiteral("Bar")}, {"version", QStringLiteral("2.0")}, {"size", qlonglong(-5)}, {"critical", true}},
    }}};
    EXPECT_EQ(plist::description(updates).toStdString(), "{\n    updates =     (\n                {\n            name = Foo;\n            size = 1024;\n"
                                                         "            version = \"1.2.3\";\n        },\n                {\n            critical = 1;\n"
                                                         "            name = Bar;\n            size = \"-5\";\n            version = \"2.0\";\n        }\n    );\n}");
    EXPECT_EQ(plist::description(QVariantMap{{"updates", QVariantList()}}).toStdString(), "{\n    updates =     (\n    );\n}");
    EXPECT_EQ(plist::description(QVariantMap()).toStdString(), "{\n}");
}

TEST(Description, LeavesAndKeys)
{
    const struct { QVariant value; const char* printed; } rows[] = {
        {QStringLiteral("Caf\u00e9 \"Deluxe\"\nv2"), "\"Caf\\U00e9 \\\"Deluxe\\\"\\nv2\""}, {QStringLiteral("\u54c8"), "\"\\U54c8\""},
        {QStringLiteral("\U0001F600"), "\"\\Ud83d\\Ude00\""}, {QStringLiteral("a\\b\tc\rd"), "\"a\\\\b\\tc\\rd\""},
        {QStringLiteral("bell\x07" "del\x7f"), "\"bell\\U0007del\\U007f\""}, {QStringLiteral("user_id"), "\"user_id\""},
        {QStringLiteral("13C64"), "13C64"}, {QString(), "\"\""}, {qlonglong(-5), "\"-5\""},
        {qulonglong(18446744073709551615ull), "18446744073709551615"}, {3.5, "\"3.5\""}, {2.0, "2"}, {true, "1"},
        {QDateTime(QDate(2024, 1, 1), QTime(0, 0, 0, 900), Qt::UTC), "\"2024-01-01 00:00:00 +0000\""},
        {QByteArray("Hello"), "<48656c6c 6f>"}, {QVariant::fromValue(nullptr), "\"<null>\""},
    };
    for (const auto& row : rows)
        EXPECT_EQ(plist::description(QVariantList{row.value}).toStdString(), std::string("(\n    ") + row.printed + "\n)") << row.printed;
    // Keys follow the same rule and sort by UTF-16 code unit, digit runs not numerically.
    EXPECT_EQ(plist::description(QVariantMap{{"beta9", 1}, {"beta10", 1}, {"alpha", 1}, {"_x", 1}, {"Zeta", 1}, {"Build", 1}}).toStdString(),
              "{\n    Build = 1;\n    Zeta = 1;\n    \"_x\" = 1;\n    alpha = 1;\n    beta10 = 1;\n    beta9 = 1;\n}");
    // Alone, a leaf prints its bare text.
    EXPECT_EQ(plist::description(QStringLiteral("a b")), QStringLiteral("a b"));
    EXPECT_EQ(plist::description(QByteArray("\x01\x02\x03\x04\x05\x06\x07\x08\x09", 9)), QStringLiteral("<01020304 05060708 09>"));
}

TEST(OpenStep, ReadsTheTextFormsEveryEscapeOfADescriptionAndRefusesMalformedText)
{
    QString error;
    EXPECT_EQ(plist::readOpenStep("// a comment\n{ bare = value.with-dots/and:colons; \"quoted key\" = \"a \\\"b\\\"\\n\\U00e9\\101\";\n"
                                  "  /* block\n comment */ list = (one, \"two\", <0fA0 01>,); nested = { x = y; }; }\n", &error),
              QVariant(QVariantMap{{"bare", QStringLiteral("value.with-dots/and:colons")}, {"quoted key", QStringLiteral("a \"b\"\n\u00e9A")},
                                   {"list", QVariantList{QStringLiteral("one"), QStringLiteral("two"), QByteArray("\x0f\xa0\x01", 3)}},
                                   {"nested", QVariantMap{{"x", QStringLiteral("y")}}}}))
        << qPrintable(error);
    const QVariantMap value{{"list", QVariantList{QStringLiteral("Caf\u00e9 \"Deluxe\"\nv2"), QStringLiteral("\U0001F600\ttab\\"),
                                                  QStringLiteral("\x01\x7f"), QByteArray("Hello"), QVariantList()}},
                            {"user_id", QString()}};
    EXPECT_EQ(plist::readOpenStep(plist::description(value).toUtf8(), &error), QVariant(value)) << qPrintable(error);

    for (const char* text : {"{ a = b }", "{ a b; }", "( a b )", "\"open", "<0g>", "<abc>", "/* open", "{ (a) = b; }", "a b", "", "{ a = b; } x", "\"\\"}) {
        QString why;
        EXPECT_FALSE(plist::readOpenStep(text, &why)) << text;
        EXPECT_FALSE(why.isEmpty()) << text;
    }
    EXPECT_FALSE(plist::readOpenStep(QByteArray("(").repeated(10000) + QByteArray(")").repeated(10000), &error));
    EXPECT_TRUE(error.contains(QStringLiteral("nesting"))) << qPrintable(error);
}

static QVariant uid(quint64 n)
{
    return QVariant::fromValue(plist::PlistUid{n});
}

static QVariantMap classDescription(const QString& name)
{
    return {{"$classname", name}, {"$classes", QVariantList{name, QStringLiteral("NSObject")}}};
}

static QVariantMap archive(const QVariantList& objects)
{
    return {{"$archiver", QStringLiteral("NSKeyedArchiver")}, {"$version", qlonglong(100000)}, {"$top", QVariantMap{{"root", uid(1)}}}, {"$objects", objects}};
}

// The archive of {name: "Foo", count: 3, when: 2024-01-01} in the platform's object order.
static const QVariantMap kWorkedExample = archive(
    {QStringLiteral("$null"), QVariantMap{{"$class", uid(9)}, {"NS.keys", QVariantList{uid(2), uid(3), uid(4)}}, {"NS.objects", QVariantList{uid(5), uid(6), uid(7)}}},
     QStringLiteral("name"), QStringLiteral("count"), QStringLiteral("when"), QStringLiteral("Foo"), qlonglong(3),
     QVariantMap{{"$class", uid(8)}, {"NS.time", 725760000.0}}, classDescription(QStringLiteral("NSDate")), classDescription(QStringLiteral("NSDictionary"))});

TEST(KeyedArchive, TheWorkedArchiveDecodesAndEachBreakOrDeepChainFailsWithAReason)
{
    QString error;
    EXPECT_EQ(plist::decodeKeyedArchiveDictionary(plist::writeXml(kWorkedExample), &error),
              (QVariantMap{{"name", QStringLiteral("Foo")}, {"count", qlonglong(3)}, {"when", QDateTime(QDate(2024, 1, 1), QTime(0, 0), Qt::UTC)}}))
        << qPrintable(error);
    const struct {
        int object; // -1: the top level
        const char* key; // nullptr: the whole object
        QVariant value;  // invalid: the key is removed
        const char* reason;
    } rows[] = {
        {-1, "$archiver", QStringLiteral("NSArchiver"), "$archiver"}, {-1, "$version", qlonglong(99999), "$version"},
        {-1, "$objects", QVariant(), "$objects"}, {-1, "$top", QVariantMap{{"root", qlonglong(1)}}, "root"},
        {-1, "$top", QVariantMap{{"root", uid(0)}}, "out of range"}, {-1, "$top", QVariantMap{{"root", uid(2)}}, "not a dictionary"},
        {1, "NS.keys", QVariantList{uid(2), uid(3), uid(70)}, "out of range"}, {1, "NS.keys", QVariantList{uid(2), uid(3), uid(0)}, "nil"},
        {1, "NS.keys", QVariantList{uid(2), uid(3)}, "length"}, {1, "NS.keys", QVariantList{uid(2), uid(3), uid(6)}, "not a string"},
        {1, "NS.objects", QVariantList{uid(5), uid(1), uid(7)}, "contains itself"}, {7, "$class", qlonglong(8), "class"},
        {8, nullptr, classDescription(QStringLiteral("NSURLSessionTask")), "not supported"}, {7, "NS.time", QStringLiteral("now"), "NS.time"},
        {5, nullptr, QVariantList{qlonglong(1)}, "unexpected type"},
    };
    for (const auto& row : rows) {
        QVariantMap top = kWorkedExample;
        QVariantList objects = top.value("$objects").toList();
        if (row.object < 0) {
            row.value.isValid() ? void(top.insert(QLatin1String(row.key), row.value)) : void(top.remove(QLatin1String(row.key)));
        } else {
            QVariantMap object = objects[row.object].toMap();
            if (row.key)
                object.insert(QLatin1String(row.key), row.value);
            objects[row.object] = row.key ? QVariant(object) : row.value;
            top["$objects"] = objects;
        }
        EXPECT_FALSE(plist::decodeKeyedArchiveDictionary(plist::writeXml(top), &error)) << row.reason;
        EXPECT_TRUE(error.contains(QLatin1String(row.reason))) << row.reason << ": " << qPrintable(error);
    }
    EXPECT_FALSE(plist::decodeKeyedArchiveDictionary("not a property list ("));
    EXPECT_FALSE(plist::decodeKeyedArchiveDictionary(plist::writeXml(QVariantList())));

    // A dictionary whose value is an array of an array of ... ten thousand levels deep.
    QVariantList deep{QStringLiteral("$null"), QVariantMap{{"$class", uid(2)}, {"NS.keys", QVariantList{uid(3)}}, {"NS.objects", QVariantList{uid(5)}}},
                      classDescription(QStringLiteral("NSDictionary")), QStringLiteral("k"), classDescription(QStringLiteral("NSArray"))};
    for (int i = 0; i < 10000; ++i)
        deep.append(QVariantMap{{"$class", uid(4)}, {"NS.objects", QVariantList{uid(quint64(deep.size() + 1))}}});
    EXPECT_FALSE(plist::decodeKeyedArchiveDictionary(plist::writeXml(archive(deep << QStringLiteral("leaf"))), &error));
    EXPECT_TRUE(error.contains(QStringLiteral("nesting"))) << qPrintable(error);
}

// One sweep over the real-world property lists and keyed archives of the corpus: every file
// reads, survives the XML writer, describes the same after its description is read back, and
// maps to JSON whole; data the corpus holds in both forms reads the same from either reader.
// Values are pinned only where the formats leave a choice.
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
            if (!archives) {
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
