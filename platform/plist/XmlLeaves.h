#pragma once
// Parsers for the text of XML property-list leaves (<integer>, <real>, <date>, <data>) with
// the acceptance rules of the platform's own reader. Pure functions, any thread.

#include <QByteArray>
#include <QString>
#include <QVariant>
#include <optional>

namespace plist::detail {

// Integer: leading white space, a sign, more white space, decimal or 0x hex digits, nothing
// after. Range -2^63 ... 2^64-1; qulonglong only above INT64_MAX.
std::optional<QVariant> parseXmlInteger(const QString& text, QString* error);
// Real: nan/inf words (any case) or a decimal number consuming the whole text.
std::optional<double> parseXmlReal(const QString& text, QString* error);
// Date: exactly [-]Y...Y-MM-DDTHH:MM:SSZ.
std::optional<QDateTime> parseXmlDate(const QString& text, QString* error);
// Data: base64, ASCII outside the alphabet skipped, any non-ASCII character an error.
std::optional<QByteArray> parseXmlData(const QString& text, QString* error);

} // namespace plist::detail
