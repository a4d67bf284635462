// Keyed archives: a worked archive in both forms, each way an archive can be broken (one edit
// of the worked archive per row), deep chains, and the encoder's object order.
#include "platform/plist/PropertyList.h"

#include <QDateTime>
#include <functional>
#include <gtest/gtest.h>

namespace {

QVariant uid(quint64 n)
{
    return QVariant::fromValue(plist::PlistUid{n});
}

QVariantMap classDescription(const QString& name)
{
    return {{"$classname", name}, {"$classes", QVariantList{name, QStringLiteral("NSObject")}}};
}

QVariantMap archive(const QVariantList& objects)
{
    return {{"$archiver", QStringLiteral("NSKeyedArchiver")}, {"$version", qlonglong(100000)},
            {"$top", QVariantMap{{"root", uid(1)}}}, {"$objects", objects}};
}

// The archive of {name: "Foo", count: 3, when: 2024-01-01} in the platform's object order.
QVariantMap workedExample()
{
    return archive({QStringLiteral("$null"),
                    QVariantMap{{"$class", uid(9)}, {"NS.keys", QVariantList{uid(2), uid(3), uid(4)}}, {"NS.objects", QVariantList{uid(5), uid(6), uid(7)}}},
                    QStringLiteral("name"), QStringLiteral("count"), QStringLiteral("when"), QStringLiteral("Foo"), qlonglong(3),
                    QVariantMap{{"$class", uid(8)}, {"NS.time", 725760000.0}}, classDescription(QStringLiteral("NSDate")),
                    classDescription(QStringLiteral("NSDictionary"))});
}

TEST(KeyedArchive, WorkedExampleInBothForms)
{
    const QVariantMap expected{{"name", QStringLiteral("Foo")}, {"count", qlonglong(3)}, {"when", QDateTime(QDate(2024, 1, 1), QTime(0, 0), Qt::UTC)}};
    QString error;
    EXPECT_EQ(plist::decodeKeyedArchiveDictionary(plist::writeBinary(workedExample()), &error), expected) << qPrintable(error);
    EXPECT_EQ(plist::decodeKeyedArchiveDictionary(plist::writeXml(workedExample()), &error), expected) << qPrintable(error);
}

TEST(KeyedArchive, MalformedArchivesFailWithAReason)
{
    using Edit = std::function<void(QVariantMap& top, QVariantList& objects)>;
    auto dictionaryEntry = [](const char* key, QVariant value) {
        return [key, value](QVariantMap&, QVariantList& o) { QVariantMap d = o[1].toMap(); d[key] = value; o[1] = d; };
    };
    const struct {
        const char* name;
        Edit edit;
        const char* reason;
    } rows[] = {
        {"other archiver", [](QVariantMap& t, QVariantList&) { t["$archiver"] = QStringLiteral("NSArchiver"); }, "$archiver"},
        {"other version", [](QVariantMap& t, QVariantList&) { t["$version"] = qlonglong(99999); }, "$version"},
        {"no objects", [](QVariantMap& t, QVariantList&) { t.remove("$objects"); }, "$objects"},
        {"root not a UID", [](QVariantMap& t, QVariantList&) { t["$top"] = QVariantMap{{"root", qlonglong(1)}}; }, "root"},
        {"nil root", [](QVariantMap& t, QVariantList&) { t["$top"] = QVariantMap{{"root", uid(0)}}; }, "out of range"},
        {"root is a string", [](QVariantMap& t, QVariantList&) { t["$top"] = QVariantMap{{"root", uid(2)}}; }, "not a dictionary"},
        {"key UID out of range", dictionaryEntry("NS.keys", QVariantList{uid(2), uid(3), uid(70)}), "out of range"},
        {"nil key", dictionaryEntry("NS.keys", QVariantList{uid(2), uid(3), uid(0)}), "nil"},
        {"lengths differ", dictionaryEntry("NS.keys", QVariantList{uid(2), uid(3)}), "length"},
        {"integer key", dictionaryEntry("NS.keys", QVariantList{uid(2), uid(3), uid(6)}), "not a string"},
        {"contains itself", dictionaryEntry("NS.objects", QVariantList{uid(5), uid(1), uid(7)}), "contains itself"},
        {"class not a UID", [](QVariantMap&, QVariantList& o) { o[7] = QVariantMap{{"$class", qlonglong(8)}, {"NS.time", 0.0}}; }, "class"},
        {"class not allowed", [](QVariantMap&, QVariantList& o) { o[8] = classDescription(QStringLiteral("NSURLSessionTask")); }, "not supported"},
        {"time not a number", [](QVariantMap&, QVariantList& o) { o[7] = QVariantMap{{"$class", uid(8)}, {"NS.time", QStringLiteral("now")}}; }, "NS.time"},
        {"array stored inline", [](QVariantMap&, QVariantList& o) { o[5] = QVariantList{qlonglong(1)}; }, "unexpected type"},
    };
    for (const auto& row : rows) {
        QVariantMap top = workedExample();
        QVariantList objects = top.value("$objects").toList();
        row.edit(top, objects);
        if (top.contains("$objects"))
            top["$objects"] = objects;
        QString error;
        EXPECT_FALSE(plist::decodeKeyedArchiveDictionary(plist::writeBinary(top), &error)) << row.name;
        EXPECT_TRUE(error.contains(QLatin1String(row.reason))) << row.name << ": " << qPrintable(error);
    }
    EXPECT_FALSE(plist::decodeKeyedArchiveDictionary("not a property list ("));
    EXPECT_FALSE(plist::decodeKeyedArchiveDictionary(plist::writeBinary(QVariantList())));
}

TEST(KeyedArchive, DeepChainsFail)
{
    // A dictionary whose value is an array of an array of ... ten thousand levels deep.
    QVariantList objects{QStringLiteral("$null"), QVariantMap{{"$class", uid(2)}, {"NS.keys", QVariantList{uid(3)}}, {"NS.objects", QVariantList{uid(5)}}},
                         classDescription(QStringLiteral("NSDictionary")), QStringLiteral("k"), classDescription(QStringLiteral("NSArray"))};
    for (int i = 0; i < 10000; ++i)
        objects.append(QVariantMap{{"$class", uid(4)}, {"NS.objects", QVariantList{uid(quint64(objects.size() + 1))}}});
    objects.append(QStringLiteral("leaf"));
    QString error;
    EXPECT_FALSE(plist::decodeKeyedArchiveDictionary(plist::writeBinary(archive(objects)), &error));
    EXPECT_TRUE(error.contains(QStringLiteral("nesting"))) << qPrintable(error);
}

TEST(KeyedArchive, EncoderWritesObjectsInThePlatformsOrder)
{
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

    // What the corpus lacks survives the round trip: booleans, reals, data and null.
    const QVariantMap value{{"beta", true}, {"ratio", 0.25}, {"blob", QByteArray("\x00\x01", 2)}, {"nothing", QVariant::fromValue(nullptr)}};
    EXPECT_EQ(plist::decodeKeyedArchiveDictionary(plist::encodeKeyedArchive(value)), value);
    EXPECT_TRUE(plist::encodeKeyedArchive(QVariantMap{{"bad", QVariant::fromValue(plist::PlistUid{1})}}).isEmpty());
}

} // namespace
