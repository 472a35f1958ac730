#pragma once
// Pieces the benchmarks share: a local listening socket for their servers and the percentile
// of sorted figures.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstddef>
#include <vector>

namespace veltro::bench {

// A listening socket on 127.0.0.1 with a port of the system's choosing; -1 on failure.
inline int listenLocal(int& port)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof a;
    if (fd < 0 || ::bind(fd, reinterpret_cast<sockaddr*>(&a), len) != 0 || ::listen(fd, 4) != 0 ||
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len) != 0)
        return -1;
    port = ntohs(a.sin_port);
    return fd;
}

// The figure at quantile q (0..1] of `sorted`, rounding the rank up; `sorted` not empty.
inline double percentile(const std::vector<double>& sorted, double q)
{
    const std::size_t rank = std::size_t(q * double(sorted.size()) + 0.999999);
    return sorted[std::min(sorted.size(), std::max<std::size_t>(rank, 1)) - 1];
}

} // namespace veltro::bench
