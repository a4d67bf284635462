// Ed25519 verification of messages and files: a key pair made in the test, the ways a signature
// or key can be damaged, a published test vector, and every real key and signature text of the
// corpus.
#include "shared/VLSignature.h"

#include "platform/plist/PropertyList.h"
#include "support/Ed25519KeyPair.h"
#include "support/Sandbox.h"

#include <gtest/gtest.h>

#include <QDirIterator>
#include <QRegularExpression>
#include <QTemporaryDir>

namespace {

using Verdict = VLSignature::Verdict;

QString base64(const QByteArray& bytes) { return QString::fromLatin1(bytes.toBase64()); }

QByteArray flipped(QByteArray bytes, qsizetype at)
{
    bytes[at] = char(bytes.at(at) ^ 0x01);
    return bytes;
}

TEST(VLSignature, OnlyTheKeysOwnCanonicalSignatureOfTheVeryMessageIsValid)
{
    const vltest::Ed25519KeyPair pair, other;
    ASSERT_TRUE(pair.isValid() && other.isValid());
    const QByteArray message("Velmora Notes 1.3, as the developer built it");
    const QByteArray signature = pair.sign(message);
    const QString sig = base64(signature);
    const QString key = pair.publicKeyBase64();
    // The last of 64 bytes spreads over two characters; the second's four unused bits must be zero.
    const QString uncanonical = sig.left(85) + QChar(sig.at(85).unicode() + 1) + QStringLiteral("==");
    const struct {
        const char* what;
        QByteArray message;
        QString signature, key;
        Verdict expected;
    } cases[] = {
        {"the signed message", message, sig, key, Verdict::Valid},
        {"first message byte flipped", flipped(message, 0), sig, key, Verdict::BadSignature},
        {"signature byte flipped", message, base64(flipped(signature, 40)), key, Verdict::BadSignature},
        {"another developer's key", message, sig, other.publicKeyBase64(), Verdict::BadSignature},
        {"signature truncated by a byte", message, base64(signature.left(63)), key, Verdict::MalformedSignature},
        {"unused bits set in the last character", message, uncanonical, key, Verdict::MalformedSignature},
        {"a line break inside", message, sig.left(44) + QLatin1Char('\n') + sig.mid(44), key, Verdict::MalformedSignature},
        {"a non-ASCII character", message, sig.left(87) + QChar(0x00e9), key, Verdict::MalformedSignature},
        {"key of 31 bytes", message, sig, base64(pair.publicKey().left(31)), Verdict::MalformedKey},
        {"both malformed: the key is named", message, sig.left(10), key.left(10), Verdict::MalformedKey},
    };
    for (const auto& c : cases)
        EXPECT_EQ(VLSignature::verifyEd25519(c.message, c.signature, c.key), c.expected) << c.what;

    // RFC 8032, section 7.1, test 1: the empty message under a published key.
    const QString published = base64(QByteArray::fromHex("d75a980182b10ab7d54bfed3c964073a0ee172f3daa62325af021a68f707511a"));
    const QByteArray vector = QByteArray::fromHex("e5564300c360ac729086e2cc806e828a84877f1eb8e5d974d873e065224901555fb8821590a33bacc61e39701cf9b46bd25bf5f0595bbe24655141438e7a100b");
    EXPECT_EQ(VLSignature::verifyEd25519(QByteArray(), base64(vector), published), Verdict::Valid);
}

TEST(VLSignature, FilesAreVerifiedWholeAndUnreadableOnesNeverPass)
{
    const vltest::Ed25519KeyPair pair;
    ASSERT_TRUE(pair.isValid());
    QTemporaryDir dir;
    QByteArray data; // larger than any read buffer, with a distinct last byte
    for (int i = 0; i < 3 * 65536 + 17; ++i)
        data.append(char(i * 31 + (i >> 11)));
    const QString path = dir.filePath(QStringLiteral("Notes.dmg"));
    const QString sig = pair.signBase64(data);
    const QString key = pair.publicKeyBase64();
    for (const auto& [content, expected] : {std::pair{data, Verdict::Valid}, std::pair{flipped(data, data.size() - 1), Verdict::BadSignature},
                                            std::pair{data.left(data.size() - 1), Verdict::BadSignature}}) {
        ASSERT_TRUE(vltest::Sandbox::writeFile(path, content));
        EXPECT_EQ(VLSignature::verifyEd25519ForFile(path, sig, key), expected) << content.size();
    }
    EXPECT_EQ(VLSignature::verifyEd25519ForFile(dir.filePath(QStringLiteral("missing")), sig, key), Verdict::UnreadableFile);
    EXPECT_EQ(VLSignature::verifyEd25519ForFile(dir.path(), sig, key), Verdict::UnreadableFile) << "a folder";
    // Malformed halves are named before the file is even looked for.
    EXPECT_EQ(VLSignature::verifyEd25519ForFile(dir.filePath(QStringLiteral("missing")), sig, key.left(43)), Verdict::MalformedKey);
}

// Every published key and every feed signature of the corpus (real applications' texts) is
// well formed; no key signs a whole feed.
TEST(VLSignature, EveryCorpusKeyAndSignatureIsWellFormed)
{
    QStringList keys;
    for (QDirIterator it(QStringLiteral(VELMORA_CORPUS_DIR "/plists/xml"), {QStringLiteral("*.plist")}); it.hasNext();) {
        if (const auto info = plist::readDictionaryFile(it.next()); info && info->contains(QStringLiteral("SUPublicEDKey")))
            keys << info->value(QStringLiteral("SUPublicEDKey")).toString();
    }
    ASSERT_EQ(keys.size(), 2);
    for (const QString& key : keys)
        EXPECT_TRUE(VLSignature::decodeBase64(key, VLSignature::kPublicKeyLength)) << qPrintable(key);
    int signatures = 0;
    static const QRegularExpression edSignature(QStringLiteral("edSignature=\"([^\"]*)\""));
    for (QDirIterator it(QStringLiteral(VELMORA_CORPUS_DIR "/appcasts"), QDir::Files, QDirIterator::Subdirectories); it.hasNext();) {
        const QByteArray feed = vltest::Sandbox::readFile(it.next());
        for (const auto& match : edSignature.globalMatch(QString::fromUtf8(feed))) {
            EXPECT_TRUE(VLSignature::decodeBase64(match.captured(1), VLSignature::kSignatureLength)) << qPrintable(match.captured(1));
            if (signatures++ == 0) {
                EXPECT_EQ(VLSignature::verifyEd25519(feed, match.captured(1), keys[0]), Verdict::BadSignature);
            }
        }
    }
    EXPECT_GT(signatures, 500);
}

} // namespace
