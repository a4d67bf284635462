#include "platform/foundation/Foundation.h"

#include <QDateTime>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace {

struct IntCase {
    const char16_t* text;
    int intValue;
    qint64 longLongValue;
};

// The scanner's rules: broad leading whitespace, one sign, decimal digits only, clamping.
const IntCase kIntCases[] = {
    {u"42", 42, 42},
    {u"  42abc", 42, 42},
    {u"\n\t42", 42, 42},
    {u"\u00a0\u200b\u300042", 42, 42},
    {u"+7", 7, 7},
    {u"-0012", -12, -12},
    {u"- 5", -5, -5},
    {u"3.99", 3, 3},
    {u"1e3", 1, 1},
    {u"0x1F", 0, 0},
    {u"", 0, 0},
    {u"abc", 0, 0},
    {u"--5", 0, 0},
    {u"+", 0, 0},
    {u"99999999999", 2147483647, 99999999999LL},
    {u"-99999999999", -2147483647 - 1, -99999999999LL},
    {u"2147483648", 2147483647, 2147483648LL},
    {u"-2147483648", -2147483647 - 1, -2147483648LL},
    {u"9223372036854775807", 2147483647, std::numeric_limits<qint64>::max()},
    {u"9223372036854775808", 2147483647, std::numeric_limits<qint64>::max()},
    {u"-9223372036854775808", -2147483647 - 1, std::numeric_limits<qint64>::min()},
    {u"-99999999999999999999999", -2147483647 - 1, std::numeric_limits<qint64>::min()},
    {u"\u0661\u0662", 0, 0}, // other scripts' digits are not digits
};

} // namespace

TEST(NumberConversionsTest, IntegerScannerTable)
{
    for (const IntCase& c : kIntCases) {
        const QString text = QString::fromUtf16(c.text);
        EXPECT_EQ(fnd::intValue(text), c.intValue) << text.toStdString();
        EXPECT_EQ(fnd::longLongValue(text), c.longLongValue) << text.toStdString();
        EXPECT_EQ(fnd::integerValue(text), c.longLongValue) << text.toStdString();
    }
}

TEST(NumberConversionsTest, DoubleScannerTable)
{
    const struct {
        const char* text;
        double value;
    } cases[] = {
        {" 3.14abc", 3.14}, {"1e3", 1000}, {".5", 0.5}, {"-.5e-1", -0.05}, {"1e", 1}, {"1,5", 1},
        {"0x10", 0},        {"inf", 0},    {"nan", 0},  {"abc", 0},        {"", 0},  {"--1", 0},
        {"\t-2.5", -2.5},
    };
    for (const auto& c : cases)
        EXPECT_DOUBLE_EQ(fnd::doubleValue(QString::fromUtf8(c.text)), c.value) << c.text;
    EXPECT_TRUE(std::isinf(fnd::doubleValue(QStringLiteral("1e999"))));
}

TEST(NumberConversionsTest, BoolValueTable)
{
    for (const char* yes : {"Y", "yes", "true", "TRUE", "t", "1", "9", "10", "01", "007", "1.0", " 1 ", "+1", "-1",
                            "-01", "+3sb", "ya", "1a", "\n y"})
        EXPECT_TRUE(fnd::boolValue(QString::fromUtf8(yes))) << yes;
    for (const char* no : {"N", "no", "false", "F", "", "0", "00", "+0", "-0", "0+", "0.5", "+y", "-t", "--1", "+-1",
                           "000-1", "a1", " + 1"})
        EXPECT_FALSE(fnd::boolValue(QString::fromUtf8(no))) << no;
}

TEST(NumberConversionsTest, PropertyListValues)
{
    // Strings use the string rules; numbers convert as C; other kinds are 0 / NO.
    EXPECT_EQ(fnd::intValue(QVariant(QStringLiteral(" 12 "))), 12);
    EXPECT_EQ(fnd::intValue(QVariant(3.99)), 3);
    EXPECT_EQ(fnd::intValue(QVariant(-3.99)), -3);
    EXPECT_EQ(fnd::intValue(QVariant(1e20)), std::numeric_limits<int>::max());
    EXPECT_EQ(fnd::intValue(QVariant(qlonglong(4294967297LL))), 1);
    EXPECT_EQ(fnd::intValue(QVariant(true)), 1);
    EXPECT_EQ(fnd::longLongValue(QVariant(qulonglong(5))), 5);
    EXPECT_EQ(fnd::integerValue(QVariant(QByteArray("12"))), 0);
    EXPECT_EQ(fnd::intValue(QVariant(QVariantList{1})), 0);
    EXPECT_EQ(fnd::intValue(QVariant()), 0);
    EXPECT_EQ(fnd::intValue(QVariant(std::nan(""))), 0);
    EXPECT_DOUBLE_EQ(fnd::doubleValue(QVariant(qlonglong(7))), 7.0);
    EXPECT_DOUBLE_EQ(fnd::doubleValue(QVariant(QStringLiteral("2.5x"))), 2.5);
    EXPECT_TRUE(fnd::boolValue(QVariant(QStringLiteral("YES"))));
    EXPECT_FALSE(fnd::boolValue(QVariant(QStringLiteral("NO"))));
    EXPECT_TRUE(fnd::boolValue(QVariant(0.5)));
    EXPECT_FALSE(fnd::boolValue(QVariant(qlonglong(0))));
    EXPECT_FALSE(fnd::boolValue(QVariant(QDateTime::currentDateTimeUtc())));
    EXPECT_TRUE(fnd::isNumber(QVariant(false)));
    EXPECT_FALSE(fnd::isNumber(QVariant(QStringLiteral("1"))));
}

TEST(NumberConversionsTest, StringValueOfNumbers)
{
    const struct {
        QVariant value;
        const char* text;
    } cases[] = {
        {QVariant(42), "42"},
        {QVariant(qlonglong(-7)), "-7"},
        {QVariant(qulonglong(18446744073709551615ULL)), "18446744073709551615"},
        {QVariant(3.5), "3.5"},
        {QVariant(2.0), "2"},
        {QVariant(0.1), "0.1"},
        {QVariant(0.1 + 0.2), "0.3"},
        {QVariant(1.0 / 3.0), "0.3333333333333333"},
        {QVariant(1e16), "1e+16"},
        {QVariant(1e-5), "1e-05"},
        {QVariant(1e15), "1000000000000000"},
        {QVariant(-0.0), "-0"},
        {QVariant(3.14159265f), "3.141593"},
        {QVariant(true), "1"},
        {QVariant(false), "0"},
        {QVariant(QStringLiteral("as is")), "as is"},
        {QVariant(QVariantMap()), ""},
    };
    for (const auto& c : cases)
        EXPECT_EQ(fnd::stringValue(c.value), QString::fromUtf8(c.text)) << c.text;
}
