// Viewing logs and gathering them into a real zip archive, in a sandboxed home and system root;
// the unreadable-folder case runs this executable again as "nobody".
#include "VLFileManagerTestSupport.h"

#include "shared/VLFileManager.h"
#include "shared/VLTroubleshootingUtils.h"
#include "support/ScriptedAlertPresenter.h"
#include "support/StdoutCapture.h"
#include "support/TestData.h"
#include "support/ZipListing.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

#include <algorithm>

#include <sys/stat.h>

namespace {

using When = vltest::ScriptedAlertPresenter::When;

const QStringList kNames{QStringLiteral("My App"), QStringLiteral("Second Tool")};

class VLTroubleshootingUtilsTest : public vltest::FileOpsSandboxTest {
protected:
    void SetUp() override
    {
        FileOpsSandboxTest::SetUp();
        presenter_->unscripted = When::AtOnce;
        presenter_->window = &mainWindow_;
        VLAlert::setPresenter(presenter_);
    }
    void TearDown() override { VLAlert::setPresenter(nullptr); }

    // The alerts shown so far as "message" texts, each checked to be on the main window.
    QStringList alertMessages() const
    {
        QStringList messages;
        for (const auto& alert : presenter_->alerts) {
            EXPECT_EQ(alert->window, &mainWindow_);
            messages << alert->messageText;
        }
        return messages;
    }
    QString userPath(const QString& relative) const { return sandbox.homePath(QStringLiteral("Library/") + relative); }
    QString archive(const QString& name = QStringLiteral("My App Logs.zip")) const { return sandbox.homePath(QStringLiteral("Desktop/") + name); }
    // The archive's members that are files or links, as paths outside the staging folder.
    static QStringList gatheredPaths(const QString& zip)
    {
        QStringList paths;
        for (const QString& member : vltest::zipMembers(zip))
            if (!member.endsWith(QLatin1Char('/')))
                paths << member.mid(QStringLiteral("VL_App_Logs").size());
        return paths;
    }

