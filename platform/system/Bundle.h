#pragma once
// A bundle on disk: a folder, optionally with Contents/Info.plist. Mirrors what the
// platform's bundle object offers the updater: the path, the Info dictionary and the
// values read from it, the executable and the resource folder.
//
// Opening a bundle by path (bundleWithPath, mainBundle) also records it in the process's
// bundle cache, as the platform does: bundleWithIdentifier finds only bundles opened that
// way. Reading another application's bundle to describe it (readWithoutOpening, what the
// workspace does for the process list) leaves the cache alone.
//
// Lifecycle: a value type; the Info dictionary is read once, when the object is made. The
// cache lives for the whole process and holds the latest reading of every path opened.
// Thread-safety: every member may be called from any thread (the cache has its own lock;
// update checks open bundles on several worker threads at once).

#include <QString>
#include <QVariant>
#include <QVariantMap>
#include <optional>

namespace sys {

class Bundle {
public:
    // nullopt when the path is empty or not an existing folder. A folder without an
    // Info.plist (or with an unreadable one) is still a bundle, with an empty Info dictionary.
    // The bundle is recorded in the cache.
    static std::optional<Bundle> bundleWithPath(const QString& path);
    // The same reading without recording the bundle in the cache.
    static std::optional<Bundle> readWithoutOpening(const QString& path);
    // The first bundle opened by path in this process whose CFBundleIdentifier equals
    // `identifier` exactly; nullopt for an empty identifier or one never opened.
    static std::optional<Bundle> bundleWithIdentifier(const QString& identifier);
    // The bundle of the running executable: X (normally X.app) when it lies in X/Contents/MacOS/,
    // otherwise the executable's own folder.
    static Bundle mainBundle();
    // The bundle path mainBundle() derives from an executable path (exposed for tests).
    static QString bundlePathForExecutable(const QString& executablePath);

    QString bundlePath() const;
    // Contents/Info.plist as a dictionary; empty when missing or unreadable.
    const QVariantMap& infoDictionary() const;
    bool hasInfoDictionary() const;
    // CFBundleIdentifier when it is a string; nullopt otherwise.
    std::optional<QString> bundleIdentifier() const;
    QVariant objectForInfoDictionaryKey(const QString& key) const;
    // Contents/MacOS/<CFBundleExecutable>; nullopt without a string CFBundleExecutable.
    std::optional<QString> executablePath() const;
    // Contents/Resources of a bundle laid out as X.app; the bundle folder itself otherwise.
    QString resourcePath() const;

private:
    Bundle(QString path, QVariantMap info, bool hasInfo);

    QString path_;
    QVariantMap info_;
    bool hasInfo_ = false;
};

} // namespace sys
