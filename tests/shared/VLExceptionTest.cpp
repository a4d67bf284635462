#include "shared/VLException.h"
#include "support/LogFixture.h"
#include "support/StdoutCapture.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

TEST(VLException, LogsPrintsAndReturnsTheMessage)
{
    vltest::LogFixture log(false);
    VLLog::createNewLog();
    QString message;
    const QByteArray printed = vltest::captureStdout([&] {
        message = VLException::logException(QStringLiteral("-[AppController installSparkleApp:]"),
            fnd::PlatformException(QStringLiteral("NSRangeException"), QStringLiteral("index 5 beyond bounds")));
    });
    const QString expected = QStringLiteral("Exception in -[AppController installSparkleApp:]. NSRangeException - index 5 beyond bounds.");
    EXPECT_EQ(message, expected);
    EXPECT_EQ(printed, expected.toUtf8() + '\n');
    EXPECT_TRUE(vltest::LogFixture::logText().contains(QStringLiteral(" - ") + expected));
}

TEST(VLException, NamesForEveryKindOfException)
{
    vltest::LogFixture log;
    const QString method = QStringLiteral("-[AppController loadPreferenceSettings]");
    const fnd::PlatformException platform(QStringLiteral("NSInvalidArgumentException"), QStringLiteral("bad"));
    const std::exception& asStd = platform;
    EXPECT_EQ(VLException::logException(method, asStd),
        QStringLiteral("Exception in -[AppController loadPreferenceSettings]. NSInvalidArgumentException - bad."));
    EXPECT_EQ(VLException::logException(method, std::runtime_error("disk full")),
        QStringLiteral("Exception in -[AppController loadPreferenceSettings]. std::exception - disk full."));
    // The returned message is exact; the log gets it as a format, and appendLogAndPrint's
    // first pass is not escaped, so "% d" in a reason is read as a conversion there.
    EXPECT_EQ(VLException::logException(method, QStringLiteral("N"), QStringLiteral("50% done")),
        QStringLiteral("Exception in -[AppController loadPreferenceSettings]. N - 50% done."));
    EXPECT_TRUE(vltest::LogFixture::logText().contains(QStringLiteral("N - 50 0one.")));
}

TEST(VLException, DidTimeoutOnlyForThePortTimeout)
{
    EXPECT_TRUE(VLException::didTimeout(fnd::PlatformException(QStringLiteral("NSPortTimeoutException"), QString())));
    for (const char* name : {"NSPortTimeoutExceptionX", "nsporttimeoutexception", "NSInvalidReceivePortException", ""})
        EXPECT_FALSE(VLException::didTimeout(QString::fromLatin1(name))) << name;
}

} // namespace
