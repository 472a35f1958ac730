// What the remote service reads from outside: the connection records from the maker's web
// server, the chunks the service server sends, and the socket state against the one last
// shown. The input's first byte is the socket state (as a signed byte); the rest is read as a
// remote record, a tunnel record and a server chunk, and as the last state shown.
#include "fuzz_check.h"
#include "remote/remote_service.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

using namespace veltro;

namespace {

std::vector<std::string> split(std::string_view text)
{
    std::vector<std::string> out(1);
    for (char c : text) {
        if (c == ',') out.emplace_back();
        else out.back() += c;
    }
    return out;
}

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// A field that is decimal digits with blanks around them: its digits, else nothing.
std::optional<std::string> digitsOf(const std::string& field)
{
    std::size_t first = 0, last = field.size();
    while (first < last && isBlank(field[first])) ++first;
    while (last > first && isBlank(field[last - 1])) --last;
    if (first == last) return std::nullopt;
    for (std::size_t i = first; i < last; ++i)
        if (field[i] < '0' || field[i] > '9') return std::nullopt;
    return field.substr(first, last - first);
}

// The digits' value, or -1 past 8 significant digits, where a number may or may not be read.
long long smallValue(const std::string& digits)
{
    const std::size_t start = std::min(digits.find_first_not_of('0'), digits.size());
    if (digits.size() - start > 8) return -1;
    return start == digits.size() ? 0 : std::stoll(digits.substr(start));
}

void checkRemoteRecord(const std::string& reply)
{
    const RemoteRecord r = parseRemoteRecord(reply);
    FUZZ_CHECK(r.found == (reply.empty() || reply[0] != '<')); // "<": the server's error page
    if (!r.found) return;
    std::vector<std::string> f = split(reply);
    f.resize(std::max<std::size_t>(f.size(), 6));
    FUZZ_CHECK(r.host == f[0] + "." + f[1] + "." + f[2] + "." + f[3]);
    FUZZ_CHECK(r.baud == f[5]);
    const std::optional<std::string> digits = digitsOf(f[4]);
    if (r.port) {
        FUZZ_CHECK(digits && *r.port >= 0);
        const long long value = smallValue(*digits);
        FUZZ_CHECK(value < 0 || *r.port == value);
    } else {
        // Every port number there is would be read.
        FUZZ_CHECK(!digits || smallValue(*digits) < 0 || smallValue(*digits) > 65535);
    }
}

void checkTunnelRecord(const std::string& text)
{
    std::string why;
    const std::optional<TunnelRecord> r = parseTunnelRecord(text, why);
    FUZZ_CHECK(r.has_value() || !why.empty());

    // The record is its first line. Fields 1-5 and 7 must be numbers; field 6, the baud rate,
    // a number in the usable range or blank for the default.
    const std::vector<std::string> f = split(text.substr(0, text.find_first_of("\r\n")));
    bool decided = true; // false when a number is too long to say whether it is read
    bool valid = f.size() >= 7;
    long long n[7] = {};
    for (std::size_t i = 0; valid && i < 7; ++i) {
        if (i == 5 && f[5].find_first_not_of(" \t") == std::string::npos) {
            n[5] = kDefaultTunnelBaud;
            continue;
        }
        const std::optional<std::string> digits = digitsOf(f[i]);
        valid = digits.has_value();
        if (valid) {
            n[i] = smallValue(*digits);
            decided = decided && n[i] >= 0;
        }
    }
    valid = valid && n[5] >= kMinTunnelBaud && n[5] <= kMaxTunnelBaud;
    if (decided) FUZZ_CHECK(r.has_value() == valid);
    if (!r) return;
    FUZZ_CHECK(f.size() >= 7);
    FUZZ_CHECK(r->baud >= kMinTunnelBaud && r->baud <= kMaxTunnelBaud);
    if (decided) {
        FUZZ_CHECK(r->host == std::to_string(n[0]) + "." + std::to_string(n[1]) + "." + std::to_string(n[2]) + "." +
                                  std::to_string(n[3]));
        FUZZ_CHECK(r->port == n[4] && r->baud == n[5] && r->loopback == (n[6] != 0));
    }
}

void checkServerCommand(const std::string& chunk)
{
    const ServerCommand c = serverCommand(chunk);
    const bool send = chunk.rfind("SENDEEPROM", 0) == 0, get = chunk.rfind("GETEEPROM", 0) == 0;
    FUZZ_CHECK(c == (send ? ServerCommand::SendEeprom : get ? ServerCommand::GetEeprom : ServerCommand::None));
}

void checkStateChange(int state, const std::string& laststatus)
{
    const std::optional<int> shown = stateChange(state, laststatus);
    FUZZ_CHECK(!shown || *shown == state);
    // A state once shown is not shown again; the label's start value is no state.
    FUZZ_CHECK(!stateChange(state, std::to_string(state)));
    if (state != 500) FUZZ_CHECK(stateChange(state, "500") == state);
    if (laststatus.find_first_of("0123456789") == std::string::npos) FUZZ_CHECK(shown == state);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0) return 0;
    const int state = static_cast<std::int8_t>(data[0]);
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    checkRemoteRecord(text);
    checkTunnelRecord(text);
    checkServerCommand(text);
    checkStateChange(state, text);
    return 0;
}
