// The installers: the installation pass and each installer's early exits through a recording
// interface (what the user sees, in order), the human-readable size and what each installer
// takes from a volume; then the installers with a window, in-process on a sandbox tree with the
// fake tools: replacing a running application, the interactive package installer's fallback (a
// shell stands in for it; the "package" is a script that leaves a mark), cancels, and quitting
// a group's applications.
#include "AppController.h"
#include "UpdateRecord.h"
#include "install/DownloadSignature.h"
#include "install/VolumeFilters.h"
#include "platform/system/Bundle.h"
#include "platform/system/ProcessList.h"

#include "support/ChildProcess.h"
#include "support/Ed25519KeyPair.h"
#include "support/LogFixture.h"
#include "support/QtPrinters.h"
#include "support/RecordingUserInterface.h"
#include "support/Sandbox.h"
#include "support/ScopedEnvironment.h"

#include <gtest/gtest.h>

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QThread>

#include <atomic>
#include <functional>
#include <thread>

namespace {

const UpdateRecord kTessel{{record::kTitle, QStringLiteral("Tessel 2.0")}, {record::kUrl, QStringLiteral("https://example.com/files/Tessel.dmg")},
                           {record::kPath, QStringLiteral("/Applications/Tessel.app")}};

class InstallPassTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        log_.environment().set("TMPDIR", log_.path(QStringLiteral("tmp")));
        ASSERT_TRUE(QDir().mkpath(log_.path(QStringLiteral("tmp"))));
        auto ui = std::make_unique<vltest::RecordingUserInterface>();
        ui_ = ui.get();
        controller_ = AppController::init(std::move(ui));
    }
    void runEachInstaller(const UpdateRecord& record)
    {
        controller_->installSparkleApp(record);
        controller_->installGroupApp(record, true);
        controller_->installSelfUpdate(record);
    }

    vltest::LogFixture log_;
    vltest::RecordingUserInterface* ui_ = nullptr; // owned by the controller
    std::unique_ptr<AppController> controller_;
};

TEST(FormatFileSize, EachUnitHasItsOwnFormatAndStrictBoundaries)
{
    const QList<QPair<double, const char*>> sizes = {
        {1023.9, "1023.000000 B"}, // rounded down, and still below the KB boundary
        {1048575, "1024.00 KB"}, {1048576, "1.0 MB"}, {5.5 * 1073741824.0, "5.50 GB"}};
    for (const auto& [bytes, text] : sizes)
        EXPECT_EQ(AppController::formatFileSize(bytes), QString::fromLatin1(text));
}

TEST_F(InstallPassTest, EveryPaidUpgradeIsAskedFirstAndDecliningDeselectsIt)
{
    ui_->sheetAnswer = 0;
    const auto paid = [](const char* title, int selected) {
        return UpdateRecord{{record::kType, record::kTypeGroup}, {record::kTitle, QString::fromLatin1(title)}, {record::kSelected, selected},
                            {record::kUrl, QStringLiteral("https://127.0.0.1:9/x.dmg")}, {record::kPaidUpgrade, true}};
    };
    controller_->dataArray = {paid("A", 1), paid("B", 0), paid("C", 1)};
    // The pass on a worker thread while this (main) thread serves its interface requests.
    vltest::runOffMainThread([&] { controller_->installSelectedItems(); });
    // Nothing is left selected: the panel only shows and closes, and the list is refreshed.
    EXPECT_EQ(ui_->calls(), (QStringList{"sheet:A is a paid upgrade. Are you sure you wish to install it?", "reloadTableView",
                                         "sheet:C is a paid upgrade. Are you sure you wish to install it?", "reloadTableView",
                                         "showInstallProgress", "endProgress", "reloadTableView"}));
    for (const UpdateRecord& r : controller_->dataArray)
        EXPECT_EQ(r.value(record::kSelected).toInt(), 0) << r.value(record::kTitle).toString().toStdString();
}

