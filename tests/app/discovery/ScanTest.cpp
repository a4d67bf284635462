// The installed-app scans: the name filter, which folders are walked, the descriptor lookup,
// group identifiers, link loops and cancellation.

#include "DiscoveryFixture.h"

#include <QFile>

#include <sys/stat.h>

using vltest::DiscoveryFixture;

TEST(NameFilter, RulesAreTestedOnTheLowerCasedLastComponent)
{
    // One row per kind of rule (a leading dot, a whole name, a part, a prefix), and the quirk kept.
    const QList<QPair<const char*, bool>> cases = {
        {"/A/.hidden", true}, {"/A/HTML", true}, {"/A/html5", false}, {"/A/Pineapple.app", true}, {"/A/WacomTablet", true},
        {"/A/My Wacom", false}, {"/A/QuickTime Player.app", false}, // the table's entry keeps a capital T: never matches
        {"/A/Support/", true}, {"/A/Velmora Tool.app", false}};
    for (const auto& [path, skipped] : cases)
        EXPECT_EQ(AppController::isFileBlacklisted(QString::fromUtf8(path)), skipped) << path;
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
