#include "platform/plist/XmlLeaves.h"

#include "platform/plist/PlistInternal.h"

#include <QDateTime>
#include <charconv>
#include <limits>

namespace plist::detail {
namespace {

// The broad white-space set the integer scanner skips before a number.
bool isLeadingSpace(QChar c)
{
    const char16_t u = c.unicode();
    return u < 0x21 || (u >= 0x7F && u <= 0xA0) || u == 0x1680 || (u >= 0x2000 && u <= 0x200B) || u == 0x2028
        || u == 0x2029 || u == 0x202F || u == 0x205F || u == 0x3000 || u == 0xFEFF;
}

int hexValue(QChar c)
{
    const char16_t u = c.unicode();
    if (u >= '0' && u <= '9')
        return u - '0';
    if (u >= 'a' && u <= 'f')
        return u - 'a' + 10;
    if (u >= 'A' && u <= 'F')
        return u - 'A' + 10;
    return -1;
}

std::optional<quint64> parseMagnitude(const QString& text, qsizetype at, QString* error)
{
    int base = 10;
    if (at + 1 < text.size() && text[at] == u'0' && (text[at + 1] == u'x' || text[at + 1] == u'X')) {
        base = 16;
        at += 2;
    }
    if (at >= text.size()) {
        setError(error, QStringLiteral("integer \"%1\" has no digits").arg(text));
        return std::nullopt;
    }
    quint64 value = 0;
    for (; at < text.size(); ++at) {
        const int digit = hexValue(text[at]);
        if (digit < 0 || digit >= base) {
            setError(error, QStringLiteral("invalid character in integer \"%1\"").arg(text));
            return std::nullopt;
        }
        if (value > (std::numeric_limits<quint64>::max() - quint64(digit)) / quint64(base)) {
            setError(error, QStringLiteral("integer \"%1\" is out of range").arg(text));
            return std::nullopt;
        }
        value = value * quint64(base) + quint64(digit);
    }
    return value;
}

bool readDigits(const QString& text, qsizetype& at, int count, int& value)
{
    value = 0;
    for (int i = 0; i < count; ++i, ++at) {
        if (at >= text.size() || !text[at].isDigit() || text[at].unicode() > '9')
            return false;
        value = value * 10 + (text[at].unicode() - '0');
    }
    return true;
}

bool expectChar(const QString& text, qsizetype& at, char16_t c)
{
    if (at >= text.size() || text[at] != c)
        return false;
    ++at;
    return true;
}

int base64Value(char16_t c)
{
    if (c >= 'A' && c <= 'Z')
        return c - 'A';
    if (c >= 'a' && c <= 'z')
        return c - 'a' + 26;
    if (c >= '0' && c <= '9')
        return c - '0' + 52;
    if (c == '+')
        return 62;
    if (c == '/')
        return 63;
    return -1;
}

} // namespace

std::optional<QVariant> parseXmlInteger(const QString& text, QString* error)
{
    qsizetype at = 0;
    while (at < text.size() && isLeadingSpace(text[at]))
        ++at;
    bool negative = false;
    if (at < text.size() && (text[at] == u'-' || text[at] == u'+')) {
        negative = text[at] == u'-';
        ++at;
        while (at < text.size() && isLeadingSpace(text[at]))
            ++at;
    }
    const auto magnitude = parseMagnitude(text, at, error);
    if (!magnitude)
        return std::nullopt;
    constexpr quint64 kInt64Max = quint64(std::numeric_limits<qint64>::max());
    if (negative) {
        if (*magnitude > kInt64Max + 1) {
            setError(error, QStringLiteral("integer \"%1\" is out of range").arg(text));
            return std::nullopt;
        }
        // Two's complement negation of the magnitude, valid down to INT64_MIN.
        return QVariant(qlonglong(0 - *magnitude));
    }
    if (*magnitude > kInt64Max)
        return QVariant(qulonglong(*magnitude));
    return QVariant(qlonglong(*magnitude));
}

std::optional<double> parseXmlReal(const QString& text, QString* error)
{
    const QString lower = text.toLower();
    if (lower == u"nan")
        return std::numeric_limits<double>::quiet_NaN();
    if (lower == u"inf" || lower == u"+inf" || lower == u"infinity" || lower == u"+infinity")
        return std::numeric_limits<double>::infinity();
    if (lower == u"-inf" || lower == u"-infinity")
        return -std::numeric_limits<double>::infinity();
    qsizetype at = 0;
    while (at < text.size() && isLeadingSpace(text[at]))
        ++at;
    QByteArray number;
    for (qsizetype i = at; i < text.size(); ++i) {
        const char16_t c = text[i].unicode();
        if (!((c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.' || c == 'e' || c == 'E')) {
            setError(error, QStringLiteral("invalid character in real \"%1\"").arg(text));
            return std::nullopt;
        }
        number.append(char(c));
    }
    // from_chars takes no leading '+', strtod does.
    if (number.startsWith('+') && number.size() > 1 && number[1] != '-' && number[1] != '+')
        number.remove(0, 1);
    double value = 0;
    const auto result = std::from_chars(number.constData(), number.constData() + number.size(), value);
    if (number.isEmpty() || result.ec != std::errc() || result.ptr != number.constData() + number.size()) {
        setError(error, QStringLiteral("invalid real \"%1\"").arg(text));
        return std::nullopt;
    }
    return value;
}

std::optional<QDateTime> parseXmlDate(const QString& text, QString* error)
{
    qsizetype at = 0;
    const bool negative = expectChar(text, at, u'-');
    const qsizetype yearStart = at;
    qint64 year = 0;
    // Six digits of year are far past any real date and keep the arithmetic small.
    while (at < text.size() && text[at].unicode() >= '0' && text[at].unicode() <= '9' && at - yearStart < 6)
        year = year * 10 + (text[at++].unicode() - '0');
    int month = 0, day = 0, hour = 0, minute = 0, second = 0;
    const bool shaped = at > yearStart && expectChar(text, at, u'-') && readDigits(text, at, 2, month)
        && expectChar(text, at, u'-') && readDigits(text, at, 2, day) && expectChar(text, at, u'T')
        && readDigits(text, at, 2, hour) && expectChar(text, at, u':') && readDigits(text, at, 2, minute)
        && expectChar(text, at, u':') && readDigits(text, at, 2, second) && expectChar(text, at, u'Z')
        && at == text.size();
    const QDate date(int(negative ? -year : year), month, day);
    const QTime time(hour, minute, second);
    if (!shaped || !date.isValid() || !time.isValid()) {
        setError(error, QStringLiteral("invalid date \"%1\"").arg(text));
        return std::nullopt;
    }
    return QDateTime(date, time, Qt::UTC);
}

std::optional<QByteArray> parseXmlData(const QString& text, QString* error)
{
    QByteArray out;
    out.reserve(text.size() * 3 / 4);
    quint32 accumulator = 0;
    int filled = 0;
    int padding = 0;
    for (const QChar ch : text) {
        const char16_t c = ch.unicode();
        if (c >= 0x80) {
            setError(error, QStringLiteral("non-ASCII character in <data>"));
            return std::nullopt;
        }
        int value = base64Value(c);
        if (c == '=') {
            value = 0;
            ++padding;
        }
        if (value < 0)
            continue; // white space and other junk are skipped, as the platform does
        accumulator = (accumulator << 6) | quint32(value);
        if (++filled == 4) {
            const char bytes[3] = {char(accumulator >> 16), char(accumulator >> 8), char(accumulator)};
            out.append(bytes, 3 - std::min(padding, 3));
            accumulator = 0;
            filled = 0;
            padding = 0;
        }
    }
    return out;
}

} // namespace plist::detail
