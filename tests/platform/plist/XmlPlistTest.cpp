#include "platform/plist/PropertyList.h"
#include "PlistTestSupport.h"

#include <QDateTime>
#include <QDir>
#include <QStringDecoder>
#include <QTemporaryDir>
#include <cmath>
#include <gtest/gtest.h>

using namespace plisttest;

namespace {

QVariantMap readCorpusMap(const QString& name)
{
    QString error;
    const auto value = plist::readXml(corpusFile(QStringLiteral("plists/xml/") + name), &error);
    EXPECT_TRUE(value) << qPrintable(name) << ": " << qPrintable(error);
    return value ? value->toMap() : QVariantMap();
}

std::optional<QVariant> readFragment(const QByteArray& fragment, QString* error = nullptr)
{
    return plist::readXml("<?xml version=\"1.0\"?><plist version=\"1.0\">" + fragment + "</plist>", error);
}

QByteArray document(const QByteArray& body)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
           "<plist version=\"1.0\">\n"
        + body + "</plist>\n";
}

} // namespace

TEST(XmlPlist, CorpusFilesReadWithTheirValues)
{
    const QVariantMap all = readCorpusMap(QStringLiteral("all-value-types-uint64-max-data-date.plist"));
    EXPECT_EQ(all.value("BiggestNumber"), QVariant(qulonglong(18446744073709551615ull)));
    EXPECT_EQ(all.value("SmallestNumber"), QVariant(std::numeric_limits<qlonglong>::min()));
    EXPECT_EQ(all.value("HexademicalNumber"), QVariant(qlonglong(0xDEADBEEF)));
    EXPECT_EQ(all.value("Pets"), QStringLiteral("A cat & a dog."));
    EXPECT_EQ(all.value("Blank"), QString());
    EXPECT_EQ(all.value("Height"), QVariant(1.6));
    EXPECT_EQ(all.value("Data").toByteArray(), hex("000000be000000030000001e000000"));
    EXPECT_EQ(all.value("Birthdate").toDateTime(), QDateTime(QDate(1981, 5, 16), QTime(11, 32, 6), Qt::UTC));
    EXPECT_EQ(all.value("Lines").toList().value(0), QStringLiteral("It is a tale told by an idiot,     "));

    EXPECT_EQ(readCorpusMap(QStringLiteral("alttab-app-info-bools-as-strings-build-variables.plist")).value("SUScheduledCheckInterval"),
              QStringLiteral("604800"));
    EXPECT_EQ(readCorpusMap(QStringLiteral("mongodb-prefpane-info-placeholders-copyright-sign.plist")).value("NSHumanReadableCopyright"),
              QStringLiteral("\u00a9 Helmut K. C. Tessarek, 2015-2018"));
    const QVariantMap applet = readCorpusMap(QStringLiteral("dockintellihide-compiled-applet-info-no-cfbundleversion.plist"));
    EXPECT_FALSE(applet.contains("CFBundleVersion"));
    EXPECT_EQ(applet.value("WindowState").toMap().value("positionOfDivider"), QVariant(388.0));
    const QVariantMap rules = readCorpusMap(QStringLiteral("updateengine-server-response-feed-dict-with-comments.plist"));
    EXPECT_EQ(rules.value("Rules").toList().value(0).toMap().value("Predicate"), QStringLiteral("Ticket.version != '2.0'"));
    const QVariantMap macvim = readCorpusMap(QStringLiteral("macvim-app-info-huge-document-types-with-comments.plist"));
    EXPECT_EQ(macvim.value("CFBundleDocumentTypes").toList().size(), 76);
    EXPECT_EQ(macvim.value("SUFeedURL"), QStringLiteral("https://macvim.org/appcast/latest.xml"));
    for (const char* name : {"hammerspoon-app-info-url-types-services-feed-keys.plist", "osxfuse-prefpane-info-build-variables.plist",
                             "updateengine-test-app-info-doc-types-long-lines.plist"})
        EXPECT_GT(readCorpusMap(QString::fromLatin1(name)).size(), 10) << name;
}

