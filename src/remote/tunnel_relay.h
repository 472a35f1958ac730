#pragma once
// The CAN-bus tunnel's relay between the interface device (serial) and the tunnel server (TCP),
// without ports or sockets: it takes serial reads and server chunks and says what to write to
// the device, what to send to the server and which lines to log.
//
// The peers' framing:
//   device -> tool  records of 17 bytes: "}x" + 15-byte frame body, "}" 0xF0 (checksum error
//                   of a frame sent to the device), "}" 0xC8 with the error code at byte 17
//                   (send error)
//   tool -> server  "CAN" + body, one message per frame, no separator
//   server -> tool  the same messages
//   tool -> device  one byte 0x7D, then the bodies
// The relay reads both sides as streams: several records in one serial read are relayed each,
// a record cut by the end of a read waits briefly for its rest, bytes that start no record are
// one record up to the next "}", a server message split over two chunks is joined unless its
// rest stays away, and a body that happens to contain the letters "CAN" stays whole. Bodies
// are opaque bytes and are logged as such (0x80..0xFF stay one byte).
//
// Counts are frames: a frame the server link cannot take is dropped and counted lost, never
// logged or counted as relayed; bodies for the device count once the port has taken them.
#include <climits>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace veltro {

struct RelayOutput {
    bool deviceStart = false;          // one 0x7D to the device before the bodies
    std::vector<std::string> toDevice; // server bodies for the device, in order
    std::vector<std::string> toServer; // one send each
    std::vector<std::string> view;     // lines for the window's log view
    std::vector<std::string> file;     // lines for CAN_LOG.txt, without their CR LF
    bool txLamp = false;               // a read from the device
    bool rxLamp = false;               // a chunk from the server
    bool waiting = false;              // a device record waits for its rest: serialWaitOver
                                       // after recordWaitMs unless more comes first
    bool serverWaiting = false;        // a server message waits for its rest: serverWaitOver
                                       // after messageWaitMs unless more comes first
    void add(RelayOutput&& more);
};

struct RelayCounts {
    long relayed = 0;   // device frames sent to the server
    long refused = 0;   // device frames not sent: no connection ("NO TX")
    long toDevice = 0;  // server bodies the device's port took
    long lost = 0;      // frames dropped either way
};

class TunnelRelay {
public:
    static constexpr std::size_t kRecordSize = 17;
    static constexpr std::size_t kBodySize = 15;
    static constexpr std::size_t kMessageSize = 18; // "CAN" + body
    static constexpr long kNoLimit = LONG_MAX;

    // Bytes read from the device. `connected`: the server link is up (state 7); `room`: how
    // many messages it can take now. Frames beyond it are lost.
    RelayOutput serialRead(std::string_view bytes, bool connected, long room = kNoLimit);
    // The wait for a cut record is over: it is handled with the bytes it has.
    RelayOutput serialWaitOver(bool connected, long room = kNoLimit);
    // A chunk from the server; `loopback`: every body goes back to the server too.
    RelayOutput serverChunk(std::string_view bytes, bool loopback);
    // The wait for the rest of a server message is over: it goes to the device as it stands.
    RelayOutput serverWaitOver(bool loopback);
    // The device's port took `bodies` more bodies, or they never reached it (the tunnel
    // closed first): the lines to log for the lost ones.
    void delivered(long bodies) { counts_.toDevice += bodies; }
    RelayOutput discarded(long bodies);
    // Forget what waits on either side (a new connection).
    void reset();

    const RelayCounts& counts() const { return counts_; }
    // How long a cut record waits for its rest: one record's line time at `baud` plus 2 ms.
    static int recordWaitMs(int baud);
    // How long a server message waits for its rest: one message's line time plus 20 ms.
    static int messageWaitMs(int baud);

private:
    RelayOutput handleRecord(std::string_view record, bool connected);
    void toDevice(RelayOutput& out, std::string body, bool loopback);

    std::string serialPending_;
    std::string serverPending_;
    long room_ = kNoLimit;
    bool dropping_ = false; // frames are being dropped: said once until one goes out again
    RelayCounts counts_;
};

} // namespace veltro
