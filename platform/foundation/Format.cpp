#include "platform/foundation/Format.h"

#include "platform/foundation/CLocalePrintf.h"
#include "platform/foundation/Foundation.h"

#include <algorithm>
#include <optional>

namespace fnd {

namespace {

enum class Length { Default, Char, Short, Long, LongDouble };

// One parsed conversion: "%" [n$] flags [width|*] [.precision|.*] length conversion.
struct Conversion {
    QByteArray flags;
    std::optional<int> width;
    bool widthFromArgument = false;
    std::optional<int> precision;
    bool precisionFromArgument = false;
    Length length = Length::Default;
    int position = 0; // 1-based explicit argument index ("%2$@"); 0 = next in turn
    char type = 0;
};

bool isAsciiDigit(QChar c) { return c >= u'0' && c <= u'9'; }

// Reads a run of decimal digits at `i`, capped so a hostile width cannot overflow or
// allocate without bound.
std::optional<int> readNumber(const QString& f, qsizetype& i)
{
    if (i >= f.size() || !isAsciiDigit(f[i]))
        return std::nullopt;
    int n = 0;
    while (i < f.size() && isAsciiDigit(f[i])) {
        n = std::min(n * 10 + (f[i].unicode() - u'0'), 4096);
        ++i;
    }
    return n;
}

Length readLength(const QString& f, qsizetype& i)
{
    auto at = [&](qsizetype k) { return k < f.size() ? f[k].unicode() : char16_t(0); };
    const char16_t c = at(i);
    if (c == u'h') {
        const bool twice = at(i + 1) == u'h';
        i += twice ? 2 : 1;
        return twice ? Length::Char : Length::Short;
    }
    if (c == u'l') {
        i += (at(i + 1) == u'l') ? 2 : 1;
        return Length::Long;
    }
    if (c == u'q' || c == u'z' || c == u't' || c == u'j') {
        ++i;
        return Length::Long;
    }
    if (c == u'L') {
        ++i;
        return Length::LongDouble;
    }
    return Length::Default;
}

// Parses the conversion that starts after the "%" at `i`; on return `i` is past it.
// Returns std::nullopt when the text ends inside the conversion.
std::optional<Conversion> parseConversion(const QString& f, qsizetype& i)
{
    Conversion c;
    const qsizetype start = i;
    if (auto n = readNumber(f, i); n && i < f.size() && f[i] == u'$' && *n > 0) {
        c.position = *n;
        ++i;
    } else {
        i = start;
    }
    while (i < f.size() && QStringView(u"-+ #0'").contains(f[i]))
        c.flags.append(char(f[i++].unicode()));
    if (i < f.size() && f[i] == u'*') {
        c.widthFromArgument = true;
        ++i;
    } else {
        c.width = readNumber(f, i);
    }
    if (i < f.size() && f[i] == u'.') {
        ++i;
        if (i < f.size() && f[i] == u'*') {
            c.precisionFromArgument = true;
            ++i;
        } else {
            c.precision = readNumber(f, i).value_or(0);
        }
    }
    c.length = readLength(f, i);
    if (i >= f.size())
        return std::nullopt;
    const char16_t type = f[i++].unicode();
    c.type = type < 0x80 ? char(type) : '?';
    return c;
}

// Hands out arguments in turn, or by explicit position. Lives for one format call on the
// calling thread; it only reads the argument list it was given.
class ArgumentCursor {
public:
    explicit ArgumentCursor(const QList<FormatArg>& args) : args_(args) {}
    std::optional<QVariant> take(int position)
    {
        const qsizetype index = position > 0 ? position - 1 : next_++;
        if (index < 0 || index >= args_.size())
            return std::nullopt;
        return args_[index].value();
    }

private:
    const QList<FormatArg>& args_;
    qsizetype next_ = 0;
};

qint64 signedOf(const QVariant& v)
{
    // C reads the bits of an unsigned argument as they are.
    if (v.metaType().id() == QMetaType::ULongLong || v.metaType().id() == QMetaType::ULong
        || v.metaType().id() == QMetaType::UInt)
        return qint64(v.toULongLong());
    if (v.metaType().id() == QMetaType::QChar)
        return v.value<QChar>().unicode();
    return longLongValue(v);
}

quint64 unsignedOf(const QVariant& v)
{
    if (v.metaType().id() == QMetaType::ULongLong || v.metaType().id() == QMetaType::ULong)
        return v.toULongLong();
    return quint64(signedOf(v));
}

double doubleOf(const QVariant& v)
{
    if (v.metaType().id() == QMetaType::ULongLong || v.metaType().id() == QMetaType::ULong)
        return double(v.toULongLong());
    return doubleValue(v);
}

QByteArray printfPattern(const Conversion& c, const char* lengthText, char type)
{
    QByteArray pattern("%");
    pattern += c.flags;
    if (c.width)
        pattern += QByteArray::number(*c.width);
    if (c.precision)
        pattern += '.' + QByteArray::number(*c.precision);
    return pattern + lengthText + type;
}

QString pad(const QString& text, const Conversion& c)
{
    if (!c.width || text.size() >= *c.width)
        return text;
    const QString fill(*c.width - text.size(), u' ');
    return c.flags.contains('-') ? text + fill : fill + text;
}

QString formatSigned(const Conversion& c, const std::optional<QVariant>& arg)
{
    qint64 v = arg ? signedOf(*arg) : 0;
    // Without a length modifier C reads an int: keep only what that type holds.
    if (c.length == Length::Default)
        v = qint32(v);
    else if (c.length == Length::Short)
        v = qint16(v);
    else if (c.length == Length::Char)
        v = qint8(v);
    return detail::cPrintf(printfPattern(c, "ll", c.type), static_cast<long long>(v));
}

QString formatUnsigned(const Conversion& c, const std::optional<QVariant>& arg)
{
    quint64 v = arg ? unsignedOf(*arg) : 0;
    if (c.length == Length::Default)
        v = quint32(v);
    else if (c.length == Length::Short)
        v = quint16(v);
    else if (c.length == Length::Char)
        v = quint8(v);
    if (c.type == 'p')
        return pad(QStringLiteral("0x") + QString::number(v, 16), c);
    return detail::cPrintf(printfPattern(c, "ll", c.type), static_cast<unsigned long long>(v));
}

QString formatDouble(const Conversion& c, const std::optional<QVariant>& arg)
{
    return detail::cPrintf(printfPattern(c, "", c.type), arg ? doubleOf(*arg) : 0.0);
}

QString cStringText(const Conversion& c, const std::optional<QVariant>& arg)
{
    if (!arg || !arg->isValid())
        return QStringLiteral("(null)");
    QString text;
    if (arg->metaType().id() == QMetaType::QByteArray) {
        const QByteArray bytes = arg->toByteArray();
        // A C string ends at its first NUL.
        text = QString::fromUtf8(bytes.constData(), qstrnlen(bytes.constData(), size_t(bytes.size())));
    } else {
        text = describeForFormat(*arg);
    }
    if (c.precision && text.size() > *c.precision)
        text.truncate(*c.precision);
    return text;
}

QString characterText(const Conversion& c, const std::optional<QVariant>& arg)
{
    // A missing character prints nothing rather than a NUL inside the text.
    if (!arg)
        return QString();
    if (arg->metaType().id() == QMetaType::QString)
        return arg->toString().left(1);
    const qint64 code = signedOf(*arg);
    return QString(QChar(c.type == 'c' ? char16_t(quint8(code)) : char16_t(quint16(code))));
}

QString formatOne(const Conversion& c, const std::optional<QVariant>& arg)
{
    switch (c.type) {
    case 'd': case 'i':
        return formatSigned(c, arg);
    case 'u': case 'o': case 'x': case 'X': case 'p':
        return formatUnsigned(c, arg);
    case 'f': case 'F': case 'e': case 'E': case 'g': case 'G': case 'a': case 'A':
        return formatDouble(c, arg);
    case '@':
        return pad(arg ? describeForFormat(*arg) : QStringLiteral("(null)"), c);
    case 's': case 'S':
        return pad(cStringText(c, arg), c);
    case 'c': case 'C':
        return pad(characterText(c, arg), c);
    default:
        return QString();
    }
}

bool takesArgument(char type) { return QByteArrayView("diuoxXpfFeEgGaA@sScC").contains(type); }

} // namespace

QString formatWithArgs(const QString& format, const QList<FormatArg>& args)
{
    QString out;
    out.reserve(format.size() + 16 * args.size());
    ArgumentCursor cursor(args);
    qsizetype i = 0;
    while (i < format.size()) {
        const qsizetype percent = format.indexOf(u'%', i);
        if (percent < 0) {
            out += QStringView(format).mid(i);
            break;
        }
        out += QStringView(format).mid(i, percent - i);
        i = percent + 1;
        if (i < format.size() && format[i] == u'%') {
            out += u'%';
            ++i;
            continue;
        }
        std::optional<Conversion> c = parseConversion(format, i);
        if (!c) {
            // A format that ends inside a conversion keeps its text.
            out += QStringView(format).mid(percent);
            break;
        }
        if (c->widthFromArgument) {
            const auto w = cursor.take(0);
            const qint64 width = w ? signedOf(*w) : 0;
            if (width < 0)
                c->flags.append('-');
            c->width = int(std::min<qint64>(qAbs(width), 4096));
        }
        if (c->precisionFromArgument) {
            const auto p = cursor.take(0);
            const qint64 precision = p ? signedOf(*p) : -1;
            c->precision = precision < 0 ? std::nullopt : std::optional<int>(std::min<qint64>(precision, 4096));
        }
        if (!takesArgument(c->type)) {
            // Unknown conversions (and "%n", which must never write) print as written.
            out += QStringView(format).mid(percent, i - percent);
            continue;
        }
        out += formatOne(*c, cursor.take(c->position));
    }
    return out;
}

} // namespace fnd
