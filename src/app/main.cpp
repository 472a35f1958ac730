#include "app/demo.h"
#include "app/translations.h"
#include "app/window/main_window.h"
#include "platform/cancel.h"
#include "platform/job_runner.h"

#include <QApplication>
#include <QFont>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

int main(int argc, char** argv)
{
    bool demo = false;
    for (int i = 1; i < argc; ++i)
        if (std::strcmp(argv[i], "--demo") == 0) demo = true;

    QApplication app(argc, argv);
    QApplication::setApplicationName("veltro");
    // German dialog buttons; without the translation file the tool runs with English ones.
    veltro::installQtGermanTranslation();
    QFont font = QApplication::font();
    font.setPointSize(8);
    QApplication::setFont(font);

    std::unique_ptr<veltro::DemoSetup> demoSetup;
    if (demo)
        demoSetup = std::make_unique<veltro::DemoSetup>();

    auto window = std::make_unique<veltro::MainWindow>();
    if (veltro::DemoSetup* d = demoSetup.get()) {
        QObject::connect(window.get(), &veltro::MainWindow::tunnelOpened, [d] { d->setTunnelOpen(true); });
        QObject::connect(window.get(), &veltro::MainWindow::tunnelClosed, [d] { d->setTunnelOpen(false); });
    }
    window->show();
    window->Form_Load();
    const int rc = app.exec();
    // Closing never waits for a server: transfers still running give up, the windows wait a
    // moment at most for their workers, and a worker that could not end by then (a server
    // silent until libcurl next looks) ends with the process, without cleaning up under it.
    veltro::cancelAllTransfers();
    window.reset();
    demoSetup.reset();
    if (veltro::JobRunner::abandoned() > 0) {
        std::fflush(nullptr);
        std::_Exit(rc);
    }
    return rc;
}
