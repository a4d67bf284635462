// AppController::isFileBlacklisted: the name filter both scans apply to every folder entry
// before touching the file system. It only saves time by keeping the walk out of large
// folders of other vendors; the rules are tested in order and the first that holds decides.
// Pure; any thread.

#include "AppController.h"

#include "platform/foundation/Foundation.h"

#include <QStringList>

namespace {

bool equalsAny(const QString& name, const QStringList& names)
{
    return names.contains(name);
}

bool containsAny(const QString& name, const QStringList& parts)
{
    for (const QString& part : parts) {
        if (name.contains(part))
            return true;
    }
    return false;
}

} // namespace

bool AppController::isFileBlacklisted(const QString& path)
{
    static const QStringList kFolders = {
        QStringLiteral("application backups"), QStringLiteral("mamp"), QStringLiteral("help"),
        QStringLiteral("docs"), QStringLiteral("documentation"), QStringLiteral("html")};
    static const QStringList kVendors = {QStringLiteral("adobe"), QStringLiteral("apple"),
                                         QStringLiteral("microsoft"), QStringLiteral("avid")};
    static const QStringList kAppsA = {
        QStringLiteral("address book.app"), QStringLiteral("adium.app"), QStringLiteral("automator.app"),
        QStringLiteral("batch monitor.app"), QStringLiteral("blender"), QStringLiteral("calculator.app"),
        QStringLiteral("cinema tools.app"), QStringLiteral("color.app"), QStringLiteral("compressor.app"),
        QStringLiteral("cyberduck.app"), QStringLiteral("damnvid.app"), QStringLiteral("dashboard.app"),
        QStringLiteral("dictionary.app")};
    static const QStringList kAppsD = {QStringLiteral("doc"), QStringLiteral("dvd player.app"),
                                       QStringLiteral("dvd studio pro.app"), QStringLiteral("ffmpegx.app")};
    // "quickTime player.app" keeps its capital T: it never equals a lower-cased name, so
    // that application is not filtered here (it is dropped later for lack of a descriptor).
    static const QStringList kAppsF = {
        QStringLiteral("final cut pro.app"), QStringLiteral("final cut pro additional easy setups.localized"),
        QStringLiteral("firefox.app"), QStringLiteral("flip4mac"), QStringLiteral("font book.app"),
        QStringLiteral("front row.app"), QStringLiteral("google chrome.app"), QStringLiteral("hewlett-packard"),
        QStringLiteral("ical.app"), QStringLiteral("ichat.app"), QStringLiteral("image capture.app"),
        QStringLiteral("isync.app"), QStringLiteral("itunes.app"), QStringLiteral("lib"),
        QStringLiteral("license"), QStringLiteral("livetype.app"), QStringLiteral("logic node.app"),
        QStringLiteral("logic pro.app"), QStringLiteral("mail.app"), QStringLiteral("mainstage.app"),
        QStringLiteral("motion.app"), QStringLiteral("mpeg streamclip.app"), QStringLiteral("onyx.app"),
        QStringLiteral("pacifist"), QStringLiteral("photo booth.app"), QStringLiteral("preview.app"),
        QStringLiteral("quickTime player.app"), QStringLiteral("safari.app"), QStringLiteral("soundtrack pro.app"),
        QStringLiteral("vlc.app"), QStringLiteral("tutorial"), QStringLiteral("maxon"),
        QStringLiteral("support"), QStringLiteral("audio ease")};

    const QString name = fnd::lastPathComponent(path).toLower();
    return name.startsWith(QLatin1Char('.'))
        || equalsAny(name, kFolders)
        || containsAny(name, kVendors)
        || equalsAny(name, kAppsA)
        || name.contains(QLatin1String("divx"))
        || equalsAny(name, kAppsD)
        || name.contains(QLatin1String("filemaker"))
        || equalsAny(name, kAppsF)
        || name.startsWith(QLatin1String("genarts"))
        || name.startsWith(QLatin1String("wacom"));
}
