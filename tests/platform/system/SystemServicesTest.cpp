// The small system services, one section each: the environment, the system log, handing work
// to other threads, the process table, bundles, zip archives, and the user's private folders.
#include "platform/system/Archive.h"
#include "platform/system/Bundle.h"
#include "platform/system/MainThread.h"
#include "platform/system/PrivateFolder.h"
#include "platform/system/ProcessList.h"
#include "platform/system/SerialLane.h"
#include "platform/system/SystemEnvironment.h"
#include "platform/system/SystemLog.h"
#include "platform/system/UserDomain.h"
#include "platform/system/WorkerPool.h"
#include "support/ChildProcess.h"
#include "support/QtPrinters.h"
#include "support/Sandbox.h"
#include "support/ScopedEnvironment.h"
#include "support/ZipListing.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTemporaryFile>
#include <QThread>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

// The environment contract (read on every call) and the system version file.
TEST(SystemEnvironment, SlashesAreNormalisedAndTheVersionComesOnlyFromAStringInAReadableFile)
{
    vltest::ScopedEnvironment env;
    env.set("VELMORA_SYSROOT", QStringLiteral("/tmp/sb//"));
    env.set("TMPDIR", QStringLiteral("/var/tmp/x"));
    env.set("VELMORA_UPDATE_SERVER", QStringLiteral("http://127.0.0.1:8080/"));
    env.set("VELMORA_WEB_SITE", QStringLiteral("https://www.example.org:9000/"));
    EXPECT_EQ(sys::rooted(QStringLiteral("/Volumes")), QStringLiteral("/tmp/sb/Volumes"));
    EXPECT_EQ(sys::rooted(QStringLiteral("usr/bin/x")), QStringLiteral("/tmp/sb/usr/bin/x"));
    EXPECT_EQ(sys::temporaryDirectory(), QStringLiteral("/var/tmp/x/"));
    EXPECT_EQ(sys::updateServerBase(), QStringLiteral("http://127.0.0.1:8080"));
    EXPECT_EQ(sys::webSiteDomain(), QStringLiteral("example.org"));
    env.unset("VELMORA_SYSROOT");
    EXPECT_EQ(sys::rooted(QStringLiteral("/Volumes")), QStringLiteral("/Volumes"));

    vltest::Sandbox box;
    env.set("VELMORA_SYSROOT", box.sysroot());
    const QString file = box.sysPath(QStringLiteral("/System/Library/CoreServices/SystemVersion.plist"));
    ASSERT_TRUE(box.writePlist(file, QVariantMap{{QStringLiteral("ProductVersion"), QStringLiteral("14.2.1")}}));
    EXPECT_EQ(sys::productVersion(), QStringLiteral("14.2.1"));
    ASSERT_TRUE(box.writePlist(file, QVariantMap{{QStringLiteral("ProductVersion"), 14}}));
    EXPECT_EQ(sys::productVersion(), QStringLiteral("0.0.0")) << "not a string";
    ASSERT_TRUE(box.writeFile(file, "not a property list <<<"));
    EXPECT_EQ(sys::productVersion(), QStringLiteral("0.0.0")) << "damaged file (a missing one: VLOSDetect)";
}

