// The windowed application as a user drives it, on a real X server (Xvfb) against the demo
// tree: it opens, checks and lists the update, Return installs the selected update, the list is
// checked again, and Return on the "No updates found" alert quits it, because "autoQuit" is 1.
// And a copy inside another application's bundle refuses to run.
//
// Keys are typed through the X server's test extension (libXtst, loaded at run time), so the
// application receives them exactly as it would from a keyboard. Skipped, with the reason, only
// when Xvfb or the extension's library is missing.

#include "support/Sandbox.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QThread>
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <functional>

namespace {

// The few X calls needed to type a key, taken from libX11 and libXtst at run time.
class XKeyboard {
public:
    ~XKeyboard()
    {
        if (display_)
            closeDisplay_(display_);
        for (void* library : {xtst_, x11_}) {
            if (library)
                dlclose(library);
        }
    }

    QString open(const QString& display)
    {
        x11_ = dlopen("libX11.so.6", RTLD_NOW);
        xtst_ = dlopen("libXtst.so.6", RTLD_NOW);
        if (!x11_ || !xtst_)
            return QStringLiteral("libX11.so.6 or libXtst.so.6 is not installed");
        openDisplay_ = reinterpret_cast<OpenDisplay>(dlsym(x11_, "XOpenDisplay"));
        closeDisplay_ = reinterpret_cast<CloseDisplay>(dlsym(x11_, "XCloseDisplay"));
        keysymToKeycode_ = reinterpret_cast<KeysymToKeycode>(dlsym(x11_, "XKeysymToKeycode"));
        flush_ = reinterpret_cast<Flush>(dlsym(x11_, "XFlush"));
        fakeKey_ = reinterpret_cast<FakeKey>(dlsym(xtst_, "XTestFakeKeyEvent"));
        if (!openDisplay_ || !closeDisplay_ || !keysymToKeycode_ || !flush_ || !fakeKey_)
            return QStringLiteral("the X libraries lack a needed function");
        display_ = openDisplay_(display.toLatin1().constData());
        return display_ ? QString() : QStringLiteral("cannot open display ") + display;
    }

    static constexpr unsigned long kReturn = 0xff0d;
    static constexpr unsigned long kEscape = 0xff1b;
    static constexpr unsigned long kQ = 0x0071;

    // Types one key, with Control held when asked.
    void press(unsigned long keysym, bool control = false)
    {
        constexpr unsigned long kControl = 0xffe3;
        const unsigned char controlCode = keysymToKeycode_(display_, kControl);
        const unsigned char code = keysymToKeycode_(display_, keysym);
        if (control)
            fakeKey_(display_, controlCode, 1, 0);
        fakeKey_(display_, code, 1, 0);
        fakeKey_(display_, code, 0, 0);
        if (control)
            fakeKey_(display_, controlCode, 0, 0);
        flush_(display_);
    }

private:
    using OpenDisplay = void* (*)(const char*);
    using CloseDisplay = int (*)(void*);
    using KeysymToKeycode = unsigned char (*)(void*, unsigned long);
    using Flush = int (*)(void*);
    using FakeKey = int (*)(void*, unsigned int, int, unsigned long);

    void* x11_ = nullptr;
    void* xtst_ = nullptr;
    void* display_ = nullptr;
    OpenDisplay openDisplay_ = nullptr;
    CloseDisplay closeDisplay_ = nullptr;
    KeysymToKeycode keysymToKeycode_ = nullptr;
    Flush flush_ = nullptr;
    FakeKey fakeKey_ = nullptr;
};

// An X server of its own on the first free display number.
class VirtualDisplay {
public:
    ~VirtualDisplay()
    {
        if (server_.state() != QProcess::NotRunning) {
            server_.terminate();
            server_.waitForFinished(5000);
        }
    }

