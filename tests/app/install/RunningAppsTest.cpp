// Quitting a group's running applications finds an application by its identifier only when
// this process opened its bundle by path before; no group quits nothing.
#include "AppController.h"
#include "platform/system/Bundle.h"

#include "support/LogFixture.h"
#include "support/Sandbox.h"

#include <gtest/gtest.h>

#include <QProcess>

#include <memory>

namespace {

class RunningAppsTest : public ::testing::Test {
protected:
    // A running vendor application (a copy of sleep) in the sandbox's Applications folder.
    QProcess& start(const QString& name, const QVariantMap& extraInfo)
    {
        vltest::FakeBundle app;
        app.path = sb_.sysPath(QStringLiteral("/Applications/%1.app").arg(name));
        app.identifier = QStringLiteral("com.velmora.test-running-") + name.toLower();
        app.extraInfo = extraInfo;
        EXPECT_FALSE(sb_.createBundle(app).isEmpty());
        auto& process = *processes_.emplace_back(std::make_unique<QProcess>());
        process.start(app.path + QStringLiteral("/Contents/MacOS/") + name, {QStringLiteral("300")});
        EXPECT_TRUE(process.waitForStarted());
        return process;
    }
    QString pathOf(const QString& name) const { return sb_.sysPath(QStringLiteral("/Applications/%1.app").arg(name)); }
    static bool quit(QProcess& process) { return process.waitForFinished(3000); }
    static bool stillRunning(QProcess& process) { return !process.waitForFinished(200); }

    void TearDown() override
    {
        for (const auto& process : processes_) {
            process->kill();
            process->waitForFinished();
        }
    }

    vltest::LogFixture log_;
    vltest::Sandbox sb_;
    std::unique_ptr<AppController> controller_ = AppController::initWithoutGUI();
    std::vector<std::unique_ptr<QProcess>> processes_;
};

TEST_F(RunningAppsTest, OnlyBundlesOpenedByPathAreFoundByTheirGroup)
{
    const QVariantMap group{{QStringLiteral("VLGroupID"), QStringLiteral("grp-running")}};
    QProcess& opened = start(QStringLiteral("Opened"), group);
    QProcess& neverOpened = start(QStringLiteral("Unopened"), group);
    QProcess& withoutGroup = start(QStringLiteral("Loose"), {});
    ASSERT_TRUE(sys::Bundle::bundleWithPath(pathOf(QStringLiteral("Opened"))));
    ASSERT_TRUE(sys::Bundle::bundleWithPath(pathOf(QStringLiteral("Loose"))));

    // No group (a record without "groupid") matches nothing, not even an application without one.
    controller_->closeAppsWithGroupID(QString());
    EXPECT_TRUE(stillRunning(withoutGroup));
    EXPECT_TRUE(stillRunning(opened));

    controller_->closeAppsWithGroupID(QStringLiteral("grp-running"));
    EXPECT_TRUE(quit(opened));
    EXPECT_TRUE(stillRunning(neverOpened));
    EXPECT_TRUE(stillRunning(withoutGroup));
}

} // namespace
