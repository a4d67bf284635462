// The three checks against the local HTTPS server: the Sparkle check's address rules and
// per-run memory, the group check's feed order (test feed, fallback, by application),
// beta archives and exception path, and the self check's refusals, beta and skipping.

#include "DiscoveryFixture.h"
#include "platform/system/UserDefaults.h"

using vltest::DiscoveryFixture;

namespace {

class Checks : public DiscoveryFixture {
protected:
    QString app_;
    void SetUp() override
    {
        DiscoveryFixture::SetUp();
        app_ = makeBundle(sysPath(QStringLiteral("/Applications/Tool.app")), QStringLiteral("com.velmora.Tool"),
                          QStringLiteral("5"), std::nullopt);
    }
    static QByteArray sparkleFeed(const QByteArray& version)
    {
        return "<rss><channel><item><title>Tool " + version + "</title><enclosure sparkle:version=\"" + version
             + "\" url=\"https://x/t.dmg\"/></item></channel></rss>";
    }
    std::optional<UpdateRecord> sparkle(const QString& feed, qint64 version = 5)
    {
        return controller_->updateSparkleFeed(feed, app_, QStringLiteral("com.velmora.Tool"), version, QStringLiteral("1.0"));
    }
    static QVariantMap groupFeed(int version, const QString& title)
    {
        return {{QStringLiteral("groupVersion"), version}, {QStringLiteral("groupVersionString"), title},
                {QStringLiteral("groupID"), QStringLiteral("grp")}, {QStringLiteral("title"), title}};
    }
    std::optional<UpdateRecord> group(const QString& app = QString(), const QString& subapp = QString())
    {
        return controller_->updateGroup(QStringLiteral("grp"), app, subapp, 3, QStringLiteral("3.0"), QStringLiteral("com.velmora.Tool"));
    }
    static void setDefault(const char* key, const QVariant& value)
    {
        sys::UserDefaults::standard().setObject(value, QString::fromLatin1(key));
    }
};

} // namespace

TEST_F(Checks, SparkleFeedAddressesAndTheRunsMemory)
{
    writeFeed(QStringLiteral("/feeds/tool.xml"), sparkleFeed("6"));
    const QString feed = feedURL(QStringLiteral("/feeds/tool.xml"));
    const std::optional<UpdateRecord> rec = sparkle(feed);
    ASSERT_TRUE(rec);
    EXPECT_EQ(rec->value(record::kType), QVariant(record::kTypeSparkle));
    EXPECT_EQ(rec->value(record::kBundleId), QVariant(QStringLiteral("com.velmora.Tool")));
    EXPECT_EQ(rec->value(record::kPath), QVariant(app_));
    EXPECT_EQ(rec->value(record::kSelected).toInt(), 1);
    EXPECT_EQ(rec->value(record::kTitle), QVariant(QStringLiteral("Tool 6")));
    // Checked already in this run for the same build: skipped without a request.
    server_->clearLog();
    EXPECT_FALSE(sparkle(feed));
    EXPECT_TRUE(server_->requestedPaths().isEmpty());
    // So is a newer installed build; an older one is checked again.
    EXPECT_FALSE(sparkle(feed, 6));
    EXPECT_TRUE(server_->requestedPaths().isEmpty());
    EXPECT_TRUE(sparkle(feed, 4));
    controller_->setCheckedUpdates({});
    const std::optional<UpdateRecord> current = sparkle(feed, 6);
    ASSERT_TRUE(current);
    EXPECT_TRUE(record::isUpToDateMarker(*current));

    // Other hosts and other forms of the base address are refused before any request.
    server_->clearLog();
    QString noWww = feed;
    noWww.replace(QStringLiteral("127.0.0.1"), QStringLiteral("localhost"));
    EXPECT_FALSE(sparkle(noWww));
    EXPECT_FALSE(sparkle(QStringLiteral("https://www.example.com/feed.xml")));
    EXPECT_TRUE(server_->requestedPaths().isEmpty());
    EXPECT_TRUE(vltest::LogFixture::logText().contains(QStringLiteral("Refusing to update")));

    // Invalid arguments and skipped bundles never reach the network.
    EXPECT_FALSE(sparkle(feed, 0));
    controller_->setCheckedUpdates({});
    controller_->setSkippedBundleIDs({QStringLiteral("com.velmora.Tool")});
    EXPECT_FALSE(sparkle(feed));
    EXPECT_TRUE(server_->requestedPaths().isEmpty());
}

