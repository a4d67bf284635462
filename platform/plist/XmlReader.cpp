// The XML property-list reader: a small hand-written scanner with the rules of the
// platform's own reader rather than a general XML parser. A DOCTYPE (internal subset
// included) is skipped, never processed, so entity definitions cannot expand into anything;
// a reference to an undefined entity is an error.

#include "platform/plist/PlistInternal.h"
#include "platform/plist/PropertyList.h"
#include "platform/plist/XmlEncoding.h"
#include "platform/plist/XmlLeaves.h"

#include <QDateTime>
#include <algorithm>
#include <cstring>

namespace plist {
namespace {

using detail::setError;

struct Tag {
    QByteArray name;
    bool selfClosing = false;
};

bool isSpace(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

void appendUtf8(QByteArray& out, char32_t codePoint)
{
    out += QString::fromUcs4(&codePoint, 1).toUtf8();
}

class XmlScanner {
public:
    explicit XmlScanner(const QByteArray& utf8) : begin_(utf8.constData()), p_(begin_), end_(begin_ + utf8.size()) {}

    std::optional<QVariant> parseDocument(QString* error)
    {
        auto result = document();
        if (!result)
            setError(error, QStringLiteral("XML property list, line %1: %2").arg(line()).arg(error_));
        return result;
    }

private:
    const char* begin_;
    const char* p_;
    const char* end_;
    const char* failedAt_ = nullptr;
    QString error_;

    int line() const
    {
        return 1 + int(std::count(begin_, failedAt_ ? failedAt_ : p_, '\n'));
    }

    std::nullopt_t fail(const QString& why)
    {
        if (error_.isEmpty()) {
            error_ = why;
            failedAt_ = p_;
        }
        return std::nullopt;
    }

    bool failed(const QString& why)
    {
        fail(why);
        return false;
    }

    bool startsWith(const char* text) const
    {
        const size_t n = std::strlen(text);
        return size_t(end_ - p_) >= n && std::memcmp(p_, text, n) == 0;
    }

    // Moves past `terminator`; false when the input ends first.
    bool skipPast(const char* terminator)
    {
        const size_t n = std::strlen(terminator);
        const char* found = std::search(p_, end_, terminator, terminator + n);
        if (found == end_)
            return false;
        p_ = found + n;
        return true;
    }

    bool skipDoctype()
    {
        char quote = 0;
        int brackets = 0;
        for (; p_ < end_; ++p_) {
            const char c = *p_;
            if (quote) {
                quote = c == quote ? 0 : quote;
            } else if (c == '"' || c == '\'') {
                quote = c;
            } else if (c == '[') {
                ++brackets;
            } else if (c == ']') {
                --brackets;
            } else if (c == '>' && brackets <= 0) {
                ++p_;
                return true;
            }
        }
        return false;
    }

    // White space, comments and processing instructions; the DOCTYPE too in the prolog.
    bool skipMisc(bool inProlog)
    {
        for (;;) {
            while (p_ < end_ && isSpace(*p_))
                ++p_;
            if (startsWith("<!--")) {
                if (!skipPast("-->"))
                    return failed(QStringLiteral("unterminated comment"));
            } else if (startsWith("<?")) {
                if (!skipPast("?>"))
                    return failed(QStringLiteral("unterminated processing instruction"));
            } else if (inProlog && startsWith("<!DOCTYPE")) {
                if (!skipDoctype())
                    return failed(QStringLiteral("unterminated DOCTYPE"));
            } else {
                return true;
            }
        }
    }

    // At '<': reads an opening tag; attributes are skipped.
    bool readTag(Tag& tag)
    {
        if (p_ >= end_ || *p_ != '<')
            return failed((p_ >= end_ ? QStringLiteral("unexpected end of document")
                                        : QStringLiteral("unexpected text where an element was expected")));
        const char* nameStart = ++p_;
        while (p_ < end_ && !isSpace(*p_) && *p_ != '>' && *p_ != '/')
            ++p_;
        tag.name = QByteArray(nameStart, p_ - nameStart);
        if (tag.name.isEmpty() || tag.name.startsWith('!'))
            return failed(QStringLiteral("malformed tag"));
        char quote = 0;
        char previous = 0;
        for (; p_ < end_; ++p_) {
            if (quote) {
                quote = *p_ == quote ? 0 : quote;
            } else if (*p_ == '"' || *p_ == '\'') {
                quote = *p_;
            } else if (*p_ == '>') {
                tag.selfClosing = previous == '/';
                ++p_;
                return true;
            }
            if (!isSpace(*p_))
                previous = *p_;
        }
        return failed(QStringLiteral("unterminated <%1> tag").arg(QString::fromUtf8(tag.name)));
    }

    // At "</": reads a closing tag and checks its name.
    bool readClose(const QByteArray& name)
    {
        const char* nameStart = p_ + 2;
        const char* at = nameStart;
        while (at < end_ && !isSpace(*at) && *at != '>')
            ++at;
        if (QByteArray(nameStart, at - nameStart) != name)
            return failed(QStringLiteral("</%1> expected").arg(QString::fromUtf8(name)));
        while (at < end_ && isSpace(*at))
            ++at;
        if (at >= end_ || *at != '>')
            return failed(QStringLiteral("unterminated </%1>").arg(QString::fromUtf8(name)));
        p_ = at + 1;
        return true;
    }

    bool readEntity(QByteArray& out)
    {
        // Longest accepted reference is "&#x10FFFF;"; a longer one is malformed anyway.
        const char* limit = end_ - p_ > 12 ? p_ + 12 : end_;
        const char* semicolon = std::find(p_, limit, ';');
        if (semicolon == limit)
            return failed(QStringLiteral("unterminated entity reference"));
        const QByteArray name(p_ + 1, semicolon - p_ - 1);
        p_ = semicolon + 1;
        static const std::pair<const char*, char> named[] = {
            {"lt", '<'}, {"gt", '>'}, {"amp", '&'}, {"apos", '\''}, {"quot", '"'}};
        for (const auto& [entity, c] : named) {
            if (name == entity) {
                out += c;
                return true;
            }
        }
        bool ok = false;
        uint codePoint = 0;
        if (name.startsWith("#x") && name.size() > 2 && name.size() <= 10)
            codePoint = name.mid(2).toUInt(&ok, 16);
        else if (name.startsWith('#') && name.size() > 1 && name.size() <= 9)
            codePoint = name.mid(1).toUInt(&ok, 10);
        const bool valid = ok && codePoint > 0 && codePoint <= 0x10FFFF && (codePoint < 0xD800 || codePoint > 0xDFFF)
            && !name.contains('-') && !name.contains('+');
        if (!valid)
            return failed(QStringLiteral("unknown entity &%1;").arg(QString::fromUtf8(name)));
        appendUtf8(out, char32_t(codePoint));
        return true;
    }

    // Text content up to </name>: entities and CDATA decoded, any element an error.
    std::optional<QString> readText(const QByteArray& name)
    {
        QByteArray text;
        while (p_ < end_) {
            if (*p_ == '&') {
                if (!readEntity(text))
                    return std::nullopt;
            } else if (*p_ != '<') {
                text += *p_++;
            } else if (startsWith("</")) {
                if (!readClose(name))
                    return std::nullopt;
                return QString::fromUtf8(text);
            } else if (startsWith("<![CDATA[")) {
                const char* start = p_ + 9;
                if (!skipPast("]]>"))
                    return fail(QStringLiteral("unterminated CDATA section"));
                text.append(start, p_ - 3 - start);
            } else if (startsWith("<!--")) {
                return fail(QStringLiteral("comment inside <%1>").arg(QString::fromUtf8(name)));
            } else {
                return fail(QStringLiteral("element inside <%1>").arg(QString::fromUtf8(name)));
            }
        }
        return fail(QStringLiteral("unterminated <%1>").arg(QString::fromUtf8(name)));
    }

    std::optional<QString> leafText(const Tag& tag)
    {
        if (tag.selfClosing)
            return QString();
        return readText(tag.name);
    }

    template <typename T>
    std::optional<QVariant> leaf(const Tag& tag, std::optional<T> (*parse)(const QString&, QString*))
    {
        const auto text = leafText(tag);
        if (!text)
            return std::nullopt;
        QString why;
        const auto value = parse(*text, &why);
        if (!value)
            return fail(why);
        return QVariant::fromValue(*value);
    }

    std::optional<QVariant> boolean(const Tag& tag)
    {
        const auto text = leafText(tag);
        if (!text)
            return std::nullopt;
        if (!text->isEmpty())
            return fail(QStringLiteral("<%1> must be empty").arg(QString::fromUtf8(tag.name)));
        return QVariant(tag.name == "true");
    }

    // After the children of a container: true at its closing tag (consumed), false at the
    // next child; nullopt on error.
    std::optional<bool> atClose(const QByteArray& name)
    {
        if (!skipMisc(false))
            return std::nullopt;
        if (!startsWith("</"))
            return false;
        if (!readClose(name))
            return std::nullopt;
        return true;
    }

    std::optional<QVariant> array(const Tag& tag, int depth)
    {
        QVariantList list;
        if (tag.selfClosing)
            return list;
        for (;;) {
            const auto closed = atClose(tag.name);
            if (!closed)
                return std::nullopt;
            if (*closed)
                return list;
            Tag child;
            if (!readTag(child))
                return std::nullopt;
            auto value = element(child, depth + 1);
            if (!value)
                return std::nullopt;
            list.append(std::move(*value));
        }
    }

    std::optional<QVariant> dictionary(const Tag& tag, int depth)
    {
        QVariantMap map;
        for (bool closed = tag.selfClosing; !closed;) {
            const auto atEnd = atClose(tag.name);
            if (!atEnd)
                return std::nullopt;
            if ((closed = *atEnd))
                break;
            Tag keyTag;
            if (!readTag(keyTag))
                return std::nullopt;
            if (keyTag.name != "key")
                return fail(QStringLiteral("<key> expected in <dict>, found <%1>").arg(QString::fromUtf8(keyTag.name)));
            const auto key = leafText(keyTag);
            if (!key || !skipMisc(false))
                return std::nullopt;
            Tag valueTag;
            if (startsWith("</") || !readTag(valueTag))
                return fail(QStringLiteral("key \"%1\" has no value").arg(*key));
            auto value = element(valueTag, depth + 1);
            if (!value)
                return std::nullopt;
            map.insert(*key, std::move(*value)); // a repeated key: the last one wins
        }
        return uidOrDictionary(std::move(map));
    }

    static QVariant uidOrDictionary(QVariantMap map)
    {
        if (map.size() != 1 || !map.contains(QStringLiteral("CF$UID")))
            return map;
        const QVariant id = map.first();
        const bool integer = id.typeId() == QMetaType::LongLong || id.typeId() == QMetaType::ULongLong;
        if (!integer || id.toLongLong() < 0 || id.toULongLong() > 0xFFFFFFFFull)
            return map;
        return QVariant::fromValue(PlistUid{id.toULongLong()});
    }

    std::optional<QVariant> element(const Tag& tag, int depth)
    {
        if (depth > kMaxDepth)
            return fail(QStringLiteral("nesting deeper than %1").arg(kMaxDepth));
        const QByteArray& n = tag.name;
        if (n == "string") {
            const auto text = leafText(tag);
            return text ? std::optional<QVariant>(*text) : std::nullopt;
        }
        if (n == "integer") {
            const auto text = leafText(tag);
            QString why;
            auto value = text ? detail::parseXmlInteger(*text, &why) : std::nullopt;
            return value ? value : (text ? fail(why) : std::nullopt);
        }
        if (n == "real")
            return leaf<double>(tag, detail::parseXmlReal);
        if (n == "date")
            return leaf<QDateTime>(tag, detail::parseXmlDate);
        if (n == "data")
            return leaf<QByteArray>(tag, detail::parseXmlData);
        if (n == "true" || n == "false")
            return boolean(tag);
        if (n == "array")
            return array(tag, depth);
        if (n == "dict")
            return dictionary(tag, depth);
        return fail(QStringLiteral("unknown element <%1>").arg(QString::fromUtf8(n)));
    }

    std::optional<QVariant> document()
    {
        Tag tag;
        if (!skipMisc(true) || !readTag(tag))
            return std::nullopt;
        if (tag.name != "plist")
            return element(tag, 0); // a bare value is accepted as the document
        if (tag.selfClosing)
            return fail(QStringLiteral("<plist> holds no value"));
        Tag valueTag;
        if (!skipMisc(false) || !readTag(valueTag))
            return std::nullopt;
        auto value = element(valueTag, 0);
        if (!value || !skipMisc(false))
            return std::nullopt;
        if (!startsWith("</"))
            return fail(QStringLiteral("<plist> holds more than one value"));
        if (!readClose("plist"))
            return std::nullopt;
        return value; // anything after the top-level element is ignored
    }
};

} // namespace

std::optional<QVariant> readXml(const QByteArray& bytes, QString* error)
{
    const auto utf8 = detail::xmlToUtf8(bytes, error);
    if (!utf8)
        return std::nullopt;
    return XmlScanner(*utf8).parseDocument(error);
}

} // namespace plist
