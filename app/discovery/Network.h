#pragma once
// The feed download behind AppController::dataFromURLSync: one blocking GET of a URL's body.
//
// Each call runs on a network thread of its own (a QThread with its own access manager and
// event loop), so it never needs the caller's event loop and may be called from any thread;
// the caller blocks until the request has ended. The session is ephemeral: no cache, no
// cookies or credentials survive the call, and an authentication challenge is not answered.
// Redirects are followed (at most kMaxRedirects, never from HTTPS down to HTTP), each one
// logged as "Site requested redirect to %@". HTTPS trusts the system's authorities plus
// those of VELMORA_CA_FILE. An HTTP error status is not a failure: the body is returned as
// the server sent it, as a URL session does.
//
// Limits that keep a hostile or broken server from hanging the updater or filling memory:
// a request during which no data moves for transferTimeoutMs() (60 s) fails with "The
// request timed out.", and a body larger than kMaxBodyBytes (64 MiB) fails with "The
// response is too large." as soon as the size is known or exceeded.

#include "AppController.h"

#include <QByteArray>
#include <QString>

#include <optional>

namespace discovery {

inline constexpr int kMaxRedirects = 16;
inline constexpr qint64 kMaxBodyBytes = 64LL * 1024 * 1024;

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

// The stall time-out in milliseconds: 60000 unless a test shortened it.
int transferTimeoutMs();
// Tests only: sets the stall time-out (milliseconds); 0 restores the default.
void setTransferTimeoutMsForTesting(int ms);

} // namespace discovery
