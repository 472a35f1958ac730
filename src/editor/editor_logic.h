#pragma once
// The configuration editor without its widgets: what it shows after opening and after
// "LADEN!", and the image its save writes. The window copies the view into its controls and
// the user's changes back into `choice`; everything here is plain values, so tests drive it
// without a window.
//
// Nothing here catches a run-time error: a missing catalogue, a vehicle number beyond the list,
// an oversized image, a malformed vehicle data file, a speed or switching byte the lists cannot
// show, a list without a choice at save. The window shows them as fatal errors.
#include "editor/catalogue.h"
#include "editor/config_image.h"
#include "editor/vehicle_image.h"

#include <array>
#include <string>
#include <vector>

namespace veltro {

// Window heights in twips: only the vehicle selection, then the whole configuration.
constexpr int kEditorHeightVehicle = 1425;
constexpr int kEditorHeightFull = 6195;
// Lists of the window: display lines 1..6, the switch input, speed, automatic switching.
constexpr int kEditorListCount = 9;
constexpr int kSwitchList = 6;
constexpr int kSpeedList = 7;
constexpr int kSwitchingList = 8;

// Values the editor takes from the main window.
struct EditorLink {
    std::string ecutyp;       // vehicle number (image byte 1014) as decimal text
    std::string fwupdateser;  // serial number: names the image files
    std::string btversion;    // layout version (image byte 1012) as decimal text
    std::string imageFile;    // the image to preselect from; empty: fwupdateser + ".eep"
};

struct EditorView {
    int heightTwips = kEditorHeightVehicle;
    std::vector<std::string> vehicleNames;  // Combo1
    std::vector<std::string> dataFiles;     // List1, parallel to Combo1
    int vehicle = -1;                       // Combo1's selection
    bool vehicleEnabled = true;             // Combo1 and "LADEN!"
    std::array<std::string, 9> rows;        // List5: the image's record rows
    std::string geschwindigkeitanzeige;     // image byte 153 as decimal text
    std::string autoschalter;               // image byte 154 as decimal text
    VehicleDescription vehicleData;         // entries of display and switch lists, hidden tables
    EditorChoice choice;                    // selections, options and the threshold text
    std::array<bool, kEditorListCount> listEnabled{true, true, true, true, true, true, true, true, true};
    std::array<bool, 3> optionEnabled{true, true, true};
    bool thresholdEnabled = true;

    // Entries of list 0..8 as the window shows them.
    std::vector<std::string> entries(int list) const;
};

// The vehicle number in `ecutyp` checked against the catalogue: not a number or beyond the
// list is an invalid property value (380).
int editorVehicleNumber(const std::string& ecutyp, std::size_t catalogueSize);

// Opening up to "LADEN!": catalogue lists, the vehicle, the image's rows, options, threshold
// (with `decimalSeparator`), speed and switching bytes.
EditorView startEditor(const std::vector<CatalogueEntry>& catalogue, int vehicle, const ImageReading& image,
                       char decimalSeparator);

// "LADEN!" after the vehicle data file is read: the vehicle is fixed, the window opens fully,
// the lists fill, the choices follow the image, and layouts below 181 lock most controls.
void loadVehicle(EditorView& view, VehicleDescription vehicle, const std::string& btversion);

// The opening on the program folder's files, in the order the device tool touches them:
// vehicles.inc, the vehicle number, serial.eep (created when missing).
EditorView startEditorFromFolder(const std::string& folder, const EditorLink& link, char decimalSeparator);
// "LADEN!" on the files: lastsel.inc written with the view's vehicle, its data file read.
void loadVehicleFromFolder(const std::string& folder, EditorView& view, const std::string& btversion);
// Both, as the window's opening runs them.
EditorView openEditor(const std::string& folder, const EditorLink& link, char decimalSeparator);

// The save: serial.tmp deleted and written, then serial.eep written over without truncation,
// both from the view's choices. Returns the .tmp path for the upload. An error stops at the
// failing field with the files as far as written.
std::string saveEditor(const std::string& folder, const std::string& serial, const EditorView& view,
                       char decimalSeparator);

} // namespace veltro
