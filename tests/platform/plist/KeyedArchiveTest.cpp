#include "platform/plist/PropertyList.h"
#include "PlistTestSupport.h"

#include <QDateTime>
#include <functional>
#include <gtest/gtest.h>

using namespace plisttest;

namespace {

QVariant uid(quint64 n)
{
    return QVariant::fromValue(plist::PlistUid{n});
}

QVariantMap classDescription(const QString& name)
{
    return {{"$classname", name}, {"$classes", QVariantList{name, QStringLiteral("NSObject")}}};
}

// The archive of {name: "Foo", count: 3, when: 2024-01-01} in the platform's object order.
QVariantMap workedExample()
{
    const QVariantList objects{
        QStringLiteral("$null"),
        QVariantMap{{"$class", uid(9)}, {"NS.keys", QVariantList{uid(2), uid(3), uid(4)}}, {"NS.objects", QVariantList{uid(5), uid(6), uid(7)}}},
        QStringLiteral("name"), QStringLiteral("count"), QStringLiteral("when"), QStringLiteral("Foo"), qlonglong(3),
        QVariantMap{{"$class", uid(8)}, {"NS.time", 725760000.0}},
        classDescription(QStringLiteral("NSDate")),
        classDescription(QStringLiteral("NSDictionary")),
    };
    return {{"$archiver", QStringLiteral("NSKeyedArchiver")}, {"$version", qlonglong(100000)},
            {"$top", QVariantMap{{"root", uid(1)}}}, {"$objects", objects}};
}

const QVariantMap kWorkedValue{{"name", QStringLiteral("Foo")}, {"count", qlonglong(3)},
                               {"when", QDateTime(QDate(2024, 1, 1), QTime(0, 0), Qt::UTC)}};

std::optional<QVariantMap> decodeCorpus(const char* name, QString* error)
{
    return plist::decodeKeyedArchiveDictionary(corpusFile(QStringLiteral("keyed-archives/") + QLatin1String(name)), error);
}

} // namespace

TEST(KeyedArchive, CorpusArchivesDecode)
{
    QString error;
    EXPECT_EQ(decodeCorpus("nsmutabledictionary-three-string-pairs.bplist", &error),
              (QVariantMap{{"key1", QStringLiteral("obj1")}, {"key2", QStringLiteral("obj2")}, {"key3", QStringLiteral("obj3")}}))
        << qPrintable(error);
    EXPECT_EQ(decodeCorpus("nsdictionary-nested-nsarray-and-integers.bplist", &error),
              (QVariantMap{{"Array key", QVariantList{qlonglong(1), qlonglong(2), qlonglong(3)}},
                           {"First key", QStringLiteral("First value")}, {"Second key", QStringLiteral("Second value")}}))
        << qPrintable(error);

    const auto config = decodeCorpus("instruments-config-nsdictionary-nested-set-and-mutable-string.bplist", &error);
    ASSERT_TRUE(config) << qPrintable(error);
    EXPECT_EQ(config->value("ur"), QVariant(qlonglong(500)));
    EXPECT_EQ(config->value("rp"), QVariant(qlonglong(10)));
    const QVariantMap inner = config->value("tc").toList().value(0).toMap();
    EXPECT_EQ(inner.value("uuid"), QStringLiteral("2C46B61A-CDA9-4D59-B901-22E28B08C260")); // NSMutableString
    EXPECT_EQ(inner.value("kdf2"), QVariant(QVariantList{qlonglong(630784000), qlonglong(833617920), qlonglong(830472456)})); // NSMutableSet

    const auto nested = decodeCorpus("xml-nested-nsdictionary-three-levels.plist", &error);
    ASSERT_TRUE(nested) << qPrintable(error);
    const QVariantMap two = nested->value("levelZeroData").toMap().value("levelOneData").toMap();
    EXPECT_EQ(two.value("sampleUrl"), QStringLiteral("https://example.com/foo/bar?a=b#hash"));
    EXPECT_EQ(two.value("levelPath"), QVariant(QVariantList{QStringLiteral("zero"), QStringLiteral("one"), QStringLiteral("two")}));

    const auto shared = decodeCorpus("xml-nsdictionary-two-keys-share-one-nsurl.plist", &error);
    ASSERT_TRUE(shared) << qPrintable(error);
    EXPECT_EQ(shared->value("copyOne"), QStringLiteral("https://example.com/foo/bar?a=b#hash"));
    EXPECT_EQ(shared->value("copyTwo"), shared->value("copyOne"));

    EXPECT_FALSE(decodeCorpus("non-dict-root-self-referencing-nsmutablearray.bplist", &error));
    EXPECT_TRUE(error.contains(QStringLiteral("NSMutableArray"))) << qPrintable(error);
}

