// The binary property-list reader: every broken or hostile file is refused with a reason (files
// made by hand, trailer fields patched), and the choices where the format is silent. Real files
// are read by the corpus sweep.
#include "platform/plist/PropertyList.h"

#include <gtest/gtest.h>

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

// `bytes` with the bytes `hexText` written at `at` (negative: counted from the end).
static QByteArray patched(QByteArray bytes, qsizetype at, const char* hexText)
{
    const QByteArray replacement = hex(hexText);
    return bytes.replace(at < 0 ? bytes.size() + at : at, replacement.size(), replacement);
}

TEST(BinaryPlist, MalformedFilesFailWithAReason)
{
    const QByteArray pair = file({hex("A20101"), hex("1001")}); // offsets at 13 and 14; trailer fields from the end
    const QList<QByteArray> three00(300, hex("1001"));
    const struct { const char* name; QByteArray bytes; const char* reason; } rows[] = {
        {"too short", QByteArray("bplist00"), "too short"}, {"wrong header", patched(pair, 5, "78"), "header"},
        {"truncated trailer", pair.chopped(1), "trailer"}, {"table past the end", patched(pair, -2, "0FA0"), "offset table"},
        {"no objects", patched(pair, -17, "00"), "object count"}, {"top out of range", patched(pair, -9, "02"), "top object"},
        {"table size overflow", patched(patched(pair, -26, "08"), -24, "20"), "offset table"},
        {"offset into the table", patched(pair, 14, "C8"), "invalid offset"}, {"offset into the header", patched(pair, 14, "03"), "invalid offset"},
        {"reference too narrow", file(three00, 1, 2), "too small"}, {"reference out of range", file({hex("A20105"), hex("1001")}), "out of range"},
        {"array count 2^60", file({hex("AF13100000000000000001"), hex("1001")}), "past the object table"},
        {"data count 2^60", file({hex("4F131000000000000000")}), "past the object table"},
        {"utf-16 count 2^62", file({hex("6F134000000000000000")}), "past the object table"},
        {"string runs into the table", file({hex("5561")}), "past the object table"}, {"count not an integer", file({hex("AF5141")}), "extended count"},
        {"integer of 32 bytes", file({hex("15") + QByteArray(32, 1)}), "16 bytes"}, {"real of 2 bytes", file({hex("214000")}), "real size"},
        {"date marker", file({hex("32400000")}), "date"}, {"UID above 32 bits", file({hex("840100000000")}), "UID"},
        {"null object", file({hex("00")}), "marker"}, {"set", file({hex("C101"), hex("1001")}), "marker"}, {"UTF-8 string", file({hex("7161")}), "marker"},
        {"integer key", file({hex("D10101"), hex("1001")}), "not a string"}, {"two arrays in a loop", file({hex("A101"), hex("A100")}), "contains itself"},
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
