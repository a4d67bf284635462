// Unfinished: these actions wait for the support library's troubleshooting class. Until then
// each only says in the log that it is not available in this build.

#include "AppController.h"

#include "shared/VLLog.h"

namespace {
void unavailable(const char* action)
{
    VLLog::appendLog(QStringLiteral("%@ is not available in this build yet."), QString::fromLatin1(action));
}
} // namespace

void AppController::viewLog() { unavailable("viewLog"); }
void AppController::viewHelperLog() { unavailable("viewHelperLog"); }
void AppController::gatherLogs() { unavailable("gatherLogs"); }
