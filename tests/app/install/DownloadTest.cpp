// A download: its stored name (the URL's last path component as the platform takes it, every
// name that could reach outside the download folder refused), the transfer-encoding decoders'
// refusals, and the download object against the local HTTPS server (the delegate order, the
// body on disk, decoding by MIME type, and that every failure and a cancel leave no file behind).
#include "install/BinHexDecoder.h"
#include "install/Download.h"
#include "install/DownloadPath.h"
#include "install/MacBinaryDecoder.h"

#include "support/MacEncodings.h"
#include "support/QtPrinters.h"
#include "support/ScopedEnvironment.h"
#include "support/TestServer.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTimer>

#include <tuple>

namespace {

QByteArray randomBytes(qsizetype n)
{
    QByteArray b(n, 0);
    for (auto& c : b)
        c = char(QRandomGenerator::global()->bounded(256));
    return b;
}

// One row per rule in data/DownloadNames.json; "component" null: not a URL.
TEST(DownloadName, LastComponentAndSafety)
{
    QFile data(QStringLiteral(VELMORA_SOURCE_DIR "/tests/app/install/data/DownloadNames.json"));
    ASSERT_TRUE(data.open(QIODevice::ReadOnly));
    const QJsonArray rows = QJsonDocument::fromJson(data.readAll()).array();
    ASSERT_FALSE(rows.isEmpty());
    for (const QJsonValue& row : rows) {
        const QString url = row[u"url"].toString();
        const std::optional<QString> component = row[u"component"].isNull() ? std::nullopt : std::optional(row[u"component"].toString());
        EXPECT_EQ(install::urlLastPathComponent(url), component) << row[u"why"].toString().toStdString();
        EXPECT_EQ(install::safeDownloadName(url), row[u"safe"].toBool() ? component : std::nullopt) << row[u"why"].toString().toStdString();
    }
    // An encoded NUL is refused, and only a safe name is joined to a folder.
    const QString nul = QStringLiteral("https://ex.com/a/x%00y.dmg");
    EXPECT_EQ(install::urlLastPathComponent(nul), QString(QStringLiteral("x")) + QChar(0) + QStringLiteral("y.dmg"));
    EXPECT_FALSE(install::safeDownloadName(nul).has_value());
    EXPECT_FALSE(install::downloadFilePath(QStringLiteral("/tmp/T"), QStringLiteral("https://e.x/..")).has_value());
    EXPECT_FALSE(install::downloadFilePath(QString(), QStringLiteral("https://e.x/A.dmg")).has_value());
}

// Decodes `input` fed in chunks of `chunk` bytes; nullopt (with an error) when refused. That the
// data fork comes through whatever the chunking is the decoder fuzz targets' encode mode.
template <typename Decoder>
std::optional<QByteArray> decode(const QByteArray& input, qsizetype chunk)
{
    Decoder d;
    QByteArray out;
    for (qsizetype i = 0; i < input.size(); i += chunk) {
        if (!d.feed(QByteArrayView(input).sliced(i, std::min(chunk, input.size() - i)), out)) {
            EXPECT_FALSE(d.error().isEmpty());
            return std::nullopt;
        }
    }
    if (!d.finish()) {
        EXPECT_FALSE(d.error().isEmpty());
        return std::nullopt;
    }
    return out;
}

TEST(SourceDecoding, WhatIsNotTheFormatOrIsDamagedIsRefused)
{
    const QByteArray good = vltest::encodeMacBinary("payload", {});
    QByteArray damagedCrc = good;
    damagedCrc[124] = char(damagedCrc[124] ^ 0xFF);
    QByteArray notZero = good;
    notZero[0] = 1;
    QByteArray noName = vltest::encodeMacBinary("payload", {}, false);
    noName[1] = 0;
    for (const QByteArray& input : {damagedCrc, notZero, noName, good.left(128 + 3), QByteArray("<html>not found</html>").leftJustified(300, ' ')})
        EXPECT_FALSE(decode<install::MacBinaryDecoder>(input, 64).has_value());

    const QByteArray hqx = vltest::encodeBinHex(randomBytes(2000), {});
    QByteArray badChar = hqx;
    badChar[hqx.indexOf('\n', hqx.indexOf(':')) + 5] = '~';
    for (const QByteArray& input : {vltest::encodeBinHex("abcdef", {}, true), badChar, hqx.left(hqx.size() / 2) + ":", hqx.left(hqx.size() / 2),
                                    QByteArray("no colon anywhere")})
        EXPECT_FALSE(decode<install::BinHexDecoder>(input, 16).has_value());
}

struct Outcome {
    QStringList events; // "response", "data", "finish", "fail"
    UrlResponseInfo response;
    QString error;
};

class DownloadTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(files_.isValid());
        body_ = randomBytes(300000);
        serve(QStringLiteral("update.dmg"), body_);
        vltest::TestServerOptions options;
        options.root = files_.path();
        ASSERT_TRUE(server_.start(options)) << server_.errorString().toStdString();
        env_.set("VELMORA_CA_FILE", server_.caFile());
        destination_ = files_.filePath(QStringLiteral("out/Velmora Update Temp/update.dmg"));
        ASSERT_TRUE(QDir().mkpath(QFileInfo(destination_).path())); // the controller makes it
    }

    void serve(const QString& name, const QByteArray& bytes)
    {
        QFile f(files_.filePath(name));
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(bytes);
    }

    // Runs one download to its end (or `cancelAfterBytes` received, then cancels). The
    // transfer time-out is the longest silence the download allows.
    Outcome run(const QString& path, std::optional<quint64> cancelAfterBytes = std::nullopt, int timeoutSeconds = 60)
    {
        Outcome o;
        QEventLoop loop;
        std::unique_ptr<Download> download;
        quint64 bytes = 0;
        const auto note = [&](const char* event, bool ends) {
            if (o.events.value(o.events.size() - 1) != QLatin1String(event))
                o.events << QString::fromLatin1(event);
            if (ends)
                loop.quit(); // every end is heard from the running loop
        };
        Download::Delegate d;
        d.didReceiveResponse = [&](const UrlResponseInfo& r) { note("response", false); o.response = r; };
        d.didReceiveDataOfLength = [&](quint64 n) {
            const bool cancels = cancelAfterBytes && (bytes += n) >= *cancelAfterBytes;
            if (cancels)
                download->cancel();
            note("data", cancels);
        };
        d.didFinish = [&] { download.reset(); note("finish", true); };
        d.didFail = [&](const QString& e) { o.error = e; download.reset(); note("fail", true); };
        d.shouldDecodeSourceDataOfMIMEType = [](const QString& type) { return type == QStringLiteral("application/binhex"); };
        download = Download::create(server_.url(path), timeoutSeconds, std::move(d));
        EXPECT_TRUE(download);
        if (!download)
            return o;
        download->setDestination(destination_, true);
        download->start();
        QTimer::singleShot(30000, &loop, &QEventLoop::quit); // guard against hanging
        loop.exec();
        download.reset();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        return o;
    }

    bool route(const QString& path, const QJsonObject& behaviour) { return server_.setRoutes(QJsonObject{{path, behaviour}}); }

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

