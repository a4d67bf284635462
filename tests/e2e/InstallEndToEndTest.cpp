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
#include <QProcess>

#include <functional>
#include <unistd.h>

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

    // The updater's own defaults with both test feeds and an unrelated key set; what remains
    // of them after a run.
    void seedTestFeeds()
    {
        ASSERT_TRUE(sb_.writePlist(sb_.userPreferencesFile(QStringLiteral("com.velmora.SoftwareUpdate")),
                                   QVariantMap{{"testURL", "https://feeds.test/group.xml"}, {"testSelfURL", "https://feeds.test/self.xml"},
                                               {"showBetaUpdates", 1}}));
    }
    QStringList defaultsKeys() const
    {
        return sb_.readPlist(sb_.userPreferencesFile(QStringLiteral("com.velmora.SoftwareUpdate"))).value_or(QVariant()).toMap().keys();
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
    seedTestFeeds();
    const RunResult r = sb_.runUpdater({QStringLiteral("-install"), QStringLiteral("group"), id});
    ASSERT_EQ(r.exitCode, 0) << r.describe().toStdString();
    EXPECT_EQ(statusLines(r), (QStringList{"Downloading installer...", "Installing update...", "Done."}));
    // The finished installation forgets the test group feed, and only that.
    EXPECT_FALSE(defaultsKeys().contains(QStringLiteral("testURL")));
    EXPECT_TRUE(defaultsKeys().contains(QStringLiteral("testSelfURL")) && defaultsKeys().contains(QStringLiteral("showBetaUpdates")));

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

// The group appcast exactly as the server sends it ("groupID", no "groupid"): the run quits
// no running vendor application, neither one that names the group nor one without a group,
// and neither the client nor itself.
TEST_F(InstallEndToEnd, TheServedGroupAppcastLeavesRunningVendorApplicationsAlone)
{
    const QString id = QStringLiteral("com.velmora.suite");
    publishGroupUpdate(id, false);
    const QVariantMap served{{"groupID", id}, {"groupVersion", 300}, {"groupVersionString", "3.0"}, {"title", "Tessel 3.0"},
                             {"url", server_.url(QStringLiteral("/files/Tessel.dmg"))},
                             {"checksum", sha1Of(file(QStringLiteral("Tessel.dmg")))}};
    ASSERT_TRUE(sb_.writePlist(srv_ + QStringLiteral("/rss/appcasts/") + id + QStringLiteral(".xml"), served));
    QList<std::shared_ptr<QProcess>> running;
    for (const auto& [name, extra] : {std::pair<QString, QVariantMap>{QStringLiteral("Notes"), {}},
                                      {QStringLiteral("Clips"), {{QStringLiteral("VLGroupID"), id}}}}) {
        vltest::FakeBundle app;
        app.path = sb_.sysPath(QStringLiteral("/Applications/Velmora %1.app").arg(name));
        app.identifier = QStringLiteral("com.velmora.") + name.toLower();
        app.extraInfo = extra;
        ASSERT_FALSE(sb_.createBundle(app).isEmpty());
        auto process = std::make_shared<QProcess>();
        process->start(app.path + QStringLiteral("/Contents/MacOS/Velmora ") + name, {QStringLiteral("300")});
        ASSERT_TRUE(process->waitForStarted());
        running << process;
    }
    const RunResult r = sb_.runUpdater({QStringLiteral("-install"), QStringLiteral("group"), id});
    EXPECT_EQ(r.exitCode, 0) << r.describe().toStdString();
    EXPECT_EQ(statusLines(r), (QStringList{"Downloading installer...", "Installing update...", "Done."}));
    EXPECT_EQ(readAll(sb_.sysPath(QStringLiteral("/Applications/Tessel.app/Contents/Info.plist"))), QByteArray("new build"));
    for (const auto& process : running) {
        EXPECT_FALSE(process->waitForFinished(200)) << process->program().toStdString() << " was quit";
        process->kill();
        process->waitForFinished();
    }
    ASSERT_TRUE(listener_->waitForMessages(1));
    EXPECT_EQ(listener_->messageNames().last(), QStringLiteral("postFinishedTask"));
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
    seedTestFeeds();
    const RunResult r = sb_.runUpdater({QStringLiteral("-install"), QStringLiteral("group"), id});
    ASSERT_EQ(r.exitCode, 0) << r.describe().toStdString();
    const QString text = QStringLiteral("Unable to install Tessel. Downloaded file is different from the server's version. "
                                        "Please redownload this update.");
    EXPECT_TRUE(r.out().contains(text)) << r.describe().toStdString();
    EXPECT_EQ(errorsPosted(), QStringList{text});
    EXPECT_TRUE(sb_.toolCalls(QStringLiteral("hdiutil")).isEmpty());
    EXPECT_TRUE(sb_.toolCalls(QStringLiteral("installer")).isEmpty());
    EXPECT_TRUE(QFileInfo::exists(tempFolder() + QStringLiteral("/Tessel.dmg")));
    EXPECT_TRUE(defaultsKeys().contains(QStringLiteral("testURL"))) << "an installation that stopped early keeps it";
}

// A type the entry point does not know downloads the update and then installs nothing.
TEST_F(InstallEndToEnd, AnUnknownTypeDownloadsAndInstallsNothing)
{
    const QString id = QStringLiteral("com.velmora.tessel");
    publishGroupUpdate(id);
    seedTestFeeds();
    const RunResult r = sb_.runUpdater({QStringLiteral("-install"), QStringLiteral("Group"), id});
    EXPECT_EQ(r.exitCode, 0) << r.describe().toStdString();
    EXPECT_EQ(statusLines(r), (QStringList{"Downloading installer...", "Installing update..."}));
    EXPECT_TRUE(sb_.toolCalls(QStringLiteral("hdiutil")).isEmpty());
    EXPECT_TRUE(sb_.toolCalls(QStringLiteral("installer")).isEmpty());
    EXPECT_FALSE(QFileInfo::exists(sb_.sysPath(QStringLiteral("/Applications/Tessel.app"))));
    EXPECT_TRUE(defaultsKeys().contains(QStringLiteral("testURL")) && defaultsKeys().contains(QStringLiteral("testSelfURL")));
    // Progress only: neither an error nor the end of the task is posted (the client hears
    // each message before the run ends).
    const QStringList names = listener_->messageNames();
    EXPECT_FALSE(names.isEmpty());
    EXPECT_EQ(names.count(QStringLiteral("incrementRemoteProgress")), names.size()) << names.join(QLatin1Char('|')).toStdString();
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

TEST_F(InstallEndToEnd, AnAddressThatIsNotTextEndsTheRunThroughTheExceptionPath)
{
    const QString id = QStringLiteral("com.velmora.tessel");
    const QVariantMap record{{"type", "group"}, {"title", "Tessel"}, {"groupid", id}, {"url", 42}};
    ASSERT_TRUE(sb_.writePlist(srv_ + QStringLiteral("/rss/appcasts/") + id + QStringLiteral(".xml"), record));
    const RunResult r = sb_.runUpdater({QStringLiteral("-install"), QStringLiteral("group"), id});
    EXPECT_EQ(r.exitCode, 1) << r.describe().toStdString();
    const QString text = QStringLiteral("Exception in -[AppController startDownloadForObject:]. NSInvalidArgumentException - "
                                        "-[__NSCFNumber lastPathComponent]: unrecognized selector sent to instance.");
    EXPECT_TRUE(r.out().contains(text)) << r.describe().toStdString();
    EXPECT_EQ(errorsPosted(), QStringList{text});
    ASSERT_TRUE(listener_->waitForMessages(1));
    EXPECT_EQ(listener_->messageNames().last(), QStringLiteral("postFinishedTask"));
    EXPECT_FALSE(QFileInfo::exists(tempFolder() + QStringLiteral("/42")));
}

// A shared temporary folder must not let another local user redirect a run, root or not:
// the download folder is never followed through a link nor used when another user owns
// it, and a link at the download's name is never written through.
class DownloadFolderEndToEnd : public InstallEndToEnd {
protected:
    void SetUp() override
    {
        InstallEndToEnd::SetUp();
        publishGroupUpdate(kId);
        outside_ = sb_.tmpPath(QStringLiteral("outside"));
        // The server's own folder is private to root: every runner gets a readable copy of its CA.
        const QString ca = sb_.tmpPath(QStringLiteral("ca.pem"));
        ASSERT_TRUE(QFile::copy(server_.caFile(), ca));
        sb_.setEnv(QStringLiteral("VELMORA_CA_FILE"), ca);
    }

    static void removeEntry(const QString& path)
    {
        if (QFileInfo(path).isSymLink() || QFileInfo(path).isFile())
            QFile::remove(path);
        else
            QDir(path).removeRecursively();
    }

    // A fresh temporary folder with `plant` done in it, handed to `user` (when given) before
    // `afterHandOver`; then -install as `user` (root when none).
    RunResult runPlanted(const std::optional<uint>& user, const std::function<void()>& plant,
                         const std::function<void()>& afterHandOver = {})
    {
        removeEntry(tempFolder());
        removeEntry(outside_);
        EXPECT_TRUE(sb_.writeFile(outside_ + QStringLiteral("/keep.txt"), "keep"));
        plant();
        if (user) {
            EXPECT_TRUE(sb_.giveHomeTo(*user));
        }
        if (afterHandOver)
            afterHandOver();
        vltest::RunOptions options;
        options.uid = user;
        hdiutilBefore_ = sb_.toolCalls(QStringLiteral("hdiutil")).size();
        return sb_.runUpdater({QStringLiteral("-install"), QStringLiteral("group"), kId}, options);
    }

    // The image tool's calls of the last run.
    QList<QStringList> hdiutilCalls() const { return sb_.toolCalls(QStringLiteral("hdiutil")).mid(hdiutilBefore_); }

    QStringList outsideEntries() const
    {
        return QDir(outside_).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    }

    void expectRefused(const RunResult& r, const QString& reason, const char* what)
    {
        EXPECT_EQ(r.exitCode, 1) << what << r.describe().toStdString();
        const QString failed = QStringLiteral("Download failed - The folder %1 %2").arg(tempFolder(), reason);
        EXPECT_TRUE(errorsPosted().contains(failed)) << what << ": " << errorsPosted().join(QLatin1Char('|')).toStdString();
        EXPECT_TRUE(hdiutilCalls().isEmpty()) << what;
    }

    const QString kId = QStringLiteral("com.velmora.tessel");
    QString outside_;
    qsizetype hdiutilBefore_ = 0;
};

TEST_F(DownloadFolderEndToEnd, PlantedLinksAndForeignFoldersNeverRedirectADownload)
{
    QList<std::optional<uint>> runners{std::nullopt};
    if (const auto nobody = Sandbox::unprivilegedUid())
        runners << nobody;
    for (const std::optional<uint>& user : runners) {
        SCOPED_TRACE(user ? "as an unprivileged user" : "as the test's own user");
        const auto linkTo = [](const QString& target, const QString& link) { ASSERT_TRUE(QFile::link(target, link)); };

        // The folder itself is a link to a folder elsewhere.
        RunResult r = runPlanted(user, [&] { linkTo(outside_, tempFolder()); });
        expectRefused(r, QStringLiteral("is a symbolic link."), "folder link");
        EXPECT_EQ(outsideEntries(), QStringList{QStringLiteral("keep.txt")});
        EXPECT_TRUE(QFileInfo(tempFolder()).isSymLink());

        // The folder belongs to someone else, who left it open to everyone.
        if (Sandbox::unprivilegedUid()) {
            const uint owner = user ? 0 : *Sandbox::unprivilegedUid();
            r = runPlanted(user, [&] { ASSERT_TRUE(sb_.writeFile(tempFolder() + QStringLiteral("/theirs.dmg"), "theirs")); },
                           [&] {
                               ASSERT_EQ(::lchown(QFile::encodeName(tempFolder()).constData(), owner, owner), 0);
                               ASSERT_TRUE(QFile::setPermissions(tempFolder(), QFileDevice::Permissions(0x7777)));
                           });
            expectRefused(r, QStringLiteral("belongs to another user."), "foreign folder");
            EXPECT_EQ(QDir(tempFolder()).entryList(QDir::Files), QStringList{QStringLiteral("theirs.dmg")});
        }

        // A link, live or dangling, sits at the download's name: the download replaces the
        // link and never writes through it.
        for (const QString& target : {QStringLiteral("keep.txt"), QStringLiteral("created.dmg")}) {
            r = runPlanted(user, [&] {
                ASSERT_TRUE(QDir().mkpath(tempFolder()));
                linkTo(outside_ + QLatin1Char('/') + target, tempFolder() + QStringLiteral("/Tessel.dmg"));
            });
            EXPECT_EQ(r.exitCode, 0) << target.toStdString() << r.describe().toStdString();
            EXPECT_EQ(hdiutilCalls().value(0).value(2), tempFolder() + QStringLiteral("/Tessel.dmg"));
            EXPECT_EQ(outsideEntries(), QStringList{QStringLiteral("keep.txt")}) << target.toStdString();
            EXPECT_EQ(readAll(outside_ + QStringLiteral("/keep.txt")), QByteArray("keep"));
        }
    }
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
    seedTestFeeds();
    const RunResult r = sb_.runUpdater({QStringLiteral("-install"), QStringLiteral("self"), QStringLiteral("com.velmora.SoftwareUpdate")});
    ASSERT_EQ(r.exitCode, 0) << r.describe().toStdString();
    EXPECT_EQ(statusLines(r), (QStringList{"Downloading installer...", "Installing update..."}));
    // Handing over forgets the test feed of the updater's own updates, and only that.
    EXPECT_FALSE(defaultsKeys().contains(QStringLiteral("testSelfURL")));
    EXPECT_TRUE(defaultsKeys().contains(QStringLiteral("testURL")) && defaultsKeys().contains(QStringLiteral("showBetaUpdates")));
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
    seedTestFeeds();
    const RunResult r = sb_.runUpdater({QStringLiteral("-install"), QStringLiteral("self"), QStringLiteral("com.velmora.SoftwareUpdate")});
    ASSERT_EQ(r.exitCode, 0) << r.describe().toStdString();
    EXPECT_FALSE(r.out().contains(QStringLiteral("Done.")));
    EXPECT_TRUE(defaultsKeys().contains(QStringLiteral("testSelfURL"))) << "no hand-over, so it is kept";
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

// The path as shell completion types it, with a trailing "/", and a path relative to the
// working directory name the same application as its plain absolute path.
TEST_F(SparkleInstallEndToEnd, EveryFormOfThePathInstallsExactlyAsThePlainOne)
{
    publish({{QStringLiteral("Tessel.app/Contents/Info.plist"), "new build"}});
    const QString oldBundle = sb_.root() + QStringLiteral("/old-bundle");
    ASSERT_EQ(QProcess::execute(QStringLiteral("/bin/cp"), {QStringLiteral("-a"), installed_, oldBundle}), 0);
    struct Outcome {
        int exitCode;
        QStringList status;
        QStringList applications;
        QStringList trash;
        QByteArray info;
        QList<QStringList> tools;
    };
    const auto entries = [](const QString& folder) { return QDir(folder).entryList(QDir::NoDotAndDotDot | QDir::AllEntries); };
    const auto installFrom = [&](const QString& path, const QString& workingDirectory) {
        vltest::RunOptions options;
        options.workingDirectory = workingDirectory;
        const RunResult r = sb_.runUpdater({QStringLiteral("-install"), QStringLiteral("sparkle"), path}, options);
        const Outcome outcome{r.exitCode, statusLines(r), entries(sb_.sysPath(QStringLiteral("/Applications"))),
                              entries(sb_.homePath(QStringLiteral(".Trash"))), readAll(installed_ + QStringLiteral("/Contents/Info.plist")),
                              sb_.toolCalls()};
        // Back to the state before the run.
        EXPECT_TRUE(QDir(installed_).removeRecursively() && QDir(sb_.homePath(QStringLiteral(".Trash"))).removeRecursively());
        EXPECT_TRUE(QDir().mkpath(sb_.homePath(QStringLiteral(".Trash"))));
        EXPECT_EQ(QProcess::execute(QStringLiteral("/bin/cp"), {QStringLiteral("-a"), oldBundle, installed_}), 0);
        QFile::remove(sb_.toolLogPath());
        return outcome;
    };
    const Outcome plain = installFrom(installed_, {});
    EXPECT_EQ(plain.exitCode, 0);
    EXPECT_EQ(plain.info, QByteArray("new build"));
    EXPECT_EQ(plain.trash, QStringList{QStringLiteral("Tessel.app")});
    const QString applications = sb_.sysPath(QStringLiteral("/Applications"));
    for (const auto& [path, workingDirectory] : {std::pair{installed_ + QStringLiteral("/"), QString()},
                                                 std::pair{QStringLiteral("Tessel.app/"), applications}}) {
        const Outcome other = installFrom(path, workingDirectory);
        const std::string form = path.toStdString();
        EXPECT_EQ(other.exitCode, plain.exitCode) << form;
        EXPECT_EQ(other.status, plain.status) << form;
        EXPECT_EQ(other.applications, plain.applications) << form;
        EXPECT_EQ(other.trash, plain.trash) << form;
        EXPECT_EQ(other.info, plain.info) << form;
        // The tools see the path as given; a trailing "/" is the same folder to them.
        QList<QStringList> tools = other.tools;
        for (QStringList& call : tools)
            for (QString& argument : call)
                if (argument.size() > 1 && argument.endsWith(QLatin1Char('/')))
                    argument.chop(1);
        EXPECT_EQ(tools, plain.tools) << form;
    }
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
