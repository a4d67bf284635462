// -install of signed updates, run as the built updater in a sandbox against the local HTTPS
// server with a key pair made in the test: a good signature installs; a tampered download, a
// damaged signature or a damaged key stops the installation before anything is mounted, with
// its own message, and leaves the installed application as it was; without both halves the
// run is exactly the run of an unsigned update.
#include "support/Ed25519KeyPair.h"
#include "support/NotificationListener.h"
#include "support/QtPrinters.h"
#include "support/Sandbox.h"
#include "support/TestServer.h"

#include <gtest/gtest.h>

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QThread>

namespace {

using vltest::RunResult;
using vltest::Sandbox;

const QString kTamperedText = QStringLiteral("The downloaded file's signature is not valid, so the file may have been tampered with.");
const QString kBadKeyText = QStringLiteral("The installed application's public key is not valid, so this update cannot be verified.");

class SignedInstallEndToEnd : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(sb_.isValid() && keys_.isValid());
        ASSERT_TRUE(sb_.installFakeTools());
        srv_ = sb_.root() + QStringLiteral("/srv");
        vltest::TestServerOptions options;
        options.root = srv_;
        ASSERT_TRUE(server_.start(options)) << server_.errorString().toStdString();
        sb_.useServer(server_);
        listener_ = std::make_unique<vltest::NotificationListener>(sb_.tmpPath(QStringLiteral("VLTesselCallback")));
        ASSERT_TRUE(listener_->start());
        // The machine's log folder, where a run as root writes its log.
        ASSERT_TRUE(sb_.makeDir(logFolder()));
    }

    QString logFolder() const { return sb_.sysPath(QStringLiteral("/Library/Logs/Velmora")); }
    // Every log written since the last call, emptying the folder.
    QString takeLogs() const
    {
        QString text;
        QDir folder(logFolder());
        for (const QString& name : folder.entryList(QDir::Files)) {
            text += QString::fromUtf8(readAll(folder.filePath(name)));
            folder.remove(name);
        }
        return text;
    }

    QString served(const QString& name) const { return srv_ + QStringLiteral("/files/") + name; }
    QString tempFolder() const { return sb_.tmpPath(QStringLiteral("Velmora Update Temp")); }

    static QByteArray readAll(const QString& path)
    {
        QFile f(path);
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    }
    static QByteArray flippedLastByte(QByteArray bytes)
    {
        bytes[bytes.size() - 1] = char(bytes.back() ^ 0x01);
        return bytes;
    }

    // Errors posted to the client since message number `from`.
    QStringList errorsPosted(qsizetype from = 0) const
    {
        QStringList texts;
        const QList<vltest::ReceivedNotification> all = listener_->messages();
        for (qsizetype i = from; i < all.size(); ++i) {
            if (all.at(i).name.startsWith(QStringLiteral("postErrorString")))
                texts << all.at(i).arguments.at(0).toString();
        }
        return texts;
    }

    Sandbox sb_;
    vltest::TestServer server_;
    vltest::Ed25519KeyPair keys_;
    QString srv_;
    std::unique_ptr<vltest::NotificationListener> listener_;
};

class SignedSparkleInstall : public SignedInstallEndToEnd {
protected:
    void SetUp() override
    {
        SignedInstallEndToEnd::SetUp();
        ASSERT_TRUE(sb_.makeDiskImage(served(QStringLiteral("Tessel.dmg")), QStringLiteral("Tessel"),
                                      {{QStringLiteral("Tessel.app/Contents/Info.plist"), "new build"}}));
        image_ = readAll(served(QStringLiteral("Tessel.dmg")));
        installed_ = sb_.sysPath(QStringLiteral("/Applications/Tessel.app"));
    }

    // The installed build 100, carrying `publicKey` as its SUPublicEDKey unless it is invalid.
    void installOldApp(const QVariant& publicKey)
    {
        QDir(installed_).removeRecursively();
        QDir(sb_.homePath(QStringLiteral(".Trash"))).removeRecursively();
        ASSERT_TRUE(sb_.makeDir(sb_.homePath(QStringLiteral(".Trash"))));
        vltest::FakeBundle bundle;
        bundle.path = installed_;
        bundle.identifier = QStringLiteral("com.velmora.tessel");
        bundle.version = QStringLiteral("100");
        bundle.shortVersion = QStringLiteral("1.0");
        bundle.extraInfo = {{QStringLiteral("SUFeedURL"), server_.url(QStringLiteral("/appcast.xml"))}};
        if (publicKey.isValid())
            bundle.extraInfo.insert(QStringLiteral("SUPublicEDKey"), publicKey);
        ASSERT_FALSE(sb_.createBundle(bundle).isEmpty());
        oldInfo_ = readAll(installed_ + QStringLiteral("/Contents/Info.plist"));
    }

