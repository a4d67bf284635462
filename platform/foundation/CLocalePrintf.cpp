#include "platform/foundation/CLocalePrintf.h"

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <locale.h>
#if defined(__APPLE__)
#include <xlocale.h>
#endif

namespace fnd::detail {

namespace {

locale_t cLocale()
{
    // Created once and never freed: it lives as long as the process.
    static const locale_t locale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
    return locale;
}

// Switches the calling thread to the C locale for the lifetime of the object.
class ScopedCLocale {
public:
    ScopedCLocale() : previous_(cLocale() ? uselocale(cLocale()) : static_cast<locale_t>(nullptr)) {}
    ~ScopedCLocale()
    {
        if (previous_)
            uselocale(previous_);
    }
    ScopedCLocale(const ScopedCLocale&) = delete;
    ScopedCLocale& operator=(const ScopedCLocale&) = delete;

private:
    locale_t previous_;
};

template <typename T>
QString formatValue(const QByteArray& pattern, T value)
{
    ScopedCLocale scope;
    char small[128];
    const int needed = std::snprintf(small, sizeof small, pattern.constData(), value);
    if (needed < 0)
        return QString();
    if (needed < int(sizeof small))
        return QString::fromLatin1(small, needed);
    // Large widths or precisions: format again into a buffer of the exact size.
    QByteArray big(needed + 1, '\0');
    std::snprintf(big.data(), big.size(), pattern.constData(), value);
    return QString::fromLatin1(big.constData(), needed);
}

} // namespace

QString cPrintf(const QByteArray& pattern, long long value) { return formatValue(pattern, value); }
QString cPrintf(const QByteArray& pattern, unsigned long long value) { return formatValue(pattern, value); }
QString cPrintf(const QByteArray& pattern, double value) { return formatValue(pattern, value); }

double cStrtod(const QByteArray& text)
{
    ScopedCLocale scope;
    return std::strtod(text.constData(), nullptr);
}

} // namespace fnd::detail
