// The binary property-list writer (bplist00): objects in pre-order (a dictionary's keys,
// then its values), equal strings, numbers, dates and data written once, reference and
// offset widths the smallest that fit.

#include "platform/plist/PlistInternal.h"
#include "platform/plist/PropertyList.h"

#include <QDateTime>
#include <QHash>
#include <QLoggingCategory>
#include <cstring>
#include <vector>

namespace plist {
namespace {

Q_LOGGING_CATEGORY(lcBinaryWriter, "velmora.plist.binary")

using detail::Kind;

int widthFor(quint64 value)
{
    if (value <= 0xFF)
        return 1;
    if (value <= 0xFFFF)
        return 2;
    if (value <= 0xFFFFFFFFull)
        return 4;
    return 8;
}

void appendUInt(QByteArray& out, quint64 value, int width)
{
    for (int shift = 8 * (width - 1); shift >= 0; shift -= 8)
        out += char((value >> shift) & 0xFF);
}

void appendMarker(QByteArray& out, uchar type, quint64 count)
{
    if (count < 15) {
        out += char((type << 4) | uchar(count));
        return;
    }
    out += char((type << 4) | 0x0F);
    const int width = widthFor(count);
    out += char(0x10 | (width == 1 ? 0 : width == 2 ? 1 : width == 4 ? 2 : 3));
    appendUInt(out, count, width);
}

// One object as it will be written: its leaf bytes, or the indices it refers to.
struct Entry {
    QByteArray leaf;
    uchar containerType = 0; // 0xA array, 0xD dictionary, 0 for leaves
    std::vector<quint64> refs;
};

class BinaryWriter {
public:
    std::vector<Entry> entries;

    std::optional<quint64> add(const QVariant& value, int depth)
    {
        if (depth > kMaxDepth)
            return fail(QStringLiteral("nesting deeper than %1").arg(kMaxDepth));
        const Kind kind = detail::kindOf(value);
        if (kind == Kind::Array || kind == Kind::Dictionary)
            return addContainer(value, kind, depth);
        QByteArray bytes;
        if (!leafBytes(value, kind, bytes))
            return fail(QStringLiteral("value of type %1 has no property-list form")
                            .arg(QString::fromLatin1(value.typeName() ? value.typeName() : "invalid")));
        const auto known = uniqued_.constFind(bytes);
        if (known != uniqued_.cend())
            return *known;
        entries.push_back(Entry{bytes, 0, {}});
        uniqued_.insert(bytes, entries.size() - 1);
        return entries.size() - 1;
    }

private:
    // Leaf bytes double as the uniquing key: equal bytes are equal values.
    QHash<QByteArray, quint64> uniqued_;

    static std::nullopt_t fail(const QString& why)
    {
        qCWarning(lcBinaryWriter) << "Cannot write binary property list:" << why;
        return std::nullopt;
    }

    std::optional<quint64> addContainer(const QVariant& value, Kind kind, int depth)
    {
        const quint64 index = entries.size();
        entries.push_back(Entry{{}, uchar(kind == Kind::Array ? 0xA : 0xD), {}});
        std::vector<quint64> refs;
        if (kind == Kind::Array) {
            for (const QVariant& element : detail::arrayOf(value)) {
                const auto ref = add(element, depth + 1);
                if (!ref)
                    return std::nullopt;
                refs.push_back(*ref);
            }
        } else {
            const QVariantMap map = value.toMap();
            for (auto it = map.cbegin(); it != map.cend(); ++it) {
                const auto ref = add(it.key(), depth + 1);
                if (!ref)
                    return std::nullopt;
                refs.push_back(*ref);
            }
            for (const QVariant& v : map) {
                const auto ref = add(v, depth + 1);
                if (!ref)
                    return std::nullopt;
                refs.push_back(*ref);
            }
        }
        entries[index].refs = std::move(refs);
        return index;
    }

    static void appendDouble(QByteArray& out, uchar marker, double d)
    {
        quint64 bits;
        std::memcpy(&bits, &d, 8);
        out += char(marker);
        appendUInt(out, bits, 8);
    }

    static void appendString(QByteArray& out, const QString& s)
    {
        const bool ascii = std::all_of(s.cbegin(), s.cend(), [](QChar c) { return c.unicode() < 0x80; });
        appendMarker(out, ascii ? 0x5 : 0x6, quint64(s.size()));
        for (const QChar c : s)
            appendUInt(out, c.unicode(), ascii ? 1 : 2);
    }

    static void appendInteger(QByteArray& out, qint64 n)
    {
        if (n < 0) {
            out += char(0x13);
            appendUInt(out, quint64(n), 8);
            return;
        }
        const int width = widthFor(quint64(n));
        out += char(0x10 | (width == 1 ? 0 : width == 2 ? 1 : width == 4 ? 2 : 3));
        appendUInt(out, quint64(n), width);
    }

    static bool leafBytes(const QVariant& value, Kind kind, QByteArray& out)
    {
        switch (kind) {
        case Kind::String:
            appendString(out, value.toString());
            return true;
        case Kind::Integer:
            appendInteger(out, value.toLongLong());
            return true;
        case Kind::Unsigned:
            if (value.toULongLong() <= quint64(std::numeric_limits<qint64>::max())) {
                appendInteger(out, qint64(value.toULongLong()));
            } else {
                out += char(0x14); // above INT64_MAX: 16 bytes, the upper eight zero
                appendUInt(out, 0, 8);
                appendUInt(out, value.toULongLong(), 8);
            }
            return true;
        case Kind::Real:
            appendDouble(out, 0x23, value.toDouble());
            return true;
        case Kind::Boolean:
            out += char(value.toBool() ? 0x09 : 0x08);
            return true;
        case Kind::Date:
            appendDouble(out, 0x33, detail::referenceSecondsFromDate(value.toDateTime()));
            return true;
        case Kind::Data:
            appendMarker(out, 0x4, quint64(value.toByteArray().size()));
            out += value.toByteArray();
            return true;
        case Kind::Uid: {
            const quint64 uid = value.value<PlistUid>().value;
            const int width = widthFor(uid);
            out += char(0x80 | (width - 1));
            appendUInt(out, uid, width);
            return true;
        }
        default:
            return false;
        }
    }
};

QByteArray serialise(const std::vector<Entry>& entries)
{
    const int refSize = widthFor(entries.size());
    QByteArray out("bplist00");
    std::vector<quint64> offsets;
    offsets.reserve(entries.size());
    for (const Entry& entry : entries) {
        offsets.push_back(quint64(out.size()));
        if (!entry.containerType) {
            out += entry.leaf;
            continue;
        }
        const quint64 count = entry.containerType == 0xD ? entry.refs.size() / 2 : entry.refs.size();
        appendMarker(out, entry.containerType, count);
        for (quint64 ref : entry.refs)
            appendUInt(out, ref, refSize);
    }
    const quint64 tableOffset = quint64(out.size());
    const int offsetSize = widthFor(tableOffset);
    for (quint64 offset : offsets)
        appendUInt(out, offset, offsetSize);
    out += QByteArray(6, '\0');
    out += char(offsetSize);
    out += char(refSize);
    appendUInt(out, entries.size(), 8);
    appendUInt(out, 0, 8); // the root is always object 0
    appendUInt(out, tableOffset, 8);
    return out;
}

} // namespace

QByteArray writeBinary(const QVariant& root)
{
    BinaryWriter writer;
    if (!writer.add(root, 0))
        return {};
    return serialise(writer.entries);
}

} // namespace plist
