#pragma once
// Foundation-style string, number and path helpers.
//
// These reproduce the exact behaviour callers rely on from the platform's string and number
// classes (scanner rules, numeric comparison, path and URL components, the whitespace set),
// quirks included: "1.01" and "1.1" compare the same, "11.0" is before "11.0.0", " 1 " reads
// as YES, "0x1F" reads as 0. Do not "fix" them here; callers depend on them.
//
// Every function is pure and may be called from any thread.

#include <QChar>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <optional>

namespace fnd {

// ---- Numeric conversions of a string (the platform's scanner rules) ----
//
// Leading whitespace in the scanner's broad sense is skipped (every unit below U+0021,
// U+007F-U+00A0, U+2000-U+200B, U+3000), then an optional sign (whitespace allowed after
// it), then decimal digits up to the first non-digit. No digits: 0. Overflow clamps to the
// type's limits.
[[nodiscard]] int intValue(const QString& text);
[[nodiscard]] qint64 integerValue(const QString& text); // 64-bit, like longLongValue
[[nodiscard]] qint64 longLongValue(const QString& text);
// The longest run of "0-9 + - . e E" after the whitespace, read by C-locale strtod.
// Nothing convertible: 0.0. "inf"/"nan" read as 0; "1e999" as +infinity.
[[nodiscard]] double doubleValue(const QString& text);
// After the same leading whitespace: YES on Y/y/T/t, or (after one optional sign and any
// zeros) a digit 1-9; everything after that is ignored (" 1 ", "yes", "007" are YES).
[[nodiscard]] bool boolValue(const QString& text);

// ---- Numeric conversions of a property-list value ----
//
// A string follows the string rules above; a number converts as C would (reals truncate
// toward zero; reals beyond the target range clamp); a boolean is 0/1; anything else
// (absent, data, date, collection) is 0 / NO.
[[nodiscard]] int intValue(const QVariant& value);
[[nodiscard]] qint64 integerValue(const QVariant& value);
[[nodiscard]] qint64 longLongValue(const QVariant& value);
[[nodiscard]] double doubleValue(const QVariant& value);
[[nodiscard]] bool boolValue(const QVariant& value);

// True for a value stored as a number or boolean (what NSNumber would hold).
[[nodiscard]] bool isNumber(const QVariant& value);

// The stringValue of a number: integers in decimal, doubles as "%0.16g", floats as "%0.7g",
// booleans "1"/"0". A string is returned as is; anything else gives an empty string.
[[nodiscard]] QString stringValue(const QVariant& value);

// C-locale "%0.16g" of a double (what a real number prints as).
[[nodiscard]] QString numberString(double value);

// ---- Comparison ----

enum class Ordering { Ascending = -1, Same = 0, Descending = 1 };

// Numeric search comparison: runs of ASCII digits on both sides compare by value (leading
// zeros ignored; equal values continue after both runs), anything else by UTF-16 unit; a
// string that runs out first is smaller. With caseInsensitive, ASCII letters compare as
// lower case. Not a version comparator: "11.0" < "11.0.0", "1.01" == "1.1".
[[nodiscard]] Ordering compareNumeric(const QString& a, const QString& b, bool caseInsensitive = false);

// ---- Whitespace and trimming ----

// Removes members of the whitespace-and-newline set from both ends (U+0009-U+000D, U+0020,
// U+0085, U+00A0, U+1680, U+2000-U+200B, U+2028, U+2029, U+202F, U+205F, U+3000; U+FEFF is
// not a member); interior characters are kept.
[[nodiscard]] QString trimWhitespaceAndNewlines(const QString& text);

// ---- Plain string tests (no normalisation) ----
//
// An empty prefix never matches: the platform's search finds nothing for an empty string.
[[nodiscard]] bool hasPrefixCaseInsensitive(const QString& text, const QString& prefix);
[[nodiscard]] bool equalsCaseInsensitive(const QString& a, const QString& b);

// LIKE matching: the whole text must match; "*" is any run (possibly empty), "?" exactly one
// character (UTF-16 unit), everything else literal (a backslash is an ordinary character).
[[nodiscard]] bool likeMatch(const QString& text, const QString& pattern, bool caseInsensitive = false);

// ---- Path helpers (strings; only "/" separates; runs of "/" count as one) ----

[[nodiscard]] QString lastPathComponent(const QString& path);
// After the last "." of the last component unless that dot is its first or last character;
// a space, "/" or a bidi control met before any dot means no extension ("v1.2 final"). None: "".
[[nodiscard]] QString pathExtension(const QString& path);
[[nodiscard]] QString stringByDeletingPathExtension(const QString& path);
[[nodiscard]] QString stringByDeletingLastPathComponent(const QString& path);
// Joins with one "/" and normalises the result: doubled slashes collapse, a trailing "/"
// is dropped (never use it on URL strings). Appending "" returns the normalised receiver.
[[nodiscard]] QString stringByAppendingPathComponent(const QString& path, const QString& component);
// "." plus the extension appended to the path (a trailing "/" dropped first); an empty
// extension returns the normalised path unchanged.
[[nodiscard]] QString stringByAppendingPathExtension(const QString& path, const QString& extension);
// "/tmp/scratch/" -> ["/", "tmp", "scratch", "/"]; "" -> [].
[[nodiscard]] QStringList pathComponents(const QString& path);

// ---- URL strings ----
//
// The strict legality check: printable ASCII 0x21-0x7E only, none of " < > \ ^ ` { | },
// at most one "#", every "%" followed by two hex digits. A string without a scheme is a
// valid relative URL. The empty string is invalid (no address to load).
[[nodiscard]] bool isValidURLString(const QString& url);
// The URL's path as a file path (scheme, host, parameters, query and fragment never count):
// the still-encoded path percent-decoded as UTF-8, "%2F" included, with one trailing "/"
// dropped unless the path is "/" itself. nullopt when the string fails the strict check
// above (the platform makes no URL of it) or when the decoded bytes are not UTF-8. "file://localhost/a%20b/" gives "/a b".
[[nodiscard]] std::optional<QString> urlPath(const QString& url);

} // namespace fnd
