// -install without a window, run as the built updater in a sandbox against the local HTTPS
// server, with the fake system tools and a listening client: what is printed, which tools
// ran with which arguments, what ends up installed, what is cleaned up, and what the client
// hears, in order.
#include "support/ChildProcess.h"
#include "support/NotificationListener.h"
#include "support/QtPrinters.h"
#include "support/Sandbox.h"
#include "support/TestServer.h"

#include <gtest/gtest.h>

#include <QCryptographicHash>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>

namespace {

using vltest::NotificationListener;
using vltest::RunResult;
using vltest::Sandbox;
using vltest::TestServer;

const QString kTemp = QStringLiteral("Velmora Update Temp");

class InstallEndToEnd : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(sb_.isValid());
        ASSERT_TRUE(sb_.installFakeTools());
        srv_ = sb_.root() + QStringLiteral("/srv");
        ASSERT_TRUE(QDir().mkpath(srv_ + QStringLiteral("/files")));
        vltest::TestServerOptions options;
        options.root = srv_;
        ASSERT_TRUE(server_.start(options)) << server_.errorString().toStdString();
        sb_.useServer(server_);
        listener_ = std::make_unique<NotificationListener>(sb_.tmpPath(QStringLiteral("VLTesselCallback")));
        ASSERT_TRUE(listener_->start());
    }

    QString file(const QString& name) const { return srv_ + QStringLiteral("/files/") + name; }
    QString tempFolder() const { return sb_.tmpPath(kTemp); }

    static QByteArray readAll(const QString& path)
    {
        QFile f(path);
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    }
    static QString sha1Of(const QString& path)
    {
        return QString::fromLatin1(QCryptographicHash::hash(readAll(path), QCryptographicHash::Sha1).toHex());
    }

    // A group record published by the server for `id`, with a disk image holding an
    // uninstaller package first and the installer package after it.
    void publishGroupUpdate(const QString& id, bool withChecksum = true, const QString& checksum = {})
    {
        const QString pkg = sb_.root() + QStringLiteral("/build/Tessel.pkg");
        ASSERT_TRUE(sb_.makePackage(pkg, {{QStringLiteral("Applications/Tessel.app/Contents/Info.plist"), "new build"}}));
        ASSERT_TRUE(sb_.makeDiskImage(file(QStringLiteral("Tessel.dmg")), QStringLiteral("Tessel Installer"),
                                      {{QStringLiteral("Uninstall Tessel.pkg"), "uninstaller"},
                                       {QStringLiteral("Tessel.pkg"), readAll(pkg)}}));
        QVariantMap record{{"type", "group"}, {"title", "Tessel"}, {"groupid", id},
                           {"url", server_.url(QStringLiteral("/files/Tessel.dmg"))}};
        if (withChecksum)
            record.insert(QStringLiteral("serverChecksum"), checksum.isEmpty() ? sha1Of(file(QStringLiteral("Tessel.dmg"))) : checksum);
        ASSERT_TRUE(sb_.writePlist(srv_ + QStringLiteral("/rss/appcasts/") + id + QStringLiteral(".xml"), record));
    }

    QStringList errorsPosted() const
    {
        QStringList texts;
        for (const vltest::ReceivedNotification& m : listener_->messages()) {
            if (m.name.startsWith(QStringLiteral("postErrorString")))
                texts << m.arguments.at(0).toString();
        }
        return texts;
    }

    Sandbox sb_;
    TestServer server_;
    QString srv_;
    std::unique_ptr<NotificationListener> listener_;
};

// Lines of standard output that are one of the status lines of -install.
QStringList statusLines(const RunResult& r)
{
    QStringList lines;
    for (const QString& line : r.out().split(QLatin1Char('\n'))) {
        if (line == QStringLiteral("Downloading installer...") || line == QStringLiteral("Installing update...")
            || line == QStringLiteral("Done."))
            lines << line;
    }
    return lines;
}

