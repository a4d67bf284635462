// Checks of the test infrastructure whose failure would leave other tests passing for the
// wrong reason: assertions that no stray request was made, or that a sandboxed run saw none of
// the test's own settings, would hold whether or not that is so. (Fake tools that stopped
// recording, or children that stayed root, already fail the tests that compare recorded calls
// or assert an unprivileged child.)
#include "support/Sandbox.h"
#include "support/TestServer.h"

#include <QEventLoop>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QSslCertificate>
#include <QSslConfiguration>

#include <gtest/gtest.h>

#include <memory>

using namespace vltest;

namespace {

TEST(TestServerTest, RecordsUnexpectedRequests)
{
    TestServer server;
    ASSERT_TRUE(server.setRoutes({{QStringLiteral("/known"), QJsonObject{{QStringLiteral("body"), QStringLiteral("x")}}}}));
    ASSERT_TRUE(server.start()) << server.errorString().toStdString();
    QNetworkAccessManager manager;
    QNetworkRequest request{QUrl(server.url(QStringLiteral("/nothing/here?q=1")))};
    request.setTransferTimeout(10000);
    QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
    tls.addCaCertificates(QSslCertificate::fromPath(server.caFile()));
    request.setSslConfiguration(tls);
    std::unique_ptr<QNetworkReply> reply(manager.get(request));
    QEventLoop loop;
    QObject::connect(reply.get(), &QNetworkReply::finished, &loop, &QEventLoop::quit);
    if (!reply->isFinished())
        loop.exec();
    EXPECT_EQ(reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), 599);
    EXPECT_EQ(server.unexpectedRequests().size(), 1);
    EXPECT_TRUE(server.requestedPaths().contains(QStringLiteral("/nothing/here")));
}

TEST(SandboxTest, RunsWithoutTheTestsEnvironment)
{
    qputenv("VELMORA_UPDATE_SERVER", "https://must-not-leak.invalid");
    Sandbox box;
    ASSERT_TRUE(box.isValid());
    const RunResult env = box.run(QStringLiteral("/usr/bin/env"), {});
    qunsetenv("VELMORA_UPDATE_SERVER");
    ASSERT_EQ(env.exitCode, 0) << env.describe().toStdString();
    EXPECT_TRUE(env.out().contains(QStringLiteral("VELMORA_SYSROOT=") + box.sysroot() + QLatin1Char('\n')));
    EXPECT_FALSE(env.out().contains(QStringLiteral("must-not-leak")));
}

} // namespace
