// The entry point as vendor applications and the weekly job drive it, with no display: the
// command-line checks of -install and what the client hears, -checkpath with its global
// three-day throttle and the record it hands to the window, and -autocheck with its statuses
// and the guard against running vendor network clients.
#include "EndToEnd.h"

#include "support/ChildProcess.h"

#include <QDateTime>

namespace {

using vltest::RunResult;

const QString kNoDisplay = QStringLiteral("there is no display to open the update window on; exiting with status 1.");

class RunModes : public e2e::EndToEnd {
protected:
    RunResult checkpath(const QString& path, const QStringList& more = {}) const
    {
        return sb_.runUpdater(QStringList{QStringLiteral("-checkpath"), path} + more);
    }
    // A Sparkle application installed at build 100 whose feed offers build `offered`.
    QString appOffering(const QString& name, int offered)
    {
        publishAppcast("feeds/" + name + ".xml", offered, QStringLiteral("https://example.invalid/t.dmg"));
        return installSparkleApp(name, "feeds/" + name + ".xml");
    }
};

TEST_F(RunModes, InstallRefusesBadCommandLinesAndTellsTheClientWhy)
{
    const QString notVendor = QStringLiteral("Unable to install update - the bundle ID %1 does not correspond to a Velmora application.");
    const QStringList refused{"postErrorString:userInfo:", "postFinishedTask"};
    const struct {
        QStringList args;
        QString error;
        QStringList heard;
    } cases[] = {
        {{"-install", "group"}, "Invalid argument count", {}},
        {{"-install", "group", "com.example.x"}, notVendor.arg("com.example.x"), refused},
        // The type and the target stand at fixed positions, wherever the switch stands.
        {{"group", "com.example.y", "-install"}, notVendor.arg("-install"), refused},
        {{"-install", "group", "com.velmora.nothing"}, "Unable to download info for application com.velmora.nothing.", refused},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.args.join(' ').toStdString());
        const qsizetype before = client_.messages().size();
        const RunResult r = sb_.runUpdater(c.args);
        EXPECT_EQ(r.exitCode, 1);
        EXPECT_TRUE(r.err().contains(c.error)) << r.describe().toStdString();
        EXPECT_EQ(r.out(), QString());
        EXPECT_EQ(client_.messageNames().mid(before), c.heard);
        EXPECT_EQ(errorsPosted(before), c.heard.isEmpty() ? QStringList() : QStringList{c.error});
    }
}

// Not a vendor bundle: nothing is checked or recorded, whatever else the command line says.
// A vendor application is checked and the check recorded; within three days every
// application is throttled; an old check no longer throttles.
TEST_F(RunModes, CheckpathForeignUpToDateFailedAndThrottled)
{
    const QString foreign = sb_.createBundle({sb_.sysPath("/Applications/Foreign.app"), "org.other.Foreign", "5", "1.0"});
    const RunResult ignored = checkpath(foreign, {"-install"});
    EXPECT_EQ(ignored.exitCode, 0) << ignored.describe().toStdString();
    EXPECT_FALSE(prefs().contains("lastUpdateCheck"));
    EXPECT_EQ(server_.requestedPaths(), QStringList());

    publishSelf(100);
    const RunResult upToDate = checkpath(appOffering("Current", 100));
    EXPECT_EQ(upToDate.exitCode, 0) << upToDate.describe().toStdString();
    ASSERT_TRUE(prefs().contains("lastUpdateCheck"));

    // Even one with an update.
    server_.clearLog();
    EXPECT_EQ(checkpath(appOffering("Newer", 200)).exitCode, 0);
    EXPECT_EQ(server_.requestedPaths(), QStringList());

    // An old check no longer throttles: a feed that cannot be read gives no record, status 1.
    setPrefs({{"lastUpdateCheck", QDateTime::currentDateTimeUtc().addSecs(-259201)}});
    const RunResult failed = checkpath(installSparkleApp("Broken", "feeds/none.xml"));
    EXPECT_EQ(failed.exitCode, 1) << failed.describe().toStdString();
    EXPECT_TRUE(server_.requestedPaths().contains("/feeds/none.xml"));
}

// An update found is stored for the window, which shows it at its start; without a display
// the window says it cannot open and the run ends with status 1, the record kept for the
// next start. The updater's own update comes before the application's.
TEST_F(RunModes, CheckpathHandsTheUpdateFoundToTheWindow)
{
    const QString newer = appOffering("Newer", 200);
    for (const int ownBuild : {200, 100}) {
        SCOPED_TRACE(ownBuild);
        QFile::remove(sb_.userPreferencesFile(e2e::kOwnId));
        publishSelf(ownBuild);
        const RunResult r = checkpath(newer);
        EXPECT_EQ(r.exitCode, 1);
        EXPECT_TRUE(r.err().contains(kNoDisplay)) << r.describe().toStdString();
        const QVariantMap handed = prefs().value("updateGroupDict").toMap();
        EXPECT_EQ(handed.value("type").toString(), ownBuild == 200 ? "self" : "sparkle");
        EXPECT_EQ(handed.value("bundleid").toString(), ownBuild == 200 ? e2e::kOwnId : "com.velmora.newer");
        EXPECT_EQ(handed.value("newVersion").toInt(), 200);
        EXPECT_TRUE(prefs().contains("lastUpdateCheck"));
    }
}

// -autocheck ends with status 0 when nothing was found or a vendor network client runs;
// otherwise it continues as the window, which without a display ends with status 1.
TEST_F(RunModes, AutocheckContinuesAsTheWindowOnlyWithUpdatesAndNoClientRunning)
{
    publishSelf(100);
    RunResult r = sb_.runUpdater({"-autocheck"});
    EXPECT_EQ(r.exitCode, 0) << r.describe().toStdString();
    EXPECT_FALSE(r.err().contains(kNoDisplay));

    publishSelf(200);
    for (const QString client : {"Harrowlink", "Tessel"}) {
        ASSERT_TRUE(QFile::copy("/bin/sleep", sb_.tmpPath(client)));
        vltest::ChildProcess running;
        ASSERT_TRUE(running.start(sb_.tmpPath(client), {"300"}));
        r = sb_.runUpdater({"-autocheck"});
        EXPECT_EQ(r.exitCode, 0) << client.toStdString() << r.describe().toStdString();
        EXPECT_FALSE(r.err().contains(kNoDisplay)) << client.toStdString();
    }
    r = sb_.runUpdater({"-autocheck"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_TRUE(r.err().contains(kNoDisplay)) << r.describe().toStdString();
}

} // namespace