TEST_F(InstallEndToEnd, GroupPackageIsInstalledAndEverythingCleanedUp)
{
    const QString id = QStringLiteral("com.velmora.tessel");
    publishGroupUpdate(id);
    const RunResult r = sb_.runUpdater({QStringLiteral("-install"), QStringLiteral("group"), id});
    ASSERT_EQ(r.exitCode, 0) << r.describe().toStdString();
    EXPECT_EQ(statusLines(r), (QStringList{"Downloading installer...", "Installing update...", "Done."}));

    const QString image = tempFolder() + QStringLiteral("/Tessel.dmg");
    const QString volume = sb_.sysPath(QStringLiteral("/Volumes/Tessel Installer"));
    EXPECT_EQ(sb_.toolCalls(QStringLiteral("hdiutil")),
              (QList<QStringList>{{"hdiutil", "attach", image, "-nobrowse"}, {"hdiutil", "detach", volume, "-force"}}));
    EXPECT_EQ(sb_.toolCalls(QStringLiteral("installer")),
              (QList<QStringList>{{"installer", "-pkg", volume + QStringLiteral("/Tessel.pkg"), "-target", "/"}}));
    EXPECT_EQ(readAll(sb_.sysPath(QStringLiteral("/Applications/Tessel.app/Contents/Info.plist"))), QByteArray("new build"));
    EXPECT_FALSE(QFileInfo::exists(tempFolder()));
    EXPECT_FALSE(QFileInfo::exists(volume));

    ASSERT_TRUE(listener_->waitForMessages(2));
    const QStringList names = listener_->messageNames();
    EXPECT_TRUE(errorsPosted().isEmpty()) << errorsPosted().join(QLatin1Char('|')).toStdString();
    EXPECT_EQ(names.last(), QStringLiteral("postFinishedTask"));
    EXPECT_GE(names.count(QStringLiteral("incrementRemoteProgress")), 4);
    EXPECT_EQ(server_.unexpectedRequests(), QStringList());
}

TEST_F(InstallEndToEnd, ClientProductsGetTheDisconnectAndTheInstallerRunsOnWithoutUs)
{
    const QString id = QStringLiteral("com.velmora.tessel");
    publishGroupUpdate(id);
    // Only a record carrying "groupID" (not the group check's "groupid") names the product.
    const QString recordPath = srv_ + QStringLiteral("/rss/appcasts/") + id + QStringLiteral(".xml");
    QVariantMap record = sb_.readPlist(recordPath).value_or(QVariant()).toMap();
    record.insert(QStringLiteral("groupID"), QStringLiteral("com.velmora.tessel"));
    ASSERT_TRUE(sb_.writePlist(recordPath, record));
    const RunResult r = sb_.runUpdater({QStringLiteral("-install"), QStringLiteral("group"), id});
    ASSERT_EQ(r.exitCode, 0) << r.describe().toStdString();
    EXPECT_EQ(statusLines(r), (QStringList{"Downloading installer...", "Installing update...", "Done."}));

    const QString volume = sb_.sysPath(QStringLiteral("/Volumes/Tessel Installer"));
    QElapsedTimer waited;
    waited.start();
    while (sb_.toolCalls(QStringLiteral("installer")).isEmpty() && waited.elapsed() < 5000)
        QThread::msleep(50);
    EXPECT_EQ(sb_.toolCalls(QStringLiteral("installer")),
              (QList<QStringList>{{"installer", "-pkg", volume + QStringLiteral("/Tessel.pkg"), "-target", "/"}}));
    // No clean-up follows: the image stays mounted and the download stays.
    EXPECT_EQ(sb_.toolCalls(QStringLiteral("hdiutil")).size(), 1);
    EXPECT_TRUE(QFileInfo::exists(volume));
    EXPECT_TRUE(QFileInfo::exists(tempFolder() + QStringLiteral("/Tessel.dmg")));
    const QStringList names = listener_->messageNames();
    EXPECT_TRUE(names.contains(QStringLiteral("postDisconnect")));
    EXPECT_LT(names.indexOf(QStringLiteral("postDisconnect")), names.lastIndexOf(QStringLiteral("postFinishedTask")));
}

