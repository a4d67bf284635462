// The application installer with a window, in-process on a sandbox tree with the fake tools:
// while the application to replace runs, the Force Quit sheet decides. Cancel abandons the
// installation with the image mounted; Force Quit ends the application, installs, and
// opens the new copy again.
#include "AppController.h"
#include "UpdateRecord.h"

#include "support/ChildProcess.h"
#include "support/QtPrinters.h"
#include "support/RecordingUserInterface.h"
#include "support/Sandbox.h"
#include "support/ScopedEnvironment.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QThread>

namespace {

class DiskImageInstallerTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(sb_.isValid());
        ASSERT_TRUE(sb_.installFakeTools());
        env_.set("HOME", sb_.home());
        env_.set("TMPDIR", sb_.tmp());
        env_.set("VELMORA_SYSROOT", sb_.sysroot());
        env_.set("FAKE_TOOL_LOG", sb_.toolLogPath());
        installed_ = sb_.sysPath(QStringLiteral("/Applications/Tessel.app"));
        vltest::FakeBundle bundle;
        bundle.path = installed_;
        bundle.identifier = QStringLiteral("com.velmora.tessel");
        bundle.version = QStringLiteral("100");
        ASSERT_FALSE(sb_.createBundle(bundle).isEmpty());
        auto ui = std::make_unique<vltest::RecordingUserInterface>();
        ui_ = ui.get();
        controller_ = AppController::init(std::move(ui));
        ASSERT_TRUE(sb_.makeDiskImage(controller_->downloadPath + QStringLiteral("/Tessel.dmg"), QStringLiteral("Tessel"),
                                      {{QStringLiteral("Tessel.app/Contents/Info.plist"), "new build"}}));
        ASSERT_TRUE(running_.start(installed_ + QStringLiteral("/Contents/MacOS/Tessel"), {QStringLiteral("300")}));
    }

    void TearDown() override
    {
        running_.kill();
        (void)running_.waitForFinished(5000);
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

    vltest::Sandbox sb_;
    vltest::ScopedEnvironment env_;
    QString installed_;
    vltest::ChildProcess running_;
    vltest::RecordingUserInterface* ui_ = nullptr; // owned by the controller
    std::unique_ptr<AppController> controller_;
};

TEST_F(DiskImageInstallerTest, CancelInTheRunningSheetAbandonsWithTheImageMounted)
{
    ui_->installSheetAnswer = 0;
    const QByteArray before = installedInfo();
    // The sheet names the application also when its path ends in "/".
    UpdateRecord slashed = record();
    slashed.insert(record::kPath, installed_ + QStringLiteral("/"));
    controller_->installSparkleApp(slashed);
    EXPECT_TRUE(ui_->calls().contains(QStringLiteral("installSheet:Tessel is currently running")));
    EXPECT_EQ(installedInfo(), before);
    EXPECT_TRUE(running_.isRunning());
    EXPECT_TRUE(QFileInfo::exists(sb_.sysPath(QStringLiteral("/Volumes/Tessel"))));
    EXPECT_TRUE(QFileInfo::exists(controller_->downloadPath + QStringLiteral("/Tessel.dmg")));
    EXPECT_TRUE(sb_.toolCalls(QStringLiteral("killall")).isEmpty());
}

TEST_F(DiskImageInstallerTest, ForceQuitEndsTheAppInstallsAndOpensItAgain)
{
    ui_->installSheetAnswer = 1;
    controller_->installSparkleApp(record());
    EXPECT_EQ(sb_.toolCalls(QStringLiteral("killall")), (QList<QStringList>{{"killall", "Tessel"}}));
    EXPECT_TRUE(running_.waitForFinished(5000));
    EXPECT_EQ(installedInfo(), QByteArray("new build"));
    const QStringList calls = ui_->calls();
    EXPECT_TRUE(calls.contains(QStringLiteral("status:Waiting for application to close...")));
    EXPECT_TRUE(calls.contains(QStringLiteral("closeInstallSheet")));
    EXPECT_FALSE(QFileInfo::exists(sb_.sysPath(QStringLiteral("/Volumes/Tessel"))));
    // The application that was running is opened again from its installed path (the opener
    // starts detached, so its call is recorded a moment later).
    for (int i = 0; i < 100 && sb_.toolCalls(QStringLiteral("xdg-open")).isEmpty(); ++i)
        QThread::msleep(50);
    EXPECT_EQ(sb_.toolCalls(QStringLiteral("xdg-open")), (QList<QStringList>{{"xdg-open", installed_}}));
}

TEST_F(DiskImageInstallerTest, ARecordWithoutBundleIdentifierIsNeverSeenRunning)
{
    vltest::FakeBundle bare;
    bare.path = sb_.sysPath(QStringLiteral("/Applications/Bare.app"));
    ASSERT_FALSE(sb_.createBundle(bare).isEmpty());
    QProcess bareRunning;
    bareRunning.start(bare.path + QStringLiteral("/Contents/MacOS/Bare"), {QStringLiteral("300")});
    ASSERT_TRUE(bareRunning.waitForStarted());
    ui_->installSheetAnswer = 0;
    UpdateRecord withoutID = record();
    withoutID.remove(record::kBundleId);
    controller_->installSparkleApp(withoutID);
    bareRunning.kill();
    bareRunning.waitForFinished();
    EXPECT_FALSE(ui_->calls().contains(QStringLiteral("status:Waiting for application to close..."))) << ui_->calls().join(QLatin1Char('|')).toStdString();
    EXPECT_EQ(installedInfo(), QByteArray("new build"));
}

} // namespace
