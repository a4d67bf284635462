// AppController::dataFromURLSync and dictionaryFromData, and the fetch behind them: the
// address check and one request on a session's access manager (the session: NetworkSession).

#include "Network.h"
#include "NetworkSession.h"

#include "platform/foundation/Foundation.h"
#include "platform/plist/PropertyList.h"
#include "platform/system/SystemEnvironment.h"
#include "shared/VLLog.h"

#include <QEventLoop>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSslConfiguration>
#include <QStringDecoder>
#include <QUrl>

#include <memory>

namespace discovery {
namespace {

// How much of an undecodable body the conversion error shows: enough to recognise an error
// page, bounded so that a huge body cannot flood the log and standard output.
constexpr qsizetype kShownDataBytes = 512;

bool isHttpStatusError(QNetworkReply::NetworkError e)
{
    return (e >= QNetworkReply::ContentAccessDenied && e <= QNetworkReply::UnknownContentError)
        || (e >= QNetworkReply::InternalServerError && e <= QNetworkReply::UnknownServerError);
}

QNetworkRequest makeRequest(const QUrl& url)
{
    QNetworkRequest request(url);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
    request.setMaximumRedirectsAllowed(kMaxRedirects);
    request.setTransferTimeout(kTransferTimeoutMs);
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute, QNetworkRequest::AlwaysNetwork);
    request.setAttribute(QNetworkRequest::CacheSaveControlAttribute, false);
    request.setAttribute(QNetworkRequest::CookieLoadControlAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::CookieSaveControlAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::AuthenticationReuseAttribute, QNetworkRequest::Manual);
    QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
    const QString extraCAs = sys::extraCertificateAuthorities();
    if (!extraCAs.isEmpty() && !tls.addCaCertificates(extraCAs))
        VLLog::appendLog(QStringLiteral("Unable to read certificate authorities from %@"), extraCAs);
    request.setSslConfiguration(tls);
    return request;
}

UrlResponseInfo responseOf(QNetworkReply& reply)
{
    UrlResponseInfo info;
    info.url = reply.url().toString();
    info.statusCode = reply.attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    const QVariant length = reply.header(QNetworkRequest::ContentLengthHeader);
    info.expectedLength = length.isValid() ? length.toLongLong() : -1;
    info.mimeType = reply.header(QNetworkRequest::ContentTypeHeader).toString().section(QLatin1Char(';'), 0, 0).trimmed();
    return info;
}

} // namespace

void performRequest(QNetworkAccessManager& manager, const QUrl& url, FetchResult& out)
{
    std::unique_ptr<QNetworkReply> reply(manager.get(makeRequest(url)));
    QByteArray body;
    bool tooLarge = false;
    QUrl current = url;
    QObject::connect(reply.get(), &QNetworkReply::redirected, [&](const QUrl& target) {
        current = current.resolved(target);
        VLLog::appendLog(QStringLiteral("Site requested redirect to %@"), current.toString());
    });
    auto refuseLarge = [&] {
        tooLarge = true;
        reply->abort();
    };
    QObject::connect(reply.get(), &QNetworkReply::metaDataChanged, [&] {
        const QVariant length = reply->header(QNetworkRequest::ContentLengthHeader);
        if (length.isValid() && length.toLongLong() > kMaxBodyBytes)
            refuseLarge();
    });
    QObject::connect(reply.get(), &QNetworkReply::readyRead, [&] {
        body += reply->read(kMaxBodyBytes + 1 - body.size());
        if (body.size() > kMaxBodyBytes)
            refuseLarge();
    });
    QEventLoop loop;
    QObject::connect(reply.get(), &QNetworkReply::finished, &loop, &QEventLoop::quit);
    if (!reply->isFinished())
        loop.exec();
    if (!reply->isFinished()) {
        // The network thread was stopped (an exit path): the request goes unanswered.
        out = cancelledResult();
        return;
    }
    if (!tooLarge && reply->isOpen())
        body += reply->read(kMaxBodyBytes + 1 - body.size());
    out.response = responseOf(*reply);

    const QNetworkReply::NetworkError error = reply->error();
    if (tooLarge || body.size() > kMaxBodyBytes) {
        out.errorCode = -1;
        out.errorDescription = QStringLiteral("The response is too large.");
    } else if (error == QNetworkReply::OperationCanceledError || error == QNetworkReply::TimeoutError) {
        out.errorCode = QNetworkReply::TimeoutError;
        out.errorDescription = QStringLiteral("The request timed out.");
    } else if (error != QNetworkReply::NoError && !(out.response.statusCode > 0 && isHttpStatusError(error))) {
        out.errorCode = error;
        out.errorDescription = reply->errorString();
    } else {
        out.data = body;
    }
}

QString FetchResult::errorText() const
{
    return QStringLiteral("Error Domain=QNetworkReply Code=%1 \"%2\"").arg(errorCode).arg(errorDescription);
}

FetchResult fetchURL(const QString& address)
{
    FetchResult result;
    const QUrl url(address, QUrl::StrictMode);
    const QString scheme = url.scheme().toLower();
    if (!fnd::isValidURLString(address) || !url.isValid()
        || (scheme != QLatin1String("https") && scheme != QLatin1String("http")) || url.host().isEmpty()) {
        result.errorCode = QNetworkReply::ProtocolUnknownError;
        result.errorDescription = QStringLiteral("unsupported URL");
        return result;
    }
    // Each calling thread keeps its own network thread; it ends with the calling thread.
    thread_local std::unique_ptr<NetworkSession> session;
    if (!session)
        session = std::make_unique<NetworkSession>();
    return session->fetch(url);
}

} // namespace discovery

QString UrlResponseInfo::description() const
{
    return fnd::format(QStringLiteral("<URLResponse> { URL: %@ } { Status Code: %li, Expected Length: %lli, MIME Type: %@ }"),
                       url, statusCode, expectedLength, mimeType);
}

std::optional<QByteArray> AppController::dataFromURLSync(const QString& url, UrlResponseInfo* response, QString* error)
{
    discovery::FetchResult result = discovery::fetchURL(url);
    if (response)
        *response = result.response;
    if (error)
        *error = result.errorDescription;
    return result.data;
}

std::optional<QVariant> AppController::dictionaryFromData(const std::optional<QByteArray>& data, QString* decodeError)
{
    if (!data)
        return std::nullopt;
    QString error;
    std::optional<QVariant> value = plist::read(*data, &error);
    if (value)
        return value;
    if (decodeError)
        *decodeError = error;
    const QByteArray shown = data->left(discovery::kShownDataBytes);
    const QString more = data->size() > shown.size()
        ? fnd::format(QStringLiteral(" ... (%lli bytes in all)"), qint64(data->size()))
        : QString();
    QStringDecoder utf8(QStringDecoder::Utf8);
    QString text = utf8.decode(shown);
    const QVariant textValue = utf8.hasError() && shown.size() == data->size() ? QVariant() : QVariant(text + more);
    VLLog::appendLogAndPrint(QStringLiteral("Error converting data: %@"), error);
    VLLog::appendLogAndPrint(QStringLiteral("Data: %@%@"), QVariant(shown), more);
    VLLog::appendLogAndPrint(QStringLiteral("Data String: %@"), textValue);
    return std::nullopt;
}
