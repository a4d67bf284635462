// The path of URL strings and the strict legality check of URL strings.
//
// URLs are split the RFC 1808 way: scheme ":" then "//authority", then the path up to the
// first ";" (parameters), "?" (query) or "#" (fragment). Parameters, query and fragment
// never contribute to the path, so "file.zip;jsessionid=1" ends in "file.zip".

#include "platform/foundation/Foundation.h"

#include <QStringDecoder>

namespace fnd {

namespace {

bool isSchemeChar(QChar c)
{
    const char16_t u = c.unicode();
    return (u >= u'a' && u <= u'z') || (u >= u'A' && u <= u'Z') || (u >= u'0' && u <= u'9') || u == u'+'
        || u == u'-' || u == u'.';
}

// The still-encoded path of a URL string.
QString encodedPath(const QString& url)
{
    qsizetype i = 0;
    const qsizetype colon = url.indexOf(u':');
    if (colon > 0 && url[0].isLetter() && url[0].unicode() < 0x80) {
        bool scheme = true;
        for (qsizetype k = 0; k < colon && scheme; ++k)
            scheme = isSchemeChar(url[k]);
        if (scheme)
            i = colon + 1;
    }
    if (url.mid(i, 2) == QStringLiteral("//")) {
        i += 2;
        while (i < url.size() && url[i] != u'/' && url[i] != u'?' && url[i] != u'#')
            ++i;
    }
    qsizetype end = i;
    while (end < url.size() && url[end] != u';' && url[end] != u'?' && url[end] != u'#')
        ++end;
    return url.mid(i, end - i);
}

bool isHexDigit(QChar c)
{
    const char16_t u = c.unicode();
    return (u >= u'0' && u <= u'9') || (u >= u'a' && u <= u'f') || (u >= u'A' && u <= u'F');
}

} // namespace

std::optional<QString> urlPath(const QString& url)
{
    if (!isValidURLString(url))
        return std::nullopt;
    QString path = encodedPath(url);
    if (path.size() > 1 && path.endsWith(u'/'))
        path.chop(1);
    const QByteArray bytes = QByteArray::fromPercentEncoding(path.toUtf8());
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString decoded = decoder.decode(bytes);
    if (decoder.hasError())
        return std::nullopt;
    return decoded;
}

bool isValidURLString(const QString& url)
{
    if (url.isEmpty())
        return false;
    bool seenHash = false;
    for (qsizetype i = 0; i < url.size(); ++i) {
        const char16_t u = url[i].unicode();
        if (u < 0x21 || u > 0x7E)
            return false;
        if (QStringView(u"\"<>\\^`{|}").contains(QChar(u)))
            return false;
        if (u == u'#') {
            if (seenHash)
                return false;
            seenHash = true;
        }
        if (u == u'%' && !(i + 2 < url.size() && isHexDigit(url[i + 1]) && isHexDigit(url[i + 2])))
            return false;
    }
    return true;
}

} // namespace fnd
