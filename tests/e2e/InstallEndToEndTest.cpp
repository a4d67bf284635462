// -install without a window, as a vendor client runs it, against the local server with the fake
// system tools: what is printed, which tools ran with which arguments, what ends up installed,
// what is cleaned up, and what the client hears. Group packages, the updater's own update,
// Sparkle applications, and signed downloads.
#include "EndToEnd.h"

#include "support/ChildProcess.h"
#include "support/Ed25519KeyPair.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFileInfo>
#include <QJsonObject>
#include <QThread>

#include <functional>
#include <unistd.h>

namespace {

using vltest::RunResult;
using vltest::Sandbox;

const QString kTessel = QStringLiteral("com.velmora.tessel");
const QStringList kAllSteps{"Downloading installer...", "Installing update...", "Done."};

bool waitFor(const std::function<bool()>& done)
{
    const QDeadlineTimer guard(10000);
    while (!done() && !guard.hasExpired())
        QThread::msleep(50);
    return done();
}

class GroupInstall : public e2e::EndToEnd {
protected:
    // The server's record for group `id` (`extra` adds keys): a disk image holding an
    // uninstaller package first and the installer package after it.
    void publishGroupUpdate(const QString& id = kTessel, const QVariantMap& extra = {})
    {
        const QString pkg = sb_.root() + QStringLiteral("/build/Tessel.pkg");
        ASSERT_TRUE(sb_.makePackage(pkg, {{"Applications/Tessel.app/Contents/Info.plist", "new build"}}));
        ASSERT_TRUE(sb_.makeDiskImage(srv("files/Tessel.dmg"), "Tessel Installer",
                                      {{"Uninstall Tessel.pkg", "uninstaller"}, {"Tessel.pkg", Sandbox::readFile(pkg)}}));
        QVariantMap record{{"type", "group"}, {"title", "Tessel"}, {"groupid", id}, {"url", server_.url("/files/Tessel.dmg")},
                           {"serverChecksum", sha1(Sandbox::readFile(srv("files/Tessel.dmg")))}};
        record.insert(extra);
        publish(id, record);
    }
    // Both test feeds and an unrelated key in the updater's defaults.
    void seedTestFeeds()
    {
        setPrefs({{"testURL", "https://feeds.test/group.xml"}, {"testSelfURL", "https://feeds.test/self.xml"}, {"showBetaUpdates", 1}});
    }
    bool keeps(const QString& key) const { return prefs().contains(key); }
    QString volume() const { return sb_.sysPath("/Volumes/Tessel Installer"); }
    QByteArray installedInfo() const { return Sandbox::readFile(sb_.sysPath("/Applications/Tessel.app/Contents/Info.plist")); }
};

TEST_F(GroupInstall, ThePackageIsInstalledAndEverythingCleanedUp)
{
    publishGroupUpdate();
    seedTestFeeds();
    const RunResult r = install("group", kTessel);
    ASSERT_EQ(r.exitCode, 0) << r.describe().toStdString();
    EXPECT_EQ(statusLines(r), kAllSteps);
    // The finished installation forgets the test group feed, and only that.
    EXPECT_TRUE(!keeps("testURL") && keeps("testSelfURL") && keeps("showBetaUpdates"));
    EXPECT_EQ(sb_.toolCalls("hdiutil"), (QList<QStringList>{{"hdiutil", "attach", tempFolder() + "/Tessel.dmg", "-nobrowse"},
                                                            {"hdiutil", "detach", volume(), "-force"}}));
    EXPECT_EQ(sb_.toolCalls("installer"), (QList<QStringList>{{"installer", "-pkg", volume() + "/Tessel.pkg", "-target", "/"}}));
    EXPECT_EQ(installedInfo(), QByteArray("new build"));
    EXPECT_FALSE(QFileInfo::exists(tempFolder()) || QFileInfo::exists(volume()));
    const QStringList heard = client_.messageNames();
    EXPECT_EQ(errorsPosted(), QStringList());
    EXPECT_EQ(heard.value(heard.size() - 1), "postFinishedTask");
    EXPECT_GE(heard.count("incrementRemoteProgress"), 4);
    EXPECT_EQ(server_.unexpectedRequests(), QStringList());
}

// The group appcast exactly as the server sends it ("groupID", no "groupid"): the run quits
// no running vendor application, neither one of the group nor one without a group.
TEST_F(GroupInstall, TheServedGroupAppcastLeavesRunningVendorApplicationsAlone)
{
    const QString id = QStringLiteral("com.velmora.suite");
    publishGroupUpdate(id);
    publish(id, {{"groupID", id}, {"groupVersion", 300}, {"groupVersionString", "3.0"}, {"title", "Tessel 3.0"},
                 {"url", server_.url("/files/Tessel.dmg")}, {"checksum", sha1(Sandbox::readFile(srv("files/Tessel.dmg")))}});
    vltest::ChildProcess running[2];
    const QVariantMap groups[2] = {{}, {{"VLGroupID", id}}};
    for (int i = 0; i < 2; ++i) {
        const QString name = i ? QStringLiteral("Clips") : QStringLiteral("Notes");
        vltest::FakeBundle app{sb_.sysPath("/Applications/Velmora " + name + ".app"), "com.velmora." + name.toLower()};
        app.extraInfo = groups[i];
        ASSERT_FALSE(sb_.createBundle(app).isEmpty());
        ASSERT_TRUE(running[i].start(app.path + "/Contents/MacOS/Velmora " + name, {"300"}));
    }
    const RunResult r = install("group", id);
    EXPECT_EQ(r.exitCode, 0) << r.describe().toStdString();
    EXPECT_EQ(statusLines(r), kAllSteps);
    EXPECT_EQ(installedInfo(), QByteArray("new build"));
    for (vltest::ChildProcess& app : running)
        EXPECT_FALSE(app.waitForFinished(200)) << "a running application was quit";
}

TEST_F(GroupInstall, ClientProductsGetTheDisconnectAndTheInstallerRunsOnWithoutUs)
{
    // Only a record carrying "groupID" (not the group check's "groupid") names the product.
    publishGroupUpdate(kTessel, {{"groupID", kTessel}});
    const RunResult r = install("group", kTessel);
    ASSERT_EQ(r.exitCode, 0) << r.describe().toStdString();
    EXPECT_EQ(statusLines(r), kAllSteps);
    EXPECT_TRUE(waitFor([&] { return !sb_.toolCalls("installer").isEmpty(); }));
    EXPECT_EQ(sb_.toolCalls("installer"), (QList<QStringList>{{"installer", "-pkg", volume() + "/Tessel.pkg", "-target", "/"}}));
    // No clean-up follows: the image stays mounted and the download stays.
    EXPECT_EQ(sb_.toolCalls("hdiutil").size(), 1);
    EXPECT_TRUE(QFileInfo::exists(volume()) && QFileInfo::exists(tempFolder() + "/Tessel.dmg"));
    const QStringList heard = client_.messageNames();
    EXPECT_TRUE(heard.contains("postDisconnect"));
    EXPECT_LT(heard.indexOf("postDisconnect"), heard.lastIndexOf("postFinishedTask"));
}

TEST_F(GroupInstall, AFailingInstallerIsReportedAndCleanedUp)
{
    publishGroupUpdate();
    sb_.setEnv("FAKE_INSTALLER_FAIL", "all");
    const RunResult r = install("group", kTessel);
    ASSERT_EQ(r.exitCode, 0) << r.describe().toStdString();
    EXPECT_TRUE(r.out().contains("Installation failed with error code 1")) << r.describe().toStdString();
    EXPECT_EQ(errorsPosted(), QStringList{"Installation failed with error code 1"});
    EXPECT_FALSE(QFileInfo::exists(tempFolder()) || QFileInfo::exists(volume()));
    EXPECT_TRUE(installedInfo().isEmpty());
}

// A wrong checksum stops before mounting; a type the entry point does not know downloads and
// then installs nothing. Neither forgets a test feed.
TEST_F(GroupInstall, AWrongChecksumOrAnUnknownTypeInstallsNothing)
{
    publishGroupUpdate(kTessel, {{"serverChecksum", "0000000000000000000000000000000000000000"}});
    seedTestFeeds();
    RunResult r = install("group", kTessel);
    ASSERT_EQ(r.exitCode, 0) << r.describe().toStdString();
    const QString text = "Unable to install Tessel. Downloaded file is different from the server's version. Please redownload this update.";
    EXPECT_TRUE(r.out().contains(text)) << r.describe().toStdString();
    EXPECT_EQ(errorsPosted(), QStringList{text});
    EXPECT_TRUE(QFileInfo::exists(tempFolder() + "/Tessel.dmg"));

    publishGroupUpdate();
    const qsizetype before = client_.messages().size();
    r = install("Group", kTessel);
    EXPECT_EQ(r.exitCode, 0) << r.describe().toStdString();
    EXPECT_EQ(statusLines(r), kAllSteps.mid(0, 2));
    // Progress only: neither an error nor the end of the task is posted.
    const QStringList heard = client_.messageNames().mid(before);
    EXPECT_EQ(heard.count("incrementRemoteProgress"), heard.size());
    EXPECT_FALSE(heard.isEmpty());

    EXPECT_TRUE(sb_.toolCalls().isEmpty());
    EXPECT_TRUE(installedInfo().isEmpty());
    EXPECT_TRUE(keeps("testURL") && keeps("testSelfURL"));
}

// A transfer that breaks off, and an address whose name would climb out of the download folder.
TEST_F(GroupInstall, AFailedOrRefusedDownloadEndsTheRunWithNothingLeftBehind)
{
    publishGroupUpdate();
    ASSERT_TRUE(sb_.writeFile(sb_.tmpPath("keep.txt"), "must survive"));
    ASSERT_TRUE(server_.setRoutes({{"/files/Tessel.dmg", QJsonObject{{"file", "files/Tessel.dmg"}, {"drop_after", 200}}}}));
    for (const char* path : {"/files/Tessel.dmg", "/files/a%2F..%2F..%2Fkeep.txt"}) {
        publish(kTessel, {{"type", "group"}, {"title", "Tessel"}, {"groupid", kTessel}, {"url", server_.url(path)}});
        const RunResult r = install("group", kTessel);
        EXPECT_EQ(r.exitCode, 1) << path << r.describe().toStdString();
        EXPECT_EQ(statusLines(r), kAllSteps.mid(0, 1)) << path;
        EXPECT_EQ(QDir(tempFolder()).entryList(QDir::Files), QStringList()) << path;
        EXPECT_EQ(Sandbox::readFile(sb_.tmpPath("keep.txt")), QByteArray("must survive")) << path;
    }
    EXPECT_TRUE(sb_.toolCalls("hdiutil").isEmpty());
    const QStringList errors = errorsPosted();
    EXPECT_TRUE(errors.value(0).startsWith("Download failed - ")) << errors.join('|').toStdString();
    EXPECT_EQ(errors.value(errors.size() - 1),
              "Unable to download update - an error occurred. Please check your software update logs for more details.");
}

TEST_F(GroupInstall, AnAddressThatIsNotTextEndsTheRunThroughTheExceptionPath)
{
    publish(kTessel, {{"type", "group"}, {"title", "Tessel"}, {"groupid", kTessel}, {"url", 42}});
    const RunResult r = install("group", kTessel);
    EXPECT_EQ(r.exitCode, 1) << r.describe().toStdString();
    const QString text = "Exception in -[AppController startDownloadForObject:]. NSInvalidArgumentException - "
                         "-[__NSCFNumber lastPathComponent]: unrecognized selector sent to instance.";
    EXPECT_TRUE(r.out().contains(text)) << r.describe().toStdString();
    EXPECT_EQ(errorsPosted(), QStringList{text});
    EXPECT_EQ(client_.messageNames().value(client_.messages().size() - 1), "postFinishedTask");
}

// A shared temporary folder must not let another local user redirect a run: the download
// folder is never followed through a link nor used when another user owns it, and a link at
// the download's name is replaced, never written through.
TEST_F(GroupInstall, PlantedLinksAndForeignFoldersNeverRedirectADownload)
{
    publishGroupUpdate();
    const QString outside = sb_.tmpPath("outside");
    ASSERT_TRUE(sb_.writeFile(outside + "/keep.txt", "keep"));
    const auto expectRefused = [&](const char* what, const QString& reason) {
        const qsizetype before = client_.messages().size();
        const RunResult r = install("group", kTessel);
        EXPECT_EQ(r.exitCode, 1) << what << r.describe().toStdString();
        EXPECT_TRUE(errorsPosted(before).contains(QStringLiteral("Download failed - The folder %1 %2").arg(tempFolder(), reason)))
            << what << ": " << errorsPosted(before).join('|').toStdString();
        EXPECT_TRUE(sb_.toolCalls("hdiutil").isEmpty()) << what;
    };
    ASSERT_TRUE(QFile::link(outside, tempFolder()));
    expectRefused("folder link", "is a symbolic link.");
    ASSERT_TRUE(QFile::remove(tempFolder()));
    if (const std::optional<uint> nobody = Sandbox::unprivilegedUid()) {
        ASSERT_TRUE(sb_.makeDir(tempFolder()));
        ASSERT_EQ(::chown(QFile::encodeName(tempFolder()).constData(), *nobody, *nobody), 0);
        ASSERT_TRUE(QFile::setPermissions(tempFolder(), QFileDevice::Permissions(0x7777)));
        expectRefused("foreign folder", "belongs to another user.");
        ASSERT_TRUE(QDir(tempFolder()).removeRecursively());
    }
    ASSERT_TRUE(sb_.makeDir(tempFolder()));
    ASSERT_TRUE(QFile::link(outside + "/keep.txt", tempFolder() + "/Tessel.dmg"));
    const RunResult r = install("group", kTessel);
    EXPECT_EQ(r.exitCode, 0) << r.describe().toStdString();
    EXPECT_EQ(sb_.toolCalls("hdiutil").value(0).value(2), tempFolder() + "/Tessel.dmg");
    EXPECT_EQ(QDir(outside).entryList(QDir::Files), QStringList{"keep.txt"});
    EXPECT_EQ(Sandbox::readFile(outside + "/keep.txt"), QByteArray("keep"));
}

class SelfInstall : public e2e::EndToEnd {
protected:
    QString helperPath() const
    {
        return sb_.sysPath("/Library/Application Support/Velmora/Shared Resources/"
                           "SoftwareUpdateHelper.app/Contents/MacOS/SoftwareUpdateHelper");
    }
    // A helper that writes its arguments, one a line, to helperArguments().
    void installRecordingHelper()
    {
        ASSERT_TRUE(sb_.writeFile(helperPath(), QStringLiteral("#!/bin/sh\nfor a in \"$@\"; do echo \"$a\"; done > '%1'\n")
                                                    .arg(sb_.tmpPath("helper-args")).toUtf8(), true));
    }
    QStringList helperArguments() const
    {
        waitFor([&] { return QFileInfo::exists(sb_.tmpPath("helper-args")); });
        return QString::fromUtf8(Sandbox::readFile(sb_.tmpPath("helper-args"))).split('\n', Qt::SkipEmptyParts);
    }
    // The updater's own update: `image` (default: a fresh one) with `signature` when given.
    QByteArray publishSelfUpdate(QByteArray image = {}, const QString& signature = {})
    {
        if (image.isEmpty()) {
            EXPECT_TRUE(sb_.makeDiskImage(srv("files/SU.dmg"), "Velmora Software Update",
                                          {{"Uninstall Velmora Software Update.app/Contents/Info.plist", "no"},
                                           {"Velmora Software Update.app/Contents/Info.plist", "new"}}));
            image = Sandbox::readFile(srv("files/SU.dmg"));
        }
        EXPECT_TRUE(sb_.writeFile(srv("files/SU.dmg"), image));
        QVariantMap record{{"type", "self"}, {"title", "Velmora Software Update 2.0"}, {"groupid", e2e::kOwnId},
                           {"bundleid", e2e::kOwnId}, {"url", server_.url("/files/SU.dmg")}};
        if (!signature.isEmpty())
            record.insert("edSignature", signature);
        publish(e2e::kOwnId, record);
        return image;
    }
    QString volume() const { return sb_.sysPath("/Volumes/Velmora Software Update"); }
};

TEST_F(SelfInstall, HandsOverToTheHelperWithSilentLast)
{
    publishSelfUpdate();
    installRecordingHelper();
    setPrefs({{"testURL", "https://feeds.test/group.xml"}, {"testSelfURL", "https://feeds.test/self.xml"}});
    const RunResult r = install("self", e2e::kOwnId);
    ASSERT_EQ(r.exitCode, 0) << r.describe().toStdString();
    EXPECT_EQ(statusLines(r), kAllSteps.mid(0, 2));
    // Handing over forgets the test feed of the updater's own updates, and only that.
    EXPECT_TRUE(!prefs().contains("testSelfURL") && prefs().contains("testURL"));
    const QString updater = QFileInfo(QStringLiteral(VELMORA_UPDATER_BUNDLE)).absoluteFilePath();
    EXPECT_EQ(helperArguments(), (QStringList{"-source", volume() + "/Velmora Software Update.app", "-destination", updater,
                                              "-mountpath", volume(), "-silent", "1"}));
    // The image stays mounted and the download stays for the helper.
    EXPECT_TRUE(QFileInfo::exists(volume()));
    EXPECT_EQ(sb_.toolCalls("hdiutil").size(), 1);
}

TEST_F(SelfInstall, AMissingHelperLeavesTheImageMountedAndSaysSo)
{
    publishSelfUpdate();
    setPrefs({{"testSelfURL", "https://feeds.test/self.xml"}});
    const RunResult r = install("self", e2e::kOwnId);
    ASSERT_EQ(r.exitCode, 0) << r.describe().toStdString();
    EXPECT_FALSE(r.out().contains("Done."));
    EXPECT_TRUE(prefs().contains("testSelfURL")) << "no hand-over, so it is kept";
    EXPECT_EQ(errorsPosted(), QStringList{"Unable to install Velmora Software Update 2.0 - the installer is missing "
                                          "important files. Please install this update manually."});
    EXPECT_TRUE(QFileInfo::exists(volume()));
}

// The updater's own update is checked against the key in the running updater's Info.plist:
// a copy of the built updater that carries the test's key.
TEST_F(SelfInstall, TheUpdatersOwnUpdateIsCheckedAgainstItsOwnKey)
{
    const vltest::Ed25519KeyPair keys;
    const QString updater = sb_.sysPath("/Applications/Velmora Software Update.app");
    ASSERT_TRUE(vltest::runToSuccess("/bin/cp", {"-a", QStringLiteral(VELMORA_UPDATER_BUNDLE), updater}));
    QVariantMap info = sb_.readPlist(updater + "/Contents/Info.plist").value_or(QVariant()).toMap();
    info.insert("SUPublicEDKey", keys.publicKeyBase64());
    ASSERT_TRUE(sb_.writePlist(updater + "/Contents/Info.plist", info));
    installRecordingHelper();
    const QByteArray image = publishSelfUpdate();
    QByteArray tampered = image;
    tampered.back() = char(tampered.back() ^ 1);
    const QStringList arguments{"-install", "self", e2e::kOwnId};

    publishSelfUpdate(tampered, keys.signBase64(image));
    RunResult r = sb_.run(updater + "/Contents/MacOS/SoftwareUpdate", arguments);
    ASSERT_EQ(r.exitCode, 0) << r.describe().toStdString();
    const QString text = "Unable to install Velmora Software Update 2.0. The downloaded file's signature is not valid, so "
                         "the file may have been tampered with.";
    EXPECT_EQ(errorsPosted(), QStringList{text});
    EXPECT_TRUE(sb_.toolCalls().isEmpty());

    publishSelfUpdate(image, keys.signBase64(image));
    r = sb_.run(updater + "/Contents/MacOS/SoftwareUpdate", arguments);
    ASSERT_EQ(r.exitCode, 0) << r.describe().toStdString();
    EXPECT_EQ(helperArguments().value(3), updater) << r.describe().toStdString();
    EXPECT_EQ(errorsPosted(), QStringList{text}) << "nothing more";
}

class SparkleInstall : public e2e::EndToEnd {
protected:
    void SetUp() override
    {
        EndToEnd::SetUp();
        installed_ = installSparkleApp("Tessel", "appcast.xml");
        ASSERT_FALSE(installed_.isEmpty());
        oldInfo_ = info();
    }
    // The appcast offering build 200 in an image of `volumeFiles`, with the checksum of what
    // is served unless `checksum` is given, and more enclosure attributes.
    void publishImage(const QMap<QString, QByteArray>& volumeFiles, const QString& checksum = {}, const QString& extra = {})
    {
        ASSERT_TRUE(sb_.makeDiskImage(srv("files/Tessel.dmg"), "Tessel", volumeFiles));
        publishServed(checksum, extra);
    }
    void publishServed(const QString& checksum = {}, const QString& extra = {})
    {
        const QString sum = checksum.isEmpty() ? sha1(Sandbox::readFile(srv("files/Tessel.dmg"))) : checksum;
        publishAppcast("appcast.xml", 200, server_.url("/files/Tessel.dmg"), QStringLiteral(" checksum=\"%1\"%2").arg(sum, extra));
    }
    QByteArray info() const { return Sandbox::readFile(installed_ + "/Contents/Info.plist"); }
    QStringList trash() const { return QDir(sb_.homePath(".Trash")).entryList(QDir::NoDotAndDotDot | QDir::AllEntries); }

