// `SoftwareUpdate -list` on an account that has never run it: a home with nothing in it.
// The run must print only the list and keep the crash dates in the user's Preferences, and a
// superuser run for that account must leave the Library folders it made to the account.

#include "platform/plist/PropertyList.h"
#include "support/Sandbox.h"
#include "support/TestServer.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

namespace {

const QStringList kLibraryFolders{QStringLiteral("Library"), QStringLiteral("Library/Preferences"),
                                  QStringLiteral("Library/Logs"), QStringLiteral("Library/Application Support"),
                                  QStringLiteral("Library/Caches")};

class FreshHomeEndToEnd : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!vltest::Sandbox::unprivilegedUid())
            GTEST_SKIP() << "needs root to hand the home to another user";
        ASSERT_TRUE(sandbox_.isValid());
        ASSERT_TRUE(sandbox_.makeDir(sandbox_.sysPath(QStringLiteral("/Library/Logs/Velmora"))));
        ASSERT_TRUE(QDir().mkpath(feeds_.filePath(QStringLiteral("rss/appcasts"))));
        feed(QStringLiteral("com.velmora.SoftwareUpdate.xml"), {{QStringLiteral("groupVersion"), 100}});
        feed(QStringLiteral("suite.xml"), {{QStringLiteral("groupVersion"), 4},
                                           {QStringLiteral("groupVersionString"), QStringLiteral("4.0")},
                                           {QStringLiteral("groupID"), QStringLiteral("suite")},
                                           {QStringLiteral("title"), QStringLiteral("Suite 4.0")},
                                           {QStringLiteral("url"), QStringLiteral("https://example.invalid/suite.pkg")}});
        ASSERT_TRUE(server_.start({feeds_.path(), false}));
        sandbox_.useServer(server_);
        // The server's own folder is private to root: the runs get a readable copy of its CA.
        const QString ca = sandbox_.tmpPath(QStringLiteral("ca.pem"));
        ASSERT_TRUE(QFile::copy(server_.caFile(), ca));
        sandbox_.setEnv(QStringLiteral("VELMORA_CA_FILE"), ca);
        sandbox_.createBundle({sandbox_.sysPath(QStringLiteral("/Applications/Alpha.app")), QStringLiteral("com.velmora.Alpha"),
                               QStringLiteral("3"), QStringLiteral("3.0"), {},
                               QVariantMap{{QStringLiteral("VLGroupID"), QStringLiteral("suite")},
                                           {QStringLiteral("VLGroupVersion"), 3},
                                           {QStringLiteral("VLGroupVersionString"), QStringLiteral("3.0")}}});
        // The account's home: present, owned by the account, and empty.
        home_ = sandbox_.root() + QStringLiteral("/fresh");
        ASSERT_TRUE(QDir().mkdir(home_));
        ASSERT_EQ(::chown(QFile::encodeName(home_).constData(), kUser, kUser), 0);
        ASSERT_TRUE(sandbox_.giveHomeTo(kUser)); // the temporary folder, for the unprivileged run
    }

    void feed(const QString& name, const QVariantMap& value)
    {
        QFile out(feeds_.filePath(QStringLiteral("rss/appcasts/") + name));
        ASSERT_TRUE(out.open(QIODevice::WriteOnly | QIODevice::Truncate));
        out.write(plist::writeXml(value));
    }

    vltest::RunResult listAs(std::optional<uint> uid) const
    {
        vltest::RunOptions options;
        options.uid = uid;
        options.extraEnv.insert(QStringLiteral("HOME"), home_);
        return sandbox_.runUpdater({QStringLiteral("-list"), QStringLiteral("-format"), QStringLiteral("json")}, options);
    }

    struct stat statOf(const QString& relative) const
    {
        struct stat info {};
        EXPECT_EQ(::lstat(QFile::encodeName(home_ + QLatin1Char('/') + relative).constData(), &info), 0) << relative.toStdString();
        return info;
    }

    static constexpr uint kUser = 65534;
    QTemporaryDir feeds_;
    vltest::TestServer server_;
    vltest::Sandbox sandbox_;
    QString home_;
};

} // namespace

TEST_F(FreshHomeEndToEnd, AnUnprivilegedRunPrintsOnlyTheListAndKeepsTheCrashDates)
{
    const vltest::RunResult run = listAs(kUser);
    ASSERT_EQ(run.exitCode, 0) << run.describe().toStdString();
    QJsonParseError error;
    const QJsonDocument list = QJsonDocument::fromJson(run.stdoutData, &error);
    ASSERT_EQ(error.error, QJsonParseError::NoError) << run.describe().toStdString();
    const QJsonArray updates = list.object().value(QStringLiteral("updates")).toArray();
    ASSERT_EQ(updates.size(), 1) << run.describe().toStdString();
    EXPECT_EQ(updates.at(0).toObject().value(QStringLiteral("title")), QJsonValue(QStringLiteral("Suite 4.0")));
    EXPECT_FALSE(run.err().contains(QStringLiteral("Unable"))) << run.describe().toStdString();

    const auto stored = sandbox_.readPlist(home_ + QStringLiteral("/Library/Preferences/com.velmora.SoftwareUpdate.plist"));
    ASSERT_TRUE(stored) << "no preferences file";
    const QVariantMap dates = stored->toMap();
    ASSERT_EQ(dates.value(QStringLiteral("launch")).typeId(), QMetaType::QDateTime) << run.describe().toStdString();
    ASSERT_EQ(dates.value(QStringLiteral("exit")).typeId(), QMetaType::QDateTime);
    // Launch and exit both recorded: the next start sees a normal end, not a crash.
    EXPECT_GE(dates.value(QStringLiteral("exit")).toDateTime(), dates.value(QStringLiteral("launch")).toDateTime());
    EXPECT_EQ(statOf(QStringLiteral("Library")).st_mode & 07777, mode_t(0700));
}

TEST_F(FreshHomeEndToEnd, ASuperuserRunLeavesTheFoldersItMadeToTheAccount)
{
    const vltest::RunResult run = listAs(std::nullopt);
    ASSERT_EQ(run.exitCode, 0) << run.describe().toStdString();
    for (const QString& folder : kLibraryFolders) {
        const struct stat info = statOf(folder);
        EXPECT_TRUE(S_ISDIR(info.st_mode)) << folder.toStdString();
        EXPECT_EQ(info.st_uid, kUser) << folder.toStdString();
        EXPECT_EQ(info.st_gid, kUser) << folder.toStdString();
    }
    EXPECT_EQ(statOf(QStringLiteral("Library")).st_mode & 07777, mode_t(0700));
    // Only the folders every account has, and what the run itself writes into them.
    EXPECT_EQ(QDir(home_ + QStringLiteral("/Library")).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
              (QStringList{QStringLiteral("Application Support"), QStringLiteral("Caches"), QStringLiteral("Logs"),
                           QStringLiteral("Preferences")}));
}
