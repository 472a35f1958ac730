// The controller's serial behaviour as a pure, byte-driven model: no file descriptors, no
// threads, time passed in by the caller. VirtualController puts it behind a pseudo-terminal;
// tests can also drive it directly.
//
// What the controller does on its serial line:
//   200 (0xC8)  echo 200, restart (reset delay), send the 1028-byte image
//   199 (0xC7)  echo 199, restart, send the 129-byte data block
//   128 (0x80)  echo 128, restart, send one 16-bit word, low byte first
//   0x7B / 0x7C echo the mode byte, start the bootloader (firmware / configuration),
//               send 0x15 when ready, then take 132-byte blocks:
//               0x01, block byte, complement byte, 128 data bytes, checksum;
//               ACK 0x06 or NAK 0x15 each; 0x04 ends the transfer, 0x18 cancels it.
// Anything else is ignored. While an identification or readout answer is still going out
// the controller is restarting and does not listen.
//
// Next to these requests the same line carries a text terminal. In command mode printable
// ASCII (0x20..0x7E) collects into a line and CR (13) ends it; the controller does not echo
// what is typed, it answers each line with "\r\n", the answer's lines (each ending CR LF) and
// the prompt "> ". LF and other control bytes are ignored. An empty line (a lone CR) is
// answered with the banner: a terminal that has just opened sends one to be greeted. Opening
// the port alone shows nothing, since the tool opens the same port for every identification
// and readout, and text there would spoil the echo it waits for.
//   HELP        the commands
//   VER         firmware, hardware, layout and controller type
//   SER         serial number
//   STREAM N    N bytes of test text (streamPattern) at line rate
//   other text  "OK " and the line as received
// Commands are matched without case and surrounding blanks.
// The mode bytes '{' and '|' are printable: they start the bootloader only when no line is
// being collected, inside a line they are text. A request byte (200, 199, 128) drops a half
// line, so a line that never gets its CR cannot block the requests. A request that is answered
// restarts the controller: terminal output not yet sent is lost.
//
// In tunnel mode (setTunnelMode) the controller is the tool's CAN interface instead: it answers
// no requests, terminal lines or mode bytes, and the line carries CAN frames both ways.
//   to the tool    "}x" (0x7D 0x78) and a 15-byte frame body: a frame from the CAN bus
//                  "}" 0xF0, 15 zero bytes: a frame the tool sent had a checksum error
//                  "}" 0xC8, 14 zero bytes, an error code: a frame could not go on the bus
//                  Every record is 17 bytes.
//   from the tool  0x7D starts a packet, 15-byte frame bodies follow; a lone 0x7D is a packet
//                  without bodies. A 0x7D at a body boundary always starts a new packet, inside
//                  a body it is data. Bytes before the first 0x7D are stray.
// The frame bodies the controller sends are its own test traffic (tunnelFrameBody). All tunnel
// output goes out paced like a wire at the speed the tool set on the line (setTunnelBaud):
// each record, or each burst, is handed over whole once its last byte has crossed the wire,
// and the next one starts on the wire after it.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace veltro::sim {

using Clock = std::chrono::steady_clock;
using Bytes = std::vector<std::uint8_t>;

namespace wire {
inline constexpr std::uint8_t Identify = 200;
inline constexpr std::uint8_t DataBlock = 199;
inline constexpr std::uint8_t Word = 128;
inline constexpr std::uint8_t FirmwareMode = 0x7B;
inline constexpr std::uint8_t ConfigurationMode = 0x7C;
inline constexpr std::uint8_t Soh = 0x01;
inline constexpr std::uint8_t Eot = 0x04;
inline constexpr std::uint8_t Ack = 0x06;
inline constexpr std::uint8_t Nak = 0x15;  // also the bootloader's "ready"
inline constexpr std::uint8_t Can = 0x18;
inline constexpr std::size_t ImageSize = 1028;
inline constexpr std::size_t DataBlockSize = 129;
inline constexpr std::size_t FrameSize = 132;
inline constexpr std::size_t BlockDataSize = 128;
inline constexpr std::uint32_t Baud = 921600;            // the controller's own line speed
inline constexpr std::uint8_t TunnelMark = 0x7D;         // '}': starts every tunnel record
inline constexpr std::uint8_t TunnelFrame = 0x78;        // 'x': "}x" + body, a frame from the bus
inline constexpr std::uint8_t TunnelChecksumError = 0xF0;  // "}" 0xF0, 15 zeros
inline constexpr std::uint8_t TunnelSendError = 0xC8;    // "}" 0xC8, 14 zeros, the error code
inline constexpr std::size_t TunnelBodySize = 15;
inline constexpr std::size_t TunnelRecordSize = 17;      // every record: "}x" + body, both errors
}  // namespace wire

