#pragma once
// Checks shared by the property-list fuzz targets: whatever a reader accepts must also be
// writable and readable again, and must describe without trouble.

#include "platform/plist/PropertyList.h"

#include <QByteArray>
#include <cstdio>
#include <cstdlib>

namespace fuzzsupport {

inline QByteArray bytes(const uint8_t* data, size_t size)
{
    return QByteArray(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
}

// A value a reader produced: the binary writer and reader must take it back.
inline void checkAccepted(const QVariant& value)
{
    (void)plist::description(value);
    const QByteArray binary = plist::writeBinary(value);
    if (binary.isEmpty() || !plist::readBinary(binary)) {
        std::fprintf(stderr, "accepted value does not survive a binary round trip\n");
        std::abort();
    }
}

} // namespace fuzzsupport
