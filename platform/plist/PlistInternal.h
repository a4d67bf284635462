#pragma once
// Helpers shared by the property-list codecs of this folder (not part of the public API).
// Pure functions, callable from any thread.

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QVariant>
#include <optional>

namespace plist::detail {

// Seconds between the Unix epoch and the property-list reference date 2001-01-01T00:00:00Z.
inline constexpr double kReferenceDateOffset = 978307200.0;

// Upper bound on objects a reader materialises or references it follows in one call; keeps
// a crafted file from making a reader do unbounded work.
inline constexpr qint64 kMaxWork = 16 * 1024 * 1024;

// Writes `message` to `error` when the caller asked for it.
inline void setError(QString* error, const QString& message)
{
    if (error)
        *error = message;
}

// A date from seconds since the reference date; nullopt when not finite or beyond the
// range of dates we represent (about +-100000 years). Milliseconds are kept.
std::optional<QDateTime> dateFromReferenceSeconds(double seconds);
double referenceSecondsFromDate(const QDateTime& date);

// "%.*g" in the C locale, whatever the process locale is.
QByteArray formatDouble(double value, int precision);

// Value kinds the writers and the description know about.
enum class Kind { String, Integer, Unsigned, Real, Boolean, Date, Data, Array, Dictionary, Uid, Null, Unsupported };
Kind kindOf(const QVariant& value);

// The list form of an array value (QVariantList or QStringList).
QVariantList arrayOf(const QVariant& value);

} // namespace plist::detail
