#pragma once
// The service history of each controller, kept beside the files the device contract names:
// every image read from it, every configuration upload and firmware run, in
// history/<serial>/ of the program folder. An entry is <YYYY-MM-DD_HH-MM-SS>.txt (local time;
// "_2", "_3" added when several fall in one second) holding "Key: value" lines, with the
// image as the same name + ".eep" when the entry holds one. Writing it never stops a device
// job: a failure comes back as a text to show once.
#include "util/hex.h"

#include <ctime>
#include <string>
#include <vector>

namespace veltro {

struct HistoryEntry {
    std::string name;      // the file name without extension
    std::string date;      // "24.11.2026 06:15:02"
    std::string event;     // kEventImage, kEventUpload or kEventFirmware
    std::string firmware, hardware, layout, vehicle;
    std::string file;      // what was sent (uploads and firmware runs)
    std::string outcome;   // "OK", or the job's last line
    std::string image;     // path of the entry's image, empty when it has none
};

inline const std::string kEventImage = "Abbild gelesen";
inline const std::string kEventUpload = "Konfiguration übertragen";
inline const std::string kEventFirmware = "Firmware-Update";

// What the tool knows of the controller when it reads its image.
struct ControllerFacts {
    std::string firmware, hardware, layout, vehicle;
};

struct ConnectResult;
// What a connect read: firmware, hardware, layout and vehicle bytes.
ControllerFacts factsOf(const ConnectResult& r);

// The folder of a controller's history.
std::string historyFolder(const std::string& programFolder, const std::string& serial);

// Keeps image positions 0..1025 with the facts, unless they equal the newest image kept for
// that controller. Returns why it could not be written, empty when it was or was not needed.
std::string keepImage(const std::string& programFolder, const std::string& serial, const Bytes& image,
                      const ControllerFacts& facts, std::time_t now = std::time(nullptr));

// Records a job's outcome for the controller: the event, the file sent, its firmware then,
// "OK" or the error text. Returns why it could not be written, empty when it was.
std::string recordJob(const std::string& programFolder, const std::string& serial, const std::string& event,
                      const std::string& file, const std::string& firmware, const std::string& outcome,
                      std::time_t now = std::time(nullptr));

// A controller's entries, newest first; none when it has no history.
std::vector<HistoryEntry> readHistory(const std::string& programFolder, const std::string& serial);

// Only a connected controller's serial (eight hex digits) names a history.
bool isControllerSerial(const std::string& serial);

// The one line the window and the command line show for a failed write.
std::string historyProblemLine(const std::string& why);

} // namespace veltro
