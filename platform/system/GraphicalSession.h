#pragma once
// Whether this process can open windows: a desktop session to show them in, or a Qt platform
// chosen explicitly (QT_QPA_PLATFORM, such as "offscreen"). Asked before a windowed
// application object is made, since making one without a session ends the process.
// Stateless; any thread.

namespace sys {

bool hasGraphicalSession();

} // namespace sys
