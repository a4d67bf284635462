// Viewing logs and gathering them into a real zip archive, in a sandboxed home and system root;
// the unreadable-folder case runs this executable again as "nobody".
#include "VLFileManagerTestSupport.h"

#include "shared/VLFileManager.h"
#include "shared/VLTroubleshootingUtils.h"
#include "support/ScriptedAlertPresenter.h"
#include "support/StdoutCapture.h"
#include "support/ZipListing.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

#include <sys/stat.h>

namespace {

using vltest::FileOpsSandboxTest;
using When = vltest::ScriptedAlertPresenter::When;

const QStringList kNames{QStringLiteral("My App"), QStringLiteral("Second Tool")};

class VLTroubleshootingUtilsTest : public FileOpsSandboxTest {
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
    QString machinePath(const QString& relative) const { return sandbox.sysPath(QStringLiteral("/Library/") + relative); }
    QString archive(const QString& name = QStringLiteral("My App Logs.zip")) const
    {
        return sandbox.homePath(QStringLiteral("Desktop/") + name);
    }
    // The archive's members that are files or links, as paths outside the staging folder.
    QStringList gatheredPaths(const QString& zip) const
    {
        QStringList paths;
        for (const QString& member : vltest::zipMembers(zip))
            if (!member.endsWith(QLatin1Char('/')))
                paths << member.mid(QStringLiteral("VL_App_Logs").size());
        return paths;
    }

    // Two domains of logs, crash reports and preferences, with a link, a dangling link and
    // names with spaces; what must be gathered is listed in `wanted`.
    void layOutTree()
    {
        const auto add = [this](const QString& path, bool gathered, const QByteArray& data = "x") {
            ASSERT_TRUE(writeFile(path, data));
            if (gathered)
                wanted << path;
        };
        add(userPath(QStringLiteral("Logs/Velmora/My App.1.log")), true);
        add(userPath(QStringLiteral("Logs/Velmora/My App.1.task.log")), true);
        add(userPath(QStringLiteral("Logs/Velmora/My App.txt")), false);
        add(userPath(QStringLiteral("Logs/Velmora/Other.1.log")), false);
        add(userPath(QStringLiteral("Logs/DiagnosticReports/My App_2024-05-01.ips")), true);
        add(userPath(QStringLiteral("Logs/DiagnosticReports/My Apple_2024-05-01.crash")), false);
        add(userPath(QStringLiteral("Logs/DiagnosticReports/Second Tool_1.txt")), false);
        add(sandbox.homePath(QStringLiteral("elsewhere/real.crash")), false, "linked report");
        ASSERT_TRUE(sandbox.makeDir(userPath(QStringLiteral("Logs/CrashReporter"))));
        const QString link = userPath(QStringLiteral("Logs/CrashReporter/My App_linked.crash"));
        ASSERT_TRUE(QFile::link(sandbox.homePath(QStringLiteral("elsewhere/real.crash")), link));
        wanted << link;
        const QString dangling = userPath(QStringLiteral("Logs/CrashReporter/Second Tool_gone.crash"));
        ASSERT_TRUE(QFile::link(sandbox.homePath(QStringLiteral("nowhere.crash")), dangling));
        wanted << dangling;
        add(userPath(QStringLiteral("Preferences/com.velmora.MyApp.plist")), true);
        add(userPath(QStringLiteral("Preferences/com.velmora.myapp.plist")), false); // the exact form was found
        add(userPath(QStringLiteral("Preferences/com.velmora.secondtool.plist")), true);
        add(machinePath(QStringLiteral("Logs/Velmora/Second Tool.1.log")), true);
        add(machinePath(QStringLiteral("Logs/CrashReporter/My App_2024.crash")), true);
        add(machinePath(QStringLiteral("Preferences/com.velmora.My App.plist")), false);
        wanted.sort();
    }

