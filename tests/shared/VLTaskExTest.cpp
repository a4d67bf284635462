#include "shared/VLTaskEx.h"
#include "support/LogFixture.h"
#include "support/StdoutCapture.h"

#include "platform/foundation/PlatformException.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QThread>

#include <gtest/gtest.h>

#include <mutex>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using vltest::LogFixture;

// Polls `done` for up to a minute; what it says last.
bool waitFor(const std::function<bool()>& done)
{
    const QDeadlineTimer guard(60000);
    while (!done() && !guard.hasExpired())
        QThread::msleep(10);
    return done();
}

class TaskExTest : public ::testing::Test {
protected:
    // A file at <tmp>/<name> holding `body` (a shell script unless it has its own first line).
    QString script(const QString& name, const QByteArray& body, QFile::Permissions permissions = QFile::ReadOwner | QFile::ExeOwner)
    {
        QFile file(log_.path(name));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write((body.startsWith("#!") ? QByteArray() : QByteArray("#!/bin/sh\n")) + body + "\n");
        file.close();
        file.setPermissions(permissions);
        return file.fileName();
    }
    LogFixture log_;
};

TEST_F(TaskExTest, CaptureFromRealChildren)
{
    // Standard error stands in only when there is no output; a failing status is no failure;
    // standard input is a fresh pipe, never the parent's.
    const std::pair<QByteArray, QByteArray> captures[] = {
        {"exit 3", ""}, {"printf err >&2", "err"}, {"printf err >&2; sleep 0.1; printf out", "out"}, {"[ -p /dev/stdin ] && printf pipe", "pipe"}};
    int n = 0;
    for (const auto& [body, expected] : captures)
        EXPECT_EQ(VLTaskEx::dataFromTask(script(QString::number(n++), body)), expected) << body.constData();
    // Only the given environment is passed.
    EXPECT_EQ(VLTaskEx::dataFromTask(QStringLiteral("/usr/bin/env"), {}, nullptr, VLTaskEx::Environment{{QStringLiteral("ONLY"), QStringLiteral("this")}}),
              QByteArray("ONLY=this\n"));
    const auto big = VLTaskEx::dataFromTask(script(QStringLiteral("big"), "head -c 3000000 /dev/zero | tr '\\0' x; printf tail >&2"));
    EXPECT_EQ(big.value_or(QByteArray()), QByteArray(3000000, 'x'));
    // Bytes above 0x7F do not decode as ASCII; they do as Latin-1.
    const QString high = script(QStringLiteral("high"), "printf '\\351t\\351'");
    EXPECT_EQ(VLTaskEx::stringFromTask(high), QString());
    EXPECT_EQ(VLTaskEx::stringFromTask(high, {}, VLTaskEx::Encoding::Latin1), QStringLiteral(u"\u00e9t\u00e9"));
    // Output that is not captured stays the parent's.
    std::optional<QByteArray> data;
    const QByteArray printed = vltest::captureStdout([&] {
        data = VLTaskEx::dataFromTask(script(QStringLiteral("visible"), "printf visible; printf err >&2"), {}, nullptr, std::nullopt, false, true);
    });
    EXPECT_EQ(std::pair(data, printed), std::pair(std::optional<QByteArray>("err"), QByteArray("visible")));
    EXPECT_EQ(VLTaskEx::dataFromTask(script(QStringLiteral("errors"), "printf err >&2"), {}, nullptr, std::nullopt, true, false), QByteArray(""));
}

TEST_F(TaskExTest, RefusalsLaunchFailuresAndExitStatus)
{
    QDir().mkpath(log_.path(QStringLiteral("Tool.app/Contents/MacOS")));
    const QString plain = script(QStringLiteral("plain.txt"), "echo hi", QFile::ReadOwner | QFile::WriteOwner);
    for (const QString& path : {log_.path(QStringLiteral("Tool.app")), plain, log_.path(QStringLiteral("missing"))}) {
        EXPECT_FALSE(VLTaskEx::runTask(path)) << qPrintable(path);
        EXPECT_EQ(VLTaskEx::dataFromTask(path), std::nullopt) << qPrintable(path);
        EXPECT_EQ(VLTaskEx::terminationCodeFromTask(path), -1) << qPrintable(path);
        VLTaskEx::runTaskAndReturn(path);
        EXPECT_EQ(LogFixture::logText().count(QStringLiteral("Error: %1 is not executable").arg(path)), 4) << qPrintable(path);
    }
    // A relative name passes no check and fails at launch.
    EXPECT_FALSE(VLTaskEx::runTask(QStringLiteral("sh"), {QStringLiteral("-c"), QStringLiteral("true")}));
    EXPECT_TRUE(LogFixture::logText().contains(QStringLiteral("Exception running task sh: launch path not accessible")));
    // Passes every check, fails at launch: caught by the capture family, not by the status one.
    const QString badInterpreter = script(QStringLiteral("bad"), "#!/nonexistent/interpreter");
    EXPECT_EQ(VLTaskEx::dataFromTask(badInterpreter), std::nullopt);
    EXPECT_THROW((void)VLTaskEx::terminationCodeFromTask(badInterpreter), fnd::PlatformException);
    // A child that ran and failed is no failure of the call.
    VLTaskRef ref;
    EXPECT_TRUE(VLTaskEx::runTask(script(QStringLiteral("fails"), "exit 7"), {}, &ref));
    EXPECT_EQ(ref.get() ? ref.get()->terminationStatus() : -1, 7);
    const QString args = script(QStringLiteral("args"), "[ \"$1\" = 'a b' ] && [ \"$2\" = '*' ] && exit 0; exit 1");
    EXPECT_EQ(VLTaskEx::terminationCodeFromTask(args, {QStringLiteral("a b"), QStringLiteral("*")}), 0);
}

