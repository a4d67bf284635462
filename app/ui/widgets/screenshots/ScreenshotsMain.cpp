// SoftwareUpdateScreenshots: renders every window and sheet of the windowed application into
// PNG files, from whatever tree the environment names (the demo tree, normally offscreen).
//
//   SoftwareUpdateScreenshots FOLDER [--dark] [--scale FACTOR]
//
// It runs the real launch and check through the real controller and windows, then puts each
// sheet up the way the controller does and grabs it; a sheet is drawn over its window, where it
// appears. It must run from inside the updater's bundle (Contents/MacOS), whose icons and
// identity the windows use. A developer tool: scripts/screenshots.sh and the demo run it.

#include "AppController.h"
#include "InstallProgressSheet.h"
#include "MainWindow.h"
#include "PreferencesWindow.h"
#include "UpdateProgressSheet.h"
#include "UpdateRecord.h"
#include "UpdateTableModel.h"
#include "UpdateWindow.h"
#include "WidgetsUserInterface.h"
#include "lifecycle/PreferenceKeys.h"
#include "platform/system/Bundle.h"
#include "platform/system/UserDefaults.h"

#include <QApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QIcon>
#include <QMessageBox>
#include <QPainter>
#include <QPalette>
#include <QStyleFactory>
#include <QTableView>
#include <QThread>

#include <cstdio>
#include <functional>

