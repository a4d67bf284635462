// Whole-file digests in 65536-byte chunks, with the optional delegate that may stop a long run.
#include "shared/VLFileManager.h"
#include "shared/VLFileManagerHashing.h"
#include "shared/VLFileManagerInternal.h"
#include "shared/VLLog.h"

#include <QFile>

#include <openssl/evp.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <memory>

namespace vlfm {

QString hexDigest(const unsigned char* bytes, unsigned length)
{
    static const char kHex[] = "0123456789abcdef";
    QString text;
    text.reserve(int(length) * 2);
    for (unsigned i = 0; i < length; ++i) {
        text.append(QLatin1Char(kHex[bytes[i] >> 4]));
        text.append(QLatin1Char(kHex[bytes[i] & 0x0f]));
    }
    return text;
}

QString finishDigest(EVP_MD_CTX* context)
{
    if (!context)
        return QString();
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned length = 0;
    if (EVP_DigestFinal_ex(context, digest, &length) != 1)
        return QString();
    return hexDigest(digest, length);
}

const EVP_MD* digestForVerification(unsigned type)
{
    switch (type) {
    case VLFileManager::VerifyMD5: return EVP_md5();
    case VLFileManager::VerifySHA1: return EVP_sha1();
    case VLFileManager::VerifySHA256: return EVP_sha256();
    case VLFileManager::VerifySHA512: return EVP_sha512();
    default: return nullptr;
    }
}

DigestContext newDigest(const EVP_MD* md)
{
    DigestContext context(EVP_MD_CTX_new(), &EVP_MD_CTX_free);
    if (context && EVP_DigestInit_ex(context.get(), md, nullptr) != 1)
        context.reset();
    return context;
}

} // namespace vlfm

namespace {

using FileHandle = std::unique_ptr<FILE, int (*)(FILE*)>;

constexpr size_t kChunk = 65536;
constexpr quint64 kDelegateStep = 52428800; // 50 MiB

std::optional<QString> hashFile(const QString& path, const EVP_MD* md, VLFileManagerDelegate* delegate)
{
    FileHandle file(std::fopen(QFile::encodeName(path).constData(), "rb"), &std::fclose);
    if (!file) {
        vlfm::console(QStringLiteral("Error: Unable to open destination file %@. Aborting hash verification..."), path);
        return std::nullopt;
    }
    std::unique_ptr<unsigned char[]> buffer(new (std::nothrow) unsigned char[kChunk]);
    vlfm::DigestContext context = vlfm::newDigest(md);
    if (!buffer || !context) {
        VLLog::appendLogAndPrint(QStringLiteral("Error reading file %@ - out of memory"), path);
        return std::nullopt;
    }
    const bool asks = delegate && delegate->checksumShouldContinue;
    auto stop = std::make_shared<std::atomic<bool>>(false);
    vlfm::DelegateQueue queue;
    quint64 total = 0;
    bool readError = false;
    bool stopped = false;
    for (;;) {
        const size_t got = std::fread(buffer.get(), 1, kChunk, file.get());
        if (got > 0) {
            EVP_DigestUpdate(context.get(), buffer.get(), got);
            total += got;
            if (asks && total % kDelegateStep == 0) {
                auto ask = delegate->checksumShouldContinue;
                queue.post([ask, path, stop] {
                    if (!ask(path))
                        stop->store(true);
                });
            }
        }
        if (got < kChunk) {
            readError = std::ferror(file.get()) != 0;
            break;
        }
        if (stop->load()) {
            stopped = true;
            break;
        }
    }
    queue.drain();
    if (readError) {
        VLLog::appendLogAndPrint(QStringLiteral("Error reading file %@ - aborting..."), path);
        return std::nullopt;
    }
    if (stopped)
        return std::nullopt;
    return vlfm::finishDigest(context.get());
}

} // namespace

std::optional<QString> VLFileManager::md5HashForFile(const QString& path, VLFileManagerDelegate* delegate)
{
    return hashFile(path, EVP_md5(), delegate);
}

std::optional<QString> VLFileManager::sha1HashForFile(const QString& path, VLFileManagerDelegate* delegate)
{
    return hashFile(path, EVP_sha1(), delegate);
}

std::optional<QString> VLFileManager::sha512HashForFile(const QString& path, VLFileManagerDelegate* delegate)
{
    return hashFile(path, EVP_sha512(), delegate);
}

QString VLFileManager::md5HashWithContext(EVP_MD_CTX* context) { return vlfm::finishDigest(context); }
QString VLFileManager::sha1HashWithContext(EVP_MD_CTX* context) { return vlfm::finishDigest(context); }
QString VLFileManager::sha256HashWithContext(EVP_MD_CTX* context) { return vlfm::finishDigest(context); }
QString VLFileManager::sha512HashWithContext(EVP_MD_CTX* context) { return vlfm::finishDigest(context); }
