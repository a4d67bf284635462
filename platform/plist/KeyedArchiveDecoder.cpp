// Decoding of keyed archives whose root object is a dictionary. Only an allow-list of
// classes is instantiated; every UID is bounds-checked; objects are cached by UID so shared
// objects decode once, and an object met again while it is being decoded is a cycle.

#include "platform/plist/PlistInternal.h"
#include "platform/plist/PropertyList.h"

#include <QDateTime>
#include <QHash>
#include <QUrl>
#include <vector>

namespace plist {
namespace {

using detail::Kind;

bool isDictionaryClass(const QString& name)
{
    return name == u"NSDictionary" || name == u"NSMutableDictionary";
}

class Unarchiver {
public:
    explicit Unarchiver(QVariantList objects) : objects_(std::move(objects)), walk_(std::size_t(objects_.size())) {}

    QString error;

    std::optional<QVariantMap> decodeRoot(const QVariant& rootRef)
    {
        if (rootRef.typeId() != qMetaTypeId<PlistUid>())
            return fail(QStringLiteral("$top has no root UID"));
        const quint64 index = rootRef.value<PlistUid>().value;
        if (index == 0 || index >= quint64(objects_.size()))
            return fail(QStringLiteral("root UID %1 out of range").arg(index));
        const auto name = className(objects_[qsizetype(index)]);
        if (!name)
            return fail(QStringLiteral("root object is not a dictionary"));
        if (!isDictionaryClass(*name))
            return fail(QStringLiteral("root object is an %1, not a dictionary").arg(*name));
        const auto root = decodeIndex(index, 0);
        if (!root)
            return std::nullopt;
        return root->toMap();
    }

private:
    QVariantList objects_;
    detail::ObjectWalk walk_;

    std::nullopt_t fail(const QString& why)
    {
        if (error.isEmpty())
            error = why;
        return std::nullopt;
    }

    // The class name of a stored object, when it is an object with a usable class description.
    std::optional<QString> className(const QVariant& stored)
    {
        if (stored.typeId() != QMetaType::QVariantMap)
            return std::nullopt;
        const QVariant classRef = stored.toMap().value(QStringLiteral("$class"));
        if (classRef.typeId() != qMetaTypeId<PlistUid>())
            return std::nullopt;
        const quint64 index = classRef.value<PlistUid>().value;
        if (index == 0 || index >= quint64(objects_.size()))
            return std::nullopt;
        const QVariant name = objects_[qsizetype(index)].toMap().value(QStringLiteral("$classname"));
        if (name.typeId() != QMetaType::QString)
            return std::nullopt;
        return name.toString();
    }

    std::optional<QVariant> decode(const QVariant& ref, int depth)
    {
        if (ref.typeId() != qMetaTypeId<PlistUid>())
            return fail(QStringLiteral("reference is not a UID"));
        const quint64 index = ref.value<PlistUid>().value;
        if (index == 0)
            return fail(QStringLiteral("nil where a value is required"));
        if (index >= quint64(objects_.size()))
            return fail(QStringLiteral("UID %1 out of range").arg(index));
        return decodeIndex(index, depth);
    }

    std::optional<QVariant> decodeIndex(quint64 index, int depth)
    {
        return walk_.visit(
            index, depth, [&] { return decodeStored(objects_[qsizetype(index)], depth); },
            [this](const QString& why) { return fail(why); });
    }

    std::optional<QVariant> decodeStored(const QVariant& stored, int depth)
    {
        switch (detail::kindOf(stored)) {
        case Kind::String:
        case Kind::Integer:
        case Kind::Unsigned:
        case Kind::Real:
        case Kind::Boolean:
        case Kind::Data:
            return stored; // immutable strings, numbers and data are stored inline
        case Kind::Dictionary:
            break;
        default:
            return fail(QStringLiteral("stored object of an unexpected type"));
        }
        const auto name = className(stored);
        if (!name)
            return fail(QStringLiteral("object without a usable class description"));
        return decodeClassed(*name, stored.toMap(), depth);
    }

    std::optional<QVariantList> decodeList(const QVariant& refs, int depth)
    {
        if (refs.typeId() != QMetaType::QVariantList)
            return fail(QStringLiteral("NS.objects or NS.keys is not an array"));
        QVariantList out;
        for (const QVariant& ref : refs.toList()) {
            auto element = decode(ref, depth + 1);
            if (!element)
                return std::nullopt;
            out.append(std::move(*element));
        }
        return out;
    }

    std::optional<QVariant> decodeDictionary(const QVariantMap& object, int depth)
    {
        const auto keys = decodeList(object.value(QStringLiteral("NS.keys")), depth);
        const auto values = keys ? decodeList(object.value(QStringLiteral("NS.objects")), depth) : std::nullopt;
        if (!values)
            return std::nullopt;
        if (keys->size() != values->size())
            return fail(QStringLiteral("NS.keys and NS.objects differ in length"));
        QVariantMap map;
        for (qsizetype i = 0; i < keys->size(); ++i) {
            if ((*keys)[i].typeId() != QMetaType::QString)
                return fail(QStringLiteral("dictionary key is not a string"));
            map.insert((*keys)[i].toString(), (*values)[i]);
        }
        return map;
    }

