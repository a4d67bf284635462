// The old-style (OpenStep) text reader: { key = value; }, ( a, b ), "quoted" and bare
// strings, <hex data>, // and /* */ comments. It reads back what description() writes for
// strings, data and collections; numbers and dates come back as their text.

#include "platform/plist/PlistInternal.h"
#include "platform/plist/PropertyList.h"

namespace plist {
namespace {

using detail::setError;

bool isBareChar(char16_t c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '$'
        || c == '+' || c == '/' || c == ':' || c == '.' || c == '-';
}

int hexDigit(char16_t c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

class OpenStepScanner : private detail::FirstError {
public:
    explicit OpenStepScanner(QString text) : text_(std::move(text)) {}

    std::optional<QVariant> parseDocument(QString* error)
    {
        auto root = value(0);
        if (root && skipBlanks() && at_ < text_.size())
            root = fail(QStringLiteral("unexpected text after the value"));
        if (!root)
            setError(error, QStringLiteral("old-style property list, line %1: %2").arg(line()).arg(firstError()));
        return root;
    }

private:
    QString text_;
    qsizetype at_ = 0;

    int line() const
    {
        return 1 + int(text_.left(at_).count(u'\n'));
    }


    char16_t peek() const
    {
        return at_ < text_.size() ? text_[at_].unicode() : 0;
    }

    // White space and comments; false on an unterminated comment.
    bool skipBlanks()
    {
        while (at_ < text_.size()) {
            if (text_[at_].isSpace()) {
                ++at_;
            } else if (QStringView(text_).mid(at_, 2) == u"//") {
                const qsizetype end = text_.indexOf(u'\n', at_);
                at_ = end < 0 ? text_.size() : end + 1;
            } else if (QStringView(text_).mid(at_, 2) == u"/*") {
                const qsizetype end = text_.indexOf(QStringLiteral("*/"), at_ + 2);
                if (end < 0)
                    return failed(QStringLiteral("unterminated comment"));
                at_ = end + 2;
            } else {
                break;
            }
        }
        return true;
    }

    bool expect(char16_t c)
    {
        if (!skipBlanks())
            return false;
        if (peek() != c)
            return failed(QStringLiteral("'%1' expected").arg(QChar(c)));
        ++at_;
        return true;
    }

    std::optional<QVariant> value(int depth)
    {
        if (depth > kMaxDepth)
            return fail(QStringLiteral("nesting deeper than %1").arg(kMaxDepth));
        if (!skipBlanks())
            return std::nullopt;
        const char16_t c = peek();
        if (c == '{')
            return dictionary(depth);
        if (c == '(')
            return array(depth);
        if (c == '<')
            return data();
        if (c == '"' || c == '\'')
            return quoted();
        if (isBareChar(c))
            return bare();
        return fail(at_ >= text_.size() ? QStringLiteral("unexpected end of text")
                                        : QStringLiteral("unexpected character '%1'").arg(QChar(c)));
    }

    std::optional<QVariant> bare()
    {
        const qsizetype start = at_;
        while (isBareChar(peek()))
            ++at_;
        return QVariant(text_.mid(start, at_ - start));
    }

    std::optional<QVariant> quoted()
    {
        const char16_t quote = text_[at_++].unicode();
        QString out;
        while (at_ < text_.size()) {
            const char16_t c = text_[at_++].unicode();
            if (c == quote)
                return QVariant(out);
            if (c != '\\') {
                out += QChar(c);
            } else if (!escape(out)) {
                return std::nullopt;
            }
        }
        return fail(QStringLiteral("unterminated quoted string"));
    }

    // After a backslash: \n \t \r \a \b \f \v, \Uxxxx (one UTF-16 unit), octal \nnn, or
    // the character itself (\" \\ \').
    bool escape(QString& out)
    {
        if (at_ >= text_.size())
            return failed(QStringLiteral("unterminated escape"));
        const char16_t c = text_[at_++].unicode();
        static const QString simple = QStringLiteral("ntrabfv");
        static const char16_t meaning[] = {'\n', '\t', '\r', '\a', '\b', '\f', '\v'};
        if (const qsizetype i = simple.indexOf(QChar(c)); i >= 0) {
            out += QChar(meaning[i]);
        } else if (c == 'U') {
            uint unit = 0;
            int digits = 0;
            for (; digits < 4 && hexDigit(peek()) >= 0; ++digits)
                unit = unit * 16 + uint(hexDigit(text_[at_++].unicode()));
            if (digits == 0)
                return failed(QStringLiteral("\\U without hex digits"));
            out += QChar(char16_t(unit));
        } else if (c >= '0' && c <= '7') {
            uint code = c - '0';
            for (int digits = 1; digits < 3 && peek() >= '0' && peek() <= '7'; ++digits)
                code = code * 8 + (text_[at_++].unicode() - '0');
            out += QChar(char16_t(code));
        } else {
            out += QChar(c);
        }
        return true;
    }

    std::optional<QVariant> data()
    {
        ++at_;
        QByteArray bytes;
        int high = -1;
        for (;;) {
            if (!skipBlanks())
                return std::nullopt;
            const char16_t c = peek();
            if (c == '>')
                break;
            const int digit = hexDigit(c);
            if (digit < 0)
                return fail(at_ >= text_.size() ? QStringLiteral("unterminated data")
                                                : QStringLiteral("invalid character in data"));
            ++at_;
            if (high < 0) {
                high = digit;
            } else {
                bytes += char(high * 16 + digit);
                high = -1;
            }
        }
        ++at_;
        if (high >= 0)
            return fail(QStringLiteral("odd number of hex digits in data"));
        return QVariant(bytes);
    }

    std::optional<QVariant> array(int depth)
    {
        ++at_;
        QVariantList list;
        for (;;) {
            if (!skipBlanks())
                return std::nullopt;
            if (peek() == ')') {
                ++at_;
                return list;
            }
            auto element = value(depth + 1);
            if (!element || !skipBlanks())
                return std::nullopt;
            list.append(std::move(*element));
            if (peek() == ',')
                ++at_;
            else if (peek() != ')')
                return fail(QStringLiteral("',' or ')' expected in array"));
        }
    }

    std::optional<QVariant> dictionary(int depth)
    {
        ++at_;
        QVariantMap map;
        for (;;) {
            if (!skipBlanks())
                return std::nullopt;
            if (peek() == '}') {
                ++at_;
                return map;
            }
            const auto key = value(depth + 1);
            if (!key)
                return std::nullopt;
            if (key->typeId() != QMetaType::QString)
                return fail(QStringLiteral("dictionary key is not a string"));
            if (!expect('='))
                return std::nullopt;
            auto entry = value(depth + 1);
            if (!entry || !expect(';'))
                return std::nullopt;
            map.insert(key->toString(), std::move(*entry));
        }
    }
};

} // namespace

std::optional<QVariant> readOpenStep(const QByteArray& bytes, QString* error)
{
    QByteArray text = bytes;
    if (text.startsWith("\xEF\xBB\xBF"))
        text.remove(0, 3);
    return OpenStepScanner(QString::fromUtf8(text)).parseDocument(error);
}

} // namespace plist
