#pragma once
// The remote service: the maker's service staff reach the connected controller's terminal over
// the internet. The tool fetches a connection record for the controller's serial number,
// connects to the service server it names, and relays between that server and the terminal
// port, answering two commands of the server itself. Its progress shows in the terminal as
// lines beginning with "++".
#include <optional>
#include <string>

namespace veltro {

// Where the record of a serial number lies on the maker's web server.
std::string remoteRecordPath(const std::string& serial);

// The record: one line "a,b,c,d,port,baud[,loopback]". A reply that begins with "<" is the web
// server's error page, not a record. Anything else counts as a record, an empty reply too: its
// missing fields read as empty, so an empty reply connects to host "..." and fails there.
struct RemoteRecord {
    bool found = false;
    std::string host;        // fields 0 to 3 joined by ".", as text
    std::optional<int> port; // field 4 as a whole number, nothing when it is not one
    std::string baud;        // field 5, shown only
};
RemoteRecord parseRemoteRecord(const std::string& reply);

// The tunnel's record, "/CAN/" + connect-ID + ".dat": seven fields "a,b,c,d,port,baud,loopback"
// (loopback 1 = on, 0 = off). Nothing, with `why` for the log, when a field is missing or not
// a number, or the baud rate is one no serial line runs at. An empty baud field keeps the
// tunnel port's stored speed.
struct TunnelRecord {
    std::string host;
    int port = 0;
    int baud = 0;
    bool loopback = false;
};
inline constexpr int kDefaultTunnelBaud = 38400;
inline constexpr int kMinTunnelBaud = 50;
inline constexpr int kMaxTunnelBaud = 4000000;
std::optional<TunnelRecord> parseTunnelRecord(const std::string& text, std::string& why);
std::string tunnelRecordPath(const std::string& connectId);
// A connect-ID shorter than this is refused.
inline constexpr std::size_t kConnectIdMinLength = 8;

// A file in a folder, with one "/" between them unless the folder already ends in one.
std::string fileInFolder(const std::string& folder, const std::string& name);

// The line the terminal shows for a socket state number, "" for a number without one.
const char* tcpStateLine(int state);
// "REMOTE" can be pressed again in these states (closed, closed by the server, error).
bool remoteReady(int state);

// The state poll compares the socket's state with the last one shown, kept as text in a hidden
// label ("500" at the start, which is no state): the state when it differs, else nothing.
// States that come and go between two polls are never shown.
std::optional<int> stateChange(int state, const std::string& laststatus);

// The two commands of the service server, recognised only at the start of a received chunk
// and only as written; everything else goes to the controller unchanged.
enum class ServerCommand { None, SendEeprom, GetEeprom };
ServerCommand serverCommand(const std::string& chunk);
// Their lines and replies (the reply is the line and one CR).
inline constexpr char kSendEepromLine[] = "++SEND DEVICE EEPROM TO SERVER...";
inline constexpr char kGetEepromLine[] = "++DOWNLOAD DEVICE EEPROM...";

} // namespace veltro
