#include "shared/VLSignature.h"

#include <QFile>

#include <openssl/evp.h>

#include <memory>

namespace {

using KeyHandle = std::unique_ptr<EVP_PKEY, void (*)(EVP_PKEY*)>;
using VerifyContext = std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)>;

// Both halves already decoded to their exact lengths.
bool ed25519Verifies(QByteArrayView message, const QByteArray& signature, const QByteArray& publicKey)
{
    KeyHandle key(EVP_PKEY_new_raw_public_key(EVP_PKEY_ED25519, nullptr,
                                              reinterpret_cast<const unsigned char*>(publicKey.constData()),
                                              size_t(publicKey.size())),
                  &EVP_PKEY_free);
    VerifyContext context(EVP_MD_CTX_new(), &EVP_MD_CTX_free);
    if (!key || !context)
        return false;
    // Ed25519 takes no separate digest: the digest argument stays null.
    if (EVP_DigestVerifyInit(context.get(), nullptr, nullptr, nullptr, key.get()) != 1)
        return false;
    // OpenSSL reads nothing through a null pointer when the length is 0, but wants a pointer.
    static const unsigned char kEmpty = 0;
    const auto* bytes = message.isEmpty() ? &kEmpty : reinterpret_cast<const unsigned char*>(message.data());
    return EVP_DigestVerify(context.get(), reinterpret_cast<const unsigned char*>(signature.constData()),
                            size_t(signature.size()), bytes, size_t(message.size())) == 1;
}

} // namespace

std::optional<QByteArray> VLSignature::decodeBase64(const QString& text, qsizetype length)
{
    if (length < 0 || text.size() != (length + 2) / 3 * 4)
        return std::nullopt;
    const QByteArray latin = text.toLatin1();
    // Re-encoding what was decoded gives the input back only when the input was canonical:
    // this refuses foreign characters, misplaced or missing padding and stray low bits alike.
    const QByteArray::FromBase64Result decoded =
        QByteArray::fromBase64Encoding(latin, QByteArray::Base64Encoding | QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded || decoded.decoded.size() != length || decoded.decoded.toBase64() != latin)
        return std::nullopt;
    return decoded.decoded;
}

VLSignature::Verdict VLSignature::verifyEd25519(QByteArrayView message, const QString& signatureBase64,
                                                const QString& publicKeyBase64)
{
    QByteArray signature;
    QByteArray key;
    if (const std::optional<Verdict> malformed = decodeBoth(signatureBase64, publicKeyBase64, signature, key))
        return *malformed;
    return ed25519Verifies(message, signature, key) ? Verdict::Valid : Verdict::BadSignature;
}

VLSignature::Verdict VLSignature::verifyEd25519ForFile(const QString& path, const QString& signatureBase64,
                                                       const QString& publicKeyBase64)
{
    QByteArray signature;
    QByteArray key;
    if (const std::optional<Verdict> malformed = decodeBoth(signatureBase64, publicKeyBase64, signature, key))
        return *malformed;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return Verdict::UnreadableFile;
    const qint64 size = file.size();
    if (size == 0)
        return ed25519Verifies(QByteArrayView(), signature, key) ? Verdict::Valid : Verdict::BadSignature;
    // Mapped, not read: an installer image of gigabytes never lands on the heap.
    uchar* mapped = file.map(0, size);
    if (!mapped)
        return Verdict::UnreadableFile;
    const bool valid = ed25519Verifies(QByteArrayView(reinterpret_cast<const char*>(mapped), size), signature, key);
    file.unmap(mapped);
    return valid ? Verdict::Valid : Verdict::BadSignature;
}

// The key is decoded first, so a malformed key is named whatever the signature holds.
std::optional<VLSignature::Verdict> VLSignature::decodeBoth(const QString& signatureBase64, const QString& publicKeyBase64,
                                                            QByteArray& signature, QByteArray& key)
{
    const std::optional<QByteArray> decodedKey = decodeBase64(publicKeyBase64, kPublicKeyLength);
    if (!decodedKey)
        return Verdict::MalformedKey;
    const std::optional<QByteArray> decodedSignature = decodeBase64(signatureBase64, kSignatureLength);
    if (!decodedSignature)
        return Verdict::MalformedSignature;
    key = *decodedKey;
    signature = *decodedSignature;
    return std::nullopt;
}
