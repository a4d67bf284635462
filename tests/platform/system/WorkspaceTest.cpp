// The Linux workspace: recycling under a free name (across file systems too), copies that keep
// links and never overwrite, packages, volumes and application look-up. The opener is proven
// through its callers (log viewing, crash reports); packages opening in the Installer by the
// installer fall-back tests.
#include "platform/system/LinuxWorkspace.h"
#include "support/Sandbox.h"
#include "support/ScopedEnvironment.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <sys/stat.h>

class WorkspaceTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        env.set("VELMORA_SYSROOT", box.sysroot());
        env.set("HOME", box.home());
    }
    QString path(const QString& relative) const { return box.tmpPath(relative); }
    static QByteArray read(const QString& file)
    {
        QFile in(file);
        return in.open(QIODevice::ReadOnly) ? in.readAll() : QByteArray("<missing>");
    }

    vltest::Sandbox box;
    vltest::ScopedEnvironment env;
    sys::LinuxWorkspace workspace;
};

TEST_F(WorkspaceTest, RecycleMovesIntoTheTrashUnderAFreeNameAndRefusesBadRequests)
{
    ASSERT_TRUE(box.writeFile(path("Apps/Tessel.app/Contents/Info.plist"), "new") && box.writeFile(path("Apps/keep"), "k"));
    ASSERT_TRUE(box.writeFile(path("Trash/Tessel.app"), "older") && box.writeFile(path("Trash/Tessel 2.app"), "oldest"));
    ASSERT_TRUE(workspace.recycle(path("Apps"), path("Trash"), "Tessel.app"));
    EXPECT_FALSE(QFileInfo::exists(path("Apps/Tessel.app")));
    EXPECT_EQ(read(path("Trash/Tessel 3.app/Contents/Info.plist")) + read(path("Trash/Tessel.app")) + read(path("Trash/Tessel 2.app")), "newolderoldest");
    ASSERT_TRUE(workspace.recycle(path("Trash"), path("New Trash"), "Tessel 2.app")) << "a missing Trash folder is made";
    EXPECT_EQ(read(path("New Trash/Tessel 2.app")), "oldest");

    ASSERT_TRUE(box.writeFile(path("blocker"), "a file where the Trash should be"));
    for (const char* bad : {"", "..", "../Apps/keep", "missing"})
        EXPECT_FALSE(workspace.recycle(path("Apps"), path("Trash"), QString::fromUtf8(bad))) << bad;
    EXPECT_FALSE(workspace.recycle(QString(), path("Trash"), "keep")) << "no folder never stands for the root";
    EXPECT_FALSE(workspace.recycle(path("Apps"), path("blocker"), "keep") || workspace.recycle(path("Apps"), path("blocker/sub"), "keep"));
    EXPECT_EQ(read(path("Apps/keep")), "k");
}

TEST_F(WorkspaceTest, RecycleAcrossFileSystemsCopiesThenRemoves)
{
    QTemporaryDir shm(QStringLiteral("/dev/shm/vlws-XXXXXX"));
    struct stat a {}, b {};
    if (!shm.isValid() || ::stat(QFile::encodeName(shm.path()).constData(), &a) != 0
        || ::stat(QFile::encodeName(box.tmp()).constData(), &b) != 0 || a.st_dev == b.st_dev)
        GTEST_SKIP() << "no second file system to move across";
    ASSERT_TRUE(box.writeFile(shm.path() + "/X.app/Contents/MacOS/x", "exe") && QFile::link("MacOS/x", shm.path() + "/X.app/Contents/link"));
    ASSERT_TRUE(workspace.recycle(shm.path(), path("Trash"), "X.app"));
    EXPECT_FALSE(QFileInfo::exists(shm.path() + "/X.app"));
    EXPECT_EQ(read(path("Trash/X.app/Contents/MacOS/x")), "exe");
    EXPECT_EQ(QFileInfo(path("Trash/X.app/Contents/link")).symLinkTarget(), path("Trash/X.app/Contents/MacOS/x"));
}

