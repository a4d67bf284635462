#pragma once
// The feed download behind AppController::dataFromURLSync: one blocking GET of a URL's body.
//
// Each calling thread has a network thread of its own (with its own access manager and
// event loop), so a call never needs the caller's event loop and may be made from any
// thread; the caller blocks until the request has ended. The network thread and its access
// manager are kept for the calling thread's next request, so a worker's requests to one
// server go over one kept-alive connection; nothing else is kept: no cache, no cookies or
// credentials survive a call, and an authentication challenge is not answered. The network
// thread ends with its calling thread, or earlier through stopNetworkThreads().
// Redirects are followed (at most kMaxRedirects, never from HTTPS down to HTTP), each one
// logged as "Site requested redirect to %@". HTTPS trusts the system's authorities plus
// those of VELMORA_CA_FILE. An HTTP error status is not a failure: the body is returned as
// the server sent it, as a URL session does.
//
// Limits that keep a hostile or broken server from hanging the updater or filling memory:
// a request during which no data moves for kTransferTimeoutMs (60 s) fails with "The
// request timed out.", and a body larger than kMaxBodyBytes (64 MiB) fails with "The
// response is too large." as soon as the size is known or exceeded.

#include "AppController.h"

#include <QByteArray>
#include <QString>

#include <optional>

namespace discovery {

inline constexpr int kMaxRedirects = 16;
inline constexpr qint64 kMaxBodyBytes = 64LL * 1024 * 1024;
inline constexpr int kTransferTimeoutMs = 60000;

struct FetchResult {
    std::optional<QByteArray> data;  // nullopt on error
    UrlResponseInfo response;
    QString errorDescription;        // the localized description; empty on success
    int errorCode = 0;               // QNetworkReply::NetworkError, or -1 for our own limits
    // The error as one text, "Error Domain=QNetworkReply Code=%d \"%@\"" (as an error
    // object describes itself).
    QString errorText() const;
};

[[nodiscard]] FetchResult fetchURL(const QString& url);

// Stops every network thread of the process, and waits for them, before an exit path lets
// static destructors and exit hooks run; the application object's destructor runs it too.
// A request in progress on another thread ends with "cancelled"
// (QNetworkReply::OperationCanceledError); a later request starts its calling thread's
// network thread again. Any thread except a network thread.
void stopNetworkThreads();

} // namespace discovery
