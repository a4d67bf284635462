// The systemd units made from launchd job dictionaries: calendar entries, ExecStart= quoting and
// unit names, one row per rule.
#include "platform/system/SystemdUnits.h"

#include <QVariantList>
#include <QVariantMap>
#include <gtest/gtest.h>

namespace {

using namespace sys::systemd;

QVariantMap entry(std::initializer_list<std::pair<const char*, QVariant>> values)
{
    QVariantMap map;
    for (const auto& [key, value] : values)
        map.insert(QLatin1String(key), value);
    return map;
}

TEST(SystemdUnits, CalendarEntriesBecomeOnCalendarValues)
{
    struct Row {
        const char* rule;
        QVariant interval;
        QStringList expected; // empty: refused
    };
    const Row rows[] = {
        {"weekly list of one entry", QVariantList{entry({{"Weekday", 1}, {"Hour", 9}, {"Minute", 0}})},
         {QStringLiteral("Mon *-*-* 09:00:00")}},
        {"a lone dictionary; a missing key is a wildcard", entry({{"Hour", 3}}), {QStringLiteral("*-*-* 03:*:00")}},
        {"weekday 0 and 7 are both Sunday", QVariantList{entry({{"Weekday", 0}, {"Minute", 5}}), entry({{"Weekday", 7}, {"Minute", 5}})},
         {QStringLiteral("Sun *-*-* *:05:00")}},
        {"month and day", entry({{"Month", 12}, {"Day", 24}, {"Hour", 18}, {"Minute", 5}}), {QStringLiteral("*-12-24 18:05:00")}},
        {"day or weekday, as crontab", entry({{"Day", 1}, {"Weekday", 5}, {"Month", 3}, {"Hour", 8}}),
         {QStringLiteral("Fri *-03-* 08:*:00"), QStringLiteral("*-03-01 08:*:00")}},
        {"an empty entry runs every minute", entry({}), {QStringLiteral("*-*-* *:*:00")}},
        {"hour out of range", entry({{"Hour", 24}}), {}},
        {"a name instead of a number", entry({{"Weekday", QStringLiteral("Mon")}}), {}},
        {"an entry that is not a dictionary", QVariantList{entry({{"Hour", 1}}), 7}, {}},
        {"neither dictionary nor list", QStringLiteral("weekly"), {}},
    };
    for (const Row& row : rows) {
        QString error;
        const std::optional<QStringList> lines = onCalendarLines(row.interval, &error);
        if (row.expected.isEmpty()) {
            EXPECT_FALSE(lines.has_value()) << row.rule;
            EXPECT_FALSE(error.isEmpty()) << row.rule;
            continue;
        }
        ASSERT_TRUE(lines.has_value()) << row.rule << ": " << error.toStdString();
        EXPECT_EQ(*lines, row.expected) << row.rule << ": " << lines->join(QLatin1Char('|')).toStdString();
    }
}

TEST(SystemdUnits, ExecStartKeepsArgvZeroAndQuotesAsSystemdReadsIt)
{
    struct Row {
        const char* rule;
        QString executable;
        QStringList argv;
        const char* expected; // nullptr: refused
    };
    const Row rows[] = {
        {"plain words stay bare", QStringLiteral("/usr/bin/true"), {QStringLiteral("true"), QStringLiteral("-x")},
         "@/usr/bin/true true -x"},
        {"spaces are quoted, argv[0] kept", QStringLiteral("/Applications/A B.app/Contents/MacOS/A"),
         {QStringLiteral("A B"), QStringLiteral("-autocheck")}, "@\"/Applications/A B.app/Contents/MacOS/A\" \"A B\" -autocheck"},
        {"percent doubled everywhere, dollar only in arguments", QStringLiteral("/opt/100%$/run"),
         {QStringLiteral("run"), QStringLiteral("$HOME"), QStringLiteral("50%")}, "@/opt/100%%$/run run $$HOME 50%%"},
        {"quotes and backslashes escaped", QStringLiteral("/bin/echo"),
         {QStringLiteral("a\"b"), QStringLiteral("c\\d"), QStringLiteral("it's")}, "@/bin/echo \"a\\\"b\" \"c\\\\d\" \"it's\""},
        {"empty word and lone semicolon", QStringLiteral("/bin/echo"), {QString(), QStringLiteral(";"), QStringLiteral(";x")},
         "@/bin/echo \"\" \";\" ;x"},
        {"control characters as C escapes", QStringLiteral("/bin/echo"), {QStringLiteral("a\nb\tc\x01")},
         "@/bin/echo \"a\\nb\\tc\\x01\""},
        {"relative program", QStringLiteral("bin/tool"), {QStringLiteral("tool")}, nullptr},
        {"control character in the program", QStringLiteral("/bin/a\nb"), {QStringLiteral("a")}, nullptr},
    };
    for (const Row& row : rows) {
        const std::optional<QString> value = execStartValue(row.executable, row.argv);
        if (!row.expected) {
            EXPECT_FALSE(value.has_value()) << row.rule;
            continue;
        }
        ASSERT_TRUE(value.has_value()) << row.rule;
        EXPECT_EQ(value->toStdString(), row.expected) << row.rule;
    }
}

TEST(SystemdUnits, LabelsNameUnitsWithoutLeavingTheFolder)
{
    struct Row {
        QString label;
        const char* expected; // nullptr: refused
    };
    const Row rows[] = {
        {QStringLiteral("com.velmora.SoftwareUpdateAutoCheck"), "com.velmora.SoftwareUpdateAutoCheck"},
        {QStringLiteral("My Job@h\u00f6me-1"), "My\\x20Job\\x40h\\xc3\\xb6me-1"},
        {QStringLiteral(".hidden"), "\\x2ehidden"},
        {QStringLiteral("a/b"), nullptr},
        {QStringLiteral(".."), nullptr},
        {QString(), nullptr},
        {QStringLiteral("a\nExecStart=/bin/sh"), nullptr},
        {QString(250, QLatin1Char('j')), nullptr},
    };
    for (const Row& row : rows) {
        const std::optional<QString> name = unitNameForLabel(row.label);
        if (!row.expected) {
            EXPECT_FALSE(name.has_value()) << row.label.toStdString();
            continue;
        }
        ASSERT_TRUE(name.has_value()) << row.label.toStdString();
        EXPECT_EQ(name->toStdString(), row.expected);
    }
}

TEST(SystemdUnits, JobWithoutCalendarIsEnabledItself)
{
    const QVariantMap job{{QStringLiteral("Label"), QStringLiteral("com.velmora.Agent")},
                          {QStringLiteral("ProgramArguments"), QVariantList{QStringLiteral("/usr/bin/agent"), QStringLiteral("--serve")}}};
    const std::optional<JobUnits> user = unitsForJob(job, Manager::User);
    ASSERT_TRUE(user.has_value());
    EXPECT_FALSE(user->timer.has_value());
    // Without Program, ProgramArguments[0] is both the executable and argv[0].
    EXPECT_TRUE(user->service.contains(QStringLiteral("\nExecStart=@/usr/bin/agent /usr/bin/agent --serve\n")));
    EXPECT_TRUE(user->service.endsWith(QStringLiteral("[Install]\nWantedBy=default.target\n")));
    const std::optional<JobUnits> machine = unitsForJob(job, Manager::System);
    ASSERT_TRUE(machine.has_value());
    EXPECT_TRUE(machine->service.endsWith(QStringLiteral("[Install]\nWantedBy=multi-user.target\n")));

    QString error;
    EXPECT_FALSE(unitsForJob({{QStringLiteral("Label"), QStringLiteral("x")}}, Manager::User, &error).has_value());
    EXPECT_FALSE(error.isEmpty()) << "no program";
    QVariantMap numbers = job;
    numbers.insert(QStringLiteral("ProgramArguments"), QVariantList{QStringLiteral("/bin/a"), 3});
    EXPECT_FALSE(unitsForJob(numbers, Manager::User).has_value()) << "a number among the arguments";
}

} // namespace
