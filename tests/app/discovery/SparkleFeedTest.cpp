// The Sparkle appcast reading: every appcast of the corpus with the outcome the rules give
// (first item only, first enclosure only, attributes walked in document order), and the
// attribute-order, minimum-OS and hostile-document cases.

#include "discovery/FeedRules.h"
#include "discovery/SparkleFeed.h"
#include "UpdateRecord.h"
#include "support/LogFixture.h"
#include "support/QtPrinters.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

using discovery::EnclosureVerdict;
using Feed = discovery::SparkleFeed;

namespace {

QByteArray corpusFeed(const QString& name)
{
    QFile file(QStringLiteral(VELMORA_CORPUS_DIR "/appcasts/") + name);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

struct Outcome {
    Feed::Status status = Feed::Status::NotXml;
    std::optional<EnclosureVerdict> verdict;
    QVariantMap record;
};

Outcome evaluate(const QByteArray& bytes, qint64 installed, const QString& system = QStringLiteral("13.4.1"))
{
    Outcome out;
    const Feed feed = discovery::parseSparkleFeed(bytes);
    out.status = feed.status;
    if (feed.status != Feed::Status::Ok)
        return out;
    out.verdict = discovery::applyEnclosure(feed.enclosure, installed, QStringLiteral("1.0"), system, out.record);
    if (*out.verdict == EnclosureVerdict::Update && feed.children)
        discovery::applyItemChildren(*feed.children, out.record);
    return out;
}

QByteArray feedWithEnclosure(const QByteArray& attributes, const QByteArray& itemExtra = "<title>T</title>")
{
    return "<?xml version=\"1.0\"?><rss xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces/sparkle\">"
           "<channel><item>" + itemExtra + "<enclosure " + attributes + "/></item></channel></rss>";
}

struct CorpusCase {
    const char* file;
    qint64 installed;
    EnclosureVerdict verdict;
    const char* newVersion;  // nullptr: the record has no newVersion
    const char* title;       // nullptr: no title (or not an update)
    const char* urlStart;
};

class SparkleFeed : public ::testing::Test {
    vltest::LogFixture log_;
};

} // namespace

TEST_F(SparkleFeed, EveryCorpusAppcastGivesTheOutcomeOfItsFirstItem)
{
    const QList<CorpusCase> cases = {
        // Attribute versions that are numeric builds.
        {"alttab-283-items-releasenoteslink-minsysver.xml", 10, EnclosureVerdict::Update, "11.4.3", "Version 11.4.3",
         "https://github.com/lwouis/alt-tab-macos/releases/d"},
        {"alttab-283-items-releasenoteslink-minsysver.xml", 11, EnclosureVerdict::UpToDate, nullptr, nullptr, ""},
        // Oldest item first: only the first item counts, whatever the later ones say.
        {"amethyst-2014-http-oldest-item-first.xml", 1, EnclosureVerdict::Update, "2", "Version 0.7",
         "http://ianyh.com/amethyst/versions/Amethyst-0.7"},
        {"amethyst-2014-http-oldest-item-first.xml", 2, EnclosureVerdict::UpToDate, nullptr, nullptr, ""},
        {"hammerspoon-102-items-comment-before-items.xml", 6932, EnclosureVerdict::Update, "6933", "Version 1.1.0",
         "https://github.com/Hammerspoon/"},
        {"handbrake-nonrfc-pubdate-amp-entity-url-custom-elements.xml", 2022010999, EnclosureVerdict::Update,
         "2022011000", "HandBrake 1.5.1 Released", "https://handbrake.fr/rotation.php?file=HandBrake-1.5.1.dmg&"},
        {"hexfiend-no-length-no-pubdate-timestamp-versions.xml", 1728795548, EnclosureVerdict::Update, "1728795549",
         "HexFiend 2.18.1", "https://github.com/HexFiend/"},
        {"maccy-single-item-cdata-html-description.xml", 61, EnclosureVerdict::Update, "62", "2.7.1",
         "https://github.com/p0deje/Maccy/"},
        {"macmousefix-localized-releasenoteslinks-iso8601-dates.xml", 24309, EnclosureVerdict::Update, "24310",
         "3.0.8 available!", "https://github.com/noah-nuebling/"},
        // shortVersionString precedes the version: read first, then the walk stops at the version.
        {"qlmarkdown-italian-pubdates-cdata-50-items.xml", 53, EnclosureVerdict::UpToDate, nullptr, nullptr, ""},
        {"qlmarkdown-italian-pubdates-cdata-50-items.xml", 52, EnclosureVerdict::Update, "53", "1.5.2",
         "https://github.com/sbarex/QLMarkdown/"},
        // Dotted versions read as their first number: "1.2.1" is 1, "0.9.1" is 0 (never newer).
        {"dact-windows-exe-tab-indented-single-item.xml", 1, EnclosureVerdict::UpToDate, nullptr, nullptr, ""},
        {"iterm2-testing-oldest-first-minsysver-gated-placeholder-sig.xml", 1, EnclosureVerdict::Update, "2.1.4",
         "Version 2.1.4", "https://iterm2.com/downloads/stable/iTerm2-2_1_4.zip"},
        {"openemu-single-quoted-prolog-critical-update-tag-dsa-and-ed-sigs.xml", 2, EnclosureVerdict::UpToDate,
         nullptr, nullptr, ""},
        {"outrig-two-enclosures-per-item-x86-and-arm64.xml", 1, EnclosureVerdict::UpToDate, nullptr, nullptr, ""},
        // Versions given as child elements: the enclosure has no sparkle:version, so the record
        // has no newVersion and is still an update.
        {"browseros-server-five-enclosures-mac-linux-windows.xml", 99, EnclosureVerdict::Update, nullptr, nullptr,
         "https://cdn.browseros.com/server/browseros_server_"},
        {"cedarlogic-macos-item-then-windows-item-sparkle-os.xml", 99, EnclosureVerdict::Update, nullptr,
         "Version 3.0.2", "https://github.com/taciturnaxolotl/CedarLogic/"},
        {"coteditor-version-child-elements-prerelease-channel-first.xml", 99, EnclosureVerdict::Update, nullptr,
         "CotEditor 7.1.0-beta.2", "https://github.com/coteditor/"},
        {"lunar-ascii-encoding-decl-version-elements-deltas.xml", 99, EnclosureVerdict::Update, nullptr, "6.10.4",
         "https://files.lunar.fyi/releases/Lunar-6.10.4.dmg"},
        {"macvim-huge-cdata-html-with-css-deltas-maxsysver.xml", 99, EnclosureVerdict::Update, nullptr,
         "MacVim release-181", "https://github.com/macvim-dev/"},
        {"monitorcontrol-comments-before-root-version-elements-oldest-first.xml", 99, EnclosureVerdict::Update, nullptr,
         "v4.0.0-beta1", "https://github.com/MonitorControl/"},
        {"vienna-mixed-version-element-and-attribute-styles.xml", 99, EnclosureVerdict::Update, nullptr,
         "Vienna 3.10.8 :0294d207:", "https://downloads.sourceforge.net/project/vienna-r"},
    };
    for (const CorpusCase& c : cases) {
        SCOPED_TRACE(c.file);
        const QByteArray bytes = corpusFeed(QString::fromLatin1(c.file));
        ASSERT_FALSE(bytes.isEmpty());
        const Outcome out = evaluate(bytes, c.installed);
        ASSERT_EQ(out.status, Feed::Status::Ok);
        ASSERT_EQ(*out.verdict, c.verdict);
        if (c.verdict != EnclosureVerdict::Update)
            continue;
        EXPECT_EQ(out.record.contains(record::kNewVersion), c.newVersion != nullptr);
        EXPECT_EQ(out.record.contains(record::kOldVersion), c.newVersion != nullptr);
        if (c.newVersion) {
            EXPECT_EQ(out.record.value(record::kNewVersion), QVariant(QString::fromLatin1(c.newVersion)));
        }
        EXPECT_EQ(out.record.contains(record::kTitle), c.title != nullptr);
        if (c.title) {
            EXPECT_EQ(out.record.value(record::kTitle).toString(), QString::fromUtf8(c.title));
        }
        EXPECT_TRUE(out.record.value(record::kUrl).toString().startsWith(QString::fromLatin1(c.urlStart)))
            << out.record.value(record::kUrl).toString().toStdString();
    }
}

TEST_F(SparkleFeed, CorpusDetailsOfTheFirstItem)
{
    // A first item without an enclosure ends the check, even though a later item has one.
    EXPECT_EQ(discovery::parseSparkleFeed(corpusFeed(QStringLiteral("coteditor-2018-first-items-without-enclosure-link-only.xml"))).status,
              Feed::Status::NoEnclosure);

    const Outcome maccy = evaluate(corpusFeed(QStringLiteral("maccy-single-item-cdata-html-description.xml")), 1);
    EXPECT_FALSE(maccy.record.contains(record::kSize)); // "length" is not "size"
    EXPECT_EQ(maccy.record.value(record::kNewVersionString), QVariant(QStringLiteral("2.7.1")));
    EXPECT_TRUE(maccy.record.value(record::kChangeList).toString().contains(QStringLiteral("<li>Updated app icon")));
    EXPECT_FALSE(maccy.record.contains(record::kManualOnly));
    EXPECT_FALSE(maccy.record.contains(record::kEdSignature));

    // The first enclosure's EdDSA signature, as the feed writes it; the DSA one is not read.
    const Outcome alttab = evaluate(corpusFeed(QStringLiteral("alttab-283-items-releasenoteslink-minsysver.xml")), 10);
    EXPECT_EQ(alttab.record.value(record::kEdSignature),
              QVariant(QStringLiteral("hXT/SagT/CjOsE0qUEcAvv762yiNzfVuPoQwzk6gFKv1w4Jk5+qYJsX+mB6/iNF8BUbb0jZmRjG+4GDY2CrDAA==")));

    // Only the first enclosure counts: the x86_64 one of outrig's first item.
    const Feed outrig = discovery::parseSparkleFeed(corpusFeed(QStringLiteral("outrig-two-enclosures-per-item-x86-and-arm64.xml")));
    ASSERT_EQ(outrig.status, Feed::Status::Ok);
    EXPECT_TRUE(std::any_of(outrig.enclosure.begin(), outrig.enclosure.end(), [](const discovery::XmlAttribute& a) {
        return a.name == QLatin1String("sparkle:arch") && a.value == QLatin1String("x86_64");
    }));

    // Whitespace-only description: the key is there, with no text.
    const Outcome amethyst = evaluate(corpusFeed(QStringLiteral("amethyst-2014-http-oldest-item-first.xml")), 1);
    EXPECT_TRUE(amethyst.record.value(record::kChangeList).toString().trimmed().isEmpty());

    // The link keeps its percent escapes.
    const Outcome vienna = evaluate(corpusFeed(QStringLiteral("vienna-mixed-version-element-and-attribute-styles.xml")), 1);
    EXPECT_TRUE(vienna.record.value(record::kPageUrl).toString().contains(QStringLiteral("%2F")));
}

TEST_F(SparkleFeed, AttributesAreWalkedInDocumentOrder)
{
    QVariantMap rec;
    // A blocking minOS before the version ends the walk: no update.
    Feed feed = discovery::parseSparkleFeed(feedWithEnclosure(R"(minOS="14.0.0" sparkle:version="9" url="u")"));
    EXPECT_EQ(discovery::applyEnclosure(feed.enclosure, 1, {}, QStringLiteral("13.4.1"), rec), EnclosureVerdict::NeedsNewerOS);

    // A version that is not newer ends the walk before a blocking minOS.
    rec.clear();
    feed = discovery::parseSparkleFeed(feedWithEnclosure(R"(sparkle:version="1" minOS="14.0.0")"));
    EXPECT_EQ(discovery::applyEnclosure(feed.enclosure, 1, {}, QStringLiteral("13.4.1"), rec), EnclosureVerdict::UpToDate);

    // Everything read, in order, on a newer version.
    rec.clear();
    feed = discovery::parseSparkleFeed(feedWithEnclosure(
        R"(url="https://x/a.dmg" sparkle:version="7" sparkle:shortVersionString="2.0" size="12" checksum="abc" length="99" )"
        R"(manualOnly="true" sparkle:edSignature="c2ln")"));
    ASSERT_EQ(discovery::applyEnclosure(feed.enclosure, 6, QStringLiteral("1.9"), QStringLiteral("13.4.1"), rec),
              EnclosureVerdict::Update);
    const QVariantMap expected = {{record::kUrl, QStringLiteral("https://x/a.dmg")},
                                  {record::kNewVersion, QStringLiteral("7")},
                                  {record::kOldVersion, qint64(6)},
                                  {record::kOldVersionString, QStringLiteral("1.9")},
                                  {record::kNewVersionString, QStringLiteral("2.0")},
                                  {record::kSize, QStringLiteral("12")},
                                  {record::kServerChecksum, QStringLiteral("abc")},
                                  {record::kManualOnly, true},
                                  {record::kEdSignature, QStringLiteral("c2ln")}};
    EXPECT_EQ(rec, expected);

    // An empty signature is no signature: the record is the one a feed without it gives.
    rec.clear();
    feed = discovery::parseSparkleFeed(feedWithEnclosure(R"(sparkle:version="7" sparkle:edSignature="")"));
    ASSERT_EQ(discovery::applyEnclosure(feed.enclosure, 6, {}, {}, rec), EnclosureVerdict::Update);
    EXPECT_FALSE(rec.contains(record::kEdSignature));
}

TEST_F(SparkleFeed, ManualOnlyFollowsTheTextToBooleanRule)
{
    const QList<QPair<const char*, bool>> cases = {{"YES", true}, {"true", true}, {" 1", true}, {"NO", false},
                                                   {"false", false}, {"0", false}, {"maybe", false}};
    for (const auto& [text, manual] : cases) {
        QVariantMap rec;
        const Feed feed = discovery::parseSparkleFeed(feedWithEnclosure(QByteArray("manualOnly=\"") + text + "\""));
        ASSERT_EQ(discovery::applyEnclosure(feed.enclosure, 1, {}, {}, rec), EnclosureVerdict::Update);
        EXPECT_EQ(rec.value(record::kManualOnly).toBool(), manual) << text;
    }
}

TEST_F(SparkleFeed, MinimumOSBlocksOnlyWithSixCharactersOnBothSides)
{
    struct Case { const char* minOS; const char* system; bool blocks; };
    const QList<Case> cases = {
        {"10.15.8", "10.15.7", true},  {"10.15.7", "10.15.7", false}, {"10.15.7", "10.9.5", true}, {"10.9.5", "10.15.7", false},
        {"10.16", "10.15.7", false},   // five characters: never blocks
        {"11.0", "10.15.7", false},    {"12", "10.15.7", false},
        {"14.0.0", "13.4", false},     // a four-character system version never compares
        {"13.10.0", "13.9.1", true},   // numbers inside compare by value
        {"13.4.10", "13.4.9", true},   {"abcdef", "13.4.1", true}, // letters sort after digits
    };
    for (const Case& c : cases)
        EXPECT_EQ(discovery::minOSBlocks(QString::fromLatin1(c.minOS), QString::fromLatin1(c.system)), c.blocks)
            << c.minOS << " vs " << c.system;
}

TEST_F(SparkleFeed, StructureFailuresAndHostileDocuments)
{
    EXPECT_EQ(discovery::parseSparkleFeed("").status, Feed::Status::NotXml);
    const Feed broken = discovery::parseSparkleFeed("<rss><channel><item></channel></rss>");
    EXPECT_EQ(broken.status, Feed::Status::NotXml);
    EXPECT_FALSE(broken.error.isEmpty());
    EXPECT_EQ(discovery::parseSparkleFeed("<html><body>Not found</body></html>").status, Feed::Status::NoItems);
    // An item outside a channel is not an item of the feed.
    EXPECT_EQ(discovery::parseSparkleFeed("<rss><item><enclosure url='x'/></item></rss>").status, Feed::Status::NoItems);
    // A channel anywhere counts; its first item is the one read.
    const Feed nested = discovery::parseSparkleFeed(
        "<a><b><channel><item><enclosure url='first'/></item><item><enclosure url='second'/></item></channel></b></a>");
    ASSERT_EQ(nested.status, Feed::Status::Ok);
    EXPECT_EQ(nested.enclosure.value(0).value, QStringLiteral("first"));

    // Entities of a DTD are never expanded (no billion laughs) and no external file is read.
    const QByteArray laughs = "<?xml version='1.0'?><!DOCTYPE rss [<!ENTITY a 'aaaaaaaaaa'>"
                              "<!ENTITY b '&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;'><!ENTITY c '&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;'>"
                              "<!ENTITY ext SYSTEM 'file:///etc/passwd'>]>"
                              "<rss><channel><item><title>&c;&ext;</title><enclosure url='u'/></item></channel></rss>";
    const Outcome hostile = evaluate(laughs, 1);
    ASSERT_EQ(hostile.status, Feed::Status::Ok);
    EXPECT_LT(hostile.record.value(record::kTitle).toString().size(), 100);
    EXPECT_FALSE(hostile.record.value(record::kTitle).toString().contains(QStringLiteral("root:")));

    // Very deep nesting inside the item is read without exhausting the stack.
    QByteArray deep = "<rss><channel><item><enclosure url='u'/><description>";
    for (int i = 0; i < 200000; ++i)
        deep += "<b>";
    deep += "x";
    for (int i = 0; i < 200000; ++i)
        deep += "</b>";
    deep += "</description></item></channel></rss>";
    EXPECT_EQ(evaluate(deep, 1).record.value(record::kChangeList), QVariant(QStringLiteral("x")));
}

TEST_F(SparkleFeed, LaterItemChildrenOverwriteEarlierOnes)
{
    const Outcome out = evaluate(feedWithEnclosure("url='u'", "<title>one</title><link>l1</link><title>two</title>"
                                                              "<description><![CDATA[<p>a</p>]]> and <i>b</i></description>"), 1);
    EXPECT_EQ(out.record.value(record::kTitle), QVariant(QStringLiteral("two")));
    EXPECT_EQ(out.record.value(record::kPageUrl), QVariant(QStringLiteral("l1")));
    EXPECT_EQ(out.record.value(record::kChangeList), QVariant(QStringLiteral("<p>a</p> and b")));
}
