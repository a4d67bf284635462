#pragma once
// VLOSDetect: the running OS version as numbers and text, and comparisons with a required
// version. The version is ProductVersion of the system's SystemVersion.plist
// (sys::productVersion()); 0.0.0 when it cannot be told. Static and stateless; any thread.

#include <QString>
#include <QtGlobal>

class VLOSDetect {
public:
    struct Version {
        qint64 major = 0;
        qint64 minor = 0;
        qint64 patch = 0;
        bool operator==(const Version&) const = default;
    };

    VLOSDetect() = delete;

    static Version version();
    // Parses "M", "M.m" or "M.m.p"; missing parts are 0, anything unreadable makes all 0.
    static Version parseVersion(const QString& text);

    static QString osVersionString(); // "%li.%li.%li"
    static QString osxVersion();      // same as osVersionString()

    static bool isOSVersionAtLeast(qint64 major, qint64 minor, qint64 bugfix);
    // The comparison itself, for a given running version.
    static bool isVersionAtLeast(const Version& running, qint64 major, qint64 minor, qint64 bugfix);

    static bool isLeopardOrHigher();
    static bool isSnowLeopardOrHigher();
    static bool isLionOrHigher();
    static bool isMountainLionOrHigher();
    static bool isMavericksOrHigher();
    static bool isYosemiteOrHigher();
    static bool isElCapitanOrHigher();
    static bool isSierraOrHigher();
};