    // Serves `image` with the server's checksum of exactly what is served (a server that was
    // taken over publishes a matching checksum), and the enclosure's signature when given.
    void publish(const QByteArray& image, const QString& signature)
    {
        ASSERT_TRUE(sb_.writeFile(served(QStringLiteral("Tessel.dmg")), image));
        const QString sum = QString::fromLatin1(QCryptographicHash::hash(image, QCryptographicHash::Sha1).toHex());
        const QString signatureAttribute =
            signature.isNull() ? QString() : QStringLiteral(" sparkle:edSignature=\"%1\"").arg(signature);
        const QString feed = QStringLiteral(
            "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
            "<rss version=\"2.0\" xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces/sparkle\"><channel>"
            "<title>Tessel</title><item><title>Tessel 2.0</title><description>notes</description>"
            "<enclosure url=\"%1\" sparkle:version=\"200\" sparkle:shortVersionString=\"2.0\" length=\"1\" "
            "type=\"application/octet-stream\" checksum=\"%2\"%3/></item></channel></rss>\n")
            .arg(server_.url(QStringLiteral("/files/Tessel.dmg")), sum, signatureAttribute);
        ASSERT_TRUE(sb_.writeFile(srv_ + QStringLiteral("/appcast.xml"), feed.toUtf8()));
        QFile::remove(sb_.toolLogPath());
        QDir(tempFolder()).removeRecursively();
        QDir(sb_.sysPath(QStringLiteral("/Volumes"))).removeRecursively();
    }

    RunResult install() const { return sb_.runUpdater({QStringLiteral("-install"), QStringLiteral("sparkle"), installed_}); }

    QByteArray image_;
    QString installed_;
    QByteArray oldInfo_;
};

TEST_F(SignedSparkleInstall, AGoodSignatureInstallsAndAnythingElseTouchesNothing)
{
    const QString good = keys_.signBase64(image_);
    const QString key = keys_.publicKeyBase64();
    struct Case {
        const char* what;
        QByteArray image;
        QString signature;
        QVariant key;
        QString refusal;  // empty: the update installs
    };
    const QList<Case> cases = {
        {"signed by the installed app's key", image_, good, key, {}},
        {"one byte of the download flipped", flippedLastByte(image_), good, key, kTamperedText},
        {"signature truncated", image_, good.left(good.size() - 4), key, kTamperedText},
        {"signed by another key", image_, vltest::Ed25519KeyPair().signBase64(image_), key, kTamperedText},
        {"installed key of the wrong length", image_, good, QString::fromLatin1(keys_.publicKey().left(31).toBase64()), kBadKeyText},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        installOldApp(c.key);
        publish(c.image, c.signature);
        const qsizetype before = listener_->messages().size();
        const RunResult r = install();
        ASSERT_EQ(r.exitCode, 0) << r.describe().toStdString();
        if (c.refusal.isEmpty()) {
            EXPECT_EQ(readAll(installed_ + QStringLiteral("/Contents/Info.plist")), QByteArray("new build"));
            EXPECT_TRUE(errorsPosted(before).isEmpty()) << errorsPosted(before).join(QLatin1Char('|')).toStdString();
            continue;
        }
        const QString text = QStringLiteral("Unable to install Tessel 2.0. ") + c.refusal;
        EXPECT_TRUE(r.out().contains(text)) << r.describe().toStdString();
        EXPECT_EQ(errorsPosted(before), QStringList{text});
        // Stopped before mounting: nothing of the user's was touched; the download stays.
        EXPECT_TRUE(sb_.toolCalls().isEmpty());
        EXPECT_EQ(readAll(installed_ + QStringLiteral("/Contents/Info.plist")), oldInfo_);
        EXPECT_TRUE(QDir(sb_.homePath(QStringLiteral(".Trash"))).isEmpty());
        EXPECT_EQ(readAll(tempFolder() + QStringLiteral("/Tessel.dmg")), c.image);
    }
}

// A feed signature without a key in the application, or a key without a feed signature:
// the run is, to the byte, the run of an update with neither.
TEST_F(SignedSparkleInstall, WithoutBothHalvesTheRunIsThatOfAnUnsignedUpdate)
{
    struct Outcome {
        int exitCode;
        QString out;
        bool logMentionsSignature;
        QList<QStringList> tools;
        QStringList errors;
        QByteArray info;
    };
    const auto run = [&](const QVariant& key, const QString& signature) {
        installOldApp(key);
        publish(image_, signature);
        const qsizetype before = listener_->messages().size();
        takeLogs();
        const RunResult r = install();
        return Outcome{r.exitCode, r.out(), takeLogs().contains(QStringLiteral("ignature")), sb_.toolCalls(), errorsPosted(before),
                       readAll(installed_ + QStringLiteral("/Contents/Info.plist"))};
    };
    const Outcome unsigned_ = run(QVariant(), QString());
    ASSERT_EQ(unsigned_.exitCode, 0);
    ASSERT_EQ(unsigned_.info, QByteArray("new build"));
    ASSERT_FALSE(unsigned_.logMentionsSignature);
    const QList<std::pair<const char*, Outcome>> others = {
        {"a key, no signature", run(keys_.publicKeyBase64(), QString())},
        {"a signature that cannot be right, no key", run(QVariant(), QStringLiteral("not base64 at all!"))},
        {"an empty key, a good signature", run(QString(), keys_.signBase64(image_))},
        {"a key, an empty signature", run(keys_.publicKeyBase64(), QStringLiteral(""))},
    };
    for (const auto& [what, o] : others) {
        SCOPED_TRACE(what);
        EXPECT_EQ(o.exitCode, unsigned_.exitCode);
        EXPECT_EQ(o.out, unsigned_.out);
        EXPECT_FALSE(o.logMentionsSignature);
        EXPECT_EQ(o.tools, unsigned_.tools);
        EXPECT_EQ(o.errors, unsigned_.errors);
        EXPECT_EQ(o.info, unsigned_.info);
    }
}

