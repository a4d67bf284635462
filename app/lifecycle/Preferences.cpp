// The preference stores as the controller reads them, and termination.
//
// Two stores live in the user's Preferences folder: the updater's own user defaults
// (sys::UserDefaults::standard(), domain com.velmora.SoftwareUpdate) and the vendor's shared
// file com.velmora.global.plist, read and written as one dictionary by every vendor
// application. "SUCheckAtStartup" absent means on: the box is unticked only for a stored NO.

#include "AppController.h"

#include "ExceptionGuard.h"
#include "lifecycle/PreferenceKeys.h"
#include "platform/system/UserDefaults.h"
#include "shared/VLBugReporter.h"

bool prefs::checkAtStartupEnabled(const QVariantMap& globalPreferences)
{
    // Only a number equal to NO (a boolean false, or 0) unticks the box; a string "NO" or
    // any other value does not compare equal to NO.
    const QVariant stored = globalPreferences.value(kCheckAtStartup);
    switch (stored.typeId()) {
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double:
        return stored.toDouble() != 0.0;
    default:
        return true;
    }
}

void AppController::loadPreferenceSettings()
{
    guard::guarded(hasGUI, "-[AppController loadPreferenceSettings]", [&] {
        const bool ticked = prefs::checkAtStartupEnabled(sys::readGlobalPreferences());
        ui().setPrefsCheckForUpdatesAtStartup(ticked);
    });
}

void AppController::applicationWillTerminate()
{
    VLBugReporter::stopBugReporter();
}