// Time a number of bytes take on a line with 10 bits per byte; at the controller's own 921600
// baud about 10.85 us each.
std::chrono::nanoseconds wireTime(std::size_t byteCount, std::uint32_t baud = wire::Baud);

// The single-byte requests the controller answers with an echo.
enum class Request { Identify, DataBlock, Word, Bootloader };

// Faults of one kind of request.
struct AnswerFaults {
    bool silent = false;       // never answers (the request is counted, nothing is sent)
    int echoFromRequest = 1;   // answers only the k-th request in a row; the k-1 before are ignored
                               // (the count starts again after each answered request)
    bool wrongChecksum = false;               // the answer's checksum byte is one too high
    std::optional<std::size_t> shortAnswer;   // only this many bytes of the answer after the echo
    Bytes garbageBeforeEcho;                  // sent in the same write as the echo
    int garbageRequests = -1;                 // how many answered requests carry it (-1: all)
    bool unplugAfterAnswer = false;           // the line goes away once the answer is out
    std::optional<std::uint8_t> echoByte;     // sent in place of the request's echo
};

// Faults of the bootloader. Blocks are counted as the controller counts them, from 1.
struct BootFaults {
    bool noHandshake = false;        // echoes the mode byte but never sends the ready byte
    std::map<int, int> nakBlock;     // block -> how many times a correct frame is refused
    int silentFromBlock = 0;         // no answer to this block and all later ones (0: off)
    int garbledBlock = 0;            // this block is answered once with garbledByte (0: off)
    std::uint8_t garbledByte = 0x41;
    int unplugAfterBlock = 0;        // after ACKing this block, the next byte from the tool
                                     // finds the line gone (0: off)
};

// One frame as the bootloader received it.
struct ReceivedFrame {
    int block = 0;                  // the block number the controller expected
    Bytes bytes;                    // the 132 bytes
    std::optional<std::uint8_t> answer;  // what it sent back, if anything
};

// What the bootloader has seen since the last mode byte it accepted.
struct BootReport {
    std::uint8_t mode = 0;          // 0x7B, 0x7C, or 0 before any transfer
    Bytes image;                    // data of the accepted blocks, in order
    int blocksAccepted = 0;
    int naks = 0;                   // every 0x15 sent after a frame, forced or not
    bool complete = false;          // 0x04 received
    bool cancelled = false;         // 0x18 received
    std::vector<ReceivedFrame> frames;
};

class DeviceModel {
public:
    DeviceModel();

    // --- identification image (1028 bytes; the checksum at 1027 is computed when sent) ---
    void setConfiguration(const Bytes& data);  // positions 0.. (at most 1008 bytes)
    void setImageByte(std::size_t position, std::uint8_t value);  // 0..1026
    void setSerial(std::uint32_t serial);      // 0x1A2B3C4D: byte 1008 = 0x1A ... 1011 = 0x4D
    void setLayout(std::uint8_t value);        // byte 1012
    void setHardware(std::uint8_t value);      // byte 1013
    void setControllerType(std::uint8_t value);  // byte 1014
    void setFirmware(std::uint16_t value);     // bytes 1024 (low), 1025 (high)
    Bytes image() const;                       // as sent without faults

    // --- data block (129 bytes) and word readouts ---
    void setDataBlockByte(std::size_t position, std::uint8_t value);  // 0..127
    void setManufacturingDate(int year, int month, int day);  // bytes 0..2, year 2023 -> 223
    void setDataSerialByte(std::uint8_t value);               // byte 3
    void setLambdaCalibration(std::uint16_t value);           // bytes 6 (low), 7 (high)
    Bytes dataBlock() const;
    void setWord(std::uint16_t value);

    // --- timing and faults ---
    void setResetDelay(Clock::duration delay);      // echo -> answer (default 20 ms)
    void setHandshakeDelay(Clock::duration delay);  // mode echo -> ready byte (default 20 ms)
    void setLineRate(bool on);                      // pace everything like a 921600-baud wire
    void setSilent(bool on);                        // hears nothing, answers nothing (and
                                                    // sends no tunnel records)
    void setFaults(Request request, const AnswerFaults& faults);
    AnswerFaults faults(Request request) const;
    void setBootFaults(const BootFaults& faults);
    void unplug();                                  // the line goes away now

