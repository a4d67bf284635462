#!/usr/bin/python3
"""The built-in demo: the updater's main job against a sandboxed Mac-like tree.

  demo.py --build BUILD_DIR --out DEMO_DIR

Lays out DEMO_DIR/sysroot (Applications with six vendor applications: four checked against
Sparkle appcasts, two of them carrying the developer's public key, and two members of one
vendor group; the fake system tools; SystemVersion.plist), DEMO_DIR/home and DEMO_DIR/tmp,
starts the local HTTPS update server (scripts/testserver.py) on DEMO_DIR/server, then runs the
real updater:

  1. SoftwareUpdate -list                      the records of every available update
  2. SoftwareUpdate -explain                   why each application is or is not offered
  3. SoftwareUpdate -explain <path>            the same for a bundle the check passed over
  4. SoftwareUpdate -install sparkle <app>     a disk-image update of a Sparkle application
     (then the two key-carrying applications get their release 2.0: one signed by their
     developer, one whose download was replaced on the server after it was signed)
  5. SoftwareUpdate -install sparkle <app>     a signed update: verified, then installed
  6. SoftwareUpdate -install sparkle <app>     a tampered update: refused before mounting
  7. SoftwareUpdate -install group <group ID>  an installer-package update of the group
  8. SoftwareUpdate -install self <own ID>     the updater's own, signed update, through its helper

with a notification listener standing in for the vendor client, and shows what changed.
The developer's Ed25519 key pair is made afresh by the openssl tool for every run; the private
key lives in a temporary folder only while the downloads are signed. Then it puts the older
versions back and opens the windowed application on the tree; with no display it renders every
window and sheet offscreen into DEMO_DIR/screenshots instead and ends.

  demo.py ... --screenshots FOLDER   only render the windows (scripts/screenshots.sh)
  demo.py ... --serve                only lay out the tree and serve it: prints the environment
                                     as one JSON line and runs until its standard input closes
"""

import argparse
import base64
import hashlib
import io
import json
import os
import plistlib
import shutil
import subprocess
import sys
import tarfile
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
TOOL_PATHS = {
    "hdiutil": "usr/bin", "killall": "usr/bin", "touch": "usr/bin",
    "pkexec": "usr/bin", "xdg-open": "usr/bin", "xattr": "usr/bin", "installer": "usr/sbin",
    "chown": "usr/sbin", "diskutil": "usr/sbin", "rm": "bin", "mv": "bin", "cp": "bin",
    "mkdir": "bin", "chmod": "bin", "launchctl": "bin", "systemctl": "usr/bin",
}
REAL_TOOLS = ("/usr/bin/zip", "/usr/bin/unzip")
GROUP_ID = "com.velmora.studio"
SELF_ID = "com.velmora.SoftwareUpdate"


def write_plist(path, value):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as f:
        plistlib.dump(value, f)


def make_app(folder, name, identifier, build, short, descriptor, extra_info=None):
    app = os.path.join(folder, name + ".app")
    executable = name.replace(" ", "")
    write_plist(os.path.join(app, "Contents", "Info.plist"), dict({
        "CFBundleIdentifier": identifier, "CFBundleVersion": str(build),
        "CFBundleShortVersionString": short, "CFBundleExecutable": executable,
        "CFBundleName": name,
    }, **(extra_info or {})))
    macos = os.path.join(app, "Contents", "MacOS")
    os.makedirs(macos, exist_ok=True)
    with open(os.path.join(macos, executable), "w") as f:
        f.write("#!/bin/sh\necho '%s %s'\n" % (name, short))
    os.chmod(os.path.join(macos, executable), 0o755)
    if descriptor is not None:
        write_plist(os.path.join(app, "Contents", "Resources", "VLUpdates.plist"), descriptor)
    return app


def tar_folder(archive, folder, arcname):
    with tarfile.open(archive, "w") as t:
        t.add(folder, arcname=arcname)


def sha1(path):
    with open(path, "rb") as f:
        return hashlib.sha1(f.read()).hexdigest()