// The system log: one whole, stamped line on standard error per call, from any thread.
TEST(SystemLog, OneWholeLinePerCallFromAnyThread)
{
    QTemporaryFile sink;
    ASSERT_TRUE(sink.open());
    std::fflush(stderr);
    const int saved = ::dup(STDERR_FILENO);
    ::dup2(sink.handle(), STDERR_FILENO);
    sys::nsLog(QStringLiteral("Could not bring the application to front. Error %d"), -600);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < 50; ++i)
                sys::nsLog(QStringLiteral("thread %d line %d %@"), t, i, QStringLiteral("xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx"));
        });
    for (auto& thread : threads)
        thread.join();
    std::fflush(stderr);
    ::dup2(saved, STDERR_FILENO);
    ::close(saved);

    sink.seek(0);
    const QStringList lines = QString::fromUtf8(sink.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 201);
    const QRegularExpression shape(QStringLiteral(R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} %1\[%2\] (.*)$)")
                                       .arg(QRegularExpression::escape(QFileInfo(QCoreApplication::applicationFilePath()).fileName()))
                                       .arg(::getpid()));
    EXPECT_EQ(shape.match(lines.first()).captured(1), QStringLiteral("Could not bring the application to front. Error -600")) << lines.first().toStdString();
    const QRegularExpression threadLine(QStringLiteral(R"(\] thread \d line \d+ x{32}$)"));
    for (const QString& line : lines.mid(1))
        EXPECT_TRUE(shape.match(line).hasMatch() && threadLine.match(line).hasMatch()) << line.toStdString();
}

// Handing work to other threads: to the main thread, waiting for it, and to a worker pool that
// keeps the start order and waits for every task at its end (the thread limit is Qt's own).
TEST(MainThread, WorkFromAnotherThreadRunsOnTheMainThreadAndIsWaitedFor)
{
    std::atomic<QThread*> ranOn = nullptr;
    std::atomic<bool> returnedAfterWork = false;
    std::atomic<bool> workerSawMain = true;
    std::thread worker([&] {
        workerSawMain = sys::isMainThread();
        sys::runOnMainThreadAndWait([&] {
            QThread::msleep(50); // a caller that did not wait would return before this ends
            ranOn = QThread::currentThread();
        });
        returnedAfterWork = ranOn.load() != nullptr;
    });
    for (const QDeadlineTimer guard(10000); !ranOn && !guard.hasExpired();)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    worker.join();
    EXPECT_TRUE(!workerSawMain && returnedAfterWork);
    EXPECT_EQ(ranOn.load(), QCoreApplication::instance()->thread());
    bool direct = false;
    sys::runOnMainThreadAndWait([&] { direct = sys::isMainThread(); });
    EXPECT_TRUE(direct);
}

TEST(WorkerPool, OneThreadKeepsTheStartOrderAndTheEndWaitsForEveryTask)
{
    std::vector<int> order; // only the tasks (one at a time) and, after waitForDone, the test touch it
    sys::WorkerPool serial(1);
    for (int i = 0; i < 50; ++i)
        serial.start([&order, i] { order.push_back(i); });
    serial.waitForDone();
    EXPECT_EQ(order.size(), 50u);
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end())) << "one thread keeps the start order";

    std::atomic<int> finished{0};
    {
        sys::WorkerPool pool(1);
        pool.setMaxThreadCount(4);
        for (int i = 0; i < 12; ++i)
            pool.start([&finished] {
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
                ++finished;
            });
    }
    EXPECT_EQ(finished, 12) << "the end waits for every task, queued or running";
}

// The lane that runs group checks one at a time without making a second caller wait.
TEST(SerialLane, ACallerThatFindsTheLaneBusyLeavesItsStepToTheRunnerAndGoesOn)
{
    sys::SerialLane lane;
    std::promise<void> entered;
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    // Touched only by the steps (one at a time) and, after the runner's join, by the test.
    std::vector<int> order;
    std::vector<std::thread::id> ranOn;
    std::thread runner([&] {
        lane.run([&] {
            entered.set_value();
            released.wait();
            order.push_back(1);
            ranOn.push_back(std::this_thread::get_id());
        });
    });
    entered.get_future().wait();
    // Handed in while the first step is held: both calls must return without waiting for it.
    auto handIn = std::async(std::launch::async, [&] {
        for (int step : {2, 3})
            lane.run([&, step] {
                order.push_back(step);
                ranOn.push_back(std::this_thread::get_id());
            });
    });
    const bool wentOn = handIn.wait_for(std::chrono::seconds(30)) == std::future_status::ready;
    release.set_value();
    runner.join();
    handIn.wait();
    EXPECT_TRUE(wentOn);
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(ranOn, (std::vector<std::thread::id>(3, ranOn.front())));

    // An idle lane runs the step on the caller, at once.
    bool ran = false;
    lane.run([&] { ran = true; });
    EXPECT_TRUE(ran);
}


