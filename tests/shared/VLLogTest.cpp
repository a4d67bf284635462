#include "shared/VLLog.h"
#include "shared/VLLocalPaths.h"
#include "support/LogFixture.h"
#include "support/StdoutCapture.h"

#include "platform/plist/PropertyList.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <chrono>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

using vltest::LogFixture;

// The texts of the current file's lines, each checked for its time-stamp prefix.
QStringList logLines()
{
    static const QRegularExpression line(QStringLiteral("^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d \\+0000 - (.*)$"));
    QStringList texts;
    for (const QString& raw : LogFixture::logText().split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        const auto match = line.match(raw);
        EXPECT_TRUE(match.hasMatch()) << qPrintable(raw.left(200));
        texts.append(match.captured(1));
    }
    return texts;
}

// The log's lines after the banner (which ends with "Running in 64-bit mode").
QStringList linesAfterBanner()
{
    QStringList lines = logLines();
    const qsizetype end = lines.indexOf(QStringLiteral("Running in 64-bit mode"));
    return end < 0 ? lines : lines.mid(end + 1);
}

QString generation(int n)
{
    return QStringLiteral("%1/%2.%3.log").arg(VLLog::logFolder(), VLLog::appName()).arg(n);
}

void writeText(const QString& path, const QByteArray& text)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(text);
}

