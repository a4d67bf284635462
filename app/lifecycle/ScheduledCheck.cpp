// The weekly scheduled check: the preferences box that wants it, and the per-user job that
// runs "-autocheck" every Monday at 09:00. Only the permanent installation, in the
// applications folder, keeps a job; a copy run from the temporary folder always removes it.
// Main thread.

#include "AppController.h"

#include "lifecycle/PreferenceKeys.h"
#include "platform/system/UserDefaults.h"

void AppController::prefsToggleAutoUpdateCheck(bool ticked)
{
    sys::UserDefaults::standard().setInteger(ticked ? 1 : 0, prefs::kAutoUpdateCheck);
    toggleAutoUpdateCheck(ticked ? 1 : 0);
}

void AppController::toggleAutoUpdateCheck(int value)
{
    if (isPermanentInstaller && value == 1)
        startAutoUpdateCheckJob();
    else
        stopAutoUpdateCheckJob();
}
