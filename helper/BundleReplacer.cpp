#include "BundleReplacer.h"

#include "platform/system/Bundle.h"
#include "shared/VLLog.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;

namespace helper {

namespace {

fs::path toPath(const QString& path)
{
    return fs::path(path.toStdString());
}

QString fromError(const std::error_code& ec)
{
    return QString::fromStdString(ec.message());
}

QString siblingPrefix(const QString& destination, const char* kind)
{
    return QStringLiteral(".%1.%2-").arg(QFileInfo(destination).fileName(), QString::fromLatin1(kind));
}

QString sibling(const QString& destination, const char* kind)
{
    return QFileInfo(destination).absolutePath() + QLatin1Char('/') + siblingPrefix(destination, kind)
        + QString::number(QCoreApplication::applicationPid());
}

bool hasRunnableExecutable(const QString& bundle)
{
    const std::optional<sys::Bundle> found = sys::Bundle::bundleWithPath(bundle);
    const std::optional<QString> executable = found ? found->executablePath() : std::nullopt;
    return executable && QFileInfo(*executable).isExecutable();
}

void removeTree(const QString& path)
{
    std::error_code ec;
    fs::remove_all(toPath(path), ec);
    if (ec)
        VLLog::appendLog(QStringLiteral("Unable to remove %@: %@"), path, fromError(ec));
}

// Copies the bundle keeping symbolic links as links and the permission bits.
bool copyTree(const QString& source, const QString& target, QString* why)
{
    std::error_code ec;
    fs::copy(toPath(source), toPath(target), fs::copy_options::recursive | fs::copy_options::copy_symlinks, ec);
    if (ec) {
        *why = QStringLiteral("copying %1 to %2 failed: %3").arg(source, target, fromError(ec));
        return false;
    }
    return true;
}

bool renamePath(const QString& from, const QString& to, QString* why)
{
    std::error_code ec;
    fs::rename(toPath(from), toPath(to), ec);
    if (ec) {
        *why = QStringLiteral("renaming %1 to %2 failed: %3").arg(from, to, fromError(ec));
        return false;
    }
    return true;
}

} // namespace

void repairInterruptedReplacement(const QString& destination)
{
    const QFileInfo info(destination);
    QDir parent(info.absolutePath());
    const QStringList leftovers = parent.entryList({siblingPrefix(destination, "new") + QLatin1Char('*'),
                                                    siblingPrefix(destination, "old") + QLatin1Char('*')},
                                                   QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name);
    for (const QString& name : leftovers) {
        const QString path = parent.filePath(name);
        QString why;
        if (name.startsWith(siblingPrefix(destination, "old")) && !QFileInfo::exists(destination)) {
            VLLog::appendLog(QStringLiteral("Restoring %@ from an interrupted replacement..."), destination);
            if (renamePath(path, destination, &why))
                continue;
            VLLog::appendLog(QStringLiteral("%@"), why);
        }
        VLLog::appendLog(QStringLiteral("Removing %@ left by an interrupted replacement..."), path);
        removeTree(path);
    }
}

ReplaceResult replaceBundle(const QString& source, const QString& destination)
{
    ReplaceResult result;
    if (!QFileInfo(source).isDir()) {
        result.detail = QStringLiteral("%1 is not a folder").arg(source);
        return result;
    }
    if (!hasRunnableExecutable(source)) {
        result.detail = QStringLiteral("%1 has no executable that can be run").arg(source);
        return result;
    }
    const QString staging = sibling(destination, "new");
    const QString aside = sibling(destination, "old");
    VLLog::appendLog(QStringLiteral("Copying %@ to %@..."), source, staging);
    if (!copyTree(source, staging, &result.detail)) {
        removeTree(staging);
        return result;
    }
    const bool hadOld = QFileInfo::exists(destination) || QFileInfo(destination).isSymLink();
    if (hadOld) {
        VLLog::appendLog(QStringLiteral("Moving %@ aside..."), destination);
        if (!renamePath(destination, aside, &result.detail)) {
            removeTree(staging);
            return result;
        }
    }
    VLLog::appendLog(QStringLiteral("Moving the new bundle into place..."));
    if (!renamePath(staging, destination, &result.detail)) {
        QString why;
        if (hadOld && !renamePath(aside, destination, &why)) {
            result.status = ReplaceStatus::FailedOldMovedAside;
            result.previous = aside;
            result.detail += QStringLiteral("; the old bundle stays at %1 (%2)").arg(aside, why);
        }
        removeTree(staging);
        return result;
    }
    result.status = ReplaceStatus::Replaced;
    if (hadOld)
        result.previous = aside;
    return result;
}

void discardPrevious(const ReplaceResult& replaced)
{
    if (replaced.previous.isEmpty())
        return;
    VLLog::appendLog(QStringLiteral("Removing the old bundle..."));
    removeTree(replaced.previous);
}

bool putPreviousBack(const QString& destination, const QString& previous, QString* why)
{
    const QString rejected = sibling(destination, "new");
    VLLog::appendLog(QStringLiteral("Putting the old bundle back in place..."));
    if (!renamePath(destination, rejected, why))
        return false;
    if (!renamePath(previous, destination, why)) {
        QString ignored;
        (void)renamePath(rejected, destination, &ignored); // better the new bundle than none
        return false;
    }
    removeTree(rejected);
    return true;
}

} // namespace helper
