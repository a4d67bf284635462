// The feed download and the property-list decoding of feeds: HTTPS with the test CA,
// redirects (logged, looping, downgrading), HTTP error pages, the stall time-out, the body
// size limit, invalid addresses, the kept-alive connection with nothing else kept, the ends
// of the network threads, and the conversion error lines.

#include "DiscoveryFixture.h"
#include "discovery/Network.h"

#include <QDeadlineTimer>
#include <QThreadPool>

#include <functional>
#include <thread>


using vltest::DiscoveryFixture;

namespace {

class Network : public DiscoveryFixture {
protected:
    void TearDown() override
    {
        discovery::setTransferTimeoutMsForTesting(0);
        DiscoveryFixture::TearDown();
    }
};

QJsonObject route(const QJsonObject& behaviour) { return behaviour; }

// Threads of this process that serve feed requests: the session's own and its access
// manager's.
int networkThreadCount()
{
    int count = 0;
    for (const QString& task : QDir(QStringLiteral("/proc/self/task")).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile name(QStringLiteral("/proc/self/task/%1/comm").arg(task));
        const QByteArray comm = name.open(QIODevice::ReadOnly) ? name.readAll().trimmed() : QByteArray();
        count += comm == "Feed requests" || comm.startsWith("QNetworkAccess") ? 1 : 0;
    }
    return count;
}

// Polls until `done` holds; false after a generous guard against hanging.
bool eventually(const std::function<bool()>& done)
{
    const QDeadlineTimer guard(30000);
    while (!done() && !guard.hasExpired())
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return done();
}

} // namespace

TEST_F(Network, FetchesOverHttpsAndFollowsLoggedRedirects)
{
    ASSERT_TRUE(server_->setRoutes({{QStringLiteral("/a"), route({{QStringLiteral("redirect"), QStringLiteral("/b")}})},
                                    {QStringLiteral("/b"), route({{QStringLiteral("redirect"), feedURL(QStringLiteral("/c"))}})},
                                    {QStringLiteral("/c"), route({{QStringLiteral("body"), QStringLiteral("hello")}})}}));
    UrlResponseInfo response;
    QString error;
    const std::optional<QByteArray> data = controller_->dataFromURLSync(feedURL(QStringLiteral("/a")), &response, &error);
    ASSERT_TRUE(data) << error.toStdString();
    EXPECT_EQ(*data, QByteArray("hello"));
    EXPECT_EQ(response.statusCode, 200);
    EXPECT_EQ(response.url, feedURL(QStringLiteral("/c")));
    const QString log = vltest::LogFixture::logText();
    EXPECT_TRUE(log.contains(QStringLiteral("Site requested redirect to ") + feedURL(QStringLiteral("/b")))) << log.toStdString();
    EXPECT_TRUE(log.contains(QStringLiteral("Site requested redirect to ") + feedURL(QStringLiteral("/c"))));
}

TEST_F(Network, FailuresEndTheRequestWithAnError)
{
    ASSERT_TRUE(server_->setRoutes({{QStringLiteral("/loop"), route({{QStringLiteral("redirect"), QStringLiteral("/loop")}})},
                                    {QStringLiteral("/hang"), route({{QStringLiteral("hang"), true}})},
                                    {QStringLiteral("/endless"), route({{QStringLiteral("endless"), true}})},
                                    {QStringLiteral("/missing"), route({{QStringLiteral("status"), 404}, {QStringLiteral("body"), QStringLiteral("no such feed")}})}}));
    // A request that never ended would hold the test until its time limit.
    discovery::setTransferTimeoutMsForTesting(700);
    struct Case { const char* path; const char* error; };
    const QList<Case> cases = {{"/loop", ""}, {"/hang", "The request timed out."}, {"/endless", "The response is too large."}};
    for (const Case& c : cases) {
        const discovery::FetchResult r = discovery::fetchURL(feedURL(QString::fromLatin1(c.path)));
        EXPECT_FALSE(r.data) << c.path;
        EXPECT_FALSE(r.errorDescription.isEmpty()) << c.path;
        if (*c.error) {
            EXPECT_EQ(r.errorDescription, QString::fromLatin1(c.error)) << c.path;
        }
    }

    // An HTTP error status is an answer: its body comes back, as a URL session gives it.
    const discovery::FetchResult missing = discovery::fetchURL(feedURL(QStringLiteral("/missing")));
    ASSERT_TRUE(missing.data);
    EXPECT_EQ(*missing.data, QByteArray("no such feed"));
    EXPECT_EQ(missing.response.statusCode, 404);
}

