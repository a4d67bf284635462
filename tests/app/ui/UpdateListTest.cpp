// The update list's rules as the controller serves them, with a recording interface: what each
// column shows, the check column's edits and the install button, the release notes of the
// selection and the navigation rule of links in the notes.

#include "AppController.h"
#include "UpdateRecord.h"

#include "support/LogFixture.h"
#include "support/QtPrinters.h"
#include "support/RecordingUserInterface.h"
#include "support/RecordingWorkspace.h"

#include <gtest/gtest.h>

namespace {

UpdateRecord record(const QString& title, QVariantMap extra = {})
{
    UpdateRecord r{{record::kType, record::kTypeSparkle}, {record::kTitle, title}, {record::kSelected, 1},
                   {record::kUrl, QStringLiteral("https://downloads.example.com/%1.dmg").arg(title)},
                   {record::kSize, QStringLiteral("2048")}, {record::kChangeList, QStringLiteral("<p>%1 notes</p>").arg(title)}};
    for (auto it = extra.cbegin(); it != extra.cend(); ++it)
        r.insert(it.key(), it.value());
    return r;
}

class UpdateListTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        auto ui = std::make_unique<vltest::RecordingUserInterface>();
        ui_ = ui.get();
        controller_ = AppController::init(std::move(ui));
    }
    void setRows(const QList<UpdateRecord>& rows)
    {
        std::lock_guard lock(controller_->dataArrayLock);
        controller_->dataArray = rows;
    }

    vltest::LogFixture log_;
    vltest::RecordingUserInterface* ui_ = nullptr; // owned by the controller
    std::unique_ptr<AppController> controller_;
};

TEST(UpdateListRules, ColumnsShowTheRecordWithManualOnlyAndPaidMarks)
{
    const QList<UpdateRecord> rows = {
        record(QStringLiteral("Notes")),
        record(QStringLiteral("Studio"), {{record::kManualOnly, true}, {record::kPaidUpgrade, true},
                                          {record::kRequirementsString, QStringLiteral("macOS 12")}}),
        record(QStringLiteral("Cut"), {{record::kPaidUpgrade, true}, {record::kSelected, 0}}),
    };
    const auto value = [&](const char* column, int row) {
        return AppController::tableViewObjectValue(rows, QString::fromLatin1(column), row);
    };
    EXPECT_EQ(value("check", 0), QVariant(1));
    EXPECT_EQ(value("check", 1), QVariant(0)) << "manual-only is never ticked, whatever it says";
    EXPECT_EQ(value("check", 2), QVariant(0));
    EXPECT_EQ(value("title", 0), QVariant(QStringLiteral("Notes")));
    EXPECT_EQ(value("title", 1), QVariant(QStringLiteral("Studio (Paid Upgrade) (Manual Only)")));
    EXPECT_EQ(value("title", 2), QVariant(QStringLiteral("Cut (Paid Upgrade)")));
    EXPECT_EQ(value("curSize", 0), QVariant(QStringLiteral("2048")));
    EXPECT_EQ(value("requirements", 1), QVariant(QStringLiteral("macOS 12")));
    EXPECT_FALSE(value("requirements", 0).isValid());
    EXPECT_FALSE(value("other", 0).isValid());
    EXPECT_FALSE(value("title", 3).isValid());
    EXPECT_TRUE(AppController::tableViewCheckCellEnabled(rows.at(0)));
    EXPECT_FALSE(AppController::tableViewCheckCellEnabled(rows.at(1)));
}

TEST_F(UpdateListTest, UntickingTheLastTickedRowDisablesInstallAtOnce)
{
    setRows({record(QStringLiteral("Notes")), record(QStringLiteral("Cut"), {{record::kSelected, 0}})});
    controller_->tableViewSetObjectValue(0, QStringLiteral("check"), 0);
    controller_->tableViewSetObjectValue(1, QStringLiteral("title"), 1); // not the check column
    controller_->tableViewSetObjectValue(1, QStringLiteral("check"), 7); // no such row
    controller_->tableViewSetObjectValue(1, QStringLiteral("check"), 1);
    EXPECT_EQ(ui_->calls(), (QStringList{"installButton:off", "installButton:on"}));
    EXPECT_EQ(controller_->dataArray.at(0).value(record::kSelected), QVariant(0));
    EXPECT_EQ(controller_->dataArray.at(1).value(record::kSelected), QVariant(1));
}