// The process table as applications (the fake ones run a copy of sleep): names, identifiers and
// every process of a bundle, and the polite quit reaching only the bundle path asked for.
static std::optional<sys::RunningApplication> find(const QString& path)
{
    for (const auto& app : sys::launchedApplications()) {
        if (app.path == path)
            return app;
    }
    return std::nullopt;
}

TEST(ProcessList, ApplicationsAreFoundByTheirBundlesAndOnlyTheOneAskedForIsTerminated)
{
    vltest::Sandbox box;
    const QString tessel = box.createBundle({.path = box.tmpPath("Tessel.app"), .identifier = "com.velmora.Tessel", .extraInfo = {{"CFBundleName", "Tessel Pro"}}});
    const QString bare = box.createBundle({.path = box.tmpPath("a/Bare.app")});
    const QString bystander = box.createBundle({.path = box.tmpPath("b/Bare.app")});
    ASSERT_TRUE(QFile::remove(bare + "/Contents/Info.plist"));
    vltest::ChildProcess named, second, bareRun, bystanderRun;
    ASSERT_TRUE(named.start(tessel + "/Contents/MacOS/Tessel", {"60"}) && second.start(tessel + "/Contents/MacOS/Tessel", {"60"}));
    ASSERT_TRUE(bareRun.start(bare + "/Contents/MacOS/Bare", {"60"}) && bystanderRun.start(bystander + "/Contents/MacOS/Bare", {"60"}));

    const auto app = find(tessel);
    ASSERT_TRUE(app.has_value());
    EXPECT_EQ(app->name, QStringLiteral("Tessel Pro"));
    EXPECT_EQ(app->identifier, QStringLiteral("com.velmora.Tessel"));
    EXPECT_EQ(app->pids, (QList<pid_t>{named.pid(), second.pid()})) << "one entry for both copies";
    const auto bareApp = find(bare);
    EXPECT_TRUE(bareApp && bareApp->name == QStringLiteral("Bare") && bareApp->identifier.isEmpty()) << "without Info.plist: the folder's name, no identifier";
    EXPECT_TRUE(sys::processExecutablePaths().contains(bare + "/Contents/MacOS/Bare"));
    EXPECT_FALSE(find(QCoreApplication::applicationDirPath()).has_value()) << "this test is in no bundle";

    EXPECT_EQ(sys::sendTerminate(box.tmpPath("a/Nothing.app")), 0);
    EXPECT_EQ(sys::sendTerminate(bare), 1);
    ASSERT_TRUE(bareRun.waitForFinished(10000));
    EXPECT_TRUE(bareRun.crashed()) << "ended by a signal";
    EXPECT_TRUE(bystanderRun.isRunning()) << "the same name in another folder";
    EXPECT_FALSE(find(bare).has_value());
    EXPECT_TRUE(find(bystander).has_value());
}