    QStringList wanted;
    std::shared_ptr<vltest::ScriptedAlertPresenter> presenter_ = std::make_shared<vltest::ScriptedAlertPresenter>();

private:
    QObject mainWindow_;
};

TEST_F(VLTroubleshootingUtilsTest, ViewingALogOpensItOrSaysThereIsNone)
{
    const struct {
        const char* file;
        bool (*view)(const QString&);
    } cases[] = {
        {"Logs/Velmora/My App.1.log", &VLTroubleshootingUtils::viewLogForApp},
        {"Logs/Velmora/My App.1.task.log", &VLTroubleshootingUtils::viewTaskLogForApp},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        presenter_->alerts.clear();
        EXPECT_FALSE(c.view(QStringLiteral("My App")));
        EXPECT_EQ(alertMessages(), QStringList{QStringLiteral("No log found")});

        const QString log = userPath(QLatin1String(c.file));
        ASSERT_TRUE(writeFile(log));
        EXPECT_TRUE(c.view(QStringLiteral("My App")));
        EXPECT_EQ(waitForCalls(QStringLiteral("xdg-open")).value(0), (QStringList{QStringLiteral("xdg-open"), log}));
        EXPECT_EQ(presenter_->alerts.size(), 1);
        ASSERT_TRUE(QFile::remove(sandbox.toolLogPath()));
    }
}

TEST_F(VLTroubleshootingUtilsTest, GatheringMirrorsBothDomainsIntoAZipOnTheDesktop)
{
    ASSERT_NO_FATAL_FAILURE(layOutTree());
    const QString extra = sandbox.tmpPath(QStringLiteral("notes for support.txt"));
    ASSERT_TRUE(writeFile(extra));
    wanted << extra;
    wanted.sort();

    ASSERT_TRUE(VLTroubleshootingUtils::gatherLogsForAppsWithNames(kNames, false, {extra}));
    EXPECT_EQ(alertMessages(), QStringList{QStringLiteral("Logs gathered successfully")});
    EXPECT_EQ(gatheredPaths(archive()), wanted);
    EXPECT_FALSE(QFileInfo::exists(VLTroubleshootingUtils::stagingFolder()));

    // A link whose target exists is gathered as its target; a dangling one as the link.
    const QString out = sandbox.tmpPath(QStringLiteral("opened"));
    ASSERT_TRUE(VLFileManager::decompressFile(archive(), out));
    const QString staged = out + QStringLiteral("/VL_App_Logs");
    const QFileInfo linked(staged + userPath(QStringLiteral("Logs/CrashReporter/My App_linked.crash")));
    EXPECT_FALSE(linked.isSymLink());
    EXPECT_EQ(readFile(linked.filePath()), QByteArray("linked report"));
    EXPECT_TRUE(QFileInfo(staged + userPath(QStringLiteral("Logs/CrashReporter/Second Tool_gone.crash"))).isSymLink());

    // The sources are only read.
    EXPECT_TRUE(QFileInfo(userPath(QStringLiteral("Logs/CrashReporter/My App_linked.crash"))).isSymLink());
    EXPECT_EQ(readFile(sandbox.homePath(QStringLiteral("elsewhere/real.crash"))), QByteArray("linked report"));
}

TEST_F(VLTroubleshootingUtilsTest, ASecondArchiveGetsATimeStampAndTheFirstIsKept)
{
    ASSERT_TRUE(writeFile(userPath(QStringLiteral("Logs/Velmora/My App.1.log"))));
    ASSERT_TRUE(VLTroubleshootingUtils::gatherLogsForAppsWithNames(kNames, true));
    const QDateTime before = QDateTime::currentDateTime().addSecs(-1);
    ASSERT_TRUE(VLTroubleshootingUtils::gatherLogsForAppWithName(QStringLiteral("My App")));
    const QDateTime after = QDateTime::currentDateTime().addSecs(1);

    const QStringList archives = QDir(sandbox.homePath(QStringLiteral("Desktop"))).entryList(QDir::Files, QDir::Name);
    ASSERT_EQ(archives.size(), 2) << archives.join(QLatin1Char(',')).toStdString();
    EXPECT_EQ(archives[0], QStringLiteral("My App Logs.zip"));
    const QRegularExpressionMatch stamped =
        QRegularExpression(QStringLiteral("^My App Logs_(\\d{14})\\.zip$")).match(archives[1]);
    ASSERT_TRUE(stamped.hasMatch()) << archives[1].toStdString();
    const QDateTime stamp = QDateTime::fromString(stamped.captured(1), QStringLiteral("yyyyMMddHHmmss"));
    EXPECT_TRUE(stamp >= before && stamp <= after) << stamped.captured(1).toStdString();
    EXPECT_EQ(gatheredPaths(archive(archives[0])), gatheredPaths(archive(archives[1])));
    EXPECT_EQ(alertMessages(), QStringList{QStringLiteral("Logs gathered successfully")}); // the first was silent
}

TEST_F(VLTroubleshootingUtilsTest, NothingGatheredMakesNoArchive)
{
    ASSERT_TRUE(writeFile(userPath(QStringLiteral("Logs/Velmora/Other.1.log"))));
    EXPECT_FALSE(VLTroubleshootingUtils::gatherLogsForAppsWithNames({}, false));
    EXPECT_FALSE(QFileInfo::exists(VLTroubleshootingUtils::stagingFolder()));
    EXPECT_FALSE(VLTroubleshootingUtils::gatherLogsForAppsWithNames(kNames, true));
    EXPECT_TRUE(presenter_->alerts.isEmpty());
    EXPECT_FALSE(VLTroubleshootingUtils::gatherLogsForAppsWithNames(kNames));
    EXPECT_EQ(alertMessages(), QStringList{QStringLiteral("No logs found")});
    EXPECT_TRUE(QDir(sandbox.homePath(QStringLiteral("Desktop"))).isEmpty());
}

TEST_F(VLTroubleshootingUtilsTest, FailuresAreToldAndStopTheGathering)
{
    ASSERT_TRUE(writeFile(userPath(QStringLiteral("Logs/Velmora/My App.1.log"))));
    const QString missing = sandbox.tmpPath(QStringLiteral("missing.txt"));
    bool gathered = true;
    const QByteArray printed = vltest::captureStdout([&] {
        gathered = VLTroubleshootingUtils::gatherLogsForAppsWithNames(kNames, false, {missing});
    });
    EXPECT_FALSE(gathered);
    EXPECT_TRUE(printed.startsWith("Unable to copy file: ")) << printed.constData();
    EXPECT_TRUE(presenter_->alerts.isEmpty());
    // The staging folder stays behind, private to its owner.
    struct stat staging {};
    ASSERT_EQ(::stat(QFile::encodeName(VLTroubleshootingUtils::stagingFolder()).constData(), &staging), 0);
    EXPECT_EQ(staging.st_mode & 0777, 0700u);
    EXPECT_TRUE(QDir(sandbox.homePath(QStringLiteral("Desktop"))).isEmpty());

    // No desktop folder to hold the archive: the user is told, and the staging folder goes.
    ASSERT_TRUE(QDir(sandbox.homePath(QStringLiteral("Desktop"))).removeRecursively());
    EXPECT_FALSE(VLTroubleshootingUtils::gatherLogsForAppsWithNames(kNames));
    EXPECT_EQ(alertMessages(), QStringList{QStringLiteral("Logs could not be gathered")});
    EXPECT_FALSE(QFileInfo::exists(VLTroubleshootingUtils::stagingFolder()));
}

// ---- an unreadable folder, as "nobody" -----------------------------------------------------

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
    ASSERT_TRUE(writeFile(machinePath(QStringLiteral("Logs/Velmora/My App.1.log"))));
    ASSERT_EQ(::chmod(QFile::encodeName(machinePath(QStringLiteral("Logs/Velmora"))).constData(), 0700), 0);
    ASSERT_TRUE(sandbox.giveHomeTo(*uid));

    vltest::RunOptions options;
    options.uid = uid;
    options.extraEnv.insert(QStringLiteral("VLTU_CHILD"), QStringLiteral("gather"));
    const vltest::RunResult result = sandbox.run(QCoreApplication::applicationFilePath(),
                                                 {QStringLiteral("--gtest_filter=VLTroubleshootingUtilsChild.Run")}, options);
    ASSERT_EQ(result.exitCode, 0) << result.describe().toStdString();
    EXPECT_EQ(gatheredPaths(archive()), QStringList{userPath(QStringLiteral("Logs/Velmora/My App.1.log"))});
}

} // namespace
