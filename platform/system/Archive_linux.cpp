// Zip archives on Linux through Info-ZIP's zip and unzip under the system root.
//
// zip names its entries after the paths it is given, relative to its working folder, so it runs
// in the source's parent folder (keepParent: "./<name>") or in the folder itself (contents: ".").
// The archive is written to zip's standard output, which goes to the destination file: zip
// would otherwise add ".zip" to a destination without an extension.

#include "platform/system/Archive.h"

#include "platform/system/SystemEnvironment.h"
#include "platform/system/SystemLogging.h"
#include "platform/system/ToolRun.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace sys {

namespace {

// zip's status when a folder holds nothing to store.
constexpr int kZipNothingToDo = 12;
// unzip's status when every entry was extracted but something deserved a warning.
constexpr int kUnzipWarning = 1;

// The archive of an empty folder: an end-of-central-directory record alone.
QByteArray emptyZipArchive()
{
    QByteArray data("PK\x05\x06", 4);
    data.append(18, '\0');
    return data;
}

bool report(QString* error, const QString& text)
{
    qCWarning(lcSystem) << text;
    if (error)
        *error = text;
    return false;
}

QString describe(const QString& tool, const ToolRun& run)
{
    if (!run.started)
        return QStringLiteral("%1 could not be started: %2").arg(tool, run.errors);
    return QStringLiteral("%1 ended with status %2: %3").arg(tool).arg(run.status).arg(run.errors);
}

} // namespace

bool compressArchive(const QString& source, const QString& destinationFile, bool keepParent, QString* error)
{
    const QFileInfo item(source);
    if (!item.exists() && !item.isSymLink())
        return report(error, QStringLiteral("Nothing to archive at %1").arg(source));
    const QString destination = QFileInfo(destinationFile).absoluteFilePath();
    const bool contentsOnly = item.isDir() && !keepParent;
    const QString workingFolder = contentsOnly ? item.absoluteFilePath() : item.absolutePath();
    // "./" keeps a name that begins with "-" from being read as an option; zip drops it again.
    const QString entry = contentsOnly ? QStringLiteral(".") : QStringLiteral("./") + item.fileName();

    const QString zip = rooted(QStringLiteral("/usr/bin/zip"));
    const ToolRun run = runTool(zip, {QStringLiteral("-q"), QStringLiteral("-r"), QStringLiteral("-y"),
                                      QStringLiteral("-"), entry},
                                workingFolder, destination);
    if (run.started && run.status == kZipNothingToDo && contentsOnly) {
        QFile empty(destination);
        if (empty.open(QIODevice::WriteOnly | QIODevice::Truncate) && empty.write(emptyZipArchive()) == 22)
            return true;
    }
    if (run.started && run.status == 0)
        return true;
    QFile::remove(destination); // what the redirection created is no archive
    return report(error, describe(zip, run));
}

bool extractArchive(const QString& archive, const QString& destinationFolder, QString* error)
{
    const QString folder = QFileInfo(destinationFolder).absoluteFilePath();
    // unzip makes no folder for an archive without entries.
    if (!QDir().mkpath(folder))
        return report(error, QStringLiteral("Cannot create %1").arg(folder));
    const QString unzip = rooted(QStringLiteral("/usr/bin/unzip"));
    // -o replaces existing files without asking, as the platform's tool does.
    const ToolRun run = runTool(unzip,
                                {QStringLiteral("-q"), QStringLiteral("-o"), QFileInfo(archive).absoluteFilePath(),
                                 QStringLiteral("-d"), folder},
                                QString(), QString());
    if (run.started && (run.status == 0 || run.status == kUnzipWarning))
        return true;
    return report(error, describe(unzip, run));
}

} // namespace sys
