// The Help menu's log item looks for the log under the name the updater's logs really have, the
// executable's name, not its display name.

#include "AppController.h"

#include "support/LogFixture.h"
#include "support/RecordingUserInterface.h"
#include "support/RecordingWorkspace.h"

#include <QFile>
#include <gtest/gtest.h>

namespace {

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
