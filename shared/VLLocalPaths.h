#pragma once
// VLLocalPaths: where the standard folders of the user and of the machine are, temporary
// names, random strings, trailing-slash normalising, and the tests for system folders and
// Time Machine backup paths. Static and stateless; any thread.
//
// The standard-folder search of this platform: the user domain is $HOME/<folder> (for the
// superuser /var/root/<folder>, which the superuser correction turns into $HOME/<folder>),
// the local domain sys::rooted("/<folder>"), the system domain sys::rooted("/System/<folder>").
// A bool `userDomain` argument picks the user domain (true) or the local domain (false).
// Functions that can find nothing return a null QString (nil); on this platform the search
// always finds the folders listed in DirectoryKind.

#include <QString>
#include <optional>

class VLLocalPaths {
public:
    enum class DirectoryKind {
        Application,        // Applications
        AdminApplication,   // Applications/Utilities
        Document,           // Documents
        Library,            // Library
        Caches,             // Library/Caches
        ApplicationSupport, // Library/Application Support
        Movies,             // Movies
        Desktop,            // Desktop
        Documentation,      // Library/Documentation
    };
    enum class Domain { User, Local, System };

    VLLocalPaths() = delete;

    // First folder of the search, with the superuser correction of the user domain.
    static std::optional<QString> pathForDirectory(DirectoryKind kind, Domain domain);

    static QString applicationDirectory(bool userDomain);
    static QString adminApplicationDirectory(bool userDomain);
    static QString documentDirectory(bool userDomain);
    static QString libraryDirectory(bool userDomain);
    static QString prefsDirectory(bool userDomain);      // Library/Preferences
    static QString cacheDirectory(bool userDomain);
    static QString appSupportDirectory(bool userDomain);
    static QString logDirectory(bool userDomain);        // Library/Logs
    static QString movieDirectory();
    static QString desktopDirectory();
    static QString systemLibraryDirectory();
    static QString localDocumentationDirectory();
    static QString userDirectory();                      // $HOME
    static QString username();                           // short name of the effective user
    static QString trashDirectory();                     // $HOME/.Trash
    // The per-user cache folder. This platform has no per-user confstr cache folder, so it is
    // $HOME/Library/Caches, where the updater's other per-user caches live.
    static std::optional<QString> darwinCacheDirectory();
    static QString tempDirectory();                      // with trailing "/"
    static QString uuid();                               // new on every call
    static QString randomString(int length);
    static QString tempFile();

    static QString ensureTrailingSlash(const QString& path);
    static QString stripTrailingSlash(const QString& path);

    static bool isPathSystemDirectory(const QString& path);
    static bool isPathSystemDirectory(const QString& path, bool exactMatch);
    static bool isPathOnTimeMachineVolume(const QString& path);

    // The superuser correction applied to a found user-domain path, with the user id and home
    // folder given (pathForDirectory passes the real ones; exposed for tests).
    static QString correctedUserPath(const QString& foundPath, unsigned userId, const QString& home);
};
