// The system log: one whole, stamped line on standard error per call, from any thread.
#include "platform/system/SystemLog.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryFile>
#include <gtest/gtest.h>

#include <thread>
#include <unistd.h>
#include <vector>

TEST(SystemLog, OneWholeLinePerCallFromAnyThread)
{
    QTemporaryFile sink;
    ASSERT_TRUE(sink.open());
    std::fflush(stderr);
    const int saved = ::dup(STDERR_FILENO);
    ::dup2(sink.handle(), STDERR_FILENO);
    sys::nsLog(QStringLiteral("Could not bring the application to front. Error %d"), -600);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < 50; ++i)
                sys::nsLog(QStringLiteral("thread %d line %d %@"), t, i, QStringLiteral("xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx"));
        });
    for (auto& thread : threads)
        thread.join();
    std::fflush(stderr);
    ::dup2(saved, STDERR_FILENO);
    ::close(saved);

    sink.seek(0);
    const QStringList lines = QString::fromUtf8(sink.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 201);
    const QRegularExpression shape(QStringLiteral(R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} %1\[%2\] (.*)$)")
                                       .arg(QRegularExpression::escape(QFileInfo(QCoreApplication::applicationFilePath()).fileName()))
                                       .arg(::getpid()));
    EXPECT_EQ(shape.match(lines.first()).captured(1), QStringLiteral("Could not bring the application to front. Error -600")) << lines.first().toStdString();
    const QRegularExpression threadLine(QStringLiteral(R"(\] thread \d line \d+ x{32}$)"));
    for (const QString& line : lines.mid(1))
        EXPECT_TRUE(shape.match(line).hasMatch() && threadLine.match(line).hasMatch()) << line.toStdString();
}
