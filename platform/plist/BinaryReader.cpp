// The binary property-list reader (bplist00). Every offset, count and reference is checked
// against the trailer before use; objects are cached by index so shared references (a DAG)
// are parsed once, and an object met again while it is still being parsed is a cycle.

#include "platform/plist/PlistInternal.h"
#include "platform/plist/PropertyList.h"

#include <QDateTime>
#include <QHash>
#include <QStringDecoder>
#include <cstring>
#include <limits>
#include <vector>

namespace plist {
namespace {

using detail::setError;

constexpr quint64 kLongMax = quint64(std::numeric_limits<qint64>::max());

class BinaryReader : private detail::FirstError {
public:
    explicit BinaryReader(const QByteArray& bytes)
        : data_(reinterpret_cast<const uchar*>(bytes.constData())), size_(quint64(bytes.size()))
    {
    }

    std::optional<QVariant> parse(QString* error)
    {
        std::optional<QVariant> root;
        if (readTrailer())
            root = object(top_, 0);
        if (!root)
            setError(error, QStringLiteral("binary property list: %1").arg(firstError()));
        return root;
    }

private:
    const uchar* data_;
    quint64 size_;
    int offsetSize_ = 0;
    int refSize_ = 0;
    quint64 numObjects_ = 0;
    quint64 top_ = 0;
    quint64 tableOffset_ = 0;
    detail::ObjectWalk walk_;

    quint64 readUInt(quint64 at, int width) const
    {
        quint64 value = 0;
        for (int i = 0; i < width; ++i)
            value = (value << 8) | data_[at + quint64(i)];
        return value;
    }

    // True when `length` bytes from `at` lie inside the object table.
    bool fits(quint64 at, quint64 length) const
    {
        return at <= tableOffset_ && length <= tableOffset_ - at;
    }

    static bool fitsWidth(quint64 value, int width)
    {
        return width >= 8 || value < (quint64(1) << (8 * width));
    }

    bool readTrailer()
    {
        if (size_ < 8 + 1 + 32 || std::memcmp(data_, "bplist0", 7) != 0)
            return failed(QStringLiteral("too short or no bplist0 header"));
        const quint64 t = size_ - 32;
        offsetSize_ = data_[t + 6];
        refSize_ = data_[t + 7];
        numObjects_ = readUInt(t + 8, 8);
        top_ = readUInt(t + 16, 8);
        tableOffset_ = readUInt(t + 24, 8);
        if (offsetSize_ < 1 || offsetSize_ > 8 || refSize_ < 1 || refSize_ > 8)
            return failed(QStringLiteral("invalid offset or reference size in trailer"));
        if (numObjects_ < 1 || numObjects_ > kLongMax || top_ >= numObjects_)
            return failed(QStringLiteral("invalid object count or top object in trailer"));
        if (tableOffset_ < 9 || tableOffset_ >= size_ - 32)
            return failed(QStringLiteral("offset table outside the file"));
        // Overflow-safe form of: T + numObjects * offsetSize + 32 == file length.
        if (numObjects_ > (size_ - 32 - tableOffset_) / quint64(offsetSize_)
            || tableOffset_ + numObjects_ * quint64(offsetSize_) + 32 != size_)
            return failed(QStringLiteral("offset table does not match the file length"));
        if (!fitsWidth(numObjects_, refSize_) || !fitsWidth(tableOffset_, offsetSize_))
            return failed(QStringLiteral("reference or offset size too small for the file"));
        walk_.reset(numObjects_);
        return true;
    }

    std::optional<quint64> offsetOf(quint64 index)
    {
        if (index >= numObjects_)
            return fail(QStringLiteral("reference %1 out of range").arg(index));
        const quint64 offset = readUInt(tableOffset_ + index * quint64(offsetSize_), offsetSize_);
        if (offset < 8 || offset >= tableOffset_)
            return fail(QStringLiteral("object %1 at invalid offset %2").arg(index).arg(offset));
        return offset;
    }

