#include "shared/VLTaskNotification.h"
#include "support/ChildProcess.h"
#include "support/LogFixture.h"
#include "support/NotificationListener.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using vltest::NotificationListener;

namespace {

// Each case gets its own TMPDIR (where the client sockets live) and HOME (the log).
class VLTaskNotificationTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(dir_.isValid());
        oldTmp_ = qgetenv("TMPDIR");
        oldHome_ = qgetenv("HOME");
        qputenv("TMPDIR", dir_.path().toUtf8());
        qputenv("HOME", dir_.path().toUtf8());
    }
    void TearDown() override
    {
        qputenv("TMPDIR", oldTmp_);
        qputenv("HOME", oldHome_);
    }
    QString socketPath(const QString& name) const { return dir_.path() + QLatin1Char('/') + name; }
    static QString processName() { return QFileInfo(QCoreApplication::applicationFilePath()).fileName(); }

    static void postAllFive()
    {
        VLTaskNotification::postIncrementProgress();
        VLTaskNotification::postTaskFinished();
        VLTaskNotification::postTaskError(QStringLiteral("disk full"), {{QStringLiteral("code"), 28}});
        VLTaskNotification::postTaskErrorString(QStringLiteral("Unable to install \"X\" -\nline two \u00e9"));
        VLTaskNotification::postDisconnect();
    }

    QTemporaryDir dir_;
    QByteArray oldTmp_;
    QByteArray oldHome_;
};

TEST_F(VLTaskNotificationTest, DeliversEveryMessageInOrderWithItsArguments)
{
    NotificationListener client(socketPath(QStringLiteral("VLTesselCallback")));
    ASSERT_TRUE(client.start());
    postAllFive();
    ASSERT_TRUE(client.waitForMessages(5));
    const auto got = client.messages();
    EXPECT_EQ(client.messageNames(),
              (QStringList{QStringLiteral("incrementRemoteProgress"), QStringLiteral("postFinishedTask"),
                           QStringLiteral("postError:forApp:"), QStringLiteral("postErrorString:userInfo:"),
                           QStringLiteral("postDisconnect")}));
    EXPECT_EQ(client.connectionCount(), 5);
    EXPECT_TRUE(got[0].arguments.isEmpty());

    const QJsonObject error = got[2].arguments.at(0).toObject();
    EXPECT_EQ(error.value(QStringLiteral("description")).toString(), QStringLiteral("disk full"));
    EXPECT_EQ(error.value(QStringLiteral("userInfo")).toObject().value(QStringLiteral("code")).toInt(), 28);
    EXPECT_EQ(got[2].arguments.at(1).toString(), processName());

    // Quotes, a line break and non-ASCII text arrive intact inside one message line.
    EXPECT_EQ(got[3].arguments.at(0).toString(), QStringLiteral("Unable to install \"X\" -\nline two \u00e9"));
    EXPECT_EQ(got[3].arguments.at(1).toObject().value(QStringLiteral("appName")).toString(), processName());
}

TEST_F(VLTaskNotificationTest, ShortFormsWhenTheClientLacksTheLongOnesAndNothingWhenItLacksBoth)
{
    NotificationListener shortForms(socketPath(QStringLiteral("VLTesselCallback")),
                                    {QStringLiteral("postError:"), QStringLiteral("postErrorString:")});
    ASSERT_TRUE(shortForms.start());
    VLTaskNotification::postTaskError(QStringLiteral("bad"));
    VLTaskNotification::postTaskErrorString(QStringLiteral("worse"));
    VLTaskNotification::postIncrementProgress(); // not implemented: the client gets no line
    ASSERT_TRUE(shortForms.waitForMessages(2));
    const auto got = shortForms.messages();
    ASSERT_EQ(got.size(), 2);
    EXPECT_EQ(got[0].name, QStringLiteral("postError:"));
    EXPECT_EQ(got[0].arguments.size(), 1);
    EXPECT_EQ(got[1].name, QStringLiteral("postErrorString:"));
    EXPECT_EQ(got[1].arguments, QJsonArray{QStringLiteral("worse")});
    EXPECT_EQ(shortForms.connectionCount(), 3);
}