// Bundles read from disk, the main bundle's place, and the bundle cache: only bundles opened by
// path are found by identifier, as the platform does, also when several threads open them.
TEST(Bundle, OnlyExistingFoldersAreBundlesAndInfoIsOptional)
{
    vltest::Sandbox box;
    const QString app = box.createBundle({.path = box.tmpPath("Tessel.app"), .identifier = "com.velmora.Tessel", .version = "120"});
    ASSERT_TRUE(box.writeFile(box.tmpPath("file.app"), "x") && box.writeFile(box.tmpPath("Broken.app/Contents/Info.plist"), "<plist><dict><key>"));
    ASSERT_TRUE(box.makeDir(box.tmpPath("Empty.app")));
    for (const QString& refused : {QString(), box.tmpPath("missing.app"), box.tmpPath("file.app")})
        EXPECT_FALSE(sys::Bundle::bundleWithPath(refused).has_value()) << refused.toStdString();
    for (const char* bare : {"Empty.app", "Broken.app"}) {
        const auto bundle = sys::Bundle::bundleWithPath(box.tmpPath(QLatin1String(bare)));
        ASSERT_TRUE(bundle.has_value()) << bare;
        EXPECT_TRUE(!bundle->hasInfoDictionary() && bundle->infoDictionary().isEmpty() && !bundle->bundleIdentifier() && !bundle->executablePath()) << bare;
    }
    const auto tessel = sys::Bundle::bundleWithPath(app + "/");
    ASSERT_TRUE(tessel.has_value());
    EXPECT_EQ(tessel->bundlePath(), app) << "trailing slash dropped";
    EXPECT_EQ(tessel->bundleIdentifier(), QStringLiteral("com.velmora.Tessel"));
    EXPECT_EQ(tessel->executablePath(), app + "/Contents/MacOS/Tessel");
    EXPECT_EQ(tessel->objectForInfoDictionaryKey("CFBundleVersion"), QVariant(QStringLiteral("120")));
    EXPECT_EQ(tessel->resourcePath(), app + "/Contents/Resources");

    for (const auto& [executable, bundle] : std::initializer_list<std::pair<const char*, const char*>>{
             {"/Applications/Velmora Software Update.app/Contents/MacOS/SoftwareUpdate", "/Applications/Velmora Software Update.app"},
             {"/usr/local/bin/tool", "/usr/local/bin"}, {"/a/Contents/MacOS/../MacOS/run", "/a"}, {"/Contents/MacOS/run", "/Contents/MacOS"}})
        EXPECT_EQ(sys::Bundle::bundlePathForExecutable(QString::fromUtf8(executable)), QString::fromUtf8(bundle)) << executable;
    EXPECT_EQ(sys::Bundle::mainBundle().bundlePath(), QCoreApplication::applicationDirPath()) << "this test is in no bundle";
}

TEST(Bundle, OnlyBundlesOpenedByPathAreFoundByIdentifier)
{
    vltest::Sandbox box;
    const auto make = [&](const QString& name) { return box.createBundle({.path = box.tmpPath(name + ".app"), .identifier = "com.velmora.cache." + name}); };
    ASSERT_TRUE(sys::Bundle::readWithoutOpening(make("Described")).has_value());
    EXPECT_FALSE(sys::Bundle::bundleWithIdentifier("com.velmora.cache.Described").has_value());
    EXPECT_FALSE(sys::Bundle::bundleWithIdentifier(QString()).has_value());

    std::vector<QString> paths;
    std::vector<std::thread> checks;
    for (int i = 0; i < 4; ++i) {
        paths.push_back(make(QStringLiteral("Checked%1").arg(i)));
        checks.emplace_back([path = paths.back()] {
            for (int round = 0; round < 50; ++round)
                EXPECT_TRUE(sys::Bundle::bundleWithPath(path).has_value());
        });
    }
    for (std::thread& check : checks)
        check.join();
    for (int i = 0; i < 4; ++i) {
        const auto found = sys::Bundle::bundleWithIdentifier(QStringLiteral("com.velmora.cache.Checked%1").arg(i));
        EXPECT_EQ(found ? found->bundlePath() : QString(), paths[size_t(i)]);
    }
}

