// The binary property list: the writer's reference layout, and a reader that refuses every
// broken or hostile file with a reason (files built by hand, every trailer field adjustable).
#include "platform/plist/PropertyList.h"

#include <QDateTime>
#include <gtest/gtest.h>

#include <functional>

namespace {

QByteArray hex(const char* text)
{
    return QByteArray::fromHex(QByteArray(text));
}

void appendBigEndian(QByteArray& out, quint64 value, int width)
{
    for (int shift = 8 * (width - 1); shift >= 0; shift -= 8)
        out += char((value >> shift) & 0xFF);
}

// A bplist00 of the given objects (each a complete marker + payload). The trailer fields
// default to the consistent values and can be overridden to make a broken file.
struct BinaryBuilder {
    QList<QByteArray> objects;
    int offsetSize = 1;
    int refSize = 1;
    quint64 top = 0;
    std::optional<quint64> numObjects;
    std::optional<quint64> tableOffset;
    QList<quint64> offsetOverrides; // replaces the computed offsets when not empty

    QByteArray build() const
    {
        QByteArray out("bplist00");
        QList<quint64> offsets;
        for (const QByteArray& object : objects) {
            offsets.append(quint64(out.size()));
            out += object;
        }
        const quint64 table = quint64(out.size());
        for (quint64 offset : offsetOverrides.isEmpty() ? offsets : offsetOverrides)
            appendBigEndian(out, offset, offsetSize);
        out += QByteArray(6, '\0') + char(offsetSize) + char(refSize);
        appendBigEndian(out, numObjects.value_or(quint64(objects.size())), 8);
        appendBigEndian(out, top, 8);
        appendBigEndian(out, tableOffset.value_or(table), 8);
        return out;
    }
};

QByteArray file(QList<QByteArray> objects, const std::function<void(BinaryBuilder&)>& change = {})
{
    BinaryBuilder builder{std::move(objects)};
    if (change)
        change(builder);
    return builder.build();
}

TEST(BinaryPlist, WriterMatchesTheReferenceLayoutAndReadsBack)
{
    EXPECT_EQ(plist::writeBinary(QVariantMap{{"v", qlonglong(1)}}),
              hex("62706C6973743030" "D10102" "5176" "1001" "080B0D" "0000000000000101" "0000000000000003"
                  "0000000000000000" "000000000000000F"));
    const struct {
        QVariant value;
        QByteArray object;
    } rows[] = {
        {3.5, hex("23400C000000000000")},
        {QDateTime(QDate(2001, 1, 2), QTime(0, 0), Qt::UTC), hex("3340F5180000000000")},
        {QStringLiteral("\u00e9"), hex("6100E9")},
        {QVariant::fromValue(plist::PlistUid{300}), hex("81012C")},
        {qlonglong(-1), hex("13FFFFFFFFFFFFFFFF")},
        {qulonglong(18446744073709551615ull), hex("140000000000000000FFFFFFFFFFFFFFFF")},
        {QByteArray(20, 'x'), hex("4F1014") + QByteArray(20, 'x')},
    };
    for (const auto& row : rows) {
        const QByteArray bytes = plist::writeBinary(row.value);
        EXPECT_EQ(bytes.mid(8, row.object.size()).toHex(), row.object.toHex()) << qPrintable(row.value.toString());
        EXPECT_EQ(plist::readBinary(bytes), row.value);
    }
    // What the corpus lacks: a surrogate pair, milliseconds, an empty data, a UID above 16 bits.
    const QVariantMap value{{"unicode", QStringLiteral("Caf\u00e9 \U0001F600")}, {"date", QDateTime::fromMSecsSinceEpoch(1700000000123, Qt::UTC)},
                            {"empty", QByteArray()}, {"uid", QVariant::fromValue(plist::PlistUid{70000})}};
    EXPECT_EQ(plist::readBinary(plist::writeBinary(value)), QVariant(value));
    EXPECT_TRUE(plist::writeBinary(QVariantMap{{"bad", QVariant()}}).isEmpty());
}

TEST(BinaryPlist, MalformedFilesFailWithAReason)
{
    const QByteArray valid = plist::writeBinary(QVariantMap{{"v", qlonglong(1)}});
    const QList<QByteArray> pair{hex("A20101"), hex("1001")};
    QList<QByteArray> three00;
    for (int i = 0; i < 300; ++i)
        three00.append(hex("1001"));
    const struct {
        const char* name;
        QByteArray bytes;
        const char* reason;
    } rows[] = {
        {"too short", QByteArray("bplist00"), "too short"},
        {"wrong header", QByteArray("bplisx00") + valid.mid(8), "header"},
        {"truncated trailer", valid.left(valid.size() - 1), "trailer"},
        {"table past the end", file(pair, [](BinaryBuilder& b) { b.tableOffset = 4000; }), "offset table"},
        {"no objects", file(pair, [](BinaryBuilder& b) { b.numObjects = 0; }), "object count"},
        {"top out of range", file(pair, [](BinaryBuilder& b) { b.top = 2; }), "top object"},
        {"table size overflow", file(pair, [](BinaryBuilder& b) { b.offsetSize = 8; b.numObjects = quint64(1) << 61; }), "offset table"},
        {"offset into the table", file(pair, [](BinaryBuilder& b) { b.offsetOverrides = {8, 200}; }), "invalid offset"},
        {"offset into the header", file(pair, [](BinaryBuilder& b) { b.offsetOverrides = {8, 3}; }), "invalid offset"},
        {"reference too narrow", file(three00, [](BinaryBuilder& b) { b.offsetSize = 2; }), "too small"},
        {"reference out of range", file({hex("A20105"), hex("1001")}), "out of range"},
        {"array count 2^60", file({hex("AF131000000000000000") + hex("01"), hex("1001")}), "past the object table"},
        {"data count 2^60", file({hex("4F131000000000000000")}), "past the object table"},
        {"utf-16 count 2^62", file({hex("6F134000000000000000")}), "past the object table"},
        {"string runs into the table", file({hex("5561")}), "past the object table"},
        {"count not an integer", file({hex("AF5141")}), "extended count"},
        {"integer of 32 bytes", file({hex("15") + QByteArray(32, 1)}), "16 bytes"},
        {"real of 2 bytes", file({hex("214000")}), "real size"},
        {"date marker", file({hex("32400000")}), "date"},
        {"UID above 32 bits", file({hex("840100000000")}), "UID"},
        {"null object", file({hex("00")}), "marker"},
        {"set", file({hex("C101"), hex("1001")}), "marker"},
        {"UTF-8 string marker", file({hex("7161")}), "marker"},
        {"integer key", file({hex("D10101"), hex("1001")}), "not a string"},
        {"two arrays in a loop", file({hex("A101"), hex("A100")}), "contains itself"},
    };
    for (const auto& row : rows) {
        QString error;
        EXPECT_FALSE(plist::readBinary(row.bytes, &error)) << row.name;
        EXPECT_TRUE(error.contains(QLatin1String(row.reason))) << row.name << ": " << qPrintable(error);
    }
}

TEST(BinaryPlist, DepthIsCappedAndSharedObjectsAreReadOnce)
{
    auto chain = [](int levels) {
        BinaryBuilder b;
        b.refSize = 2;
        b.offsetSize = 4;
        for (int i = 0; i < levels; ++i) {
            b.objects.append(hex("A1"));
            appendBigEndian(b.objects.last(), quint64(i + 1), 2);
        }
        b.objects.append(hex("1007"));
        return b.build();
    };
    EXPECT_TRUE(plist::readBinary(chain(plist::kMaxDepth)));
    QString error;
    EXPECT_FALSE(plist::readBinary(chain(10000), &error));
    EXPECT_TRUE(error.contains(QStringLiteral("nesting"))) << qPrintable(error);

    // Each level refers twice to the next: 2^60 paths through 61 objects. Legal; without
    // sharing parsed objects this would never finish.
    BinaryBuilder dag;
    for (int i = 0; i < 60; ++i)
        dag.objects.append(hex("A2") + char(i + 1) + char(i + 1));
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
    EXPECT_EQ(plist::readBinary(file({hex("D201010203"), hex("516b"), hex("1001"), hex("1002")})),
              QVariant(QVariantMap{{"k", qlonglong(1)}}));
    // An unpaired surrogate becomes U+FFFD; a proper pair is kept.
    EXPECT_EQ(plist::readBinary(file({hex("65D8000041D83DDE00DC00")})), QVariant(QStringLiteral("\ufffdA\U0001F600\ufffd")));
    // A sign-extended 16-byte negative reads as the int64; a value wider than 64 bits fails.
    EXPECT_EQ(plist::readBinary(file({hex("14FFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFE")})), QVariant(qlonglong(-2)));
    EXPECT_FALSE(plist::readBinary(file({hex("1400000000000000010000000000000000")})));
}

} // namespace
