// The windowed application as a user drives it, on a real X server (Xvfb) against the demo
// tree: it opens, checks and lists the update, Return installs the selected update, the list is
// checked again, and Return on the "No updates found" alert quits it, because "autoQuit" is 1.
// A copy inside another application's bundle refuses to run; -checkpath and -autocheck that
// found updates continue as the window.
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
#include <QThread>
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <functional>
#include <optional>

extern char** environ;

namespace {

using vltest::ChildProcess;
using vltest::Sandbox;

// The few X calls needed to type a key, taken from libX11 and libXtst at run time.
class XKeyboard {
public:
    ~XKeyboard()
    {
        if (display_)
            symbol<int (*)(void*)>(x11_, "XCloseDisplay")(display_);
        for (void* library : {xtst_, x11_})
            if (library)
                dlclose(library);
    }
    // "" when the display is open, else the reason.
    QString open(const QString& display)
    {
        x11_ = dlopen("libX11.so.6", RTLD_NOW);
        xtst_ = dlopen("libXtst.so.6", RTLD_NOW);
        if (!x11_ || !xtst_)
            return QStringLiteral("libX11.so.6 or libXtst.so.6 is not installed");
        keycode_ = symbol<KeysymToKeycode>(x11_, "XKeysymToKeycode");
        flush_ = symbol<Flush>(x11_, "XFlush");
        fakeKey_ = symbol<FakeKey>(xtst_, "XTestFakeKeyEvent");
        const auto openDisplay = symbol<void* (*)(const char*)>(x11_, "XOpenDisplay");
        if (!keycode_ || !flush_ || !fakeKey_ || !openDisplay || !dlsym(x11_, "XCloseDisplay"))
            return QStringLiteral("the X libraries lack a needed function");
        display_ = openDisplay(display.toLatin1().constData());
        return display_ ? QString() : QStringLiteral("cannot open display ") + display;
    }

    static constexpr unsigned long kReturn = 0xff0d, kEscape = 0xff1b, kQ = 0x0071, kControl = 0xffe3;

    // Types one key, with Control held when asked.
    void press(unsigned long keysym, bool control = false)
    {
        if (control)
            fakeKey_(display_, keycode_(display_, kControl), 1, 0);
        fakeKey_(display_, keycode_(display_, keysym), 1, 0);
        fakeKey_(display_, keycode_(display_, keysym), 0, 0);
        if (control)
            fakeKey_(display_, keycode_(display_, kControl), 0, 0);
        flush_(display_);
    }

private:
    using KeysymToKeycode = unsigned char (*)(void*, unsigned long);
    using Flush = int (*)(void*);
    using FakeKey = int (*)(void*, unsigned int, int, unsigned long);
    template <typename F>
    static F symbol(void* library, const char* name)
    {
        return reinterpret_cast<F>(dlsym(library, name));
    }

