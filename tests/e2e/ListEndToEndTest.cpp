// `SoftwareUpdate -list` in a sandbox against the local server: the exact description text
// on standard output, a pending self-update replacing the whole list, and a forced group
// that is not installed ending the run with status 1.

#include "platform/plist/PropertyList.h"
#include "support/Sandbox.h"
#include "support/TestServer.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

class ListEndToEnd : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(sandbox_.isValid());
        // The machine-wide log folder a Mac has; the run logs there when it runs as root.
        ASSERT_TRUE(sandbox_.makeDir(sandbox_.sysPath(QStringLiteral("/Library/Logs/Velmora"))));
        ASSERT_TRUE(server_.start({feeds_.path(), false}));
        sandbox_.useServer(server_);
        sandbox_.createBundle({sandbox_.sysPath(QStringLiteral("/Applications/Alpha.app")), QStringLiteral("com.velmora.Alpha"),
                               QStringLiteral("3"), QStringLiteral("3.0"), {},
                               QVariantMap{{QStringLiteral("VLGroupID"), QStringLiteral("suite")},
                                           {QStringLiteral("VLGroupVersion"), 3},
                                           {QStringLiteral("VLGroupVersionString"), QStringLiteral("3.0")}}});
        feed(QStringLiteral("suite.xml"), {{QStringLiteral("groupVersion"), 4},
                                           {QStringLiteral("groupVersionString"), QStringLiteral("4.0")},
                                           {QStringLiteral("groupID"), QStringLiteral("suite")},
                                           {QStringLiteral("title"), QStringLiteral("Suite 4.0")},
                                           {QStringLiteral("url"), QStringLiteral("https://example.invalid/suite.pkg")},
                                           {QStringLiteral("pageurl"), QStringLiteral("https://www.example.invalid/suite")},
                                           {QStringLiteral("size"), 1234}});
    }
    void feed(const QString& name, const QVariantMap& value)
    {
        QDir().mkpath(feeds_.filePath(QStringLiteral("rss/appcasts")));
        QFile out(feeds_.filePath(QStringLiteral("rss/appcasts/") + name));
        ASSERT_TRUE(out.open(QIODevice::WriteOnly | QIODevice::Truncate));
        out.write(plist::writeXml(value));
    }
    void selfFeed(int build)
    {
        feed(QStringLiteral("com.velmora.SoftwareUpdate.xml"),
             {{QStringLiteral("groupVersion"), build}, {QStringLiteral("groupVersionString"), QStringLiteral("2.0")},
              {QStringLiteral("url"), QStringLiteral("https://example.invalid/su.dmg")}});
    }

    QTemporaryDir feeds_;
    vltest::TestServer server_;
    vltest::Sandbox sandbox_;
};

} // namespace

TEST_F(ListEndToEnd, PrintsTheDescriptionOfTheUpdateList)
{
    selfFeed(100); // the updater's own build: nothing newer
    const vltest::RunResult run = sandbox_.runUpdater({QStringLiteral("-list")});
    ASSERT_EQ(run.exitCode, 0) << run.describe().toStdString();
    const QString expected = QStringLiteral(
        "{\n"
        "    updates =     (\n"
        "                {\n"
        "            bundleid = \"com.velmora.Alpha\";\n"
        "            groupid = suite;\n"
        "            manualOnly = 0;\n"
        "            newVersion = 4;\n"
        "            newVersionString = \"4.0\";\n"
        "            oldVersion = 3;\n"
        "            oldVersionString = \"3.0\";\n"
        "            pageurl = \"https://www.example.invalid/suite\";\n"
        "            selected = 1;\n"
        "            size = 1234;\n"
        "            title = \"Suite 4.0\";\n"
        "            type = group;\n"
        "            url = \"https://example.invalid/suite.pkg\";\n"
        "        }\n"
        "    );\n"
        "}");
    EXPECT_EQ(run.out().toStdString(), expected.toStdString());
    EXPECT_TRUE(server_.unexpectedRequests().isEmpty());
}

TEST_F(ListEndToEnd, APendingSelfUpdateIsTheOnlyRecord)
{
    selfFeed(200);
    const vltest::RunResult run = sandbox_.runUpdater({QStringLiteral("-list"), QStringLiteral("-autocheck")});
    ASSERT_EQ(run.exitCode, 0) << run.describe().toStdString();
    const QString expected = QStringLiteral(
        "{\n"
        "    updates =     (\n"
        "                {\n"
        "            bundleid = \"com.velmora.SoftwareUpdate\";\n"
        "            groupid = \"com.velmora.SoftwareUpdate\";\n"
        "            manualOnly = 0;\n"
        "            newVersion = 200;\n"
        "            newVersionString = \"2.0\";\n"
        "            oldVersion = 100;\n"
        "            oldVersionString = \"1.0.0\";\n"
        "            selected = 1;\n"
        "            title = \"Velmora Software Update 2.0\";\n"
        "            type = self;\n"
        "            url = \"https://example.invalid/su.dmg\";\n"
        "        }\n"
        "    );\n"
        "}");
    EXPECT_EQ(run.out().toStdString(), expected.toStdString());
    // No application was checked.
    EXPECT_FALSE(server_.requestedPaths().contains(QStringLiteral("/rss/appcasts/suite.xml")));
}

TEST_F(ListEndToEnd, ForcedGroupThatIsNotInstalledFailsTheRun)
{
    selfFeed(100);
    const vltest::RunResult run =
        sandbox_.runUpdater({QStringLiteral("-list"), QStringLiteral("-forceIDs"), QStringLiteral("suite,absent")});
    EXPECT_EQ(run.exitCode, 1) << run.describe().toStdString();
    EXPECT_TRUE(run.out().contains(QStringLiteral("Exception in -[AppController checkForUpdates:]. NSInvalidArgumentException")))
        << run.describe().toStdString();
    EXPECT_FALSE(run.out().contains(QStringLiteral("updates =")));
}
