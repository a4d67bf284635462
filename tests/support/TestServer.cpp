#include "support/TestServer.h"
#include "support/ChildProcess.h"
#include "support/Sandbox.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>

namespace vltest {

TestServer::TestServer() : dir_(std::make_unique<QTemporaryDir>()) {}

TestServer::~TestServer() { stop(); }

QString TestServer::workDir() const { return dir_->path(); }

bool TestServer::setRoutes(const QJsonObject& routes)
{
    // Written to a side file and renamed, so a request never reads half a routes file.
    const QString path = workDir() + QStringLiteral("/routes.json");
    const QString part = path + QStringLiteral(".part");
    if (!Sandbox::writeFile(part, QJsonDocument(routes).toJson()))
        return false;
    QFile::remove(path);
    return QFile::rename(part, path);
}

bool TestServer::start(const TestServerOptions& options)
{
    stop();
    if (!dir_->isValid()) {
        error_ = QStringLiteral("no temporary folder");
        return false;
    }
    const QString root = options.root.isEmpty() ? workDir() + QStringLiteral("/root") : options.root;
    QDir().mkpath(root);
    QStringList args{QStringLiteral(VELMORA_SOURCE_DIR "/scripts/testserver.py"), QStringLiteral("--root"), root,
                     QStringLiteral("--routes"), workDir() + QStringLiteral("/routes.json"),
                     QStringLiteral("--log"), workDir() + QStringLiteral("/requests.log"),
                     QStringLiteral("--cert-dir"), workDir() + QStringLiteral("/certs")};
    if (options.strict)
        args << QStringLiteral("--strict");

    process_ = std::make_unique<ChildProcess>();
    ChildOptions childOptions;
    // A test that crashes must not leave its server running: the server ends with its parent.
    childOptions.endsWithParent = true;
    // A file, not a pipe: nobody reads the server's standard error while it runs.
    childOptions.standardErrorFile = workDir() + QStringLiteral("/server.err");
    if (!process_->start(QStringLiteral("/usr/bin/python3"), args, childOptions)) {
        error_ = process_->errorString();
        process_.reset();
        return false;
    }
    const std::optional<QByteArray> first = process_->readLine(15000);
    bool ok = false;
    port_ = first ? first->trimmed().toInt(&ok) : 0;
    if (!ok || port_ <= 0) {
        error_ = QStringLiteral("test server did not start: ")
            + QString::fromUtf8(Sandbox::readFile(workDir() + QStringLiteral("/server.err")));
        stop();
        return false;
    }
    return true;
}

void TestServer::stop()
{
    if (!process_)
        return;
    process_->terminate();
    if (!process_->waitForFinished(5000))
        process_->kill();
    process_.reset(); // reaps it
    port_ = 0;
}

bool TestServer::isRunning() const { return process_ && process_->isRunning(); }

QString TestServer::baseUrl() const { return QStringLiteral("https://127.0.0.1:%1").arg(port_); }

QString TestServer::caFile() const { return workDir() + QStringLiteral("/certs/ca.pem"); }

QList<ServedRequest> TestServer::requests() const
{
    QList<ServedRequest> out;
    const QByteArray text = Sandbox::readFile(workDir() + QStringLiteral("/requests.log"));
    for (const QByteArray& line : text.split('\n')) {
        const QJsonObject o = QJsonDocument::fromJson(line).object();
        if (!o.isEmpty())
            out.append({o.value(QStringLiteral("path")).toString(), o.value(QStringLiteral("target")).toString(),
                        o.value(QStringLiteral("unexpected")).toBool(), o});
    }
    return out;
}

QStringList TestServer::requestedPaths() const
{
    QStringList out;
    for (const ServedRequest& r : requests())
        out << r.path;
    return out;
}

QStringList TestServer::unexpectedRequests() const
{
    QStringList out;
    for (const ServedRequest& r : requests())
        if (r.unexpected)
            out << r.target;
    return out;
}

void TestServer::clearLog() { QFile::remove(workDir() + QStringLiteral("/requests.log")); }

} // namespace vltest
