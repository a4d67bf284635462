// The pure reading and rules of the feeds: Sparkle appcasts (a corpus sweep, one row per rule
// of the first item, hostile documents) and group and self releases.

#include "discovery/FeedRules.h"
#include "discovery/SparkleFeed.h"
#include "UpdateRecord.h"
#include "platform/foundation/PlatformException.h"
#include "support/LogFixture.h"
#include "support/QtPrinters.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

using discovery::EnclosureVerdict;
using discovery::GroupVerdict;
using Feed = discovery::SparkleFeed;

namespace {

const QString kCorpus = QStringLiteral(VELMORA_CORPUS_DIR "/appcasts/");

struct Outcome {
    Feed::Status status = Feed::Status::NotXml;
    std::optional<EnclosureVerdict> verdict;
    QVariantMap record;
};

Outcome sparkle(const QByteArray& bytes, qint64 installed)
{
    Outcome out;
    const Feed feed = discovery::parseSparkleFeed(bytes);
    out.status = feed.status;
    if (feed.status != Feed::Status::Ok)
        return out;
    out.verdict = discovery::applyEnclosure(feed.enclosure, installed, QStringLiteral("1.9"), QStringLiteral("13.4.1"), out.record);
    if (*out.verdict == EnclosureVerdict::Update && feed.children)
        discovery::applyItemChildren(*feed.children, out.record);
    return out;
}

Outcome corpus(const char* name, qint64 installed)
{
    QFile file(kCorpus + QString::fromLatin1(name));
    return sparkle(file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray(), installed);
}

// One table of data/FeedRules.json: a row per rule, each with its reason in "why".
QJsonArray rows(const char* table)
{
    QFile file(QStringLiteral(VELMORA_SOURCE_DIR "/tests/app/discovery/data/FeedRules.json"));
    EXPECT_TRUE(file.open(QIODevice::ReadOnly));
    const QJsonArray rows = QJsonDocument::fromJson(file.readAll())[QLatin1String(table)].toArray();
    EXPECT_FALSE(rows.isEmpty()) << table;
    return rows;
}

QByteArray enclosure(const QByteArray& attributes, const QByteArray& itemExtra = "<title>T</title>")
{
    return "<rss><channel><item>" + itemExtra + "<enclosure " + attributes + "/></item></channel></rss>";
}

// A group release as the server writes it; `tag` marks where each value came from.
QVariantMap release(const QVariant& version, const QString& tag, const QVariantMap& extra = {})
{
    QVariantMap m = {{QStringLiteral("groupVersion"), version}, {QStringLiteral("groupVersionString"), tag},
                     {QStringLiteral("groupID"), QStringLiteral("grp")}, {QStringLiteral("title"), tag},
                     {QStringLiteral("url"), QStringLiteral("https://x/") + tag}, {QStringLiteral("edSignature"), tag}};
    m.insert(extra);
    return m;
}

class FeedRules : public ::testing::Test {
protected:
    vltest::LogFixture log_;
    discovery::GroupRequest request_{QStringLiteral("grp"), 3, QStringLiteral("3.0"), QStringLiteral("com.velmora.App"), false};

    discovery::GroupOutcome group(const QVariantMap& main, const std::optional<QVariantMap>& beta = std::nullopt)
    {
        return discovery::evaluateGroupRelease(main, beta, request_, QStringLiteral("13.4.1"),
                                               [](const QString&) { return false; }); // no other group installed
    }
    discovery::GroupOutcome groupWith(const QVariantMap& extra) { return group(release(qlonglong(9), QStringLiteral("m"), extra)); }
};

} // namespace

TEST_F(FeedRules, EveryCorpusAppcastIsReadAndEachRuleOfTheFirstItemHasItsRow)
{
    for (const QString& file : QDir(kCorpus).entryList({QStringLiteral("*.xml")}, QDir::Files)) {
        const Outcome out = corpus(file.toLatin1().constData(), 1);
        // The one corpus feed whose first item carries no enclosure ends the check there.
        ASSERT_EQ(out.status, file.startsWith(QStringLiteral("coteditor-2018")) ? Feed::Status::NoEnclosure : Feed::Status::Ok)
            << file.toStdString();
        EXPECT_TRUE(out.verdict != EnclosureVerdict::Update || out.record.value(record::kUrl).toString().startsWith(QStringLiteral("http")))
            << file.toStdString();
    }
    for (const QJsonValue& r : rows("corpusFirstItems")) {
        const std::string why = r[u"why"].toString().toStdString();
        const Outcome out = corpus(r[u"file"].toString().toLatin1().constData(), r[u"installed"].toInteger());
        ASSERT_EQ(out.verdict, r[u"update"].toBool() ? EnclosureVerdict::Update : EnclosureVerdict::UpToDate) << why;
        if (r[u"update"].toBool()) {
            EXPECT_EQ(out.record.value(record::kNewVersion), r[u"newVersion"].isNull() ? QVariant() : QVariant(r[u"newVersion"].toString())) << why;
            EXPECT_EQ(out.record.value(record::kTitle).toString(), r[u"title"].toString()) << why;
        }
    }
    // The first enclosure's EdDSA signature is read (not its DSA one); no manualOnly attribute, no key.
    EXPECT_EQ(corpus("alttab-283-items-releasenoteslink-minsysver.xml", 10).record.value(record::kEdSignature),
              QVariant(QStringLiteral("hXT/SagT/CjOsE0qUEcAvv762yiNzfVuPoQwzk6gFKv1w4Jk5+qYJsX+mB6/iNF8BUbb0jZmRjG+4GDY2CrDAA==")));
    EXPECT_FALSE(corpus("maccy-single-item-cdata-html-description.xml", 1).record.contains(record::kManualOnly));
}

