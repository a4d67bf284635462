#include "platform/foundation/Foundation.h"

#include <gtest/gtest.h>

namespace {

struct PathCase {
    const char* path;
    const char* expected;
};

template <typename Fn, size_t N>
void expectTable(Fn fn, const PathCase (&cases)[N], const char* what)
{
    for (const PathCase& c : cases)
        EXPECT_EQ(fn(QString::fromUtf8(c.path)), QString::fromUtf8(c.expected)) << what << "(\"" << c.path << "\")";
}

} // namespace

TEST(PathUtilitiesTest, LastPathComponent)
{
    const PathCase cases[] = {
        {"/tmp/scratch.tiff", "scratch.tiff"}, {"/tmp/scratch", "scratch"}, {"/tmp/", "tmp"}, {"scratch///", "scratch"},
        {"/", "/"}, {"", ""}, {"a//b", "b"}, {"///", "/"}, {"dir/.hidden", ".hidden"},
    };
    expectTable(fnd::lastPathComponent, cases, "lastPathComponent");
}

TEST(PathUtilitiesTest, PathExtension)
{
    const PathCase cases[] = {
        {"/tmp/scratch.tiff", "tiff"}, {".scratch.tiff", "tiff"}, {"/tmp/scratch", ""}, {"/tmp/", ""},
        {"/tmp/scratch..tiff", "tiff"}, {".hidden", ""}, {"a.tar.gz", "gz"}, {"dir.app/", "app"}, {"a.b/c", ""},
        {"file.", ""},
        // A space before any dot means no extension, as for URLs.
        {"v1.2 final", ""}, {"Report.PDF", "PDF"},
    };
    expectTable(fnd::pathExtension, cases, "pathExtension");
}

TEST(PathUtilitiesTest, DeletingPathExtension)
{
    const PathCase cases[] = {
        {"/tmp/scratch.tiff", "/tmp/scratch"}, {"/tmp/", "/tmp"}, {"scratch.bundle/", "scratch"},
        {"scratch..tiff", "scratch."}, {".tiff", ".tiff"}, {"/", "/"}, {"a.tar.gz", "a.tar"}, {"a.b/c", "a.b/c"},
        {"", ""}, {"/x/App v1.2 final", "/x/App v1.2 final"},
    };
    expectTable(fnd::stringByDeletingPathExtension, cases, "stringByDeletingPathExtension");
}

TEST(PathUtilitiesTest, DeletingLastPathComponent)
{
    const PathCase cases[] = {
        {"/tmp/scratch.tiff", "/tmp"}, {"/tmp/lock/", "/tmp"}, {"/tmp/", "/"}, {"/tmp", "/"}, {"/", "/"},
        {"scratch.tiff", ""}, {"", ""}, {"//tmp//x", "/tmp"}, {"a/b", "a"},
    };
    expectTable(fnd::stringByDeletingLastPathComponent, cases, "stringByDeletingLastPathComponent");
}

TEST(PathUtilitiesTest, AppendingComponentsAndExtensions)
{
    const QString tiff = QStringLiteral("scratch.tiff");
    EXPECT_EQ(fnd::stringByAppendingPathComponent(QStringLiteral("/tmp"), tiff), QStringLiteral("/tmp/scratch.tiff"));
    EXPECT_EQ(fnd::stringByAppendingPathComponent(QStringLiteral("/tmp/"), tiff), QStringLiteral("/tmp/scratch.tiff"));
    EXPECT_EQ(fnd::stringByAppendingPathComponent(QStringLiteral("/"), tiff), QStringLiteral("/scratch.tiff"));
    EXPECT_EQ(fnd::stringByAppendingPathComponent(QString(), tiff), tiff);
    EXPECT_EQ(fnd::stringByAppendingPathComponent(QStringLiteral("/tmp//a/"), QString()), QStringLiteral("/tmp/a"));
    EXPECT_EQ(fnd::stringByAppendingPathComponent(QStringLiteral("a"), QStringLiteral("/b/")), QStringLiteral("a/b"));
    // The normalisation is why this must never be used on URL strings.
    EXPECT_EQ(fnd::stringByAppendingPathComponent(QStringLiteral("file://localhost/directory/"), QStringLiteral("index.html")),
              QStringLiteral("file:/localhost/directory/index.html"));
    EXPECT_EQ(fnd::stringByAppendingPathExtension(QStringLiteral("/x/Report 2"), QStringLiteral("pdf")),
              QStringLiteral("/x/Report 2.pdf"));
    EXPECT_EQ(fnd::stringByAppendingPathExtension(QStringLiteral("/tmp/"), QStringLiteral("tiff")), QStringLiteral("/tmp.tiff"));
    EXPECT_EQ(fnd::stringByAppendingPathExtension(QStringLiteral("/x/Report"), QString()), QStringLiteral("/x/Report"));
}

TEST(PathUtilitiesTest, PathComponents)
{
    const struct {
        const char* path;
        QStringList expected;
    } cases[] = {
        {"tmp/scratch", {"tmp", "scratch"}},
        {"/tmp/scratch", {"/", "tmp", "scratch"}},
        {"/tmp/scratch/", {"/", "tmp", "scratch", "/"}},
        {"//a//b", {"/", "a", "b"}},
        {"scratch", {"scratch"}},
        {"/", {"/"}},
        {"///", {"/"}},
        {"", {}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(fnd::pathComponents(QString::fromUtf8(c.path)), c.expected) << c.path;
}