// A cancelled pass, a download that is missing, and an address that is not text: each installer
// ends in its own words, the last through its own exception path.
TEST_F(InstallPassTest, EachInstallerEndsACancelledPassAMissingDownloadAndAFaultInItsOwnWords)
{
    controller_->updateCancelled = true;
    runEachInstaller(kTessel);
    EXPECT_EQ(ui_->calls(), (QStringList{"endProgress", "endProgress", "endProgress"}));

    controller_->updateCancelled = false;
    runEachInstaller(kTessel);
    const QString title = QStringLiteral("alertPanel:Unable to install Tessel 2.0");
    EXPECT_EQ(ui_->calls().mid(3), (QStringList{"status:Installing Tessel 2.0...", "startInstallProgress", title,
                                                "status:Installing Tessel 2.0...", "startInstallProgress", title,
                                                "status:Installing Tessel 2.0...", "startInstallProgress", title}));
    EXPECT_FALSE(vltest::LogFixture::logText().contains(QStringLiteral("Mounting disk image...")));

    UpdateRecord malformed = kTessel;
    malformed.insert(record::kUrl, QVariantList{QStringLiteral("https://example.com/files/Tessel.dmg")});
    runEachInstaller(malformed);
    const QString log = vltest::LogFixture::logText();
    for (const char* method : {"installSparkleApp:", "installGroupApp:autoInstall:", "installSelfUpdate:"}) {
        EXPECT_TRUE(log.contains(QStringLiteral("Exception in -[AppController %1]. NSInvalidArgumentException - "
                                                "-[__NSArrayM lastPathComponent]: unrecognized selector sent to instance.")
                                     .arg(QLatin1String(method))))
            << method;
    }
}

// A signed download is checked only when the record has a signature and the installed copy a
// key (an empty one says as little as none); a refusal is worded by what was wrong. The
// verdicts themselves are VLSignatureTest's.
TEST_F(InstallPassTest, ASignatureIsCheckedOnlyAgainstAKeyAndARefusalSaysWhatWasWrong)
{
    const vltest::Ed25519KeyPair keys;
    ASSERT_TRUE(keys.isValid());
    const QString file = log_.path(QStringLiteral("tmp/Tessel.dmg"));
    ASSERT_TRUE(vltest::Sandbox::writeFile(file, "image"));
    const QString good = keys.signBase64("image"), key = keys.publicKeyBase64(), garbage = QStringLiteral("not base64 at all!");
    const char* badSignature = "The downloaded file's signature is not valid, so the file may have been tampered with.";
    const struct {
        const char* what;
        QVariant signature, key;
        const char* refusal; // nullptr: the download passes
    } cases[] = {
        {"signed by the installed key", good, key, nullptr},
        {"signed over other bytes", keys.signBase64("imagf"), key, badSignature},
        {"a signature that is not base64", garbage, key, badSignature},
        {"installed key of the wrong length", good, QString::fromLatin1(keys.publicKey().left(31).toBase64()),
         "The installed application's public key is not valid, so this update cannot be verified."},
        {"a key, no signature", {}, key, nullptr},
        {"a signature that cannot be right, no key", garbage, {}, nullptr},
        {"an empty key, a good signature", good, QString(), nullptr},
    };
    for (const auto& c : cases) {
        UpdateRecord record = kTessel;
        if (c.signature.isValid())
            record.insert(record::kEdSignature, c.signature);
        const qsizetype logged = vltest::LogFixture::logText().size();
        EXPECT_EQ(install::verifyDownloadSignature(*controller_, record, file, c.key), c.refusal == nullptr) << c.what;
        const QString added = vltest::LogFixture::logText().mid(logged);
        EXPECT_EQ(added.contains(QStringLiteral("Unable to install")), c.refusal != nullptr) << c.what;
        EXPECT_TRUE(!c.refusal || added.contains(QStringLiteral("Unable to install Tessel 2.0. ") + QLatin1String(c.refusal))) << c.what;
    }
}

