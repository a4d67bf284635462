#include "platform/plist/PropertyList.h"
#include "platform/system/UserDefaults.h"
#include "support/FixturePlist.h"
#include "support/ScopedEnvironment.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

class UserDefaultsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(home_.isValid());
        env_.set("HOME", home_.path());
    }

    QString prefsFile(const QString& domain) const
    {
        return home_.path() + QStringLiteral("/Library/Preferences/") + domain + QStringLiteral(".plist");
    }

    bool writeFixture(const QString& path, const QVariantMap& values) const
    {
        QDir().mkpath(home_.path() + QStringLiteral("/Library/Preferences"));
        QFile file(path);
        const QByteArray data = vltest::fixturePlistXml(values);
        return file.open(QIODevice::WriteOnly) && file.write(data) == data.size();
    }

    QTemporaryDir home_;
    vltest::ScopedEnvironment env_;
};

TEST(UserDefaultsArguments, ParsesPairsAsThePlatformDoes)
{
    struct Case {
        QStringList args;
        QVariantMap expected;
    };
    const QString s = QStringLiteral("SoftwareUpdate");
    const QList<Case> cases{
        {{s, QStringLiteral("-checkpath"), QStringLiteral("/Applications/T.app")},
         {{QStringLiteral("checkpath"), QStringLiteral("/Applications/T.app")}}},
        // a switch followed by another switch is no pair; the later pair still counts
        {{s, QStringLiteral("-list"), QStringLiteral("-checkpath"), QStringLiteral("/x")},
         {{QStringLiteral("checkpath"), QStringLiteral("/x")}}},
        {{s, QStringLiteral("-autocheck")}, {}},
        {{s, QStringLiteral("plain"), QStringLiteral("words")}, {}},
        {{s, QStringLiteral("-"), QStringLiteral("v")}, {}},
        // values that look like property lists are parsed; numbers stay strings
        {{s, QStringLiteral("-a"), QStringLiteral("(x, y)"), QStringLiteral("-n"), QStringLiteral("12")},
         {{QStringLiteral("a"), QVariantList{QStringLiteral("x"), QStringLiteral("y")}}, {QStringLiteral("n"), QStringLiteral("12")}}},
        {{s, QStringLiteral("-d"), QStringLiteral("{k = v;}")},
         {{QStringLiteral("d"), QVariantMap{{QStringLiteral("k"), QStringLiteral("v")}}}}},
        // a bracket that does not parse is kept as text
        {{s, QStringLiteral("-b"), QStringLiteral("(unclosed")}, {{QStringLiteral("b"), QStringLiteral("(unclosed")}}},
    };
    for (const Case& c : cases)
        EXPECT_EQ(sys::UserDefaults::parseArgumentDomain(c.args), c.expected) << c.args.join(QLatin1Char(' ')).toStdString();
}

TEST_F(UserDefaultsTest, SearchOrderIsArgumentsThenFileThenRegistration)
{
    const QString domain = QStringLiteral("com.velmora.test.order");
    ASSERT_TRUE(writeFixture(prefsFile(domain), {{QStringLiteral("k"), QStringLiteral("file")}, {QStringLiteral("f"), 5}}));
    sys::UserDefaults defaults(domain);
    defaults.setArguments({QStringLiteral("x"), QStringLiteral("-k"), QStringLiteral("argument")});
    defaults.registerDefaults({{QStringLiteral("k"), QStringLiteral("registered")},
                               {QStringLiteral("f"), 1},
                               {QStringLiteral("r"), 7}});

    EXPECT_EQ(defaults.stringForKey(QStringLiteral("k")), QStringLiteral("argument"));
    EXPECT_EQ(defaults.integerForKey(QStringLiteral("f")), 5);
    EXPECT_EQ(defaults.integerForKey(QStringLiteral("r")), 7);

    // Writing never touches the argument domain: the argument keeps winning.
    defaults.setObject(QStringLiteral("written"), QStringLiteral("k"));
    EXPECT_EQ(defaults.stringForKey(QStringLiteral("k")), QStringLiteral("argument"));
    // Removing the stored value uncovers the registered one.
    defaults.removeObjectForKey(QStringLiteral("f"));
    EXPECT_EQ(defaults.integerForKey(QStringLiteral("f")), 1);
}

