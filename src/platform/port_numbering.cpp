#include "platform/port_numbering.h"

#include <QSerialPortInfo>

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <vector>

namespace veltro {

std::map<int, std::string> parsePortOverrides(const std::string& text)
{
    std::map<int, std::string> result;
    std::string item;
    std::stringstream in(text);
    while (std::getline(in, item, ',')) {
        std::stringstream parts(item);
        std::string piece;
        while (std::getline(parts, piece, ';')) {
            const auto eq = piece.find('=');
            if (eq == std::string::npos) continue;
            std::string num = piece.substr(0, eq);
            std::string path = piece.substr(eq + 1);
            num.erase(0, num.find_first_not_of(" \t"));
            num.erase(num.find_last_not_of(" \t") + 1);
            path.erase(0, path.find_first_not_of(" \t"));
            path.erase(path.find_last_not_of(" \t") + 1);
            if (num.empty() || path.empty()
                || !std::all_of(num.begin(), num.end(), [](char c) { return c >= '0' && c <= '9'; }))
                continue;
            const int n = std::atoi(num.c_str());
            if (n >= kFirstPortNumber && n <= kLastPortNumber)
                result[n] = path;
        }
    }
    return result;
}

std::map<int, std::string> numberedPorts()
{
    std::map<int, std::string> ports;
    const char* system = std::getenv("VELTRO_SYSTEM_PORTS");
    const bool withSystem = !(system && std::string(system) == "0");
    if (withSystem) {
#ifdef Q_OS_WIN
        for (const QSerialPortInfo& info : QSerialPortInfo::availablePorts()) {
            const QString name = info.portName();
            if (name.startsWith("COM", Qt::CaseInsensitive)) {
                bool ok = false;
                const int n = name.mid(3).toInt(&ok);
                if (ok && n >= kFirstPortNumber && n <= kLastPortNumber)
                    ports[n] = name.toStdString();
            }
        }
#else
        std::vector<std::string> locations;
        for (const QSerialPortInfo& info : QSerialPortInfo::availablePorts())
            locations.push_back(info.systemLocation().toStdString());
        std::sort(locations.begin(), locations.end());
        int n = kFirstPortNumber;
        for (const auto& location : locations) {
            if (n > kLastPortNumber) break;
            ports[n++] = location;
        }
#endif
    }
    if (const char* overrides = std::getenv("VELTRO_PORTS"))
        for (const auto& [n, path] : parsePortOverrides(overrides))
            ports[n] = path;
    return ports;
}

std::string portLocation(int number)
{
#ifdef Q_OS_WIN
    if (const char* overrides = std::getenv("VELTRO_PORTS")) {
        const auto map = parsePortOverrides(overrides);
        if (auto it = map.find(number); it != map.end()) return it->second;
    }
    return "COM" + std::to_string(number);
#else
    const auto ports = numberedPorts();
    const auto it = ports.find(number);
    return it == ports.end() ? std::string() : it->second;
#endif
}

} // namespace veltro
