#include "platform/system/SystemLogging.h"

namespace sys {
Q_LOGGING_CATEGORY(lcSystem, "velmora.system")
}
