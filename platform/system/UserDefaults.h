#pragma once
// User defaults of one domain, searched in the platform's order:
//   1. the argument domain: "-key value" pairs of the process's arguments (a "-name" followed
//      by an argument that does not itself begin with "-"; a value beginning with one of
//      { ( [ < " is parsed as a property list when it parses, otherwise it is a string);
//   2. the persistent domain: the file $HOME/Library/Preferences/<domain>.plist;
//   3. the registration domain: what registerDefaults() put there (never written to disk).
// Writes go to the persistent domain only, and reach the file at once (merged key by key
// with what is on disk, written atomically, after prepareUserDomain()), so a value set and
// never synchronized still survives the process. synchronize() reads back changes other
// processes made to the file.
//
// Lifecycle: standard() lives for the whole process; other instances are plain objects.
// The file path is worked out from $HOME on every access; when it changes (tests switch
// HOME) the cached persistent domain is dropped and read again.
// Thread-safety: every member may be called from any thread (one mutex per instance).

#include <QDateTime>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVariantList>
#include <QVariantMap>
#include <mutex>
#include <optional>

namespace sys {

class UserDefaults {
public:
    explicit UserDefaults(const QString& domain);
    UserDefaults(const UserDefaults&) = delete;
    UserDefaults& operator=(const UserDefaults&) = delete;

    // The updater's own domain, "com.velmora.SoftwareUpdate".
    static UserDefaults& standard();
    static QString standardDomain();

    QString domain() const;
    // $HOME/Library/Preferences/<domain>.plist
    QString persistentDomainPath() const;

    // The value found first in the search order; an invalid QVariant when no domain has it.
    QVariant objectForKey(const QString& key) const;
    // A string value as is, a number as its string value (the platform's stringForKey:);
    // nullopt for a missing key or any other type.
    std::optional<QString> stringForKey(const QString& key) const;
    // Numbers convert directly, strings as Foundation's integerValue / boolValue read them;
    // 0 / false when missing or of another type.
    qlonglong integerForKey(const QString& key) const;
    bool boolForKey(const QString& key) const;
    std::optional<QVariantMap> dictionaryForKey(const QString& key) const;
    std::optional<QDateTime> dateForKey(const QString& key) const;

    // Sets a persistent value (an invalid QVariant removes the key, as nil does).
    void setObject(const QVariant& value, const QString& key);
    void setInteger(qlonglong value, const QString& key);
    void setBool(bool value, const QString& key);
    void removeObjectForKey(const QString& key);

    // Adds to the registration domain (later registrations replace earlier ones per key).
    void registerDefaults(const QVariantMap& defaults);

    // Writes any change that could not be written yet, then re-reads the file so changes
    // made by other processes become visible. False when the file could not be written or
    // exists but is not a dictionary property list.
    [[nodiscard]] bool synchronize();

    // The argument domain. By default parsed once from QCoreApplication::arguments(), at the
    // first lookup made while an application object exists (before that it is empty); tests
    // and the entry point may set the list instead.
    void setArguments(const QStringList& arguments);
    static QVariantMap parseArgumentDomain(const QStringList& arguments);

private:
    void ensureLoadedLocked() const;
    void applyLocked(const QString& key, const QVariant& value);
    bool flushLocked();

    const QString domain_;
    mutable std::mutex mutex_;
    mutable bool argumentsParsed_ = false;
    mutable QVariantMap argumentDomain_;
    mutable QString loadedPath_;
    mutable QVariantMap persistent_;
    // Keys set or removed (invalid value) that have not reached the file yet.
    mutable QVariantMap pending_;
    QVariantMap registration_;
};

// The vendor's shared preferences file "com.velmora.global.plist" in the user's Preferences
// folder, read and written as one dictionary (not through user defaults). Any thread.
QString globalPreferencesPath();
// The whole dictionary; empty when the file is missing or unreadable.
QVariantMap readGlobalPreferences();
// Replaces the file atomically (the user domain's folders made first, see UserDomain.h).
[[nodiscard]] bool writeGlobalPreferences(const QVariantMap& preferences);
// A switch of the shared file ("disable-logging", "disable-crash-reporter"): on for the text
// "1" or a number equal to YES (the boolean YES, or 1); off for anything else or no value.
[[nodiscard]] bool globalSwitchIsOn(const QString& key);

} // namespace sys
