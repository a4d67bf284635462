// Whole-file digests: known values, failures, and the 50 MiB delegate step.
#include "shared/VLFileManager.h"

#include <gtest/gtest.h>

#include <QCryptographicHash>
#include <QFile>
#include <QTemporaryDir>

#include <atomic>

#include <unistd.h>

namespace {

QString makeFile(const QTemporaryDir& dir, const char* name, const QByteArray& data)
{
    const QString path = dir.filePath(QString::fromLatin1(name));
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly) || f.write(data) != data.size())
        return QString();
    return path;
}

// A sparse file of `size` bytes: no disk space, read back as zeros.
QString makeSparse(const QTemporaryDir& dir, const char* name, qint64 size)
{
    const QString path = dir.filePath(QString::fromLatin1(name));
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly) || ::ftruncate(f.handle(), size) != 0)
        return QString();
    return path;
}

TEST(VLFileManagerHashing, DigestsMatchPublishedValues)
{
    QTemporaryDir dir;
    const QString abc = makeFile(dir, "abc", "abc");
    EXPECT_EQ(VLFileManager::md5HashForFile(abc), QStringLiteral("900150983cd24fb0d6963f7d28e17f72"));
    EXPECT_EQ(VLFileManager::sha1HashForFile(abc), QStringLiteral("a9993e364706816aba3e25717850c26c9cd0d89d"));
    EXPECT_EQ(VLFileManager::sha512HashForFile(abc),
              QStringLiteral("ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a"
                             "2192992a274fc1a836ba3c23a3feebbd454d4423643ce80e2a9ac94fa54ca49f"));

    // Several chunks with a short tail, against an independent implementation.
    QByteArray data;
    for (int i = 0; i < 3 * 65536 + 123; ++i)
        data.append(char(i * 7 + (i >> 9)));
    const QString big = makeFile(dir, "big", data);
    EXPECT_EQ(VLFileManager::sha1HashForFile(big),
              QString::fromLatin1(QCryptographicHash::hash(data, QCryptographicHash::Sha1).toHex()));
    EXPECT_EQ(VLFileManager::md5HashForFile(makeFile(dir, "empty", QByteArray())),
              QStringLiteral("d41d8cd98f00b204e9800998ecf8427e"));
}

TEST(VLFileManagerHashing, UnreadableOrMissingFilesGiveNothing)
{
    QTemporaryDir dir;
    EXPECT_FALSE(VLFileManager::sha1HashForFile(dir.filePath(QStringLiteral("missing"))).has_value());
    // A folder opens but cannot be read: the read error ends the hash without a result.
    EXPECT_FALSE(VLFileManager::sha1HashForFile(dir.path()).has_value());
}

struct AskCounter {
    std::atomic<int> asks{0};
    bool answer = true;
    VLFileManagerDelegate delegate()
    {
        VLFileManagerDelegate d;
        d.checksumShouldContinue = [this](const QString&) {
            ++asks;
            return answer;
        };
        return d;
    }
};

TEST(VLFileManagerHashing, DelegateIsAskedAtEveryFullFiftyMebibytes)
{
    QTemporaryDir dir;
    const struct {
        qint64 size;
        int asks;
    } cases[] = {{52428799, 0}, {52428800, 1}, {52428800 + 65536, 1}, {2 * 52428800, 2}};
    for (const auto& c : cases) {
        const QString path = makeSparse(dir, "sparse", c.size);
        ASSERT_FALSE(path.isEmpty());
        AskCounter counter;
        VLFileManagerDelegate delegate = counter.delegate();
        EXPECT_TRUE(VLFileManager::md5HashForFile(path, &delegate).has_value()) << c.size;
        EXPECT_EQ(counter.asks.load(), c.asks) << c.size;
    }
}

TEST(VLFileManagerHashing, DelegateCanStopALongHash)
{
    QTemporaryDir dir;
    const QString path = makeSparse(dir, "large", qint64(1) << 30);
    AskCounter counter;
    counter.answer = false;
    VLFileManagerDelegate delegate = counter.delegate();
    EXPECT_FALSE(VLFileManager::sha1HashForFile(path, &delegate).has_value());
    // The stop lands a few chunks after the first answer, long before the second question.
    EXPECT_EQ(counter.asks.load(), 1);
}

} // namespace
