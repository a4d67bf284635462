#include "shared/VLPremiere.h"

#include "platform/foundation/Foundation.h"
#include "platform/system/Bundle.h"
#include "platform/system/Workspace.h"
#include "shared/VLFileManager.h"
#include "shared/VLLocalPaths.h"
#include "shared/VLXMLParser.h"

#include <QDir>
#include <QFile>

#include <functional>
#include <optional>

namespace {

const QString kBundleIdentifier = QStringLiteral("com.adobe.AdobePremierePro");
const QString kInstallationPrefix = QStringLiteral("Adobe Premiere ");

// The entries of `folder` whose names begin with `prefix`, ignoring case, in listing order;
// none when the folder cannot be listed.
QStringList installationsIn(const QString& folder, const QString& prefix)
{
    QStringList kept;
    const QStringList entries =
        QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
    for (const QString& entry : entries)
        if (fnd::hasPrefixCaseInsensitive(entry, prefix))
            kept.append(entry);
    return kept;
}

// A string entry of the bundle's information; nullopt when there is no bundle at the path or
// the entry is missing or not text.
std::optional<QString> infoString(const QString& bundlePath, const QString& key)
{
    const std::optional<sys::Bundle> bundle = sys::Bundle::bundleWithPath(bundlePath);
    if (!bundle)
        return std::nullopt;
    const QVariant value = bundle->objectForInfoDictionaryKey(key);
    if (value.typeId() != QMetaType::QString)
        return std::nullopt;
    return value.toString();
}

// The installer configuration's bytes; nullopt when the file cannot be read.
std::optional<QByteArray> readConfiguration(const QString& folder, const QString& installation)
{
    QFile file(QStringLiteral("%1/%2/Configuration/XManConfig.xml").arg(folder, installation));
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    return file.readAll();
}

// The ProductVersion the configuration names; nullopt when it is not XML or names none.
std::optional<QString> productVersion(const QByteArray& configuration)
{
    const std::unique_ptr<pugi::xml_document> document = VLXMLParser::documentWithData(configuration);
    if (!document)
        return std::nullopt;
    return VLXMLParser::stringValueForQuery(
        QStringLiteral("./Configuration/VariableForExMan/Data[@key='ProductVersion']"), *document);
}

// A three-part (or longer) bundle version as "major.minor"; anything shorter as it stands.
QString suiteVersion(const QString& bundleVersion)
{
    const QStringList parts = bundleVersion.split(QLatin1Char('.'));
    if (parts.size() >= 3)
        return QStringLiteral("%1.%2").arg(parts.at(0), parts.at(1));
    return bundleVersion;
}

// First the folder that holds the workspace's installation, then the local Applications
// folder, whose versions are added only when not listed yet.
QStringList wholeMachine(const std::function<QStringList(const QString& folder)>& scanFolder)
{
    QStringList versions;
    if (const std::optional<QString> application = sys::workspace().fullPathForApplication(kBundleIdentifier))
        versions += scanFolder(fnd::stringByDeletingLastPathComponent(fnd::stringByDeletingLastPathComponent(*application)));
    for (const QString& version : scanFolder(VLLocalPaths::applicationDirectory(false)))
        if (!versions.contains(version))
            versions.append(version);
    return versions;
}

} // namespace

QStringList VLPremiere::premiereVersions()
{
    return versionsForAppName(kInstallationPrefix);
}

QStringList VLPremiere::versionsForAppName(const QString& namePrefix)
{
    return wholeMachine([&](const QString& folder) { return versionsForAppName(namePrefix, folder); });
}

QStringList VLPremiere::versionsForAppName(const QString& namePrefix, const QString& folder)
{
    QStringList versions;
    for (const QString& installation : installationsIn(folder, namePrefix)) {
        const QString bundlePath = QStringLiteral("%1/%2/%2.app").arg(folder, installation);
        if (sys::Bundle::bundleWithPath(bundlePath)) {
            std::optional<QString> version = infoString(bundlePath, QStringLiteral("CFBundleVersionString"));
            if (!version)
                version = infoString(bundlePath, QStringLiteral("CFBundleVersion"));
            if (version)
                versions.append(*version);
            continue;
        }
        if (const std::optional<QByteArray> configuration = readConfiguration(folder, installation))
            if (const std::optional<QString> version = productVersion(*configuration))
                versions.append(*version);
    }
    return versions;
}

QStringList VLPremiere::suiteVersions()
{
    return wholeMachine([](const QString& folder) { return suiteVersionsInFolder(folder); });
}

QStringList VLPremiere::suiteVersionsInFolder(const QString& folder)
{
    QStringList versions;
    for (const QString& installation : installationsIn(folder, kInstallationPrefix)) {
        // A readable configuration decides alone, even when it names no version.
        if (const std::optional<QByteArray> configuration = readConfiguration(folder, installation)) {
            if (const std::optional<QString> version = productVersion(*configuration))
                versions.append(*version);
            continue;
        }
        const QStringList bundles = VLFileManager::filesMatchingWildcardPath(
            QStringLiteral("%1/%2/Adobe Premiere Pro *.app").arg(folder, installation));
        if (bundles.isEmpty())
            continue;
        if (const std::optional<QString> version = infoString(bundles.first(), QStringLiteral("CFBundleVersion")))
            versions.append(suiteVersion(*version));
    }
    return versions;
}
