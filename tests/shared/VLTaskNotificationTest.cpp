#include "shared/VLTaskNotification.h"
#include "support/LogFixture.h"
#include "support/NotificationListener.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonObject>

#include <gtest/gtest.h>

using vltest::NotificationListener;

namespace {

// Each case gets its own TMPDIR (where the client sockets live) and HOME (the log).
class VLTaskNotificationTest : public ::testing::Test {
protected:
    VLTaskNotificationTest()
    {
        QDir().mkpath(log_.path(QStringLiteral("tmp")));
        log_.environment().set("TMPDIR", log_.path(QStringLiteral("tmp")));
    }
    QString socketPath(const QString& name = QStringLiteral("VLTesselCallback")) const
    {
        return log_.path(QStringLiteral("tmp/") + name);
    }
    vltest::LogFixture log_;
};

TEST_F(VLTaskNotificationTest, DeliversEveryMessageInOrderWithItsArguments)
{
    NotificationListener client(socketPath());
    ASSERT_TRUE(client.start());
    VLTaskNotification::postIncrementProgress();
    VLTaskNotification::postTaskFinished();
    VLTaskNotification::postTaskError(QStringLiteral("disk full"), {{QStringLiteral("code"), 28}});
    VLTaskNotification::postTaskErrorString(QStringLiteral("Unable to install \"X\" -\nline two \u00e9"));
    VLTaskNotification::postDisconnect();
    ASSERT_TRUE(client.waitForMessages(5));
    const auto got = client.messages();
    EXPECT_EQ(client.messageNames(),
              (QStringList{QStringLiteral("incrementRemoteProgress"), QStringLiteral("postFinishedTask"), QStringLiteral("postError:forApp:"),
                           QStringLiteral("postErrorString:userInfo:"), QStringLiteral("postDisconnect")}));
    EXPECT_EQ(client.connectionCount(), 5);
    const QString process = QFileInfo(QCoreApplication::applicationFilePath()).fileName();
    const QJsonObject error = got[2].arguments.at(0).toObject();
    EXPECT_EQ(error.value(QStringLiteral("description")).toString(), QStringLiteral("disk full"));
    EXPECT_EQ(error.value(QStringLiteral("userInfo")).toObject().value(QStringLiteral("code")).toInt(), 28);
    EXPECT_EQ(got[2].arguments.at(1).toString(), process);
    // Quotes, a line break and non-ASCII text arrive intact inside one message line.
    EXPECT_EQ(got[3].arguments.at(0).toString(), QStringLiteral("Unable to install \"X\" -\nline two \u00e9"));
    EXPECT_EQ(got[3].arguments.at(1).toObject().value(QStringLiteral("appName")).toString(), process);
}

TEST_F(VLTaskNotificationTest, ShortFormsWhenTheClientLacksTheLongOnesAndNothingWhenItLacksBoth)
{
    NotificationListener client(socketPath(), {QStringLiteral("postError:"), QStringLiteral("postErrorString:")});
    ASSERT_TRUE(client.start());
    VLTaskNotification::postTaskError(QStringLiteral("bad"));
    VLTaskNotification::postIncrementProgress(); // not implemented: the client gets no line
    VLTaskNotification::postTaskErrorString(QStringLiteral("worse"));
    ASSERT_TRUE(client.waitForMessages(2));
    EXPECT_EQ(client.messageNames(), (QStringList{QStringLiteral("postError:"), QStringLiteral("postErrorString:")}));
    EXPECT_EQ(client.messages().value(0).arguments.size(), 1);
    EXPECT_EQ(client.messages().value(1).arguments, QJsonArray{QStringLiteral("worse")});
}

TEST_F(VLTaskNotificationTest, OnlyAListeningClientHearsAPostAndNothingIsKeptForLater)
{
    // A stale socket file left by a client that went away counts as no client, and stays.
    QFile stale(socketPath());
    ASSERT_TRUE(stale.open(QIODevice::WriteOnly));
    stale.close();
    VLTaskNotification::postDisconnect();
    EXPECT_TRUE(QFileInfo(socketPath()).isFile());
    QFile::remove(socketPath());
    // The second name is tried only when the first is absent.
    NotificationListener harrow(socketPath(QStringLiteral("VLHarrowClientCallback")));
    ASSERT_TRUE(harrow.start());
    VLTaskNotification::postTaskFinished();
    ASSERT_TRUE(harrow.waitForMessages(1));
    NotificationListener tessel(socketPath());
    ASSERT_TRUE(tessel.start());
    VLTaskNotification::postDisconnect();
    ASSERT_TRUE(tessel.waitForMessages(1));
    EXPECT_EQ(tessel.messageNames(), QStringList{QStringLiteral("postDisconnect")});
    EXPECT_EQ(harrow.messageNames(), QStringList{QStringLiteral("postFinishedTask")});
}

TEST_F(VLTaskNotificationTest, AStuckClientDelaysButNeverHangsThePost)
{
    for (auto behaviour : {NotificationListener::Behaviour::NeverAnswer, NotificationListener::Behaviour::Silent}) {
        NotificationListener stuck(socketPath(), NotificationListener::allMessages(), behaviour);
        ASSERT_TRUE(stuck.start());
        // Returns (a post that hung would hold the test until its time limit) after giving up
        // on the client, which the log says.
        VLTaskNotification::postTaskFinished();
        const bool sent = behaviour == NotificationListener::Behaviour::NeverAnswer;
        const QString gaveUp = sent ? QStringLiteral("the client did not acknowledge postFinishedTask")
                                    : QStringLiteral("the client did not say which messages it implements");
        EXPECT_TRUE(vltest::LogFixture::logText().contains(QStringLiteral("+[VLTaskNotification postTaskFinished]: ") + gaveUp))
            << qPrintable(vltest::LogFixture::logText());
        EXPECT_EQ(stuck.waitForMessages(1, 1000), sent);
    }
}

} // namespace
