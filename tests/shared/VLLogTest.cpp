#include "shared/VLLog.h"
#include "shared/VLException.h"
#include "shared/VLLocalPaths.h"
#include "support/ChildProcess.h"
#include "support/LogFixture.h"
#include "support/Sandbox.h"
#include "support/StdoutCapture.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <stdexcept>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using vltest::LogFixture;
using vltest::Sandbox;

const QRegularExpression kLine(QStringLiteral("^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d \\+0000 - (.*)$"));

// The texts of a log's lines, each checked for its time-stamp prefix.
QStringList linesOf(const QString& text)
{
    QStringList texts;
    for (const QString& raw : text.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        const auto match = kLine.match(raw);
        EXPECT_TRUE(match.hasMatch()) << qPrintable(raw.left(200));
        texts.append(match.captured(1));
    }
    return texts;
}

// The current log's lines after the banner (which ends with "Running in 64-bit mode").
QStringList linesAfterBanner()
{
    const QStringList lines = linesOf(LogFixture::logText());
    return lines.mid(lines.indexOf(QStringLiteral("Running in 64-bit mode")) + 1);
}

QString generation(int n)
{
    return QStringLiteral("%1/%2.%3.log").arg(VLLog::logFolder(), VLLog::appName()).arg(n);
}

// The listed generations, each holding "g<n>"; a current file outside the rotation (root's)
// holds "current".
void writeGenerations(std::initializer_list<int> generations)
{
    for (int n : generations)
        ASSERT_TRUE(Sandbox::writeFile(generation(n), QByteArray("g") + QByteArray::number(n)));
    if (VLLog::currentLogPath() != generation(1)) {
        ASSERT_TRUE(Sandbox::writeFile(VLLog::currentLogPath(), "current"));
    }
}

TEST(VLLogLines, EscapingFormattingAndTrimming)
{
    // Percent signs followed by punctuation print literally; an escaped one is folded back.
    EXPECT_EQ(VLLog::escapeTextForLogging(QStringLiteral("100%% ok, 5%; %@ %i")), QStringLiteral("100%% ok, 5%%; %@ %i"));
    LogFixture log;
    VLLog::appendLog(QStringLiteral("50% of %@, 10%. %i"), QStringLiteral("files"), 7);
    VLLog::appendLog(QStringLiteral("  \n\t padded line \r\n"));
    VLLog::appendLog(QStringLiteral(" \n "));
    VLLog::fastAppendLog(QStringLiteral("%@"), QStringLiteral("\n"));
    VLLog::fastAppendLog(QStringLiteral("arg %@ is not escaped"), QStringLiteral("50% x"));
    VLLog::appendLog(QString());
    EXPECT_EQ(linesAfterBanner(), QStringList({QStringLiteral("50% of files, 10%. 7"), QStringLiteral("padded line"),
                                      QStringLiteral("arg 50% x is not escaped")}));
}

TEST(VLLogFiles, NewLogRotatesGenerationsAcrossGapsUnderTheExecutablesName)
{
    LogFixture log(false);
    ASSERT_TRUE(Sandbox::writePlist(log.path(QStringLiteral("sysroot/System/Library/CoreServices/SystemVersion.plist")),
                                    QVariantMap{{QStringLiteral("ProductVersion"), QStringLiteral("13.4.1")}}));
    writeGenerations({1, 3, 5});
    EXPECT_EQ(VLLog::availableLogs(), QStringList({generation(1), generation(3), generation(5)}));
    VLLog::createNewLog(QStringLiteral("Other Name"), true);
    EXPECT_EQ(VLLog::appName(), QStringLiteral("VLLogTest")); // the executable's name wins
    const QStringList banner = linesOf(LogFixture::logText()); // the rotation is queued like any line
    EXPECT_EQ(Sandbox::readFile(generation(2)) + Sandbox::readFile(generation(4)), QByteArray("g1g3"));
    EXPECT_FALSE(QFileInfo::exists(generation(5))); // the oldest is deleted
    ASSERT_GE(banner.size(), 4);
    EXPECT_TRUE(banner[0].startsWith(QStringLiteral("Log started: ")));
    EXPECT_TRUE(banner[banner.size() - 2].startsWith(QStringLiteral("System: macOS 13.4.1, "))) << qPrintable(banner.join(QLatin1Char('|')));
    EXPECT_EQ(banner.last(), QStringLiteral("Running in 64-bit mode"));
}

