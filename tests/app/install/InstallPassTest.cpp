// The installation pass and the installers' early exits with a window, through a recording
// interface (what the user sees, in order); and the human-readable size.
#include "AppController.h"
#include "UpdateRecord.h"

#include "support/LogFixture.h"
#include "support/QtPrinters.h"
#include "support/RecordingUserInterface.h"
#include "support/TestServer.h"

#include <gtest/gtest.h>

#include <QEventLoop>
#include <QTimer>

#include <thread>

namespace {

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

    static UpdateRecord item(const QString& title, int selected, bool paid, const QString& url = QStringLiteral("https://127.0.0.1:9/x.dmg"))
    {
        UpdateRecord r{{record::kType, record::kTypeGroup}, {record::kTitle, title}, {record::kSelected, selected},
                       {record::kGroupId, QStringLiteral("com.velmora.x")}, {record::kUrl, url}};
        if (paid)
            r.insert(record::kPaidUpgrade, true);
        return r;
    }

    // The pass on a worker thread while this (main) thread serves its interface requests.
    void runPassOnWorker()
    {
        std::atomic<bool> done{false};
        std::thread worker([&] {
            controller_->installSelectedItems();
            done = true;
        });
        QEventLoop loop;
        QTimer poll;
        QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
            if (done)
                loop.quit();
        });
        poll.start(20);
        loop.exec();
        worker.join();
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

const UpdateRecord kTessel{{record::kTitle, QStringLiteral("Tessel 2.0")}, {record::kUrl, QStringLiteral("https://example.com/files/Tessel.dmg")},
                           {record::kPath, QStringLiteral("/Applications/Tessel.app")}};

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
    controller_->dataArray = {item(QStringLiteral("A"), 1, true), item(QStringLiteral("B"), 0, true), item(QStringLiteral("C"), 1, true)};
    runPassOnWorker();
    // Nothing is left selected: the panel only shows and closes, and the list is refreshed.
    EXPECT_EQ(ui_->calls(), (QStringList{"sheet:A is a paid upgrade. Are you sure you wish to install it?", "reloadTableView",
                                         "sheet:C is a paid upgrade. Are you sure you wish to install it?", "reloadTableView",
                                         "showInstallProgress", "endProgress", "reloadTableView"}));
    for (const UpdateRecord& r : controller_->dataArray)
        EXPECT_EQ(r.value(record::kSelected).toInt(), 0) << r.value(record::kTitle).toString().toStdString();
}

TEST_F(InstallPassTest, AFailedDownloadIsShownAndThePassGoesOn)
{
    vltest::TestServer server;
    ASSERT_TRUE(server.start()) << server.errorString().toStdString();
    log_.environment().set("VELMORA_CA_FILE", server.caFile());
    ASSERT_TRUE(server.setRoutes(QJsonObject{{"/missing.dmg", QJsonObject{{"status", 404}}}}));
    controller_->dataArray = {item(QStringLiteral("A"), 1, false, server.url(QStringLiteral("/missing.dmg"))), item(QStringLiteral("B"), 0, false)};
    runPassOnWorker();
    const QStringList calls = ui_->calls();
    EXPECT_EQ(calls.mid(0, 4), (QStringList{"showInstallProgress", "status:Downloading A...", "startInstallProgress", "alertPanel:Download failed."}));
    EXPECT_TRUE(calls.contains(QStringLiteral("endProgress")));
    EXPECT_EQ(server.requestedPaths(), QStringList{QStringLiteral("/missing.dmg")});
}

TEST_F(InstallPassTest, EachInstallerClosesACancelledPassAndReportsAMissingDownloadInItsOwnWords)
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
}

TEST_F(InstallPassTest, AnAddressThatIsNotTextIsLoggedAsAnExceptionAndTheRunGoesOn)
{
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
