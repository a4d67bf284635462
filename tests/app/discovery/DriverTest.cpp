// The full check: one group check per group, duplicates and skipped identifiers dropped,
// forced identifiers, the verdicts the scan and the driver give each bundle, the list
// helpers, and the process test.

#include "DiscoveryFixture.h"
#include "discovery/CheckReport.h"
#include "support/ChildProcess.h"

using vltest::DiscoveryFixture;

namespace {

class Driver : public DiscoveryFixture {
protected:
    QString apps_;
    void SetUp() override
    {
        DiscoveryFixture::SetUp();
        apps_ = sysPath(QStringLiteral("/Applications"));
    }
    void groupMember(const QString& name, const QString& group)
    {
        makeBundle(apps_ + QLatin1Char('/') + name + QStringLiteral(".app"), QStringLiteral("com.velmora.") + name, QStringLiteral("3"),
                   QVariantMap{{QStringLiteral("VLGroupID"), group}, {QStringLiteral("VLGroupVersion"), 3},
                               {QStringLiteral("VLGroupVersionString"), QStringLiteral("3.0")}});
        writePlistFeed(QStringLiteral("/rss/appcasts/") + group + QStringLiteral(".xml"),
                       QVariantMap{{QStringLiteral("groupVersion"), 4}, {QStringLiteral("groupID"), group},
                                   {QStringLiteral("title"), group + QStringLiteral(" 4")},
                                   {QStringLiteral("standaloneApps"), QVariantList{QStringLiteral("com.velmora.Solo")}}});
    }
    void sparkleApp(const QString& name, const QByteArray& title)
    {
        const QString feed = QStringLiteral("/feeds/") + name + QStringLiteral(".xml");
        writeFeed(feed, "<rss><channel><item><title>" + title + "</title><enclosure sparkle:version='9' url='u'/></item></channel></rss>");
        makeBundle(apps_ + QLatin1Char('/') + name + QStringLiteral(".app"), QStringLiteral("com.velmora.") + name, QStringLiteral("2"),
                   QVariantMap{{QStringLiteral("SUFeedURL"), feedURL(feed)}});
    }
    int requestsFor(const QString& path) const { return int(server_->requestedPaths().count(path)); }
};

QVariantMap rec(const char* type, const char* group, const char* bundle, const char* title = "t")
{
    QVariantMap r = {{record::kType, QString::fromLatin1(type)}, {record::kTitle, QString::fromLatin1(title)}};
    if (group)
        r.insert(record::kGroupId, QString::fromLatin1(group));
    if (bundle)
        r.insert(record::kBundleId, QString::fromLatin1(bundle));
    return r;
}

} // namespace

TEST_F(Driver, GroupsAreCheckedOnceAndDuplicatesAndSkippedAppsDropped)
{
    groupMember(QStringLiteral("Alpha"), QStringLiteral("suite"));
    groupMember(QStringLiteral("Beta"), QStringLiteral("suite"));
    sparkleApp(QStringLiteral("First"), "Same Title");
    sparkleApp(QStringLiteral("Second"), "Same Title");
    sparkleApp(QStringLiteral("Solo"), "Solo 9"); // covered by the group feed's stand-alone list

    controller_->checkForUpdates(std::nullopt);
    EXPECT_EQ(requestsFor(QStringLiteral("/rss/appcasts/suite.xml")), 1);
    QStringList titles;
    for (const UpdateRecord& r : controller_->dataArray)
        titles << r.value(record::kTitle).toString();
    titles.sort();
    EXPECT_EQ(titles, (QStringList{QStringLiteral("Same Title"), QStringLiteral("suite 4")}));
}