TEST(VLLogFiles, RotationThatCannotMoveAGenerationStopsWithoutReplacingOne)
{
    LogFixture log(false);
    writeGenerations({1, 2, 3});
    // Generation 5 is a folder (not a log file, so it is not deleted) and generation 4 a folder
    // holding a file: moving 4 onto 5 must fail rather than replace 5.
    ASSERT_TRUE(QDir().mkpath(generation(5)));
    ASSERT_TRUE(Sandbox::writeFile(generation(4) + QStringLiteral("/kept.txt"), "kept"));
    const QByteArray printed = vltest::captureStdout([] { VLLog::createNewLog(); });
    EXPECT_EQ(printed, QStringLiteral("Unable to move file %1 to %2.\n").arg(generation(4), generation(5)).toUtf8());
    EXPECT_TRUE(QDir(generation(5)).isEmpty());
    EXPECT_EQ(Sandbox::readFile(generation(4) + QStringLiteral("/kept.txt")), QByteArray("kept"));
    for (int n = 1; n <= 3; ++n)
        EXPECT_EQ(Sandbox::readFile(generation(n)), QByteArray("g") + QByteArray::number(n)) << n;
    if (VLLog::currentLogPath() != generation(1)) {
        EXPECT_EQ(Sandbox::readFile(VLLog::currentLogPath()), QByteArray("current")) << "no new log was started";
    }
}

TEST(VLLogFiles, OnlyTheStringOneOrTrueDisablesLogging)
{
    const std::pair<QVariant, bool> cases[] = {{QStringLiteral("1"), true}, {QStringLiteral("YES"), false}, {true, true}, {qlonglong(2), false}};
    for (const auto& [value, disabled] : cases) {
        LogFixture log(false, false);
        ASSERT_TRUE(Sandbox::writePlist(VLLocalPaths::prefsDirectory(true) + QStringLiteral("/com.velmora.global.plist"),
                                        QVariantMap{{QStringLiteral("disable-logging"), value}}));
        ASSERT_TRUE(Sandbox::makeDir(log.path(QStringLiteral("sysroot/Library/Logs/Velmora"))));
        const QByteArray printed = vltest::captureStdout([] { VLLog::createNewLog(); });
        VLLog::createNewLog(); // off for the rest of the process
        EXPECT_EQ(QFileInfo::exists(VLLog::logFolder()) && QFileInfo::exists(VLLog::currentLogPath()), !disabled) << value.toString().toStdString();
        EXPECT_EQ(printed == "Logging is disabled\n", disabled) << printed.constData();
    }
}

// The two orderings of a new file against the queue: lines queued before a roll-over, or
// before a new log asked for on another thread, stay in the old file.
TEST(VLLogWriting, LinesQueuedBeforeANewFileStayInTheOldOne)
{
    {
        LogFixture log;
        VLLog::finishWriting();
        VLLog::setWriterPausedForTesting(true);
        for (int i = 0; i < 5; ++i)
            VLLog::fastAppendLog(QStringLiteral("%@"), QString(999990, QLatin1Char('x')));
        VLLog::fastAppendLog(QStringLiteral("queued before the roll-over"));
        VLLog::setWriterPausedForTesting(false);
        VLLog::finishWriting();
        VLLog::fastAppendLog(QStringLiteral("after the roll-over"));
        EXPECT_EQ(linesAfterBanner(), QStringList({QStringLiteral("Log truncated at 500KB"), QStringLiteral("after the roll-over")}));
    }
    LogFixture log;
    VLLog::finishWriting();
    VLLog::setWriterPausedForTesting(true);
    VLLog::fastAppendLog(QStringLiteral("queued before the new log"));
    std::thread starter([] { VLLog::createNewLog(QString(), true); });
    std::this_thread::sleep_for(std::chrono::milliseconds(100)); // the new log is asked for meanwhile
    VLLog::setWriterPausedForTesting(false);
    starter.join();
    const QString current = LogFixture::logText();
    EXPECT_TRUE(current.contains(QStringLiteral("Log started: ")));
    EXPECT_FALSE(current.contains(QStringLiteral("queued before the new log"))) << qPrintable(current);
    // Root's current file is not part of the rotation; elsewhere the old file is generation 2.
    if (VLLog::currentLogPath() == generation(1)) {
        EXPECT_TRUE(Sandbox::readFile(generation(2)).contains("queued before the new log"));
    }
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
        EXPECT_EQ(QString::fromUtf8(Sandbox::readFile(VLLog::currentLogPath())).count(QStringLiteral("pending ")), pending == 10 ? 10 : 0);
        VLLog::fastAppendLog(QStringLiteral("after termination"));
        VLLog::finishWriting();
        EXPECT_FALSE(Sandbox::readFile(VLLog::currentLogPath()).contains("after termination"));
    }
}

