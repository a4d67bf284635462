// The user's choices about updates, as the windows' controls and menu items set them:
// checking at start-up (the vendor's shared file, so every vendor application sees it),
// skipping one version, being reminded later, resetting skipped versions, and a check from
// the menu. Main thread.
//
// The shared file belongs to every vendor application: it is always read whole, one key is
// changed and it is written back atomically, keeping the other keys as they were. A file that
// exists but cannot be read is left alone rather than replaced by a dictionary holding only
// our key.

#include "AppController.h"

#include "ExceptionGuard.h"
#include "UpdateRecord.h"
#include "lifecycle/PreferenceKeys.h"
#include "platform/foundation/Foundation.h"
#include "platform/plist/PropertyList.h"
#include "platform/system/UserDefaults.h"
#include "shared/VLLog.h"

#include <QFileInfo>

#include <functional>
#include <thread>

namespace {

// Reads the shared file (empty when it does not exist), lets `change` edit it and writes it
// back. Nothing is written when the file exists but is not a readable dictionary.
void changeGlobalPreferences(const std::function<void(QVariantMap&)>& change)
{
    const QString path = sys::globalPreferencesPath();
    QVariantMap preferences;
    if (QFileInfo::exists(path)) {
        std::optional<QVariantMap> stored = plist::readDictionaryFile(path);
        if (!stored) {
            VLLog::appendLog(QStringLiteral("Unable to read %@; the setting was not saved."), path);
            return;
        }
        preferences = std::move(*stored);
    }
    change(preferences);
    if (!sys::writeGlobalPreferences(preferences))
        VLLog::appendLog(QStringLiteral("Unable to write %@."), path);
}

void storeCheckAtStartup(bool ticked)
{
    changeGlobalPreferences([ticked](QVariantMap& preferences) { preferences.insert(prefs::kCheckAtStartup, ticked); });
}

} // namespace

void AppController::toggleCheckAtStartup(bool ticked)
{
    guard::guarded(hasGUI, "-[AppController toggleCheckAtStartup:]", [&] {
        {
            std::lock_guard lock(dataArrayLock);
            if (dataArray.isEmpty())
                return;
        }
        storeCheckAtStartup(ticked);
    });
}

void AppController::prefsToggleCheckForUpdatesAtStartup(bool ticked)
{
    guard::guarded(hasGUI, "-[AppController prefsToggleCheckForUpdatesAtStartup:]", [&] { storeCheckAtStartup(ticked); });
}

void AppController::updateIgnoreVersionClick()
{
    guard::guarded(hasGUI, "-[AppController updateIgnoreVersionClick:]", [&] {
        std::optional<UpdateRecord> shown;
        {
            std::lock_guard lock(dataArrayLock);
            if (!dataArray.isEmpty())
                shown = dataArray.first();
        }
        if (!shown)
            return;
        // A number is stored as its decimal string: later checks compare strings.
        const QString version = fnd::stringValue(shown->value(record::kNewVersion));
        const QVariant groupID = shown->value(record::kGroupId);
        const QString identifier = groupID.isValid() ? groupID.toString() : shown->value(record::kBundleId).toString();
        const bool hasIdentifier = groupID.isValid() || shown->contains(record::kBundleId);
        changeGlobalPreferences([&](QVariantMap& preferences) {
            QVariantMap skipped = preferences.value(prefs::kSkippedVersions).toMap();
            if (hasIdentifier)
                skipped.insert(identifier, version);
            preferences.insert(prefs::kSkippedVersions, skipped);
        });
        ui().terminateApplication();
    });
}

void AppController::updateRemindLaterClick()
{
    ui().terminateApplication();
}

void AppController::menuResetIgnoredUpdates()
{
    if (!QFileInfo::exists(sys::globalPreferencesPath()))
        return;
    changeGlobalPreferences([](QVariantMap& preferences) { preferences.remove(prefs::kSkippedVersions); });
}

// Unlike the launch check, the menu's check does not look for an update of the updater first.
// It holds the controller's lock, as the launch check and the installation pass do, so that
// it never empties the list under a pass that is still working through it.
void AppController::menuCheckForUpdates()
{
    std::thread([this] {
        std::lock_guard lock(controllerLock);
        checkForUpdates(std::nullopt);
    }).detach();
}