// The quirks the volume filters keep; the uninstaller package passed over is the install run's.
TEST(VolumeFilters, EachInstallerTakesTheFirstNameItsFilterAccepts)
{
    // "not Uninstall" binds to preference panes only: an uninstaller application is taken,
    // except by the updater's own installer.
    const QStringList apps = {QStringLiteral("Uninstall Tessel.prefPane"), QStringLiteral("Uninstall Tessel.app"), QStringLiteral("TESSEL.APP")};
    EXPECT_EQ(install::firstMatching(apps, &install::isInstallableBundleName), QStringLiteral("Uninstall Tessel.app"));
    EXPECT_EQ(install::firstMatching(apps, &install::isUpdaterApplicationName), QStringLiteral("TESSEL.APP"));
    // Packages: any name ending in "pkg", dot or not.
    EXPECT_EQ(install::firstMatching({QStringLiteral("Tessel.pkg.zip"), QStringLiteral("Tesselpkg")}, &install::isInstallerPackageName),
              QStringLiteral("Tesselpkg"));
}

class WindowedInstaller : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(sb_.isValid() && sb_.installFakeTools() && sb_.makeDir(sb_.sysPath(QStringLiteral("/Library/Logs/Velmora"))));
        for (const char* name : {"HOME", "TMPDIR", "VELMORA_SYSROOT", "FAKE_TOOL_LOG"})
            env_.set(name, sb_.environment().value(QString::fromLatin1(name)));
        auto ui = std::make_unique<vltest::RecordingUserInterface>();
        ui_ = ui.get();
        controller_ = AppController::init(std::move(ui));
    }
    // Runs `install`; once `ready` holds (polled on another thread), the user cancels.
    void cancelWhen(const std::function<bool()>& ready, const std::function<void()>& install)
    {
        std::atomic<bool> done{false};
        std::thread canceller([&] {
            const QDeadlineTimer guard(60000);
            while (!done && !ready() && !guard.hasExpired())
                QThread::msleep(5);
            controller_->cancelInstall();
        });
        install();
        done = true;
        canceller.join();
    }

    vltest::Sandbox sb_;
    vltest::ScopedEnvironment env_;
    vltest::RecordingUserInterface* ui_ = nullptr; // owned by the controller
    std::unique_ptr<AppController> controller_;
};

class ApplicationInstaller : public WindowedInstaller {
protected:
    void SetUp() override
    {
        WindowedInstaller::SetUp();
        ASSERT_FALSE(sb_.createBundle({installed_, QStringLiteral("com.velmora.tessel"), QStringLiteral("100")}).isEmpty());
        before_ = installedInfo();
        ASSERT_TRUE(sb_.makeDiskImage(controller_->downloadPath + QStringLiteral("/Tessel.dmg"), QStringLiteral("Tessel"),
                                      {{QStringLiteral("Tessel.app/Contents/Info.plist"), "new build"}}));
        ASSERT_TRUE(running_.start(installed_ + QStringLiteral("/Contents/MacOS/Tessel"), {QStringLiteral("300")}));
    }
    UpdateRecord record() const
    {
        return {{record::kType, record::kTypeSparkle}, {record::kTitle, QStringLiteral("Tessel 2.0")},
                {record::kUrl, QStringLiteral("https://example.com/Tessel.dmg")}, {record::kPath, installed_},
                {record::kBundleId, QStringLiteral("com.velmora.tessel")}};
    }
    QByteArray installedInfo() const
    {
        QFile f(installed_ + QStringLiteral("/Contents/Info.plist"));
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    }
    // Abandoned: nothing of the installed application touched, the image and the download kept.
    void expectAbandoned()
    {
        EXPECT_EQ(installedInfo(), before_);
        EXPECT_TRUE(running_.isRunning());
        EXPECT_TRUE(QDir(sb_.homePath(QStringLiteral(".Trash"))).isEmpty());
        EXPECT_TRUE(sb_.toolCalls(QStringLiteral("killall")).isEmpty());
        EXPECT_TRUE(QFileInfo::exists(volume_));
        EXPECT_TRUE(QFileInfo::exists(controller_->downloadPath + QStringLiteral("/Tessel.dmg")));
    }

