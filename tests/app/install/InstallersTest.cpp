// The installers: the installation pass and each installer's early exits through a recording
// interface (what the user sees, in order), the human-readable size and what each installer
// takes from a volume; then the installers with a window, in-process on a sandbox tree with the
// fake tools: replacing a running application, the interactive package installer's fallback (a
// shell stands in for it; the "package" is a script that leaves a mark), cancels, and quitting
// a group's applications.
#include "AppController.h"
#include "UpdateRecord.h"
#include "install/VolumeFilters.h"
#include "platform/system/Bundle.h"
#include "platform/system/ProcessList.h"

#include "support/ChildProcess.h"
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
