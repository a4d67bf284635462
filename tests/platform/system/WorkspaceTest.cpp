#include "platform/system/LinuxWorkspace.h"
#include "support/ScopedEnvironment.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QThread>
#include <gtest/gtest.h>

#include <sys/stat.h>

namespace {

bool writeFile(const QString& path, const QByteArray& data)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(data) == data.size();
}

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

class WorkspaceTest : public ::testing::Test {
protected:
    QString path(const QString& relative) const { return dir_.path() + QLatin1Char('/') + relative; }
    QTemporaryDir dir_;
    sys::LinuxWorkspace workspace_;
};

TEST_F(WorkspaceTest, RecycleMovesIntoTheTrashUnderAFreeName)
{
    ASSERT_TRUE(writeFile(path(QStringLiteral("Apps/Tessel.app/Contents/Info.plist")), "new"));
    ASSERT_TRUE(writeFile(path(QStringLiteral("Trash/Tessel.app")), "older"));
    ASSERT_TRUE(writeFile(path(QStringLiteral("Trash/Tessel 2.app")), "oldest"));

    ASSERT_TRUE(workspace_.recycle(path(QStringLiteral("Apps")), path(QStringLiteral("Trash")), QStringLiteral("Tessel.app")));
    EXPECT_FALSE(QFileInfo::exists(path(QStringLiteral("Apps/Tessel.app"))));
    EXPECT_EQ(readFile(path(QStringLiteral("Trash/Tessel 3.app/Contents/Info.plist"))), "new");
    EXPECT_EQ(readFile(path(QStringLiteral("Trash/Tessel.app"))), "older");
    EXPECT_EQ(readFile(path(QStringLiteral("Trash/Tessel 2.app"))), "oldest");

    // A missing Trash folder is made.
    ASSERT_TRUE(writeFile(path(QStringLiteral("Apps/notes")), "n"));
    ASSERT_TRUE(workspace_.recycle(path(QStringLiteral("Apps")), path(QStringLiteral("New Trash")), QStringLiteral("notes")));
    EXPECT_EQ(readFile(path(QStringLiteral("New Trash/notes"))), "n");
}

TEST_F(WorkspaceTest, RecycleRefusesBadRequestsAndKeepsTheOriginal)
{
    ASSERT_TRUE(writeFile(path(QStringLiteral("Apps/keep")), "k"));
    ASSERT_TRUE(writeFile(path(QStringLiteral("blocker")), "a file where the Trash should be"));
    const QString apps = path(QStringLiteral("Apps"));
    const QString trash = path(QStringLiteral("Trash"));
    for (const QString& bad : {QString(), QStringLiteral("."), QStringLiteral(".."), QStringLiteral("../Apps/keep"),
                               QStringLiteral("missing")})
        EXPECT_FALSE(workspace_.recycle(apps, trash, bad)) << bad.toStdString();
    EXPECT_FALSE(workspace_.recycle(apps, path(QStringLiteral("blocker")), QStringLiteral("keep")));
    EXPECT_FALSE(workspace_.recycle(apps, path(QStringLiteral("blocker/sub")), QStringLiteral("keep")));
    EXPECT_EQ(readFile(path(QStringLiteral("Apps/keep"))), "k");
}

TEST_F(WorkspaceTest, RecycleAcrossFileSystemsCopiesThenRemoves)
{
    if (!QFileInfo(QStringLiteral("/dev/shm")).isWritable())
        GTEST_SKIP() << "no second file system to move across";
    QTemporaryDir shm(QStringLiteral("/dev/shm/vlws-XXXXXX"));
    ASSERT_TRUE(shm.isValid());
    struct stat a {}, b {};
    ::stat(QFile::encodeName(shm.path()).constData(), &a);
    ::stat(QFile::encodeName(dir_.path()).constData(), &b);
    if (a.st_dev == b.st_dev)
        GTEST_SKIP() << "/dev/shm is on the same file system here";
    ASSERT_TRUE(writeFile(shm.path() + QStringLiteral("/X.app/Contents/MacOS/x"), "exe"));
    ASSERT_TRUE(QFile::link(QStringLiteral("MacOS/x"), shm.path() + QStringLiteral("/X.app/Contents/link")));
    ASSERT_TRUE(workspace_.recycle(shm.path(), path(QStringLiteral("Trash")), QStringLiteral("X.app")));
    EXPECT_FALSE(QFileInfo::exists(shm.path() + QStringLiteral("/X.app")));
    EXPECT_EQ(readFile(path(QStringLiteral("Trash/X.app/Contents/MacOS/x"))), "exe");
    EXPECT_EQ(QFileInfo(path(QStringLiteral("Trash/X.app/Contents/link"))).symLinkTarget(),
              path(QStringLiteral("Trash/X.app/Contents/MacOS/x")));
}

