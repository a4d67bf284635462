#pragma once
// Digest helpers shared by the hashing and copying sources of VLFileManager; internal.
// Pure functions over OpenSSL EVP state, safe on any thread.

#include <QString>

#include <openssl/evp.h>

#include <memory>

namespace vlfm {

using DigestContext = std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)>;

// Lower-case hex, two digits a byte, no separators.
QString hexDigest(const unsigned char* bytes, unsigned length);
// Finishes the running digest; "" when the state is missing or cannot be finished.
QString finishDigest(EVP_MD_CTX* context);
// The digest of a verification type 1-4; nullptr for 0 and any other value (no verification).
const EVP_MD* digestForVerification(unsigned type);
// A context initialised for `md`; empty when OpenSSL cannot allocate it.
DigestContext newDigest(const EVP_MD* md);

} // namespace vlfm
