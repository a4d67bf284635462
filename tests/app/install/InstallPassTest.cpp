// The installation pass and the installers' early exits with a window, through a recording
// interface (what the user sees, in order); and the human-readable size.
#include "AppController.h"
#include "UpdateRecord.h"

#include "support/LogFixture.h"
#include "support/QtPrinters.h"
#include "support/RecordingUserInterface.h"

#include <gtest/gtest.h>

#include <QCoreApplication>

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
    std::atomic<bool> done{false};
    std::thread worker([&] {
        controller_->installSelectedItems();
        done = true;
    });
    while (!done)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    worker.join();
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

} // namespace
