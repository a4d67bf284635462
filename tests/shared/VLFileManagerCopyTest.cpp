// The verified multi-destination copy and the joining of files.
#include "VLFileManagerTestSupport.h"

#include "shared/VLFileManager.h"

#include <QCryptographicHash>
#include <QDir>
#include <QTemporaryDir>

#include <mutex>

#include <sys/mount.h>
#include <sys/stat.h>

namespace {

using vltest::makeFile;
using vltest::pattern;
using vltest::Sandbox;

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