    // A field holding a string or data: stored inline (as the archiver writes NS.string and
    // NS.data) or behind a UID (as NSURL's NS.relative is).
    std::optional<QVariant> typedField(const QVariantMap& object, const QString& key, Kind kind, int depth)
    {
        const QVariant stored = object.value(key);
        const bool direct = detail::kindOf(stored) == kind;
        const auto value = direct ? std::optional<QVariant>(stored) : decode(stored, depth + 1);
        if (!value)
            return std::nullopt;
        const Kind found = detail::kindOf(*value);
        const bool numeric = kind == Kind::Real && (found == Kind::Integer || found == Kind::Unsigned);
        if (found != kind && !numeric)
            return fail(QStringLiteral("%1 has the wrong type").arg(key));
        return value;
    }

    std::optional<QVariant> decodeUrl(const QVariantMap& object, int depth)
    {
        const auto relative = typedField(object, QStringLiteral("NS.relative"), Kind::String, depth);
        if (!relative)
            return std::nullopt;
        const QVariant baseRef = object.value(QStringLiteral("NS.base"));
        if (baseRef.typeId() == qMetaTypeId<PlistUid>() && baseRef.value<PlistUid>().value == 0)
            return relative; // no base: the relative string is the address
        const auto base = typedField(object, QStringLiteral("NS.base"), Kind::String, depth);
        if (!base)
            return std::nullopt;
        return QUrl(base->toString()).resolved(QUrl(relative->toString())).toString();
    }

    std::optional<QVariant> decodeClassed(const QString& name, const QVariantMap& object, int depth)
    {
        if (isDictionaryClass(name))
            return decodeDictionary(object, depth);
        if (name == u"NSArray" || name == u"NSMutableArray" || name == u"NSSet" || name == u"NSMutableSet") {
            auto list = decodeList(object.value(QStringLiteral("NS.objects")), depth);
            return list ? std::optional<QVariant>(*list) : std::nullopt;
        }
        if (name == u"NSString" || name == u"NSMutableString")
            return typedField(object, QStringLiteral("NS.string"), Kind::String, depth);
        if (name == u"NSData" || name == u"NSMutableData")
            return typedField(object, QStringLiteral("NS.data"), Kind::Data, depth);
        if (name == u"NSNull")
            return QVariant::fromValue(nullptr);
        if (name == u"NSURL")
            return decodeUrl(object, depth);
        if (name == u"NSDate") {
            const QVariant time = object.value(QStringLiteral("NS.time"));
            const Kind kind = detail::kindOf(time);
            const bool number = kind == Kind::Real || kind == Kind::Integer || kind == Kind::Unsigned;
            const auto date = number ? detail::dateFromReferenceSeconds(time.toDouble()) : std::nullopt;
            if (!date)
                return fail(QStringLiteral("NS.time is not a valid time"));
            return QVariant(*date);
        }
        return fail(QStringLiteral("class %1 is not supported").arg(name));
    }
};

} // namespace

std::optional<QVariantMap> decodeKeyedArchiveDictionary(const QByteArray& bytes, QString* error)
{
    QString why;
    const auto archive = read(bytes, &why);
    const QVariantMap top = archive ? archive->toMap() : QVariantMap();
    if (!archive) {
        why = QStringLiteral("not a property list: %1").arg(why);
    } else if (archive->typeId() != QMetaType::QVariantMap) {
        why = QStringLiteral("the archive is not a dictionary");
    } else if (top.value(QStringLiteral("$archiver")) != QVariant(QStringLiteral("NSKeyedArchiver"))) {
        why = QStringLiteral("$archiver is not NSKeyedArchiver");
    } else if (top.value(QStringLiteral("$version")).typeId() != QMetaType::LongLong
               || top.value(QStringLiteral("$version")).toLongLong() != 100000) {
        why = QStringLiteral("$version is not 100000");
    } else if (top.value(QStringLiteral("$objects")).typeId() != QMetaType::QVariantList
               || top.value(QStringLiteral("$top")).typeId() != QMetaType::QVariantMap) {
        why = QStringLiteral("$objects or $top is missing");
    } else {
        Unarchiver unarchiver(top.value(QStringLiteral("$objects")).toList());
        auto root = unarchiver.decodeRoot(top.value(QStringLiteral("$top")).toMap().value(QStringLiteral("root")));
        if (root)
            return root;
        why = unarchiver.error;
    }
    detail::setError(error, QStringLiteral("keyed archive: %1").arg(why));
    return std::nullopt;
}

} // namespace plist
