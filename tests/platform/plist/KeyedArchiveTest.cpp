// Keyed archives: a worked archive and each way it can be broken (one edit per row), and deep
// chains. Real archives in both forms, and the encoder, are held to the corpus sweep.
#include "platform/plist/PropertyList.h"

#include <QDateTime>
#include <gtest/gtest.h>

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
