#include "platform/system/GraphicalSession.h"

#include <QtGlobal>

namespace sys {

bool hasGraphicalSession()
{
    return !qEnvironmentVariableIsEmpty("DISPLAY") || !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")
        || !qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM");
}

} // namespace sys
