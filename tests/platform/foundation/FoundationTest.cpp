// The Foundation behaviours the program relies on: format strings (and a decimal-comma process
// locale that must reach none of them), the conversions of strings and values to numbers and
// back, string comparison and matching, and path and URL strings. The plain tables are the data
// files in data/, one row per rule with the reason.
#include "platform/foundation/Format.h"
#include "platform/foundation/Foundation.h"
#include "support/ChildProcess.h"
#include "support/TestData.h"

#include <QDateTime>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
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
    // A throw-away decimal-comma locale made the process's numeric locale, as a user's German
    // settings would; put back before anything is checked.
    QTemporaryDir dir;
    QFile source(dir.filePath(QStringLiteral("comma.src")));
    ASSERT_TRUE(source.open(QIODevice::WriteOnly) && source.write("LC_NUMERIC\ndecimal_point \",\"\nthousands_sep \".\"\ngrouping 3;3\nEND LC_NUMERIC\n") > 0);
    source.close();
    vltest::ChildProcess localedef; // it warns about every category the source leaves out
    if (!localedef.start("/usr/bin/localedef", {"-c", "-i", source.fileName(), "-f", "UTF-8", dir.filePath("comma")}, {.discardOutput = true})
        || !localedef.waitForFinished(60000))
        GTEST_SKIP() << "no localedef here";
    const std::string saved = std::setlocale(LC_NUMERIC, nullptr);
    qputenv("LOCPATH", QFile::encodeName(dir.path()));
    const bool active = std::setlocale(LC_NUMERIC, "comma") != nullptr;
    const QString formatted = fnd::format(QStringLiteral("%0.2f GB, %@, %g, %'d|%@|%@"), 1.5, 2.5, 0.25, 1234567,
                                          fnd::stringValue(QVariant(3.25)), fnd::doubleValue(QStringLiteral("1,5")));
    std::setlocale(LC_NUMERIC, saved.c_str());
    qunsetenv("LOCPATH");
    if (!active)
        GTEST_SKIP() << "localedef could not build a decimal-comma locale here";
    EXPECT_EQ(formatted, QStringLiteral("1.50 GB, 2.5, 0.25, 1234567|3.25|1"));
}