namespace {

struct Options {
    QString folder;
    bool dark = false;
    QString scale;
    QString suffix() const
    {
        return (dark ? QStringLiteral("-dark") : QString())
            + (scale.isEmpty() ? QString() : QStringLiteral("-%1").arg(int(scale.toDouble() * 100)));
    }
};

void usePalette(bool dark)
{
    QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    if (!dark)
        return;
    QPalette p;
    p.setColor(QPalette::Window, QColor(45, 45, 48));
    p.setColor(QPalette::WindowText, QColor(230, 230, 230));
    p.setColor(QPalette::Base, QColor(30, 30, 32));
    p.setColor(QPalette::AlternateBase, QColor(40, 40, 44));
    p.setColor(QPalette::Text, QColor(230, 230, 230));
    p.setColor(QPalette::Button, QColor(58, 58, 62));
    p.setColor(QPalette::ButtonText, QColor(230, 230, 230));
    p.setColor(QPalette::Highlight, QColor(42, 110, 200));
    p.setColor(QPalette::HighlightedText, Qt::white);
    p.setColor(QPalette::Link, QColor(68, 144, 226));
    p.setColor(QPalette::ToolTipBase, QColor(58, 58, 62));
    p.setColor(QPalette::ToolTipText, QColor(230, 230, 230));
    p.setColor(QPalette::PlaceholderText, QColor(150, 150, 150));
    p.setColor(QPalette::Disabled, QPalette::ButtonText, QColor(130, 130, 130));
    p.setColor(QPalette::Disabled, QPalette::WindowText, QColor(130, 130, 130));
    p.setColor(QPalette::Disabled, QPalette::Text, QColor(130, 130, 130));
    QApplication::setPalette(p);
}

// Turns the event loop until `done` holds; false after `seconds`.
bool waitFor(const std::function<bool()>& done, int seconds)
{
    QDeadlineTimer deadline(seconds * 1000);
    while (!done()) {
        if (deadline.hasExpired())
            return false;
        QApplication::processEvents(QEventLoop::AllEvents, 50);
        QThread::msleep(20);
    }
    QApplication::processEvents();
    return true;
}

// A sheet hangs from the top edge of its window, centred, with a soft shadow.
QPixmap withSheet(QWidget* window, QWidget* sheet)
{
    QPixmap canvas = window->grab();
    const QPixmap front = sheet->grab();
    const qreal ratio = canvas.devicePixelRatio();
    const QSizeF size = QSizeF(canvas.size()) / ratio;
    const QSizeF sheetSize = QSizeF(front.size()) / front.devicePixelRatio();
    const QPointF at((size.width() - sheetSize.width()) / 2, 0);
    QPainter painter(&canvas);
    painter.fillRect(QRectF(QPointF(0, 0), size), QColor(0, 0, 0, 40));
    for (int i = 1; i <= 6; ++i)
        painter.fillRect(QRectF(at + QPointF(-i, 0), sheetSize + QSizeF(2 * i, i)), QColor(0, 0, 0, 10));
    painter.drawPixmap(at, front);
    return canvas;
}

bool save(const Options& options, const QString& name, const QPixmap& image)
{
    const QString path = QDir(options.folder).filePath(name + options.suffix() + QStringLiteral(".png"));
    if (!image.save(path)) {
        std::fprintf(stderr, "Cannot write %s\n", qPrintable(path));
        return false;
    }
    std::printf("%s\n", qPrintable(path));
    return true;
}

std::optional<Options> parse(const QStringList& arguments)
{
    Options options;
    for (qsizetype i = 1; i < arguments.size(); ++i) {
        if (arguments.at(i) == QStringLiteral("--dark"))
            options.dark = true;
        else if (arguments.at(i) == QStringLiteral("--scale") && i + 1 < arguments.size())
            options.scale = arguments.at(++i);
        else if (options.folder.isEmpty())
            options.folder = arguments.at(i);
        else
            return std::nullopt;
    }
    if (options.folder.isEmpty())
        return std::nullopt;
    return options;
}

// The row whose update has the longest notes: it shows the most of the window.
int richestRow(AppController& controller)
{
    std::lock_guard lock(controller.dataArrayLock);
    int richest = 0;
    for (int row = 1; row < controller.dataArray.size(); ++row) {
        if (controller.dataArray.at(row).value(record::kChangeList).toString().size()
            > controller.dataArray.at(richest).value(record::kChangeList).toString().size())
            richest = row;
    }
    return richest;
}

// The two progress sheets, the preferences and an alert, put up as the controller does it.
bool renderSheets(const Options& options, WidgetsUserInterface& windows, AppController& controller,
                  const UpdateRecord& shown)
{
    MainWindow* main = windows.mainWindow();
    windows.showUpdateProgress();
    waitFor([] { return false; }, 1);
    bool ok = save(options, QStringLiteral("check-progress"), withSheet(main, main->windowUpdateProgress()));
    windows.endProgress();

    const double size = shown.value(record::kSize).toDouble();
    const double total = size > 0 ? size : 42070016.0;
    windows.showInstallProgress();
    controller.setInstallStatus(QStringLiteral("Downloading %1...").arg(shown.value(record::kTitle).toString()));
    windows.setDownloadProgress(total, total * 0.4);
    controller.updateReceivedData(total * 0.4, total);
    waitFor([] { return false; }, 1);
    ok = save(options, QStringLiteral("install-progress"), withSheet(main, main->windowInstallProgress())) && ok;
    windows.endProgress();

    main->showPreferences();
    waitFor([] { return false; }, 1);
    ok = save(options, QStringLiteral("preferences"), main->preferencesWindow()->grab()) && ok;
    main->preferencesWindow()->hide();

    windows.showAlert(QStringLiteral("No updates found"), QStringLiteral("Your software is up-to-date."));
    waitFor([] { return false; }, 1);
    QMessageBox* alert = main->findChild<QMessageBox*>();
    ok = alert && save(options, QStringLiteral("alert"), withSheet(main, alert)) && ok;
    if (alert)
        alert->hide();
    return ok;
}

// The single-update prompt, as a vendor application's link opens it for `shown`.
bool renderPrompt(const Options& options, WidgetsUserInterface& windows, AppController& controller,
                  const UpdateRecord& shown)
{
    windows.mainWindow()->hide();
    sys::UserDefaults::standard().setObject(shown, prefs::kUpdateGroupDict);
    sys::UserDefaults::standard().setArguments({QStringLiteral("SoftwareUpdate"), QStringLiteral("-checkpath"),
                                                shown.value(record::kPath).toString()});
    controller.applicationDidFinishLaunching();
    waitFor([&] { return windows.updateWindow()->isVisible(); }, 10);
    windows.updateWindow()->resize(620, 440);
    waitFor([] { return false; }, 1);
    return save(options, QStringLiteral("update-prompt"), windows.updateWindow()->grab());
}

int renderAll(const Options& options, WidgetsUserInterface& windows, AppController& controller)
{
    MainWindow* main = windows.mainWindow();
    controller.applicationDidFinishLaunching();
    const bool listed = waitFor([&] {
        std::unique_lock lock(controller.controllerLock, std::try_to_lock);
        return lock.owns_lock() && main->model()->rowCount() > 0 && !main->windowUpdateProgress()->isVisible();
    }, 120);
    if (!listed) {
        std::fprintf(stderr, "The check found no updates to show.\n");
        return 1;
    }
    const int row = richestRow(controller);
    UpdateRecord shown;
    {
        std::lock_guard lock(controller.dataArrayLock);
        shown = controller.dataArray.at(row);
    }
    main->resize(760, 560);
    main->tableView()->selectRow(row);
    bool ok = save(options, QStringLiteral("main-window"), main->grab());
    ok = renderSheets(options, windows, controller, shown) && ok;
    ok = renderPrompt(options, windows, controller, shown) && ok;
    return ok ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);
    const std::optional<Options> options = parse(arguments);
    if (!options) {
        std::fprintf(stderr, "usage: SoftwareUpdateScreenshots FOLDER [--dark] [--scale FACTOR]\n");
        return 2;
    }
    if (!options->scale.isEmpty())
        qputenv("QT_SCALE_FACTOR", options->scale.toUtf8());
    QApplication app(argc, argv);
    usePalette(options->dark);
    QDir().mkpath(options->folder);
    sys::UserDefaults::standard().setArguments({QStringLiteral("SoftwareUpdate")});
    const sys::Bundle bundle = sys::Bundle::mainBundle();
    QApplication::setApplicationDisplayName(QStringLiteral("Velmora Software Update"));
    QApplication::setWindowIcon(QIcon(bundle.resourcePath() + QStringLiteral("/AppIcon.png")));

    auto interface = std::make_unique<WidgetsUserInterface>(bundle.resourcePath());
    WidgetsUserInterface* windows = interface.get();
    std::unique_ptr<AppController> controller = AppController::init(std::move(interface));
    windows->attach(*controller);
    const int status = renderAll(*options, *windows, *controller);
    std::fflush(nullptr);
    // Detached workers may still run; nothing of theirs is wanted.
    std::_Exit(status);
}
