#pragma once
// The update record's keys (an external format: the server publishes records with them,
// -list prints them, the user defaults store one) and the up-to-date marker.

#include <QString>
#include <QVariantMap>

namespace record {

inline const QString kType = QStringLiteral("type");
inline const QString kTitle = QStringLiteral("title");
inline const QString kNewVersion = QStringLiteral("newVersion");
inline const QString kNewVersionString = QStringLiteral("newVersionString");
inline const QString kOldVersion = QStringLiteral("oldVersion");
inline const QString kOldVersionString = QStringLiteral("oldVersionString");
inline const QString kUrl = QStringLiteral("url");
inline const QString kPageUrl = QStringLiteral("pageurl");
inline const QString kChangeList = QStringLiteral("changelist");
inline const QString kSize = QStringLiteral("size");
inline const QString kServerChecksum = QStringLiteral("serverChecksum");
inline const QString kGroupId = QStringLiteral("groupid");
inline const QString kBundleId = QStringLiteral("bundleid");
inline const QString kPath = QStringLiteral("path");
inline const QString kManualOnly = QStringLiteral("manualOnly");
inline const QString kSelected = QStringLiteral("selected");
inline const QString kPaidUpgrade = QStringLiteral("paidUpgrade");
inline const QString kSkipped = QStringLiteral("skipped");
inline const QString kRequirementsString = QStringLiteral("requirementsString");
inline const QString kUpToDate = QStringLiteral("uptodate");
// The base64 Ed25519 signature of the download, present only when the feed gives one; checked
// against the installed application's own public key before anything is installed.
inline const QString kEdSignature = QStringLiteral("edSignature");

inline const QString kTypeSparkle = QStringLiteral("sparkle");
inline const QString kTypeGroup = QStringLiteral("group");
inline const QString kTypeSelf = QStringLiteral("self");

// The dictionary whose only key "uptodate" holds the string "uptodate".
inline QVariantMap upToDateMarker() { return {{kUpToDate, kUpToDate}}; }
// Consumers compare the value of "uptodate" with the string "uptodate".
inline bool isUpToDateMarker(const QVariantMap& r)
{
    const QVariant v = r.value(kUpToDate);
    return v.typeId() == QMetaType::QString && v.toString() == kUpToDate;
}
// The identifier of an update: the group ID for group records, else the bundle ID.
inline QString identifierOf(const QVariantMap& r)
{
    return r.value(kType).toString() == kTypeGroup ? r.value(kGroupId).toString() : r.value(kBundleId).toString();
}

} // namespace record
