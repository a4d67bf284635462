// Numeric comparison (not a version comparator: its quirks are kept), the whitespace set,
// the case-insensitive tests and LIKE matching.
#include "platform/foundation/Foundation.h"

#include <gtest/gtest.h>

using fnd::Ordering;

TEST(StringCompare, NumericSearch)
{
    const struct { const char* a; const char* b; Ordering expected; } rows[] = {
        {"10.15.7", "10.9.5", Ordering::Descending}, {"11.0", "11.0.0", Ordering::Ascending}, // by value; shorter is smaller
        {"1.", "1", Ordering::Descending}, {"1.01", "1.1", Ordering::Same}, {"1.010", "1.01", Ordering::Descending}, // zeros ignored
        {"1.0b1", "1.0.1", Ordering::Descending}, {" 1.0", "1.0", Ordering::Ascending}, {"a", "B", Ordering::Descending}, // UTF-16
        {"", "", Ordering::Same}, {"18446744073709551616", "0", Ordering::Same}, // runs beyond 64 bits wrap
    };
    for (const auto& row : rows) {
        EXPECT_EQ(fnd::compareNumeric(QString::fromUtf8(row.a), QString::fromUtf8(row.b)), row.expected) << row.a << " vs " << row.b;
        EXPECT_EQ(int(fnd::compareNumeric(QString::fromUtf8(row.b), QString::fromUtf8(row.a))), -int(row.expected)) << row.b << " vs " << row.a;
    }
    EXPECT_EQ(fnd::compareNumeric(QStringLiteral("App2"), QStringLiteral("app10"), true), Ordering::Ascending);
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

TEST(StringCompare, LikeMatching)
{
    const struct { const char* text; const char* pattern; bool caseInsensitive; bool matches; } rows[] = {
        {"aba", "a*a", true, true}, {"a", "a*a", false, false}, {"Silvy", "silv?", true, true}, {"Silvy", "silv?", false, false},
        {"Silvia", "Silv?", false, false}, {"", "*", false, true}, {"", "?", false, false}, {"x", "", false, false},
        {"Premiere Pro 2024", "Premiere*20??", false, true}, {"abcabd", "*ab?", false, true}, // backtracks past a partial match
        {"a*b", "a\\*b", false, false}, // a backslash is an ordinary character
        {"aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaab", "*a*a*a*a*a*a*a*a*a*a*c", false, false},
    };
    for (const auto& row : rows)
        EXPECT_EQ(fnd::likeMatch(QString::fromUtf8(row.text), QString::fromUtf8(row.pattern), row.caseInsensitive), row.matches)
            << row.text << " LIKE " << row.pattern;
}
