#include "platform/system/Bundle.h"
#include "support/FixturePlist.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

bool writeFile(const QString& path, const QByteArray& data)
{
    QDir().mkpath(path.section(QLatin1Char('/'), 0, -2));
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(data) == data.size();
}

TEST(Bundle, OnlyExistingFoldersAreBundlesAndInfoIsOptional)
{
    QTemporaryDir dir;
    const QString app = dir.path() + QStringLiteral("/Tessel.app");
    ASSERT_TRUE(writeFile(app + QStringLiteral("/Contents/Info.plist"),
                          vltest::fixturePlistXml(QVariantMap{{QStringLiteral("CFBundleIdentifier"), QStringLiteral("com.velmora.Tessel")},
                                                              {QStringLiteral("CFBundleExecutable"), QStringLiteral("Tessel")},
                                                              {QStringLiteral("CFBundleVersion"), QStringLiteral("120")}})));
    ASSERT_TRUE(writeFile(dir.path() + QStringLiteral("/file.app"), "x"));
    QDir().mkpath(dir.path() + QStringLiteral("/Empty.app"));

    EXPECT_FALSE(sys::Bundle::bundleWithPath(QString()).has_value());
    EXPECT_FALSE(sys::Bundle::bundleWithPath(dir.path() + QStringLiteral("/missing.app")).has_value());
    EXPECT_FALSE(sys::Bundle::bundleWithPath(dir.path() + QStringLiteral("/file.app")).has_value());

    const auto empty = sys::Bundle::bundleWithPath(dir.path() + QStringLiteral("/Empty.app"));
    ASSERT_TRUE(empty.has_value());
    EXPECT_FALSE(empty->hasInfoDictionary());
    EXPECT_FALSE(empty->bundleIdentifier().has_value());
    EXPECT_FALSE(empty->executablePath().has_value());

    const auto tessel = sys::Bundle::bundleWithPath(app + QStringLiteral("/"));
    ASSERT_TRUE(tessel.has_value());
    EXPECT_EQ(tessel->bundlePath(), app) << "trailing slash dropped";
    EXPECT_EQ(tessel->bundleIdentifier(), QStringLiteral("com.velmora.Tessel"));
    EXPECT_EQ(tessel->executablePath(), app + QStringLiteral("/Contents/MacOS/Tessel"));
    EXPECT_EQ(tessel->objectForInfoDictionaryKey(QStringLiteral("CFBundleVersion")).toString(), QStringLiteral("120"));
    EXPECT_EQ(tessel->resourcePath(), app + QStringLiteral("/Contents/Resources"));
}

TEST(Bundle, UnreadableInfoGivesAnEmptyDictionary)
{
    QTemporaryDir dir;
    const QString app = dir.path() + QStringLiteral("/Broken.app");
    ASSERT_TRUE(writeFile(app + QStringLiteral("/Contents/Info.plist"), "<plist><dict><key>"));
    const auto bundle = sys::Bundle::bundleWithPath(app);
    ASSERT_TRUE(bundle.has_value());
    EXPECT_FALSE(bundle->hasInfoDictionary());
    EXPECT_TRUE(bundle->infoDictionary().isEmpty());
}

TEST(Bundle, MainBundleComesFromTheExecutablesPlace)
{
    struct Case {
        const char* executable;
        const char* bundle;
    };
    const Case cases[] = {
        {"/Applications/Velmora Software Update.app/Contents/MacOS/SoftwareUpdate", "/Applications/Velmora Software Update.app"},
        {"/opt/x/Helper.bundle/Contents/MacOS/h", "/opt/x/Helper.bundle"},
        {"/usr/local/bin/tool", "/usr/local/bin"},
        {"/a/Contents/MacOS/../MacOS/run", "/a"},
        {"/Contents/MacOS/run", "/Contents/MacOS"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(sys::Bundle::bundlePathForExecutable(QString::fromUtf8(c.executable)), QString::fromUtf8(c.bundle))
            << c.executable;
    }
    // The test executable itself is not inside a bundle: its folder is the main bundle.
    EXPECT_EQ(sys::Bundle::mainBundle().bundlePath(), QCoreApplication::applicationDirPath());
}

// Only bundles opened by path are found by identifier, also when the update checks open
// them on several threads at once; reading a bundle to describe it does not open it.
TEST(Bundle, OnlyBundlesOpenedByPathAreFoundByIdentifier)
{
    QTemporaryDir dir;
    const auto make = [&](const QString& name) {
        const QString path = dir.path() + QLatin1Char('/') + name + QStringLiteral(".app");
        const QVariantMap info{{QStringLiteral("CFBundleIdentifier"), QStringLiteral("com.velmora.cache.") + name}};
        EXPECT_TRUE(writeFile(path + QStringLiteral("/Contents/Info.plist"), vltest::fixturePlistXml(info)));
        return path;
    };
    const QString described = make(QStringLiteral("Described"));
    ASSERT_TRUE(sys::Bundle::readWithoutOpening(described).has_value());
    EXPECT_FALSE(sys::Bundle::bundleWithIdentifier(QStringLiteral("com.velmora.cache.Described")).has_value());
    EXPECT_FALSE(sys::Bundle::bundleWithIdentifier(QString()).has_value());

    std::vector<QString> paths;
    for (int i = 0; i < 4; ++i)
        paths.push_back(make(QStringLiteral("Checked%1").arg(i)));
    std::vector<std::thread> checks;
    for (const QString& path : paths)
        checks.emplace_back([path] {
            for (int round = 0; round < 50; ++round)
                EXPECT_TRUE(sys::Bundle::bundleWithPath(path).has_value());
        });
    for (std::thread& check : checks)
        check.join();
    for (int i = 0; i < 4; ++i) {
        const auto found = sys::Bundle::bundleWithIdentifier(QStringLiteral("com.velmora.cache.Checked%1").arg(i));
        ASSERT_TRUE(found.has_value()) << i;
        EXPECT_EQ(found->bundlePath(), paths[i]);
    }
}

} // namespace
