// The group and self release rules on decoded feed dictionaries: the choice between main and
// beta feed, newVersion from the main feed, paid-upgrade boundaries, manual-only, successor
// groups, stand-alone and ignored applications, deprecation, and type faults in feeds.

#include "discovery/FeedRules.h"
#include "UpdateRecord.h"
#include "platform/foundation/PlatformException.h"
#include "support/LogFixture.h"
#include "support/QtPrinters.h"

#include <gtest/gtest.h>

using discovery::GroupVerdict;

namespace {

class FeedRules : public ::testing::Test {
protected:
    vltest::LogFixture log_;
    const QString system_ = QStringLiteral("13.4.1");
    discovery::GroupRequest request_{QStringLiteral("grp"), 3, QStringLiteral("3.0"), QStringLiteral("com.velmora.App"), false};
    QStringList installedGroups_;

    discovery::GroupOutcome evaluate(const QVariantMap& main, const std::optional<QVariantMap>& beta = std::nullopt)
    {
        return discovery::evaluateGroupRelease(main, beta, request_, system_,
                                               [this](const QString& id) { return installedGroups_.contains(id); });
    }
};

QVariantMap release(const QVariant& version, const QString& tag, const QVariantMap& extra = {})
{
    QVariantMap m = {{QStringLiteral("groupVersion"), version},
                     {QStringLiteral("groupVersionString"), tag + QStringLiteral("-string")},
                     {QStringLiteral("groupID"), QStringLiteral("grp")},
                     {QStringLiteral("title"), tag + QStringLiteral(" title")},
                     {QStringLiteral("url"), QStringLiteral("https://x/") + tag},
                     {QStringLiteral("description"), tag + QStringLiteral(" notes")}};
    for (auto it = extra.begin(); it != extra.end(); ++it)
        m.insert(it.key(), it.value());
    return m;
}

} // namespace

TEST_F(FeedRules, MainOrBetaIsChosenAndNewVersionAlwaysComesFromMain)
{
    struct Case { QVariant main; std::optional<int> beta; GroupVerdict verdict; const char* chosen; };
    const QList<Case> cases = {
        {QVariant(qlonglong(4)), std::nullopt, GroupVerdict::Update, "main"},
        {QVariant(qlonglong(3)), std::nullopt, GroupVerdict::NotNewer, nullptr},
        {QVariant(QStringLiteral("4")), std::nullopt, GroupVerdict::Update, "main"}, // numeric string
        {QVariant(QStringLiteral("4.9")), std::nullopt, GroupVerdict::Update, "main"},
        {QVariant(QStringLiteral("abc")), std::nullopt, GroupVerdict::NotNewer, nullptr},
        {QVariant(qlonglong(3)), 5, GroupVerdict::Update, "beta"},   // beta higher: beta chosen
        {QVariant(qlonglong(5)), 5, GroupVerdict::Update, "main"},   // tie: main
        {QVariant(qlonglong(6)), 5, GroupVerdict::Update, "main"},
        {QVariant(qlonglong(2)), 3, GroupVerdict::NotNewer, nullptr},
    };
    for (const Case& c : cases) {
        const std::optional<QVariantMap> beta =
            c.beta ? std::optional(release(qlonglong(*c.beta), QStringLiteral("beta"))) : std::nullopt;
        const discovery::GroupOutcome out = evaluate(release(c.main, QStringLiteral("main")), beta);
        ASSERT_EQ(out.verdict, c.verdict) << c.main.toString().toStdString();
        if (!c.chosen)
            continue;
        const QString tag = QString::fromLatin1(c.chosen);
        EXPECT_EQ(out.record.value(record::kNewVersion), c.main);
        EXPECT_EQ(out.record.value(record::kNewVersionString).toString(), tag + QStringLiteral("-string"));
        EXPECT_EQ(out.record.value(record::kTitle).toString(), tag + QStringLiteral(" title"));
        EXPECT_EQ(out.record.value(record::kUrl).toString(), QStringLiteral("https://x/") + tag);
        EXPECT_EQ(out.record.value(record::kChangeList).toString(), tag + QStringLiteral(" notes"));
        EXPECT_FALSE(out.record.contains(QStringLiteral("beta")));
        EXPECT_EQ(out.record.value(record::kType), QVariant(record::kTypeGroup));
        EXPECT_EQ(out.record.value(record::kBundleId), QVariant(request_.bundleID));
        EXPECT_EQ(out.record.value(record::kOldVersion).toLongLong(), 3);
    }
}

