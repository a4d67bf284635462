// Queries, escaping, names and walks over an editing project exported as interchange XML.
#include "shared/VLXMLParser.h"

#include "platform/foundation/PlatformException.h"
#include "support/LogFixture.h"

#include <gtest/gtest.h>

#include <QTemporaryDir>

#include <cstring>

namespace {

// One sequence, two video tracks: clips joined by cross dissolves on the first track (their
// shared edit points read -1), a clip behind an opening transition and a plain clip on the
// second.
const char kProject[] = R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE xmeml>
<xmeml version="4">
  <sequence id="sequence-1">
    <uuid>8a6c1f0e-2b7d-4c55-9d1e-3f2a1b0c9d8e</uuid>
    <name>Rough%20Cut</name>
    <rate><timebase>25</timebase><ntsc>FALSE</ntsc></rate>
    <media><video>
      <track>
        <clipitem id="clipitem-1">
          <name>Interview%20A</name>
          <start>0</start><end>-1</end><in>100</in><out>212</out>
          <file id="file-1"><name>Interview A.mov</name>
            <pathurl>file://localhost/Users/editor/Movies/Interview%20A.mov</pathurl></file>
        </clipitem>
        <transitionitem><start>90</start><end>110</end><alignment>center</alignment>
          <effect><name>Cross Dissolve</name><effectid>Cross Dissolve</effectid></effect></transitionitem>
        <clipitem id="clipitem-2">
          <name>B-Roll%E9</name>
          <start>-1</start><end>-1</end>
          <file id="file-2"><name>Café.mov</name></file>
        </clipitem>
        <transitionitem><start>200</start><end>220</end>
          <effect><name></name><effectid>Dip to Black</effectid></effect></transitionitem>
        <clipitem id="clipitem-3"><name>100% Crop</name><start>-1</start><end>400</end></clipitem>
      </track>
      <track>
        <transitionitem><start>0</start><end>20</end></transitionitem>
        <clipitem id="clipitem-4"><start>-1</start><end>300</end>
          <file id="file%ZZ"><name>Title Card.psd</name></file></clipitem>
        <clipitem id="clip%2D5"><start>500</start><end>600</end></clipitem>
      </track>
    </video></media>
  </sequence>
</xmeml>
)";

struct Project {
    std::unique_ptr<pugi::xml_document> document = VLXMLParser::documentWithData(QByteArray(kProject));
    pugi::xml_node clip(const char* id) const
    {
        return document->find_node([&](const pugi::xml_node& n) { return std::strcmp(n.attribute("id").value(), id) == 0; });
    }
};

// A readable label per selected node: "@value" for an attribute, the id of an element that
// has one, "T<start>" for a transition, else the element name.
QString label(const pugi::xpath_node& node)
{
    if (node.attribute())
        return QStringLiteral("@") + QString::fromUtf8(node.attribute().value());
    if (const char* id = node.node().attribute("id").value(); *id)
        return QString::fromUtf8(id);
    if (std::strcmp(node.node().name(), "transitionitem") == 0)
        return QStringLiteral("T") + QString::fromUtf8(node.node().child_value("start"));
    return QString::fromUtf8(node.node().name());
}

template <typename List> QStringList labels(const List& nodes)
{
    QStringList result;
    for (const auto& node : nodes)
        result.append(label(pugi::xpath_node(node)));
    return result;
}

TEST(VLXMLParser, EscapingWalksUtf16UnitsAndShortTextWithAmpersandFaults)
{
    vltest::LogFixture log;
    const std::pair<QString, QString> cases[] = {
        {QStringLiteral("Caf\u00e9"), QStringLiteral("Caf&#233;")},
        {QStringLiteral("\U0001F3AC"), QStringLiteral("&#55356;&#57260;")}, // a surrogate pair is two units
        {QStringLiteral("Tom & Jerry"), QStringLiteral("Tom &amp; Jerry")},
        {QStringLiteral("&abc"), QStringLiteral("&amp;abc")},   // four units: no look-ahead, no fault
        {QStringLiteral("ab&amp;"), QStringLiteral("ab&amp;")}, // the last five units are looked at too
        {QStringLiteral("a\r\nb\tc"), QStringLiteral("a&#13;bc")},
    };
    for (const auto& [text, escaped] : cases)
        EXPECT_EQ(VLXMLParser::escapeQueryString(text), escaped) << text.toStdString();
    // One line per dropped unit (the log trims the unit itself away: it is white space).
    EXPECT_EQ(log.logText().count(QStringLiteral(" - Stripped character\n")), 2);
    // Below four units the look-ahead runs past the end and raises the platform's range fault,
    // which reaches callers of the queries too.
    try {
        (void)VLXMLParser::escapeQueryString(QStringLiteral("a&"));
        ADD_FAILURE() << "no fault";
    } catch (const fnd::PlatformException& e) {
        EXPECT_EQ(e.name(), QStringLiteral("NSRangeException"));
    }
    EXPECT_THROW((void)VLXMLParser::nodesForQuery(QStringLiteral("&"), *Project().document), fnd::PlatformException);
}