    const QString installed_ = sb_.sysPath(QStringLiteral("/Applications/Tessel.app"));
    const QString volume_ = sb_.sysPath(QStringLiteral("/Volumes/Tessel"));
    QByteArray before_;
    vltest::ChildProcess running_; // killed and reaped first, when the test ends
};

class PackageInstallerFallback : public WindowedInstaller {
protected:
    void SetUp() override
    {
        WindowedInstaller::SetUp();
        const QString installer = sb_.sysPath(QStringLiteral("/System/Library/CoreServices/Installer.app"));
        ASSERT_TRUE(sb_.writePlist(installer + QStringLiteral("/Contents/Info.plist"),
                                   QVariantMap{{QStringLiteral("CFBundleExecutable"), QStringLiteral("Installer")},
                                               {QStringLiteral("CFBundleIdentifier"), QStringLiteral("com.apple.installer")}}));
        ASSERT_TRUE(QDir().mkpath(installer + QStringLiteral("/Contents/MacOS")));
        ASSERT_TRUE(QFile::copy(QStringLiteral("/bin/sh"), installer + QStringLiteral("/Contents/MacOS/Installer")));
        const QByteArray package = "sleep 2\nprintf '%s' \"$0\" > '" + mark_.toUtf8() + "'\n";
        ASSERT_TRUE(sb_.makeDiskImage(controller_->downloadPath + QStringLiteral("/Studio.dmg"), QStringLiteral("Studio"),
                                      {{QStringLiteral("Velmora Studio.pkg"), package}}));
    }
    void install()
    {
        controller_->installGroupApp({{record::kType, record::kTypeGroup}, {record::kTitle, QStringLiteral("Velmora Studio 8.0")},
                                      {record::kUrl, QStringLiteral("https://example.com/Studio.dmg")},
                                      {record::kGroupId, QStringLiteral("com.velmora.studio")}},
                                     false);
    }

    const QString mark_ = sb_.tmpPath(QStringLiteral("installed-by"));
    const QString volume_ = sb_.sysPath(QStringLiteral("/Volumes/Studio"));
};

TEST_F(ApplicationInstaller, ACancelWhileTheImageMountsAbandonsTheInstallation)
{
    ui_->installSheetAnswer = 0; // were the cancel missed, the sheet would end the test, not hang it
    cancelWhen([&] { return QFileInfo::exists(volume_); }, [&] { controller_->installSparkleApp(record()); });
    EXPECT_EQ(ui_->calls().last(), QStringLiteral("endProgress"));
    EXPECT_FALSE(ui_->calls().contains(QStringLiteral("status:Waiting for application to close..."))) << "stopped before the sheet";
    expectAbandoned();
}

TEST_F(ApplicationInstaller, CancelInTheRunningSheetAbandonsTheInstallation)
{
    ui_->installSheetAnswer = 0;
    // The sheet names the application also when its path ends in "/".
    UpdateRecord slashed = record();
    slashed.insert(record::kPath, installed_ + QStringLiteral("/"));
    controller_->installSparkleApp(slashed);
    EXPECT_TRUE(ui_->calls().contains(QStringLiteral("installSheet:Tessel is currently running")));
    expectAbandoned();
}

TEST_F(ApplicationInstaller, ForceQuitEndsTheAppInstallsAndOpensItAgain)
{
    ui_->installSheetAnswer = 1;
    controller_->installSparkleApp(record());
    EXPECT_EQ(sb_.toolCalls(QStringLiteral("killall")), (QList<QStringList>{{"killall", "Tessel"}}));
    EXPECT_TRUE(running_.waitForFinished(5000));
    EXPECT_EQ(installedInfo(), QByteArray("new build"));
    EXPECT_TRUE(ui_->calls().contains(QStringLiteral("closeInstallSheet")));
    EXPECT_FALSE(QFileInfo::exists(volume_));
    // Opened again from its installed path (the opener starts detached: recorded a moment later).
    const QDeadlineTimer guard(5000);
    while (sb_.toolCalls(QStringLiteral("xdg-open")).isEmpty() && !guard.hasExpired())
        QThread::msleep(50);
    EXPECT_EQ(sb_.toolCalls(QStringLiteral("xdg-open")), (QList<QStringList>{{"xdg-open", installed_}}));
}

