// Bundles read from disk, the main bundle's place, and the bundle cache: only bundles opened by
// path are found by identifier, as the platform does.
#include "platform/system/Bundle.h"
#include "support/Sandbox.h"

#include <QCoreApplication>
#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

TEST(Bundle, OnlyExistingFoldersAreBundlesAndInfoIsOptional)
{
    vltest::Sandbox box;
    const QString app = box.createBundle({.path = box.tmpPath(QStringLiteral("Tessel.app")), .identifier = QStringLiteral("com.velmora.Tessel"),
                                          .version = QStringLiteral("120")});
    ASSERT_FALSE(app.isEmpty());
    ASSERT_TRUE(box.writeFile(box.tmpPath(QStringLiteral("file.app")), "x"));
    ASSERT_TRUE(box.writeFile(box.tmpPath(QStringLiteral("Broken.app/Contents/Info.plist")), "<plist><dict><key>"));
    ASSERT_TRUE(box.makeDir(box.tmpPath(QStringLiteral("Empty.app"))));

    for (const QString& refused : {QString(), box.tmpPath(QStringLiteral("missing.app")), box.tmpPath(QStringLiteral("file.app"))})
        EXPECT_FALSE(sys::Bundle::bundleWithPath(refused).has_value()) << refused.toStdString();
    for (const char* bare : {"Empty.app", "Broken.app"}) {
        const auto bundle = sys::Bundle::bundleWithPath(box.tmpPath(QLatin1String(bare)));
        ASSERT_TRUE(bundle.has_value()) << bare;
        EXPECT_FALSE(bundle->hasInfoDictionary()) << bare;
        EXPECT_TRUE(bundle->infoDictionary().isEmpty()) << bare;
        EXPECT_FALSE(bundle->bundleIdentifier().has_value()) << bare;
        EXPECT_FALSE(bundle->executablePath().has_value()) << bare;
    }
    const auto tessel = sys::Bundle::bundleWithPath(app + QStringLiteral("/"));
    ASSERT_TRUE(tessel.has_value());
    EXPECT_EQ(tessel->bundlePath(), app) << "trailing slash dropped";
    EXPECT_EQ(tessel->bundleIdentifier(), QStringLiteral("com.velmora.Tessel"));
    EXPECT_EQ(tessel->executablePath(), app + QStringLiteral("/Contents/MacOS/Tessel"));
    EXPECT_EQ(tessel->objectForInfoDictionaryKey(QStringLiteral("CFBundleVersion")), QVariant(QStringLiteral("120")));
    EXPECT_EQ(tessel->resourcePath(), app + QStringLiteral("/Contents/Resources"));
}

TEST(Bundle, MainBundleComesFromTheExecutablesPlace)
{
    for (const auto& [executable, bundle] : std::initializer_list<std::pair<const char*, const char*>>{
             {"/Applications/Velmora Software Update.app/Contents/MacOS/SoftwareUpdate", "/Applications/Velmora Software Update.app"},
             {"/usr/local/bin/tool", "/usr/local/bin"},
             {"/a/Contents/MacOS/../MacOS/run", "/a"},
             {"/Contents/MacOS/run", "/Contents/MacOS"}})
        EXPECT_EQ(sys::Bundle::bundlePathForExecutable(QString::fromUtf8(executable)), QString::fromUtf8(bundle)) << executable;
    // The test executable is not inside a bundle: its folder is the main bundle.
    EXPECT_EQ(sys::Bundle::mainBundle().bundlePath(), QCoreApplication::applicationDirPath());
}

// Also when the update checks open bundles on several threads at once.
TEST(Bundle, OnlyBundlesOpenedByPathAreFoundByIdentifier)
{
    vltest::Sandbox box;
    const auto make = [&](const QString& name) {
        return box.createBundle({.path = box.tmpPath(name + QStringLiteral(".app")), .identifier = QStringLiteral("com.velmora.cache.") + name});
    };
    ASSERT_TRUE(sys::Bundle::readWithoutOpening(make(QStringLiteral("Described"))).has_value());
    EXPECT_FALSE(sys::Bundle::bundleWithIdentifier(QStringLiteral("com.velmora.cache.Described")).has_value());
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
        ASSERT_TRUE(found.has_value()) << i;
        EXPECT_EQ(found->bundlePath(), paths[size_t(i)]);
    }
}

} // namespace
