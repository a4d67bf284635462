// The full check: dozens of bundles checked four at a time, a cancel part-way through, forced
// identifiers, and the process test; then the installed-app scans it starts from (the name
// filter, which folders are walked, the descriptor lookup, group identifiers, link loops and
// cancellation).

#include "DiscoveryFixture.h"
#include "discovery/CheckReport.h"
#include "support/ChildProcess.h"
#include "support/RecordingUserInterface.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>

#include <thread>

#include <sys/stat.h>

using vltest::DiscoveryFixture;

namespace {

class Driver : public DiscoveryFixture {
protected:
    QString appPath(const QString& name) const { return sysPath(QStringLiteral("/Applications/%1.app").arg(name)); }
    // An installed bundle as a build leaves it: a real application's Info.plist with its build
    // settings filled in (identifier "com.velmora.<name>", build 1), and the vendor's descriptor.
    void install(const QString& name, const QVariantMap& descriptor)
    {
        QFile source(QStringLiteral(VELMORA_CORPUS_DIR "/plists/xml/hammerspoon-app-info-url-types-services-feed-keys.plist"));
        ASSERT_TRUE(source.open(QIODevice::ReadOnly));
        const QByteArray n = name.toUtf8();
        const QByteArray info = source.readAll().replace("$(PRODUCT_BUNDLE_IDENTIFIER)", "com.velmora." + n).replace("$(CURRENT_PROJECT_VERSION)", "1")
                                    .replace("$(MARKETING_VERSION)", "1.0").replace("${EXECUTABLE_NAME}", n).replace("${PRODUCT_NAME}", n);
        writeFile(appPath(name) + QStringLiteral("/Contents/Info.plist"), info);
        writeFile(appPath(name) + QStringLiteral("/Contents/Resources/VLUpdates.plist"), plist::writeXml(descriptor));
    }
    void groupMember(const QString& name, const QString& group)
    {
        install(name, {{QStringLiteral("VLGroupID"), group}, {QStringLiteral("VLGroupVersion"), 3}, {QStringLiteral("VLGroupVersionString"), QStringLiteral("3.0")}});
    }
    // The group appcast as the server sends it: "groupID", never "groupid".
    static void groupFeed(const QString& group, const QStringList& standalone)
    {
        writePlistFeed(QStringLiteral("/rss/appcasts/%1.xml").arg(group),
                       QVariantMap{{QStringLiteral("groupVersion"), 4}, {QStringLiteral("groupVersionString"), QStringLiteral("4.0")},
                                   {QStringLiteral("groupID"), group}, {QStringLiteral("title"), group + QStringLiteral(" 4.0")},
                                   {QStringLiteral("url"), QStringLiteral("https://example.invalid/%1.dmg").arg(group)},
                                   {QStringLiteral("description"), QStringLiteral("<p>Fixes.</p>")},
                                   {QStringLiteral("standaloneApps"), QVariantList(standalone.begin(), standalone.end())}});
    }
    void sparkleApp(const QString& name, const QByteArray& feed)
    {
        writeFeed(QStringLiteral("/feeds/%1.xml").arg(name), feed);
        install(name, {{QStringLiteral("SUFeedURL"), feedURL(QStringLiteral("/feeds/%1.xml").arg(name))}});
    }
};

} // namespace

