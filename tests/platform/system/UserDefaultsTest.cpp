// User defaults: the platform's search order and argument domain, the typed getters'
// conversions, and writes that reach the file at once and merge with other writers.
#include "platform/plist/PropertyList.h"
#include "platform/system/UserDefaults.h"
#include "support/Sandbox.h"
#include "support/ScopedEnvironment.h"

#include <QDir>
#include <gtest/gtest.h>

#include <thread>
#include <vector>

TEST(UserDefaultsArguments, ParsesPairsAsThePlatformDoes)
{
    const struct { QStringList args; QVariantMap expected; } rows[] = {
        {{"-list", "-checkpath", "/x", "-"}, {{"checkpath", "/x"}}}, // a switch followed by a switch is no pair
        {{"plain", "words", "-", "v"}, {}},
        // values that look like property lists are parsed when they parse; numbers stay strings
        {{"-a", "(x, y)", "-n", "12", "-d", "{k = v;}", "-b", "(unclosed"},
         {{"a", QVariantList{"x", "y"}}, {"n", "12"}, {"d", QVariantMap{{"k", "v"}}}, {"b", "(unclosed"}}},
    };
    for (const auto& row : rows)
        EXPECT_EQ(sys::UserDefaults::parseArgumentDomain(QStringList{"SoftwareUpdate"} + row.args), row.expected) << row.args.join(' ').toStdString();
}

class UserDefaultsTest : public ::testing::Test {
protected:
    void SetUp() override { env.set("HOME", box.home()); }
    std::unique_ptr<sys::UserDefaults> make(const char* domain, const QStringList& arguments = {})
    {
        auto made = std::make_unique<sys::UserDefaults>(QLatin1String(domain));
        made->setArguments(arguments); // the test executable's own arguments must not count
        return made;
    }
    QVariantMap onDisk(const char* domain) const { return plist::readDictionaryFile(box.userPreferencesFile(QLatin1String(domain))).value_or(QVariantMap()); }

    vltest::Sandbox box;
    vltest::ScopedEnvironment env;
};

TEST_F(UserDefaultsTest, SearchOrderIsArgumentsThenFileThenRegistrationAndGettersConvert)
{
    ASSERT_TRUE(box.writeUserDefaults(QStringLiteral("com.velmora.test"), {{"k", "file"}, {"f", 5}, {"dict", QVariantMap{{"a", 1}}}}));
    const auto defaults = make("com.velmora.test", {"x", "-k", "argument", "-n", " 42abc", "-b", "YES"});
    defaults->registerDefaults({{"k", "registered"}, {"f", 1}, {"r", 7}});
    EXPECT_EQ(defaults->stringForKey("k"), QStringLiteral("argument"));
    EXPECT_TRUE(defaults->integerForKey("f") == 5 && defaults->integerForKey("r") == 7);
    defaults->setObject(QStringLiteral("written"), "k");
    EXPECT_EQ(defaults->stringForKey("k"), QStringLiteral("argument")) << "writes never touch the argument domain";
    defaults->removeObjectForKey("f");
    EXPECT_EQ(defaults->integerForKey("f"), 1) << "removing the stored value uncovers the registered one";
    EXPECT_FALSE(onDisk("com.velmora.test").contains("r")) << "registration is never written";

    defaults->setObject(qlonglong(3), "num");
    EXPECT_TRUE(defaults->integerForKey("n") == 42 && defaults->boolForKey("b") && !defaults->boolForKey("missing"));
    EXPECT_EQ(defaults->stringForKey("num"), QStringLiteral("3"));
    EXPECT_FALSE(defaults->stringForKey("dict") || defaults->dictionaryForKey("num") || defaults->integerForKey("dict") != 0);
    EXPECT_EQ(defaults->dictionaryForKey("dict"), (QVariantMap{{"a", qlonglong(1)}}));
}

TEST_F(UserDefaultsTest, WritesReachTheFileAtOnceAndMergeWithOtherWriters)
{
    const auto first = make("com.velmora.test");
    first->setObject(QStringLiteral("one"), "a");
    EXPECT_EQ(onDisk("com.velmora.test"), (QVariantMap{{"a", "one"}})) << "written without synchronize";
    make("com.velmora.test")->setObject(QStringLiteral("two"), "b"); // another process
    EXPECT_FALSE(first->objectForKey("b").isValid()) << "not re-read before synchronize";
    ASSERT_TRUE(first->synchronize());
    EXPECT_EQ(first->stringForKey("b"), QStringLiteral("two"));
    first->setObject(QStringLiteral("three"), "c");
    EXPECT_EQ(onDisk("com.velmora.test"), (QVariantMap{{"a", "one"}, {"b", "two"}, {"c", "three"}}));
    EXPECT_EQ(QDir(box.homePath("Library/Preferences")).entryList(QDir::Files | QDir::Hidden), QStringList{"com.velmora.test.plist"})
        << "atomic replacement leaves no temporary files";

    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&first, t] {
            for (int i = 0; i < 10; ++i)
                first->setInteger(i, QStringLiteral("t%1k%2").arg(t).arg(i));
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(onDisk("com.velmora.test").size(), 43) << "concurrent writers lose nothing";
}

TEST_F(UserDefaultsTest, AnotherHomeIsAnotherFileAndFailuresKeepTheValueInMemory)
{
    ASSERT_TRUE(box.writeFile(box.userPreferencesFile(QStringLiteral("com.velmora.bad")), "<plist><dict><key>x</key>"));
    EXPECT_FALSE(make("com.velmora.bad")->synchronize()) << "a damaged file";

    const auto defaults = make("com.velmora.test");
    defaults->setObject(QStringLiteral("first"), "k");
    ASSERT_TRUE(box.writeFile(box.tmpPath("other/Library/Preferences"), "a file where the folder should be"));
    env.set("HOME", box.tmpPath("other"));
    EXPECT_FALSE(defaults->objectForKey("k").isValid()) << "the other user's file is read";
    defaults->setObject(1, "k");
    EXPECT_EQ(defaults->integerForKey("k"), 1);
    EXPECT_FALSE(defaults->synchronize());
}
