#!/usr/bin/python3
"""Stand-ins for the system tools the updater runs, for tests and the demo.

One script, installed under each tool's name (the name it is run as picks the tool). Every
call first appends {"tool", "argv", "uid"} as one JSON line to $FAKE_TOOL_LOG (default
$VELMORA_SYSROOT/tool-calls.log), then acts like the real tool on the sandbox tree:

  hdiutil attach FILE -nobrowse   unpacks a test "disk image" (.tar, .tar.gz, .tgz or .zip)
                                  into $VELMORA_SYSROOT/Volumes/<name>; <name> is the archive's
                                  single top folder (whose contents become the volume) or else
                                  the file name without extension; " 1", " 2"... when taken
  hdiutil detach VOLUME [-force]  removes a volume under $VELMORA_SYSROOT/Volumes
  installer -pkg P -target /      extracts the payload/ folder of a test package (tar or zip)
                                  under $VELMORA_SYSROOT; refuses to run unless root
                                  (FAKE_INSTALLER_ALLOW_NONROOT=1 lifts that)
  killall [-SIG] NAME             signals processes named NAME whose executable lies under
                                  $VELMORA_SYSROOT or $HOME; status 1 when none matched
  pkexec PROGRAM ARGS...          runs the program as the same user (FAKE_PKEXEC_DENY=1:
                                  status 126, as when the user refuses)
  rm mv cp mkdir chmod chown touch  run the real tool with the same arguments
  xdg-open launchctl systemctl diskutil xattr
                                  record only, status 0

Switches, by tool name in upper case with "-" as "_":
  FAKE_<TOOL>_STATUS=N      record, do nothing, exit N
  FAKE_<TOOL>_FAIL=<verb>   the verb ("attach", "detach", ... or "all") fails with status 1
  FAKE_<TOOL>_SLEEP=S       sleep S seconds first (time-out tests)
"""

import json
import os
import shutil
import signal
import subprocess
import sys
import tarfile
import time
import zipfile

PASS_THROUGH = {"rm": "/bin/rm", "mv": "/bin/mv", "cp": "/bin/cp", "mkdir": "/bin/mkdir",
                "chmod": "/bin/chmod", "chown": "/bin/chown", "touch": "/usr/bin/touch"}
RECORD_ONLY = {"xdg-open", "launchctl", "systemctl", "diskutil", "xattr"}


def sysroot():
    return os.environ.get("VELMORA_SYSROOT", "")


def record(tool, argv):
    log = os.environ.get("FAKE_TOOL_LOG") or os.path.join(sysroot() or "/tmp", "tool-calls.log")
    with open(log, "a", encoding="utf-8") as f:
        f.write(json.dumps({"tool": tool, "argv": argv, "uid": os.geteuid()}) + "\n")


def fail(tool, message, status=1):
    sys.stderr.write("%s: %s\n" % (tool, message))
    return status


def env_switch(tool, name):
    return os.environ.get("FAKE_%s_%s" % (tool.upper().replace("-", "_"), name))


def is_archive(path):
    return tarfile.is_tarfile(path) or zipfile.is_zipfile(path)


def check_member(dest, name):
    root = os.path.realpath(dest)
    target = os.path.realpath(os.path.join(dest, name))
    if target != root and not target.startswith(root + os.sep):
        raise ValueError("unsafe member %s" % name)


def extract(path, dest):
    """Extracts a tar or zip archive; members that would land outside dest are refused."""
    os.makedirs(dest, exist_ok=True)
    if zipfile.is_zipfile(path):
        with zipfile.ZipFile(path) as z:
            for name in z.namelist():
                check_member(dest, name)
            z.extractall(dest)
        return
    with tarfile.open(path) as t:
        members = t.getmembers()
        for m in members:
            check_member(dest, m.name)
            if m.issym() or m.islnk():
                check_member(dest, os.path.join(os.path.dirname(m.name), m.linkname))
            elif not (m.isfile() or m.isdir()):
                raise ValueError("unsupported member %s" % m.name)
        t.extractall(dest, members=members)


def free_volume_path(name):
    volumes = os.path.join(sysroot(), "Volumes")
    os.makedirs(volumes, exist_ok=True)
    candidate, n = os.path.join(volumes, name), 0
    while os.path.exists(candidate):
        n += 1
        candidate = os.path.join(volumes, "%s %d" % (name, n))
    return candidate


def hdiutil_attach(image):
    if not os.path.isfile(image) or not is_archive(image):
        return fail("hdiutil", "attach failed - image not recognized")
    staging = free_volume_path(".attaching-%d" % os.getpid())
    try:
        extract(image, staging)
    except (OSError, ValueError, tarfile.TarError, zipfile.BadZipFile) as e:
        shutil.rmtree(staging, ignore_errors=True)
        return fail("hdiutil", "attach failed - %s" % e)
    entries = os.listdir(staging)
    if len(entries) == 1 and os.path.isdir(os.path.join(staging, entries[0])):
        volume = free_volume_path(entries[0])
        os.rename(os.path.join(staging, entries[0]), volume)
        os.rmdir(staging)
    else:
        stem = os.path.basename(image)
        for ext in (".tar.gz", ".tgz", ".tar", ".zip", ".dmg"):
            if stem.endswith(ext):
                stem = stem[: -len(ext)]
                break
        volume = free_volume_path(stem or "Untitled")
        os.rename(staging, volume)
    print("/dev/disk9s1\tApple_HFS\t%s" % volume)
    return 0


