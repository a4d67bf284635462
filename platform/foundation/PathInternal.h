#pragma once
// Shared by the path and URL helpers of the foundation library; not for other callers.

#include <QString>

namespace fnd::detail {

// Index of the dot that starts the extension of a single component, or -1. Scanning back
// from the end, the last "." counts unless it is the first or the last character; a space,
// "/" or bidi control met first means there is no extension ("notes v2", "v1.2 final").
[[nodiscard]] qsizetype extensionDotIndex(const QString& component);

} // namespace fnd::detail
