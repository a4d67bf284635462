// Whole-file digests: known values, failures, and the 50 MiB delegate step.
#include "VLFileManagerTestSupport.h"

#include "shared/VLFileManager.h"

#include <QCryptographicHash>
#include <QTemporaryDir>

#include <atomic>

namespace {

using vltest::makeFile;

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

} // namespace
