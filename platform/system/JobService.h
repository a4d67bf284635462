#pragma once
// JobService: the platform's job scheduler behind the launchd job operations of the VL library:
// load a job from its property-list file, unload it by that file, remove it by label. The
// caller writes the property list itself, where the platform's job folders are; this service
// only makes the scheduler take the job up or let it go.
//
// Backends:
// - macOS (JobService_mac.cpp, not built here): "/bin/launchctl" with "load" FILE,
//   "unload" FILE and "remove" LABEL; the domain follows from the calling user, as launchctl
//   decides it.
// - Linux (JobService_linux.cpp): systemd. Loading reads the property list, writes
//   <unit>.service and, for a StartCalendarInterval, <unit>.timer (SystemdUnits.h) into
//   $HOME/.config/systemd/user/ (user domain) or <root>/etc/systemd/system/ (machine), then runs
//   `<root>/usr/bin/systemctl [--user] daemon-reload` and `... enable --now <unit>.timer` (or
//   .service without a calendar). Unloading runs `... disable --now` on the timer (or, without
//   one, the service) found in that folder, removes both unit files and reloads the manager;
//   removing by label does the same. A job that has no unit file is not loaded: nothing runs.
//   Unloading a calendar job stops its timer, not a run the timer already started: the
//   updater rewrites and reloads its own job at every launch, and a weekly check that opened
//   its window must not end itself by doing so.
//
// Tools run through the caller's runner (the VL library's task runner), which waits for each;
// their results are not examined, as launchctl's are not. What the service itself cannot do
// (a property list it cannot read, a label that cannot name a unit, a unit file it cannot
// write) is returned as an error text, and nothing runs.
//
// Lifecycle: a value holding its runner; use it on one thread at a time.

#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

namespace sys {

enum class JobDomain { User, Machine };

class JobService {
public:
    // Runs one tool (absolute path, arguments) and waits for it.
    using ToolRunner = std::function<void(const QString& toolPath, const QStringList& arguments)>;

    explicit JobService(ToolRunner runTool) : runTool_(std::move(runTool)) {}

    // std::nullopt when the scheduler was asked; otherwise why it was not.
    [[nodiscard]] std::optional<QString> load(const QString& plistPath, JobDomain domain) const;
    [[nodiscard]] std::optional<QString> unload(const QString& plistPath, JobDomain domain) const;
    [[nodiscard]] std::optional<QString> remove(const QString& label, JobDomain domain) const;

    // The owner a machine-wide job file is given ("user:group" for chown): root and the group
    // with id 0, "root:wheel" on macOS, "root:root" on Linux.
    static QString machineJobOwner();

private:
    ToolRunner runTool_;
};

} // namespace sys
