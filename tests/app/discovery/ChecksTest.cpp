// The Sparkle, group and self checks and their network layer against the local HTTPS server:
// one row per outcome the checks decide, then what rows cannot show.

#include "DiscoveryFixture.h"
#include "discovery/CheckVerdict.h"
#include "discovery/Network.h"

#include <QDeadlineTimer>
#include <QThreadPool>

#include <atomic>
#include <functional>
#include <thread>

using discovery::CheckOutcome;
using discovery::CheckVerdict;
using vltest::DiscoveryFixture;

namespace {

enum class Answer { Record, Marker, Nothing };

// Threads of this process that serve feed requests: the sessions' own and their access
// managers'.
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

struct Row {
    const char* name;
    std::function<void()> arrange; // feeds, routes, state
    CheckOutcome outcome;
    Answer answer;
    const char* factKey; // a value the rule decided on
    QVariant factValue;
};

class Checks : public DiscoveryFixture {
protected:
    QString app_;
    void SetUp() override
    {
        DiscoveryFixture::SetUp();
        app_ = makeBundle(sysPath(QStringLiteral("/Applications/Maccy.app")), QStringLiteral("com.velmora.Maccy"), QStringLiteral("61"), {});
    }
    void TearDown() override
    {
        discovery::setTransferTimeoutMsForTesting(0);
        DiscoveryFixture::TearDown();
    }

    // Runs each row from a fresh run state; `check` calls the real check with the verdict.
    void runRows(const QList<Row>& rows, const std::function<std::optional<UpdateRecord>(CheckVerdict*)>& check)
    {
        for (const Row& row : rows) {
            SCOPED_TRACE(row.name);
            controller_->setCheckedUpdates({});
            controller_->setSkippedBundleIDs({});
            (void)server_->setRoutes({});
            row.arrange();
            CheckVerdict verdict;
            const std::optional<UpdateRecord> answer = check(&verdict);
            EXPECT_EQ(int(verdict.outcome), int(row.outcome)) << verdict.reason.toStdString();
            EXPECT_EQ(int(!answer ? Answer::Nothing : record::isUpToDateMarker(*answer) ? Answer::Marker : Answer::Record), int(row.answer));
            if (row.factKey) {
                EXPECT_EQ(verdict.facts.value(QString::fromLatin1(row.factKey)), row.factValue) << verdict.reason.toStdString();
            }
        }
    }
    // The real single-item appcast (build 62).
    static QByteArray maccy() { return corpusFeed(QStringLiteral("maccy-single-item-cdata-html-description.xml")); }
    static QVariantMap groupFeed(int version, const QVariantMap& extra = {})
    {
        QVariantMap feed = {{QStringLiteral("groupVersion"), version}, {QStringLiteral("groupVersionString"), QStringLiteral("4.0")},
                            {QStringLiteral("groupID"), QStringLiteral("grp")}, {QStringLiteral("title"), QStringLiteral("Group %1").arg(version)},
                            {QStringLiteral("url"), QStringLiteral("https://example.invalid/g.pkg")}};
        feed.insert(extra);
        return feed;
    }
    static void route(const QString& path, const QJsonObject& behaviour) { ASSERT_TRUE(server_->setRoutes({{path, behaviour}})); }
    std::optional<UpdateRecord> sparkle(const QString& feed, qint64 build)
    {
        return controller_->updateSparkleFeed(feed, app_, QStringLiteral("com.velmora.Maccy"), build, QStringLiteral("2.7.0"));
    }
    std::optional<UpdateRecord> group(const QString& app = QString(), const QString& subapp = QString())
    {
        return controller_->updateGroup(QStringLiteral("grp"), app, subapp, 3, QStringLiteral("3.0"), QStringLiteral("com.velmora.App"));
    }
    static void setDefault(const char* key, const QVariant& value) { sys::UserDefaults::standard().setObject(value, QString::fromLatin1(key)); }
    static QString log() { return vltest::LogFixture::logText(); }
};

} // namespace

