// Modes "-list" and "-autocheck": a full check without a window. -list prints the records
// as the description text of {"updates": [...]} (no newline added), or with "-format json"
// as the JSON object {"updates": [...]}, and exits 0; -autocheck continues as the windowed
// application when something was found and neither vendor network client is running.

#include "lifecycle/RunModes.h"

#include "AppController.h"
#include "discovery/CheckReport.h"
#include "discovery/CheckVerdict.h"
#include "platform/plist/PlistJson.h"
#include "platform/plist/PropertyList.h"
#include "platform/system/Bundle.h"

#include <QJsonObject>

#include <cstdio>

namespace runmodes {

QVariantList collectUpdates(AppController& controller, const QStringList& arguments)
{
    QVariantList updates;
    discovery::CheckVerdict selfVerdict;
    const std::optional<UpdateRecord> self = controller.checkForUpdatesToSelf(&selfVerdict);
    if (controller.checkReport)
        controller.checkReport->recordSelfCheck(sys::Bundle::mainBundle().bundlePath(),
                                                QStringLiteral("com.velmora.SoftwareUpdate"), selfVerdict, self);
    if (self) {
        // The updater's own update is offered alone: nothing else is checked.
        if (controller.checkReport)
            controller.checkReport->setSelfUpdatePending();
        updates.append(*self);
        return updates;
    }
    controller.checkForUpdates(forcedIdentifiers(arguments));
    std::lock_guard lock(controller.dataArrayLock);
    for (const UpdateRecord& found : controller.dataArray)
        updates.append(found);
    return updates;
}

ModeOutcome runListOrAutocheck(const QStringList& arguments)
{
    std::unique_ptr<AppController> controller = AppController::initWithoutGUI();
    const QVariantList updates = collectUpdates(*controller, arguments);

    if (arguments.contains(QStringLiteral("-list"))) {
        if (outputFormat(arguments) == OutputFormat::Json) {
            printJson(QJsonObject{{QStringLiteral("updates"), plist::toJsonValue(updates)}});
        } else {
            const QByteArray text = plist::description(QVariantMap{{QStringLiteral("updates"), updates}}).toUtf8();
            std::printf("%s", text.constData());
            std::fflush(stdout);
        }
        controller.reset();
        return 0;
    }

    controller.reset();
    if (updates.isEmpty() || AppController::isProcessRunning(QStringLiteral("Harrowlink"))
        || AppController::isProcessRunning(QStringLiteral("Tessel")))
        return 0;
    return std::nullopt;
}

} // namespace runmodes
