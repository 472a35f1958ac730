#include "util/runtime_error.h"

namespace veltro {

std::string RuntimeError::standardText(int number)
{
    switch (number) {
    case 5: return "Ungültiger Prozeduraufruf oder ungültiges Argument";
    case 6: return "Überlauf";
    case 9: return "Index außerhalb des gültigen Bereichs";
    case 11: return "Division durch Null";
    case 13: return "Typen unverträglich";
    case 53: return "Datei nicht gefunden";
    case 62: return "Einlesen hinter Dateiende";
    case 75: return "Fehler beim Zugriff auf Pfad/Datei";
    case 380: return "Unzulässiger Eigenschaftswert";
    case 32755: return "Abbrechen wurde gewählt.";
    default: return "Anwendungs- oder objektdefinierter Fehler";
    }
}

RuntimeError::RuntimeError(ErrNo number, const std::string& detail)
    : std::runtime_error(standardText(int(number)) + (detail.empty() ? "" : " (" + detail + ")")),
      number_(int(number)), text_(standardText(int(number)))
{
}

std::string RuntimeError::message() const
{
    return "Laufzeitfehler '" + std::to_string(number_) + "':\n\n" + text_;
}

} // namespace veltro
