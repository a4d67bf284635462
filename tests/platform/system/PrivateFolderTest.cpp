// The process's own folder in a shared temporary folder: its mode, and files opened without
// following a link. Links and other users' folders at its name are refused end to end, as
// root and as an unprivileged user (InstallEndToEndTest).
#include "platform/system/PrivateFolder.h"
#include "support/Sandbox.h"

#include <QFile>
#include <QFileInfo>
#include <gtest/gtest.h>

#include <sys/stat.h>

static mode_t modeOf(const QString& path)
{
    struct stat info {};
    return ::lstat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_mode & 07777 : 0;
}

TEST(PrivateFolder, CreatedOrNarrowedToTheOwnerAloneAndFilesNeverOpenedThroughALink)
{
    vltest::Sandbox box;
    const QString fresh = box.tmpPath(QStringLiteral("missing parent/Temp"));
    const QString open = box.tmpPath(QStringLiteral("open"));
    ASSERT_TRUE(box.makeDir(open) && ::chmod(QFile::encodeName(open).constData(), 0777) == 0);
    QString refusal;
    for (const QString& folder : {fresh, open}) {
        ASSERT_TRUE(sys::makePrivateFolder(folder, &refusal)) << refusal.toStdString();
        EXPECT_EQ(modeOf(folder), mode_t(0700)) << folder.toStdString();
        EXPECT_TRUE(sys::isPrivateFolder(folder));
    }
    const QString target = box.tmpPath(QStringLiteral("target"));
    ASSERT_TRUE(box.writeFile(target, "keep"));
    EXPECT_FALSE(sys::makePrivateFolder(target, &refusal));
    EXPECT_EQ(refusal, QStringLiteral("The folder %1 is not a folder.").arg(target));

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
