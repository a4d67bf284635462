#pragma once
// VLXMLParser: static queries over a parsed XML tree, for editing-project XML above all
// (elements with `name`, `uuid`, `id`, `start` and `end` children, transitions named
// `transitionitem`). Path queries return nodes or their text; name and identifier lookups
// decode percent escapes; walks go to a named parent or to the next node in document order;
// a clip is widened to the clips and transitions that share its edit points.
//
// Trees are pugixml documents. documentWithData() parses the way every caller here wants:
// comments and processing instructions are kept as nodes, whitespace-only text is not, and the
// DOCTYPE is skipped, never read: no DTD, no external or custom entity is ever expanded (an
// unknown entity reference stays in the text as written). Query results are
// pugi::xpath_node values, since a query may select attributes as well as nodes; they point
// into their document and are valid as long as it is. A null node stands for nil: a query on
// it selects nothing and a walk from it finds nothing.
//
// Every path query first goes through escapeQueryString(), so a query that spells a character
// of U+00A0 or above literally never matches it (the query then holds "&#233;" for "é"), and a
// query shorter than 4 units that contains "&" raises fnd::PlatformException
// ("NSRangeException"); both are kept as the platform's own class behaves. There is no
// exception guard here: that fault reaches the caller. A query the XPath engine rejects
// (or one that does not select nodes) is a failed query: only nodesForQuery, nodeForQuery and
// nodesFromQueries log it ("XML parsing error: %@"); the others treat it as an empty selection.
//
// Threads: stateless; any thread. A document may be queried from several threads at once as
// long as nobody changes it meanwhile.

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <pugixml.hpp>

#include <memory>
#include <optional>
#include <vector>

class VLXMLParser {
public:
    using NodeList = std::vector<pugi::xpath_node>;

    VLXMLParser() = delete;

    // The document in `data` (encoding from its byte-order mark or declaration, else UTF-8);
    // nullptr when it is not well-formed XML.
    [[nodiscard]] static std::unique_ptr<pugi::xml_document> documentWithData(const QByteArray& data);

    // ---- path queries (VLXMLParser.cpp) ----
    // Throws fnd::PlatformException ("NSRangeException") for a text shorter than 4 units
    // that contains "&".
    [[nodiscard]] static QString escapeQueryString(const QString& text);
    // The non-empty texts of the selected nodes; nullopt when the query selects nothing.
    [[nodiscard]] static std::optional<QStringList> stringValuesForQuery(const QString& query,
                                                                       const pugi::xpath_node& node);
    // The text of the first selected node ("" for an empty one); nullopt when none.
    [[nodiscard]] static std::optional<QString> stringValueForQuery(const QString& query,
                                                                    const pugi::xpath_node& element);
    // The selected nodes in document order; nullopt (and a log line) when the query fails.
    [[nodiscard]] static std::optional<NodeList> nodesForQuery(const QString& query, const pugi::xpath_node& element);
    // The first node of nodesForQuery; a null xpath_node when there is none.
    [[nodiscard]] static pugi::xpath_node nodeForQuery(const QString& query, const pugi::xpath_node& element);
    // node:nodesFromQueries: - each query's nodes in turn, each node once.
    [[nodiscard]] static NodeList nodesFromQueries(const pugi::xpath_node& node, const QStringList& queries);
    // queryNodes:withXPath: - the query's nodes on each node in turn, duplicates kept.
    [[nodiscard]] static NodeList queryNodes(const NodeList& nodes, const QString& query);

    // ---- names, identifiers, walks (VLXMLParserWalks.cpp) ----
    // The `id` attribute decoded as ASCII; nullopt without one or when it does not decode.
    [[nodiscard]] static std::optional<QString> idAttributeForNode(const pugi::xml_node& element);
    // The URL's path, percent-decoded (fnd::urlPath); nullopt for a null string.
    [[nodiscard]] static std::optional<QString> filenameFromPathURLString(const QString& url);
    [[nodiscard]] static std::optional<QString> nameForNode(const pugi::xml_node& element,
                                                            bool immediateChildOnly = false);
    [[nodiscard]] static std::optional<QString> uuidForNode(const pugi::xml_node& element,
                                                            bool immediateChildOnly = false);
    // node:parentWithName:limits: - the nearest ancestor element named `name`; a null node
    // when an ancestor named in `limits` comes first, or at the top of the tree.
    [[nodiscard]] static pugi::xml_node parentWithName(const pugi::xml_node& node, const QString& name,
                                                       const QStringList& limits = {});
    // The next node after the node's subtree in document order; a null node at the end.
    [[nodiscard]] static pugi::xml_node nextSiblingForNode(const pugi::xml_node& node);
    // The clip and the siblings that share its edit points, in document order; the integer
    // values of the widened start and end go to the pointers that are not null.
    [[nodiscard]] static std::vector<pugi::xml_node> affectedNodesForClip(const pugi::xml_node& clip,
                                                                          qint64* rangeStart = nullptr,
                                                                          qint64* rangeEnd = nullptr);
};
