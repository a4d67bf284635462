#pragma once
// The system log (NSLog): "<date> <process>[<pid>] <text>" on standard error, and the text
// to syslog with LOG_USER | LOG_NOTICE. One line per call, never interleaved.
// Any thread.

#include "platform/foundation/Format.h"

#include <QString>

namespace sys {

void nsLogText(const QString& text);

template <typename... Args>
void nsLog(const QString& format, const Args&... args)
{
    nsLogText(fnd::format(format, args...));
}

} // namespace sys
