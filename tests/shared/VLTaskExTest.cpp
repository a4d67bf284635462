#include "shared/VLTaskEx.h"
#include "shared/VLTaskExCapture.h"
#include "support/LogFixture.h"

#include "platform/foundation/PlatformException.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QThread>

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <fcntl.h>
#include <mutex>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

class TaskExTest : public ::testing::Test {
protected:
    // A shell script at <tmp>/<name>, executable.
    QString script(const QString& name, const QByteArray& body)
    {
        const QString path = log_.path(name);
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write("#!/bin/sh\n" + body + "\n");
        file.close();
        file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther);
        return path;
    }
    vltest::LogFixture log_;
};

// Scripted chunks for the capture loop: each read pops the next chunk, "" when none is left.
struct Script {
    std::deque<QByteArray> chunks;
    QByteArray operator()()
    {
        if (chunks.empty())
            return {};
        QByteArray next = chunks.front();
        chunks.pop_front();
        return next;
    }
};

TEST(CaptureLoop, PassRulesAndResultChoice)
{
    struct Case {
        const char* name;
        std::deque<QByteArray> output, errors;
        bool captureOutput, captureErrors;
        QByteArray expectOutput, expectErrors, expectResult;
    };
    const Case cases[] = {
        {"output only", {"a", "b"}, {}, true, true, "ab", "", "ab"},
        {"errors only", {}, {"e1", "e2"}, true, true, "", "e1e2", "e1e2"},
        // Errors read before output are appended again in every output-only pass.
        {"error chunk repeated", {"", "o1", "o2"}, {"E"}, true, true, "o1o2", "EEE", "o1o2"},
        {"output not captured", {"never"}, {"e"}, false, true, "", "e", "e"},
        {"errors not captured", {"o"}, {"never"}, true, false, "o", "", "o"},
        {"nothing captured", {"o"}, {"e"}, false, false, "", "", ""},
    };
    for (const Case& c : cases) {
        Script output{c.output}, errors{c.errors};
        const vltask::Capture capture = vltask::runCaptureLoop(std::ref(output), std::ref(errors), c.captureOutput, c.captureErrors);
        EXPECT_EQ(capture.output, c.expectOutput) << c.name;
        EXPECT_EQ(capture.errors, c.expectErrors) << c.name;
        EXPECT_EQ(capture.result(), c.expectResult) << c.name;
    }
}

TEST_F(TaskExTest, CaptureChoosesOutputThenErrors)
{
    const QString out = script(QStringLiteral("out"), "printf out");
    const QString err = script(QStringLiteral("err"), "printf err >&2");
    const QString both = script(QStringLiteral("both"), "printf err >&2; sleep 0.1; printf out; printf more >&2");
    const QString none = script(QStringLiteral("none"), "exit 3");
    EXPECT_EQ(VLTaskEx::dataFromTask(out), QByteArray("out"));
    EXPECT_EQ(VLTaskEx::dataFromTask(err), QByteArray("err"));
    EXPECT_EQ(VLTaskEx::dataFromTask(both), QByteArray("out"));
    EXPECT_EQ(VLTaskEx::dataFromTask(none), QByteArray(""));
    EXPECT_EQ(VLTaskEx::stringFromTask(out), QStringLiteral("out"));
}

TEST_F(TaskExTest, CaptureStreamsEnvironmentAndLargeOutput)
{
    // Standard input is a fresh pipe, never the parent's.
    const QString input = script(QStringLiteral("stdin"), "[ -p /dev/stdin ] && printf pipe || printf other");
    EXPECT_EQ(VLTaskEx::dataFromTask(input), QByteArray("pipe"));

    // Only the given environment reaches the child.
    const auto env = VLTaskEx::dataFromTask(QStringLiteral("/usr/bin/env"), {}, nullptr,
        VLTaskEx::Environment{{QStringLiteral("ONLY"), QStringLiteral("this")}});
    EXPECT_EQ(env, QByteArray("ONLY=this\n"));

    const QString big = script(QStringLiteral("big"), "head -c 3000000 /dev/zero | tr '\\0' x; printf tail >&2");
    const auto data = VLTaskEx::dataFromTask(big);
    ASSERT_TRUE(data.has_value());
    EXPECT_EQ(data->size(), 3000000);
    EXPECT_EQ(data->count('x'), 3000000);

    // Bytes above 0x7F do not decode as ASCII; they do as Latin-1.
    const QString high = script(QStringLiteral("high"), "printf '\\351t\\351'");
    EXPECT_EQ(VLTaskEx::stringFromTask(high), QString());
    EXPECT_EQ(VLTaskEx::stringFromTask(high, {}, VLTaskEx::Encoding::Latin1), QStringLiteral(u"\u00e9t\u00e9"));
}

