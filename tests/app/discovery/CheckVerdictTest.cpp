// Why the checks answered as they did: one row per rule of the Sparkle, group and self
// checks, driven through the real checks against the local HTTPS server with real appcasts
// and group feeds as the server sends them. Each row checks the outcome and the value that
// decided it, and that the answer itself (record, marker or nothing) matches the outcome.

#include "DiscoveryFixture.h"
#include "discovery/CheckVerdict.h"

#include <functional>

using discovery::CheckOutcome;
using discovery::CheckVerdict;
using vltest::DiscoveryFixture;

namespace {

QByteArray corpusFeed(const char* name)
{
    QFile file(QStringLiteral(VELMORA_CORPUS_DIR "/appcasts/") + QString::fromLatin1(name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// The real single-item appcast (build 62) with vendor attributes added to its enclosure.
QByteArray maccy(const QByteArray& extraAttributes = {})
{
    QByteArray feed = corpusFeed("maccy-single-item-cdata-html-description.xml");
    feed.replace("sparkle:version=\"62\"", "sparkle:version=\"62\" " + extraAttributes);
    return feed;
}

// What the answer itself says: a record, the up-to-date marker, or nothing.
enum class Answer { Record, Marker, Nothing };

Answer answerOf(const std::optional<UpdateRecord>& rec)
{
    if (!rec)
        return Answer::Nothing;
    return record::isUpToDateMarker(*rec) ? Answer::Marker : Answer::Record;
}

struct Row {
    const char* name;
    std::function<void()> arrange;   // feeds, routes, state
    CheckOutcome outcome;
    Answer answer;
    const char* factKey;             // a value the rule decided on
    QVariant factValue;
};

class CheckVerdicts : public DiscoveryFixture {
protected:
    QString app_;
    void SetUp() override
    {
        DiscoveryFixture::SetUp();
        QDir().mkpath(sysPath(QStringLiteral("/System/Library/CoreServices")));
        ASSERT_TRUE(plist::writeXmlFileAtomically(QVariantMap{{QStringLiteral("ProductVersion"), QStringLiteral("13.4.1")}},
                                                  sysPath(QStringLiteral("/System/Library/CoreServices/SystemVersion.plist"))));
        app_ = makeBundle(sysPath(QStringLiteral("/Applications/Maccy.app")), QStringLiteral("com.velmora.Maccy"),
                          QStringLiteral("61"), std::nullopt);
    }

    // Runs each row from a fresh run state; `check` calls the real check with the verdict.
    void runRows(const QList<Row>& rows, const std::function<std::optional<UpdateRecord>(CheckVerdict*)>& check)
    {
        for (const Row& row : rows) {
            SCOPED_TRACE(row.name);
            controller_->setCheckedUpdates({});
            controller_->setSkippedBundleIDs({});
            (void)server_->setRoutes({});
            row.arrange();
            CheckVerdict verdict;
            const std::optional<UpdateRecord> answer = check(&verdict);
            EXPECT_EQ(int(verdict.outcome), int(row.outcome)) << "got " << discovery::outcomeName(verdict.outcome).toStdString()
                                                              << ": " << verdict.reason.toStdString();
            EXPECT_EQ(int(answerOf(answer)), int(row.answer));
            EXPECT_FALSE(verdict.reason.isEmpty());
            if (row.factKey) {
                EXPECT_EQ(verdict.facts.value(QString::fromLatin1(row.factKey)), row.factValue) << verdict.reason.toStdString();
            }
        }
    }
    static QVariantMap groupFeed(int version, const QVariantMap& extra = {})
    {
        QVariantMap feed = {{QStringLiteral("groupVersion"), version}, {QStringLiteral("groupVersionString"), QStringLiteral("4.0")},
                            {QStringLiteral("groupID"), QStringLiteral("grp")}, {QStringLiteral("title"), QStringLiteral("Group 4")},
                            {QStringLiteral("url"), QStringLiteral("https://example.invalid/g.pkg")}};
        for (auto it = extra.begin(); it != extra.end(); ++it)
            feed.insert(it.key(), it.value());
        return feed;
    }
    static void route(const char* path, const QJsonObject& behaviour)
    {
        ASSERT_TRUE(server_->setRoutes({{QString::fromLatin1(path), behaviour}}));
    }
};

} // namespace

TEST_F(CheckVerdicts, SparkleRules)
{
    const QString feed = feedURL(QStringLiteral("/appcasts/maccy.xml"));
    qint64 installed = 61;
    QString appPath = app_;
    QString address = feed;
    auto serve = [&](const QByteArray& bytes, qint64 build = 61) {
        return [&, bytes, build] {
            writeFeed(QStringLiteral("/appcasts/maccy.xml"), bytes);
            installed = build;
            appPath = app_;
            address = feed;
        };
    };
    const QList<Row> rows = {
        {"offered", serve(maccy()), CheckOutcome::Offered, Answer::Record, "newVersion", QStringLiteral("62")},
        {"up to date", serve(maccy(), 62), CheckOutcome::UpToDate, Answer::Marker, "feedVersion", qlonglong(62)},
        {"manual only", serve(maccy("manualOnly=\"YES\"")), CheckOutcome::ManualOnly, Answer::Record, "title",
         QStringLiteral("2.7.1")},
        {"needs a newer system", serve(maccy("minOS=\"14.0.1\"")), CheckOutcome::NeedsNewerOS, Answer::Nothing,
         "runningOS", QStringLiteral("13.4.1")},
        {"first item without enclosure", serve(corpusFeed("coteditor-2018-first-items-without-enclosure-link-only.xml")),
         CheckOutcome::FeedMalformed, Answer::Nothing, "error", QStringLiteral("the first item has no enclosure")},
        {"error page", [&] { serve(maccy())(); route("/appcasts/maccy.xml", {{QStringLiteral("status"), 404}}); },
         CheckOutcome::FeedMalformed, Answer::Nothing, "httpStatus", 404},
        {"connection dropped", [&] { serve(maccy())(); route("/appcasts/maccy.xml", {{QStringLiteral("file"), QStringLiteral("appcasts/maccy.xml")}, {QStringLiteral("drop_after"), 10}}); },
         CheckOutcome::FeedUnreachable, Answer::Nothing, "feed", feed},
        {"foreign host", [&] { serve(maccy())(); address = QStringLiteral("https://www.example.com/maccy.xml"); },
         CheckOutcome::FeedRefused, Answer::Nothing, "feed", QStringLiteral("https://www.example.com/maccy.xml")},
        {"no build number", serve(maccy(), 0), CheckOutcome::NotChecked, Answer::Nothing, nullptr, {}},
        {"bundle gone", [&] { serve(maccy())(); appPath = sysPath(QStringLiteral("/Applications/Gone.app")); },
         CheckOutcome::Failed, Answer::Nothing, nullptr, {}},
        {"covered by a group", [&] { serve(maccy())(); controller_->setSkippedBundleIDs({QStringLiteral("com.velmora.Maccy")}); },
         CheckOutcome::CoveredByGroup, Answer::Nothing, nullptr, {}},
        {"checked already", [&] { serve(maccy())(); controller_->setCheckedUpdates({{feed, qlonglong(61)}}); },
         CheckOutcome::CheckedAlready, Answer::Nothing, "checkedVersion", qlonglong(61)},
    };
    runRows(rows, [&](CheckVerdict* why) {
        return controller_->updateSparkleFeed(address, appPath, QStringLiteral("com.velmora.Maccy"), installed,
                                              QStringLiteral("2.7.0"), why);
    });
}

TEST_F(CheckVerdicts, GroupRules)
{
    const QString path = QStringLiteral("/rss/appcasts/grp.xml");
    qint64 installed = 3;
    auto serve = [&](const QVariantMap& feed, qint64 build = 3) {
        return [&, feed, build] {
            writePlistFeed(path, feed);
            installed = build;
        };
    };
    // A release handed to group "next", installed here.
    makeBundle(sysPath(QStringLiteral("/Applications/Next.app")), QStringLiteral("com.velmora.Next"), QStringLiteral("1"),
               QVariantMap{{QStringLiteral("VLGroupID"), QStringLiteral("next")}});
    const QString app = QStringLiteral("com.velmora.App");
    const QList<Row> rows = {
        {"offered", serve(groupFeed(4)), CheckOutcome::Offered, Answer::Record, "feed", feedURL(path)},
        {"paid upgrade", serve(groupFeed(4, {{QStringLiteral("paidUpgradeFrom"), 3}})), CheckOutcome::PaidUpgrade,
         Answer::Record, "newVersion", 4},
        {"manual only", serve(groupFeed(4, {{QStringLiteral("manualInstallOnly"), QStringLiteral("YES")}})),
         CheckOutcome::ManualOnly, Answer::Record, "oldVersion", qlonglong(3)},
        {"up to date", serve(groupFeed(3)), CheckOutcome::UpToDate, Answer::Marker, "feedVersion", qlonglong(3)},
        {"deprecated", serve(groupFeed(4, {{QStringLiteral("deprecatedApps"), QVariantList{app}}})), CheckOutcome::Deprecated,
         Answer::Nothing, "feed", feedURL(path)},
        {"ignored", serve(groupFeed(4, {{QStringLiteral("ignoredApps"), QVariantList{app.toUpper()}}})), CheckOutcome::Ignored,
         Answer::Nothing, "feed", feedURL(path)},
        {"successor group", serve(groupFeed(4, {{QStringLiteral("groupID"), QStringLiteral("next")}})),
         CheckOutcome::SuccessorGroup, Answer::Marker, "successorGroup", QStringLiteral("next")},
        {"needs a newer system", serve(groupFeed(4, {{QStringLiteral("minOS"), QStringLiteral("14.0.1")}})),
         CheckOutcome::NeedsNewerOS, Answer::Nothing, "requiredOS", QStringLiteral("14.0.1")},
        {"error page", [&] { serve(groupFeed(4))(); route("/rss/appcasts/grp.xml", {{QStringLiteral("status"), 404}}); },
         CheckOutcome::FeedUnreachable, Answer::Nothing, "httpStatus", 404},
        {"checked already", [&] { serve(groupFeed(4))(); controller_->setCheckedUpdates({{QStringLiteral("grp"), qlonglong(3)}}); },
         CheckOutcome::CheckedAlready, Answer::Nothing, "checkedVersion", qlonglong(3)},
        {"no version", serve(groupFeed(4), 0), CheckOutcome::NotChecked, Answer::Nothing, nullptr, {}},
    };
    runRows(rows, [&](CheckVerdict* why) {
        return controller_->updateGroup(QStringLiteral("grp"), QString(), QString(), installed, QStringLiteral("3.0"), app,
                                        false, why);
    });
}

TEST_F(CheckVerdicts, SelfRules)
{
    const char* selfFeed = "/rss/appcasts/com.velmora.SoftwareUpdate.xml";
    auto serve = [&](const QVariantMap& feed) { return [&, feed] { writePlistFeed(QString::fromLatin1(selfFeed), feed); }; };
    ASSERT_TRUE(sys::writeGlobalPreferences({{QStringLiteral("skippedVersions"),
                                              QVariantMap{{QStringLiteral("com.velmora.SoftwareUpdate"), QStringLiteral("130")}}}}));
    const QList<Row> rows = {
        {"offered", serve(groupFeed(120)), CheckOutcome::Offered, Answer::Record, "newVersion", qlonglong(120)},
        {"skipped by the user", serve(groupFeed(130)), CheckOutcome::SkippedByUser, Answer::Record, "newVersion",
         qlonglong(130)},
        {"needs a newer system", serve(groupFeed(120, {{QStringLiteral("minOS"), QStringLiteral("14.0.1")}})),
         CheckOutcome::NeedsNewerOS, Answer::Nothing, "requiredOS", QStringLiteral("14.0.1")},
        {"error page", [&] { route(selfFeed, {{QStringLiteral("status"), 500}}); }, CheckOutcome::FeedUnreachable,
         Answer::Nothing, "httpStatus", 500},
        {"run from the temporary folder",
         [&] {
             const QString exeFolder = QCoreApplication::applicationDirPath();
             env_.set("TMPDIR", exeFolder.left(exeFolder.lastIndexOf(QLatin1Char('/')) + 1));
         },
         CheckOutcome::NotChecked, Answer::Nothing, nullptr, {}},
    };
    runRows(rows, [&](CheckVerdict* why) { return controller_->checkForUpdatesToSelf(why); });
}
