#pragma once
// A fresh Ed25519 key pair for tests, made with OpenSSL when the object is made, with the
// public key and signatures in base64 as applications and feeds carry them. Signing goes
// through OpenSSL's own signing call, not through anything the product uses to verify.
// Owns its key; not copyable; one thread at a time.

#include <QByteArray>
#include <QString>

#include <openssl/evp.h>

#include <memory>

namespace vltest {

class Ed25519KeyPair {
public:
    bool isValid() const { return key_ != nullptr; }
    QByteArray publicKey() const // the 32 raw bytes
    {
        QByteArray raw(32, '\0');
        size_t length = size_t(raw.size());
        if (!key_ || EVP_PKEY_get_raw_public_key(key_.get(), reinterpret_cast<unsigned char*>(raw.data()), &length) != 1)
            return QByteArray();
        return raw.left(qsizetype(length));
    }
    QString publicKeyBase64() const { return QString::fromLatin1(publicKey().toBase64()); }
    QByteArray sign(const QByteArray& message) const // the 64 raw bytes; empty on failure
    {
        const std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)> context(EVP_MD_CTX_new(), &EVP_MD_CTX_free);
        QByteArray signature(64, '\0');
        size_t length = size_t(signature.size());
        if (!key_ || !context || EVP_DigestSignInit(context.get(), nullptr, nullptr, nullptr, key_.get()) != 1
            || EVP_DigestSign(context.get(), reinterpret_cast<unsigned char*>(signature.data()), &length,
                              reinterpret_cast<const unsigned char*>(message.constData()), size_t(message.size())) != 1)
            return QByteArray();
        return signature.left(qsizetype(length));
    }
    QString signBase64(const QByteArray& message) const { return QString::fromLatin1(sign(message).toBase64()); }

private:
    const std::unique_ptr<EVP_PKEY, void (*)(EVP_PKEY*)> key_{EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519"), &EVP_PKEY_free};
};

} // namespace vltest