TEST_F(FeedRules, ForceUpdatePassesTheVersionComparisonOnly)
{
    request_.forceUpdate = true;
    EXPECT_EQ(evaluate(release(qlonglong(1), QStringLiteral("main"))).verdict, GroupVerdict::Update);
    EXPECT_EQ(evaluate(release(qlonglong(1), QStringLiteral("main"), {{QStringLiteral("ignoredApps"),
                                                                       QStringList{request_.bundleID}}})).verdict,
              GroupVerdict::Ignored);
}

TEST_F(FeedRules, PaidUpgradeBoundariesAndTheirEffectOnStandaloneApps)
{
    struct Case { QVariant paidFrom; qint64 installed; bool paid; };
    const QList<Case> cases = {{qlonglong(3), 3, true}, {qlonglong(3), 4, false}, {qlonglong(0), 1, false},
                               {QVariant(), 1, false}, {QStringLiteral("5"), 2, true}, {qlonglong(-1), 1, false}};
    const QVariantList standalone = {QStringLiteral("com.velmora.A"), QStringLiteral("com.velmora.B")};
    for (const Case& c : cases) {
        request_.installedVersion = c.installed;
        QVariantMap extra = {{QStringLiteral("standaloneApps"), standalone}};
        if (c.paidFrom.isValid())
            extra.insert(QStringLiteral("paidUpgradeFrom"), c.paidFrom);
        const discovery::GroupOutcome out = evaluate(release(qlonglong(10), QStringLiteral("main"), extra));
        ASSERT_EQ(out.verdict, GroupVerdict::Update);
        EXPECT_EQ(out.record.contains(record::kPaidUpgrade), c.paid) << c.paidFrom.toString().toStdString();
        // A paid group update leaves the stand-alone applications to their own feeds.
        EXPECT_EQ(out.standaloneApps.has_value(), !c.paid);
    }
}

TEST_F(FeedRules, ManualOnlyIgnoredAndDeprecatedApps)
{
    auto manual = evaluate(release(qlonglong(9), QStringLiteral("m"), {{QStringLiteral("manualInstallOnly"), QStringLiteral("YES")}}));
    EXPECT_EQ(manual.record.value(record::kManualOnly), QVariant(true));
    EXPECT_EQ(manual.record.value(record::kSelected).toInt(), 0);
    auto notManual = evaluate(release(qlonglong(9), QStringLiteral("m"), {{QStringLiteral("manualInstallOnly"), QStringLiteral("yes")}}));
    EXPECT_EQ(notManual.record.value(record::kManualOnly), QVariant(false));
    EXPECT_EQ(notManual.record.value(record::kSelected).toInt(), 1);

    // The ignore list is case-insensitive and stand-alone apps take effect before it.
    const auto ignored = evaluate(release(qlonglong(9), QStringLiteral("m"),
        {{QStringLiteral("ignoredApps"), QVariantList{QStringLiteral("COM.VELMORA.APP")}},
         {QStringLiteral("standaloneApps"), QVariantList{QStringLiteral("com.velmora.S")}}}));
    EXPECT_EQ(ignored.verdict, GroupVerdict::Ignored);
    EXPECT_EQ(ignored.standaloneApps, std::optional(QStringList{QStringLiteral("com.velmora.S")}));

    // Deprecation: main feed only, exact case.
    const QVariantMap main = {{QStringLiteral("deprecatedApps"), QVariantList{QStringLiteral("com.velmora.App")}}};
    EXPECT_TRUE(discovery::isDeprecated(main, QStringLiteral("com.velmora.App")));
    EXPECT_FALSE(discovery::isDeprecated(main, QStringLiteral("com.velmora.app")));
    EXPECT_FALSE(discovery::isDeprecated({}, QStringLiteral("com.velmora.App")));
}

