// Format strings, one row per rule of the conversions the program uses, and a decimal-comma
// process locale that must reach none of them.
#include "platform/foundation/Format.h"
#include "platform/foundation/Foundation.h"
#include "support/ChildProcess.h"

#include <QDateTime>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <clocale>
#include <cstdio>
#include <limits>
#include <string>

TEST(Format, OneRowPerRule)
{
    enum class Kind : quint8 { A = 3 };
    char buffer[] = "mutable";
    const double inf = std::numeric_limits<double>::infinity();
    const struct { const char16_t* format; QList<fnd::FormatArg> args; const char16_t* expected; } rows[] = {
        {u"App is part of group %@ (%i %@).", {QStringLiteral("g1"), 42, QStringLiteral("1.2")}, u"App is part of group g1 (42 1.2)."},
        {u"%d|%lld|%llu|%zu|%li", {-5, qint64(-9000000000), quint64(18446744073709551615ULL), size_t(7), 3L},
         u"-5|-9000000000|18446744073709551615|7|3"},
        {u"%0.2f GB, %f, %.1f, %0.0f", {15.996, 1.5, 0.25, 2.5}, u"16.00 GB, 1.500000, 0.2, 2"},
        {u"%02x%02x|%5i|%-4d|%%|%C", {10, 255, 42, 7, QChar(0x00E9)}, u"0aff|   42|7   |%|\u00e9"},
        // A C string ends at its NUL; a QString or UTF-8 bytes are accepted.
        {u"[%s|%s|%.2s]", {QByteArray("ab\0cd", 5), QStringLiteral("caf\u00e9"), "abcdef"}, u"[ab|caf\u00e9|ab]"},
        // Missing arguments never crash: objects and C strings "(null)", numbers 0, characters nothing.
        {u"%@ %s %i %0.2f %lu [%C]", {}, u"(null) (null) 0 0.00 0 []"},
        {u"%@", {QVariant()}, u"(null)"},
        // Integer conversions read the width their length modifier names, as C does.
        {u"%i %li %u %hhd", {qint64(4294967297LL), qint64(4294967297LL), -1, 300}, u"1 4294967297 4294967295 44"},
        // Strings and reals given to number conversions convert as the value conversions do.
        {u"%i %i %0.1f", {QStringLiteral("12abc"), 3.99, QStringLiteral("2.25")}, u"12 3 2.2"},
        // "%@" prints descriptions; a width applies to it too.
        {u"%@ %@ %@ %@ %@", {true, 2.0, 0.1 + 0.2, qulonglong(5), QByteArrayLiteral("Hello")}, u"1 2 0.3 5 <48656c6c 6f>"},
        {u"%@|%6@|%-3@|", {QVariant(QDateTime(QDate(2024, 1, 1), QTime(1, 2, 3, 900), Qt::UTC)), QStringLiteral("ab"), QStringLiteral("c")},
         u"2024-01-01 01:02:03 +0000|    ab|c  |"},
        {u"%i %s %@", {Kind::A, buffer, QVariant(QStringList{QStringLiteral("x")})}, u"3 mutable (\n    x\n)"},
        {u"%2$@ %1$@ %1$@", {QStringLiteral("a"), QStringLiteral("b")}, u"b a a"},
        {u"[%*d|%.*f|%C%c]", {4, 7, 1, 2.25, QStringLiteral("xyz"), 0x141}, u"[   7|2.2|xA]"},
        {u"%lld %@ %f %@", {std::numeric_limits<qint64>::min(), 1e16, inf, -0.0}, u"-9223372036854775808 1e+16 inf -0"},
        // Malformed formats (a "%" in a title) keep their text; "%n" and unknowns take no argument.
        {u"%n %k %@ 50%", {QStringLiteral("x")}, u"%n %k x 50%"},
        {u"%", {}, u"%"}, {u"%%%", {}, u"%%"}, {u"%l", {}, u"%l"}, {u"%lllld", {}, u"%lllld"}, {u"%\u00e9", {}, u"%\u00e9"},
        {u"%.*", {}, u"%.*"}, {u"%0$@", {QStringLiteral("a")}, u"%0$@"}, {u"%4097$@", {QStringLiteral("a")}, u"(null)"},
    };
    for (const auto& row : rows) {
        const QString format = QString::fromUtf16(row.format);
        EXPECT_EQ(fnd::formatWithArgs(format, row.args), QString::fromUtf16(row.expected)) << format.toStdString();
    }
    // A hostile width cannot allocate without bound.
    EXPECT_EQ(fnd::format(QStringLiteral("%99999999999999d"), 1).size(), 4096);
}

TEST(Format, RealsIgnoreTheProcessNumericLocale)
{
    // A throw-away locale whose decimal separator is ",", made the process's numeric locale as a
    // user's German or French settings would; put back before anything is checked.
    QTemporaryDir dir;
    QFile source(dir.filePath(QStringLiteral("comma.src")));
    ASSERT_TRUE(source.open(QIODevice::WriteOnly) && source.write("LC_NUMERIC\ndecimal_point \",\"\nthousands_sep \".\"\ngrouping 3;3\nEND LC_NUMERIC\n") > 0);
    source.close();
    vltest::ChildProcess localedef;
    const vltest::ChildOptions quiet{.discardOutput = true}; // it warns about every category the source leaves out
    if (!localedef.start("/usr/bin/localedef", {"-c", "-i", source.fileName(), "-f", "UTF-8", dir.filePath("comma")}, quiet) || !localedef.waitForFinished(60000))
        GTEST_SKIP() << "no localedef here";
    const std::string saved = std::setlocale(LC_NUMERIC, nullptr);
    qputenv("LOCPATH", QFile::encodeName(dir.path()));
    const bool active = std::setlocale(LC_NUMERIC, "comma") != nullptr;
    char probe[16];
    std::snprintf(probe, sizeof probe, "%0.2f", 1.5);
    const QString formatted = fnd::format(QStringLiteral("%0.2f GB, %@, %g, %'d"), 1.5, 2.5, 0.25, 1234567);
    const QString number = fnd::stringValue(QVariant(3.25));
    const double point = fnd::doubleValue(QStringLiteral("1.5")), comma = fnd::doubleValue(QStringLiteral("1,5"));
    std::setlocale(LC_NUMERIC, saved.c_str());
    qunsetenv("LOCPATH");
    if (!active)
        GTEST_SKIP() << "localedef could not build a decimal-comma locale here";
    ASSERT_STREQ(probe, "1,50") << "the process locale did not take effect";
    EXPECT_EQ(formatted + u'|' + number, QStringLiteral("1.50 GB, 2.5, 0.25, 1234567|3.25"));
    EXPECT_TRUE(point == 1.5 && comma == 1.0) << point << " " << comma;
}
