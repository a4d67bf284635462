#pragma once
// SparkleFeed: the pure reading of a Sparkle appcast, bytes in. It finds the first item
// (the first `item` child of a `channel` element anywhere, in document order), that item's
// first `enclosure` child element with its attributes in document order, and the item's
// child nodes with their names and texts. Then the update rules of the check:
// applyEnclosure() walks the attributes (version, short version, url, size, manualOnly,
// minOS, checksum, sparkle:edSignature) and applyItemChildren() the title, link and description.
//
// XML is read by pugixml without DOCTYPE processing: no DTD is read and no external or
// custom entity is ever expanded, so a hostile document cannot fetch files or grow memory
// beyond its own size. Pure functions apart from the log lines of applyEnclosure; any thread.

#include <QByteArray>
#include <QList>
#include <QString>
#include <QVariantMap>

#include <optional>

namespace discovery {

struct XmlAttribute {
    QString name;  // qualified, prefix included ("sparkle:version")
    QString value;
};

struct XmlChild {
    QString name;  // qualified element name; empty for text, comment and other nodes
    QString text;  // all text below the node, CDATA included, entities decoded
};

struct SparkleFeed {
    enum class Status { Ok, NotXml, NoItems, NoEnclosure };
    Status status = Status::NotXml;
    QString error;                              // NotXml: the parser's description
    QList<XmlAttribute> enclosure;              // Ok: the first enclosure's attributes
    std::optional<QList<XmlChild>> children;    // Ok: nullopt when the item has no child nodes
};

[[nodiscard]] SparkleFeed parseSparkleFeed(const QByteArray& bytes);

enum class EnclosureVerdict { Update, UpToDate, NeedsNewerOS };

// Walks the enclosure attributes in order, filling `record` (newVersion, oldVersion,
// oldVersionString, newVersionString, url, size, manualOnly, serverChecksum, and edSignature
// from a non-empty sparkle:edSignature, so a feed without one gives the same record). The walk
// stops at a version that is not newer (UpToDate) or a blocking minOS (NeedsNewerOS);
// attributes read before that point have no effect on the verdict.
[[nodiscard]] EnclosureVerdict applyEnclosure(const QList<XmlAttribute>& attributes, qint64 installedVersion,
                                              const QString& installedVersionString,
                                              const QString& systemVersion, QVariantMap& record);

// title -> "title", link -> "pageurl", description -> "changelist"; a later node of the same
// name overwrites an earlier one.
void applyItemChildren(const QList<XmlChild>& children, QVariantMap& record);

} // namespace discovery
