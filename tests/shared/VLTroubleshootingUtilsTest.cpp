// Logs and crash reports: viewing logs and gathering them into a real zip archive, and the
// crash reporter finding the previous run's report, in a sandboxed home and system root; the
// unreadable-folder case runs this executable again as "nobody".
#include "VLFileManagerTestSupport.h"

#include "platform/plist/PropertyList.h"
#include "platform/system/UserDefaults.h"
#include "shared/VLBugReporter.h"
#include "shared/VLFileManager.h"
#include "shared/VLLog.h"
#include "shared/VLTroubleshootingUtils.h"
#include "support/ScriptedAlertPresenter.h"
#include "support/StdoutCapture.h"
#include "support/TestData.h"
#include "support/ZipListing.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

#include <algorithm>

#include <sys/stat.h>

namespace {

using When = vltest::ScriptedAlertPresenter::When;

const QStringList kNames{QStringLiteral("My App"), QStringLiteral("Second Tool")};

class VLTroubleshootingUtilsTest : public vltest::FileOpsSandboxTest {
protected:
    void SetUp() override
    {
        FileOpsSandboxTest::SetUp();
        presenter_->unscripted = When::AtOnce;
        presenter_->window = &mainWindow_;
        VLAlert::setPresenter(presenter_);
    }
    void TearDown() override { VLAlert::setPresenter(nullptr); }

    // The alerts shown so far as "message" texts, each checked to be on the main window.
    QStringList alertMessages() const
    {
        QStringList messages;
        for (const auto& alert : presenter_->alerts) {
            EXPECT_EQ(alert->window, &mainWindow_);
            messages << alert->messageText;
        }
        return messages;
    }
    QString userPath(const QString& relative) const { return sandbox.homePath(QStringLiteral("Library/") + relative); }
    QString archive(const QString& name = QStringLiteral("My App Logs.zip")) const { return sandbox.homePath(QStringLiteral("Desktop/") + name); }
    // The archive's members that are files or links, as paths outside the staging folder.
    static QStringList gatheredPaths(const QString& zip)
    {
        QStringList paths;
        for (const QString& member : vltest::zipMembers(zip))
            if (!member.endsWith(QLatin1Char('/')))
                paths << member.mid(QStringLiteral("VL_App_Logs").size());
        return paths;
    }