TEST(VLXMLParser, QueriesSelectInDocumentOrderAndLogOnlyWhereTheySay)
{
    vltest::LogFixture log;
    Project project;
    const pugi::xml_document& doc = *project.document;
    EXPECT_EQ(VLXMLParser::stringValuesForQuery(QStringLiteral("//effect/name"), doc),
              QStringList{QStringLiteral("Cross Dissolve")}); // the empty name is left out
    EXPECT_EQ(VLXMLParser::stringValueForQuery(QStringLiteral("//transitionitem[2]/effect/name"), doc), QString(""));
    EXPECT_EQ(VLXMLParser::stringValueForQuery(QStringLiteral("//clipitem[@id='clipitem-3']"), doc),
              QStringLiteral("100% Crop-1400"));
    EXPECT_EQ(VLXMLParser::stringValuesForQuery(QStringLiteral("//audio"), doc), std::nullopt);
    // The escaping step turns a spelled-out "é" into "&#233;", so such a query matches nothing.
    EXPECT_EQ(VLXMLParser::stringValueForQuery(QStringLiteral("//file[name='Caf\u00e9.mov']/@id"), doc), std::nullopt);
    EXPECT_EQ(VLXMLParser::stringValueForQuery(QStringLiteral("//file[@id='file-2']/name"), doc),
              QStringLiteral("Caf\u00e9.mov"));

    EXPECT_EQ(VLXMLParser::stringValuesForQuery(QStringLiteral("//clipitem["), doc), std::nullopt);
    EXPECT_FALSE(log.logText().contains(QStringLiteral("XML parsing error")));
    EXPECT_EQ(VLXMLParser::nodesForQuery(QStringLiteral("//clipitem["), doc), std::nullopt);
    EXPECT_FALSE(VLXMLParser::nodeForQuery(QStringLiteral("count(//clipitem)"), doc));
    EXPECT_EQ(log.logText().count(QStringLiteral(" - XML parsing error: ")), 2);

    const VLXMLParser::NodeList unioned = VLXMLParser::nodesFromQueries(
        doc, {QStringLiteral("//clipitem[1]"), QStringLiteral("//track/clipitem"), QStringLiteral("]["),
              QStringLiteral("//track[2]/clipitem/@id")});
    EXPECT_EQ(labels(unioned), QStringList({"clipitem-1", "clipitem-4", "clipitem-2", "clipitem-3", "clip%2D5",
                                            "@clipitem-4", "@clip%2D5"}));
    EXPECT_EQ(log.logText().count(QStringLiteral(" - XML parsing error: ")), 3);

    const VLXMLParser::NodeList tracks = *VLXMLParser::nodesForQuery(QStringLiteral("//track"), doc);
    EXPECT_EQ(labels(VLXMLParser::queryNodes({tracks[1], tracks[1], tracks[0]}, QStringLiteral("./clipitem[last()]"))),
              QStringList({"clip%2D5", "clip%2D5", "clipitem-3"}));
}

TEST(VLXMLParser, NamesAndIdentifiersArePercentDecoded)
{
    Project project;
    const struct {
        const char* clip;
        std::optional<QString> name;
        std::optional<QString> immediateName;
    } cases[] = {
        {"clipitem-1", QStringLiteral("Interview A"), QStringLiteral("Interview A")},
        {"clipitem-2", QStringLiteral("B-Roll%E9"), QStringLiteral("B-Roll%E9")}, // not ASCII: raw
        {"clipitem-3", QStringLiteral("100% Crop"), QStringLiteral("100% Crop")}, // bad escape: raw
        {"clipitem-4", QStringLiteral("Title Card.psd"), std::nullopt},          // deeper name
        {"clip%2D5", QStringLiteral("clip-5"), std::nullopt},                    // id attribute
    };
    for (const auto& c : cases) {
        EXPECT_EQ(VLXMLParser::nameForNode(project.clip(c.clip)), c.name) << c.clip;
        EXPECT_EQ(VLXMLParser::nameForNode(project.clip(c.clip), true), c.immediateName) << c.clip;
    }
    const QString uuid = QStringLiteral("8a6c1f0e-2b7d-4c55-9d1e-3f2a1b0c9d8e");
    EXPECT_EQ(VLXMLParser::uuidForNode(project.clip("sequence-1"), true), uuid);
    EXPECT_EQ(VLXMLParser::uuidForNode(project.document->first_child()), uuid);
    EXPECT_EQ(VLXMLParser::uuidForNode(project.document->first_child(), true), std::nullopt);
    EXPECT_EQ(VLXMLParser::uuidForNode(project.clip("clip%2D5")), std::nullopt); // no attribute fallback

    EXPECT_EQ(VLXMLParser::idAttributeForNode(project.clip("clip%2D5")), QStringLiteral("clip-5"));
    EXPECT_EQ(VLXMLParser::idAttributeForNode(project.clip("file%ZZ")), std::nullopt);

    const QString url = *VLXMLParser::stringValueForQuery(QStringLiteral(".//pathurl"), project.clip("clipitem-1"));
    EXPECT_EQ(VLXMLParser::filenameFromPathURLString(url), QStringLiteral("/Users/editor/Movies/Interview A.mov"));
}

