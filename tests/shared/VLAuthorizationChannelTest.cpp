// The privileged tool runner as an unprivileged process sees it: one prompt for every operation
// of the process (from several threads at once), refusals that leave the channel usable, a
// runner that ends with its parent however the parent ends, and a runner that takes requests
// from nowhere but its own socket. The unprivileged side runs this executable again as "nobody".
#include "VLFileManagerTestSupport.h"

#include "shared/VLAuthorization.h"
#include "support/ChildProcess.h"
#include "shared/VLAuthorizationProtocol.h"

#include "platform/system/SystemEnvironment.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QProcess>

#include <csignal>
#include <grp.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using vltest::FileOpsSandboxTest;

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
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([&auth, &mkdir, &work, t] {
                for (int i = 0; i < 5; ++i) {
                    const QString folder = QStringLiteral("%1/t%2-%3").arg(work).arg(t).arg(i);
                    EXPECT_EQ(auth.authExecTask(mkdir, {QStringLiteral("-p"), folder}, i % 2 == 0), 0);
                }
            });
        }
        for (std::thread& thread : threads)
            thread.join();
        // Arguments travel as they are, separators and all.
        EXPECT_EQ(auth.authExecTask(mkdir, {QStringLiteral("-p"), work + QStringLiteral("/line\nbreak, 12:x,")}, false), 0);
    } else if (scenario == QStringLiteral("refusals")) {
        // A relative tool path (it exists from the working folder) and an argument an argument
        // vector cannot carry are refused by the runner; the channel stays open.
        ASSERT_TRUE(QFileInfo::exists(QStringLiteral("sysroot/bin/mkdir")));
        EXPECT_EQ(auth.authExecTask(QStringLiteral("sysroot/bin/mkdir"), {QStringLiteral("-p"), work}, false), -1);
        EXPECT_EQ(auth.authExecTask(mkdir, {QStringLiteral("-p"), work + QChar(0) + QStringLiteral("x")}, false), -1);
        EXPECT_TRUE(auth.isAuthorized());
        EXPECT_EQ(auth.authExecTask(mkdir, {QStringLiteral("-p"), work}, false), 0);
        // Letting the grant go means the next operation asks again.
        auth.authEnd();
        EXPECT_FALSE(auth.isAuthorized());
        EXPECT_EQ(auth.authExecTask(mkdir, {QStringLiteral("-p"), work + QStringLiteral("/again")}, false), 0);
    } else if (scenario == QStringLiteral("hold")) {
        // Waits for a slow tool until the test kills this process.
        (void)auth.authExecTask(sys::rooted(QStringLiteral("/usr/bin/touch")), {QStringLiteral("-c"), work}, false);
        ADD_FAILURE() << "the slow tool returned before this process was killed";
    } else {
        ADD_FAILURE() << "unknown case " << scenario.toStdString();
    }
}

class VLAuthorizationChannelTest : public FileOpsSandboxTest {
protected:
    void SetUp() override
    {
        FileOpsSandboxTest::SetUp();
        if (!vltest::Sandbox::unprivilegedUid())
            GTEST_SKIP() << "needs root to run a child as an unprivileged user";
        ASSERT_TRUE(sandbox.giveHomeTo(*vltest::Sandbox::unprivilegedUid()));
    }

    QMap<QString, QString> childEnvironment(const QString& scenario) const
    {
        return {{QStringLiteral("VLAC_CHILD"), scenario}};
    }

    vltest::RunResult runChild(const QString& scenario)
    {
        vltest::RunOptions options;
        options.uid = vltest::Sandbox::unprivilegedUid();
        options.extraEnv = childEnvironment(scenario);
        return sandbox.run(QCoreApplication::applicationFilePath(), {QStringLiteral("--gtest_filter=VLAuthorizationChannelChild.Run")},
                           options);
    }

    void TearDown() override
    {
        // A tool a killed child left running (the slow one) goes with the sandbox.
        for (qint64 pid : sandboxProcesses())
            ::kill(pid_t(pid), SIGKILL);
    }

