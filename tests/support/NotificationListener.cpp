#include "support/NotificationListener.h"

#include <QDeadlineTimer>
#include <QJsonDocument>
#include <QLocalServer>
#include <QLocalSocket>
#include <QMutexLocker>
#include <QSemaphore>

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
    if (worker_)
        return true;
    worker_ = new Worker(*this);
    worker_->moveToThread(&thread_);
    QObject::connect(&thread_, &QThread::finished, worker_, &QObject::deleteLater);
    thread_.start();
    bool ok = false;
    QSemaphore done;
    QMetaObject::invokeMethod(worker_, [this, &ok, &done] {
        ok = worker_->listen();
        done.release();
    });
    done.acquire();
    if (!ok)
        stop();
    return ok;
}

void NotificationListener::stop()
{
    if (!worker_)
        return;
    thread_.quit();
    thread_.wait();
    worker_ = nullptr;
}

void NotificationListener::record(const ReceivedNotification& message)
{
    QMutexLocker lock(&mutex_);
    messages_.append(message);
    arrived_.wakeAll();
}

void NotificationListener::countConnection()
{
    QMutexLocker lock(&mutex_);
    ++connections_;
}

QList<ReceivedNotification> NotificationListener::messages() const
{
    QMutexLocker lock(&mutex_);
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
    QMutexLocker lock(&mutex_);
    return connections_;
}

bool NotificationListener::waitForMessages(int count, int timeoutMs) const
{
    QDeadlineTimer deadline(timeoutMs);
    QMutexLocker lock(&mutex_);
    while (messages_.size() < count)
        if (!arrived_.wait(&mutex_, deadline))
            return false;
    return true;
}

} // namespace vltest
