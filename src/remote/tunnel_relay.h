#pragma once
// The CAN-bus tunnel's relay between the interface device (serial) and the tunnel server (TCP),
// without ports or sockets: it takes serial reads and server chunks and says what to write to
// the device, what to send to the server and which lines to log.
//
// The peers' framing:
//   device -> tool  records: "}x" + 15-byte frame body (17 bytes), "}" 0xF0 (checksum error of
//                   a frame sent to the device), "}" 0xC8 ... code at byte 17 (send error)
//   tool -> server  "CAN" + body, one message per frame, no separator
//   server -> tool  the same messages
//   tool -> device  one byte 0x7D, then the bodies
// The relay reads both sides as streams: several records in one serial read are relayed each,
// a record cut by the end of a read waits briefly for its rest, a server message split over two
// chunks is joined, and a body that happens to contain the letters "CAN" stays whole. Bodies
// are opaque bytes and are logged as such (0x80..0xFF stay one byte).
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace veltro {

struct RelayOutput {
    std::string toDevice;             // one write, empty for none
    std::vector<std::string> toServer; // one send each
    std::vector<std::string> view;    // lines for the window's log view
    std::vector<std::string> file;    // lines for CAN_LOG.txt, without their CR LF
    bool txLamp = false;              // a read from the device
    bool rxLamp = false;              // a chunk from the server
    bool waiting = false;             // a device record waits for its rest: call serialWaitOver
                                      // after recordWaitMs unless more comes first
    void add(RelayOutput&& more);
};

struct RelayCounts {
    long relayed = 0;   // device frames sent to the server
    long refused = 0;   // device frames not sent: no connection ("NO TX")
    long toDevice = 0;  // server bodies written to the device
    long lost = 0;      // buffer overruns reported by the port
};

class TunnelRelay {
public:
    static constexpr std::size_t kRecordSize = 17;
    static constexpr std::size_t kBodySize = 15;

    // Bytes read from the device; `connected`: the server link is up (state 7).
    RelayOutput serialRead(std::string_view bytes, bool connected);
    // The wait for a cut record is over: it is handled with the bytes it has.
    RelayOutput serialWaitOver(bool connected);
    // Frames from the device could not be kept (the server takes nothing), or bodies for the
    // device could not be (the device takes nothing): they are lost.
    enum class Overrun { Receive, Transmit };
    RelayOutput overrun(Overrun kind);
    // A chunk from the server; `loopback`: every body goes back to the server too.
    RelayOutput serverChunk(std::string_view bytes, bool loopback);
    // Forget what waits on either side (a new connection).
    void reset();

    const RelayCounts& counts() const { return counts_; }
    // How long a cut record waits for its rest: one record's line time at `baud` plus 2 ms.
    static int recordWaitMs(int baud);

private:
    RelayOutput handleRecord(std::string_view record, bool connected);

    std::string serialPending_;
    std::string serverPending_;
    RelayCounts counts_;
};

} // namespace veltro
