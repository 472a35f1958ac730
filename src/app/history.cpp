#include "app/history.h"

#include "device/identify.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>

namespace veltro {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kImageBytes = 1026; // positions 0..1025, as the connect saves them

// Why a write failed, in the words a technician acts on.
std::string reason(int error)
{
    switch (error) {
    case EACCES:
    case EPERM:
    case EROFS:
        return "keine Schreibrechte";
    case ENOSPC:
    case EDQUOT:
        return "Datenträger voll";
    default:
        return std::strerror(error);
    }
}

std::string stamp(std::time_t now, const char* format)
{
    std::tm local{};
    localtime_r(&now, &local);
    char text[32];
    std::strftime(text, sizeof text, format, &local);
    return text;
}

// "2026-11-24_06-15-02" or "2026-11-24_06-15-02_2" as "24.11.2026 06:15:02".
std::string dateOf(const std::string& name)
{
    if (name.size() < 19)
        return name;
    return name.substr(8, 2) + "." + name.substr(5, 2) + "." + name.substr(0, 4) + " " + name.substr(11, 2) + ":" +
           name.substr(14, 2) + ":" + name.substr(17, 2);
}

// The entries' names, oldest first: the time, then the count within its second.
std::vector<std::string> entryNames(const fs::path& dir)
{
    std::vector<std::string> names;
    std::error_code error;
    for (const auto& file : fs::directory_iterator(dir, error))
        if (file.path().extension() == ".txt")
            names.push_back(file.path().stem().string());
    const auto key = [](const std::string& name) {
        const std::size_t cut = name.find('_', 11);
        return std::pair(name.substr(0, cut), cut == std::string::npos ? 1 : std::atoi(name.c_str() + cut + 1));
    };
    std::sort(names.begin(), names.end(), [&](const std::string& a, const std::string& b) { return key(a) < key(b); });
    return names;
}

// A new entry's name: the local time, and a count when the second already has one.
std::string newName(const fs::path& dir, std::time_t now)
{
    const std::string base = stamp(now, "%Y-%m-%d_%H-%M-%S");
    std::string name = base;
    std::error_code error;
    for (int n = 2; fs::exists(dir / (name + ".txt"), error); ++n)
        name = base + "_" + std::to_string(n);
    return name;
}

// Writes `content` to `path`; the failure's reason, empty on success.
std::string writeAll(const fs::path& path, const std::string& content)
{
    errno = 0;
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (out)
        out.write(content.data(), std::streamsize(content.size()));
    if (out)
        out.flush();
    if (out)
        return {};
    const int error = errno ? errno : EIO;
    out.close();
    std::error_code ignored;
    fs::remove(path, ignored);
    return path.string() + " (" + reason(error) + ")";
}

// Makes the controller's folder; the failure's reason, empty on success.
std::string makeFolder(const fs::path& dir)
{
    std::error_code error;
    fs::create_directories(dir, error);
    if (error)
        return dir.string() + " (" + reason(error.value()) + ")";
    return {};
}

std::string lines(const std::vector<std::pair<std::string, std::string>>& fields)
{
    std::string text;
    for (const auto& [key, value] : fields)
        if (!value.empty())
            text += key + ": " + value + "\n";
    return text;
}

std::string readAll(const fs::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

} // namespace

ControllerFacts factsOf(const ConnectResult& r)
{
    return {std::to_string(r.firmware()), std::to_string(r.hardwareVersion()), std::to_string(r.layoutByte()),
            std::to_string(r.controllerType())};
}

std::string historyFolder(const std::string& programFolder, const std::string& serial)
{
    return programFolder + "/history/" + serial;
}

bool isControllerSerial(const std::string& serial)
{
    return serial.size() == 8 && std::all_of(serial.begin(), serial.end(), [](char c) {
               return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F');
           });
}

std::string historyProblemLine(const std::string& why)
{
    return "Servicehistorie nicht gespeichert: " + why;
}

std::string keepImage(const std::string& programFolder, const std::string& serial, const Bytes& image,
                      const ControllerFacts& facts, std::time_t now)
{
    if (!isControllerSerial(serial))
        return {};
    const fs::path dir = historyFolder(programFolder, serial);
    const std::string bytes(image.begin(), image.begin() + std::ptrdiff_t(std::min(image.size(), kImageBytes)));
    const std::vector<std::string> names = entryNames(dir);
    for (auto name = names.rbegin(); name != names.rend(); ++name) {
        const fs::path kept = dir / (*name + ".eep");
        std::error_code error;
        if (!fs::exists(kept, error))
            continue;
        if (readAll(kept) == bytes)
            return {};
        break;
    }
    if (std::string why = makeFolder(dir); !why.empty())
        return why;
    const std::string name = newName(dir, now);
    if (std::string why = writeAll(dir / (name + ".eep"), bytes); !why.empty())
        return why;
    std::string why = writeAll(dir / (name + ".txt"), lines({{"Ereignis", kEventImage},
                                                             {"Firmware", facts.firmware},
                                                             {"Hardware", facts.hardware},
                                                             {"Layout", facts.layout},
                                                             {"Fahrzeug", facts.vehicle},
                                                             {"Ergebnis", "OK"}}));
    if (!why.empty()) {
        std::error_code ignored;
        fs::remove(dir / (name + ".eep"), ignored);
    }
    return why;
}

std::string recordJob(const std::string& programFolder, const std::string& serial, const std::string& event,
                      const std::string& file, const std::string& firmware, const std::string& outcome,
                      std::time_t now)
{
    if (!isControllerSerial(serial))
        return {};
    const fs::path dir = historyFolder(programFolder, serial);
    if (std::string why = makeFolder(dir); !why.empty())
        return why;
    return writeAll(dir / (newName(dir, now) + ".txt"),
                    lines({{"Ereignis", event}, {"Datei", file}, {"Firmware", firmware}, {"Ergebnis", outcome}}));
}

std::vector<HistoryEntry> readHistory(const std::string& programFolder, const std::string& serial)
{
    const fs::path dir = historyFolder(programFolder, serial);
    std::vector<HistoryEntry> entries;
    const std::vector<std::string> names = entryNames(dir);
    for (auto name = names.rbegin(); name != names.rend(); ++name) {
        HistoryEntry e;
        e.name = *name;
        e.date = dateOf(*name);
        std::map<std::string, std::string> fields;
        std::ifstream in(dir / (*name + ".txt"));
        for (std::string line; std::getline(in, line);)
            if (const std::size_t colon = line.find(": "); colon != std::string::npos)
                fields[line.substr(0, colon)] = line.substr(colon + 2);
        e.event = fields["Ereignis"];
        e.firmware = fields["Firmware"];
        e.hardware = fields["Hardware"];
        e.layout = fields["Layout"];
        e.vehicle = fields["Fahrzeug"];
        e.file = fields["Datei"];
        e.outcome = fields["Ergebnis"];
        std::error_code error;
        if (fs::exists(dir / (*name + ".eep"), error))
            e.image = (dir / (*name + ".eep")).string();
        entries.push_back(e);
    }
    return entries;
}

} // namespace veltro