class DeveloperKey:
    """An Ed25519 key pair made with the openssl tool; the private key never leaves `folder`."""

    def __init__(self, folder):
        self.private = os.path.join(folder, "developer.pem")
        subprocess.run(["openssl", "genpkey", "-algorithm", "ed25519", "-out", self.private], check=True)
        der = subprocess.run(["openssl", "pkey", "-in", self.private, "-pubout", "-outform", "DER"],
                             check=True, capture_output=True).stdout
        self.public = base64.b64encode(der[-32:]).decode()  # the raw key ends the DER form

    def sign(self, path):
        signature = subprocess.run(["openssl", "pkeyutl", "-sign", "-inkey", self.private, "-rawin", "-in", path],
                                   check=True, capture_output=True).stdout
        return base64.b64encode(signature).decode()


def install_fake_tools(sysroot):
    source = os.path.join(HERE, "fake-tools", "faketool.py")
    for tool, folder in TOOL_PATHS.items():
        target = os.path.join(sysroot, folder, tool)
        os.makedirs(os.path.dirname(target), exist_ok=True)
        shutil.copyfile(source, target)
        os.chmod(target, 0o755)
    # Archives are real zip files made by the machine's own zip and unzip.
    for tool in REAL_TOOLS:
        target = os.path.join(sysroot, tool.lstrip("/"))
        if os.path.lexists(target):
            os.remove(target)
        os.symlink(tool, target)


def copy_updater(build, updater, public_key):
    shutil.copytree(os.path.join(build, "Velmora Software Update.app"), updater, symlinks=True)
    # The updater carries its developer's public key, as the applications below do.
    info_path = os.path.join(updater, "Contents", "Info.plist")
    with open(info_path, "rb") as f:
        info = plistlib.load(f)
    info["SUPublicEDKey"] = public_key
    write_plist(info_path, info)


def lay_out_tree(out, build, public_key):
    sysroot, home = os.path.join(out, "sysroot"), os.path.join(out, "home")
    # The folders every Mac has: the machine's log folder matters for runs as root, whose
    # current log file lives there.
    for folder in ("Applications", "Volumes", "Library/Application Support", "Library/Logs/Velmora",
                   "Library/PreferencePanes", "tmp"):
        os.makedirs(os.path.join(sysroot, folder), exist_ok=True)
    for folder in ("Preferences", "Logs", "PreferencePanes"):
        os.makedirs(os.path.join(home, "Library", folder), exist_ok=True)
    os.makedirs(os.path.join(home, ".Trash"), exist_ok=True)
    os.makedirs(os.path.join(out, "tmp"), exist_ok=True)
    write_plist(os.path.join(sysroot, "System/Library/CoreServices/SystemVersion.plist"),
                {"ProductName": "macOS", "ProductVersion": "14.2.1"})
    install_fake_tools(sysroot)
    updater = os.path.join(sysroot, "Applications", "Velmora Software Update.app")
    copy_updater(build, updater, public_key)
    helper = os.path.join(sysroot, "Library/Application Support/Velmora/Shared Resources/SoftwareUpdateHelper.app")
    if os.path.isdir(os.path.join(build, "SoftwareUpdateHelper.app")):
        shutil.copytree(os.path.join(build, "SoftwareUpdateHelper.app"), helper, symlinks=True)
    return sysroot, home, updater


SIGNED_APPS = (("Velmora Sketch", "com.velmora.Sketch", "sketch"), ("Velmora Pad", "com.velmora.Pad", "pad"))


def make_signed_downloads(staging, downloads, key):
    """Release 2.0 of the key-carrying applications, signed by their developer. Pad's download
    is then replaced on the server by one that differs from what was signed."""
    signatures = {}
    for name, identifier, short in SIGNED_APPS:
        folder = os.path.join(staging, short)
        app = make_app(folder, name, identifier, 200, "2.0", None, {"SUPublicEDKey": key.public})
        image = os.path.join(downloads, name.replace(" ", "") + "-2.0.dmg")
        tar_folder(image, folder, name + " 2.0")
        signatures[short] = key.sign(image)
        if short == "pad":
            with open(os.path.join(app, "Contents", "MacOS", "VelmoraPad"), "a") as f:
                f.write("# replaced on the server after signing\n")
            tar_folder(image, folder, name + " 2.0")
    return signatures


