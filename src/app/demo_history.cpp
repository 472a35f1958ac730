#include "app/demo.h"

#include "app/history.h"
#include "editor/config_image.h"

#include <algorithm>
#include <ctime>

namespace veltro {

// Two earlier configurations of the demo controller in its service history, so that
// "Frühere Konfiguration…" has something to offer at once: a month ago (firmware 160) display
// lines 1 and 3 were swapped and the warning sat at 12,0 V; a week ago (firmware 164) only
// the warning differed. Nothing is added to a history that already exists.
void seedDemoHistory(const std::string& folder, const std::string& serial, const Bytes& image)
{
    constexpr std::size_t kThresholdByte = 136; // the undervoltage warning's threshold
    if (image.size() < 1026 || !readHistory(folder, serial).empty())
        return;
    Bytes monthAgo(image.begin(), image.begin() + 1026);
    const std::size_t line1 = 8 * std::size_t(displayLineSlot(0)), line3 = 8 * std::size_t(displayLineSlot(2));
    std::swap_ranges(monthAgo.begin() + std::ptrdiff_t(line1), monthAgo.begin() + std::ptrdiff_t(line1 + 8),
                     monthAgo.begin() + std::ptrdiff_t(line3));
    monthAgo[kThresholdByte] = thresholdByte("12,0", ',');
    Bytes weekAgo(image.begin(), image.begin() + 1026);
    weekAgo[kThresholdByte] = thresholdByte("12,5", ',');
    const std::string hardware = std::to_string(image[1013]), layout = std::to_string(image[1012]),
                      vehicle = std::to_string(image[1014]);
    const std::time_t now = std::time(nullptr);
    keepImage(folder, serial, monthAgo, {"160", hardware, layout, vehicle}, now - 30 * 86400);
    keepImage(folder, serial, weekAgo, {"164", hardware, layout, vehicle}, now - 7 * 86400);
}

} // namespace veltro
