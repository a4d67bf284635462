// The weekly scheduled check: the preferences box that wants it, and the per-user job that
// runs "-autocheck" every Monday at 09:00. Only the permanent installation, in the
// applications folder, keeps a job; a copy run from the temporary folder always removes it.
// Main thread.

#include "AppController.h"

#include "lifecycle/PreferenceKeys.h"
#include "platform/system/Bundle.h"
#include "platform/system/SystemEnvironment.h"
#include "platform/system/UserDefaults.h"
#include "shared/VLLaunchd.h"

#include <QVariantList>

namespace {

const QString kJobLabel = QStringLiteral("com.velmora.SoftwareUpdateAutoCheck");

// Every Monday at 09:00 local time, the updater's own executable with "-autocheck".
QVariantMap autoCheckJob(const QString& program)
{
    const QVariantMap monday{{QStringLiteral("Weekday"), 1}, {QStringLiteral("Hour"), 9}, {QStringLiteral("Minute"), 0}};
    return {{QStringLiteral("Label"), kJobLabel},
            {QStringLiteral("Program"), program},
            {QStringLiteral("ProgramArguments"),
             QVariantList{QStringLiteral("Velmora Software Update"), QStringLiteral("-autocheck")}},
            {QStringLiteral("StartCalendarInterval"), QVariantList{monday}}};
}

} // namespace

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

// Only a copy installed in the applications folder schedules checks.
void AppController::startAutoUpdateCheckJob()
{
    const std::optional<QString> program = sys::Bundle::mainBundle().executablePath();
    if (!program || !program->startsWith(sys::rooted(QStringLiteral("/Applications/"))))
        return;
    const QVariantMap job = autoCheckJob(*program);
    if (VLLaunchd::checkJobExists(kJobLabel, job, true, true))
        return;
    (void)VLLaunchd::startLaunchAgent(kJobLabel, job, true);
}

void AppController::stopAutoUpdateCheckJob()
{
    VLLaunchd::removeLaunchAgent(kJobLabel, true);
}