TEST_F(InstallEndToEnd, GroupInstallerFailureIsReportedAndCleanedUp)
{
    const QString id = QStringLiteral("com.velmora.tessel");
    publishGroupUpdate(id);
    sb_.setEnv(QStringLiteral("FAKE_INSTALLER_FAIL"), QStringLiteral("all"));
    const RunResult r = sb_.runUpdater({QStringLiteral("-install"), QStringLiteral("group"), id});
    ASSERT_EQ(r.exitCode, 0) << r.describe().toStdString();
    EXPECT_TRUE(r.out().contains(QStringLiteral("Installation failed with error code 1"))) << r.describe().toStdString();
    EXPECT_EQ(errorsPosted(), QStringList{QStringLiteral("Installation failed with error code 1")});
    EXPECT_FALSE(QFileInfo::exists(tempFolder()));
    EXPECT_FALSE(QFileInfo::exists(sb_.sysPath(QStringLiteral("/Volumes/Tessel Installer"))));
    EXPECT_FALSE(QFileInfo::exists(sb_.sysPath(QStringLiteral("/Applications/Tessel.app"))));
}

TEST_F(InstallEndToEnd, ChecksumMismatchStopsBeforeMounting)
{
    const QString id = QStringLiteral("com.velmora.tessel");
    publishGroupUpdate(id, true, QStringLiteral("0000000000000000000000000000000000000000"));
    const RunResult r = sb_.runUpdater({QStringLiteral("-install"), QStringLiteral("group"), id});
    ASSERT_EQ(r.exitCode, 0) << r.describe().toStdString();
    const QString text = QStringLiteral("Unable to install Tessel. Downloaded file is different from the server's version. "
                                        "Please redownload this update.");
    EXPECT_TRUE(r.out().contains(text)) << r.describe().toStdString();
    EXPECT_EQ(errorsPosted(), QStringList{text});
    EXPECT_TRUE(sb_.toolCalls(QStringLiteral("hdiutil")).isEmpty());
    EXPECT_TRUE(sb_.toolCalls(QStringLiteral("installer")).isEmpty());
    EXPECT_TRUE(QFileInfo::exists(tempFolder() + QStringLiteral("/Tessel.dmg")));
}

TEST_F(InstallEndToEnd, FailedDownloadsLeaveNothingBehind)
{
    const QString id = QStringLiteral("com.velmora.tessel");
    publishGroupUpdate(id, false);
    for (const char* mode : {"drop_after", "short_by"}) {
        ASSERT_TRUE(server_.setRoutes(QJsonObject{{"/files/Tessel.dmg", QJsonObject{{"file", "files/Tessel.dmg"}, {mode, 200}}}}));
        const RunResult r = sb_.runUpdater({QStringLiteral("-install"), QStringLiteral("group"), id});
        EXPECT_EQ(r.exitCode, 1) << mode << r.describe().toStdString();
        EXPECT_EQ(statusLines(r), QStringList{QStringLiteral("Downloading installer...")}) << mode;
        EXPECT_FALSE(QFileInfo::exists(tempFolder() + QStringLiteral("/Tessel.dmg"))) << mode;
        EXPECT_TRUE(sb_.toolCalls(QStringLiteral("hdiutil")).isEmpty()) << mode;
    }
    const QStringList errors = errorsPosted();
    ASSERT_FALSE(errors.isEmpty());
    EXPECT_TRUE(errors.first().startsWith(QStringLiteral("Download failed - "))) << errors.first().toStdString();
    EXPECT_EQ(errors.last(), QStringLiteral("Unable to download update - an error occurred. "
                                            "Please check your software update logs for more details."));
}

TEST_F(InstallEndToEnd, HostileDownloadNamesAreRefused)
{
    const QString id = QStringLiteral("com.velmora.tessel");
    ASSERT_TRUE(sb_.writeFile(sb_.tmpPath(QStringLiteral("keep.txt")), "must survive"));
    ASSERT_TRUE(sb_.writeFile(sb_.tmpPath(kTemp + QStringLiteral("/other.dmg")), "another update"));
    for (const char* path : {"/files/..", "/files/%2E%2E", "/files/a%2F..%2F..%2Fkeep.txt", "/"}) {
        const QVariantMap record{{"type", "group"}, {"title", "Tessel"}, {"groupid", id}, {"url", server_.url(QString::fromUtf8(path))}};
        ASSERT_TRUE(sb_.writePlist(srv_ + QStringLiteral("/rss/appcasts/") + id + QStringLiteral(".xml"), record));
        const RunResult r = sb_.runUpdater({QStringLiteral("-install"), QStringLiteral("group"), id});
        EXPECT_EQ(r.exitCode, 1) << path << r.describe().toStdString();
        EXPECT_EQ(readAll(sb_.tmpPath(QStringLiteral("keep.txt"))), QByteArray("must survive")) << path;
        EXPECT_TRUE(QFileInfo::exists(sb_.tmpPath(kTemp + QStringLiteral("/other.dmg")))) << path;
    }
    EXPECT_TRUE(sb_.toolCalls(QStringLiteral("hdiutil")).isEmpty());
}

