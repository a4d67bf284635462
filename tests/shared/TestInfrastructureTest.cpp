// Checks of the test infrastructure whose failure would leave other tests passing for the
// wrong reason: assertions that no stray request was made, no tool was run or a run was
// unprivileged would hold whether or not that is so.
#include "support/QtPrinters.h"
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

TEST(SandboxTest, RunsWithoutTheTestsEnvironmentAsTheUserAskedFor)
{
    qputenv("VELMORA_UPDATE_SERVER", "https://must-not-leak.invalid");
    Sandbox box;
    ASSERT_TRUE(box.isValid());
    const RunResult env = box.run(QStringLiteral("/usr/bin/env"), {});
    qunsetenv("VELMORA_UPDATE_SERVER");
    ASSERT_EQ(env.exitCode, 0) << env.describe().toStdString();
    EXPECT_TRUE(env.out().contains(QStringLiteral("VELMORA_SYSROOT=") + box.sysroot() + QLatin1Char('\n')));
    EXPECT_FALSE(env.out().contains(QStringLiteral("must-not-leak")));
    if (const auto uid = Sandbox::unprivilegedUid()) {
        ASSERT_TRUE(box.giveHomeTo(*uid));
        const RunResult id = box.run(QStringLiteral("/bin/sh"), {QStringLiteral("-c"), QStringLiteral("id -u && touch \"$HOME/mine\"")}, {.uid = uid});
        EXPECT_EQ(id.out().trimmed(), QString::number(*uid)) << id.describe().toStdString();
        EXPECT_TRUE(QFile::exists(box.homePath(QStringLiteral("mine"))));
    }
}

TEST(SandboxTest, FakeToolsRecordTheirCalls)
{
    Sandbox box;
    ASSERT_TRUE(box.installFakeTools());
    EXPECT_TRUE(box.toolCalls().isEmpty());
    EXPECT_EQ(box.run(box.sysPath(QStringLiteral("/usr/bin/xdg-open")), {QStringLiteral("https://x/ y")}).exitCode, 0);
    EXPECT_EQ(box.toolCalls(), (QList<QStringList>{{QStringLiteral("xdg-open"), QStringLiteral("https://x/ y")}}));
    EXPECT_TRUE(box.toolCalls(QStringLiteral("mkdir")).isEmpty());
}

} // namespace
