// Sizes, unique names, wildcard paths, empty folders, file-name cleaning, dates and writers.
#include "shared/VLFileManager.h"
#include "support/Sandbox.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <unistd.h>

namespace {

bool writeFile(const QString& path, const QByteArray& data = "x") { return vltest::Sandbox::writeFile(path, data); }

TEST(VLFileManagerQueries, SizesAndNames)
{
    const std::pair<double, const char*> sizes[] = {
        {1023, "1023 B"}, {1048575, "1024.00 KB"}, {5.5 * 1099511627776.0, "5.50 TB"}};
    for (const auto& [bytes, text] : sizes)
        EXPECT_EQ(VLFileManager::formatFileSize(bytes), QString::fromLatin1(text)) << bytes;

    // path, keep slashes, cleaned name
    const std::tuple<const char*, bool, const char*> names[] = {
        {".hidden", true, "hidden"}, {"..twice", true, ".twice"}, {"a/b:c", true, "abc"}, {"a/b:c", false, "a/bc"},
        {" .x", true, ".x"}, // the leading dot is looked at before trimming
    };
    for (const auto& [in, slashes, out] : names)
        EXPECT_EQ(VLFileManager::validateFilename(QString::fromUtf8(in), slashes), QString::fromUtf8(out)) << in;

    QTemporaryDir dir;
    const QString report = dir.filePath(QStringLiteral("Report.pdf"));
    EXPECT_EQ(VLFileManager::uniqueFilename(report), report);
    ASSERT_TRUE(writeFile(report) && writeFile(dir.filePath(QStringLiteral("Report 2.pdf"))) && writeFile(dir.filePath(QStringLiteral("Notes"))));
    EXPECT_EQ(VLFileManager::uniqueFilename(report), dir.filePath(QStringLiteral("Report 3.pdf")));
    EXPECT_EQ(VLFileManager::uniqueFilename(dir.filePath(QStringLiteral("Notes"))), dir.filePath(QStringLiteral("Notes 2")));

    ASSERT_TRUE(writeFile(dir.filePath(QStringLiteral("a/one")), QByteArray(100, 'x')) && writeFile(dir.filePath(QStringLiteral("a/b/two")), QByteArray(23, 'x')));
    ASSERT_EQ(::symlink(QFile::encodeName(dir.filePath(QStringLiteral("a"))).constData(), QFile::encodeName(dir.filePath(QStringLiteral("a/b/loop"))).constData()), 0);
    EXPECT_EQ(VLFileManager::fileSize(dir.filePath(QStringLiteral("a"))), 123u); // the loop back to "a" adds nothing
    EXPECT_EQ(VLFileManager::fileSize(dir.filePath(QStringLiteral("missing"))), 0u);
}

TEST(VLFileManagerQueries, WildcardPaths)
{
    QTemporaryDir dir;
    const QString contents = dir.filePath(QStringLiteral("Apps/Tool.app/Contents"));
    for (const char* name : {"/Info.plist", "/VLUpdates.plist", "/PkgInfo", "/info.PLIST"})
        ASSERT_TRUE(writeFile(contents + QLatin1String(name)));
    const QString apps = dir.filePath(QStringLiteral("Apps"));
    // The last component "*.plist" lists the property lists, case-sensitively, in name order.
    EXPECT_EQ(VLFileManager::filesMatchingWildcardPath(QStringLiteral("Tool.app/Contents/*.plist"), apps),
              (QStringList{contents + QStringLiteral("/Info.plist"), contents + QStringLiteral("/VLUpdates.plist")}));
    // A star in a folder component fans out over folders; in a component with a star "?" is
    // one character, while a component without a star is taken literally.
    EXPECT_EQ(VLFileManager::filesMatchingWildcardPath(apps + QStringLiteral("/*.app/Contents/Pkg*f?")), QStringList{contents + QStringLiteral("/PkgInfo")});
    EXPECT_TRUE(VLFileManager::filesMatchingWildcardPath(apps + QStringLiteral("/*.app/Contents/PkgInf?")).isEmpty());
    // Without a star: the joined path, existing or not. decodeWildcardPath: the first match,
    // or the joined path when nothing matches.
    EXPECT_EQ(VLFileManager::filesMatchingWildcardPath(QStringLiteral("No/Such.file"), QStringLiteral("/base")), QStringList{QStringLiteral("/base/No/Such.file")});
    EXPECT_EQ(VLFileManager::decodeWildcardPath(QStringLiteral("Tool.app/Contents/*.plist"), apps), contents + QStringLiteral("/Info.plist"));
    EXPECT_EQ(VLFileManager::decodeWildcardPath(QStringLiteral("X/*.y"), QStringLiteral("/base")), QStringLiteral("/base/X/*.y"));
}

TEST(VLFileManagerQueries, IsFolderEmptyIgnoresFinderDroppings)
{
    QTemporaryDir dir;
    const auto folder = [&](const char* name) { return dir.filePath(QString::fromLatin1(name)); };
    ASSERT_TRUE(writeFile(folder("nested/.DS_Store")) && writeFile(folder("nested/sub/Icon\r")));
    QDir().mkpath(folder("nested/sub/deeper"));
    ASSERT_TRUE(writeFile(folder("file/sub/real")) && writeFile(folder("hidden/.secret")));
    QDir().mkpath(folder("linked"));
    ASSERT_EQ(::symlink("/", QFile::encodeName(folder("linked/root")).constData()), 0);
    EXPECT_TRUE(VLFileManager::isFolderEmpty(folder("nested")));
    EXPECT_TRUE(VLFileManager::isFolderEmpty(folder("missing"))); // unreadable counts as empty
    EXPECT_FALSE(VLFileManager::isFolderEmpty(folder("file")));
    EXPECT_FALSE(VLFileManager::isFolderEmpty(folder("hidden")));
    EXPECT_FALSE(VLFileManager::isFolderEmpty(folder("linked"))); // a link is an entry, not a folder
}

TEST(VLFileManagerQueries, DatesAndWriters)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("file.pdf"));
    ASSERT_TRUE(writeFile(path));
    for (const QDateTime& when : {QDateTime::fromMSecsSinceEpoch(1700000000123), QDateTime::fromMSecsSinceEpoch(-1500)}) {
        ASSERT_TRUE(VLFileManager::setModificationDate(when, path));
        EXPECT_EQ(VLFileManager::modificationDateForFile(path), when);
    }
    // This process holding the file open for writing is seen; a reader is not a writer.
    {
        QFile writer(path);
        ASSERT_TRUE(writer.open(QIODevice::Append));
        EXPECT_TRUE(VLFileManager::fileIsOpenForWriting(path));
    }
    QFile reader(path);
    ASSERT_TRUE(reader.open(QIODevice::ReadOnly));
    EXPECT_FALSE(VLFileManager::fileIsOpenForWriting(path));
}

} // namespace
