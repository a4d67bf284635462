// Path strings split as the platform splits them, and URL strings: the strict legality check
// and the URL's path as a file path.
#include "platform/foundation/Foundation.h"

#include <gtest/gtest.h>

TEST(PathUtilities, ComponentsAndExtensions)
{
    const struct { const char* path; const char* last; const char* extension; const char* withoutExtension; const char* parent; } rows[] = {
        {"/tmp/scratch.tiff", "scratch.tiff", "tiff", "/tmp/scratch", "/tmp"}, {"/tmp/lock/", "lock", "", "/tmp/lock", "/tmp"},
        {"scratch.bundle///", "scratch.bundle", "bundle", "scratch", ""}, {"/", "/", "", "/", "/"}, {"", "", "", "", ""},
        {"//tmp//x", "x", "", "//tmp//x", "/tmp"}, {"/tmp", "tmp", "", "/tmp", "/"}, {".hidden", ".hidden", "", ".hidden", ""},
        {"scratch..tiff", "scratch..tiff", "tiff", "scratch.", ""}, {"a.b/c", "c", "", "a.b/c", "a.b"}, {"file.", "file.", "", "file.", ""},
        {"/x/App v1.2 final", "App v1.2 final", "", "/x/App v1.2 final", "/x"}, // a space before any dot: no extension
    };
    for (const auto& row : rows) {
        const QString path = QString::fromUtf8(row.path);
        EXPECT_EQ(fnd::lastPathComponent(path), QString::fromUtf8(row.last)) << row.path;
        EXPECT_EQ(fnd::pathExtension(path), QString::fromUtf8(row.extension)) << row.path;
        EXPECT_EQ(fnd::stringByDeletingPathExtension(path), QString::fromUtf8(row.withoutExtension)) << row.path;
        EXPECT_EQ(fnd::stringByDeletingLastPathComponent(path), QString::fromUtf8(row.parent)) << row.path;
    }
    EXPECT_EQ(fnd::pathExtension(QString::fromUtf16(u"a.b\u200fc")), QString()) << "a bidi control ends the search";
    for (const auto& [path, components] : std::initializer_list<std::pair<const char*, QStringList>>{
             {"tmp/scratch", {"tmp", "scratch"}}, {"/tmp/scratch/", {"/", "tmp", "scratch", "/"}},
             {"//a//b", {"/", "a", "b"}}, {"///", {"/"}}, {"", {}}})
        EXPECT_EQ(fnd::pathComponents(QString::fromUtf8(path)), components) << path;
}

TEST(PathUtilities, AppendingNormalises)
{
    const QString tiff = QStringLiteral("scratch.tiff");
    EXPECT_EQ(fnd::stringByAppendingPathComponent(QStringLiteral("/tmp/"), tiff), QStringLiteral("/tmp/scratch.tiff"));
    EXPECT_EQ(fnd::stringByAppendingPathComponent(QStringLiteral("/"), tiff), QStringLiteral("/scratch.tiff"));
    EXPECT_EQ(fnd::stringByAppendingPathComponent(QString(), tiff), tiff);
    EXPECT_EQ(fnd::stringByAppendingPathComponent(QStringLiteral("/tmp//a/"), QString()), QStringLiteral("/tmp/a"));
    EXPECT_EQ(fnd::stringByAppendingPathComponent(QStringLiteral("a"), QStringLiteral("/b/")), QStringLiteral("a/b"));
    // The normalisation is why this must never be used on URL strings.
    EXPECT_EQ(fnd::stringByAppendingPathComponent(QStringLiteral("file://localhost/directory/"), QStringLiteral("index.html")),
              QStringLiteral("file:/localhost/directory/index.html"));
    EXPECT_EQ(fnd::stringByAppendingPathExtension(QStringLiteral("/tmp/"), QStringLiteral("tiff")), QStringLiteral("/tmp.tiff"));
    EXPECT_EQ(fnd::stringByAppendingPathExtension(QStringLiteral("/x/Report"), QString()), QStringLiteral("/x/Report"));
}

TEST(UrlUtilities, StrictValidity)
{
    for (const char* valid : {"https://ex.com/a%20b.zip?x=1#frag", "relative/path.zip", "https://[::1]:8443/x", "https://ex.com/a%7e"})
        EXPECT_TRUE(fnd::isValidURLString(QString::fromUtf8(valid))) << valid;
    for (const char* invalid : {"", "https://ex.com/a b.zip", "https://ex.com/\xc3\xbc.zip", "https://ex.com/a|b", "https://ex.com/100%",
                                "https://ex.com/%4", "https://ex.com/%zz", "https://ex.com/p#a#b", "https://ex.com/\"q\"",
                                "https://ex.com/<a>", "https://ex.com/a\\b", "https://ex.com/a^b", "https://ex.com/`",
                                "https://ex.com/{x}", "https://ex.com/\x7f", "https://ex.com/a\n"})
        EXPECT_FALSE(fnd::isValidURLString(QString::fromUtf8(invalid))) << invalid;
}

TEST(UrlUtilities, PathAsFilePath)
{
    const struct { const char* url; std::optional<const char*> path; } rows[] = {
        {"file://localhost/Users/editor/Movies/Interview%20A.mov", "/Users/editor/Movies/Interview A.mov"},
        {"file:///Volumes/Media/Cuts/", "/Volumes/Media/Cuts"}, {"file:///", "/"}, {"http://127.0.0.1:8080?x=/y.zip", ""},
        {"https://user:pw@ex.com:8443/a/my%2Ffile.zip;jsessionid=1?x=1#y", "/a/my/file.zip"},
        {"clips/caf%C3%A9.mov", "clips/caf\xc3\xa9.mov"}, {"file:///a/%FF.mov", std::nullopt}, {"file:///a/b c.mov", std::nullopt},
    };
    for (const auto& row : rows) {
        const std::optional<QString> path = fnd::urlPath(QString::fromUtf8(row.url));
        ASSERT_EQ(path.has_value(), row.path.has_value()) << row.url;
        if (path) {
            EXPECT_EQ(*path, QString::fromUtf8(*row.path)) << row.url;
        }
    }
}
