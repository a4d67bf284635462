// The process's own folder in a shared temporary folder: its mode, and files opened without
// following a link. Links and other users' folders at its name are refused end to end, as
// root and as an unprivileged user (InstallEndToEndTest).
#include "platform/system/PrivateFolder.h"
#include "support/Sandbox.h"

#include <QFile>
#include <QFileInfo>
#include <gtest/gtest.h>

#include <sys/stat.h>

namespace {

mode_t modeOf(const QString& path)
{
    struct stat info {};
    return ::lstat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_mode & 07777 : 0;
}

TEST(PrivateFolder, CreatedOrNarrowedToTheOwnerAlone)
{
    vltest::Sandbox box;
    const QString fresh = box.tmpPath(QStringLiteral("missing parent/Temp"));
    QString refusal;
    ASSERT_TRUE(sys::makePrivateFolder(fresh, &refusal)) << refusal.toStdString();
    EXPECT_EQ(modeOf(fresh), mode_t(0700));

    const QString open = box.tmpPath(QStringLiteral("open"));
    ASSERT_TRUE(box.makeDir(open));
    ASSERT_EQ(::chmod(QFile::encodeName(open).constData(), 0777), 0);
    ASSERT_TRUE(sys::makePrivateFolder(open, &refusal)) << refusal.toStdString();
    EXPECT_EQ(modeOf(open), mode_t(0700));
    EXPECT_TRUE(sys::isPrivateFolder(open));

    const QString file = box.tmpPath(QStringLiteral("file"));
    ASSERT_TRUE(box.writeFile(file, "data"));
    EXPECT_FALSE(sys::makePrivateFolder(file, &refusal));
    EXPECT_EQ(refusal, QStringLiteral("The folder %1 is not a folder.").arg(file));
}

TEST(PrivateFolder, FilesAreNeverOpenedThroughALink)
{
    vltest::Sandbox box;
    const QString target = box.tmpPath(QStringLiteral("target"));
    ASSERT_TRUE(box.writeFile(target, "keep"));
    ASSERT_TRUE(QFile::link(target, box.tmpPath(QStringLiteral("live"))));
    ASSERT_TRUE(QFile::link(box.tmpPath(QStringLiteral("created")), box.tmpPath(QStringLiteral("dangling"))));
    for (const char* link : {"live", "dangling"}) {
        QString error;
        EXPECT_EQ(sys::openForWritingNoFollow(box.tmpPath(QLatin1String(link)), &error), nullptr) << link;
        EXPECT_FALSE(error.isEmpty()) << link;
    }
    EXPECT_FALSE(QFileInfo::exists(box.tmpPath(QStringLiteral("created"))));
    EXPECT_EQ(QFileInfo(target).size(), 4);

    auto file = sys::openForWritingNoFollow(target, nullptr);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(file->write("new"), 3);
    file.reset();
    EXPECT_EQ(QFileInfo(target).size(), 3) << "a regular file is truncated and written";
}

} // namespace
