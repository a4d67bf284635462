// Launchd jobs against recording fake tools in a sandboxed system root: where job files go, the
// rewrite on every start, hostile labels, and a job file that cannot be written (this executable
// again, as "nobody"). The unit texts themselves are the systemd units' tests' concern.
#include "VLFileManagerTestSupport.h"

#include "shared/VLAuthorization.h"
#include "shared/VLLaunchd.h"
#include "shared/VLLog.h"
#include "support/LogFixture.h"
#include "support/ScriptedAlertPresenter.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

#include <sys/stat.h>

namespace {

const QString kLabel = QStringLiteral("com.velmora.SoftwareUpdateAutoCheck");

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

    QVariantMap job(const QString& label) const
    {
        return {{QStringLiteral("Label"), label}, {QStringLiteral("Program"), sandbox.sysPath(QStringLiteral("/usr/bin/agent"))}};
    }
};

TEST_F(VLLaunchdSandbox, JobFilesAndUnitsGoWhereUserAndKindSay)
{
    const QString userUnits = sandbox.homePath(QStringLiteral(".config/systemd/user/com.velmora.Job.service"));
    const QString machineUnits = sandbox.sysPath(QStringLiteral("/etc/systemd/system/com.velmora.Job.service"));
    const struct {
        bool user, agent;
        QString file, unit;
    } rows[] = {
        {true, true, sandbox.homePath(QStringLiteral("Library/LaunchAgents/com.velmora.Job.plist")), userUnits},
        {false, false, sandbox.sysPath(QStringLiteral("/Library/LaunchDaemons/com.velmora.Job.plist")), machineUnits},
    };
    const QString label = QStringLiteral("com.velmora.Job");
    for (const auto& row : rows) {
        SCOPED_TRACE(row.file.toStdString());
        QFile(sandbox.toolLogPath()).resize(0);
        ASSERT_TRUE(VLLaunchd::startJob(label, job(label), row.user, row.agent, false, QString()));
        EXPECT_EQ(sandbox.readPlist(row.file), QVariant(job(label)));
        EXPECT_TRUE(QFileInfo::exists(row.unit));
        EXPECT_EQ(sandbox.toolCalls(QStringLiteral("systemctl")).value(1).contains(QStringLiteral("--user")), row.user);
        EXPECT_EQ(sandbox.toolCalls(QStringLiteral("chown")).size(), row.user ? 0 : 1); // only a machine-wide job changes owner
        VLLaunchd::removeJob(label, row.user, row.agent, false);
        EXPECT_FALSE(QFileInfo::exists(row.file) || QFileInfo::exists(row.unit));
    }
}

TEST_F(VLLaunchdSandbox, EveryStartRewritesAndReloadsTheJob)
{
    const QString file = sandbox.homePath(QStringLiteral("Library/LaunchAgents/") + kLabel + QStringLiteral(".plist"));
    QVariantMap settings = job(kLabel);
    settings.insert(QStringLiteral("StartCalendarInterval"), QVariantList{QVariantMap{{QStringLiteral("Weekday"), 1}, {QStringLiteral("Hour"), 9}}});
    const mode_t oldMask = ::umask(077); // so that only the chmod can make the file 644
    ASSERT_TRUE(VLLaunchd::startLaunchAgent(kLabel, settings, true));
    // An identical job file is still removed, rewritten, unloaded and loaded again. A second link
    // keeps the old file alive, so the new one cannot reuse its inode.
    const QString oldFile = sandbox.tmpPath(QStringLiteral("old.plist"));
    ASSERT_EQ(::link(QFile::encodeName(file).constData(), QFile::encodeName(oldFile).constData()), 0);
    QFile(sandbox.toolLogPath()).resize(0);
    ASSERT_TRUE(VLLaunchd::startLaunchAgent(kLabel, settings, true));
    ::umask(oldMask);
    const QString timer = kLabel + QStringLiteral(".timer");
    const QString systemctl = QStringLiteral("systemctl");
    const QString user = QStringLiteral("--user");
    EXPECT_EQ(sandbox.toolCalls(), (QList<QStringList>{{systemctl, user, QStringLiteral("disable"), QStringLiteral("--now"), timer},
                                                       {systemctl, user, QStringLiteral("daemon-reload")},
                                                       {QStringLiteral("chmod"), QStringLiteral("644"), file},
                                                       {systemctl, user, QStringLiteral("daemon-reload")},
                                                       {systemctl, user, QStringLiteral("enable"), QStringLiteral("--now"), timer}}));
    struct stat before {}, after {};
    ASSERT_EQ(::stat(QFile::encodeName(oldFile).constData(), &before), 0);
    ASSERT_EQ(::stat(QFile::encodeName(file).constData(), &after), 0);
    EXPECT_NE(after.st_ino, before.st_ino);
    EXPECT_EQ(after.st_mode & 07777, 0644u);
    EXPECT_EQ(sandbox.readPlist(file), QVariant(settings));
}

