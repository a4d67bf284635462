// Checks of the test infrastructure itself (tests/support, scripts/testserver.py and
// scripts/fake-tools): the end-to-end tests rely on each behaviour doing what it claims.
#include "platform/plist/PropertyList.h"
#include "support/NotificationListener.h"
#include "support/QtPrinters.h"
#include "support/Sandbox.h"
#include "support/TestServer.h"

#include <QEventLoop>
#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QSslCertificate>
#include <QSslConfiguration>

#include <gtest/gtest.h>

using namespace vltest;

namespace {

struct Fetched {
    int status = 0;
    QNetworkReply::NetworkError error = QNetworkReply::NoError;
    QByteArray body;
    bool hasLength = false;
};

// One GET through Qt's network stack, trusting `caFile` when given; stops reading after
// `maxBytes` (for endless answers).
Fetched fetch(const QString& url, const QString& caFile, int timeoutMs = 10000, qint64 maxBytes = 4 << 20)
{
    QNetworkAccessManager manager;
    QNetworkRequest request{QUrl(url)};
    request.setTransferTimeout(timeoutMs);
    if (!caFile.isEmpty()) {
        QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
        tls.addCaCertificates(QSslCertificate::fromPath(caFile));
        request.setSslConfiguration(tls);
    }
    Fetched out;
    QNetworkReply* reply = manager.get(request);
    QEventLoop loop;
    QObject::connect(reply, &QNetworkReply::readyRead, &loop, [&] {
        if (reply->isOpen())
            out.body += reply->readAll();
        if (out.body.size() > maxBytes)
            reply->abort();
    });
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    if (!reply->isFinished())
        loop.exec();
    if (reply->isOpen())
        out.body += reply->readAll();
    out.status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    out.error = reply->error();
    out.hasLength = reply->hasRawHeader("Content-Length");
    reply->deleteLater();
    return out;
}

class TestServerTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        QDir().mkpath(root_.path());
        QFile f(root_.path() + QStringLiteral("/big.bin"));
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        big_ = QByteArray(200000, 'b');
        f.write(big_);
        f.close();
        QFile a(root_.path() + QStringLiteral("/a.txt"));
        ASSERT_TRUE(a.open(QIODevice::WriteOnly));
        a.write("hello\n");
    }
    void startWith(const QJsonObject& routes)
    {
        ASSERT_TRUE(server_.setRoutes(routes));
        TestServerOptions options;
        options.root = root_.path();
        ASSERT_TRUE(server_.start(options)) << server_.errorString().toStdString();
    }
    QTemporaryDir root_;
    QByteArray big_;
    TestServer server_;
};

QJsonObject route(std::initializer_list<std::pair<QString, QJsonValue>> fields)
{
    QJsonObject o;
    for (const auto& [k, v] : fields)
        o.insert(k, v);
    return o;
}

TEST_F(TestServerTest, AnswersRoutesFilesAndErrorsOverTrustedHttpsAndLogsEveryRequest)
{
    startWith({{QStringLiteral("/moved"), route({{QStringLiteral("redirect"), QStringLiteral("/a.txt")}})},
               {QStringLiteral("/loop"), route({{QStringLiteral("redirect"), QStringLiteral("/loop")}})},
               {QStringLiteral("/gone"), route({{QStringLiteral("status"), 410}})},
               {QStringLiteral("/feeds/*"), route({{QStringLiteral("body"), QStringLiteral("feed")}})}});
    const QString ca = server_.caFile();
    EXPECT_EQ(fetch(server_.url(QStringLiteral("/a.txt")), ca).body, QByteArray("hello\n"));
    const Fetched moved = fetch(server_.url(QStringLiteral("/moved")), ca);
    EXPECT_EQ(moved.body, QByteArray("hello\n"));
    EXPECT_EQ(fetch(server_.url(QStringLiteral("/loop")), ca).error, QNetworkReply::TooManyRedirectsError);
    EXPECT_EQ(fetch(server_.url(QStringLiteral("/gone")), ca).status, 410);
    EXPECT_EQ(fetch(server_.url(QStringLiteral("/feeds/x.xml?q=1")), ca).body, QByteArray("feed"));
    // Without the test authority the certificate is refused: the TLS is real.
    EXPECT_EQ(fetch(server_.url(QStringLiteral("/a.txt")), QString()).error, QNetworkReply::SslHandshakeFailedError);

    EXPECT_TRUE(server_.unexpectedRequests().isEmpty());
    EXPECT_EQ(fetch(server_.url(QStringLiteral("/nothing/here")), ca).status, 599);
    EXPECT_EQ(fetch(server_.url(QStringLiteral("/rss/appcasts/unknown.xml")), ca).status, 599);
    EXPECT_EQ(server_.unexpectedRequests().size(), 2);
    EXPECT_EQ(server_.requestedPaths().first(), QStringLiteral("/a.txt"));
    EXPECT_TRUE(server_.requestedPaths().contains(QStringLiteral("/feeds/x.xml")));
}

