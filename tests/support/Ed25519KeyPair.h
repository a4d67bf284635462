#pragma once
// A fresh Ed25519 key pair for tests, made with OpenSSL when the object is made, with the
// public key and signatures in base64 as applications and feeds carry them. Signing goes
// through OpenSSL's own signing call, not through anything the product uses to verify.
// Owns its key; not copyable; one thread at a time.

#include <QByteArray>
#include <QString>

#include <memory>

namespace vltest {

class Ed25519KeyPair {
public:
    Ed25519KeyPair();
    ~Ed25519KeyPair();
    Ed25519KeyPair(const Ed25519KeyPair&) = delete;
    Ed25519KeyPair& operator=(const Ed25519KeyPair&) = delete;

    bool isValid() const;
    QByteArray publicKey() const;  // the 32 raw bytes
    QString publicKeyBase64() const;
    QByteArray sign(const QByteArray& message) const;  // the 64 raw bytes; empty on failure
    QString signBase64(const QByteArray& message) const;

private:
    struct Key;
    std::unique_ptr<Key> key_;
};

} // namespace vltest
