#pragma once
// Foundation-style format strings: "%@" for any value (its description), and the printf
// conversions the program uses: %i %d %li %ld %lli %lld %lu %llu %zu %u %s %f %0.2f (flags,
// width and precision as printf) %C (a UTF-16 unit) and %%.
//
// Values travel as QVariant. What "%@" prints: a string as is, a number as its stringValue,
// an array or dictionary as its description text, data as "<hex ...>", a null QVariant as
// "(null)". "%s" takes a QByteArray (UTF-8 C string) or a QString. A conversion without
// a matching argument prints "(null)" for "%@" and "%s" and 0 for numbers: Foundation
// leaves that undefined; we choose a harmless, visible result.
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
    template <typename T, std::enable_if_t<std::is_integral_v<T> && !std::is_same_v<T, bool>, int> = 0>
    FormatArg(T n) : value_(std::is_signed_v<T> ? QVariant(qlonglong(n)) : QVariant(qulonglong(n))) {}
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
