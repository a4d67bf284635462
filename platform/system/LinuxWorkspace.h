#pragma once
// The workspace on Linux desktops. Recycling is a rename into the Trash folder the caller
// names (the updater passes $HOME/.Trash), falling back to copy-then-remove across file
// systems; opening goes through the desktop opener at sys::rooted("/usr/bin/xdg-open"),
// started detached, without a shell, and not waited for, except installer packages (".pkg",
// ".mpkg"), which open in the Installer bundle under the system root's CoreServices.
//
// Lifecycle: one instance lives for the process (see workspace()); tests may make their own.
// Thread-safety: stateless; every member may be called from any thread.

#include "platform/system/Workspace.h"

namespace sys {

class LinuxWorkspace final : public Workspace {
public:
    LinuxWorkspace() = default;

    bool recycle(const QString& sourceFolder, const QString& trashFolder, const QString& name) override;
    bool copy(const QString& sourceFolder, const QString& destinationFolder, const QString& name) override;
    bool openFile(const QString& path) override;
    bool openURL(const QString& url) override;
    // Linux file managers watch the file system themselves: nothing to tell them.
    void notifyFileChanged(const QString& path) override;
    bool isPackage(const QString& path) override;
    // "/" and every other mount of a block device, then each folder in <root>/Volumes
    // (where disk images appear), without repeats.
    QStringList mountedLocalVolumes() override;
    // Linux keeps no registry of bundles, so the bundles are looked for where applications are
    // installed: the user's Applications folder ($HOME/Applications), then the machine's
    // (<root>/Applications); in each, its ".app" entries and those of its subfolders that are
    // not packages themselves (suites install into a folder of their own), in name order. The
    // first whose CFBundleIdentifier equals the identifier, ignoring case, wins.
    std::optional<QString> fullPathForApplication(const QString& bundleIdentifier) override;
};

} // namespace sys
