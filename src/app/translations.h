#pragma once
// Qt's own German texts for its standard dialogs and buttons ("Ja"/"Nein", "Abbrechen", the
// file dialog): the tool's own texts are German, the dialogs around them should be too.
#include <QString>

namespace veltro {

// Installs Qt's "qtbase" translation for German into the running application, from `folder`
// (empty: the folder of Qt's installed translations). Returns false when the translation file
// is not there (the dialogs then stay English); call it after the application object exists.
bool installQtGermanTranslation(const QString& folder = QString());

} // namespace veltro
