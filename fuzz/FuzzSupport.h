#pragma once
// Checks shared by the property-list fuzz targets: whatever a reader accepts must describe
// as text the old-style reader reads again.

#include "platform/plist/PropertyList.h"

#include <QByteArray>
#include <cstdio>
#include <cstdlib>

namespace fuzzsupport {

inline QByteArray bytes(const uint8_t* data, size_t size)
{
    return QByteArray(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
}

// A value a reader produced: its description (what the list mode prints) must read back
// through the old-style reader. A leaf is described inside an array, since alone it prints
// bare; a collection as is (wrapping it would add a level past the depth cap).
inline void checkAccepted(const QVariant& value)
{
    const bool collection = value.typeId() == QMetaType::QVariantList || value.typeId() == QMetaType::QVariantMap;
    const QVariant described = collection ? value : QVariant(QVariantList{value});
    if (!plist::readOpenStep(plist::description(described).toUtf8())) {
        std::fprintf(stderr, "the description of an accepted value does not read back\n");
        std::abort();
    }
}

} // namespace fuzzsupport
