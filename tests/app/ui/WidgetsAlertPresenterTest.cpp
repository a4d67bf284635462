// VLAlert's alerts as the windowed application presents them: a blocking alert asked from a
// worker is a sheet on its window and returns the pressed button; a window that already shows a
// sheet gets a free-standing alert instead; the suppression box writes its user default.

#include "UpdateProgressSheet.h"
#include "WindowsFixture.h"
#include "platform/system/UserDefaults.h"
#include "shared/VLAlert.h"

#include <QCheckBox>
#include <QPushButton>
#include <QTest>

#include <atomic>
#include <thread>

namespace {

using WidgetsAlertPresenterTest = vltest::WindowsFixture;

TEST_F(WidgetsAlertPresenterTest, AWorkersBlockingAlertIsASheetAndReturnsThePressedButton)
{
    windows_->showMainWindow();
    std::atomic<int> answer{42};
    std::thread worker([&] {
        answer = VLAlert::alertSheetWithMessageText(QStringLiteral("Notes is a paid upgrade. Are you sure you wish to install it?"),
                                                    QStringLiteral("Install"), QStringLiteral("Don't Install"), QString(),
                                                    QStringLiteral("100% of %d stays as written"), VLAlert::mainWindow(), true);
    });
    QMessageBox* box = waitForAlert();
    ASSERT_TRUE(box);
    EXPECT_EQ(box->parentWidget(), &main());
    EXPECT_EQ(box->windowModality(), Qt::WindowModal);
    EXPECT_EQ(box->informativeText(), QStringLiteral("100% of %d stays as written"));
    EXPECT_EQ(box->defaultButton()->text(), QStringLiteral("Install"));
    QTest::keyClick(box, Qt::Key_Escape); // the alternate button
    ASSERT_TRUE(waitUntil([&] { return answer != 42; }));
    worker.join();
    EXPECT_EQ(answer, VLAlert::alternateReturn);
}

TEST_F(WidgetsAlertPresenterTest, AWindowThatShowsASheetGetsAFreeStandingAlert)
{
    windows_->showMainWindow();
    windows_->showUpdateProgress();
    VLAlert::alertSheetWithMessageText(QStringLiteral("Download failed."), QString(), QString(), QString(), QString(),
                                       VLAlert::mainWindow(), false);
    QMessageBox* box = waitForAlert();
    ASSERT_TRUE(box);
    EXPECT_EQ(box->parentWidget(), nullptr);
    EXPECT_EQ(box->windowModality(), Qt::ApplicationModal);
    QTest::keyClick(box, Qt::Key_Return);
}

TEST_F(WidgetsAlertPresenterTest, TheSuppressionBoxWritesItsDefault)
{
    windows_->showMainWindow();
    const QString key = QStringLiteral("suppressLaunchAgentWarning");
    VLAlert::alertSheetWithMessageText(QStringLiteral("Error: Unable to create LaunchAgent"), QString(), QString(), QString(),
                                       QString(), VLAlert::mainWindow(), nullptr, QString(), false, nullptr, key);
    QMessageBox* box = waitForAlert();
    ASSERT_TRUE(box && box->checkBox());
    EXPECT_FALSE(box->checkBox()->isChecked());
    box->checkBox()->click();
    EXPECT_TRUE(sys::UserDefaults::standard().boolForKey(key));
    QTest::keyClick(box, Qt::Key_Return);
}

} // namespace
