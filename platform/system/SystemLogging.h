#pragma once
// The logging category of the system layer (developer diagnostics through Qt's logging;
// the product's own log is VLLog in shared/, which this layer must not depend on).

#include <QLoggingCategory>

namespace sys {
Q_DECLARE_LOGGING_CATEGORY(lcSystem)
}
