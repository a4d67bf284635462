// The feed download and the property-list decoding of feeds: HTTPS with the test CA,
// redirects (logged, looping, downgrading), HTTP error pages, the stall time-out, the body
// size limit, invalid addresses, and the conversion error lines.

#include "DiscoveryFixture.h"
#include "discovery/Network.h"


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