TEST_F(Driver, ManyApplicationsCheckedFourAtATimeAreEachListedOnce)
{
    // One application per corpus appcast, and three groups of four members whose feeds each
    // cover two of those applications as stand-alone and answer slowly enough for the members
    // of a group to meet.
    QStringList names;
    for (const QString& file : QDir(QStringLiteral(VELMORA_CORPUS_DIR "/appcasts")).entryList({QStringLiteral("*.xml")})) {
        names << QStringLiteral("App%1").arg(names.size());
        sparkleApp(names.last(), corpusFeed(file));
    }
    ASSERT_GE(names.size(), 20);
    QMap<QString, QString> coveringGroup; // bundle identifier -> group
    const QStringList groups = {QStringLiteral("suiteA"), QStringLiteral("suiteB"), QStringLiteral("suiteC")};
    QJsonObject slowly;
    for (qsizetype g = 0; g < groups.size(); ++g) {
        QStringList covered;
        for (const QString& name : names.mid(g * 2, 2))
            coveringGroup.insert(covered.emplaceBack(QStringLiteral("com.velmora.") + name), groups[g]);
        groupFeed(groups[g], covered);
        const QString feed = QStringLiteral("rss/appcasts/%1.xml").arg(groups[g]);
        slowly.insert(QLatin1Char('/') + feed, QJsonObject{{QStringLiteral("file"), feed}, {QStringLiteral("delay_ms"), 150}});
        for (int m = 0; m < 4; ++m)
            groupMember(groups[g] + QString::number(m), groups[g]);
    }
    ASSERT_TRUE(server_->setRoutes(slowly));
    // Expected: each group once, and each other application whose own check, run alone, offers an update.
    QSet<QString> expected(groups.begin(), groups.end());
    for (const QString& name : names) {
        const QString id = QStringLiteral("com.velmora.") + name;
        const auto alone = controller_->updateSparkleFeed(feedURL(QStringLiteral("/feeds/%1.xml").arg(name)), appPath(name), id, 1, QStringLiteral("1.0"));
        if (!coveringGroup.contains(id) && alone && !record::isUpToDateMarker(*alone))
            expected.insert(id);
    }
    ASSERT_GE(expected.size(), 12);

    // Several runs shake out the orders in which the four workers meet.
    for (int run = 0; run < 4; ++run) {
        server_->clearLog();
        discovery::CheckReport report;
        controller_->checkReport = &report;
        controller_->checkForUpdates(std::nullopt);
        controller_->checkReport = nullptr;
        QStringList listed;
        for (const UpdateRecord& r : controller_->dataArray)
            listed << record::identifierOf(r);
        EXPECT_EQ(QSet<QString>(listed.begin(), listed.end()), expected) << "run " << run;
        EXPECT_EQ(listed.size(), expected.size()) << "run " << run << ": each once";
        for (const QString& group : groups)
            EXPECT_EQ(server_->requestedPaths().count(QStringLiteral("/rss/appcasts/%1.xml").arg(group)), 1) << "run " << run;
        // A stand-alone application whose update was dropped, or whose check came after its
        // group's, names the group that covers it; one whose own check came first and found
        // no update keeps what its own feed decided.
        for (const discovery::CheckedBundle& b : report.bundles()) {
            if (!coveringGroup.contains(b.bundleID))
                continue;
            EXPECT_NE(int(b.verdict.outcome), int(discovery::CheckOutcome::Offered)) << b.bundleID.toStdString();
            if (b.verdict.outcome == discovery::CheckOutcome::CoveredByGroup) {
                EXPECT_EQ(b.verdict.facts.value(QStringLiteral("group")), QVariant(coveringGroup.value(b.bundleID)));
            }
        }
    }
}

TEST_F(Driver, ACancelPartWayLetsTheQueuedChecksRunButShowsNoListOrAlert)
{
    auto recording = std::make_unique<vltest::RecordingUserInterface>();
    const vltest::RecordingUserInterface& ui = *recording;
    controller_ = AppController::init(std::move(recording));
    // Twelve applications whose feeds answer slowly: the four workers wait on the first four.
    QJsonObject routes;
    for (int i = 0; i < 12; ++i) {
        sparkleApp(QStringLiteral("Slow%1").arg(i), corpusFeed(QStringLiteral("maccy-single-item-cdata-html-description.xml")));
        routes.insert(QStringLiteral("/feeds/Slow%1.xml").arg(i),
                      QJsonObject{{QStringLiteral("file"), QStringLiteral("feeds/Slow%1.xml").arg(i)}, {QStringLiteral("delay_ms"), 2000}});
    }
    ASSERT_TRUE(server_->setRoutes(routes));

    std::atomic<bool> done{false};
    std::thread check([&] {
        controller_->checkForUpdates(std::nullopt);
        done = true;
    });
    const QDeadlineTimer guard(60000);
    while (server_->requests().size() < 4 && !guard.hasExpired())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    controller_->cancelUpdateCheck();
    while (!done && !guard.hasExpired())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    check.join();
    // The driver does not stop the queued operations: every feed is still asked for.
    EXPECT_EQ(server_->requests().size(), 12);
    EXPECT_EQ(ui.calls().count(QStringLiteral("reloadTableView")), 1) << "only the emptying at the start";
    EXPECT_EQ(ui.calls().last(), QStringLiteral("endProgress"));
    EXPECT_FALSE(ui.calls().contains(QStringLiteral("showAlert:No updates found")));
}

