// The windowed application as a user drives it, on a real X server (Xvfb) against the demo
// tree: a copy inside another application's bundle refuses to run and removes the weekly job;
// the copy in the applications folder opens, checks and lists the update, Return installs the
// selected update, the list is checked again, and Return on the "No updates found" alert quits
// it, because "autoQuit" is 1.
//
// Keys are typed through the X server's test extension (libXtst, loaded at run time), so the
// application receives them exactly as it would from a keyboard. Skipped, with the reason, only
// when Xvfb or the extension's library is missing.

#include "support/ChildProcess.h"
#include "support/Sandbox.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <functional>
#include <optional>

extern char** environ;

namespace {

using vltest::ChildProcess;
using vltest::Sandbox;

// Types Return on an X display through libX11 and libXtst, opened at run time.
class XKeyboard {
public:
    ~XKeyboard()
    {
        if (display_)
            reinterpret_cast<int (*)(void*)>(dlsym(x11_, "XCloseDisplay"))(display_);
        for (void* library : {xtst_, x11_})
            if (library)
                dlclose(library);
    }
    // "" when the display is open, else the reason.
    QString open(const QByteArray& display)
    {
        x11_ = dlopen("libX11.so.6", RTLD_NOW);
        xtst_ = dlopen("libXtst.so.6", RTLD_NOW);
        if (!x11_ || !xtst_)
            return QStringLiteral("libX11.so.6 or libXtst.so.6 is not installed");
        const auto openDisplay = reinterpret_cast<void* (*)(const char*)>(dlsym(x11_, "XOpenDisplay"));
        keycode_ = reinterpret_cast<unsigned char (*)(void*, unsigned long)>(dlsym(x11_, "XKeysymToKeycode"));
        flush_ = reinterpret_cast<int (*)(void*)>(dlsym(x11_, "XFlush"));
        fakeKey_ = reinterpret_cast<int (*)(void*, unsigned, int, unsigned long)>(dlsym(xtst_, "XTestFakeKeyEvent"));
        if (!openDisplay || !keycode_ || !flush_ || !fakeKey_ || !dlsym(x11_, "XCloseDisplay"))
            return QStringLiteral("the X libraries lack a needed function");
        display_ = openDisplay(display.constData());
        return display_ ? QString() : QStringLiteral("cannot open display ") + QString::fromLatin1(display);
    }
    void pressReturn()
    {
        const unsigned code = keycode_(display_, 0xff0d);
        fakeKey_(display_, code, 1, 0);
        fakeKey_(display_, code, 0, 0);
        flush_(display_);
    }

private:
    void* x11_ = nullptr;
    void* xtst_ = nullptr;
    void* display_ = nullptr;
    unsigned char (*keycode_)(void*, unsigned long) = nullptr;
    int (*flush_)(void*) = nullptr;
    int (*fakeKey_)(void*, unsigned, int, unsigned long) = nullptr;
};

// An X server on a display number of its own choosing, its keyboard, and the demo tree laid
// out and served by scripts/demo.py (until its standard input ends).
class WindowedEndToEnd : public ::testing::Test {
protected:
    void SetUp() override
    {
        const QString xvfb = QStandardPaths::findExecutable(QStringLiteral("Xvfb"));
        if (xvfb.isEmpty())
            GTEST_SKIP() << "Xvfb is not installed";
        ASSERT_TRUE(xvfb_.start(xvfb, {"-displayfd", "1", "-screen", "0", "1280x900x24", "-nolisten", "tcp"},
                                {.standardErrorFile = folder_.filePath("xvfb.err")}));
        const QByteArray display = ':' + xvfb_.readLine(15000).value_or("");
        ASSERT_GT(display.size(), 1) << Sandbox::readFile(folder_.filePath("xvfb.err")).toStdString();
        if (const QString problem = keyboard_.emplace().open(display); !problem.isEmpty())
            GTEST_SKIP() << problem.toStdString();
        ASSERT_TRUE(demo_.start("/usr/bin/python3", {VELMORA_SOURCE_DIR "/scripts/demo.py", "--build", VELMORA_BINARY_DIR, "--out",
                                                     folder_.filePath("demo"), "--serve"},
                                {.standardErrorFile = folder_.filePath("demo.err"), .keepInputOpen = true}));
        const QJsonObject settings = QJsonDocument::fromJson(demo_.readLine(120000).value_or("")).object();
        ASSERT_FALSE(settings.isEmpty()) << Sandbox::readFile(folder_.filePath("demo.err")).toStdString();
        // The test's environment, but the demo's settings and this display.
        for (char** entry = environ; *entry; ++entry) {
            const QString name = QString::fromLocal8Bit(*entry).section('=', 0, 0);
            if (!settings.contains(name) && !QStringList{"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"}.contains(name))
                environment_ << QString::fromLocal8Bit(*entry);
        }
        for (auto it = settings.begin(); it != settings.end(); ++it)
            environment_ << it.key() + '=' + it.value().toString();
        environment_ << "QT_QPA_PLATFORM=xcb" << "DISPLAY=" + QString::fromLatin1(display);
        home_ = settings.value("HOME").toString();
        sysroot_ = settings.value("VELMORA_SYSROOT").toString();
    }
    void TearDown() override
    {
        demo_.closeInput();
        if (!demo_.waitForFinished(10000))
            demo_.kill();
        // Our connection first; then the server, politely, so that it removes its lock and socket.
        keyboard_.reset();
        xvfb_.terminate();
        (void)xvfb_.waitForFinished(5000);
    }