TEST_F(FeedRules, EnclosureAttributesAreWalkedInDocumentOrder)
{
    // A blocking minOS before the version ends the walk; after a version that is not newer it is never read.
    EXPECT_EQ(sparkle(enclosure(R"(minOS="14.0.0" sparkle:version="9" url="u")"), 1).verdict, EnclosureVerdict::NeedsNewerOS);
    EXPECT_EQ(sparkle(enclosure(R"(sparkle:version="1" minOS="14.0.0")"), 1).verdict, EnclosureVerdict::UpToDate);
    // On a newer version everything is read: "size" (not "length") and "checksum" under their record keys.
    const QVariantMap all = sparkle(enclosure(R"(sparkle:version="7" size="12" checksum="abc" length="99" manualOnly="true")"), 6).record;
    EXPECT_EQ(all.value(record::kSize), QVariant(QStringLiteral("12")));
    EXPECT_EQ(all.value(record::kServerChecksum), QVariant(QStringLiteral("abc")));
    EXPECT_EQ(all.value(record::kManualOnly), QVariant(true));
    // manualOnly follows the text-to-boolean rule; an empty signature is no signature.
    const Outcome odd = sparkle(enclosure(R"(manualOnly="maybe" sparkle:edSignature="")"), 0);
    EXPECT_EQ(odd.record.value(record::kManualOnly), QVariant(false));
    EXPECT_FALSE(odd.record.contains(record::kEdSignature));
    // A later item child overwrites an earlier one; the description's markup is kept as text.
    const Outcome children = sparkle(enclosure("url='u'", "<title>one</title><link>l1</link><title>two</title>"
                                                          "<description><![CDATA[<p>a</p>]]> and <i>b</i></description>"), 1);
    EXPECT_EQ(children.record.value(record::kTitle), QVariant(QStringLiteral("two")));
    EXPECT_EQ(children.record.value(record::kPageUrl), QVariant(QStringLiteral("l1")));
    EXPECT_EQ(children.record.value(record::kChangeList), QVariant(QStringLiteral("<p>a</p> and b")));
}

TEST_F(FeedRules, MinimumOSBlocksOnlyWithSixCharactersOnBothSides)
{
    for (const QJsonValue& r : rows("minimumOS"))
        EXPECT_EQ(discovery::minOSBlocks(r[u"minOS"].toString(), r[u"system"].toString()), r[u"blocks"].toBool()) << r[u"why"].toString().toStdString();
}

TEST_F(FeedRules, BrokenAndHostileAppcasts)
{
    EXPECT_EQ(discovery::parseSparkleFeed("<rss><channel><item></channel></rss>").status, Feed::Status::NotXml);
    EXPECT_EQ(discovery::parseSparkleFeed("<html><body>Not found</body></html>").status, Feed::Status::NoItems);
    // Entities of a DTD are never expanded (no billion laughs) and no external file is read.
    const QByteArray laughs = "<?xml version='1.0'?><!DOCTYPE rss [<!ENTITY a 'aaaaaaaaaa'>"
                              "<!ENTITY b '&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;'><!ENTITY c '&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;'>"
                              "<!ENTITY ext SYSTEM 'file:///etc/passwd'>]>"
                              "<rss><channel><item><title>&c;&ext;</title><enclosure url='u'/></item></channel></rss>";
    const QString title = sparkle(laughs, 1).record.value(record::kTitle).toString();
    EXPECT_LT(title.size(), 100);
    EXPECT_FALSE(title.contains(QStringLiteral("root:")));
    // Very deep nesting inside the item is read without exhausting the stack.
    const QByteArray deep = "<rss><channel><item><enclosure url='u'/><description>" + QByteArray("<b>").repeated(200000) + "x"
                          + QByteArray("</b>").repeated(200000) + "</description></item></channel></rss>";
    EXPECT_EQ(sparkle(deep, 1).record.value(record::kChangeList), QVariant(QStringLiteral("x")));
}