TEST(VLLogWriting, OnlyShortLinesFromWorkersWaitForTheDisk)
{
    const struct {
        int length, queuedBefore;
        bool onWorker, waits;
    } cases[] = {{99, 0, true, true}, {100, 0, true, false}, {5, 96, true, false}, {5, 0, false, false}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.length << " characters behind " << c.queuedBefore << (c.onWorker ? " on a worker" : ""));
        LogFixture log;
        VLLog::finishWriting();
        VLLog::setWriterPausedForTesting(true);
        if (c.queuedBefore)
            VLLog::fastAppendLog(QStringLiteral("%@"), QString(c.queuedBefore, QLatin1Char('q')));
        const QString text(c.length, QLatin1Char('a'));
        std::atomic<bool> returned{false};
        const auto append = [&] {
            VLLog::appendLog(QStringLiteral("%@"), text);
            returned = true;
        };
        std::thread worker = c.onWorker ? std::thread(append) : (append(), std::thread());
        // A waiting call cannot return while the writer is held; one that does not wait
        // returns however slow the machine is.
        const QDeadlineTimer guard(c.waits ? 200 : 60000);
        while (!returned && !guard.hasExpired())
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        EXPECT_EQ(returned.load(), !c.waits);
        VLLog::setWriterPausedForTesting(false);
        if (worker.joinable())
            worker.join();
        EXPECT_TRUE(LogFixture::logText().contains(text));
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
    });
    EXPECT_EQ(quiet, QByteArray());
}

TEST(VLException, LogsPrintsAndReturnsTheMessage)
{
    vltest::LogFixture log(false);
    VLLog::createNewLog();
    const QString method = QStringLiteral("-[AppController loadPreferenceSettings]");
    const fnd::PlatformException platform(QStringLiteral("NSRangeException"), QStringLiteral("index 5 beyond bounds"));
    const std::exception& asStd = platform;
    QString message;
    const QByteArray printed = vltest::captureStdout([&] { message = VLException::logException(method, asStd); });
    const QString expected = QStringLiteral("Exception in -[AppController loadPreferenceSettings]. NSRangeException - index 5 beyond bounds.");
    EXPECT_EQ(message, expected);
    EXPECT_EQ(printed, expected.toUtf8() + '\n');
    EXPECT_TRUE(vltest::LogFixture::logText().contains(QStringLiteral(" - ") + expected));
    EXPECT_EQ(VLException::logException(method, std::runtime_error("disk full")),
              QStringLiteral("Exception in -[AppController loadPreferenceSettings]. std::exception - disk full."));
    EXPECT_TRUE(VLException::didTimeout(fnd::PlatformException(QStringLiteral("NSPortTimeoutException"), QString())));
    EXPECT_FALSE(VLException::didTimeout(QStringLiteral("nsporttimeoutexception")));
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
    ASSERT_TRUE(Sandbox::makeDir(log.path(QStringLiteral("sysroot/Library/Logs/Velmora"))));
    VLLog::createNewLog(QString(), true);
    VLLog::appendLog(QStringLiteral("root line"));
    EXPECT_EQ(VLLog::currentLogPath(), log.path(QStringLiteral("sysroot/Library/Logs/Velmora/VLLogTest.1.log")));
    EXPECT_TRUE(LogFixture::logText().contains(QStringLiteral("root line")));
    EXPECT_FALSE(QFileInfo::exists(generation(1)));
}

// ---- several threads logging across roll-overs, as an unprivileged user ------------------

constexpr int kWriters = 4;
constexpr int kLinesPerWriter = 3000;

// Each line's padding has a length of its own, so a torn or spliced line cannot pass for a
// whole one. Every tenth line is short and goes through appendLog, which waits for the disk.
QString writerLine(int writer, int i)
{
    return QStringLiteral("w%1 %2 %3").arg(writer).arg(i).arg(QString(i % 10 == 0 ? 1 + i % 7 : 900 + i % 97, QLatin1Char('x')));
}