    void* x11_ = nullptr;
    void* xtst_ = nullptr;
    void* display_ = nullptr;
    KeysymToKeycode keycode_ = nullptr;
    Flush flush_ = nullptr;
    FakeKey fakeKey_ = nullptr;
};

// An X server of its own on the first free display number; "" when it runs, else the reason.
QString startDisplay(std::optional<ChildProcess>& server, QString* name)
{
    const QString xvfb = QStandardPaths::findExecutable(QStringLiteral("Xvfb"));
    if (xvfb.isEmpty())
        return QStringLiteral("Xvfb is not installed");
    for (int number = 140; number < 200; ++number) {
        const QString socket = QStringLiteral("/tmp/.X11-unix/X%1").arg(number);
        if (QFileInfo::exists(QStringLiteral("/tmp/.X%1-lock").arg(number)) || QFileInfo::exists(socket))
            continue;
        *name = QStringLiteral(":%1").arg(number);
        if (!server.emplace().start(xvfb, {*name, "-screen", "0", "1280x900x24", "-nolisten", "tcp"}, {.discardOutput = true}))
            continue;
        const QDeadlineTimer guard(15000);
        while (!QFileInfo::exists(socket) && !guard.hasExpired() && !server->waitForFinished(50)) {
        }
        if (QFileInfo::exists(socket) && server->isRunning())
            return {};
    }
    return QStringLiteral("no Xvfb display could be started");
}

// One X server, its keyboard, and the demo tree laid out and served by scripts/demo.py (until
// its standard input ends) per test.
class WindowedEndToEnd : public ::testing::Test {
protected:
    void SetUp() override
    {
        QString display;
        if (const QString problem = startDisplay(xvfb_, &display); !problem.isEmpty())
            GTEST_SKIP() << problem.toStdString();
        if (const QString problem = keyboard_.emplace().open(display); !problem.isEmpty())
            GTEST_SKIP() << problem.toStdString();
        ASSERT_TRUE(demo_.start("/usr/bin/python3", {VELMORA_SOURCE_DIR "/scripts/demo.py", "--build", VELMORA_BINARY_DIR, "--out",
                                                     folder_.filePath("demo"), "--serve"},
                                {.standardErrorFile = folder_.filePath("demo.err"), .keepInputOpen = true}));
        const QJsonObject settings = QJsonDocument::fromJson(demo_.readLine(120000).value_or("")).object();
        ASSERT_FALSE(settings.isEmpty()) << Sandbox::readFile(folder_.filePath("demo.err")).toStdString();
        QMap<QString, QString> env;
        for (char** entry = environ; *entry; ++entry)
            env.insert(QString::fromLocal8Bit(*entry).section('=', 0, 0), QString::fromLocal8Bit(*entry).section('=', 1));
        env.remove("WAYLAND_DISPLAY");
        for (auto it = settings.begin(); it != settings.end(); ++it)
            env.insert(it.key(), it.value().toString());
        env.insert("QT_QPA_PLATFORM", "xcb");
        env.insert("DISPLAY", display);
        for (auto it = env.cbegin(); it != env.cend(); ++it)
            environment_ << it.key() + '=' + it.value();
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
        if (xvfb_) {
            xvfb_->terminate();
            (void)xvfb_->waitForFinished(5000);
        }
    }

    void startUpdater(const QString& bundle, const QStringList& arguments = {})
    {
        ASSERT_TRUE(updater_.start(bundle + "/Contents/MacOS/SoftwareUpdate", arguments, {.environment = environment_}));
    }
    QString sysPath(const QString& absolute) const { return sysroot_ + absolute; }
    QString updaterBundle() const { return sysPath("/Applications/Velmora Software Update.app"); }
    QString jobFile() const { return home_ + "/Library/LaunchAgents/com.velmora.SoftwareUpdateAutoCheck.plist"; }
    QString logText() const
    {
        QString text;
        for (const QString& folder : {sysPath("/Library/Logs/Velmora"), home_ + "/Library/Logs/Velmora"})
            for (const QString& name : QDir(folder).entryList({"*.log"}, QDir::Files))
                text += QString::fromUtf8(Sandbox::readFile(folder + '/' + name));
        return text;
    }
    bool logHas(const char* line) const { return logText().contains(QString::fromLatin1(line)); }
    bool waitForLog(const char* line)
    {
        const QDeadlineTimer guard(120000);
        while (!logHas(line) && !guard.hasExpired() && !updater_.waitForFinished(100)) {
        }
        return logHas(line);
    }
    // Types a key, again every `spacingMs` while `done` does not hold yet (the window may not
    // have the keyboard focus at once), until it holds or the updater ends; false on the guard.
    bool pressUntil(unsigned long keysym, int spacingMs, const std::function<bool()>& done, bool control = false)
    {
        const QDeadlineTimer guard(150000);
        while (!done()) {
            if (guard.hasExpired() || !updater_.isRunning())
                return done();
            keyboard_->press(keysym, control);
            const QDeadlineTimer next(spacingMs);
            while (!next.hasExpired() && !done())
                (void)updater_.waitForFinished(50); // also notices the updater's end
        }
        return true;
    }
    bool ended() { return !updater_.isRunning(); }
    std::string output() const { return (updater_.standardOutput() + updater_.standardError()).toStdString(); }
    static QString shortVersionOf(const QString& bundle)
    {
        return Sandbox::readPlist(bundle + "/Contents/Info.plist").value_or(QVariant()).toMap().value("CFBundleShortVersionString").toString();
    }