    QString start()
    {
        const QString xvfb = QStandardPaths::findExecutable(QStringLiteral("Xvfb"));
        if (xvfb.isEmpty())
            return QStringLiteral("Xvfb is not installed");
        for (int number = 140; number < 200; ++number) {
            if (QFileInfo::exists(QStringLiteral("/tmp/.X%1-lock").arg(number))
                || QFileInfo::exists(QStringLiteral("/tmp/.X11-unix/X%1").arg(number)))
                continue;
            const QString socket = QStringLiteral("/tmp/.X11-unix/X%1").arg(number);
            server_.start(xvfb, {QStringLiteral(":%1").arg(number), QStringLiteral("-screen"), QStringLiteral("0"),
                                 QStringLiteral("1280x900x24"), QStringLiteral("-nolisten"), QStringLiteral("tcp")});
            if (!server_.waitForStarted(5000))
                continue;
            QDeadlineTimer deadline(15000);
            bool ended = false;
            while (!deadline.hasExpired() && !QFileInfo::exists(socket) && !ended)
                ended = server_.waitForFinished(50);
            if (!ended && QFileInfo::exists(socket)) {
                name_ = QStringLiteral(":%1").arg(number);
                return {};
            }
            server_.kill();
            server_.waitForFinished(5000);
        }
        return QStringLiteral("no Xvfb display could be started");
    }

    QString name() const { return name_; }

private:
    QProcess server_;
    QString name_;
};

// The demo tree with its HTTPS server, laid out by scripts/demo.py, up while this object lives.
class DemoTree {
public:
    ~DemoTree()
    {
        demo_.closeWriteChannel();
        if (!demo_.waitForFinished(10000))
            demo_.kill();
    }

    bool start(const QString& folder)
    {
        demo_.start(QStringLiteral("/usr/bin/python3"),
                    {QStringLiteral(VELMORA_SOURCE_DIR "/scripts/demo.py"), QStringLiteral("--build"),
                     QStringLiteral(VELMORA_BINARY_DIR), QStringLiteral("--out"), folder, QStringLiteral("--serve")});
        QDeadlineTimer deadline(120000);
        while (!demo_.canReadLine() && !deadline.hasExpired() && demo_.state() != QProcess::NotRunning)
            demo_.waitForReadyRead(500);
        environment_ = QJsonDocument::fromJson(demo_.readLine()).object();
        return !environment_.isEmpty();
    }

    QString value(const char* key) const { return environment_.value(QString::fromLatin1(key)).toString(); }
    QString sysPath(const QString& absolute) const { return value("VELMORA_SYSROOT") + absolute; }

    QProcessEnvironment environment() const
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        for (auto it = environment_.begin(); it != environment_.end(); ++it)
            env.insert(it.key(), it.value().toString());
        env.remove(QStringLiteral("WAYLAND_DISPLAY"));
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
        return env;
    }

private:
    QProcess demo_;
    QJsonObject environment_;
};

QString logText(const DemoTree& demo)
{
    QString text;
    for (const QString& folder : {demo.sysPath(QStringLiteral("/Library/Logs/Velmora")),
                                  demo.value("HOME") + QStringLiteral("/Library/Logs/Velmora")}) {
        for (const QFileInfo& file : QDir(folder).entryInfoList({QStringLiteral("*.log")}, QDir::Files)) {
            QFile log(file.filePath());
            if (log.open(QIODevice::ReadOnly))
                text += QString::fromUtf8(log.readAll());
        }
    }
    return text;
}

QString shortVersionOf(const QString& bundle)
{
    QFile info(bundle + QStringLiteral("/Contents/Info.plist"));
    if (!info.open(QIODevice::ReadOnly))
        return {};
    const QByteArray text = info.readAll();
    const qsizetype key = text.indexOf("CFBundleShortVersionString");
    const qsizetype open = text.indexOf("<string>", key) + 8;
    return key < 0 ? QString() : QString::fromUtf8(text.mid(open, text.indexOf("</string>", open) - open));
}

