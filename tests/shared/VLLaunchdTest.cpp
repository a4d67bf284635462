// Launchd jobs against recording fake tools in a sandboxed system root: where job files go, the
// rewrite on every start, the systemd units of the updater's weekly job, hostile labels, and a
// job file that cannot be written (this executable again, as "nobody").
#include "VLFileManagerTestSupport.h"

#include "shared/VLAuthorization.h"
#include "shared/VLLaunchd.h"
#include "shared/VLLog.h"
#include "support/ScriptedAlertPresenter.h"

#include "platform/plist/PropertyList.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

#include <sys/stat.h>

namespace {

const QString kLabel = QStringLiteral("com.velmora.SoftwareUpdateAutoCheck");

// The updater's scheduled-check job, as it hands it over.
QVariantMap weeklyJob(const QString& program)
{
    return {{QStringLiteral("Label"), kLabel},
            {QStringLiteral("Program"), program},
            {QStringLiteral("ProgramArguments"), QVariantList{QStringLiteral("Velmora Software Update"), QStringLiteral("-autocheck")}},
            {QStringLiteral("StartCalendarInterval"),
             QVariantList{QVariantMap{{QStringLiteral("Weekday"), 1}, {QStringLiteral("Hour"), 9}, {QStringLiteral("Minute"), 0}}}}};
}

QString readText(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

class VLLaunchdSandbox : public vltest::FileOpsSandboxTest {
protected:
    void SetUp() override
    {
        FileOpsSandboxTest::SetUp();
        QDir().mkpath(sandbox.sysPath(QStringLiteral("/Library/Logs/Velmora")));
        QDir().mkpath(sandbox.homePath(QStringLiteral("Library/Logs/Velmora")));
        VLLog::resetForTesting();
        VLLog::createNewLog(QString(), true);
    }
    void TearDown() override { VLLog::resetForTesting(); }

    void clearCalls() { QFile(sandbox.toolLogPath()).resize(0); }
    QString userUnits(const QString& name) const { return sandbox.homePath(QStringLiteral(".config/systemd/user/") + name); }
    static QString logText()
    {
        VLLog::finishWriting();
        return readText(VLLog::currentLogPath());
    }
    QVariantMap job(const QString& label) const
    {
        return {{QStringLiteral("Label"), label}, {QStringLiteral("Program"), sandbox.sysPath(QStringLiteral("/usr/bin/agent"))}};
    }
};

TEST_F(VLLaunchdSandbox, JobFilesAndUnitsGoWhereUserAndKindSay)
{
    struct Row {
        bool user, agent;
        QString file, units;
        QStringList manager; // systemctl's leading arguments
    };
    const QString label = QStringLiteral("com.velmora.Job");
    const QString machineUnits = sandbox.sysPath(QStringLiteral("/etc/systemd/system/"));
    const Row rows[] = {
        {true, true, sandbox.homePath(QStringLiteral("Library/LaunchAgents/com.velmora.Job.plist")), userUnits(QString()), {QStringLiteral("--user")}},
        {true, false, sandbox.homePath(QStringLiteral("Library/LaunchDaemons/com.velmora.Job.plist")), userUnits(QString()), {QStringLiteral("--user")}},
        {false, true, sandbox.sysPath(QStringLiteral("/Library/LaunchAgents/com.velmora.Job.plist")), machineUnits, {}},
        {false, false, sandbox.sysPath(QStringLiteral("/Library/LaunchDaemons/com.velmora.Job.plist")), machineUnits, {}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.file.toStdString());
        clearCalls();
        ASSERT_TRUE(VLLaunchd::startJob(label, job(label), row.user, row.agent, false, QString()));
        EXPECT_EQ(sandbox.readPlist(row.file), QVariant(job(label)));
        EXPECT_TRUE(QFileInfo::exists(row.units + QStringLiteral("com.velmora.Job.service")));
        const QStringList enable = QStringList{QStringLiteral("systemctl")} + row.manager
                                   + QStringList{QStringLiteral("enable"), QStringLiteral("--now"), QStringLiteral("com.velmora.Job.service")};
        EXPECT_EQ(sandbox.toolCalls(QStringLiteral("systemctl")).value(1), enable);
        // Only a machine-wide job changes owner.
        EXPECT_EQ(sandbox.toolCalls(QStringLiteral("chown")).size(), row.user ? 0 : 1);

        VLLaunchd::removeJob(label, row.user, row.agent, false);
        EXPECT_FALSE(QFileInfo::exists(row.file));
        EXPECT_FALSE(QFileInfo::exists(row.units + QStringLiteral("com.velmora.Job.service")));
    }
}

TEST_F(VLLaunchdSandbox, EveryStartRewritesAndReloadsTheWeeklyJob)
{
    const QString program = sandbox.sysPath(QStringLiteral("/Applications/Velmora Software Update.app/Contents/MacOS/SoftwareUpdate"));
    const QString file = sandbox.homePath(QStringLiteral("Library/LaunchAgents/") + kLabel + QStringLiteral(".plist"));
    const mode_t oldMask = ::umask(077); // so that only the chmod can make the file 644
    ASSERT_TRUE(VLLaunchd::startLaunchAgent(kLabel, weeklyJob(program), true));

    EXPECT_EQ(readText(userUnits(kLabel + QStringLiteral(".service"))),
              QStringLiteral("# Written from the launchd job %1 each time it is loaded.\n\n[Unit]\nDescription=%1\n\n"
                             "[Service]\nExecStart=@\"%2\" \"Velmora Software Update\" -autocheck\n").arg(kLabel, program));
    EXPECT_EQ(readText(userUnits(kLabel + QStringLiteral(".timer"))),
              QStringLiteral("# Written from the launchd job %1 each time it is loaded.\n\n[Unit]\nDescription=%1\n\n"
                             "[Timer]\nOnCalendar=Mon *-*-* 09:00:00\nPersistent=true\n\n[Install]\nWantedBy=timers.target\n").arg(kLabel));

    // An identical job file is still removed, rewritten, unloaded and loaded again. A second link
    // keeps the old file alive, so the new one cannot reuse its inode.
    const QString oldFile = sandbox.tmpPath(QStringLiteral("old.plist"));
    ASSERT_EQ(::link(QFile::encodeName(file).constData(), QFile::encodeName(oldFile).constData()), 0);
    clearCalls();
    ASSERT_TRUE(VLLaunchd::startLaunchAgent(kLabel, weeklyJob(program), true));
    ::umask(oldMask);
    const QString timer = kLabel + QStringLiteral(".timer");
    const QString user = QStringLiteral("--user");
    const QString systemctl = QStringLiteral("systemctl");
    EXPECT_EQ(sandbox.toolCalls(), (QList<QStringList>{
                                       {systemctl, user, QStringLiteral("disable"), QStringLiteral("--now"), timer},
                                       {systemctl, user, QStringLiteral("daemon-reload")},
                                       {QStringLiteral("chmod"), QStringLiteral("644"), file},
                                       {systemctl, user, QStringLiteral("daemon-reload")},
                                       {systemctl, user, QStringLiteral("enable"), QStringLiteral("--now"), timer},
                                   }));
    struct stat before {}, after {};
    ASSERT_EQ(::stat(QFile::encodeName(oldFile).constData(), &before), 0);
    ASSERT_EQ(::stat(QFile::encodeName(file).constData(), &after), 0);
    EXPECT_NE(after.st_ino, before.st_ino);
    EXPECT_EQ(after.st_mode & 07777, 0644u);
    EXPECT_EQ(after.st_uid, ::geteuid());
    EXPECT_EQ(sandbox.readPlist(file), QVariant(weeklyJob(program)));
}

TEST_F(VLLaunchdSandbox, RemovingTheAgentAlwaysMeansTheUsersOwn)
{
    ASSERT_TRUE(VLLaunchd::startJob(kLabel, job(kLabel), true, true, false, QString()));
    ASSERT_TRUE(VLLaunchd::startJob(kLabel, job(kLabel), false, true, false, QString()));
    VLLaunchd::removeLaunchAgent(kLabel, false);
    EXPECT_FALSE(QFileInfo::exists(sandbox.homePath(QStringLiteral("Library/LaunchAgents/") + kLabel + QStringLiteral(".plist"))));
    EXPECT_TRUE(QFileInfo::exists(sandbox.sysPath(QStringLiteral("/Library/LaunchAgents/") + kLabel + QStringLiteral(".plist"))));
    EXPECT_TRUE(QFileInfo::exists(sandbox.sysPath(QStringLiteral("/etc/systemd/system/") + kLabel + QStringLiteral(".service"))));
}

TEST_F(VLLaunchdSandbox, LabelsThatLeaveTheJobFolderAreRefused)
{
    const QString victim = sandbox.homePath(QStringLiteral("Library/victim.plist"));
    ASSERT_TRUE(sandbox.writePlist(victim, job(QStringLiteral("victim"))));
    for (const QString& label : {QStringLiteral("../victim"), QStringLiteral("a/b"), QStringLiteral("..")}) {
        EXPECT_FALSE(VLLaunchd::startJob(label, job(label), true, true, false, QString()));
        VLLaunchd::removeJob(label, true, true, false);
    }
    EXPECT_TRUE(QFileInfo::exists(victim));
    EXPECT_EQ(logText().count(QStringLiteral("Error: Invalid launchd job label")), 6);
    VLLaunchd::stopJob(QString(), true, true, false); // no label: nothing at all

    // A hostile Label inside a job file is refused by the job service: no unit anywhere.
    ASSERT_TRUE(VLLaunchd::startJob(QStringLiteral("com.velmora.ok"), job(QStringLiteral("../../../evil")), true, true, false, QString()));
    EXPECT_TRUE(logText().contains(QStringLiteral("cannot name a unit")));
    EXPECT_TRUE(sandbox.toolCalls(QStringLiteral("systemctl")).isEmpty());
    EXPECT_FALSE(QFileInfo::exists(sandbox.home() + QStringLiteral("/evil.service")));
}

// ---- a job file that cannot be written: this executable again, as "nobody" ----------------

// Runs in the child only; skipped in ordinary runs.
TEST(VLLaunchdChild, Run)
{
    if (qEnvironmentVariable("VLLAUNCHD_CHILD").isEmpty())
        GTEST_SKIP() << "runs only as the unprivileged child of the launchd tests";
    ASSERT_FALSE(VLAuthorization::isRoot());
    VLAuthorization::sharedController(false); // no password dialog: the privileged move fails at once
    VLLog::createNewLog(QString(), true);
    QObject window;
    auto presenter = std::make_shared<vltest::ScriptedAlertPresenter>();
    presenter->window = &window;
    presenter->script(vltest::ScriptedAlertPresenter::When::AtOnce);
    VLAlert::setPresenter(presenter);
    EXPECT_FALSE(VLLaunchd::startLaunchAgent(kLabel, {{QStringLiteral("Label"), kLabel}}, true));
    VLAlert::setPresenter(nullptr);
    ASSERT_EQ(presenter->alerts.size(), 1);
    EXPECT_EQ(presenter->alerts[0]->messageText, qEnvironmentVariable("VLLAUNCHD_ALERT"));
    EXPECT_EQ(presenter->alerts[0]->informativeText,
              QStringLiteral("Please check you have correct permissions for the directory %1.").arg(qEnvironmentVariable("VLLAUNCHD_FOLDER")));
    EXPECT_EQ(presenter->alerts[0]->window, &window);
    VLLog::finishWriting();
}

TEST_F(VLLaunchdSandbox, UnwritableJobFileIsLoggedReportedAndShown)
{
    const std::optional<uint> nobody = vltest::Sandbox::unprivilegedUid();
    if (!nobody)
        GTEST_SKIP() << "needs root to run a child as an unprivileged user";
    ASSERT_TRUE(sandbox.giveHomeTo(*nobody));
    const QString folder = sandbox.homePath(QStringLiteral("Library/LaunchAgents"));
    ASSERT_TRUE(sandbox.makeDir(folder)); // root's, so "nobody" cannot write in it
    const QString logged = QStringLiteral("Error: Unable to create LaunchAgent. Please check you have correct permissions for the directory ") + folder;
    struct Row {
        const char* rule;
        bool temporaryWritable;
        QString alert, console;
    };
    const Row rows[] = {
        {"the temporary copy fails too", false, QStringLiteral("Error: Unable to write LaunchAgent data"),
         QStringLiteral("Error: Unable to write LaunchAgent data. Please check you have correct permissions for the directory ") + folder},
        {"the privileged move fails", true, QStringLiteral("Error: Unable to create LaunchAgent"), logged},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.rule);
        ::chmod(QFile::encodeName(sandbox.tmp()).constData(), row.temporaryWritable ? 0777 : 0555);
        vltest::RunOptions options;
        options.uid = nobody;
        options.extraEnv = {{QStringLiteral("VLLAUNCHD_CHILD"), QStringLiteral("1")},
                            {QStringLiteral("VLLAUNCHD_ALERT"), row.alert},
                            {QStringLiteral("VLLAUNCHD_FOLDER"), folder}};
        const vltest::RunResult result =
            sandbox.run(QCoreApplication::applicationFilePath(), {QStringLiteral("--gtest_filter=VLLaunchdChild.Run")}, options);
        ASSERT_EQ(result.exitCode, 0) << result.describe().toStdString();
        EXPECT_TRUE(result.err().contains(row.console)) << result.err().toStdString();
        const QString log = readText(sandbox.homePath(QStringLiteral("Library/Logs/Velmora/VLLaunchdTest.1.log")));
        EXPECT_TRUE(log.contains(logged)) << log.toStdString();
        EXPECT_EQ(log.contains(QStringLiteral("Unable to write launchd plist - trying to authorize...")), row.temporaryWritable);
        EXPECT_FALSE(QFileInfo::exists(sandbox.tmpPath(kLabel + QStringLiteral(".plist"))));
    }
    EXPECT_TRUE(sandbox.toolCalls(QStringLiteral("systemctl")).isEmpty());
}

} // namespace
