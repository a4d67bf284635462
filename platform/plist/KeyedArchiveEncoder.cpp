// Encoding of a dictionary as a keyed archive: object 0 is "$null", an object receives its
// UID when first referenced, its children follow, and a class description is appended
// after the children of the first object that needs it.

#include "platform/plist/PlistInternal.h"
#include "platform/plist/PropertyList.h"

#include <QDateTime>
#include <QHash>
#include <QLoggingCategory>

namespace plist {
namespace {

Q_LOGGING_CATEGORY(lcArchiver, "velmora.plist.archive")

using detail::Kind;

QVariant uid(qsizetype index)
{
    return QVariant::fromValue(PlistUid{quint64(index)});
}

class Archiver {
public:
    QVariantList objects{QStringLiteral("$null")};

    std::optional<QVariant> encodeRoot(const QVariantMap& root)
    {
        return encodeCollection(root, QStringLiteral("NSMutableDictionary"), 0);
    }

private:
    QHash<QString, qsizetype> strings_;
    QHash<QString, qsizetype> classes_;

    static std::nullopt_t fail(const QString& why)
    {
        qCWarning(lcArchiver) << "Cannot encode keyed archive:" << why;
        return std::nullopt;
    }

    QVariant classUid(const QString& name)
    {
        if (const auto known = classes_.constFind(name); known != classes_.cend())
            return uid(*known);
        static const QHash<QString, QStringList> chains = {
            {QStringLiteral("NSMutableDictionary"), {QStringLiteral("NSMutableDictionary"), QStringLiteral("NSDictionary")}},
            {QStringLiteral("NSDictionary"), {QStringLiteral("NSDictionary")}},
            {QStringLiteral("NSArray"), {QStringLiteral("NSArray")}},
            {QStringLiteral("NSDate"), {QStringLiteral("NSDate")}},
            {QStringLiteral("NSNull"), {QStringLiteral("NSNull")}},
        };
        QVariantList chain;
        for (const QString& c : chains.value(name))
            chain.append(c);
        chain.append(QStringLiteral("NSObject"));
        objects.append(QVariantMap{{QStringLiteral("$classname"), name}, {QStringLiteral("$classes"), chain}});
        classes_.insert(name, objects.size() - 1);
        return uid(objects.size() - 1);
    }

    std::optional<QVariant> encode(const QVariant& value, int depth)
    {
        if (depth > kMaxDepth)
            return fail(QStringLiteral("nesting deeper than %1").arg(kMaxDepth));
        const Kind kind = detail::kindOf(value);
        switch (kind) {
        case Kind::String: {
            const QString s = value.toString();
            if (const auto known = strings_.constFind(s); known != strings_.cend())
                return uid(*known);
            objects.append(s);
            strings_.insert(s, objects.size() - 1);
            return uid(objects.size() - 1);
        }
        case Kind::Integer:
        case Kind::Unsigned:
        case Kind::Real:
        case Kind::Boolean:
        case Kind::Data:
            objects.append(value);
            return uid(objects.size() - 1);
        case Kind::Array:
            return encodeCollection(value, QStringLiteral("NSArray"), depth);
        case Kind::Dictionary:
            return encodeCollection(value, QStringLiteral("NSDictionary"), depth);
        case Kind::Date:
        case Kind::Null: {
            const qsizetype index = objects.size();
            objects.append(QVariant());
            QVariantMap object;
            if (kind == Kind::Date)
                object.insert(QStringLiteral("NS.time"), detail::referenceSecondsFromDate(value.toDateTime()));
            object.insert(QStringLiteral("$class"), classUid(kind == Kind::Date ? QStringLiteral("NSDate")
                                                                                 : QStringLiteral("NSNull")));
            objects[index] = object;
            return uid(index);
        }
        default:
            return fail(QStringLiteral("value of type %1 has no archived form")
                            .arg(QString::fromLatin1(value.typeName() ? value.typeName() : "invalid")));
        }
    }

    std::optional<QVariantList> encodeAll(const QVariantList& values, int depth)
    {
        QVariantList refs;
        for (const QVariant& v : values) {
            const auto ref = encode(v, depth + 1);
            if (!ref)
                return std::nullopt;
            refs.append(*ref);
        }
        return refs;
    }

    std::optional<QVariant> encodeCollection(const QVariant& value, const QString& className, int depth)
    {
        const qsizetype index = objects.size();
        objects.append(QVariant());
        QVariantMap object;
        if (className == u"NSArray") {
            const auto refs = encodeAll(detail::arrayOf(value), depth);
            if (!refs)
                return std::nullopt;
            object.insert(QStringLiteral("NS.objects"), *refs);
        } else {
            const QVariantMap map = value.toMap();
            QVariantList keys;
            for (const QString& key : map.keys())
                keys.append(key);
            const auto keyRefs = encodeAll(keys, depth);
            const auto valueRefs = keyRefs ? encodeAll(map.values(), depth) : std::nullopt;
            if (!valueRefs)
                return std::nullopt;
            object.insert(QStringLiteral("NS.keys"), *keyRefs);
            object.insert(QStringLiteral("NS.objects"), *valueRefs);
        }
        object.insert(QStringLiteral("$class"), classUid(className));
        objects[index] = object;
        return uid(index);
    }
};

} // namespace

QByteArray encodeKeyedArchive(const QVariantMap& root)
{
    Archiver archiver;
    const auto rootUid = archiver.encodeRoot(root);
    if (!rootUid)
        return {};
    const QVariantMap archive{
        {QStringLiteral("$archiver"), QStringLiteral("NSKeyedArchiver")},
        {QStringLiteral("$version"), qlonglong(100000)},
        {QStringLiteral("$top"), QVariantMap{{QStringLiteral("root"), *rootUid}}},
        {QStringLiteral("$objects"), archiver.objects},
    };
    return writeXml(archive);
}

} // namespace plist