TEST_F(Driver, EveryBundleTheCheckLookedAtGetsTheVerdictOfTheRuleThatDecided)
{
    using discovery::CheckOutcome;
    groupMember(QStringLiteral("Alpha"), QStringLiteral("suite"));
    groupMember(QStringLiteral("Beta"), QStringLiteral("suite"));
    sparkleApp(QStringLiteral("First"), "Same Title");
    sparkleApp(QStringLiteral("Second"), "Same Title");
    sparkleApp(QStringLiteral("Solo"), "Solo 9"); // the group feed lists it as stand-alone
    makeBundle(apps_ + QStringLiteral("/Foreign.app"), QStringLiteral("com.example.Foreign"), QStringLiteral("1"),
               QVariantMap{{QStringLiteral("VLGroupID"), QStringLiteral("suite")}});
    makeBundle(apps_ + QStringLiteral("/Sourceless.app"), QStringLiteral("com.velmora.Sourceless"), QStringLiteral("1"),
               QVariantMap{{QStringLiteral("VLGroupVersion"), 1}});
    makeBundle(apps_ + QStringLiteral("/Plain.app"), QStringLiteral("com.velmora.Plain"), QStringLiteral("1"), std::nullopt);
    makeBundle(apps_ + QStringLiteral("/Adobe Tool.app"), QStringLiteral("com.velmora.Adobe"), QStringLiteral("1"),
               QVariantMap{{QStringLiteral("VLGroupID"), QStringLiteral("suite")}});

    discovery::CheckReport report;
    controller_->checkReport = &report;
    controller_->checkForUpdates(std::nullopt);
    controller_->checkReport = nullptr;

    QMap<QString, discovery::CheckedBundle> byName;
    for (const discovery::CheckedBundle& b : report.bundles())
        byName.insert(QFileInfo(b.path).completeBaseName(), b);
    auto outcomes = [&](const QStringList& names) {
        QList<int> found;
        for (const QString& name : names)
            found << int(byName.value(name).verdict.outcome);
        std::sort(found.begin(), found.end());
        return found;
    };
    auto sorted = [](QList<CheckOutcome> list) {
        QList<int> ints;
        for (CheckOutcome o : list)
            ints << int(o);
        std::sort(ints.begin(), ints.end());
        return ints;
    };
    // One member of the group offers its update; the other finds it listed (which one wins
    // the list's lock first is up to the queue). The same holds for two equal titles.
    EXPECT_EQ(outcomes({QStringLiteral("Alpha"), QStringLiteral("Beta")}),
              sorted({CheckOutcome::Offered, CheckOutcome::CheckedAlready}));
    EXPECT_EQ(outcomes({QStringLiteral("First"), QStringLiteral("Second")}),
              sorted({CheckOutcome::Offered, CheckOutcome::Duplicate}));
    // Whether its own check ran before the group's or its record was dropped afterwards, the
    // stand-alone application names the group that covers it.
    EXPECT_EQ(int(byName.value(QStringLiteral("Solo")).verdict.outcome), int(CheckOutcome::CoveredByGroup));
    EXPECT_EQ(byName.value(QStringLiteral("Solo")).verdict.facts.value(QStringLiteral("group")), QVariant(QStringLiteral("suite")));
    EXPECT_EQ(int(byName.value(QStringLiteral("Foreign")).verdict.outcome), int(CheckOutcome::NotVendorBundle));
    EXPECT_FALSE(byName.value(QStringLiteral("Foreign")).decidedByScan);
    EXPECT_EQ(int(byName.value(QStringLiteral("Sourceless")).verdict.outcome), int(CheckOutcome::NotChecked));
    // The scan passes over a bundle without descriptor and a name its filter skips.
    for (const QString& name : {QStringLiteral("Plain"), QStringLiteral("Adobe Tool")}) {
        EXPECT_TRUE(byName.value(name).decidedByScan) << name.toStdString();
        EXPECT_EQ(int(byName.value(name).verdict.outcome), int(CheckOutcome::NotVendorBundle)) << name.toStdString();
    }
    EXPECT_EQ(report.scannedFolders().value(0), apps_);
    // The report changes nothing in the list.
    QStringList titles;
    for (const UpdateRecord& r : controller_->dataArray)
        titles << r.value(record::kTitle).toString();
    titles.sort();
    EXPECT_EQ(titles, (QStringList{QStringLiteral("Same Title"), QStringLiteral("suite 4")}));
}

