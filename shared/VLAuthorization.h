#pragma once
// VLAuthorization: administrator rights, obtained once per process, and the privileged file
// changes and tool runs made with them. The last rung of VLFileManager's escalation ladder; the
// installers and the launchd job code call it directly.
//
// Lifecycle: one shared instance, created on first use of sharedController() (serialised) and
// kept until the process ends; the first call decides whether it has an interface. Any thread may
// call it; the grant is shared by all threads.
//
// Statuses of authExecTask: 0 started (or, in the waiting form, ran), -1 not authorised or refused,
// -2 the tool does not exist.
//
// Linux mapping of the authorisation service: a privileged co-process (VLAuthorizationChannel),
// PrivilegedToolRunner started through pkexec (sys::rooted("/usr/bin/pkexec")) at the first
// authorisation and kept for the life of the process. Each privileged run is a request to it.
// - A process running as root (effective uid 0) asks for nothing and runs the tools directly.
// - Without an interface and not root, authStart() fails with "Unable to authorize" on the console.
// - With an interface, authStart() starts the runner: pkexec prompts once, and the grant is kept
//   for the process, as the platform's own authorisation service does. A refused or cancelled
//   prompt leaves the process unauthorised (-1); the next privileged operation asks again.
// - authEnd() lets the runner go; the next privileged operation asks again.
// - Both forms of authExecTask learn only whether the tool was started (the waiting form waits
//   for it to exit first); the tool's own exit status is never seen. A runner that refuses the
//   request (a relative tool path) or cannot start the tool gives -1.
// - authStartWithUser() cannot hand a password to pkexec: it succeeds only as root, and otherwise
//   reports "Authorization failed. Invalid username or password" as a refusal would.
// - There is no privileged reference handed down by a parent process on Linux.
//
// Tool paths ("/bin/rm", "/bin/mv", "/bin/cp", "/bin/mkdir") are resolved with sys::rooted().
// System folders (VLLocalPaths::isPathSystemDirectory) are refused before anything runs.

#include "shared/VLAuthorizationChannel.h"

#include <QString>
#include <QStringList>

#include <atomic>
#include <mutex>

class VLAuthorization {
public:
    VLAuthorization(const VLAuthorization&) = delete;
    VLAuthorization& operator=(const VLAuthorization&) = delete;

    static VLAuthorization& sharedController();                  // with an interface
    static VLAuthorization& sharedController(bool withInterface); // flag counts on first use only

    [[nodiscard]] bool authStart();
    [[nodiscard]] bool authStartWithUser(const QString& user, const QString& password);
    void authEnd();
    bool isAuthorized() const;
    bool canAuthorize() const;
    bool hasGUI() const { return hasGUI_; }
    QString userDirectory() const { return userDirectory_; } // empty when running as root

    [[nodiscard]] int authExecTask(const QString& toolPath, const QStringList& arguments, bool async = true);
    [[nodiscard]] bool authRemoveFile(const QString& path);
    [[nodiscard]] bool authTrashFile(const QString& path, bool deleteOnRootAccount = false);
    [[nodiscard]] bool authTrashFolderContents(const QString& folder, bool deleteOnRootAccount = false);
    [[nodiscard]] bool authMoveFolderContents(const QString& folder, const QString& destination);
    [[nodiscard]] bool authMoveFile(const QString& source, const QString& destination);
    [[nodiscard]] bool authCopyFile(const QString& source, const QString& destination);
    [[nodiscard]] bool authCreateDir(const QString& path);

    // True when the effective user id is 0. Read on every call.
    static bool isRoot();

private:
    explicit VLAuthorization(bool withInterface);
    ~VLAuthorization() = default;

    QString trashDestinationFor(const QString& path) const;
    int runPrivileged(const QString& toolPath, const QStringList& arguments, bool wait);

    const bool hasGUI_;
    QString userDirectory_;
    std::atomic<bool> authorized_{false}; // mirrors channel_.isOpen() for lock-free readers
    std::mutex channelMutex_;             // one prompt and one request at a time
    VLAuthorizationChannel channel_;
};
