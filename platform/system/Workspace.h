#pragma once
// The workspace: the desktop's file operations and the opener of files and addresses.
// An abstract interface so a macOS backend can replace the Linux one without touching
// callers; workspace() returns the process-wide instance for this platform.
//
// Lifecycle: the instance lives for the whole process (tests may install another with
// setWorkspaceForTesting). Thread-safety: every member may be called from any thread.

#include <QString>
#include <QStringList>
#include <memory>
#include <optional>

namespace sys {

class Workspace {
public:
    Workspace() = default;
    Workspace(const Workspace&) = delete;
    Workspace& operator=(const Workspace&) = delete;
    virtual ~Workspace() = default;

    // The recycle operation: moves sourceFolder/name into trashFolder, under a new unique
    // name when one is taken there. Never loses data: on any failure the original stays.
    [[nodiscard]] virtual bool recycle(const QString& sourceFolder, const QString& trashFolder, const QString& name) = 0;
    // The copy operation: copies sourceFolder/name to destinationFolder/name recursively,
    // keeping symbolic links and permissions. Fails when the destination exists.
    [[nodiscard]] virtual bool copy(const QString& sourceFolder, const QString& destinationFolder, const QString& name) = 0;
    // Opens a file (or application bundle) / an address with the desktop's opener. Returns
    // once the opener has started; false when it could not be started.
    [[nodiscard]] virtual bool openFile(const QString& path) = 0;
    [[nodiscard]] virtual bool openURL(const QString& url) = 0;
    // Tells the desktop that the item changed (Finder refresh on macOS).
    virtual void notifyFileChanged(const QString& path) = 0;
    // A folder the desktop shows as one item (an application, plug-in, package ...).
    virtual bool isPackage(const QString& path) = 0;
    // Mount points of local volumes.
    virtual QStringList mountedLocalVolumes() = 0;
    // The path of the application the desktop knows by this bundle identifier; nullopt when
    // it knows none.
    virtual std::optional<QString> fullPathForApplication(const QString& bundleIdentifier) = 0;
};

Workspace& workspace();
// A new instance of this platform's own backend (defined beside each OS's implementation).
std::unique_ptr<Workspace> makePlatformWorkspace();
// Replaces the process-wide instance (nullptr restores the platform's own). Tests only.
void setWorkspaceForTesting(std::unique_ptr<Workspace> replacement);

} // namespace sys
