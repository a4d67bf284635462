#pragma once
// NetworkSession: the network thread that fetchURL keeps for one calling thread, so that the
// feed downloads of one update-queue worker go over one kept-alive connection per server
// instead of a new thread, access manager, TCP connection and TLS handshake per request.
// Internal to the feed download (Network.cpp).
//
// What is kept between two requests is the access manager with its open connections, and
// nothing else: every request still refuses the cache, cookies and stored credentials
// (makeRequest), and the connections are dropped when the trusted authorities change.
//
// Lifecycle: made on a thread's first request and destroyed with that thread (a pool worker
// whose idle time expired, the main thread at exit), which stops its network thread. The
// network thread starts with the first request, runs until stop() or stopNetworkThreads()
// (which the application object's end also runs), and starts again with the next request.
// A stop joins the network thread, so that the thread has ended for good, its per-thread
// clean-up (the TLS library's among it) done, before an exit path goes on; the end of its
// access manager waits for Qt's connection thread in the same way (sys::AccessManager).
// Every session is listed in a process-wide registry so that stopNetworkThreads() reaches
// them all.
// Threads: fetch() only on the owning thread; stop() on any thread.

#include "discovery/Network.h"

#include <QUrl>

#include <condition_variable>
#include <mutex>
#include <thread>

class QNetworkAccessManager;
class QThread;

namespace discovery {

// One GET on `manager`, on the calling thread (the manager's), with its own event loop; a
// QThread::quit() of that thread ends it at once as cancelled. Defined in Network.cpp.
void performRequest(QNetworkAccessManager& manager, const QUrl& url, FetchResult& out);

// The result of a request that a stop ended before it finished.
FetchResult cancelledResult();

class NetworkSession {
public:
    NetworkSession();
    ~NetworkSession();
    NetworkSession(const NetworkSession&) = delete;
    NetworkSession& operator=(const NetworkSession&) = delete;

    // Blocks until the request has ended (cancelledResult() when a stop ended it).
    [[nodiscard]] FetchResult fetch(const QUrl& url);
    // Ends the network thread, cancelling a request in progress, and waits for it.
    void stop();

private:
    struct Job {
        QUrl url;
        FetchResult result;
        bool running = false;
        bool done = false;
    };
    void serve();

    std::mutex mutex_;
    std::condition_variable changed_;
    std::thread thread_;             // the current network thread; not joinable while stopped
    std::thread::id serving_;        // thread_'s id until a stop takes the thread away
    QThread* eventThread_ = nullptr; // Qt's object for the serving thread, while it serves
    Job* job_ = nullptr;             // the owner's request (on the owner's stack), until done
};

} // namespace discovery