TEST_F(ApplicationInstaller, ARecordWithoutBundleIdentifierIsNeverSeenRunning)
{
    const QString bare = sb_.createBundle({sb_.sysPath(QStringLiteral("/Applications/Bare.app"))});
    vltest::ChildProcess bareRunning;
    ASSERT_TRUE(bareRunning.start(bare + QStringLiteral("/Contents/MacOS/Bare"), {QStringLiteral("300")}));
    ui_->installSheetAnswer = 0;
    UpdateRecord withoutID = record();
    withoutID.remove(record::kBundleId);
    controller_->installSparkleApp(withoutID);
    EXPECT_FALSE(ui_->calls().contains(QStringLiteral("status:Waiting for application to close...")));
    EXPECT_EQ(installedInfo(), QByteArray("new build"));
}

// Without a window each failure is one sentence for the client and the log; the installed
// application and the Trash are left alone and the download stays. The signature is checked
// against the key of the copy being replaced.
TEST_F(ApplicationInstaller, WithoutAWindowEachFailureIsOneSentenceAndTouchesNothing)
{
    controller_->hasGUI = false;
    const vltest::Ed25519KeyPair keys;
    const QString plist = installed_ + QStringLiteral("/Contents/Info.plist");
    QVariantMap info = sb_.readPlist(plist).value_or(QVariant()).toMap();
    info.insert(QStringLiteral("SUPublicEDKey"), keys.publicKeyBase64());
    ASSERT_TRUE(sb_.writePlist(plist, info));
    before_ = installedInfo();
    const QString image = controller_->downloadPath + QStringLiteral("/Tessel.dmg");
    const struct {
        QString field;
        QVariant value;    // of the record's `field`
        const char* fake;  // a fake tool's switch, or nullptr
        const char* error; // after "Unable to install Tessel 2.0. "
    } cases[] = {
        {record::kServerChecksum, QStringLiteral("0123456789abcdef0123456789abcdef01234567"), nullptr,
         "Downloaded file is different from the server's version. Please redownload this update."},
        {record::kEdSignature, keys.signBase64("another image"), nullptr,
         "The downloaded file's signature is not valid, so the file may have been tampered with."},
        {{}, {}, "FAKE_HDIUTIL_FAIL", "Cannot mount disk image."},
        // A hanging image tool is stopped after its ten seconds.
        {{}, {}, "FAKE_HDIUTIL_SLEEP", "Cannot mount disk image."},
        // Last: the image is made again without an application.
        {{}, {}, nullptr, "Cannot find executable file on disk image."},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.error);
        if (c.fake)
            env_.set(c.fake, QLatin1String(c.fake).endsWith(QLatin1String("SLEEP")) ? QStringLiteral("60") : QStringLiteral("attach"));
        UpdateRecord withField = record();
        if (c.value.isValid())
            withField.insert(c.field, c.value);
        if (!c.value.isValid() && !c.fake) {
            ASSERT_TRUE(sb_.makeDiskImage(image, QStringLiteral("Tessel"), {{QStringLiteral("Read Me.txt"), "text"}}));
        }
        const qsizetype logged = vltest::LogFixture::logText().size();
        controller_->installSparkleApp(withField);
        const QString added = vltest::LogFixture::logText().mid(logged);
        EXPECT_TRUE(added.contains(QStringLiteral("Unable to install Tessel 2.0. ") + QLatin1String(c.error))) << added.toStdString();
        EXPECT_EQ(added.contains(QStringLiteral(" timed out. Terminating...")), c.fake && QByteArray(c.fake).endsWith("SLEEP"));
        EXPECT_EQ(installedInfo(), before_);
        EXPECT_TRUE(QDir(sb_.homePath(QStringLiteral(".Trash"))).isEmpty());
        EXPECT_TRUE(QFileInfo::exists(image));
        if (c.fake)
            env_.unset(c.fake);
    }
}

