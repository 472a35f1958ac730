#pragma once
// "VELTRO KONFIGURATION": the display configuration editor. A thin window over the editor
// logic: it shows an EditorView and copies the user's choices back before the save. Its
// controls, captions and layout are in form2.ui.
//
// The editor catches nothing of its own: a run-time error in any step is shown with its number
// and text, and then the program ends (`endProgram`, replaced by tests).
#include "editor/editor_logic.h"
#include "platform/dialogs.h"
#include "util/runtime_error.h"

#include "ui_form2.h"

#include <QWidget>

#include <array>
#include <functional>
#include <memory>

class QStringListModel;

namespace veltro {

// The controls are the form's members: Frame1 "Fahrzeugauswahl" with Combo1 and Command1
// "LADEN!", Frame2 "Konfiguration" with the lists displayzeile_0..8, batteriespannung, the
// options Check1_0..2, Command3 "Speichern und auf VELTRO laden!" and Command4.
class Form2 : public QWidget, public ::Ui::Form2 {
    Q_OBJECT
public:
    // `folder`: the program folder; `link`: the main window's vehicle number, serial and layout.
    Form2(std::string folder, EditorLink link, std::shared_ptr<Dialogs> dialogs, QWidget* parent = nullptr);

    // Ends the program after a fatal error; the default quits the application with `code`.
    std::function<void(int code)> endProgram;
    char decimalSeparator;

    // Handlers
    void Form_Load();
    void Command1_Click(); // "LADEN!"
    void Command3_Click(); // "Speichern und auf VELTRO laden!"
    void Command4_Click(); // diagnostic: length of the first display value's X text

    EditorView view;

    // The lists and options by number: display lines 0..5, then kSwitchList, kSpeedList,
    // kSwitchingList.
    std::array<QComboBox*, kEditorListCount> displayzeile{};
    std::array<QCheckBox*, 3> Check1{};

signals:
    // The images are written; the main window uploads `uploadPath` and closes the editor when
    // the upload has returned.
    void saved(const QString& uploadPath);
    // Form_Unload: the main window enables itself again.
    void unloaded();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void display(const EditorView& v);
    void showVehicles(const EditorView& v);
    void takeChoices();
    // Runs a step; a run-time error ends in the fatal message. False when the step failed.
    bool step(const std::function<void()>& work);

    std::string folder_;
    EditorLink link_;
    std::shared_ptr<Dialogs> dialogs_;
    bool unloaded_ = false;
    QStringListModel* displayValues_ = nullptr;
};

} // namespace veltro