def make_downloads(out, server_root, updater, key):
    """The files the server offers: disk images are tar archives the fake hdiutil mounts.
    Returns the developer's signatures of the signed ones."""
    staging, downloads = os.path.join(out, "staging"), os.path.join(server_root, "downloads")
    os.makedirs(downloads, exist_ok=True)
    notes = os.path.join(staging, "notes")
    make_app(notes, "Velmora Notes", "com.velmora.Notes", 130, "1.3", {"SUFeedURL": "(set below)"})
    tar_folder(os.path.join(downloads, "VelmoraNotes-1.3.dmg"), notes, "Velmora Notes 1.3")

    payload = os.path.join(staging, "studio-payload")
    for name, app in (("Velmora Cut", "cut"), ("Velmora Color", "color")):
        make_app(os.path.join(payload, "payload", "Applications"), name, "com.velmora." + app.capitalize(),
                 800, "8.0", {"VLGroupID": GROUP_ID, "VLGroupVersion": 8, "VLGroupVersionString": "8.0",
                              "VLGroupApp": app})
    volume = os.path.join(staging, "studio-volume")
    os.makedirs(volume, exist_ok=True)
    with tarfile.open(os.path.join(volume, "Velmora Studio.pkg"), "w") as t:
        t.add(os.path.join(payload, "payload"), arcname="payload")
    tar_folder(os.path.join(downloads, "VelmoraStudio-8.0.dmg"), volume, "Velmora Studio 8.0")

    new_self = os.path.join(staging, "self")
    shutil.copytree(updater, os.path.join(new_self, "Velmora Software Update.app"), symlinks=True)
    info_path = os.path.join(new_self, "Velmora Software Update.app", "Contents", "Info.plist")
    with open(info_path, "rb") as f:
        info = plistlib.load(f)
    info["CFBundleVersion"], info["CFBundleShortVersionString"] = "999", "9.9.9"
    write_plist(info_path, info)
    self_dmg = os.path.join(downloads, "VelmoraSoftwareUpdate-9.9.9.dmg")
    tar_folder(self_dmg, new_self, "Velmora Software Update")
    signatures = make_signed_downloads(staging, downloads, key)
    signatures["self"] = key.sign(self_dmg)
    return signatures


SPARKLE_FEED = """<?xml version="1.0" encoding="utf-8"?>
<rss version="2.0" xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle">
  <channel>
    <title>{name}</title>
    <item>
      <title>{name} {short}</title>
      <link>{base}notes</link>
      <description><![CDATA[<h3>What's new</h3><ul><li>Faster search</li><li>Tags</li></ul>]]></description>
      <enclosure url="{url}" sparkle:version="{build}" sparkle:shortVersionString="{short}"
                 size="{size}" checksum="{checksum}" type="application/octet-stream"{signature}/>
    </item>
  </channel>
</rss>
"""


def write_signed_feeds(server_root, base, signatures, released):
    """The key-carrying applications' feeds: version 1.0 (what is installed) until `released`,
    then 2.0 with the developer's signature of the download."""
    for name, _, short in SIGNED_APPS:
        image = os.path.join(server_root, "downloads", name.replace(" ", "") + "-2.0.dmg")
        with open(os.path.join(server_root, "appcasts", short + ".xml"), "w") as f:
            if not released:
                f.write(SPARKLE_FEED.format(name=name, short="1.0", build=100, base=base, url=base + "downloads/none.dmg",
                                            size=1, checksum="0", signature=""))
                continue
            f.write(SPARKLE_FEED.format(name=name, short="2.0", build=200, base=base,
                                        url=base + "downloads/" + os.path.basename(image), size=os.path.getsize(image),
                                        checksum=sha1(image), signature='\n                 sparkle:edSignature="%s"'
                                        % signatures[short]))