// Types a key, again every `spacingMs` while `done` does not hold yet (the window may not have
// the keyboard focus at once), until it holds or the updater ends; false on the guard's expiry.
bool pressUntil(XKeyboard& keyboard, QProcess& updater, unsigned long keysym, bool control, int spacingMs,
                const std::function<bool()>& done)
{
    QDeadlineTimer deadline(150000);
    while (!done()) {
        if (deadline.hasExpired() || updater.state() == QProcess::NotRunning)
            return done();
        keyboard.press(keysym, control);
        QDeadlineTimer next(spacingMs);
        while (!next.hasExpired() && !done())
            updater.waitForFinished(50); // also notices the updater's end
    }
    return true;
}

// One X server, its keyboard and the demo tree per test.
class WindowedEndToEnd : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (const QString problem = display_.start(); !problem.isEmpty())
            GTEST_SKIP() << problem.toStdString();
        if (const QString problem = keyboard_.open(display_.name()); !problem.isEmpty())
            GTEST_SKIP() << problem.toStdString();
        ASSERT_TRUE(demo_.start(folder_.filePath(QStringLiteral("demo"))));
    }
    void TearDown() override
    {
        if (updater_.state() != QProcess::NotRunning) {
            updater_.kill();
            updater_.waitForFinished(5000);
        }
    }

    void startUpdater(const QString& bundle, const QStringList& arguments = {})
    {
        QProcessEnvironment env = demo_.environment();
        env.insert(QStringLiteral("DISPLAY"), display_.name());
        updater_.setProcessEnvironment(env);
        updater_.setProcessChannelMode(QProcess::MergedChannels);
        updater_.start(bundle + QStringLiteral("/Contents/MacOS/SoftwareUpdate"), arguments);
        ASSERT_TRUE(updater_.waitForStarted());
    }
    QString updaterBundle() const { return demo_.sysPath(QStringLiteral("/Applications/Velmora Software Update.app")); }
    bool waitForLog(const char* line)
    {
        QDeadlineTimer guard(120000);
        while (!logHas(line) && !guard.hasExpired() && !updater_.waitForFinished(100)) {
        }
        return logHas(line);
    }
    bool logHas(const char* line) const { return logText(demo_).contains(QString::fromLatin1(line)); }
    bool pressReturnUntil(int spacingMs, const std::function<bool()>& done)
    {
        return pressUntil(keyboard_, updater_, XKeyboard::kReturn, false, spacingMs, done);
    }
    bool ended() const { return updater_.state() == QProcess::NotRunning; }

    QTemporaryDir folder_;
    VirtualDisplay display_;
    XKeyboard keyboard_;
    DemoTree demo_;
    QProcess updater_;
};

