#pragma once
// The image fields as the editor's save takes them from its choices and the vehicle's data
// file. Each field is converted when the writer asks for it, so a bad entry (a record with a
// ninth piece, a value above 255, a threshold out of range, a list without a choice) stops the
// write at that field with its runtime error.
#include "editor/catalogue.h"
#include "editor/config_image.h"

#include <array>
#include <string>

namespace veltro {

// What the user chose in the editor. Indices are list indices; -1 is no choice.
struct EditorChoice {
    std::array<int, kDisplayLineCount> displayLines{-1, -1, -1, -1, -1, -1}; // into displayValues
    int switchInput = -1;                    // into switches
    std::array<bool, 3> options{};           // option bits 0, 1, 2
    std::string threshold;                   // volts as typed, e.g. "11,5"
    int speed = -1;                          // index into speedNames()
    int switching = -1;                      // index into switchingNames()
};

// The entry that the editor preselects for an image's record row: the last one whose record A
// equals the row as text, -1 when none does.
int matchingDisplayValue(const VehicleDescription& vehicle, const std::string& row);
int matchingSwitch(const VehicleDescription& vehicle, const std::string& row);

class VehicleImageSource : public ImageFieldSource {
public:
    VehicleImageSource(const VehicleDescription& vehicle, const EditorChoice& choice,
                       char decimalSeparator);

    Record recordA(int slot) const override;
    Record recordB(int slot) const override;
    Record switchA() const override;
    Record switchB() const override;
    std::uint8_t flags() const override;
    std::uint8_t threshold() const override;
    std::uint8_t valueX(int slot) const override;
    std::uint8_t valueY(int slot) const override;
    std::uint16_t speed() const override;
    std::uint8_t switching() const override;
    std::string text(int line) const override;

private:
    const DisplayValue& lineValue(int line) const;
    const DisplayValue& slotValue(int slot) const;
    const SwitchInput& chosenSwitch() const;

    const VehicleDescription& vehicle_;
    const EditorChoice& choice_;
    char separator_;
};

} // namespace veltro
