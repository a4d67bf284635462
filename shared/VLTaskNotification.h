#pragma once
// VLTaskNotification: tells the vendor client application that started a windowless run
// how the run progresses (progress steps, errors, the end of the task).
//
// Transport (details in docs/notifications.md): the client listens on a local socket named
// after a registered connection, "VLTesselCallback" first, else "VLHarrowClientCallback"
// (QLocalServer names, so the socket lies in the temporary folder that TMPDIR selects). Each
// post connects, reads the client's "implements ..." line, sends one message line
//   <message name> <JSON array of arguments>
// waits for the client's "ok" line, sleeps 15 ms and disconnects. A message the client does
// not implement is not sent (an error falls back to the shorter form). With no client
// listening nothing is sent and nothing sleeps. Every wait has a time-out (replyTimeoutMs),
// so a stuck client delays the caller but never hangs it.
//
// Static members only, no state; callable from any thread (each call makes its own socket).
// Failures are never reported to the caller: a missing client is normal, anything else is
// logged as "Exception in +[VLTaskNotification <operation>]...".

#include <QString>
#include <QStringList>
#include <QVariantMap>

class VLTaskNotification {
public:
    VLTaskNotification() = delete;

    // Remote message "incrementRemoteProgress".
    static void postIncrementProgress();
    // Remote message "postFinishedTask".
    static void postTaskFinished();
    // An error object: "postError:forApp:" [ {"description", "userInfo"}, process name ] when the
    // client implements it, else "postError:" [ {"description", "userInfo"} ].
    static void postTaskError(const QString& description, const QVariantMap& userInfo = {});
    // "postErrorString:userInfo:" [ text, {"appName": process name} ] when implemented,
    // else "postErrorString:" [ text ].
    static void postTaskErrorString(const QString& text);
    // Remote message "postDisconnect".
    static void postDisconnect();

    // The registered connection names, in the order they are tried.
    static QStringList connectionNames();
    // Longest wait for the client's "implements" line and for its "ok" answer.
    static constexpr int replyTimeoutMs = 2000;
    // Pause after the round trip before the connection is released.
    static constexpr int settleDelayMs = 15;
};
