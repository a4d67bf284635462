#include "platform/system/AccessManager.h"

#include "platform/system/ProcessThreads.h"

#include <QNetworkReply>

#include <mutex>
#include <utility>

namespace sys {
namespace {

// The name Qt gives a manager's connection thread, which the kernel keeps cut to 15 bytes.
constexpr char kConnectionThreadName[] = "QNetworkAccessManager thread";

std::mutex& endsInTurn()
{
    static std::mutex* const mutex = new std::mutex; // never destroyed: ends may run at exit
    return *mutex;
}

} // namespace

AccessManager::~AccessManager()
{
    // As the base destructor does first: replies go before the connections they used.
    const QList<QNetworkReply*> replies = findChildren<QNetworkReply*>();
    qDeleteAll(replies);
    endConnections();
}

void AccessManager::endConnections()
{
    if (!std::exchange(mayHaveThread_, false)) {
        clearConnectionCache();
        return;
    }
    const std::lock_guard turn(endsInTurn());
    const QList<pid_t> named = threadsNamed(kConnectionThreadName);
    clearConnectionCache();
    // Past the limit the thread is left to end on its own, as Qt itself leaves it.
    [[maybe_unused]] const bool ended = waitUntilOneEnds(named, kThreadEndLimit);
}

QNetworkReply* AccessManager::createRequest(Operation op, const QNetworkRequest& request, QIODevice* outgoingData)
{
    mayHaveThread_ = true;
    return QNetworkAccessManager::createRequest(op, request, outgoingData);
}

} // namespace sys
