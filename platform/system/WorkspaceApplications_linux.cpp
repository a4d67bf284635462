// The Linux workspace's lookup of an application by bundle identifier.
#include "platform/system/LinuxWorkspace.h"

#include "platform/foundation/Foundation.h"
#include "platform/system/Bundle.h"
#include "platform/system/SystemEnvironment.h"

#include <QDir>

namespace sys {

namespace {

QStringList entriesOf(const QString& folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
}

bool hasIdentifier(const QString& path, const QString& bundleIdentifier)
{
    const std::optional<Bundle> bundle = Bundle::bundleWithPath(path);
    const std::optional<QString> identifier = bundle ? bundle->bundleIdentifier() : std::nullopt;
    return identifier && fnd::equalsCaseInsensitive(*identifier, bundleIdentifier);
}

} // namespace

std::optional<QString> LinuxWorkspace::fullPathForApplication(const QString& bundleIdentifier)
{
    const QStringList applicationFolders{homeDirectory() + QStringLiteral("/Applications"),
                                         rooted(QStringLiteral("/Applications"))};
    for (const QString& folder : applicationFolders) {
        for (const QString& name : entriesOf(folder)) {
            const QString entry = fnd::stringByAppendingPathComponent(folder, name);
            if (fnd::pathExtension(name) == QLatin1String("app")) {
                if (hasIdentifier(entry, bundleIdentifier))
                    return entry;
                continue;
            }
            if (isPackage(entry))
                continue;
            for (const QString& inner : entriesOf(entry)) {
                const QString candidate = fnd::stringByAppendingPathComponent(entry, inner);
                if (fnd::pathExtension(inner) == QLatin1String("app") && hasIdentifier(candidate, bundleIdentifier))
                    return candidate;
            }
        }
    }
    return std::nullopt;
}

} // namespace sys
