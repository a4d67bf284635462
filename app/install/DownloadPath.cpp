#include "install/DownloadPath.h"

#include <QUrl>

namespace install {

std::optional<QString> urlLastPathComponent(const QString& url)
{
    const QUrl parsed(url, QUrl::StrictMode);
    if (url.isEmpty() || !parsed.isValid())
        return std::nullopt;
    // The encoded path: an escaped "/" must stay inside the component it belongs to.
    QString path = parsed.path(QUrl::FullyEncoded);
    if (path.isEmpty())
        return QString();
    if (path == QStringLiteral("/"))
        return path;
    if (path.endsWith(QLatin1Char('/')))
        path.chop(1);
    const QString encoded = path.mid(path.lastIndexOf(QLatin1Char('/')) + 1);
    return QUrl::fromPercentEncoding(encoded.toUtf8());
}

std::optional<QString> safeDownloadName(const QString& url)
{
    const std::optional<QString> name = urlLastPathComponent(url);
    if (!name)
        return std::nullopt;
    if (name->isEmpty() || *name == QStringLiteral(".") || *name == QStringLiteral(".."))
        return std::nullopt;
    if (name->contains(QLatin1Char('/')) || name->contains(QChar(0)))
        return std::nullopt;
    return name;
}

std::optional<QString> downloadFilePath(const QString& downloadFolder, const QString& url)
{
    const std::optional<QString> name = safeDownloadName(url);
    if (!name || downloadFolder.isEmpty())
        return std::nullopt;
    QString folder = downloadFolder;
    if (!folder.endsWith(QLatin1Char('/')))
        folder += QLatin1Char('/');
    return folder + *name;
}

} // namespace install