TEST_F(Checks, EachOutcomeWithTheValueThatDecidedIt)
{
    const QString path = QStringLiteral("/appcasts/maccy.xml");
    const QString groupPath = QStringLiteral("/rss/appcasts/grp.xml");
    const QString feed = feedURL(path);
    QString appPath;
    QString address;
    bool isGroup = false;
    auto serve = [&](const QByteArray& bytes, const std::function<void()>& also = {}) {
        return [&, bytes, also] {
            writeFeed(path, bytes);
            appPath = app_;
            address = feed;
            isGroup = false;
            if (also)
                also();
        };
    };
    auto serveGroup = [&](const QVariantMap& release) { return [&, release] { writePlistFeed(groupPath, release); isGroup = true; }; };
    // A release handed to group "next", installed here.
    makeBundle(sysPath(QStringLiteral("/Applications/Next.app")), QStringLiteral("com.velmora.Next"), QStringLiteral("1"),
               QVariantMap{{QStringLiteral("VLGroupID"), QStringLiteral("next")}});
    const QList<Row> rows = {
        {"offered", serve(maccy()), CheckOutcome::Offered, Answer::Record, "newVersion", QStringLiteral("62")},
        {"up to date", serve(maccy().replace("sparkle:version=\"62\"", "sparkle:version=\"61\"")), CheckOutcome::UpToDate,
         Answer::Marker, "feedVersion", qlonglong(61)},
        {"connection dropped", serve(maccy(), [&] { route(path, {{QStringLiteral("file"), QStringLiteral("appcasts/maccy.xml")}, {QStringLiteral("drop_after"), 10}}); }),
         CheckOutcome::FeedUnreachable, Answer::Nothing, "feed", feed},
        {"foreign host", serve(maccy(), [&] { address = QStringLiteral("https://www.example.com/m.xml"); }), CheckOutcome::FeedRefused,
         Answer::Nothing, "feed", QStringLiteral("https://www.example.com/m.xml")},
        {"bundle gone", serve(maccy(), [&] { appPath = sysPath(QStringLiteral("/Applications/Gone.app")); }), CheckOutcome::Failed,
         Answer::Nothing, nullptr, {}},
        {"checked already", serve(maccy(), [&] { controller_->setCheckedUpdates({{feed, qlonglong(61)}}); }),
         CheckOutcome::CheckedAlready, Answer::Nothing, "checkedVersion", qlonglong(61)},
        {"manual only", serveGroup(groupFeed(4, {{QStringLiteral("manualInstallOnly"), QStringLiteral("YES")}})), CheckOutcome::ManualOnly,
         Answer::Record, "oldVersion", qlonglong(3)},
        {"deprecated", serveGroup(groupFeed(4, {{QStringLiteral("deprecatedApps"), QVariantList{QStringLiteral("com.velmora.App")}}})),
         CheckOutcome::Deprecated, Answer::Nothing, "feed", feedURL(groupPath)},
        {"successor group", serveGroup(groupFeed(4, {{QStringLiteral("groupID"), QStringLiteral("next")}})), CheckOutcome::SuccessorGroup,
         Answer::Marker, "successorGroup", QStringLiteral("next")},
    };
    runRows(rows, [&](CheckVerdict* why) {
        return isGroup ? controller_->updateGroup(QStringLiteral("grp"), QString(), QString(), 3, QStringLiteral("3.0"), QStringLiteral("com.velmora.App"), false, why)
                       : controller_->updateSparkleFeed(address, appPath, QStringLiteral("com.velmora.Maccy"), 61, QStringLiteral("2.7.0"), why);
    });
}

TEST_F(Checks, SparkleHttpFeedsAreRecordedUnderHttpsButLookedUpAsGiven)
{
    writeFeed(QStringLiteral("/appcasts/maccy.xml"), maccy());
    const QString https = feedURL(QStringLiteral("/appcasts/maccy.xml"));
    const QString http = QString(https).replace(QStringLiteral("https://"), QStringLiteral("http://"));
    ASSERT_TRUE(sparkle(http, 61));
    EXPECT_EQ(controller_->checkedUpdates().keys(), QStringList{https});
    server_->clearLog();
    EXPECT_TRUE(sparkle(http, 61)); // so the same feed is fetched again
    EXPECT_FALSE(sparkle(https, 61));
    EXPECT_EQ(server_->requestedPaths().size(), 1);
}

TEST_F(Checks, GroupFeedOrderWithTestFeedFallbackAndApplicationName)
{
    writePlistFeed(QStringLiteral("/rss/appcasts/grp.xml"), groupFeed(4));
    writePlistFeed(QStringLiteral("/test/old.xml"), groupFeed(3));
    // An unreachable test feed falls back to the feed by group, never the by-application one.
    setDefault("testURL", feedURL(QStringLiteral("/test/missing.xml")));
    ASSERT_TRUE(group(QStringLiteral("ToolApp")));
    EXPECT_EQ(server_->requestedPaths(), (QStringList{QStringLiteral("/test/missing.xml"), QStringLiteral("/rss/appcasts/grp.xml")}));
    // A test feed offering nothing newer is followed by the group's own feed, once per run.
    controller_->setCheckedUpdates({});
    setDefault("testURL", feedURL(QStringLiteral("/test/old.xml")));
    EXPECT_EQ(group().value_or(UpdateRecord()).value(record::kTitle), QVariant(QStringLiteral("Group 4")));
    EXPECT_FALSE(group());
    // Without a test feed the application name selects the feed; a blank in it makes the
    // address invalid, and nothing is requested.
    sys::UserDefaults::standard().removeObjectForKey(QStringLiteral("testURL"));
    controller_->setCheckedUpdates({});
    server_->clearLog();
    (void)group(QStringLiteral("Tool"), QStringLiteral("Sub"));
    EXPECT_EQ(server_->requests().value(0).target, QStringLiteral("/rss/appcast?app=Tool&subapp=Sub&group"));
    controller_->setCheckedUpdates({});
    server_->clearLog();
    EXPECT_FALSE(group(QStringLiteral("Tool Pro")));
    EXPECT_TRUE(server_->requestedPaths().isEmpty());
}

