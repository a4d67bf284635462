// Property-list values as JSON: numbers stay numbers and booleans booleans, dates and data take
// their text forms, and what JSON cannot hold comes out as null.
#include "platform/plist/PlistJson.h"
#include "platform/plist/PropertyList.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

TEST(PlistJson, EachValueTypeKeepsItsType)
{
    const struct {
        QVariant value;
        const char* json;
    } rows[] = {
        {true, "[true]"},
        {qlonglong(9007199254740993LL), "[9007199254740993]"}, // beyond a double's exact range
        {std::numeric_limits<qlonglong>::min(), "[-9223372036854775808]"},
        {qulonglong(18446744073709551615ull), "[18446744073709552000]"},
        {1.6, "[1.6]"},
        {std::nan(""), "[null]"},
        {std::numeric_limits<double>::infinity(), "[null]"},
        {QDateTime(QDate(2024, 5, 1), QTime(9, 30, 0, 250), Qt::UTC), "[\"2024-05-01T09:30:00.250Z\"]"},
        {QDateTime(QDate(2024, 5, 1), QTime(11, 30), Qt::OffsetFromUTC, 7200), "[\"2024-05-01T09:30:00Z\"]"},
        {QByteArray("\x00\xff", 2), "[\"AP8=\"]"},
        {QVariant(), "[null]"},
        {QVariant::fromValue(nullptr), "[null]"},
        {QVariant::fromValue(plist::PlistUid{7}), "[7]"},
        {QVariantMap{{QStringLiteral("a"), QVariantList{qlonglong(1), QStringLiteral("x")}}}, "[{\"a\":[1,\"x\"]}]"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(QJsonDocument(QJsonArray{plist::toJsonValue(row.value)}).toJson(QJsonDocument::Compact), QByteArray(row.json)) << row.json;
}
