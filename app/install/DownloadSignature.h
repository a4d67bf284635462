#pragma once
// The download's signature test, run by the installers right where the checksum is tested and
// before anything is mounted, closed or moved. It applies only when both sides are there: the
// record's "edSignature" (from the feed) and the public key the installed application itself
// carries (SUPublicEDKey in its Info.plist; the trust anchor, never a key from the feed). When
// either is missing or empty, nothing is checked and nothing is logged, exactly as before
// signatures existed. Stateless; any thread (interface work goes to the main thread, waiting).

#include "AppController.h"

#include <QString>
#include <QVariant>

namespace install {

// SUPublicEDKey of the bundle at `bundlePath`, read from disk now; an invalid QVariant when
// the bundle, its Info.plist or the key is missing.
[[nodiscard]] QVariant publicKeyOfBundle(const QString& bundlePath);

// false when the installation must stop: a key or signature that is not well formed, a file
// that cannot be read, or a signature that is not the key's signature of the whole file. The
// cause is logged; the refusal is logged, printed and told to the user as a checksum mismatch
// is (task error, or a sheet on the install panel). The file is left where it is.
[[nodiscard]] bool verifyDownloadSignature(AppController& c, const UpdateRecord& record, const QString& file,
                                           const QVariant& publicKey);

} // namespace install
