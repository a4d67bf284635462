#include "platform/foundation/Format.h"

#include <QDateTime>
#include <QTimeZone>
#include <gtest/gtest.h>
#include <limits>

using fnd::format;

TEST(FormatTest, ConversionsTheProgramUses)
{
    EXPECT_EQ(format(QStringLiteral("App is part of group %@ (%i %@)."), QStringLiteral("g1"), 42, QStringLiteral("1.2")),
              QStringLiteral("App is part of group g1 (42 1.2)."));
    EXPECT_EQ(format(QStringLiteral("/%@.%li.log"), QStringLiteral("SoftwareUpdate"), 3L), QStringLiteral("/SoftwareUpdate.3.log"));
    EXPECT_EQ(format(QStringLiteral("%d|%lld|%llu|%zu|%lu"), -5, qint64(-9000000000), quint64(18446744073709551615ULL),
                     size_t(7), 8UL),
              QStringLiteral("-5|-9000000000|18446744073709551615|7|8"));
    EXPECT_EQ(format(QStringLiteral("%0.2f GB, %f, %.1f, %0.0f"), 15.996, 1.5, 0.25, 2.5),
              QStringLiteral("16.00 GB, 1.500000, 0.2, 2"));
    EXPECT_EQ(format(QStringLiteral("%02x%02x|%5i|%-4d|"), 10, 255, 42, 7), QStringLiteral("0aff|   42|7   |"));
    EXPECT_EQ(format(QStringLiteral("100%% sure, %C"), QChar(0x00E9)), QStringLiteral("100% sure, \u00e9"));
}

TEST(FormatTest, CStringArgumentsEndAtNulAndAcceptQString)
{
    EXPECT_EQ(format(QStringLiteral("Exception in %s. %@ - %@."), "-[AppController foo]", QStringLiteral("N"),
                     QStringLiteral("R")),
              QStringLiteral("Exception in -[AppController foo]. N - R."));
    EXPECT_EQ(format(QStringLiteral("[%s]"), QByteArray("ab\0cd", 5)), QStringLiteral("[ab]"));
    EXPECT_EQ(format(QStringLiteral("[%s]"), QStringLiteral("caf\u00e9")), QStringLiteral("[caf\u00e9]"));
    EXPECT_EQ(format(QStringLiteral("[%s]"), QByteArray("caf\xc3\xa9")), QStringLiteral("[caf\u00e9]"));
    EXPECT_EQ(format(QStringLiteral("[%.2s]"), "abcdef"), QStringLiteral("[ab]"));
}

// A missing argument must never crash: objects and C strings print "(null)", numbers 0.
TEST(FormatTest, MissingArgumentsPrintNullOrZero)
{
    EXPECT_EQ(format(QStringLiteral("a %@ b %s c %i d %0.2f e %lu")),
              QStringLiteral("a (null) b (null) c 0 d 0.00 e 0"));
    EXPECT_EQ(format(QStringLiteral("%@ and %@"), QStringLiteral("one")), QStringLiteral("one and (null)"));
    EXPECT_EQ(format(QStringLiteral("[%C]")), QStringLiteral("[]"));
    EXPECT_EQ(format(QStringLiteral("%@"), QVariant()), QStringLiteral("(null)"));
}

TEST(FormatTest, IntegerWidthFollowsTheLengthModifier)
{
    // Without "l" the argument is read as a C int, so only its low 32 bits count.
    EXPECT_EQ(format(QStringLiteral("%i"), qint64(4294967297LL)), QStringLiteral("1"));
    EXPECT_EQ(format(QStringLiteral("%li"), qint64(4294967297LL)), QStringLiteral("4294967297"));
    EXPECT_EQ(format(QStringLiteral("%u"), -1), QStringLiteral("4294967295"));
    EXPECT_EQ(format(QStringLiteral("%hhd"), 300), QStringLiteral("44"));
    // Numbers given as strings or reals convert the way the value conversions do.
    EXPECT_EQ(format(QStringLiteral("%i %i"), QStringLiteral("12abc"), 3.99), QStringLiteral("12 3"));
    EXPECT_EQ(format(QStringLiteral("%0.1f"), QStringLiteral("2.25")), QStringLiteral("2.2"));
}

