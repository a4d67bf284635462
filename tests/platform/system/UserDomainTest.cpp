// The user domain's folders in homes that are not fresh: a planted link, an entry that is not
// a folder, a Library of someone else's making, no home at all. Fresh homes, as the user and
// as root for the user, are run end to end (FreshHomeEndToEndTest).
#include "platform/system/UserDomain.h"

#include "support/QtPrinters.h"
#include "support/ScopedEnvironment.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <functional>
#include <sys/stat.h>
#include <unistd.h>

namespace {

struct stat statOf(const QString& path)
{
    struct stat info {};
    ::lstat(QFile::encodeName(path).constData(), &info);
    return info;
}

QStringList entriesOf(const QString& folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
}

} // namespace

TEST(UserDomain, WhatIsThereIsNeitherFollowedNorChanged)
{
    QTemporaryDir dir;
    const QString elsewhere = dir.filePath(QStringLiteral("elsewhere"));
    ASSERT_TRUE(QDir().mkpath(elsewhere));
    const uint owner = ::geteuid() == 0 ? 65534u : ::geteuid(); // root makes for the home's owner

    struct Row {
        const char* name;
        std::function<void(const QString& home)> plant;
        bool ready;
        const char* refusal; // after the home's path
        QStringList library; // what Library holds afterwards
    };
    const QStringList all{QStringLiteral("Application Support"), QStringLiteral("Caches"), QStringLiteral("Logs"),
                          QStringLiteral("Preferences")};
    const Row rows[] = {
        {"Library is a link", [&](const QString& home) { ASSERT_TRUE(QFile::link(elsewhere, home + QStringLiteral("/Library"))); },
         false, "/Library is a symbolic link.", {}},
        {"Caches is a file", [](const QString& home) {
             QFile file(home + QStringLiteral("/Library/Caches"));
             ASSERT_TRUE(QDir().mkpath(home + QStringLiteral("/Library")) && file.open(QIODevice::WriteOnly));
         },
         false, "/Library/Caches is not a folder.", all},
        {"Library of another owner and mode", [](const QString& home) {
             ASSERT_TRUE(QDir().mkpath(home + QStringLiteral("/Library")));
             ASSERT_EQ(::chmod(QFile::encodeName(home + QStringLiteral("/Library")).constData(), 0755), 0);
         },
         true, "", all},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const QString home = dir.filePath(QString::fromLatin1(row.name));
        ASSERT_TRUE(QDir().mkpath(home));
        ASSERT_EQ(::chown(QFile::encodeName(home).constData(), owner, owner), 0);
        row.plant(home);
        const struct stat before = statOf(home + QStringLiteral("/Library"));
        vltest::ScopedEnvironment env;
        env.set("HOME", home);
        QString refusal;
        EXPECT_EQ(sys::prepareUserDomain(&refusal), row.ready);
        EXPECT_EQ(refusal, row.ready ? QString() : QStringLiteral("The folder ") + home + QString::fromLatin1(row.refusal));
        EXPECT_EQ(entriesOf(elsewhere), QStringList());
        if (!QFileInfo(home + QStringLiteral("/Library")).isSymLink()) {
            EXPECT_EQ(entriesOf(home + QStringLiteral("/Library")), row.library);
        }
        // Library was there: its mode and owner stay; what was made is the home owner's.
        const struct stat after = statOf(home + QStringLiteral("/Library"));
        EXPECT_EQ(after.st_mode, before.st_mode);
        EXPECT_EQ(after.st_uid, before.st_uid);
        if (row.ready) {
            EXPECT_EQ(statOf(home + QStringLiteral("/Library/Logs")).st_uid, owner);
        }
    }

    // No home: nothing is made, the home included.
    vltest::ScopedEnvironment env;
    const QString missing = dir.filePath(QStringLiteral("missing"));
    env.set("HOME", missing);
    EXPECT_FALSE(sys::prepareUserDomain());
    EXPECT_FALSE(QFileInfo::exists(missing));
}