class SelfInstallEndToEnd : public InstallEndToEnd {
protected:
    QString helperPath() const
    {
        return sb_.sysPath(QStringLiteral("/Library/Application Support/Velmora/Shared Resources/"
                                          "SoftwareUpdateHelper.app/Contents/MacOS/SoftwareUpdateHelper"));
    }
    void publishSelfUpdate()
    {
        ASSERT_TRUE(sb_.makeDiskImage(file(QStringLiteral("SU.dmg")), QStringLiteral("Velmora Software Update"),
                                      {{QStringLiteral("Uninstall Velmora Software Update.app/Contents/Info.plist"), "no"},
                                       {QStringLiteral("Velmora Software Update.app/Contents/Info.plist"), "new"}}));
        const QVariantMap record{{"type", "self"}, {"title", "Velmora Software Update 2.0"},
                                 {"groupid", "com.velmora.SoftwareUpdate"}, {"bundleid", "com.velmora.SoftwareUpdate"},
                                 {"url", server_.url(QStringLiteral("/files/SU.dmg"))}};
        ASSERT_TRUE(sb_.writePlist(srv_ + QStringLiteral("/rss/appcasts/com.velmora.SoftwareUpdate.xml"), record));
    }
};

TEST_F(SelfInstallEndToEnd, HandsOverToTheHelperWithSilentLast)
{
    publishSelfUpdate();
    const QString argsFile = sb_.tmpPath(QStringLiteral("helper-args"));
    ASSERT_TRUE(sb_.writeFile(helperPath(), QStringLiteral("#!/bin/sh\nfor a in \"$@\"; do echo \"$a\"; done > '%1'\n").arg(argsFile).toUtf8(), true));
    const RunResult r = sb_.runUpdater({QStringLiteral("-install"), QStringLiteral("self"), QStringLiteral("com.velmora.SoftwareUpdate")});
    ASSERT_EQ(r.exitCode, 0) << r.describe().toStdString();
    EXPECT_EQ(statusLines(r), (QStringList{"Downloading installer...", "Installing update..."}));
    const QString volume = sb_.sysPath(QStringLiteral("/Volumes/Velmora Software Update"));
    for (int i = 0; i < 50 && !QFileInfo::exists(argsFile); ++i)
        QThread::msleep(100);
    const QStringList args = QString::fromUtf8(readAll(argsFile)).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    const QString updater = QFileInfo(QStringLiteral(VELMORA_UPDATER_BUNDLE)).absoluteFilePath();
    EXPECT_EQ(args, (QStringList{"-source", volume + QStringLiteral("/Velmora Software Update.app"), "-destination", updater,
                                 "-mountpath", volume, "-silent", "1"}));
    // The image stays mounted and the download stays for the helper.
    EXPECT_TRUE(QFileInfo::exists(volume));
    EXPECT_TRUE(sb_.toolCalls(QStringLiteral("hdiutil")).size() == 1);
}

TEST_F(SelfInstallEndToEnd, MissingHelperLeavesTheImageMountedAndSaysSo)
{
    publishSelfUpdate();
    const RunResult r = sb_.runUpdater({QStringLiteral("-install"), QStringLiteral("self"), QStringLiteral("com.velmora.SoftwareUpdate")});
    ASSERT_EQ(r.exitCode, 0) << r.describe().toStdString();
    EXPECT_FALSE(r.out().contains(QStringLiteral("Done.")));
    EXPECT_EQ(errorsPosted(), QStringList{QStringLiteral("Unable to install Velmora Software Update 2.0 - the installer is missing "
                                                         "important files. Please install this update manually.")});
    EXPECT_TRUE(QFileInfo::exists(sb_.sysPath(QStringLiteral("/Volumes/Velmora Software Update"))));
}

