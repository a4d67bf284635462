// The privileged tool runner as an unprivileged process sees it: one prompt for every operation
// of the process (from several threads at once), refusals that leave the channel usable, a
// runner that ends with its parent however the parent ends, and a runner that takes requests
// from nowhere but its own socket. The unprivileged side runs this executable again as "nobody".
#include "VLFileManagerTestSupport.h"

#include "shared/VLAuthorization.h"
#include "shared/VLAuthorizationProtocol.h"
#include "support/ChildProcess.h"

#include "platform/system/SystemEnvironment.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFileInfo>

#include <csignal>
#include <thread>
#include <vector>

namespace {

// Runs in the child only (VLAC_CHILD names the case); skipped in ordinary runs.
TEST(VLAuthorizationChannelChild, Run)
{
    const QString scenario = qEnvironmentVariable("VLAC_CHILD");
    if (scenario.isEmpty())
        GTEST_SKIP() << "runs only as the unprivileged child of the channel tests";
    ASSERT_FALSE(VLAuthorization::isRoot());
    VLAuthorization& auth = VLAuthorization::sharedController(true);
    const QString mkdir = sys::rooted(QStringLiteral("/bin/mkdir"));
    const QString work = qEnvironmentVariable("TMPDIR") + QStringLiteral("/work");
    if (scenario == QStringLiteral("many")) {
        std::vector<std::jthread> threads;
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([&auth, &mkdir, &work, t] {
                for (int i = 0; i < 5; ++i)
                    EXPECT_EQ(auth.authExecTask(mkdir, {QStringLiteral("-p"), QStringLiteral("%1/t%2-%3").arg(work).arg(t).arg(i)}, i % 2 == 0), 0);
            });
        }
        threads.clear();
        // Arguments travel as they are, separators and all.
        EXPECT_EQ(auth.authExecTask(mkdir, {QStringLiteral("-p"), work + QStringLiteral("/line\nbreak, 12:x,")}, false), 0);
    } else if (scenario == QStringLiteral("refusals")) {
        // The user refuses the first prompt: not authorised, and the next operation asks again.
        EXPECT_EQ(auth.authExecTask(mkdir, {QStringLiteral("-p"), work}, false), -1);
        EXPECT_FALSE(auth.isAuthorized());
        qunsetenv("FAKE_PKEXEC_DENY");
        // A relative tool path (it exists from the working folder) and an argument an argument
        // vector cannot carry are refused by the runner; the channel stays open.
        ASSERT_TRUE(QFileInfo::exists(QStringLiteral("sysroot/bin/mkdir")));
        EXPECT_EQ(auth.authExecTask(QStringLiteral("sysroot/bin/mkdir"), {QStringLiteral("-p"), work}, false), -1);
        EXPECT_TRUE(auth.isAuthorized());
        EXPECT_EQ(auth.authExecTask(mkdir, {QStringLiteral("-p"), work + QChar(0) + QStringLiteral("x")}, false), -1);
        EXPECT_EQ(auth.authExecTask(mkdir, {QStringLiteral("-p"), work}, false), 0);
        // Letting the grant go means the next operation asks again.
        auth.authEnd();
        EXPECT_FALSE(auth.isAuthorized());
        EXPECT_EQ(auth.authExecTask(mkdir, {QStringLiteral("-p"), work + QStringLiteral("/again")}, false), 0);
    } else if (scenario == QStringLiteral("hold")) {
        // Waits for a slow tool until the test kills this process.
        (void)auth.authExecTask(sys::rooted(QStringLiteral("/usr/bin/touch")), {QStringLiteral("-c"), work}, false);
        ADD_FAILURE() << "the slow tool returned before this process was killed";
    }
}

class VLAuthorizationChannelTest : public vltest::FileOpsSandboxTest {
protected:
    void SetUp() override
    {
        FileOpsSandboxTest::SetUp();
        if (!vltest::Sandbox::unprivilegedUid())
            GTEST_SKIP() << "needs root to run a child as an unprivileged user";
        ASSERT_TRUE(sandbox.giveHomeTo(*vltest::Sandbox::unprivilegedUid()));
    }
    void TearDown() override
    {
        // A tool a killed child left running (the slow one) goes with the sandbox.
        for (qint64 pid : sandboxProcesses())
            ::kill(pid_t(pid), SIGKILL);
    }

    vltest::RunResult runChild(const QString& scenario, QMap<QString, QString> extra = {})
    {
        extra.insert(QStringLiteral("VLAC_CHILD"), scenario);
        return sandbox.run(QCoreApplication::applicationFilePath(), {QStringLiteral("--gtest_filter=VLAuthorizationChannelChild.Run")},
                           {.uid = vltest::Sandbox::unprivilegedUid(), .extraEnv = extra});
    }