// The updater's own update is checked against the key in the running updater's Info.plist:
// a copy of the built updater that carries the test's key.
TEST_F(SignedInstallEndToEnd, TheUpdatersOwnUpdateIsCheckedAgainstItsOwnKey)
{
    const QString updater = sb_.sysPath(QStringLiteral("/Applications/Velmora Software Update.app"));
    ASSERT_TRUE(sb_.makeDir(sb_.sysPath(QStringLiteral("/Applications"))));
    ASSERT_EQ(QProcess::execute(QStringLiteral("/bin/cp"), {QStringLiteral("-a"), QStringLiteral(VELMORA_UPDATER_BUNDLE), updater}), 0);
    const QString infoPath = updater + QStringLiteral("/Contents/Info.plist");
    QVariantMap info = sb_.readPlist(infoPath).value_or(QVariant()).toMap();
    ASSERT_FALSE(info.isEmpty());
    info.insert(QStringLiteral("SUPublicEDKey"), keys_.publicKeyBase64());
    ASSERT_TRUE(sb_.writePlist(infoPath, info));
    const QString argsFile = sb_.tmpPath(QStringLiteral("helper-args"));
    ASSERT_TRUE(sb_.writeFile(sb_.sysPath(QStringLiteral("/Library/Application Support/Velmora/Shared Resources/"
                                                         "SoftwareUpdateHelper.app/Contents/MacOS/SoftwareUpdateHelper")),
                              QStringLiteral("#!/bin/sh\necho \"$@\" > '%1'\n").arg(argsFile).toUtf8(), true));
    ASSERT_TRUE(sb_.makeDiskImage(served(QStringLiteral("SU.dmg")), QStringLiteral("Velmora Software Update"),
                                  {{QStringLiteral("Velmora Software Update.app/Contents/Info.plist"), "new"}}));
    const QByteArray image = readAll(served(QStringLiteral("SU.dmg")));
    const auto publish = [&](const QByteArray& bytes) {
        ASSERT_TRUE(sb_.writeFile(served(QStringLiteral("SU.dmg")), bytes));
        const QVariantMap record{{"type", "self"}, {"title", "Velmora Software Update 2.0"},
                                 {"groupid", "com.velmora.SoftwareUpdate"}, {"bundleid", "com.velmora.SoftwareUpdate"},
                                 {"url", server_.url(QStringLiteral("/files/SU.dmg"))}, {"edSignature", keys_.signBase64(image)}};
        ASSERT_TRUE(sb_.writePlist(srv_ + QStringLiteral("/rss/appcasts/com.velmora.SoftwareUpdate.xml"), record));
    };
    const QStringList arguments{QStringLiteral("-install"), QStringLiteral("self"), QStringLiteral("com.velmora.SoftwareUpdate")};
    const QString executable = updater + QStringLiteral("/Contents/MacOS/SoftwareUpdate");

    publish(flippedLastByte(image));
    RunResult r = sb_.run(executable, arguments);
    ASSERT_EQ(r.exitCode, 0) << r.describe().toStdString();
    const QString text = QStringLiteral("Unable to install Velmora Software Update 2.0. ") + kTamperedText;
    EXPECT_TRUE(r.out().contains(text)) << r.describe().toStdString();
    EXPECT_EQ(errorsPosted(), QStringList{text});
    EXPECT_TRUE(sb_.toolCalls().isEmpty());
    EXPECT_FALSE(QFileInfo::exists(argsFile));

    publish(image);
    r = sb_.run(executable, arguments);
    ASSERT_EQ(r.exitCode, 0) << r.describe().toStdString();
    for (int i = 0; i < 50 && !QFileInfo::exists(argsFile); ++i)
        QThread::msleep(100);
    EXPECT_TRUE(QString::fromUtf8(readAll(argsFile)).contains(QStringLiteral("-destination ") + updater)) << r.describe().toStdString();
    EXPECT_EQ(errorsPosted(), QStringList{text}) << "nothing more";
}

} // namespace
