#include "platform/foundation/Foundation.h"

#include <gtest/gtest.h>

TEST(UrlUtilitiesTest, LastPathComponentAndExtension)
{
    const struct {
        const char* url;
        const char* last;
        const char* extension;
    } cases[] = {
        {"https://ex.com/dl/App%20Name%201.2.dmg?sig=a.b#x.y", "App Name 1.2.dmg", "dmg"},
        {"https://ex.com/dl/", "dl", ""},
        {"https://ex.com", "", ""},
        {"https://ex.com/", "/", ""},
        {"https://ex.com/get?file=App.zip", "get", ""},
        {"https://ex.com/a/b.tar.gz", "b.tar.gz", "gz"},
        {"https://ex.com/a/.hidden", ".hidden", ""},
        {"https://ex.com/a/file.", "file.", ""},
        {"https://ex.com/a/my%2Ffile.zip", "my/file.zip", "zip"},
        {"https://ex.com/a/notes%20v2", "notes v2", ""},
        {"https://user:pw@ex.com:8443/a/Setup.pkg#frag", "Setup.pkg", "pkg"},
        {"https://ex.com/a/file.zip;jsessionid=1.2", "file.zip", "zip"},
        {"http://127.0.0.1:8080?x=/y.zip", "", ""},
        {"file:///path/to/file.txt", "file.txt", "txt"},
        {"dl/Update.dmg", "Update.dmg", "dmg"},
        {"https://ex.com/a/caf%C3%A9.zip", "caf\xc3\xa9.zip", "zip"},
        // Bytes that are not UTF-8 stay percent-encoded rather than turning into U+FFFD.
        {"https://ex.com/a/%FF.zip", "%FF.zip", "zip"},
        {"https://ex.com/a/%2E%2E", "..", ""},
        {"", "", ""},
    };
    for (const auto& c : cases) {
        const QString url = QString::fromUtf8(c.url);
        EXPECT_EQ(fnd::urlLastPathComponent(url), QString::fromUtf8(c.last)) << c.url;
        EXPECT_EQ(fnd::urlPathExtension(url), QString::fromUtf8(c.extension)) << c.url;
    }
}

TEST(UrlUtilitiesTest, StrictValidity)
{
    for (const char* valid : {"https://ex.com/a.zip", "https://ex.com/a%20b.zip?x=1#frag", "relative/path.zip",
                              "https://[::1]:8443/x", "mailto:someone@ex.com", "https://ex.com/a%7e"})
        EXPECT_TRUE(fnd::isValidURLString(QString::fromUtf8(valid))) << valid;
    for (const char* invalid : {"", "https://ex.com/a b.zip", "https://ex.com/\xc3\xbc.zip", "https://ex.com/a|b",
                                "https://ex.com/100%", "https://ex.com/%4", "https://ex.com/%zz", "https://ex.com/p#a#b",
                                "bad string -- will create nil URL", "https://ex.com/\"q\"", "https://ex.com/<a>",
                                "https://ex.com/a\\b", "https://ex.com/a^b", "https://ex.com/`", "https://ex.com/{x}",
                                "https://ex.com/\x7f", "https://ex.com/a\tb", "https://ex.com/a\n"})
        EXPECT_FALSE(fnd::isValidURLString(QString::fromUtf8(invalid))) << invalid;
}

TEST(UrlUtilitiesTest, PathAsFilePath)
{
    const struct {
        const char* url;
        std::optional<const char*> path;
    } cases[] = {
        {"file://localhost/Users/editor/Movies/Interview%20A.mov", "/Users/editor/Movies/Interview A.mov"},
        {"file:///Volumes/Media/Cuts/", "/Volumes/Media/Cuts"},
        {"file:///", "/"},
        {"https://ex.com/a/my%2Ffile.zip?x=1#y", "/a/my/file.zip"},
        {"clips/caf%C3%A9.mov", "clips/caf\xc3\xa9.mov"},
        {"file:///a/%FF.mov", std::nullopt},
        {"file:///a/b c.mov", std::nullopt},
    };
    for (const auto& c : cases) {
        const std::optional<QString> path = fnd::urlPath(QString::fromUtf8(c.url));
        ASSERT_EQ(path.has_value(), c.path.has_value()) << c.url;
        if (path) {
            EXPECT_EQ(*path, QString::fromUtf8(*c.path)) << c.url;
        }
    }
}
