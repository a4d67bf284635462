// The process table as applications (the fake ones run a copy of sleep): names, identifiers and
// every process of a bundle, and the polite quit reaching only the bundle path asked for.
#include "platform/system/ProcessList.h"
#include "support/ChildProcess.h"
#include "support/Sandbox.h"

#include <QCoreApplication>
#include <QFile>
#include <gtest/gtest.h>

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