    // Processes started for this sandbox (their environment names its system root).
    QList<qint64> sandboxProcesses() const
    {
        QList<qint64> found;
        const QByteArray marker = "VELMORA_SYSROOT=" + QFile::encodeName(sandbox.sysroot()) + '\0';
        for (const QString& pid : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs)) {
            QFile environment(QStringLiteral("/proc/%1/environ").arg(pid));
            if (pid.toLongLong() != QCoreApplication::applicationPid() && environment.open(QIODevice::ReadOnly) &&
                ('\0' + environment.readAll()).contains('\0' + marker))
                found << pid.toLongLong();
        }
        return found;
    }

    QList<qint64> runners() const
    {
        QList<qint64> found;
        for (qint64 pid : sandboxProcesses()) {
            if (QFileInfo(QStringLiteral("/proc/%1/exe").arg(pid)).symLinkTarget() == VLAuthorizationChannel::runnerPath())
                found << pid;
        }
        return found;
    }

    // Waits (generously) for every runner of the sandbox to end.
    bool runnersEnd() const
    {
        QElapsedTimer waited;
        waited.start();
        while (!runners().isEmpty() && waited.elapsed() < 10000)
            QThread::msleep(50);
        return runners().isEmpty();
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

TEST_F(VLAuthorizationChannelTest, RefusedRequestsRunNothingAndKeepTheGrant)
{
    const vltest::RunResult result = runChild(QStringLiteral("refusals"));
    ASSERT_EQ(result.exitCode, 0) << result.describe().toStdString();
    EXPECT_EQ(prompts().size(), 2); // the first grant, and the one asked for after authEnd()
    EXPECT_EQ(sandbox.toolCalls(QStringLiteral("mkdir")),
              (QList<QStringList>{{QStringLiteral("mkdir"), QStringLiteral("-p"), work()},
                                  {QStringLiteral("mkdir"), QStringLiteral("-p"), work() + QStringLiteral("/again")}}));
}

TEST_F(VLAuthorizationChannelTest, RunnerEndsWhenItsParentIsKilled)
{
    vltest::ChildProcess child;
    vltest::RunOptions options;
    options.uid = vltest::Sandbox::unprivilegedUid();
    options.extraEnv = {{QStringLiteral("VLAC_CHILD"), QStringLiteral("hold")}, {QStringLiteral("FAKE_TOUCH_SLEEP"), QStringLiteral("30")}};
    ASSERT_TRUE(sandbox.start(child, QCoreApplication::applicationFilePath(),
                              {QStringLiteral("--gtest_filter=VLAuthorizationChannelChild.Run")}, options));
    // The runner is waiting for the slow tool on the child's behalf.
    ASSERT_EQ(waitForCalls(QStringLiteral("touch")).size(), 1) << child.standardError().toStdString();
    ASSERT_EQ(runners().size(), 1);

    child.kill();
    ASSERT_TRUE(child.waitForFinished(10000));
    EXPECT_TRUE(runnersEnd()) << "the runner outlived its killed parent";
}

TEST_F(VLAuthorizationChannelTest, RunnerTakesRequestsOnlyFromItsOwnSocket)
{
    // A well-formed request fed from a file, as anyone could, is not read.
    const QString folder = sandbox.tmpPath(QStringLiteral("made"));
    const std::string request = vlauth::encode({"run", "/bin/mkdir", folder.toStdString()});
    const QString input = sandbox.tmpPath(QStringLiteral("request"));
    ASSERT_TRUE(sandbox.writeFile(input, QByteArray::fromStdString(request)));
    QProcess runner;
    runner.setStandardInputFile(input);
    runner.start(VLAuthorizationChannel::runnerPath(), {});
    ASSERT_TRUE(runner.waitForFinished(10000));
    EXPECT_EQ(runner.exitCode(), 2);
    EXPECT_FALSE(QFileInfo::exists(folder));
}

} // namespace