def write_feeds(server_root, base, own_build, signatures):
    downloads = os.path.join(server_root, "downloads")
    notes_dmg = os.path.join(downloads, "VelmoraNotes-1.3.dmg")
    appcasts = os.path.join(server_root, "appcasts")
    os.makedirs(appcasts, exist_ok=True)
    sparkle = SPARKLE_FEED
    with open(os.path.join(appcasts, "notes.xml"), "w") as f:
        f.write(sparkle.format(name="Velmora Notes", short="1.3", build=130, base=base,
                               url=base + "downloads/VelmoraNotes-1.3.dmg",
                               size=os.path.getsize(notes_dmg), checksum=sha1(notes_dmg), signature=""))
    with open(os.path.join(appcasts, "clipper.xml"), "w") as f:
        f.write(sparkle.format(name="Velmora Clipper", short="2.0", build=200, base=base,
                               url=base + "downloads/none.dmg", size=1, checksum="0", signature=""))
    write_signed_feeds(server_root, base, signatures, released=False)

    studio_dmg = os.path.join(downloads, "VelmoraStudio-8.0.dmg")
    group = {
        "groupVersion": 8, "groupVersionString": "8.0", "groupID": GROUP_ID,
        "title": "Velmora Studio 8.0", "url": base + "downloads/VelmoraStudio-8.0.dmg",
        "pageurl": base + "studio", "description": "<p>Velmora Cut and Velmora Color 8.0.</p>",
        "size": os.path.getsize(studio_dmg), "checksum": sha1(studio_dmg), "minOS": "10.13.6",
        "type": "group", "groupid": GROUP_ID, "selected": 1,
    }
    rss = os.path.join(server_root, "rss", "appcasts")
    write_plist(os.path.join(rss, GROUP_ID + ".xml"), group)
    write_plist(os.path.join(server_root, "rss", "appcast"), group)

    self_dmg = os.path.join(downloads, "VelmoraSoftwareUpdate-9.9.9.dmg")
    write_plist(os.path.join(rss, SELF_ID + ".xml"), {
        "groupVersion": own_build, "groupVersionString": "current", "title": "Velmora Software Update 9.9.9",
        "url": base + "downloads/VelmoraSoftwareUpdate-9.9.9.dmg", "size": os.path.getsize(self_dmg),
        "description": "<p>The updater itself.</p>", "type": "self", "groupid": SELF_ID, "bundleid": SELF_ID,
        "edSignature": signatures["self"],
    })


def install_demo_apps(sysroot, base, public_key):
    apps = os.path.join(sysroot, "Applications")
    make_app(apps, "Velmora Notes", "com.velmora.Notes", 120, "1.2", {"SUFeedURL": base + "appcasts/notes.xml"})
    make_app(apps, "Velmora Clipper", "com.velmora.Clipper", 200, "2.0", {"SUFeedURL": base + "appcasts/clipper.xml"})
    for name, identifier, short in SIGNED_APPS:
        make_app(apps, name, identifier, 100, "1.0", {"SUFeedURL": base + "appcasts/%s.xml" % short},
                 {"SUPublicEDKey": public_key})
    for name, app in (("Velmora Cut", "cut"), ("Velmora Color", "color")):
        make_app(apps, name, "com.velmora." + app.capitalize(), 700, "7.0",
                 {"VLGroupID": GROUP_ID, "VLGroupVersion": 7, "VLGroupVersionString": "7.0", "VLGroupApp": app})
    make_app(apps, "Other Vendor Tool", "com.example.Tool", 1, "1.0", None)


def start_server(out, server_root):
    log = open(os.path.join(out, "server-stdout.log"), "w")
    server = subprocess.Popen(["/usr/bin/python3", os.path.join(HERE, "testserver.py"), "--root", server_root,
                               "--cert-dir", os.path.join(out, "certs"), "--log", os.path.join(out, "requests.log")],
                              stdout=subprocess.PIPE, stderr=log, text=True)
    port = int(server.stdout.readline().strip())
    return server, port


def start_listener(env):
    listener = subprocess.Popen(["/usr/bin/python3", os.path.join(HERE, "notification-listener.py"),
                                 "--name", "VLTesselCallback"], stdout=subprocess.PIPE, text=True, env=env)
    listener.stdout.readline()
    return listener


def run_log_lines(folders, since, word):
    """Lines containing `word` in the updater's logs written since `since` (every run starts
    a new log of its own)."""
    lines = []
    for folder in folders:
        if not os.path.isdir(folder):
            continue
        for name in sorted(os.listdir(folder)):
            path = os.path.join(folder, name)
            if name.startswith("SoftwareUpdate.") and os.path.getmtime(path) >= since:
                with open(path, encoding="utf-8", errors="replace") as f:
                    lines += [l.rstrip("\n") for l in f if word in l]
    return lines


