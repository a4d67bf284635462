#pragma once
// TestServer: runs scripts/testserver.py (a local HTTPS server on 127.0.0.1) for one test.
//
// Lifecycle: construct, optionally write routes, start(), use baseUrl()/caFile(), read the
// request log; the destructor stops it. The server process, its certificates and its log live
// in a private temporary folder removed on destruction.
// One thread at a time (the test's thread).
//
// Routes are a JSON object {"<path or glob>": {behaviour...}}; see the head of
// scripts/testserver.py for every behaviour (file, body, status, redirect, delay_ms, length
// "chunked"/"close", drop_after, short_by, stall_after, endless, hang, headers, content_type). The routes
// file is re-read on every request, so setRoutes() also works while the server runs.
//
// Expected requests are those matching a route or naming an existing file under the served
// folder; any other request is logged as unexpected and answered 599 in strict mode (404
// otherwise), so a test can assert that nothing else was asked for.

#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <memory>

namespace vltest {

class ChildProcess;

struct TestServerOptions {
    QString root;               // folder served; empty: the server's own empty folder
    bool strict = true;         // unexpected paths answer 599
};

// One line of the request log.
struct ServedRequest {
    QString path;      // without the query
    QString target;    // as requested, with the query
    bool unexpected = false;
    QJsonObject raw;   // the whole line (headers, client port...: see testserver.py)
};

class TestServer {
public:
    TestServer();
    ~TestServer();
    TestServer(const TestServer&) = delete;
    TestServer& operator=(const TestServer&) = delete;

    // Replaces the routes (may be called before or after start()).
    [[nodiscard]] bool setRoutes(const QJsonObject& routes);
    // Starts the server; false (with errorString()) when it did not come up within 15 s.
    [[nodiscard]] bool start(const TestServerOptions& options = {});
    bool isRunning() const;
    QString errorString() const { return error_; }

    QString baseUrl() const;       // "https://127.0.0.1:<port>", no trailing slash
    QString url(const QString& path) const { return baseUrl() + path; }
    QString caFile() const;        // PEM of the test certificate authority

    // Every request so far, in arrival order.
    QList<ServedRequest> requests() const;
    QStringList requestedPaths() const;
    QStringList unexpectedRequests() const; // targets of unexpected requests
    void clearLog();

private:
    void stop();
    QString file(const char* name) const; // in the private folder: certificates, log, routes, standard error

    std::unique_ptr<QTemporaryDir> dir_;
    std::unique_ptr<ChildProcess> process_;
    QString error_;
    int port_ = 0;
};

} // namespace vltest
