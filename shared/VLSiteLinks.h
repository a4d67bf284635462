#pragma once
// VLSiteLinks: the addresses of the vendor web site's pages (home, products, support, bug
// reports, feature requests, one page per product). Every address is built on the web site's
// base address of the environment contract (sys::webSiteBase(), VELMORA_WEB_SITE); the base's
// trailing "/" is not doubled when a path is added to it.
//
// Addresses are made as the platform's address object makes them from text: text that is not
// a valid address (a space or another character an address may not hold) gives an invalid
// QUrl, the counterpart of no address at all. Only the bug-report address escapes its text
// first: every character outside the letters, digits and -_.!~*'();/?:@&=+$, is
// percent-escaped as UTF-8, "%" and "#" included, so a name or version that holds them reaches
// the page as text rather than as an escape or a fragment.
//
// An application name is the page's slug ("software_update"). A subapp is "given" when it is
// not std::nullopt; an empty subapp is given.
//
// Static and stateless; any thread.

#include <QString>
#include <QUrl>

#include <optional>

class VLSiteLinks {
public:
    VLSiteLinks() = delete;

    static QUrl velmoraURL();         // the base address itself
    static QUrl velmoraProductsURL(); // base + "/products"

    // base + "/support/<name>/bugreport/", then "?app=<subapp>" when given, then "?" or "&"
    // and "version=<version>"; the whole text escaped as described above.
    static QUrl bugReportURLWithAppName(const QString& appName, const std::optional<QString>& subapp,
                                        const QString& version);
    // The same with the main bundle's CFBundleShortVersionString ("(null)" when it has none).
    static QUrl bugReportURLWithAppName(const QString& appName, const std::optional<QString>& subapp);
    // base + "/support/<name>/featurerequest/", plus "?app=<subapp>" when given.
    static QUrl featureRequestURLWithAppName(const QString& appName, const std::optional<QString>& subapp);
    // base + "/support/<name>".
    static QUrl supportURLForAppName(const QString& appName);

    // The product pages: base + "/products/<slug>".
    static QUrl softwareUpdateURL(); // "software_update"
    static QUrl tesselURL();         // "tessel"
    static QUrl harrowURL();         // "harrow"
};