    // Processes started for this sandbox (their environment names its system root), or only
    // the privileged tool runners among them.
    QList<qint64> sandboxProcesses(bool runnersOnly = false) const
    {
        QList<qint64> found;
        const QByteArray marker = "VELMORA_SYSROOT=" + QFile::encodeName(sandbox.sysroot()) + '\0';
        for (const QString& pid : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs)) {
            QFile environment(QStringLiteral("/proc/%1/environ").arg(pid));
            if (pid.toLongLong() == QCoreApplication::applicationPid() || !environment.open(QIODevice::ReadOnly)
                || !('\0' + environment.readAll()).contains('\0' + marker))
                continue;
            if (!runnersOnly || QFileInfo(QStringLiteral("/proc/%1/exe").arg(pid)).symLinkTarget() == VLAuthorizationChannel::runnerPath())
                found << pid.toLongLong();
        }
        return found;
    }
    // Waits (generously) for every runner of the sandbox to end.
    bool runnersEnd() const
    {
        const QDeadlineTimer guard(60000);
        while (!sandboxProcesses(true).isEmpty() && !guard.hasExpired())
            QThread::msleep(50);
        return sandboxProcesses(true).isEmpty();
    }

    QList<QStringList> prompts() const { return sandbox.toolCalls(QStringLiteral("pkexec")); }
    QString work() const { return sandbox.tmpPath(QStringLiteral("work")); }
};

TEST_F(VLAuthorizationChannelTest, OnePromptServesEveryOperationOfTheProcess)
{
    const vltest::RunResult result = runChild(QStringLiteral("many"));
    ASSERT_EQ(result.exitCode, 0) << result.describe().toStdString();
    EXPECT_EQ(prompts(), (QList<QStringList>{{QStringLiteral("pkexec"), VLAuthorizationChannel::runnerPath()}}));
    const QList<QStringList> calls = waitForCalls(QStringLiteral("mkdir"), 21);
    EXPECT_EQ(calls.size(), 21);
    EXPECT_TRUE(calls.contains(QStringList{QStringLiteral("mkdir"), QStringLiteral("-p"), work() + QStringLiteral("/line\nbreak, 12:x,")}));
    EXPECT_TRUE(QFileInfo(work() + QStringLiteral("/line\nbreak, 12:x,")).isDir());
    EXPECT_TRUE(runnersEnd()) << "the runner outlived its parent";
}

TEST_F(VLAuthorizationChannelTest, RefusalsRunNothingAndAreAskedAgain)
{
    const vltest::RunResult result = runChild(QStringLiteral("refusals"), {{QStringLiteral("FAKE_PKEXEC_DENY"), QStringLiteral("1")}});
    ASSERT_EQ(result.exitCode, 0) << result.describe().toStdString();
    EXPECT_EQ(prompts().size(), 3); // refused, granted, and asked again after authEnd()
    EXPECT_EQ(sandbox.toolCalls(QStringLiteral("mkdir")),
              (QList<QStringList>{{QStringLiteral("mkdir"), QStringLiteral("-p"), work()},
                                  {QStringLiteral("mkdir"), QStringLiteral("-p"), work() + QStringLiteral("/again")}}));
}

TEST_F(VLAuthorizationChannelTest, RunnerEndsWhenItsParentIsKilled)
{
    QStringList environment = sandbox.environment().toStringList();
    environment << QStringLiteral("VLAC_CHILD=hold") << QStringLiteral("FAKE_TOUCH_SLEEP=30");
    vltest::ChildProcess child;
    ASSERT_TRUE(child.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--gtest_filter=VLAuthorizationChannelChild.Run")},
                            {.environment = environment, .workingDirectory = sandbox.root(), .uid = vltest::Sandbox::unprivilegedUid(),
                             .discardOutput = true}))
        << child.errorString().toStdString();
    // The runner is waiting for the slow tool on the child's behalf.
    ASSERT_EQ(waitForCalls(QStringLiteral("touch")).size(), 1);
    ASSERT_EQ(sandboxProcesses(true).size(), 1);
    child.kill();
    ASSERT_TRUE(child.waitForFinished(60000));
    EXPECT_TRUE(runnersEnd()) << "the runner outlived its killed parent";
}

TEST_F(VLAuthorizationChannelTest, RunnerTakesRequestsOnlyFromItsOwnSocket)
{
    // A well-formed request fed on standard input, as anyone could, is not read.
    const QString folder = sandbox.tmpPath(QStringLiteral("made"));
    vltest::ChildProcess runner;
    ASSERT_TRUE(runner.start(VLAuthorizationChannel::runnerPath(), {},
                             {.standardInput = QByteArray::fromStdString(vlauth::encode({"run", "/bin/mkdir", folder.toStdString()}))}));
    ASSERT_TRUE(runner.waitForFinished(60000));
    EXPECT_EQ(runner.exitCode(), 2);
    EXPECT_FALSE(QFileInfo::exists(folder));
}

} // namespace