TEST_F(WindowedEndToEnd, OpensListsInstallsTheSelectedUpdateAndQuitsThroughTheAlert)
{
    // Only the Sparkle application keeps an update, so the check after installing it finds none.
    for (const char* name : {"/Applications/Velmora Cut.app", "/Applications/Velmora Color.app"})
        ASSERT_TRUE(QDir(demo_.sysPath(QString::fromLatin1(name))).removeRecursively());
    const QString notes = demo_.sysPath(QStringLiteral("/Applications/Velmora Notes.app"));
    ASSERT_EQ(shortVersionOf(notes), QStringLiteral("1.2"));

    startUpdater(updaterBundle());
    ASSERT_TRUE(waitForLog("Loading data into TableView...")) << logText(demo_).toStdString();

    EXPECT_TRUE(pressReturnUntil(4000, [&] { return logHas("Beginning installation..."); }))
        << "Return did not start the installation\n" << logText(demo_).toStdString();
    EXPECT_TRUE(pressReturnUntil(4000, [&] { return logHas("No updates found."); })) << logText(demo_).toStdString();
    EXPECT_TRUE(pressReturnUntil(1000, [&] { return ended(); }));

    EXPECT_EQ(updater_.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(updater_.exitCode(), 0) << updater_.readAll().toStdString();
    EXPECT_EQ(shortVersionOf(notes), QStringLiteral("1.3"));
    EXPECT_TRUE(logHas("Installing Sparkle app Velmora Notes 1.3...")) << logText(demo_).toStdString();
    // The copy in the applications folder keeps the weekly job, with "autoUpdateCheck" at its default 1.
    QFile job(demo_.value("HOME") + QStringLiteral("/Library/LaunchAgents/com.velmora.SoftwareUpdateAutoCheck.plist"));
    ASSERT_TRUE(job.open(QIODevice::ReadOnly));
    EXPECT_TRUE(job.readAll().contains("<string>-autocheck</string>"));
}

TEST_F(WindowedEndToEnd, ACopyInsideAnotherApplicationRefusesToRunAndRemovesTheJob)
{
    const QString inside = demo_.sysPath(QStringLiteral("/Applications/Velmora Notes.app/Contents/Resources/Velmora Software Update.app"));
    ASSERT_EQ(QProcess::execute(QStringLiteral("/bin/cp"),
                                {QStringLiteral("-a"), demo_.sysPath(QStringLiteral("/Applications/Velmora Software Update.app")), inside}),
              0);
    const QString job = demo_.value("HOME") + QStringLiteral("/Library/LaunchAgents/com.velmora.SoftwareUpdateAutoCheck.plist");
    ASSERT_TRUE(QDir().mkpath(QFileInfo(job).path()));
    QFile jobFile(job);
    ASSERT_TRUE(jobFile.open(QIODevice::WriteOnly));
    jobFile.write("<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>Label</key>"
                  "<string>com.velmora.SoftwareUpdateAutoCheck</string></dict></plist>");
    jobFile.close();

    startUpdater(inside);
    EXPECT_TRUE(pressReturnUntil(1500, [&] { return ended(); })) << "the refusal's alert did not end the application";
    EXPECT_EQ(updater_.exitCode(), 0) << updater_.readAll().toStdString();
    EXPECT_FALSE(QFileInfo::exists(job));
    EXPECT_FALSE(logHas("Beginning update check...")) << logText(demo_).toStdString();
}

TEST_F(WindowedEndToEnd, CheckpathThatFoundAnUpdateOpensThePromptAndEscapeRemindsLater)
{
    const QString notes = demo_.sysPath(QStringLiteral("/Applications/Velmora Notes.app"));
    startUpdater(updaterBundle(), {QStringLiteral("-checkpath"), notes});
    ASSERT_TRUE(waitForLog("Showing the update window for Velmora Notes 1.3...")) << logText(demo_).toStdString();
    EXPECT_TRUE(pressUntil(keyboard_, updater_, XKeyboard::kEscape, false, 1500, [&] { return ended(); }));
    EXPECT_EQ(updater_.exitCode(), 0) << updater_.readAll().toStdString();
    QFile preferences(demo_.value("HOME") + QStringLiteral("/Library/Preferences/com.velmora.SoftwareUpdate.plist"));
    ASSERT_TRUE(preferences.open(QIODevice::ReadOnly));
    const QByteArray stored = preferences.readAll();
    EXPECT_TRUE(stored.contains("lastUpdateCheck"));
    EXPECT_FALSE(stored.contains("updateGroupDict")) << "the handed-over record is read and removed";
    EXPECT_EQ(shortVersionOf(notes), QStringLiteral("1.2"));
    QFile shared(demo_.value("HOME") + QStringLiteral("/Library/Preferences/com.velmora.global.plist"));
    EXPECT_FALSE(shared.exists()) << "remind later stores nothing";
}

TEST_F(WindowedEndToEnd, AutocheckThatFoundUpdatesContinuesAsTheWindowAndCtrlQQuits)
{
    startUpdater(updaterBundle(), {QStringLiteral("-autocheck")});
    ASSERT_TRUE(waitForLog("Loading data into TableView...")) << logText(demo_).toStdString();
    EXPECT_TRUE(pressUntil(keyboard_, updater_, XKeyboard::kQ, true, 1500, [&] { return ended(); }));
    EXPECT_EQ(updater_.exitCode(), 0) << updater_.readAll().toStdString();
}

} // namespace
