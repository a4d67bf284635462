#include "platform/system/ProcessList.h"
#include "support/ChildProcess.h"
#include "support/FixturePlist.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QThread>
#include <gtest/gtest.h>

namespace {

// A fake application: /bin/sleep copied into <name>.app/Contents/MacOS/.
class FakeApplication {
public:
    FakeApplication(const QString& folder, const QString& name, const QVariantMap& info)
        : path_(folder + QLatin1Char('/') + name + QStringLiteral(".app")),
          executable_(path_ + QStringLiteral("/Contents/MacOS/") + name)
    {
        QDir().mkpath(path_ + QStringLiteral("/Contents/MacOS"));
        ok_ = QFile::exists(executable_) || QFile::copy(QStringLiteral("/bin/sleep"), executable_);
        QFile(executable_).setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        if (!info.isEmpty()) {
            QFile file(path_ + QStringLiteral("/Contents/Info.plist"));
            ok_ = ok_ && file.open(QIODevice::WriteOnly) && file.write(vltest::fixturePlistXml(info)) > 0;
        }
    }

    bool start()
    {
        return ok_ && process_.start(executable_, {QStringLiteral("60")});
    }

    QString path() const { return path_; }
    QString executable() const { return executable_; }
    vltest::ChildProcess& process() { return process_; }

private:
    QString path_;
    QString executable_;
    bool ok_ = false;
    vltest::ChildProcess process_;
};

std::optional<sys::RunningApplication> find(const QString& path)
{
    for (const auto& app : sys::launchedApplications()) {
        if (app.path == path)
            return app;
    }
    return std::nullopt;
}

TEST(ProcessList, ListsBundleApplicationsWithNameIdentifierAndProcesses)
{
    QTemporaryDir dir;
    FakeApplication named(dir.path(), QStringLiteral("Tessel"),
                          {{QStringLiteral("CFBundleName"), QStringLiteral("Tessel Pro")},
                           {QStringLiteral("CFBundleIdentifier"), QStringLiteral("com.velmora.Tessel")}});
    FakeApplication bare(dir.path(), QStringLiteral("Bare"), {});
    ASSERT_TRUE(named.start());
    ASSERT_TRUE(bare.start());
    FakeApplication second(dir.path(), QStringLiteral("Tessel"), {});
    ASSERT_TRUE(second.start()) << "a second copy of the same bundle";

    const auto tessel = find(named.path());
    ASSERT_TRUE(tessel.has_value());
    EXPECT_EQ(tessel->name, QStringLiteral("Tessel Pro"));
    EXPECT_EQ(tessel->identifier, QStringLiteral("com.velmora.Tessel"));
    EXPECT_EQ(tessel->pids, (QList<pid_t>{named.process().pid(), second.process().pid()}));

    const auto bareApp = find(bare.path());
    ASSERT_TRUE(bareApp.has_value());
    EXPECT_EQ(bareApp->name, QStringLiteral("Bare"));
    EXPECT_EQ(bareApp->identifier, QString());

    EXPECT_TRUE(sys::processExecutablePaths().contains(bare.executable()));
    // This test binary is not inside a bundle, so it is no application.
    EXPECT_FALSE(find(QCoreApplication::applicationDirPath()).has_value());
}

TEST(ProcessList, TerminateReachesOnlyTheGivenBundle)
{
    QTemporaryDir dir;
    FakeApplication target(dir.path(), QStringLiteral("Target"), {});
    QTemporaryDir otherDir;
    FakeApplication bystander(otherDir.path(), QStringLiteral("Target"), {});
    ASSERT_TRUE(target.start());
    ASSERT_TRUE(bystander.start());

    EXPECT_EQ(sys::sendTerminate(dir.path() + QStringLiteral("/Nothing.app")), 0);
    EXPECT_EQ(sys::sendTerminate(target.path()), 1);
    ASSERT_TRUE(target.process().waitForFinished(5000));
    EXPECT_TRUE(target.process().crashed()) << "ended by a signal";
    EXPECT_TRUE(bystander.process().isRunning());
    EXPECT_FALSE(find(target.path()).has_value());
    EXPECT_TRUE(find(bystander.path()).has_value());
}

} // namespace
