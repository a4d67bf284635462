// Zip archives made and opened by the archiving tools linked into a sandboxed system root.
#include "platform/system/Archive.h"

#include "support/QtPrinters.h"
#include "support/Sandbox.h"
#include "support/ScopedEnvironment.h"
#include "support/ZipListing.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <gtest/gtest.h>

namespace {

class ArchiveTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(box.isValid());
        ASSERT_TRUE(box.installFakeTools());
        env.set("VELMORA_SYSROOT", box.sysroot());
        // A folder whose name begins with "-" and holds spaces, a subfolder and a link.
        source = box.tmpPath(QStringLiteral("-My Docs"));
        ASSERT_TRUE(box.writeFile(source + QStringLiteral("/a b.txt"), "alpha"));
        ASSERT_TRUE(box.writeFile(source + QStringLiteral("/sub/c.log"), "gamma"));
        ASSERT_TRUE(QFile::link(QStringLiteral("a b.txt"), source + QStringLiteral("/l")));
    }

    vltest::Sandbox box;
    vltest::ScopedEnvironment env;
    QString source;
};

TEST_F(ArchiveTest, EntriesFollowTheKeepParentChoice)
{
    const QStringList contents{QStringLiteral("a b.txt"), QStringLiteral("l"), QStringLiteral("sub/"),
                               QStringLiteral("sub/c.log")};
    QStringList withParent;
    for (const QString& entry : contents)
        withParent << QStringLiteral("-My Docs/") + entry;
    withParent.prepend(QStringLiteral("-My Docs/"));

    const struct {
        const char* name;
        QString source;
        bool keepParent;
        QStringList members;
    } cases[] = {
        {"folder with its parent", source, true, withParent},
        {"folder contents", source, false, contents},
        {"single file", source + QStringLiteral("/sub/c.log"), false, {QStringLiteral("c.log")}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        // No extension: the archive must still be written exactly there.
        const QString archive = box.tmpPath(QStringLiteral("out/archive"));
        ASSERT_TRUE(QDir().mkpath(box.tmpPath(QStringLiteral("out"))));
        QString error;
        EXPECT_TRUE(sys::compressArchive(c.source, archive, c.keepParent, &error)) << error.toStdString();
        EXPECT_EQ(vltest::zipMembers(archive), c.members);
        EXPECT_FALSE(QFileInfo::exists(archive + QStringLiteral(".zip")));
    }
}

TEST_F(ArchiveTest, ExtractingGivesBackTheTree)
{
    const QString archive = box.tmpPath(QStringLiteral("docs.zip"));
    ASSERT_TRUE(sys::compressArchive(source, archive, true));
    const QString out = box.tmpPath(QStringLiteral("new/out"));
    ASSERT_TRUE(box.writeFile(out + QStringLiteral("/-My Docs/a b.txt"), "stale"));
    ASSERT_TRUE(sys::extractArchive(archive, out));
    QFile text(out + QStringLiteral("/-My Docs/a b.txt"));
    ASSERT_TRUE(text.open(QIODevice::ReadOnly));
    EXPECT_EQ(text.readAll(), QByteArray("alpha")); // replaced without a prompt
    EXPECT_EQ(QFileInfo(out + QStringLiteral("/-My Docs/l")).symLinkTarget(), out + QStringLiteral("/-My Docs/a b.txt"));

    // An empty folder makes an empty archive, which opens into an empty folder.
    const QString empty = box.tmpPath(QStringLiteral("empty"));
    ASSERT_TRUE(box.makeDir(empty));
    ASSERT_TRUE(sys::compressArchive(empty, box.tmpPath(QStringLiteral("empty.zip")), false));
    EXPECT_TRUE(sys::extractArchive(box.tmpPath(QStringLiteral("empty.zip")), box.tmpPath(QStringLiteral("e"))));
    EXPECT_TRUE(QFileInfo(box.tmpPath(QStringLiteral("e"))).isDir());
}

TEST_F(ArchiveTest, FailuresSayWhyAndLeaveNoArchive)
{
    const QString archive = box.tmpPath(QStringLiteral("x.zip"));
    QString error;
    EXPECT_FALSE(sys::compressArchive(box.tmpPath(QStringLiteral("missing")), archive, true, &error));
    EXPECT_FALSE(error.isEmpty());
    EXPECT_FALSE(QFileInfo::exists(archive));

    ASSERT_TRUE(box.writeFile(archive, "not a zip"));
    error.clear();
    EXPECT_FALSE(sys::extractArchive(archive, box.tmpPath(QStringLiteral("x")), &error));
    EXPECT_FALSE(error.isEmpty());

    // No archiving tool under the system root.
    ASSERT_TRUE(QFile::remove(box.sysPath(QStringLiteral("/usr/bin/zip"))));
    error.clear();
    EXPECT_FALSE(sys::compressArchive(source, archive, true, &error));
    EXPECT_TRUE(error.contains(QStringLiteral("/usr/bin/zip"))) << error.toStdString();
    EXPECT_FALSE(QFileInfo::exists(archive));
}

} // namespace
