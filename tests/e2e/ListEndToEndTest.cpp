// `SoftwareUpdate -list` and `-explain` in a sandbox against the local server: the exact
// description text on standard output, the JSON forms, the precedence of -list over
// -explain, a pending self-update replacing the whole list, and a forced group that is not
// installed ending the run with status 1.

#include "platform/plist/PropertyList.h"
#include "support/Sandbox.h"
#include "support/TestServer.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
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

TEST_F(ListEndToEnd, JsonKeepsTheRecordsTypesAndEveryOtherCommandLineKeepsTheText)
{
    selfFeed(100);
    const vltest::RunResult text = sandbox_.runUpdater({QStringLiteral("-list")});
    ASSERT_EQ(text.exitCode, 0) << text.describe().toStdString();

    const vltest::RunResult json = sandbox_.runUpdater({QStringLiteral("-list"), QStringLiteral("-format"), QStringLiteral("json")});
    ASSERT_EQ(json.exitCode, 0) << json.describe().toStdString();
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json.stdoutData, &error);
    ASSERT_EQ(error.error, QJsonParseError::NoError) << json.describe().toStdString();
    const QJsonArray updates = document.object().value(QStringLiteral("updates")).toArray();
    ASSERT_EQ(updates.size(), 1);
    const QJsonObject update = updates.at(0).toObject();
    EXPECT_EQ(update.value(QStringLiteral("size")), QJsonValue(1234));
    EXPECT_EQ(update.value(QStringLiteral("newVersion")), QJsonValue(4));
    EXPECT_EQ(update.value(QStringLiteral("manualOnly")), QJsonValue(false));
    EXPECT_EQ(update.value(QStringLiteral("selected")), QJsonValue(1));
    EXPECT_EQ(update.value(QStringLiteral("title")), QJsonValue(QStringLiteral("Suite 4.0")));

    // -list wins over -explain, and a format other than json leaves the text as it was.
    for (const QStringList& extra : {QStringList{QStringLiteral("-explain")},
                                     QStringList{QStringLiteral("-format"), QStringLiteral("plist")}}) {
        const vltest::RunResult run = sandbox_.runUpdater(QStringList{QStringLiteral("-list")} + extra);
        EXPECT_EQ(run.exitCode, 0);
        EXPECT_EQ(run.stdoutData, text.stdoutData) << extra.join(QLatin1Char(' ')).toStdString();
    }
}

TEST_F(ListEndToEnd, ExplainSaysWhyEachApplicationIsOrIsNotOffered)
{
    selfFeed(100);
    // A Sparkle application whose feed the server does not have (an error page), and a
    // bundle without update descriptor, which the scan passes over.
    sandbox_.createBundle({sandbox_.sysPath(QStringLiteral("/Applications/Notes.app")), QStringLiteral("com.velmora.Notes"),
                           QStringLiteral("5"), QStringLiteral("1.0"), {},
                           QVariantMap{{QStringLiteral("SUFeedURL"), server_.url(QStringLiteral("/appcasts/notes.xml"))}}});
    const QString plain = sandbox_.createBundle({sandbox_.sysPath(QStringLiteral("/Applications/Plain.app")),
                                                 QStringLiteral("com.velmora.Plain"), QStringLiteral("1"), QStringLiteral("1.0")});

    const vltest::RunResult text = sandbox_.runUpdater({QStringLiteral("-explain")});
    ASSERT_EQ(text.exitCode, 0) << text.describe().toStdString();
    const QStringList lines = text.out().split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 3) << text.describe().toStdString();
    EXPECT_TRUE(lines[0].startsWith(QStringLiteral("Velmora Software Update (com.velmora.SoftwareUpdate): up-to-date - ")));
    EXPECT_TRUE(lines[1].startsWith(QStringLiteral("Alpha (com.velmora.Alpha): offered - \"Suite 4.0\"")));
    EXPECT_TRUE(lines[2].startsWith(QStringLiteral("Notes (com.velmora.Notes): feed-malformed - ")));
    EXPECT_TRUE(lines[2].contains(QStringLiteral("HTTP status 404")));

    const vltest::RunResult json = sandbox_.runUpdater({QStringLiteral("-explain"), QStringLiteral("-format"), QStringLiteral("json")});
    ASSERT_EQ(json.exitCode, 0) << json.describe().toStdString();
    const QJsonArray applications =
        QJsonDocument::fromJson(json.stdoutData).object().value(QStringLiteral("applications")).toArray();
    ASSERT_EQ(applications.size(), 3) << json.describe().toStdString();
    const QJsonObject notes = applications.at(2).toObject();
    EXPECT_EQ(notes.value(QStringLiteral("application")), QJsonValue(QStringLiteral("Notes")));
    EXPECT_EQ(notes.value(QStringLiteral("bundleid")), QJsonValue(QStringLiteral("com.velmora.Notes")));
    EXPECT_EQ(notes.value(QStringLiteral("outcome")), QJsonValue(QStringLiteral("feed-malformed")));
    EXPECT_EQ(notes.value(QStringLiteral("details")).toObject().value(QStringLiteral("httpStatus")), QJsonValue(404));
    EXPECT_EQ(notes.value(QStringLiteral("reason")).toString(), lines[2].section(QStringLiteral(" - "), 1));

    // One application asked about, by path or by identifier.
    const vltest::RunResult byPath = sandbox_.runUpdater({QStringLiteral("-explain"), plain});
    EXPECT_EQ(byPath.exitCode, 0);
    EXPECT_TRUE(byPath.out().startsWith(QStringLiteral("Plain: not-vendor-bundle - it has no update descriptor")))
        << byPath.describe().toStdString();
    const vltest::RunResult absent = sandbox_.runUpdater({QStringLiteral("-explain"), QStringLiteral("com.velmora.Absent")});
    EXPECT_EQ(absent.exitCode, 0);
    EXPECT_TRUE(absent.out().startsWith(QStringLiteral("com.velmora.Absent: not-found - "))) << absent.describe().toStdString();
}

TEST_F(ListEndToEnd, ExplainWithAPendingSelfUpdateSaysNothingElseWasChecked)
{
    selfFeed(200);
    const vltest::RunResult all = sandbox_.runUpdater({QStringLiteral("-explain")});
    ASSERT_EQ(all.exitCode, 0) << all.describe().toStdString();
    EXPECT_TRUE(all.out().startsWith(QStringLiteral("Velmora Software Update (com.velmora.SoftwareUpdate): offered - ")));
    EXPECT_EQ(all.out().count(QLatin1Char('\n')), 1) << all.describe().toStdString();

    const vltest::RunResult alpha = sandbox_.runUpdater({QStringLiteral("-explain"), QStringLiteral("com.velmora.Alpha")});
    EXPECT_EQ(alpha.exitCode, 0);
    EXPECT_TRUE(alpha.out().startsWith(QStringLiteral("com.velmora.Alpha: not-checked - an update of the updater itself")))
        << alpha.describe().toStdString();
    EXPECT_FALSE(server_.requestedPaths().contains(QStringLiteral("/rss/appcasts/suite.xml")));
}