// Zip archives made and opened by the archiving tools under a sandboxed system root. Keeping or
// dropping the parent folder and replacing what is there are proven through the file manager;
// here: a name that looks like an option, links, an exact archive path, and failures.
TEST(Archive, RoundTripAndFailures)
{
    vltest::Sandbox box;
    ASSERT_TRUE(box.installFakeTools());
    vltest::ScopedEnvironment env;
    env.set("VELMORA_SYSROOT", box.sysroot());
    const QString source = box.tmpPath(QStringLiteral("-My Docs"));
    ASSERT_TRUE(box.writeFile(source + QStringLiteral("/a b.txt"), "alpha") && box.writeFile(source + QStringLiteral("/sub/c.log"), "gamma"));
    ASSERT_TRUE(QFile::link(QStringLiteral("a b.txt"), source + QStringLiteral("/l")));

    const QString archive = box.tmpPath(QStringLiteral("archive"));
    QString error;
    ASSERT_TRUE(sys::compressArchive(source, archive, true, &error)) << error.toStdString();
    EXPECT_FALSE(QFileInfo::exists(archive + QStringLiteral(".zip"))) << "written exactly where asked";
    EXPECT_EQ(vltest::zipMembers(archive), (QStringList{QStringLiteral("-My Docs/"), QStringLiteral("-My Docs/a b.txt"), QStringLiteral("-My Docs/l"),
                                                         QStringLiteral("-My Docs/sub/"), QStringLiteral("-My Docs/sub/c.log")}));
    ASSERT_TRUE(sys::compressArchive(source + QStringLiteral("/sub/c.log"), archive + QStringLiteral("1"), false));
    EXPECT_EQ(vltest::zipMembers(archive + QStringLiteral("1")), QStringList{QStringLiteral("c.log")});

    const QString out = box.tmpPath(QStringLiteral("new/out/-My Docs"));
    ASSERT_TRUE(box.writeFile(out + QStringLiteral("/a b.txt"), "stale"));
    ASSERT_TRUE(sys::extractArchive(archive, box.tmpPath(QStringLiteral("new/out"))));
    QFile text(out + QStringLiteral("/a b.txt"));
    EXPECT_TRUE(text.open(QIODevice::ReadOnly) && text.readAll() == "alpha") << "replaced without a prompt";
    EXPECT_EQ(QFileInfo(out + QStringLiteral("/l")).symLinkTarget(), out + QStringLiteral("/a b.txt"));

    // An empty folder makes an empty archive, which opens into an empty folder.
    ASSERT_TRUE(box.makeDir(box.tmpPath(QStringLiteral("empty"))));
    ASSERT_TRUE(sys::compressArchive(box.tmpPath(QStringLiteral("empty")), box.tmpPath(QStringLiteral("empty.zip")), false));
    EXPECT_TRUE(sys::extractArchive(box.tmpPath(QStringLiteral("empty.zip")), box.tmpPath(QStringLiteral("e"))));
    EXPECT_TRUE(QFileInfo(box.tmpPath(QStringLiteral("e"))).isDir());

    // Failures say why and leave no archive, not even one that was there before.
    const QString bad = box.tmpPath(QStringLiteral("x.zip"));
    EXPECT_FALSE(sys::compressArchive(box.tmpPath(QStringLiteral("missing")), bad, true, &error));
    EXPECT_FALSE(error.isEmpty() || QFileInfo::exists(bad));
    ASSERT_TRUE(box.writeFile(bad, "not a zip"));
    error.clear();
    EXPECT_FALSE(sys::extractArchive(bad, box.tmpPath(QStringLiteral("x")), &error));
    EXPECT_FALSE(error.isEmpty());
    ASSERT_TRUE(QFile::remove(box.sysPath(QStringLiteral("/usr/bin/zip"))));
    EXPECT_FALSE(sys::compressArchive(source, bad, true, &error));
    EXPECT_TRUE(error.contains(QStringLiteral("/usr/bin/zip")) && !QFileInfo::exists(bad)) << error.toStdString();
}

// The process's own folder in a shared temporary folder: its mode, and files opened without
// following a link. Links and other users' folders at its name are refused end to end, as
// root and as an unprivileged user (InstallEndToEndTest).
static mode_t modeOf(const QString& path)
{
    struct stat info {};
    return ::lstat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_mode & 07777 : 0;
}