    std::shared_ptr<vltest::ScriptedAlertPresenter> presenter_ = std::make_shared<vltest::ScriptedAlertPresenter>();

private:
    QObject mainWindow_;
};

TEST_F(VLTroubleshootingUtilsTest, ViewingALogOpensItOrSaysThereIsNone)
{
    EXPECT_FALSE(VLTroubleshootingUtils::viewLogForApp(QStringLiteral("My App")));
    EXPECT_EQ(alertMessages(), QStringList{QStringLiteral("No log found")});
    for (const char* file : {"Logs/Velmora/My App.1.log", "Logs/Velmora/My App.1.task.log"})
        ASSERT_TRUE(writeFile(userPath(QLatin1String(file))));
    EXPECT_TRUE(VLTroubleshootingUtils::viewLogForApp(QStringLiteral("My App")));
    EXPECT_TRUE(VLTroubleshootingUtils::viewTaskLogForApp(QStringLiteral("My App")));
    QList<QStringList> opened = waitForCalls(QStringLiteral("xdg-open"), 2);
    std::sort(opened.begin(), opened.end()); // the openers run detached and record in either order
    EXPECT_EQ(opened, (QList<QStringList>{{QStringLiteral("xdg-open"), userPath(QStringLiteral("Logs/Velmora/My App.1.log"))},
                                          {QStringLiteral("xdg-open"), userPath(QStringLiteral("Logs/Velmora/My App.1.task.log"))}}));
    EXPECT_EQ(presenter_->alerts.size(), 1);
}

TEST_F(VLTroubleshootingUtilsTest, GatheringMirrorsBothDomainsIntoAZipOnTheDesktop)
{
    // Two domains of logs, crash reports and preferences, with a link, a dangling link and
    // names with spaces; each row says whether its file must be gathered.
    const QMap<QString, QString> roots{{QStringLiteral("user"), userPath(QString())}, {QStringLiteral("machine"), sandbox.sysPath(QStringLiteral("/Library/"))},
                                       {QStringLiteral("home"), sandbox.homePath(QString())}, {QStringLiteral("tmp"), sandbox.tmpPath(QString())}};
    QStringList wanted;
    for (const QJsonValue& value : vltest::dataRows("shared/data/VLTroubleshootingUtilsGathering")) {
        const QJsonObject row = value.toObject();
        const QString path = roots.value(row[u"in"].toString()) + row[u"path"].toString();
        ASSERT_TRUE(writeFile(path, path.toUtf8())) << row[u"why"].toString().toStdString();
        if (row[u"gathered"].toBool())
            wanted << path;
    }
    const QString linked = userPath(QStringLiteral("Logs/CrashReporter/My App_linked.crash"));
    const QString dangling = userPath(QStringLiteral("Logs/CrashReporter/Second Tool_gone.crash"));
    ASSERT_TRUE(sandbox.makeDir(userPath(QStringLiteral("Logs/CrashReporter"))));
    ASSERT_TRUE(QFile::link(sandbox.homePath(QStringLiteral("elsewhere/real.crash")), linked));
    ASSERT_TRUE(QFile::link(sandbox.homePath(QStringLiteral("nowhere.crash")), dangling));
    wanted << linked << dangling;
    wanted.sort();

    ASSERT_TRUE(VLTroubleshootingUtils::gatherLogsForAppsWithNames(kNames, false, {sandbox.tmpPath(QStringLiteral("notes for support.txt"))}));
    EXPECT_EQ(alertMessages(), QStringList{QStringLiteral("Logs gathered successfully")});
    EXPECT_EQ(gatheredPaths(archive()), wanted);
    EXPECT_FALSE(QFileInfo::exists(VLTroubleshootingUtils::stagingFolder()));
    // A link whose target exists is gathered as its target; a dangling one as the link. The
    // sources are only read.
    const QString out = sandbox.tmpPath(QStringLiteral("opened"));
    ASSERT_TRUE(VLFileManager::decompressFile(archive(), out));
    EXPECT_FALSE(QFileInfo(out + QStringLiteral("/VL_App_Logs") + linked).isSymLink());
    EXPECT_EQ(readFile(out + QStringLiteral("/VL_App_Logs") + linked), sandbox.homePath(QStringLiteral("elsewhere/real.crash")).toUtf8());
    EXPECT_TRUE(QFileInfo(out + QStringLiteral("/VL_App_Logs") + dangling).isSymLink());
    EXPECT_TRUE(QFileInfo(linked).isSymLink());
}

TEST_F(VLTroubleshootingUtilsTest, ASecondArchiveGetsATimeStampAndTheFirstIsKept)
{
    ASSERT_TRUE(writeFile(userPath(QStringLiteral("Logs/Velmora/My App.1.log"))));
    ASSERT_TRUE(VLTroubleshootingUtils::gatherLogsForAppsWithNames(kNames, true));
    ASSERT_TRUE(VLTroubleshootingUtils::gatherLogsForAppWithName(QStringLiteral("My App")));
    const QStringList archives = QDir(sandbox.homePath(QStringLiteral("Desktop"))).entryList(QDir::Files, QDir::Name);
    ASSERT_EQ(archives.size(), 2) << archives.join(QLatin1Char(',')).toStdString();
    EXPECT_EQ(archives[0], QStringLiteral("My App Logs.zip"));
    EXPECT_TRUE(QRegularExpression(QStringLiteral("^My App Logs_\\d{14}\\.zip$")).match(archives[1]).hasMatch()) << archives[1].toStdString();
    EXPECT_EQ(alertMessages(), QStringList{QStringLiteral("Logs gathered successfully")}); // the first was silent
}

TEST_F(VLTroubleshootingUtilsTest, NothingGatheredOrAFailureMakesNoArchive)
{
    ASSERT_TRUE(writeFile(userPath(QStringLiteral("Logs/Velmora/Other.1.log"))));
    EXPECT_FALSE(VLTroubleshootingUtils::gatherLogsForAppsWithNames(kNames, true));
    EXPECT_TRUE(presenter_->alerts.isEmpty());
    EXPECT_FALSE(VLTroubleshootingUtils::gatherLogsForAppsWithNames(kNames));
    EXPECT_EQ(alertMessages(), QStringList{QStringLiteral("No logs found")});

    // A file that cannot be copied stops the gathering; the staging folder stays behind,
    // private to its owner.
    ASSERT_TRUE(writeFile(userPath(QStringLiteral("Logs/Velmora/My App.1.log"))));
    bool gathered = true;
    const QByteArray printed = vltest::captureStdout([&] {
        gathered = VLTroubleshootingUtils::gatherLogsForAppsWithNames(kNames, false, {sandbox.tmpPath(QStringLiteral("missing.txt"))});
    });
    EXPECT_FALSE(gathered);
    EXPECT_TRUE(printed.startsWith("Unable to copy file: ")) << printed.constData();
    EXPECT_EQ(presenter_->alerts.size(), 1); // printed, not shown
    struct stat staging {};
    ASSERT_EQ(::stat(QFile::encodeName(VLTroubleshootingUtils::stagingFolder()).constData(), &staging), 0);
    EXPECT_EQ(staging.st_mode & 0777, 0700u);
    EXPECT_TRUE(QDir(sandbox.homePath(QStringLiteral("Desktop"))).isEmpty());
    // No desktop folder to hold the archive: the user is told, and the staging folder goes.
    ASSERT_TRUE(QDir(sandbox.homePath(QStringLiteral("Desktop"))).removeRecursively());
    EXPECT_FALSE(VLTroubleshootingUtils::gatherLogsForAppsWithNames(kNames));
    EXPECT_EQ(alertMessages(), (QStringList{QStringLiteral("No logs found"), QStringLiteral("Logs could not be gathered")}));
    EXPECT_FALSE(QFileInfo::exists(VLTroubleshootingUtils::stagingFolder()));
}

// Runs in the child only; skipped in ordinary runs.
TEST(VLTroubleshootingUtilsChild, Run)
{
    if (qEnvironmentVariable("VLTU_CHILD") != QStringLiteral("gather"))
        GTEST_SKIP() << "runs only as the unprivileged child of the gathering tests";
    EXPECT_TRUE(VLTroubleshootingUtils::gatherLogsForAppsWithNames(kNames, true));
}

TEST_F(VLTroubleshootingUtilsTest, AnUnreadableLogFolderIsPassedOver)
{
    const auto uid = vltest::Sandbox::unprivilegedUid();
    if (!uid)
        GTEST_SKIP() << "needs root to run a child as an unprivileged user";
    ASSERT_TRUE(writeFile(userPath(QStringLiteral("Logs/Velmora/My App.1.log"))));
    ASSERT_TRUE(writeFile(sandbox.sysPath(QStringLiteral("/Library/Logs/Velmora/My App.1.log"))));
    ASSERT_EQ(::chmod(QFile::encodeName(sandbox.sysPath(QStringLiteral("/Library/Logs/Velmora"))).constData(), 0700), 0);
    ASSERT_TRUE(sandbox.giveHomeTo(*uid));
    const vltest::RunResult result = sandbox.run(QCoreApplication::applicationFilePath(), {QStringLiteral("--gtest_filter=VLTroubleshootingUtilsChild.Run")},
                                                 {.uid = uid, .extraEnv = {{QStringLiteral("VLTU_CHILD"), QStringLiteral("gather")}}});
    ASSERT_EQ(result.exitCode, 0) << result.describe().toStdString();
    EXPECT_EQ(gatheredPaths(archive()), QStringList{userPath(QStringLiteral("Logs/Velmora/My App.1.log"))});
}

class CrashDelegate : public QObject {
    Q_OBJECT
public:
    Q_INVOKABLE void applicationDidCrashWithLog(const QString& path) { reports << path; }
    QStringList reports;
};

class VLBugReporterTest : public vltest::FileOpsSandboxTest {
protected:
    QString datesFile() const { return sandbox.homePath(QStringLiteral("Library/Preferences/dates.plist")); }
    // The previous run's dates, in minutes after the launch date of the test; absent: not written.
    void writeDates(std::optional<int> launch, std::optional<int> exit)
    {
        QVariantMap dates;
        if (launch)
            dates.insert(VLBugReporter::launchKey(), launch_.addSecs(60 * *launch));
        if (exit)
            dates.insert(VLBugReporter::exitKey(), launch_.addSecs(60 * *exit));
        ASSERT_TRUE(sandbox.writePlist(datesFile(), dates));
    }
    // A crash report in <user or machine Library>/Logs/<sub>, modified `minutes` after the launch.
    QString report(bool user, const char* sub, const char* name, int minutes)
    {
        const QString path = (user ? sandbox.homePath(QStringLiteral("Library/Logs/")) : sandbox.sysPath(QStringLiteral("/Library/Logs/")))
                           + QLatin1String(sub) + QLatin1Char('/') + QLatin1String(name);
        EXPECT_TRUE(writeFile(path, "crash"));
        QFile f(path);
        EXPECT_TRUE(f.open(QIODevice::ReadWrite) && f.setFileTime(launch_.addSecs(60 * minutes), QFileDevice::FileModificationTime));
        return path;
    }
    // The switch lives in the vendor's shared preferences file.
    void setSwitch(const QVariant& value)
    {
        QVariantMap shared = sys::readGlobalPreferences();
        shared.insert(QStringLiteral("disable-crash-reporter"), value);
        if (!value.isValid())
            shared.remove(QStringLiteral("disable-crash-reporter"));
        ASSERT_TRUE(sys::writeGlobalPreferences(shared));
    }
    std::optional<QString> check(const char* app = "Demo") { return VLBugReporter::checkForCrashes(QLatin1String(app), datesFile()); }

