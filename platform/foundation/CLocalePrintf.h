#pragma once
// printf formatting and strtod in the C locale, whatever the process locale is (QCoreApplication sets
// the user's locale at start-up, which would turn "%0.2f" into "1,50" in some languages).
// Internal to the foundation library. Callable from any thread: the locale switch is
// per-thread.

#include <QByteArray>
#include <QString>

namespace fnd::detail {

// `pattern` is a complete printf conversion such as "%08.3f" or "%lld" whose argument type
// matches the overload.
[[nodiscard]] QString cPrintf(const QByteArray& pattern, long long value);
[[nodiscard]] QString cPrintf(const QByteArray& pattern, unsigned long long value);
[[nodiscard]] QString cPrintf(const QByteArray& pattern, double value);

// C-locale strtod of the whole text (the decimal point is always ".").
[[nodiscard]] double cStrtod(const QByteArray& text);

} // namespace fnd::detail
