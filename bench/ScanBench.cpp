// The installed-app scan of a generated tree (50,000 folders, 500 vendor bundles), until its
// log lines (one per folder) are written, against `find` walking the same tree with the same
// per-entry metadata call (a stat that follows links), and the peak memory of
// `SoftwareUpdate -list` over that tree against its 64 MiB budget. Prints ratios, asserts none.
#include "DiscoveryBenchSupport.h"

#include "AppController.h"
#include "shared/VLLog.h"

namespace {

constexpr int kTopFolders = 500;
constexpr int kSubFolders = 99; // 500 + 500 x 99 = 50,000 folders

bool makeTree(const QString& apps)
{
    for (int top = 0; top < kTopFolders; ++top) {
        const QString folder = apps + QStringLiteral("/d%1").arg(top, 3, 10, QLatin1Char('0'));
        for (int sub = 0; sub < kSubFolders; ++sub) {
            if (!QDir().mkpath(folder + QStringLiteral("/s%1").arg(sub, 2, 10, QLatin1Char('0'))))
                return false;
        }
        const QVariantMap descriptor = {{QStringLiteral("VLGroupID"), QStringLiteral("g%1").arg(top)},
                                        {QStringLiteral("VLGroupVersion"), 1},
                                        {QStringLiteral("VLGroupVersionString"), QStringLiteral("1")}};
        if (!bench::makeVendorBundle(folder + QStringLiteral("/Tool.app"), QStringLiteral("com.velmora.t%1").arg(top), descriptor))
            return false;
    }
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    bench::BenchRoot root;
    // The update server is a closed port: every feed fails at once, so -list measures the scan.
    if (!root.prepare() || !makeTree(root.sysroot() + QStringLiteral("/Applications"))) {
        std::fprintf(stderr, "ScanBench: cannot build the tree\n");
        return 1;
    }
    root.applyEnvironment(QStringLiteral("https://127.0.0.1:9"), QString());
    const QString apps = root.sysroot() + QStringLiteral("/Applications");

    const bench::ChildRun ours = bench::runInChild([&] {
        const std::unique_ptr<AppController> controller = AppController::initWithoutGUI();
        std::optional<QStringList> groups;
        const std::optional<QStringList> found = controller->VLAppsInFolder(apps, &groups);
        VLLog::finishWriting();
        return found && found->size() == kTopFolders && groups && groups->size() == kTopFolders;
    });
    const double theirs = bench::timeTool(QStringLiteral("find"),
        {QStringLiteral("-L"), apps, QStringLiteral("-name"), QStringLiteral("*.app"), QStringLiteral("-prune"),
         QStringLiteral("-o"), QStringLiteral("-type"), QStringLiteral("d"), QStringLiteral("-print")});
    const bench::ChildRun list = bench::runUpdater({QStringLiteral("-list")}, root.tmp() + QStringLiteral("/list.txt"));
    if (!ours.ok || theirs <= 0 || !list.ok) {
        std::fprintf(stderr, "ScanBench: a run failed (scan %d, find %.2f, -list %d)\n", ours.ok, theirs, list.ok);
        return 1;
    }
    std::printf("VLAppsInFolder 50000 folders / 500 bundles: %.2f s vs find %.2f s, ratio %.2f\n", ours.seconds, theirs,
                ours.seconds / theirs);
    std::printf("-list over 50000 folders peak RSS: %.1f MiB vs budget 64 MiB, ratio %.2f\n", list.peakMiB, list.peakMiB / 64.0);
    return 0;
}