TEST_F(WorkspaceTest, CopyKeepsLinksAndPermissionsNeverOverwritesAndLeavesNoPartialCopy)
{
    const QString volume = path("Volumes/Tessel");
    const QString binary = volume + "/Tessel.app/Contents/MacOS/Tessel";
    ASSERT_TRUE(box.writeFile(binary, "binary") && box.makeDir(path("Applications")));
    ASSERT_TRUE(QFile::setPermissions(binary, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ExeGroup));
    ASSERT_TRUE(QFile::link("../../../outside", volume + "/Tessel.app/Contents/Resources"));
    ASSERT_TRUE(workspace.copy(volume, path("Applications"), "Tessel.app"));
    const QString copied = path("Applications/Tessel.app/Contents");
    EXPECT_EQ(read(copied + "/MacOS/Tessel"), "binary");
    EXPECT_EQ(QFile::permissions(copied + "/MacOS/Tessel"), QFile::permissions(binary));
    EXPECT_EQ(QFile::symLinkTarget(copied + "/Resources"), QDir::cleanPath(copied + "/../../../outside"));

    ASSERT_TRUE(box.writeFile(binary, "newer"));
    EXPECT_FALSE(workspace.copy(volume, path("Applications"), "Tessel.app")) << "an existing destination is left alone";
    EXPECT_EQ(read(copied + "/MacOS/Tessel"), "binary");
    EXPECT_FALSE(workspace.copy(volume, path("NoSuchFolder"), "Tessel.app") || workspace.copy(volume, path("Applications"), "Missing.app"));

    ASSERT_TRUE(box.writeFile(path("src/Odd.app/a"), "a"));
    ASSERT_EQ(::mkfifo(QFile::encodeName(path("src/Odd.app/pipe")).constData(), 0600), 0);
    EXPECT_FALSE(workspace.copy(path("src"), path("Applications"), "Odd.app"));
    EXPECT_FALSE(QFileInfo::exists(path("Applications/Odd.app")));
}

TEST_F(WorkspaceTest, PackagesVolumesAndApplicationLookup)
{
    // A folder with a package extension, read from the path as the platform reads it.
    ASSERT_TRUE(box.makeDir(path("A.App")) && box.makeDir(path("H.app.zip")) && box.writeFile(path("F.app"), "x"));
    EXPECT_TRUE(workspace.isPackage(path("A.App/"))) << "the extension in any case, a trailing slash ignored";
    EXPECT_FALSE(workspace.isPackage(path("F.app")) || workspace.isPackage(path("H.app.zip")));
    ASSERT_TRUE(box.makeDir(box.sysPath("/Volumes/Tessel 2")));
    const QStringList volumes = workspace.mountedLocalVolumes();
    EXPECT_TRUE(volumes.value(0) == "/" && volumes.count("/") == 1 && volumes.contains(box.sysPath("/Volumes/Tessel 2"))) << volumes.join(", ").toStdString();

    // The user's Applications first, suites' folders included; bundles inside bundles never.
    const QString machineApp = box.createBundle({.path = box.sysPath("/Applications/Tessel.app"), .identifier = "com.velmora.Tessel"});
    EXPECT_EQ(workspace.fullPathForApplication("com.velmora.tessel"), machineApp);
    const QString suiteApp = box.createBundle({.path = box.homePath("Applications/Tessel Suite/Tessel.app"), .identifier = "com.velmora.Tessel"});
    EXPECT_EQ(workspace.fullPathForApplication("com.velmora.Tessel"), suiteApp);
    box.createBundle({.path = box.sysPath("/Applications/Harrow.app/Helper.app"), .identifier = "com.velmora.HarrowHelper"});
    EXPECT_EQ(workspace.fullPathForApplication("com.velmora.HarrowHelper"), std::nullopt);
}