    const QMap<QString, QByteArray> newApp_{{"Tessel.app/Contents/Info.plist", "new build"}};
    QString installed_;
    QByteArray oldInfo_;
};

TEST_F(SparkleInstall, TheOldBundleGoesToTheTrashAndTheNewOneIsCopiedIn)
{
    publishImage(newApp_);
    const RunResult r = install("sparkle", installed_);
    ASSERT_EQ(r.exitCode, 0) << r.describe().toStdString();
    EXPECT_EQ(statusLines(r), kAllSteps);
    EXPECT_EQ(info(), QByteArray("new build"));
    EXPECT_EQ(Sandbox::readFile(sb_.homePath(".Trash/Tessel.app/Contents/Info.plist")), oldInfo_);
    const QString volume = sb_.sysPath("/Volumes/Tessel");
    EXPECT_EQ(sb_.toolCalls("hdiutil"), (QList<QStringList>{{"hdiutil", "attach", tempFolder() + "/Tessel.dmg", "-nobrowse"},
                                                            {"hdiutil", "detach", volume, "-force"}}));
    EXPECT_FALSE(QFileInfo::exists(volume) || QFileInfo::exists(tempFolder()));
    EXPECT_EQ(errorsPosted(), QStringList());
}

// The path as shell completion types it, with a trailing "/", and a path relative to the
// working directory install exactly as the plain absolute path does.
TEST_F(SparkleInstall, EveryFormOfThePathInstallsExactlyAsThePlainOne)
{
    publishImage(newApp_);
    const QString old = sb_.root() + "/old-bundle";
    ASSERT_TRUE(vltest::runToSuccess("/bin/cp", {"-a", installed_, old}));
    const auto installFrom = [&](const QString& path, const QString& workingDirectory) {
        vltest::RunOptions options;
        options.workingDirectory = workingDirectory;
        const RunResult r = install("sparkle", path, options);
        QStringList outcome{QString::number(r.exitCode), statusLines(r).join('|'), trash().join('|'), QString::fromUtf8(info()),
                            QDir(sb_.sysPath("/Applications")).entryList(QDir::NoDotAndDotDot | QDir::AllEntries).join('|')};
        // The tools see the path as given; a trailing "/" is the same folder to them.
        for (const QStringList& call : sb_.toolCalls())
            outcome << call.join(' ').replace(QStringLiteral(".app/"), QStringLiteral(".app"));
        // Back to the state before the run.
        EXPECT_TRUE(QDir(installed_).removeRecursively() && QDir(sb_.homePath(".Trash/Tessel.app")).removeRecursively());
        EXPECT_TRUE(vltest::runToSuccess("/bin/cp", {"-a", old, installed_}));
        QFile::remove(sb_.toolLogPath());
        return outcome;
    };
    const QStringList plain = installFrom(installed_, {});
    EXPECT_EQ(plain.mid(0, 4), (QStringList{"0", kAllSteps.join('|'), "Tessel.app", "new build"}));
    EXPECT_EQ(installFrom(installed_ + "/", {}), plain);
    EXPECT_EQ(installFrom("Tessel.app/", sb_.sysPath("/Applications")), plain);
}

TEST_F(SparkleInstall, FailuresLeaveTheInstalledAppUntouched)
{
    struct Case {
        QMap<QString, QByteArray> volume;
        QString checksum;
        const char* fakeSwitch;
        QString error;
    };
    const QList<Case> cases = {
        {newApp_, "0123456789abcdef0123456789abcdef01234567", "",
         "Unable to install Tessel 2.0. Downloaded file is different from the server's version. Please redownload this update."},
        {newApp_, {}, "FAKE_HDIUTIL_FAIL=attach", "Unable to install Tessel 2.0. Cannot mount disk image."},
        // A hanging image tool is stopped after its ten seconds.
        {newApp_, {}, "FAKE_HDIUTIL_SLEEP=60", "Unable to install Tessel 2.0. Cannot mount disk image."},
        {{{"Read Me.txt", "text"}, {"Uninstall Tessel.prefPane/x", "u"}}, {}, "",
         "Unable to install Tessel 2.0. Cannot find executable file on disk image."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.fakeSwitch);
        publishImage(c.volume, c.checksum);
        const QString fakeSwitch = QString::fromLatin1(c.fakeSwitch);
        vltest::RunOptions options;
        if (!fakeSwitch.isEmpty())
            options.extraEnv.insert(fakeSwitch.section('=', 0, 0), fakeSwitch.section('=', 1));
        const qsizetype before = client_.messages().size();
        const RunResult r = install("sparkle", installed_, options);
        EXPECT_EQ(r.exitCode, 0) << r.describe().toStdString();
        EXPECT_EQ(info(), oldInfo_) << c.error.toStdString();
        EXPECT_EQ(trash(), QStringList()) << c.error.toStdString();
        EXPECT_EQ(errorsPosted(before), QStringList{c.error});
        if (fakeSwitch.contains("SLEEP")) {
            EXPECT_TRUE(runLog().contains("Task " + sb_.sysPath("/usr/bin/hdiutil") + " timed out. Terminating..."));
        }
        QDir(sb_.sysPath("/Volumes")).removeRecursively();
    }
}

// Without a window the updater never asks for administrator rights: a copy that needs them
// fails, names the path, and leaves the old application in the Trash.
TEST_F(SparkleInstall, AnUnprivilegedCopyThatNeedsRightsFailsWithoutAPrompt)
{
    const std::optional<uint> uid = Sandbox::unprivilegedUid();
    if (!uid)
        GTEST_SKIP() << "needs root to run the updater as an unprivileged user";
    // The image's application has another name, taken by a file in the install folder.
    publishImage({{"Other.app/Contents/Info.plist", "new build"}});
    ASSERT_TRUE(sb_.writeFile(sb_.sysPath("/Applications/Other.app"), "in the way"));
    ASSERT_TRUE(sb_.giveHomeTo(*uid));
    ASSERT_TRUE(vltest::runToSuccess("/bin/chown", {"-R", QString::number(*uid), sb_.sysPath("/Applications")}));
    // The server's own folder is private to root: hand the user a readable copy of its CA.
    ASSERT_TRUE(QFile::copy(server_.caFile(), sb_.tmpPath("ca.pem")));
    sb_.setEnv("VELMORA_CA_FILE", sb_.tmpPath("ca.pem"));
    const RunResult r = install("sparkle", installed_, {.uid = uid});
    ASSERT_EQ(r.exitCode, 0) << r.describe().toStdString();
    EXPECT_EQ(Sandbox::readFile(sb_.homePath(".Trash/Tessel.app/Contents/Info.plist")), oldInfo_);
    EXPECT_FALSE(QFileInfo::exists(installed_));
    EXPECT_EQ(errorsPosted(), QStringList{QStringLiteral("Unable to install Tessel 2.0. Please check you have the necessary "
                                                         "permissions to write to %1.").arg(installed_)});
    EXPECT_TRUE(sb_.toolCalls("pkexec").isEmpty());
}

class SignedSparkleInstall : public SparkleInstall {
protected:
    void SetUp() override
    {
        SparkleInstall::SetUp();
        ASSERT_TRUE(keys_.isValid());
        publishImage(newApp_);
        image_ = Sandbox::readFile(srv("files/Tessel.dmg"));
    }
    // Build 100 carrying `key` (none when invalid); `served` with the server's checksum of
    // what is served (a server that was taken over publishes a matching one) and `signature`.
    RunResult installSigned(const QVariant& key, const QByteArray& served, const QString& signature)
    {
        QDir(installed_).removeRecursively();
        QDir(sb_.homePath(".Trash")).removeRecursively();
        EXPECT_TRUE(sb_.makeDir(sb_.homePath(".Trash")));
        EXPECT_FALSE(installSparkleApp("Tessel", "appcast.xml", key.isValid() ? QVariantMap{{"SUPublicEDKey", key}} : QVariantMap())
                         .isEmpty());
        oldInfo_ = info();
        EXPECT_TRUE(sb_.writeFile(srv("files/Tessel.dmg"), served));
        publishServed({}, signature.isNull() ? QString() : QStringLiteral(" sparkle:edSignature=\"%1\"").arg(signature));
        QFile::remove(sb_.toolLogPath());
        QDir(tempFolder()).removeRecursively();
        QDir(sb_.sysPath("/Volumes")).removeRecursively();
        return install("sparkle", installed_);
    }

