#include "platform/plist/PropertyList.h"
#include "PlistTestSupport.h"

#include <QDateTime>
#include <gtest/gtest.h>

using namespace plisttest;

namespace {

QVariantMap readMap(const QString& corpusPath)
{
    QString error;
    const auto value = plist::readBinary(corpusFile(corpusPath), &error);
    EXPECT_TRUE(value) << qPrintable(corpusPath) << ": " << qPrintable(error);
    return value ? value->toMap() : QVariantMap();
}

QByteArray objectRefs(std::initializer_list<int> refs, int width = 1)
{
    QByteArray out;
    for (int r : refs)
        appendBigEndian(out, quint64(r), width);
    return out;
}

} // namespace

TEST(BinaryPlist, CorpusScalarTypesKeepTheirValues)
{
    const QVariantMap m = readMap(QStringLiteral("plists/binary/all-scalar-types-int128-uint64-date-data.bplist"));
    EXPECT_EQ(m.value("BiggestNumber").typeId(), QMetaType::ULongLong);
    EXPECT_EQ(m.value("BiggestNumber").toULongLong(), 18446744073709551615ull);
    EXPECT_EQ(m.value("SmallestNumber").typeId(), QMetaType::LongLong);
    EXPECT_EQ(m.value("SmallestNumber").toLongLong(), std::numeric_limits<qint64>::min());
    EXPECT_EQ(m.value("Death"), QVariant(qlonglong(1564)));
    EXPECT_EQ(m.value("Height").toDouble(), 1.6);
    EXPECT_EQ(m.value("Birthdate").toDateTime(), QDateTime(QDate(1981, 5, 16), QTime(11, 32, 6), Qt::UTC));
    EXPECT_EQ(m.value("Data").toByteArray(), hex("000000be000000030000001e000000"));
    EXPECT_EQ(m.value("IsTrue"), QVariant(true));
    EXPECT_EQ(m.value("IsNotFalse"), QVariant(false));
    EXPECT_EQ(m.value("EmptyArray"), QVariant(QVariantList()));
    EXPECT_EQ(m.value("EmptyDictionary"), QVariant(QVariantMap()));
    EXPECT_EQ(m.value("Lines").toList().value(0).toString(), QStringLiteral("It is a tale told by an idiot,     "));
}

TEST(BinaryPlist, CorpusStringsInEveryEncoding)
{
    EXPECT_EQ(readMap(QStringLiteral("plists/binary/ios-app-info-utf16-copyright-string.bplist")).value("NSHumanReadableCopyright"),
              QStringLiteral("\u00a92008-2012, sellStuff, Inc."));
    EXPECT_EQ(readMap(QStringLiteral("plists/binary/ios-app-info-utf16-chinese-strings.bplist")).value("CFBundleName"),
              QStringLiteral("\u5929\u7ffc\u9605\u8bfb"));
    const QVariantMap poem = readMap(QStringLiteral("plists/binary/utf16-multiline-text-star-symbol.bplist"));
    EXPECT_EQ(poem.value("name"), QStringLiteral("\u2605 or better"));
    EXPECT_TRUE(poem.value("longText").toString().endsWith(QStringLiteral("\n\u2605")));
    // UTF-8 bytes in a string tagged ASCII: read as the UTF-8 the writer meant.
    EXPECT_EQ(readMap(QStringLiteral("plists/binary/dictionary-bundle-info-utf8-bytes-in-ascii-string.bplist"))
                  .value("DCSDictionaryCopyright"),
              QStringLiteral("Copyright \u00a9 2007 Apple Inc."));
}

TEST(BinaryPlist, CorpusLargeFileAndCrossCheckWithXml)
{
    const QVariantMap big = readMap(QStringLiteral("plists/binary/three-byte-offset-table-147kb.bplist"));
    const QVariantMap entry = big.value("data").toMap().value("1838").toMap();
    EXPECT_EQ(entry.value("platformName").toMap().value("name"), QStringLiteral("SiriKit Cloud Media"));
    EXPECT_EQ(entry.value("introduced").toMap().value("patchVersion"), QVariant(qlonglong(2)));

    // The same Info.plist stored in both forms reads to the same value.
    const QVariantMap binary = readMap(QStringLiteral("plists/binary/updateengine-test-app-info-doc-types.bplist"));
    const auto xml = plist::readXml(corpusFile(QStringLiteral("plists/xml/updateengine-test-app-info-doc-types-long-lines.plist")));
    ASSERT_TRUE(xml);
    EXPECT_FALSE(binary.isEmpty());
    EXPECT_EQ(QVariant(binary), *xml);
}