class SparkleInstallEndToEnd : public InstallEndToEnd {
protected:
    void SetUp() override
    {
        InstallEndToEnd::SetUp();
        installed_ = sb_.sysPath(QStringLiteral("/Applications/Tessel.app"));
        vltest::FakeBundle bundle;
        bundle.path = installed_;
        bundle.identifier = QStringLiteral("com.velmora.tessel");
        bundle.version = QStringLiteral("100");
        bundle.shortVersion = QStringLiteral("1.0");
        bundle.extraInfo = {{QStringLiteral("SUFeedURL"), server_.url(QStringLiteral("/appcast.xml"))}};
        ASSERT_FALSE(sb_.createBundle(bundle).isEmpty());
        oldInfo_ = readAll(installed_ + QStringLiteral("/Contents/Info.plist"));
    }

    // The appcast offering build 200 in `image` (checksum of the served file unless given).
    void publish(const QMap<QString, QByteArray>& volumeFiles, const QString& checksum = {})
    {
        ASSERT_TRUE(sb_.makeDiskImage(file(QStringLiteral("Tessel.dmg")), QStringLiteral("Tessel"), volumeFiles));
        const QString sum = checksum.isEmpty() ? sha1Of(file(QStringLiteral("Tessel.dmg"))) : checksum;
        const QString feed = QStringLiteral(
            "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
            "<rss version=\"2.0\" xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces/sparkle\"><channel>"
            "<title>Tessel</title><item><title>Tessel 2.0</title><description>notes</description>"
            "<enclosure url=\"%1\" sparkle:version=\"200\" sparkle:shortVersionString=\"2.0\" length=\"1\" "
            "type=\"application/octet-stream\" checksum=\"%2\"/></item></channel></rss>\n")
            .arg(server_.url(QStringLiteral("/files/Tessel.dmg")), sum);
        ASSERT_TRUE(sb_.writeFile(srv_ + QStringLiteral("/appcast.xml"), feed.toUtf8()));
    }

    RunResult install(const vltest::RunOptions& options = {})
    {
        return sb_.runUpdater({QStringLiteral("-install"), QStringLiteral("sparkle"), installed_}, options);
    }

    QString installed_;
    QByteArray oldInfo_;
};

TEST_F(SparkleInstallEndToEnd, OldBundleGoesToTheTrashAndTheNewOneIsCopiedIn)
{
    publish({{QStringLiteral("Tessel.app/Contents/Info.plist"), "new build"}});
    const RunResult r = install();
    ASSERT_EQ(r.exitCode, 0) << r.describe().toStdString();
    EXPECT_EQ(statusLines(r), (QStringList{"Downloading installer...", "Installing update...", "Done."}));
    EXPECT_EQ(readAll(installed_ + QStringLiteral("/Contents/Info.plist")), QByteArray("new build"));
    EXPECT_EQ(readAll(sb_.homePath(QStringLiteral(".Trash/Tessel.app/Contents/Info.plist"))), oldInfo_);
    const QString volume = sb_.sysPath(QStringLiteral("/Volumes/Tessel"));
    EXPECT_EQ(sb_.toolCalls(QStringLiteral("hdiutil")),
              (QList<QStringList>{{"hdiutil", "attach", tempFolder() + QStringLiteral("/Tessel.dmg"), "-nobrowse"},
                                  {"hdiutil", "detach", volume, "-force"}}));
    EXPECT_FALSE(QFileInfo::exists(volume));
    EXPECT_FALSE(QFileInfo::exists(tempFolder()));
    EXPECT_TRUE(errorsPosted().isEmpty()) << errorsPosted().join(QLatin1Char('|')).toStdString();
}

