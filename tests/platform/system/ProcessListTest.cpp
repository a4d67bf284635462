// The process table as applications: bundles found by their running executables, and the
// polite quit reaching only the bundle asked for. The fake applications run a copy of sleep.
#include "platform/system/ProcessList.h"
#include "support/ChildProcess.h"
#include "support/Sandbox.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <gtest/gtest.h>

namespace {

std::optional<sys::RunningApplication> find(const QString& path)
{
    for (const auto& app : sys::launchedApplications()) {
        if (app.path == path)
            return app;
    }
    return std::nullopt;
}

class ProcessListTest : public ::testing::Test {
protected:
    // Starts the bundle's executable; a bundle without an identifier also loses its Info.plist.
    bool start(vltest::ChildProcess& process, const QString& path, const QString& identifier = {}, const QString& name = {})
    {
        const QString app = box.createBundle({.path = path, .identifier = identifier, .extraInfo = {{QStringLiteral("CFBundleName"), name}}});
        if (app.isEmpty() || (name.isEmpty() && !QFile::remove(app + QStringLiteral("/Contents/Info.plist"))))
            return false;
        return process.start(executable(app), {QStringLiteral("60")});
    }
    static QString executable(const QString& app) { return app + QStringLiteral("/Contents/MacOS/") + QFileInfo(app).completeBaseName(); }

    vltest::Sandbox box;
};

TEST_F(ProcessListTest, ListsBundleApplicationsWithNameIdentifierAndProcesses)
{
    vltest::ChildProcess named, second, bare;
    const QString tessel = box.tmpPath(QStringLiteral("Tessel.app"));
    ASSERT_TRUE(start(named, tessel, QStringLiteral("com.velmora.Tessel"), QStringLiteral("Tessel Pro")));
    ASSERT_TRUE(second.start(executable(tessel), {QStringLiteral("60")})) << "a second copy of the same bundle";
    ASSERT_TRUE(start(bare, box.tmpPath(QStringLiteral("Bare.app"))));

    const auto app = find(tessel);
    ASSERT_TRUE(app.has_value());
    EXPECT_EQ(app->name, QStringLiteral("Tessel Pro"));
    EXPECT_EQ(app->identifier, QStringLiteral("com.velmora.Tessel"));
    EXPECT_EQ(app->pids, (QList<pid_t>{named.pid(), second.pid()}));
    const auto bareApp = find(box.tmpPath(QStringLiteral("Bare.app")));
    ASSERT_TRUE(bareApp.has_value());
    EXPECT_EQ(bareApp->name, QStringLiteral("Bare")) << "without Info.plist, the folder's name";
    EXPECT_EQ(bareApp->identifier, QString());
    EXPECT_TRUE(sys::processExecutablePaths().contains(executable(box.tmpPath(QStringLiteral("Bare.app")))));
    EXPECT_FALSE(find(QCoreApplication::applicationDirPath()).has_value()) << "this test is not inside a bundle";
}

TEST_F(ProcessListTest, TerminateReachesOnlyTheGivenBundle)
{
    vltest::ChildProcess target, bystander;
    ASSERT_TRUE(start(target, box.tmpPath(QStringLiteral("a/Target.app"))));
    ASSERT_TRUE(start(bystander, box.tmpPath(QStringLiteral("b/Target.app"))));
    EXPECT_EQ(sys::sendTerminate(box.tmpPath(QStringLiteral("a/Nothing.app"))), 0);
    EXPECT_EQ(sys::sendTerminate(box.tmpPath(QStringLiteral("a/Target.app"))), 1);
    ASSERT_TRUE(target.waitForFinished(5000));
    EXPECT_TRUE(target.crashed()) << "ended by a signal";
    EXPECT_TRUE(bystander.isRunning());
    EXPECT_FALSE(find(box.tmpPath(QStringLiteral("a/Target.app"))).has_value());
    EXPECT_TRUE(find(box.tmpPath(QStringLiteral("b/Target.app"))).has_value());
}

} // namespace