TEST_F(UpdateListTest, TheSelectionShowsItsNotesAndNoSelectionShowsNothing)
{
    setRows({record(QStringLiteral("Notes"))});
    controller_->tableViewSelectionDidChange(0);
    controller_->tableViewSelectionDidChange(-1);
    const QStringList calls = ui_->calls();
    ASSERT_EQ(calls.size(), 2);
    EXPECT_TRUE(calls.at(0).contains(QStringLiteral("<p>Notes notes</p>")));
    EXPECT_TRUE(calls.at(0).startsWith(QStringLiteral("notes:<style>a:link { color: #4490e2; }")));
    EXPECT_TRUE(calls.at(1).endsWith(QStringLiteral("</style>"))) << "an empty view: the style block only";
}

TEST(ReleaseNotes, PaidManualAndOrdinaryUpdatesGetTheirBoxesAndLinks)
{
    const QString paidManual = AppController::changeListForUpdate(
        record(QStringLiteral("Studio"), {{record::kManualOnly, true}, {record::kPaidUpgrade, true}}));
    EXPECT_LT(paidManual.indexOf(QStringLiteral("<b>Paid upgrade:</b>")), paidManual.indexOf(QStringLiteral("<b>Important:</b>")));
    EXPECT_TRUE(paidManual.contains(QStringLiteral(">Install manually</a> (updater will close)")));
    EXPECT_FALSE(paidManual.contains(QStringLiteral("Install update manually")));

    const QString ordinary = AppController::changeListForUpdate(record(QStringLiteral("Notes")));
    EXPECT_FALSE(ordinary.contains(QStringLiteral("Paid upgrade:")));
    EXPECT_TRUE(ordinary.contains(QStringLiteral("<a href=\"https://downloads.example.com/Notes.dmg\">Install update "
                                                 "manually</a> (updater will close)")));
    EXPECT_LT(ordinary.indexOf(QStringLiteral("Notes notes")), ordinary.indexOf(QStringLiteral("Install update manually")));

    // An address cannot end its attribute and add markup of its own.
    const QString hostile = AppController::changeListForUpdate(
        record(QStringLiteral("X"), {{record::kUrl, QStringLiteral("https://x/a.dmg\"><img src=\"file:///etc/passwd")}}));
    EXPECT_FALSE(hostile.contains(QStringLiteral("a.dmg\">")));
    EXPECT_TRUE(hostile.contains(QStringLiteral("a.dmg&quot;&gt;&lt;img")));
}

struct NavigationCase {
    const char* url;
    bool opened;
    bool quits;
};

class NavigationTest : public UpdateListTest, public ::testing::WithParamInterface<NavigationCase> {};

TEST_P(NavigationTest, LinksGoToTheBrowserAndDirectInstallerDownloadsQuit)
{
    vltest::ScopedRecordingWorkspace workspace;
    const QString url = QString::fromLatin1(GetParam().url);
    EXPECT_FALSE(controller_->decidePolicyForNavigation(url, true)) << "the notes view never follows a link itself";
    EXPECT_EQ(workspace.opened(), GetParam().opened ? QStringList{url} : QStringList{});
    EXPECT_EQ(ui_->calls().contains(QStringLiteral("terminate")), GetParam().quits);
}

INSTANTIATE_TEST_SUITE_P(Links, NavigationTest, ::testing::Values(
    NavigationCase{"https://www.velmora.com/notes", true, false},
    NavigationCase{"https://downloads.velmora.com/Notes.DMG", true, true},
    NavigationCase{"http://downloads.velmora.com/Notes.zip?mirror=2", true, true},
    NavigationCase{"https://downloads.velmora.com/Notes.dmg.html", true, false},
    NavigationCase{"file:///usr/bin/xterm", false, false},
    NavigationCase{"javascript:alert(1)", false, false}));

TEST_F(UpdateListTest, LoadingTheNotesThemselvesIsAllowed)
{
    vltest::ScopedRecordingWorkspace workspace;
    EXPECT_TRUE(controller_->decidePolicyForNavigation(QStringLiteral("about:blank"), false));
    EXPECT_TRUE(workspace.opened().isEmpty());
}

} // namespace