TEST(FormatTest, ObjectsPrintTheirDescription)
{
    EXPECT_EQ(format(QStringLiteral("%@ %@ %@ %@"), true, 2.0, 0.1 + 0.2, qulonglong(5)), QStringLiteral("1 2 0.3 5"));
    EXPECT_EQ(format(QStringLiteral("%@"), QByteArrayLiteral("Hello")), QStringLiteral("<48656c6c 6f>"));
    const QDateTime date(QDate(2024, 1, 1), QTime(1, 2, 3, 900), Qt::UTC);
    EXPECT_EQ(format(QStringLiteral("Log started: %@"), date), QStringLiteral("Log started: 2024-01-01 01:02:03 +0000"));
    EXPECT_EQ(format(QStringLiteral("[%6@|%-3@]"), QStringLiteral("ab"), QStringLiteral("c")), QStringLiteral("[    ab|c  ]"));
}

TEST(FormatTest, PositionalStarAndOddConversions)
{
    EXPECT_EQ(format(QStringLiteral("%2$@ %1$@"), QStringLiteral("a"), QStringLiteral("b")), QStringLiteral("b a"));
    EXPECT_EQ(format(QStringLiteral("[%*d|%.*f]"), 4, 7, 1, 2.25), QStringLiteral("[   7|2.2]"));
    // Unknown conversions and "%n" print as written and take no argument; a dangling "%" stays.
    EXPECT_EQ(format(QStringLiteral("%n %k %@ 50%"), QStringLiteral("x")), QStringLiteral("%n %k x 50%"));
    EXPECT_EQ(format(QStringLiteral("%99999999999999d"), 1).size(), 4096);
    EXPECT_EQ(format(QStringLiteral("[%C%c]"), QStringLiteral("xyz"), 0x141), QStringLiteral("[xA]"));
}

// Malformed formats come from data now and then (a title with a "%" in it): each must give
// text, never a crash or a runaway allocation.
TEST(FormatTest, MalformedFormatsKeepTheirText)
{
    const struct {
        const char16_t* format;
        const char16_t* expected;
    } cases[] = {
        {u"%", u"%"},
        {u"%%%", u"%%"},
        {u"%l", u"%l"},
        {u"%-", u"%-"},
        {u"%0$@", u"%0$@"},
        {u"%4097$@", u"(null)"},
        {u"%lllld", u"%lllld"},
        {u"%é", u"%é"},
        {u"%.*", u"%.*"},
        {u"%1$@ %1$@", u"a a"},
    };
    for (const auto& c : cases) {
        const QString f = QString::fromUtf16(c.format);
        EXPECT_EQ(format(f, QStringLiteral("a")), QString::fromUtf16(c.expected)) << f.toStdString();
    }
}

TEST(FormatTest, ExtremeNumbers)
{
    EXPECT_EQ(format(QStringLiteral("%lld %@"), std::numeric_limits<qint64>::min(), 1e16),
              QStringLiteral("-9223372036854775808 1e+16"));
    EXPECT_EQ(format(QStringLiteral("%f %@"), std::numeric_limits<double>::infinity(), -0.0), QStringLiteral("inf -0"));
}

TEST(FormatTest, ArgumentKinds)
{
    enum class Kind : quint8 { A = 3 };
    char buffer[] = "mutable";
    const QVariantMap dict{{QStringLiteral("updates"), QVariantList()}};
    EXPECT_EQ(format(QStringLiteral("%i %s %@"), Kind::A, buffer, QStringList{QStringLiteral("x")}),
              QStringLiteral("3 mutable (\n    x\n)"));
    EXPECT_EQ(format(QStringLiteral("%@"), dict), QStringLiteral("{\n    updates =     (\n    );\n}"));
}