    // --- text terminal ---
    Bytes banner() const;  // the answer to an empty line, without the leading CR LF and prompt
    // Each banner is followed by this many bytes of stream text (0, the default: none).
    void setStreamOnOpen(std::size_t bytes);
    // Sends streamPattern(bytes) from `now` on, always paced like a 921600-baud wire, after
    // whatever is still going out.
    void streamText(std::size_t bytes, Clock::time_point now);
    // The stream text: lines of printable ASCII ending CR LF, now and then a bare CR, the
    // whole ending CR LF (from 2 bytes on). The same amount always gives the same bytes, and
    // a longer stream starts with the full lines of a shorter one.
    static Bytes streamPattern(std::size_t bytes);

    // --- CAN tunnel ---
    // On: the controller is the CAN interface (see above). Switching on drops a half line, a
    // bootloader transfer and terminal output not yet sent; switching off drops tunnel output
    // not yet sent. Counts and bodies received are kept over both.
    void setTunnelMode(bool on);
    bool tunnelMode() const;
    // The speed tunnel output is paced at (default 921600); a record already going out keeps
    // the speed it started with. 0 is taken as 921600.
    void setTunnelBaud(std::uint32_t baud);
    std::uint32_t tunnelBaud() const { return tunnelBaud_; }
    // Frames from the bus: the first at the next take(), then one every 1/framesPerSecond;
    // 0 (the default) stops them. Each record is a write of its own while the line keeps up;
    // records that had to wait for the line go out back to back and may share a write. Frames
    // that fall due while MaxTunnelBacklog records still wait are lost (their numbers are
    // skipped).
    void setTunnelFrameRate(double framesPerSecond);
    static constexpr std::size_t MaxTunnelBacklog = 64;
    // The following emit only in tunnel mode, from `now` on, after whatever is still going out.
    void tunnelBurst(int n, Clock::time_point now);  // n frames back to back, in one write
    void tunnelChecksumError(Clock::time_point now);  // "}" 0xF0, 15 zeros
    void tunnelSendError(std::uint8_t code, Clock::time_point now);  // "}" 0xC8, 14 zeros, code
    // Body of frame k (frames are numbered from 0 as the controller takes them off the bus):
    // k big-endian in 4 bytes, the length 8, eight data bytes (k*8 .. k*8+7, modulo 256, so
    // every byte value turns up within 32 frames; in frames 6, 13, 20, ... the first three are
    // "CAN"), then the filler 0x7D 0x78, which looks like the start of the next record.
    static Bytes tunnelFrameBody(std::uint32_t k);

    // --- driving ---
    void receive(std::uint8_t byte, Clock::time_point arrival);
    void receive(const Bytes& bytes, Clock::time_point arrival);

    // A "}x" record in an Output: its frame number and the offset in `bytes` just past it.
    struct FrameEnd {
        std::uint32_t frame = 0;
        std::size_t end = 0;
    };
    struct Output {
        Bytes bytes;                               // to be written now
        std::vector<FrameEnd> frames;              // the "}x" records completed in bytes
        bool unplug = false;                       // then close the line
        std::optional<Clock::time_point> wake;     // call take() again then
        bool looseWake = false;                    // bulk text: waking late costs nothing
    };
    Output take(Clock::time_point now);
    bool unplugged() const { return unplugged_; }

    // --- inspection ---
    int requestCount(Request request) const;
    const Bytes& received() const { return received_; }
    const BootReport& boot() const { return boot_; }
    // Terminal lines as received up to their CR (CR not included), an empty line as "".
    const std::vector<std::string>& terminalLines() const { return lines_; }
    const std::string& partialLine() const { return line_; }  // collected, no CR yet
    std::size_t streamedBytes() const { return streamed_; }   // stream text handed out, all streams
    bool streaming() const;                                   // stream text still to go out
    // Tunnel input: complete bodies in order and when each was completed (the arrival time of
    // its last byte), the last MaxBodiesKept of them; bodies completed in all; packet starts
    // (0x7D); bytes before the first packet.
    std::vector<Bytes> tunnelBodies() const;
    std::vector<Clock::time_point> tunnelBodyTimes() const;
    std::size_t tunnelBodyCount() const { return tunnelBodyCount_; }
    static constexpr std::size_t MaxBodiesKept = 1'000'000;  // about 24 MB
    int tunnelPackets() const { return tunnelPackets_; }
    std::size_t tunnelStrayBytes() const { return tunnelStray_; }
    // Bodies of the "}x" records handed out, in order (a record counts once all of it is out);
    // the last MaxSentKept of them.
    std::vector<Bytes> tunnelSentBodies() const;
    static constexpr std::size_t MaxSentKept = 1'000'000;

private:
    enum class Mode { Command, Bootloader, Tunnel };

