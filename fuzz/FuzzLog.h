#pragma once
// For the targets whose code logs: a private home whose shared preferences switch the log
// off, so that nothing of a run reaches the real log folder and the disk never sets the pace.
// Called once, from LLVMFuzzerInitialize.

#include "shared/VLLog.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

namespace fuzzsupport {

inline void silenceLog(const QString& logName)
{
    static QTemporaryDir home;
    qputenv("HOME", home.path().toLocal8Bit());
    qputenv("VELMORA_SYSROOT", home.filePath(QStringLiteral("sysroot")).toLocal8Bit());
    QDir().mkpath(home.filePath(QStringLiteral("Library/Preferences")));
    QFile prefs(home.filePath(QStringLiteral("Library/Preferences/com.velmora.global.plist")));
    if (prefs.open(QIODevice::WriteOnly))
        prefs.write("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
                    "<key>disable-logging</key><string>1</string></dict></plist>\n");
    prefs.close();
    VLLog::createNewLog(logName, true);
}

} // namespace fuzzsupport
