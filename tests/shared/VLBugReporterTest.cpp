#include "shared/VLBugReporter.h"
#include "shared/VLLog.h"

#include "VLFileManagerTestSupport.h"

#include "platform/plist/PropertyList.h"
#include "platform/system/UserDefaults.h"
#include "support/StdoutCapture.h"

#include <QCoreApplication>
#include <QDateTime>

namespace {

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

#include "VLBugReporterTest.moc"
