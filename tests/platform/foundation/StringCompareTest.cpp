#include "platform/foundation/Foundation.h"

#include <gtest/gtest.h>

using fnd::Ordering;

namespace {

const char* name(Ordering o)
{
    return o == Ordering::Ascending ? "Ascending" : (o == Ordering::Same ? "Same" : "Descending");
}

} // namespace

TEST(StringCompareTest, NumericSearchTable)
{
    const struct {
        const char* a;
        const char* b;
        Ordering expected;
    } cases[] = {
        {"10.15.7", "10.9.5", Ordering::Descending},
        {"11.0", "10.15.7", Ordering::Descending},
        {"11.0", "11.0.0", Ordering::Ascending},
        {"1", "1.0", Ordering::Ascending},
        {"1.0", "1.0.0", Ordering::Ascending},
        {"20.20.0", "20.20", Ordering::Descending},
        {"1.", "1", Ordering::Descending},
        {"1.01", "1.1", Ordering::Same},
        {"1.010", "1.01", Ordering::Descending},
        {"01", "1", Ordering::Same},
        {"1.0b1", "1.0.1", Ordering::Descending},
        {"1.0b1", "1.0", Ordering::Descending},
        {"1.30", "1.3", Ordering::Descending},
        {"1.19", "1.3", Ordering::Descending},
        {" 1.0", "1.0", Ordering::Ascending},
        {"1.a", "1.1", Ordering::Descending},
        {"", "", Ordering::Same},
        {"", "0", Ordering::Ascending},
        {"a", "B", Ordering::Descending},
        {"10.16", "10.15.7", Ordering::Descending},
        {"12.6.1", "13.0.0", Ordering::Ascending},
    };
    for (const auto& c : cases) {
        const Ordering got = fnd::compareNumeric(QString::fromUtf8(c.a), QString::fromUtf8(c.b));
        EXPECT_EQ(got, c.expected) << c.a << " vs " << c.b << ": " << name(got);
        // The relation is antisymmetric.
        const Ordering back = fnd::compareNumeric(QString::fromUtf8(c.b), QString::fromUtf8(c.a));
        EXPECT_EQ(int(back), -int(c.expected)) << c.b << " vs " << c.a;
    }
    EXPECT_EQ(fnd::compareNumeric(QStringLiteral("a"), QStringLiteral("B"), true), Ordering::Ascending);
    EXPECT_EQ(fnd::compareNumeric(QStringLiteral("App2"), QStringLiteral("app10"), true), Ordering::Ascending);
}

TEST(StringCompareTest, LiteralOrderIsUtf16Units)
{
    EXPECT_EQ(fnd::compareLiteral(QStringLiteral("beta10"), QStringLiteral("beta9")), Ordering::Ascending);
    EXPECT_EQ(fnd::compareLiteral(QStringLiteral("Zeta"), QStringLiteral("_x")), Ordering::Ascending);
    EXPECT_EQ(fnd::compareLiteral(QStringLiteral("_x"), QStringLiteral("alpha")), Ordering::Ascending);
    EXPECT_EQ(fnd::compareLiteral(QStringLiteral("same"), QStringLiteral("same")), Ordering::Same);
    // A surrogate pair (U+1F600) sorts by its lead unit, below U+FF21.
    EXPECT_EQ(fnd::compareLiteral(QString::fromUtf16(u"\U0001F600"), QString::fromUtf16(u"\uFF21")), Ordering::Ascending);
}

TEST(StringCompareTest, TrimmingUsesTheFullWhitespaceSet)
{
    EXPECT_EQ(fnd::trimWhitespaceAndNewlines(QString::fromUtf16(u"\u00a0 1.2.3\r\n")), QStringLiteral("1.2.3"));
    EXPECT_EQ(fnd::trimWhitespaceAndNewlines(QString::fromUtf16(u"\u200b1.0\u2028\u3000")), QStringLiteral("1.0"));
    EXPECT_EQ(fnd::trimWhitespaceAndNewlines(QString::fromUtf16(u"\ufeff1.0")), QString::fromUtf16(u"\ufeff1.0"));
    EXPECT_EQ(fnd::trimWhitespaceAndNewlines(QStringLiteral(" a \t b ")), QStringLiteral("a \t b"));
    EXPECT_EQ(fnd::trimWhitespaceAndNewlines(QString::fromUtf16(u" \n\u0085\u1680")), QString());
    for (char16_t member : {0x09, 0x0D, 0x20, 0x85, 0xA0, 0x1680, 0x2000, 0x200B, 0x2028, 0x2029, 0x202F, 0x205F, 0x3000})
        EXPECT_TRUE(fnd::isWhitespaceOrNewline(QChar(member))) << int(member);
    for (char16_t outsider : {0x08, 0x1C, 0x1F, 0x7F, 0x180E, 0x200C, 0x200D, 0xFEFF, 0x2030})
        EXPECT_FALSE(fnd::isWhitespaceOrNewline(QChar(outsider))) << int(outsider);
}

// Exactness is what the identifier filters rely on; an empty needle never matches.
TEST(StringCompareTest, PrefixSuffixAndContainsNeverMatchEmpty)
{
    EXPECT_FALSE(fnd::hasPrefix(QStringLiteral("com.Velmora.App"), QStringLiteral("com.velmora.")));
    EXPECT_TRUE(fnd::hasPrefixCaseInsensitive(QStringLiteral("COM.Velmora.App"), QStringLiteral("com.velmora")));
    EXPECT_TRUE(fnd::hasSuffixCaseInsensitive(QStringLiteral("Setup.PKG"), QStringLiteral("pkg")));
    EXPECT_FALSE(fnd::hasSuffix(QStringLiteral("Setup.PKG"), QStringLiteral("pkg")));
    EXPECT_FALSE(fnd::hasPrefix(QStringLiteral("abc"), QString()));
    EXPECT_FALSE(fnd::hasSuffixCaseInsensitive(QStringLiteral("abc"), QString()));
    EXPECT_FALSE(fnd::containsCaseInsensitive(QStringLiteral("abc"), QString()));
}

TEST(StringCompareTest, LikeMatching)
{
    const struct {
        const char* text;
        const char* pattern;
        bool caseInsensitive;
        bool matches;
    } cases[] = {
        {"aba", "a*a", true, true},
        {"a", "a*a", false, false},
        {"Silvy", "silv?", true, true},
        {"Silvia", "Silv?", false, false},
        {"Silvy", "silv?", false, false},
        {"MediaCore", "*", false, true},
        {"", "*", false, true},
        {"", "?", false, false},
        {"", "", false, true},
        {"x", "", false, false},
        {"Premiere Pro 2024", "Premiere*20??", false, true},
        {"a.b.c", "*.c", false, true},
        {"abcabd", "*ab?", false, true},
        {"abcabe", "*abd", false, false},
        {"a*b", "a\\*b", false, false}, // a backslash is an ordinary character
        {"aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaab", "*a*a*a*a*a*a*a*a*a*a*c", false, false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(fnd::likeMatch(QString::fromUtf8(c.text), QString::fromUtf8(c.pattern), c.caseInsensitive), c.matches)
            << c.text << " LIKE " << c.pattern;
}
