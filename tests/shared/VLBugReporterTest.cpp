#include "shared/VLBugReporter.h"
#include "shared/VLLog.h"

#include "platform/plist/PropertyList.h"
#include "platform/system/UserDefaults.h"
#include "support/QtPrinters.h"
#include "support/Sandbox.h"
#include "support/StdoutCapture.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDeadlineTimer>
#include <QFile>
#include <QThread>

#include <gtest/gtest.h>

using vltest::Sandbox;

namespace {

class CrashDelegate : public QObject {
    Q_OBJECT
public:
    Q_INVOKABLE void applicationDidCrashWithLog(const QString& path) { reports << path; }
    QStringList reports;
};

// Points HOME, TMPDIR and the system root of this process at a sandbox for one case.
class VLBugReporterTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(box_.isValid());
        for (const char* name : {"HOME", "TMPDIR", "VELMORA_SYSROOT"})
            saved_.append({name, qgetenv(name)});
        qputenv("HOME", box_.home().toUtf8());
        qputenv("TMPDIR", box_.tmp().toUtf8());
        qputenv("VELMORA_SYSROOT", box_.sysroot().toUtf8());
        ASSERT_TRUE(box_.installFakeTools());
        launch_ = QDateTime::currentDateTimeUtc().addSecs(-3600);
    }
    void TearDown() override
    {
        for (const auto& [name, value] : saved_)
            qputenv(name, value);
    }

    QString datesFile() const { return box_.homePath(QStringLiteral("Library/Preferences/dates.plist")); }
    void writeDates(std::optional<QDateTime> launch, std::optional<QDateTime> exit)
    {
        QVariantMap dates;
        if (launch)
            dates.insert(VLBugReporter::launchKey(), *launch);
        if (exit)
            dates.insert(VLBugReporter::exitKey(), *exit);
        ASSERT_TRUE(box_.writePlist(datesFile(), dates));
    }
    // A crash report in <log folder>/<sub>, modified `minutes` after the launch date.
    QString report(bool user, const QString& sub, const QString& name, int minutes)
    {
        const QString folder = user ? box_.homePath(QStringLiteral("Library/Logs/")) : box_.sysPath(QStringLiteral("/Library/Logs/"));
        const QString path = folder + sub + QLatin1Char('/') + name;
        EXPECT_TRUE(box_.writeFile(path, "crash"));
        QFile f(path);
        EXPECT_TRUE(f.open(QIODevice::ReadWrite));
        EXPECT_TRUE(f.setFileTime(launch_.addSecs(60 * minutes), QFileDevice::FileModificationTime));
        return path;
    }
    // The switch lives in the vendor's shared preferences file.
    void setSwitch(const QVariant& value)
    {
        QVariantMap shared = sys::readGlobalPreferences();
        if (value.isValid())
            shared.insert(QStringLiteral("disable-crash-reporter"), value);
        else
            shared.remove(QStringLiteral("disable-crash-reporter"));
        ASSERT_TRUE(sys::writeGlobalPreferences(shared));
    }
    void disableReporter() { setSwitch(QStringLiteral("1")); }
    void enableReporter() { setSwitch(QVariant()); }

    Sandbox box_;
    QDateTime launch_;
    QList<std::pair<const char*, QByteArray>> saved_;
};

