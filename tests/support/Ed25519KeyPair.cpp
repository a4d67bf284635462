#include "support/Ed25519KeyPair.h"

#include <openssl/evp.h>

namespace vltest {

struct Ed25519KeyPair::Key {
    EVP_PKEY* pkey = nullptr;
    ~Key() { EVP_PKEY_free(pkey); }
};

Ed25519KeyPair::Ed25519KeyPair() : key_(std::make_unique<Key>())
{
    key_->pkey = EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519");
}

Ed25519KeyPair::~Ed25519KeyPair() = default;

bool Ed25519KeyPair::isValid() const
{
    return key_->pkey != nullptr;
}

QByteArray Ed25519KeyPair::publicKey() const
{
    QByteArray raw(32, '\0');
    size_t length = size_t(raw.size());
    if (!key_->pkey || EVP_PKEY_get_raw_public_key(key_->pkey, reinterpret_cast<unsigned char*>(raw.data()), &length) != 1)
        return QByteArray();
    raw.truncate(qsizetype(length));
    return raw;
}

QString Ed25519KeyPair::publicKeyBase64() const
{
    return QString::fromLatin1(publicKey().toBase64());
}

QByteArray Ed25519KeyPair::sign(const QByteArray& message) const
{
    std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)> context(EVP_MD_CTX_new(), &EVP_MD_CTX_free);
    if (!key_->pkey || !context || EVP_DigestSignInit(context.get(), nullptr, nullptr, nullptr, key_->pkey) != 1)
        return QByteArray();
    QByteArray signature(64, '\0');
    size_t length = size_t(signature.size());
    if (EVP_DigestSign(context.get(), reinterpret_cast<unsigned char*>(signature.data()), &length,
                       reinterpret_cast<const unsigned char*>(message.constData()), size_t(message.size())) != 1)
        return QByteArray();
    signature.truncate(qsizetype(length));
    return signature;
}

QString Ed25519KeyPair::signBase64(const QByteArray& message) const
{
    return QString::fromLatin1(sign(message).toBase64());
}

} // namespace vltest
