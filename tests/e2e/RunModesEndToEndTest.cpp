// The entry point as a client application drives it: argument checks of -install, the
// notifications a listening client receives, and the precedence of the modes.

#include "support/NotificationListener.h"
#include "support/Sandbox.h"

#include <gtest/gtest.h>

using vltest::NotificationListener;
using vltest::Sandbox;

namespace {

TEST(RunModesEndToEnd, InstallWithTooFewArgumentsSaysInvalidArgumentCountAndPostsNothing)
{
    Sandbox sandbox;
    NotificationListener client(sandbox.tmpPath(QStringLiteral("VLTesselCallback")));
    ASSERT_TRUE(client.start());

    const auto run = sandbox.runUpdater({QStringLiteral("-install"), QStringLiteral("group")});

    EXPECT_EQ(run.exitCode, 1) << run.describe().toStdString();
    EXPECT_TRUE(run.err().contains(QStringLiteral("Invalid argument count"))) << run.describe().toStdString();
    EXPECT_TRUE(run.out().isEmpty());
    EXPECT_EQ(client.connectionCount(), 0);
}

TEST(RunModesEndToEnd, InstallOfAForeignBundleIdIsRefusedAndTheClientHearsErrorThenFinished)
{
    Sandbox sandbox;
    NotificationListener client(sandbox.tmpPath(QStringLiteral("VLTesselCallback")));
    ASSERT_TRUE(client.start());

    const auto run = sandbox.runUpdater({QStringLiteral("-install"), QStringLiteral("group"), QStringLiteral("com.example.x")});

    const QString message = QStringLiteral(
        "Unable to install update - the bundle ID com.example.x does not correspond to a Velmora application.");
    EXPECT_EQ(run.exitCode, 1) << run.describe().toStdString();
    EXPECT_TRUE(run.err().contains(message)) << run.describe().toStdString();
    ASSERT_TRUE(client.waitForMessages(2));
    const auto messages = client.messages();
    ASSERT_EQ(messages.size(), 2);
    EXPECT_EQ(messages[0].name, QStringLiteral("postErrorString:userInfo:"));
    EXPECT_EQ(messages[0].arguments.at(0).toString(), message);
    EXPECT_EQ(messages[1].name, QStringLiteral("postFinishedTask"));
}

TEST(RunModesEndToEnd, InstallTakesTypeAndTargetFromFixedPositionsWhereverTheSwitchStands)
{
    Sandbox sandbox;
    // "-install" last: argument 2 is still the type ("-list" is tested first, so use other words).
    const auto run = sandbox.runUpdater({QStringLiteral("group"), QStringLiteral("com.example.y"), QStringLiteral("-install")});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.err().contains(QStringLiteral("the bundle ID -install does not correspond")))
        << run.describe().toStdString();
}

TEST(RunModesEndToEnd, InstallOfAnUnknownVendorIdOnAServerlessMachineCannotDownloadInfo)
{
    Sandbox sandbox;
    NotificationListener client(sandbox.tmpPath(QStringLiteral("VLHarrowClientCallback")));
    ASSERT_TRUE(client.start());
    sandbox.setEnv(QStringLiteral("VELMORA_UPDATE_SERVER"), QStringLiteral("https://127.0.0.1:9"));

    const auto run = sandbox.runUpdater({QStringLiteral("-install"), QStringLiteral("group"), QStringLiteral("com.velmora.nothing")});

    EXPECT_EQ(run.exitCode, 1) << run.describe().toStdString();
    EXPECT_TRUE(run.err().contains(QStringLiteral("Unable to download info for application com.velmora.nothing.")));
    ASSERT_TRUE(client.waitForMessages(2));
    EXPECT_EQ(client.messageNames(), (QStringList{QStringLiteral("postErrorString:userInfo:"), QStringLiteral("postFinishedTask")}));
}

TEST(RunModesEndToEnd, WithoutASwitchAndWithoutADisplayTheWindowCannotOpenAndThatIsSaid)
{
    Sandbox sandbox;
    const auto run = sandbox.runUpdater({});
    EXPECT_EQ(run.exitCode, 1) << run.describe().toStdString();
    EXPECT_TRUE(run.err().contains(QStringLiteral("no display to open the update window on"))) << run.describe().toStdString();
}

TEST(RunModesEndToEnd, CheckpathOfAForeignBundleExitsZeroWithoutRecordingACheck)
{
    Sandbox sandbox;
    vltest::FakeBundle bundle;
    bundle.path = sandbox.sysPath(QStringLiteral("/Applications/Foreign.app"));
    bundle.identifier = QStringLiteral("com.example.Foreign");
    bundle.version = QStringLiteral("1");
    ASSERT_FALSE(sandbox.createBundle(bundle).isEmpty());

    const auto run = sandbox.runUpdater({QStringLiteral("-checkpath"), bundle.path, QStringLiteral("-install")});

    EXPECT_EQ(run.exitCode, 0) << run.describe().toStdString();
    const auto prefs = sandbox.readPlist(sandbox.userPreferencesFile(QStringLiteral("com.velmora.SoftwareUpdate")));
    EXPECT_FALSE(prefs && prefs->toMap().contains(QStringLiteral("lastUpdateCheck")));
}

TEST(RunModesEndToEnd, CheckpathOfAMissingPathExitsZero)
{
    Sandbox sandbox;
    const auto run = sandbox.runUpdater({QStringLiteral("-checkpath"), sandbox.sysPath(QStringLiteral("/Applications/None.app"))});
    EXPECT_EQ(run.exitCode, 0) << run.describe().toStdString();
}

} // namespace
