#include "shared/VLOSDetect.h"
#include "support/FixturePlist.h"
#include "support/ScopedEnvironment.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <cstring>

namespace {

TEST(VLOSDetect, ParsesAndComparesTheRunningSystemsVersion)
{
    using V = VLOSDetect::Version;
    const std::pair<const char*, V> cases[] = {{"14.2.1", V{14, 2, 1}}, {"15", V{15, 0, 0}}, {"1.2.3.4", V{}}, {"10.-1", V{}}, {"x.1", V{}}};
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(VLOSDetect::parseVersion(QLatin1String(text)), expected) << text;

    QTemporaryDir root;
    vltest::ScopedEnvironment env;
    env.set("VELMORA_SYSROOT", root.path());
    EXPECT_EQ(VLOSDetect::osVersionString(), QStringLiteral("0.0.0")) << "no version file";
    QDir().mkpath(root.filePath(QStringLiteral("System/Library/CoreServices")));
    for (const char* version : {"10.9.5", "10.10", "11.0"}) {
        QFile file(root.filePath(QStringLiteral("System/Library/CoreServices/SystemVersion.plist")));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(vltest::fixturePlistXml(QVariantMap{{QStringLiteral("ProductVersion"), QLatin1String(version)}}));
        file.close();
        // The minor number counts only when the major ones are equal.
        EXPECT_EQ(VLOSDetect::isYosemiteOrHigher(), std::strcmp(version, "10.9.5") != 0) << version;
        EXPECT_EQ(VLOSDetect::isElCapitanOrHigher(), std::strcmp(version, "11.0") == 0) << version;
    }
    EXPECT_EQ(VLOSDetect::osVersionString(), QStringLiteral("11.0.0"));
}

} // namespace
