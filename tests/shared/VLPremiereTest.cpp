// Premiere's files: projects read through VLXMLParser (the quirks kept on purpose in escaping,
// names and clip widening, and hostile documents), and the installed versions read from bundles
// and installer configurations in a Mac-like tree.
#include "shared/VLPremiere.h"
#include "shared/VLXMLParser.h"

#include "platform/foundation/PlatformException.h"
#include "support/FixturePlist.h"
#include "support/Sandbox.h"
#include "support/ScopedEnvironment.h"

#include <gtest/gtest.h>

#include <QFileInfo>
#include <QTemporaryDir>

#include <cstring>

namespace {

// Clips joined by transitions on the first track; an opening transition on the second.
const char kProject[] = R"(<?xml version="1.0" encoding="UTF-8"?>
<xmeml version="4"><sequence id="sequence-1"><media><video>
  <track>
    <clipitem id="clipitem-1"><name>Interview%20A</name><start>0</start><end>-1</end></clipitem>
    <transitionitem><start>90</start><end>110</end></transitionitem>
    <clipitem id="clipitem-2"><name>B-Roll%E9</name><start>-1</start><end>-1</end></clipitem>
    <transitionitem><start>200</start><end>220</end></transitionitem>
    <clipitem id="clipitem-3"><name>100% Crop</name><start>-1</start><end>400</end></clipitem>
  </track>
  <track>
    <transitionitem><start>0</start><end>20</end></transitionitem>
    <clipitem id="clipitem-4"><start>-1</start><end>300</end><file><name>Title Card.psd</name></file></clipitem>
    <clipitem id="clip%2D5"><start>500</start><end>600</end></clipitem>
  </track>
</video></media></sequence></xmeml>
)";

pugi::xml_node clip(const pugi::xml_document& document, const char* id)
{
    return document.find_node([&](const pugi::xml_node& n) { return std::strcmp(n.attribute("id").value(), id) == 0; });
}

// The id of a clip, "T<start>" for a transition.
QStringList labels(const std::vector<pugi::xml_node>& nodes)
{
    QStringList result;
    for (const pugi::xml_node& n : nodes) {
        result.append(*n.attribute("id").value() ? QString::fromUtf8(n.attribute("id").value())
                                                 : QStringLiteral("T") + QString::fromUtf8(n.child_value("start")));
    }
    return result;
}

TEST(VLXMLParser, EscapingNamesAndClipWidening)
{
    // Non-ASCII becomes a character reference, "&" is escaped unless "&amp;" already follows.
    const std::pair<QString, QString> escapes[] = {
        {QStringLiteral("Caf\u00e9"), QStringLiteral("Caf&#233;")},
        {QStringLiteral("Tom & Jerry"), QStringLiteral("Tom &amp; Jerry")},
        {QStringLiteral("ab&amp;"), QStringLiteral("ab&amp;")},
    };
    for (const auto& [text, escaped] : escapes)
        EXPECT_EQ(VLXMLParser::escapeQueryString(text), escaped) << text.toStdString();
    // Below four units the look-ahead runs past the end and raises the platform's range fault.
    try {
        (void)VLXMLParser::escapeQueryString(QStringLiteral("a&"));
        ADD_FAILURE() << "no fault";
    } catch (const fnd::PlatformException& e) {
        EXPECT_EQ(e.name(), QStringLiteral("NSRangeException"));
    }

    const auto document = VLXMLParser::documentWithData(QByteArray(kProject));
    const QStringList chain{"clipitem-1", "T90", "clipitem-2", "T200", "clipitem-3"};
    const struct {
        const char* clip;
        QString name; // percent-decoded only when the result is ASCII and valid
        QStringList affected;
        qint64 start;
        qint64 end;
    } cases[] = {
        {"clipitem-1", QStringLiteral("Interview A"), chain, 0, 400},
        {"clipitem-2", QStringLiteral("B-Roll%E9"), chain, 0, 400}, // a transition on each side
        {"clipitem-3", QStringLiteral("100% Crop"), chain, 0, 400},
        {"clipitem-4", QStringLiteral("Title Card.psd"), {"T0", "clipitem-4"}, 0, 300}, // a deeper name
        {"clip%2D5", QStringLiteral("clip-5"), {"clip%2D5"}, 500, 600}, // no name: the id
    };
    for (const auto& c : cases) {
        EXPECT_EQ(VLXMLParser::nameForNode(clip(*document, c.clip)), c.name) << c.clip;
        qint64 start = -7;
        qint64 end = -7;
        EXPECT_EQ(labels(VLXMLParser::affectedNodesForClip(clip(*document, c.clip), &start, &end)), c.affected) << c.clip;
        EXPECT_EQ(std::pair(start, end), std::pair(c.start, c.end)) << c.clip;
    }
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

    // Deep nesting is walked without recursion.
    const int depth = 200000;
    const QByteArray deep = "<root>" + QByteArray("<a>").repeated(depth) + "<name>bottom</name>"
        + QByteArray("</a>").repeated(depth) + "</root>";
    const auto deepDocument = VLXMLParser::documentWithData(deep);
    ASSERT_TRUE(deepDocument);
    const pugi::xml_node root = deepDocument->first_child();
    EXPECT_EQ(VLXMLParser::nameForNode(root), QStringLiteral("bottom"));
    const pugi::xml_node bottom = VLXMLParser::nodeForQuery(QStringLiteral("//name"), root).node();
    EXPECT_EQ(VLXMLParser::parentWithName(bottom, QStringLiteral("root")), root);
    EXPECT_FALSE(VLXMLParser::documentWithData("<x><y></x>"));
}

