#pragma once
// EndToEnd: what a test of the built updater starts from: a sandbox with the fake system
// tools, the local HTTPS server serving <sandbox>/srv (a missing file answers 404, as a web
// server does), and the vendor client listening for notifications. Its helpers publish what
// the server sends, shaped as the server shapes it, and read back what a run left behind.
// One per test, on the test's thread.

#include "support/NotificationListener.h"
#include "support/QtPrinters.h"
#include "support/Sandbox.h"
#include "support/TestServer.h"

#include <QCryptographicHash>
#include <QDeadlineTimer>
#include <QRegularExpression>
#include <QThread>
#include <gtest/gtest.h>

#include <functional>

namespace e2e {

// Polls `done` for at most ten seconds; whether it held.
inline bool waitFor(const std::function<bool()>& done)
{
    const QDeadlineTimer guard(10000);
    while (!done() && !guard.hasExpired())
        QThread::msleep(20);
    return done();
}

const QString kOwnId = QStringLiteral("com.velmora.SoftwareUpdate");

class EndToEnd : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(sb_.isValid() && sb_.installFakeTools());
        // The machine's log folder, where a run as root writes its log.
        ASSERT_TRUE(sb_.makeDir(sb_.sysPath(QStringLiteral("/Library/Logs/Velmora"))));
        ASSERT_TRUE(server_.start({srv(), false})) << server_.errorString().toStdString();
        sb_.useServer(server_);
        ASSERT_TRUE(client_.start());
    }

    QString srv(const QString& relative = {}) const { return sb_.root() + QStringLiteral("/srv/") + relative; }
    QString tempFolder() const { return sb_.tmpPath(QStringLiteral("Velmora Update Temp")); }
    static QString sha1(const QByteArray& bytes)
    {
        return QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Sha1).toHex());
    }

    // The property list the server publishes for `id` (a -install record, or the self feed).
    void publish(const QString& id, const QVariantMap& record)
    {
        ASSERT_TRUE(sb_.writePlist(srv(QStringLiteral("rss/appcasts/%1.xml").arg(id)), record));
    }
    // The updater's own feed offering build `build` (the built updater is build 100).
    void publishSelf(int build)
    {
        publish(kOwnId, {{QStringLiteral("groupVersion"), build}, {QStringLiteral("groupVersionString"), QStringLiteral("2.0")},
                         {QStringLiteral("url"), QStringLiteral("https://example.invalid/su.dmg")}});
    }
    // A Sparkle appcast at srv/<path> whose one item offers build `build` of `url`; `extra`
    // are more enclosure attributes.
    void publishAppcast(const QString& path, int build, const QString& url, const QString& extra = {})
    {
        const QString feed = QStringLiteral(
            "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<rss version=\"2.0\" "
            "xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces/sparkle\"><channel><title>Tessel</title>"
            "<item><title>Tessel 2.0</title><description>notes</description><enclosure url=\"%1\" sparkle:version=\"%2\" "
            "sparkle:shortVersionString=\"2.0\" length=\"1\" type=\"application/octet-stream\"%3/></item></channel></rss>\n")
            .arg(url).arg(build).arg(extra);
        ASSERT_TRUE(sb_.writeFile(srv(path), feed.toUtf8()));
    }
    // Installed build 100 ("1.0") of /Applications/<name>.app, checked against srv/<feed>.
    QString installSparkleApp(const QString& name, const QString& feed, const QVariantMap& extraInfo = {})
    {
        vltest::FakeBundle bundle{sb_.sysPath(QStringLiteral("/Applications/%1.app").arg(name)),
                                  QStringLiteral("com.velmora.") + name.toLower(), QStringLiteral("100"), QStringLiteral("1.0")};
        bundle.extraInfo = extraInfo;
        bundle.extraInfo.insert(QStringLiteral("SUFeedURL"), server_.url(QLatin1Char('/') + feed));
        return sb_.createBundle(bundle);
    }

    vltest::RunResult install(const QString& type, const QString& target, const vltest::RunOptions& options = {}) const
    {
        return sb_.runUpdater({QStringLiteral("-install"), type, target}, options);
    }
    // The lines of standard output that are status lines of -install.
    static QStringList statusLines(const vltest::RunResult& r)
    {
        return r.out().split(QLatin1Char('\n')).filter(QRegularExpression(QStringLiteral("^(Downloading installer...|Installing update...|Done.)$")));
    }
    // Error texts the client heard, from message number `from` on.
    QStringList errorsPosted(qsizetype from = 0) const
    {
        QStringList texts;
        const QList<vltest::ReceivedNotification> all = client_.messages();
        for (qsizetype i = from; i < all.size(); ++i)
            if (all.at(i).name.startsWith(QStringLiteral("postErrorString")))
                texts << all.at(i).arguments.at(0).toString();
        return texts;
    }
    // The updater's own preferences file, as a dictionary.
    QVariantMap prefs() const { return sb_.readPlist(sb_.userPreferencesFile(kOwnId)).value_or(QVariant()).toMap(); }
    void setPrefs(const QVariantMap& values) { ASSERT_TRUE(sb_.writeUserDefaults(kOwnId, values)); }

    vltest::Sandbox sb_;
    vltest::TestServer server_;
    vltest::NotificationListener client_{sb_.tmpPath(QStringLiteral("VLTesselCallback"))};
};

} // namespace e2e
