#pragma once
// VLLaunchd: installs, reloads and removes launchd jobs described by a property list, per user
// (the user's Library folder) or machine-wide (the local Library folder), as agents
// (LaunchAgents) or daemons (LaunchDaemons). The settings dictionary is written unchanged as
// <Library>/<LaunchAgents|LaunchDaemons>/<label>.plist.
//
// Where the platform's "/bin/launchctl" would run (load FILE, unload FILE, remove LABEL), the
// platform job service takes over (platform/system/JobService.h: launchctl on macOS, systemd
// units on Linux), in the same order of steps; the domain it acts on is the job's (user flag).
// The other tools ("/usr/bin/killall", "/usr/sbin/chown", "/bin/chmod", resolved under the
// system root) run through the task runner with a 10-second time-out that waits for the tool,
// or through VLAuthorization; their results are not examined. A machine-wide job file is given
// to JobService::machineJobOwner() ("root:root" on Linux, which has no "wheel" group).
//
// Kept on purpose:
// - checkJobExists always answers false, so every start removes, rewrites, unloads and reloads
//   the job, even when an identical property list is already in place.
// - removeLaunchAgent ignores its user flag and always removes the user-domain agent.
// - Only writing the property list is checked; a failure that even the temporary-folder
//   fallback cannot get past is logged, reported on the console and shown as an alert sheet on
//   the main window, and the start answers false.
//
// A label that is empty, holds "/" or ".." is refused with a logged error before any path is
// formed, so no operation can reach outside the job folder (stopJob with no label does nothing,
// silently).
//
// Static and stateless. Runs on the caller's thread; a start that may fail to write shows an
// alert sheet, so callers that may hit that failure call from the main thread.

#include <QString>
#include <QVariantMap>

class VLLaunchd {
public:
    VLLaunchd() = delete;

    // Always false (see above); the label's path is still formed.
    static bool checkJobExists(const QString& label, const QVariantMap& settings, bool launchAgent, bool user);
    // A launch agent, without administrator rights, no process to end first.
    static bool startLaunchAgent(const QString& label, const QVariantMap& settings, bool user);
    // killProcessName: a process name ended with killall before the job is reloaded; empty for none.
    static bool startJob(const QString& label, const QVariantMap& settings, bool user, bool launchAgent,
                         bool shouldAuth, const QString& killProcessName, bool forceRecreate = false);
    // Always the user-domain agent, whatever `user` says; with administrator rights.
    static void removeLaunchAgent(const QString& label, bool user);
    static void removeJob(const QString& label, bool user, bool launchAgent, bool shouldAuth);
    // Unloads the job by its file, then removes it by label. `shouldAuth` is not used.
    static void stopJob(const QString& label, bool user, bool launchAgent, bool shouldAuth);
};
