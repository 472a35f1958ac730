#include "remote/tunnel_query.h"

#include "platform/internet.h"

#include <cstdio>
#include <fstream>
#include <sstream>

namespace veltro {

std::optional<std::string> fetchTunnelRecord(const std::string& url, const std::string& file,
                                             const std::function<bool()>& keepGoing)
{
    if (downloadToFile(url, file, [&keepGoing](std::int64_t, std::int64_t) { return keepGoing(); }) != 0)
        return std::nullopt;
    std::ifstream in(file, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    in.close();
    std::remove(file.c_str());
    return text.str();
}

TunnelQuery tunnelQuery(const std::optional<std::string>& fetched)
{
    TunnelQuery q;
    if (!fetched) {
        q.lines.push_back("++NO CONNECTIONDATA FOUND!");
        return q;
    }
    std::string why;
    q.record = parseTunnelRecord(*fetched, why);
    if (!q.record) {
        q.lines.push_back("++CONNECTIONDATA FEHLERHAFT: " + why);
        return q;
    }
    q.lines.push_back("++CONNECTIONDATA FOUND!");
    q.lines.push_back("++BAUDRATE: " + std::to_string(q.record->baud));
    return q;
}

} // namespace veltro
