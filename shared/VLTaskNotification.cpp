#include "shared/VLTaskNotification.h"

#include "shared/VLException.h"
#include "shared/VLLog.h"

#include "platform/system/ProcessList.h"

#include <QDeadlineTimer>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocalSocket>
#include <QSet>
#include <QThread>

#include <exception>
#include <memory>

namespace {

// One message, with the shorter form to send when the client lacks the longer one.
struct Candidate {
    QString name;
    QJsonArray arguments;
};

QString processName()
{
    return QFileInfo(sys::currentExecutablePath()).fileName();
}

std::unique_ptr<QLocalSocket> connectToClient()
{
    for (const QString& name : VLTaskNotification::connectionNames()) {
        auto socket = std::make_unique<QLocalSocket>();
        socket->connectToServer(name);
        if (socket->waitForConnected(VLTaskNotification::replyTimeoutMs))
            return socket;
    }
    return nullptr;
}

// One line from the client, without its line end; nullopt on time-out, a closed connection
// or a line longer than any the protocol has. The whole line must come within the time-out,
// so a client that trickles bytes cannot stretch the wait.
std::optional<QByteArray> readLine(QLocalSocket& socket)
{
    constexpr qint64 longestLine = 64 * 1024;
    const QDeadlineTimer deadline(VLTaskNotification::replyTimeoutMs);
    while (!socket.canReadLine()) {
        if (socket.bytesAvailable() > longestLine || socket.state() != QLocalSocket::ConnectedState
            || deadline.hasExpired() || !socket.waitForReadyRead(int(deadline.remainingTime())))
            return std::nullopt;
    }
    return socket.readLine(longestLine).trimmed();
}

// Sends the first candidate the client implements and waits for its "ok".
void deliver(QLocalSocket& socket, const QList<Candidate>& candidates, const QString& method)
{
    const auto implementsLine = readLine(socket);
    if (!implementsLine || !implementsLine->startsWith("implements")) {
        VLLog::appendLog(QStringLiteral("%@: the client did not say which messages it implements"), method);
        return;
    }
    const QList<QByteArray> words = implementsLine->split(' ');
    const QSet<QByteArray> implemented(words.cbegin() + 1, words.cend());
    for (const Candidate& c : candidates) {
        if (!implemented.contains(c.name.toUtf8()))
            continue;
        socket.write(c.name.toUtf8() + ' ' + QJsonDocument(c.arguments).toJson(QJsonDocument::Compact) + '\n');
        if (!socket.waitForBytesWritten(VLTaskNotification::replyTimeoutMs)) {
            VLLog::appendLog(QStringLiteral("%@: could not send %@"), method, c.name);
            return;
        }
        const auto answer = readLine(socket);
        if (!answer || *answer != "ok")
            VLLog::appendLog(QStringLiteral("%@: the client did not acknowledge %@"), method, c.name);
        return;
    }
}

void post(const QList<Candidate>& candidates, const QString& method)
{
    try {
        auto socket = connectToClient();
        if (!socket)
            return;
        deliver(*socket, candidates, method);
        QThread::msleep(VLTaskNotification::settleDelayMs);
        socket->disconnectFromServer();
    } catch (const std::exception& e) {
        VLException::logException(method, e);
    }
}

QJsonObject errorObject(const QString& description, const QVariantMap& userInfo)
{
    return QJsonObject{{QStringLiteral("description"), description},
                       {QStringLiteral("userInfo"), QJsonObject::fromVariantMap(userInfo)}};
}

} // namespace

QStringList VLTaskNotification::connectionNames()
{
    return {QStringLiteral("VLTesselCallback"), QStringLiteral("VLHarrowClientCallback")};
}

void VLTaskNotification::postIncrementProgress()
{
    post({{QStringLiteral("incrementRemoteProgress"), {}}},
         QStringLiteral("+[VLTaskNotification postIncrementProgress]"));
}

void VLTaskNotification::postTaskFinished()
{
    post({{QStringLiteral("postFinishedTask"), {}}}, QStringLiteral("+[VLTaskNotification postTaskFinished]"));
}

void VLTaskNotification::postTaskError(const QString& description, const QVariantMap& userInfo)
{
    const QJsonObject error = errorObject(description, userInfo);
    post({{QStringLiteral("postError:forApp:"), QJsonArray{error, processName()}},
          {QStringLiteral("postError:"), QJsonArray{error}}},
         QStringLiteral("+[VLTaskNotification postTaskError:]"));
}

void VLTaskNotification::postTaskErrorString(const QString& text)
{
    const QJsonObject info{{QStringLiteral("appName"), processName()}};
    post({{QStringLiteral("postErrorString:userInfo:"), QJsonArray{text, info}},
          {QStringLiteral("postErrorString:"), QJsonArray{text}}},
         QStringLiteral("+[VLTaskNotification postTaskErrorString:]"));
}

void VLTaskNotification::postDisconnect()
{
    post({{QStringLiteral("postDisconnect"), {}}}, QStringLiteral("+[VLTaskNotification postDisconnect]"));
}
