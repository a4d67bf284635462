#pragma once
// FeedRules: the pure decisions of the group and self checks, on dictionaries already
// decoded from the feeds. The checks do the downloads and the controller state; these
// functions choose the release, apply the server's rules and build the record, logging the
// lines the rules produce. Any thread.
//
// Values read from a feed are property-list values of any type. Where the feed holds a type
// the rule cannot use (an array where a number is read, a boolean where the string "YES" is
// compared, a string where a list of identifiers is walked), the platform would raise an
// unrecognised-message exception; these functions throw the same fnd::PlatformException
// ("NSInvalidArgumentException") and the checks' exception guards take it from there.

#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVariantMap>

#include <functional>
#include <optional>

namespace discovery {

// A requirement blocks only when it and the running system's version both have at least
// six characters and the requirement compares greater under numeric comparison. "11.0" or
// "12" never blocks; "10.16" (five characters) never does either.
[[nodiscard]] bool minOSBlocks(const QString& minOS, const QString& systemVersion);

// The root of a decoded feed as a dictionary; throws when the feed's root is anything else.
[[nodiscard]] QVariantMap feedDictionary(const QVariant& root);
// intValue of a feed value; throws for an array, dictionary, data or date.
[[nodiscard]] int feedIntValue(const QVariant& value);
// A list-valued entry (absent: empty); throws when present and not an array.
[[nodiscard]] QVariantList feedList(const QVariant& value);
// Whether a string-valued entry equals `text` (absent: false); throws when not a string.
[[nodiscard]] bool feedStringEquals(const QVariant& value, const QString& text);

// The release the checks offer: the beta entry when its version is higher, else the main
// one (a tie keeps the main feed).
[[nodiscard]] const QVariantMap& chooseRelease(const QVariantMap& main, const std::optional<QVariantMap>& beta);

struct GroupRequest {
    QString groupID;
    qint64 installedVersion = 0;
    QString installedVersionString;
    QString bundleID;
    bool forceUpdate = false;
};

enum class GroupVerdict {
    NotNewer,      // nothing newer than installed: the check falls back or answers up to date
    Successor,     // the release belongs to another group that is installed: up to date
    NeedsNewerOS,  // "Update requires macOS %@": no record
    Ignored,       // the application is on the release's ignore list: no record
    Update,        // `record` holds the group record
};

struct GroupOutcome {
    GroupVerdict verdict = GroupVerdict::NotNewer;
    QVariantMap record;
    // The release's stand-alone applications, to be appended to skippedBundleIDs; set when
    // the rule applied (even when the application then turned out to be ignored).
    std::optional<QStringList> standaloneApps;
};

// Deprecation is decided on the main feed only, case-sensitively.
[[nodiscard]] bool isDeprecated(const QVariantMap& main, const QString& bundleID);

// The rules after the check was recorded: version comparison, choice of the release,
// successor groups (groupInstalled answers whether a group is installed), minimum OS,
// paid upgrade, manual-only, stand-alone and ignored applications.
[[nodiscard]] GroupOutcome evaluateGroupRelease(const QVariantMap& main, const std::optional<QVariantMap>& beta,
                                                const GroupRequest& request, const QString& systemVersion,
                                                const std::function<bool(const QString&)>& groupInstalled);

struct SelfRequest {
    QVariant ownVersion;        // the updater's CFBundleVersion as its Info holds it
    QVariant ownVersionString;  // its CFBundleShortVersionString
    QString bundleID;           // "com.velmora.SoftwareUpdate"
};

// The self-update record, or nullopt when nothing is newer or the system is too old. The
// chosen entry's "edSignature" (base64 Ed25519 signature of the download, under the key in the
// updater's own Info.plist) is copied into the record only when the feed has one.
[[nodiscard]] std::optional<QVariantMap> evaluateSelfRelease(const QVariantMap& main,
                                                             const std::optional<QVariantMap>& beta,
                                                             const SelfRequest& request,
                                                             const QString& systemVersion);

} // namespace discovery
