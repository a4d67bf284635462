// String and property-list value to number conversions, and the text of a number.

#include "platform/foundation/CLocalePrintf.h"
#include "platform/foundation/Foundation.h"

#include <cmath>
#include <limits>

namespace fnd {

namespace {

// The scanner's notion of whitespace, broader than the trimming set: every control
// character and NUL counts, as do DEL through NBSP.
bool isScannerWhitespace(char16_t u)
{
    return u < 0x21 || (u >= 0x7F && u <= 0xA0) || (u >= 0x2000 && u <= 0x200B) || u == 0x3000;
}

qsizetype skipScannerWhitespace(const QString& text, qsizetype i)
{
    while (i < text.size() && isScannerWhitespace(text[i].unicode()))
        ++i;
    return i;
}

bool isDigit(char16_t u) { return u >= u'0' && u <= u'9'; }

template <typename T>
T scanInteger(const QString& text)
{
    qsizetype i = skipScannerWhitespace(text, 0);
    bool negative = false;
    if (i < text.size() && (text[i] == u'+' || text[i] == u'-')) {
        negative = text[i] == u'-';
        i = skipScannerWhitespace(text, i + 1);
    }
    // The magnitude limit: |min| is one more than max for two's complement types.
    const quint64 limit = negative ? quint64(std::numeric_limits<T>::max()) + 1 : quint64(std::numeric_limits<T>::max());
    quint64 value = 0;
    bool overflow = false;
    for (; i < text.size() && isDigit(text[i].unicode()); ++i) {
        const quint64 digit = text[i].unicode() - u'0';
        if (!overflow && value > (limit - digit) / 10)
            overflow = true;
        else if (!overflow)
            value = value * 10 + digit;
    }
    if (overflow)
        return negative ? std::numeric_limits<T>::min() : std::numeric_limits<T>::max();
    if (!negative)
        return T(value);
    return value == limit ? std::numeric_limits<T>::min() : T(-qint64(value));
}

bool isSignedIntegerType(int id)
{
    switch (id) {
    case QMetaType::Int: case QMetaType::Long: case QMetaType::LongLong: case QMetaType::Short:
    case QMetaType::Char: case QMetaType::SChar:
        return true;
    default:
        return false;
    }
}

bool isUnsignedIntegerType(int id)
{
    switch (id) {
    case QMetaType::UInt: case QMetaType::ULong: case QMetaType::ULongLong: case QMetaType::UShort:
    case QMetaType::UChar:
        return true;
    default:
        return false;
    }
}

bool isRealType(int id) { return id == QMetaType::Double || id == QMetaType::Float; }

// A real converted to an integer type: truncated toward zero, clamped at the type's limits
// (C leaves out-of-range conversions undefined; clamping is the harmless choice), NaN 0.
template <typename T>
T realToInteger(double d)
{
    if (std::isnan(d))
        return 0;
    if (d >= double(std::numeric_limits<T>::max()))
        return std::numeric_limits<T>::max();
    if (d <= double(std::numeric_limits<T>::min()))
        return std::numeric_limits<T>::min();
    return T(d);
}

} // namespace

int intValue(const QString& text) { return scanInteger<int>(text); }
qint64 integerValue(const QString& text) { return scanInteger<qint64>(text); }
qint64 longLongValue(const QString& text) { return scanInteger<qint64>(text); }

double doubleValue(const QString& text)
{
    qsizetype i = skipScannerWhitespace(text, 0);
    QByteArray run;
    for (; i < text.size(); ++i) {
        const char16_t u = text[i].unicode();
        if (!isDigit(u) && u != u'+' && u != u'-' && u != u'.' && u != u'e' && u != u'E')
            break;
        run.append(char(u));
    }
    // strtod converts the longest valid prefix of the run ("1e" reads as 1, "--1" as 0).
    return run.isEmpty() ? 0.0 : detail::cStrtod(run);
}

bool boolValue(const QString& text)
{
    qsizetype i = skipScannerWhitespace(text, 0);
    if (i >= text.size())
        return false;
    if (QStringView(u"YyTt").contains(text[i]))
        return true;
    if (text[i] == u'+' || text[i] == u'-')
        ++i;
    while (i < text.size() && text[i] == u'0')
        ++i;
    return i < text.size() && text[i] >= u'1' && text[i] <= u'9';
}

bool isNumber(const QVariant& value)
{
    const int id = value.metaType().id();
    return id == QMetaType::Bool || isSignedIntegerType(id) || isUnsignedIntegerType(id) || isRealType(id);
}

qint64 longLongValue(const QVariant& value)
{
    const int id = value.metaType().id();
    if (id == QMetaType::QString)
        return longLongValue(value.toString());
    if (id == QMetaType::Bool)
        return value.toBool() ? 1 : 0;
    if (isSignedIntegerType(id))
        return value.toLongLong();
    if (isUnsignedIntegerType(id))
        return qint64(value.toULongLong()); // two's complement reinterpretation, as C does
    if (isRealType(id))
        return realToInteger<qint64>(value.toDouble());
    return 0;
}

qint64 integerValue(const QVariant& value) { return longLongValue(value); }

int intValue(const QVariant& value)
{
    const int id = value.metaType().id();
    if (id == QMetaType::QString)
        return intValue(value.toString());
    if (isRealType(id))
        return realToInteger<int>(value.toDouble());
    // Integers outside 32 bits keep their low 32 bits, as the C conversion does.
    return int(qint32(quint32(quint64(longLongValue(value)))));
}

double doubleValue(const QVariant& value)
{
    const int id = value.metaType().id();
    if (id == QMetaType::QString)
        return doubleValue(value.toString());
    if (isRealType(id))
        return value.toDouble();
    if (isUnsignedIntegerType(id))
        return double(value.toULongLong());
    return double(longLongValue(value));
}

bool boolValue(const QVariant& value)
{
    const int id = value.metaType().id();
    if (id == QMetaType::QString)
        return boolValue(value.toString());
    // Any non-zero number is YES, including reals such as 0.5.
    if (isRealType(id))
        return value.toDouble() != 0.0;
    if (isUnsignedIntegerType(id))
        return value.toULongLong() != 0;
    return longLongValue(value) != 0;
}

QString numberString(double value) { return detail::cPrintf("%0.16g", value); }

QString stringValue(const QVariant& value)
{
    const int id = value.metaType().id();
    if (id == QMetaType::QString)
        return value.toString();
    if (id == QMetaType::Bool)
        return value.toBool() ? QStringLiteral("1") : QStringLiteral("0");
    if (isSignedIntegerType(id))
        return QString::number(value.toLongLong());
    if (isUnsignedIntegerType(id))
        return QString::number(value.toULongLong());
    if (id == QMetaType::Float)
        return detail::cPrintf("%0.7g", double(value.toFloat()));
    if (id == QMetaType::Double)
        return numberString(value.toDouble());
    return QString();
}

} // namespace fnd