def hdiutil_detach(volume):
    volumes = os.path.realpath(os.path.join(sysroot(), "Volumes"))
    target = os.path.realpath(volume)
    if os.path.dirname(target) != volumes or not os.path.isdir(target):
        return fail("hdiutil", "detach failed - No such file or directory")
    shutil.rmtree(target)
    print('"%s" ejected.' % os.path.basename(target))
    return 0


def hdiutil(args):
    verb = args[0] if args else ""
    if env_switch("hdiutil", "FAIL") in (verb, "all"):
        return fail("hdiutil", "%s failed - simulated failure" % verb)
    if verb == "attach" and len(args) >= 2:
        return hdiutil_attach(args[1])
    if verb == "detach" and len(args) >= 2:
        return hdiutil_detach(args[1])
    return fail("hdiutil", "unsupported arguments %s" % args)


def option(args, name):
    return args[args.index(name) + 1] if name in args and args.index(name) + 1 < len(args) else None


def installer(args):
    pkg, target = option(args, "-pkg"), option(args, "-target")
    if pkg is None or target is None:
        return fail("installer", "usage: installer -pkg <path> -target <device>", 2)
    if env_switch("installer", "FAIL") in ("install", "all"):
        return fail("installer", "Error - the install failed (simulated).")
    if os.geteuid() != 0 and os.environ.get("FAKE_INSTALLER_ALLOW_NONROOT") != "1":
        return fail("installer", "Must be run as root to install this package.")
    if not os.path.isfile(pkg) or not is_archive(pkg):
        return fail("installer", "Error - the package path given is not a package: '%s'." % pkg)
    base = os.path.join(sysroot(), target.lstrip("/")) if sysroot() else target
    staging = os.path.join(sysroot() or "/tmp", ".installer-%d" % os.getpid())
    try:
        extract(pkg, staging)
        payload = os.path.join(staging, "payload")
        if os.path.isdir(payload):
            shutil.copytree(payload, base, symlinks=True, dirs_exist_ok=True)
    except (OSError, ValueError, tarfile.TarError, zipfile.BadZipFile) as e:
        return fail("installer", "Error - %s" % e)
    finally:
        shutil.rmtree(staging, ignore_errors=True)
    print("installer: Package name is %s" % os.path.basename(pkg))
    print("installer: Installing at base path %s" % target)
    print("installer: The install was successful.")
    return 0


def killall(args):
    sig, names = signal.SIGTERM, []
    for a in args:
        if a.startswith("-") and len(a) > 1:
            sig = int(a[1:]) if a[1:].isdigit() else getattr(signal, "SIG" + a[1:].upper(), signal.SIGTERM)
        else:
            names.append(a)
    roots = [p for p in (sysroot(), os.environ.get("HOME", "")) if p]
    hit = False
    for pid in filter(str.isdigit, os.listdir("/proc")):
        try:
            exe = os.readlink("/proc/%s/exe" % pid)
            cmd = open("/proc/%s/cmdline" % pid, "rb").read().split(b"\0")
        except OSError:
            continue
        paths = [exe] + [c.decode("utf-8", "replace") for c in cmd[:2] if c]
        for path in paths:
            if os.path.basename(path) in names and any(path.startswith(r + "/") for r in roots):
                try:
                    os.kill(int(pid), sig)
                    hit = True
                except OSError:
                    pass
                break
    return 0 if hit else fail("killall", "No matching processes were found")


def pkexec(args):
    if os.environ.get("FAKE_PKEXEC_DENY") == "1":
        return fail("pkexec", "Not authorized", 126)
    if not args:
        return fail("pkexec", "no program given", 127)
    try:
        return subprocess.call(args)
    except OSError as e:
        return fail("pkexec", str(e), 127)


TOOLS = {"hdiutil": hdiutil, "installer": installer, "killall": killall, "pkexec": pkexec}


def main():
    tool = os.path.basename(sys.argv[0])
    if tool.endswith(".py"):
        tool = tool[:-3]
    args = sys.argv[1:]
    record(tool, [tool] + args)
    delay = env_switch(tool, "SLEEP")
    if delay:
        time.sleep(float(delay))
    status = env_switch(tool, "STATUS")
    if status is not None:
        return int(status)
    if tool in PASS_THROUGH:
        os.execv(PASS_THROUGH[tool], [PASS_THROUGH[tool]] + args)
    if tool in RECORD_ONLY:
        return 0
    if tool in TOOLS:
        sys.stdout.flush()
        return TOOLS[tool](args)
    return fail(tool, "not a known fake tool", 127)


if __name__ == "__main__":
    sys.exit(main())
