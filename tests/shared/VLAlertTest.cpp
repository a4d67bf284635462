#include "shared/VLAlert.h"

#include "platform/system/UserDefaults.h"
#include "support/LogFixture.h"
#include "support/QtPrinters.h"
#include "support/ScriptedAlertPresenter.h"

#include <QCoreApplication>
#include <QDeadlineTimer>

#include <condition_variable>
#include <mutex>
#include <thread>

#include <gtest/gtest.h>

using vltest::ScriptedAlertPresenter;
using When = vltest::ScriptedAlertPresenter::When;

namespace {

// Ends a blocking alert with -2 if nothing else has after a generous minute, so a broken wait
// fails the test instead of hanging it.
class HangGuard {
public:
    explicit HangGuard(std::shared_ptr<VLAlert> alert)
        : thread_([this, alert] {
              std::unique_lock lock(mutex_);
              if (!cancel_.wait_for(lock, std::chrono::seconds(60), [this] { return done_; }))
                  alert->alertDidEnd(-2);
          })
    {
    }
    ~HangGuard()
    {
        {
            const std::lock_guard lock(mutex_);
            done_ = true;
        }
        cancel_.notify_all();
        thread_.join();
    }

private:
    std::mutex mutex_;
    std::condition_variable cancel_;
    bool done_ = false;
    std::thread thread_;
};

// A delegate of the caller's that answers to one end selector and records its end messages.
class RecordingDelegate final : public VLAlertDelegate {
public:
    explicit RecordingDelegate(QString selector) : selector_(std::move(selector)) {}
    bool respondsToSelector(const QString& selector) const override { return selector == selector_; }
    void performEndSelector(const QString& selector, VLAlert&, int returnCode) override
    {
        ends.append({selector, returnCode});
        onMainThread = sys::isMainThread();
    }
    QList<std::pair<QString, int>> ends;
    bool onMainThread = false;

private:
    const QString selector_;
};

void pumpUntil(const std::function<bool()>& reached)
{
    const QDeadlineTimer deadline(60000);
    while (!reached() && !deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
}

class VLAlertTest : public ::testing::Test {
protected:
    void SetUp() override { VLAlert::setPresenter(presenter_); }
    void TearDown() override { VLAlert::setPresenter(nullptr); }

    ScriptedAlertPresenter& presenter() { return *presenter_; }
    // A blocking alert with an alert object of the test's, guarded against hanging.
    int blockingAlert(QObject* parent = nullptr, std::shared_ptr<VLAlert> object = VLAlert::create())
    {
        HangGuard guard(object);
        return VLAlert::alertSheetWithMessageText(QStringLiteral("Message"), QString(), QString(), QString(),
                                                  QStringLiteral("Info"), parent, nullptr, QString(), true, object);
    }

private:
    std::shared_ptr<ScriptedAlertPresenter> presenter_ = std::make_shared<ScriptedAlertPresenter>();
};

TEST_F(VLAlertTest, BlockingCallReturnsThePressedButtonOnAndOffTheMainThread)
{
    for (const bool onMainThread : {true, false}) {
        SCOPED_TRACE(onMainThread ? "main thread" : "worker thread");
        // Answered from the event loop: the wait must keep the main thread's events flowing.
        presenter().script(When::Later, VLAlert::alternateReturn);
        const auto object = VLAlert::create();
        int code = 99;
        if (onMainThread)
            code = blockingAlert(nullptr, object);
        else
            vltest::runOffMainThread([&] { code = blockingAlert(nullptr, object); });
        EXPECT_EQ(code, VLAlert::alternateReturn);
        ASSERT_FALSE(presenter().alerts.isEmpty());
        EXPECT_TRUE(presenter().alerts.last()->beganOnMainThread);
        EXPECT_TRUE(object->alertEnded());
        EXPECT_EQ(object->alert(), nullptr); // let go once closed
    }
}

TEST_F(VLAlertTest, TimedAlertAnswersWithTheDefaultButtonUnlessTheUserIsFirst)
{
    presenter().script(When::Never);
    EXPECT_EQ(VLAlert::timedAlertSheetWithMessageText(QStringLiteral("Restarting"), QString(), QString(), QString(),
                                                      QString(), nullptr, 0),
              VLAlert::defaultReturn);
    ASSERT_EQ(presenter().alerts.size(), 1);
    EXPECT_TRUE(presenter().alerts[0]->orderedOut); // the unanswered alert leaves the screen

    // The user answers first; the timer fires long after the call has returned.
    presenter().script(When::AtOnce, VLAlert::otherReturn);
    EXPECT_EQ(VLAlert::timedAlertSheetWithMessageText(QStringLiteral("Restarting"), QString(), QString(),
                                                      QStringLiteral("Cancel"), QString(), nullptr, 30),
              VLAlert::otherReturn);
}

TEST_F(VLAlertTest, NonBlockingCallsReturnMinusOneAndTheAnswerGoesToTheDelegate)
{
    presenter().script(When::AtOnce, VLAlert::defaultReturn);
    EXPECT_EQ(VLAlert::alertSheetWithMessageText(QStringLiteral("M"), QString(), QString(), QString(), QString(),
                                                 nullptr, false),
              -1);

    const QString selector = QStringLiteral("sheetDidEnd:returnCode:contextInfo:");
    RecordingDelegate delegate(selector);
    presenter().script(When::Later, VLAlert::alternateReturn);
    EXPECT_EQ(VLAlert::alertSheetWithMessageText(QStringLiteral("M"), QString(), QString(), QString(), QString(),
                                                 nullptr, &delegate, selector, false, nullptr),
              -1);
    pumpUntil([&] { return !delegate.ends.isEmpty(); });
    ASSERT_EQ(delegate.ends.size(), 1);
    EXPECT_EQ(delegate.ends[0], std::make_pair(selector, VLAlert::alternateReturn));
    EXPECT_TRUE(delegate.onMainThread);

    // A delegate without the end selector: -1, and nothing is shown.
    const qsizetype shown = presenter().alerts.size();
    EXPECT_EQ(VLAlert::alertSheetWithMessageText(QStringLiteral("M"), QString(), QString(), QString(), QString(),
                                                 nullptr, &delegate, QStringLiteral("other:"), true, nullptr),
              -1);
    // No delegate: the alert object answers to the default selector only.
    EXPECT_EQ(VLAlert::alertSheetWithMessageText(QStringLiteral("M"), QString(), QString(), QString(), QString(),
                                                 nullptr, nullptr, selector, true, nullptr),
              -1);
    EXPECT_EQ(presenter().alerts.size(), shown);
}

TEST_F(VLAlertTest, TheDelegateFormIgnoresItsDelegateSelectorAndBlockingFlag)
{
    RecordingDelegate delegate(QStringLiteral("never:"));
    presenter().script(When::AtOnce, VLAlert::alternateReturn);
    EXPECT_EQ(VLAlert::alertSheetWithMessageText(QStringLiteral("M"), QStringLiteral("OK"), QStringLiteral("No"),
                                                 QString(), QString(), nullptr, &delegate,
                                                 QStringLiteral("missing:"), false),
              VLAlert::alternateReturn);
    EXPECT_TRUE(delegate.ends.isEmpty());
}

TEST_F(VLAlertTest, AParentThatAlreadyShowsASheetGetsAFreeStandingAlert)
{
    QObject window;
    for (const bool hasSheet : {false, true}) {
        SCOPED_TRACE(hasSheet ? "parent shows a sheet" : "free parent");
        presenter().windowsWithSheet.clear();
        presenter().broughtToFront.clear();
        if (hasSheet)
            presenter().windowsWithSheet.insert(&window);
        presenter().script(When::AtOnce);
        const auto object = VLAlert::create();
        EXPECT_EQ(blockingAlert(&window, object), VLAlert::defaultReturn);
        QObject* const expected = hasSheet ? nullptr : &window;
        EXPECT_EQ(presenter().alerts.last()->window, expected);
        EXPECT_EQ(object->parentWindow(), expected);
        EXPECT_EQ(presenter().broughtToFront, hasSheet ? QList<QObject*>() : QList<QObject*>{&window});
    }
}

TEST_F(VLAlertTest, TextsReachThePresenterAsTheyStand)
{
    presenter().script(When::AtOnce);
    (void)VLAlert::alertSheetWithMessageText(QStringLiteral("Disk 100% full"), QStringLiteral("Install"), QString(),
                                             QStringLiteral("Later"), QStringLiteral("Copied %d of %@ files (5%)"),
                                             nullptr, true);
    presenter().script(When::AtOnce);
    (void)VLAlert::alertSheetWithMessageText(QString(), QString(), nullptr);
    ASSERT_EQ(presenter().alerts.size(), 2);
    const auto& first = *presenter().alerts[0];
    EXPECT_EQ(first.messageText, QStringLiteral("Disk 100% full"));
    EXPECT_EQ(first.informativeText, QStringLiteral("Copied %d of %@ files (5%)"));
    EXPECT_EQ(QStringList({first.defaultButton, first.alternateButton, first.otherButton}),
              QStringList({QStringLiteral("Install"), QString(), QStringLiteral("Later")}));
    EXPECT_TRUE(presenter().alerts[1]->informativeText.isEmpty());
    EXPECT_FALSE(first.suppressionShown);
}

TEST_F(VLAlertTest, SuppressionBoxIsBoundToTheUserDefault)
{
    vltest::LogFixture home; // a fresh HOME for the user defaults
    const QString key = QStringLiteral("SuppressRestartWarning");
    sys::UserDefaults::standard().setBool(true, key);
    presenter().script(When::Never);
    const auto object = VLAlert::create();
    EXPECT_EQ(VLAlert::alertSheetWithMessageText(QStringLiteral("M"), QString(), QString(), QString(), QString(),
                                                 nullptr, nullptr, QString(), false, object, key),
              -1);
    ASSERT_EQ(presenter().alerts.size(), 1);
    auto& alert = *presenter().alerts[0];
    ASSERT_TRUE(alert.suppressionShown);
    EXPECT_TRUE(alert.suppressionChecked);
    alert.toggleSuppression(false);
    EXPECT_FALSE(sys::UserDefaults::standard().boolForKey(key));
    EXPECT_EQ(sys::UserDefaults::standard().persistentDomain().value(key), QVariant(false));
    alert.press(VLAlert::defaultReturn);
    EXPECT_TRUE(object->alertEnded());
}

TEST(VLAlertWithoutPresenter, AlertIsLoggedAndAnsweredWithTheDefaultButton)
{
    vltest::LogFixture log;
    VLAlert::setPresenter(nullptr);
    EXPECT_EQ(VLAlert::mainWindow(), nullptr);
    EXPECT_EQ(VLAlert::alertSheetWithMessageText(QStringLiteral("No log found"), QStringLiteral("Run it 100% first"),
                                                 nullptr),
              VLAlert::defaultReturn);
    EXPECT_TRUE(log.logText().contains(QStringLiteral("No log found - Run it 100% first")));

    const QString selector = QStringLiteral("done:");
    RecordingDelegate delegate(selector);
    EXPECT_EQ(VLAlert::alertSheetWithMessageText(QStringLiteral("M"), QString(), QString(), QString(), QString(),
                                                 nullptr, &delegate, selector, false, nullptr),
              -1);
    ASSERT_EQ(delegate.ends.size(), 1);
    EXPECT_EQ(delegate.ends[0].second, VLAlert::defaultReturn);
}

} // namespace
