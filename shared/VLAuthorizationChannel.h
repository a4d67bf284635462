#pragma once
// VLAuthorizationChannel: VLAuthorization's end of the conversation with its privileged tool
// runner (PrivilegedToolRunner, found beside the running executable), started through pkexec.
// Opening it is the one password prompt of the process; while it is open every request runs
// with the rights obtained then. The conversation is described in VLAuthorizationProtocol.h.
//
// Lifecycle: closed until open() succeeds; open until close() or until the runner goes away
// (a request then fails and the channel is closed). The runner ends when the channel is closed
// or when this process ends, however it ends.
// Threads: not thread-safe; VLAuthorization serialises every call with one mutex.

#include "shared/VLAuthorizationProtocol.h"

#include <QString>
#include <QStringList>

#include <sys/types.h>

class VLAuthorizationChannel {
public:
    VLAuthorizationChannel() = default;
    ~VLAuthorizationChannel() { close(); }
    VLAuthorizationChannel(const VLAuthorizationChannel&) = delete;
    VLAuthorizationChannel& operator=(const VLAuthorizationChannel&) = delete;

    // The runner: PrivilegedToolRunner in the folder of the running executable.
    static QString runnerPath();

    // Starts `pkexec runnerPath()` and waits until the runner reports that it runs with the
    // rights (the user answers the prompt meanwhile). false, with the reason in `why`, when the
    // prompt was refused or cancelled or the runner could not be started.
    [[nodiscard]] bool open(const QString& pkexecPath, QString* why);
    bool isOpen() const { return socket_ >= 0; }
    void close();

    // Runs the tool through the runner; `wait` waits until it has exited. Returns the runner's
    // answer ("started", "exited" or "failed" with its detail), or an empty message when the
    // runner has gone away (the channel is then closed).
    [[nodiscard]] vlauth::Message run(const QString& toolPath, const QStringList& arguments, bool wait);

private:
    [[nodiscard]] bool send(const vlauth::Message& message);
    [[nodiscard]] std::optional<vlauth::Message> receive();

    int socket_ = -1;  // our end of the socket pair; the runner holds the other
    pid_t pkexec_ = 0; // the pkexec we started (with the real one, the runner itself)
    std::string inbound_;
};
