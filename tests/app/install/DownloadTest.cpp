// The download object against the local HTTPS server: the delegate order, the body on disk,
// decoding by MIME type, and that every failure (dropped connection, short body, HTTP error,
// undecodable body, cancel) leaves no file behind.
#include "install/Download.h"

#include "support/MacEncodings.h"
#include "support/ScopedEnvironment.h"
#include "support/TestServer.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTimer>

namespace {

struct Outcome {
    QStringList events;        // "response", "data", "finish", "fail"
    UrlResponseInfo response;
    quint64 bytes = 0;
    QString error;
    bool ended = false;
};

class DownloadTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(files_.isValid());
        body_.resize(300000);
        for (auto& c : body_)
            c = char(QRandomGenerator::global()->bounded(256));
        QFile f(files_.filePath(QStringLiteral("update.dmg")));
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(body_);
        f.close();
        vltest::TestServerOptions options;
        options.root = files_.path();
        ASSERT_TRUE(server_.start(options)) << server_.errorString().toStdString();
        env_.set("VELMORA_CA_FILE", server_.caFile());
        destination_ = files_.filePath(QStringLiteral("out/Velmora Update Temp/update.dmg"));
        ASSERT_TRUE(QDir().mkpath(QFileInfo(destination_).path())); // the controller makes it
    }

    // Runs one download to its end (or `cancelAfterBytes` received, then cancels).
    Outcome run(const QString& path, std::optional<quint64> cancelAfterBytes = std::nullopt)
    {
        Outcome o;
        QEventLoop loop;
        std::unique_ptr<Download> download;
        Download::Delegate d;
        d.didReceiveResponse = [&](const UrlResponseInfo& r) { o.events << QStringLiteral("response"); o.response = r; };
        d.didReceiveDataOfLength = [&](quint64 n) {
            if (o.events.isEmpty() || o.events.last() != QStringLiteral("data"))
                o.events << QStringLiteral("data");
            o.bytes += n;
            if (cancelAfterBytes && o.bytes >= *cancelAfterBytes) {
                download->cancel();
                o.ended = true;
                loop.quit();
            }
        };
        d.didFinish = [&] { o.events << QStringLiteral("finish"); o.ended = true; download.reset(); loop.quit(); };
        d.didFail = [&](const QString& e) { o.events << QStringLiteral("fail"); o.error = e; o.ended = true; download.reset(); loop.quit(); };
        d.shouldDecodeSourceDataOfMIMEType = [](const QString& type) { return type == QStringLiteral("application/binhex"); };
        download = Download::create(server_.url(path), 60, std::move(d));
        if (!download)
            return o;
        download->setDestination(destination_, true);
        download->start();
        QTimer::singleShot(30000, &loop, &QEventLoop::quit);
        if (!o.ended)
            loop.exec();
        download.reset();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        return o;
    }

    bool route(const QString& path, const QJsonObject& behaviour)
    {
        return server_.setRoutes(QJsonObject{{path, behaviour}});
    }

    QByteArray stored() const
    {
        QFile f(destination_);
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    }

    QTemporaryDir files_;
    vltest::TestServer server_;
    vltest::ScopedEnvironment env_;
    QByteArray body_;
    QString destination_;
};


TEST_F(DownloadTest, StoresTheBodyInDelegateOrder)
{
    const Outcome o = run(QStringLiteral("/update.dmg"));
    EXPECT_EQ(o.events, (QStringList{"response", "data", "finish"}));
    EXPECT_EQ(o.response.expectedLength, body_.size());
    EXPECT_EQ(o.bytes, quint64(body_.size()));
    EXPECT_EQ(stored(), body_);
}