TEST_F(UserDefaultsTest, MissingKeysReadAsZeroUnlessRegistered)
{
    // The command-line controller registers nothing, the windowed one registers autoQuit = 1.
    sys::UserDefaults windowless(QStringLiteral("com.velmora.test.asym"));
    sys::UserDefaults windowed(QStringLiteral("com.velmora.test.asym"));
    windowless.setArguments({});
    windowed.setArguments({});
    windowed.registerDefaults({{QStringLiteral("autoQuit"), 1}});
    EXPECT_EQ(windowless.integerForKey(QStringLiteral("autoQuit")), 0);
    EXPECT_FALSE(windowless.boolForKey(QStringLiteral("autoQuit")));
    EXPECT_FALSE(windowless.objectForKey(QStringLiteral("autoQuit")).isValid());
    EXPECT_EQ(windowed.integerForKey(QStringLiteral("autoQuit")), 1);
    EXPECT_FALSE(QFile::exists(prefsFile(QStringLiteral("com.velmora.test.asym")))) << "registration is never written";
}

TEST_F(UserDefaultsTest, TypedGettersConvertLikeThePlatform)
{
    sys::UserDefaults defaults(QStringLiteral("com.velmora.test.types"));
    defaults.setArguments({QStringLiteral("x"), QStringLiteral("-n"), QStringLiteral(" 42abc"), QStringLiteral("-b"),
                           QStringLiteral("YES")});
    defaults.setObject(QVariantMap{{QStringLiteral("a"), 1}}, QStringLiteral("dict"));
    defaults.setObject(qlonglong(3), QStringLiteral("num"));
    EXPECT_EQ(defaults.integerForKey(QStringLiteral("n")), 42);
    EXPECT_TRUE(defaults.boolForKey(QStringLiteral("b")));
    EXPECT_EQ(defaults.stringForKey(QStringLiteral("num")), QStringLiteral("3"));
    EXPECT_FALSE(defaults.stringForKey(QStringLiteral("dict")).has_value());
    EXPECT_FALSE(defaults.dictionaryForKey(QStringLiteral("num")).has_value());
    ASSERT_TRUE(defaults.dictionaryForKey(QStringLiteral("dict")).has_value());
    EXPECT_EQ(defaults.dictionaryForKey(QStringLiteral("dict"))->value(QStringLiteral("a")).toInt(), 1);
    EXPECT_EQ(defaults.integerForKey(QStringLiteral("dict")), 0);
}

TEST_F(UserDefaultsTest, WritesReachTheFileAndMergeWithOtherWriters)
{
    const QString domain = QStringLiteral("com.velmora.test.sync");
    sys::UserDefaults first(domain);
    first.setArguments({});
    first.setObject(QStringLiteral("one"), QStringLiteral("a"));

    // Written at once, without synchronize, as a readable property list.
    auto onDisk = plist::readDictionaryFile(prefsFile(domain));
    ASSERT_TRUE(onDisk.has_value());
    EXPECT_EQ(onDisk->value(QStringLiteral("a")).toString(), QStringLiteral("one"));

    // Another process writes another key: ours is kept, theirs becomes visible on synchronize.
    sys::UserDefaults other(domain);
    other.setArguments({});
    other.setObject(QStringLiteral("two"), QStringLiteral("b"));
    EXPECT_FALSE(first.objectForKey(QStringLiteral("b")).isValid()) << "not re-read before synchronize";
    ASSERT_TRUE(first.synchronize());
    EXPECT_EQ(first.stringForKey(QStringLiteral("b")), QStringLiteral("two"));
    first.setObject(QStringLiteral("three"), QStringLiteral("c"));
    onDisk = plist::readDictionaryFile(prefsFile(domain));
    ASSERT_TRUE(onDisk.has_value());
    EXPECT_EQ(onDisk->keys(), (QStringList{QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("c")}));

    // Atomic replacement leaves no temporary files behind.
    const QStringList files = QDir(home_.path() + QStringLiteral("/Library/Preferences")).entryList(QDir::Files | QDir::Hidden);
    EXPECT_EQ(files, QStringList{domain + QStringLiteral(".plist")});
}