TEST_F(FeedRules, GroupReleasesComeFromMainOrBetaWithNewVersionFromMain)
{
    for (const QJsonValue& r : rows("mainOrBeta")) {
        const std::string why = r[u"why"].toString().toStdString();
        const QVariant main = r[u"main"].isString() ? QVariant(r[u"main"].toString()) : QVariant(qlonglong(r[u"main"].toInteger()));
        const auto beta = r[u"beta"].isNull() ? std::nullopt : std::optional(release(qlonglong(r[u"beta"].toInteger()), QStringLiteral("beta")));
        const discovery::GroupOutcome out = group(release(main, QStringLiteral("main")), beta);
        ASSERT_EQ(out.verdict, r[u"chosen"].isNull() ? GroupVerdict::NotNewer : GroupVerdict::Update) << why;
        if (!r[u"chosen"].isNull()) {
            EXPECT_EQ(out.record.value(record::kNewVersion), main) << why;
            EXPECT_EQ(out.record.value(record::kTitle).toString(), r[u"chosen"].toString()) << why;
            EXPECT_FALSE(out.record.contains(QStringLiteral("beta"))) << why;
        }
    }
}

TEST_F(FeedRules, GroupPaidManualIgnoredDeprecatedAndSuccessorReleases)
{
    // A paid upgrade (installed up to paidUpgradeFrom) leaves stand-alone apps to their own feeds.
    // One row per rule: the bound is inclusive, above it is free, and a numeric text counts.
    struct Case { QVariant paidFrom; qint64 installed; bool paid; };
    for (const Case& c : QList<Case>{{qlonglong(3), 3, true}, {qlonglong(3), 4, false}, {QStringLiteral("5"), 2, true}}) {
        request_.installedVersion = c.installed;
        const discovery::GroupOutcome out = groupWith({{QStringLiteral("standaloneApps"), QVariantList{QStringLiteral("com.velmora.A")}},
                                                       {QStringLiteral("paidUpgradeFrom"), c.paidFrom}});
        EXPECT_EQ(out.record.contains(record::kPaidUpgrade), c.paid) << c.paidFrom.toString().toStdString();
        EXPECT_EQ(out.standaloneApps.has_value(), !c.paid);
    }
    // Manual-only is the exact text "YES", and unticks the record.
    EXPECT_EQ(groupWith({{QStringLiteral("manualInstallOnly"), QStringLiteral("YES")}}).record.value(record::kSelected).toInt(), 0);
    EXPECT_EQ(groupWith({{QStringLiteral("manualInstallOnly"), QStringLiteral("yes")}}).record.value(record::kManualOnly), QVariant(false));
    // The ignore list is case-insensitive, stand-alone apps take effect before it, and forcing
    // the check passes the version comparison only.
    request_.forceUpdate = true;
    const auto ignored = group(release(qlonglong(1), QStringLiteral("m"),
        {{QStringLiteral("ignoredApps"), QVariantList{QStringLiteral("COM.VELMORA.APP")}},
         {QStringLiteral("standaloneApps"), QVariantList{QStringLiteral("com.velmora.S")}}}));
    EXPECT_EQ(ignored.verdict, GroupVerdict::Ignored);
    EXPECT_EQ(ignored.standaloneApps, std::optional(QStringList{QStringLiteral("com.velmora.S")}));
    // Deprecation: exact case.
    EXPECT_FALSE(discovery::isDeprecated({{QStringLiteral("deprecatedApps"), QVariantList{QStringLiteral("com.velmora.app")}}}, request_.bundleID));
    // A release of a group that is not installed, or without groupID, is offered here (one of an
    // installed group is the check test's successor row).
    EXPECT_EQ(groupWith({{QStringLiteral("groupID"), QStringLiteral("other")}}).verdict, GroupVerdict::Update);
    QVariantMap noGroup = release(qlonglong(9), QStringLiteral("m"));
    noGroup.remove(QStringLiteral("groupID"));
    EXPECT_FALSE(group(noGroup).record.contains(record::kGroupId));
}

TEST_F(FeedRules, FeedValuesOfTheWrongTypeRaiseThePlatformException)
{
    for (const QVariantMap& fault : QList<QVariantMap>{{{QStringLiteral("manualInstallOnly"), true}},
                                                       {{QStringLiteral("standaloneApps"), QStringLiteral("com.velmora.A")}},
                                                       {{QStringLiteral("ignoredApps"), QVariantList{qlonglong(4)}}},
                                                       {{QStringLiteral("paidUpgradeFrom"), QVariantList{}}}})
        EXPECT_THROW((void)groupWith(fault), fnd::PlatformException);
    EXPECT_THROW((void)discovery::isDeprecated({{QStringLiteral("deprecatedApps"), QStringLiteral("x")}}, QStringLiteral("x")),
                 fnd::PlatformException);
}