TEST_F(SparkleInstallEndToEnd, FailuresLeaveTheInstalledAppUntouched)
{
    struct Case {
        QMap<QString, QByteArray> volume;
        QString checksum;
        QString hdiutilFail;
        QString error;
    };
    const QMap<QString, QByteArray> good{{QStringLiteral("Tessel.app/Contents/Info.plist"), "new build"}};
    const QList<Case> cases = {
        {good, QStringLiteral("0123456789abcdef0123456789abcdef01234567"), {},
         QStringLiteral("Unable to install Tessel 2.0. Downloaded file is different from the server's version. Please redownload this update.")},
        {good, {}, QStringLiteral("attach"), QStringLiteral("Unable to install Tessel 2.0. Cannot mount disk image.")},
        {{{QStringLiteral("Read Me.txt"), "text"}, {QStringLiteral("Uninstall Tessel.prefPane/x"), "u"}}, {}, {},
         QStringLiteral("Unable to install Tessel 2.0. Cannot find executable file on disk image.")},
    };
    for (const Case& c : cases) {
        publish(c.volume, c.checksum);
        sb_.setEnv(QStringLiteral("FAKE_HDIUTIL_FAIL"), c.hdiutilFail);
        const int before = listener_->messages().size();
        const RunResult r = install();
        EXPECT_EQ(r.exitCode, 0) << r.describe().toStdString();
        EXPECT_EQ(readAll(installed_ + QStringLiteral("/Contents/Info.plist")), oldInfo_) << c.error.toStdString();
        EXPECT_FALSE(QFileInfo::exists(sb_.homePath(QStringLiteral(".Trash/Tessel.app")))) << c.error.toStdString();
        const QStringList errors = errorsPosted();
        EXPECT_TRUE(listener_->messages().size() > before && errors.contains(c.error))
            << c.error.toStdString() << " got " << errors.join(QLatin1Char('|')).toStdString();
        QDir(sb_.sysPath(QStringLiteral("/Volumes"))).removeRecursively();
    }
}

TEST_F(SparkleInstallEndToEnd, AHangingImageToolIsStoppedAfterTenSeconds)
{
    publish({{QStringLiteral("Tessel.app/Contents/Info.plist"), "new build"}});
    sb_.setEnv(QStringLiteral("FAKE_HDIUTIL_SLEEP"), QStringLiteral("60"));
    const RunResult r = install();
    ASSERT_EQ(r.exitCode, 0) << r.describe().toStdString();
    EXPECT_TRUE(r.out().contains(QStringLiteral("Task %1 timed out. Terminating...").arg(sb_.sysPath(QStringLiteral("/usr/bin/hdiutil")))))
        << r.describe().toStdString();
    EXPECT_TRUE(errorsPosted().contains(QStringLiteral("Unable to install Tessel 2.0. Cannot mount disk image.")));
    EXPECT_EQ(readAll(installed_ + QStringLiteral("/Contents/Info.plist")), oldInfo_);
}

TEST_F(SparkleInstallEndToEnd, CopyFailingAfterTheTrashKeepsTheOldAppInTheTrashAndNamesThePath)
{
    const std::optional<uint> uid = Sandbox::unprivilegedUid();
    if (!uid)
        GTEST_SKIP() << "needs root to run the updater as an unprivileged user";
    // The image's application has another name, and that name is taken by a file in the
    // install folder: the copy fails, and without rights the privileged copy fails too.
    publish({{QStringLiteral("Other.app/Contents/Info.plist"), "new build"}});
    ASSERT_TRUE(sb_.writeFile(sb_.sysPath(QStringLiteral("/Applications/Other.app")), "in the way"));
    ASSERT_TRUE(sb_.giveHomeTo(*uid));
    ASSERT_TRUE(vltest::runToSuccess(QStringLiteral("/bin/chown"),
                                     {QStringLiteral("-R"), QString::number(*uid), sb_.sysPath(QStringLiteral("/Applications"))}));
    sb_.setEnv(QStringLiteral("FAKE_PKEXEC_DENY"), QStringLiteral("1"));
    // The server's own folder is private to root: hand the user a readable copy of its CA.
    const QString ca = sb_.tmpPath(QStringLiteral("ca.pem"));
    ASSERT_TRUE(QFile::copy(server_.caFile(), ca));
    sb_.setEnv(QStringLiteral("VELMORA_CA_FILE"), ca);
    vltest::RunOptions asUser;
    asUser.uid = uid;
    const RunResult r = install(asUser);
    ASSERT_EQ(r.exitCode, 0) << r.describe().toStdString();
    EXPECT_EQ(readAll(sb_.homePath(QStringLiteral(".Trash/Tessel.app/Contents/Info.plist"))), oldInfo_);
    EXPECT_FALSE(QFileInfo::exists(installed_));
    EXPECT_EQ(errorsPosted(), QStringList{QStringLiteral("Unable to install Tessel 2.0. Please check you have the necessary "
                                                         "permissions to write to %1.").arg(installed_)});
}

} // namespace
