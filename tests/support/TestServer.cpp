#include "support/TestServer.h"
#include "support/ChildProcess.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QJsonDocument>

#include <optional>

namespace vltest {

namespace {

QString readAll(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()) : QString();
}

// Reads one line from the server's standard output, waiting at most until `deadline`.
std::optional<QString> readLine(ChildProcess& process, const QDeadlineTimer& deadline)
{
    const std::optional<QByteArray> line = process.readLine(int(deadline.remainingTime()));
    if (!line)
        return std::nullopt;
    return QString::fromUtf8(*line).trimmed();
}

} // namespace

TestServer::TestServer() : dir_(std::make_unique<QTemporaryDir>()) {}

TestServer::~TestServer() { stop(); }

QString TestServer::scriptPath()
{
    return QStringLiteral(VELMORA_SOURCE_DIR "/scripts/testserver.py");
}

QString TestServer::workDir() const { return dir_->path(); }

bool TestServer::setRoutes(const QJsonObject& routes)
{
    // Written to a side file and renamed, so a request never reads half a routes file.
    const QString path = workDir() + QStringLiteral("/routes.json");
    const QString part = path + QStringLiteral(".part");
    QFile f(part);
    if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    f.write(QJsonDocument(routes).toJson());
    f.close();
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
    root_ = options.root.isEmpty() ? workDir() + QStringLiteral("/root") : options.root;
    certDir_ = options.certDir.isEmpty() ? workDir() + QStringLiteral("/certs") : options.certDir;
    QDir().mkpath(root_);
    QStringList args{scriptPath(), QStringLiteral("--root"), root_,
                     QStringLiteral("--routes"), workDir() + QStringLiteral("/routes.json"),
                     QStringLiteral("--log"), workDir() + QStringLiteral("/requests.log"),
                     QStringLiteral("--cert-dir"), certDir_,
                     QStringLiteral("--delay-ms"), QString::number(options.delayMs)};
    if (options.strict)
        args << QStringLiteral("--strict");
    if (options.alsoHttp)
        args << QStringLiteral("--also-http");

    process_ = std::make_unique<ChildProcess>();
    ChildOptions childOptions;
    // A test that crashes must not leave its server running: the server ends with its parent.
    childOptions.endsWithParent = true;
    childOptions.standardErrorFile = workDir() + QStringLiteral("/server.err");
    if (!process_->start(QStringLiteral("/usr/bin/python3"), args, childOptions)) {
        error_ = process_->errorString();
        process_.reset();
        return false;
    }
    const QDeadlineTimer deadline(15000);
    const auto first = readLine(*process_, deadline);
    bool ok = false;
    port_ = first ? first->toInt(&ok) : 0;
    if (!ok || port_ <= 0) {
        error_ = QStringLiteral("test server did not start: ") + serverErrors();
        stop();
        return false;
    }
    if (options.alsoHttp) {
        const auto second = readLine(*process_, deadline);
        httpPort_ = second ? second->section(QLatin1Char(' '), 1).toInt() : 0;
    }
    return true;
}

void TestServer::stop()
{
    if (!process_)
        return;
    if (process_->isRunning()) {
        process_->terminate();
        if (!process_->waitForFinished(5000)) {
            process_->kill();
            (void)process_->waitForFinished(5000);
        }
    }
    process_.reset();
    port_ = 0;
    httpPort_ = 0;
}

bool TestServer::isRunning() const
{
    return process_ && process_->isRunning();
}

QString TestServer::baseUrl() const
{
    return QStringLiteral("https://127.0.0.1:%1").arg(port_);
}

QString TestServer::httpBaseUrl() const
{
    return httpPort_ ? QStringLiteral("http://127.0.0.1:%1").arg(httpPort_) : QString();
}

QString TestServer::caFile() const { return certDir_ + QStringLiteral("/ca.pem"); }

QList<ServedRequest> TestServer::requests() const
{
    QList<ServedRequest> out;
    const QString text = readAll(workDir() + QStringLiteral("/requests.log"));
    for (const QString& line : text.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        const QJsonObject o = QJsonDocument::fromJson(line.toUtf8()).object();
        ServedRequest r;
        r.method = o.value(QStringLiteral("method")).toString();
        r.path = o.value(QStringLiteral("path")).toString();
        r.target = o.value(QStringLiteral("target")).toString();
        r.status = o.value(QStringLiteral("status")).toInt();
        r.unexpected = o.value(QStringLiteral("unexpected")).toBool();
        r.raw = o;
        out.append(r);
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

QString TestServer::serverErrors() const { return readAll(workDir() + QStringLiteral("/server.err")); }

} // namespace vltest
