// The package installer's interactive mode, the windowed fallback when the command-line installer
// fails: the package opens in the interactive Installer (the bundle under the system root's
// CoreServices), the updater waits while it runs and then cleans up; Cancel during the wait ends
// at once with the image still mounted. In-process on a sandbox tree with the fake tools.
//
// The stand-in Installer is a shell under Installer.app/Contents/MacOS, so the running process
// is that application; the "package" it is opened on is a script that takes a moment and leaves
// a mark, as an installation would.

#include "AppController.h"
#include "UpdateRecord.h"
#include "platform/system/ProcessList.h"

#include "support/QtPrinters.h"
#include "support/RecordingUserInterface.h"
#include "support/Sandbox.h"
#include "support/ScopedEnvironment.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <gtest/gtest.h>

#include <thread>

namespace {

class InstallerFallbackTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(sb_.isValid());
        ASSERT_TRUE(sb_.installFakeTools());
        ASSERT_TRUE(sb_.makeDir(sb_.sysPath(QStringLiteral("/Library/Logs/Velmora"))));
        for (const char* name : {"HOME", "TMPDIR", "VELMORA_SYSROOT", "FAKE_TOOL_LOG"})
            env_.set(name, sb_.environment().value(QString::fromLatin1(name)));
        const QString installer = sb_.sysPath(QStringLiteral("/System/Library/CoreServices/Installer.app"));
        ASSERT_TRUE(sb_.writePlist(installer + QStringLiteral("/Contents/Info.plist"),
                                   QVariantMap{{QStringLiteral("CFBundleExecutable"), QStringLiteral("Installer")},
                                               {QStringLiteral("CFBundleIdentifier"), QStringLiteral("com.apple.installer")}}));
        ASSERT_TRUE(QDir().mkpath(installer + QStringLiteral("/Contents/MacOS")));
        ASSERT_TRUE(QFile::copy(QStringLiteral("/bin/sh"), installer + QStringLiteral("/Contents/MacOS/Installer")));

        auto ui = std::make_unique<vltest::RecordingUserInterface>();
        ui_ = ui.get();
        controller_ = AppController::init(std::move(ui));
        const QByteArray package = "sleep 2\nprintf '%s' \"$0\" > '" + mark().toUtf8() + "'\n";
        ASSERT_TRUE(sb_.makeDiskImage(controller_->downloadPath + QStringLiteral("/Studio.dmg"), QStringLiteral("Studio"),
                                      {{QStringLiteral("Velmora Studio.pkg"), package}}));
    }

    QString mark() const { return sb_.tmpPath(QStringLiteral("installed-by")); }
    QString volume() const { return sb_.sysPath(QStringLiteral("/Volumes/Studio")); }

    static UpdateRecord studio()
    {
        return {{record::kType, record::kTypeGroup}, {record::kTitle, QStringLiteral("Velmora Studio 8.0")},
                {record::kUrl, QStringLiteral("https://example.com/Studio.dmg")},
                {record::kGroupId, QStringLiteral("com.velmora.studio")}};
    }

    vltest::Sandbox sb_;
    vltest::ScopedEnvironment env_;
    vltest::RecordingUserInterface* ui_ = nullptr; // owned by the controller
    std::unique_ptr<AppController> controller_;
};

TEST_F(InstallerFallbackTest, TheInstallerRunsThePackageAndTheUpdaterWaitsThenCleansUp)
{
    controller_->installGroupApp(studio(), false);

    QFile mark(this->mark());
    ASSERT_TRUE(mark.open(QIODevice::ReadOnly)) << "the Installer never ran the package\n"
                                                 << ui_->calls().join(QLatin1Char(10)).toStdString();
    EXPECT_EQ(mark.readAll(), (volume() + QStringLiteral("/Velmora Studio.pkg")).toUtf8());
    const QStringList calls = ui_->calls();
    const qsizetype waiting = calls.indexOf(QStringLiteral("status:Waiting for installer to finish for Velmora Studio 8.0..."));
    ASSERT_GE(waiting, 0) << calls.join(QLatin1Char('\n')).toStdString();
    EXPECT_EQ(calls.indexOf(QStringLiteral("status:Cleaning up...")), waiting + 1);
    EXPECT_FALSE(QFileInfo::exists(volume())) << "the image is detached after the Installer quit";
    EXPECT_FALSE(QFileInfo::exists(controller_->downloadPath));
    EXPECT_TRUE(sb_.toolCalls(QStringLiteral("installer")).isEmpty()) << "not the command-line installer";
}

TEST_F(InstallerFallbackTest, CancelDuringTheWaitEndsAtOnceWithTheImageMounted)
{
    // Cancel once the Installer runs, while the updater waits for it.
    std::thread canceller([&] {
        const auto installerRuns = [] {
            for (const sys::RunningApplication& app : sys::launchedApplications()) {
                if (app.identifier == QStringLiteral("com.apple.installer"))
                    return true;
            }
            return false;
        };
        while (!installerRuns())
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        controller_->cancelInstall();
    });
    controller_->installGroupApp(studio(), false);
    canceller.join();
    EXPECT_EQ(ui_->calls().last(), QStringLiteral("endProgress"));
    EXPECT_FALSE(ui_->calls().contains(QStringLiteral("status:Cleaning up...")));
    EXPECT_TRUE(QFileInfo::exists(volume()));
    EXPECT_TRUE(QFileInfo::exists(controller_->downloadPath + QStringLiteral("/Studio.dmg")));
}

} // namespace
