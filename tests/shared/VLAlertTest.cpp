#include "shared/VLAlert.h"

#include "platform/plist/PropertyList.h"
#include "platform/system/UserDefaults.h"
#include "support/LogFixture.h"
#include "support/QtPrinters.h"
#include "support/ScriptedAlertPresenter.h"

#include <QCoreApplication>
#include <QDeadlineTimer>

#include <gtest/gtest.h>

using vltest::ScriptedAlertPresenter;
using When = vltest::ScriptedAlertPresenter::When;

namespace {

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

class VLAlertTest : public ::testing::Test {
protected:
    void SetUp() override { VLAlert::setPresenter(presenter_); }
    void TearDown() override { VLAlert::setPresenter(nullptr); }

    ScriptedAlertPresenter& presenter() { return *presenter_; }
    // A blocking alert with an alert object of the test's.
    static int blockingAlert(QObject* parent, std::shared_ptr<VLAlert> object)
    {
        return VLAlert::alertSheetWithMessageText(QStringLiteral("Disk 100% full"), QString(), QString(), QStringLiteral("Later"),
                                                  QStringLiteral("Copied %d of %@ files"), parent, nullptr, QString(), true, object);
    }
    static int withDelegate(VLAlertDelegate* delegate, const QString& selector, bool block)
    {
        return VLAlert::alertSheetWithMessageText(QStringLiteral("M"), QString(), QString(), QString(), QString(), nullptr, delegate,
                                                  selector, block, nullptr);
    }

private:
    std::shared_ptr<ScriptedAlertPresenter> presenter_ = std::make_shared<ScriptedAlertPresenter>();
};

TEST_F(VLAlertTest, BlockingCallReturnsThePressedButtonOnAndOffTheMainThread)
{
    QObject window;
    for (const bool onMainThread : {true, false}) {
        SCOPED_TRACE(onMainThread ? "main thread" : "worker thread, the parent already shows a sheet");
        if (!onMainThread)
            presenter().windowsWithSheet.insert(&window);
        // Answered from the event loop: the wait must keep the main thread's events flowing.
        presenter().script(When::Later, VLAlert::alternateReturn);
        const auto object = VLAlert::create();
        int code = 99;
        if (onMainThread)
            code = blockingAlert(&window, object);
        else
            vltest::runOffMainThread([&] { code = blockingAlert(&window, object); });
        EXPECT_EQ(code, VLAlert::alternateReturn);
        ASSERT_FALSE(presenter().alerts.isEmpty());
        const auto& shown = *presenter().alerts.last();
        EXPECT_TRUE(shown.beganOnMainThread);
        // A parent that already shows a sheet gets a free-standing alert.
        EXPECT_EQ(shown.window, onMainThread ? &window : nullptr);
        EXPECT_EQ(object->parentWindow(), onMainThread ? &window : nullptr);
        // The texts are shown as they stand: no format is applied.
        EXPECT_EQ(QStringList({shown.messageText, shown.informativeText, shown.defaultButton, shown.otherButton}),
                  QStringList({QStringLiteral("Disk 100% full"), QStringLiteral("Copied %d of %@ files"), QString(), QStringLiteral("Later")}));
        EXPECT_FALSE(shown.suppressionShown);
        EXPECT_TRUE(object->alertEnded());
        EXPECT_EQ(object->alert(), nullptr); // let go once closed
    }
    EXPECT_EQ(presenter().broughtToFront, QList<QObject*>{&window}); // only the parent the sheet went on
}

TEST_F(VLAlertTest, TimedAlertAnswersWithTheDefaultButtonUnlessTheUserIsFirst)
{
    presenter().script(When::Never);
    EXPECT_EQ(VLAlert::timedAlertSheetWithMessageText(QStringLiteral("Restarting"), QString(), QString(), QString(), QString(), nullptr, 0),
              VLAlert::defaultReturn);
    EXPECT_TRUE(presenter().alerts[0]->orderedOut); // the unanswered alert leaves the screen
    presenter().script(When::AtOnce, VLAlert::otherReturn);
    EXPECT_EQ(VLAlert::timedAlertSheetWithMessageText(QStringLiteral("Restarting"), QString(), QString(), QStringLiteral("Cancel"),
                                                      QString(), nullptr, 30),
              VLAlert::otherReturn);
}

TEST_F(VLAlertTest, NonBlockingCallsReturnMinusOneAndTheAnswerGoesToTheDelegate)
{
    const QString selector = QStringLiteral("sheetDidEnd:returnCode:contextInfo:");
    RecordingDelegate delegate(selector);
    presenter().script(When::Later, VLAlert::alternateReturn);
    EXPECT_EQ(withDelegate(&delegate, selector, false), -1);
    const QDeadlineTimer deadline(60000);
    while (delegate.ends.isEmpty() && !deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    EXPECT_EQ(delegate.ends, (QList<std::pair<QString, int>>{{selector, VLAlert::alternateReturn}}));
    EXPECT_TRUE(delegate.onMainThread);

    // A delegate without the end selector, or no delegate with another than the default one:
    // -1, and nothing is shown.
    const qsizetype shown = presenter().alerts.size();
    EXPECT_EQ(withDelegate(&delegate, QStringLiteral("other:"), true), -1);
    EXPECT_EQ(withDelegate(nullptr, selector, true), -1);
    EXPECT_EQ(presenter().alerts.size(), shown);

    // The delegate form ignores its delegate, selector and blocking flag, as it always has.
    presenter().script(When::AtOnce, VLAlert::alternateReturn);
    EXPECT_EQ(VLAlert::alertSheetWithMessageText(QStringLiteral("M"), QStringLiteral("OK"), QStringLiteral("No"), QString(), QString(),
                                                 nullptr, &delegate, QStringLiteral("missing:"), false),
              VLAlert::alternateReturn);
    EXPECT_EQ(delegate.ends.size(), 1);
}

TEST_F(VLAlertTest, SuppressionBoxIsBoundToTheUserDefault)
{
    vltest::LogFixture home; // a fresh HOME for the user defaults
    const QString key = QStringLiteral("SuppressRestartWarning");
    sys::UserDefaults::standard().setBool(true, key);
    presenter().script(When::Never);
    const auto object = VLAlert::create();
    EXPECT_EQ(VLAlert::alertSheetWithMessageText(QStringLiteral("M"), QString(), QString(), QString(), QString(), nullptr, nullptr, QString(),
                                                 false, object, key),
              -1);
    ASSERT_EQ(presenter().alerts.size(), 1);
    auto& alert = *presenter().alerts[0];
    ASSERT_TRUE(alert.suppressionShown);
    EXPECT_TRUE(alert.suppressionChecked);
    alert.toggleSuppression(false);
    const auto onDisk = plist::readDictionaryFile(sys::UserDefaults::standard().persistentDomainPath());
    EXPECT_EQ(onDisk.value_or(QVariantMap()).value(key), QVariant(false));
    alert.press(VLAlert::defaultReturn);
    EXPECT_TRUE(object->alertEnded());
}

TEST(VLAlertWithoutPresenter, AlertIsLoggedAndAnsweredWithTheDefaultButton)
{
    vltest::LogFixture log;
    VLAlert::setPresenter(nullptr);
    EXPECT_EQ(VLAlert::alertSheetWithMessageText(QStringLiteral("No log found"), QStringLiteral("Run it 100% first"), nullptr),
              VLAlert::defaultReturn);
    EXPECT_TRUE(log.logText().contains(QStringLiteral("No log found - Run it 100% first")));
    const QString selector = QStringLiteral("done:");
    RecordingDelegate delegate(selector);
    EXPECT_EQ(VLAlert::alertSheetWithMessageText(QStringLiteral("M"), QString(), QString(), QString(), QString(), nullptr, &delegate,
                                                 selector, false, nullptr),
              -1);
    EXPECT_EQ(delegate.ends, (QList<std::pair<QString, int>>{{selector, VLAlert::defaultReturn}}));
}

} // namespace
