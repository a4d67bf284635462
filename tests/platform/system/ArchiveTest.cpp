// Zip archives made and opened by the archiving tools under a sandboxed system root. Keeping or
// dropping the parent folder and replacing what is there are proven through the file manager;
// here: a name that looks like an option, links, an exact archive path, and failures.
#include "platform/system/Archive.h"
#include "support/Sandbox.h"
#include "support/ScopedEnvironment.h"
#include "support/ZipListing.h"

#include <QFile>
#include <QFileInfo>
#include <gtest/gtest.h>

TEST(Archive, RoundTripAndFailures)
{
    vltest::Sandbox box;
    ASSERT_TRUE(box.installFakeTools());
    vltest::ScopedEnvironment env;
    env.set("VELMORA_SYSROOT", box.sysroot());
    const QString source = box.tmpPath(QStringLiteral("-My Docs"));
    ASSERT_TRUE(box.writeFile(source + QStringLiteral("/a b.txt"), "alpha") && box.writeFile(source + QStringLiteral("/sub/c.log"), "gamma"));
    ASSERT_TRUE(QFile::link(QStringLiteral("a b.txt"), source + QStringLiteral("/l")));

    const QString archive = box.tmpPath(QStringLiteral("archive"));
    QString error;
    ASSERT_TRUE(sys::compressArchive(source, archive, true, &error)) << error.toStdString();
    EXPECT_FALSE(QFileInfo::exists(archive + QStringLiteral(".zip"))) << "written exactly where asked";
    EXPECT_EQ(vltest::zipMembers(archive), (QStringList{QStringLiteral("-My Docs/"), QStringLiteral("-My Docs/a b.txt"), QStringLiteral("-My Docs/l"),
                                                         QStringLiteral("-My Docs/sub/"), QStringLiteral("-My Docs/sub/c.log")}));
    ASSERT_TRUE(sys::compressArchive(source + QStringLiteral("/sub/c.log"), archive + QStringLiteral("1"), false));
    EXPECT_EQ(vltest::zipMembers(archive + QStringLiteral("1")), QStringList{QStringLiteral("c.log")});

    const QString out = box.tmpPath(QStringLiteral("new/out/-My Docs"));
    ASSERT_TRUE(box.writeFile(out + QStringLiteral("/a b.txt"), "stale"));
    ASSERT_TRUE(sys::extractArchive(archive, box.tmpPath(QStringLiteral("new/out"))));
    QFile text(out + QStringLiteral("/a b.txt"));
    EXPECT_TRUE(text.open(QIODevice::ReadOnly) && text.readAll() == "alpha") << "replaced without a prompt";
    EXPECT_EQ(QFileInfo(out + QStringLiteral("/l")).symLinkTarget(), out + QStringLiteral("/a b.txt"));

    // An empty folder makes an empty archive, which opens into an empty folder.
    ASSERT_TRUE(box.makeDir(box.tmpPath(QStringLiteral("empty"))));
    ASSERT_TRUE(sys::compressArchive(box.tmpPath(QStringLiteral("empty")), box.tmpPath(QStringLiteral("empty.zip")), false));
    EXPECT_TRUE(sys::extractArchive(box.tmpPath(QStringLiteral("empty.zip")), box.tmpPath(QStringLiteral("e"))));
    EXPECT_TRUE(QFileInfo(box.tmpPath(QStringLiteral("e"))).isDir());

    // Failures say why and leave no archive, not even one that was there before.
    const QString bad = box.tmpPath(QStringLiteral("x.zip"));
    EXPECT_FALSE(sys::compressArchive(box.tmpPath(QStringLiteral("missing")), bad, true, &error));
    EXPECT_FALSE(error.isEmpty() || QFileInfo::exists(bad));
    ASSERT_TRUE(box.writeFile(bad, "not a zip"));
    error.clear();
    EXPECT_FALSE(sys::extractArchive(bad, box.tmpPath(QStringLiteral("x")), &error));
    EXPECT_FALSE(error.isEmpty());
    ASSERT_TRUE(QFile::remove(box.sysPath(QStringLiteral("/usr/bin/zip"))));
    EXPECT_FALSE(sys::compressArchive(source, bad, true, &error));
    EXPECT_TRUE(error.contains(QStringLiteral("/usr/bin/zip")) && !QFileInfo::exists(bad)) << error.toStdString();
}