TEST_F(Driver, ForcedIdentifiers)
{
    groupMember(QStringLiteral("Alpha"), QStringLiteral("suite"));
    // A forced group that is installed is not checked a second time.
    controller_->checkForUpdates(QStringList{QStringLiteral("suite")});
    EXPECT_EQ(requestsFor(QStringLiteral("/rss/appcasts/suite.xml")), 1);
    EXPECT_EQ(controller_->dataArray.size(), 1);

    // One that is not installed ends the check by the exception path (windowed: it returns).
    controller_->checkForUpdates(QStringList{QStringLiteral("suite"), QStringLiteral("absent")});
    EXPECT_TRUE(vltest::LogFixture::logText().contains(
        QStringLiteral("Exception in -[AppController checkForUpdates:]. NSInvalidArgumentException - "
                       "-[AppController updateGroup:app:subapp:version:versionString:bundleID:forceUpdate:appPath:]: "
                       "unrecognized selector sent to instance")));
}

TEST_F(Driver, ForcedIdentifierNotInstalledEndsAWindowlessRunWithStatusOne)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            const std::unique_ptr<AppController> windowless = AppController::initWithoutGUI();
            windowless->checkForUpdates(QStringList{QStringLiteral("absent")});
            std::exit(0);
        },
        ::testing::ExitedWithCode(1), "");
}

TEST(DriverHelpers, UniqueObjectsKeepTheFirstRecordOfEachIdentifier)
{
    const std::unique_ptr<AppController> c = AppController::init();
    c->setSkippedBundleIDs({QStringLiteral("com.velmora.skip")});
    const QList<UpdateRecord> in = {
        rec("group", "g1", "com.velmora.a", "first"), rec("group", "g1", "com.velmora.b", "second"),
        rec("sparkle", "g1", "com.velmora.c"),        // a Sparkle record is identified by its bundle
        rec("sparkle", nullptr, "com.velmora.c", "dup"), rec("sparkle", nullptr, "com.velmora.skip"),
        rec("group", nullptr, "com.velmora.d"),        // a group record without groupid has no identifier
        record::upToDateMarker(), rec("self", "com.velmora.SoftwareUpdate", "com.velmora.SoftwareUpdate")};
    const QList<UpdateRecord> out = c->uniqueObjectsInArray(in);
    ASSERT_EQ(out.size(), 3);
    EXPECT_EQ(out[0].value(record::kTitle), QVariant(QStringLiteral("first")));
    EXPECT_EQ(out[1].value(record::kBundleId), QVariant(QStringLiteral("com.velmora.c")));
    EXPECT_EQ(out[1].value(record::kTitle), QVariant(QStringLiteral("t")));
    EXPECT_EQ(out[2].value(record::kType), QVariant(QStringLiteral("self")));

    // Adding keeps the first record of a title; records without a title never match.
    c->addObjectToDataArray(rec("sparkle", nullptr, "x", "T"));
    c->addObjectToDataArray(rec("sparkle", nullptr, "y", "T"));
    c->addObjectToDataArray({{record::kBundleId, QStringLiteral("z1")}});
    c->addObjectToDataArray({{record::kBundleId, QStringLiteral("z2")}});
    EXPECT_EQ(c->dataArray.size(), 3);
    EXPECT_TRUE(AppController::isGroup(QStringLiteral("g1"), in));
    EXPECT_FALSE(AppController::isGroup(QStringLiteral("G1"), in));
}

TEST(DriverHelpers, CompareExclusiveItems)
{
    const QStringList a = {QStringLiteral("x"), QStringLiteral("y")};
    EXPECT_EQ(AppController::compareExclusiveItems(a, a), QStringList());
    EXPECT_EQ(AppController::compareExclusiveItems(a, {QStringLiteral("x"), QStringLiteral("y"), QStringLiteral("v")}),
              QStringList{QStringLiteral("v")});
    EXPECT_EQ(AppController::compareExclusiveItems({QStringLiteral("x"), QStringLiteral("v"), QStringLiteral("y")}, a),
              QStringList{QStringLiteral("v")});
    // Equal counts: the second list's items the first lacks.
    EXPECT_EQ(AppController::compareExclusiveItems(a, {QStringLiteral("y"), QStringLiteral("w")}), QStringList{QStringLiteral("w")});
    EXPECT_EQ(AppController::compareExclusiveItems(a, {QStringLiteral("y"), QStringLiteral("x")}), QStringList());
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