TEST_F(TaskExTest, UncapturedOutputStaysTheParents)
{
    const QString both = script(QStringLiteral("both"), "printf visible; printf err >&2");
    const QString sink = log_.path(QStringLiteral("stdout.txt"));
    std::fflush(stdout);
    const int saved = ::dup(1);
    const int file = ::open(QFile::encodeName(sink).constData(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ::dup2(file, 1);
    const auto data = VLTaskEx::dataFromTask(both, {}, nullptr, std::nullopt, false, true);
    std::fflush(stdout);
    ::dup2(saved, 1);
    ::close(saved);
    ::close(file);
    EXPECT_EQ(data, QByteArray("err"));
    QFile written(sink);
    ASSERT_TRUE(written.open(QIODevice::ReadOnly));
    EXPECT_EQ(written.readAll(), QByteArray("visible"));
}

TEST_F(TaskExTest, RefusesPackagesNonExecutablesAndMissingFiles)
{
    const QString bundle = log_.path(QStringLiteral("Tool.app"));
    QDir().mkpath(bundle + QStringLiteral("/Contents/MacOS"));
    const QString plain = log_.path(QStringLiteral("plain.txt"));
    QFile file(plain);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("#!/bin/sh\necho hi\n");
    file.close();
    file.setPermissions(QFile::ReadOwner | QFile::WriteOwner);
    const QString missing = log_.path(QStringLiteral("missing"));

    for (const QString& path : {bundle, plain, missing}) {
        EXPECT_FALSE(VLTaskEx::runTask(path)) << qPrintable(path);
        EXPECT_EQ(VLTaskEx::dataFromTask(path), std::nullopt) << qPrintable(path);
        EXPECT_EQ(VLTaskEx::stringFromTask(path), QString()) << qPrintable(path);
        EXPECT_EQ(VLTaskEx::terminationCodeFromTask(path), -1) << qPrintable(path);
        VLTaskEx::runTaskAndReturn(path);
        EXPECT_EQ(vltest::LogFixture::logText().count(QStringLiteral("Error: %1 is not executable").arg(path)), 5)
            << qPrintable(path);
    }
}

TEST_F(TaskExTest, RelativePathFailsAtLaunchAndIsLogged)
{
    EXPECT_FALSE(VLTaskEx::runTask(QStringLiteral("sh"), {QStringLiteral("-c"), QStringLiteral("true")}));
    const QString text = vltest::LogFixture::logText();
    EXPECT_TRUE(text.contains(QStringLiteral("Exception running task sh: launch path not accessible"))) << qPrintable(text);
    EXPECT_FALSE(text.contains(QStringLiteral("is not executable")));

    // Passes every check, fails at launch: caught by the capture family, not by the status one.
    const QString badInterpreter = log_.path(QStringLiteral("bad"));
    QFile file(badInterpreter);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("#!/nonexistent/interpreter\n");
    file.close();
    file.setPermissions(QFile::ReadOwner | QFile::ExeOwner);
    EXPECT_EQ(VLTaskEx::dataFromTask(badInterpreter), std::nullopt);
    EXPECT_THROW((void)VLTaskEx::terminationCodeFromTask(badInterpreter), fnd::PlatformException);
    EXPECT_TRUE(vltest::LogFixture::logText().contains(
        QStringLiteral("Exception running task %1: launch path not accessible").arg(badInterpreter)));
}

TEST_F(TaskExTest, WaitingFormsReportExitStatusNotFailure)
{
    const QString fails = script(QStringLiteral("fails"), "exit 7");
    VLTaskRef ref;
    EXPECT_TRUE(VLTaskEx::runTask(fails, {}, &ref));
    ASSERT_TRUE(ref.get());
    EXPECT_EQ(ref.get()->terminationStatus(), 7);
    EXPECT_EQ(VLTaskEx::terminationCodeFromTask(fails), 7);
    const QString args = script(QStringLiteral("args"), "[ \"$1\" = 'a b' ] && [ \"$2\" = '*' ] && exit 0; exit 1");
    EXPECT_EQ(VLTaskEx::terminationCodeFromTask(args, {QStringLiteral("a b"), QStringLiteral("*")}), 0);
}

TEST_F(TaskExTest, FractionalTimeoutTruncatesToZeroAndTerminates)
{
    const QString marker = log_.path(QStringLiteral("started"));
    const QString hang = script(QStringLiteral("hang"), "touch '" + marker.toUtf8() + "'; exec sleep 5");
    std::optional<QByteArray> data;
    const auto start = Clock::now();
    // The main thread turns its event loop only once the child runs, so the zero-second
    // timer's request is certain to find it.
    vltest::runOffMainThread([&] { data = VLTaskEx::dataFromTaskTimeout(hang, {}, 0.9); },
        [&] { return QFileInfo::exists(marker); });
    // Well under the one second a rounding-up timer would sleep.
    EXPECT_LT(secondsSince(start), 0.85);
    EXPECT_EQ(data, QByteArray(""));
    EXPECT_TRUE(vltest::LogFixture::logText().contains(QStringLiteral("Task %1 timed out. Terminating...").arg(hang)));
}

TEST_F(TaskExTest, StatusTimeoutTerminatesAHangingChild)
{
    const QString hang = script(QStringLiteral("hang"), "exec sleep 5");
    int status = 0;
    const auto start = Clock::now();
    vltest::runOffMainThread([&] { status = VLTaskEx::terminationCodeFromTaskTimeout(hang, {}, 1.5); });
    const double elapsed = secondsSince(start);
    EXPECT_GE(elapsed, 1.0);
    EXPECT_LT(elapsed, 1.9);
    EXPECT_EQ(status, SIGTERM);
}

TEST_F(TaskExTest, RunTaskTimeoutWaitsForTheChild)
{
    const QString marker = log_.path(QStringLiteral("finished"));
    const QString slow = script(QStringLiteral("slow"), "sleep 2.5; touch '" + marker.toUtf8() + "'");
    const auto start = Clock::now();
    vltest::runOffMainThread([&] { VLTaskEx::runTaskTimeout(slow, {}, 1); });
    EXPECT_GE(secondsSince(start), 2.4);
    EXPECT_TRUE(QFileInfo::exists(marker));
    EXPECT_FALSE(vltest::LogFixture::logText().contains(QStringLiteral("timed out")));
}

// Counts the requests other threads make of the main thread (blocking queued calls).
class MainThreadRequests : public QObject {
public:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (event->type() == QEvent::MetaCall)
            ++count;
        return QObject::eventFilter(watched, event);
    }
    int count = 0;
};

TEST_F(TaskExTest, ATimerWhoseCallReturnedStillPerformsTimeout)
{
    const QString quick = script(QStringLiteral("quick"), "exit 0");
    const QString hang = script(QStringLiteral("hang"), "exec sleep 30");
    auto emptied = VLTaskEx::create();
    auto reused = VLTaskEx::create();
    const std::weak_ptr<VLTaskEx> emptiedAlive = emptied;
    const std::weak_ptr<VLTaskEx> reusedAlive = reused;
    // The main thread turns no events meanwhile, so neither timer can act before its call
    // has returned and cleared theTask.
    std::thread([&] {
        EXPECT_EQ(emptied->terminationCodeFromTaskWithTimer(quick, {}, 1), 0);
        EXPECT_EQ(reused->terminationCodeFromTaskWithTimer(quick, {}, 1), 0);
    }).join();
    EXPECT_FALSE(emptied->theTask());
    // Whatever theTask holds when the timer wakes is what timeout acts on.
    auto child = std::make_shared<VLChildProcess>(hang, QStringList());
    child->setStandardOutput(VLChildProcess::Stream::Null);
    child->launch();
    reused->setTheTask(child);
    emptied.reset();
    reused.reset();

    MainThreadRequests requests;
    QCoreApplication::instance()->installEventFilter(&requests);
    const auto guard = Clock::now() + std::chrono::seconds(30);
    while ((!emptiedAlive.expired() || !reusedAlive.expired()) && Clock::now() < guard)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    QCoreApplication::instance()->removeEventFilter(&requests);

    EXPECT_TRUE(emptiedAlive.expired() && reusedAlive.expired());
    EXPECT_EQ(requests.count, 2); // one timeout per timer, the one that found no task included
    const QString log = vltest::LogFixture::logText();
    EXPECT_EQ(log.count(QStringLiteral("timed out. Terminating...")), 1) << log.toStdString();
    EXPECT_TRUE(log.contains(QStringLiteral("Task %1 timed out. Terminating...").arg(hang)));
}

struct Deliveries {
    std::mutex mutex;
    std::condition_variable changed;
    QList<QByteArray> chunks;
    QVariant object;
    bool onMainThread = false;
    void add(const QByteArray& chunk, const QVariant& context)
    {
        std::lock_guard lock(mutex);
        chunks.append(chunk);
        object = context;
        onMainThread = onMainThread || QThread::currentThread() == QCoreApplication::instance()->thread();
        changed.notify_all();
    }
    bool waitForEnd()
    {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, std::chrono::seconds(10), [this] { return !chunks.isEmpty() && chunks.last().isEmpty(); });
    }
};