TEST_F(VLLaunchdSandbox, AgentRemovalAlwaysMeansTheUsersOwnAndHostileLabelsAreRefused)
{
    ASSERT_TRUE(VLLaunchd::startJob(kLabel, job(kLabel), true, true, false, QString()));
    ASSERT_TRUE(VLLaunchd::startJob(kLabel, job(kLabel), false, true, false, QString()));
    VLLaunchd::removeLaunchAgent(kLabel, false);
    EXPECT_FALSE(QFileInfo::exists(sandbox.homePath(QStringLiteral("Library/LaunchAgents/") + kLabel + QStringLiteral(".plist"))));
    EXPECT_TRUE(QFileInfo::exists(sandbox.sysPath(QStringLiteral("/Library/LaunchAgents/") + kLabel + QStringLiteral(".plist"))));

    const QString victim = sandbox.homePath(QStringLiteral("Library/victim.plist"));
    ASSERT_TRUE(sandbox.writePlist(victim, job(QStringLiteral("victim"))));
    QFile(sandbox.toolLogPath()).resize(0);
    for (const QString& label : {QStringLiteral("../victim"), QStringLiteral("a/b"), QStringLiteral("..")}) {
        EXPECT_FALSE(VLLaunchd::startJob(label, job(label), true, true, false, QString()));
        VLLaunchd::removeJob(label, true, true, false);
    }
    EXPECT_TRUE(QFileInfo::exists(victim));
    EXPECT_EQ(vltest::LogFixture::logText().count(QStringLiteral("Error: Invalid launchd job label")), 6);
    // A hostile Label inside a job file is refused by the job service: no unit is loaded.
    ASSERT_TRUE(VLLaunchd::startJob(QStringLiteral("com.velmora.ok"), job(QStringLiteral("../../../evil")), true, true, false, QString()));
    EXPECT_TRUE(vltest::LogFixture::logText().contains(QStringLiteral("cannot name a unit")));
    EXPECT_TRUE(sandbox.toolCalls(QStringLiteral("systemctl")).isEmpty());
}

// ---- a job file that cannot be written: this executable again, as "nobody" ----------------

// Runs in the child only; skipped in ordinary runs.
TEST(VLLaunchdChild, Run)
{
    if (qEnvironmentVariable("VLLAUNCHD_CHILD").isEmpty())
        GTEST_SKIP() << "runs only as the unprivileged child of the launchd tests";
    VLAuthorization::sharedController(false); // no password dialog: the privileged move fails at once
    VLLog::createNewLog(QString(), true);
    QObject window;
    auto presenter = std::make_shared<vltest::ScriptedAlertPresenter>();
    presenter->window = &window;
    presenter->unscripted = vltest::ScriptedAlertPresenter::When::AtOnce;
    VLAlert::setPresenter(presenter);
    EXPECT_FALSE(VLLaunchd::startLaunchAgent(kLabel, {{QStringLiteral("Label"), kLabel}}, true));
    VLAlert::setPresenter(nullptr);
    ASSERT_EQ(presenter->alerts.size(), 1);
    EXPECT_EQ(presenter->alerts[0]->messageText, qEnvironmentVariable("VLLAUNCHD_ALERT"));
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
    // Whether the temporary folder takes the copy, the alert's text, the console's.
    const std::tuple<bool, QString, QString> rows[] = {
        {false, QStringLiteral("Error: Unable to write LaunchAgent data"),
         QStringLiteral("Error: Unable to write LaunchAgent data. Please check you have correct permissions for the directory ") + folder},
        {true, QStringLiteral("Error: Unable to create LaunchAgent"), logged},
    };
    for (const auto& [temporaryWritable, alert, console] : rows) {
        SCOPED_TRACE(temporaryWritable ? "the privileged move fails" : "the temporary copy fails too");
        ::chmod(QFile::encodeName(sandbox.tmp()).constData(), temporaryWritable ? 0777 : 0555);
        const vltest::RunResult result = sandbox.run(QCoreApplication::applicationFilePath(), {QStringLiteral("--gtest_filter=VLLaunchdChild.Run")},
            {.uid = nobody, .extraEnv = {{QStringLiteral("VLLAUNCHD_CHILD"), QStringLiteral("1")}, {QStringLiteral("VLLAUNCHD_ALERT"), alert}}});
        ASSERT_EQ(result.exitCode, 0) << result.describe().toStdString();
        EXPECT_TRUE(result.err().contains(console)) << result.err().toStdString();
        const QString log = QString::fromUtf8(sandbox.readFile(sandbox.homePath(QStringLiteral("Library/Logs/Velmora/VLLaunchdTest.1.log"))));
        EXPECT_TRUE(log.contains(logged)) << log.toStdString();
        EXPECT_EQ(log.contains(QStringLiteral("Unable to write launchd plist - trying to authorize...")), temporaryWritable);
        EXPECT_FALSE(QFileInfo::exists(sandbox.tmpPath(kLabel + QStringLiteral(".plist"))));
    }
    EXPECT_TRUE(sandbox.toolCalls(QStringLiteral("systemctl")).isEmpty());
}

} // namespace