    QTemporaryDir folder_;
    std::optional<ChildProcess> xvfb_;
    std::optional<XKeyboard> keyboard_;
    ChildProcess demo_;
    QStringList environment_;
    QString home_, sysroot_;
    ChildProcess updater_;
};

TEST_F(WindowedEndToEnd, OpensListsInstallsTheSelectedUpdateAndQuitsThroughTheAlert)
{
    // Only the Sparkle application keeps an update, so the check after installing it finds none.
    for (const char* name : {"/Applications/Velmora Cut.app", "/Applications/Velmora Color.app"})
        ASSERT_TRUE(QDir(sysPath(name)).removeRecursively());
    const QString notes = sysPath("/Applications/Velmora Notes.app");
    ASSERT_EQ(shortVersionOf(notes), "1.2");

    startUpdater(updaterBundle());
    ASSERT_TRUE(waitForLog("Loading data into TableView...")) << logText().toStdString();
    EXPECT_TRUE(pressUntil(XKeyboard::kReturn, 4000, [&] { return logHas("Beginning installation..."); }))
        << "Return did not start the installation\n" << logText().toStdString();
    EXPECT_TRUE(pressUntil(XKeyboard::kReturn, 4000, [&] { return logHas("No updates found."); })) << logText().toStdString();
    EXPECT_TRUE(pressUntil(XKeyboard::kReturn, 1000, [&] { return ended(); }));

    EXPECT_EQ(updater_.exitCode(), 0) << output();
    EXPECT_EQ(shortVersionOf(notes), "1.3");
    EXPECT_TRUE(logHas("Installing Sparkle app Velmora Notes 1.3...")) << logText().toStdString();
    // The copy in the applications folder keeps the weekly job, with "autoUpdateCheck" at its default 1.
    EXPECT_TRUE(Sandbox::readFile(jobFile()).contains("<string>-autocheck</string>"));
}

TEST_F(WindowedEndToEnd, ACopyInsideAnotherApplicationRefusesToRunAndRemovesTheJob)
{
    const QString inside = sysPath("/Applications/Velmora Notes.app/Contents/Resources/Velmora Software Update.app");
    ASSERT_TRUE(vltest::runToSuccess("/bin/cp", {"-a", updaterBundle(), inside}));
    ASSERT_TRUE(Sandbox::writePlist(jobFile(), QVariantMap{{"Label", "com.velmora.SoftwareUpdateAutoCheck"}}));

    startUpdater(inside);
    EXPECT_TRUE(pressUntil(XKeyboard::kReturn, 1500, [&] { return ended(); })) << "the refusal's alert did not end the application";
    EXPECT_EQ(updater_.exitCode(), 0) << output();
    EXPECT_FALSE(QFileInfo::exists(jobFile()));
    EXPECT_FALSE(logHas("Beginning update check...")) << logText().toStdString();
}

TEST_F(WindowedEndToEnd, CheckpathThatFoundAnUpdateOpensThePromptAndEscapeRemindsLater)
{
    const QString notes = sysPath("/Applications/Velmora Notes.app");
    startUpdater(updaterBundle(), {"-checkpath", notes});
    ASSERT_TRUE(waitForLog("Showing the update window for Velmora Notes 1.3...")) << logText().toStdString();
    EXPECT_TRUE(pressUntil(XKeyboard::kEscape, 1500, [&] { return ended(); }));
    EXPECT_EQ(updater_.exitCode(), 0) << output();
    const QByteArray stored = Sandbox::readFile(home_ + "/Library/Preferences/com.velmora.SoftwareUpdate.plist");
    EXPECT_TRUE(stored.contains("lastUpdateCheck"));
    EXPECT_FALSE(stored.contains("updateGroupDict")) << "the handed-over record is read and removed";
    EXPECT_EQ(shortVersionOf(notes), "1.2");
    EXPECT_FALSE(QFileInfo::exists(home_ + "/Library/Preferences/com.velmora.global.plist")) << "remind later stores nothing";
}

TEST_F(WindowedEndToEnd, AutocheckThatFoundUpdatesContinuesAsTheWindowAndCtrlQQuits)
{
    startUpdater(updaterBundle(), {"-autocheck"});
    ASSERT_TRUE(waitForLog("Loading data into TableView...")) << logText().toStdString();
    EXPECT_TRUE(pressUntil(XKeyboard::kQ, 1500, [&] { return ended(); }, true));
    EXPECT_EQ(updater_.exitCode(), 0) << output();
}

} // namespace
