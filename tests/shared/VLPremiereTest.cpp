// Installed versions from bundles and installer configurations in a Mac-like tree.
#include "shared/VLPremiere.h"

#include "support/FixturePlist.h"
#include "support/Sandbox.h"
#include "support/ScopedEnvironment.h"

#include <gtest/gtest.h>

#include <QFileInfo>
#include <QTemporaryDir>

namespace {

class VLPremiereTest : public ::testing::Test {
protected:
    VLPremiereTest()
    {
        env_.set("HOME", dir_.filePath(QStringLiteral("home")));
        env_.set("VELMORA_SYSROOT", dir_.filePath(QStringLiteral("sysroot")));
    }

    QString machineApplications() const { return dir_.filePath(QStringLiteral("sysroot/Applications")); }
    QString userApplications() const { return dir_.filePath(QStringLiteral("home/Applications")); }

    static void write(const QString& path, const QByteArray& data) { ASSERT_TRUE(vltest::Sandbox::writeFile(path, data)) << path.toStdString(); }
    // An installed application bundle; extra entries are added to (or replace) the usual ones.
    static void bundle(const QString& path, const QString& version, const QVariantMap& extra = {})
    {
        QVariantMap info{{QStringLiteral("CFBundleIdentifier"), QStringLiteral("com.adobe.AdobePremierePro")},
                         {QStringLiteral("CFBundleExecutable"), QFileInfo(path).completeBaseName()}};
        if (!version.isNull())
            info.insert(QStringLiteral("CFBundleVersion"), version);
        info.insert(extra);
        write(path + QStringLiteral("/Contents/Info.plist"), vltest::fixturePlistXml(info));
    }
    // The installer's configuration file of an installation folder; no version: no such element.
    static void configuration(const QString& installation, const QByteArray& version = {})
    {
        write(installation + QStringLiteral("/Configuration/XManConfig.xml"),
              "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<Configuration>\n  <VariableForExMan>\n"
              "    <Data key=\"ProductName\">Premiere Pro</Data>\n"
                  + (version.isEmpty() ? QByteArray() : "    <Data key=\"ProductVersion\">" + version + "</Data>\n")
                  + "  </VariableForExMan>\n</Configuration>\n");
    }

    QTemporaryDir dir_;
    vltest::ScopedEnvironment env_;
};

TEST_F(VLPremiereTest, BothViewsReadTheirSourcesInOppositeOrder)
{
    const QString apps = machineApplications();
    // No ProductVersion: the suite view stops there, the application view reads the bundle.
    configuration(apps + QStringLiteral("/Adobe Premiere Pro 2022"));
    bundle(apps + QStringLiteral("/Adobe Premiere Pro 2022/Adobe Premiere Pro 2022.app"), QStringLiteral("22.6.2"));
    // A bundle without any version: the application view appends nothing and does not fall back.
    configuration(apps + QStringLiteral("/Adobe Premiere Pro 2020"), "14.0.0");
    bundle(apps + QStringLiteral("/Adobe Premiere Pro 2020/Adobe Premiere Pro 2020.app"), QString());
    write(apps + QStringLiteral("/Adobe Premiere Rush/Configuration/XManConfig.xml"), "ProductVersion=2.10\n");
    // Lower-case installation folders are found by both scans.
    bundle(apps + QStringLiteral("/adobe premiere pro 2025/Adobe Premiere Pro 2025.app"), QStringLiteral("25.0.1"));

    EXPECT_EQ(VLPremiere::versionsForAppName(QStringLiteral("Adobe Premiere "), apps), QStringList({"22.6.2"}));
    EXPECT_EQ(VLPremiere::suiteVersionsInFolder(apps), QStringList({"14.0.0", "25.0"}));
}

TEST_F(VLPremiereTest, WholeMachineJoinsTheWorkspaceFolderWithApplications)
{
    // The user's folder lists 24.1.0 twice (kept), the machine's repeats it (dropped) and adds 25.0.0.
    const QString user = userApplications();
    bundle(user + QStringLiteral("/Adobe Premiere Pro 2024/Adobe Premiere Pro 2024.app"), QStringLiteral("24.1.0"));
    bundle(user + QStringLiteral("/Adobe Premiere Pro Beta/Adobe Premiere Pro Beta.app"), QStringLiteral("24.1.0"));
    const QString machine = machineApplications();
    bundle(machine + QStringLiteral("/Adobe Premiere Pro 2024/Adobe Premiere Pro 2024.app"), QStringLiteral("24.1.0"));
    configuration(machine + QStringLiteral("/Adobe Premiere Pro 2025"), "25.0.0");

    EXPECT_EQ(VLPremiere::premiereVersions(), QStringList({"24.1.0", "24.1.0", "25.0.0"}));
    EXPECT_EQ(VLPremiere::suiteVersions(), QStringList({"24.1", "24.1", "25.0.0"}));
}

} // namespace