TEST_F(VLBugReporterTest, DatesDecideWhetherThePreviousRunCrashed)
{
    disableReporter();
    report(true, QStringLiteral("CrashReporter"), QStringLiteral("Demo_new.crash"), 5);
    struct Case { const char* what; std::optional<int> launchMin; std::optional<int> exitMin; bool crashed; };
    const Case cases[] = {
        {"no launch date", std::nullopt, 0, false},
        {"exit equal to launch is a normal end", 0, 0, false},
        {"exit after launch", 0, 1, false},
        {"exit before launch", 0, -10, true},
        {"no exit date", 0, std::nullopt, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        auto at = [&](std::optional<int> m) { return m ? std::optional(launch_.addSecs(60 * *m)) : std::nullopt; };
        writeDates(at(c.launchMin), at(c.exitMin));
        EXPECT_EQ(VLBugReporter::checkForCrashes(QStringLiteral("Demo"), datesFile()).has_value(), c.crashed);
    }
}

TEST_F(VLBugReporterTest, PicksTheLastMatchingReportOfTheFirstFolderThatHasANewOne)
{
    disableReporter();
    writeDates(launch_, std::nullopt);
    // Older than the launch: ignored although the previous run never recorded its exit.
    report(true, QStringLiteral("CrashReporter"), QStringLiteral("Demo_2020.crash"), -30);
    EXPECT_FALSE(VLBugReporter::checkForCrashes(QStringLiteral("Demo"), datesFile()));

    // The machine's folders are searched after the user's.
    const QString machine = report(false, QStringLiteral("DiagnosticReports"), QStringLiteral("demo_m.ips"), 3);
    EXPECT_EQ(VLBugReporter::checkForCrashes(QStringLiteral("Demo"), datesFile()), machine);

    // Only "<name>_" prefixes count, in any case; the last in listing order (names by code
    // unit, so "demo_" after "Demo_") wins when newer, even if an earlier one is newer still.
    report(true, QStringLiteral("DiagnosticReports"), QStringLiteral("Demo_b.ips"), 8);
    const QString last = report(true, QStringLiteral("DiagnosticReports"), QStringLiteral("demo_a.ips"), 2);
    report(true, QStringLiteral("DiagnosticReports"), QStringLiteral("Demolition_z.ips"), 9);
    report(true, QStringLiteral("DiagnosticReports"), QStringLiteral("Other_z.ips"), 9);
    EXPECT_EQ(VLBugReporter::checkForCrashes(QStringLiteral("demo"), datesFile()), last);

    // The last entry of the first folder is too old: that folder yields nothing, not an older one.
    report(true, QStringLiteral("CrashReporter"), QStringLiteral("Demo_0001.crash"), 4);
    EXPECT_EQ(VLBugReporter::checkForCrashes(QStringLiteral("Demo"), datesFile()), last);
}

TEST_F(VLBugReporterTest, OpensTheReportWithTheBugReporterUnlessDisabled)
{
    writeDates(launch_, launch_.addSecs(-1));
    const QString crash = report(true, QStringLiteral("CrashReporter"), QStringLiteral("Demo_x.crash"), 1);
    // No Bug Reporter installed: the desktop opener gets the report.
    EXPECT_EQ(VLBugReporter::checkForCrashes(QStringLiteral("Demo"), datesFile()), crash);
    QDeadlineTimer opener(10000);
    while (box_.toolCalls(QStringLiteral("xdg-open")).isEmpty() && !opener.hasExpired())
        QThread::msleep(20);
    const QList<QStringList> opened{{QStringLiteral("xdg-open"), crash}};
    EXPECT_EQ(box_.toolCalls(QStringLiteral("xdg-open")), opened);

    const QString seen = box_.tmpPath(QStringLiteral("opened.txt"));
    vltest::FakeBundle reporter;
    reporter.path = box_.sysPath(QStringLiteral("/Applications/Utilities/Bug Reporter.app"));
    reporter.identifier = QStringLiteral("com.velmora.BugReporter");
    reporter.executable = "#!/bin/sh\nprintf '%s' \"$1\" > '" + seen.toUtf8() + "'\n";
    ASSERT_FALSE(box_.createBundle(reporter).isEmpty());

    disableReporter();
    EXPECT_EQ(VLBugReporter::checkForCrashes(QStringLiteral("Demo"), datesFile()), crash);
    QThread::msleep(300);
    EXPECT_FALSE(QFile::exists(seen));

    enableReporter();
    EXPECT_EQ(VLBugReporter::checkForCrashes(QStringLiteral("Demo"), datesFile()), crash);
    QDeadlineTimer deadline(10000);
    while (!QFile::exists(seen) && !deadline.hasExpired())
        QThread::msleep(20);
    QFile byReporter(seen);
    ASSERT_TRUE(byReporter.open(QIODevice::ReadOnly));
    EXPECT_EQ(QString::fromUtf8(byReporter.readAll()), crash);
    EXPECT_EQ(box_.toolCalls(QStringLiteral("xdg-open")).size(), 1);
}

TEST_F(VLBugReporterTest, TheSwitchIsReadFromTheSharedVendorFileOnly)
{
    writeDates(launch_, std::nullopt);
    report(true, QStringLiteral("CrashReporter"), QStringLiteral("Demo_x.crash"), 1);
    struct Case { const char* what; QVariant shared; QVariant ownDefaults; bool disabled; };
    const Case cases[] = {
        {"text 1", QStringLiteral("1"), QVariant(), true},
        {"boolean YES", true, QVariant(), true},
        {"text 0", QStringLiteral("0"), QVariant(), false},
        {"boolean NO", false, QVariant(), false},
        {"set only in the updater's own defaults", QVariant(), QStringLiteral("1"), false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        setSwitch(c.shared);
        auto& own = sys::UserDefaults::standard();
        if (c.ownDefaults.isValid())
            own.setObject(c.ownDefaults, QStringLiteral("disable-crash-reporter"));
        else
            own.removeObjectForKey(QStringLiteral("disable-crash-reporter"));
        const QByteArray printed = vltest::captureStdout([&] {
            EXPECT_TRUE(VLBugReporter::checkForCrashes(QStringLiteral("Demo"), datesFile()).has_value());
            VLLog::finishWriting(); // the writer echoes its lines: all of this case's, none later
        });
        EXPECT_EQ(printed.contains("Crash reporter disabled"), c.disabled) << printed.constData();
    }
    sys::UserDefaults::standard().removeObjectForKey(QStringLiteral("disable-crash-reporter"));
}

TEST_F(VLBugReporterTest, StartAndStopRecordTheDatesAndTellTheDelegate)
{
    disableReporter();
    writeDates(launch_, std::nullopt);
    const QString crash = report(true, QStringLiteral("CrashReporter"), QStringLiteral("Demo_x.crash"), 1);
    CrashDelegate delegate;
    VLBugReporter::startBugReporter(QStringLiteral("Demo"), datesFile(), &delegate);
    EXPECT_TRUE(delegate.reports.isEmpty()); // queued, never called while the caller waits
    QCoreApplication::processEvents();
    EXPECT_EQ(delegate.reports, QStringList{crash});

    const auto afterStart = plist::readDictionaryFile(datesFile());
    ASSERT_TRUE(afterStart);
    EXPECT_GT(afterStart->value(VLBugReporter::launchKey()).toDateTime(), launch_);
    // The new launch date is later than the report: this run is not seen as crashed.
    EXPECT_FALSE(VLBugReporter::checkForCrashes(QStringLiteral("Demo"), datesFile()));

    VLBugReporter::stopBugReporter(datesFile());
    const auto afterStop = plist::readDictionaryFile(datesFile());
    ASSERT_TRUE(afterStop);
    EXPECT_GE(afterStop->value(VLBugReporter::exitKey()).toDateTime(),
              afterStop->value(VLBugReporter::launchKey()).toDateTime());

    // Without a file the dates go to the user defaults.
    VLBugReporter::startBugReporter(QStringLiteral("Demo"), QString());
    VLBugReporter::stopBugReporter();
    const auto defaults = plist::readDictionaryFile(box_.userPreferencesFile(sys::UserDefaults::standardDomain()));
    ASSERT_TRUE(defaults);
    EXPECT_TRUE(defaults->value(VLBugReporter::launchKey()).toDateTime().isValid());
    EXPECT_TRUE(defaults->value(VLBugReporter::exitKey()).toDateTime().isValid());
}

TEST_F(VLBugReporterTest, ChownGivesAFileUnderUsersBackToThatUser)
{
    const QString inUsers = box_.sysPath(QStringLiteral("/Users/bob/Library/Preferences/dates.plist"));
    ASSERT_TRUE(box_.makeDir(box_.sysPath(QStringLiteral("/Users/bob/Library/Preferences"))));
    VLBugReporter::stopBugReporter(inUsers);
    VLBugReporter::chownPlist(QStringLiteral("/var/Users"));
    VLBugReporter::chownPlist(QStringLiteral("/home/bob/dates.plist"));
    const auto calls = box_.toolCalls(QStringLiteral("chown"));
    ASSERT_EQ(calls.size(), 1);
    EXPECT_EQ(calls.first(), (QStringList{QStringLiteral("chown"), QStringLiteral("bob"), inUsers}));
    EXPECT_TRUE(QFile::exists(inUsers));
}

} // namespace

#include "VLBugReporterTest.moc"
