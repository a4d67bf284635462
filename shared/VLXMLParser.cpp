// VLXMLParser: parsing, the escaping of query texts and the path queries.
#include "shared/VLXMLParser.h"

#include "platform/foundation/PlatformException.h"
#include "shared/VLLog.h"

#include <QPair>
#include <QSet>

namespace {

// The text value of a node as the platform's tree gives it: an attribute's value, the content
// of a text, CDATA, comment or processing-instruction node, and for an element or the document
// every text and CDATA node below it in document order (collected iteratively, so deep
// nesting costs no stack).
QString textValue(const pugi::xpath_node& selected)
{
    if (selected.attribute())
        return QString::fromUtf8(selected.attribute().value());
    pugi::xml_node node = selected.node();
    if (node.type() != pugi::node_element && node.type() != pugi::node_document)
        return QString::fromUtf8(node.value());
    struct Collector : pugi::xml_tree_walker {
        QByteArray text;
        bool for_each(pugi::xml_node& n) override
        {
            if (n.type() == pugi::node_pcdata || n.type() == pugi::node_cdata)
                text += n.value();
            return true;
        }
    } collector;
    node.traverse(collector);
    return QString::fromUtf8(collector.text);
}

struct Selection {
    std::optional<VLXMLParser::NodeList> nodes; // nullopt: the query failed
    QString error;                              // why, when it failed
};

// One escaped query, compiled once and evaluated on any number of context nodes.
class CompiledQuery {
public:
    explicit CompiledQuery(const QString& query)
    {
        const QString escaped = VLXMLParser::escapeQueryString(query);
        try {
            query_ = std::make_unique<pugi::xpath_query>(escaped.toUtf8().constData());
            if (query_->return_type() != pugi::xpath_type_node_set)
                error_ = QStringLiteral("XPath expression does not evaluate to a node set");
        } catch (const pugi::xpath_exception& e) {
            error_ = QString::fromUtf8(e.what());
        }
    }

    // The selected nodes in document order. A null context is nil: it selects nothing and
    // fails nothing.
    Selection select(const pugi::xpath_node& context) const
    {
        if (!context)
            return {VLXMLParser::NodeList{}, QString()};
        if (!error_.isNull())
            return {std::nullopt, error_};
        try {
            pugi::xpath_node_set found = query_->evaluate_node_set(context);
            found.sort();
            return {VLXMLParser::NodeList(found.begin(), found.end()), QString()};
        } catch (const pugi::xpath_exception& e) {
            return {std::nullopt, QString::fromUtf8(e.what())};
        }
    }

private:
    std::unique_ptr<pugi::xpath_query> query_;
    QString error_;
};

Selection selectEscaped(const QString& query, const pugi::xpath_node& context)
{
    return CompiledQuery(query).select(context);
}

// Identity of a selected node or attribute, for the union of several queries.
QPair<const void*, const void*> identity(const pugi::xpath_node& node)
{
    return {node.node().internal_object(), node.attribute().internal_object()};
}

[[noreturn]] void throwRangeFault(qsizetype location, qsizetype length)
{
    throw fnd::PlatformException(
        QStringLiteral("NSRangeException"),
        QStringLiteral("-[__NSCFString substringWithRange:]: Range {%1, 5} out of bounds; string length %2")
            .arg(location)
            .arg(length));
}

} // namespace

std::unique_ptr<pugi::xml_document> VLXMLParser::documentWithData(const QByteArray& data)
{
    auto document = std::make_unique<pugi::xml_document>();
    // No parse_doctype: the DOCTYPE is skipped, so no DTD or entity definition is ever read.
    const unsigned options = pugi::parse_default | pugi::parse_comments | pugi::parse_pi;
    if (!document->load_buffer(data.constData(), size_t(data.size()), options, pugi::encoding_auto))
        return nullptr;
    return document;
}

QString VLXMLParser::escapeQueryString(const QString& text)
{
    const qsizetype length = text.size();
    // Computed without sign on purpose: below 4 units it wraps, the look-ahead is always made
    // and runs past the end, which raises the range fault the platform's string raises.
    const quint64 lookAheadLimit = quint64(length) - 4;
    QString escaped;
    escaped.reserve(length);
    for (qsizetype i = 0; i < length; ++i) {
        const char16_t unit = text.at(i).unicode();
        if (unit >= 0xA0) {
            escaped += QStringLiteral("&#%1;").arg(int(unit));
        } else if (unit == u'&') {
            if (quint64(i) < lookAheadLimit) {
                if (i + 5 > length)
                    throwRangeFault(i, length);
                if (QStringView(text).mid(i, 5) == QLatin1String("&amp;")) {
                    escaped += QLatin1Char('&');
                    continue;
                }
            }
            escaped += QLatin1String("&amp;");
        } else if (unit == 13) {
            escaped += QLatin1String("&#13;");
        } else if (unit < 20) {
            VLLog::appendLog(QStringLiteral("Stripped character %C"), int(unit));
        } else {
            escaped += QChar(unit);
        }
    }
    return escaped;
}

std::optional<QStringList> VLXMLParser::stringValuesForQuery(const QString& query, const pugi::xpath_node& node)
{
    const Selection selection = selectEscaped(query, node);
    if (!selection.nodes || selection.nodes->empty())
        return std::nullopt;
    QStringList values;
    for (const pugi::xpath_node& selected : *selection.nodes) {
        const QString value = textValue(selected);
        if (!value.isEmpty())
            values.append(value);
    }
    return values;
}

std::optional<QString> VLXMLParser::stringValueForQuery(const QString& query, const pugi::xpath_node& element)
{
    const Selection selection = selectEscaped(query, element);
    if (!selection.nodes || selection.nodes->empty())
        return std::nullopt;
    return textValue(selection.nodes->front());
}

std::optional<VLXMLParser::NodeList> VLXMLParser::nodesForQuery(const QString& query, const pugi::xpath_node& element)
{
    Selection selection = selectEscaped(query, element);
    if (!selection.nodes)
        VLLog::appendLog(QStringLiteral("XML parsing error: %@"), selection.error);
    return std::move(selection.nodes);
}

pugi::xpath_node VLXMLParser::nodeForQuery(const QString& query, const pugi::xpath_node& element)
{
    const std::optional<NodeList> nodes = nodesForQuery(query, element);
    if (!nodes || nodes->empty())
        return {};
    return nodes->front();
}

VLXMLParser::NodeList VLXMLParser::nodesFromQueries(const pugi::xpath_node& node, const QStringList& queries)
{
    NodeList result;
    QSet<QPair<const void*, const void*>> seen;
    for (const QString& query : queries) {
        const Selection selection = selectEscaped(query, node);
        if (!selection.nodes) {
            VLLog::appendLog(QStringLiteral("XML parsing error: %@"), selection.error);
            continue;
        }
        for (const pugi::xpath_node& found : *selection.nodes)
            if (!seen.contains(identity(found))) {
                seen.insert(identity(found));
                result.push_back(found);
            }
    }
    return result;
}

VLXMLParser::NodeList VLXMLParser::queryNodes(const NodeList& nodes, const QString& query)
{
    NodeList result;
    if (nodes.empty())
        return result;
    const CompiledQuery compiled(query);
    for (const pugi::xpath_node& node : nodes) {
        const Selection selection = compiled.select(node);
        if (selection.nodes)
            result.insert(result.end(), selection.nodes->begin(), selection.nodes->end());
    }
    return result;
}
