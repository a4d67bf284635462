#pragma once
// Property-list values as JSON, for machine-readable output. The mapping, one way only:
//
//   string            -> string
//   integer           -> number (an unsigned integer above INT64_MAX: a floating-point number)
//   real              -> number; NaN and the infinities, which JSON cannot hold, -> null
//   boolean           -> true / false
//   date              -> string, ISO 8601 in UTC ("2024-05-01T09:30:00Z"; milliseconds
//                        "...00.250Z" only when the date has them)
//   data              -> string, standard base64 with padding
//   array, dictionary -> array, object (keys as they are)
//   keyed-archive UID -> number
//   null / invalid    -> null
//
// Any other QVariant (not a property-list value) is written as its string form. Pure; any
// thread.

#include <QJsonValue>
#include <QVariant>

namespace plist {

[[nodiscard]] QJsonValue toJsonValue(const QVariant& value);

} // namespace plist
