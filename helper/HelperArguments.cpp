#include "HelperArguments.h"

#include <QDir>
#include <QFileInfo>

namespace helper {

namespace {

bool isBundlePath(const QString& path)
{
    return QDir::isAbsolutePath(path) && QFileInfo(QDir::cleanPath(path)).fileName().endsWith(QStringLiteral(".app"), Qt::CaseInsensitive);
}

} // namespace

std::optional<Arguments> parseArguments(const QStringList& args, QString* error)
{
    Arguments parsed;
    bool haveSource = false, haveDestination = false, haveMount = false;
    for (qsizetype i = 0; i < args.size(); i += 2) {
        const QString& option = args.at(i);
        if (i + 1 >= args.size()) {
            *error = QStringLiteral("Option %1 has no value.").arg(option);
            return std::nullopt;
        }
        const QString& value = args.at(i + 1);
        if (option == QStringLiteral("-source")) {
            parsed.source = QDir::cleanPath(value);
            haveSource = true;
        } else if (option == QStringLiteral("-destination")) {
            parsed.destination = QDir::cleanPath(value);
            haveDestination = true;
        } else if (option == QStringLiteral("-mountpath")) {
            parsed.mountPath = value;
            haveMount = true;
        } else if (option == QStringLiteral("-silent")) {
            parsed.silent = value == QStringLiteral("1");
        } else {
            *error = QStringLiteral("Unknown option %1.").arg(option);
            return std::nullopt;
        }
    }
    if (!haveSource || !haveDestination || !haveMount) {
        *error = QStringLiteral("Usage: SoftwareUpdateHelper -source <new .app> -destination <installed .app> "
                                "-mountpath <volume> [-silent 1]");
        return std::nullopt;
    }
    if (!isBundlePath(parsed.source) || !isBundlePath(parsed.destination)) {
        *error = QStringLiteral("The source and the destination must be absolute paths of application bundles.");
        return std::nullopt;
    }
    if (parsed.source == parsed.destination) {
        *error = QStringLiteral("The source and the destination are the same bundle.");
        return std::nullopt;
    }
    return parsed;
}

} // namespace helper