TEST(XmlPlist, LeafRules)
{
    const QVariant fails;
    struct Case { QByteArray xml; QVariant expected; };
    const Case cases[] = {
        {"<string> a </string>", QStringLiteral(" a ")},
        {"<string/>", QString()},
        {"<string>a&lt;b&#x41;&#66;&quot;&apos;&amp;</string>", QStringLiteral("a<bAB\"'&")},
        {"<string>x<![CDATA[<y>&]]>z</string>", QStringLiteral("x<y>&z")},
        {"<string>a<!-- no --></string>", fails},
        {"<string>&nbsp;</string>", fails},
        {"<string>&#xD800;</string>", fails},
        {"<string>a<b/></string>", fails},
        {"<integer> +  12</integer>", qlonglong(12)},
        {"<integer>0x1F</integer>", qlonglong(31)},
        {"<integer>-0x10</integer>", qlonglong(-16)},
        {"<integer>-0</integer>", qlonglong(0)},
        {"<integer>12 </integer>", fails},
        {"<integer></integer>", fails},
        {"<integer>1a</integer>", fails},
        {"<integer>18446744073709551616</integer>", fails},
        {"<integer>-9223372036854775809</integer>", fails},
        {"<real>1.5</real>", 1.5},
        {"<real> +1e3</real>", 1000.0},
        {"<real>-INF</real>", -std::numeric_limits<double>::infinity()},
        {"<real>Infinity</real>", std::numeric_limits<double>::infinity()},
        {"<real>1.5 </real>", fails},
        {"<real>0x10</real>", fails},
        {"<real></real>", fails},
        {"<date>2024-01-01T00:00:00Z</date>", QDateTime(QDate(2024, 1, 1), QTime(0, 0), Qt::UTC)},
        {"<date>2024-01-01T00:00:00.5Z</date>", fails},
        {"<date> 2024-01-01T00:00:00Z</date>", fails},
        {"<date>2024-13-01T00:00:00Z</date>", fails},
        {"<date>2024-01-01T00:00:00+01:00</date>", fails},
        {"<data>SGVs*bG8=\n</data>", QByteArray("Hello")},
        {"<data>SGVsbG8</data>", QByteArray("Hel")},
        {"<data/>", QByteArray()},
        {"<data>SGVs\xc3\xa9</data>", fails},
        {"<true />", true},
        {"<false></false>", false},
        {"<true>x</true>", fails},
        {"<String>x</String>", fails},
        {"<unknown/>", fails},
    };
    for (const Case& c : cases) {
        QString error;
        const auto value = readFragment(c.xml, &error);
        if (!c.expected.isValid()) {
            EXPECT_FALSE(value) << c.xml.constData();
            EXPECT_FALSE(error.isEmpty()) << c.xml.constData();
            continue;
        }
        ASSERT_TRUE(value) << c.xml.constData() << ": " << qPrintable(error);
        EXPECT_EQ(*value, c.expected) << c.xml.constData();
        EXPECT_EQ(value->typeId(), c.expected.typeId()) << c.xml.constData();
    }
    EXPECT_TRUE(std::isnan(readFragment("<real>NaN</real>").value_or(0.0).toDouble()));
}

TEST(XmlPlist, ContainerAndDocumentRules)
{
    const QVariant fails;
    struct Case { QByteArray xml; QVariant expected; };
    const Case cases[] = {
        {"<dict><key>a</key><string>1</string><key>a</key><string>2</string></dict>", QVariantMap{{"a", QStringLiteral("2")}}},
        {"<dict foo=\"x\"><key>CF$UID</key><integer>7</integer></dict>", QVariant::fromValue(plist::PlistUid{7})},
        {"<dict><key>CF$UID</key><string>7</string></dict>", QVariantMap{{"CF$UID", QStringLiteral("7")}}},
        {"<array>\n <string>a</string><!-- c --><?pi x?>\t<string>b</string></array>", QVariantList{QStringLiteral("a"), QStringLiteral("b")}},
        {"<array/>", QVariantList()},
        {"<dict></dict>", QVariantMap()},
        {"<dict><string>a</string></dict>", fails},
        {"<dict><key>a</key></dict>", fails},
        {"<array>text</array>", fails},
        {"<array><string>a</string>", fails},
        {"<string>a</string><string>b</string>", fails},
    };
    for (const Case& c : cases) {
        QString error;
        const auto value = readFragment(c.xml, &error);
        EXPECT_EQ(value.has_value(), c.expected.isValid()) << c.xml.constData() << ": " << qPrintable(error);
        if (value && c.expected.isValid()) {
            EXPECT_EQ(*value, c.expected) << c.xml.constData();
        }
    }
    // No declaration and no <plist>: a bare value is a document; trailing content is ignored.
    EXPECT_EQ(plist::readXml("  <string>x</string> junk"), QVariant(QStringLiteral("x")));
    EXPECT_EQ(plist::readXml("<plist><true/></plist><garbage"), QVariant(true));
}

