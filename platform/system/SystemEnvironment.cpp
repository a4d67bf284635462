// The environment contract: every value is read from the process environment on each call,
// so tests may change it between cases. qEnvironmentVariable is thread-safe in Qt 6.

#include "platform/system/SystemEnvironment.h"

#include "platform/plist/PropertyList.h"

#include <QDir>
#include <QUrl>

namespace sys {

namespace {

QString environmentOr(const char* name, const QString& fallback)
{
    const QString value = qEnvironmentVariable(name);
    return value.isEmpty() ? fallback : value;
}

QString withoutTrailingSlashes(QString path)
{
    while (path.endsWith(QLatin1Char('/')))
        path.chop(1);
    return path;
}

} // namespace

QString systemRoot()
{
    return withoutTrailingSlashes(qEnvironmentVariable("VELMORA_SYSROOT"));
}

QString rooted(const QString& absolutePath)
{
    const QString root = systemRoot();
    if (root.isEmpty())
        return absolutePath;
    // A relative path is joined with "/" so the result never escapes into a sibling folder.
    if (!absolutePath.startsWith(QLatin1Char('/')))
        return root + QLatin1Char('/') + absolutePath;
    return root + absolutePath;
}

QString homeDirectory()
{
    // QDir::homePath falls back to the password database when HOME is unset.
    return withoutTrailingSlashes(environmentOr("HOME", QDir::homePath()));
}

QString temporaryDirectory()
{
    QString dir = environmentOr("TMPDIR", QStringLiteral("/tmp"));
    if (!dir.endsWith(QLatin1Char('/')))
        dir += QLatin1Char('/');
    return dir;
}

QString updateServerBase()
{
    return withoutTrailingSlashes(environmentOr("VELMORA_UPDATE_SERVER", QStringLiteral("https://updates.velmora.com")));
}

QString webSiteBase()
{
    return environmentOr("VELMORA_WEB_SITE", QStringLiteral("https://www.velmora.com/"));
}

QString webSiteDomain()
{
    QString host = QUrl(webSiteBase()).host();
    if (host.startsWith(QStringLiteral("www.")))
        host = host.mid(4);
    return host;
}

QString extraCertificateAuthorities()
{
    return qEnvironmentVariable("VELMORA_CA_FILE");
}

QString productVersion()
{
    const auto info = plist::readDictionaryFile(rooted(QStringLiteral("/System/Library/CoreServices/SystemVersion.plist")));
    if (!info)
        return QStringLiteral("0.0.0");
    const QVariant version = info->value(QStringLiteral("ProductVersion"));
    if (version.typeId() != QMetaType::QString || version.toString().isEmpty())
        return QStringLiteral("0.0.0");
    return version.toString();
}

} // namespace sys
