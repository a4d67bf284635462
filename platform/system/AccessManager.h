#pragma once
// AccessManager: a QNetworkAccessManager whose end is over when it returns. Qt runs a
// manager's connections on a thread of its own, started by the manager's first request and
// ended when the manager goes or its connection cache is cleared. Qt waits for that thread
// only until it has left its event loop; its system thread then still releases what the
// TLS library keeps per thread (random generators, error queue). A process that exits in
// that moment ends with that state half released, and the leak checker reports it. Every
// access manager of the process is therefore an AccessManager, which after ending its
// connection thread waits (at most kThreadEndLimit) until that thread is gone for good.
//
// Which system thread was the manager's is told from the kernel's list of the threads Qt
// named for access managers: ends are taken one at a time process-wide, so the one that
// goes during an end is the ending manager's. The wait is bounded, so a thread that Qt
// names otherwise (another Qt version) costs at most that limit and the old race.
//
// Lifecycle and threads: as a QNetworkAccessManager (created, used and destroyed on one
// thread). endConnections() on that thread too.

#include <QNetworkAccessManager>

#include <atomic>
#include <chrono>

namespace sys {

class AccessManager : public QNetworkAccessManager {
public:
    static constexpr std::chrono::milliseconds kThreadEndLimit{5000};

    AccessManager() = default;
    ~AccessManager() override;

    // Drops the kept connections, as clearConnectionCache() does, and waits until their
    // thread has ended for good. The next request opens new connections on a new thread.
    void endConnections();

protected:
    QNetworkReply* createRequest(Operation op, const QNetworkRequest& request, QIODevice* outgoingData) override;

private:
    // Whether a request since the last end may have started a connection thread.
    bool mayHaveThread_ = false;
};

} // namespace sys