    // The count of a container, string or data marker at `at`; moves `at` past it.
    std::optional<quint64> readCount(quint64& at)
    {
        const uchar nibble = data_[at] & 0x0F;
        ++at;
        if (nibble != 0x0F)
            return nibble;
        if (!fits(at, 1) || (data_[at] & 0xF0) != 0x10 || (data_[at] & 0x0F) > 3)
            return fail(QStringLiteral("invalid extended count"));
        const int width = 1 << (data_[at] & 0x0F);
        if (!fits(at + 1, quint64(width)))
            return fail(QStringLiteral("extended count past the object table"));
        const quint64 count = readUInt(at + 1, width);
        at += 1 + quint64(width);
        if (count > kLongMax)
            return fail(QStringLiteral("count out of range"));
        return count;
    }

    std::optional<QVariant> integer(quint64 at, uchar nibble)
    {
        if (nibble > 4)
            return fail(QStringLiteral("integer wider than 16 bytes"));
        const int width = 1 << nibble;
        if (!fits(at + 1, quint64(width)))
            return fail(QStringLiteral("integer past the object table"));
        if (width < 8)
            return QVariant(qlonglong(readUInt(at + 1, width)));
        if (width == 8)
            return QVariant(qlonglong(readUInt(at + 1, 8)));
        const quint64 high = readUInt(at + 1, 8);
        const quint64 low = readUInt(at + 9, 8);
        // A 16-byte integer is how values above INT64_MAX are stored; a sign-extended
        // negative in the int64 range reads as that negative; anything wider is refused.
        if (high == 0)
            return low > kLongMax ? QVariant(qulonglong(low)) : QVariant(qlonglong(low));
        if (high == ~quint64(0) && low > kLongMax)
            return QVariant(qlonglong(low));
        return fail(QStringLiteral("integer out of 64-bit range"));
    }

    std::optional<double> real(quint64 at, uchar nibble)
    {
        if (nibble != 2 && nibble != 3)
            return fail(QStringLiteral("invalid real size"));
        const int width = 1 << nibble;
        if (!fits(at + 1, quint64(width)))
            return fail(QStringLiteral("real past the object table"));
        const quint64 bits = readUInt(at + 1, width);
        if (width == 4) {
            float f;
            const quint32 bits32 = quint32(bits);
            std::memcpy(&f, &bits32, 4);
            return double(f);
        }
        double d;
        std::memcpy(&d, &bits, 8);
        return d;
    }

    std::optional<QVariant> asciiString(quint64 at, quint64 count)
    {
        if (!fits(at, count))
            return fail(QStringLiteral("string past the object table"));
        const QByteArray bytes(reinterpret_cast<const char*>(data_ + at), qsizetype(count));
        const bool sevenBit = std::all_of(bytes.cbegin(), bytes.cend(), [](char c) { return uchar(c) < 0x80; });
        if (sevenBit)
            return QVariant(QString::fromLatin1(bytes));
        // Some writers put UTF-8 in ASCII-tagged strings: read it as meant, else as Latin-1.
        QStringDecoder utf8(QStringConverter::Utf8, QStringConverter::Flag::Stateless);
        const QString decoded = utf8(bytes);
        return QVariant(utf8.hasError() ? QString::fromLatin1(bytes) : decoded);
    }

    std::optional<QVariant> utf16String(quint64 at, quint64 count)
    {
        if (count > kLongMax / 2 || !fits(at, count * 2))
            return fail(QStringLiteral("string past the object table"));
        QString text(qsizetype(count), Qt::Uninitialized);
        for (quint64 i = 0; i < count; ++i)
            text[qsizetype(i)] = QChar(char16_t(readUInt(at + 2 * i, 2)));
        for (qsizetype i = 0; i < text.size(); ++i) {
            const bool pairHere = text[i].isHighSurrogate() && i + 1 < text.size() && text[i + 1].isLowSurrogate();
            if (pairHere)
                ++i;
            else if (text[i].isSurrogate())
                text[i] = QChar::ReplacementCharacter; // unpaired halves cannot be shown or stored as UTF-8
        }
        return QVariant(text);
    }

    std::optional<QVariant> uid(quint64 at, uchar nibble)
    {
        const int width = nibble + 1;
        if (width > 8 || !fits(at + 1, quint64(width)))
            return fail(QStringLiteral("invalid UID"));
        const quint64 value = readUInt(at + 1, width);
        if (value > 0xFFFFFFFFull)
            return fail(QStringLiteral("UID out of range"));
        return QVariant::fromValue(PlistUid{value});
    }

