// Zip archives through the platform's archiving tool (sys::compressArchive / extractArchive).
#include "shared/VLFileManager.h"
#include "shared/VLFileManagerInternal.h"
#include "shared/VLLocalPaths.h"
#include "shared/VLLog.h"

#include "platform/foundation/Foundation.h"
#include "platform/system/Archive.h"
#include "platform/system/Workspace.h"

#include <QFileInfo>

bool VLFileManager::compressFile(const QString& source, const QString& destinationFile, bool includeParent)
{
    if (vlfm::existsNoFollow(destinationFile))
        (void)trashFile(destinationFile); // whether the archive exists afterwards is the answer
    QString error;
    if (!sys::compressArchive(source, destinationFile, includeParent, &error))
        VLLog::appendLog(QStringLiteral("Unable to compress %@: %@"), source, error);
    return QFileInfo::exists(destinationFile);
}

bool VLFileManager::decompressFile(const QString& archive, const QString& destinationFolder)
{
    if (vlfm::existsNoFollow(destinationFolder))
        (void)sys::workspace().recycle(fnd::stringByDeletingLastPathComponent(destinationFolder),
                                       VLLocalPaths::trashDirectory(), fnd::lastPathComponent(destinationFolder));
    QString error;
    if (!sys::extractArchive(archive, destinationFolder, &error))
        VLLog::appendLog(QStringLiteral("Unable to decompress %@: %@"), archive, error);
    return QFileInfo::exists(destinationFolder);
}
