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

} // namespace
