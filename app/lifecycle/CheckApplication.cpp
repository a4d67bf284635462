#include "lifecycle/CheckApplication.h"

#include "platform/foundation/Foundation.h"
#include "platform/plist/PropertyList.h"

namespace runmodes {

namespace {

QVariantMap updateDescriptor(const QString& checkPath, const QVariantMap& info)
{
    for (const char* relative : {"Contents/Resources/VLUpdates.plist", "Contents/VLUpdates.plist"}) {
        const QString path = fnd::stringByAppendingPathComponent(checkPath, QString::fromLatin1(relative));
        if (std::optional<QVariantMap> descriptor = plist::readDictionaryFile(path))
            return *descriptor;
    }
    return info;
}

QString stringOrNull(const QVariant& value)
{
    return value.isValid() ? fnd::stringValue(value) : QString();
}

} // namespace

std::optional<UpdateRecord> checkApplication(AppController& controller, const QString& checkPath,
                                             const sys::Bundle& bundle)
{
    const QVariantMap& info = bundle.infoDictionary();
    const QVariantMap descriptor = updateDescriptor(checkPath, info);
    if (!descriptor.contains(QStringLiteral("SUFeedURL"))) {
        return controller.updateGroup(stringOrNull(descriptor.value(QStringLiteral("VLGroupID"))),
                                      stringOrNull(descriptor.value(QStringLiteral("VLGroupApp"))),
                                      stringOrNull(descriptor.value(QStringLiteral("VLGroupSubapp"))),
                                      fnd::intValue(descriptor.value(QStringLiteral("VLGroupVersion"))),
                                      stringOrNull(descriptor.value(QStringLiteral("VLGroupVersionString"))),
                                      bundle.bundleIdentifier().value_or(QString()));
    }
    return controller.updateSparkleFeed(stringOrNull(descriptor.value(QStringLiteral("SUFeedURL"))), checkPath,
                                        stringOrNull(info.value(QStringLiteral("CFBundleIdentifier"))),
                                        fnd::intValue(info.value(QStringLiteral("CFBundleVersion"))),
                                        stringOrNull(info.value(QStringLiteral("CFBundleShortVersionString"))));
}

} // namespace runmodes
