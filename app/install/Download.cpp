#include "install/Download.h"

#include "install/SourceDecoder.h"
#include "platform/system/AccessManager.h"
#include "platform/system/FileTree.h"
#include "platform/system/PrivateFolder.h"
#include "platform/system/SystemEnvironment.h"

#include <QFile>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSslConfiguration>
#include <QTimer>
#include <QUrl>

namespace {

// Bounds what Qt buffers ahead of us, so memory stays flat for any download size.
constexpr qint64 kReadBufferSize = 1 << 20;
constexpr qint64 kReadChunk = 256 * 1024;

// The platform's wording of the common transport failures; Qt's own text otherwise.
QString describeNetworkError(QNetworkReply* reply)
{
    switch (reply->error()) {
    case QNetworkReply::TimeoutError:
    case QNetworkReply::OperationCanceledError:
        return QStringLiteral("The request timed out.");
    case QNetworkReply::RemoteHostClosedError:
        return QStringLiteral("The network connection was lost.");
    case QNetworkReply::HostNotFoundError:
        return QStringLiteral("A server with the specified hostname could not be found.");
    case QNetworkReply::ConnectionRefusedError:
        return QStringLiteral("Could not connect to the server.");
    case QNetworkReply::SslHandshakeFailedError:
        return QStringLiteral("An SSL error has occurred and a secure connection to the server cannot be made.");
    default:
        return reply->errorString();
    }
}

QString bareMimeType(const QVariant& contentType)
{
    return contentType.toString().section(QLatin1Char(';'), 0, 0).trimmed().toLower();
}

} // namespace

std::unique_ptr<Download> Download::create(const QString& url, int timeoutSeconds, Delegate delegate)
{
    const QUrl parsed(url, QUrl::StrictMode);
    const QString scheme = parsed.scheme().toLower();
    if (!parsed.isValid() || parsed.host().isEmpty() || (scheme != QStringLiteral("http") && scheme != QStringLiteral("https")))
        return nullptr;
    return std::unique_ptr<Download>(new Download(url, timeoutSeconds, std::move(delegate)));
}

Download::Download(const QString& url, int timeoutSeconds, Delegate delegate)
    : url_(url), timeoutSeconds_(timeoutSeconds), delegate_(std::move(delegate)), manager_(new sys::AccessManager)
{
}

Download::~Download()
{
    stopReply();
    if (!ended_ && deletesFileUponFailure_)
        discardFile();
    // The reply may be emitting the signal that led here: release it from the event loop.
    manager_->deleteLater();
}

void Download::setDestination(const QString& path, bool allowOverwrite)
{
    destination_ = path;
    // A link at the name, dangling or not, is replaced itself; its target is never touched.
    if (allowOverwrite && sys::filetree::exists(path))
        QFile::remove(path);
}

void Download::start()
{
    QNetworkRequest request{QUrl(url_)};
    request.setTransferTimeout(timeoutSeconds_ * 1000);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
    // Bytes on the wire are the bytes stored; a transparently inflated body would break the
    // length check and the progress.
    request.setRawHeader("Accept-Encoding", "identity");
    const QString caFile = sys::extraCertificateAuthorities();
    if (!caFile.isEmpty()) {
        QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
        tls.addCaCertificates(caFile);
        request.setSslConfiguration(tls);
    }
    reply_ = manager_->get(request);
    reply_->setReadBufferSize(kReadBufferSize);
    QObject::connect(reply_, &QNetworkReply::metaDataChanged, manager_, [this] { onMetaData(); });
    QObject::connect(reply_, &QNetworkReply::readyRead, manager_, [this] { onReadyRead(); });
    QObject::connect(reply_, &QNetworkReply::finished, manager_, [this] { onFinished(); });
}

void Download::cancel()
{
    if (ended_)
        return;
    ended_ = true;
    stopReply();
    if (deletesFileUponFailure_)
        discardFile();
}