TEST_F(Network, AddressesAndCertificatesThatAreRefused)
{
    ASSERT_TRUE(server_->setRoutes({{QStringLiteral("/ok"), route({{QStringLiteral("body"), QStringLiteral("x")}})}}));
    for (const QString& bad : {QStringLiteral("https://127.0.0.1/a b"), QStringLiteral("file:///etc/passwd"),
                               QStringLiteral(""), QStringLiteral("not a url")}) {
        const discovery::FetchResult r = discovery::fetchURL(bad);
        EXPECT_FALSE(r.data) << bad.toStdString();
        EXPECT_EQ(r.errorDescription, QStringLiteral("unsupported URL"));
    }
    EXPECT_TRUE(server_->requestedPaths().isEmpty());

    // Without the test CA the server's certificate is not trusted.
    env_.unset("VELMORA_CA_FILE");
    const discovery::FetchResult untrusted = discovery::fetchURL(feedURL(QStringLiteral("/ok")));
    EXPECT_FALSE(untrusted.data);
}

TEST_F(Network, AKeptConnectionCarriesNoCookiesOrCredentials)
{
    ASSERT_TRUE(server_->setRoutes(
        {{QStringLiteral("/cookie"), route({{QStringLiteral("body"), QStringLiteral("a")},
                                            {QStringLiteral("headers"), QJsonObject{{QStringLiteral("Set-Cookie"), QStringLiteral("session=secret; Path=/")}}}})},
         {QStringLiteral("/private"), route({{QStringLiteral("status"), 401},
                                             {QStringLiteral("headers"), QJsonObject{{QStringLiteral("WWW-Authenticate"), QStringLiteral("Basic realm=\"feeds\"")}}}})},
         {QStringLiteral("/plain"), route({{QStringLiteral("body"), QStringLiteral("b")}})}}));
    QString withCredentials = feedURL(QStringLiteral("/private"));
    withCredentials.replace(QStringLiteral("https://"), QStringLiteral("https://user:password@"));
    for (const QString& address : {feedURL(QStringLiteral("/cookie")), feedURL(QStringLiteral("/plain")), withCredentials,
                                   feedURL(QStringLiteral("/plain"))})
        (void)discovery::fetchURL(address);

    const QList<vltest::ServedRequest> served = server_->requests();
    ASSERT_EQ(served.size(), 4) << server_->requestedPaths().join(u' ').toStdString();
    // The second request went over the first one's connection...
    EXPECT_EQ(served.at(1).raw.value(QStringLiteral("client_port")), served.at(0).raw.value(QStringLiteral("client_port")));
    // ...and no request carried what an earlier answer or address left behind.
    for (const vltest::ServedRequest& r : served) {
        EXPECT_TRUE(r.raw.value(QStringLiteral("cookie")).isNull()) << r.path.toStdString();
        EXPECT_TRUE(r.raw.value(QStringLiteral("authorization")).isNull()) << r.path.toStdString();
    }
}

TEST_F(Network, NetworkThreadsEndWithTheirWorkerAndWhenStopped)
{
    ASSERT_TRUE(server_->setRoutes({{QStringLiteral("/hang"), route({{QStringLiteral("hang"), true}})},
                                    {QStringLiteral("/ok"), route({{QStringLiteral("body"), QStringLiteral("x")}})}}));
    // A pool worker whose idle time expires takes its network threads with it.
    discovery::stopNetworkThreads();
    QThreadPool pool;
    pool.setExpiryTimeout(1);
    bool fetched = false;
    pool.start([&] { fetched = discovery::fetchURL(feedURL(QStringLiteral("/ok"))).data.has_value(); });
    pool.waitForDone();
    EXPECT_TRUE(fetched);
    EXPECT_TRUE(eventually([] { return networkThreadCount() == 0; })) << networkThreadCount();

    // Stopping ends a request in progress on another thread; a later request starts again.
    discovery::FetchResult hung;
    std::thread worker([&] { hung = discovery::fetchURL(feedURL(QStringLiteral("/hang"))); });
    EXPECT_TRUE(eventually([&] { return server_->requestedPaths().contains(QStringLiteral("/hang")); }));
    discovery::stopNetworkThreads();
    worker.join();
    EXPECT_FALSE(hung.data);
    EXPECT_EQ(hung.errorDescription, QStringLiteral("cancelled"));
    EXPECT_TRUE(discovery::fetchURL(feedURL(QStringLiteral("/ok"))).data);
}

TEST_F(Network, DictionaryFromDataLogsBoundedConversionErrors)
{
    EXPECT_FALSE(controller_->dictionaryFromData(std::nullopt));
    const std::optional<QVariant> good = controller_->dictionaryFromData(plist::writeXml(QVariantMap{{QStringLiteral("k"), 1}}));
    ASSERT_TRUE(good);
    EXPECT_EQ(good->toMap().value(QStringLiteral("k")).toInt(), 1);

    QByteArray huge(8 * 1024 * 1024, 'z');
    huge.prepend("<html>");
    EXPECT_FALSE(controller_->dictionaryFromData(huge));
    const QString printed = vltest::LogFixture::logText();
    EXPECT_TRUE(printed.contains(QStringLiteral("Error converting data: ")));
    EXPECT_TRUE(printed.contains(QStringLiteral("Data: <3c68746d")));
    EXPECT_TRUE(printed.contains(QStringLiteral("Data String: <html>zzz")));
    EXPECT_TRUE(printed.contains(QStringLiteral("(8388614 bytes in all)")));
    EXPECT_LT(printed.size(), 64 * 1024);
}
