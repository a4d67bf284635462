// Where "-install sparkle" finds the application's feed: the Info dictionary first, then each
// descriptor in turn, a descriptor without the key passing on to the next.
#include "lifecycle/RunModes.h"

#include "support/FixturePlist.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <optional>

namespace {

// A descriptor file: absent (nullopt), or present with these keys.
using Descriptor = std::optional<QVariantMap>;

TEST(InstallMode, TheFeedComesFromInfoThenEachDescriptorThatHasIt)
{
    const QVariantMap noFeed{{QStringLiteral("VLGroupID"), QStringLiteral("grp")}};
    const auto feed = [](const char* url) { return QVariantMap{{QStringLiteral("SUFeedURL"), QString::fromUtf8(url)}}; };
    struct Case {
        QVariantMap info;
        Descriptor resources; // Contents/Resources/VLUpdates.plist
        Descriptor contents;  // Contents/VLUpdates.plist
        const char* expected;
    };
    const Case cases[] = {
        {feed("info"), feed("resources"), feed("contents"), "info"},
        {noFeed, feed("resources"), feed("contents"), "resources"},
        {noFeed, noFeed, feed("contents"), "contents"},
        {noFeed, std::nullopt, feed("contents"), "contents"},
        {noFeed, noFeed, noFeed, ""},
    };
    for (const Case& c : cases) {
        QTemporaryDir dir;
        const QString app = dir.filePath(QStringLiteral("Tessel.app"));
        ASSERT_TRUE(QDir().mkpath(app + QStringLiteral("/Contents/Resources")));
        for (const auto& [relative, descriptor] : {std::pair{"/Contents/Resources/VLUpdates.plist", c.resources},
                                                   std::pair{"/Contents/VLUpdates.plist", c.contents}}) {
            QFile file(app + QString::fromLatin1(relative));
            if (descriptor) {
                ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write(vltest::fixturePlistXml(*descriptor)) > 0);
            }
        }
        EXPECT_EQ(runmodes::installFeedOf(app, c.info), QString::fromUtf8(c.expected)) << c.expected;
    }
}

} // namespace
