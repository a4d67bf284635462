#pragma once
// An XML property-list writer for test fixtures only. Kept apart from the product's own
// writer so that a fault there cannot hide itself by also shaping the fixtures the product
// reads. Handles strings, integers, reals, booleans, dates (UTC), data, arrays and
// dictionaries; anything else is written as its string form. Pure; any thread.

#include <QByteArray>
#include <QVariant>

namespace vltest {

QByteArray fixturePlistXml(const QVariant& root);

} // namespace vltest