    // Produces the stream text as it goes out, so a long stream needs no memory.
    struct TextCursor {
        std::size_t total = 0;
        std::size_t produced = 0;
        std::uint64_t line = 0;
        std::string current;  // the line being handed out, with its line end
        std::size_t pos = 0;
        void append(Bytes& out, std::size_t count);
    };

    struct Emission {
        std::size_t size() const { return text ? text->total : bytes.size(); }
        Bytes bytes;
        std::optional<TextCursor> text;  // stream text instead of bytes
        bool terminal = false;   // terminal output: lost on a restart, does not stop listening
        bool paced = false;      // paced even without setLineRate
        bool tunnel = false;     // tunnel output: paced at tunnelBaud_, handed over whole
        std::uint32_t firstFrame = 0;   // "}x" records in it: frame numbers firstFrame..
        std::size_t frameCount = 0;
        std::uint32_t baud = wire::Baud;  // fixed when the emission starts
        Clock::time_point earliest;
        Clock::duration gap{};   // quiet time after the previous emission has gone out
        bool unplugAfter = false;
        bool started = false;
        Clock::time_point start;
        std::size_t sent = 0;
    };

    void onCommandByte(std::uint8_t byte, Clock::time_point t);
    void onLine(Clock::time_point t);
    std::string terminalAnswer(const std::string& line, std::size_t& stream) const;
    void sendText(const std::string& text, Clock::time_point t);
    void sendStream(std::size_t bytes, Clock::time_point t);
    bool restarting() const;  // a request's answer or an unplug is still to go out
    void dropTerminalOutput();
    void onBootByte(std::uint8_t byte, Clock::time_point t);
    void onTunnelByte(std::uint8_t byte, Clock::time_point t);
    void sendTunnel(Bytes bytes, Clock::time_point earliest, std::uint32_t firstFrame = 0,
                    std::size_t frameCount = 0);
    void queueDueFrames(Clock::time_point now);  // the frame rate's frames up to `now`
    Clock::time_point rateFrameDue(std::uint64_t i) const;
    Output takeQueued(Clock::time_point now);
    void checkFrame(Clock::time_point t);
    // Counts the request and applies silence and late echo; true when it is to be answered.
    bool takesRequest(Request request);
    void answer(Request request, std::uint8_t echo, Bytes reply, Clock::time_point t);
    void sendOut(Bytes bytes, Clock::time_point earliest, Clock::duration gap = {});
    void emitUnplug(Clock::time_point earliest);

    Mode mode_ = Mode::Command;
    Bytes image_;
    Bytes dataBlock_;
    std::uint16_t word_ = 0x1234;
    Clock::duration resetDelay_ = std::chrono::milliseconds(20);
    Clock::duration handshakeDelay_ = std::chrono::milliseconds(20);
    bool lineRate_ = false;
    bool silent_ = false;
    bool unplugged_ = false;
    bool unplugArmed_ = false;
    std::array<AnswerFaults, 4> faults_{};
    std::array<int, 4> requests_{};
    std::array<int, 4> ignoredInRow_{};
    std::array<int, 4> garbageSent_{};
    BootFaults bootFaults_;
    std::map<int, int> naksLeft_;
    bool garbledDone_ = false;
    Bytes frame_;
    Clock::time_point frameStart_;
    BootReport boot_;
    Bytes received_;
    std::string line_;
    std::vector<std::string> lines_;
    std::size_t streamOnOpen_ = 0;
    std::size_t streamed_ = 0;
    std::deque<Emission> out_;
    Clock::time_point lastEnd_{};
    // tunnel
    std::uint32_t tunnelBaud_ = wire::Baud;
    double frameRate_ = 0;
    std::optional<Clock::time_point> rateStart_;  // the frame rate's first frame, once started
    std::uint64_t rateFrames_ = 0;                // its frames since then, queued or lost
    std::uint32_t nextFrameNumber_ = 0;
    bool tunnelOpen_ = false;  // a 0x7D has arrived since tunnel mode was switched on
    Bytes tunnelBody_;         // the body being filled
    std::deque<std::array<std::uint8_t, wire::TunnelBodySize>> tunnelBodies_;
    std::deque<Clock::time_point> tunnelBodyTimes_;
    std::size_t tunnelBodyCount_ = 0;
    int tunnelPackets_ = 0;
    std::size_t tunnelStray_ = 0;
    std::deque<std::uint32_t> tunnelSent_;  // frame numbers: the bodies follow from them
};

}  // namespace veltro::sim
