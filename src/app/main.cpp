#include "app/demo.h"
#include "app/main_window.h"
#include "app/translations.h"

#include <QApplication>
#include <QFont>

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

    veltro::MainWindow window;
    if (demoSetup)
        demoSetup->attach(window);
    window.show();
    window.Form_Load();
    return app.exec();
}
