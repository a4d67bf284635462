// Ed25519 verification of messages and files: a key pair made in the test, the ways a signature
// or key can be damaged, a published test vector, and the corpus's real key and signature texts.
#include "shared/VLSignature.h"

#include "platform/plist/PropertyList.h"
#include "support/Ed25519KeyPair.h"

#include <gtest/gtest.h>

#include <QFile>
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

TEST(VLSignature, OnlyTheKeysOwnSignatureOfTheVeryMessageIsValid)
{
    const vltest::Ed25519KeyPair pair, other;
    ASSERT_TRUE(pair.isValid() && other.isValid());
    const QByteArray message("Velmora Notes 1.3, as the developer built it");
    const QByteArray signature = pair.sign(message);
    const QString sig = base64(signature);
    const QString key = pair.publicKeyBase64();
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

TEST(VLSignature, Base64IsAcceptedOnlyInItsCanonicalForm)
{
    const QByteArray bytes(64, '\x5a');
    const QString canonical = base64(bytes);
    EXPECT_EQ(VLSignature::decodeBase64(canonical, 64), bytes);
    // 64 bytes end in one byte spread over two characters: the second carries four unused
    // bits, which must be zero. "Wh==" and "Wg==" both decode to 0x5a; only one is canonical.
    ASSERT_TRUE(canonical.endsWith(QStringLiteral("Wg==")));
    EXPECT_FALSE(VLSignature::decodeBase64(canonical.left(84) + QStringLiteral("Wh=="), 64));
    EXPECT_FALSE(VLSignature::decodeBase64(canonical.left(44) + QLatin1Char('\n') + canonical.mid(44), 64));
    EXPECT_FALSE(VLSignature::decodeBase64(canonical.left(87) + QChar(0x00e9), 64));
    EXPECT_FALSE(VLSignature::decodeBase64(canonical, 63));
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
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write(content) == content.size());
        file.close();
        EXPECT_EQ(VLSignature::verifyEd25519ForFile(path, sig, key), expected) << content.size();
    }
    EXPECT_EQ(VLSignature::verifyEd25519ForFile(dir.filePath(QStringLiteral("missing")), sig, key), Verdict::UnreadableFile);
    EXPECT_EQ(VLSignature::verifyEd25519ForFile(dir.path(), sig, key), Verdict::UnreadableFile) << "a folder";
    // Malformed halves are named before the file is even looked for.
    EXPECT_EQ(VLSignature::verifyEd25519ForFile(dir.filePath(QStringLiteral("missing")), sig, key.left(43)), Verdict::MalformedKey);
}

// A real application's published key and a real feed's signature (of a download the corpus
// does not hold): both are well formed, and they do not sign some other bytes.
TEST(VLSignature, CorpusKeyAndSignatureAreWellFormed)
{
    const auto info = plist::readDictionaryFile(QStringLiteral(VELMORA_CORPUS_DIR "/plists/xml/alttab-app-info-bools-as-strings-build-variables.plist"));
    ASSERT_TRUE(info);
    const QString key = info->value(QStringLiteral("SUPublicEDKey")).toString();
    EXPECT_EQ(VLSignature::decodeBase64(key, VLSignature::kPublicKeyLength).value_or(QByteArray()).size(), 32);
    QFile appcast(QStringLiteral(VELMORA_CORPUS_DIR "/appcasts/alttab-283-items-releasenoteslink-minsysver.xml"));
    ASSERT_TRUE(appcast.open(QIODevice::ReadOnly));
    const QByteArray feed = appcast.readAll();
    const auto first = QRegularExpression(QStringLiteral("sparkle:edSignature=\"([^\"]*)\"")).match(QString::fromUtf8(feed));
    ASSERT_TRUE(first.hasMatch());
    EXPECT_EQ(VLSignature::verifyEd25519(feed, first.captured(1), key), Verdict::BadSignature);
}

} // namespace
