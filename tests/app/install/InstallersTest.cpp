// The three installers' early exits with a window: a cancelled pass only closes the panel, a
// download that is not there is reported with the installer's own words, and a record whose
// address is not text goes the exception path and the windowed run carries on; a download
// whose signature does not verify is refused on the install panel before anything is mounted.
#include "AppController.h"
#include "UpdateRecord.h"

#include "support/Ed25519KeyPair.h"
#include "support/FixturePlist.h"
#include "support/LogFixture.h"
#include "support/QtPrinters.h"
#include "support/RecordingUserInterface.h"

#include <gtest/gtest.h>

namespace {

class InstallersTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        log_.environment().set("TMPDIR", log_.path(QStringLiteral("tmp")));
        ASSERT_TRUE(QDir().mkpath(log_.path(QStringLiteral("tmp"))));
        auto ui = std::make_unique<vltest::RecordingUserInterface>();
        ui_ = ui.get();
        controller_ = AppController::init(std::move(ui));
    }

    void runEach(const UpdateRecord& record)
    {
        controller_->installSparkleApp(record);
        controller_->installGroupApp(record, true);
        controller_->installSelfUpdate(record);
    }

    vltest::LogFixture log_;
    vltest::RecordingUserInterface* ui_ = nullptr; // owned by the controller
    std::unique_ptr<AppController> controller_;
};

const UpdateRecord kRecord{{record::kTitle, QStringLiteral("Tessel 2.0")},
                           {record::kUrl, QStringLiteral("https://example.com/files/Tessel.dmg")},
                           {record::kPath, QStringLiteral("/Applications/Tessel.app")}};

TEST_F(InstallersTest, ACancelledPassOnlyClosesThePanel)
{
    controller_->updateCancelled = true;
    runEach(kRecord);
    EXPECT_EQ(ui_->calls(), (QStringList{"endProgress", "endProgress", "endProgress"}));
}

TEST_F(InstallersTest, AMissingDownloadIsReportedByEachInstaller)
{
    runEach(kRecord);
    const QString title = QStringLiteral("alertPanel:Unable to install Tessel 2.0");
    EXPECT_EQ(ui_->calls(), (QStringList{"status:Installing Tessel 2.0...", "startInstallProgress", title,
                                         "status:Installing Tessel 2.0...", "startInstallProgress", title,
                                         "status:Installing Tessel 2.0...", "startInstallProgress", title}));
    const QString log = vltest::LogFixture::logText();
    EXPECT_TRUE(log.contains(QStringLiteral("Installing Sparkle app Tessel 2.0...")));
    EXPECT_FALSE(log.contains(QStringLiteral("Mounting disk image...")));
}

TEST_F(InstallersTest, AnUnsafeDownloadNameIsNeverLookedFor)
{
    // The temporary folder's parent holds a file the name ".." would reach.
    ASSERT_TRUE(QDir().mkpath(controller_->downloadPath));
    UpdateRecord hostile = kRecord;
    hostile.insert(record::kUrl, QStringLiteral("https://example.com/files/.."));
    runEach(hostile);
    EXPECT_EQ(ui_->calls().count(QStringLiteral("alertPanel:Unable to install Tessel 2.0")), 3);
    EXPECT_FALSE(vltest::LogFixture::logText().contains(QStringLiteral("Mounting disk image...")));
    EXPECT_TRUE(QDir(controller_->downloadPath).exists());
}

TEST_F(InstallersTest, AnAddressThatIsNotTextIsLoggedAsAnExceptionAndTheRunGoesOn)
{
    UpdateRecord malformed = kRecord;
    malformed.insert(record::kUrl, QVariantList{QStringLiteral("https://example.com/files/Tessel.dmg")});
    controller_->startDownloadForObject(malformed);
    runEach(malformed);
    const QString log = vltest::LogFixture::logText();
    for (const char* method : {"startDownloadForObject:", "installSparkleApp:", "installGroupApp:autoInstall:",
                               "installSelfUpdate:"}) {
        EXPECT_TRUE(log.contains(QStringLiteral("Exception in -[AppController %1]. NSInvalidArgumentException - "
                                                "-[__NSArrayM lastPathComponent]: unrecognized selector sent to instance.")
                                     .arg(QLatin1String(method))))
            << method << "\n" << log.toStdString();
    }
    EXPECT_EQ(controller_->downloader, nullptr);
    EXPECT_FALSE(ui_->calls().contains(QStringLiteral("alertPanel:Unable to initiate download.")));
}

TEST_F(InstallersTest, ADownloadWhoseSignatureFailsIsRefusedOnTheInstallPanel)
{
    const vltest::Ed25519KeyPair keys;
    ASSERT_TRUE(keys.isValid());
    const auto write = [](const QString& path, const QByteArray& data) {
        QFile f(path);
        return QDir().mkpath(QFileInfo(path).path()) && f.open(QIODevice::WriteOnly) && f.write(data) == data.size();
    };
    const QString app = log_.path(QStringLiteral("Applications/Tessel.app"));
    ASSERT_TRUE(write(app + QStringLiteral("/Contents/Info.plist"),
                      vltest::fixturePlistXml(QVariantMap{{QStringLiteral("SUPublicEDKey"), keys.publicKeyBase64()}})));
    const QString download = controller_->downloadPath + QStringLiteral("/Tessel.dmg");
    ASSERT_TRUE(write(download, "the served image"));

    UpdateRecord record = kRecord;
    record.insert(record::kPath, app);
    record.insert(record::kEdSignature, keys.signBase64("the image the developer built"));
    controller_->installSparkleApp(record);
    EXPECT_EQ(ui_->calls(), (QStringList{"status:Installing Tessel 2.0...", "startInstallProgress",
                                         "installPanelSheet:Unable to install Tessel 2.0"}));
    const QString log = vltest::LogFixture::logText();
    EXPECT_TRUE(log.contains(QStringLiteral("didn't verify with public key"))) << log.toStdString();
    EXPECT_FALSE(log.contains(QStringLiteral("Mounting disk image...")));
    EXPECT_TRUE(QFileInfo::exists(download));
}

} // namespace
