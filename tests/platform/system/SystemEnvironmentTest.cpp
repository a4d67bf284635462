#include "platform/system/MainThread.h"
#include "platform/system/SystemEnvironment.h"
#include "support/FixturePlist.h"
#include "support/ScopedEnvironment.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QThread>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace {

bool writeFile(const QString& path, const QByteArray& data)
{
    QDir().mkpath(path.section(QLatin1Char('/'), 0, -2));
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(data) == data.size();
}

TEST(SystemEnvironment, RootIsStrippedAndPrefixesAbsolutePaths)
{
    vltest::ScopedEnvironment env;
    env.set("VELMORA_SYSROOT", QStringLiteral("/tmp/sb//"));
    EXPECT_EQ(sys::systemRoot(), QStringLiteral("/tmp/sb"));
    EXPECT_EQ(sys::rooted(QStringLiteral("/Volumes")), QStringLiteral("/tmp/sb/Volumes"));
    EXPECT_EQ(sys::rooted(QStringLiteral("usr/bin/x")), QStringLiteral("/tmp/sb/usr/bin/x"));
    env.unset("VELMORA_SYSROOT");
    EXPECT_EQ(sys::rooted(QStringLiteral("/Volumes")), QStringLiteral("/Volumes"));
}

TEST(SystemEnvironment, SlashesAreNormalisedAsCallersExpect)
{
    vltest::ScopedEnvironment env;
    env.set("TMPDIR", QStringLiteral("/var/tmp/x"));
    env.set("VELMORA_UPDATE_SERVER", QStringLiteral("http://127.0.0.1:8080/"));
    env.set("VELMORA_WEB_SITE", QStringLiteral("https://www.example.org:9000/"));
    EXPECT_EQ(sys::temporaryDirectory(), QStringLiteral("/var/tmp/x/"));
    EXPECT_EQ(sys::updateServerBase(), QStringLiteral("http://127.0.0.1:8080"));
    EXPECT_EQ(sys::webSiteDomain(), QStringLiteral("example.org"));
}

TEST(SystemEnvironment, ProductVersionFromSystemVersionFile)
{
    QTemporaryDir root;
    vltest::ScopedEnvironment env;
    env.set("VELMORA_SYSROOT", root.path());
    const QString file = root.path() + QStringLiteral("/System/Library/CoreServices/SystemVersion.plist");

    EXPECT_EQ(sys::productVersion(), QStringLiteral("0.0.0")) << "missing file";
    ASSERT_TRUE(writeFile(file, "not a property list <<<"));
    EXPECT_EQ(sys::productVersion(), QStringLiteral("0.0.0")) << "damaged file";
    ASSERT_TRUE(writeFile(file, vltest::fixturePlistXml(QVariantMap{{QStringLiteral("ProductVersion"), 14}})));
    EXPECT_EQ(sys::productVersion(), QStringLiteral("0.0.0")) << "not a string";
    ASSERT_TRUE(writeFile(file, vltest::fixturePlistXml(QVariantMap{{QStringLiteral("ProductVersion"), QStringLiteral("14.2.1")}})));
    EXPECT_EQ(sys::productVersion(), QStringLiteral("14.2.1"));
}

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
    QElapsedTimer timer;
    timer.start();
    while (!ranOn && timer.elapsed() < 10000)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    worker.join();
    EXPECT_FALSE(workerSawMain);
    EXPECT_TRUE(returnedAfterWork);
    EXPECT_EQ(ranOn.load(), QCoreApplication::instance()->thread());

    bool direct = false;
    sys::runOnMainThreadAndWait([&] { direct = sys::isMainThread(); });
    EXPECT_TRUE(direct);
}

} // namespace