TEST(KeyedArchive, WorkedExampleInBothForms)
{
    QString error;
    EXPECT_EQ(plist::decodeKeyedArchiveDictionary(plist::writeBinary(workedExample()), &error), kWorkedValue) << qPrintable(error);
    EXPECT_EQ(plist::decodeKeyedArchiveDictionary(plist::writeXml(workedExample()), &error), kWorkedValue) << qPrintable(error);
}

TEST(KeyedArchive, MalformedArchivesFailWithAReason)
{
    using Edit = std::function<void(QVariantMap& top, QVariantList& objects)>;
    auto object = [](QVariantList& objects, int i) { return objects[i].toMap(); };
    struct Case { const char* name; Edit edit; const char* reason; };
    const Case cases[] = {
        {"other archiver", [](QVariantMap& t, QVariantList&) { t["$archiver"] = QStringLiteral("NSArchiver"); }, "$archiver"},
        {"other version", [](QVariantMap& t, QVariantList&) { t["$version"] = qlonglong(99999); }, "$version"},
        {"no objects", [](QVariantMap& t, QVariantList&) { t.remove("$objects"); }, "$objects"},
        {"root not a UID", [](QVariantMap& t, QVariantList&) { t["$top"] = QVariantMap{{"root", qlonglong(1)}}; }, "root"},
        {"root out of range", [](QVariantMap& t, QVariantList&) { t["$top"] = QVariantMap{{"root", uid(99)}}; }, "out of range"},
        {"nil root", [](QVariantMap& t, QVariantList&) { t["$top"] = QVariantMap{{"root", uid(0)}}; }, "out of range"},
        {"root is a string", [](QVariantMap& t, QVariantList&) { t["$top"] = QVariantMap{{"root", uid(2)}}; }, "not a dictionary"},
        {"key UID out of range", [&](QVariantMap&, QVariantList& o) { auto d = object(o, 1); d["NS.keys"] = QVariantList{uid(2), uid(3), uid(70)}; o[1] = d; }, "out of range"},
        {"nil key", [&](QVariantMap&, QVariantList& o) { auto d = object(o, 1); d["NS.keys"] = QVariantList{uid(2), uid(3), uid(0)}; o[1] = d; }, "nil"},
        {"lengths differ", [&](QVariantMap&, QVariantList& o) { auto d = object(o, 1); d["NS.keys"] = QVariantList{uid(2), uid(3)}; o[1] = d; }, "length"},
        {"integer key", [&](QVariantMap&, QVariantList& o) { auto d = object(o, 1); d["NS.keys"] = QVariantList{uid(2), uid(3), uid(6)}; o[1] = d; }, "not a string"},
        {"contains itself", [&](QVariantMap&, QVariantList& o) { auto d = object(o, 1); d["NS.objects"] = QVariantList{uid(5), uid(1), uid(7)}; o[1] = d; }, "contains itself"},
        {"class not a UID", [&](QVariantMap&, QVariantList& o) { auto d = object(o, 7); d["$class"] = qlonglong(8); o[7] = d; }, "class"},
        {"class not allowed", [](QVariantMap&, QVariantList& o) { o[8] = classDescription(QStringLiteral("NSURLSessionTask")); }, "not supported"},
        {"time not a number", [&](QVariantMap&, QVariantList& o) { auto d = object(o, 7); d["NS.time"] = QStringLiteral("now"); o[7] = d; }, "NS.time"},
        {"array stored inline", [](QVariantMap&, QVariantList& o) { o[5] = QVariantList{qlonglong(1)}; }, "unexpected type"},
    };
    for (const Case& c : cases) {
        QVariantMap top = workedExample();
        QVariantList objects = top.value("$objects").toList();
        c.edit(top, objects);
        if (top.contains("$objects"))
            top["$objects"] = objects;
        QString error;
        EXPECT_FALSE(plist::decodeKeyedArchiveDictionary(plist::writeBinary(top), &error)) << c.name;
        EXPECT_TRUE(error.contains(QLatin1String(c.reason))) << c.name << ": " << qPrintable(error);
    }
    QString error;
    EXPECT_FALSE(plist::decodeKeyedArchiveDictionary("not a property list (", &error));
    EXPECT_FALSE(plist::decodeKeyedArchiveDictionary(plist::writeBinary(QVariantList()), &error));
}

