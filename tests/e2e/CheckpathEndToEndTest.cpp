// `SoftwareUpdate -checkpath <app>` in a sandbox: the exit statuses of the mode and the
// global three-day throttle recorded in the updater's own preferences file.

#include "platform/plist/PropertyList.h"
#include "support/Sandbox.h"
#include "support/TestServer.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

class CheckpathEndToEnd : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(sandbox_.isValid());
        ASSERT_TRUE(sandbox_.makeDir(sandbox_.sysPath(QStringLiteral("/Library/Logs/Velmora"))));
        ASSERT_TRUE(server_.start({feeds_.path(), false}));
        sandbox_.useServer(server_);
        feed(QStringLiteral("rss/appcasts/com.velmora.SoftwareUpdate.xml"),
             plist::writeXml(QVariantMap{{QStringLiteral("groupVersion"), 100}}));
    }
    void feed(const QString& path, const QByteArray& bytes)
    {
        const QString file = feeds_.filePath(path);
        QDir().mkpath(QFileInfo(file).path());
        QFile out(file);
        ASSERT_TRUE(out.open(QIODevice::WriteOnly | QIODevice::Truncate));
        out.write(bytes);
    }
    // A Sparkle application whose feed offers build `offered` over installed build 5.
    QString sparkleApp(const QString& name, int offered)
    {
        const QString feedPath = QStringLiteral("feeds/") + name + QStringLiteral(".xml");
        feed(feedPath, "<rss><channel><item><title>T</title><enclosure sparkle:version='" + QByteArray::number(offered)
                           + "' url='https://example.invalid/t.dmg'/></item></channel></rss>");
        return sandbox_.createBundle({sandbox_.sysPath(QStringLiteral("/Applications/") + name + QStringLiteral(".app")),
                                      QStringLiteral("com.velmora.") + name, QStringLiteral("5"), QStringLiteral("1.0"), {},
                                      QVariantMap{{QStringLiteral("SUFeedURL"), server_.url(QLatin1Char('/') + feedPath)}}});
    }
    std::optional<QVariant> lastCheck() const
    {
        const std::optional<QVariant> prefs =
            sandbox_.readPlist(sandbox_.userPreferencesFile(QStringLiteral("com.velmora.SoftwareUpdate")));
        if (!prefs || !prefs->toMap().contains(QStringLiteral("lastUpdateCheck")))
            return std::nullopt;
        return prefs->toMap().value(QStringLiteral("lastUpdateCheck"));
    }
    vltest::RunResult checkpath(const QString& path) const
    {
        return sandbox_.runUpdater({QStringLiteral("-checkpath"), path}, {30000});
    }

    QTemporaryDir feeds_;
    vltest::TestServer server_;
    vltest::Sandbox sandbox_;
};

} // namespace

TEST_F(CheckpathEndToEnd, ForeignOrMissingBundlesExitZeroWithoutRecordingACheck)
{
    const QString foreign = sandbox_.createBundle({sandbox_.sysPath(QStringLiteral("/Applications/Foreign.app")),
                                                   QStringLiteral("org.other.Foreign"), QStringLiteral("5"), QStringLiteral("1.0")});
    EXPECT_EQ(checkpath(foreign).exitCode, 0);
    EXPECT_EQ(checkpath(sandbox_.sysPath(QStringLiteral("/Applications/Missing.app"))).exitCode, 0);
    EXPECT_FALSE(lastCheck());
    EXPECT_TRUE(server_.requestedPaths().isEmpty());
}

TEST_F(CheckpathEndToEnd, UpToDateAndFailedChecksAndTheGlobalThrottle)
{
    const QString current = sparkleApp(QStringLiteral("Current"), 5);
    const vltest::RunResult upToDate = checkpath(current);
    EXPECT_EQ(upToDate.exitCode, 0) << upToDate.describe().toStdString();
    ASSERT_TRUE(lastCheck());

    // Within three days every application is throttled, even one with an update.
    server_.clearLog();
    const QString newer = sparkleApp(QStringLiteral("Newer"), 9);
    EXPECT_EQ(checkpath(newer).exitCode, 0);
    EXPECT_TRUE(server_.requestedPaths().isEmpty());

    // An old check no longer throttles: a feed that cannot be read gives no record, status 1.
    ASSERT_TRUE(sandbox_.writePlist(sandbox_.userPreferencesFile(QStringLiteral("com.velmora.SoftwareUpdate")),
                                           QVariantMap{{QStringLiteral("lastUpdateCheck"), QDateTime::currentDateTimeUtc().addSecs(-259201)}}));
    const QString broken = sandbox_.createBundle({sandbox_.sysPath(QStringLiteral("/Applications/Broken.app")),
                                                  QStringLiteral("com.velmora.Broken"), QStringLiteral("5"), QStringLiteral("1.0"), {},
                                                  QVariantMap{{QStringLiteral("SUFeedURL"), server_.url(QStringLiteral("/feeds/none.xml"))}}});
    const vltest::RunResult failed = checkpath(broken);
    EXPECT_EQ(failed.exitCode, 1) << failed.describe().toStdString();
    EXPECT_TRUE(server_.requestedPaths().contains(QStringLiteral("/feeds/none.xml")));
}