TEST(XmlPlist, EncodingsAreHonoured)
{
    const QByteArray body = "<plist><string>caf\xc3\xa9</string></plist>";
    EXPECT_EQ(plist::readXml("\xEF\xBB\xBF" + body), QVariant(QStringLiteral("caf\u00e9")));
    QStringEncoder toUtf16(QStringEncoder::Utf16LE, QStringEncoder::Flag::WriteBom);
    EXPECT_EQ(plist::readXml(toUtf16(QString::fromUtf8(body))), QVariant(QStringLiteral("caf\u00e9")));
    EXPECT_EQ(plist::readXml("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><string>caf\xe9</string>"),
              QVariant(QStringLiteral("caf\u00e9")));
    QString error;
    EXPECT_FALSE(plist::readXml("<?xml version=\"1.0\" encoding=\"x-no-such\"?><string/>", &error));
    EXPECT_TRUE(error.contains(QStringLiteral("x-no-such")));
}

TEST(XmlPlist, EntityTricksAndDepthFailCleanly)
{
    const QByteArray laughs = "<?xml version=\"1.0\"?>\n<!DOCTYPE plist [\n <!ENTITY a \"aaaaaaaaaa\">\n"
                              " <!ENTITY b \"&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;\">\n <!ENTITY c \"&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;\">\n"
                              "]>\n<plist><string>&c;</string></plist>";
    const QByteArray external = "<!DOCTYPE plist [ <!ENTITY x SYSTEM \"file:///etc/passwd\"> ]><plist><string>&x;</string></plist>";
    const QByteArray parameter = "<!DOCTYPE plist [ <!ENTITY % p SYSTEM \"http://127.0.0.1:1/x\"> %p; ]><plist><string>ok</string></plist>";
    for (const QByteArray& xml : {laughs, external}) {
        QString error;
        EXPECT_FALSE(plist::readXml(xml, &error));
        EXPECT_TRUE(error.contains(QStringLiteral("unknown entity"))) << qPrintable(error);
    }
    // The internal subset is skipped, never fetched or expanded.
    EXPECT_EQ(plist::readXml(parameter), QVariant(QStringLiteral("ok")));

    auto nested = [](int levels) { return "<plist>" + QByteArray("<array>").repeated(levels) + QByteArray("</array>").repeated(levels) + "</plist>"; };
    EXPECT_TRUE(plist::readXml(nested(plist::kMaxDepth + 1)));
    QString error;
    EXPECT_FALSE(plist::readXml(nested(10000), &error));
    EXPECT_TRUE(error.contains(QStringLiteral("nesting"))) << qPrintable(error);
}

