// VLFileManager without system tools: whole-file digests and the 50 MiB delegate step; sizes,
// unique names, wildcard paths, empty folders, file-name cleaning, dates and writers; the verified
// multi-destination copy and the joining of files. The escalation ladder and the operations that
// run system tools are VLFileManagerLadderTest's.
#include "VLFileManagerTestSupport.h"

#include "shared/VLFileManager.h"

#include <QCryptographicHash>
#include <QDir>
#include <QTemporaryDir>

#include <atomic>
#include <mutex>

#include <sys/mount.h>
#include <sys/stat.h>

namespace {

using vltest::makeFile;
using vltest::pattern;
using vltest::Sandbox;

TEST(VLFileManagerHashing, DigestsMatchPublishedValuesAndFailuresGiveNothing)
{
    QTemporaryDir dir;
    const QString abc = makeFile(dir.filePath(QStringLiteral("abc")), "abc");
    EXPECT_EQ(VLFileManager::md5HashForFile(abc), QStringLiteral("900150983cd24fb0d6963f7d28e17f72"));
    EXPECT_EQ(VLFileManager::sha1HashForFile(abc), QStringLiteral("a9993e364706816aba3e25717850c26c9cd0d89d"));
    EXPECT_EQ(VLFileManager::sha512HashForFile(abc).value_or(QString()).left(16), QStringLiteral("ddaf35a193617aba"));
    // Several chunks with a short tail, against an independent implementation.
    const QByteArray data = vltest::pattern(3 * 65536 + 123);
    EXPECT_EQ(VLFileManager::sha1HashForFile(makeFile(dir.filePath(QStringLiteral("big")), data)),
              QString::fromLatin1(QCryptographicHash::hash(data, QCryptographicHash::Sha1).toHex()));
    EXPECT_FALSE(VLFileManager::sha1HashForFile(dir.filePath(QStringLiteral("missing"))).has_value());
    // A folder opens but cannot be read: the read error ends the hash without a result.
    EXPECT_FALSE(VLFileManager::sha1HashForFile(dir.path()).has_value());
}

TEST(VLFileManagerHashing, DelegateIsAskedAtEveryFullFiftyMebibytesAndCanStop)
{
    QTemporaryDir dir;
    std::atomic<int> asks{0};
    bool answer = true;
    VLFileManagerDelegate delegate;
    delegate.checksumShouldContinue = [&](const QString&) {
        ++asks;
        return answer;
    };
    const std::pair<qint64, int> cases[] = {{52428799, 0}, {52428800, 1}, {2 * 52428800 + 65536, 2}};
    for (const auto& [size, expected] : cases) {
        asks = 0;
        EXPECT_TRUE(VLFileManager::md5HashForFile(makeFile(dir.filePath(QStringLiteral("sparse")), {}, size), &delegate).has_value()) << size;
        EXPECT_EQ(asks.load(), expected) << size;
    }
    // The stop lands a few chunks after the first answer, long before the second question.
    answer = false;
    asks = 0;
    EXPECT_FALSE(VLFileManager::sha1HashForFile(makeFile(dir.filePath(QStringLiteral("large")), {}, qint64(1) << 30), &delegate).has_value());
    EXPECT_EQ(asks.load(), 1);
}

bool writeFile(const QString& path, const QByteArray& data = "x") { return Sandbox::writeFile(path, data); }

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

// Records every delegate message; safe on the background queue.
struct Recorder {
    std::mutex mutex;
    QList<quint64> written;
    QStringList failedFiles;
    QVariantMap finalSettings;
    int finished = 0;
    bool keepGoing = true;
    VLFileManagerDelegate delegate{
        .fileCopyBytesWritten =
            [this](quint64 bytes, const QVariantMap&) {
                const std::lock_guard lock(mutex);
                written.append(bytes);
            },
        .fileCopyShouldContinue = [this](const QVariantMap&) { return keepGoing; },
        .fileCopyVerificationFailed =
            [this](const QVariantMap& settings, const QString& file) {
                const std::lock_guard lock(mutex);
                failedFiles.append(file + QLatin1Char('=') + settings.value(QStringLiteral("destChecksum")).toString());
            },
        .fileCopyFinished =
            [this](const QVariantMap& settings) {
                ++finished;
                finalSettings = settings;
            },
    };
};

TEST(VLFileManagerCopy, VerifiedCopyToTwoDestinations)
{
    QTemporaryDir dir;
    const QByteArray data = pattern(3 * 65536 + 99);
    const QString source = makeFile(dir.filePath(QStringLiteral("source.bin")), data);
    ::chmod(QFile::encodeName(source).constData(), 0640);
    const QString first = dir.filePath(QStringLiteral("a/copy.bin"));
    const QString second = dir.filePath(QStringLiteral("b/c/copy.bin")); // parents are created
    Recorder recorder;
    ASSERT_TRUE(VLFileManager::copyFileWithProgress(source, {first, second}, VLFileManager::VerifySHA256, &recorder.delegate,
                                                    QStringLiteral("context"), QVariant()));
    EXPECT_EQ(Sandbox::readFile(first), data);
    EXPECT_EQ(Sandbox::readFile(second), data);
    const QString expected = QString::fromLatin1(QCryptographicHash::hash(data, QCryptographicHash::Sha256).toHex());
    const QVariantMap& settings = recorder.finalSettings;
    EXPECT_EQ(settings.value(QStringLiteral("destChecksums")).toList() << settings.value(QStringLiteral("sourceChecksum")),
              (QVariantList{expected, expected, expected}));
    EXPECT_TRUE(recorder.failedFiles.isEmpty());
    EXPECT_EQ(recorder.written, QList<quint64>{quint64(data.size())}); // small files report once, at the end
    // Times and permissions travel with the copy.
    EXPECT_EQ(QFileInfo(second).lastModified(), QFileInfo(source).lastModified());
    EXPECT_EQ(QFileInfo(second).permissions(), QFileInfo(source).permissions());
}

TEST(VLFileManagerCopy, ProgressEveryTwentyMebibytesAtLeastAndStopLeavesAPartialCopy)
{
    QTemporaryDir dir;
    const quint64 mib = 1048576;
    Recorder recorder;
    ASSERT_TRUE(VLFileManager::copyFileWithProgress(makeFile(dir.filePath(QStringLiteral("60")), {}, 60 * mib), dir.filePath(QStringLiteral("copy")),
                                                    &recorder.delegate, QVariant()));
    // 60 MiB / 500 is below 20 MiB: reports at 20, 40 and 60 MiB, then the final one.
    EXPECT_EQ(recorder.written, (QList<quint64>{20 * mib, 40 * mib, 60 * mib, 60 * mib}));

    Recorder stopping;
    stopping.keepGoing = false;
    const QString copy = dir.filePath(QStringLiteral("stopped"));
    EXPECT_FALSE(VLFileManager::copyFileWithProgress(makeFile(dir.filePath(QStringLiteral("200")), {}, 200 * mib), copy, &stopping.delegate, QVariant()));
    EXPECT_TRUE(QFileInfo::exists(copy));
    EXPECT_LT(QFileInfo(copy).size(), 200 * 1048576);
    EXPECT_EQ(stopping.finished, 0);
}

TEST(VLFileManagerCopy, RefusalsShrinkingSourcesAndDamagedDestinations)
{
    QTemporaryDir dir;
    const QByteArray data = pattern(1000);
    const QString source = makeFile(dir.filePath(QStringLiteral("s")), data);
    EXPECT_FALSE(VLFileManager::copyFileWithProgress(dir.filePath(QStringLiteral("missing")), dir.filePath(QStringLiteral("d")), nullptr, QVariant()));
    // The destination is the source under another name: opening it truncates the source, so
    // fewer bytes arrive than the source had when the copy began.
    const QString alias = dir.filePath(QStringLiteral("alias"));
    ASSERT_EQ(::link(QFile::encodeName(source).constData(), QFile::encodeName(alias).constData()), 0);
    EXPECT_FALSE(VLFileManager::copyFileWithProgress(source, alias, nullptr, QVariant()));

    // A pipe takes the bytes but cannot be read back: reported, yet the copy succeeds.
    makeFile(source, data);
    const QString fifo = dir.filePath(QStringLiteral("fifo"));
    ASSERT_EQ(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    Recorder recorder;
    EXPECT_TRUE(VLFileManager::copyFileWithProgress(source, {dir.filePath(QStringLiteral("good")), fifo}, VLFileManager::VerifyMD5,
                                                    &recorder.delegate, QVariant(), QVariant()));
    EXPECT_EQ(recorder.failedFiles, QStringList{fifo + QStringLiteral("=d41d8cd98f00b204e9800998ecf8427e")}); // the empty input's MD5
    EXPECT_EQ(Sandbox::readFile(dir.filePath(QStringLiteral("good"))), data);
}

TEST(VLFileManagerCopy, FullDestinationFileSystemFailsVerification)
{
    QTemporaryDir dir;
    const QString mountPoint = dir.filePath(QStringLiteral("small"));
    QDir().mkpath(mountPoint);
    if (::mount("tmpfs", QFile::encodeName(mountPoint).constData(), "tmpfs", 0, "size=1m") != 0)
        GTEST_SKIP() << "mounting a small tmpfs is not permitted here: " << strerror(errno);
    Recorder recorder;
    const QString copy = mountPoint + QStringLiteral("/copy");
    // Short writes are logged and the copy goes on; only the read-back shows the damage.
    EXPECT_TRUE(VLFileManager::copyFileWithProgress(makeFile(dir.filePath(QStringLiteral("s")), pattern(3 * 1048576)), {copy},
                                                    VLFileManager::VerifySHA1, &recorder.delegate, QVariant(), QVariant()));
    EXPECT_EQ(recorder.failedFiles.size(), 1);
    EXPECT_LT(QFileInfo(copy).size(), 3 * 1048576);
    ::umount(QFile::encodeName(mountPoint).constData());
}

TEST(VLFileManagerCombine, JoinsPartsInOrderAndMovesASinglePart)
{
    QTemporaryDir dir;
    const QString a = makeFile(dir.filePath(QStringLiteral("a")), pattern(70000));
    const QString b = makeFile(dir.filePath(QStringLiteral("b")), "tail");
    const QString joined = dir.filePath(QStringLiteral("joined"));
    ASSERT_TRUE(VLFileManager::combineFiles({a, b}, joined, true));
    EXPECT_EQ(Sandbox::readFile(joined), pattern(70000) + "tail");
    EXPECT_FALSE(QFileInfo::exists(a) || QFileInfo::exists(b));
    // One part is moved over the destination even though deletion was not asked for.
    const QString single = makeFile(dir.filePath(QStringLiteral("single")), "only");
    ASSERT_TRUE(VLFileManager::combineFiles({single}, joined, false));
    EXPECT_EQ(Sandbox::readFile(joined), QByteArray("only"));
    EXPECT_FALSE(QFileInfo::exists(single));
    EXPECT_FALSE(VLFileManager::combineFiles({joined, dir.filePath(QStringLiteral("gone"))}, joined + QStringLiteral("2"), false));
    EXPECT_FALSE(QFileInfo::exists(joined + QStringLiteral("2")));
}

} // namespace
