// libFuzzer target: an appcast as a hostile server could send it, through everything the
// Sparkle check does with the bytes: the reading of the first item and its enclosure, the
// enclosure walk (for an old installed version on an old and on a current system) and the
// item's texts, then the record as the list mode prints it. Checks abort on:
// - a refusal without the parser's description, or one with a description on success;
// - texts or attributes that outgrow the feed: nothing is ever expanded, so the item's
//   texts and the enclosure's attributes together hold no more units than the feed has bytes;
// - a printed record that does not read back (old-style reader) with every text the feed put
//   in it unchanged: whatever a feed holds, it cannot break or forge the list output.
#include "FuzzLog.h"

#include "discovery/SparkleFeed.h"
#include "platform/plist/PropertyList.h"

#include <cstdio>
#include <cstdlib>

namespace {

void check(bool condition, const char* what)
{
    if (!condition) {
        std::fprintf(stderr, "check failed: %s\n", what);
        std::abort();
    }
}

qsizetype unitsRead(const discovery::SparkleFeed& feed)
{
    qsizetype units = 0;
    for (const discovery::XmlAttribute& a : feed.enclosure)
        units += a.name.size() + a.value.size();
    if (feed.children) {
        for (const discovery::XmlChild& child : *feed.children)
            units += child.name.size() + child.text.size();
    }
    return units;
}

QVariantMap applyAsTheCheckDoes(const discovery::SparkleFeed& feed, const QString& systemVersion)
{
    QVariantMap record;
    const discovery::EnclosureVerdict verdict =
        discovery::applyEnclosure(feed.enclosure, 1, QStringLiteral("1.0"), systemVersion, record);
    if (verdict == discovery::EnclosureVerdict::Update && feed.children)
        discovery::applyItemChildren(*feed.children, record);
    return record;
}

// The list mode prints {updates = (record);}; its texts must come back as they were.
void checkPrintedRecord(const QVariantMap& record)
{
    const QString printed = plist::description(QVariantMap{{QStringLiteral("updates"), QVariantList{record}}});
    const std::optional<QVariant> read = plist::readOpenStep(printed.toUtf8());
    check(read.has_value(), "the printed record does not read back");
    const QVariantList updates = read->toMap().value(QStringLiteral("updates")).toList();
    check(updates.size() == 1, "the printed record reads back as another structure");
    const QVariantMap readRecord = updates.first().toMap();
    check(readRecord.keys() == record.keys(), "the printed record reads back with other keys");
    for (auto it = record.cbegin(); it != record.cend(); ++it) {
        if (it->typeId() == QMetaType::QString)
            check(readRecord.value(it.key()) == *it, "a text of the printed record reads back changed");
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    // The enclosure walk logs what it finds.
    fuzzsupport::silenceLog(QStringLiteral("SparkleFeedFuzz"));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char*>(data), qsizetype(size));
    const discovery::SparkleFeed feed = discovery::parseSparkleFeed(bytes);
    const bool refused = feed.status == discovery::SparkleFeed::Status::NotXml;
    check(refused != feed.error.isEmpty(), "refusal and parser description disagree");
    check(unitsRead(feed) <= bytes.size(), "the feed's items outgrew the feed");
    if (feed.status != discovery::SparkleFeed::Status::Ok)
        return 0;
    (void)applyAsTheCheckDoes(feed, QStringLiteral("10.13.6"));
    checkPrintedRecord(applyAsTheCheckDoes(feed, QStringLiteral("15.1.1")));
    return 0;
}
