#pragma once
// Brings an XML property list to UTF-8 before scanning: byte-order marks, UTF-16/32 without
// a mark guessed from zero bytes, else the encoding named in the <?xml declaration.
// Pure function, any thread.

#include <QByteArray>
#include <QString>
#include <optional>

namespace plist::detail {

std::optional<QByteArray> xmlToUtf8(const QByteArray& bytes, QString* error);

} // namespace plist::detail
