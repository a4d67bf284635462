// The update list's rules as the controller serves them: what the columns show, the release
// notes' boxes and links, and the navigation rule of links in the notes; the Help menu's log.

#include "AppController.h"
#include "UpdateRecord.h"

#include "support/LogFixture.h"
#include "support/QtPrinters.h"
#include "support/RecordingUserInterface.h"
#include "support/RecordingWorkspace.h"

#include <QFile>
#include <gtest/gtest.h>

namespace {

UpdateRecord record(const QString& title, QVariantMap extra = {})
{
    UpdateRecord r{{record::kType, record::kTypeSparkle}, {record::kTitle, title}, {record::kSelected, 1},
                   {record::kUrl, QStringLiteral("https://downloads.example.com/%1.dmg").arg(title)},
                   {record::kChangeList, QStringLiteral("<p>%1 notes</p>").arg(title)}};
    r.insert(extra);
    return r;
}

TEST(UpdateList, ColumnsShowTheRecordWithManualOnlyAndPaidMarks)
{
    const QList<UpdateRecord> rows = {
        record(QStringLiteral("Studio"), {{record::kManualOnly, true}, {record::kPaidUpgrade, true},
                                          {record::kRequirementsString, QStringLiteral("macOS 12")}}),
        record(QStringLiteral("Cut"), {{record::kPaidUpgrade, true}})};
    const auto value = [&](const char* column, int row) { return AppController::tableViewObjectValue(rows, QString::fromLatin1(column), row); };
    EXPECT_EQ(value("check", 0), QVariant(0)) << "manual-only is never ticked, whatever it says";
    EXPECT_FALSE(AppController::tableViewCheckCellEnabled(rows.at(0)));
    EXPECT_EQ(value("check", 1), QVariant(1));
    EXPECT_EQ(value("title", 0), QVariant(QStringLiteral("Studio (Paid Upgrade) (Manual Only)")));
    EXPECT_EQ(value("title", 1), QVariant(QStringLiteral("Cut (Paid Upgrade)")));
    EXPECT_EQ(value("requirements", 0), QVariant(QStringLiteral("macOS 12")));
    EXPECT_FALSE(value("title", 2).isValid());
}

TEST(UpdateList, ReleaseNotesCarryTheirBoxesAndAnEscapedManualLink)
{
    const QString paidManual = AppController::changeListForUpdate(
        record(QStringLiteral("Studio"), {{record::kManualOnly, true}, {record::kPaidUpgrade, true}}));
    EXPECT_LT(paidManual.indexOf(QStringLiteral("<b>Paid upgrade:</b>")), paidManual.indexOf(QStringLiteral("<b>Important:</b>")));
    EXPECT_TRUE(paidManual.contains(QStringLiteral(">Install manually</a> (updater will close)")));
    const QString ordinary = AppController::changeListForUpdate(record(QStringLiteral("Notes")));
    EXPECT_FALSE(ordinary.contains(QStringLiteral("Paid upgrade:")));
    EXPECT_GT(ordinary.indexOf(QStringLiteral("<a href=\"https://downloads.example.com/Notes.dmg\">Install update manually</a>")),
              ordinary.indexOf(QStringLiteral("Notes notes")));
    // An address cannot end its attribute and add markup of its own.
    const QString hostile = AppController::changeListForUpdate(
        record(QStringLiteral("X"), {{record::kUrl, QStringLiteral("https://x/a.dmg\"><img src=\"file:///etc/passwd")}}));
    EXPECT_TRUE(hostile.contains(QStringLiteral("a.dmg&quot;&gt;&lt;img")));
}

TEST(UpdateList, LinksGoToTheBrowserAndDirectInstallerDownloadsQuit)
{
    struct Case { const char* url; bool opened; bool quits; };
    const QList<Case> cases = {{"https://www.velmora.com/notes", true, false}, {"http://downloads.velmora.com/Notes.ZIP?mirror=2", true, true},
                               {"https://downloads.velmora.com/Notes.dmg.html", true, false}, {"file:///usr/bin/xterm", false, false}};
    for (const Case& c : cases) {
        vltest::LogFixture log;
        vltest::ScopedRecordingWorkspace workspace;
        auto recording = std::make_unique<vltest::RecordingUserInterface>();
        const vltest::RecordingUserInterface& ui = *recording;
        const std::unique_ptr<AppController> controller = AppController::init(std::move(recording));
        const QString url = QString::fromLatin1(c.url);
        EXPECT_FALSE(controller->decidePolicyForNavigation(url, true)) << "the notes view never follows a link itself";
        EXPECT_EQ(workspace.opened(), c.opened ? QStringList{url} : QStringList{}) << c.url;
        EXPECT_EQ(ui.calls().contains(QStringLiteral("terminate")), c.quits) << c.url;
        // Loading the notes themselves is allowed.
        EXPECT_TRUE(controller->decidePolicyForNavigation(QStringLiteral("about:blank"), false));
    }
}

// The Help menu's log item looks for the log under the name the updater's logs really have, the
// executable's name, not its display name.
TEST(HelpMenu, ViewLogOpensTheLogNamedAfterTheExecutable)
{
    vltest::LogFixture log;
    vltest::ScopedRecordingWorkspace workspace;
    std::unique_ptr<AppController> controller = AppController::init(std::make_unique<vltest::RecordingUserInterface>());
    // Where the log of a user's run lies (a root run writes elsewhere, and that is kept).
    const QString userLog = VLLog::logFolder() + QLatin1Char('/') + VLLog::appName() + QStringLiteral(".1.log");
    QFile file(userLog);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.close();
    controller->viewLog();
    EXPECT_EQ(workspace.opened(), QStringList{userLog});
}

} // namespace