TEST_F(Checks, SparkleHttpFeedsAreUpgradedAndRecordedUnderHttps)
{
    writeFeed(QStringLiteral("/feeds/tool.xml"), sparkleFeed("9"));
    env_.set("VELMORA_WEB_SITE", server_->baseUrl() + QStringLiteral("/"));
    const QString https = feedURL(QStringLiteral("/feeds/tool.xml"));
    QString http = https;
    http.replace(QStringLiteral("https://"), QStringLiteral("http://"));
    ASSERT_TRUE(sparkle(http));
    EXPECT_TRUE(controller_->checkedUpdates().contains(https));
    EXPECT_FALSE(controller_->checkedUpdates().contains(http));
    // Looked up under its http form, so the same feed is fetched again.
    server_->clearLog();
    EXPECT_TRUE(sparkle(http));
    EXPECT_EQ(server_->requestedPaths().size(), 1);
}

TEST_F(Checks, SparkleFailuresReturnNothing)
{
    writeFeed(QStringLiteral("/feeds/broken.xml"), "<rss><channel><item>");
    writeFeed(QStringLiteral("/feeds/empty.xml"), "<rss><channel/></rss>");
    EXPECT_FALSE(sparkle(feedURL(QStringLiteral("/feeds/broken.xml"))));
    EXPECT_FALSE(sparkle(feedURL(QStringLiteral("/feeds/empty.xml"))));
    EXPECT_FALSE(sparkle(feedURL(QStringLiteral("/feeds/absent.xml"))));
    const QString log = vltest::LogFixture::logText();
    EXPECT_TRUE(log.contains(QStringLiteral("Error loading XML for")));
    EXPECT_TRUE(log.contains(QStringLiteral("No items found.")));
}

TEST_F(Checks, GroupFeedOrderWithTestFeedAndFallback)
{
    writePlistFeed(QStringLiteral("/rss/appcasts/grp.xml"), groupFeed(4, QStringLiteral("main")));
    writePlistFeed(QStringLiteral("/test/old.xml"), groupFeed(3, QStringLiteral("test")));

    // An unreachable test feed falls back to the feed by group, never the by-application one.
    setDefault("testURL", feedURL(QStringLiteral("/test/missing.xml")));
    std::optional<UpdateRecord> rec = group(QStringLiteral("ToolApp"));
    ASSERT_TRUE(rec);
    EXPECT_EQ(rec->value(record::kTitle), QVariant(QStringLiteral("main")));
    EXPECT_EQ(server_->requestedPaths(), (QStringList{QStringLiteral("/test/missing.xml"), QStringLiteral("/rss/appcasts/grp.xml")}));

    // A test feed offering nothing newer is followed by the group's own feed.
    controller_->setCheckedUpdates({});
    server_->clearLog();
    setDefault("testURL", feedURL(QStringLiteral("/test/old.xml")));
    rec = group();
    ASSERT_TRUE(rec);
    EXPECT_EQ(rec->value(record::kTitle), QVariant(QStringLiteral("main")));
    EXPECT_EQ(controller_->checkedUpdates().value(QStringLiteral("grp")).toLongLong(), 3);
    // ... and the group is not checked twice in one run.
    EXPECT_FALSE(group());

    // Without a test feed the application name selects the feed.
    sys::UserDefaults::standard().removeObjectForKey(QStringLiteral("testURL"));
    controller_->setCheckedUpdates({});
    server_->clearLog();
    (void)group(QStringLiteral("Tool"), QStringLiteral("Sub"));
    ASSERT_EQ(server_->requests().size(), 1);
    EXPECT_EQ(server_->requests().value(0).target, QStringLiteral("/rss/appcast?app=Tool&subapp=Sub&group"));
    // A blank in the name makes the address invalid: nothing is requested.
    controller_->setCheckedUpdates({});
    server_->clearLog();
    EXPECT_FALSE(group(QStringLiteral("Tool Pro")));
    EXPECT_TRUE(server_->requestedPaths().isEmpty());
    EXPECT_TRUE(vltest::LogFixture::logText().contains(QStringLiteral("Unable to load appcast")));
}