TEST(PrivateFolder, CreatedOrNarrowedToTheOwnerAloneAndFilesNeverOpenedThroughALink)
{
    vltest::Sandbox box;
    const QString fresh = box.tmpPath(QStringLiteral("missing parent/Temp"));
    const QString open = box.tmpPath(QStringLiteral("open"));
    ASSERT_TRUE(box.makeDir(open) && ::chmod(QFile::encodeName(open).constData(), 0777) == 0);
    QString refusal;
    for (const QString& folder : {fresh, open}) {
        ASSERT_TRUE(sys::makePrivateFolder(folder, &refusal)) << refusal.toStdString();
        EXPECT_EQ(modeOf(folder), mode_t(0700)) << folder.toStdString();
        EXPECT_TRUE(sys::isPrivateFolder(folder));
    }
    const QString target = box.tmpPath(QStringLiteral("target"));
    ASSERT_TRUE(box.writeFile(target, "keep"));
    EXPECT_FALSE(sys::makePrivateFolder(target, &refusal));
    EXPECT_EQ(refusal, QStringLiteral("The folder %1 is not a folder.").arg(target));

    ASSERT_TRUE(QFile::link(target, box.tmpPath(QStringLiteral("live"))));
    ASSERT_TRUE(QFile::link(box.tmpPath(QStringLiteral("created")), box.tmpPath(QStringLiteral("dangling"))));
    for (const char* link : {"live", "dangling"}) {
        QString error;
        EXPECT_EQ(sys::openForWritingNoFollow(box.tmpPath(QLatin1String(link)), &error), nullptr) << link;
        EXPECT_FALSE(error.isEmpty()) << link;
    }
    EXPECT_FALSE(QFileInfo::exists(box.tmpPath(QStringLiteral("created"))));
    EXPECT_EQ(QFileInfo(target).size(), 4);
    auto file = sys::openForWritingNoFollow(target, nullptr);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(file->write("new"), 3);
    file.reset();
    EXPECT_EQ(QFileInfo(target).size(), 3) << "a regular file is truncated and written";
}

// The user domain's folders in a home that is not fresh: a planted link is never followed, and
// a Library already there keeps its owner and mode. Fresh homes, as the user and as root for
// the user, are run end to end (FreshHomeEndToEndTest).
TEST(UserDomain, ALinkIsRefusedUnfollowedAndAnExistingLibraryKeepsItsOwnerAndMode)
{
    QTemporaryDir dir;
    const QString linked = dir.filePath(QStringLiteral("linked")), kept = dir.filePath(QStringLiteral("kept"));
    const QString elsewhere = dir.filePath(QStringLiteral("elsewhere"));
    ASSERT_TRUE(QDir().mkpath(elsewhere) && QDir().mkpath(linked) && QDir().mkpath(kept + QStringLiteral("/Library")));
    ASSERT_TRUE(QFile::link(elsewhere, linked + QStringLiteral("/Library")));
    vltest::ScopedEnvironment env;
    env.set("HOME", linked);
    QString refusal;
    EXPECT_FALSE(sys::prepareUserDomain(&refusal));
    EXPECT_EQ(refusal, QStringLiteral("The folder ") + linked + QStringLiteral("/Library is a symbolic link."));
    EXPECT_TRUE(QDir(elsewhere).isEmpty());

    // Root makes for the home's owner, but a Library someone else made stays theirs, 0755.
    const uint owner = ::geteuid() == 0 ? 65534u : ::geteuid();
    const QByteArray library = QFile::encodeName(kept + QStringLiteral("/Library"));
    ASSERT_EQ(::chown(QFile::encodeName(kept).constData(), owner, owner), 0);
    ASSERT_EQ(::chmod(library.constData(), 0755), 0);
    struct stat before {}, after {}, logs {};
    ASSERT_EQ(::stat(library.constData(), &before), 0);
    env.set("HOME", kept);
    EXPECT_TRUE(sys::prepareUserDomain());
    ASSERT_EQ(::stat(library.constData(), &after), 0);
    EXPECT_TRUE(after.st_mode == before.st_mode && after.st_uid == before.st_uid);
    ASSERT_EQ(::stat(library + "/Logs", &logs), 0);
    EXPECT_EQ(logs.st_uid, owner) << "what was made is the home owner's";
}
