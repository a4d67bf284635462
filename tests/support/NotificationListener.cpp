#include "support/NotificationListener.h"

#include <QEventLoop>
#include <QJsonDocument>
#include <QLocalServer>
#include <QLocalSocket>

#include <chrono>

namespace vltest {

// Lives on the listener's thread: owns the server and its connections.
class NotificationListener::Worker : public QObject {
public:
    explicit Worker(NotificationListener& owner) : owner_(owner) {}

    bool listen()
    {
        QLocalServer::removeServer(owner_.socketPath_);
        server_ = new QLocalServer(this);
        // Runs under an unprivileged uid must be able to reach a listener the test made as root.
        server_->setSocketOptions(QLocalServer::WorldAccessOption);
        if (!server_->listen(owner_.socketPath_))
            return false;
        connect(server_, &QLocalServer::newConnection, this, &Worker::accept);
        return true;
    }

private:
    void accept()
    {
        while (QLocalSocket* socket = server_->nextPendingConnection()) {
            owner_.countConnection();
            socket->setParent(this);
            connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
            connect(socket, &QLocalSocket::readyRead, this, [this, socket] { read(socket); });
            if (owner_.behaviour_ != Behaviour::Silent)
                socket->write("implements " + owner_.implemented_.join(QLatin1Char(' ')).toUtf8() + '\n');
        }
    }

    void read(QLocalSocket* socket)
    {
        while (socket->canReadLine()) {
            const QByteArray line = socket->readLine().trimmed();
            const qsizetype space = line.indexOf(' ');
            ReceivedNotification message;
            message.name = QString::fromUtf8(space < 0 ? line : line.left(space));
            if (space >= 0)
                message.arguments = QJsonDocument::fromJson(line.mid(space + 1)).array();
            owner_.record(message);
            if (owner_.behaviour_ == Behaviour::Answer)
                socket->write("ok\n");
        }
    }

    NotificationListener& owner_;
    QLocalServer* server_ = nullptr; // child of this
};

NotificationListener::NotificationListener(QString socketPath, QStringList implemented, Behaviour behaviour)
    : socketPath_(std::move(socketPath)), implemented_(std::move(implemented)), behaviour_(behaviour)
{
}

NotificationListener::~NotificationListener() { stop(); }

QStringList NotificationListener::allMessages()
{
    return {QStringLiteral("incrementRemoteProgress"), QStringLiteral("postFinishedTask"),
            QStringLiteral("postError:forApp:"), QStringLiteral("postError:"),
            QStringLiteral("postErrorString:userInfo:"), QStringLiteral("postErrorString:"),
            QStringLiteral("postDisconnect")};
}

bool NotificationListener::start()
{
    if (thread_)
        return true;
    thread_.reset(QThread::create([this] { serve(); }));
    thread_->start();
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return listening_.has_value(); });
    const bool ok = *listening_;
    lock.unlock();
    if (!ok)
        stop();
    return ok;
}

void NotificationListener::serve()
{
    // The worker and its sockets are made, used and destroyed on this thread.
    Worker worker(*this);
    const bool ok = worker.listen();
    {
        std::lock_guard lock(mutex_);
        listening_ = ok;
    }
    changed_.notify_all();
    // Until stop() quits this thread's event loops (a quit that comes first ends it at once).
    QEventLoop loop;
    if (ok)
        loop.exec();
}

void NotificationListener::stop()
{
    if (!thread_)
        return;
    thread_->quit();
    thread_->wait();
    thread_.reset();
    std::lock_guard lock(mutex_);
    listening_.reset();
}

void NotificationListener::record(const ReceivedNotification& message)
{
    {
        std::lock_guard lock(mutex_);
        messages_.append(message);
    }
    changed_.notify_all();
}

void NotificationListener::countConnection()
{
    std::lock_guard lock(mutex_);
    ++connections_;
}

QList<ReceivedNotification> NotificationListener::messages() const
{
    std::lock_guard lock(mutex_);
    return messages_;
}

QStringList NotificationListener::messageNames() const
{
    QStringList names;
    for (const ReceivedNotification& m : messages())
        names << m.name;
    return names;
}

int NotificationListener::connectionCount() const
{
    std::lock_guard lock(mutex_);
    return connections_;
}

bool NotificationListener::waitForMessages(int count, int timeoutMs) const
{
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] { return messages_.size() >= count; });
}

} // namespace vltest
