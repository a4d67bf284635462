#pragma once
// A bundle on disk: a folder, optionally with Contents/Info.plist. Mirrors what the
// platform's bundle object offers the updater: the path, the Info dictionary and the
// values read from it, the executable and the resource folder.
//
// Lifecycle: a value type; the Info dictionary is read once, when the object is made.
// Thread-safety: const members may be called from any thread; mainBundle() too.

#include <QString>
#include <QVariant>
#include <QVariantMap>
#include <optional>

namespace sys {

class Bundle {
public:
    // nullopt when the path is empty or not an existing folder. A folder without an
    // Info.plist (or with an unreadable one) is still a bundle, with an empty Info dictionary.
    static std::optional<Bundle> bundleWithPath(const QString& path);
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
