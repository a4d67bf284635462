#pragma once
// NotificationListener: stands in for the vendor client application that receives progress
// notifications (protocol in docs/notifications.md). It runs scripts/notification-listener.py,
// the listener the demo uses too, as a child process that reports each connection and message
// as a JSON line into a file, and reads that file back.
//
// Lifecycle: construct, start(), let the code under test post, read messages(); the listener
// and its socket go with this object. The script answers on its own, so the thread that posts
// (often the test's own) may block on the round trip. start() on one thread; the reading
// members from any thread.

#include <QJsonArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <memory>

namespace vltest {

class ChildProcess;

struct ReceivedNotification {
    QString name;        // e.g. "postErrorString:userInfo:"
    QJsonArray arguments;
};

class NotificationListener {
public:
    enum class Behaviour {
        Answer,      // "implements ..." line, then "ok" after each message
        NeverAnswer, // "implements ..." line, records the message, never says "ok"
        Silent,      // accepts the connection and never writes anything
    };

    // `socketPath`: a full path (e.g. sandbox.tmpPath("VLTesselCallback")) or a bare name,
    // which is resolved in QDir::tempPath() at start().
    explicit NotificationListener(QString socketPath, QStringList implemented = allMessages(),
                                  Behaviour behaviour = Behaviour::Answer);
    ~NotificationListener();
    NotificationListener(const NotificationListener&) = delete;
    NotificationListener& operator=(const NotificationListener&) = delete;

    // Every message the client side can implement.
    static QStringList allMessages();

    // False when the listener did not come up within 10 seconds.
    [[nodiscard]] bool start();

    QList<ReceivedNotification> messages() const;
    QStringList messageNames() const;
    int connectionCount() const;
    // Waits until at least `count` messages arrived; false on time-out.
    [[nodiscard]] bool waitForMessages(int count, int timeoutMs = 10000) const;

private:
    // The report so far: connections counted, messages in arrival order.
    int read(QList<ReceivedNotification>* messages) const;

    QString socketPath_; // resolved by start()
    const QStringList implemented_;
    const Behaviour behaviour_;
    QTemporaryDir dir_; // the report file
    std::unique_ptr<ChildProcess> process_;
};

} // namespace vltest