// Runs only in the child ManyThreadsAcrossRollOversLoseNoLine starts.
TEST(VLLogRoot, ChildWritesFromManyThreads)
{
    if (qEnvironmentVariableIsEmpty("VLLOG_CHILD_TEST"))
        GTEST_SKIP() << "runs only as that child";
    VLLog::createNewLog(QString(), true);
    std::vector<std::jthread> writers;
    for (int w = 0; w < kWriters; ++w) {
        writers.emplace_back([w] {
            for (int i = 0; i < kLinesPerWriter; ++i)
                (i % 10 == 0 ? VLLog::appendLog<QString> : VLLog::fastAppendLog<QString>)(QStringLiteral("%@"), writerLine(w, i));
        });
    }
    writers.clear();
    VLLog::finishWriting();
}

TEST(VLLogRoot, ManyThreadsAcrossRollOversLoseNoLine)
{
    const std::optional<uint> nobody = Sandbox::unprivilegedUid();
    if (!nobody)
        GTEST_SKIP() << "needs root to run a child as an unprivileged user";
    LogFixture log(false, false);
    ASSERT_TRUE(Sandbox::makeDir(log.path(QStringLiteral("sysroot/Library/Logs/Velmora"))) && Sandbox::makeDir(log.path(QStringLiteral("home"))));
    for (const QString& folder : {QString(), QStringLiteral("home")})
        ::chmod(QFile::encodeName(log.path(folder)).constData(), 0777);
    log.environment().set("VLLOG_CHILD_TEST", QStringLiteral("1"));
    vltest::ChildProcess child;
    ASSERT_TRUE(child.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--gtest_filter=VLLogRoot.ChildWritesFromManyThreads")},
                            {.uid = nobody}));
    ASSERT_TRUE(child.waitForFinished(300000));
    ASSERT_EQ(child.exitCode(), 0) << child.standardOutput().toStdString();

    // Some 12 MB of lines in files of 5 MB or more: one or two roll-overs.
    const QString folder = log.path(QStringLiteral("home/Library/Logs/Velmora/"));
    const qsizetype generations = QDir(folder).entryList(QDir::Files).size();
    ASSERT_TRUE(generations == 2 || generations == 3) << generations;
    std::map<std::pair<int, int>, int> seen;
    std::vector<int> lastOfWriter(kWriters, -1);
    bool inOrder = true;
    static const QRegularExpression writerText(QStringLiteral("^w(\\d+) (\\d+) x+$"));
    static const QRegularExpression notice(QStringLiteral("^(Log started: |Version: |Path: |System: |Log truncated at 500KB$|Running in 64-bit mode$)"));
    for (qsizetype n = generations; n >= 1; --n) { // oldest first
        const QByteArray bytes = Sandbox::readFile(folder + QStringLiteral("VLLogTest.%1.log").arg(n));
        EXPECT_TRUE(bytes.endsWith('\n')) << n;
        EXPECT_TRUE(n == 1 || bytes.size() >= 5000000) << "generation " << n << " rolled over before it was full";
        const QStringList lines = linesOf(QString::fromUtf8(bytes));
        // Each file has its banner once; lines other threads queued meanwhile may precede it.
        EXPECT_EQ(lines.filter(QRegularExpression(QStringLiteral("^Log started: "))).size(), 1) << n;
        EXPECT_EQ(lines.count(QStringLiteral("Log truncated at 500KB")), n == generations ? 0 : 1) << n;
        for (const QString& line : lines) {
            const auto match = writerText.match(line);
            const int w = match.captured(1).toInt();
            const int i = match.captured(2).toInt();
            if (!match.hasMatch() || line != writerLine(w, i)) {
                EXPECT_TRUE(notice.match(line).hasMatch()) << "torn line in generation " << n << ": " << qPrintable(line.left(100));
                continue;
            }
            ++seen[{w, i}];
            inOrder = inOrder && i > std::exchange(lastOfWriter[size_t(w)], i);
        }
    }
    EXPECT_TRUE(inOrder) << "a writer's lines are out of order across the generations";
    EXPECT_EQ(seen.size(), size_t(kWriters * kLinesPerWriter)) << "lines were lost";
    EXPECT_EQ(std::count_if(seen.begin(), seen.end(), [](const auto& entry) { return entry.second > 1; }), 0) << "lines were duplicated";
    EXPECT_TRUE(QDir(log.path(QStringLiteral("sysroot/Library/Logs/Velmora"))).isEmpty());
}

} // namespace
