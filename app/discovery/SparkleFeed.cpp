#include "SparkleFeed.h"

#include "UpdateRecord.h"
#include "discovery/FeedRules.h"
#include "platform/foundation/Foundation.h"
#include "shared/VLLog.h"

#include <pugixml.hpp>

#include <cstring>

namespace discovery {
namespace {

QString fromXml(const pugi::char_t* text)
{
    return QString::fromUtf8(text);
}

// The node's text value: every text and CDATA node below it, in document order.
QString textOf(pugi::xml_node node)
{
    if (node.type() == pugi::node_pcdata || node.type() == pugi::node_cdata)
        return fromXml(node.value());
    // pugixml's tree walker is iterative, so deep nesting costs no stack.
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

bool named(const pugi::xml_node& node, const char* name)
{
    return node.type() == pugi::node_element && std::strcmp(node.name(), name) == 0;
}

// The first `item` whose parent is a `channel`, in document order (".//channel/item").
pugi::xml_node firstChannelItem(pugi::xml_document& doc)
{
    struct Finder : pugi::xml_tree_walker {
        pugi::xml_node found;
        bool for_each(pugi::xml_node& node) override
        {
            if (named(node, "item") && named(node.parent(), "channel")) {
                found = node;
                return false;
            }
            return true;
        }
    } finder;
    doc.traverse(finder);
    return finder.found;
}

} // namespace

SparkleFeed parseSparkleFeed(const QByteArray& bytes)
{
    SparkleFeed feed;
    pugi::xml_document doc;
    // parse_default has no parse_doctype: the DOCTYPE is skipped, never interpreted.
    const pugi::xml_parse_result parsed =
        doc.load_buffer(bytes.constData(), size_t(bytes.size()), pugi::parse_default, pugi::encoding_auto);
    if (!parsed) {
        feed.error = QStringLiteral("%1 at offset %2").arg(fromXml(parsed.description())).arg(parsed.offset);
        return feed;
    }
    const pugi::xml_node item = firstChannelItem(doc);
    if (!item) {
        feed.status = SparkleFeed::Status::NoItems;
        return feed;
    }
    const pugi::xml_node enclosure = item.child("enclosure");
    if (!enclosure) {
        feed.status = SparkleFeed::Status::NoEnclosure;
        return feed;
    }
    feed.status = SparkleFeed::Status::Ok;
    for (const pugi::xml_attribute& a : enclosure.attributes())
        feed.enclosure.append({fromXml(a.name()), fromXml(a.value())});
    if (item.first_child()) {
        QList<XmlChild> children;
        for (const pugi::xml_node& child : item.children())
            children.append({child.type() == pugi::node_element ? fromXml(child.name()) : QString(), textOf(child)});
        feed.children = children;
    }
    return feed;
}

EnclosureVerdict applyEnclosure(const QList<XmlAttribute>& attributes, qint64 installedVersion,
                                const QString& installedVersionString, const QString& systemVersion,
                                QVariantMap& record)
{
    for (const XmlAttribute& a : attributes) {
        if (a.name == QLatin1String("sparkle:version")) {
            const int version = fnd::intValue(a.value);
            VLLog::fastAppendLog(QStringLiteral("Found version %i"), version);
            if (version <= installedVersion) {
                VLLog::fastAppendLog(QStringLiteral("Software is up to date."));
                return EnclosureVerdict::UpToDate;
            }
            VLLog::fastAppendLog(QStringLiteral("Update available."));
            record.insert(record::kNewVersion, a.value);
            record.insert(record::kOldVersion, installedVersion);
            if (!installedVersionString.isNull())
                record.insert(record::kOldVersionString, installedVersionString);
        } else if (a.name == QLatin1String("sparkle:shortVersionString")) {
            VLLog::fastAppendLog(QStringLiteral("Loading new version..."));
            record.insert(record::kNewVersionString, a.value);
        } else if (a.name == QLatin1String("url")) {
            VLLog::fastAppendLog(QStringLiteral("Loading URL..."));
            record.insert(record::kUrl, a.value);
        } else if (a.name == QLatin1String("size")) {
            VLLog::fastAppendLog(QStringLiteral("Loading size..."));
            record.insert(record::kSize, a.value);
        } else if (a.name == QLatin1String("manualOnly")) {
            record.insert(record::kManualOnly, fnd::boolValue(a.value));
        } else if (a.name == QLatin1String("minOS")) {
            if (minOSBlocks(a.value, systemVersion)) {
                VLLog::fastAppendLog(QStringLiteral("Update requires macOS %@"), a.value);
                return EnclosureVerdict::NeedsNewerOS;
            }
        } else if (a.name == QLatin1String("checksum")) {
            record.insert(record::kServerChecksum, a.value);
        } else if (a.name == QLatin1String("sparkle:edSignature") && !a.value.isEmpty()) {
            record.insert(record::kEdSignature, a.value);
        }
    }
    return EnclosureVerdict::Update;
}

void applyItemChildren(const QList<XmlChild>& children, QVariantMap& record)
{
    for (const XmlChild& child : children) {
        if (child.name == QLatin1String("title"))
            record.insert(record::kTitle, child.text);
        else if (child.name == QLatin1String("link"))
            record.insert(record::kPageUrl, child.text);
        else if (child.name == QLatin1String("description"))
            record.insert(record::kChangeList, child.text);
    }
}

} // namespace discovery