TEST(VLXMLParser, ParentSearchStopsAtLimitsAndNextSiblingClimbs)
{
    Project project;
    const pugi::xml_node fileName = project.clip("file-1").child("name");
    EXPECT_EQ(VLXMLParser::parentWithName(fileName, QStringLiteral("sequence")), project.clip("sequence-1"));
    EXPECT_EQ(VLXMLParser::parentWithName(fileName, QStringLiteral("sequence"), {QStringLiteral("track")}),
              pugi::xml_node());
    EXPECT_EQ(VLXMLParser::parentWithName(fileName, QStringLiteral("bin")), pugi::xml_node());

    EXPECT_EQ(label(VLXMLParser::nextSiblingForNode(project.clip("clipitem-1"))), QStringLiteral("T90"));
    const pugi::xml_node secondTrack = project.clip("clipitem-4").parent();
    EXPECT_EQ(VLXMLParser::nextSiblingForNode(project.clip("clipitem-3").child("end")), secondTrack);
    EXPECT_EQ(VLXMLParser::nextSiblingForNode(project.clip("clip%2D5").child("end")), pugi::xml_node());
}

TEST(VLXMLParser, ClipWideningCrossesTransitionsOnEachSide)
{
    Project project;
    const QStringList chain{"clipitem-1", "T90", "clipitem-2", "T200", "clipitem-3"};
    const struct {
        const char* clip;
        QStringList affected;
        qint64 start;
        qint64 end;
    } cases[] = {
        {"clipitem-1", chain, 0, 400},  // forwards through both dissolves
        {"clipitem-2", chain, 0, 400},  // a transition on each side
        {"clipitem-3", chain, 0, 400},  // backwards through both
        {"clipitem-4", {"T0", "clipitem-4"}, 0, 300}, // nothing before the opening transition
        {"clip%2D5", {"clip%2D5"}, 500, 600},
    };
    for (const auto& c : cases) {
        qint64 start = -7;
        qint64 end = -7;
        EXPECT_EQ(labels(VLXMLParser::affectedNodesForClip(project.clip(c.clip), &start, &end)), c.affected) << c.clip;
        EXPECT_EQ(start, c.start) << c.clip;
        EXPECT_EQ(end, c.end) << c.clip;
    }
    EXPECT_EQ(VLXMLParser::affectedNodesForClip(project.clip("clipitem-2")).size(), chain.size());
}

TEST(VLXMLParser, HostileDocumentsStayInsideTheirOwnText)
{
    QTemporaryDir dir;
    QFile secret(dir.filePath(QStringLiteral("secret")));
    ASSERT_TRUE(secret.open(QIODevice::WriteOnly) && secret.write("TOP SECRET") > 0);
    secret.close();
    const QByteArray entities = "<!DOCTYPE x [<!ENTITY xxe SYSTEM \"file://" + secret.fileName().toUtf8()
        + "\"><!ENTITY a \"aaaaaaaaaa\"><!ENTITY b \"&a;&a;&a;&a;&a;&a;&a;&a;\">]><x>&xxe;&b;</x>";
    const auto entityDocument = VLXMLParser::documentWithData(entities);
    ASSERT_TRUE(entityDocument);
    EXPECT_EQ(VLXMLParser::stringValueForQuery(QStringLiteral("/x"), *entityDocument), QStringLiteral("&xxe;&b;"));

    const int depth = 200000;
    const QByteArray deep = "<root>" + QByteArray("<a>").repeated(depth) + "<name>bottom</name>"
        + QByteArray("</a>").repeated(depth) + "</root>";
    const auto deepDocument = VLXMLParser::documentWithData(deep);
    ASSERT_TRUE(deepDocument);
    const pugi::xml_node root = deepDocument->first_child();
    EXPECT_EQ(VLXMLParser::nameForNode(root), QStringLiteral("bottom"));
    EXPECT_EQ(VLXMLParser::stringValueForQuery(QStringLiteral("."), root), QStringLiteral("bottom"));
    const pugi::xml_node bottom = VLXMLParser::nodeForQuery(QStringLiteral("//name"), root).node();
    EXPECT_EQ(VLXMLParser::parentWithName(bottom, QStringLiteral("root")), root);
    EXPECT_EQ(VLXMLParser::nextSiblingForNode(bottom), pugi::xml_node());

    EXPECT_FALSE(VLXMLParser::documentWithData("<x><y></x>"));
}

} // namespace
