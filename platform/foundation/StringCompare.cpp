// Comparison, whitespace trimming, case-insensitive prefix and equality tests and LIKE matching
// of strings.

#include "platform/foundation/Foundation.h"

namespace fnd {

namespace {

bool isAsciiDigit(char16_t u) { return u >= u'0' && u <= u'9'; }

char16_t foldAscii(char16_t u) { return (u >= u'A' && u <= u'Z') ? char16_t(u + 32) : u; }

Ordering orderOf(quint64 a, quint64 b)
{
    return a < b ? Ordering::Ascending : (a > b ? Ordering::Descending : Ordering::Same);
}

// Reads the digit run at `i`. Runs longer than 64 bits wrap, as they do on the platform.
quint64 readDigitRun(const QString& s, qsizetype& i)
{
    quint64 value = 0;
    while (i < s.size() && isAsciiDigit(s[i].unicode())) {
        value = value * 10 + quint64(s[i].unicode() - u'0');
        ++i;
    }
    return value;
}

bool isWhitespaceOrNewline(QChar c)
{
    const char16_t u = c.unicode();
    if ((u >= 0x09 && u <= 0x0D) || u == 0x20 || u == 0x85 || u == 0xA0 || u == 0x1680)
        return true;
    return (u >= 0x2000 && u <= 0x200B) || u == 0x2028 || u == 0x2029 || u == 0x202F || u == 0x205F
        || u == 0x3000;
}

} // namespace

Ordering compareNumeric(const QString& a, const QString& b, bool caseInsensitive)
{
    qsizetype i = 0;
    qsizetype j = 0;
    while (i < a.size() && j < b.size()) {
        char16_t ca = a[i].unicode();
        char16_t cb = b[j].unicode();
        if (isAsciiDigit(ca) && isAsciiDigit(cb)) {
            const Ordering o = orderOf(readDigitRun(a, i), readDigitRun(b, j));
            if (o != Ordering::Same)
                return o;
            continue;
        }
        if (caseInsensitive) {
            ca = foldAscii(ca);
            cb = foldAscii(cb);
        }
        if (ca != cb)
            return ca < cb ? Ordering::Ascending : Ordering::Descending;
        ++i;
        ++j;
    }
    const bool aLeft = i < a.size();
    const bool bLeft = j < b.size();
    if (aLeft == bLeft)
        return Ordering::Same;
    return aLeft ? Ordering::Descending : Ordering::Ascending;
}

QString trimWhitespaceAndNewlines(const QString& text)
{
    qsizetype begin = 0;
    qsizetype end = text.size();
    while (begin < end && isWhitespaceOrNewline(text[begin]))
        ++begin;
    while (end > begin && isWhitespaceOrNewline(text[end - 1]))
        --end;
    return text.mid(begin, end - begin);
}

bool hasPrefixCaseInsensitive(const QString& text, const QString& prefix)
{
    return !prefix.isEmpty() && text.startsWith(prefix, Qt::CaseInsensitive);
}

bool equalsCaseInsensitive(const QString& a, const QString& b)
{
    return QString::compare(a, b, Qt::CaseInsensitive) == 0;
}

bool likeMatch(const QString& text, const QString& pattern, bool caseInsensitive)
{
    // Greedy matching with one backtrack point (the last "*"): linear in practice and
    // never worse than text x pattern, so hostile patterns cannot blow up.
    const Qt::CaseSensitivity cs = caseInsensitive ? Qt::CaseInsensitive : Qt::CaseSensitive;
    auto same = [&](QChar t, QChar p) {
        return QStringView(&t, 1).compare(QStringView(&p, 1), cs) == 0;
    };
    qsizetype t = 0;
    qsizetype p = 0;
    qsizetype starP = -1;
    qsizetype starT = 0;
    while (t < text.size()) {
        if (p < pattern.size() && pattern[p] == u'*') {
            starP = p++;
            starT = t;
        } else if (p < pattern.size() && (pattern[p] == u'?' || same(text[t], pattern[p]))) {
            ++p;
            ++t;
        } else if (starP >= 0) {
            p = starP + 1;
            t = ++starT;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == u'*')
        ++p;
    return p == pattern.size();
}

} // namespace fnd