TEST_F(WorkspaceTest, CopyKeepsLinksAndPermissionsAndNeverOverwrites)
{
    const QString volume = path(QStringLiteral("Volumes/Tessel"));
    ASSERT_TRUE(writeFile(volume + QStringLiteral("/Tessel.app/Contents/MacOS/Tessel"), "binary"));
    ASSERT_TRUE(QFile::setPermissions(volume + QStringLiteral("/Tessel.app/Contents/MacOS/Tessel"),
                                      QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ExeGroup));
    ASSERT_TRUE(QFile::link(QStringLiteral("../../../outside"), volume + QStringLiteral("/Tessel.app/Contents/Resources")));
    QDir().mkpath(path(QStringLiteral("Applications")));

    ASSERT_TRUE(workspace_.copy(volume, path(QStringLiteral("Applications")), QStringLiteral("Tessel.app")));
    const QString copied = path(QStringLiteral("Applications/Tessel.app/Contents"));
    EXPECT_EQ(readFile(copied + QStringLiteral("/MacOS/Tessel")), "binary");
    EXPECT_EQ(QFile::permissions(copied + QStringLiteral("/MacOS/Tessel")),
              QFile::permissions(volume + QStringLiteral("/Tessel.app/Contents/MacOS/Tessel")));
    QFileInfo link(copied + QStringLiteral("/Resources"));
    EXPECT_TRUE(link.isSymLink());
    EXPECT_EQ(QFile::symLinkTarget(copied + QStringLiteral("/Resources")),
              QDir::cleanPath(copied + QStringLiteral("/../../../outside")));

    // An existing destination is left alone and the copy fails.
    ASSERT_TRUE(writeFile(volume + QStringLiteral("/Tessel.app/Contents/MacOS/Tessel"), "newer"));
    EXPECT_FALSE(workspace_.copy(volume, path(QStringLiteral("Applications")), QStringLiteral("Tessel.app")));
    EXPECT_EQ(readFile(copied + QStringLiteral("/MacOS/Tessel")), "binary");

    EXPECT_FALSE(workspace_.copy(volume, path(QStringLiteral("NoSuchFolder")), QStringLiteral("Tessel.app")));
    EXPECT_FALSE(workspace_.copy(volume, path(QStringLiteral("Applications")), QStringLiteral("Missing.app")));
}

TEST_F(WorkspaceTest, FailedCopyLeavesNoPartialDestination)
{
    const QString source = path(QStringLiteral("src/Odd.app"));
    ASSERT_TRUE(writeFile(source + QStringLiteral("/a"), "a"));
    ASSERT_EQ(::mkfifo(QFile::encodeName(source + QStringLiteral("/pipe")).constData(), 0600), 0);
    QDir().mkpath(path(QStringLiteral("dst")));
    EXPECT_FALSE(workspace_.copy(path(QStringLiteral("src")), path(QStringLiteral("dst")), QStringLiteral("Odd.app")));
    EXPECT_FALSE(QFileInfo::exists(path(QStringLiteral("dst/Odd.app"))));
}

TEST_F(WorkspaceTest, PackagesAreFoldersWithAKnownExtension)
{
    struct Case {
        QString name;
        bool folder;
        bool package;
    };
    const QList<Case> cases{
        {QStringLiteral("A.app"), true, true},   {QStringLiteral("B.PrefPane"), true, true},
        {QStringLiteral("F.app"), false, false}, {QStringLiteral("G.txt"), true, false},
        {QStringLiteral(".app"), true, false},   {QStringLiteral("H.app.zip"), true, false},
    };
    for (const Case& c : cases) {
        const QString p = path(c.name);
        if (c.folder)
            ASSERT_TRUE(QDir().mkpath(p));
        else
            ASSERT_TRUE(writeFile(p, "x"));
        EXPECT_EQ(workspace_.isPackage(p), c.package) << c.name.toStdString();
    }
    EXPECT_FALSE(workspace_.isPackage(path(QStringLiteral("Missing.app"))));
    EXPECT_TRUE(workspace_.isPackage(path(QStringLiteral("A.app/")))) << "a trailing slash names the same folder";
}