TEST_F(Checks, GroupBetaArchiveStandaloneAppsAndItsExceptionPath)
{
    writePlistFeed(QStringLiteral("/rss/appcasts/grp.xml"), groupFeed(4, {{QStringLiteral("standaloneApps"), QVariantList{QStringLiteral("com.velmora.M")}}}));
    writeFeed(QStringLiteral("/rss/appcasts/grp.beta.xml"),
              plist::encodeKeyedArchive(groupFeed(7, {{QStringLiteral("title"), QStringLiteral("beta")},
                                                      {QStringLiteral("standaloneApps"), QVariantList{QStringLiteral("com.velmora.Solo")}}})));
    setDefault("showBetaUpdates", 1);
    const std::optional<UpdateRecord> rec = group();
    ASSERT_TRUE(rec);
    EXPECT_EQ(rec->value(record::kTitle), QVariant(QStringLiteral("beta")));
    EXPECT_EQ(rec->value(record::kNewVersion).toInt(), 4); // from the main feed, as kept
    // Stand-alone applications come from the chosen (beta) entry.
    EXPECT_EQ(controller_->skippedBundleIDs(), QStringList{QStringLiteral("com.velmora.Solo")});
    // A beta feed that is not a keyed archive raises: with a window the check returns nothing.
    controller_->setCheckedUpdates({});
    writePlistFeed(QStringLiteral("/rss/appcasts/grp.beta.xml"), groupFeed(7));
    EXPECT_FALSE(group());
    EXPECT_TRUE(log().contains(QStringLiteral(
        "Exception in -[AppController updateGroup:app:subapp:version:versionString:bundleID:forceUpdate:]. NSInvalidArgumentException")));
}

TEST_F(Checks, SelfCheckOffersTheBetaMarksASkippedVersionAndRefusesFaults)
{
    const QString main = QStringLiteral("/rss/appcasts/com.velmora.SoftwareUpdate.xml");
    writePlistFeed(main, groupFeed(120));
    writePlistFeed(QStringLiteral("/rss/appcasts/com.velmora.SoftwareUpdate.beta.xml"),
                   groupFeed(125, {{QStringLiteral("groupVersionString"), QStringLiteral("1.3b")}}));
    setDefault("showBetaUpdates", 1);
    ASSERT_TRUE(sys::writeGlobalPreferences({{QStringLiteral("skippedVersions"),
                                              QVariantMap{{QStringLiteral("com.velmora.SoftwareUpdate"), QStringLiteral("125")}}}}));
    CheckVerdict why;
    const std::optional<UpdateRecord> rec = controller_->checkForUpdatesToSelf(&why);
    ASSERT_TRUE(rec);
    EXPECT_EQ(rec->value(record::kTitle), QVariant(QStringLiteral("Velmora Software Update 1.3b")));
    EXPECT_EQ(rec->value(record::kSkipped), QVariant(true));
    EXPECT_EQ(int(why.outcome), int(CheckOutcome::SkippedByUser));
    EXPECT_EQ(controller_->dataArray, QList<UpdateRecord>{*rec}); // the whole list
    // A feed whose root is not a dictionary is a fault: the check leaves by its exception path.
    writePlistFeed(main, QVariantList{qlonglong(200)});
    EXPECT_FALSE(controller_->checkForUpdatesToSelf());
    EXPECT_TRUE(log().contains(QStringLiteral("Exception in -[AppController checkForUpdatesToSelf]. NSInvalidArgumentException")));
    // Run from inside the temporary folder, the updater never checks itself.
    const QString exeFolder = QCoreApplication::applicationDirPath();
    env_.set("TMPDIR", exeFolder.left(exeFolder.lastIndexOf(QLatin1Char('/')) + 1));
    server_->clearLog();
    EXPECT_FALSE(controller_->checkForUpdatesToSelf());
    EXPECT_TRUE(server_->requestedPaths().isEmpty());
}

