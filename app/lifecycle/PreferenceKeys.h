#pragma once
// Keys of the two preference stores, and the one rule shared by every reader of
// "SUCheckAtStartup".

#include <QString>
#include <QVariantMap>

namespace prefs {

// The updater's own user defaults.
inline const QString kAutoQuit = QStringLiteral("autoQuit");
inline const QString kShowBetaUpdates = QStringLiteral("showBetaUpdates");
inline const QString kAutoUpdateCheck = QStringLiteral("autoUpdateCheck");
inline const QString kLastUpdateCheck = QStringLiteral("lastUpdateCheck");
inline const QString kUpdateGroupDict = QStringLiteral("updateGroupDict");
inline const QString kCheckPath = QStringLiteral("checkpath");
inline const QString kTestURL = QStringLiteral("testURL");
inline const QString kTestBetaURL = QStringLiteral("testBetaURL");
inline const QString kTestSelfURL = QStringLiteral("testSelfURL");
inline const QString kTestSelfBetaURL = QStringLiteral("testSelfBetaURL");

// The vendor's shared file com.velmora.global.plist.
inline const QString kCheckAtStartup = QStringLiteral("SUCheckAtStartup");
inline const QString kSkippedVersions = QStringLiteral("skippedVersions");

// The file of the updater's own defaults domain, in the user's Preferences folder.
inline const QString kOwnPreferencesFileName = QStringLiteral("com.velmora.SoftwareUpdate.plist");

// Whether the start-up check box shows ticked: unless the stored value equals NO.
bool checkAtStartupEnabled(const QVariantMap& globalPreferences);

} // namespace prefs
