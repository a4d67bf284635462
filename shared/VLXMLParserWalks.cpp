// VLXMLParser: names and identifiers, the walks up and along the tree, and the widening of a
// clip over the transitions at its edit points.
#include "shared/VLXMLParser.h"

#include "platform/foundation/Foundation.h"

#include <cstring>

namespace {

// The lookups below use fixed ASCII queries, which the escaping step would leave unchanged,
// so they are compiled once and evaluated directly.
struct Queries {
    pugi::xpath_query name{"./name[1]/text()"};
    pugi::xpath_query deepName{".//name[1]/text()"};
    pugi::xpath_query uuid{"./uuid[1]/text()"};
    pugi::xpath_query deepUuid{".//uuid[1]/text()"};
    pugi::xpath_query start{"./start[1]/text()"};
    pugi::xpath_query end{"./end[1]/text()"};
};

const Queries& queries()
{
    static const Queries compiled;
    return compiled;
}

// The text of the first node the query selects in document order; nullopt when it selects
// nothing (a null node, nil, selects nothing).
std::optional<QString> firstText(const pugi::xpath_query& query, const pugi::xml_node& element)
{
    if (!element)
        return std::nullopt;
    const pugi::xpath_node_set found = query.evaluate_node_set(element);
    if (found.empty())
        return std::nullopt;
    return QString::fromUtf8(found.first().node().value());
}

int hexValue(QChar c)
{
    const char16_t u = c.unicode();
    if (u >= u'0' && u <= u'9')
        return u - u'0';
    if (u >= u'a' && u <= u'f')
        return u - u'a' + 10;
    if (u >= u'A' && u <= u'F')
        return u - u'A' + 10;
    return -1;
}

// Percent escapes decoded as ASCII: nullopt for a "%" without two hexadecimal digits after it
// or for an escaped byte above 0x7F; every other character is kept as it stands.
std::optional<QString> percentDecodedAscii(const QString& text)
{
    QString decoded;
    decoded.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (text.at(i) != QLatin1Char('%')) {
            decoded += text.at(i);
            continue;
        }
        const int high = i + 2 < text.size() ? hexValue(text.at(i + 1)) : -1;
        const int low = i + 2 < text.size() ? hexValue(text.at(i + 2)) : -1;
        if (high < 0 || low < 0 || high > 7)
            return std::nullopt;
        decoded += QChar(char16_t(high * 16 + low));
        i += 2;
    }
    return decoded;
}

std::optional<QString> decodedOrRaw(const std::optional<QString>& text)
{
    if (!text)
        return std::nullopt;
    return percentDecodedAscii(*text).value_or(*text);
}

// Name and uuid lookups: the immediate child's text, else a deeper one's (unless only the
// immediate child counts).
std::optional<QString> childText(const pugi::xml_node& element, bool immediateChildOnly,
                                 const pugi::xpath_query& immediate, const pugi::xpath_query& deep)
{
    if (const std::optional<QString> text = firstText(immediate, element))
        return decodedOrRaw(text);
    if (immediateChildOnly)
        return std::nullopt;
    return decodedOrRaw(firstText(deep, element));
}

std::optional<QString> startOf(const pugi::xml_node& node)
{
    return firstText(queries().start, node);
}

std::optional<QString> endOf(const pugi::xml_node& node)
{
    return firstText(queries().end, node);
}

bool isMinusOne(const std::optional<QString>& value)
{
    return value && *value == QLatin1String("-1");
}

bool isTransition(const pugi::xml_node& node)
{
    return node.type() == pugi::node_element && std::strcmp(node.name(), "transitionitem") == 0;
}

} // namespace

std::optional<QString> VLXMLParser::idAttributeForNode(const pugi::xml_node& element)
{
    const pugi::xml_attribute id = element.attribute("id");
    if (!id)
        return std::nullopt;
    return percentDecodedAscii(QString::fromUtf8(id.value()));
}

std::optional<QString> VLXMLParser::filenameFromPathURLString(const QString& url)
{
    if (url.isNull())
        return std::nullopt;
    return fnd::urlPath(url);
}

std::optional<QString> VLXMLParser::nameForNode(const pugi::xml_node& element, bool immediateChildOnly)
{
    if (const std::optional<QString> name = childText(element, immediateChildOnly, queries().name, queries().deepName))
        return name;
    if (immediateChildOnly)
        return std::nullopt;
    const pugi::xml_attribute id = element.attribute("id");
    if (!id)
        return std::nullopt;
    return decodedOrRaw(QString::fromUtf8(id.value()));
}

std::optional<QString> VLXMLParser::uuidForNode(const pugi::xml_node& element, bool immediateChildOnly)
{
    return childText(element, immediateChildOnly, queries().uuid, queries().deepUuid);
}

pugi::xml_node VLXMLParser::parentWithName(const pugi::xml_node& node, const QString& name, const QStringList& limits)
{
    for (pugi::xml_node parent = node.parent(); parent; parent = parent.parent()) {
        // Only elements have names; the document node at the top has none.
        if (parent.type() != pugi::node_element)
            continue;
        const QString parentName = QString::fromUtf8(parent.name());
        if (limits.contains(parentName))
            return {};
        if (parentName == name)
            return parent;
    }
    return {};
}

pugi::xml_node VLXMLParser::nextSiblingForNode(const pugi::xml_node& node)
{
    for (pugi::xml_node current = node; current; current = current.parent())
        if (const pugi::xml_node next = current.next_sibling())
            return next;
    return {};
}

// Each step of a walk takes the sibling it reaches: the walk only goes on while the current
// edit point is "-1", so the sibling before (or after) a "-1" point always shares it.
std::vector<pugi::xml_node> VLXMLParser::affectedNodesForClip(const pugi::xml_node& clip, qint64* rangeStart,
                                                              qint64* rangeEnd)
{
    std::optional<QString> start = startOf(clip);
    std::optional<QString> end = endOf(clip);
    std::vector<pugi::xml_node> before;
    std::vector<pugi::xml_node> after;
    if (isMinusOne(start)) {
        for (pugi::xml_node previous = clip.previous_sibling(); previous; previous = previous.previous_sibling()) {
            const bool throughTransition =
                isTransition(previous) && isMinusOne(endOf(previous.previous_sibling()));
            start = throughTransition ? QStringLiteral("-1") : startOf(previous);
            before.push_back(previous);
            if (!isMinusOne(start))
                break;
        }
    }
    if (isMinusOne(end)) {
        for (pugi::xml_node next = clip.next_sibling(); next; next = next.next_sibling()) {
            const bool throughTransition =
                isTransition(next) && isMinusOne(startOf(next.next_sibling()));
            end = throughTransition ? QStringLiteral("-1") : endOf(next);
            after.push_back(next);
            if (!isMinusOne(end))
                break;
        }
    }
    if (rangeStart)
        *rangeStart = start ? fnd::integerValue(*start) : 0;
    if (rangeEnd)
        *rangeEnd = end ? fnd::integerValue(*end) : 0;
    std::vector<pugi::xml_node> affected(before.rbegin(), before.rend());
    affected.push_back(clip);
    affected.insert(affected.end(), after.begin(), after.end());
    return affected;
}
