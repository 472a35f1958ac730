#include "app/demo.h"
#include "app/translations.h"
#include "app/window/main_window.h"
#include "platform/cancel.h"
#include "platform/job_runner.h"
#include "platform/program_folder.h"
#include "platform/serial_rights.h"

#include <QApplication>
#include <QFont>
#include <QTimer>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

int main(int argc, char** argv)
{
    bool demo = false;
    bool selfCheck = false;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--demo") == 0) demo = true;
        if (std::strcmp(argv[i], "--self-check") == 0) selfCheck = true;
    }

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
    // --self-check: start, connect the controller the scan chose, print the chooser's entry and
    // the status line, and end: 0 when it connected. Checks an installation; with --demo it
    // needs no hardware.
    if (selfCheck) {
        veltro::MainWindow* w = window.get();
        QObject::connect(w, &veltro::MainWindow::startupFinished, w, &veltro::MainWindow::verbinden_Click,
                         Qt::SingleShotConnection);
        QObject::connect(w, &veltro::MainWindow::connectFinished, w, [w] {
            std::printf("%s\n%s\n", qPrintable(w->Comboport->currentText()), qPrintable(w->statusText()));
            QCoreApplication::exit(w->statusText() == "CHECKSUMME OK - VERBUNDEN!" ? 0 : 1);
        });
    }
    window->show();
    window->Form_Load();
    // A user outside the dialout group finds no controller: say once how to get the right.
    if (const std::string note = veltro::serialRightsNoteOnce(veltro::programFolder()); !note.empty())
        QTimer::singleShot(0, window.get(), [w = window.get(), note] { w->dialogs->message("Serielle Schnittstellen", note); });
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
