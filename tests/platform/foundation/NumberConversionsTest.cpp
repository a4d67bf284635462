// The scanner rules of string-to-number conversions, the conversions of property-list values,
// and the text of numbers; one row per rule, the platform's quirks included.
#include "platform/foundation/Foundation.h"

#include <QDateTime>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>

TEST(NumberConversions, IntegerScanner)
{
    const qint64 max64 = std::numeric_limits<qint64>::max();
    const qint64 min64 = std::numeric_limits<qint64>::min();
    const struct { const char16_t* text; int intValue; qint64 integerValue; } rows[] = {
        {u"  42abc", 42, 42}, {u"\u00a0\u200b\u3000\n42", 42, 42}, // the scanner's broad whitespace
        {u"+7", 7, 7}, {u"- 5", -5, -5}, {u"-0012", -12, -12}, {u"3.99", 3, 3}, // whitespace may follow the sign
        {u"0x1F", 0, 0}, {u"", 0, 0}, {u"--5", 0, 0}, {u"\u0661\u0662", 0, 0}, // other scripts' digits are no digits
        {u"2147483648", 2147483647, 2147483648LL}, {u"-99999999999", -2147483647 - 1, -99999999999LL}, // clamped per type
        {u"9223372036854775808", 2147483647, max64}, {u"-99999999999999999999999", -2147483647 - 1, min64},
    };
    for (const auto& row : rows) {
        const QString text = QString::fromUtf16(row.text);
        EXPECT_EQ(fnd::intValue(text), row.intValue) << text.toStdString();
        EXPECT_EQ(fnd::integerValue(text), row.integerValue) << text.toStdString();
    }
}

TEST(NumberConversions, DoubleAndBoolScanners)
{
    const struct { const char* text; double value; } doubles[] = {{"\t 3.14abc", 3.14}, {"-.5e-1", -0.05}, {"1e", 1}, {"1,5", 1}, {"0x10", 0}, {"inf", 0}, {"nan", 0}, {"--1", 0}};
    for (const auto& row : doubles)
        EXPECT_DOUBLE_EQ(fnd::doubleValue(QString::fromUtf8(row.text)), row.value) << row.text;
    EXPECT_TRUE(std::isinf(fnd::doubleValue(QStringLiteral("1e999"))));

    for (const char* yes : {"Y", "yes", "t", "TRUE", "9", "007", " 1 ", "+1", "-01", "+3sb", "1a", "\n y"})
        EXPECT_TRUE(fnd::boolValue(QString::fromUtf8(yes))) << yes;
    for (const char* no : {"N", "false", "", "00", "-0", "0.5", "+y", "-t", "+-1", "000-1", "a1", " + 1"})
        EXPECT_FALSE(fnd::boolValue(QString::fromUtf8(no))) << no;
}

TEST(NumberConversions, PropertyListValues)
{
    // Strings use the string rules; numbers convert as C (reals truncate, clamp); others are 0 / NO.
    const struct { QVariant value; int intValue; bool boolValue; } rows[] = {
        {QStringLiteral(" 12 "), 12, true}, {-3.99, -3, true}, {1e20, std::numeric_limits<int>::max(), true}, {std::nan(""), 0, true},
        {qlonglong(4294967297LL), 1, true}, {true, 1, true}, {QByteArray("12"), 0, false}, {QVariantList{1}, 0, false},
        {QStringLiteral("YES"), 0, true}, {0.5, 0, true}, {QDateTime::currentDateTimeUtc(), 0, false},
    };
    for (const auto& row : rows)
        EXPECT_TRUE(fnd::intValue(row.value) == row.intValue && fnd::boolValue(row.value) == row.boolValue) << row.value.toString().toStdString();
    EXPECT_EQ(fnd::integerValue(QVariant(qulonglong(5))), 5);
    EXPECT_DOUBLE_EQ(fnd::doubleValue(QVariant(QStringLiteral("2.5x"))), 2.5);
    EXPECT_TRUE(fnd::isNumber(QVariant(false)) && !fnd::isNumber(QVariant(QStringLiteral("1"))));
}

TEST(NumberConversions, StringValueOfNumbers)
{
    const struct { QVariant value; const char* text; } rows[] = {
        {qlonglong(-7), "-7"}, {qulonglong(18446744073709551615ULL), "18446744073709551615"}, {3.5, "3.5"}, {2.0, "2"},
        {0.1 + 0.2, "0.3"}, {1.0 / 3.0, "0.3333333333333333"}, {1e16, "1e+16"}, {1e-5, "1e-05"}, {-0.0, "-0"},
        {QVariant(3.14159265f), "3.141593"}, {true, "1"}, {QStringLiteral("as is"), "as is"}, {QVariantMap(), ""},
    };
    for (const auto& row : rows)
        EXPECT_EQ(fnd::stringValue(row.value), QString::fromUtf8(row.text)) << row.text;
}
