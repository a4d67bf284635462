// SoftwareUpdateHelper: replaces the updater's bundle with a new one after the updater has
// quit, unmounts the disk image the new one came from and starts the updater again.
// Command line and exit statuses: docs/helper.md. Every step goes to the helper's own log.

#include "BundleReplacer.h"
#include "HelperArguments.h"
#include "HelperSteps.h"
#include "shared/VLLocalPaths.h"
#include "shared/VLLog.h"

#include <QCoreApplication>
#include <QDir>

#include <cstdio>

namespace {

enum ExitStatus {
    kReplaced = 0,
    kBadArguments = 1,
    kUpdaterStillRunning = 2,
    kReplaceFailedOldKept = 3,
    kReplaceFailedOldAside = 4,
    kRelaunchFailed = 5,
};

// Long enough for the windowed updater's normal termination (log drain, crash-check record).
constexpr int kQuitWaitSeconds = 60;

int finish(int status)
{
    VLLog::appendLog(QStringLiteral("SoftwareUpdateHelper ends with status %i."), status);
    VLLog::finishWriting();
    return status;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    // The helper may be the first vendor program to log here: make the folder the log uses
    // (the user's, or the machine's when running as root) if it is missing.
    QDir().mkpath(VLLog::logFolder());
    QDir().mkpath(VLLocalPaths::logDirectory(false) + QStringLiteral("/Velmora"));
    VLLog::createNewLog(QStringLiteral("SoftwareUpdateHelper"));
    const QStringList args = app.arguments().mid(1);
    VLLog::appendLog(QStringLiteral("SoftwareUpdateHelper started with arguments: %@"), args);
    QString error;
    const std::optional<helper::Arguments> parsed = helper::parseArguments(args, &error);
    if (!parsed) {
        VLLog::appendLog(QStringLiteral("%@"), error);
        std::fprintf(stderr, "%s\n", qPrintable(error));
        return finish(kBadArguments);
    }
    if (!helper::waitForBundleToQuit(parsed->destination, kQuitWaitSeconds)) {
        VLLog::appendLog(QStringLiteral("The updater at %@ did not quit; nothing was replaced."), parsed->destination);
        return finish(kUpdaterStillRunning);
    }
    helper::repairInterruptedReplacement(parsed->destination);
    const helper::ReplaceResult replaced = helper::replaceBundle(parsed->source, parsed->destination);
    helper::detachImage(parsed->mountPath);
    if (replaced.status != helper::ReplaceStatus::Replaced) {
        VLLog::appendLog(QStringLiteral("Unable to replace %@: %@"), parsed->destination, replaced.detail);
        if (replaced.status == helper::ReplaceStatus::FailedOldMovedAside)
            return finish(kReplaceFailedOldAside);
        // The old updater is still in place and works: start it again so the user is not
        // left without it, unless the run is silent.
        if (!parsed->silent && !helper::relaunch(parsed->destination))
            VLLog::appendLog(QStringLiteral("The old updater could not be started again."));
        return finish(kReplaceFailedOldKept);
    }
    VLLog::appendLog(QStringLiteral("Replaced %@ with %@."), parsed->destination, parsed->source);
    if (parsed->silent)
        return finish(kReplaced);
    return finish(helper::relaunch(parsed->destination) ? kReplaced : kRelaunchFailed);
}
