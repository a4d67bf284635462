// Sizes, unique names, wildcard paths, empty folders and file-name cleaning.
#include "shared/VLFileManager.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <unistd.h>

namespace {

bool writeFile(const QString& path, const QByteArray& data)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(data) == data.size();
}

TEST(VLFileManagerQueries, FormatFileSizeUsesStrictBoundaries)
{
    const struct {
        double bytes;
        const char* text;
    } cases[] = {
        {0, "0 B"},
        {1023, "1023 B"},
        {1024, "1.00 KB"},
        {1536, "1.50 KB"},
        {1048575, "1024.00 KB"},
        {1048576, "1.00 MB"},
        {1073741824, "1.00 GB"},
        {1099511627775.0, "1024.00 GB"},
        {1099511627776.0, "1.00 TB"},
        {5.5 * 1099511627776.0, "5.50 TB"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(VLFileManager::formatFileSize(c.bytes), QString::fromLatin1(c.text)) << c.bytes;
}

TEST(VLFileManagerQueries, UniqueFilenameCountsUpAndKeepsExtension)
{
    QTemporaryDir dir;
    const QString report = dir.filePath(QStringLiteral("Report.pdf"));
    EXPECT_EQ(VLFileManager::uniqueFilename(report), report);
    ASSERT_TRUE(writeFile(report, "x"));
    EXPECT_EQ(VLFileManager::uniqueFilename(report), dir.filePath(QStringLiteral("Report 2.pdf")));
    ASSERT_TRUE(writeFile(dir.filePath(QStringLiteral("Report 2.pdf")), "x"));
    EXPECT_EQ(VLFileManager::uniqueFilename(report), dir.filePath(QStringLiteral("Report 3.pdf")));

    const QString plain = dir.filePath(QStringLiteral("Notes"));
    ASSERT_TRUE(writeFile(plain, "x"));
    EXPECT_EQ(VLFileManager::uniqueFilename(plain), dir.filePath(QStringLiteral("Notes 2")));
}

TEST(VLFileManagerQueries, FileSizeSumsFoldersAndSurvivesLinkLoops)
{
    QTemporaryDir dir;
    ASSERT_TRUE(writeFile(dir.filePath(QStringLiteral("a/one")), QByteArray(100, 'x')));
    ASSERT_TRUE(writeFile(dir.filePath(QStringLiteral("a/b/two")), QByteArray(23, 'x')));
    ASSERT_EQ(::symlink(QFile::encodeName(dir.filePath(QStringLiteral("a"))).constData(),
                        QFile::encodeName(dir.filePath(QStringLiteral("a/b/loop"))).constData()),
              0);
    EXPECT_EQ(VLFileManager::fileSize(dir.filePath(QStringLiteral("a/one"))), 100u);
    // The loop back to "a" adds nothing; the real files count once.
    EXPECT_EQ(VLFileManager::fileSize(dir.filePath(QStringLiteral("a"))), 123u);
    EXPECT_EQ(VLFileManager::fileSize(dir.filePath(QStringLiteral("missing"))), 0u);
}

TEST(VLFileManagerQueries, WildcardPaths)
{
    QTemporaryDir dir;
    const QString contents = dir.filePath(QStringLiteral("Apps/Tool.app/Contents"));
    ASSERT_TRUE(writeFile(contents + QStringLiteral("/Info.plist"), "x"));
    ASSERT_TRUE(writeFile(contents + QStringLiteral("/VLUpdates.plist"), "x"));
    ASSERT_TRUE(writeFile(contents + QStringLiteral("/PkgInfo"), "x"));
    ASSERT_TRUE(writeFile(contents + QStringLiteral("/info.PLIST"), "x"));

    // The last component "*.plist" lists the property lists, case-sensitively, in name order.
    EXPECT_EQ(VLFileManager::filesMatchingWildcardPath(QStringLiteral("Tool.app/Contents/*.plist"), dir.filePath(QStringLiteral("Apps"))),
              (QStringList{contents + QStringLiteral("/Info.plist"), contents + QStringLiteral("/VLUpdates.plist")}));
    // A star in a folder component fans out over folders; in a component with a star "?" is
    // one character, while a component without a star is taken literally.
    EXPECT_EQ(VLFileManager::filesMatchingWildcardPath(dir.filePath(QStringLiteral("Apps/*.app/Contents/Pkg*f?"))),
              QStringList{contents + QStringLiteral("/PkgInfo")});
    EXPECT_TRUE(VLFileManager::filesMatchingWildcardPath(dir.filePath(QStringLiteral("Apps/*.app/Contents/PkgInf?"))).isEmpty());
    // Without a star: the joined path, existing or not.
    EXPECT_EQ(VLFileManager::filesMatchingWildcardPath(QStringLiteral("No/Such.file"), QStringLiteral("/base")),
              QStringList{QStringLiteral("/base/No/Such.file")});
    EXPECT_TRUE(VLFileManager::filesMatchingWildcardPath(dir.filePath(QStringLiteral("Apps/*.none"))).isEmpty());
    // decodeWildcardPath: the first match, or the joined path when nothing matches.
    EXPECT_EQ(VLFileManager::decodeWildcardPath(QStringLiteral("Tool.app/Contents/*.plist"), dir.filePath(QStringLiteral("Apps"))),
              contents + QStringLiteral("/Info.plist"));
    EXPECT_EQ(VLFileManager::decodeWildcardPath(QStringLiteral("X/*.y"), QStringLiteral("/base")), QStringLiteral("/base/X/*.y"));
}

TEST(VLFileManagerQueries, IsFolderEmptyIgnoresFinderDroppings)
{
    QTemporaryDir dir;
    const auto folder = [&](const char* name) { return dir.filePath(QString::fromLatin1(name)); };
    QDir().mkpath(folder("empty"));
    ASSERT_TRUE(writeFile(folder("dsstore/.DS_Store"), "x"));
    ASSERT_TRUE(writeFile(folder("icon/Icon\r"), "x"));
    ASSERT_TRUE(writeFile(folder("nested/.DS_Store"), "x"));
    QDir().mkpath(folder("nested/sub/deeper"));
    ASSERT_TRUE(writeFile(folder("nested/sub/Icon\r"), "x"));
    ASSERT_TRUE(writeFile(folder("file/sub/real"), "x"));
    ASSERT_TRUE(writeFile(folder("hidden/.secret"), "x"));
    QDir().mkpath(folder("linked"));
    ASSERT_EQ(::symlink("/", QFile::encodeName(folder("linked/root")).constData()), 0);

    EXPECT_TRUE(VLFileManager::isFolderEmpty(folder("empty")));
    EXPECT_TRUE(VLFileManager::isFolderEmpty(folder("dsstore")));
    EXPECT_TRUE(VLFileManager::isFolderEmpty(folder("icon")));
    EXPECT_TRUE(VLFileManager::isFolderEmpty(folder("nested")));
    EXPECT_TRUE(VLFileManager::isFolderEmpty(folder("missing"))); // unreadable counts as empty
    EXPECT_FALSE(VLFileManager::isFolderEmpty(folder("file")));
    EXPECT_FALSE(VLFileManager::isFolderEmpty(folder("hidden")));
    EXPECT_FALSE(VLFileManager::isFolderEmpty(folder("linked"))); // a link is an entry, not a folder
}

TEST(VLFileManagerQueries, ValidateFilename)
{
    const struct {
        const char* in;
        bool slashes;
        const char* out;
    } cases[] = {
        {".", true, ""},
        {".hidden", true, "hidden"},
        {"..twice", true, ".twice"},
        {"  name \n", true, "name"},
        {"a/b:c", true, "abc"},
        {"a/b:c", false, "a/bc"},
        {" .x", true, ".x"}, // the leading dot is looked at before trimming
    };
    for (const auto& c : cases)
        EXPECT_EQ(VLFileManager::validateFilename(QString::fromUtf8(c.in), c.slashes), QString::fromUtf8(c.out)) << c.in;
}

} // namespace

namespace {

TEST(VLFileManagerQueries, DatesTypesAndWriters)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("file.pdf"));
    ASSERT_TRUE(writeFile(path, "x"));
    for (const QDateTime& when : {QDateTime::fromMSecsSinceEpoch(1700000000123), QDateTime::fromMSecsSinceEpoch(-1500)}) {
        ASSERT_TRUE(VLFileManager::setModificationDate(when, path));
        EXPECT_EQ(VLFileManager::modificationDateForFile(path), when);
    }
    EXPECT_FALSE(VLFileManager::modificationDateForFile(dir.filePath(QStringLiteral("missing"))).has_value());

    EXPECT_EQ(VLFileManager::mimeTypeForFileAtPath(path), QStringLiteral("application/pdf"));
    EXPECT_EQ(VLFileManager::mimeTypeForFileExtension(QStringLiteral("no-such-extension")), QStringLiteral("application/octet-stream"));
    EXPECT_EQ(VLFileManager::mimeTypeForFileExtension(QString()), QStringLiteral("application/octet-stream"));

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
