#include "platform/foundation/Format.h"
#include "platform/foundation/Foundation.h"
#include "support/ChildProcess.h"

#include <QFile>
#include <QTemporaryDir>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>

namespace {

// Builds a throw-away locale whose decimal separator is "," and makes it the process's
// numeric locale, as a user's German or French settings would. Restores everything after.
class CommaLocale {
public:
    CommaLocale()
    {
        if (!dir_.isValid() || !QFile::exists(QStringLiteral("/usr/bin/localedef")))
            return;
        QFile source(dir_.filePath(QStringLiteral("comma.src")));
        if (!source.open(QIODevice::WriteOnly))
            return;
        source.write("LC_NUMERIC\ndecimal_point \",\"\nthousands_sep \".\"\ngrouping 3;3\nEND LC_NUMERIC\n");
        source.close();
        vltest::ChildProcess localedef;
        // It warns about every category the source leaves out; those are expected.
        vltest::ChildOptions quiet;
        quiet.discardOutput = true;
        if (localedef.start(QStringLiteral("/usr/bin/localedef"),
                            {QStringLiteral("-c"), QStringLiteral("-i"), source.fileName(), QStringLiteral("-f"),
                             QStringLiteral("UTF-8"), dir_.filePath(QStringLiteral("comma"))},
                            quiet))
            (void)localedef.waitForFinished(60000);
        const char* current = std::setlocale(LC_NUMERIC, nullptr);
        saved_ = current ? current : "C";
        setenv("LOCPATH", dir_.path().toLocal8Bit().constData(), 1);
        active_ = std::setlocale(LC_NUMERIC, "comma") != nullptr;
    }
    ~CommaLocale()
    {
        std::setlocale(LC_NUMERIC, saved_.c_str());
        unsetenv("LOCPATH");
    }
    bool active() const { return active_; }

private:
    QTemporaryDir dir_;
    std::string saved_ = "C";
    bool active_ = false;
};

} // namespace

TEST(CLocalePrintfTest, RealsIgnoreTheProcessNumericLocale)
{
    CommaLocale locale;
    if (!locale.active())
        GTEST_SKIP() << "localedef could not build a decimal-comma locale here";
    char probe[16];
    std::snprintf(probe, sizeof probe, "%0.2f", 1.5);
    ASSERT_STREQ(probe, "1,50") << "the process locale did not take effect";

    EXPECT_EQ(fnd::format(QStringLiteral("%0.2f GB, %@, %g"), 1.5, 2.5, 0.25), QStringLiteral("1.50 GB, 2.5, 0.25"));
    EXPECT_EQ(fnd::stringValue(QVariant(3.25)), QStringLiteral("3.25"));
    EXPECT_DOUBLE_EQ(fnd::doubleValue(QStringLiteral("1.5")), 1.5);
    EXPECT_DOUBLE_EQ(fnd::doubleValue(QStringLiteral("1,5")), 1.0);
    EXPECT_EQ(fnd::format(QStringLiteral("%'d"), 1234567), QStringLiteral("1234567"));
}
