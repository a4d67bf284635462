// Zip archives through the system's archiving tool.
#include "shared/VLFileManager.h"
#include "shared/VLFileManagerInternal.h"
#include "shared/VLLocalPaths.h"
#include "shared/VLTaskEx.h"

#include "platform/foundation/Foundation.h"
#include "platform/system/SystemEnvironment.h"
#include "platform/system/Workspace.h"

#include <QFileInfo>

namespace {

QString ditto() { return sys::rooted(QStringLiteral("/usr/bin/ditto")); }

} // namespace

bool VLFileManager::compressFile(const QString& source, const QString& destinationFile, bool includeParent)
{
    if (vlfm::existsNoFollow(destinationFile))
        (void)trashFile(destinationFile); // the tool's result below tells whether it worked
    QStringList arguments{QStringLiteral("-ck"), source, destinationFile};
    if (includeParent)
        arguments.insert(1, QStringLiteral("--keepParent"));
    (void)VLTaskEx::runTask(ditto(), arguments);
    return QFileInfo::exists(destinationFile);
}

bool VLFileManager::decompressFile(const QString& archive, const QString& destinationFolder)
{
    if (vlfm::existsNoFollow(destinationFolder))
        (void)sys::workspace().recycle(fnd::stringByDeletingLastPathComponent(destinationFolder),
                                       VLLocalPaths::trashDirectory(), fnd::lastPathComponent(destinationFolder));
    (void)VLTaskEx::runTask(ditto(), {QStringLiteral("-xk"), archive, destinationFolder});
    return QFileInfo::exists(destinationFolder);
}
