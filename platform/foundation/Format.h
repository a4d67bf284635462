#pragma once
// Foundation-style format strings: "%@" for any value (its description), and the printf
// conversions the program uses: %i %d %li %ld %lli %lld %lu %llu %zu %u %x %o %s %f %0.2f
// %e %g (flags, width, precision and "*" as printf, always in the C locale, so "%0.2f" never
// prints a decimal comma) %c %C (a UTF-16 unit) %p and %%. Explicit positions ("%2$@") are
// accepted. Integer conversions read the width their length modifier names, as C does:
// "%i" of a 64-bit value prints its low 32 bits. Unknown conversions, and "%n", print as
// written and take no argument; a format ending inside a conversion keeps that text.
//
// Values travel as QVariant. What "%@" prints: a string as is, a number as its stringValue,
// an array or dictionary as its description text, data as "<hex ...>", a null QVariant as
// "(null)". "%s" takes a QByteArray (UTF-8 C string) or a QString. A conversion without
// a matching argument prints "(null)" for "%@" and "%s", 0 for numbers and nothing for
// "%c"/"%C": Foundation leaves that undefined; we choose a harmless, visible result.
// Widths and precisions are capped at 4096 so a hostile format cannot allocate without bound.
//
// Pure functions, callable from any thread.

#include <QString>
#include <QVariant>
#include <QList>
#include <type_traits>

namespace fnd {

// One argument of a format: any value Foundation would have passed.
class FormatArg {
public:
    FormatArg(const QVariant& v) : value_(v) {}
    FormatArg(const QString& s) : value_(s) {}
    FormatArg(const char* s) : value_(s ? QVariant(QByteArray(s)) : QVariant()) {}
    FormatArg(const QByteArray& b) : value_(b) {}
    FormatArg(QChar c) : value_(QVariant::fromValue(c)) {}
    FormatArg(bool b) : value_(b) {}
    FormatArg(char* s) : FormatArg(static_cast<const char*>(s)) {}
    template <typename T, std::enable_if_t<std::is_integral_v<T> && !std::is_same_v<T, bool>, int> = 0>
    FormatArg(T n) : value_(std::is_signed_v<T> ? QVariant(qlonglong(n)) : QVariant(qulonglong(n))) {}
    // Enumerations print as their numeric value.
    template <typename T, std::enable_if_t<std::is_enum_v<T>, int> = 0>
    FormatArg(T e) : FormatArg(static_cast<std::underlying_type_t<T>>(e)) {}
    // Any other pointer would silently become a bool: refuse it at compile time.
    template <typename T>
    FormatArg(T*) = delete;
    FormatArg(double d) : value_(d) {}
    FormatArg(float f) : value_(double(f)) {}
    const QVariant& value() const { return value_; }

private:
    QVariant value_;
};

// Formats `format` with `args` as Foundation's stringWithFormat: would.
QString formatWithArgs(const QString& format, const QList<FormatArg>& args);

template <typename... Args>
QString format(const QString& fmt, const Args&... args)
{
    return formatWithArgs(fmt, QList<FormatArg>{FormatArg(args)...});
}

// The text "%@" prints for a value (description of collections, stringValue of numbers).
QString describeForFormat(const QVariant& value);

} // namespace fnd
