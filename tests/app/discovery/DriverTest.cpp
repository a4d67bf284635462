// The full check: dozens of bundles checked four at a time, a cancel part-way through, forced
// identifiers, and the process test.

#include "DiscoveryFixture.h"
#include "discovery/CheckReport.h"
#include "support/ChildProcess.h"
#include "support/RecordingUserInterface.h"

#include <QCoreApplication>
#include <QDeadlineTimer>

#include <thread>

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