// The hanging children sleep a minute: a time-out that never acted would let the call end
// only then, without the "timed out" line, and fail the test.
TEST_F(TaskExTest, TimeoutsTerminateAHangingChildAfterWholeSeconds)
{
    for (const double seconds : {0.9, 1.5}) { // 0.9 s truncates to 0 s
        const QString marker = log_.path(QStringLiteral("started%1").arg(seconds));
        const QString hang = script(QStringLiteral("hang%1").arg(seconds), "touch '" + marker.toUtf8() + "'; exec sleep 60");
        std::optional<QByteArray> data;
        int status = 0;
        // The main thread turns its event loop only once the child runs, so even the
        // zero-second timer's request finds it.
        vltest::runOffMainThread([&] {
            if (seconds < 1)
                data = VLTaskEx::dataFromTaskTimeout(hang, {}, seconds);
            else
                status = VLTaskEx::terminationCodeFromTaskTimeout(hang, {}, seconds);
        }, [&] { return QFileInfo::exists(marker); });
        EXPECT_TRUE(seconds < 1 ? data == QByteArray("") : status == SIGTERM) << seconds;
        EXPECT_TRUE(LogFixture::logText().contains(QStringLiteral("Task %1 timed out. Terminating...").arg(hang))) << seconds;
    }
    // runTaskTimeout waits however long the child runs: it outlives the one-second timer.
    const QString marker = log_.path(QStringLiteral("finished"));
    const QString slow = script(QStringLiteral("slow"), "sleep 2.5; touch '" + marker.toUtf8() + "'");
    vltest::runOffMainThread([&] { VLTaskEx::runTaskTimeout(slow, {}, 1); });
    EXPECT_TRUE(QFileInfo::exists(marker)) << "returned before the child ended, or the child was stopped";
    EXPECT_FALSE(LogFixture::logText().contains(QStringLiteral("Task %1 timed out").arg(slow)));
}

TEST_F(TaskExTest, ATimerWhoseCallReturnedStillPerformsTimeout)
{
    auto task = VLTaskEx::create();
    const std::weak_ptr<VLTaskEx> alive = task;
    // The main thread turns no events meanwhile, so the timer cannot act before the call has
    // returned and cleared theTask.
    std::thread([&] { EXPECT_EQ(task->terminationCodeFromTaskWithTimer(script(QStringLiteral("quick"), "exit 0"), {}, 1), 0); }).join();
    EXPECT_FALSE(task->theTask());
    // Whatever theTask holds when the timer wakes is what timeout acts on.
    const QString hang = script(QStringLiteral("hang"), "exec sleep 30");
    auto child = std::make_shared<VLChildProcess>(hang, QStringList());
    child->setStandardOutput(VLChildProcess::Stream::Null);
    child->launch();
    task->setTheTask(child);
    task.reset();
    const QDeadlineTimer guard(std::chrono::seconds(30));
    while (!alive.expired() && !guard.hasExpired())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    EXPECT_TRUE(alive.expired()) << "the timer thread keeps the instance until it has slept its time";
    EXPECT_TRUE(LogFixture::logText().contains(QStringLiteral("Task %1 timed out. Terminating...").arg(hang)));
    child->waitUntilExit();
    EXPECT_EQ(child->terminationStatus(), SIGTERM);
}

TEST_F(TaskExTest, AsyncDeliversChunksOffTheMainThreadThenOneEmptyDeliveryAndTerminates)
{
    std::mutex mutex;
    QByteArray all;
    int empty = 0;
    bool onMainThread = false;
    auto task = VLTaskEx::create();
    const auto collect = [&](const QByteArray& chunk, VLTaskEx&, const QVariant&) {
        const std::lock_guard lock(mutex);
        all += chunk;
        empty += chunk.isEmpty() ? 1 : 0;
        onMainThread = onMainThread || QThread::currentThread() == QCoreApplication::instance()->thread();
    };
    task->asyncDataFromTask(script(QStringLiteral("async"), "printf one; sleep 0.2; printf two"), {}, collect, {});
    ASSERT_TRUE(waitFor([&] {
        const std::lock_guard lock(mutex);
        return empty > 0;
    }));
    QThread::msleep(200); // room for a second empty delivery
    EXPECT_EQ(std::tuple(all, empty, onMainThread), std::tuple(QByteArray("onetwo"), 1, false));

    const QString marker = log_.path(QStringLiteral("started"));
    task->asyncDataFromTask(script(QStringLiteral("hang"), "touch '" + marker.toUtf8() + "'; exec sleep 30"), {}, collect, {});
    ASSERT_TRUE(waitFor([&] { return QFileInfo::exists(marker); }));
    const auto child = task->theTask();
    ASSERT_TRUE(child);
    task->terminateAsyncTask();
    child->waitUntilExit();
    EXPECT_EQ(child->terminationStatus(), SIGTERM);
}

// Whether a child of this process has exited and not been collected (it is left so).
bool hasZombieChild()
{
    siginfo_t info{};
    return ::waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid != 0;
}

TEST_F(TaskExTest, ChildrenNobodyWaitsForAreReaped)
{
    const QString quick = script(QStringLiteral("quick"), "printf x");
    for (int i = 0; i < 20; ++i) {
        VLTaskEx::runTaskAndReturn(QStringLiteral("/bin/true"));
        (void)VLTaskEx::dataFromTask(quick);
    }
    EXPECT_TRUE(waitFor([] { return !hasZombieChild(); }));
}

} // namespace
