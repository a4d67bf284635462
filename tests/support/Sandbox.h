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
// (the path is then printed). One thread at a time. The test's own environment is never
// changed; runs get environment(), which has no display.

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
    std::optional<QVariantMap> updates; // Contents/Resources/VLUpdates.plist, absent: no descriptor
    QVariantMap extraInfo;              // more Info.plist keys (override the above)
    QByteArray executable;              // script text; default: a copy of /bin/sleep (run it with "300")
};

// The environment of runs, by name; toStringList() gives "NAME=value" entries.
struct Environment : QMap<QString, QString> {
    QStringList toStringList() const;
};

// Runs are killed after two minutes (RunResult::timedOut).
struct RunOptions {
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
    // (switches for failures: see its head); runs record to toolLogPath(), writable by every
    // user. usr/bin/{zip,unzip} are links to the machine's own tools (not recorded).
    [[nodiscard]] bool installFakeTools();
    QString toolLogPath() const; // <sysroot>/tool-calls.log
    // Every recorded call, argv[0] being the tool's base name; filtered by tool when given.
    QList<QStringList> toolCalls(const QString& tool = {}) const;

    // A tar the fake hdiutil attaches as a "disk image": one top folder `volumeName` holding
    // `files` (path in the volume -> data; files under "/MacOS/" are executable). Named
    // "payload", it is a package the fake installer extracts under the system root.
    [[nodiscard]] bool makeDiskImage(const QString& archivePath, const QString& volumeName,
                                     const QMap<QString, QByteArray>& files);

    // Server contract for runs.
    void useServer(const TestServer& server); // VELMORA_UPDATE_SERVER, VELMORA_WEB_SITE (base + "/"), CA
    void setEnv(const QString& name, const QString& value);

    Environment environment() const;

    // Runs a program to its end (or its time-out) in environment().
    RunResult run(const QString& program, const QStringList& args, const RunOptions& options = {}) const;
    // Runs the built updater (VELMORA_UPDATER_BUNDLE/Contents/MacOS/SoftwareUpdate).
    RunResult runUpdater(const QStringList& args, const RunOptions& options = {}) const;
    static QString helperExecutable(); // the built helper's executable
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