TEST_F(FeedRules, SuccessorGroupsAndMinimumOS)
{
    installedGroups_ = {QStringLiteral("next")};
    EXPECT_EQ(evaluate(release(qlonglong(9), QStringLiteral("m"), {{QStringLiteral("groupID"), QStringLiteral("next")}})).verdict,
              GroupVerdict::Successor);
    // A successor that is not installed, or no groupID at all, goes on to the update.
    EXPECT_EQ(evaluate(release(qlonglong(9), QStringLiteral("m"), {{QStringLiteral("groupID"), QStringLiteral("other")}})).verdict,
              GroupVerdict::Update);
    QVariantMap noGroup = release(qlonglong(9), QStringLiteral("m"));
    noGroup.remove(QStringLiteral("groupID"));
    const auto out = evaluate(noGroup);
    EXPECT_EQ(out.verdict, GroupVerdict::Update);
    EXPECT_FALSE(out.record.contains(record::kGroupId));

    EXPECT_EQ(evaluate(release(qlonglong(9), QStringLiteral("m"), {{QStringLiteral("minOS"), QStringLiteral("14.0.0")}})).verdict,
              GroupVerdict::NeedsNewerOS);
    EXPECT_EQ(evaluate(release(qlonglong(9), QStringLiteral("m"), {{QStringLiteral("minOS"), QStringLiteral("10.16")}})).verdict,
              GroupVerdict::Update);
}

TEST_F(FeedRules, FeedValuesOfTheWrongTypeRaiseThePlatformException)
{
    const QList<QVariantMap> faults = {
        {{QStringLiteral("manualInstallOnly"), true}},
        {{QStringLiteral("standaloneApps"), QStringLiteral("com.velmora.A")}},
        {{QStringLiteral("ignoredApps"), QVariantList{qlonglong(4)}}},
        {{QStringLiteral("paidUpgradeFrom"), QVariantList{}}},
    };
    for (const QVariantMap& fault : faults)
        EXPECT_THROW((void)evaluate(release(qlonglong(9), QStringLiteral("m"), fault)), fnd::PlatformException);
    EXPECT_THROW((void)discovery::isDeprecated({{QStringLiteral("deprecatedApps"), QStringLiteral("x")}}, QStringLiteral("x")),
                 fnd::PlatformException);
}

TEST_F(FeedRules, SelfReleaseRecord)
{
    const discovery::SelfRequest own{QStringLiteral("120"), QStringLiteral("1.2"), QStringLiteral("com.velmora.SoftwareUpdate")};
    EXPECT_FALSE(discovery::evaluateSelfRelease(release(qlonglong(120), QStringLiteral("m")), std::nullopt, own, system_));

    const QString sig = QStringLiteral("edSignature");
    const auto rec = discovery::evaluateSelfRelease(release(qlonglong(120), QStringLiteral("m"), {{sig, QStringLiteral("m-sig")}}),
                                                    release(qlonglong(125), QStringLiteral("b"), {{sig, QStringLiteral("b-sig")}}),
                                                    own, system_);
    ASSERT_TRUE(rec);
    EXPECT_EQ(rec->value(record::kNewVersion).toLongLong(), 125);
    EXPECT_EQ(rec->value(record::kTitle).toString(), QStringLiteral("Velmora Software Update b-string"));
    EXPECT_EQ(rec->value(record::kOldVersion), QVariant(QStringLiteral("120")));
    EXPECT_EQ(rec->value(record::kGroupId), QVariant(own.bundleID));
    EXPECT_EQ(rec->value(record::kType), QVariant(record::kTypeSelf));
    EXPECT_FALSE(rec->contains(record::kPageUrl));
    EXPECT_FALSE(rec->contains(record::kServerChecksum));
    EXPECT_EQ(rec->value(record::kEdSignature), QVariant(QStringLiteral("b-sig"))) << "the chosen release's signature";

    const auto manual = discovery::evaluateSelfRelease(
        release(qlonglong(130), QStringLiteral("m"), {{QStringLiteral("manualInstallOnly"), QStringLiteral("YES")},
                                                      {QStringLiteral("checksum"), QStringLiteral("c")},
                                                      {QStringLiteral("minOS"), QStringLiteral("11.0")}}),
        std::nullopt, own, system_);
    ASSERT_TRUE(manual);
    EXPECT_EQ(manual->value(record::kSelected).toInt(), 0);
    EXPECT_EQ(manual->value(record::kServerChecksum), QVariant(QStringLiteral("c")));
    EXPECT_FALSE(manual->contains(record::kEdSignature));
    EXPECT_FALSE(discovery::evaluateSelfRelease(release(qlonglong(130), QStringLiteral("m"), {{QStringLiteral("minOS"), QStringLiteral("13.10.0")}}),
                                                std::nullopt, own, system_));
}
