// The controller's side of a download: the windowless progress steps, the blocking download
// run from a worker thread as -install runs it (finish, failure, cancel, refused names), and
// what the client hears.
#include "AppController.h"
#include "UpdateRecord.h"

#include "support/LogFixture.h"
#include "support/NotificationListener.h"
#include "support/QtPrinters.h"
#include "support/TestServer.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QJsonObject>

#include <QDir>
#include <QFileInfo>
#include <QThread>

#include <numeric>
#include <thread>

namespace {

class DownloadControllerTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        log_.environment().set("TMPDIR", log_.path(QStringLiteral("tmp")));
        ASSERT_TRUE(QDir().mkpath(log_.path(QStringLiteral("tmp"))));
        ASSERT_TRUE(QDir().mkpath(log_.path(QStringLiteral("srv"))));
        QFile body(log_.path(QStringLiteral("srv/Tessel.dmg")));
        ASSERT_TRUE(body.open(QIODevice::WriteOnly));
        body.write(QByteArray(200000, 'x'));
        body.close();
        vltest::TestServerOptions options;
        options.root = log_.path(QStringLiteral("srv"));
        ASSERT_TRUE(server_.start(options)) << server_.errorString().toStdString();
        log_.environment().set("VELMORA_CA_FILE", server_.caFile());
        listener_ = std::make_unique<vltest::NotificationListener>(QStringLiteral("VLTesselCallback"));
        ASSERT_TRUE(listener_->start());
        controller_ = AppController::initWithoutGUI();
    }

    UpdateRecord recordFor(const QString& path) const
    {
        return {{record::kType, record::kTypeGroup}, {record::kTitle, QStringLiteral("Tessel")},
                {record::kUrl, server_.url(path)}};
    }

    // downloadObject on a thread of its own, as -install runs it.
    void downloadOnWorker(const UpdateRecord& record, int cancelAfterMs = -1)
    {
        std::thread worker([&] { controller_->downloadObject(record); });
        if (cancelAfterMs >= 0) {
            QThread::msleep(cancelAfterMs);
            controller_->updateCancelled = true;
        }
        worker.join();
    }

    QString stored(const QString& name) const { return controller_->downloadPath + QLatin1Char('/') + name; }

    vltest::LogFixture log_;
    vltest::TestServer server_;
    std::unique_ptr<vltest::NotificationListener> listener_;
    std::unique_ptr<AppController> controller_;
};

TEST_F(DownloadControllerTest, WindowlessProgressPostsAtMostOneStepPerCallback)
{
    struct Case {
        qint64 expected;
        QList<quint64> chunks;
        int increments;
    };
    const QList<Case> cases = {
        {1000, {100, 100, 100, 100, 100, 100, 100, 100, 100, 100}, 4}, // one per threshold
        {1000, {500, 500}, 2},                                         // two thresholds, one post each
        {1000, {1000}, 1},
        {1000, {199, 1, 0}, 1},                                        // exactly at 0.2 counts
        {-1, {100, 100, 100}, 0},                                      // unknown length: no steps
    };
    for (const Case& c : cases) {
        const int before = listener_->messageNames().count(QStringLiteral("incrementRemoteProgress"));
        controller_->downloadResponse = UrlResponseInfo{};
        controller_->downloadResponse.expectedLength = c.expected;
        controller_->bytesReceived = 0;
        controller_->lastProgress = 0;
        for (const quint64 chunk : c.chunks)
            controller_->downloadDidReceiveDataOfLength(chunk);
        const int posted = listener_->messageNames().count(QStringLiteral("incrementRemoteProgress")) - before;
        EXPECT_EQ(posted, c.increments) << "expected length " << c.expected << ", " << c.chunks.size() << " chunks";
        EXPECT_EQ(controller_->bytesReceived, double(std::accumulate(c.chunks.begin(), c.chunks.end(), quint64(0))));
    }
}

TEST_F(DownloadControllerTest, BlockingDownloadFromAWorkerThread)
{
    downloadOnWorker(recordFor(QStringLiteral("/Tessel.dmg")));
    EXPECT_TRUE(controller_->downloadFinished);
    EXPECT_FALSE(controller_->downloadError);
    EXPECT_EQ(QFileInfo(stored(QStringLiteral("Tessel.dmg"))).size(), 200000);
    EXPECT_EQ(controller_->downloader, nullptr);
}

TEST_F(DownloadControllerTest, FailedDownloadIsReportedAndRemoved)
{
    ASSERT_TRUE(server_.setRoutes(QJsonObject{{"/Tessel.dmg", QJsonObject{{"file", "Tessel.dmg"}, {"drop_after", 1000}}}}));
    downloadOnWorker(recordFor(QStringLiteral("/Tessel.dmg")));
    EXPECT_TRUE(controller_->downloadError);
    EXPECT_FALSE(controller_->downloadFinished);
    EXPECT_FALSE(QFile::exists(stored(QStringLiteral("Tessel.dmg"))));
    ASSERT_TRUE(listener_->waitForMessages(2));
    const QList<vltest::ReceivedNotification> messages = listener_->messages();
    EXPECT_TRUE(messages.first().name.startsWith(QStringLiteral("postErrorString")));
    EXPECT_TRUE(messages.first().arguments.at(0).toString().startsWith(QStringLiteral("Download failed - ")));
    EXPECT_EQ(messages.last().name, QStringLiteral("postFinishedTask"));
}

TEST_F(DownloadControllerTest, CancelEndsTheDownloadAndLeavesNoFile)
{
    ASSERT_TRUE(server_.setRoutes(QJsonObject{{"/endless.dmg", QJsonObject{{"endless", true}}}}));
    // The body never ends: only the cancel can end the download (or the test's time limit).
    downloadOnWorker(recordFor(QStringLiteral("/endless.dmg")), 1000);
    EXPECT_TRUE(vltest::LogFixture::logText().contains(QStringLiteral("Download cancelled.")));
    EXPECT_FALSE(controller_->downloadFinished);
    EXPECT_FALSE(controller_->downloadError);
    EXPECT_FALSE(QFile::exists(stored(QStringLiteral("endless.dmg"))));
}

TEST_F(DownloadControllerTest, RefusedNamesFailWithoutARequest)
{
    for (const char* path : {"/files/..", "/files/%2F", "/"}) {
        downloadOnWorker(recordFor(QString::fromUtf8(path)));
        EXPECT_TRUE(controller_->downloadError) << path;
        EXPECT_FALSE(controller_->downloadFinished) << path;
    }
    EXPECT_TRUE(server_.requests().isEmpty());
    EXPECT_TRUE(QDir(log_.path(QStringLiteral("tmp"))).exists());
}

} // namespace