class VLPremiereTest : public ::testing::Test {
protected:
    VLPremiereTest()
    {
        env_.set("HOME", dir_.filePath(QStringLiteral("home")));
        env_.set("VELMORA_SYSROOT", dir_.filePath(QStringLiteral("sysroot")));
    }

    QString machineApplications() const { return dir_.filePath(QStringLiteral("sysroot/Applications")); }
    QString userApplications() const { return dir_.filePath(QStringLiteral("home/Applications")); }

    static void write(const QString& path, const QByteArray& data) { ASSERT_TRUE(vltest::Sandbox::writeFile(path, data)) << path.toStdString(); }
    // An installed application bundle; extra entries are added to (or replace) the usual ones.
    static void bundle(const QString& path, const QString& version, const QVariantMap& extra = {})
    {
        QVariantMap info{{QStringLiteral("CFBundleIdentifier"), QStringLiteral("com.adobe.AdobePremierePro")},
                         {QStringLiteral("CFBundleExecutable"), QFileInfo(path).completeBaseName()}};
        if (!version.isNull())
            info.insert(QStringLiteral("CFBundleVersion"), version);
        info.insert(extra);
        write(path + QStringLiteral("/Contents/Info.plist"), vltest::fixturePlistXml(info));
    }
    // The installer's configuration file of an installation folder; no version: no such element.
    static void configuration(const QString& installation, const QByteArray& version = {})
    {
        write(installation + QStringLiteral("/Configuration/XManConfig.xml"),
              "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<Configuration>\n  <VariableForExMan>\n"
              "    <Data key=\"ProductName\">Premiere Pro</Data>\n"
                  + (version.isEmpty() ? QByteArray() : "    <Data key=\"ProductVersion\">" + version + "</Data>\n")
                  + "  </VariableForExMan>\n</Configuration>\n");
    }

    QTemporaryDir dir_;
    vltest::ScopedEnvironment env_;
};

TEST_F(VLPremiereTest, BothViewsReadTheirSourcesInOppositeOrder)
{
    const QString apps = machineApplications();
    // No ProductVersion: the suite view stops there, the application view reads the bundle.
    configuration(apps + QStringLiteral("/Adobe Premiere Pro 2022"));
    bundle(apps + QStringLiteral("/Adobe Premiere Pro 2022/Adobe Premiere Pro 2022.app"), QStringLiteral("22.6.2"));
    // A bundle without any version: the application view appends nothing and does not fall back.
    configuration(apps + QStringLiteral("/Adobe Premiere Pro 2020"), "14.0.0");
    bundle(apps + QStringLiteral("/Adobe Premiere Pro 2020/Adobe Premiere Pro 2020.app"), QString());
    write(apps + QStringLiteral("/Adobe Premiere Rush/Configuration/XManConfig.xml"), "ProductVersion=2.10\n");
    // Lower-case installation folders are found by both scans.
    bundle(apps + QStringLiteral("/adobe premiere pro 2025/Adobe Premiere Pro 2025.app"), QStringLiteral("25.0.1"));

    EXPECT_EQ(VLPremiere::versionsForAppName(QStringLiteral("Adobe Premiere "), apps), QStringList({"22.6.2"}));
    EXPECT_EQ(VLPremiere::suiteVersionsInFolder(apps), QStringList({"14.0.0", "25.0"}));
}

TEST_F(VLPremiereTest, WholeMachineJoinsTheWorkspaceFolderWithApplications)
{
    // The user's folder lists 24.1.0 twice (kept), the machine's repeats it (dropped) and adds 25.0.0.
    const QString user = userApplications();
    bundle(user + QStringLiteral("/Adobe Premiere Pro 2024/Adobe Premiere Pro 2024.app"), QStringLiteral("24.1.0"));
    bundle(user + QStringLiteral("/Adobe Premiere Pro Beta/Adobe Premiere Pro Beta.app"), QStringLiteral("24.1.0"));
    const QString machine = machineApplications();
    bundle(machine + QStringLiteral("/Adobe Premiere Pro 2024/Adobe Premiere Pro 2024.app"), QStringLiteral("24.1.0"));
    configuration(machine + QStringLiteral("/Adobe Premiere Pro 2025"), "25.0.0");

    EXPECT_EQ(VLPremiere::premiereVersions(), QStringList({"24.1.0", "24.1.0", "25.0.0"}));
    EXPECT_EQ(VLPremiere::suiteVersions(), QStringList({"24.1", "24.1", "25.0.0"}));
}

} // namespace
