// Bundles read from disk, the main bundle's place, and the bundle cache: only bundles opened by
// path are found by identifier, as the platform does, also when several threads open them.
#include "platform/system/Bundle.h"
#include "support/Sandbox.h"

#include <QCoreApplication>
#include <gtest/gtest.h>

#include <thread>
#include <vector>

TEST(Bundle, OnlyExistingFoldersAreBundlesAndInfoIsOptional)
{
    vltest::Sandbox box;
    const QString app = box.createBundle({.path = box.tmpPath("Tessel.app"), .identifier = "com.velmora.Tessel", .version = "120"});
    ASSERT_TRUE(box.writeFile(box.tmpPath("file.app"), "x") && box.writeFile(box.tmpPath("Broken.app/Contents/Info.plist"), "<plist><dict><key>"));
    ASSERT_TRUE(box.makeDir(box.tmpPath("Empty.app")));
    for (const QString& refused : {QString(), box.tmpPath("missing.app"), box.tmpPath("file.app")})
        EXPECT_FALSE(sys::Bundle::bundleWithPath(refused).has_value()) << refused.toStdString();
    for (const char* bare : {"Empty.app", "Broken.app"}) {
        const auto bundle = sys::Bundle::bundleWithPath(box.tmpPath(QLatin1String(bare)));
        ASSERT_TRUE(bundle.has_value()) << bare;
        EXPECT_TRUE(!bundle->hasInfoDictionary() && bundle->infoDictionary().isEmpty() && !bundle->bundleIdentifier() && !bundle->executablePath()) << bare;
    }
    const auto tessel = sys::Bundle::bundleWithPath(app + "/");
    ASSERT_TRUE(tessel.has_value());
    EXPECT_EQ(tessel->bundlePath(), app) << "trailing slash dropped";
    EXPECT_EQ(tessel->bundleIdentifier(), QStringLiteral("com.velmora.Tessel"));
    EXPECT_EQ(tessel->executablePath(), app + "/Contents/MacOS/Tessel");
    EXPECT_EQ(tessel->objectForInfoDictionaryKey("CFBundleVersion"), QVariant(QStringLiteral("120")));
    EXPECT_EQ(tessel->resourcePath(), app + "/Contents/Resources");

    for (const auto& [executable, bundle] : std::initializer_list<std::pair<const char*, const char*>>{
             {"/Applications/Velmora Software Update.app/Contents/MacOS/SoftwareUpdate", "/Applications/Velmora Software Update.app"},
             {"/usr/local/bin/tool", "/usr/local/bin"}, {"/a/Contents/MacOS/../MacOS/run", "/a"}, {"/Contents/MacOS/run", "/Contents/MacOS"}})
        EXPECT_EQ(sys::Bundle::bundlePathForExecutable(QString::fromUtf8(executable)), QString::fromUtf8(bundle)) << executable;
    EXPECT_EQ(sys::Bundle::mainBundle().bundlePath(), QCoreApplication::applicationDirPath()) << "this test is in no bundle";
}

TEST(Bundle, OnlyBundlesOpenedByPathAreFoundByIdentifier)
{
    vltest::Sandbox box;
    const auto make = [&](const QString& name) { return box.createBundle({.path = box.tmpPath(name + ".app"), .identifier = "com.velmora.cache." + name}); };
    ASSERT_TRUE(sys::Bundle::readWithoutOpening(make("Described")).has_value());
    EXPECT_FALSE(sys::Bundle::bundleWithIdentifier("com.velmora.cache.Described").has_value());
    EXPECT_FALSE(sys::Bundle::bundleWithIdentifier(QString()).has_value());

    std::vector<QString> paths;
    std::vector<std::thread> checks;
    for (int i = 0; i < 4; ++i) {
        paths.push_back(make(QStringLiteral("Checked%1").arg(i)));
        checks.emplace_back([path = paths.back()] {
            for (int round = 0; round < 50; ++round)
                EXPECT_TRUE(sys::Bundle::bundleWithPath(path).has_value());
        });
    }
    for (std::thread& check : checks)
        check.join();
    for (int i = 0; i < 4; ++i) {
        const auto found = sys::Bundle::bundleWithIdentifier(QStringLiteral("com.velmora.cache.Checked%1").arg(i));
        EXPECT_EQ(found ? found->bundlePath() : QString(), paths[size_t(i)]);
    }
}
