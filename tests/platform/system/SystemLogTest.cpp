#include "platform/system/SystemLog.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryFile>
#include <gtest/gtest.h>

#include <thread>
#include <unistd.h>
#include <vector>

namespace {

// Sends standard error to a file for the lifetime of the object.
class StandardErrorCapture {
public:
    StandardErrorCapture()
    {
        file_.open();
        std::fflush(stderr);
        saved_ = ::dup(STDERR_FILENO);
        ::dup2(file_.handle(), STDERR_FILENO);
    }
    ~StandardErrorCapture() { restore(); }
    QStringList lines()
    {
        restore();
        QFile in(file_.fileName());
        if (!in.open(QIODevice::ReadOnly))
            return {};
        return QString::fromUtf8(in.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    }

private:
    void restore()
    {
        if (saved_ < 0)
            return;
        std::fflush(stderr);
        ::dup2(saved_, STDERR_FILENO);
        ::close(saved_);
        saved_ = -1;
    }
    QTemporaryFile file_;
    int saved_ = -1;
};

TEST(SystemLog, OneWholeLinePerCallFromAnyThread)
{
    StandardErrorCapture capture;
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
    const QStringList lines = capture.lines();
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