    // Reads `count` references from `at`, each checked against the object count.
    std::optional<std::vector<quint64>> references(quint64 at, quint64 count)
    {
        if (count > kLongMax / quint64(refSize_) || !fits(at, count * quint64(refSize_)))
            return fail(QStringLiteral("container past the object table"));
        std::vector<quint64> refs(count);
        for (quint64 i = 0; i < count; ++i) {
            refs[i] = readUInt(at + i * quint64(refSize_), refSize_);
            if (refs[i] >= numObjects_)
                return fail(QStringLiteral("reference %1 out of range").arg(refs[i]));
        }
        return refs;
    }

    std::optional<QVariant> array(quint64 at, quint64 count, int depth)
    {
        const auto refs = references(at, count);
        if (!refs)
            return std::nullopt;
        QVariantList list;
        list.reserve(qsizetype(count));
        for (quint64 ref : *refs) {
            auto element = object(ref, depth + 1);
            if (!element)
                return std::nullopt;
            list.append(std::move(*element));
        }
        return list;
    }

    std::optional<QVariant> dictionary(quint64 at, quint64 count, int depth)
    {
        if (count > kLongMax / 2)
            return fail(QStringLiteral("dictionary count out of range"));
        const auto refs = references(at, count * 2);
        if (!refs)
            return std::nullopt;
        QVariantMap map;
        for (quint64 i = 0; i < count; ++i) {
            const auto key = object((*refs)[i], depth + 1);
            if (!key)
                return std::nullopt;
            if (key->typeId() != QMetaType::QString)
                return fail(QStringLiteral("dictionary key is not a string"));
            auto value = object((*refs)[count + i], depth + 1);
            if (!value)
                return std::nullopt;
            if (!map.contains(key->toString()))
                map.insert(key->toString(), std::move(*value)); // a repeated key: the first one wins
        }
        return map;
    }

    std::optional<QVariant> parseAt(quint64 at, int depth)
    {
        const uchar marker = data_[at];
        const uchar nibble = marker & 0x0F;
        switch (marker >> 4) {
        case 0x0:
            if (marker == 0x08 || marker == 0x09)
                return QVariant(marker == 0x09);
            return fail(QStringLiteral("unsupported marker 0x%1").arg(marker, 2, 16, QLatin1Char('0')));
        case 0x1:
            return integer(at, nibble);
        case 0x2: {
            const auto value = real(at, nibble);
            return value ? std::optional<QVariant>(*value) : std::nullopt;
        }
        case 0x3: {
            const auto seconds = marker == 0x33 ? real(at, 3) : fail(QStringLiteral("invalid date marker"));
            const auto date = seconds ? detail::dateFromReferenceSeconds(*seconds) : std::nullopt;
            if (!date)
                return fail(QStringLiteral("invalid date"));
            return QVariant(*date);
        }
        case 0x8:
            return uid(at, nibble);
        default:
            break;
        }
        return sized(at, marker >> 4, depth);
    }

    // Objects whose marker carries a count: data, strings, arrays, dictionaries.
    std::optional<QVariant> sized(quint64 at, int type, int depth)
    {
        if (type != 0x4 && type != 0x5 && type != 0x6 && type != 0xA && type != 0xD)
            return fail(QStringLiteral("unsupported marker 0x%1").arg(data_[at], 2, 16, QLatin1Char('0')));
        const auto count = readCount(at);
        if (!count)
            return std::nullopt;
        switch (type) {
        case 0x4:
            if (!fits(at, *count))
                return fail(QStringLiteral("data past the object table"));
            return QVariant(QByteArray(reinterpret_cast<const char*>(data_ + at), qsizetype(*count)));
        case 0x5:
            return asciiString(at, *count);
        case 0x6:
            return utf16String(at, *count);
        case 0xA:
            return array(at, *count, depth);
        default:
            return dictionary(at, *count, depth);
        }
    }

    std::optional<QVariant> object(quint64 index, int depth)
    {
        const auto decode = [&]() -> std::optional<QVariant> {
            const auto offset = offsetOf(index);
            if (!offset)
                return std::nullopt;
            return parseAt(*offset, depth);
        };
        return walk_.visit(index, depth, decode, [this](const QString& why) { return fail(why); });
    }
};

} // namespace

std::optional<QVariant> readBinary(const QByteArray& bytes, QString* error)
{
    return BinaryReader(bytes).parse(error);
}

} // namespace plist
