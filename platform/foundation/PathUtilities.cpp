// Path string helpers: components, extensions, joining. Only "/" separates components and
// runs of "/" count as one; a trailing "/" is ignored except for the root itself.

#include "platform/foundation/Foundation.h"

namespace fnd {

namespace {

// The path without trailing slashes; a path made only of slashes becomes "/".
QString stripTrailingSlashes(const QString& path)
{
    qsizetype end = path.size();
    while (end > 0 && path[end - 1] == u'/')
        --end;
    if (end == 0)
        return path.isEmpty() ? QString() : QStringLiteral("/");
    return path.left(end);
}

// Runs of "/" collapse to one and a trailing "/" is dropped (the root stays "/").
QString normalizeSlashes(const QString& path)
{
    QString out;
    out.reserve(path.size());
    for (QChar c : path) {
        if (c == u'/' && out.endsWith(u'/'))
            continue;
        out += c;
    }
    if (out.size() > 1 && out.endsWith(u'/'))
        out.chop(1);
    return out;
}

bool isBidiControl(char16_t u)
{
    return u == 0x061C || u == 0x200E || u == 0x200F || (u >= 0x202A && u <= 0x202E)
        || (u >= 0x2066 && u <= 0x2069);
}

// Index of the dot that starts the extension of a single component, or -1.
qsizetype extensionDotIndex(const QString& component)
{
    for (qsizetype i = component.size() - 1; i >= 0; --i) {
        const char16_t u = component[i].unicode();
        if (u == u'.')
            return (i == 0 || i == component.size() - 1) ? -1 : i;
        if (u == u' ' || u == u'/' || isBidiControl(u))
            return -1;
    }
    return -1;
}

} // namespace

QString lastPathComponent(const QString& path)
{
    const QString stripped = stripTrailingSlashes(path);
    if (stripped.isEmpty() || stripped == QStringLiteral("/"))
        return stripped;
    return stripped.mid(stripped.lastIndexOf(u'/') + 1);
}

QString pathExtension(const QString& path)
{
    const QString last = lastPathComponent(path);
    const qsizetype dot = extensionDotIndex(last);
    return dot < 0 ? QString() : last.mid(dot + 1);
}

QString stringByDeletingPathExtension(const QString& path)
{
    const QString stripped = stripTrailingSlashes(path);
    const qsizetype slash = stripped.lastIndexOf(u'/');
    const qsizetype dot = extensionDotIndex(stripped.mid(slash + 1));
    return dot < 0 ? stripped : stripped.left(slash + 1 + dot);
}

QString stringByDeletingLastPathComponent(const QString& path)
{
    const QString stripped = stripTrailingSlashes(path);
    if (stripped == QStringLiteral("/"))
        return stripped;
    const qsizetype slash = stripped.lastIndexOf(u'/');
    if (slash < 0)
        return QString();
    const QString parent = normalizeSlashes(stripped.left(slash + 1));
    return parent.isEmpty() ? QStringLiteral("/") : parent;
}

QString stringByAppendingPathComponent(const QString& path, const QString& component)
{
    if (path.isEmpty())
        return normalizeSlashes(component);
    if (component.isEmpty())
        return normalizeSlashes(path);
    return normalizeSlashes(path + u'/' + component);
}

QString stringByAppendingPathExtension(const QString& path, const QString& extension)
{
    const QString base = normalizeSlashes(path);
    if (extension.isEmpty())
        return base;
    return base + u'.' + extension;
}

QStringList pathComponents(const QString& path)
{
    QStringList parts;
    if (path.isEmpty())
        return parts;
    if (path.startsWith(u'/'))
        parts.append(QStringLiteral("/"));
    for (const QString& part : path.split(u'/', Qt::SkipEmptyParts))
        parts.append(part);
    // A trailing separator is its own last component ("/tmp/" -> "/", "tmp", "/").
    if (path.size() > 1 && path.endsWith(u'/') && parts.size() > 1)
        parts.append(QStringLiteral("/"));
    return parts;
}

} // namespace fnd
