// The Sparkle, group and self checks and their network layer against the local HTTPS server:
// one row per outcome the checks decide, then what rows cannot show.

#include "DiscoveryFixture.h"
#include "discovery/CheckVerdict.h"
#include "discovery/Network.h"

#include <QDeadlineTimer>

#include <functional>
#include <thread>

using discovery::CheckOutcome;
using discovery::CheckVerdict;

namespace {

enum class Answer { Record, Marker, Nothing };

// Threads of this process that serve feed requests: the sessions' own and their access managers'.
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

class Checks : public vltest::DiscoveryFixture {
protected:
    void SetUp() override
    {
        DiscoveryFixture::SetUp();
        app_ = makeBundle(sysPath(QStringLiteral("/Applications/Maccy.app")), QStringLiteral("com.velmora.Maccy"), QStringLiteral("61"), {});
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
    std::optional<UpdateRecord> sparkle(const QString& feed, const QString& app, CheckVerdict* why = nullptr)
    {
        return controller_->updateSparkleFeed(feed, app, QStringLiteral("com.velmora.Maccy"), 61, QStringLiteral("2.7.0"), why);
    }
    std::optional<UpdateRecord> group(const QString& app = QString(), const QString& subapp = QString(), CheckVerdict* why = nullptr)
    {
        return controller_->updateGroup(QStringLiteral("grp"), app, subapp, 3, QStringLiteral("3.0"), QStringLiteral("com.velmora.App"), false, why);
    }
    static void setDefault(const char* key, const QVariant& value) { sys::UserDefaults::standard().setObject(value, QString::fromLatin1(key)); }
    static bool logged(const char* text) { return vltest::LogFixture::logText().contains(QString::fromLatin1(text)); }

    QString app_;
};

} // namespace

TEST_F(Checks, EachOutcomeWithTheValueThatDecidedIt)
{
    const QString path = QStringLiteral("/appcasts/maccy.xml"), feed = feedURL(path);
    const QString groupPath = QStringLiteral("/rss/appcasts/grp.xml"), foreign = QStringLiteral("https://www.example.com/m.xml");
    // A release handed to group "next", installed here.
    makeBundle(sysPath(QStringLiteral("/Applications/Next.app")), QStringLiteral("com.velmora.Next"), QStringLiteral("1"),
               QVariantMap{{QStringLiteral("VLGroupID"), QStringLiteral("next")}});
    struct Row {
        const char* name;
        QByteArray appcast;             // served for a Sparkle check; empty: a group check of `release`
        QVariantMap release;
        std::function<void()> arrange;  // routes, state
        QString address, app;           // of the Sparkle check, when not the usual
        CheckOutcome outcome;
        Answer answer;
        const char* factKey;
        QVariant factValue;
    };
    const auto routeDrop = [&] {
        ASSERT_TRUE(server_->setRoutes({{path, QJsonObject{{QStringLiteral("file"), QStringLiteral("appcasts/maccy.xml")}, {QStringLiteral("drop_after"), 10}}}}));
    };
    const QList<Row> rows = {
        {"offered", maccy(), {}, {}, {}, {}, CheckOutcome::Offered, Answer::Record, "newVersion", QStringLiteral("62")},
        {"up to date", maccy().replace("sparkle:version=\"62\"", "sparkle:version=\"61\""), {}, {}, {}, {}, CheckOutcome::UpToDate,
         Answer::Marker, "feedVersion", qlonglong(61)},
        {"connection dropped", maccy(), {}, routeDrop, {}, {}, CheckOutcome::FeedUnreachable, Answer::Nothing, "feed", feed},
        {"foreign host", maccy(), {}, {}, foreign, {}, CheckOutcome::FeedRefused, Answer::Nothing, "feed", foreign},
        {"bundle gone", maccy(), {}, {}, {}, sysPath(QStringLiteral("/Applications/Gone.app")), CheckOutcome::Failed, Answer::Nothing, nullptr, {}},
        {"checked already", maccy(), {}, [&] { controller_->setCheckedUpdates({{feed, qlonglong(61)}}); }, {}, {},
         CheckOutcome::CheckedAlready, Answer::Nothing, "checkedVersion", qlonglong(61)},
        {"manual only", {}, groupFeed(4, {{QStringLiteral("manualInstallOnly"), QStringLiteral("YES")}}), {}, {}, {},
         CheckOutcome::ManualOnly, Answer::Record, "oldVersion", qlonglong(3)},
        {"deprecated", {}, groupFeed(4, {{QStringLiteral("deprecatedApps"), QVariantList{QStringLiteral("com.velmora.App")}}}), {}, {}, {},
         CheckOutcome::Deprecated, Answer::Nothing, "feed", feedURL(groupPath)},
        {"successor group", {}, groupFeed(4, {{QStringLiteral("groupID"), QStringLiteral("next")}}), {}, {}, {},
         CheckOutcome::SuccessorGroup, Answer::Marker, "successorGroup", QStringLiteral("next")},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        controller_->setCheckedUpdates({});
        controller_->setSkippedBundleIDs({});
        (void)server_->setRoutes({});
        row.appcast.isEmpty() ? writePlistFeed(groupPath, row.release) : writeFeed(path, row.appcast);
        if (row.arrange)
            row.arrange();
        CheckVerdict verdict;
        const std::optional<UpdateRecord> answer = row.appcast.isEmpty()
            ? group(QString(), QString(), &verdict)
            : sparkle(row.address.isEmpty() ? feed : row.address, row.app.isEmpty() ? app_ : row.app, &verdict);
        EXPECT_EQ(int(verdict.outcome), int(row.outcome)) << verdict.reason.toStdString();
        EXPECT_EQ(int(!answer ? Answer::Nothing : record::isUpToDateMarker(*answer) ? Answer::Marker : Answer::Record), int(row.answer));
        if (row.factKey) {
            EXPECT_EQ(verdict.facts.value(QString::fromLatin1(row.factKey)), row.factValue) << verdict.reason.toStdString();
        }
    }
}

TEST_F(Checks, SparkleHttpFeedsAreRecordedUnderHttpsButLookedUpAsGiven)
{
    writeFeed(QStringLiteral("/appcasts/maccy.xml"), maccy());
    const QString https = feedURL(QStringLiteral("/appcasts/maccy.xml"));
    const QString http = QString(https).replace(QStringLiteral("https://"), QStringLiteral("http://"));
    ASSERT_TRUE(sparkle(http, app_));
    EXPECT_EQ(controller_->checkedUpdates().keys(), QStringList{https});
    server_->clearLog();
    EXPECT_TRUE(sparkle(http, app_)); // so the same feed is fetched again
    EXPECT_FALSE(sparkle(https, app_));
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
    for (const auto& [app, target] : {std::pair{"Tool", "/rss/appcast?app=Tool&subapp=Sub&group"}, {"Tool Pro", ""}}) {
        controller_->setCheckedUpdates({});
        server_->clearLog();
        (void)group(QString::fromLatin1(app), QStringLiteral("Sub"));
        EXPECT_EQ(server_->requests().value(0).target, QString::fromLatin1(target)) << app;
    }
}

// The beta feed is read as a keyed archive: a real one (no release in it) leaves the main feed's
// release, whose stand-alone apps count; a plain property list there raises.
TEST_F(Checks, TheBetaGroupFeedIsAKeyedArchiveAndAPlainOneRaises)
{
    writePlistFeed(QStringLiteral("/rss/appcasts/grp.xml"), groupFeed(4, {{QStringLiteral("standaloneApps"), QVariantList{QStringLiteral("com.velmora.M")}}}));
    QFile archive(QStringLiteral(VELMORA_CORPUS_DIR "/keyed-archives/nsmutabledictionary-three-string-pairs.bplist"));
    ASSERT_TRUE(archive.open(QIODevice::ReadOnly));
    writeFeed(QStringLiteral("/rss/appcasts/grp.beta.xml"), archive.readAll());
    setDefault("showBetaUpdates", 1);
    EXPECT_EQ(group().value_or(UpdateRecord()).value(record::kTitle), QVariant(QStringLiteral("Group 4")));
    EXPECT_EQ(controller_->skippedBundleIDs(), QStringList{QStringLiteral("com.velmora.M")});
    EXPECT_FALSE(logged("Exception in"));
    // With a window, the check returns nothing through its exception path.
    controller_->setCheckedUpdates({});
    writePlistFeed(QStringLiteral("/rss/appcasts/grp.beta.xml"), groupFeed(7));
    EXPECT_FALSE(group());
    EXPECT_TRUE(logged("Exception in -[AppController updateGroup:app:subapp:version:versionString:bundleID:forceUpdate:]. NSInvalidArgumentException"));
}

TEST_F(Checks, SelfCheckOffersTheBetaMarksASkippedVersionAndRefusesFaults)
{
    const QString main = QStringLiteral("/rss/appcasts/com.velmora.SoftwareUpdate.xml");
    writePlistFeed(main, groupFeed(120));
    writePlistFeed(QStringLiteral("/rss/appcasts/com.velmora.SoftwareUpdate.beta.xml"),
                   groupFeed(125, {{QStringLiteral("groupVersionString"), QStringLiteral("1.3b")},
                                   {QStringLiteral("edSignature"), QStringLiteral("beta")}}));
    setDefault("showBetaUpdates", 1);
    ASSERT_TRUE(sys::writeGlobalPreferences({{QStringLiteral("skippedVersions"),
                                              QVariantMap{{QStringLiteral("com.velmora.SoftwareUpdate"), QStringLiteral("125")}}}}));
    CheckVerdict why;
    const std::optional<UpdateRecord> rec = controller_->checkForUpdatesToSelf(&why);
    ASSERT_TRUE(rec);
    EXPECT_EQ(rec->value(record::kTitle), QVariant(QStringLiteral("Velmora Software Update 1.3b")));
    // Unlike a group's, the version and signature are the chosen (beta) release's.
    EXPECT_EQ(rec->value(record::kNewVersion).toLongLong(), 125);
    EXPECT_EQ(rec->value(record::kEdSignature), QVariant(QStringLiteral("beta")));
    EXPECT_EQ(rec->value(record::kSkipped), QVariant(true));
    EXPECT_EQ(int(why.outcome), int(CheckOutcome::SkippedByUser));
    // A feed whose root is not a dictionary is a fault: the check leaves by its exception path.
    writePlistFeed(main, QVariantList{qlonglong(200)});
    EXPECT_FALSE(controller_->checkForUpdatesToSelf());
    EXPECT_TRUE(logged("Exception in -[AppController checkForUpdatesToSelf]. NSInvalidArgumentException"));
    // Run from inside the temporary folder, the updater never checks itself.
    const QString exeFolder = QCoreApplication::applicationDirPath();
    env_.set("TMPDIR", exeFolder.left(exeFolder.lastIndexOf(QLatin1Char('/')) + 1));
    server_->clearLog();
    EXPECT_FALSE(controller_->checkForUpdatesToSelf());
    EXPECT_TRUE(server_->requestedPaths().isEmpty());
}

TEST_F(Checks, FetchingFollowsLoggedRedirectsAndEndsEveryFailure)
{
    const auto route = [](const char* key, const QJsonValue& value) { return QJsonObject{{QString::fromLatin1(key), value}}; };
    ASSERT_TRUE(server_->setRoutes({{QStringLiteral("/a"), route("redirect", QStringLiteral("/b"))}, {QStringLiteral("/b"), route("body", QStringLiteral("hello"))},
                                    {QStringLiteral("/loop"), route("redirect", QStringLiteral("/loop"))},
                                    {QStringLiteral("/endless"), route("endless", true)}}));
    EXPECT_EQ(controller_->dataFromURLSync(feedURL(QStringLiteral("/a"))), QByteArray("hello"));
    EXPECT_TRUE(vltest::LogFixture::logText().contains(QStringLiteral("Site requested redirect to ") + feedURL(QStringLiteral("/b"))));
    for (const auto& [path, error] : {std::pair{"/loop", ""}, {"/endless", "The response is too large."}}) {
        const discovery::FetchResult r = discovery::fetchURL(feedURL(QString::fromLatin1(path)));
        EXPECT_FALSE(r.data || r.errorDescription.isEmpty()) << path;
        EXPECT_TRUE(!*error || r.errorDescription == QString::fromLatin1(error)) << path << r.errorDescription.toStdString();
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

// A server that never answers is left after the documented minute of silence (a test of its
// own, so that the wait runs beside the others).
TEST_F(Checks, AFeedThatNeverAnswersTimesOut)
{
    ASSERT_TRUE(server_->setRoutes({{QStringLiteral("/hang"), QJsonObject{{QStringLiteral("hang"), true}}}}));
    const discovery::FetchResult r = discovery::fetchURL(feedURL(QStringLiteral("/hang")));
    EXPECT_FALSE(r.data);
    EXPECT_EQ(r.errorDescription, QStringLiteral("The request timed out."));
}

TEST_F(Checks, AKeptConnectionCarriesNoCookiesOrCredentials)
{
    const auto answer = [](const char* header, const char* value, int status) {
        return QJsonObject{{QStringLiteral("status"), status}, {QStringLiteral("body"), QStringLiteral("x")},
                           {QStringLiteral("headers"), QJsonObject{{QLatin1String(header), QLatin1String(value)}}}};
    };
    ASSERT_TRUE(server_->setRoutes({{QStringLiteral("/cookie"), answer("Set-Cookie", "session=secret; Path=/", 200)},
                                    {QStringLiteral("/private"), answer("WWW-Authenticate", "Basic realm=\"feeds\"", 401)}}));
    const QString withCredentials = feedURL(QStringLiteral("/private")).replace(QStringLiteral("https://"), QStringLiteral("https://user:password@"));
    for (const QString& address : {feedURL(QStringLiteral("/cookie")), feedURL(QStringLiteral("/plain")), withCredentials, feedURL(QStringLiteral("/plain"))})
        (void)discovery::fetchURL(address);
    const QList<vltest::ServedRequest> served = server_->requests();
    ASSERT_EQ(served.size(), 4) << server_->requestedPaths().join(u' ').toStdString();
    // The second request went over the first one's connection, and no request carried what an
    // earlier answer or address left behind.
    EXPECT_EQ(served.at(1).raw.value(QStringLiteral("client_port")), served.at(0).raw.value(QStringLiteral("client_port")));
    for (const vltest::ServedRequest& r : served) {
        EXPECT_TRUE(r.raw.value(QStringLiteral("cookie")).isNull() && r.raw.value(QStringLiteral("authorization")).isNull()) << r.path.toStdString();
    }
}

TEST_F(Checks, NetworkThreadsEndWithTheirCallerAndAStopEndsARunningRequest)
{
    ASSERT_TRUE(server_->setRoutes({{QStringLiteral("/hang"), QJsonObject{{QStringLiteral("hang"), true}}},
                                    {QStringLiteral("/ok"), QJsonObject{{QStringLiteral("body"), QStringLiteral("x")}}}}));
    discovery::FetchResult hung;
    std::thread worker([&] { hung = discovery::fetchURL(feedURL(QStringLiteral("/hang"))); });
    EXPECT_TRUE(eventually([&] { return server_->requestedPaths().contains(QStringLiteral("/hang")); }));
    discovery::stopNetworkThreads();
    // Gone for good once the stop returns, their per-thread clean-up done: an exit may follow.
    EXPECT_EQ(networkThreadCount(), 0);
    worker.join();
    EXPECT_EQ(hung.errorDescription, QStringLiteral("cancelled"));
    // A later request starts a network thread again, which ends with its calling thread.
    std::thread again([&] { EXPECT_TRUE(discovery::fetchURL(feedURL(QStringLiteral("/ok"))).data); });
    again.join();
    EXPECT_TRUE(eventually([] { return networkThreadCount() == 0; })) << networkThreadCount();
}
