#pragma once
// VLPremiere: the versions of Adobe Premiere Pro installed on the machine, in two views: the
// versions of the applications themselves (premiereVersions, versionsForAppName) and the
// suite versions of their installation folders (suiteVersions, suiteVersionsInFolder, where a
// three-part bundle version 24.1.0 reads 24.1). Versions come from the bundle in an
// installation folder or, for an installation without a readable bundle, from the
// installer's Configuration/XManConfig.xml (the text of its ProductVersion `Data` element);
// the application view tries the bundle first, the suite view the configuration file first.
//
// The whole-machine operations scan two folders: first the folder that holds the installation
// folder of the application the workspace knows by "com.adobe.AdobePremierePro" (its path
// less two components), then the local Applications folder, adding only versions not listed
// yet. On Linux the workspace finds that application by looking through the user's and the
// machine's Applications folders and their subfolders (sys::LinuxWorkspace); a macOS backend
// asks Launch Services.
//
// Installation folders are matched by a case-insensitive name prefix ("Adobe Premiere "
// finds "adobe premiere pro 2024"); the bundle names inside them are matched as the file
// system matches names, so on a case-sensitive volume the application bundle must be named
// exactly like its folder and a suite bundle must begin with "Adobe Premiere Pro ". A folder
// that cannot be listed, and a configuration file that is not XML, contribute nothing; nothing
// is logged.
//
// Stateless; any thread.

#include <QString>
#include <QStringList>

class VLPremiere {
public:
    VLPremiere() = delete;

    static QStringList premiereVersions();
    static QStringList versionsForAppName(const QString& namePrefix);
    // versionsForAppName:inFolder:
    static QStringList versionsForAppName(const QString& namePrefix, const QString& folder);
    static QStringList suiteVersions();
    static QStringList suiteVersionsInFolder(const QString& folder);
};