void Download::stopReply()
{
    if (!reply_)
        return;
    reply_->disconnect();
    // We may be inside one of the reply's own signals: abort it from the event loop, and
    // not at all once it is gone.
    if (reply_->isRunning())
        QTimer::singleShot(0, reply_, &QNetworkReply::abort);
}

void Download::discardFile()
{
    if (file_) {
        file_->close();
        file_.reset();
    }
    if (!destination_.isEmpty() && responseDelivered_)
        QFile::remove(destination_);
}

void Download::failWith(const QString& description)
{
    ended_ = true;
    stopReply();
    if (deletesFileUponFailure_)
        discardFile();
    // The delegate may destroy this object, and with it delegate_: call a copy that outlives it.
    if (const auto didFail = delegate_.didFail)
        didFail(description);
}

void Download::onMetaData()
{
    // Redirect responses are followed by the manager; only the final response counts.
    const int status = reply_->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    if (status >= 300 && status < 400 && reply_->hasRawHeader("Location"))
        return;
    deliverResponse();
}

bool Download::deliverResponse()
{
    if (responseDelivered_)
        return true;
    if (ended_)
        return false;
    responseDelivered_ = true;
    UrlResponseInfo info;
    info.url = reply_->url().toString();
    info.statusCode = reply_->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    const QVariant length = reply_->header(QNetworkRequest::ContentLengthHeader);
    info.expectedLength = length.isValid() ? length.toLongLong() : -1;
    info.mimeType = bareMimeType(reply_->header(QNetworkRequest::ContentTypeHeader));
    expectedLength_ = info.expectedLength;

    if (info.statusCode >= 400) {
        failWith(QStringLiteral("The server answered with HTTP status %1.").arg(info.statusCode));
        return false;
    }
    if (delegate_.shouldDecodeSourceDataOfMIMEType && delegate_.shouldDecodeSourceDataOfMIMEType(info.mimeType))
        decoder_ = install::decoderForMIMEType(info.mimeType);
    file_ = sys::openForWritingNoFollow(destination_, nullptr);
    if (!file_) {
        failWith(QStringLiteral("The file could not be written to %1.").arg(destination_));
        return false;
    }
    if (delegate_.didReceiveResponse)
        delegate_.didReceiveResponse(info);
    return !ended_;
}

bool Download::writeBody(const QByteArray& raw)
{
    QByteArray decoded;
    const QByteArray* toWrite = &raw;
    if (decoder_) {
        if (!decoder_->feed(raw, decoded)) {
            failWith(decoder_->error());
            return false;
        }
        toWrite = &decoded;
    }
    if (!toWrite->isEmpty() && file_->write(*toWrite) != toWrite->size()) {
        failWith(QStringLiteral("The file could not be written to %1.").arg(destination_));
        return false;
    }
    return true;
}

void Download::onReadyRead()
{
    if (ended_ || !deliverResponse())
        return;
    while (!ended_ && reply_->bytesAvailable() > 0) {
        const QByteArray chunk = reply_->read(kReadChunk);
        if (chunk.isEmpty())
            break;
        received_ += chunk.size();
        if (!writeBody(chunk))
            return;
        if (delegate_.didReceiveDataOfLength)
            delegate_.didReceiveDataOfLength(quint64(chunk.size()));
    }
}

void Download::onFinished()
{
    if (ended_)
        return;
    if (reply_->error() != QNetworkReply::NoError) {
        failWith(describeNetworkError(reply_));
        return;
    }
    if (!deliverResponse())
        return;
    onReadyRead();
    if (ended_)
        return;
    if (expectedLength_ >= 0 && received_ != expectedLength_) {
        failWith(QStringLiteral("The network connection was lost."));
        return;
    }
    if (decoder_ && !decoder_->finish()) {
        failWith(decoder_->error());
        return;
    }
    if (!file_->flush()) {
        failWith(QStringLiteral("The file could not be written to %1.").arg(destination_));
        return;
    }
    file_->close();
    ended_ = true;
    // The delegate may destroy this object, and with it delegate_: call a copy that outlives it.
    if (const auto didFinish = delegate_.didFinish)
        didFinish();
}
