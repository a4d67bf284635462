#include "shared/VLOSDetect.h"
#include "support/FixturePlist.h"
#include "support/ScopedEnvironment.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace {

class VLOSDetectTest : public ::testing::Test {
protected:
    void SetUp() override { env_.set("VELMORA_SYSROOT", root_.path()); }

    void setSystemVersion(const QString& version)
    {
        const QString folder = root_.path() + QStringLiteral("/System/Library/CoreServices");
        QDir().mkpath(folder);
        QFile file(folder + QStringLiteral("/SystemVersion.plist"));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(vltest::fixturePlistXml(QVariantMap{{QStringLiteral("ProductVersion"), version}}));
    }

    QTemporaryDir root_;
    vltest::ScopedEnvironment env_;
};

TEST(VLOSDetectParse, VersionTexts)
{
    using V = VLOSDetect::Version;
    const QList<QPair<QString, V>> cases{
        {QStringLiteral("14.2.1"), V{14, 2, 1}}, {QStringLiteral("11.0"), V{11, 0, 0}}, {QStringLiteral("15"), V{15, 0, 0}},
        {QStringLiteral("10.15.7"), V{10, 15, 7}}, {QStringLiteral("1.2.3.4"), V{}}, {QStringLiteral("x.1"), V{}},
        {QStringLiteral(""), V{}}, {QStringLiteral("10.-1"), V{}},
    };
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(VLOSDetect::parseVersion(text), expected) << text.toStdString();
}

TEST(VLOSDetectCompare, MajorThenMinorThenPatch)
{
    struct Case {
        VLOSDetect::Version running;
        qint64 major, minor, patch;
        bool atLeast;
    };
    const Case cases[] = {
        {{10, 10, 0}, 10, 10, 0, true}, {{10, 9, 5}, 10, 10, 0, false}, {{11, 0, 0}, 10, 10, 0, true},
        {{11, 0, 0}, 10, 12, 5, true},  {{9, 99, 99}, 10, 0, 0, false}, {{10, 10, 1}, 10, 10, 2, false},
        {{10, 11, 0}, 10, 10, 9, true}, {{0, 0, 0}, 0, 0, 0, true},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(VLOSDetect::isVersionAtLeast(c.running, c.major, c.minor, c.patch), c.atLeast)
            << c.running.major << "." << c.running.minor << "." << c.running.patch << " vs " << c.major << "."
            << c.minor << "." << c.patch;
    }
}

TEST_F(VLOSDetectTest, ReadsTheRunningSystemsVersion)
{
    EXPECT_EQ(VLOSDetect::osVersionString(), QStringLiteral("0.0.0")) << "no version file";
    setSystemVersion(QStringLiteral("11.0"));
    EXPECT_EQ(VLOSDetect::osVersionString(), QStringLiteral("11.0.0"));
    EXPECT_EQ(VLOSDetect::osxVersion(), QStringLiteral("11.0.0"));
    EXPECT_TRUE(VLOSDetect::isYosemiteOrHigher());
    EXPECT_TRUE(VLOSDetect::isSierraOrHigher());

    setSystemVersion(QStringLiteral("10.9.5"));
    EXPECT_EQ(VLOSDetect::version(), (VLOSDetect::Version{10, 9, 5}));
    EXPECT_TRUE(VLOSDetect::isMavericksOrHigher());
    EXPECT_FALSE(VLOSDetect::isYosemiteOrHigher());

    setSystemVersion(QStringLiteral("10.10"));
    EXPECT_TRUE(VLOSDetect::isYosemiteOrHigher());
    EXPECT_FALSE(VLOSDetect::isElCapitanOrHigher());
}

} // namespace