TEST(NumberConversions, Scanners)
{
    for (const QJsonValue& value : vltest::dataRows("platform/foundation/data/NumberConversions", "integers")) {
        const QJsonObject row = value.toObject();
        const QString text = row.value("text").toString();
        EXPECT_EQ(fnd::intValue(text), row.value("int").toInteger()) << row.value("why").toString().toStdString();
        EXPECT_EQ(fnd::integerValue(text), row.value("integer").toInteger()) << row.value("why").toString().toStdString();
    }
    for (const QJsonValue& value : vltest::dataRows("platform/foundation/data/NumberConversions", "bools")) {
        const QJsonObject row = value.toObject();
        EXPECT_EQ(fnd::boolValue(row.value("text").toString()), row.value("value").toBool()) << row.value("why").toString().toStdString();
    }
    const struct { const char* text; double value; } doubles[] = {{"\t 3.14abc", 3.14}, {"-.5e-1", -0.05}, {"1e", 1}, {"1,5", 1}, {"0x10", 0}, {"inf", 0}, {"nan", 0}, {"--1", 0}};
    for (const auto& row : doubles)
        EXPECT_DOUBLE_EQ(fnd::doubleValue(QString::fromUtf8(row.text)), row.value) << row.text;
    EXPECT_TRUE(std::isinf(fnd::doubleValue(QStringLiteral("1e999"))));
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

TEST(StringCompare, NumericSearchAndLikeMatching)
{
    for (const QJsonValue& value : vltest::dataRows("platform/foundation/data/StringCompare", "numeric")) {
        const QJsonObject row = value.toObject();
        const QString a = row.value("a").toString(), b = row.value("b").toString();
        const int order = row.value("order").toInt();
        EXPECT_EQ(int(fnd::compareNumeric(a, b)), order) << row.value("why").toString().toStdString();
        EXPECT_EQ(int(fnd::compareNumeric(b, a)), -order) << row.value("why").toString().toStdString();
    }
    EXPECT_EQ(fnd::compareNumeric(QStringLiteral("App2"), QStringLiteral("app10"), true), fnd::Ordering::Ascending);
    for (const QJsonValue& value : vltest::dataRows("platform/foundation/data/StringCompare", "like")) {
        const QJsonObject row = value.toObject();
        EXPECT_EQ(fnd::likeMatch(row.value("text").toString(), row.value("pattern").toString(), row.value("caseInsensitive").toBool()),
                  row.value("matches").toBool())
            << row.value("why").toString().toStdString();
    }
}

TEST(StringCompare, TrimmingAndCaseInsensitiveTests)
{
    // The full whitespace set, U+200B included; U+FEFF, U+200C and U+180E are not members.
    EXPECT_EQ(fnd::trimWhitespaceAndNewlines(QString::fromUtf16(u"\u00a0 \u200b1.2.3\r\n\u2028\u3000\u0085")), QStringLiteral("1.2.3"));
    EXPECT_EQ(fnd::trimWhitespaceAndNewlines(QString::fromUtf16(u"\u1680\u202f\u205fa \t b\u2000\u2029\u000b")), QStringLiteral("a \t b"));
    for (const char16_t* kept : {u"\ufeff1.0", u"\u200c1.0", u"\u180e1.0", u"1.0\u001c"})
        EXPECT_EQ(fnd::trimWhitespaceAndNewlines(QString::fromUtf16(kept)), QString::fromUtf16(kept));
    EXPECT_EQ(fnd::trimWhitespaceAndNewlines(QStringLiteral(" \n\t ")), QString());

    EXPECT_TRUE(fnd::hasPrefixCaseInsensitive(QStringLiteral("COM.Velmora.App"), QStringLiteral("com.velmora")));
    EXPECT_FALSE(fnd::hasPrefixCaseInsensitive(QStringLiteral("com.velmora"), QString())) << "an empty prefix never matches";
    EXPECT_TRUE(fnd::equalsCaseInsensitive(QStringLiteral("com.Velmora.Tessel"), QStringLiteral("COM.velmora.tessel")));
    EXPECT_FALSE(fnd::equalsCaseInsensitive(QStringLiteral("com.velmora.Tessel"), QStringLiteral("com.velmora.Tessel2")));
}

TEST(PathUtilities, ComponentsAndExtensions)
{
    for (const QJsonValue& value : vltest::dataRows("platform/foundation/data/PathUtilities", "components")) {
        const QJsonObject row = value.toObject();
        const QString path = row.value("path").toString();
        const std::string why = row.value("why").toString().toStdString();
        EXPECT_EQ(fnd::lastPathComponent(path), row.value("last").toString()) << why;
        EXPECT_EQ(fnd::pathExtension(path), row.value("extension").toString()) << why;
        EXPECT_EQ(fnd::stringByDeletingPathExtension(path), row.value("withoutExtension").toString()) << why;
        EXPECT_EQ(fnd::stringByDeletingLastPathComponent(path), row.value("parent").toString()) << why;
    }
    for (const auto& [path, components] : std::initializer_list<std::pair<const char*, QStringList>>{
             {"tmp/scratch", {"tmp", "scratch"}}, {"/tmp/scratch/", {"/", "tmp", "scratch", "/"}},
             {"//a//b", {"/", "a", "b"}}, {"///", {"/"}}, {"", {}}})
        EXPECT_EQ(fnd::pathComponents(QString::fromUtf8(path)), components) << path;
}

TEST(PathUtilities, AppendingNormalises)
{
    const QString tiff = QStringLiteral("scratch.tiff");
    EXPECT_EQ(fnd::stringByAppendingPathComponent(QStringLiteral("/tmp/"), tiff), QStringLiteral("/tmp/scratch.tiff"));
    EXPECT_EQ(fnd::stringByAppendingPathComponent(QStringLiteral("/"), tiff), QStringLiteral("/scratch.tiff"));
    EXPECT_EQ(fnd::stringByAppendingPathComponent(QString(), tiff), tiff);
    EXPECT_EQ(fnd::stringByAppendingPathComponent(QStringLiteral("/tmp//a/"), QString()), QStringLiteral("/tmp/a"));
    EXPECT_EQ(fnd::stringByAppendingPathComponent(QStringLiteral("a"), QStringLiteral("/b/")), QStringLiteral("a/b"));
    // The normalisation is why this must never be used on URL strings.
    EXPECT_EQ(fnd::stringByAppendingPathComponent(QStringLiteral("file://localhost/directory/"), QStringLiteral("index.html")),
              QStringLiteral("file:/localhost/directory/index.html"));
    EXPECT_EQ(fnd::stringByAppendingPathExtension(QStringLiteral("/tmp/"), QStringLiteral("tiff")), QStringLiteral("/tmp.tiff"));
    EXPECT_EQ(fnd::stringByAppendingPathExtension(QStringLiteral("/x/Report"), QString()), QStringLiteral("/x/Report"));
}

TEST(UrlUtilities, StrictValidityAndThePathAsAFilePath)
{
    for (const QJsonValue& value : vltest::dataRows("platform/foundation/data/PathUtilities", "urlValidity")) {
        const QJsonObject row = value.toObject();
        EXPECT_EQ(fnd::isValidURLString(row.value("url").toString()), row.value("valid").toBool()) << row.value("why").toString().toStdString();
    }
    for (const QJsonValue& value : vltest::dataRows("platform/foundation/data/PathUtilities", "urlPath")) {
        const QJsonObject row = value.toObject();
        const std::optional<QString> path = fnd::urlPath(row.value("url").toString());
        EXPECT_EQ(path.value_or(QStringLiteral("<none>")), row.value("path").toString(QStringLiteral("<none>"))) << row.value("why").toString().toStdString();
    }
}