    void startUpdater(const QString& bundle)
    {
        ASSERT_TRUE(updater_.emplace().start(bundle + "/Contents/MacOS/SoftwareUpdate", {}, {.environment = environment_}));
    }
    QString sysPath(const QString& absolute) const { return sysroot_ + absolute; }
    QString logText() const
    {
        QString text;
        for (const QString& folder : {sysPath("/Library/Logs/Velmora"), home_ + "/Library/Logs/Velmora"})
            for (const QString& name : QDir(folder).entryList({"*.log"}, QDir::Files))
                text += QString::fromUtf8(Sandbox::readFile(folder + '/' + name));
        return text;
    }
    bool logHas(const char* line) const { return logText().contains(QString::fromLatin1(line)); }
    // Types Return, again every `spacingMs` while `done` does not hold yet (the window may not
    // have the keyboard focus at once), until it holds or the updater ends; false on the guard.
    bool returnUntil(int spacingMs, const std::function<bool()>& done)
    {
        const QDeadlineTimer guard(150000);
        while (!done()) {
            if (guard.hasExpired() || !updater_->isRunning())
                return done();
            keyboard_->pressReturn();
            const QDeadlineTimer next(spacingMs);
            while (!next.hasExpired() && !done())
                (void)updater_->waitForFinished(50); // also notices the updater's end
        }
        return true;
    }
    bool ended() { return !updater_->isRunning(); }
    std::string output() const { return (updater_->standardOutput() + updater_->standardError()).toStdString(); }
    static QString shortVersionOf(const QString& bundle)
    {
        return Sandbox::readPlist(bundle + "/Contents/Info.plist").value_or(QVariant()).toMap().value("CFBundleShortVersionString").toString();
    }

    QTemporaryDir folder_;
    ChildProcess xvfb_;
    std::optional<XKeyboard> keyboard_;
    ChildProcess demo_;
    QStringList environment_;
    QString home_, sysroot_;
    std::optional<ChildProcess> updater_; // one run at a time
};

TEST_F(WindowedEndToEnd, ACopyInsideABundleRefusesThenTheInstalledOneListsInstallsAndQuits)
{
    const QString bundle = sysPath("/Applications/Velmora Software Update.app");
    const QString job = home_ + "/Library/LaunchAgents/com.velmora.SoftwareUpdateAutoCheck.plist";
    const QString inside = sysPath("/Applications/Velmora Notes.app/Contents/Resources/Velmora Software Update.app");
    ASSERT_TRUE(vltest::runToSuccess("/bin/cp", {"-a", bundle, inside}));
    ASSERT_TRUE(Sandbox::writePlist(job, QVariantMap{{"Label", "com.velmora.SoftwareUpdateAutoCheck"}}));
    startUpdater(inside);
    EXPECT_TRUE(returnUntil(1500, [&] { return ended(); })) << "the refusal's alert did not end the application";
    EXPECT_EQ(updater_->exitCode(), 0) << output();
    EXPECT_FALSE(QFileInfo::exists(job));
    EXPECT_FALSE(logHas("Beginning update check...")) << logText().toStdString();

    // Only the Sparkle application keeps an update, so the check after installing it finds none.
    for (const char* name : {"/Applications/Velmora Cut.app", "/Applications/Velmora Color.app"})
        ASSERT_TRUE(QDir(sysPath(name)).removeRecursively());
    const QString notes = sysPath("/Applications/Velmora Notes.app");
    ASSERT_EQ(shortVersionOf(notes), "1.2");
    startUpdater(bundle);
    const QDeadlineTimer guard(120000);
    while (!logHas("Loading data into TableView...") && !guard.hasExpired() && !updater_->waitForFinished(100)) {
    }
    ASSERT_TRUE(logHas("Loading data into TableView...")) << logText().toStdString();
    EXPECT_TRUE(returnUntil(4000, [&] { return logHas("Beginning installation..."); }))
        << "Return did not start the installation\n" << logText().toStdString();
    EXPECT_TRUE(returnUntil(4000, [&] { return logHas("No updates found."); })) << logText().toStdString();
    EXPECT_TRUE(returnUntil(1000, [&] { return ended(); }));

    EXPECT_EQ(updater_->exitCode(), 0) << output();
    EXPECT_EQ(shortVersionOf(notes), "1.3");
    EXPECT_TRUE(logHas("Installing Sparkle app Velmora Notes 1.3...")) << logText().toStdString();
    // The copy in the applications folder installs the weekly job again ("autoUpdateCheck" is 1).
    EXPECT_TRUE(Sandbox::readFile(job).contains("<string>-autocheck</string>"));
}

} // namespace
