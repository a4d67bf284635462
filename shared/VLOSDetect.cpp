// The running OS version, read from the system's version file on every call (cheap, and
// tests change the system root between cases).

#include "shared/VLOSDetect.h"

#include "platform/system/SystemEnvironment.h"

#include <QStringList>

VLOSDetect::Version VLOSDetect::parseVersion(const QString& text)
{
    const QStringList parts = text.trimmed().split(QLatin1Char('.'));
    if (parts.isEmpty() || parts.size() > 3)
        return {};
    qint64 numbers[3] = {0, 0, 0};
    for (qsizetype i = 0; i < parts.size(); ++i) {
        bool ok = false;
        numbers[i] = parts.at(i).toLongLong(&ok);
        if (!ok || numbers[i] < 0)
            return {};
    }
    return {numbers[0], numbers[1], numbers[2]};
}

VLOSDetect::Version VLOSDetect::version()
{
    return parseVersion(sys::productVersion());
}

QString VLOSDetect::osVersionString()
{
    const Version v = version();
    return QStringLiteral("%1.%2.%3").arg(v.major).arg(v.minor).arg(v.patch);
}

QString VLOSDetect::osxVersion()
{
    return osVersionString();
}

bool VLOSDetect::isVersionAtLeast(const Version& running, qint64 major, qint64 minor, qint64 bugfix)
{
    if (running.major < major)
        return false;
    if (running.major == major && running.minor < minor)
        return false;
    if (running.major == major && running.minor == minor)
        return running.patch >= bugfix;
    return true;
}

bool VLOSDetect::isOSVersionAtLeast(qint64 major, qint64 minor, qint64 bugfix)
{
    return isVersionAtLeast(version(), major, minor, bugfix);
}

bool VLOSDetect::isLeopardOrHigher() { return isOSVersionAtLeast(10, 5, 0); }
bool VLOSDetect::isSnowLeopardOrHigher() { return isOSVersionAtLeast(10, 6, 0); }
bool VLOSDetect::isLionOrHigher() { return isOSVersionAtLeast(10, 7, 0); }
bool VLOSDetect::isMountainLionOrHigher() { return isOSVersionAtLeast(10, 8, 0); }
bool VLOSDetect::isMavericksOrHigher() { return isOSVersionAtLeast(10, 9, 0); }
bool VLOSDetect::isYosemiteOrHigher() { return isOSVersionAtLeast(10, 10, 0); }
bool VLOSDetect::isElCapitanOrHigher() { return isOSVersionAtLeast(10, 11, 0); }
bool VLOSDetect::isSierraOrHigher() { return isOSVersionAtLeast(10, 12, 0); }
