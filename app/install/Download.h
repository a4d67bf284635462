#pragma once
// Download: the running download of one update file, on Qt Network. The delegate hears, in
// this order, the response, then each piece of data as it is written, then exactly one of
// finish or failure; after cancel() it hears nothing more. The body goes straight to the
// destination file as it arrives (at most one read buffer is held), MacBinary and BinHex
// bodies decoded to their data fork on the way. On failure or cancellation the partial file
// is removed (setDeletesFileUponFailure, on by default), so nothing of it is left behind.
//
// Failures beyond the transport's own: an HTTP status of 400 or more (an error page is never
// stored as the update), a body shorter or longer than the announced length, a body the
// decoder rejects, and a destination that cannot be written (a symbolic link at the
// destination's name is never written through; the destination's folder must exist).
//
// Lifecycle: created by create(), configured, start()ed once. The delegate may destroy the
// object from inside didFinish/didFail (the object touches nothing of itself after calling
// them); its network objects are released through the owning thread's event loop.
// Threads: every member, and every delegate call, on the thread that created it, which must
// turn an event loop while the download runs.

#include "AppController.h"

#include <QString>

#include <functional>
#include <memory>

class QFile;
class QNetworkAccessManager;
class QNetworkReply;
namespace install {
class SourceDecoder;
}

class Download {
public:
    struct Delegate {
        std::function<void(const UrlResponseInfo& response)> didReceiveResponse;
        std::function<void(quint64 length)> didReceiveDataOfLength;
        std::function<void()> didFinish;
        std::function<void(const QString& localizedDescription)> didFail;
        // The decoding decision for a response's MIME type (lower case, no parameters).
        std::function<bool(const QString& mimeType)> shouldDecodeSourceDataOfMIMEType;
    };

    // nullptr when the address is not an http(s) URL, as the platform's download cannot be
    // created for it. The time-out is the transfer time-out: the longest silence allowed.
    [[nodiscard]] static std::unique_ptr<Download> create(const QString& url, int timeoutSeconds, Delegate delegate);
    ~Download();
    Download(const Download&) = delete;
    Download& operator=(const Download&) = delete;

    void setDestination(const QString& path, bool allowOverwrite);
    void setDeletesFileUponFailure(bool deletes) { deletesFileUponFailure_ = deletes; }
    // Sends the request. The destination must be set.
    void start();
    void cancel();

    QString destination() const { return destination_; }

private:
    Download(const QString& url, int timeoutSeconds, Delegate delegate);

    void onMetaData();
    void onReadyRead();
    void onFinished();
    // true once the response was handed over; false when the download failed doing it.
    bool deliverResponse();
    bool writeBody(const QByteArray& raw);
    void failWith(const QString& description);
    void discardFile();
    void stopReply();

    QString url_;
    int timeoutSeconds_;
    Delegate delegate_;
    QString destination_;
    bool deletesFileUponFailure_ = true;
    bool responseDelivered_ = false;
    bool ended_ = false;
    qint64 expectedLength_ = -1;
    qint64 received_ = 0;
    QNetworkAccessManager* manager_ = nullptr; // owned (a sys::AccessManager); released with deleteLater
    QNetworkReply* reply_ = nullptr;           // child of manager_
    std::unique_ptr<QFile> file_;
    std::unique_ptr<install::SourceDecoder> decoder_;
};