TEST_F(DownloadTest, UnknownLengthStillCompletes)
{
    for (const char* mode : {"chunked", "close"}) {
        ASSERT_TRUE(route(QStringLiteral("/u.dmg"), {{"file", "update.dmg"}, {"length", mode}}));
        const Outcome o = run(QStringLiteral("/u.dmg"));
        EXPECT_EQ(o.events.last(), QStringLiteral("finish")) << mode << o.error.toStdString();
        EXPECT_EQ(o.response.expectedLength, -1) << mode;
        EXPECT_EQ(stored(), body_) << mode;
    }
}

TEST_F(DownloadTest, FailuresLeaveNoFileBehind)
{
    const QList<QJsonObject> failures = {
        {{"file", "update.dmg"}, {"drop_after", 100000}},
        {{"file", "update.dmg"}, {"short_by", 10}},
        {{"status", 404}},
        {{"status", 500}},
        // A body that claims to be BinHex and is not.
        {{"body", "<html>not BinHex</html>"}, {"content_type", "application/binhex"}},
    };
    for (const QJsonObject& behaviour : failures) {
        ASSERT_TRUE(route(QStringLiteral("/bad.dmg"), behaviour));
        const Outcome o = run(QStringLiteral("/bad.dmg"));
        ASSERT_FALSE(o.events.isEmpty());
        EXPECT_EQ(o.events.last(), QStringLiteral("fail")) << QJsonDocument(behaviour).toJson().toStdString();
        EXPECT_FALSE(o.error.isEmpty());
        EXPECT_FALSE(QFile::exists(destination_)) << QJsonDocument(behaviour).toJson().toStdString();
    }
}

TEST_F(DownloadTest, DecodesOnlyTheTypesTheDelegateAsksFor)
{
    // gzip is stored exactly as it arrives.
    ASSERT_TRUE(route(QStringLiteral("/u.gz"), {{"file", "update.dmg"}, {"content_type", "application/gzip"}}));
    Outcome o = run(QStringLiteral("/u.gz"));
    EXPECT_EQ(o.events.last(), QStringLiteral("finish"));
    EXPECT_EQ(stored(), body_);

    // BinHex is decoded to its data fork; MacBinary is not, since this delegate declines it.
    const QString root = files_.path();
    QFile hqx(root + QStringLiteral("/u.hqx"));
    ASSERT_TRUE(hqx.open(QIODevice::WriteOnly));
    hqx.write(vltest::encodeBinHex(body_, "resource fork"));
    hqx.close();
    ASSERT_TRUE(route(QStringLiteral("/u.hqx"), {{"file", "u.hqx"}, {"content_type", "application/binhex"}}));
    o = run(QStringLiteral("/u.hqx"));
    EXPECT_EQ(o.events.last(), QStringLiteral("finish")) << o.error.toStdString();
    EXPECT_EQ(stored(), body_);

    const QByteArray bin = vltest::encodeMacBinary(body_, {});
    QFile macBinary(root + QStringLiteral("/u.bin"));
    ASSERT_TRUE(macBinary.open(QIODevice::WriteOnly));
    macBinary.write(bin);
    macBinary.close();
    ASSERT_TRUE(route(QStringLiteral("/u.bin"), {{"file", "u.bin"}, {"content_type", "application/macbinary"}}));
    o = run(QStringLiteral("/u.bin"));
    EXPECT_EQ(o.events.last(), QStringLiteral("finish"));
    EXPECT_EQ(stored(), bin);
}

TEST_F(DownloadTest, CancelStopsAndRemovesThePartialFile)
{
    ASSERT_TRUE(route(QStringLiteral("/endless"), {{"endless", true}}));
    const Outcome o = run(QStringLiteral("/endless"), 200000);
    EXPECT_EQ(o.events, (QStringList{"response", "data"}));
    EXPECT_FALSE(QFile::exists(destination_));
}

TEST_F(DownloadTest, OnlyHttpAddressesCanBeDownloaded)
{
    for (const char* url : {"", "not a url", "file:///etc/passwd", "ftp://example.com/a.dmg", "https://"})
        EXPECT_EQ(Download::create(QString::fromUtf8(url), 60, {}), nullptr) << url;
}

} // namespace
