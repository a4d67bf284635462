// libFuzzer target: the XML query helper on arbitrary documents (and, when the input starts
// with "#", on the query in its first line). Every element of a document goes through the
// name, identifier and parent lookups, the next-node walk and the clip widening, and the
// fixed queries of the helper's callers run on the whole document. Checks abort on:
// - an escaping fault other than the documented one (a text under 4 units holding "&");
// - a widened clip list that does not hold the clip once, or holds a node that is not one
//   of its siblings;
// - a next node that is the node itself or lies inside its subtree.
#include "FuzzLog.h"
#include "FuzzSupport.h"

#include "platform/foundation/PlatformException.h"
#include "shared/VLXMLParser.h"

#include <algorithm>

namespace {

constexpr int kMaxNodes = 512;
constexpr qsizetype kMaxQueryLength = 64;

void check(bool condition, const char* what)
{
    if (!condition) {
        std::fprintf(stderr, "check failed: %s\n", what);
        std::abort();
    }
}

// Escaping may only fail the documented way.
void escapeChecked(const QString& text)
{
    try {
        (void)VLXMLParser::escapeQueryString(text);
    } catch (const fnd::PlatformException&) {
        check(text.size() < 4 && text.contains(QLatin1Char('&')), "unexpected escaping fault");
    }
}

void runQuery(const QString& query, const pugi::xml_node& context)
{
    try {
        (void)VLXMLParser::nodesForQuery(query, context);
        (void)VLXMLParser::stringValuesForQuery(query, context);
        (void)VLXMLParser::nodesFromQueries(context, {query, QStringLiteral("//clipitem")});
        const pugi::xpath_node first = VLXMLParser::nodeForQuery(QStringLiteral("/*"), context);
        (void)VLXMLParser::queryNodes({first, context, first}, query);
    } catch (const fnd::PlatformException&) {
        check(query.size() < 4 && query.contains(QLatin1Char('&')), "unexpected query fault");
    }
}

bool isInside(const pugi::xml_node& node, const pugi::xml_node& ancestor)
{
    for (pugi::xml_node n = node; n; n = n.parent())
        if (n == ancestor)
            return true;
    return false;
}

void exerciseElement(const pugi::xml_node& element)
{
    (void)VLXMLParser::nameForNode(element);
    (void)VLXMLParser::nameForNode(element, true);
    (void)VLXMLParser::uuidForNode(element);
    (void)VLXMLParser::idAttributeForNode(element);
    (void)VLXMLParser::parentWithName(element, QStringLiteral("sequence"), {QStringLiteral("bin")});
    if (const auto url = VLXMLParser::stringValueForQuery(QStringLiteral("./pathurl"), element))
        (void)VLXMLParser::filenameFromPathURLString(*url);

    const pugi::xml_node next = VLXMLParser::nextSiblingForNode(element);
    check(!next || !isInside(next, element), "next node inside the node's own subtree");

    qint64 start = 0;
    qint64 end = 0;
    const std::vector<pugi::xml_node> affected = VLXMLParser::affectedNodesForClip(element, &start, &end);
    check(std::count(affected.begin(), affected.end(), element) == 1, "clip not once in its widened list");
    for (const pugi::xml_node& node : affected)
        check(node.parent() == element.parent(), "widened list holds a non-sibling");
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    // The escaping logs a line for every control character.
    fuzzsupport::silenceLog(QStringLiteral("XmlParserFuzz"));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    QByteArray bytes = fuzzsupport::bytes(data, size);
    QString query;
    if (bytes.startsWith('#')) {
        const qsizetype lineEnd = bytes.indexOf('\n');
        query = QString::fromUtf8(bytes.mid(1, lineEnd < 0 ? -1 : lineEnd - 1)).left(kMaxQueryLength);
        bytes = lineEnd < 0 ? QByteArray() : bytes.mid(lineEnd + 1);
    }
    escapeChecked(QString::fromUtf8(bytes.left(4096)));

    const std::unique_ptr<pugi::xml_document> document = VLXMLParser::documentWithData(bytes);
    if (!document)
        return 0;
    if (!query.isEmpty())
        runQuery(query, *document);
    (void)VLXMLParser::stringValueForQuery(
        QStringLiteral("./Configuration/VariableForExMan/Data[@key='ProductVersion']"), *document);
    (void)VLXMLParser::stringValuesForQuery(QStringLiteral("//name"), *document);

    // Every node in document order (first child, else the next node after the subtree).
    int visited = 0;
    for (pugi::xml_node node = document->first_child(); node && visited < kMaxNodes; ++visited) {
        if (node.type() == pugi::node_element)
            exerciseElement(node);
        node = node.first_child() ? node.first_child() : VLXMLParser::nextSiblingForNode(node);
    }
    return 0;
}
