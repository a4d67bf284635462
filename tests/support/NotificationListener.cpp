#include "support/NotificationListener.h"
#include "support/ChildProcess.h"
#include "support/Sandbox.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QThread>

#include <functional>

namespace vltest {

namespace {

// Polls `done` every few milliseconds for at most timeoutMs.
bool pollUntil(const std::function<bool()>& done, int timeoutMs)
{
    const QDeadlineTimer guard(timeoutMs);
    while (!done() && !guard.hasExpired())
        QThread::msleep(5);
    return done();
}

} // namespace

NotificationListener::NotificationListener(QString socketPath, QStringList implemented, Behaviour behaviour)
    : socketPath_(std::move(socketPath)), implemented_(std::move(implemented)), behaviour_(behaviour)
{
}

NotificationListener::~NotificationListener()
{
    if (!process_)
        return;
    process_.reset(); // kills the script, which leaves its socket behind
    QFile::remove(socketPath_);
}

QStringList NotificationListener::allMessages()
{
    return {QStringLiteral("incrementRemoteProgress"), QStringLiteral("postFinishedTask"),
            QStringLiteral("postError:forApp:"), QStringLiteral("postError:"),
            QStringLiteral("postErrorString:userInfo:"), QStringLiteral("postErrorString:"),
            QStringLiteral("postDisconnect")};
}

bool NotificationListener::start()
{
    if (!socketPath_.contains(QLatin1Char('/')))
        socketPath_ = QDir::tempPath() + QLatin1Char('/') + socketPath_;
    QStringList args{QStringLiteral(VELMORA_SOURCE_DIR "/scripts/notification-listener.py"), QStringLiteral("--socket"), socketPath_,
                     QStringLiteral("--implements"), implemented_.join(QLatin1Char(' ')), QStringLiteral("--connections")};
    if (behaviour_ != Behaviour::Answer)
        args << (behaviour_ == Behaviour::Silent ? QStringLiteral("--silent") : QStringLiteral("--no-answer"));
    process_ = std::make_unique<ChildProcess>();
    return dir_.isValid()
        && process_->start(QStringLiteral("/usr/bin/python3"), args, {.standardOutputFile = dir_.filePath(QStringLiteral("report")), .discardOutput = true})
        && pollUntil([this] { return Sandbox::readFile(dir_.filePath(QStringLiteral("report"))).startsWith("listening ") || !process_->isRunning(); }, 10000)
        && process_->isRunning();
}

int NotificationListener::read(QList<ReceivedNotification>* messages) const
{
    int connections = 0;
    for (const QByteArray& line : Sandbox::readFile(dir_.filePath(QStringLiteral("report"))).split('\n')) {
        const QJsonObject report = QJsonDocument::fromJson(line).object();
        if (report.contains(QStringLiteral("connected")))
            ++connections;
        else if (report.contains(QStringLiteral("message")) && messages)
            messages->append({report.value(QStringLiteral("message")).toString(), report.value(QStringLiteral("arguments")).toArray()});
    }
    return connections;
}

QList<ReceivedNotification> NotificationListener::messages() const
{
    QList<ReceivedNotification> messages;
    read(&messages);
    return messages;
}

QStringList NotificationListener::messageNames() const
{
    QStringList names;
    for (const ReceivedNotification& m : messages())
        names << m.name;
    return names;
}

int NotificationListener::connectionCount() const { return read(nullptr); }

bool NotificationListener::waitForMessages(int count, int timeoutMs) const
{
    return pollUntil([&] { return messages().size() >= count; }, timeoutMs);
}

} // namespace vltest
