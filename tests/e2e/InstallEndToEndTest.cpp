// -install without a window, as a vendor client runs it, against the local server with the fake
// system tools: what is printed, which tools ran with which arguments, what ends up installed,
// what is cleaned up, and what the client hears. Group packages, the updater's own update,
// Sparkle applications, and signed downloads.
#include "EndToEnd.h"

#include "support/ChildProcess.h"
#include "support/Ed25519KeyPair.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonObject>

#include <unistd.h>

namespace {

using e2e::waitFor;
using vltest::RunResult;
using vltest::Sandbox;

const QString kTessel = QStringLiteral("com.velmora.tessel");
const QStringList kAllSteps{"Downloading installer...", "Installing update...", "Done."};

class GroupInstall : public e2e::EndToEnd {
protected:
    // The server's record for group `id` (`extra` adds keys): a disk image holding an
    // uninstaller package first and the installer package after it.
    void publishGroupUpdate(const QString& id = kTessel, const QVariantMap& extra = {})
    {
        const QString pkg = sb_.root() + QStringLiteral("/build/Tessel.pkg");
        ASSERT_TRUE(sb_.makeDiskImage(pkg, "payload", {{"Applications/Tessel.app/Contents/Info.plist", "new build"}}));
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

// The group appcast exactly as the server sends it ("groupID", no "groupid", no "type"): the
// run quits no running vendor application, neither one of the group nor one without a group.
// A record that names the product ("groupID") gets the client the disconnect, and the
// installer runs on without the updater: no clean-up follows.
TEST_F(GroupInstall, TheServedGroupAppcastLeavesRunningApplicationsAloneAndDisconnectsTheClient)
{
    // The group of the client listening here, so that the record names that product.
    const QString id = kTessel;
    publishGroupUpdate(id);
    publish(id, {{"groupID", id}, {"groupVersion", 300}, {"groupVersionString", "3.0"}, {"title", "Tessel 3.0"},
                 {"url", server_.url("/files/Tessel.dmg")}, {"checksum", sha1(Sandbox::readFile(srv("files/Tessel.dmg")))}});
    vltest::ChildProcess running[2];
    for (int i = 0; i < 2; ++i) {
        const QString name = i ? QStringLiteral("Clips") : QStringLiteral("Notes");
        vltest::FakeBundle app{sb_.sysPath("/Applications/Velmora " + name + ".app"), "com.velmora." + name.toLower()};
        app.extraInfo = i ? QVariantMap{{"VLGroupID", id}} : QVariantMap();
        ASSERT_FALSE(sb_.createBundle(app).isEmpty());
        ASSERT_TRUE(running[i].start(app.path + "/Contents/MacOS/Velmora " + name, {"300"}));
    }
    const RunResult r = install("group", id);
    ASSERT_EQ(r.exitCode, 0) << r.describe().toStdString();
    EXPECT_EQ(statusLines(r), kAllSteps);
    EXPECT_TRUE(waitFor([&] { return installedInfo() == "new build"; }));
    EXPECT_EQ(sb_.toolCalls("installer"), (QList<QStringList>{{"installer", "-pkg", volume() + "/Tessel.pkg", "-target", "/"}}));
    EXPECT_EQ(sb_.toolCalls("hdiutil").size(), 1);
    EXPECT_TRUE(QFileInfo::exists(volume()) && QFileInfo::exists(tempFolder() + "/Tessel.dmg"));
    const QStringList heard = client_.messageNames();
    EXPECT_TRUE(heard.contains("postDisconnect"));
    EXPECT_LT(heard.indexOf("postDisconnect"), heard.lastIndexOf("postFinishedTask"));
    for (vltest::ChildProcess& app : running)
        EXPECT_FALSE(app.waitForFinished(200)) << "a running application was quit";
}

// A failing installer is reported and cleaned up; a type the entry point does not know
// ("Group") downloads and then installs nothing, posting progress only, and forgets no test feed.
TEST_F(GroupInstall, AFailingInstallerOrAnUnknownTypeInstallsNothing)
{
    publishGroupUpdate();
    RunResult r = install("group", kTessel, {.extraEnv = {{"FAKE_INSTALLER_FAIL", "all"}}});
    ASSERT_EQ(r.exitCode, 0) << r.describe().toStdString();
    EXPECT_TRUE(r.out().contains("Installation failed with error code 1")) << r.describe().toStdString();
    EXPECT_EQ(errorsPosted(), QStringList{"Installation failed with error code 1"});
    EXPECT_FALSE(QFileInfo::exists(tempFolder()) || QFileInfo::exists(volume()));

    QFile::remove(sb_.toolLogPath());
    seedTestFeeds();
    const qsizetype before = client_.messages().size();
    r = install("Group", kTessel);
    EXPECT_EQ(r.exitCode, 0) << r.describe().toStdString();
    EXPECT_EQ(statusLines(r), kAllSteps.mid(0, 2));
    const QStringList heard = client_.messageNames().mid(before);
    EXPECT_EQ(heard.count("incrementRemoteProgress"), heard.size());
    EXPECT_FALSE(heard.isEmpty());
    EXPECT_TRUE(sb_.toolCalls().isEmpty());
    EXPECT_TRUE(installedInfo().isEmpty());
    EXPECT_TRUE(keeps("testURL") && keeps("testSelfURL"));
}

// A download that fails ends the run with status 1 (the download's own failures are proven in
// DownloadTest): an address that is not text, through the download's exception guard, and a
// download folder another local user could redirect. The folder is never followed through a
// link nor used when another user owns it, and a link at the download's name is replaced,
// never written through.
TEST_F(GroupInstall, AFailedDownloadEndsTheRunAndPlantedLinksNeverRedirectIt)
{
    const auto expectFailure = [&](const QStringList& errors) {
        const qsizetype before = client_.messages().size();
        const RunResult r = install("group", kTessel);
        EXPECT_EQ(r.exitCode, 1) << r.describe().toStdString();
        EXPECT_EQ(errorsPosted(before), errors);
        EXPECT_EQ(client_.messageNames().value(client_.messages().size() - 1), "postFinishedTask");
    };
    publish(kTessel, {{"type", "group"}, {"title", "Tessel"}, {"groupid", kTessel}, {"url", 42}});
    expectFailure({"Exception in -[AppController startDownloadForObject:]. NSInvalidArgumentException - "
                   "-[__NSCFNumber lastPathComponent]: unrecognized selector sent to instance."});
    publishGroupUpdate();
    const QString outside = sb_.tmpPath("outside");
    ASSERT_TRUE(sb_.writeFile(outside + "/keep.txt", "keep"));
    const auto expectRefused = [&](const QString& reason) {
        expectFailure({QStringLiteral("Download failed - The folder %1 %2").arg(tempFolder(), reason),
                       "Unable to download update - an error occurred. Please check your software update logs for more details."});
    };
    ASSERT_TRUE(QFile::link(outside, tempFolder()));
    expectRefused("is a symbolic link.");
    ASSERT_TRUE(QFile::remove(tempFolder()));
    if (const std::optional<uint> nobody = Sandbox::unprivilegedUid()) {
        ASSERT_TRUE(sb_.makeDir(tempFolder()));
        ASSERT_EQ(::chown(QFile::encodeName(tempFolder()).constData(), *nobody, *nobody), 0);
        expectRefused("belongs to another user.");
        ASSERT_TRUE(QDir(tempFolder()).removeRecursively());
    }
    EXPECT_TRUE(sb_.toolCalls("hdiutil").isEmpty());
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

// Without its helper the run says so and leaves the image mounted; with it, the run hands
// over with "-silent" last and forgets the test feed of the updater's own updates, and only that.
TEST_F(SelfInstall, HandsOverToTheHelperWithSilentLastOrSaysItIsMissing)
{
    publishSelfUpdate();
    setPrefs({{"testURL", "https://feeds.test/group.xml"}, {"testSelfURL", "https://feeds.test/self.xml"}});
    RunResult r = install("self", e2e::kOwnId);
    ASSERT_EQ(r.exitCode, 0) << r.describe().toStdString();
    EXPECT_FALSE(r.out().contains("Done."));
    EXPECT_TRUE(prefs().contains("testSelfURL")) << "no hand-over, so it is kept";
    EXPECT_EQ(errorsPosted(), QStringList{"Unable to install Velmora Software Update 2.0 - the installer is missing "
                                          "important files. Please install this update manually."});
    EXPECT_TRUE(QFileInfo::exists(volume()));

    ASSERT_TRUE(QDir(volume()).removeRecursively() && QFile::remove(sb_.toolLogPath()));
    installRecordingHelper();
    r = install("self", e2e::kOwnId);
    ASSERT_EQ(r.exitCode, 0) << r.describe().toStdString();
    EXPECT_EQ(statusLines(r), kAllSteps.mid(0, 2));
    EXPECT_TRUE(!prefs().contains("testSelfURL") && prefs().contains("testURL"));
    const QString updater = QFileInfo(QStringLiteral(VELMORA_UPDATER_BUNDLE)).absoluteFilePath();
    EXPECT_EQ(helperArguments(), (QStringList{"-source", volume() + "/Velmora Software Update.app", "-destination", updater,
                                              "-mountpath", volume(), "-silent", "1"}));
    // The image stays mounted and the download stays for the helper.
    EXPECT_TRUE(QFileInfo::exists(volume()));
    EXPECT_EQ(sb_.toolCalls("hdiutil").size(), 1);
}

// The updater's own update is checked against the key in the running updater's Info.plist (a
// copy of the built updater that carries the test's key): a tampered image is refused before
// anything is mounted. When a signature passes and when it is refused is InstallersTest's.
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
    publishSelfUpdate(tampered, keys.signBase64(image));
    const RunResult r = sb_.run(updater + "/Contents/MacOS/SoftwareUpdate", {"-install", "self", e2e::kOwnId});
    ASSERT_EQ(r.exitCode, 0) << r.describe().toStdString();
    EXPECT_EQ(errorsPosted(), QStringList{"Unable to install Velmora Software Update 2.0. The downloaded file's signature is "
                                          "not valid, so the file may have been tampered with."});
    EXPECT_TRUE(sb_.toolCalls().isEmpty());
    EXPECT_FALSE(QFileInfo::exists(sb_.tmpPath("helper-args")));
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
    // The appcast offering build 200 in an image of `volumeFiles`, with the checksum of what is served.
    void publishImage(const QMap<QString, QByteArray>& volumeFiles)
    {
        ASSERT_TRUE(sb_.makeDiskImage(srv("files/Tessel.dmg"), "Tessel", volumeFiles));
        const QString sum = sha1(Sandbox::readFile(srv("files/Tessel.dmg")));
        publishAppcast("appcast.xml", 200, server_.url("/files/Tessel.dmg"), QStringLiteral(" checksum=\"%1\"").arg(sum));
    }
    QByteArray info() const { return Sandbox::readFile(installed_ + "/Contents/Info.plist"); }
    QByteArray trashedInfo() const { return Sandbox::readFile(sb_.homePath(".Trash/Tessel.app/Contents/Info.plist")); }

    const QMap<QString, QByteArray> newApp_{{"Tessel.app/Contents/Info.plist", "new build"}};
    QString installed_;
    QByteArray oldInfo_;
};

// The old bundle goes to the Trash, the new one is copied in, and the image and the download
// go. The path as shell completion types it, with a trailing "/", and a path relative to the
// working directory install exactly as the plain absolute path does.
TEST_F(SparkleInstall, TheOldBundleGoesToTheTrashFromEveryFormOfThePath)
{
    publishImage(newApp_);
    const QString old = sb_.root() + "/old-bundle";
    const QString volume = sb_.sysPath("/Volumes/Tessel");
    ASSERT_TRUE(vltest::runToSuccess("/bin/cp", {"-a", installed_, old}));
    const auto installFrom = [&](const QString& path, const QString& workingDirectory) {
        const RunResult r = install("sparkle", path, {.workingDirectory = workingDirectory});
        QStringList outcome{QString::number(r.exitCode), statusLines(r).join('|'), QString::fromUtf8(trashedInfo()),
                            QString::fromUtf8(info()), errorsPosted().join('|'),
                            QString::number(QFileInfo::exists(volume) || QFileInfo::exists(tempFolder()))};
        // The tools see the path as given; a trailing "/" is the same folder to them.
        for (const QStringList& call : sb_.toolCalls())
            outcome << call.join(' ').replace(".app/", ".app");
        // Back to the state before the run.
        EXPECT_TRUE(QDir(installed_).removeRecursively() && QDir(sb_.homePath(".Trash/Tessel.app")).removeRecursively());
        EXPECT_TRUE(vltest::runToSuccess("/bin/cp", {"-a", old, installed_}) && QFile::remove(sb_.toolLogPath()));
        return outcome;
    };
    const QStringList plain = installFrom(installed_, {});
    EXPECT_EQ(plain, (QStringList{"0", kAllSteps.join('|'), QString::fromUtf8(oldInfo_), "new build", "", "0",
                                  "hdiutil attach " + tempFolder() + "/Tessel.dmg -nobrowse", "touch -c " + installed_,
                                  "hdiutil detach " + volume + " -force"}));
    EXPECT_EQ(installFrom(installed_ + "/", {}), plain);
    EXPECT_EQ(installFrom("Tessel.app/", sb_.sysPath("/Applications")), plain);
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

} // namespace
