#pragma once
// The tunnel's QUERY without its window: the connection record of a connect-ID fetched from the
// maker's web server, and what the log shows of it.
#include "remote/remote_service.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace veltro {

// Downloads `url` into `file` (connectid.sys in the program folder), reads it and deletes it:
// the record is read once and not kept. Nothing when the download failed; it gives up as soon
// as `keepGoing` says false. Blocking: run it on a worker.
std::optional<std::string> fetchTunnelRecord(const std::string& url, const std::string& file,
                                             const std::function<bool()>& keepGoing);

// The query's outcome: its log lines, and the record when the tunnel can connect with it.
struct TunnelQuery {
    std::vector<std::string> lines;
    std::optional<TunnelRecord> record;
};
// `fetched`: fetchTunnelRecord's result.
TunnelQuery tunnelQuery(const std::optional<std::string>& fetched);

} // namespace veltro
