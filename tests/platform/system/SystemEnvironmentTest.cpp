// The environment contract (read on every call) and the system version file.
#include "platform/system/SystemEnvironment.h"
#include "support/Sandbox.h"
#include "support/ScopedEnvironment.h"

#include <gtest/gtest.h>

TEST(SystemEnvironment, SlashesAreNormalisedAndTheVersionComesOnlyFromAStringInAReadableFile)
{
    vltest::ScopedEnvironment env;
    env.set("VELMORA_SYSROOT", QStringLiteral("/tmp/sb//"));
    env.set("TMPDIR", QStringLiteral("/var/tmp/x"));
    env.set("VELMORA_UPDATE_SERVER", QStringLiteral("http://127.0.0.1:8080/"));
    env.set("VELMORA_WEB_SITE", QStringLiteral("https://www.example.org:9000/"));
    EXPECT_EQ(sys::rooted(QStringLiteral("/Volumes")), QStringLiteral("/tmp/sb/Volumes"));
    EXPECT_EQ(sys::rooted(QStringLiteral("usr/bin/x")), QStringLiteral("/tmp/sb/usr/bin/x"));
    EXPECT_EQ(sys::temporaryDirectory(), QStringLiteral("/var/tmp/x/"));
    EXPECT_EQ(sys::updateServerBase(), QStringLiteral("http://127.0.0.1:8080"));
    EXPECT_EQ(sys::webSiteDomain(), QStringLiteral("example.org"));
    env.unset("VELMORA_SYSROOT");
    EXPECT_EQ(sys::rooted(QStringLiteral("/Volumes")), QStringLiteral("/Volumes"));

    vltest::Sandbox box;
    env.set("VELMORA_SYSROOT", box.sysroot());
    const QString file = box.sysPath(QStringLiteral("/System/Library/CoreServices/SystemVersion.plist"));
    ASSERT_TRUE(box.writePlist(file, QVariantMap{{QStringLiteral("ProductVersion"), QStringLiteral("14.2.1")}}));
    EXPECT_EQ(sys::productVersion(), QStringLiteral("14.2.1"));
    ASSERT_TRUE(box.writePlist(file, QVariantMap{{QStringLiteral("ProductVersion"), 14}}));
    EXPECT_EQ(sys::productVersion(), QStringLiteral("0.0.0")) << "not a string";
    ASSERT_TRUE(box.writeFile(file, "not a property list <<<"));
    EXPECT_EQ(sys::productVersion(), QStringLiteral("0.0.0")) << "damaged file (a missing one: VLOSDetect)";
}
