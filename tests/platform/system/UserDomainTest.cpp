// The user domain's folders in a home that is not fresh: a planted link is never followed, and
// a Library already there keeps its owner and mode. Fresh homes, as the user and as root for
// the user, are run end to end (FreshHomeEndToEndTest).
#include "platform/system/UserDomain.h"

#include "support/QtPrinters.h"
#include "support/ScopedEnvironment.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

TEST(UserDomain, ALinkIsRefusedUnfollowedAndAnExistingLibraryKeepsItsOwnerAndMode)
{
    QTemporaryDir dir;
    const QString linked = dir.filePath(QStringLiteral("linked")), kept = dir.filePath(QStringLiteral("kept"));
    const QString elsewhere = dir.filePath(QStringLiteral("elsewhere"));
    ASSERT_TRUE(QDir().mkpath(elsewhere) && QDir().mkpath(linked) && QDir().mkpath(kept + QStringLiteral("/Library")));
    ASSERT_TRUE(QFile::link(elsewhere, linked + QStringLiteral("/Library")));
    vltest::ScopedEnvironment env;
    env.set("HOME", linked);
    QString refusal;
    EXPECT_FALSE(sys::prepareUserDomain(&refusal));
    EXPECT_EQ(refusal, QStringLiteral("The folder ") + linked + QStringLiteral("/Library is a symbolic link."));
    EXPECT_TRUE(QDir(elsewhere).isEmpty());

    // Root makes for the home's owner, but a Library someone else made stays theirs, 0755.
    const uint owner = ::geteuid() == 0 ? 65534u : ::geteuid();
    const QByteArray library = QFile::encodeName(kept + QStringLiteral("/Library"));
    ASSERT_EQ(::chown(QFile::encodeName(kept).constData(), owner, owner), 0);
    ASSERT_EQ(::chmod(library.constData(), 0755), 0);
    struct stat before {}, after {}, logs {};
    ASSERT_EQ(::stat(library.constData(), &before), 0);
    env.set("HOME", kept);
    EXPECT_TRUE(sys::prepareUserDomain());
    ASSERT_EQ(::stat(library.constData(), &after), 0);
    EXPECT_TRUE(after.st_mode == before.st_mode && after.st_uid == before.st_uid);
    ASSERT_EQ(::stat(library + "/Logs", &logs), 0);
    EXPECT_EQ(logs.st_uid, owner) << "what was made is the home owner's";
}
