// Administrator rights through a privileged co-process started with pkexec, and the privileged
// file changes made with them.
#include "shared/VLAuthorization.h"
#include "shared/VLFileManagerInternal.h"
#include "shared/VLLocalPaths.h"
#include "shared/VLLog.h"
#include "shared/VLTaskEx.h"

#include "platform/foundation/Foundation.h"
#include "platform/foundation/PlatformException.h"
#include "platform/system/SystemEnvironment.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>

#include <unistd.h>

namespace {

QString tool(const char* path) { return sys::rooted(QString::fromLatin1(path)); }
QString pkexec() { return tool("/usr/bin/pkexec"); }

QStringList entriesOf(const QString& folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                                  QDir::Name);
}

// Starts a tool without waiting; a launch failure is logged and reported as false.
bool startDetached(const QString& path, const QStringList& arguments)
{
    try {
        VLTaskEx::runTaskAndReturn(path, arguments);
        return true;
    } catch (const fnd::PlatformException& e) {
        VLLog::appendLog(QStringLiteral("Exception running task %@: %@"), path, e.reason());
        return false;
    }
}

} // namespace

VLAuthorization& VLAuthorization::sharedController()
{
    return sharedController(true);
}

VLAuthorization& VLAuthorization::sharedController(bool withInterface)
{
    static std::mutex creation;
    // Kept for the life of the process on purpose: rights are never handed back at exit.
    static VLAuthorization* instance = nullptr;
    const std::lock_guard<std::mutex> lock(creation);
    if (!instance)
        instance = new VLAuthorization(withInterface);
    return *instance;
}

VLAuthorization::VLAuthorization(bool withInterface) : hasGUI_(withInterface)
{
    if (!isRoot())
        userDirectory_ = VLLocalPaths::userDirectory();
}

bool VLAuthorization::isRoot()
{
    return ::geteuid() == 0;
}

bool VLAuthorization::authStart()
{
    const std::lock_guard<std::mutex> lock(channelMutex_);
    if (isAuthorized())
        return true;
    if (!hasGUI_) {
        vlfm::console(QStringLiteral("Unable to authorize"));
        return false;
    }
    for (const QString& program : {pkexec(), VLAuthorizationChannel::runnerPath()}) {
        if (!QFileInfo(program).isExecutable()) {
            VLLog::appendLog(QStringLiteral("Unable to authorize: %@ is not available"), program);
            return false;
        }
    }
    QString why;
    if (!channel_.open(pkexec(), &why)) {
        VLLog::appendLog(QStringLiteral("Authorization was refused or cancelled: %@"), why);
        return false;
    }
    authorized_ = true;
    return true;
}

bool VLAuthorization::authStartWithUser(const QString& user, const QString& password)
{
    if (isRoot())
        return true;
    if (user.isEmpty() || password.isEmpty())
        return false;
    // pkexec takes no credentials from its caller, so a given password can never be checked.
    vlfm::console(QStringLiteral("Authorization failed. Invalid username or password"));
    VLLog::appendLog(QStringLiteral("Authorization failed. Invalid username or password"));
    return false;
}

void VLAuthorization::authEnd()
{
    const std::lock_guard<std::mutex> lock(channelMutex_);
    channel_.close();
    authorized_ = false;
}

bool VLAuthorization::isAuthorized() const
{
    return isRoot() || authorized_;
}

bool VLAuthorization::canAuthorize() const
{
    return hasGUI_ || isRoot();
}

int VLAuthorization::authExecTask(const QString& toolPath, const QStringList& arguments, bool async)
{
    if (!QFileInfo::exists(toolPath)) {
        vlfm::console(QStringLiteral("Unable to execute task: path %@ doesn't exist"), toolPath);
        return -2;
    }
    if (isRoot()) {
        if (async)
            return startDetached(toolPath, arguments) ? 0 : -1;
        return VLTaskEx::runTask(toolPath, arguments) ? 0 : -1;
    }
    if (!isAuthorized() && !authStart())
        return -1;
    return runPrivileged(toolPath, arguments, !async);
}

int VLAuthorization::runPrivileged(const QString& toolPath, const QStringList& arguments, bool wait)
{
    const std::lock_guard<std::mutex> lock(channelMutex_);
    const vlauth::Message answer = channel_.run(toolPath, arguments, wait);
    if (answer.empty()) {
        // authEnd() came first, or the runner is gone (killed): the next operation asks again.
        authorized_ = false;
        VLLog::appendLog(QStringLiteral("Unable to execute task %@: not authorized"), toolPath);
        return -1;
    }
    if (answer.front() == "started" || answer.front() == "exited")
        return 0;
    // "failed": refused (a relative path) or not started; the reason comes with it.
    VLLog::appendLog(QStringLiteral("Unable to execute task %@: %@"), toolPath,
                     QString::fromStdString(answer.size() > 1 ? answer[1] : answer.front()));
    return -1;
}

