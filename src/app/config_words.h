#pragma once
// A configuration image in words, as the editor would show it: the vehicle, the six display
// lines and the switch input by their catalogue names, the lists' entries, the threshold and
// the three options. `veltro-cli config show` prints it, `config diff` and the window's list of
// earlier configurations compare two of them.
#include "util/hex.h"

#include <optional>
#include <string>
#include <vector>

namespace veltro {

struct ConfigItem {
    std::string label;  // "Anzeigezeile 3"
    std::string value;  // "Öltemperatur" (UTF-8)
};

struct ConfigWords {
    std::vector<ConfigItem> items;  // the vehicle first; empty when `error` says why
    std::string warning;            // a short file, read as zeros beyond its end
    std::string error;              // why the image cannot be described
};

// The image's vehicle is `vehicle`, else its byte 1014 (unless erased), else none: then the
// records are shown in hex. Catalogue and vehicle data come from `folder`.
ConfigWords describeImage(const Bytes& image, std::optional<int> vehicle, const std::string& folder);
// The same for a file; it is only read, never created.
ConfigWords describeImageFile(const std::string& file, std::optional<int> vehicle, const std::string& folder);

// The items that differ, one line each: "Anzeigezeile 3: Öltemperatur -> Ladedruck".
std::vector<std::string> configDifferences(const ConfigWords& before, const ConfigWords& after);

// A controller's kept images, newest first, as "Frühere Konfiguration…" lists them: the date,
// the firmware, and in words what differs from `current` (the image read at this connect).
struct EarlierConfiguration {
    std::string text;
    std::string imageFile;
};
std::vector<EarlierConfiguration> earlierConfigurations(const std::string& folder, const std::string& serial,
                                                        const Bytes& current);

} // namespace veltro
