// Bundles are read from disk once, when the object is made; nothing here writes. The cache of
// bundles opened by path keeps their order of first opening, so that a lookup by identifier
// answers the same bundle every time when two copies share one identifier.

#include "platform/system/Bundle.h"

#include "platform/plist/PropertyList.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QList>
#include <QMutex>
#include <QMutexLocker>

namespace sys {

namespace {

QString currentExecutablePath()
{
    if (QCoreApplication::instance())
        return QCoreApplication::applicationFilePath();
    return QFileInfo(QStringLiteral("/proc/self/exe")).symLinkTarget();
}

class BundleCache {
public:
    void record(const Bundle& bundle)
    {
        QMutexLocker lock(&mutex_);
        for (Bundle& known : bundles_) {
            if (known.bundlePath() == bundle.bundlePath()) {
                known = bundle;
                return;
            }
        }
        bundles_.append(bundle);
    }

    std::optional<Bundle> find(const QString& identifier) const
    {
        QMutexLocker lock(&mutex_);
        for (const Bundle& known : bundles_) {
            if (known.bundleIdentifier() == identifier)
                return known;
        }
        return std::nullopt;
    }

private:
    mutable QMutex mutex_;
    QList<Bundle> bundles_;
};

BundleCache& bundleCache()
{
    static BundleCache cache;
    return cache;
}

} // namespace

Bundle::Bundle(QString path, QVariantMap info, bool hasInfo)
    : path_(std::move(path)), info_(std::move(info)), hasInfo_(hasInfo)
{
}

std::optional<Bundle> Bundle::bundleWithPath(const QString& path)
{
    std::optional<Bundle> bundle = readWithoutOpening(path);
    if (bundle)
        bundleCache().record(*bundle);
    return bundle;
}

std::optional<Bundle> Bundle::bundleWithIdentifier(const QString& identifier)
{
    if (identifier.isEmpty())
        return std::nullopt;
    return bundleCache().find(identifier);
}

std::optional<Bundle> Bundle::readWithoutOpening(const QString& path)
{
    if (path.isEmpty())
        return std::nullopt;
    const QFileInfo folder(path);
    if (!folder.isDir())
        return std::nullopt;
    const QString bundlePath = QDir::cleanPath(path);
    const auto info = plist::readDictionaryFile(bundlePath + QStringLiteral("/Contents/Info.plist"));
    return Bundle(bundlePath, info.value_or(QVariantMap()), info.has_value());
}

QString Bundle::bundlePathForExecutable(const QString& executablePath)
{
    const QString executable = QDir::cleanPath(executablePath);
    const QString folder = QFileInfo(executable).path();
    const QString macOSFolder = QStringLiteral("/Contents/MacOS");
    // Any X/Contents/MacOS layout names X as the bundle, whatever X's extension.
    if (folder.endsWith(macOSFolder) && folder.size() > macOSFolder.size())
        return folder.left(folder.size() - macOSFolder.size());
    return folder;
}

Bundle Bundle::mainBundle()
{
    const QString path = bundlePathForExecutable(currentExecutablePath());
    if (auto bundle = bundleWithPath(path))
        return *bundle;
    return Bundle(path, {}, false);
}

QString Bundle::bundlePath() const
{
    return path_;
}

const QVariantMap& Bundle::infoDictionary() const
{
    return info_;
}

bool Bundle::hasInfoDictionary() const
{
    return hasInfo_;
}

std::optional<QString> Bundle::bundleIdentifier() const
{
    const QVariant value = info_.value(QStringLiteral("CFBundleIdentifier"));
    if (value.typeId() != QMetaType::QString)
        return std::nullopt;
    return value.toString();
}

QVariant Bundle::objectForInfoDictionaryKey(const QString& key) const
{
    return info_.value(key);
}

std::optional<QString> Bundle::executablePath() const
{
    const QVariant name = info_.value(QStringLiteral("CFBundleExecutable"));
    if (name.typeId() != QMetaType::QString || name.toString().isEmpty())
        return std::nullopt;
    return path_ + QStringLiteral("/Contents/MacOS/") + name.toString();
}

QString Bundle::resourcePath() const
{
    const QString contents = path_ + QStringLiteral("/Contents");
    if (QFileInfo(contents).isDir())
        return contents + QStringLiteral("/Resources");
    return path_;
}

} // namespace sys