TEST(BinaryPlist, CorpusCircularFileFailsCleanly)
{
    // Its trailer already disagrees with its length, so it fails before any cycle is met;
    // cycles themselves are covered with hand-made files below.
    QString error;
    EXPECT_FALSE(plist::readBinary(corpusFile(QStringLiteral("plists/binary/malformed-circular-array-references.bplist")), &error));
    EXPECT_TRUE(error.contains(QStringLiteral("offset table"))) << qPrintable(error);
}

TEST(BinaryPlist, WriterMatchesTheReferenceLayout)
{
    EXPECT_EQ(plist::writeBinary(QVariantMap{{"v", qlonglong(1)}}),
              hex("62706C6973743030" "D10102" "5176" "1001" "080B0D" "0000000000000101" "0000000000000003"
                  "0000000000000000" "000000000000000F"));
    struct Case { QVariant value; QByteArray object; };
    const Case cases[] = {
        {3.5, hex("23400C000000000000")},
        {QDateTime(QDate(2001, 1, 2), QTime(0, 0), Qt::UTC), hex("3340F5180000000000")},
        {QStringLiteral("\u00e9"), hex("6100E9")},
        {QVariant::fromValue(plist::PlistUid{5}), hex("8005")},
        {QVariant::fromValue(plist::PlistUid{300}), hex("81012C")},
        {qlonglong(-1), hex("13FFFFFFFFFFFFFFFF")},
        {qulonglong(18446744073709551615ull), hex("140000000000000000FFFFFFFFFFFFFFFF")},
        {QByteArray(20, 'x'), hex("4F1014") + QByteArray(20, 'x')},
    };
    for (const Case& c : cases) {
        const QByteArray bytes = plist::writeBinary(c.value);
        EXPECT_EQ(bytes.mid(8, c.object.size()).toHex(), c.object.toHex()) << qPrintable(c.value.toString());
        EXPECT_EQ(plist::readBinary(bytes), c.value);
    }
}

TEST(BinaryPlist, RoundTripKeepsEveryType)
{
    QVariantList many;
    for (int i = 0; i < 300; ++i)
        many.append(QStringLiteral("item %1").arg(i)); // more than 255 objects: two-byte references
    const QVariantMap value{
        {"string", QStringLiteral("plain")},
        {"unicode", QStringLiteral("Caf\u00e9 \U0001F600")},
        {"negative", qlonglong(-42)},
        {"big", qlonglong(std::numeric_limits<qint64>::max())},
        {"huge", qulonglong(std::numeric_limits<quint64>::max())},
        {"real", 0.1},
        {"yes", true},
        {"date", QDateTime::fromMSecsSinceEpoch(1700000000123, Qt::UTC)},
        {"data", QByteArray("\x00\x01\xff", 3)},
        {"empty", QByteArray()},
        {"nested", QVariantMap{{"list", many}, {"none", QVariantList()}}},
        {"uid", QVariant::fromValue(plist::PlistUid{70000})},
    };
    QString error;
    const auto back = plist::readBinary(plist::writeBinary(value), &error);
    ASSERT_TRUE(back) << qPrintable(error);
    EXPECT_EQ(*back, QVariant(value));
    EXPECT_TRUE(plist::writeBinary(QVariantMap{{"bad", QVariant()}}).isEmpty());
}