bool VLAuthorization::authRemoveFile(const QString& path)
{
    if (VLLocalPaths::isPathSystemDirectory(path)) {
        vlfm::console(QStringLiteral("Unable to delete path %@ because it is a system directory."), path);
        return false;
    }
    return authExecTask(tool("/bin/rm"), {QStringLiteral("-Rdf"), path}) == 0;
}

QString VLAuthorization::trashDestinationFor(const QString& path) const
{
    const QString name = fnd::lastPathComponent(path);
    QString destination = fnd::stringByAppendingPathComponent(VLLocalPaths::trashDirectory(), name);
    if (isRoot() && !userDirectory_.isEmpty())
        destination = userDirectory_ + fnd::format(QStringLiteral("/.Trash/%@"), name);
    if (vlfm::existsNoFollow(destination)) {
        const QString stamp = QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMddHHmmss"));
        // A source without extension ends in "." after the time: the name stays recognisable.
        destination = fnd::stringByDeletingPathExtension(destination) +
                      fnd::format(QStringLiteral("_%@.%@"), stamp, fnd::pathExtension(path));
    }
    return destination;
}

bool VLAuthorization::authTrashFile(const QString& path, bool deleteOnRootAccount)
{
    if (VLLocalPaths::isPathSystemDirectory(path, true)) {
        vlfm::console(QStringLiteral("Unable to trash path %@ because it is a system directory."), path);
        return false;
    }
    const QString destination = trashDestinationFor(path);
    // The root account has no trash of its own: remove what would be replaced there instead.
    if (deleteOnRootAccount && userDirectory_.isEmpty() && isRoot())
        return authRemoveFile(destination);
    return authMoveFile(path, destination);
}

bool VLAuthorization::authTrashFolderContents(const QString& folder, bool deleteOnRootAccount)
{
    if (VLLocalPaths::isPathSystemDirectory(folder)) {
        vlfm::console(QStringLiteral("Unable to trash folder contents of path %@ because it is a system directory."),
                      folder);
        return false;
    }
    const bool deleteInstead = deleteOnRootAccount && userDirectory_.isEmpty() && isRoot();
    bool allDone = true;
    for (const QString& name : entriesOf(folder)) {
        const QString entry = fnd::stringByAppendingPathComponent(folder, name);
        const bool done = deleteInstead
                              ? authExecTask(tool("/bin/rm"), {QStringLiteral("-R"), QStringLiteral("-f"), entry}) == 0
                              : authTrashFile(entry);
        allDone = allDone && done;
    }
    return allDone;
}

bool VLAuthorization::authMoveFolderContents(const QString& folder, const QString& destination)
{
    if (VLLocalPaths::isPathSystemDirectory(folder)) {
        vlfm::console(QStringLiteral("Unable to move contents of path %@ because it is a system directory."), folder);
        return false;
    }
    bool allMoved = true;
    for (const QString& name : entriesOf(folder)) {
        const bool moved = authMoveFile(fnd::stringByAppendingPathComponent(folder, name),
                                        fnd::stringByAppendingPathComponent(destination, name));
        allMoved = allMoved && moved;
    }
    return allMoved;
}

bool VLAuthorization::authMoveFile(const QString& source, const QString& destination)
{
    if (source.isEmpty()) {
        vlfm::console(QStringLiteral("Error in authMoveFile: old path is null"));
        return false;
    }
    if (destination.isEmpty()) {
        vlfm::console(QStringLiteral("Error in authMoveFile: new path is null"));
        return false;
    }
    if (VLLocalPaths::isPathSystemDirectory(source)) {
        vlfm::console(QStringLiteral("Unable to move path %@ because it is a system directory."), source);
        return false;
    }
    if (!vlfm::existsNoFollow(source))
        return false;
    const QStringList arguments{QStringLiteral("-f"), source, destination};
    if (isRoot())
        return startDetached(tool("/bin/mv"), arguments);
    return authExecTask(tool("/bin/mv"), arguments) == 0;
}

bool VLAuthorization::authCopyFile(const QString& source, const QString& destination)
{
    if (source.isEmpty()) {
        vlfm::console(QStringLiteral("Error in authCopyFile: old path is null"));
        return false;
    }
    if (destination.isEmpty()) {
        vlfm::console(QStringLiteral("Error in authCopyFile: new path is null"));
        return false;
    }
    if (!vlfm::existsNoFollow(source))
        return false;
    const QStringList arguments{QStringLiteral("-f"), QStringLiteral("-p"), QStringLiteral("-R"), source, destination};
    if (isRoot())
        return startDetached(tool("/bin/cp"), arguments);
    return authExecTask(tool("/bin/cp"), arguments) == 0;
}

bool VLAuthorization::authCreateDir(const QString& path)
{
    const QStringList arguments{QStringLiteral("-p"), path};
    if (isRoot())
        return startDetached(tool("/bin/mkdir"), arguments);
    if (authExecTask(tool("/bin/mkdir"), arguments) != 0)
        return false;
    ::usleep(500);
    return true;
}
