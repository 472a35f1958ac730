#include "editor/editor_logic.h"

#include "util/numbers.h"
#include "util/runtime_error.h"

#include <charconv>
#include <cstdio>

namespace veltro {

namespace {

// Selecting entry 0 of an empty list is an invalid property value, as a list box reports it.
int firstEntry(std::size_t listSize, const char* what)
{
    if (listSize == 0)
        throw RuntimeError(ErrNo::InvalidProperty, std::string(what) + " list is empty");
    return 0;
}

std::uint8_t byteOfText(const std::string& text)
{
    int value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return std::uint8_t(value);
}

} // namespace

std::vector<std::string> EditorView::entries(int list) const
{
    std::vector<std::string> out;
    if (list >= 0 && list < kDisplayLineCount) {
        for (const DisplayValue& d : vehicleData.displayValues)
            out.push_back(d.name);
    } else if (list == kSwitchList) {
        for (const SwitchInput& s : vehicleData.switches)
            out.push_back(s.name);
    } else if (list == kSpeedList) {
        out = speedNames();
    } else if (list == kSwitchingList) {
        out = switchingNames();
    }
    return out;
}

int editorVehicleNumber(const std::string& ecutyp, std::size_t catalogueSize)
{
    const char* first = ecutyp.data();
    const char* last = first + ecutyp.size();
    while (first < last && *first == ' ')
        ++first;
    while (last > first && last[-1] == ' ')
        --last;
    int number = -1;
    const auto [end, ec] = std::from_chars(first, last, number);
    if (ec != std::errc() || end != last || first == last)
        throw RuntimeError(ErrNo::InvalidProperty, "vehicle number \"" + ecutyp + "\" is no number");
    if (number < 0 || std::size_t(number) >= catalogueSize)
        throw RuntimeError(ErrNo::InvalidProperty,
                           "vehicle number " + ecutyp + " beyond " + std::to_string(catalogueSize) + " vehicles");
    return number;
}

EditorView startEditor(const std::vector<CatalogueEntry>& catalogue, int vehicle, const ImageReading& image,
                       char decimalSeparator)
{
    EditorView v;
    v.heightTwips = kEditorHeightVehicle;
    for (const CatalogueEntry& e : catalogue) {
        v.vehicleNames.push_back(e.name);
        v.dataFiles.push_back(e.dataFile);
    }
    v.vehicle = vehicle;
    v.rows = image.rows;
    for (int bit = 0; bit < 3; ++bit)
        v.choice.options[std::size_t(bit)] = image.flag(bit);
    v.choice.threshold = thresholdText(image.threshold, decimalSeparator);
    v.geschwindigkeitanzeige = std::to_string(image.speed);
    v.autoschalter = std::to_string(image.switching);
    return v;
}

void loadVehicle(EditorView& view, VehicleDescription data, const std::string& btversion)
{
    view.vehicleEnabled = false;
    view.heightTwips = kEditorHeightFull;
    view.vehicleData = std::move(data);
    const VehicleDescription& vehicle = view.vehicleData;
    EditorChoice& c = view.choice;
    for (int line = 0; line < kDisplayLineCount; ++line)
        c.displayLines[std::size_t(line)] =
            matchingDisplayValue(vehicle, view.rows[std::size_t(displayLineSlot(line))]);
    c.switchInput = matchingSwitch(vehicle, view.rows[8]);
    c.speed = speedIndex(byteOfText(view.geschwindigkeitanzeige));
    c.switching = switchingIndex(byteOfText(view.autoschalter));

    // Controllers before layout 181 show only the first display line and no switch, speed or
    // switching choice; their display knows no undervoltage warning.
    if (leadingNumber(btversion).value_or(0) < 181) {
        view.listEnabled.fill(false);
        c.displayLines[0] = firstEntry(vehicle.displayValues.size(), "display value");
        c.switchInput = firstEntry(vehicle.switches.size(), "switch");
        c.speed = 3;      // "LANGSAM"
        c.switching = 0;  // "Keine Autoumschaltung"
        for (int bit : {0, 1}) {
            view.optionEnabled[std::size_t(bit)] = false;
            c.options[std::size_t(bit)] = false;
        }
        view.thresholdEnabled = false;
        c.threshold = "10";
    }
}

EditorView startEditorFromFolder(const std::string& folder, const EditorLink& link, char decimalSeparator)
{
    const std::vector<CatalogueEntry> catalogue = readCatalogue(folder + "/vehicles.inc");
    const int vehicle = editorVehicleNumber(link.ecutyp, catalogue.size());
    const ImageReading image =
        readImageFile(link.imageFile.empty() ? folder + "/" + link.fwupdateser + ".eep" : link.imageFile);
    return startEditor(catalogue, vehicle, image, decimalSeparator);
}

void loadVehicleFromFolder(const std::string& folder, EditorView& view, const std::string& btversion)
{
    if (view.vehicle < 0 || view.vehicle >= int(view.dataFiles.size()))
        throw RuntimeError(ErrNo::InvalidProperty, "no vehicle chosen");
    writeLastSelection(folder + "/lastsel.inc", view.vehicle);
    loadVehicle(view, loadVehicleData(folder + "/" + view.dataFiles[std::size_t(view.vehicle)]), btversion);
}

EditorView openEditor(const std::string& folder, const EditorLink& link, char decimalSeparator)
{
    EditorView view = startEditorFromFolder(folder, link, decimalSeparator);
    loadVehicleFromFolder(folder, view, link.btversion);
    return view;
}

std::string saveEditor(const std::string& folder, const std::string& serial, const EditorView& view,
                       char decimalSeparator)
{
    const std::string upload = folder + "/" + serial + ".tmp";
    std::remove(upload.c_str()); // a missing file is fine
    const VehicleImageSource source(view.vehicleData, view.choice, decimalSeparator);
    writeImageFile(upload, source);
    writeImageFile(folder + "/" + serial + ".eep", source);
    return upload;
}

} // namespace veltro
