// Mode "checkpath": check one vendor application (normally started by that application's
// "Check for Updates" link) and, when an update exists, hand its record to the windowed
// application through the user default "updateGroupDict".
//
// The three-day throttle is global: "lastUpdateCheck" is written straight into the
// updater's own preferences file, so any later -checkpath run within 259200 seconds, for
// whatever application, exits at once.

#include "lifecycle/RunModes.h"

#include "AppController.h"
#include "UpdateRecord.h"
#include "lifecycle/CheckApplication.h"
#include "lifecycle/PreferenceKeys.h"
#include "platform/foundation/Foundation.h"
#include "platform/plist/PropertyList.h"
#include "platform/system/Bundle.h"
#include "platform/system/UserDefaults.h"
#include "shared/VLLocalPaths.h"
#include "shared/VLLog.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>

namespace runmodes {

namespace {

constexpr qint64 kThrottleSeconds = 259200;

bool checkedRecently()
{
    const std::optional<QDateTime> last = sys::UserDefaults::standard().dateForKey(prefs::kLastUpdateCheck);
    // timeIntervalSinceNow > -259200: less than three days ago (or in the future).
    return last && QDateTime::currentDateTimeUtc().secsTo(*last) > -kThrottleSeconds;
}

void recordCheckInPreferencesFile()
{
    const QString path = fnd::stringByAppendingPathComponent(VLLocalPaths::prefsDirectory(true), prefs::kOwnPreferencesFileName);
    QVariantMap preferences = plist::readDictionaryFile(path).value_or(QVariantMap{});
    preferences.insert(prefs::kLastUpdateCheck, QDateTime::currentDateTimeUtc());
    QString error;
    if (!QDir().mkpath(QFileInfo(path).path()) || !plist::writeXmlFileAtomically(preferences, path, &error)) {
        VLLog::appendLog(QStringLiteral("Unable to record the check in %@: %@"), path, error);
        return;
    }
    // The standard defaults object caches the file; make it read the new value.
    (void)sys::UserDefaults::standard().synchronize();
}

bool selfUpdateMayBeOffered(const QString& checkPath)
{
    const QString ownPath = sys::Bundle::mainBundle().bundlePath();
    return !ownPath.startsWith(checkPath) && !ownPath.startsWith(VLLocalPaths::tempDirectory());
}

} // namespace

ModeOutcome runCheckpath(const QString& checkPath)
{
    const std::optional<sys::Bundle> bundle = sys::Bundle::bundleWithPath(checkPath);
    if (!bundle)
        return 0;
    if (!bundle->bundleIdentifier().value_or(QString()).startsWith(kVendorPrefix))
        return 0;
    if (checkedRecently())
        return 0;
    recordCheckInPreferencesFile();

    std::unique_ptr<AppController> controller = AppController::init();
    const bool selfAllowed = selfUpdateMayBeOffered(checkPath);
    const std::optional<UpdateRecord> selfRecord = controller->checkForUpdatesToSelf();
    if (selfAllowed && selfRecord && !fnd::boolValue(selfRecord->value(record::kSkipped))) {
        sys::UserDefaults::standard().setObject(*selfRecord, prefs::kUpdateGroupDict);
        (void)sys::UserDefaults::standard().synchronize();
        controller.reset();
        return std::nullopt;
    }
    if (!bundle->hasInfoDictionary())
        return 1;

    const std::optional<UpdateRecord> found = checkApplication(*controller, checkPath, *bundle);
    controller.reset();
    if (!found)
        return 1;
    if (record::isUpToDateMarker(*found))
        return 0;
    sys::UserDefaults::standard().setObject(*found, prefs::kUpdateGroupDict);
    return std::nullopt;
}

} // namespace runmodes