TEST_F(UserDefaultsTest, DamagedOrUnwritableFileFailsSynchronize)
{
    const QString domain = QStringLiteral("com.velmora.test.bad");
    QDir().mkpath(home_.path() + QStringLiteral("/Library/Preferences"));
    QFile damaged(prefsFile(domain));
    ASSERT_TRUE(damaged.open(QIODevice::WriteOnly));
    damaged.write("<plist><dict><key>x</key>");
    damaged.close();
    sys::UserDefaults defaults(domain);
    defaults.setArguments({});
    EXPECT_FALSE(defaults.objectForKey(QStringLiteral("x")).isValid());
    EXPECT_FALSE(defaults.synchronize());

    // A Preferences "folder" that is a file: the write fails, the value stays in memory.
    sys::UserDefaults blocked(QStringLiteral("com.velmora.test.blocked"));
    blocked.setArguments({});
    const QString otherHome = home_.path() + QStringLiteral("/other");
    QDir().mkpath(otherHome + QStringLiteral("/Library"));
    QFile blocker(otherHome + QStringLiteral("/Library/Preferences"));
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    env_.set("HOME", otherHome);
    blocked.setObject(1, QStringLiteral("k"));
    EXPECT_EQ(blocked.integerForKey(QStringLiteral("k")), 1);
    EXPECT_FALSE(blocked.synchronize());
}

TEST_F(UserDefaultsTest, ChangingHomeSwitchesToThatUsersFile)
{
    const QString domain = QStringLiteral("com.velmora.test.home");
    sys::UserDefaults defaults(domain);
    defaults.setArguments({});
    defaults.setObject(QStringLiteral("first"), QStringLiteral("k"));
    QTemporaryDir second;
    env_.set("HOME", second.path());
    EXPECT_FALSE(defaults.objectForKey(QStringLiteral("k")).isValid());
    defaults.setObject(QStringLiteral("second"), QStringLiteral("k"));
    EXPECT_TRUE(QFile::exists(second.path() + QStringLiteral("/Library/Preferences/") + domain + QStringLiteral(".plist")));
}

TEST_F(UserDefaultsTest, GlobalPreferencesAreOneWholeDictionary)
{
    EXPECT_TRUE(sys::readGlobalPreferences().isEmpty());
    const QVariantMap prefs{{QStringLiteral("SUCheckAtStartup"), false},
                            {QStringLiteral("skippedVersions"), QVariantMap{{QStringLiteral("com.velmora.g"), QStringLiteral("12")}}}};
    ASSERT_TRUE(sys::writeGlobalPreferences(prefs));
    EXPECT_EQ(sys::globalPreferencesPath(), home_.path() + QStringLiteral("/Library/Preferences/com.velmora.global.plist"));
    EXPECT_EQ(sys::readGlobalPreferences(), prefs);
    ASSERT_TRUE(sys::writeGlobalPreferences({{QStringLiteral("x"), 1}}));
    EXPECT_EQ(sys::readGlobalPreferences().keys(), QStringList{QStringLiteral("x")}) << "replaced, not merged";
}

} // namespace

namespace {

TEST_F(UserDefaultsTest, ConcurrentWritersLoseNothing)
{
    const QString domain = QStringLiteral("com.velmora.test.threads");
    sys::UserDefaults defaults(domain);
    defaults.setArguments({});
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&defaults, t] {
            for (int i = 0; i < 10; ++i)
                defaults.setInteger(i, QStringLiteral("t%1k%2").arg(t).arg(i));
        });
    }
    for (auto& thread : threads)
        thread.join();
    const auto onDisk = plist::readDictionaryFile(prefsFile(domain));
    ASSERT_TRUE(onDisk.has_value());
    EXPECT_EQ(onDisk->size(), 40);
    EXPECT_EQ(onDisk->value(QStringLiteral("t3k9")).toLongLong(), 9);
}

} // namespace
