#include "app/translations.h"

#include <QCoreApplication>
#include <QLibraryInfo>
#include <QLocale>
#include <QTranslator>

namespace veltro {

bool installQtGermanTranslation(const QString& folder)
{
    auto* app = QCoreApplication::instance();
    if (!app)
        return false;
    const QString from = folder.isEmpty() ? QLibraryInfo::path(QLibraryInfo::TranslationsPath) : folder;
    // Owned by the application, so it lives as long as the dialogs that use it.
    auto* translator = new QTranslator(app);
    if (!translator->load(QLocale(QLocale::German, QLocale::Germany), "qtbase", "_", from)
        || !QCoreApplication::installTranslator(translator)) {
        delete translator;
        return false;
    }
    return true;
}

} // namespace veltro
