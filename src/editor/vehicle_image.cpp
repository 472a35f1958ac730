#include "editor/vehicle_image.h"

#include "editor/codec.h"
#include "util/runtime_error.h"

namespace veltro {

namespace {

// A list entry looked up by the chosen index; no choice or an index past the list is an
// invalid property value, as a list box reports it.
template <class List>
const typename List::value_type& entry(const List& list, int index, const char* what)
{
    if (index < 0 || index >= int(list.size()))
        throw RuntimeError(ErrNo::InvalidProperty,
                           std::string(what) + " index " + std::to_string(index));
    return list[std::size_t(index)];
}

int lineOfSlot(int slot)
{
    if (slot == 0) return 0;
    if (slot >= 3 && slot < kSlotCount) return slot - 2;
    throw RuntimeError(ErrNo::SubscriptRange, "slot " + std::to_string(slot) + " is no display line");
}

} // namespace

namespace {
// The last entry whose record A is `row` (the later of two equal records wins); -1 for none.
template <typename Entries>
int lastWithRecordA(const Entries& entries, const std::string& row)
{
    int match = -1;
    for (std::size_t k = 0; k < entries.size(); ++k) {
        if (entries[k].recordA == row)
            match = int(k);
    }
    return match;
}
} // namespace

int matchingDisplayValue(const VehicleDescription& vehicle, const std::string& row)
{
    return lastWithRecordA(vehicle.displayValues, row);
}

int matchingSwitch(const VehicleDescription& vehicle, const std::string& row)
{
    return lastWithRecordA(vehicle.switches, row);
}

VehicleImageSource::VehicleImageSource(const VehicleDescription& vehicle, const EditorChoice& choice,
                                       char decimalSeparator)
    : vehicle_(vehicle), choice_(choice), separator_(decimalSeparator)
{
}

const DisplayValue& VehicleImageSource::lineValue(int line) const
{
    return entry(vehicle_.displayValues, choice_.displayLines.at(std::size_t(line)), "display value");
}

const DisplayValue& VehicleImageSource::slotValue(int slot) const
{
    return lineValue(lineOfSlot(slot));
}

const SwitchInput& VehicleImageSource::chosenSwitch() const
{
    return entry(vehicle_.switches, choice_.switchInput, "switch");
}

Record VehicleImageSource::recordA(int slot) const
{
    if (slot == 1) return hextobytearray(vehicle_.klemme15A);
    if (slot == 2) return hextobytearray(vehicle_.feldregenerationA);
    return hextobytearray(slotValue(slot).recordA);
}

Record VehicleImageSource::recordB(int slot) const
{
    if (slot == 1) return hextobytearray(vehicle_.klemme15B);
    if (slot == 2) return hextobytearray(vehicle_.feldregenerationB);
    return hextobytearray(slotValue(slot).recordB);
}

Record VehicleImageSource::switchA() const { return hextobytearray(chosenSwitch().recordA); }
Record VehicleImageSource::switchB() const { return hextobytearray(chosenSwitch().recordB); }

std::uint8_t VehicleImageSource::flags() const
{
    const auto digit = [&](int bit) { return choice_.options[std::size_t(bit)] ? '1' : '0'; };
    return BinStrToByte(std::string("00000") + digit(2) + digit(1) + digit(0));
}

std::uint8_t VehicleImageSource::threshold() const
{
    return thresholdByte(choice_.threshold, separator_);
}

std::uint8_t VehicleImageSource::valueX(int slot) const { return valueByte(slotValue(slot).valueX); }
std::uint8_t VehicleImageSource::valueY(int slot) const { return valueByte(slotValue(slot).valueY); }

std::uint16_t VehicleImageSource::speed() const { return speedValue(choice_.speed); }
std::uint8_t VehicleImageSource::switching() const { return switchingValue(choice_.switching); }

std::string VehicleImageSource::text(int line) const { return lineValue(line).text; }

} // namespace veltro