TEST_F(TestServerTest, ImitatesSlowBrokenAndEndlessTransfers)
{
    const QString file = QStringLiteral("big.bin");
    startWith({{QStringLiteral("/chunked"), route({{QStringLiteral("file"), file}, {QStringLiteral("length"), QStringLiteral("chunked")}})},
               {QStringLiteral("/close"), route({{QStringLiteral("file"), file}, {QStringLiteral("length"), QStringLiteral("close")}})},
               {QStringLiteral("/drop"), route({{QStringLiteral("file"), file}, {QStringLiteral("drop_after"), 1000}})},
               {QStringLiteral("/short"), route({{QStringLiteral("file"), file}, {QStringLiteral("short_by"), 10}})},
               {QStringLiteral("/slow"), route({{QStringLiteral("body"), QStringLiteral("z")}, {QStringLiteral("delay_ms"), 600}})},
               {QStringLiteral("/endless"), route({{QStringLiteral("endless"), true}})},
               {QStringLiteral("/hang"), route({{QStringLiteral("hang"), true}})}});
    const QString ca = server_.caFile();
    for (const char* path : {"/chunked", "/close"}) {
        SCOPED_TRACE(path);
        const Fetched f = fetch(server_.url(QLatin1String(path)), ca);
        EXPECT_EQ(f.error, QNetworkReply::NoError);
        EXPECT_FALSE(f.hasLength);
        EXPECT_EQ(f.body, big_);
    }
    for (const char* path : {"/drop", "/short"}) {
        SCOPED_TRACE(path);
        const Fetched f = fetch(server_.url(QLatin1String(path)), ca);
        EXPECT_NE(f.error, QNetworkReply::NoError);
        EXPECT_LT(f.body.size(), big_.size());
    }
    // The answer comes only after its delay: a client that gives up sooner gets nothing.
    const Fetched impatient = fetch(server_.url(QStringLiteral("/slow")), ca, 100);
    EXPECT_NE(impatient.error, QNetworkReply::NoError);
    EXPECT_TRUE(impatient.body.isEmpty());
    EXPECT_EQ(fetch(server_.url(QStringLiteral("/slow")), ca).body, QByteArray("z"));

    const Fetched endless = fetch(server_.url(QStringLiteral("/endless")), ca, 10000, 1 << 20);
    EXPECT_GT(endless.body.size(), 1 << 20);
    EXPECT_EQ(endless.error, QNetworkReply::OperationCanceledError);

    const Fetched hang = fetch(server_.url(QStringLiteral("/hang")), ca, 1000);
    EXPECT_EQ(hang.status, 0);
    EXPECT_NE(hang.error, QNetworkReply::NoError);
    EXPECT_EQ(server_.requests().last().path, QStringLiteral("/hang"));
}

TEST(SandboxTest, RunsProgramsInItsOwnTreeWithoutTheTestsEnvironment)
{
    qputenv("VELMORA_UPDATE_SERVER", "https://must-not-leak.invalid");
    Sandbox box(QStringLiteral("12.6"));
    ASSERT_TRUE(box.isValid());
    const auto version = box.readPlist(box.sysPath(QStringLiteral("/System/Library/CoreServices/SystemVersion.plist")));
    ASSERT_TRUE(version);
    EXPECT_EQ(version->toMap().value(QStringLiteral("ProductVersion")).toString(), QStringLiteral("12.6"));

    FakeBundle bundle;
    bundle.path = box.sysPath(QStringLiteral("/Applications/Demo.app"));
    bundle.identifier = QStringLiteral("com.velmora.demo");
    bundle.version = QStringLiteral("42");
    bundle.updates = QVariantMap{{QStringLiteral("VLGroupID"), QStringLiteral("demo")}};
    ASSERT_EQ(box.createBundle(bundle), bundle.path);
    const auto info = plist::readDictionaryFile(bundle.path + QStringLiteral("/Contents/Info.plist"));
    ASSERT_TRUE(info);
    EXPECT_EQ(info->value(QStringLiteral("CFBundleVersion")).toString(), QStringLiteral("42"));
    EXPECT_TRUE(QFileInfo(bundle.path + QStringLiteral("/Contents/MacOS/Demo")).isExecutable());
    EXPECT_TRUE(QFile::exists(bundle.path + QStringLiteral("/Contents/Resources/VLUpdates.plist")));

    const RunResult env = box.run(QStringLiteral("/usr/bin/env"), {});
    ASSERT_EQ(env.exitCode, 0) << env.describe().toStdString();
    EXPECT_TRUE(env.out().contains(QStringLiteral("HOME=") + box.home() + QLatin1Char('\n')));
    EXPECT_TRUE(env.out().contains(QStringLiteral("TMPDIR=") + box.tmp() + QLatin1Char('\n')));
    EXPECT_TRUE(env.out().contains(QStringLiteral("VELMORA_SYSROOT=") + box.sysroot() + QLatin1Char('\n')));
    EXPECT_FALSE(env.out().contains(QStringLiteral("must-not-leak")));
    qunsetenv("VELMORA_UPDATE_SERVER");

    const RunResult slow = box.run(QStringLiteral("/bin/sleep"), {QStringLiteral("30")}, {.timeoutMs = 300});
    EXPECT_TRUE(slow.timedOut);

    if (const auto uid = Sandbox::unprivilegedUid()) {
        ASSERT_TRUE(box.giveHomeTo(*uid));
        const RunResult id = box.run(QStringLiteral("/bin/sh"), {QStringLiteral("-c"), QStringLiteral("id -u && touch \"$HOME/mine\"")},
                                     {.uid = uid});
        EXPECT_EQ(id.exitCode, 0) << id.describe().toStdString();
        EXPECT_EQ(id.out().trimmed(), QString::number(*uid));
        EXPECT_TRUE(QFile::exists(box.homePath(QStringLiteral("mine"))));

        // A listener the test made as root is reachable from the unprivileged run.
        NotificationListener client(box.tmpPath(QStringLiteral("VLTesselCallback")));
        ASSERT_TRUE(client.start());
        const QString connect = QStringLiteral(
            "import socket,sys; s=socket.socket(socket.AF_UNIX); s.connect(sys.argv[1]); print(s.recv(10).decode())");
        const RunResult reached = box.run(QStringLiteral("/usr/bin/python3"),
                                          {QStringLiteral("-c"), connect, box.tmpPath(QStringLiteral("VLTesselCallback"))},
                                          {.uid = uid});
        EXPECT_EQ(reached.out().trimmed(), QStringLiteral("implements")) << reached.describe().toStdString();
    }
}