TEST_F(Checks, FetchingFollowsLoggedRedirectsAndEndsEveryFailure)
{
    const auto body = [](const char* text) { return QJsonObject{{QStringLiteral("body"), QString::fromLatin1(text)}}; };
    ASSERT_TRUE(server_->setRoutes({{QStringLiteral("/a"), QJsonObject{{QStringLiteral("redirect"), QStringLiteral("/b")}}},
                                    {QStringLiteral("/b"), body("hello")},
                                    {QStringLiteral("/loop"), QJsonObject{{QStringLiteral("redirect"), QStringLiteral("/loop")}}},
                                    {QStringLiteral("/hang"), QJsonObject{{QStringLiteral("hang"), true}}},
                                    {QStringLiteral("/endless"), QJsonObject{{QStringLiteral("endless"), true}}}}));
    EXPECT_EQ(controller_->dataFromURLSync(feedURL(QStringLiteral("/a"))), QByteArray("hello"));
    EXPECT_TRUE(log().contains(QStringLiteral("Site requested redirect to ") + feedURL(QStringLiteral("/b"))));
    // A request that never ended would hold the test until its time limit.
    discovery::setTransferTimeoutMsForTesting(700);
    struct Case { const char* path; const char* error; };
    for (const Case& c : QList<Case>{{"/loop", ""}, {"/hang", "The request timed out."}, {"/endless", "The response is too large."}}) {
        const discovery::FetchResult r = discovery::fetchURL(feedURL(QString::fromLatin1(c.path)));
        EXPECT_FALSE(r.data) << c.path;
        EXPECT_EQ(r.errorDescription, *c.error ? QString::fromLatin1(c.error) : r.errorDescription) << c.path;
        EXPECT_FALSE(r.errorDescription.isEmpty()) << c.path;
    }
    // Addresses that are not http(s) URLs are refused before any request; without the test CA
    // the server's certificate is not trusted.
    server_->clearLog();
    for (const QString& bad : {QStringLiteral("https://127.0.0.1/a b"), QStringLiteral("file:///etc/passwd")})
        EXPECT_EQ(discovery::fetchURL(bad).errorDescription, QStringLiteral("unsupported URL")) << bad.toStdString();
    EXPECT_TRUE(server_->requestedPaths().isEmpty());
    env_.unset("VELMORA_CA_FILE");
    EXPECT_FALSE(discovery::fetchURL(feedURL(QStringLiteral("/b"))).data);
}

TEST_F(Checks, AKeptConnectionCarriesNoCookiesOrCredentials)
{
    const QJsonObject cookie{{QStringLiteral("body"), QStringLiteral("a")},
                             {QStringLiteral("headers"), QJsonObject{{QStringLiteral("Set-Cookie"), QStringLiteral("session=secret; Path=/")}}}};
    const QJsonObject challenge{{QStringLiteral("status"), 401},
                                {QStringLiteral("headers"), QJsonObject{{QStringLiteral("WWW-Authenticate"), QStringLiteral("Basic realm=\"feeds\"")}}}};
    ASSERT_TRUE(server_->setRoutes({{QStringLiteral("/cookie"), cookie},
                                    {QStringLiteral("/private"), challenge},
                                    {QStringLiteral("/plain"), QJsonObject{{QStringLiteral("body"), QStringLiteral("b")}}}}));
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

TEST_F(Checks, NetworkThreadsEndWithTheirWorkerAndWhenStopped)
{
    ASSERT_TRUE(server_->setRoutes({{QStringLiteral("/hang"), QJsonObject{{QStringLiteral("hang"), true}}},
                                    {QStringLiteral("/ok"), QJsonObject{{QStringLiteral("body"), QStringLiteral("x")}}}}));
    // A pool worker whose idle time expires takes its network threads with it.
    discovery::stopNetworkThreads();
    QThreadPool pool;
    pool.setExpiryTimeout(1);
    std::atomic<bool> fetched{false};
    pool.start([&] { fetched = discovery::fetchURL(feedURL(QStringLiteral("/ok"))).data.has_value(); });
    pool.waitForDone();
    EXPECT_TRUE(fetched);
    EXPECT_TRUE(eventually([] { return networkThreadCount() == 0; })) << networkThreadCount();

    // Stopping ends a request in progress on another thread; a later request starts again.
    discovery::FetchResult hung;
    std::thread worker([&] { hung = discovery::fetchURL(feedURL(QStringLiteral("/hang"))); });
    EXPECT_TRUE(eventually([&] { return server_->requestedPaths().contains(QStringLiteral("/hang")); }));
    discovery::stopNetworkThreads();
    // Gone for good once the stop returns, their per-thread clean-up done: an exit may follow.
    EXPECT_EQ(networkThreadCount(), 0);
    worker.join();
    EXPECT_FALSE(hung.data);
    EXPECT_EQ(hung.errorDescription, QStringLiteral("cancelled"));
    EXPECT_TRUE(discovery::fetchURL(feedURL(QStringLiteral("/ok"))).data);
}