TEST_F(Checks, GroupBetaArchiveAndStandaloneApps)
{
    QVariantMap main = groupFeed(4, QStringLiteral("main"));
    main.insert(QStringLiteral("standaloneApps"), QVariantList{QStringLiteral("com.velmora.Main")});
    writePlistFeed(QStringLiteral("/rss/appcasts/grp.xml"), main);
    QVariantMap beta = groupFeed(7, QStringLiteral("beta"));
    beta.insert(QStringLiteral("standaloneApps"), QVariantList{QStringLiteral("com.velmora.Solo")});
    writeFeed(QStringLiteral("/rss/appcasts/grp.beta.xml"), plist::encodeKeyedArchive(beta));
    setDefault("showBetaUpdates", 1);
    const std::optional<UpdateRecord> rec = group();
    ASSERT_TRUE(rec);
    EXPECT_EQ(rec->value(record::kTitle), QVariant(QStringLiteral("beta")));
    EXPECT_EQ(rec->value(record::kNewVersion).toInt(), 4); // from the main feed, as kept
    // Stand-alone applications come from the chosen (beta) entry.
    EXPECT_EQ(controller_->skippedBundleIDs(), QStringList{QStringLiteral("com.velmora.Solo")});

    // A beta feed that is not a keyed archive raises: with a window the check returns nothing.
    controller_->setCheckedUpdates({});
    writeFeed(QStringLiteral("/rss/appcasts/grp.beta.xml"), plist::writeXml(groupFeed(7, QStringLiteral("beta"))));
    EXPECT_FALSE(group());
    EXPECT_TRUE(vltest::LogFixture::logText().contains(
        QStringLiteral("Exception in -[AppController updateGroup:app:subapp:version:versionString:bundleID:forceUpdate:]. NSInvalidArgumentException")));
}

TEST_F(Checks, SelfCheckBetaSkippingAndRefusal)
{
    writePlistFeed(QStringLiteral("/rss/appcasts/com.velmora.SoftwareUpdate.xml"), groupFeed(120, QStringLiteral("1.2")));
    writePlistFeed(QStringLiteral("/rss/appcasts/com.velmora.SoftwareUpdate.beta.xml"), groupFeed(125, QStringLiteral("1.3b")));
    setDefault("showBetaUpdates", 1);
    ASSERT_TRUE(sys::writeGlobalPreferences({{QStringLiteral("skippedVersions"),
                                              QVariantMap{{QStringLiteral("com.velmora.SoftwareUpdate"), QStringLiteral("125")}}}}));
    const std::optional<UpdateRecord> rec = controller_->checkForUpdatesToSelf();
    ASSERT_TRUE(rec);
    EXPECT_EQ(rec->value(record::kNewVersion).toInt(), 125);
    EXPECT_EQ(rec->value(record::kTitle), QVariant(QStringLiteral("Velmora Software Update 1.3b")));
    EXPECT_EQ(rec->value(record::kSkipped), QVariant(true));
    ASSERT_EQ(controller_->dataArray.size(), 1);
    EXPECT_EQ(controller_->dataArray.value(0), *rec);

    // A feed whose root is not a dictionary is a fault: the check leaves by its exception path.
    writePlistFeed(QStringLiteral("/rss/appcasts/com.velmora.SoftwareUpdate.xml"), QVariantList{qlonglong(200)});
    EXPECT_FALSE(controller_->checkForUpdatesToSelf());
    EXPECT_TRUE(vltest::LogFixture::logText().contains(
        QStringLiteral("Exception in -[AppController checkForUpdatesToSelf]. NSInvalidArgumentException")));

    // Running from inside the temporary folder: no request, no record, the list emptied.
    const QString exeFolder = QCoreApplication::applicationDirPath();
    env_.set("TMPDIR", exeFolder.left(exeFolder.lastIndexOf(QLatin1Char('/')) + 1));
    server_->clearLog();
    EXPECT_FALSE(controller_->checkForUpdatesToSelf());
    EXPECT_TRUE(server_->requestedPaths().isEmpty());
    EXPECT_TRUE(controller_->dataArray.isEmpty());
}
