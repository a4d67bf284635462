// -list and -explain as a vendor client reads them: the description on standard output (read
// back as a record) and the JSON forms, -list before -explain, a pending update of the updater
// itself that replaces the whole list, and -list on an account that has never run the updater.
#include "EndToEnd.h"

#include "platform/plist/PropertyList.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <sys/stat.h>
#include <unistd.h>

namespace {

using vltest::RunResult;

class List : public e2e::EndToEnd {
protected:
    void SetUp() override
    {
        EndToEnd::SetUp();
        ASSERT_FALSE(sb_.createBundle({sb_.sysPath("/Applications/Alpha.app"), "com.velmora.Alpha", "3", "3.0", {},
                                       QVariantMap{{"VLGroupID", "suite"}, {"VLGroupVersion", 3}, {"VLGroupVersionString", "3.0"}}})
                         .isEmpty());
        publish("suite", {{"groupVersion", 4}, {"groupVersionString", "4.0"}, {"groupID", "suite"}, {"title", "Suite 4.0"},
                          {"url", "https://example.invalid/suite.pkg"}, {"pageurl", "https://www.example.invalid/suite"},
                          {"size", 1234}});
    }
    RunResult run(const QStringList& args) const { return sb_.runUpdater(args); }
    static QJsonArray jsonArray(const RunResult& r, const char* key)
    {
        return QJsonDocument::fromJson(r.stdoutData).object().value(QLatin1String(key)).toArray();
    }
};

TEST_F(List, PrintsTheDescriptionOfTheUpdateListOrItsJson)
{
    publishSelf(100);
    const RunResult text = run({"-list"});
    ASSERT_EQ(text.exitCode, 0) << text.describe().toStdString();
    // The description's layout is the property list writer's own test; here, that what it
    // prints reads back as the group's record with every key the client uses.
    QString error;
    const QVariantMap printed = plist::readOpenStep(text.stdoutData, &error).value_or(QVariant()).toMap();
    EXPECT_EQ(printed, (QVariantMap{{"updates", QVariantList{QVariantMap{
        {"bundleid", "com.velmora.Alpha"}, {"groupid", "suite"}, {"manualOnly", "0"}, {"newVersion", "4"}, {"newVersionString", "4.0"},
        {"oldVersion", "3"}, {"oldVersionString", "3.0"}, {"pageurl", "https://www.example.invalid/suite"}, {"selected", "1"},
        {"size", "1234"}, {"title", "Suite 4.0"}, {"type", "group"}, {"url", "https://example.invalid/suite.pkg"}}}}}))
        << error.toStdString() << text.describe().toStdString();
    EXPECT_EQ(server_.unexpectedRequests(), QStringList());

    // JSON keeps the values' types.
    const RunResult json = run({"-list", "-format", "json"});
    ASSERT_EQ(json.exitCode, 0) << json.describe().toStdString();
    const QJsonObject update = jsonArray(json, "updates").at(0).toObject();
    EXPECT_EQ(update.value("size"), QJsonValue(1234));
    EXPECT_EQ(update.value("manualOnly"), QJsonValue(false));
    EXPECT_EQ(update.value("title"), QJsonValue("Suite 4.0"));

    // -list wins over -explain, and a format other than json leaves the text as it was.
    for (const QStringList& extra : {QStringList{"-explain"}, QStringList{"-format", "plist"}})
        EXPECT_EQ(run(QStringList{"-list"} + extra).stdoutData, text.stdoutData) << extra.join(' ').toStdString();
}

TEST_F(List, ExplainSaysWhyEachApplicationIsOrIsNotOffered)
{
    publishSelf(100);
    // A Sparkle application whose feed the server does not have, and a bundle without update
    // descriptor, which the scan passes over.
    ASSERT_FALSE(sb_.createBundle({sb_.sysPath("/Applications/Notes.app"), "com.velmora.Notes", "5", "1.0", {},
                                   QVariantMap{{"SUFeedURL", server_.url("/appcasts/notes.xml")}}})
                     .isEmpty());
    const QString plain = sb_.createBundle({sb_.sysPath("/Applications/Plain.app"), "com.velmora.Plain", "1", "1.0"});

    const RunResult text = run({"-explain"});
    ASSERT_EQ(text.exitCode, 0) << text.describe().toStdString();
    const QStringList lines = text.out().split('\n', Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 3) << text.describe().toStdString();
    EXPECT_TRUE(lines[0].startsWith("Velmora Software Update (com.velmora.SoftwareUpdate): up-to-date - "));
    EXPECT_TRUE(lines[1].startsWith("Alpha (com.velmora.Alpha): offered - \"Suite 4.0\""));
    EXPECT_TRUE(lines[2].startsWith("Notes (com.velmora.Notes): feed-malformed - ") && lines[2].contains("HTTP status 404"));

    const RunResult json = run({"-explain", "-format", "json"});
    const QJsonObject notes = jsonArray(json, "applications").at(2).toObject();
    EXPECT_EQ(notes.value("bundleid"), QJsonValue("com.velmora.Notes")) << json.describe().toStdString();
    EXPECT_EQ(notes.value("outcome"), QJsonValue("feed-malformed"));
    EXPECT_EQ(notes.value("details").toObject().value("httpStatus"), QJsonValue(404));
    EXPECT_EQ(notes.value("reason").toString(), lines[2].section(" - ", 1));

    // One application asked about, by path or by identifier.
    EXPECT_TRUE(run({"-explain", plain}).out().startsWith("Plain: not-vendor-bundle - it has no update descriptor"));
    EXPECT_TRUE(run({"-explain", "com.velmora.Absent"}).out().startsWith("com.velmora.Absent: not-found - "));
}

// With -autocheck too, -list lists; a pending update of the updater is its only record, and
// no application is checked.
TEST_F(List, APendingSelfUpdateIsTheOnlyRecordAndNothingElseIsChecked)
{
    publishSelf(200);
    const RunResult list = run({"-list", "-autocheck", "-format", "json"});
    ASSERT_EQ(list.exitCode, 0) << list.describe().toStdString();
    const QJsonArray updates = jsonArray(list, "updates");
    ASSERT_EQ(updates.size(), 1) << list.describe().toStdString();
    const QJsonObject self = updates.at(0).toObject();
    EXPECT_EQ(self.value("type"), QJsonValue("self"));
    EXPECT_EQ(self.value("oldVersionString"), QJsonValue("1.0.0"));
    EXPECT_EQ(self.value("newVersion"), QJsonValue(200));

    const RunResult all = run({"-explain"});
    EXPECT_TRUE(all.out().startsWith("Velmora Software Update (com.velmora.SoftwareUpdate): offered - "));
    EXPECT_EQ(all.out().count('\n'), 1) << all.describe().toStdString();
    EXPECT_TRUE(run({"-explain", "com.velmora.Alpha"}).out().startsWith("com.velmora.Alpha: not-checked - an update of the updater itself"));
    EXPECT_FALSE(server_.requestedPaths().contains("/rss/appcasts/suite.xml"));
}

// An account that has never run the updater: its home is present, owned by it, and empty. An
// unprivileged run and a superuser run for that account print only the list, keep the crash
// dates in the account's Preferences, and leave the account the Library folders they made.
TEST_F(List, AFreshAccountGetsOnlyTheListAndLibraryFoldersOfItsOwn)
{
    const std::optional<uint> account = vltest::Sandbox::unprivilegedUid();
    if (!account)
        GTEST_SKIP() << "needs root to hand the home to another user";
    publishSelf(100);
    // The server's own folder is private to root: the runs get a readable copy of its CA.
    ASSERT_TRUE(QFile::copy(server_.caFile(), sb_.tmpPath("ca.pem")));
    sb_.setEnv("VELMORA_CA_FILE", sb_.tmpPath("ca.pem"));
    ASSERT_TRUE(sb_.giveHomeTo(*account)); // the temporary folder, for the unprivileged run
    for (const std::optional<uint> runAs : {account, std::optional<uint>()}) {
        SCOPED_TRACE(runAs ? "unprivileged" : "superuser");
        const QString home = sb_.root() + (runAs ? "/fresh" : "/fresh-for-root");
        ASSERT_TRUE(QDir().mkdir(home));
        ASSERT_EQ(::chown(QFile::encodeName(home).constData(), *account, *account), 0);
        const RunResult r = sb_.runUpdater({"-list", "-format", "json"}, {.uid = runAs, .extraEnv = {{"HOME", home}}});
        ASSERT_EQ(r.exitCode, 0) << r.describe().toStdString();
        QJsonParseError error;
        const QJsonArray updates = QJsonDocument::fromJson(r.stdoutData, &error).object().value("updates").toArray();
        ASSERT_EQ(error.error, QJsonParseError::NoError) << r.describe().toStdString();
        ASSERT_EQ(updates.size(), 1) << r.describe().toStdString();
        EXPECT_EQ(updates.at(0).toObject().value("title"), QJsonValue("Suite 4.0"));
        EXPECT_FALSE(r.err().contains("Unable")) << r.describe().toStdString();

        const QVariantMap dates = sb_.readPlist(home + "/Library/Preferences/" + e2e::kOwnId + ".plist").value_or(QVariant()).toMap();
        ASSERT_EQ(dates.value("launch").typeId(), QMetaType::QDateTime) << r.describe().toStdString();
        // Launch and exit both recorded: the next start sees a normal end, not a crash.
        EXPECT_GE(dates.value("exit").toDateTime(), dates.value("launch").toDateTime());
        for (const QString folder : {"", "/Preferences", "/Logs", "/Application Support", "/Caches"}) {
            struct stat info {};
            ASSERT_EQ(::lstat(QFile::encodeName(home + "/Library" + folder).constData(), &info), 0) << folder.toStdString();
            EXPECT_TRUE(S_ISDIR(info.st_mode) && info.st_uid == *account && info.st_gid == *account) << folder.toStdString();
            EXPECT_TRUE(!folder.isEmpty() || (info.st_mode & 07777) == 0700) << "Library is the account's alone";
        }
        // Only the folders every account has, and what the run itself writes into them.
        EXPECT_EQ(QDir(home + "/Library").entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
                  (QStringList{"Application Support", "Caches", "Logs", "Preferences"}));
    }
}

} // namespace