TEST_F(DownloadTest, StoresTheBodyInDelegateOrderWithOrWithoutALength)
{
    Outcome o = run(QStringLiteral("/update.dmg"));
    EXPECT_EQ(o.events, (QStringList{"response", "data", "finish"}));
    EXPECT_EQ(o.response.expectedLength, body_.size());
    EXPECT_EQ(stored(), body_);
    for (const char* mode : {"chunked", "close"}) {
        ASSERT_TRUE(route(QStringLiteral("/u.dmg"), {{"file", "update.dmg"}, {"length", mode}}));
        o = run(QStringLiteral("/u.dmg"));
        EXPECT_EQ(o.events.last(), QStringLiteral("finish")) << mode << o.error.toStdString();
        EXPECT_EQ(o.response.expectedLength, -1) << mode;
        EXPECT_EQ(stored(), body_) << mode;
    }
}

TEST_F(DownloadTest, FailuresLeaveNoFileBehind)
{
    const auto file = [](const char* key, int value) { return QJsonObject{{"file", "update.dmg"}, {QLatin1String(key), value}}; };
    const QList<QJsonObject> failures = {file("drop_after", 100000), file("short_by", 10), {{"status", 404}},
                                         {{"body", "<html>not BinHex</html>"}, {"content_type", "application/binhex"}},
                                         // Part of the body, then silence with the connection open.
                                         file("stall_after", 100000)};
    Outcome o;
    for (const QJsonObject& behaviour : failures) {
        const std::string name = QJsonDocument(behaviour).toJson(QJsonDocument::Compact).toStdString();
        ASSERT_TRUE(route(QStringLiteral("/bad.dmg"), behaviour));
        o = run(QStringLiteral("/bad.dmg"), std::nullopt, 2);
        EXPECT_EQ(o.events.value(o.events.size() - 1), QStringLiteral("fail")) << name;
        EXPECT_FALSE(o.error.isEmpty() || QFile::exists(destination_)) << name;
    }
    // The stall is ended by the transfer time-out, after the body had begun.
    EXPECT_EQ(o.error, QStringLiteral("The request timed out."));
    EXPECT_TRUE(o.events.contains(QStringLiteral("data")));
}

TEST_F(DownloadTest, DecodesOnlyTheTypesTheDelegateAsksFor)
{
    // BinHex is decoded to its data fork; MacBinary is stored as it arrives, since this
    // delegate declines it.
    const QByteArray bin = vltest::encodeMacBinary(body_, {});
    serve(QStringLiteral("u.hqx"), vltest::encodeBinHex(body_, "resource fork"));
    serve(QStringLiteral("u.bin"), bin);
    for (const auto& [path, type, expected] : {std::tuple{"u.hqx", "application/binhex", body_}, std::tuple{"u.bin", "application/macbinary", bin}}) {
        ASSERT_TRUE(route(QLatin1Char('/') + QLatin1String(path), {{"file", path}, {"content_type", type}}));
        const Outcome o = run(QLatin1Char('/') + QLatin1String(path));
        EXPECT_EQ(o.events.last(), QStringLiteral("finish")) << path << o.error.toStdString();
        EXPECT_EQ(stored(), expected) << path;
    }
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
    for (const char* url : {"file:///etc/passwd", "https://"})
        EXPECT_EQ(Download::create(QString::fromUtf8(url), 60, {}), nullptr) << url;
}

} // namespace
