#pragma once
// An in-memory device link played from a script: the fuzzer's input decides what the
// controller sends, when, and whether the line goes away. The link keeps its own clock and
// moves it only while the tool waits, so a wait that runs out costs no real time and every
// time-out path is reached at full speed.
//
// Script bytes, after the first (the job byte, read by the target):
//   one event per op byte: kind = op & 7, delay = (op >> 3)^2 * 3 ms (0 .. 2883 ms), counted
//   from when the tool first waits for the event.
//     0, 6  the controller echoes the last byte the tool wrote
//     1     a chunk: a length byte, then that many bytes
//     2, 7  a full answer to the request (three parameter bytes: seed, layout byte, flags;
//           flags bit 0: checksum one too high, bit 1: cut to seed * 4 bytes, bit 2: byte 127 = 5)
//     3     the line goes away
//     4, 5  nothing: time passes
// After the last event the controller is silent.
#include "platform/serial_link.h"
#include "util/hex.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace veltro::fuzz {

enum class Answer { Image, DataBlock, Word };

class ScriptedLink : public SerialLink {
public:
    ScriptedLink(const std::uint8_t* script, std::size_t size, Answer answer, bool openFails);

    bool open() override;
    void close() override { open_ = false; }
    bool isOpen() const override { return open_; }
    std::string errorText() const override { return error_; }
    bool lost() const override { return lost_; }

    using SerialLink::write;
    bool write(const std::uint8_t* data, std::size_t size) override;
    std::size_t bytesWaiting() override { return open_ ? rx_.size() : 0; }
    std::vector<std::uint8_t> readAll() override;
    void discardInput() override { rx_.clear(); }
    bool waitForData(Deadline deadline) override;
    Deadline now() const override { return now_; }

    // What the play showed, for the target's checks.
    Clock::duration elapsed() const { return now_ - Deadline{}; }
    const std::vector<std::uint8_t>& written() const { return written_; }
    // Reads that returned exactly one byte equal to the last byte written: the only shape in
    // which the tool may take an echo.
    int loneEchoReads() const { return loneEchoReads_; }
    int opens() const { return opens_; }

private:
    enum class Kind { Echo, Chunk, Answer, Lose, Idle };
    struct Event {
        Kind kind = Kind::Idle;
        Clock::duration delay{};
        std::optional<Deadline> due;
        Bytes bytes;                  // Chunk
        std::uint8_t seed = 0, layout = 0, flags = 0;  // Answer
    };
    void apply(const Event& e);
    Bytes answerBytes(const Event& e) const;

    std::vector<Event> events_;
    std::size_t next_ = 0;
    Answer answer_;
    bool openFails_;
    bool open_ = false;
    bool lost_ = false;
    int opens_ = 0;
    int loneEchoReads_ = 0;
    std::string error_;
    Deadline now_{};
    Bytes rx_;
    std::vector<std::uint8_t> written_;
};

} // namespace veltro::fuzz