    const QDateTime launch_ = QDateTime::currentDateTimeUtc().addSecs(-3600);
};

TEST_F(VLBugReporterTest, DatesDecideWhetherThePreviousRunCrashed)
{
    setSwitch(QStringLiteral("1"));
    report(true, "CrashReporter", "Demo_new.crash", 5);
    // launch, exit (minutes), crashed
    const std::tuple<std::optional<int>, std::optional<int>, bool> cases[] = {
        {std::nullopt, 0, false}, {0, 0, false}, {0, -10, true}, {0, std::nullopt, true}};
    for (const auto& [launch, exit, crashed] : cases) {
        writeDates(launch, exit);
        EXPECT_EQ(check().has_value(), crashed) << launch.value_or(99) << " " << exit.value_or(99);
    }
}

TEST_F(VLBugReporterTest, PicksTheLastMatchingReportOfTheFirstFolderThatHasANewOne)
{
    setSwitch(QStringLiteral("1"));
    writeDates(0, std::nullopt);
    // Older than the launch: ignored although the previous run never recorded its exit.
    report(true, "CrashReporter", "Demo_2020.crash", -30);
    EXPECT_FALSE(check());
    // The machine's folders are searched after the user's.
    const QString machine = report(false, "DiagnosticReports", "demo_m.ips", 3);
    EXPECT_EQ(check(), machine);
    // Only "<name>_" prefixes count, in any case; the last in listing order (names by code
    // unit, so "demo_" after "Demo_") wins when newer, even if an earlier one is newer still.
    report(true, "DiagnosticReports", "Demo_b.ips", 8);
    const QString last = report(true, "DiagnosticReports", "demo_a.ips", 2);
    report(true, "DiagnosticReports", "Demolition_z.ips", 9);
    EXPECT_EQ(check("demo"), last);
    // The last entry of the first folder is too old: that folder yields nothing, not an older one.
    report(true, "CrashReporter", "Demo_0001.crash", 4);
    EXPECT_EQ(check(), last);
}

TEST_F(VLBugReporterTest, OpensTheReportWithTheBugReporterUnlessDisabledInTheSharedFile)
{
    writeDates(0, -1);
    const QString crash = report(true, "CrashReporter", "Demo_x.crash", 1);
    // No Bug Reporter installed: the desktop opener gets the report.
    EXPECT_EQ(check(), crash);
    EXPECT_EQ(waitForCalls(QStringLiteral("xdg-open")), (QList<QStringList>{{QStringLiteral("xdg-open"), crash}}));
    const QString seen = sandbox.tmpPath(QStringLiteral("opened.txt"));
    vltest::FakeBundle reporter;
    reporter.path = sandbox.sysPath(QStringLiteral("/Applications/Utilities/Bug Reporter.app"));
    reporter.identifier = QStringLiteral("com.velmora.BugReporter");
    reporter.executable = "#!/bin/sh\nprintf '%s' \"$1\" > '" + seen.toUtf8() + "'\n";
    ASSERT_FALSE(sandbox.createBundle(reporter).isEmpty());
    // Set only in the updater's own defaults, the switch does not count.
    sys::UserDefaults::standard().setObject(QStringLiteral("1"), QStringLiteral("disable-crash-reporter"));
    for (const QVariant& shared : {QVariant(QStringLiteral("1")), QVariant()}) {
        setSwitch(shared);
        const QByteArray printed = vltest::captureStdout([&] {
            EXPECT_EQ(check(), crash);
            VLLog::finishWriting(); // the writer echoes its lines: all of this case's, none later
        });
        EXPECT_EQ(printed.contains("Crash reporter disabled"), shared.isValid()) << printed.constData();
    }
    sys::UserDefaults::standard().removeObjectForKey(QStringLiteral("disable-crash-reporter"));
    const QDeadlineTimer guard(60000);
    while (!QFile::exists(seen) && !guard.hasExpired())
        QThread::msleep(20);
    EXPECT_EQ(readFile(seen), crash.toUtf8());
    EXPECT_EQ(sandbox.toolCalls(QStringLiteral("xdg-open")).size(), 1);
}

TEST_F(VLBugReporterTest, StartAndStopRecordTheDatesAndTellTheDelegate)
{
    setSwitch(QStringLiteral("1"));
    writeDates(0, std::nullopt);
    const QString crash = report(true, "CrashReporter", "Demo_x.crash", 1);
    CrashDelegate delegate;
    VLBugReporter::startBugReporter(QStringLiteral("Demo"), datesFile(), &delegate);
    EXPECT_TRUE(delegate.reports.isEmpty()); // queued, never called while the caller waits
    QCoreApplication::processEvents();
    EXPECT_EQ(delegate.reports, QStringList{crash});
    // The new launch date is later than the report: this run is not seen as crashed.
    EXPECT_FALSE(check());
    VLBugReporter::stopBugReporter(datesFile());
    const auto dates = plist::readDictionaryFile(datesFile()).value_or(QVariantMap());
    EXPECT_GT(dates.value(VLBugReporter::launchKey()).toDateTime(), launch_);
    EXPECT_GE(dates.value(VLBugReporter::exitKey()).toDateTime(), dates.value(VLBugReporter::launchKey()).toDateTime());
    // A dates file under /Users goes back to that user.
    const QString inUsers = sandbox.sysPath(QStringLiteral("/Users/bob/Library/Preferences/dates.plist"));
    ASSERT_TRUE(sandbox.makeDir(sandbox.sysPath(QStringLiteral("/Users/bob/Library/Preferences"))));
    VLBugReporter::stopBugReporter(inUsers);
    VLBugReporter::chownPlist(QStringLiteral("/home/bob/dates.plist"));
    EXPECT_EQ(sandbox.toolCalls(QStringLiteral("chown")), (QList<QStringList>{{QStringLiteral("chown"), QStringLiteral("bob"), inUsers}}));
}

} // namespace

#include "VLTroubleshootingUtilsTest.moc"