TEST_F(Driver, AForcedGroupThatIsInstalledIsCheckedOnce)
{
    groupMember(QStringLiteral("Alpha"), QStringLiteral("suite"));
    groupFeed(QStringLiteral("suite"), {});
    controller_->checkForUpdates(QStringList{QStringLiteral("suite")});
    EXPECT_EQ(server_->requestedPaths(), QStringList{QStringLiteral("/rss/appcasts/suite.xml")});
    EXPECT_EQ(controller_->dataArray.size(), 1);
}

TEST(ProcessCheck, TheWholeLastComponentMustMatch)
{
    QTemporaryDir dir;
    const QString exe = dir.filePath(QStringLiteral("MyTesselTest"));
    ASSERT_TRUE(QFile::copy(QStringLiteral("/bin/sleep"), exe));
    vltest::ChildProcess child;
    ASSERT_TRUE(child.start(exe, {QStringLiteral("30")}));
    EXPECT_TRUE(AppController::isProcessRunning(QStringLiteral("MyTesselTest")));
    EXPECT_FALSE(AppController::isProcessRunning(QStringLiteral("TesselTest")));
    EXPECT_FALSE(AppController::isProcessRunning(QStringLiteral("MyTessel")));
}

// One row per kind of rule, and the quirk kept, in data/NameFilter.json.
TEST(NameFilter, RulesAreTestedOnTheLowerCasedLastComponent)
{
    QFile data(QStringLiteral(VELMORA_SOURCE_DIR "/tests/app/discovery/data/NameFilter.json"));
    ASSERT_TRUE(data.open(QIODevice::ReadOnly));
    const QJsonArray rows = QJsonDocument::fromJson(data.readAll()).array();
    ASSERT_FALSE(rows.isEmpty());
    for (const QJsonValue& r : rows)
        EXPECT_EQ(AppController::isFileBlacklisted(r[u"path"].toString()), r[u"skipped"].toBool()) << r[u"why"].toString().toStdString();
}

namespace {

class Scan : public DiscoveryFixture {
protected:
    QString apps_;
    void SetUp() override
    {
        DiscoveryFixture::SetUp();
        apps_ = sysPath(QStringLiteral("/Applications"));
        const QVariantMap groupA = {{QStringLiteral("VLGroupID"), QStringLiteral("grpA")}};
        makeBundle(apps_ + QStringLiteral("/One.app"), QStringLiteral("com.velmora.One"), QStringLiteral("1"), groupA);
        makeBundle(apps_ + QStringLiteral("/Utilities/Two.app"), QStringLiteral("com.velmora.Two"), QStringLiteral("1"),
                   QVariantMap{{QStringLiteral("VLGroupID"), QStringLiteral("grpB")}});
        // A Sparkle application with a group: its group counts for the bundle scan only.
        makeBundle(apps_ + QStringLiteral("/Feed.app"), QStringLiteral("com.velmora.Feed"), QStringLiteral("1"),
                   QVariantMap{{QStringLiteral("VLGroupID"), QStringLiteral("grpC")},
                               {QStringLiteral("SUFeedURL"), QStringLiteral("https://x/f.xml")}});
        // Not a vendor bundle for the group scan (foreign identifier), still found by the bundle scan.
        makeBundle(apps_ + QStringLiteral("/Other.app"), QStringLiteral("org.other.App"), QStringLiteral("1"),
                   QVariantMap{{QStringLiteral("VLGroupID"), QStringLiteral("grpD")}});
        makeBundle(apps_ + QStringLiteral("/Plain.app"), QStringLiteral("com.velmora.Plain"), QStringLiteral("1"), std::nullopt);
        makeBundle(apps_ + QStringLiteral("/Adobe Stuff/Hidden.app"), QStringLiteral("com.velmora.H"), QStringLiteral("1"), groupA);
        makeBundle(apps_ + QStringLiteral("/Extras.localized"), QStringLiteral("com.velmora.Extras"), QStringLiteral("1"), groupA);
        makeBundle(apps_ + QStringLiteral("/Extras.localized/Inner.app"), QStringLiteral("com.velmora.Inner"), QStringLiteral("1"), groupA);
        QFile::link(apps_, apps_ + QStringLiteral("/Utilities/Back")); // an absolute link to an ancestor
        QFile::link(QStringLiteral(".."), apps_ + QStringLiteral("/Utilities/Up")); // a relative one
    }
};

QStringList sorted(QStringList list)
{
    list.sort();
    return list;
}

} // namespace