def run_step(title, command, env, log_folders=(), log_word=None):
    print("\n$ SoftwareUpdate " + " ".join(command[1:]))
    print("  (%s)" % title)
    started = time.time()
    result = subprocess.run(command, env=env, capture_output=True, text=True, timeout=300)
    for line in result.stdout.splitlines():
        print("  | " + line)
    for line in result.stderr.splitlines():
        print("  ! " + line)
    print("  exit status %d after %.1f s" % (result.returncode, time.time() - started))
    if log_word:
        for line in run_log_lines(log_folders, started, log_word):
            print("  log: " + line)
    return result.returncode


def show_tree(sysroot, home):
    print("\nInstalled applications now:")
    apps = os.path.join(sysroot, "Applications")
    for name in sorted(os.listdir(apps)):
        info = os.path.join(apps, name, "Contents", "Info.plist")
        if os.path.isfile(info):
            with open(info, "rb") as f:
                plist = plistlib.load(f)
            print("  %-32s %s (%s)" % (name, plist.get("CFBundleShortVersionString"), plist.get("CFBundleVersion")))
    print("In the Trash: %s" % (", ".join(sorted(os.listdir(os.path.join(home, ".Trash")))) or "nothing"))


def prepare(out, build):
    """Lays out the demo tree, starts its server; returns what the steps need."""
    shutil.rmtree(out, ignore_errors=True)
    os.makedirs(out)
    server_root = os.path.join(out, "server")
    with tempfile.TemporaryDirectory() as secret:
        key = DeveloperKey(secret)
        sysroot, home, updater = lay_out_tree(out, build, key.public)
        signatures = make_downloads(out, server_root, updater, key)
    server, port = start_server(out, server_root)
    base = "https://localhost:%d/" % port
    with open(os.path.join(updater, "Contents", "Info.plist"), "rb") as f:
        own_build = int(plistlib.load(f)["CFBundleVersion"])
    write_feeds(server_root, base, own_build, signatures)
    install_demo_apps(sysroot, base, key.public)
    env = dict(os.environ, HOME=home, TMPDIR=os.path.join(out, "tmp"), VELMORA_SYSROOT=sysroot,
               VELMORA_UPDATE_SERVER="https://localhost:%d" % port, VELMORA_WEB_SITE=base,
               VELMORA_CA_FILE=os.path.join(out, "certs", "ca.pem"), FAKE_INSTALLER_ALLOW_NONROOT="1")
    return {"out": out, "build": build, "sysroot": sysroot, "home": home, "updater": updater,
            "server": server, "port": port, "base": base, "env": env, "server_root": server_root,
            "signatures": signatures, "public_key": key.public,
            "logs": (os.path.join(sysroot, "Library", "Logs", "Velmora"), os.path.join(home, "Library", "Logs", "Velmora")),
            "executable": os.path.join(updater, "Contents", "MacOS", "SoftwareUpdate")}


def run_windowless(demo):
    env, executable, sysroot, logs = demo["env"], demo["executable"], demo["sysroot"], demo["logs"]
    server_root, base, signatures = demo["server_root"], demo["base"], demo["signatures"]
    listener = start_listener(env)
    print("Demo tree: %s (server https://localhost:%d)" % (demo["out"], demo["port"]))
    try:
        run_step("every available update, as the vendor client reads them", [executable, "-list"], env)
        run_step("why each application is or is not offered", [executable, "-explain"], env)
        run_step("why a bundle the check passed over is not offered",
                 [executable, "-explain", os.path.join(sysroot, "Applications", "Other Vendor Tool.app")], env)
        run_step("a Sparkle application, from a disk image",
                 [executable, "-install", "sparkle", os.path.join(sysroot, "Applications", "Velmora Notes.app")], env)
        write_signed_feeds(server_root, base, signatures, released=True)
        print("\n(Velmora Sketch and Velmora Pad 2.0 are released, signed by their developer; Pad's download is"
              "\n then replaced on the server, and the server's checksum with it.)")
        run_step("a signed update: verified against the installed application's key, then installed",
                 [executable, "-install", "sparkle", os.path.join(sysroot, "Applications", "Velmora Sketch.app")], env,
                 logs, "ignature")
        run_step("a tampered update: refused before anything is mounted",
                 [executable, "-install", "sparkle", os.path.join(sysroot, "Applications", "Velmora Pad.app")], env,
                 logs, "ignature")
        run_step("the vendor group, from an installer package", [executable, "-install", "group", GROUP_ID], env)
        run_step("the updater itself, signed, through SoftwareUpdateHelper", [executable, "-install", "self", SELF_ID], env,
                 logs, "ignature")
        time.sleep(2)
        show_tree(sysroot, demo["home"])
    finally:
        listener.terminate()
        messages = listener.stdout.read().splitlines()
    print("\nNotifications the client received:")
    for line in messages:
        print("  " + line)


