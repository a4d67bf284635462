// The system log: one whole, stamped line on standard error per call, from any thread.
#include "platform/system/SystemLog.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryFile>
#include <gtest/gtest.h>

#include <functional>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

// What `work` writes to standard error, one entry per line.
QStringList standardErrorLines(const std::function<void()>& work)
{
    QTemporaryFile sink;
    if (!sink.open())
        return {QStringLiteral("<capture failed>")};
    std::fflush(stderr);
    const int saved = ::dup(STDERR_FILENO);
    ::dup2(sink.handle(), STDERR_FILENO);
    work();
    std::fflush(stderr);
    ::dup2(saved, STDERR_FILENO);
    ::close(saved);
    QFile written(sink.fileName());
    return written.open(QIODevice::ReadOnly) ? QString::fromUtf8(written.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts) : QStringList();
}

TEST(SystemLog, OneWholeLinePerCallFromAnyThread)
{
    const QStringList lines = standardErrorLines([] {
        sys::nsLog(QStringLiteral("Could not bring the application to front. Error %d"), -600);
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([t] {
                for (int i = 0; i < 50; ++i)
                    sys::nsLog(QStringLiteral("thread %d line %d %@"), t, i, QStringLiteral("xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx"));
            });
        }
        for (auto& thread : threads)
            thread.join();
    });
    ASSERT_EQ(lines.size(), 201);
    const QRegularExpression shape(QStringLiteral(R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} )")
                                   + QRegularExpression::escape(QFileInfo(QCoreApplication::applicationFilePath()).fileName())
                                   + QStringLiteral(R"(\[%1\] (.*)$)").arg(::getpid()));
    const auto first = shape.match(lines.first());
    ASSERT_TRUE(first.hasMatch()) << lines.first().toStdString();
    EXPECT_EQ(first.captured(1), QStringLiteral("Could not bring the application to front. Error -600"));
    const QRegularExpression threadLine(QStringLiteral(R"(thread \d line \d+ x{32}$)"));
    for (const QString& line : lines.mid(1))
        EXPECT_TRUE(shape.match(line).hasMatch() && threadLine.match(line).hasMatch()) << line.toStdString();
}

} // namespace