    std::shared_ptr<vltest::ScriptedAlertPresenter> presenter_ = std::make_shared<vltest::ScriptedAlertPresenter>();

private:
    QObject mainWindow_;
};

TEST_F(VLTroubleshootingUtilsTest, ViewingALogOpensItOrSaysThereIsNone)
{
    EXPECT_FALSE(VLTroubleshootingUtils::viewLogForApp(QStringLiteral("My App")));
    EXPECT_EQ(alertMessages(), QStringList{QStringLiteral("No log found")});
    for (const char* file : {"Logs/Velmora/My App.1.log", "Logs/Velmora/My App.1.task.log"})
        ASSERT_TRUE(writeFile(userPath(QLatin1String(file))));
    EXPECT_TRUE(VLTroubleshootingUtils::viewLogForApp(QStringLiteral("My App")));
    EXPECT_TRUE(VLTroubleshootingUtils::viewTaskLogForApp(QStringLiteral("My App")));
    QList<QStringList> opened = waitForCalls(QStringLiteral("xdg-open"), 2);
    std::sort(opened.begin(), opened.end()); // the openers run detached and record in either order
    EXPECT_EQ(opened, (QList<QStringList>{{QStringLiteral("xdg-open"), userPath(QStringLiteral("Logs/Velmora/My App.1.log"))},
                                          {QStringLiteral("xdg-open"), userPath(QStringLiteral("Logs/Velmora/My App.1.task.log"))}}));
    EXPECT_EQ(presenter_->alerts.size(), 1);
}

TEST_F(VLTroubleshootingUtilsTest, GatheringMirrorsBothDomainsIntoAZipOnTheDesktop)
{
    // Two domains of logs, crash reports and preferences, with a link, a dangling link and
    // names with spaces; each row says whether its file must be gathered.
    const QMap<QString, QString> roots{{QStringLiteral("user"), userPath(QString())}, {QStringLiteral("machine"), sandbox.sysPath(QStringLiteral("/Library/"))},
                                       {QStringLiteral("home"), sandbox.homePath(QString())}, {QStringLiteral("tmp"), sandbox.tmpPath(QString())}};
    QStringList wanted;
    for (const QJsonValue& value : vltest::dataRows("shared/data/VLTroubleshootingUtilsGathering")) {
        const QJsonObject row = value.toObject();
        const QString path = roots.value(row[u"in"].toString()) + row[u"path"].toString();
        ASSERT_TRUE(writeFile(path, path.toUtf8())) << row[u"why"].toString().toStdString();
        if (row[u"gathered"].toBool())
            wanted << path;
    }
    const QString linked = userPath(QStringLiteral("Logs/CrashReporter/My App_linked.crash"));
    const QString dangling = userPath(QStringLiteral("Logs/CrashReporter/Second Tool_gone.crash"));
    ASSERT_TRUE(sandbox.makeDir(userPath(QStringLiteral("Logs/CrashReporter"))));
    ASSERT_TRUE(QFile::link(sandbox.homePath(QStringLiteral("elsewhere/real.crash")), linked));
    ASSERT_TRUE(QFile::link(sandbox.homePath(QStringLiteral("nowhere.crash")), dangling));
    wanted << linked << dangling;
    wanted.sort();

    ASSERT_TRUE(VLTroubleshootingUtils::gatherLogsForAppsWithNames(kNames, false, {sandbox.tmpPath(QStringLiteral("notes for support.txt"))}));
    EXPECT_EQ(alertMessages(), QStringList{QStringLiteral("Logs gathered successfully")});
    EXPECT_EQ(gatheredPaths(archive()), wanted);
    EXPECT_FALSE(QFileInfo::exists(VLTroubleshootingUtils::stagingFolder()));
    // A link whose target exists is gathered as its target; a dangling one as the link. The
    // sources are only read.
    const QString out = sandbox.tmpPath(QStringLiteral("opened"));
    ASSERT_TRUE(VLFileManager::decompressFile(archive(), out));
    EXPECT_FALSE(QFileInfo(out + QStringLiteral("/VL_App_Logs") + linked).isSymLink());
    EXPECT_EQ(readFile(out + QStringLiteral("/VL_App_Logs") + linked), sandbox.homePath(QStringLiteral("elsewhere/real.crash")).toUtf8());
    EXPECT_TRUE(QFileInfo(out + QStringLiteral("/VL_App_Logs") + dangling).isSymLink());
    EXPECT_TRUE(QFileInfo(linked).isSymLink());
}

TEST_F(VLTroubleshootingUtilsTest, ASecondArchiveGetsATimeStampAndTheFirstIsKept)
{
    ASSERT_TRUE(writeFile(userPath(QStringLiteral("Logs/Velmora/My App.1.log"))));
    ASSERT_TRUE(VLTroubleshootingUtils::gatherLogsForAppsWithNames(kNames, true));
    ASSERT_TRUE(VLTroubleshootingUtils::gatherLogsForAppWithName(QStringLiteral("My App")));
    const QStringList archives = QDir(sandbox.homePath(QStringLiteral("Desktop"))).entryList(QDir::Files, QDir::Name);
    ASSERT_EQ(archives.size(), 2) << archives.join(QLatin1Char(',')).toStdString();
    EXPECT_EQ(archives[0], QStringLiteral("My App Logs.zip"));
    EXPECT_TRUE(QRegularExpression(QStringLiteral("^My App Logs_\\d{14}\\.zip$")).match(archives[1]).hasMatch()) << archives[1].toStdString();
    EXPECT_EQ(alertMessages(), QStringList{QStringLiteral("Logs gathered successfully")}); // the first was silent
}

TEST_F(VLTroubleshootingUtilsTest, NothingGatheredOrAFailureMakesNoArchive)
{
    ASSERT_TRUE(writeFile(userPath(QStringLiteral("Logs/Velmora/Other.1.log"))));
    EXPECT_FALSE(VLTroubleshootingUtils::gatherLogsForAppsWithNames(kNames, true));
    EXPECT_TRUE(presenter_->alerts.isEmpty());
    EXPECT_FALSE(VLTroubleshootingUtils::gatherLogsForAppsWithNames(kNames));
    EXPECT_EQ(alertMessages(), QStringList{QStringLiteral("No logs found")});

    // A file that cannot be copied stops the gathering; the staging folder stays behind,
    // private to its owner.
    ASSERT_TRUE(writeFile(userPath(QStringLiteral("Logs/Velmora/My App.1.log"))));
    bool gathered = true;
    const QByteArray printed = vltest::captureStdout([&] {
        gathered = VLTroubleshootingUtils::gatherLogsForAppsWithNames(kNames, false, {sandbox.tmpPath(QStringLiteral("missing.txt"))});
    });
    EXPECT_FALSE(gathered);
    EXPECT_TRUE(printed.startsWith("Unable to copy file: ")) << printed.constData();
    EXPECT_EQ(presenter_->alerts.size(), 1); // printed, not shown
    struct stat staging {};
    ASSERT_EQ(::stat(QFile::encodeName(VLTroubleshootingUtils::stagingFolder()).constData(), &staging), 0);
    EXPECT_EQ(staging.st_mode & 0777, 0700u);
    EXPECT_TRUE(QDir(sandbox.homePath(QStringLiteral("Desktop"))).isEmpty());
    // No desktop folder to hold the archive: the user is told, and the staging folder goes.
    ASSERT_TRUE(QDir(sandbox.homePath(QStringLiteral("Desktop"))).removeRecursively());
    EXPECT_FALSE(VLTroubleshootingUtils::gatherLogsForAppsWithNames(kNames));
    EXPECT_EQ(alertMessages(), (QStringList{QStringLiteral("No logs found"), QStringLiteral("Logs could not be gathered")}));
    EXPECT_FALSE(QFileInfo::exists(VLTroubleshootingUtils::stagingFolder()));
}

// Runs in the child only; skipped in ordinary runs.
TEST(VLTroubleshootingUtilsChild, Run)
{
    if (qEnvironmentVariable("VLTU_CHILD") != QStringLiteral("gather"))
        GTEST_SKIP() << "runs only as the unprivileged child of the gathering tests";
    EXPECT_TRUE(VLTroubleshootingUtils::gatherLogsForAppsWithNames(kNames, true));
}

TEST_F(VLTroubleshootingUtilsTest, AnUnreadableLogFolderIsPassedOver)
{
    const auto uid = vltest::Sandbox::unprivilegedUid();
    if (!uid)
        GTEST_SKIP() << "needs root to run a child as an unprivileged user";
    ASSERT_TRUE(writeFile(userPath(QStringLiteral("Logs/Velmora/My App.1.log"))));
    ASSERT_TRUE(writeFile(sandbox.sysPath(QStringLiteral("/Library/Logs/Velmora/My App.1.log"))));
    ASSERT_EQ(::chmod(QFile::encodeName(sandbox.sysPath(QStringLiteral("/Library/Logs/Velmora"))).constData(), 0700), 0);
    ASSERT_TRUE(sandbox.giveHomeTo(*uid));
    const vltest::RunResult result = sandbox.run(QCoreApplication::applicationFilePath(), {QStringLiteral("--gtest_filter=VLTroubleshootingUtilsChild.Run")},
                                                 {.uid = uid, .extraEnv = {{QStringLiteral("VLTU_CHILD"), QStringLiteral("gather")}}});
    ASSERT_EQ(result.exitCode, 0) << result.describe().toStdString();
    EXPECT_EQ(gatheredPaths(archive()), QStringList{userPath(QStringLiteral("Logs/Velmora/My App.1.log"))});
}

} // namespace
