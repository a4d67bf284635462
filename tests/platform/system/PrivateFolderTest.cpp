// The process's own folder in a shared temporary folder: its mode, and files opened without
// following a link. Links and other users' folders at its name are refused end to end, as
// root and as an unprivileged user (InstallEndToEndTest).
#include "platform/system/PrivateFolder.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <sys/stat.h>

namespace {

mode_t modeOf(const QString& path)
{
    struct stat info {};
    return ::lstat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_mode & 07777 : 0;
}

bool writeFile(const QString& path, const QByteArray& data)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(data) == data.size();
}

TEST(PrivateFolder, CreatedOrNarrowedToTheOwnerAlone)
{
    QTemporaryDir dir;
    const QString fresh = dir.filePath(QStringLiteral("missing parent/Temp"));
    QString refusal;
    ASSERT_TRUE(sys::makePrivateFolder(fresh, &refusal)) << refusal.toStdString();
    EXPECT_EQ(modeOf(fresh), mode_t(0700));

    const QString open = dir.filePath(QStringLiteral("open"));
    ASSERT_TRUE(QDir().mkpath(open));
    ASSERT_EQ(::chmod(QFile::encodeName(open).constData(), 0777), 0);
    ASSERT_TRUE(sys::makePrivateFolder(open, &refusal)) << refusal.toStdString();
    EXPECT_EQ(modeOf(open), mode_t(0700));
    EXPECT_TRUE(sys::isPrivateFolder(open));

    const QString file = dir.filePath(QStringLiteral("file"));
    ASSERT_TRUE(writeFile(file, "data"));
    EXPECT_FALSE(sys::makePrivateFolder(file, &refusal));
    EXPECT_EQ(refusal, QStringLiteral("The folder %1 is not a folder.").arg(file));
}

TEST(PrivateFolder, FilesAreNeverOpenedThroughALink)
{
    QTemporaryDir dir;
    const QString target = dir.filePath(QStringLiteral("target"));
    ASSERT_TRUE(writeFile(target, "keep"));
    const QString live = dir.filePath(QStringLiteral("live"));
    const QString dangling = dir.filePath(QStringLiteral("dangling"));
    ASSERT_TRUE(QFile::link(target, live));
    ASSERT_TRUE(QFile::link(dir.filePath(QStringLiteral("created")), dangling));
    for (const QString& path : {live, dangling}) {
        QString error;
        EXPECT_EQ(sys::openForWritingNoFollow(path, &error), nullptr) << path.toStdString();
        EXPECT_FALSE(error.isEmpty());
    }
    EXPECT_FALSE(QFileInfo::exists(dir.filePath(QStringLiteral("created"))));
    EXPECT_EQ(QFileInfo(target).size(), 4);

    // A regular file is truncated and written.
    auto file = sys::openForWritingNoFollow(target, nullptr);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(file->write("new"), 3);
    file.reset();
    QFile back(target);
    ASSERT_TRUE(back.open(QIODevice::ReadOnly));
    EXPECT_EQ(back.readAll(), QByteArray("new"));
}

} // namespace
