// Privileged operations. The framing between VLAuthorization and its privileged tool runner:
// any byte travels as it is, a message cut anywhere waits for the rest, and malformed or oversized
// input is refused before it is buffered. As root: refusals, trash naming and the root account's
// deletions. The runner as an unprivileged process sees it (this executable again, as "nobody"):
// one prompt for every operation of the process (from several threads at once), refusals that
// leave the channel usable, a runner that ends with its parent however the parent ends, and a
// runner that takes requests from nowhere but its own socket.
#include "VLFileManagerTestSupport.h"

#include "shared/VLAuthorization.h"
#include "shared/VLAuthorizationProtocol.h"
#include "support/ChildProcess.h"

#include "platform/system/SystemEnvironment.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

#include <algorithm>
#include <csignal>
#include <thread>
#include <vector>

namespace {

using vlauth::ParseStatus;

TEST(VLAuthorizationProtocol, MessagesSurviveTheirOwnSeparatorsAndArriveInPieces)
{
    const std::vector<vlauth::Message> messages = {
        {},
        {""},
        {"run", "/bin/mv", "-f", "line\nbreak", std::string("nul\0byte", 8), "3:abc,", ",,::"},
        {std::string(100000, 'x')},
    };
    for (const vlauth::Message& message : messages) {
        const std::string bytes = vlauth::encode(message);
        const vlauth::Parsed whole = vlauth::decode(bytes + vlauth::encode({"next"}));
        ASSERT_EQ(whole.status, ParseStatus::Complete);
        EXPECT_EQ(whole.message, message);
        EXPECT_EQ(whole.consumed, bytes.size());
        for (std::size_t cut = 0; cut < bytes.size(); cut += 1 + cut / 16)
            ASSERT_EQ(vlauth::decode(std::string_view(bytes).substr(0, cut)).status, ParseStatus::NeedMore) << cut;
    }
}

TEST(VLAuthorizationProtocol, MalformedInputIsRefused)
{
    const char* const cases[] = {
        "01:x,",           // leading zero
        ":,",              // no length
        "1x:a,",           // not a number
        "1:a;",            // no closing comma
        "4:3:ab,",         // an item longer than its message
        "5:1:a,x,",        // bytes after the last item that are no item
        "99999999:",       // longer than any message may be: refused before the data arrives
    };
    for (const char* input : cases)
        EXPECT_EQ(vlauth::decode(input).status, ParseStatus::Malformed) << input;
}

class VLAuthorizationTest : public vltest::FileOpsSandboxTest {
protected:
    void SetUp() override
    {
        FileOpsSandboxTest::SetUp();
        if (!VLAuthorization::isRoot())
            GTEST_SKIP() << "these cases describe the root account";
    }
    VLAuthorization& auth = VLAuthorization::sharedController(false);
};

TEST_F(VLAuthorizationTest, RootRunsToolsDirectlyAndRefusesSystemFoldersAndMissingSources)
{
    EXPECT_TRUE(auth.authStart() && auth.isAuthorized() && auth.canAuthorize());
    EXPECT_EQ(auth.authExecTask(sandbox.sysPath(QStringLiteral("/usr/bin/no-such-tool")), {}), -2);
    EXPECT_EQ(auth.authExecTask(sandbox.sysPath(QStringLiteral("/bin/mkdir")), {QStringLiteral("-p"), sandbox.tmpPath(QStringLiteral("x"))}, false), 0);
    EXPECT_TRUE(QFileInfo::exists(sandbox.tmpPath(QStringLiteral("x"))));
    const QString missing = sandbox.tmpPath(QStringLiteral("missing"));
    QFile(sandbox.toolLogPath()).resize(0);
    EXPECT_FALSE(auth.authRemoveFile(sandbox.sysPath(QStringLiteral("/usr/bin"))));
    EXPECT_FALSE(auth.authRemoveFile(sandbox.home()));
    EXPECT_FALSE(auth.authTrashFile(sandbox.sysPath(QStringLiteral("/Applications"))));
    EXPECT_FALSE(auth.authTrashFolderContents(sandbox.sysPath(QStringLiteral("/System/Library"))));
    EXPECT_FALSE(auth.authMoveFolderContents(sandbox.sysPath(QStringLiteral("/bin")), sandbox.tmp()));
    EXPECT_FALSE(auth.authMoveFile(sandbox.sysPath(QStringLiteral("/sbin/tool")), sandbox.tmp()));
    EXPECT_FALSE(auth.authMoveFile(QString(), missing) || auth.authMoveFile(missing, QString()) || auth.authMoveFile(missing, missing + 'x'));
    EXPECT_FALSE(auth.authCopyFile(QString(), missing) || auth.authCopyFile(missing, missing + 'x'));
    EXPECT_TRUE(sandbox.toolCalls().isEmpty());
}

TEST_F(VLAuthorizationTest, TrashNamesAvoidTakenNames)
{
    const QString trash = sandbox.homePath(QStringLiteral(".Trash/"));
    // name, pattern of the trash name when the plain one is taken
    const std::pair<const char*, const char*> cases[] = {{"name", "^name_\\d{14}\\.$"}, {"Report.pdf", "^Report_\\d{14}\\.pdf$"}};
    for (const auto& [name, pattern] : cases) {
        QStringList destinations;
        for (const char* folder : {"one/", "two/"}) {
            const QString file = sandbox.tmpPath(QLatin1String(folder) + QLatin1String(name));
            ASSERT_TRUE(writeFile(file));
            ASSERT_TRUE(auth.authTrashFile(file));
            // The move runs detached: the second trash must find the first one's name taken.
            const QDeadlineTimer guard(60000);
            while (QFileInfo::exists(file) && !guard.hasExpired())
                QThread::msleep(20);
            destinations << waitForCalls(QStringLiteral("mv")).value(0).value(3);
            QFile(sandbox.toolLogPath()).resize(0);
        }
        EXPECT_EQ(destinations[0], trash + QLatin1String(name));
        EXPECT_TRUE(destinations[1].startsWith(trash) && QRegularExpression(QLatin1String(pattern)).match(destinations[1].mid(trash.size())).hasMatch())
            << destinations[1].toStdString();
    }
}

TEST_F(VLAuthorizationTest, DeleteOnRootAccountRemovesInsteadOfMoving)
{
    const QString file = sandbox.tmpPath(QStringLiteral("doomed/file.txt"));
    ASSERT_TRUE(writeFile(file));
    ASSERT_TRUE(auth.authTrashFile(file, true));
    // The removal aims at the trash name; the source itself stays in place.
    EXPECT_EQ(waitForCalls(QStringLiteral("rm")),
              (QList<QStringList>{{QStringLiteral("rm"), QStringLiteral("-Rdf"), sandbox.homePath(QStringLiteral(".Trash/file.txt"))}}));
    EXPECT_TRUE(QFileInfo::exists(file));

    const QString folder = sandbox.tmpPath(QStringLiteral("contents"));
    ASSERT_TRUE(writeFile(folder + QStringLiteral("/a")));
    ASSERT_TRUE(writeFile(folder + QStringLiteral("/b")));
    EXPECT_TRUE(auth.authTrashFolderContents(folder, true));
    QList<QStringList> calls = waitForCalls(QStringLiteral("rm"), 3).mid(1);
    std::sort(calls.begin(), calls.end()); // detached removals may record in either order
    EXPECT_EQ(calls, (QList<QStringList>{{QStringLiteral("rm"), QStringLiteral("-R"), QStringLiteral("-f"), folder + QStringLiteral("/a")},
                                         {QStringLiteral("rm"), QStringLiteral("-R"), QStringLiteral("-f"), folder + QStringLiteral("/b")}}));
}

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
