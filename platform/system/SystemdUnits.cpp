#include "platform/system/SystemdUnits.h"

#include <QVariantList>

#include <algorithm>

namespace sys::systemd {

namespace {

// systemd's limit on a unit name, suffix included.
constexpr int kMaxUnitNameLength = 255;

bool isControl(QChar c)
{
    return c.unicode() < 0x20 || c.unicode() == 0x7f;
}

bool isPlainUnitNameCharacter(QChar c)
{
    return (c >= QLatin1Char('a') && c <= QLatin1Char('z')) || (c >= QLatin1Char('A') && c <= QLatin1Char('Z'))
        || (c >= QLatin1Char('0') && c <= QLatin1Char('9')) || c == QLatin1Char(':') || c == QLatin1Char('_')
        || c == QLatin1Char('.') || c == QLatin1Char('-');
}

void setError(QString* error, const QString& text)
{
    if (error)
        *error = text;
}

struct CalendarField {
    const char* key;
    int minimum;
    int maximum;
};

// The keys of one entry, in the order of their place in an OnCalendar= value.
constexpr CalendarField kWeekday{"Weekday", 0, 7};
constexpr CalendarField kMonth{"Month", 1, 12};
constexpr CalendarField kDay{"Day", 1, 31};
constexpr CalendarField kHour{"Hour", 0, 23};
constexpr CalendarField kMinute{"Minute", 0, 59};

// The entry's value of a field; std::nullopt for a wildcard; -1 when it is not an integer in range.
std::optional<int> fieldValue(const QVariantMap& entry, const CalendarField& field)
{
    const QVariant value = entry.value(QLatin1String(field.key));
    if (!value.isValid())
        return std::nullopt;
    switch (value.typeId()) {
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
        break;
    default:
        return -1;
    }
    const qlonglong number = value.toLongLong();
    const bool inRange = value.typeId() == QMetaType::ULongLong ? value.toULongLong() <= qulonglong(field.maximum)
                                                                 : number >= field.minimum && number <= field.maximum;
    return inRange ? int(number) : -1;
}

QString twoDigits(std::optional<int> value)
{
    return value ? QStringLiteral("%1").arg(*value, 2, 10, QLatin1Char('0')) : QStringLiteral("*");
}

QString weekdayName(int weekday)
{
    static const char* const names[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"};
    return QLatin1String(names[weekday]);
}

// The OnCalendar= values of one entry: one, or two when both Day and Weekday are set.
std::optional<QStringList> entryLines(const QVariantMap& entry, int index, QString* error)
{
    std::optional<int> values[5];
    const CalendarField* fields[] = {&kWeekday, &kMonth, &kDay, &kHour, &kMinute};
    for (int i = 0; i < 5; ++i) {
        values[i] = fieldValue(entry, *fields[i]);
        if (values[i] == -1) {
            setError(error, QStringLiteral("StartCalendarInterval entry %1: %2 must be an integer from %3 to %4")
                                .arg(index).arg(QLatin1String(fields[i]->key)).arg(fields[i]->minimum).arg(fields[i]->maximum));
            return std::nullopt;
        }
    }
    const auto& [weekday, month, day, hour, minute] = values;
    const QString time = QStringLiteral(" %1:%2:00").arg(twoDigits(hour), twoDigits(minute));
    const QString dayDate = QStringLiteral("*-%1-%2").arg(twoDigits(month), twoDigits(day));
    if (!weekday)
        return QStringList{dayDate + time};
    const QString weekdayDate = weekdayName(*weekday) + QStringLiteral(" *-%1-*").arg(twoDigits(month));
    if (!day)
        return QStringList{weekdayDate + time};
    return QStringList{weekdayDate + time, dayDate + time};
}

// One ExecStart= word. `substituted`: the word goes through variable substitution.
QString execWord(const QString& word, bool substituted)
{
    QString text = word;
    text.replace(QLatin1Char('%'), QStringLiteral("%%"));
    if (substituted)
        text.replace(QLatin1Char('$'), QStringLiteral("$$"));
    bool needsQuotes = text.isEmpty() || text == QStringLiteral(";");
    for (QChar c : text)
        needsQuotes = needsQuotes || c.isSpace() || isControl(c) || c == QLatin1Char('"') || c == QLatin1Char('\'')
                      || c == QLatin1Char('\\');
    if (!needsQuotes)
        return text;
    QString quoted = QStringLiteral("\"");
    for (QChar c : text) {
        if (c == QLatin1Char('"') || c == QLatin1Char('\\'))
            quoted += QLatin1Char('\\') + c;
        else if (c == QLatin1Char('\n'))
            quoted += QStringLiteral("\\n");
        else if (c == QLatin1Char('\t'))
            quoted += QStringLiteral("\\t");
        else if (isControl(c))
            quoted += QStringLiteral("\\x%1").arg(c.unicode(), 2, 16, QLatin1Char('0'));
        else
            quoted += c;
    }
    return quoted + QLatin1Char('"');
}

// The executable and argument vector launchd would run for the job.
bool programOfJob(const QVariantMap& job, QString* executable, QStringList* argv, QString* error)
{
    const QVariant program = job.value(QStringLiteral("Program"));
    const QVariant arguments = job.value(QStringLiteral("ProgramArguments"));
    if (program.isValid() && program.typeId() != QMetaType::QString) {
        setError(error, QStringLiteral("Program is not a string"));
        return false;
    }
    if (arguments.isValid()) {
        if (arguments.typeId() != QMetaType::QVariantList) {
            setError(error, QStringLiteral("ProgramArguments is not an array"));
            return false;
        }
        for (const QVariant& argument : arguments.toList()) {
            if (argument.typeId() != QMetaType::QString) {
                setError(error, QStringLiteral("ProgramArguments holds a value that is not a string"));
                return false;
            }
            *argv << argument.toString();
        }
    }
    *executable = program.isValid() ? program.toString() : argv->value(0);
    if (argv->isEmpty())
        *argv = QStringList{*executable};
    if (executable->isEmpty()) {
        setError(error, QStringLiteral("The job names no program"));
        return false;
    }
    return true;
}

} // namespace

std::optional<QString> unitNameForLabel(const QString& label)
{
    if (label.isEmpty() || label.contains(QLatin1Char('/')) || label.contains(QStringLiteral("..")))
        return std::nullopt;
    QString name;
    for (QChar c : label) {
        if (isControl(c))
            return std::nullopt;
        if (isPlainUnitNameCharacter(c)) {
            name += c;
            continue;
        }
        for (const char byte : QString(c).toUtf8())
            name += QStringLiteral("\\x%1").arg(uchar(byte), 2, 16, QLatin1Char('0'));
    }
    // A leading "." would hide the unit file; systemd-escape writes it escaped too.
    if (name.startsWith(QLatin1Char('.')))
        name = QStringLiteral("\\x2e") + name.mid(1);
    if (name.size() + int(sizeof("service")) > kMaxUnitNameLength)
        return std::nullopt;
    return name;
}

std::optional<QStringList> onCalendarLines(const QVariant& interval, QString* error)
{
    QVariantList entries;
    if (interval.typeId() == QMetaType::QVariantMap)
        entries << interval;
    else if (interval.typeId() == QMetaType::QVariantList)
        entries = interval.toList();
    else {
        setError(error, QStringLiteral("StartCalendarInterval is neither a dictionary nor an array"));
        return std::nullopt;
    }
    QStringList lines;
    for (int i = 0; i < entries.size(); ++i) {
        if (entries.at(i).typeId() != QMetaType::QVariantMap) {
            setError(error, QStringLiteral("StartCalendarInterval entry %1 is not a dictionary").arg(i));
            return std::nullopt;
        }
        const std::optional<QStringList> entry = entryLines(entries.at(i).toMap(), i, error);
        if (!entry)
            return std::nullopt;
        for (const QString& line : *entry)
            if (!lines.contains(line))
                lines << line;
    }
    if (lines.isEmpty()) {
        setError(error, QStringLiteral("StartCalendarInterval has no entry"));
        return std::nullopt;
    }
    return lines;
}

std::optional<QString> execStartValue(const QString& executable, const QStringList& argv, QString* error)
{
    if (!executable.startsWith(QLatin1Char('/'))) {
        setError(error, QStringLiteral("The program \"%1\" is not an absolute path").arg(executable));
        return std::nullopt;
    }
    if (std::any_of(executable.cbegin(), executable.cend(), isControl)) {
        setError(error, QStringLiteral("The program path holds a control character"));
        return std::nullopt;
    }
    QString value = QLatin1Char('@') + execWord(executable, false);
    for (const QString& argument : argv)
        value += QLatin1Char(' ') + execWord(argument, true);
    return value;
}

std::optional<JobUnits> unitsForJob(const QVariantMap& job, Manager manager, QString* error)
{
    const QVariant label = job.value(QStringLiteral("Label"));
    const std::optional<QString> name =
        label.typeId() == QMetaType::QString ? unitNameForLabel(label.toString()) : std::nullopt;
    if (!name) {
        setError(error, QStringLiteral("The job's Label is missing or cannot name a unit"));
        return std::nullopt;
    }
    QString executable;
    QStringList argv;
    if (!programOfJob(job, &executable, &argv, error))
        return std::nullopt;
    const std::optional<QString> execStart = execStartValue(executable, argv, error);
    if (!execStart)
        return std::nullopt;
    std::optional<QStringList> calendar;
    if (job.contains(QStringLiteral("StartCalendarInterval"))) {
        calendar = onCalendarLines(job.value(QStringLiteral("StartCalendarInterval")), error);
        if (!calendar)
            return std::nullopt;
    }

    const QString header = QStringLiteral("# Written from the launchd job %1 each time it is loaded.\n\n[Unit]\nDescription=%1\n")
                               .arg(label.toString().replace(QLatin1Char('%'), QStringLiteral("%%")));
    JobUnits units;
    units.name = *name;
    units.service = header + QStringLiteral("\n[Service]\nExecStart=") + *execStart + QLatin1Char('\n');
    if (!calendar) {
        units.service += QStringLiteral("\n[Install]\nWantedBy=%1\n")
                             .arg(manager == Manager::User ? QStringLiteral("default.target") : QStringLiteral("multi-user.target"));
        return units;
    }
    QString timer = header + QStringLiteral("\n[Timer]\n");
    for (const QString& line : *calendar)
        timer += QStringLiteral("OnCalendar=") + line + QLatin1Char('\n');
    timer += QStringLiteral("Persistent=true\n\n[Install]\nWantedBy=timers.target\n");
    units.timer = timer;
    return units;
}

} // namespace sys::systemd
