#pragma once
// VLSignature: Ed25519 signatures of downloaded files, as applications publish them: a
// 32-byte public key and 64-byte signatures, each written in base64.
//
// Decoding is strict: only canonical base64 (standard alphabet, "=" padding, no blanks, no
// line breaks, unused bits zero) of exactly the expected number of bytes is accepted;
// anything else is malformed, never guessed into shape. Verification is OpenSSL's pure
// Ed25519 (RFC 8032) over the whole message, which needs the message in one piece: a file is
// mapped read-only into memory rather than copied, so verifying costs address space the size
// of the file and the page-cache pages it touches, but no heap.
//
// Stateless; every member may be called from any thread.

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <optional>

class VLSignature {
public:
    enum class Verdict {
        Valid,               // the signature is the key's signature of the message
        BadSignature,        // well formed, but not a signature of this message by this key
        MalformedSignature,  // not 64 bytes of canonical base64
        MalformedKey,        // not 32 bytes of canonical base64
        UnreadableFile,      // the file could not be opened or mapped
    };

    static constexpr qsizetype kPublicKeyLength = 32;
    static constexpr qsizetype kSignatureLength = 64;

    VLSignature() = delete;

    // The bytes `text` encodes, when it is canonical base64 of exactly `length` bytes.
    [[nodiscard]] static std::optional<QByteArray> decodeBase64(const QString& text, qsizetype length);

    // The key is checked first: a malformed key is reported whatever the signature holds.
    [[nodiscard]] static Verdict verifyEd25519(QByteArrayView message, const QString& signatureBase64,
                                               const QString& publicKeyBase64);

    // The same over the contents of the file at `path` (an empty file is the empty message).
    // The file must not be truncated by someone else while it is mapped: callers verify files
    // in a folder only this process's user may write to.
    [[nodiscard]] static Verdict verifyEd25519ForFile(const QString& path, const QString& signatureBase64,
                                                      const QString& publicKeyBase64);

private:
    // nullopt when both decode (into `signature` and `key`); otherwise the malformed verdict.
    static std::optional<Verdict> decodeBoth(const QString& signatureBase64, const QString& publicKeyBase64,
                                             QByteArray& signature, QByteArray& key);
};
