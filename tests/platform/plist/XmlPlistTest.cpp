// The XML property list: what the reader accepts and refuses (one row per rule), encodings,
// entity tricks, the writer's layout and number and date forms, and files replaced atomically.
#include "platform/plist/PropertyList.h"

#include <QDateTime>
#include <QStringDecoder>
#include <QTemporaryDir>
#include <cmath>
#include <gtest/gtest.h>

static QByteArray document(const QByteArray& body)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist version=\"1.0\">\n" + body + "</plist>\n";
}

TEST(XmlPlist, ReaderRules)
{
    const QVariant fails;
    const struct { QByteArray xml; QVariant expected; } rows[] = {
        {"<string> a </string>", QStringLiteral(" a ")}, {"<string/>", QString()}, {"<string>x<![CDATA[<y>&]]>z</string>", QStringLiteral("x<y>&z")},
        {"<string>a&lt;b&#x41;&#66;&quot;&apos;&amp;</string>", QStringLiteral("a<bAB\"'&")}, {"<string>a<!-- no --></string>", fails},
        {"<string>&nbsp;</string>", fails}, {"<string>&#xD800;</string>", fails}, {"<integer> +  12</integer>", qlonglong(12)},
        {"<integer>-0x10</integer>", qlonglong(-16)}, {"<integer>12 </integer>", fails}, {"<integer></integer>", fails}, {"<integer>1a</integer>", fails},
        {"<integer>18446744073709551616</integer>", fails}, {"<integer>-9223372036854775809</integer>", fails}, {"<real> +1e3</real>", 1000.0},
        {"<real>-INF</real>", -std::numeric_limits<double>::infinity()}, {"<real>1.5 </real>", fails}, {"<real>0x10</real>", fails},
        {"<date>2024-01-01T00:00:00Z</date>", QDateTime(QDate(2024, 1, 1), QTime(0, 0), Qt::UTC)}, {"<date>2024-01-01T00:00:00.5Z</date>", fails},
        {"<date>2024-01-01T00:00:00+01:00</date>", fails}, {"<date>2024-13-01T00:00:00Z</date>", fails},
        {"<data>SGVs*bG8=\n</data>", QByteArray("Hello")}, // junk outside the alphabet is skipped, as the platform does
        {"<data>SGVsbG8</data>", QByteArray("Hel")},      // an incomplete quartet is dropped
        {"<data>SGVs\xc3\xa9</data>", fails}, {"<true />", true}, {"<true>x</true>", fails}, {"<String>x</String>", fails},
        {"<dict><key>a</key><string>1</string><key>a</key><string>2</string></dict>", QVariantMap{{"a", QStringLiteral("2")}}},
        {"<dict foo=\"x\"><key>CF$UID</key><integer>7</integer></dict>", QVariant::fromValue(plist::PlistUid{7})},
        {"<dict><key>CF$UID</key><string>7</string></dict>", QVariantMap{{"CF$UID", QStringLiteral("7")}}},
        {"<array>\n <string>a</string><!-- c --><?pi x?>\t<string>b</string></array>", QVariantList{QStringLiteral("a"), QStringLiteral("b")}},
        {"<dict><string>a</string></dict>", fails}, {"<dict><key>a</key></dict>", fails}, {"<array>text</array>", fails},
        {"<array><string>a</string>", fails}, {"<string>a</string><string>b</string>", fails},
    };
    for (const auto& row : rows) {
        QString error;
        const auto value = plist::readXml("<?xml version=\"1.0\"?><plist version=\"1.0\">" + row.xml + "</plist>", &error);
        ASSERT_EQ(value.has_value(), row.expected.isValid()) << row.xml.constData() << ": " << qPrintable(error);
        EXPECT_EQ(error.isEmpty(), value.has_value()) << row.xml.constData();
        if (value) {
            EXPECT_EQ(*value, row.expected) << row.xml.constData();
            EXPECT_EQ(value->typeId(), row.expected.typeId()) << row.xml.constData();
        }
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
