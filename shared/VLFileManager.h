#pragma once
// VLFileManager: stateless static file operations of the VL library.
//
// The escalation ladder: every operation that changes the file system (trash, remove, create
// folder, copy, move) first tries the ordinary way and, when that fails and `shouldAuth` is true
// (the default of every short form), retries the same change through VLAuthorization with
// administrator rights. The privileged forms do not wait for their tool, so callers that need the
// result on disk use the time-out forms, which poll until the change shows (the main thread keeps
// pumping events in 10 ms slices while it waits; other threads sleep 0.3 s between checks).
//
// Naming: the time-out forms carry "Timeout" in their C++ name (trashFileTimeout(path, 5)) so an
// integer time-out can never be taken for the bool `shouldAuth` of the same operation.
// Every machine-wide path the class forms ("/Volumes", "/usr/bin/touch", ...) goes through
// sys::rooted(); paths handed in by callers are used as given. Archives are real zip files made
// by the platform's archiving tool (platform/system/Archive.h: zip and unzip on Linux).
//
// The hashing members read files in 65536-byte chunks through OpenSSL EVP; the verified copy
// writes one source to several destinations in one pass, reading each chunk back for the digest.
//
// Platform mapping (Linux):
// - "locked" (the user-immutable flag) is the absence of every write permission bit: lockFile
//   clears u/g/o write bits, unlockFile gives the owner write permission back, isFileLocked is
//   "no write bit set". The kernel immutable attribute is never used, so a file can never become
//   undeletable by its owner by accident; the folder forms recurse.
// - Extended attributes live in the "user." namespace (the key "com.x.y" is stored as
//   "user.com.x.y"); the volume check uses filesystemForPath(), which names Linux file systems by
//   their kernel names ("ext4", "tmpfs", "btrfs", "hfsplus", "apfs", ...); "hfsplus" counts as
//   an Apple file system alongside "hfs", "hfs+" and "apfs".
// - Creation dates are read from the birth time where the file system records one; they cannot be
//   set on Linux: setCreationDate() logs that and returns false.
// - The file browser's colour labels have no Linux equivalent and are not offered.
//
// Threads: every operation is synchronous on its caller's thread and may be called from any
// thread. Only the delegate messages of hashing and copying run on a background thread.

#include <QDateTime>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVariantMap>

#include <cstdint>
#include <functional>
#include <optional>

typedef struct evp_md_ctx_st EVP_MD_CTX;

// The optional delegate of hashing and of the verified copy. Each message is a callable that may
// be left empty; an empty one means "the delegate does not respond to it". The callables run on a
// background thread (except the final fileCopyBytesWritten and fileCopyFinished, which run on the
// copying thread) and must be safe to call from there. The operation waits for every pending
// background call before it returns, so the delegate only has to outlive the call it was given to.
struct VLFileManagerDelegate {
    // Hashing: asked every 52428800 bytes; false stops the hash (the result is then empty).
    std::function<bool(const QString& path)> checksumShouldContinue;
    // Copy: bytes copied so far, at the progress interval and once at the end.
    std::function<void(quint64 bytesWritten, const QVariantMap& settings)> fileCopyBytesWritten;
    // Copy: asked at the progress interval; false stops the copy (partial destinations stay).
    std::function<bool(const QVariantMap& settings)> fileCopyShouldContinue;
    // Copy: a destination whose digest differs from the source's ("destChecksum" is set).
    std::function<void(const QVariantMap& settings, const QString& destination)> fileCopyVerificationFailed;
    // Copy: sent after a successful copy.
    std::function<void(const QVariantMap& settings)> fileCopyFinished;
};
Q_DECLARE_METATYPE(VLFileManagerDelegate*)

class VLFileManager {
public:
    VLFileManager() = delete;

    // ---- escalation ladder (VLFileManagerLadder.cpp) ----
    [[nodiscard]] static bool trashFile(const QString& path, bool shouldAuth = true);
    [[nodiscard]] static bool trashFileTimeout(const QString& path, int seconds);
    [[nodiscard]] static bool trashDirectoryContents(const QString& folder, bool shouldAuth = true);
    // Paths tried (success or not), in listing order with each subfolder's list in its place.
    static QStringList trashFilesOfType(const QString& extension, const QString& folder);
    static QStringList trashFilesNamed(const QString& name, const QString& folder);
    [[nodiscard]] static bool removeFile(const QString& path, bool shouldAuth = true);
    [[nodiscard]] static bool removeFileTimeout(const QString& path, int seconds);
    [[nodiscard]] static bool removeFolderIfEmpty(const QString& path);
    [[nodiscard]] static bool createDirectory(const QString& path, bool shouldAuth = true);
    [[nodiscard]] static bool createDirectoryTimeout(const QString& path, int seconds);
    // Joins destination with the folder itself (a non-package folder) or its parent; creates it.
    static QString createDirectoryStructure(const QString& path, const QString& destination);
    [[nodiscard]] static bool copyFile(const QString& source, const QString& destination, bool shouldAuth = true);
    [[nodiscard]] static bool copyFileTimeout(const QString& source, const QString& destination, int seconds);
    [[nodiscard]] static bool copyContentsOfDirectory(const QString& source, const QString& destination, int seconds);
    [[nodiscard]] static bool moveFile(const QString& source, const QString& destination, bool shouldAuth = true);
    [[nodiscard]] static bool moveFileTimeout(const QString& source, const QString& destination, int seconds);

