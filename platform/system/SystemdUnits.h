#pragma once
// SystemdUnits: the systemd units that stand for a launchd job on Linux, made from the job's
// property-list dictionary. Pure text in, text out; the job service writes and loads them.
//
// What is carried over:
//   Label                  the unit name (see unitNameForLabel) and Description=
//   Program                the executable (absolute); without it, ProgramArguments[0]
//   ProgramArguments       the argument vector, argv[0] included: ExecStart=@<executable> <argv...>
//   StartCalendarInterval  a dictionary or an array of them with Minute, Hour, Day, Weekday,
//                          Month; a missing key is a wildcard, Weekday 0 and 7 are Sunday; each
//                          entry gives one OnCalendar= line of <name>.timer (Persistent=true,
//                          so a run missed while the machine was off happens at the next start).
//                          An entry with both Day and Weekday runs when either matches, as a
//                          crontab line does, so it gives two lines.
// Other keys have no counterpart here and are left out. A job with a calendar is started by
// its timer (the timer is what gets enabled); a job without one gets an [Install] section so
// it can be enabled itself (default.target for the user's manager, multi-user.target for the
// machine's).
//
// ExecStart= words are written as systemd.service(5) reads them: a word with white space,
// quotes, backslashes or control characters (or a lone ";") is double-quoted with C escapes;
// "%" is written "%%" everywhere (specifiers) and "$" as "$$" in the argument vector (variable
// substitution; the executable itself is never substituted). Control characters are refused in
// the executable, which systemd does not allow.
//
// Pure functions; any thread.

#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVariantMap>

#include <optional>

namespace sys::systemd {

enum class Manager { User, System };

struct JobUnits {
    QString name;                 // unit name without suffix
    QString service;              // text of <name>.service
    std::optional<QString> timer; // text of <name>.timer when the job has a calendar
};

// The unit name of a job label: the label with every character outside [A-Za-z0-9:_.-]
// written as \xNN (its UTF-8 bytes), as systemd-escape does ("@" included, which would make
// the unit a template instance). std::nullopt for a label that is empty, holds "/", "..", a
// control character, or gives a name longer than systemd's 255 characters with its suffix.
std::optional<QString> unitNameForLabel(const QString& label);

// OnCalendar= values of a StartCalendarInterval value, or std::nullopt with `error` set when
// it is not a dictionary or an array of dictionaries of integers in range.
std::optional<QStringList> onCalendarLines(const QVariant& interval, QString* error = nullptr);

// The value of ExecStart= for an executable and its whole argument vector (argv[0] first).
std::optional<QString> execStartValue(const QString& executable, const QStringList& argv, QString* error = nullptr);

// Both units of a job, or std::nullopt with `error` set.
std::optional<JobUnits> unitsForJob(const QVariantMap& job, Manager manager, QString* error = nullptr);

} // namespace sys::systemd
