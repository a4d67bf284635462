// The systemd units made from launchd job dictionaries: calendar entries, ExecStart= quoting and
// unit names, one row per rule. The weekly job as the updater writes it is proven by VLLaunchd.
#include "platform/system/SystemdUnits.h"
#include "support/QtPrinters.h"

#include <gtest/gtest.h>

using namespace sys::systemd;

static QVariantMap entry(std::initializer_list<std::pair<const char*, int>> values)
{
    QVariantMap map;
    for (const auto& [key, value] : values)
        map.insert(QLatin1String(key), value);
    return map;
}

TEST(SystemdUnits, CalendarEntriesBecomeOnCalendarValues)
{
    const struct { const char* rule; QVariant interval; std::optional<QStringList> expected; } rows[] = {
        {"a lone dictionary; a missing key is a wildcard", entry({{"Hour", 3}}), QStringList{"*-*-* 03:*:00"}},
        {"weekday 0 and 7 are both Sunday", QVariantList{entry({{"Weekday", 0}, {"Minute", 5}}), entry({{"Weekday", 7}, {"Minute", 5}})}, QStringList{"Sun *-*-* *:05:00"}},
        {"day or weekday, as crontab", entry({{"Day", 1}, {"Weekday", 5}, {"Month", 3}, {"Hour", 8}}), QStringList{"Fri *-03-* 08:*:00", "*-03-01 08:*:00"}},
        {"an empty entry runs every minute", entry({}), QStringList{"*-*-* *:*:00"}},
        {"hour out of range", entry({{"Hour", 24}}), std::nullopt},
        {"a name instead of a number", QVariantMap{{"Weekday", "Mon"}}, std::nullopt},
        {"an entry that is not a dictionary", QVariantList{entry({{"Hour", 1}}), 7}, std::nullopt},
        {"neither dictionary nor list", QStringLiteral("weekly"), std::nullopt},
    };
    for (const auto& row : rows) {
        QString error;
        const std::optional<QStringList> lines = onCalendarLines(row.interval, &error);
        EXPECT_EQ(lines, row.expected) << row.rule;
        EXPECT_EQ(error.isEmpty(), lines.has_value()) << row.rule;
    }
}

TEST(SystemdUnits, ExecStartKeepsArgvZeroAndQuotesAsSystemdReadsIt)
{
    const struct { const char* rule; QString executable; QStringList argv; std::optional<QString> expected; } rows[] = {
        {"plain words stay bare", "/usr/bin/true", {"true", "-x"}, "@/usr/bin/true true -x"},
        {"spaces are quoted, argv[0] kept", "/A B.app/A", {"A B", "-autocheck"}, "@\"/A B.app/A\" \"A B\" -autocheck"},
        {"percent doubled everywhere, dollar only in arguments", "/opt/100%$/run", {"run", "$HOME", "50%"}, "@/opt/100%%$/run run $$HOME 50%%"},
        {"quotes and backslashes escaped", "/bin/echo", {"a\"b", "c\\d", "it's"}, "@/bin/echo \"a\\\"b\" \"c\\\\d\" \"it's\""},
        {"empty word and lone semicolon", "/bin/echo", {"", ";", ";x"}, "@/bin/echo \"\" \";\" ;x"},
        {"control characters as C escapes", "/bin/echo", {"a\nb\tc\x01"}, "@/bin/echo \"a\\nb\\tc\\x01\""},
        {"relative program", "bin/tool", {"tool"}, std::nullopt},
        {"control character in the program", "/bin/a\nb", {"a"}, std::nullopt},
    };
    for (const auto& row : rows)
        EXPECT_EQ(execStartValue(row.executable, row.argv), row.expected) << row.rule;
}

TEST(SystemdUnits, LabelsNameUnitsWithoutLeavingTheFolder)
{
    const struct { QString label; std::optional<QString> expected; } rows[] = {
        {"com.velmora.SoftwareUpdateAutoCheck", "com.velmora.SoftwareUpdateAutoCheck"}, {QString::fromUtf8("My Job@h\xc3\xb6me-1"), "My\\x20Job\\x40h\\xc3\\xb6me-1"},
        {".hidden", "\\x2ehidden"}, {"a/b", std::nullopt}, {"..", std::nullopt}, {"", std::nullopt}, {"a\nExecStart=/bin/sh", std::nullopt},
        {QString(250, QLatin1Char('j')), std::nullopt},
    };
    for (const auto& row : rows)
        EXPECT_EQ(unitNameForLabel(row.label), row.expected) << qPrintable(row.label);
}

TEST(SystemdUnits, JobWithoutCalendarIsEnabledItself)
{
    const QVariantMap job{{"Label", "com.velmora.Agent"}, {"ProgramArguments", QVariantList{"/usr/bin/agent", "--serve"}}};
    const JobUnits user = unitsForJob(job, Manager::User).value_or(JobUnits{.timer = QString()});
    EXPECT_FALSE(user.timer.has_value());
    // Without Program, ProgramArguments[0] is both the executable and argv[0].
    EXPECT_TRUE(user.service.contains("\nExecStart=@/usr/bin/agent /usr/bin/agent --serve\n"));
    EXPECT_TRUE(user.service.endsWith("[Install]\nWantedBy=default.target\n"));
    EXPECT_TRUE(unitsForJob(job, Manager::System).value_or(JobUnits()).service.endsWith("[Install]\nWantedBy=multi-user.target\n"));
    QString error;
    EXPECT_FALSE(unitsForJob({{"Label", "x"}}, Manager::User, &error) || error.isEmpty()) << "no program";
    EXPECT_FALSE(unitsForJob({{"Label", "x"}, {"ProgramArguments", QVariantList{"/bin/a", 3}}}, Manager::User)) << "a number among the arguments";
}
