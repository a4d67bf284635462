#include "install/VolumeFilters.h"

namespace install {

namespace {
bool endsWithCI(const QString& name, const QString& suffix)
{
    return name.endsWith(suffix, Qt::CaseInsensitive);
}
bool mentionsUninstall(const QString& name)
{
    return name.contains(QStringLiteral("Uninstall"), Qt::CaseInsensitive);
}
} // namespace

bool isInstallableBundleName(const QString& name)
{
    return endsWithCI(name, QStringLiteral(".app"))
        || (endsWithCI(name, QStringLiteral(".prefPane")) && !mentionsUninstall(name));
}

bool isInstallerPackageName(const QString& name)
{
    return endsWithCI(name, QStringLiteral("pkg")) && !mentionsUninstall(name);
}

bool isUpdaterApplicationName(const QString& name)
{
    return endsWithCI(name, QStringLiteral(".app")) && !mentionsUninstall(name);
}

std::optional<QString> firstMatching(const QStringList& names, bool (*test)(const QString&))
{
    for (const QString& name : names) {
        if (test(name))
            return name;
    }
    return std::nullopt;
}

} // namespace install