TEST_F(VLTaskNotificationTest, TriesTheSecondNameOnlyWhenTheFirstIsAbsent)
{
    NotificationListener harrow(socketPath(QStringLiteral("VLHarrowClientCallback")));
    ASSERT_TRUE(harrow.start());
    VLTaskNotification::postTaskFinished();
    ASSERT_TRUE(harrow.waitForMessages(1));

    NotificationListener tessel(socketPath(QStringLiteral("VLTesselCallback")));
    ASSERT_TRUE(tessel.start());
    VLTaskNotification::postDisconnect();
    ASSERT_TRUE(tessel.waitForMessages(1));
    EXPECT_EQ(tessel.messageNames(), QStringList{QStringLiteral("postDisconnect")});
    EXPECT_EQ(harrow.messageNames(), QStringList{QStringLiteral("postFinishedTask")});
}

TEST_F(VLTaskNotificationTest, WithoutAClientNothingIsSentOrKeptForLater)
{
    // A stale socket file left by a client that went away counts as no client.
    const QString stalePath = socketPath(QStringLiteral("VLTesselCallback"));
    QFile stale(stalePath);
    ASSERT_TRUE(stale.open(QIODevice::WriteOnly));
    stale.close();
    postAllFive();
    EXPECT_TRUE(QFileInfo(stalePath).isFile()) << "the stale file is left as it was";
    // A client that comes later hears only what is posted after it came.
    QFile::remove(stalePath);
    NotificationListener late(stalePath);
    ASSERT_TRUE(late.start());
    VLTaskNotification::postTaskFinished();
    ASSERT_TRUE(late.waitForMessages(1));
    EXPECT_EQ(late.messageNames(), QStringList{QStringLiteral("postFinishedTask")});
    EXPECT_EQ(late.connectionCount(), 1);
}

TEST_F(VLTaskNotificationTest, AStuckClientDelaysButNeverHangsThePost)
{
    for (auto behaviour : {NotificationListener::Behaviour::NeverAnswer, NotificationListener::Behaviour::Silent}) {
        NotificationListener stuck(socketPath(QStringLiteral("VLTesselCallback")),
                                   NotificationListener::allMessages(), behaviour);
        ASSERT_TRUE(stuck.start());
        vltest::LogFixture log;
        // Returns (a post that hung would hold the test until its time limit) after giving up
        // on the client, which the log says.
        VLTaskNotification::postTaskFinished();
        const bool sent = behaviour == NotificationListener::Behaviour::NeverAnswer;
        const QString gaveUp = sent ? QStringLiteral("the client did not acknowledge postFinishedTask")
                                    : QStringLiteral("the client did not say which messages it implements");
        EXPECT_TRUE(vltest::LogFixture::logText().contains(
            QStringLiteral("+[VLTaskNotification postTaskFinished]: ") + gaveUp)) << qPrintable(vltest::LogFixture::logText());
        EXPECT_EQ(stuck.waitForMessages(1, 1000), sent);
    }
}

TEST_F(VLTaskNotificationTest, TheShellListenerReceivesWhatTheUpdaterPosts)
{
    vltest::ChildProcess listener;
    ASSERT_TRUE(listener.start(QStringLiteral("/usr/bin/python3"),
                               {QStringLiteral(VELMORA_SOURCE_DIR "/scripts/notification-listener.py"),
                                QStringLiteral("--implements"), QStringLiteral("postErrorString: postFinishedTask")}));
    EXPECT_EQ(listener.readLine(10000).value_or("").trimmed(),
              "listening " + socketPath(QStringLiteral("VLTesselCallback")).toUtf8());
    VLTaskNotification::postTaskErrorString(QStringLiteral("t\u00e9xt"));
    VLTaskNotification::postIncrementProgress();
    VLTaskNotification::postTaskFinished();
    const std::optional<QByteArray> first = listener.readLine(5000);
    const std::optional<QByteArray> second = listener.readLine(5000);
    listener.kill();
    ASSERT_TRUE(first && second) << listener.standardOutput().toStdString();
    const QJsonObject error = QJsonDocument::fromJson(*first).object();
    EXPECT_EQ(error.value(QStringLiteral("message")).toString(), QStringLiteral("postErrorString:"));
    EXPECT_EQ(error.value(QStringLiteral("arguments")).toArray(), QJsonArray{QStringLiteral("t\u00e9xt")});
    EXPECT_EQ(QJsonDocument::fromJson(*second).object().value(QStringLiteral("message")).toString(),
              QStringLiteral("postFinishedTask"));
}

} // namespace