def restore_applications(demo):
    """Puts the older versions (and the built updater) back, so the window has updates to show."""
    apps = os.path.join(demo["sysroot"], "Applications")
    for name in os.listdir(apps):
        shutil.rmtree(os.path.join(apps, name))
    copy_updater(demo["build"], demo["updater"], demo["public_key"])
    write_signed_feeds(demo["server_root"], demo["base"], demo["signatures"], released=False)
    install_demo_apps(demo["sysroot"], demo["base"], demo["public_key"])


def has_display():
    return bool(os.environ.get("DISPLAY") or os.environ.get("WAYLAND_DISPLAY"))


def render_screenshots(demo, folder):
    """Renders every window and sheet offscreen from the demo tree into folder; True on success."""
    tool = os.path.join(demo["build"], "tools", "SoftwareUpdateScreenshots")
    if not os.path.isfile(tool):
        print("The screenshot renderer is not built (%s)." % tool)
        return False
    # Inside the updater's bundle the renderer finds the bundle's icons and identity.
    inside = os.path.join(demo["updater"], "Contents", "MacOS", "SoftwareUpdateScreenshots")
    shutil.copy2(tool, inside)
    os.makedirs(folder, exist_ok=True)
    env = dict(demo["env"], QT_QPA_PLATFORM="offscreen")
    try:
        for extra in ([], ["--dark"], ["--scale", "1.5"]):
            result = subprocess.run([inside, folder] + extra, env=env, capture_output=True, text=True, timeout=300)
            for line in (result.stdout + result.stderr).splitlines():
                if "does not support" not in line and "XDG_RUNTIME_DIR" not in line:
                    print("  | " + line)
            if result.returncode != 0:
                return False
    finally:
        os.remove(inside)
    return True


def run_windowed(demo):
    if not has_display():
        folder = os.path.join(demo["out"], "screenshots")
        print("\nNo display here, so the windows are rendered offscreen (Qt's offscreen platform) instead.")
        if render_screenshots(demo, folder):
            print("Screenshots of every window and sheet: %s" % folder)
        return
    print("\nThe update window is open on the demo tree. Install what you like; close the window or")
    print("press Ctrl+Q to end the demo (after \"No updates found\" it closes by itself).")
    subprocess.run([demo["executable"]], env=demo["env"])


def serve(demo):
    """Keeps the tree and its server up for a test: prints the environment, waits for stdin to close."""
    keys = ("HOME", "TMPDIR", "VELMORA_SYSROOT", "VELMORA_UPDATE_SERVER", "VELMORA_WEB_SITE", "VELMORA_CA_FILE",
            "FAKE_INSTALLER_ALLOW_NONROOT")
    print(json.dumps({k: demo["env"][k] for k in keys}), flush=True)
    sys.stdin.read()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", required=True)
    parser.add_argument("--out", required=True)
    parser.add_argument("--screenshots", metavar="FOLDER", help="only render the windows into FOLDER")
    parser.add_argument("--serve", action="store_true", help="only lay out the tree and serve it")
    args = parser.parse_args()
    demo = prepare(os.path.abspath(args.out), os.path.abspath(args.build))
    try:
        if args.serve:
            serve(demo)
        elif args.screenshots:
            if not render_screenshots(demo, os.path.abspath(args.screenshots)):
                return 1
            print("Screenshots: %s" % os.path.abspath(args.screenshots))
        else:
            run_windowless(demo)
            restore_applications(demo)
            run_windowed(demo)
    finally:
        demo["server"].terminate()
        demo["server"].wait()
    return 0


if __name__ == "__main__":
    sys.exit(main())
