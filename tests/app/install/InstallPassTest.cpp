// The installation pass with a recording interface (what the user sees, in order) and the
// human-readable size.
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

struct SizeCase {
    double bytes;
    const char* text;
};

class FormatFileSizeTest : public ::testing::TestWithParam<SizeCase> {};

TEST_P(FormatFileSizeTest, UnitBoundariesAreStrict)
{
    EXPECT_EQ(AppController::formatFileSize(GetParam().bytes), QString::fromUtf8(GetParam().text));
}

INSTANTIATE_TEST_SUITE_P(Sizes, FormatFileSizeTest, ::testing::Values(
    SizeCase{0, "0.000000 B"},
    SizeCase{512, "512.000000 B"},
    SizeCase{1023.9, "1023.000000 B"}, // rounded down, and still below the KB boundary
    SizeCase{1024, "1.00 KB"},
    SizeCase{1536, "1.50 KB"},
    SizeCase{1048575, "1024.00 KB"},
    SizeCase{1048576, "1.0 MB"},
    SizeCase{1073741823, "1024.0 MB"},
    SizeCase{1073741824, "1.00 GB"},
    SizeCase{5.5 * 1073741824.0, "5.50 GB"}));

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

    vltest::LogFixture log_;
    vltest::RecordingUserInterface* ui_ = nullptr; // owned by the controller
    std::unique_ptr<AppController> controller_;
};

TEST_F(InstallPassTest, NothingSelectedShowsAndClosesThePanelAndOnlyRefreshes)
{
    controller_->dataArray = {item(QStringLiteral("A"), 0, false), item(QStringLiteral("B"), 0, true)};
    runPassOnWorker();
    EXPECT_EQ(ui_->calls(), (QStringList{"showInstallProgress", "endProgress", "reloadTableView"}));
    EXPECT_TRUE(QDir(controller_->downloadPath).exists());
}

TEST_F(InstallPassTest, EveryPaidUpgradeIsAskedFirstAndDecliningDeselectsIt)
{
    ui_->sheetAnswer = 0;
    controller_->dataArray = {item(QStringLiteral("A"), 1, true), item(QStringLiteral("B"), 0, true),
                              item(QStringLiteral("C"), 1, true)};
    runPassOnWorker();
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
    controller_->dataArray = {item(QStringLiteral("A"), 1, false, server.url(QStringLiteral("/missing.dmg"))),
                              item(QStringLiteral("B"), 0, false)};
    runPassOnWorker();
    const QStringList calls = ui_->calls();
    ASSERT_GE(calls.size(), 6);
    EXPECT_EQ(calls.mid(0, 4), (QStringList{"showInstallProgress", "status:Downloading A...", "startInstallProgress",
                                             "alertPanel:Download failed."}));
    EXPECT_TRUE(calls.contains(QStringLiteral("endProgress")));
    EXPECT_EQ(server.requestedPaths(), QStringList{QStringLiteral("/missing.dmg")});
}

TEST_F(InstallPassTest, ALinkedDownloadFolderIsRefusedAndTheItemFailsAsADownloadDoes)
{
    vltest::TestServer server;
    ASSERT_TRUE(server.start()) << server.errorString().toStdString();
    log_.environment().set("VELMORA_CA_FILE", server.caFile());
    const QString elsewhere = log_.path(QStringLiteral("elsewhere"));
    ASSERT_TRUE(QDir().mkpath(elsewhere));
    ASSERT_TRUE(QFile::link(elsewhere, controller_->downloadPath));
    controller_->dataArray = {item(QStringLiteral("A"), 1, false, server.url(QStringLiteral("/A.dmg")))};
    runPassOnWorker();
    const QString folder = controller_->downloadPath;
    EXPECT_EQ(ui_->calls().mid(0, 5),
              (QStringList{"showInstallProgress", "alertPanel:Unable to create temp directory at " + folder + ".",
                           "status:Downloading A...", "startInstallProgress", "alertPanel:Download failed."}));
    EXPECT_TRUE(server.requestedPaths().isEmpty());
    EXPECT_TRUE(QDir(elsewhere).isEmpty());
    EXPECT_TRUE(vltest::LogFixture::logText().contains(QStringLiteral("The folder %1 is a symbolic link.").arg(folder)));
}

} // namespace
