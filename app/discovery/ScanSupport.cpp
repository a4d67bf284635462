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

std::optional<QStringList> listFolder(const QString& folder)
{
    std::error_code ec;
    std::filesystem::directory_iterator it(fsPath(folder), ec);
    QStringList names;
    for (; !ec && it != std::filesystem::directory_iterator(); it.increment(ec))
        names.append(QString::fromStdString(it->path().filename().string()));
    if (ec) {
        VLLog::appendLog(QStringLiteral("Error getting contents of directory %@: %@"), folder,
                         QString::fromStdString(ec.message()));
        return std::nullopt;
    }
    return names;
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
