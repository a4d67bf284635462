#include "install/DownloadSignature.h"

#include "UpdateRecord.h"
#include "install/InstallSupport.h"
#include "platform/system/Bundle.h"
#include "shared/VLLog.h"
#include "shared/VLSignature.h"

namespace install {
namespace {

// A template's empty value says as little as no value at all.
bool isAbsent(const QVariant& value)
{
    return !value.isValid() || (value.typeId() == QMetaType::QString && value.toString().isEmpty());
}

// Anything but text can never decode, so it is judged malformed.
QString textOf(const QVariant& value)
{
    return value.typeId() == QMetaType::QString ? value.toString() : QString();
}

const QString kBadSignatureInfo =
    QStringLiteral("The downloaded file's signature is not valid, so the file may have been tampered with.");
const QString kBadKeyInfo =
    QStringLiteral("The installed application's public key is not valid, so this update cannot be verified.");

} // namespace

QVariant publicKeyOfBundle(const QString& bundlePath)
{
    const std::optional<sys::Bundle> bundle = sys::Bundle::readWithoutOpening(bundlePath);
    return bundle ? bundle->objectForInfoDictionaryKey(QStringLiteral("SUPublicEDKey")) : QVariant();
}

bool verifyDownloadSignature(AppController& c, const UpdateRecord& record, const QString& file, const QVariant& publicKey)
{
    const QVariant signature = record.value(record::kEdSignature);
    if (isAbsent(signature) || isAbsent(publicKey))
        return true;
    VLLog::appendLog(QStringLiteral("Verifying signature..."));
    switch (VLSignature::verifyEd25519ForFile(file, textOf(signature), textOf(publicKey))) {
    case VLSignature::Verdict::Valid:
        VLLog::appendLog(QStringLiteral("Signature verified."));
        return true;
    case VLSignature::Verdict::MalformedKey:
        VLLog::appendLog(QStringLiteral("Public key %@ is not an Ed25519 key (32 bytes in base64)."), publicKey);
        refuseDownload(c, record, kBadKeyInfo);
        return false;
    case VLSignature::Verdict::MalformedSignature:
        VLLog::appendLog(QStringLiteral("Signature %@ is not an Ed25519 signature (64 bytes in base64)."), signature);
        break;
    case VLSignature::Verdict::BadSignature:
        VLLog::appendLog(QStringLiteral("Signature %@ didn't verify with public key %@."), signature, publicKey);
        break;
    case VLSignature::Verdict::UnreadableFile:
        VLLog::appendLog(QStringLiteral("Unable to read %@ to verify its signature."), file);
        break;
    }
    refuseDownload(c, record, kBadSignatureInfo);
    return false;
}

} // namespace install