TEST_F(Scan, BundleScanFindsDescriptorsAndTheirGroups)
{
    // The descriptor in Resources wins over the one in Contents; an unreadable one counts as empty.
    const QString both = makeBundle(apps_ + QStringLiteral("/Both.app"), QStringLiteral("com.velmora.Both"), QStringLiteral("1"),
                                    QVariantMap{{QStringLiteral("VLGroupID"), QStringLiteral("fromResources")}});
    ASSERT_TRUE(plist::writeXmlFileAtomically(QVariantMap{{QStringLiteral("VLGroupID"), QStringLiteral("fromContents")}},
                                              both + QStringLiteral("/Contents/VLUpdates.plist")));
    const QString junk = makeBundle(apps_ + QStringLiteral("/Junk.app"), QStringLiteral("com.velmora.Junk"), QStringLiteral("1"), std::nullopt);
    QFile bad(junk + QStringLiteral("/Contents/VLUpdates.plist"));
    ASSERT_TRUE(bad.open(QIODevice::WriteOnly) && bad.write("not a plist") > 0);
    bad.close();
    // A link is taken for what it names: a linked folder is walked, a linked file is no
    // bundle. A name that is not valid UTF-8 is not reached by the path made of it.
    const QString elsewhere = sysPath(QStringLiteral("/Elsewhere"));
    makeBundle(elsewhere + QStringLiteral("/Linked.app"), QStringLiteral("com.velmora.Linked"), QStringLiteral("1"),
               QVariantMap{{QStringLiteral("VLGroupID"), QStringLiteral("grpE")}});
    ASSERT_TRUE(QFile::link(elsewhere, apps_ + QStringLiteral("/Shortcut")));
    ASSERT_TRUE(QFile::link(apps_ + QStringLiteral("/One.app/Contents/Info.plist"), apps_ + QStringLiteral("/File.app")));
    ASSERT_EQ(::mkdir((QFile::encodeName(apps_) + "/Bad\xff").constData(), 0755), 0);

    std::optional<QStringList> groups;
    const std::optional<QStringList> bundles = controller_->VLAppsInFolder(apps_, &groups);
    ASSERT_TRUE(bundles && groups);
    EXPECT_EQ(sorted(*bundles), sorted({apps_ + QStringLiteral("/One.app"), apps_ + QStringLiteral("/Utilities/Two.app"),
                                        apps_ + QStringLiteral("/Feed.app"), apps_ + QStringLiteral("/Other.app"),
                                        apps_ + QStringLiteral("/Extras.localized"), both, junk,
                                        apps_ + QStringLiteral("/Shortcut/Linked.app")}));
    EXPECT_EQ(sorted(*groups), sorted({QStringLiteral("grpA"), QStringLiteral("grpB"), QStringLiteral("grpC"), QStringLiteral("grpD"),
                                       QStringLiteral("grpA"), QStringLiteral("fromResources"), QStringLiteral("grpE")}));
    const QString log = vltest::LogFixture::logText();
    EXPECT_TRUE(log.contains(QStringLiteral("Warning: Symbolic link links back to itself.")));
    EXPECT_FALSE(log.contains(QStringLiteral("Error getting contents of directory"))) << log.toStdString();
}

TEST_F(Scan, GroupScanKeepsVendorGroupMembersOnly)
{
    const std::optional<QStringList> groups = controller_->groupIDsInFolder(apps_);
    ASSERT_TRUE(groups);
    EXPECT_EQ(sorted(*groups), sorted({QStringLiteral("grpA"), QStringLiteral("grpB"), QStringLiteral("grpA")}));
    EXPECT_TRUE(controller_->groupIDExists(QStringLiteral("grpB")));
    EXPECT_FALSE(controller_->groupIDExists(QStringLiteral("grpC")));
    EXPECT_FALSE(controller_->groupIDExists(QStringLiteral("GRPB")));
}

TEST_F(Scan, FailuresAndCancellationGiveNothing)
{
    std::optional<QStringList> groups = QStringList{QStringLiteral("stale")};
    EXPECT_FALSE(controller_->VLAppsInFolder(apps_ + QStringLiteral("/Missing"), &groups));
    EXPECT_FALSE(groups);
    EXPECT_TRUE(vltest::LogFixture::logText().contains(QStringLiteral("Error getting contents of directory")));
    // A folder that is a link back to an ancestor is refused at once.
    EXPECT_FALSE(controller_->VLAppsInFolder(apps_ + QStringLiteral("/Utilities/Back")));

    controller_->updateCancelled = true;
    groups = QStringList();
    EXPECT_FALSE(controller_->VLAppsInFolder(apps_, &groups));
    EXPECT_FALSE(groups);
    EXPECT_FALSE(controller_->groupIDsInFolder(apps_));
}
