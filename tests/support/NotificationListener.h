#pragma once
// NotificationListener: stands in for the vendor client application that receives progress
// notifications (protocol in docs/notifications.md). Listens on a local socket on a thread of
// its own, so the thread that posts (often the test's own) may block on the round trip.
//
// Lifecycle: construct, start(), let the code under test post, read messages(), and destroy
// (or stop()). Members may be called from any thread; messages are recorded in arrival order.
// The listener's thread makes its own server and reports back through std locks (Qt's
// locks and queues are invisible to the thread checker; see WorkerPool.h).

#include <QJsonArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <QThread>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>

namespace vltest {

struct ReceivedNotification {
    QString name;        // e.g. "postErrorString:userInfo:"
    QJsonArray arguments;
};

class NotificationListener {
public:
    enum class Behaviour {
        Answer,           // "implements ..." line, then "ok" after each message
        NeverAnswer,      // "implements ..." line, records the message, never says "ok"
        Silent,           // accepts the connection and never writes anything
    };

    // `socketPath`: a full path (e.g. sandbox.tmpPath("VLTesselCallback")) or a bare name,
    // which Qt resolves in QDir::tempPath() at start().
    explicit NotificationListener(QString socketPath, QStringList implemented = allMessages(),
                                  Behaviour behaviour = Behaviour::Answer);
    ~NotificationListener();
    NotificationListener(const NotificationListener&) = delete;
    NotificationListener& operator=(const NotificationListener&) = delete;

    // Every message the client side can implement.
    static QStringList allMessages();

    [[nodiscard]] bool start();
    void stop();

    QList<ReceivedNotification> messages() const;
    QStringList messageNames() const;
    int connectionCount() const;
    // Waits until at least `count` messages arrived; false on time-out.
    [[nodiscard]] bool waitForMessages(int count, int timeoutMs = 10000) const;

private:
    class Worker;
    friend class Worker;
    void record(const ReceivedNotification& message);
    void countConnection();

    const QString socketPath_;
    const QStringList implemented_;
    const Behaviour behaviour_;
    void serve(); // the listener thread's body

    std::unique_ptr<QThread> thread_;
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::optional<bool> listening_; // set by the listener thread once it tried
    QList<ReceivedNotification> messages_;
    int connections_ = 0;
};

} // namespace vltest