    vltest::Ed25519KeyPair keys_;
    QByteArray image_;
};

// A good signature installs; a bad one, or a bad key, stops before anything is mounted. A
// signature without a key in the application, or a key without a signature (an empty one says
// as little as none), installs as an unsigned update does.
TEST_F(SignedSparkleInstall, AGoodSignatureOrNoneInstallsAndABadOneTouchesNothing)
{
    const QString good = keys_.signBase64(image_);
    const QString key = keys_.publicKeyBase64();
    QByteArray tampered = image_;
    tampered.back() = char(tampered.back() ^ 1);
    const QString tamperedText = "The downloaded file's signature is not valid, so the file may have been tampered with.";
    const struct {
        const char* what;
        QByteArray image;
        QString signature;
        QVariant key;
        QString refusal; // empty: the update installs
    } cases[] = {
        {"signed by the installed app's key", image_, good, key, {}},
        {"one byte of the download flipped", tampered, good, key, tamperedText},
        {"signature truncated", image_, good.left(good.size() - 4), key, tamperedText},
        {"installed key of the wrong length", image_, good, QString::fromLatin1(keys_.publicKey().left(31).toBase64()),
         "The installed application's public key is not valid, so this update cannot be verified."},
        {"a key, no signature", image_, {}, key, {}},
        {"a signature that cannot be right, no key", image_, "not base64 at all!", {}, {}},
        {"an empty key, a good signature", image_, good, QString(""), {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const qsizetype before = client_.messages().size();
        const RunResult r = installSigned(c.key, c.image, c.signature);
        ASSERT_EQ(r.exitCode, 0) << r.describe().toStdString();
        if (c.refusal.isEmpty()) {
            EXPECT_EQ(statusLines(r), kAllSteps);
            EXPECT_EQ(info(), QByteArray("new build"));
            EXPECT_EQ(errorsPosted(before), QStringList());
            continue;
        }
        EXPECT_EQ(errorsPosted(before), QStringList{"Unable to install Tessel 2.0. " + c.refusal});
        // Stopped before mounting: nothing of the user's was touched; the download stays.
        EXPECT_TRUE(sb_.toolCalls().isEmpty());
        EXPECT_EQ(info(), oldInfo_);
        EXPECT_EQ(trash(), QStringList());
        EXPECT_EQ(Sandbox::readFile(tempFolder() + "/Tessel.dmg"), c.image);
    }
}

} // namespace