TEST_F(PackageInstallerFallback, TheInstallerRunsThePackageAndTheUpdaterWaitsThenCleansUp)
{
    install();
    QFile mark(mark_);
    ASSERT_TRUE(mark.open(QIODevice::ReadOnly)) << "the Installer never ran the package";
    EXPECT_EQ(mark.readAll(), (volume_ + QStringLiteral("/Velmora Studio.pkg")).toUtf8());
    const QStringList calls = ui_->calls();
    const qsizetype waiting = calls.indexOf(QStringLiteral("status:Waiting for installer to finish for Velmora Studio 8.0..."));
    ASSERT_GE(waiting, 0) << calls.join(QLatin1Char('|')).toStdString();
    EXPECT_EQ(calls.indexOf(QStringLiteral("status:Cleaning up...")), waiting + 1);
    EXPECT_FALSE(QFileInfo::exists(volume_)) << "the image is detached after the Installer quit";
    EXPECT_FALSE(QFileInfo::exists(controller_->downloadPath));
    EXPECT_TRUE(sb_.toolCalls(QStringLiteral("installer")).isEmpty()) << "not the command-line installer";
}

TEST_F(PackageInstallerFallback, CancelDuringTheWaitEndsAtOnceWithTheImageMounted)
{
    const auto installerRuns = [] {
        const QList<sys::RunningApplication> apps = sys::launchedApplications();
        return std::any_of(apps.begin(), apps.end(), [](const auto& app) { return app.identifier == QStringLiteral("com.apple.installer"); });
    };
    cancelWhen(installerRuns, [&] { install(); });
    EXPECT_EQ(ui_->calls().last(), QStringLiteral("endProgress"));
    EXPECT_FALSE(ui_->calls().contains(QStringLiteral("status:Cleaning up...")));
    EXPECT_TRUE(QFileInfo::exists(volume_));
    EXPECT_TRUE(QFileInfo::exists(controller_->downloadPath + QStringLiteral("/Studio.dmg")));
}

// An application is found by its group only when this process opened its bundle by path
// before, as the platform finds it; no group quits nothing.
TEST_F(WindowedInstaller, QuittingAGroupQuitsOnlyItsMembersOpenedByPath)
{
    std::vector<std::unique_ptr<vltest::ChildProcess>> running; // killed and reaped when they go
    const auto start = [&](const QString& name, const QVariantMap& extraInfo) -> vltest::ChildProcess& {
        vltest::FakeBundle app{sb_.sysPath(QStringLiteral("/Applications/%1.app").arg(name)), QStringLiteral("com.velmora.running-") + name.toLower()};
        app.extraInfo = extraInfo;
        EXPECT_FALSE(sb_.createBundle(app).isEmpty());
        EXPECT_TRUE(running.emplace_back(std::make_unique<vltest::ChildProcess>())->start(app.path + QStringLiteral("/Contents/MacOS/") + name, {QStringLiteral("300")}));
        return *running.back();
    };
    const QVariantMap group{{QStringLiteral("VLGroupID"), QStringLiteral("grp-running")}};
    vltest::ChildProcess& opened = start(QStringLiteral("Opened"), group);
    vltest::ChildProcess& neverOpened = start(QStringLiteral("Unopened"), group);
    vltest::ChildProcess& withoutGroup = start(QStringLiteral("Loose"), {});
    ASSERT_TRUE(sys::Bundle::bundleWithPath(sb_.sysPath(QStringLiteral("/Applications/Opened.app"))));
    ASSERT_TRUE(sys::Bundle::bundleWithPath(sb_.sysPath(QStringLiteral("/Applications/Loose.app"))));
    controller_->closeAppsWithGroupID(QString()); // a record without "groupid"
    EXPECT_FALSE(withoutGroup.waitForFinished(200) || opened.waitForFinished(200));
    controller_->closeAppsWithGroupID(QStringLiteral("grp-running"));
    EXPECT_TRUE(opened.waitForFinished(3000));
    EXPECT_FALSE(neverOpened.waitForFinished(200) || withoutGroup.waitForFinished(200));
}

} // namespace
