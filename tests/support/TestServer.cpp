#include "support/TestServer.h"
#include "support/ChildProcess.h"
#include "support/Sandbox.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>

#include <cstdio>

namespace vltest {

TestServer::TestServer() : dir_(std::make_unique<QTemporaryDir>()) {}

TestServer::~TestServer() { stop(); }

QString TestServer::file(const char* name) const { return dir_->filePath(QLatin1String(name)); }

bool TestServer::setRoutes(const QJsonObject& routes)
{
    // Written to a side file and renamed, so a request never reads half a routes file.
    return Sandbox::writeFile(file("routes.part"), QJsonDocument(routes).toJson())
        && ::rename(QFile::encodeName(file("routes.part")).constData(), QFile::encodeName(file("routes.json")).constData()) == 0;
}

bool TestServer::start(const TestServerOptions& options)
{
    stop();
    const QString root = options.root.isEmpty() ? file("root") : options.root;
    if (!dir_->isValid() || !QDir().mkpath(root)) {
        error_ = QStringLiteral("no temporary folder");
        return false;
    }
    QStringList args{QStringLiteral(VELMORA_SOURCE_DIR "/scripts/testserver.py"), QStringLiteral("--root"), root,
                     QStringLiteral("--routes"), file("routes.json"), QStringLiteral("--log"), file("requests.log"),
                     QStringLiteral("--cert-dir"), file("certs")};
    if (options.strict)
        args << QStringLiteral("--strict");
    process_ = std::make_unique<ChildProcess>();
    // A test that crashes must not leave its server running: the server ends with its parent.
    // Standard error goes to a file, not a pipe: nobody reads it while the server runs.
    if (!process_->start(QStringLiteral("/usr/bin/python3"), args, {.standardErrorFile = file("server.err"), .endsWithParent = true})) {
        error_ = process_->errorString();
        process_.reset();
        return false;
    }
    bool ok = false;
    port_ = process_->readLine(15000).value_or(QByteArray()).trimmed().toInt(&ok);
    if (!ok || port_ <= 0) {
        error_ = QStringLiteral("test server did not start: ") + QString::fromUtf8(Sandbox::readFile(file("server.err")));
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
    (void)process_->waitForFinished(5000);
    process_.reset(); // kills and reaps it
    port_ = 0;
}

bool TestServer::isRunning() const { return process_ && process_->isRunning(); }

QString TestServer::baseUrl() const { return QStringLiteral("https://127.0.0.1:%1").arg(port_); }

QString TestServer::caFile() const { return file("certs/ca.pem"); }

QList<ServedRequest> TestServer::requests() const
{
    QList<ServedRequest> out;
    for (const QByteArray& line : Sandbox::readFile(file("requests.log")).split('\n')) {
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

void TestServer::clearLog() { QFile::remove(file("requests.log")); }

} // namespace vltest
