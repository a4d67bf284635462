// SoftwareUpdateHelper: replaces the updater's bundle with a new one after the updater has
// quit, unmounts the disk image the new one came from and starts the updater again.
// Command line and exit statuses: docs/helper.md. Every step goes to the helper's own log.

#include "BundleReplacer.h"
#include "HelperArguments.h"
#include "HelperSteps.h"
#include "platform/system/UserDomain.h"
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
    kRelaunchFailed = 5, // the previous updater was put back in its place
};

// Long enough for the windowed updater's normal termination (log drain, crash-check record).
constexpr int kQuitWaitSeconds = 60;

int finish(int status)
{
    VLLog::appendLog(QStringLiteral("SoftwareUpdateHelper ends with status %i."), status);
    VLLog::finishWriting();
    return status;
}

// The one line a user (or support) needs when the working updater is no longer in place.
void logWherePreviousIs(const QString& destination, const QString& previous)
{
    VLLog::appendLog(QStringLiteral("The previous updater is kept at %@; move it back to %@ to use it."), previous,
                     destination);
}

int afterFailedReplacement(const helper::Arguments& arguments, const helper::ReplaceResult& replaced)
{
    VLLog::appendLog(QStringLiteral("Unable to replace %@: %@"), arguments.destination, replaced.detail);
    if (replaced.status == helper::ReplaceStatus::FailedOldMovedAside) {
        logWherePreviousIs(arguments.destination, replaced.previous);
        return kReplaceFailedOldAside;
    }
    // The old updater is still in place and works: start it again so the user is not
    // left without it, unless the run is silent.
    if (!arguments.silent && !helper::relaunch(arguments.destination))
        VLLog::appendLog(QStringLiteral("The old updater could not be started again."));
    return kReplaceFailedOldKept;
}

// The new updater was installed but does not start. An updater that cannot start is of no use
// to anyone, so the one that worked is put back and started instead.
int afterFailedRelaunch(const helper::Arguments& arguments, const helper::ReplaceResult& replaced)
{
    if (replaced.previous.isEmpty()) {
        VLLog::appendLog(QStringLiteral("The new updater could not be started, and there is no previous one."));
        return kRelaunchFailed;
    }
    QString why;
    if (!helper::putPreviousBack(arguments.destination, replaced.previous, &why)) {
        VLLog::appendLog(QStringLiteral("The new updater could not be started, and the previous one could not be put back: %@"),
                         why);
        logWherePreviousIs(arguments.destination, replaced.previous);
        return kReplaceFailedOldAside;
    }
    VLLog::appendLog(QStringLiteral("The new updater could not be started; the previous one was put back."));
    if (!helper::relaunch(arguments.destination))
        VLLog::appendLog(QStringLiteral("The old updater could not be started again."));
    return kRelaunchFailed;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    // The helper may be the first vendor program to log here: the user's Library folders
    // first (with their owner and mode), then the folder the log uses (the user's, or the
    // machine's when running as root) if it is missing.
    (void)sys::prepareUserDomain();
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
    if (replaced.status != helper::ReplaceStatus::Replaced)
        return finish(afterFailedReplacement(*parsed, replaced));
    VLLog::appendLog(QStringLiteral("Replaced %@ with %@."), parsed->destination, parsed->source);
    if (parsed->silent || helper::relaunch(parsed->destination)) {
        helper::discardPrevious(replaced);
        return finish(kReplaced);
    }
    return finish(afterFailedRelaunch(*parsed, replaced));
}
