#pragma once
// Sandbox: a fresh temporary tree that looks like a Mac for one test, the runner of programs
// (the built executables among them) inside it, and the tests' file helpers.
//
//   <root>/home      HOME (with Library/Preferences, Library/Logs, Desktop, .Trash)
//   <root>/tmp       TMPDIR (local sockets of notification listeners live here too)
//   <root>/sysroot   VELMORA_SYSROOT (Applications, Library/..., Users/Shared, Volumes,
//                    System/Library/CoreServices/SystemVersion.plist, usr/bin, usr/sbin, bin)
//
// Lifecycle: one per test; the destructor removes the tree unless VELMORA_KEEP_SANDBOX is set
// in the test's environment (the path is then printed). One thread at a time.
// The test's own process environment is never changed; environment() is what runs get, and it
// has no display, so a run that would open a window says so and ends instead.

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <QVariantMap>
#include <memory>
#include <optional>

namespace vltest {

class ChildProcess;
class TestServer;

// A fake vendor bundle: Contents/Info.plist, optional VLUpdates.plist, Contents/MacOS/<exe>.
struct FakeBundle {
    QString path;                       // absolute, e.g. sandbox.sysPath("/Applications/X.app")
    QString identifier;                 // CFBundleIdentifier
    QString version;                    // CFBundleVersion (build number)
    QString shortVersion;               // CFBundleShortVersionString
    QString name;                       // CFBundleName and executable; default: path's base name
    std::optional<QVariantMap> updates; // VLUpdates.plist contents, absent: no descriptor
    bool updatesInResources = true;     // Contents/Resources/VLUpdates.plist, else Contents/
    QVariantMap extraInfo;              // more Info.plist keys (override the above)
    QByteArray executable;              // script text; default: a copy of /bin/sleep (run it with "300")
};

// The environment of runs, by name; toStringList() gives the "NAME=value" entries a
// ChildProcess takes.
struct Environment : QMap<QString, QString> {
    QStringList toStringList() const;
};

struct RunOptions {
    int timeoutMs = 120000;          // killed after this; RunResult::timedOut
    std::optional<uint> uid;         // run as this unprivileged uid (and its gid = uid)
    QMap<QString, QString> extraEnv; // added to / overriding environment()
    QString workingDirectory;        // default: the sandbox root
};

struct RunResult {
    int exitCode = -1; // -1 when the process crashed, timed out or did not start
    bool timedOut = false;
    bool crashed = false;
    QByteArray stdoutData;
    QByteArray stderrData;
    QString out() const { return QString::fromUtf8(stdoutData); }
    QString err() const { return QString::fromUtf8(stderrData); }
    // For failure messages: status, stdout and stderr in one text.
    QString describe() const;
};

class Sandbox {
public:
    explicit Sandbox(const QString& osVersion = QStringLiteral("13.4.1")); // SystemVersion.plist
    ~Sandbox();
    Sandbox(const Sandbox&) = delete;
    Sandbox& operator=(const Sandbox&) = delete;

    bool isValid() const;
    QString root() const;
    QString home() const;
    QString tmp() const;
    QString sysroot() const;
    QString sysPath(const QString& absolutePath) const;  // sysroot() + "/Applications/..."
    QString homePath(const QString& relativePath) const; // home() + "/" + relative
    QString tmpPath(const QString& relativePath) const;

    // Files, for any test: parent folders are created; property lists are XML.
    [[nodiscard]] static bool writeFile(const QString& path, const QByteArray& data, bool executable = false);
    [[nodiscard]] static bool writePlist(const QString& path, const QVariant& value);
    static QByteArray readFile(const QString& path); // empty when unreadable
    static std::optional<QVariant> readPlist(const QString& path);
    [[nodiscard]] static bool makeDir(const QString& path);
    // The user's preferences file of a domain: home/Library/Preferences/<domain>.plist.
    QString userPreferencesFile(const QString& domain) const;
    [[nodiscard]] bool writeUserDefaults(const QString& domain, const QVariantMap& values);

    // Creates the bundle; returns its path, or "" on failure.
    QString createBundle(const FakeBundle& bundle);

    // Copies scripts/fake-tools/faketool.py to every path the program runs a system tool from
    // (usr/bin/{hdiutil,killall,touch,xattr,xdg-open,pkexec,systemctl}, usr/sbin/{installer,
    // diskutil,chown}, bin/{launchctl,rm,mv,cp,mkdir,chmod}); runs record to toolLogPath()
    // (writable by every user). Switches for failures: see the head of faketool.py.
    // usr/bin/{zip,unzip} are links to the machine's own tools (not recorded).
    [[nodiscard]] bool installFakeTools();
    QString toolLogPath() const; // <sysroot>/tool-calls.log
    // Every recorded call, argv[0] being the tool's base name; filtered by tool when given.
    QList<QStringList> toolCalls(const QString& tool = {}) const;

    // Makes a test archive (a tar) usable as a "disk image" by the fake hdiutil: one top folder
    // `volumeName` holding `files` (path relative to the volume -> data; files under a
    // "/MacOS/" folder are made executable).
    [[nodiscard]] bool makeDiskImage(const QString& archivePath, const QString& volumeName,
                                     const QMap<QString, QByteArray>& files);
    // A test installer package for the fake installer: a tar with payload/<path> entries that
    // it extracts under the system root.
    [[nodiscard]] bool makePackage(const QString& packagePath, const QMap<QString, QByteArray>& payloadFiles);

    // Server contract for runs.
    void useServer(const TestServer& server); // VELMORA_UPDATE_SERVER, VELMORA_WEB_SITE (base + "/"), CA
    void setEnv(const QString& name, const QString& value);

    Environment environment() const;

    // Runs a program to its end (or its time-out) in the sandbox's environment.
    RunResult run(const QString& program, const QStringList& args, const RunOptions& options = {}) const;
    // The built updater (VELMORA_UPDATER_BUNDLE/Contents/MacOS/SoftwareUpdate) and helper.
    RunResult runUpdater(const QStringList& args, const RunOptions& options = {}) const;
    RunResult runHelper(const QStringList& args, const RunOptions& options = {}) const;
    static QString helperExecutable();
    // Starts a program as run() would and leaves it running in `child` (time-out not used).
    [[nodiscard]] bool start(ChildProcess& child, const QString& program, const QStringList& args,
                             const RunOptions& options = {}) const;

    // Hands the home and tmp trees to `uid` so an unprivileged run can write there.
    [[nodiscard]] bool giveHomeTo(uint uid);
    // An unprivileged uid for runs (65534, "nobody"), or nullopt when tests do not run as root.
    static std::optional<uint> unprivilegedUid();

private:
    std::unique_ptr<QTemporaryDir> dir_;
    QMap<QString, QString> env_;
};

} // namespace vltest
