#pragma once
// Disk images for the three installers: listing the mount root, attaching an image with the
// system's image tool (10-second time-out), finding the volume that appeared (the names of
// the mount root after the attach minus those before), listing a volume's top level and
// detaching (5-second time-out). The mount root and the tool are machine-wide paths and go
// through the system root ("<root>/Volumes", "<root>/usr/bin/hdiutil").
//
// Stateless; callable from any thread (each call blocks while its tool runs).

#include <QString>
#include <QStringList>

#include <optional>

namespace install {

class DiskImage {
public:
    DiskImage() = delete;

    static QString volumesFolder();  // <root>/Volumes
    static QString imageTool();      // <root>/usr/bin/hdiutil

    // Names in the mount root, sorted by name (hidden names included).
    static QStringList volumeNames();
    // "attach" FILE "-nobrowse", waiting at most 10 seconds.
    static void attach(const QString& imageFile);
    // The names the two listings do not share; see AppController::compareExclusiveItems.
    static QStringList newVolumeNames(const QStringList& before, const QStringList& after);
    // The mount root joined with the first new name; nullopt when nothing appeared.
    static std::optional<QString> newVolumePath(const QStringList& before, const QStringList& after);
    // "detach" VOLUME "-force", waiting at most 5 seconds.
    static void detach(const QString& volumePath);
    // A folder's entries (hidden ones included), sorted by name; empty when unreadable.
    static QStringList topLevelNames(const QString& folder);
};

} // namespace install
