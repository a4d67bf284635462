// A full `SoftwareUpdate -list` of 200 installed applications (100 with Sparkle feeds, 100 in
// 10 groups) against the local HTTPS server answering every request after 50 ms, compared
// with the ideal that four checks at a time allow: the self check, then 100 Sparkle feeds and
// 10 group feeds four at a time (later members of a checked group need no request).
// Prints the ratio, asserts none.
#include "DiscoveryBenchSupport.h"

namespace {

constexpr int kSparkleApps = 100;
constexpr int kGroups = 10;
constexpr int kGroupMembers = 100;
constexpr int kDelayMs = 50;

bool writeFile(const QString& path, const QByteArray& bytes)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(bytes) == bytes.size();
}

bool makeInstallation(const QString& apps, const QString& feeds, const QString& server)
{
    bool ok = bench::writePlist(feeds + QStringLiteral("/rss/appcasts/com.velmora.SoftwareUpdate.xml"),
                                {{QStringLiteral("groupVersion"), 1}});
    for (int i = 0; ok && i < kSparkleApps; ++i) {
        const QString feed = QStringLiteral("/feeds/s%1.xml").arg(i);
        ok = writeFile(feeds + feed, "<rss><channel><item><title>S" + QByteArray::number(i)
                                         + "</title><enclosure sparkle:version='9' url='https://x/s.dmg'/></item></channel></rss>")
            && bench::makeVendorBundle(apps + QStringLiteral("/S%1.app").arg(i), QStringLiteral("com.velmora.s%1").arg(i),
                                       {{QStringLiteral("SUFeedURL"), server + feed}});
    }
    for (int g = 0; ok && g < kGroups; ++g)
        ok = bench::writePlist(feeds + QStringLiteral("/rss/appcasts/g%1.xml").arg(g),
                               {{QStringLiteral("groupVersion"), 4}, {QStringLiteral("groupID"), QStringLiteral("g%1").arg(g)},
                                {QStringLiteral("title"), QStringLiteral("G%1").arg(g)}});
    for (int i = 0; ok && i < kGroupMembers; ++i)
        ok = bench::makeVendorBundle(apps + QStringLiteral("/G%1.app").arg(i), QStringLiteral("com.velmora.g%1").arg(i),
                                     {{QStringLiteral("VLGroupID"), QStringLiteral("g%1").arg(i % kGroups)},
                                      {QStringLiteral("VLGroupVersion"), 3}, {QStringLiteral("VLGroupVersionString"), QStringLiteral("3")}});
    return ok;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    bench::BenchRoot root;
    QTemporaryDir feeds;
    bench::LocalServer server;
    if (!root.prepare() || !feeds.isValid() || !server.start(feeds.path(), kDelayMs)) {
        std::fprintf(stderr, "CheckBench: cannot start the local server\n");
        return 1;
    }
    if (!makeInstallation(root.sysroot() + QStringLiteral("/Applications"), feeds.path(), server.baseUrl())) {
        std::fprintf(stderr, "CheckBench: cannot lay out the applications\n");
        return 1;
    }
    root.applyEnvironment(server.baseUrl(), server.caFile());
    const QString output = root.tmp() + QStringLiteral("/list.txt");
    const bench::ChildRun run = bench::runUpdater({QStringLiteral("-list")}, output);
    QFile printed(output);
    const int records = printed.open(QIODevice::ReadOnly) ? int(printed.readAll().count("type = ")) : 0;
    if (!run.ok || records != kSparkleApps + kGroups) {
        std::fprintf(stderr, "CheckBench: -list failed or found %d records instead of %d\n", records, kSparkleApps + kGroups);
        return 1;
    }
    const double ideal = kDelayMs / 1000.0 * (1 + (kSparkleApps + kGroups + 3) / 4);
    std::printf("-list of 200 apps, %d ms per request: %.2f s vs ideal %.2f s (four at a time), ratio %.2f\n", kDelayMs,
                run.seconds, ideal, run.seconds / ideal);
    return 0;
}
