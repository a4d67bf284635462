#include "ScanSupport.h"

#include "platform/plist/PropertyList.h"
#include "shared/VLLog.h"

#include <QFileInfo>

#include <filesystem>
#include <system_error>
#include <vector>

namespace discovery::scan {
namespace {

std::filesystem::path fsPath(const QString& path)
{
    return std::filesystem::path(path.toStdString());
}

struct WalkedFolder {
    QString path;      // as the walk named it
    std::string real;  // with every link resolved; empty when it could not be worked out
};
// The folders being walked on this thread, outermost first.
thread_local std::vector<WalkedFolder> tWalk;

} // namespace

std::optional<QList<FolderEntry>> listFolder(const QString& folder)
{
    std::error_code ec;
    std::filesystem::directory_iterator it(fsPath(folder), ec);
    QList<FolderEntry> entries;
    for (; !ec && it != std::filesystem::directory_iterator(); it.increment(ec)) {
        const std::string raw = it->path().filename().string();
        QString name = QString::fromStdString(raw);
        const bool exact = name.toStdString() == raw;
        entries.append({std::move(name), *it, exact});
    }
    if (ec) {
        VLLog::appendLog(QStringLiteral("Error getting contents of directory %@: %@"), folder,
                         QString::fromStdString(ec.message()));
        return std::nullopt;
    }
    return entries;
}

bool isExistingFolder(const FolderEntry& entry, const QString& path)
{
    // A name that is not the entry's own names another path: ask about that path.
    if (!entry.exactName)
        return QFileInfo(path).isDir();
    std::error_code ec;
    return entry.listed.is_directory(ec);
}

bool isKnownNotLink(const FolderEntry& entry)
{
    std::error_code ec;
    return entry.exactName && !entry.listed.is_symlink(ec) && !ec;
}

std::optional<QString> descriptorPath(const QString& bundle)
{
    for (const char* relative : {"/Contents/Resources/VLUpdates.plist", "/Contents/VLUpdates.plist"}) {
        const QString path = bundle + QLatin1String(relative);
        if (QFileInfo::exists(path) || QFileInfo(path).isSymLink())
            return path;
    }
    return std::nullopt;
}

QVariantMap readDescriptor(const QString& path)
{
    return plist::readDictionaryFile(path).value_or(QVariantMap());
}

std::optional<QString> linkDestination(const QString& path)
{
    std::error_code ec;
    const std::filesystem::path target = std::filesystem::read_symlink(fsPath(path), ec);
    if (ec)
        return std::nullopt;
    return QString::fromStdString(target.string());
}

CycleGuard::CycleGuard(const QString& folder, bool isLink)
{
    const qsizetype slash = folder.lastIndexOf(QLatin1Char('/'));
    const bool childOfLast = !isLink && !tWalk.empty() && slash > 0 && !tWalk.back().real.empty()
        && QStringView(folder).left(slash) == tWalk.back().path;
    if (childOfLast) {
        tWalk.push_back({folder, tWalk.back().real + '/' + folder.mid(slash + 1).toStdString()});
        entered_ = true;
        return;
    }
    std::error_code ec;
    const std::string real = std::filesystem::canonical(fsPath(folder), ec).string();
    if (!ec) {
        for (const WalkedFolder& walked : tWalk) {
            if (walked.real == real)
                return;
        }
    }
    // A folder whose real path cannot be worked out is walked; its listing reports the fault.
    tWalk.push_back({folder, ec ? std::string() : real});
    entered_ = true;
}

CycleGuard::~CycleGuard()
{
    if (entered_)
        tWalk.pop_back();
}

} // namespace discovery::scan