TEST(XmlPlist, WriterIsByteExact)
{
    const QVariantMap updates{{"updates", QVariantList{QVariantMap{
        {"name", QStringLiteral("Foo")}, {"size", qlonglong(1024)}, {"version", QStringLiteral("1.2.3")}}}}};
    EXPECT_EQ(plist::writeXml(updates), document("<dict>\n\t<key>updates</key>\n\t<array>\n\t\t<dict>\n"
                                                 "\t\t\t<key>name</key>\n\t\t\t<string>Foo</string>\n"
                                                 "\t\t\t<key>size</key>\n\t\t\t<integer>1024</integer>\n"
                                                 "\t\t\t<key>version</key>\n\t\t\t<string>1.2.3</string>\n"
                                                 "\t\t</dict>\n\t</array>\n</dict>\n"));
    struct Case { QVariant value; QByteArray body; };
    const Case cases[] = {
        {0.0, "<real>0.0</real>\n"},
        {0.1, "<real>0.10000000000000001</real>\n"},
        {2.0, "<real>2</real>\n"},
        {std::nan(""), "<real>nan</real>\n"},
        {-std::numeric_limits<double>::infinity(), "<real>-infinity</real>\n"},
        {qulonglong(18446744073709551615ull), "<integer>18446744073709551615</integer>\n"},
        {QStringLiteral("<&>\"'\u00e9"), "<string>&lt;&amp;&gt;\"'\xc3\xa9</string>\n"},
        {QDateTime::fromMSecsSinceEpoch(1704067200999, Qt::UTC), "<date>2024-01-01T00:00:00Z</date>\n"},
        {QDateTime(QDate(33, 2, 3), QTime(4, 5, 6), Qt::UTC), "<date>0033-02-03T04:05:06Z</date>\n"},
        {QVariantList{QVariantMap(), QVariantList()}, "<array>\n\t<dict/>\n\t<array/>\n</array>\n"},
        {QVariant::fromValue(plist::PlistUid{9}), "<dict>\n\t<key>CF$UID</key>\n\t<integer>9</integer>\n</dict>\n"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(plist::writeXml(c.value), document(c.body)) << c.body.constData();
    EXPECT_TRUE(plist::writeXml(QVariantList{QVariant()}).isEmpty());
}

TEST(XmlPlist, DataLinesNarrowWithIndentation)
{
    const QByteArray data(100, 'z');
    const QByteArray b64 = data.toBase64();
    EXPECT_EQ(plist::writeXml(data), document("<data>\n" + b64.left(76) + "\n" + b64.mid(76) + "\n</data>\n"));
    QVariant nested = data;
    for (int i = 0; i < 10; ++i)
        nested = QVariantList{nested};
    // Ten levels deep the indentation is capped at eight tabs' worth: 12-character lines.
    const QByteArray tabs(10, '\t');
    QByteArray expected = tabs + "<data>\n";
    for (qsizetype at = 0; at < b64.size(); at += 12)
        expected += tabs + b64.mid(at, 12) + "\n";
    expected += tabs + "</data>\n";
    EXPECT_TRUE(plist::writeXml(nested).contains(expected));
}

TEST(XmlPlist, RoundTripAndFiles)
{
    const QVariantMap value{
        {"text", QStringLiteral("line\nnext \u6211 \U0001F600 <tag> &")},
        {"numbers", QVariantList{qlonglong(-5), qulonglong(std::numeric_limits<quint64>::max()), 0.1, 1e300, true, false}},
        {"when", QDateTime(QDate(2024, 2, 29), QTime(23, 59, 59), Qt::UTC)},
        {"blob", QByteArray(300, '\x7f')},
        {"empty", QVariantMap()},
    };
    QString error;
    EXPECT_EQ(plist::readXml(plist::writeXml(value), &error), QVariant(value)) << qPrintable(error);

    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QString path = dir.filePath(QStringLiteral("prefs.plist"));
    ASSERT_TRUE(plist::writeXmlFileAtomically(value, path, &error)) << qPrintable(error);
    EXPECT_EQ(plist::readDictionaryFile(path), value);
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files), QStringList{QStringLiteral("prefs.plist")});

    ASSERT_TRUE(plist::writeXmlFileAtomically(QVariantList{qlonglong(1)}, path));
    EXPECT_FALSE(plist::readDictionaryFile(path, &error));
    EXPECT_TRUE(error.contains(QStringLiteral("dictionary")));
    EXPECT_FALSE(plist::readDictionaryFile(dir.filePath(QStringLiteral("missing.plist"))));
    EXPECT_FALSE(plist::writeXmlFileAtomically(QVariant(), path));
    EXPECT_EQ(plist::readFile(path), QVariant(QVariantList{qlonglong(1)})); // a failed write leaves the old file
}

TEST(XmlPlist, FormatIsDetectedByContent)
{
    const QVariantMap value{{"k", QStringLiteral("v")}};
    struct Case { QByteArray bytes; plist::Format format; };
    const Case cases[] = {
        {plist::writeBinary(value), plist::Format::Binary},
        {plist::writeXml(value), plist::Format::Xml},
        {"{ k = v; }", plist::Format::OpenStep},
    };
    for (const Case& c : cases) {
        plist::Format detected = plist::Format::Xml;
        EXPECT_EQ(plist::read(c.bytes, nullptr, &detected), QVariant(value));
        EXPECT_EQ(detected, c.format);
    }
    QString error;
    EXPECT_FALSE(plist::read("<plist><dict><key>a</key></dict></plist>", &error));
    EXPECT_TRUE(error.contains(QStringLiteral("no value"))) << qPrintable(error);
    EXPECT_FALSE(plist::read(QByteArray(), &error));
}
