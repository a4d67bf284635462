#include "install/VolumeFilters.h"

#include <gtest/gtest.h>

#include <ostream>

namespace {

struct FilterCase {
    const char* name;
    bool bundle;  // the application installer's test
    bool package; // the package installer's test
    bool updater; // the self installer's test
};

// Test names show the volume entry's name rather than the bytes of the case.
void PrintTo(const FilterCase& c, std::ostream* os)
{
    *os << '"' << c.name << '"';
}

class VolumeFilterTest : public ::testing::TestWithParam<FilterCase> {};

TEST_P(VolumeFilterTest, EachInstallerTakesWhatItShould)
{
    const FilterCase& c = GetParam();
    const QString name = QString::fromUtf8(c.name);
    EXPECT_EQ(install::isInstallableBundleName(name), c.bundle) << c.name;
    EXPECT_EQ(install::isInstallerPackageName(name), c.package) << c.name;
    EXPECT_EQ(install::isUpdaterApplicationName(name), c.updater) << c.name;
}

INSTANTIATE_TEST_SUITE_P(Names, VolumeFilterTest, ::testing::Values(
    FilterCase{"Tessel.app", true, false, true},
    FilterCase{"TESSEL.APP", true, false, true},
    // Every ".app" is an application to the application installer, uninstallers included.
    FilterCase{"Uninstall Tessel.app", true, false, false},
    FilterCase{"Tessel.prefPane", true, false, false},
    FilterCase{"Tessel.PREFPANE", true, false, false},
    FilterCase{"Uninstall Tessel.prefPane", false, false, false},
    FilterCase{"tessel uninstaller.prefpane", false, false, false},
    FilterCase{"Tessel.pkg", false, true, false},
    FilterCase{"Tessel.mpkg", false, true, false},
    FilterCase{"Tesselpkg", false, true, false},
    FilterCase{"UNINSTALL Tessel.pkg", false, false, false},
    FilterCase{"Tessel.pkg.zip", false, false, false},
    FilterCase{".app", true, false, true},
    FilterCase{"Read Me.txt", false, false, false}));

TEST(VolumeFilters, FirstMatchKeepsListingOrder)
{
    const QStringList volume = {QStringLiteral("Uninstall.pkg"), QStringLiteral("Uninstall X.app"),
                                QStringLiteral("X.app"), QStringLiteral("X.pkg")};
    EXPECT_EQ(install::firstMatching(volume, &install::isInstallableBundleName), QStringLiteral("Uninstall X.app"));
    EXPECT_EQ(install::firstMatching(volume, &install::isUpdaterApplicationName), QStringLiteral("X.app"));
    EXPECT_EQ(install::firstMatching(volume, &install::isInstallerPackageName), QStringLiteral("X.pkg"));
    EXPECT_FALSE(install::firstMatching({QStringLiteral("Uninstall.pkg")}, &install::isInstallerPackageName).has_value());
}

} // namespace
