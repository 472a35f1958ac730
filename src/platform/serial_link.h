#pragma once
// The device link as the protocol code sees it: a byte pipe with a receive queue that can be
// counted, read whole and discarded, and a wait for more data until a deadline. The Qt
// implementation drives a real port (or a pseudo-terminal) with blocking calls on a worker
// thread; tests of pure protocol rules use an in-memory one.
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace veltro {

using Clock = std::chrono::steady_clock;
using Deadline = Clock::time_point;

class SerialLink {
public:
    virtual ~SerialLink() = default;

    virtual bool open() = 0;
    virtual void close() = 0;
    virtual bool isOpen() const = 0;
    // Why the last open or transfer failed; empty when nothing failed.
    virtual std::string errorText() const = 0;
    // True once the port has failed for good (unplugged adapter, vanished pty): every later
    // call fails fast and the job should end.
    virtual bool lost() const = 0;

    virtual bool write(const std::uint8_t* data, std::size_t size) = 0;
    bool write(const std::vector<std::uint8_t>& bytes) { return write(bytes.data(), bytes.size()); }
    bool writeByte(std::uint8_t byte) { return write(&byte, 1); }

    virtual std::size_t bytesWaiting() = 0;
    virtual std::vector<std::uint8_t> readAll() = 0;
    virtual void discardInput() = 0;
    // Returns when new bytes are waiting or the deadline has passed; true if bytes are waiting.
    virtual bool waitForData(Deadline deadline) = 0;
    // The clock every deadline on this link is measured against. A real port lives in real
    // time; a scripted link moves its own clock as it plays, so its time-outs cost no waiting.
    virtual Deadline now() const { return Clock::now(); }
};

// The line every job shows when the controller went away in the middle of it.
inline constexpr char kLinkLostText[] = "Verbindung zum Controller unterbrochen!";

// Why a job on this link failed: the lost line, else the port's own reason (empty when none).
inline std::string linkFailureText(const SerialLink& link)
{
    return link.lost() ? std::string(kLinkLostText) : link.errorText();
}

// Opens links by port number (1-99) through the port numbering of the machine.
class SerialLinkFactory {
public:
    virtual ~SerialLinkFactory() = default;
    virtual std::unique_ptr<SerialLink> create(int portNumber) = 0;
};

} // namespace veltro