TEST_F(TaskExTest, AsyncDeliversChunksThenOneEmptyDelivery)
{
    for (const QByteArray& body : {QByteArray("exit 0"), QByteArray("printf one; sleep 0.2; printf two")}) {
        const QString path = script(QStringLiteral("async"), body);
        Deliveries seen;
        auto task = VLTaskEx::create();
        task->asyncDataFromTask(path, {}, [&seen](const QByteArray& chunk, VLTaskEx&, const QVariant& object) {
            seen.add(chunk, object);
        }, QStringLiteral("context"));
        ASSERT_TRUE(seen.waitForEnd()) << body.constData();
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        std::lock_guard lock(seen.mutex);
        EXPECT_EQ(seen.chunks.count(QByteArray()), 1) << body.constData();
        QByteArray all;
        for (const QByteArray& chunk : seen.chunks)
            all += chunk;
        EXPECT_EQ(all, body.startsWith("exit") ? QByteArray() : QByteArray("onetwo"));
        EXPECT_EQ(seen.object, QVariant(QStringLiteral("context")));
        EXPECT_FALSE(seen.onMainThread);
        EXPECT_FALSE(task->theTask());
        EXPECT_FALSE(task->delegate());
    }
}

TEST_F(TaskExTest, AsyncTerminateStopsAHangingChild)
{
    const QString marker = log_.path(QStringLiteral("started"));
    const QString hang = script(QStringLiteral("hang"), "touch '" + marker.toUtf8() + "'; exec sleep 30");
    Deliveries seen;
    auto task = VLTaskEx::create();
    task->asyncDataFromTask(hang, {}, [&seen](const QByteArray& chunk, VLTaskEx&, const QVariant& object) { seen.add(chunk, object); });
    while (!QFileInfo::exists(marker))
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    const auto child = task->theTask();
    ASSERT_TRUE(child);
    task->terminateAsyncTask();
    child->waitUntilExit();
    EXPECT_EQ(child->terminationStatus(), SIGTERM);
    EXPECT_FALSE(task->theTask());

    VLTaskEx::create()->asyncDataFromTask(log_.path(QStringLiteral("missing")), {}, {});
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_TRUE(vltest::LogFixture::logText().contains(
        QStringLiteral("Unable to launch async task - task does not exist or is not executable")));
}

// Children of this process that have exited and not been collected.
int zombieChildren()
{
    int zombies = 0;
    const QString self = QString::number(::getpid());
    for (const QString& entry : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs)) {
        QFile stat(QStringLiteral("/proc/%1/stat").arg(entry));
        if (!stat.open(QIODevice::ReadOnly))
            continue;
        const QString text = QString::fromLatin1(stat.readAll());
        // "pid (comm) state ppid ...": the command may hold blanks, so split after ')'.
        const QStringList fields = text.mid(text.lastIndexOf(QLatin1Char(')')) + 2).split(QLatin1Char(' '));
        if (fields.size() > 1 && fields[1] == self && fields[0] == QStringLiteral("Z"))
            ++zombies;
    }
    return zombies;
}

TEST_F(TaskExTest, ChildrenNobodyWaitsForAreReaped)
{
    const QString quick = script(QStringLiteral("quick"), "printf x");
    for (int i = 0; i < 40; ++i) {
        VLTaskEx::runTaskAndReturn(QStringLiteral("/bin/true"));
        (void)VLTaskEx::dataFromTask(quick);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_EQ(zombieChildren(), 0);
}

} // namespace