TEST(KeyedArchive, DeepChainsFailAndSharedObjectsDecodeOnce)
{
    QVariantList objects{QStringLiteral("$null"), QVariantMap{{"$class", uid(2)}, {"NS.keys", QVariantList{uid(3)}}, {"NS.objects", QVariantList{uid(4)}}},
                         classDescription(QStringLiteral("NSDictionary")), QStringLiteral("k")};
    const int levels = 10000;
    for (int i = 0; i < levels; ++i)
        objects.append(QVariantMap{{"$class", uid(quint64(objects.size() + 2 * (levels - i)))}, {"NS.objects", QVariantList{uid(quint64(objects.size() + 1))}}});
    objects.append(QStringLiteral("leaf"));
    while (objects.size() < 5 + 2 * levels + 1)
        objects.append(classDescription(QStringLiteral("NSArray")));
    const QVariantMap top{{"$archiver", QStringLiteral("NSKeyedArchiver")}, {"$version", qlonglong(100000)},
                          {"$top", QVariantMap{{"root", uid(1)}}}, {"$objects", objects}};
    QString error;
    EXPECT_FALSE(plist::decodeKeyedArchiveDictionary(plist::writeBinary(top), &error));
    EXPECT_TRUE(error.contains(QStringLiteral("nesting"))) << qPrintable(error);
}

TEST(KeyedArchive, EncoderRoundTripAndObjectOrder)
{
    const QVariantMap value{
        {"groupVersion", qlonglong(120)}, {"description", QStringLiteral("<p>notes</p>")}, {"beta", true},
        {"ratio", 0.25}, {"when", QDateTime(QDate(2024, 1, 1), QTime(0, 0), Qt::UTC)}, {"blob", QByteArray("\x00\x01", 2)},
        {"nothing", QVariant::fromValue(nullptr)}, {"apps", QVariantList{QVariantMap{{"id", QStringLiteral("a")}}, QStringLiteral("a")}},
    };
    QString error;
    const QByteArray archive = plist::encodeKeyedArchive(value);
    ASSERT_TRUE(archive.startsWith("bplist00"));
    EXPECT_EQ(plist::decodeKeyedArchiveDictionary(archive, &error), value) << qPrintable(error);

    // An object gets its UID when first met, its children follow, its class comes after them.
    const QVariantMap top = plist::readBinary(plist::encodeKeyedArchive(QVariantMap{{"a", QVariantList{QStringLiteral("x")}}}))->toMap();
    const QVariantList objects = top.value("$objects").toList();
    ASSERT_EQ(objects.size(), 7);
    EXPECT_EQ(objects[0], QStringLiteral("$null"));
    EXPECT_EQ(objects[2], QStringLiteral("a"));
    EXPECT_EQ(objects[3].toMap().value("NS.objects"), QVariant(QVariantList{uid(4)}));
    EXPECT_EQ(objects[4], QStringLiteral("x"));
    EXPECT_EQ(objects[5].toMap().value("$classname"), QStringLiteral("NSArray"));
    EXPECT_EQ(objects[6].toMap().value("$classes"),
              QVariant(QVariantList{QStringLiteral("NSMutableDictionary"), QStringLiteral("NSDictionary"), QStringLiteral("NSObject")}));
    EXPECT_EQ(top.value("$top").toMap().value("root"), uid(1));
    EXPECT_TRUE(plist::encodeKeyedArchive(QVariantMap{{"bad", QVariant::fromValue(plist::PlistUid{1})}}).isEmpty());
}
