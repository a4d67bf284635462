#include "shared/VLSiteLinks.h"

#include "platform/foundation/Format.h"
#include "platform/system/Bundle.h"
#include "platform/system/SystemEnvironment.h"

namespace {

// The base address ready for a path that begins with "/".
QString siteRoot()
{
    QString base = sys::webSiteBase();
    while (base.endsWith(QLatin1Char('/')))
        base.chop(1);
    return base;
}

// The platform's address from text: anything an address may not hold gives no address.
QUrl urlWithString(const QString& text)
{
    return QUrl(text, QUrl::StrictMode);
}

// Escapes what is not a legal address character as UTF-8; "%" is escaped too, so an escape
// already in the text is escaped again rather than decoded.
QString percentEscaped(const QString& text)
{
    static const QByteArray legalPunctuation = QByteArrayLiteral("!*'();/?:@&=+$,");
    return QString::fromLatin1(QUrl::toPercentEncoding(text, legalPunctuation));
}

QUrl productPage(const char* slug)
{
    return urlWithString(siteRoot() + QStringLiteral("/products/") + QLatin1String(slug));
}

} // namespace

QUrl VLSiteLinks::velmoraURL()
{
    return urlWithString(sys::webSiteBase());
}

QUrl VLSiteLinks::velmoraProductsURL()
{
    return urlWithString(siteRoot() + QStringLiteral("/products"));
}

QUrl VLSiteLinks::bugReportURLWithAppName(const QString& appName, const std::optional<QString>& subapp,
                                          const QString& version)
{
    QString text = siteRoot() + fnd::format(QStringLiteral("/support/%@/bugreport/"), appName);
    if (subapp)
        text += fnd::format(QStringLiteral("?app=%@"), *subapp);
    text += subapp ? QStringLiteral("&") : QStringLiteral("?");
    text += fnd::format(QStringLiteral("version=%@"), version);
    return urlWithString(percentEscaped(text));
}

QUrl VLSiteLinks::bugReportURLWithAppName(const QString& appName, const std::optional<QString>& subapp)
{
    const QVariant version = sys::Bundle::mainBundle().objectForInfoDictionaryKey(QStringLiteral("CFBundleShortVersionString"));
    return bugReportURLWithAppName(appName, subapp, fnd::describeForFormat(version));
}

QUrl VLSiteLinks::featureRequestURLWithAppName(const QString& appName, const std::optional<QString>& subapp)
{
    QString text = siteRoot() + fnd::format(QStringLiteral("/support/%@/featurerequest/"), appName);
    if (subapp)
        text += fnd::format(QStringLiteral("?app=%@"), *subapp);
    return urlWithString(text);
}

QUrl VLSiteLinks::supportURLForAppName(const QString& appName)
{
    return urlWithString(siteRoot() + fnd::format(QStringLiteral("/support/%@"), appName));
}

QUrl VLSiteLinks::softwareUpdateURL() { return productPage("software_update"); }
QUrl VLSiteLinks::tesselURL() { return productPage("tessel"); }
QUrl VLSiteLinks::harrowURL() { return productPage("harrow"); }
