#include "remote/remote_service.h"

#include "util/numbers.h"

#include <algorithm>
#include <vector>

namespace veltro {

namespace {
std::vector<std::string> fields(const std::string& text)
{
    std::vector<std::string> out(1);
    for (char c : text) {
        if (c == ',')
            out.emplace_back();
        else
            out.back() += c;
    }
    return out;
}

// A port as the record writes it: decimal digits, blanks around them allowed.
std::optional<int> wholeNumber(const std::string& text)
{
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos)
        return std::nullopt;
    const auto last = text.find_last_not_of(" \t\r\n");
    long value = 0;
    for (std::size_t i = first; i <= last; ++i) {
        if (text[i] < '0' || text[i] > '9' || value > 99999999)
            return std::nullopt;
        value = value * 10 + (text[i] - '0');
    }
    return int(value);
}
} // namespace

std::string remoteRecordPath(const std::string& serial)
{
    return "/CAN/R_" + serial + ".dat";
}

RemoteRecord parseRemoteRecord(const std::string& reply)
{
    RemoteRecord r;
    r.found = reply.empty() || reply.front() != '<';
    if (!r.found)
        return r;
    std::vector<std::string> f = fields(reply);
    f.resize(std::max<std::size_t>(f.size(), 6));
    r.host = f[0] + "." + f[1] + "." + f[2] + "." + f[3];
    r.port = wholeNumber(f[4]);
    r.baud = f[5];
    return r;
}

std::string tunnelRecordPath(const std::string& connectId)
{
    return "/CAN/" + connectId + ".dat";
}

std::optional<TunnelRecord> parseTunnelRecord(const std::string& text, std::string& why)
{
    std::string line = text.substr(0, text.find_first_of("\r\n"));
    const std::vector<std::string> f = fields(line);
    if (f.size() < 7) {
        why = std::to_string(f.size()) + " von 7 Feldern";
        return std::nullopt;
    }
    std::optional<int> n[7];
    for (int i = 0; i < 7; ++i) {
        // The serial line keeps its stored speed when the record leaves the baud rate out.
        if (i == 5 && f[5].find_first_not_of(" \t") == std::string::npos) {
            n[i] = kDefaultTunnelBaud;
            continue;
        }
        n[i] = wholeNumber(f[std::size_t(i)]);
        if (!n[i]) {
            why = "Feld " + std::to_string(i + 1) + " ist keine Zahl: \"" + f[std::size_t(i)] + "\"";
            return std::nullopt;
        }
    }
    if (*n[5] < kMinTunnelBaud || *n[5] > kMaxTunnelBaud) {
        why = "Baudrate " + std::to_string(*n[5]) + " ist nicht nutzbar (" + std::to_string(kMinTunnelBaud) + " bis " +
              std::to_string(kMaxTunnelBaud) + ")";
        return std::nullopt;
    }
    TunnelRecord r;
    r.host = std::to_string(*n[0]) + "." + std::to_string(*n[1]) + "." + std::to_string(*n[2]) + "." +
             std::to_string(*n[3]);
    r.port = *n[4];
    r.baud = *n[5];
    r.loopback = *n[6] != 0;
    return r;
}

std::string fileInFolder(const std::string& folder, const std::string& name)
{
    return !folder.empty() && folder.back() == '/' ? folder + name : folder + "/" + name;
}

const char* tcpStateLine(int state)
{
    switch (state) {
    case 0: return "++TCP/IP-CONNECTION CLOSED!";
    case 1: return "++TCP/IP-CONNECTION OPENED!";
    case 2: return "++TCP/IP-CONNECTION READY!";
    case 3: return "++CONNECTING TO HOST...";
    case 4: return "++SOLVE IP...";
    case 5: return "++REMOTE IP SOLVED!";
    case 6: return "++CONNECTING TO SERVER...";
    case 7: return "++CONNECTED TO SERVER!";
    case 8: return "++REMOTE HOST CLOSED CONNECTION!";
    case 9: return "++TCP/IP-CONNECTION ERROR!";
    }
    return "";
}

bool remoteReady(int state)
{
    return state == 0 || state == 8 || state == 9;
}

std::optional<int> stateChange(int state, const std::string& laststatus)
{
    const std::optional<double> last = leadingNumber(laststatus);
    if (last && *last == state)
        return std::nullopt;
    return state;
}

ServerCommand serverCommand(const std::string& chunk)
{
    if (chunk.compare(0, 10, "SENDEEPROM") == 0)
        return ServerCommand::SendEeprom;
    if (chunk.compare(0, 9, "GETEEPROM") == 0)
        return ServerCommand::GetEeprom;
    return ServerCommand::None;
}

} // namespace veltro
