#pragma once
// DiscoveryFixture: a fresh log, HOME, TMPDIR and system root, one local HTTPS server per test
// suite serving the feeds folder and named as update server, web site and CA, and a windowed
// controller (so exceptions return instead of ending the test process).
//
// Lifecycle: one per test, on the main thread; the server lives for the test suite.

#include "AppController.h"
#include "UpdateRecord.h"
#include "platform/plist/PropertyList.h"
#include "platform/system/UserDefaults.h"
#include "support/LogFixture.h"
#include "support/QtPrinters.h"
#include "support/ScopedEnvironment.h"
#include "support/TestServer.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonObject>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <memory>

namespace vltest {

class DiscoveryFixture : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        feeds_ = std::make_unique<QTemporaryDir>();
        server_ = std::make_unique<TestServer>();
        TestServerOptions options;
        options.root = feeds_->path();
        options.strict = false;
        ASSERT_TRUE(server_->start(options)) << server_->errorString().toStdString();
    }
    static void TearDownTestSuite()
    {
        server_.reset();
        feeds_.reset();
    }
    void SetUp() override
    {
        ASSERT_TRUE(server_ && server_->isRunning());
        env_.set("TMPDIR", log_.path(QStringLiteral("tmp")));
        QDir().mkpath(log_.path(QStringLiteral("tmp")));
        env_.set("VELMORA_UPDATE_SERVER", server_->baseUrl());
        env_.set("VELMORA_WEB_SITE", server_->baseUrl() + QStringLiteral("/"));
        env_.set("VELMORA_CA_FILE", server_->caFile());
        (void)server_->setRoutes({});
        server_->clearLog();
        controller_ = AppController::init();
    }
    void TearDown() override
    {
        controller_.reset();
        for (const char* key : {"testURL", "showBetaUpdates"})
            sys::UserDefaults::standard().removeObjectForKey(QString::fromLatin1(key));
    }

    static QString feedURL(const QString& path) { return server_->url(path); }
    static void writeFile(const QString& file, const QByteArray& bytes)
    {
        QDir().mkpath(QFileInfo(file).path());
        QFile out(file);
        ASSERT_TRUE(out.open(QIODevice::WriteOnly | QIODevice::Truncate) && out.write(bytes) == bytes.size());
    }
    static void writeFeed(const QString& path, const QByteArray& bytes) { writeFile(feeds_->path() + path, bytes); }
    static void writePlistFeed(const QString& path, const QVariant& value) { writeFeed(path, plist::writeXml(value)); }
    static QByteArray corpusFeed(const QString& name)
    {
        QFile file(QStringLiteral(VELMORA_CORPUS_DIR "/appcasts/") + name);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
    QString sysPath(const QString& absolute) const { return log_.path(QStringLiteral("sysroot")) + absolute; }

    // A vendor bundle: Info.plist with identifier and build, and the descriptor when given.
    static QString makeBundle(const QString& path, const QString& identifier, const QString& version,
                              const std::optional<QVariantMap>& descriptor)
    {
        writeFile(path + QStringLiteral("/Contents/Info.plist"),
                  plist::writeXml(QVariantMap{{QStringLiteral("CFBundleIdentifier"), identifier}, {QStringLiteral("CFBundleVersion"), version}}));
        if (descriptor)
            writeFile(path + QStringLiteral("/Contents/Resources/VLUpdates.plist"), plist::writeXml(*descriptor));
        return path;
    }

    LogFixture log_;
    ScopedEnvironment env_;
    std::unique_ptr<AppController> controller_;
    static inline std::unique_ptr<QTemporaryDir> feeds_;
    static inline std::unique_ptr<TestServer> server_;
};

} // namespace vltest