TEST(BinaryPlist, MalformedFilesFailCleanly)
{
    const QByteArray valid = plist::writeBinary(QVariantMap{{"v", qlonglong(1)}});
    auto builder = [](QList<QByteArray> objects) {
        BinaryBuilder b;
        b.objects = std::move(objects);
        return b;
    };
    auto with = [](BinaryBuilder b, auto change) {
        change(b);
        return b.build();
    };
    const BinaryBuilder pair = builder({hex("A20101"), hex("1001")});
    QList<QByteArray> three00;
    for (int i = 0; i < 300; ++i)
        three00.append(hex("1001"));
    struct Case { const char* name; QByteArray bytes; const char* reason; };
    const Case cases[] = {
        {"too short", QByteArray("bplist00"), "too short"},
        {"wrong header", QByteArray("bplisx00") + valid.mid(8), "header"},
        {"truncated trailer", valid.left(valid.size() - 1), "trailer"},
        {"table past the end", with(pair, [](BinaryBuilder& b) { b.tableOffset = 4000; }), "offset table"},
        {"no objects", with(pair, [](BinaryBuilder& b) { b.numObjects = 0; }), "object count"},
        {"top out of range", with(pair, [](BinaryBuilder& b) { b.top = 2; }), "top object"},
        {"table size overflow", with(pair, [](BinaryBuilder& b) { b.offsetSize = 8; b.numObjects = quint64(1) << 61; }), "offset table"},
        {"offset into the table", with(pair, [](BinaryBuilder& b) { b.offsetOverrides = {8, 200}; }), "invalid offset"},
        {"offset into the header", with(pair, [](BinaryBuilder& b) { b.offsetOverrides = {8, 3}; }), "invalid offset"},
        {"reference too narrow", with(builder(three00), [](BinaryBuilder& b) { b.offsetSize = 2; }), "too small"},
        {"reference out of range", builder({hex("A20105"), hex("1001")}).build(), "out of range"},
        {"array count 2^60", builder({hex("AF131000000000000000") + hex("01"), hex("1001")}).build(), "past the object table"},
        {"data count 2^60", builder({hex("4F131000000000000000")}).build(), "past the object table"},
        {"utf-16 count 2^62", builder({hex("6F134000000000000000")}).build(), "past the object table"},
        {"count not an integer", builder({hex("AF5141")}).build(), "extended count"},
        {"integer of 32 bytes", builder({hex("15") + QByteArray(32, 1)}).build(), "16 bytes"},
        {"real of 2 bytes", builder({hex("214000")}).build(), "real size"},
        {"date marker", builder({hex("32400000")}).build(), "date"},
        {"UID above 32 bits", builder({hex("840100000000")}).build(), "UID"},
        {"null object", builder({hex("00")}).build(), "marker"},
        {"fill byte", builder({hex("0F")}).build(), "marker"},
        {"set", builder({hex("C101"), hex("1001")}).build(), "marker"},
        {"UTF-8 string marker", builder({hex("7161")}).build(), "marker"},
        {"integer key", builder({hex("D10101"), hex("1001")}).build(), "not a string"},
        {"array contains itself", builder({hex("A100")}).build(), "contains itself"},
        {"two arrays in a loop", builder({hex("A101"), hex("A100")}).build(), "contains itself"},
        {"string runs into the table", builder({hex("5561")}).build(), "past the object table"},
    };
    for (const Case& c : cases) {
        QString error;
        EXPECT_FALSE(plist::readBinary(c.bytes, &error)) << c.name;
        EXPECT_TRUE(error.contains(QLatin1String(c.reason))) << c.name << ": " << qPrintable(error);
    }
}

TEST(BinaryPlist, DepthAndSharedReferencesAreBounded)
{
    auto chain = [](int levels) {
        BinaryBuilder b;
        b.refSize = 2;
        b.offsetSize = 4;
        for (int i = 0; i < levels; ++i)
            b.objects.append(hex("A1") + objectRefs({i + 1}, 2));
        b.objects.append(hex("1007"));
        return b.build();
    };
    EXPECT_TRUE(plist::readBinary(chain(plist::kMaxDepth)));
    QString error;
    EXPECT_FALSE(plist::readBinary(chain(10000), &error));
    EXPECT_TRUE(error.contains(QStringLiteral("nesting"))) << qPrintable(error);

    // Each level refers twice to the next: 2^60 paths, 61 objects. Legal; without sharing
    // parsed objects this would never finish.
    BinaryBuilder dag;
    for (int i = 0; i < 60; ++i)
        dag.objects.append(hex("A2") + objectRefs({i + 1, i + 1}));
    dag.objects.append(hex("5161"));
    const auto value = plist::readBinary(dag.build(), &error);
    ASSERT_TRUE(value) << qPrintable(error);
    QVariant leaf = *value;
    for (int i = 0; i < 60; ++i)
        leaf = leaf.toList().value(1);
    EXPECT_EQ(leaf, QStringLiteral("a"));
}

TEST(BinaryPlist, ChoicesWhereTheFormatIsSilent)
{
    // Duplicate keys: the first occurrence wins.
    BinaryBuilder duplicate;
    duplicate.objects = {hex("D201010203"), hex("516b"), hex("1001"), hex("1002")};
    EXPECT_EQ(plist::readBinary(duplicate.build()), QVariant(QVariantMap{{"k", qlonglong(1)}}));

    // An unpaired surrogate becomes U+FFFD; a proper pair is kept.
    BinaryBuilder surrogates;
    surrogates.objects = {hex("65D8000041D83DDE00DC00")};
    EXPECT_EQ(plist::readBinary(surrogates.build()), QVariant(QStringLiteral("\ufffdA\U0001F600\ufffd")));

    // A sign-extended 16-byte negative reads as the int64; a value wider than 64 bits fails.
    BinaryBuilder negative;
    negative.objects = {hex("14FFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFE")};
    EXPECT_EQ(plist::readBinary(negative.build()), QVariant(qlonglong(-2)));
    BinaryBuilder wide;
    wide.objects = {hex("1400000000000000010000000000000000")};
    EXPECT_FALSE(plist::readBinary(wide.build()));
}
