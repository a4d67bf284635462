#include "WindowedApplication.h"

#include "AppController.h"
#include "WidgetsUserInterface.h"
#include "discovery/Network.h"
#include "platform/system/Bundle.h"
#include "platform/system/GraphicalSession.h"
#include "shared/VLLog.h"

#include <QApplication>
#include <QIcon>
#include <QTimer>

#include <cstdio>
#include <cstdlib>

namespace widgets {

int runWindowedApplication(int argc, char** argv)
{
    if (!sys::hasGraphicalSession()) {
        std::fprintf(stderr, "SoftwareUpdate: there is no display to open the update window on; exiting with status 1.\n");
        return 1;
    }
    QApplication app(argc, argv);
    const sys::Bundle bundle = sys::Bundle::mainBundle();
    QApplication::setApplicationDisplayName(QStringLiteral("Velmora Software Update"));
    QApplication::setWindowIcon(QIcon(bundle.resourcePath() + QStringLiteral("/AppIcon.png")));
    app.setQuitOnLastWindowClosed(true);

    auto interface = std::make_unique<WidgetsUserInterface>(bundle.resourcePath());
    WidgetsUserInterface* windows = interface.get(); // owned by the controller
    std::unique_ptr<AppController> controller = AppController::init(std::move(interface));
    windows->attach(*controller);
    QTimer::singleShot(0, &app, [&controller] { controller->applicationDidFinishLaunching(); });
    const int status = app.exec();

    // As the platform's terminate does, the process ends here without waiting for detached
    // workers (a check or a download may still be running, and would otherwise reach windows
    // that are gone). Everything the user chose is already on disk: preferences are written
    // when they change; the log is drained now. A feed request still running ends first.
    discovery::stopNetworkThreads();
    windows->finish();
    VLLog::finishWriting();
    std::fflush(nullptr);
    std::_Exit(status);
}

} // namespace widgets
