// Property-list values as JSON: every value type of a real property list keeps its type
// (numbers stay numbers, booleans booleans), dates and data take their documented text
// forms, and values JSON cannot hold come out as null.

#include "platform/plist/PlistJson.h"
#include "platform/plist/PropertyList.h"

#include <QDateTime>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

QByteArray compact(const QJsonValue& value)
{
    return QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
}

} // namespace

TEST(PlistJson, EveryValueOfARealPropertyListKeepsItsType)
{
    QFile file(QStringLiteral(VELMORA_CORPUS_DIR "/plists/xml/all-value-types-uint64-max-data-date.plist"));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const std::optional<QVariant> root = plist::read(file.readAll());
    ASSERT_TRUE(root);
    const QJsonObject json = plist::toJsonValue(*root).toObject();

    EXPECT_EQ(json.value(QStringLiteral("Author")), QJsonValue(QStringLiteral("William Shakespeare")));
    EXPECT_EQ(json.value(QStringLiteral("Lines")).toArray().size(), 2);
    EXPECT_EQ(json.value(QStringLiteral("Blank")), QJsonValue(QString()));
    EXPECT_TRUE(json.value(QStringLiteral("Death")).isDouble());
    EXPECT_EQ(json.value(QStringLiteral("Death")).toInteger(), 1564);
    EXPECT_DOUBLE_EQ(json.value(QStringLiteral("Height")).toDouble(), 1.6);
    EXPECT_EQ(json.value(QStringLiteral("Birthdate")), QJsonValue(QStringLiteral("1981-05-16T11:32:06Z")));
    // Data: the same bytes, as standard base64.
    EXPECT_EQ(QByteArray::fromBase64(json.value(QStringLiteral("Data")).toString().toLatin1()),
              root->toMap().value(QStringLiteral("Data")).toByteArray());
    // The extremes of the integers: the signed one exactly, the unsigned one as a number.
    EXPECT_EQ(json.value(QStringLiteral("SmallestNumber")).toInteger(), std::numeric_limits<qint64>::min());
    EXPECT_TRUE(json.value(QStringLiteral("BiggestNumber")).isDouble());
    EXPECT_DOUBLE_EQ(json.value(QStringLiteral("BiggestNumber")).toDouble(), 18446744073709551615.0);
}

TEST(PlistJson, TextFormsAndValuesJsonCannotHold)
{
    struct Row {
        QVariant value;
        const char* json;
    };
    const QDateTime withMs = QDateTime(QDate(2024, 5, 1), QTime(9, 30, 0, 250), Qt::UTC);
    const QList<Row> rows = {
        {QVariant(true), "[true]"},
        {QVariant(qlonglong(9007199254740993LL)), "[9007199254740993]"}, // beyond a double's exact range
        {QVariant(std::nan("")), "[null]"},
        {QVariant(std::numeric_limits<double>::infinity()), "[null]"},
        {QVariant(withMs), "[\"2024-05-01T09:30:00.250Z\"]"},
        {QVariant(QDateTime(QDate(2024, 5, 1), QTime(11, 30), Qt::OffsetFromUTC, 7200)),
         "[\"2024-05-01T09:30:00Z\"]"},
        {QVariant(QByteArray("\x00\xff", 2)), "[\"AP8=\"]"},
        {QVariant(), "[null]"},
        {QVariant::fromValue(nullptr), "[null]"},
        {QVariant::fromValue(plist::PlistUid{7}), "[7]"},
        {QVariant(QVariantMap{{QStringLiteral("a"), QVariantList{qlonglong(1), QStringLiteral("x")}}}),
         "[{\"a\":[1,\"x\"]}]"},
    };
    for (const Row& row : rows)
        EXPECT_EQ(compact(plist::toJsonValue(row.value)), QByteArray(row.json)) << row.json;
}