QByteArray readText(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

TEST(VLLogEscaping, PercentFollowedByPunctuationStaysLiteral)
{
    struct Case {
        const char* text;
        const char* escaped;
    };
    const Case cases[] = {
        {"no percent", "no percent"},
        {"50% done", "50%% done"},
        {"%.%,%!%-%;%:%+", "%%.%%,%%!%%-%%;%%:%%+"},
        {"already 100%% ok", "already 100%% ok"}, // "%% " would become "%%% ", folded back
        {"%@ %i %li %s %0.2f %%", "%@ %i %li %s %0.2f %%"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(VLLog::escapeTextForLogging(QString::fromUtf8(c.text)), QString::fromUtf8(c.escaped)) << c.text;
}

TEST(VLLogLines, EscapedFormatsTrimmingAndEmptyLines)
{
    LogFixture log;
    VLLog::appendLog(QStringLiteral("50% of %@, 10%. %i"), QStringLiteral("files"), 7);
    VLLog::appendLog(QStringLiteral("  \n\t padded line \r\n"));
    VLLog::appendLog(QStringLiteral(" \n "));
    VLLog::fastAppendLog(QStringLiteral("%@"), QStringLiteral("\n"));
    VLLog::fastAppendLog(QStringLiteral("arg %@ is not escaped"), QStringLiteral("50% x"));
    VLLog::appendLog(QString());
    EXPECT_EQ(linesAfterBanner(),
        QStringList({QStringLiteral("50% of files, 10%. 7"), QStringLiteral("padded line"),
            QStringLiteral("arg 50% x is not escaped")}));
}

TEST(VLLogLines, BannerOpensEveryNewLog)
{
    LogFixture log(false);
    const QString versionFile = log.path(QStringLiteral("sysroot/System/Library/CoreServices/SystemVersion.plist"));
    QDir().mkpath(QFileInfo(versionFile).path());
    ASSERT_TRUE(plist::writeXmlFileAtomically(QVariantMap{{QStringLiteral("ProductVersion"), QStringLiteral("13.4.1")}}, versionFile));
    VLLog::createNewLog(QString(), true);
    const QStringList lines = logLines();
    ASSERT_GE(lines.size(), 4);
    EXPECT_TRUE(QRegularExpression(QStringLiteral("^Log started: \\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d \\+0000$")).match(lines[0]).hasMatch())
        << qPrintable(lines[0]);
    EXPECT_TRUE(lines.contains(QStringLiteral("Path: %1").arg(QCoreApplication::applicationFilePath())));
    EXPECT_TRUE(QRegularExpression(QStringLiteral("^System: macOS 13\\.4\\.1, \\d+ CPU\\(s\\), \\d+\\.\\d\\d GB RAM$"))
                    .match(lines[lines.size() - 2]).hasMatch()) << qPrintable(lines.join(QLatin1Char('|')));
    EXPECT_EQ(lines.last(), QStringLiteral("Running in 64-bit mode"));
}

TEST(VLLogFiles, ExecutableNameWinsOverThePassedName)
{
    LogFixture log(false);
    VLLog::createNewLog(QStringLiteral("Other Name"), true);
    EXPECT_EQ(VLLog::appName(), QStringLiteral("VLLogTest"));
    EXPECT_TRUE(VLLog::currentLogPath().endsWith(QStringLiteral("/VLLogTest.1.log")));
    EXPECT_TRUE(QFileInfo::exists(VLLog::currentLogPath()));
}

TEST(VLLogFiles, NewLogRotatesFiveGenerations)
{
    LogFixture log(false);
    for (int n = 1; n <= 5; ++n)
        writeText(generation(n), QByteArray("g") + QByteArray::number(n));
    // The current file must exist for a rotation; for root it is the local-domain file.
    if (VLLog::currentLogPath() != generation(1))
        writeText(VLLog::currentLogPath(), "current");
    VLLog::createNewLog(QString(), true);
    VLLog::finishWriting();
    for (int n = 2; n <= 5; ++n)
        EXPECT_EQ(readText(generation(n)), QByteArray("g") + QByteArray::number(n - 1)) << n;
    EXPECT_TRUE(readText(VLLog::currentLogPath()).contains("Log started: "));
    EXPECT_FALSE(readText(VLLog::currentLogPath()).contains("g1"));
    EXPECT_FALSE(readText(VLLog::currentLogPath()).contains("current"));
}

TEST(VLLogFiles, RotationThatCannotMoveAGenerationStopsWithoutReplacingOne)
{
    LogFixture log(false);
    for (int n = 1; n <= 3; ++n)
        writeText(generation(n), QByteArray("g") + QByteArray::number(n));
    // Generation 5 is a folder (not a log file, so it is not deleted) and generation 4 a folder
    // holding a file: moving 4 onto 5 must fail rather than replace 5.
    ASSERT_TRUE(QDir().mkpath(generation(5)));
    writeText(generation(4) + QStringLiteral("/kept.txt"), "kept");
    if (VLLog::currentLogPath() != generation(1))
        writeText(VLLog::currentLogPath(), "current");
    const QByteArray printed = vltest::captureStdout([] { VLLog::createNewLog(); });
    EXPECT_EQ(printed, QStringLiteral("Unable to move file %1 to %2.\n").arg(generation(4), generation(5)).toUtf8());
    EXPECT_TRUE(QDir(generation(5)).isEmpty());
    EXPECT_EQ(readText(generation(4) + QStringLiteral("/kept.txt")), QByteArray("kept"));
    for (int n = 1; n <= 3; ++n)
        EXPECT_EQ(readText(generation(n)), QByteArray("g") + QByteArray::number(n)) << n;
    if (VLLog::currentLogPath() != generation(1)) {
        EXPECT_EQ(readText(VLLog::currentLogPath()), QByteArray("current")) << "no new log was started";
    }
}

TEST(VLLogFiles, AvailableLogsListsExistingGenerationsInOrder)
{
    LogFixture log(false);
    writeText(generation(3), "g3");
    writeText(generation(1), "g1");
    EXPECT_EQ(VLLog::availableLogs(), QStringList({generation(1), generation(3)}));
}

TEST(VLLogFiles, DisableSwitchValues)
{
    struct Case {
        const char* name;
        QVariant value;
        bool disabled;
    };
    const Case cases[] = {
        {"string 1", QStringLiteral("1"), true},
        {"boolean true", true, true},
        {"number 1", qlonglong(1), true},
        {"string 0", QStringLiteral("0"), false},
        {"string YES", QStringLiteral("YES"), false},
        {"number 2", qlonglong(2), false},
        {"boolean false", false, false},
    };
    for (const Case& c : cases) {
        LogFixture log(false, false);
        const QString prefs = VLLocalPaths::prefsDirectory(true) + QStringLiteral("/com.velmora.global.plist");
        QDir().mkpath(QFileInfo(prefs).path());
        ASSERT_TRUE(plist::writeXmlFileAtomically(QVariantMap{{QStringLiteral("disable-logging"), c.value}}, prefs));
        QDir().mkpath(log.path(QStringLiteral("sysroot/Library/Logs/Velmora")));
        const QByteArray printed = vltest::captureStdout([] { VLLog::createNewLog(); });
        VLLog::appendLog(QStringLiteral("after the switch"));
        VLLog::createNewLog();
        EXPECT_EQ(QFileInfo::exists(VLLog::logFolder()), !c.disabled) << c.name;
        EXPECT_EQ(QFileInfo::exists(VLLog::currentLogPath()), !c.disabled) << c.name;
        EXPECT_EQ(printed == "Logging is disabled\n", c.disabled) << c.name << " printed: " << printed.constData();
    }
}

TEST(VLLogFiles, RollOverAtFiveMillionBytes)
{
    LogFixture log;
    const QString big(999990, QLatin1Char('x'));
    for (int i = 0; i < 5; ++i)
        VLLog::fastAppendLog(QStringLiteral("%@"), big);
    // Lines queued while the roll-over is pending still belong to the old file.
    VLLog::fastAppendLog(QStringLiteral("queued before the roll-over"));
    VLLog::finishWriting();
    VLLog::fastAppendLog(QStringLiteral("after the roll-over"));
    const QStringList lines = logLines();
    ASSERT_GE(lines.size(), 6) << qPrintable(lines.join(QLatin1Char('\n')));
    EXPECT_TRUE(lines[0].startsWith(QStringLiteral("Log started: ")));
    const qsizetype bannerEnd = lines.indexOf(QStringLiteral("Running in 64-bit mode"));
    ASSERT_GT(bannerEnd, 0);
    EXPECT_EQ(lines.mid(bannerEnd + 1), QStringList({QStringLiteral("Log truncated at 500KB"), QStringLiteral("after the roll-over")}));
    EXPECT_FALSE(LogFixture::logText().contains(QStringLiteral("queued before")));
}

TEST(VLLogWriting, TerminationWritesTenPendingLinesAndDropsEleven)
{
    for (int pending : {10, 11}) {
        LogFixture log;
        VLLog::finishWriting();
        VLLog::setWriterPausedForTesting(true);
        for (int i = 0; i < pending; ++i)
            VLLog::fastAppendLog(QStringLiteral("pending %i"), i);
        VLLog::willTerminate();
        const QString text = QString::fromUtf8(readText(VLLog::currentLogPath()));
        EXPECT_EQ(text.count(QStringLiteral("pending ")), pending == 10 ? 10 : 0) << pending;
        VLLog::fastAppendLog(QStringLiteral("after termination"));
        VLLog::finishWriting();
        EXPECT_FALSE(readText(VLLog::currentLogPath()).contains("after termination"));
    }
}

TEST(VLLogWriting, LinesQueuedBeforeANewLogStayInTheOldFile)
{
    LogFixture log;
    VLLog::finishWriting();
    VLLog::setWriterPausedForTesting(true);
    VLLog::fastAppendLog(QStringLiteral("queued before the new log"));
    // The new log is asked for while that line still waits for the writer.
    std::thread starter([] { VLLog::createNewLog(QString(), true); });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    VLLog::setWriterPausedForTesting(false);
    starter.join();
    const QString current = LogFixture::logText();
    EXPECT_TRUE(current.contains(QStringLiteral("Log started: ")));
    EXPECT_FALSE(current.contains(QStringLiteral("queued before the new log"))) << qPrintable(current);
    // Root's current file is not part of the rotation; elsewhere the old file is generation 2.
    if (VLLog::currentLogPath() == generation(1)) {
        EXPECT_TRUE(readText(generation(2)).contains("queued before the new log"));
    }
}

TEST(VLLogWriting, ShortLinesFromWorkersWaitForTheDisk)
{
    struct Case {
        const char* name;
        bool onWorker;
        QString text;
        bool fillQueueFirst;
        bool waits;
    };
    const Case cases[] = {
        {"short line on a worker", true, QStringLiteral("short"), false, true},
        {"99 characters on a worker", true, QString(99, QLatin1Char('a')), false, true},
        {"100 characters on a worker", true, QString(100, QLatin1Char('a')), false, false},
        {"short line behind a full queue", true, QStringLiteral("short"), true, false},
        {"short line on the main thread", false, QStringLiteral("short"), false, false},
    };
    for (const Case& c : cases) {
        LogFixture log;
        VLLog::finishWriting();
        VLLog::setWriterPausedForTesting(true);
        if (c.fillQueueFirst)
            VLLog::fastAppendLog(QStringLiteral("%@"), QString(96, QLatin1Char('q')));
        std::atomic<bool> returned{false};
        auto append = [&] {
            VLLog::appendLog(QStringLiteral("%@"), c.text);
            returned = true;
        };
        std::thread worker;
        if (c.onWorker)
            worker = std::thread(append);
        else
            append();
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        EXPECT_EQ(returned.load(), !c.waits) << c.name;
        VLLog::setWriterPausedForTesting(false);
        if (worker.joinable())
            worker.join();
        EXPECT_TRUE(LogFixture::logText().contains(c.text)) << c.name;
    }
}

TEST(VLLogPrinting, EchoDropsObjectsDoublesPercentAndRemovesNul)
{
    LogFixture log(false);
    VLLog::createNewLog();
    const QString text = QStringLiteral("50% done %@ here") + QChar(u'\0') + QStringLiteral("end");
    const QByteArray printed = vltest::captureStdout([&] { VLLog::appendLogAndPrint(QStringLiteral(" %@ "), text); });
    EXPECT_EQ(printed, QByteArray("50%% done  hereend\n"));
    // In the log the text was formatted a second time: its "%@" found no argument.
    EXPECT_TRUE(LogFixture::logText().contains(QStringLiteral("50% done (null) here"))) << qPrintable(LogFixture::logText());

    const QByteArray quiet = vltest::captureStdout([] {
        VLLog::createNewLog(QString(), true);
        VLLog::appendLogAndPrint(QStringLiteral("not echoed"));
        VLLog::appendLogAndDebugPrint(QStringLiteral("debug %@"), QStringLiteral("line"));
    });
    EXPECT_EQ(quiet, QByteArray());
    EXPECT_TRUE(LogFixture::logText().contains(QStringLiteral("debug line")));
}

TEST(VLLogRoot, RootWritesTheLocalDomainFile)
{
    if (::getuid() != 0)
        GTEST_SKIP() << "needs user id 0";
    LogFixture log(false, false);
    // Without the local-domain folder root gets no file, though the user folder is made.
    const QByteArray printed = vltest::captureStdout([] { VLLog::createNewLog(); });
    EXPECT_TRUE(printed.startsWith("Unable to create log file ")) << printed.constData();
    EXPECT_TRUE(QFileInfo::exists(VLLog::logFolder()));
    QDir().mkpath(log.path(QStringLiteral("sysroot/Library/Logs/Velmora")));
    VLLog::createNewLog(QString(), true);
    VLLog::appendLog(QStringLiteral("root line"));
    const QString local = log.path(QStringLiteral("sysroot/Library/Logs/Velmora/VLLogTest.1.log"));
    EXPECT_EQ(VLLog::currentLogPath(), local);
    EXPECT_TRUE(LogFixture::logText().contains(QStringLiteral("root line")));
    EXPECT_FALSE(QFileInfo::exists(generation(1)));
}

// Runs this test binary again as user 65534 with only `test` selected; returns its exit code.
int runAsNobody(const char* test)
{
    const QByteArray self = QCoreApplication::applicationFilePath().toLocal8Bit();
    const QByteArray filter = QByteArray("--gtest_filter=") + test;
    char disabled[] = "--gtest_also_run_disabled_tests";
    char* argv[] = {const_cast<char*>(self.constData()), const_cast<char*>(filter.constData()), disabled, nullptr};
    qputenv("VLLOG_CHILD_TEST", "1");
    const pid_t pid = ::fork();
    if (pid == 0) {
        if (::setgid(65534) != 0 || ::setuid(65534) != 0)
            ::_exit(97);
        ::execv(argv[0], argv);
        ::_exit(98);
    }
    qunsetenv("VLLOG_CHILD_TEST");
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Disabled: only the child started by UnprivilegedUserWritesTheUserDomainFile runs it.
TEST(VLLogRoot, DISABLED_ChildBodyWritesALine)
{
    if (qEnvironmentVariableIsEmpty("VLLOG_CHILD_TEST"))
        GTEST_SKIP() << "runs only as that child";
    VLLog::createNewLog(QString(), true);
    VLLog::appendLog(QStringLiteral("line from user %i"), int(::getuid()));
    const QString big(999990, QLatin1Char('x'));
    for (int i = 0; i < 5; ++i)
        VLLog::fastAppendLog(QStringLiteral("%@"), big);
    VLLog::fastAppendLog(QStringLiteral("queued before the roll-over"));
    VLLog::finishWriting();
    VLLog::appendLog(QStringLiteral("after the roll-over"));
    VLLog::finishWriting();
}

TEST(VLLogRoot, UnprivilegedUserWritesTheUserDomainFile)
{
    if (::getuid() != 0)
        GTEST_SKIP() << "needs user id 0 to switch to an unprivileged one";
    LogFixture log(false, false);
    ::chmod(QFile::encodeName(log.path(QString())).constData(), 0777);
    QDir().mkpath(log.path(QStringLiteral("sysroot/Library/Logs/Velmora")));
    QDir().mkpath(log.path(QStringLiteral("home")));
    ::chmod(QFile::encodeName(log.path(QStringLiteral("home"))).constData(), 0777);
    ASSERT_EQ(runAsNobody("VLLogRoot.DISABLED_ChildBodyWritesALine"), 0);
    // The user-domain file rolled over into the second generation, whole.
    const QString folder = log.path(QStringLiteral("home/Library/Logs/Velmora/"));
    const QByteArray old = readText(folder + QStringLiteral("VLLogTest.2.log"));
    EXPECT_GE(old.size(), 5000000);
    EXPECT_TRUE(old.contains("line from user 65534"));
    EXPECT_TRUE(old.endsWith("queued before the roll-over\n"));
    const QByteArray current = readText(folder + QStringLiteral("VLLogTest.1.log"));
    EXPECT_TRUE(current.contains("Log truncated at 500KB\n"));
    EXPECT_TRUE(current.endsWith("after the roll-over\n"));
    EXPECT_TRUE(QDir(log.path(QStringLiteral("sysroot/Library/Logs/Velmora"))).isEmpty());
}

} // namespace