TEST(SandboxTest, FakeToolsRecordTheirCallsAndActOnTheTree)
{
    Sandbox box;
    ASSERT_TRUE(box.installFakeTools());
    const QString image = box.tmpPath(QStringLiteral("Demo.dmg"));
    ASSERT_TRUE(box.makeDiskImage(image, QStringLiteral("Demo Disk"),
                                  {{QStringLiteral("Demo.app/Contents/MacOS/Demo"), "#!/bin/sh\n"}}));
    const QString hdiutil = box.sysPath(QStringLiteral("/usr/bin/hdiutil"));
    ASSERT_EQ(box.run(hdiutil, {QStringLiteral("attach"), image, QStringLiteral("-nobrowse")}).exitCode, 0);
    const QString volume = box.sysPath(QStringLiteral("/Volumes/Demo Disk"));
    EXPECT_TRUE(QFileInfo(volume + QStringLiteral("/Demo.app/Contents/MacOS/Demo")).isExecutable());
    EXPECT_EQ(box.run(hdiutil, {QStringLiteral("detach"), volume, QStringLiteral("-force")}).exitCode, 0);
    EXPECT_FALSE(QFile::exists(volume));
    EXPECT_EQ(box.run(hdiutil, {QStringLiteral("attach"), image}, {.extraEnv = {{QStringLiteral("FAKE_HDIUTIL_FAIL"), QStringLiteral("attach")}}}).exitCode, 1);
    EXPECT_EQ(box.run(hdiutil, {QStringLiteral("attach"), box.sysPath(QStringLiteral("/System/Library/CoreServices/SystemVersion.plist"))}).exitCode, 1);

    const QString package = box.tmpPath(QStringLiteral("Demo.pkg"));
    ASSERT_TRUE(box.makePackage(package, {{QStringLiteral("Library/Demo/file.txt"), "payload"}}));
    const QString installer = box.sysPath(QStringLiteral("/usr/sbin/installer"));
    const QStringList args{QStringLiteral("-pkg"), package, QStringLiteral("-target"), QStringLiteral("/")};
    if (const auto uid = Sandbox::unprivilegedUid()) {
        const RunResult refused = box.run(installer, args, {.uid = uid});
        EXPECT_EQ(refused.exitCode, 1);
        EXPECT_TRUE(refused.err().contains(QStringLiteral("Must be run as root")));
    }
    const RunResult installed = box.run(installer, args, {.extraEnv = {{QStringLiteral("FAKE_INSTALLER_ALLOW_NONROOT"), QStringLiteral("1")}}});
    EXPECT_EQ(installed.exitCode, 0) << installed.describe().toStdString();
    EXPECT_TRUE(QFile::exists(box.sysPath(QStringLiteral("/Library/Demo/file.txt"))));

    EXPECT_EQ(box.run(box.sysPath(QStringLiteral("/usr/bin/xdg-open")), {QStringLiteral("https://x/")}).exitCode, 0);
    const QList<QStringList> opened{{QStringLiteral("xdg-open"), QStringLiteral("https://x/")}};
    EXPECT_EQ(box.toolCalls(QStringLiteral("xdg-open")), opened);
    EXPECT_EQ(box.toolCalls(QStringLiteral("hdiutil")).size(), 4);
    EXPECT_EQ(box.toolCalls(QStringLiteral("hdiutil")).first(),
              (QStringList{QStringLiteral("hdiutil"), QStringLiteral("attach"), image, QStringLiteral("-nobrowse")}));
}

} // namespace
