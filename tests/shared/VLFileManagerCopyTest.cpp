// The verified multi-destination copy and the joining of files.
#include "shared/VLFileManager.h"

#include <gtest/gtest.h>

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <atomic>
#include <mutex>

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

QString makeFile(const QString& path, const QByteArray& data)
{
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly) || f.write(data) != data.size())
        return QString();
    return path;
}

QByteArray readFile(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

QByteArray pattern(int size)
{
    QByteArray data(size, Qt::Uninitialized);
    for (int i = 0; i < size; ++i)
        data[i] = char((i * 31) ^ (i >> 11));
    return data;
}

// Records every delegate message; safe on the background queue.
struct Recorder {
    std::mutex mutex;
    QList<quint64> written;
    QStringList failedFiles;
    QVariantMap finalSettings;
    int finished = 0;
    bool keepGoing = true;

    VLFileManagerDelegate delegate()
    {
        VLFileManagerDelegate d;
        d.fileCopyBytesWritten = [this](quint64 bytes, const QVariantMap&) {
            std::lock_guard<std::mutex> lock(mutex);
            written.append(bytes);
        };
        d.fileCopyShouldContinue = [this](const QVariantMap&) { return keepGoing; };
        d.fileCopyVerificationFailed = [this](const QVariantMap& settings, const QString& file) {
            failedFiles.append(file + QLatin1Char('=') + settings.value(QStringLiteral("destChecksum")).toString());
        };
        d.fileCopyFinished = [this](const QVariantMap& settings) {
            ++finished;
            finalSettings = settings;
        };
        return d;
    }
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
    VLFileManagerDelegate delegate = recorder.delegate();
    ASSERT_TRUE(VLFileManager::copyFileWithProgress(source, {first, second}, VLFileManager::VerifySHA256, &delegate,
                                                    QStringLiteral("context"), QVariant()));
    EXPECT_EQ(readFile(first), data);
    EXPECT_EQ(readFile(second), data);
    const QString expected = QString::fromLatin1(QCryptographicHash::hash(data, QCryptographicHash::Sha256).toHex());
    const QVariantMap& settings = recorder.finalSettings;
    EXPECT_EQ(settings.value(QStringLiteral("sourceChecksum")).toString(), expected);
    EXPECT_EQ(settings.value(QStringLiteral("destChecksums")).toList(), (QVariantList{expected, expected}));
    EXPECT_EQ(settings.value(QStringLiteral("object")).toString(), QStringLiteral("context"));
    EXPECT_FALSE(settings.contains(QStringLiteral("object2")));
    EXPECT_EQ(settings.value(QStringLiteral("destinations")).toStringList(), (QStringList{first, second}));
    EXPECT_EQ(settings.value(QStringLiteral("delegate")).value<VLFileManagerDelegate*>(), &delegate);
    EXPECT_TRUE(recorder.failedFiles.isEmpty());
    EXPECT_EQ(recorder.finished, 1);
    // Small files report progress once, at the end.
    EXPECT_EQ(recorder.written, QList<quint64>{quint64(data.size())});
    // Times and permissions travel with the copy.
    EXPECT_EQ(QFileInfo(second).lastModified(), QFileInfo(source).lastModified());
    EXPECT_EQ(QFileInfo(second).permissions(), QFileInfo(source).permissions());
}

TEST(VLFileManagerCopy, NoChecksumKeysWithoutVerification)
{
    QTemporaryDir dir;
    const QString source = makeFile(dir.filePath(QStringLiteral("s")), "data");
    for (unsigned type : {0u, 5u}) {
        Recorder recorder;
        VLFileManagerDelegate delegate = recorder.delegate();
        ASSERT_TRUE(VLFileManager::copyFileWithProgress(source, {dir.filePath(QStringLiteral("d"))}, type, &delegate,
                                                        QVariant(), QVariant()));
        for (const char* key : {"sourceChecksum", "destChecksums", "destChecksum"})
            EXPECT_FALSE(recorder.finalSettings.contains(QString::fromLatin1(key))) << type << key;
    }
}

TEST(VLFileManagerCopy, ProgressIntervalIsAtLeastTwentyMebibytes)
{
    QTemporaryDir dir;
    const QString source = dir.filePath(QStringLiteral("sparse"));
    {
        QFile f(source);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        ASSERT_EQ(::ftruncate(f.handle(), 60 * 1048576), 0);
    }
    Recorder recorder;
    VLFileManagerDelegate delegate = recorder.delegate();
    ASSERT_TRUE(VLFileManager::copyFileWithProgress(source, dir.filePath(QStringLiteral("copy")), &delegate, QVariant()));
    // 60 MiB / 500 is below 20 MiB: reports at 20, 40 and 60 MiB, then the final one.
    const quint64 mib = 1048576;
    EXPECT_EQ(recorder.written, (QList<quint64>{20 * mib, 40 * mib, 60 * mib, 60 * mib}));
}

TEST(VLFileManagerCopy, StopLeavesPartialDestinationAndFails)
{
    QTemporaryDir dir;
    const QString source = dir.filePath(QStringLiteral("sparse"));
    {
        QFile f(source);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        ASSERT_EQ(::ftruncate(f.handle(), 200 * 1048576), 0);
    }
    Recorder recorder;
    recorder.keepGoing = false;
    VLFileManagerDelegate delegate = recorder.delegate();
    const QString copy = dir.filePath(QStringLiteral("copy"));
    EXPECT_FALSE(VLFileManager::copyFileWithProgress(source, copy, &delegate, QVariant()));
    EXPECT_TRUE(QFileInfo::exists(copy));
    EXPECT_LT(QFileInfo(copy).size(), 200 * 1048576);
    EXPECT_EQ(recorder.finished, 0);
}

TEST(VLFileManagerCopy, RefusalsAndShrinkingSource)
{
    QTemporaryDir dir;
    const QString source = makeFile(dir.filePath(QStringLiteral("s")), pattern(1000));
    EXPECT_FALSE(VLFileManager::copyFileWithProgress(dir.filePath(QStringLiteral("missing")), {dir.filePath(QStringLiteral("d"))},
                                                     0, nullptr, QVariant(), QVariant()));
    EXPECT_FALSE(VLFileManager::copyFileWithProgress(source, QStringList{}, 0, nullptr, QVariant(), QVariant()));
    // A folder as source opens but cannot be read.
    EXPECT_FALSE(VLFileManager::copyFileWithProgress(dir.path(), dir.filePath(QStringLiteral("d")), nullptr, QVariant()));
    // The destination is the source under another name: opening it truncates the source, so
    // fewer bytes arrive than the source had when the copy began.
    const QString alias = dir.filePath(QStringLiteral("alias"));
    ASSERT_EQ(::link(QFile::encodeName(source).constData(), QFile::encodeName(alias).constData()), 0);
    EXPECT_FALSE(VLFileManager::copyFileWithProgress(source, alias, nullptr, QVariant()));
}

TEST(VLFileManagerCopy, VerificationFailureIsReportedButCopySucceeds)
{
    QTemporaryDir dir;
    const QByteArray data = pattern(1000);
    const QString source = makeFile(dir.filePath(QStringLiteral("s")), data);
    const QString good = dir.filePath(QStringLiteral("good"));
    // A pipe takes the bytes but cannot be read back at the same position.
    const QString fifo = dir.filePath(QStringLiteral("fifo"));
    ASSERT_EQ(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    Recorder recorder;
    VLFileManagerDelegate delegate = recorder.delegate();
    EXPECT_TRUE(VLFileManager::copyFileWithProgress(source, {good, fifo}, VLFileManager::VerifyMD5, &delegate, QVariant(),
                                                    QVariant()));
    const QString emptyMd5 = QStringLiteral("d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(recorder.failedFiles, QStringList{fifo + QLatin1Char('=') + emptyMd5});
    EXPECT_EQ(readFile(good), data);
    EXPECT_EQ(recorder.finished, 1);
}

TEST(VLFileManagerCopy, FullDestinationFileSystemFailsVerification)
{
    QTemporaryDir dir;
    const QString mountPoint = dir.filePath(QStringLiteral("small"));
    QDir().mkpath(mountPoint);
    if (::mount("tmpfs", QFile::encodeName(mountPoint).constData(), "tmpfs", 0, "size=1m") != 0)
        GTEST_SKIP() << "mounting a small tmpfs is not permitted here: " << strerror(errno);
    const QString source = makeFile(dir.filePath(QStringLiteral("s")), pattern(3 * 1048576));
    Recorder recorder;
    VLFileManagerDelegate delegate = recorder.delegate();
    const QString copy = mountPoint + QStringLiteral("/copy");
    // Short writes are logged and the copy goes on; only the read-back shows the damage.
    EXPECT_TRUE(VLFileManager::copyFileWithProgress(source, {copy}, VLFileManager::VerifySHA1, &delegate, QVariant(),
                                                    QVariant()));
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
    EXPECT_EQ(readFile(joined), pattern(70000) + "tail");
    EXPECT_FALSE(QFileInfo::exists(a));
    EXPECT_FALSE(QFileInfo::exists(b));

    // One part is moved over the destination even though deletion was not asked for.
    const QString single = makeFile(dir.filePath(QStringLiteral("single")), "only");
    ASSERT_TRUE(VLFileManager::combineFiles({single}, joined, false));
    EXPECT_EQ(readFile(joined), QByteArray("only"));
    EXPECT_FALSE(QFileInfo::exists(single));

    EXPECT_FALSE(VLFileManager::combineFiles({}, joined, false));
    EXPECT_FALSE(VLFileManager::combineFiles({joined}, QString(), false));
    EXPECT_FALSE(VLFileManager::combineFiles({joined, dir.filePath(QStringLiteral("gone"))}, joined + QStringLiteral("2"), false));
    EXPECT_FALSE(QFileInfo::exists(joined + QStringLiteral("2")));
}

} // namespace