    // ---- sizes, names, wildcards (VLFileManagerQueries.cpp) ----
    static quint64 fileSize(const QString& path);
    static QString formatFileSize(double bytes);
    static QString uniqueFilename(const QString& path);
    static QStringList filesMatchingWildcardPath(const QString& path, const QString& basePath = QString(),
                                                 bool searchSubdirs = false);
    static QString decodeWildcardPath(const QString& path, const QString& basePath);
    static bool isFolderEmpty(const QString& path);
    static QString validateFilename(const QString& name, bool includeSlashes = true);

    static bool fileExistsAtPath(const QString& path);
    static bool isDirectoryAtPath(const QString& path);
    static bool isPackageAtPath(const QString& path);
    static bool isSymbolicLinkAtPath(const QString& path);

    // ---- volumes (VLFileManagerVolumes.cpp) ----
    static bool isDriveMountedForPath(const QString& path);
    static bool isVolumeMountedForPath(const QString& path);
    static std::optional<QString> volumeMountPointForPath(const QString& path);
    static QString filesystemForPath(const QString& path);
    static bool isMacFilesystemAtPath(const QString& path);
    static std::optional<QVariantMap> infoForDiskAtMountpoint(const QString& mountPoint);

    // ---- attributes, dates, metadata (VLFileManagerAttributes.cpp) ----
    static std::optional<QDateTime> modificationDateForFile(const QString& path);
    static std::optional<QDateTime> creationDateForFile(const QString& path);
    [[nodiscard]] static bool setModificationDate(const QDateTime& date, const QString& path);
    [[nodiscard]] static bool setCreationDate(const QDateTime& date, const QString& path);
    static bool isFileLocked(const QString& path);
    static bool lockFile(const QString& path);
    static bool unlockFile(const QString& path);
    static bool lockFolder(const QString& path);
    static bool unlockFolder(const QString& path);
    [[nodiscard]] static bool setPosixPermissions(int permissions, const QString& path);
    static std::optional<QString> metadataValueForKey(const QString& key, const QString& path);
    [[nodiscard]] static bool setMetadataValue(const QString& value, const QString& key, const QString& path);
    // Negative fraction removes the bar (same as removeFinderProgressForFile).
    static bool setFinderProgress(double fraction, const QString& path);
    static bool removeFinderProgressForFile(const QString& path);

    // ---- touching, waiting, types (VLFileManagerMisc.cpp) ----
    static void touchFile(const QString& path, bool setCreationDate = false);
    [[nodiscard]] static bool createEmptyFile(const QString& path);
    static bool waitForFileCreation(const QString& path, int seconds);
    static bool fileIsOpenForWriting(const QString& path);
    // Waits until no process holds the file open for writing; `lockFile` also locks it afterwards.
    static void waitForFileWrites(const QString& path, bool lockFile = false);
    static QString mimeTypeForFileAtPath(const QString& path);
    static QString mimeTypeForFileExtension(const QString& extension);
    static void notifyFileSystemChanged(const QString& path);
    static void disableFileSystemCachingForFile(const QString& path);

    // ---- archives (VLFileManagerArchives.cpp) ----
    // compressFile trashes an existing destination first; both report whether the archive
    // (the destination folder) exists afterwards, and log the tool's failure.
    [[nodiscard]] static bool compressFile(const QString& source, const QString& destinationFile,
                                           bool includeParent = true);
    [[nodiscard]] static bool decompressFile(const QString& archive, const QString& destinationFolder);

    // ---- digests (VLFileManagerHashing.cpp): lower-case hex; empty on failure or stop ----
    static std::optional<QString> md5HashForFile(const QString& path, VLFileManagerDelegate* delegate = nullptr);
    static std::optional<QString> sha1HashForFile(const QString& path, VLFileManagerDelegate* delegate = nullptr);
    static std::optional<QString> sha512HashForFile(const QString& path, VLFileManagerDelegate* delegate = nullptr);
    // Finish a running digest state and return its hex string (any EVP digest: the four names
    // exist for callers that name the algorithm).
    static QString md5HashWithContext(EVP_MD_CTX* context);
    static QString sha1HashWithContext(EVP_MD_CTX* context);
    static QString sha256HashWithContext(EVP_MD_CTX* context);
    static QString sha512HashWithContext(EVP_MD_CTX* context);

    // ---- verified copy and joining (VLFileManagerCopy.cpp) ----
    enum VerificationType : unsigned { VerifyNone = 0, VerifyMD5 = 1, VerifySHA1 = 2, VerifySHA256 = 3, VerifySHA512 = 4 };
    // Settings keys handed to the delegate: "source", "destinations", "delegate", "object",
    // "object2", "sourceChecksum", "destChecksums", "destChecksum".
    [[nodiscard]] static bool copyFileWithProgress(const QString& source, const QString& destination,
                                                   VLFileManagerDelegate* delegate, const QVariant& object,
                                                   const QVariant& object2 = QVariant());
    [[nodiscard]] static bool copyFileWithProgress(const QString& source, const QStringList& destinations,
                                                   unsigned verificationType, VLFileManagerDelegate* delegate,
                                                   const QVariant& object, const QVariant& object2);
    [[nodiscard]] static bool combineFiles(const QStringList& sources, const QString& destination,
                                           bool deleteSourceFiles);
};