TEST_F(WorkspaceTest, OpenRunsTheRootedOpenerWithoutAShell)
{
    vltest::ScopedEnvironment env;
    env.set("VELMORA_SYSROOT", dir_.path());
    ASSERT_TRUE(writeFile(path(QStringLiteral("target.txt")), "t"));
    EXPECT_FALSE(workspace_.openFile(path(QStringLiteral("target.txt")))) << "no opener installed";

    const QString log = path(QStringLiteral("opened.log"));
    ASSERT_TRUE(writeFile(path(QStringLiteral("usr/bin/xdg-open")),
                          "#!/bin/sh\nprintf '%s|%s\\n' \"$#\" \"$1\" >> '" + log.toUtf8() + "'\n"));
    ASSERT_TRUE(QFile::setPermissions(path(QStringLiteral("usr/bin/xdg-open")), QFile::ReadOwner | QFile::ExeOwner));
    EXPECT_FALSE(workspace_.openFile(path(QStringLiteral("missing.txt"))));
    ASSERT_TRUE(workspace_.openFile(path(QStringLiteral("target.txt"))));
    ASSERT_TRUE(workspace_.openURL(QStringLiteral("https://www.velmora.com/a b;$(x)")));

    QElapsedTimer timer;
    timer.start();
    while (readFile(log).count('\n') < 2 && timer.elapsed() < 5000)
        QThread::msleep(20);
    const QByteArray expected = "1|" + path(QStringLiteral("target.txt")).toUtf8() + "\n1|https://www.velmora.com/a b;$(x)\n";
    const QByteArray got = readFile(log);
    // The two detached openers may finish in either order.
    EXPECT_TRUE(got == expected
                || got == "1|https://www.velmora.com/a b;$(x)\n1|" + path(QStringLiteral("target.txt")).toUtf8() + "\n")
        << got.toStdString();
}

TEST_F(WorkspaceTest, APackageOpensInTheInstallerBundleUnderTheSystemRoot)
{
    vltest::ScopedEnvironment env;
    env.set("VELMORA_SYSROOT", dir_.path());
    const QString package = path(QStringLiteral("Volumes/Studio/Velmora Studio.PKG"));
    ASSERT_TRUE(writeFile(package, "p"));
    EXPECT_FALSE(workspace_.openFile(package)) << "no Installer installed";

    const QString installer = path(QStringLiteral("System/Library/CoreServices/Installer.app/Contents"));
    const QString log = path(QStringLiteral("installer.log"));
    ASSERT_TRUE(writeFile(installer + QStringLiteral("/Info.plist"),
                          "<plist><dict><key>CFBundleExecutable</key><string>Installer</string>"
                          "<key>CFBundleIdentifier</key><string>com.apple.installer</string></dict></plist>"));
    ASSERT_TRUE(writeFile(installer + QStringLiteral("/MacOS/Installer"),
                          "#!/bin/sh\nprintf '%s|%s\\n' \"$#\" \"$1\" >> '" + log.toUtf8() + "'\n"));
    ASSERT_TRUE(QFile::setPermissions(installer + QStringLiteral("/MacOS/Installer"), QFile::ReadOwner | QFile::ExeOwner));
    ASSERT_TRUE(workspace_.openFile(package));

    QElapsedTimer timer;
    timer.start();
    while (!readFile(log).endsWith('\n') && timer.elapsed() < 5000)
        QThread::msleep(20);
    EXPECT_EQ(readFile(log), "1|" + package.toUtf8() + "\n");
    EXPECT_FALSE(QFileInfo::exists(path(QStringLiteral("opened.log"))));
}

TEST_F(WorkspaceTest, MountedVolumesIncludeRootAndTheVolumesFolder)
{
    vltest::ScopedEnvironment env;
    env.set("VELMORA_SYSROOT", dir_.path());
    QDir().mkpath(path(QStringLiteral("Volumes/Tessel 2")));
    const QStringList volumes = workspace_.mountedLocalVolumes();
    EXPECT_EQ(volumes.value(0), QStringLiteral("/"));
    EXPECT_TRUE(volumes.contains(path(QStringLiteral("Volumes/Tessel 2"))));
    EXPECT_EQ(volumes.count(QStringLiteral("/")), 1);
}

TEST_F(WorkspaceTest, ApplicationLookupSearchesUserThenMachineApplications)
{
    vltest::ScopedEnvironment env;
    env.set("HOME", path(QStringLiteral("home")));
    env.set("VELMORA_SYSROOT", path(QStringLiteral("root")));
    const auto info = [](const char* identifier) {
        return QByteArray("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
                          "<key>CFBundleIdentifier</key><string>") + identifier + "</string></dict></plist>\n";
    };
    const QString machineApp = path(QStringLiteral("root/Applications/Tessel.app"));
    const QString suiteApp = path(QStringLiteral("home/Applications/Tessel Suite/Tessel.app"));
    ASSERT_TRUE(writeFile(machineApp + QStringLiteral("/Contents/Info.plist"), info("com.velmora.Tessel")));
    EXPECT_EQ(workspace_.fullPathForApplication(QStringLiteral("com.velmora.tessel")), machineApp);
    ASSERT_TRUE(writeFile(suiteApp + QStringLiteral("/Contents/Info.plist"), info("com.velmora.Tessel")));
    EXPECT_EQ(workspace_.fullPathForApplication(QStringLiteral("com.velmora.Tessel")), suiteApp);
    // Bundles inside another bundle are not installations of their own.
    ASSERT_TRUE(writeFile(path(QStringLiteral("root/Applications/Harrow.app/Helper.app/Contents/Info.plist")),
                          info("com.velmora.HarrowHelper")));
    EXPECT_EQ(workspace_.fullPathForApplication(QStringLiteral("com.velmora.HarrowHelper")), std::nullopt);
}

} // namespace
