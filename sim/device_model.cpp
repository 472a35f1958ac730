#include "sim/device_model.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <stdexcept>
#include <string>

namespace veltro::sim {

namespace {

constexpr std::int64_t BitsPerByte = 10;

constexpr std::size_t SerialPos = 1008;
constexpr std::size_t LayoutPos = 1012;
constexpr std::size_t HardwarePos = 1013;
constexpr std::size_t TypePos = 1014;
constexpr std::size_t FirmwarePos = 1024;
constexpr std::size_t ChecksumPos = 1027;
constexpr std::size_t ConfigSize = 1008;

std::size_t index(Request r) { return static_cast<std::size_t>(r); }

constexpr std::uint8_t Cr = 13;
constexpr std::size_t MaxLine = 4096;            // longer lines keep their beginning
constexpr std::size_t MaxTypedStream = 100'000'000;  // "STREAM N": about 18 minutes
// Stream text goes out in pieces of about a millisecond on the wire rather than byte by byte:
// the pty and the tool see the same rate, and the controller's thread need not spin.
constexpr std::size_t StreamPiece = 92;

bool isText(std::uint8_t byte) { return byte >= 0x20 && byte <= 0x7E; }

std::string trimmedLower(const std::string& s)
{
    const auto first = s.find_first_not_of(' ');
    if (first == std::string::npos) return {};
    std::string out = s.substr(first, s.find_last_not_of(' ') - first + 1);
    for (char& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

// Line k of the stream text, `length` characters long: the line number in seven digits and a
// blank, then the printable characters in turn from a point that moves with k.
std::string streamLine(std::uint64_t k, std::size_t length)
{
    char head[16];
    std::snprintf(head, sizeof head, "%07llu ", static_cast<unsigned long long>(k % 10'000'000));
    std::string text(head, std::min<std::size_t>(length, 8));
    for (std::size_t j = text.size(); j < length; ++j)
        text.push_back(static_cast<char>(0x20 + (k * 7 + j) % 95));
    return text;
}

// Sum of the bytes, modulo 256: the controller's checksum for the image and the data block.
std::uint8_t sum8(const Bytes& bytes, std::size_t count)
{
    unsigned sum = 0;
    for (std::size_t i = 0; i < count; ++i) sum += bytes[i];
    return static_cast<std::uint8_t>(sum & 0xFF);
}

// The bootloader's view of block n: the byte it expects as block number ...
int expectedBlockByte(int n)
{
    if (n < 256) return n;
    if (n <= 511) return n - 256;
    if (n <= 767) return n - 512;
    return n % 256;  // the tool never goes this far
}

// ... and as complement. From block 256 on this is not 255 minus the block byte.
int expectedComplement(int n)
{
    if (n <= 255) return 255 - n;
    if (n <= 510) return 510 - n;
    if (n <= 765) return 765 - n;
    if (n <= 1020) return 1020 - n;
    return 1275 - n;
}

// SOH, the full block number, the complement and the data, modulo 256.
std::uint8_t expectedFrameChecksum(int n, const Bytes& frame)
{
    unsigned sum = 1u + static_cast<unsigned>(n) + static_cast<unsigned>(expectedComplement(n));
    for (std::size_t i = 3; i < 3 + wire::BlockDataSize; ++i) sum += frame[i];
    return static_cast<std::uint8_t>(sum & 0xFF);
}

// "0CxF0x04x00x03x02x00x00" as its eight bytes.
std::array<std::uint8_t, 8> record(const char* row)
{
    std::array<std::uint8_t, 8> bytes{};
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<std::uint8_t>(std::stoul(std::string(row + 3 * i, 2), nullptr, 16));
    return bytes;
}

// One line of a vehicle data file as the configuration uses it.
struct SampleLine {
    const char* recordA;
    const char* recordB;
    const char* text;   // eight characters, Windows-1252
    std::uint8_t x, y;
};

// The tractor "Norrik Traktor NT 120" of the sample catalogue (data/demo/nt120.fzd), vehicle 1
// in its vehicles.inc and so the default controller type. Display lines 1 to 6:
const SampleLine SampleDisplay[6] = {
    {"0CxF0x04x00x03x02x00x00", "01x08x00x00x00x00x00x00", "DREHZAHL", 1, 0},    // Motordrehzahl
    {"18xFExEEx00x00x01x00x00", "01x01x28x00x00x00x00x00", "K\xDCHLWASS", 2, 0}, // Kühlwassertemperatur
    {"0CxFExF0x00x00x02x00x00", "01x08x00x00x00x00x00x00", "ZAPFWELL", 1, 0},    // Zapfwellendrehzahl
    {"18xFExA4x00x00x01x00x00", "01x01x28x00x00x00x00x00", "HYDR.\xD6L ", 2, 0}, // Hydrauliköltemperatur
    {"18xFExFFx00x01x01x00x00", "02x05x00x00x00x00x00x00", "ADBLUE %", 6, 0},    // AdBlue Füllstand
    {"18xFExF7x00x06x02x00x00", "14x00x00x00x00x00x00x00", "BATTERIE", 5, 1},    // Batteriespannung
};
const SampleLine SampleKlemme15{"0CxFEx4Ex00x00x01x01x00", "00x00x00x00x01x00x00x00", "", 0, 0};
const SampleLine SampleFeldregeneration{"18xFDx7Cx00x02x01x02x00", "00x00x00x00x04x00x00x00", "", 0, 0};
const SampleLine SampleSwitch{"18xFEx40x00x01x01x00x02", "01x00x00x00x00x00x00x00", "", 0, 0};  // Arbeitsscheinwerfer

// Bytes 0..1007 as the tool's configuration editor saves that vehicle: everything it does not
// write erased (0xFF); records A at 0, B at 64, slot by slot (slot 0 = display line 1, 1 =
// KLEMME15, 2 = FELDREGENERATION, 3..7 = lines 2..6); the switch input at 928 and 936; option
// bits at 128 (display with ignition off, undervoltage warning); the undervoltage threshold at
// 136 (168: 11.5 V); values X at 137 and Y at 145 per slot, 0xFF for slots 1 and 2; speed 2 at
// 153; switching every 5 seconds at 154; the line texts from 512, eight bytes each.
Bytes sampleConfiguration()
{
    Bytes config(ConfigSize, 0xFF);
    const auto put = [&](std::size_t offset, const char* row) {
        const auto bytes = record(row);
        std::copy(bytes.begin(), bytes.end(), config.begin() + static_cast<std::ptrdiff_t>(offset));
    };
    for (std::size_t slot = 0; slot < 8; ++slot) {
        const SampleLine& line = slot == 0   ? SampleDisplay[0]
                                 : slot == 1 ? SampleKlemme15
                                 : slot == 2 ? SampleFeldregeneration
                                             : SampleDisplay[slot - 2];
        put(8 * slot, line.recordA);
        put(64 + 8 * slot, line.recordB);
        if (slot == 1 || slot == 2) continue;
        config[137 + slot] = line.x;
        config[145 + slot] = line.y;
    }
    put(928, SampleSwitch.recordA);
    put(936, SampleSwitch.recordB);
    config[128] = 0x03;
    config[136] = 168;
    config[153] = 2;
    config[154] = 5;
    for (std::size_t k = 0; k < 6; ++k) {
        const std::string text = SampleDisplay[k].text;
        std::copy(text.begin(), text.end(), config.begin() + static_cast<std::ptrdiff_t>(512 + 8 * k));
    }
    return config;
}

}  // namespace

std::chrono::nanoseconds wireTime(std::size_t byteCount, std::uint32_t baud)
{
    // Rounded up, so that at this time the last of the bytes has really arrived.
    const std::int64_t b = baud;
    const std::int64_t bitNs = static_cast<std::int64_t>(byteCount) * BitsPerByte * 1'000'000'000LL;
    return std::chrono::nanoseconds((bitNs + b - 1) / b);
}

DeviceModel::DeviceModel() : image_(wire::ImageSize, 0), dataBlock_(wire::DataBlockSize, 0)
{
    // A configured controller: the sample tractor's display set-up. Byte 127 (the last byte of
    // line 6's record B) is 0, not the older layout's marker 5.
    setConfiguration(sampleConfiguration());
    setSerial(0x1A2B3C4D);
    setLayout(180);
    setHardware(3);
    setControllerType(1);
    setFirmware(166);

    for (std::size_t i = 0; i < 128; ++i)
        dataBlock_[i] = static_cast<std::uint8_t>((i * 13 + 5) % 251);
    setManufacturingDate(2023, 11, 5);
    setDataSerialByte(0x0A);
    setLambdaCalibration(0x003C);
}

void DeviceModel::setConfiguration(const Bytes& data)
{
    if (data.size() > ConfigSize) throw std::out_of_range("configuration longer than 1008 bytes");
    std::copy(data.begin(), data.end(), image_.begin());
}

void DeviceModel::setImageByte(std::size_t position, std::uint8_t value)
{
    if (position >= ChecksumPos) throw std::out_of_range("image position past 1026");
    image_[position] = value;
}

void DeviceModel::setSerial(std::uint32_t serial)
{
    for (std::size_t i = 0; i < 4; ++i)
        image_[SerialPos + i] = static_cast<std::uint8_t>(serial >> (24 - 8 * i));
}

void DeviceModel::setLayout(std::uint8_t value) { image_[LayoutPos] = value; }
void DeviceModel::setHardware(std::uint8_t value) { image_[HardwarePos] = value; }
void DeviceModel::setControllerType(std::uint8_t value) { image_[TypePos] = value; }

void DeviceModel::setFirmware(std::uint16_t value)
{
    image_[FirmwarePos] = static_cast<std::uint8_t>(value & 0xFF);
    image_[FirmwarePos + 1] = static_cast<std::uint8_t>(value >> 8);
}

Bytes DeviceModel::image() const
{
    Bytes out = image_;
    out[ChecksumPos] = sum8(out, 1026);
    return out;
}

void DeviceModel::setDataBlockByte(std::size_t position, std::uint8_t value)
{
    if (position >= 128) throw std::out_of_range("data block position past 127");
    dataBlock_[position] = value;
}

void DeviceModel::setManufacturingDate(int year, int month, int day)
{
    dataBlock_[0] = static_cast<std::uint8_t>(year - 2000 + 200);
    dataBlock_[1] = static_cast<std::uint8_t>(month);
    dataBlock_[2] = static_cast<std::uint8_t>(day);
}

void DeviceModel::setDataSerialByte(std::uint8_t value) { dataBlock_[3] = value; }

void DeviceModel::setLambdaCalibration(std::uint16_t value)
{
    dataBlock_[6] = static_cast<std::uint8_t>(value & 0xFF);
    dataBlock_[7] = static_cast<std::uint8_t>(value >> 8);
}

Bytes DeviceModel::dataBlock() const
{
    Bytes out = dataBlock_;
    out[128] = sum8(out, 128);
    return out;
}

void DeviceModel::setWord(std::uint16_t value) { word_ = value; }
void DeviceModel::setResetDelay(Clock::duration delay) { resetDelay_ = delay; }
void DeviceModel::setHandshakeDelay(Clock::duration delay) { handshakeDelay_ = delay; }
void DeviceModel::setLineRate(bool on) { lineRate_ = on; }
void DeviceModel::setSilent(bool on) { silent_ = on; }

void DeviceModel::setFaults(Request request, const AnswerFaults& faults)
{
    faults_[index(request)] = faults;
    ignoredInRow_[index(request)] = 0;
    garbageSent_[index(request)] = 0;
}

AnswerFaults DeviceModel::faults(Request request) const { return faults_[index(request)]; }

void DeviceModel::setBootFaults(const BootFaults& faults)
{
    bootFaults_ = faults;
    naksLeft_ = faults.nakBlock;
    garbledDone_ = false;
    unplugArmed_ = false;
}

void DeviceModel::unplug()
{
    if (unplugged_) return;
    out_.clear();
    emitUnplug(Clock::time_point{});
}

int DeviceModel::requestCount(Request request) const { return requests_[index(request)]; }

void DeviceModel::receive(const Bytes& bytes, Clock::time_point arrival)
{
    for (std::uint8_t b : bytes) receive(b, arrival);
}

void DeviceModel::receive(std::uint8_t byte, Clock::time_point t)
{
    if (unplugged_) return;
    if (unplugArmed_) {
        // The tool has gone on after the last ACK: that is when the cable comes out.
        unplugArmed_ = false;
        emitUnplug(t);
        return;
    }
    received_.push_back(byte);
    if (silent_) return;
    switch (mode_) {
    case Mode::Command: onCommandByte(byte, t); break;
    case Mode::Bootloader: onBootByte(byte, t); break;
    case Mode::Tunnel: onTunnelByte(byte, t); break;
    }
}

bool DeviceModel::takesRequest(Request request)
{
    const std::size_t i = index(request);
    ++requests_[i];
    const AnswerFaults& f = faults_[i];
    if (f.silent) return false;
    if (++ignoredInRow_[i] < f.echoFromRequest) return false;
    ignoredInRow_[i] = 0;
    return true;
}

void DeviceModel::onCommandByte(std::uint8_t byte, Clock::time_point t)
{
    // Restarting after a request: the controller does not listen until its answer is out.
    // Terminal output going out does not keep it from listening.
    if (restarting()) return;

    const bool modeByte = byte == wire::FirmwareMode || byte == wire::ConfigurationMode;
    if (byte == Cr) {
        onLine(t);
        return;
    }
    if (isText(byte) && !(modeByte && line_.empty())) {
        if (line_.size() < MaxLine) line_.push_back(static_cast<char>(byte));
        return;
    }

    switch (byte) {
    case wire::Identify:
        line_.clear();
        if (takesRequest(Request::Identify)) answer(Request::Identify, byte, image(), t);
        break;
    case wire::DataBlock:
        line_.clear();
        if (takesRequest(Request::DataBlock)) answer(Request::DataBlock, byte, dataBlock(), t);
        break;
    case wire::Word:
        line_.clear();
        if (takesRequest(Request::Word))
            answer(Request::Word, byte,
                   Bytes{static_cast<std::uint8_t>(word_ & 0xFF), static_cast<std::uint8_t>(word_ >> 8)},
                   t);
        break;
    case wire::FirmwareMode:
    case wire::ConfigurationMode:
        if (takesRequest(Request::Bootloader)) {
            answer(Request::Bootloader, byte, Bytes{}, t);
            mode_ = Mode::Bootloader;
            boot_ = BootReport{};
            boot_.mode = byte;
            naksLeft_ = bootFaults_.nakBlock;
            garbledDone_ = false;
            frame_.clear();
            if (!bootFaults_.noHandshake) sendOut(Bytes{wire::Nak}, t, handshakeDelay_);
        }
        break;
    default:
        break;  // LF, other control bytes, bytes above 0x7E
    }
}

void DeviceModel::answer(Request request, std::uint8_t echo, Bytes reply, Clock::time_point t)
{
    dropTerminalOutput();  // the restart
    const std::size_t i = index(request);
    const AnswerFaults& f = faults_[i];
    Bytes first;
    if (!f.garbageBeforeEcho.empty() &&
        (f.garbageRequests < 0 || garbageSent_[i] < f.garbageRequests)) {
        ++garbageSent_[i];
        first = f.garbageBeforeEcho;
    }
    first.push_back(f.echoByte.value_or(echo));
    sendOut(std::move(first), t);

    if (reply.empty()) return;
    if (f.wrongChecksum) reply.back() = static_cast<std::uint8_t>(reply.back() + 1);
    if (f.shortAnswer && *f.shortAnswer < reply.size()) reply.resize(*f.shortAnswer);
    if (!reply.empty()) sendOut(std::move(reply), t, resetDelay_);
    if (f.unplugAfterAnswer) emitUnplug(t);
}

void DeviceModel::onBootByte(std::uint8_t byte, Clock::time_point t)
{
    if (frame_.empty()) {
        switch (byte) {
        case wire::Soh:
            frame_.push_back(byte);
            frameStart_ = t;
            break;
        case wire::Eot:
            boot_.complete = true;
            mode_ = Mode::Command;
            break;
        case wire::Can:
            boot_.cancelled = true;
            mode_ = Mode::Command;
            break;
        default:
            break;  // stray mode bytes from the tool's reset loop and the like
        }
        return;
    }
    frame_.push_back(byte);
    if (frame_.size() == wire::FrameSize) checkFrame(t);
}

void DeviceModel::checkFrame(Clock::time_point t)
{
    const int n = boot_.blocksAccepted + 1;
    ReceivedFrame rec{n, frame_, std::nullopt};
    const bool valid = frame_[1] == expectedBlockByte(n) && frame_[2] == expectedComplement(n) &&
                       frame_[131] == expectedFrameChecksum(n, frame_);

    std::optional<std::uint8_t> reply;
    bool keep = false;
    if (bootFaults_.silentFromBlock > 0 && n >= bootFaults_.silentFromBlock) {
        // no answer
    } else if (bootFaults_.garbledBlock == n && !garbledDone_) {
        garbledDone_ = true;
        reply = bootFaults_.garbledByte;
    } else if (!valid) {
        reply = wire::Nak;
    } else if (auto it = naksLeft_.find(n); it != naksLeft_.end() && it->second > 0) {
        --it->second;
        reply = wire::Nak;
    } else {
        reply = wire::Ack;
        keep = true;
    }

    if (keep) {
        boot_.image.insert(boot_.image.end(), frame_.begin() + 3, frame_.begin() + 131);
        ++boot_.blocksAccepted;
        if (bootFaults_.unplugAfterBlock == n) unplugArmed_ = true;
    }
    if (reply) {
        if (*reply == wire::Nak) ++boot_.naks;
        // On a real line the answer cannot leave before the last byte of the frame has arrived.
        const Clock::time_point earliest =
            lineRate_ ? std::max(t, frameStart_ + wireTime(wire::FrameSize)) : t;
        sendOut(Bytes{*reply}, earliest);
    }
    rec.answer = reply;
    boot_.frames.push_back(std::move(rec));
    frame_.clear();
}

void DeviceModel::sendOut(Bytes bytes, Clock::time_point earliest, Clock::duration gap)
{
    Emission e;
    e.bytes = std::move(bytes);
    e.earliest = earliest;
    e.gap = gap;
    out_.push_back(std::move(e));
}

void DeviceModel::emitUnplug(Clock::time_point earliest)
{
    Emission e;
    e.earliest = earliest;
    e.unplugAfter = true;
    out_.push_back(std::move(e));
}

// Line k is 24 to 80 characters long and ends CR LF, every sixteenth a bare CR. The last line
// is cut or stretched so that the text ends CR LF and no piece of less than a line end is
// left for a line after it.
void DeviceModel::TextCursor::append(Bytes& out, std::size_t count)
{
    while (count > 0 && produced < total) {
        if (pos == current.size()) {
            const std::size_t left = total - produced;
            const std::size_t natural = 24 + static_cast<std::size_t>(line * 37 % 57);
            const bool bare = line % 16 == 15;
            const std::size_t full = natural + (bare ? 1 : 2);
            if (left >= full + 2 || (left == full && !bare))
                current = streamLine(line, natural) + (bare ? "\r" : "\r\n");
            else if (left >= 2)
                current = streamLine(line, left - 2) + "\r\n";
            else
                current = streamLine(line, left);
            pos = 0;
            ++line;
        }
        const std::size_t n = std::min(count, current.size() - pos);
        out.insert(out.end(), current.begin() + static_cast<std::ptrdiff_t>(pos),
                   current.begin() + static_cast<std::ptrdiff_t>(pos + n));
        pos += n;
        produced += n;
        count -= n;
    }
}

Bytes DeviceModel::streamPattern(std::size_t bytes)
{
    TextCursor cursor;
    cursor.total = bytes;
    Bytes out;
    out.reserve(bytes);
    cursor.append(out, bytes);
    return out;
}

Bytes DeviceModel::banner() const
{
    std::size_t none = 0;
    const std::string text = "VELTRO CONTROLLER\r\n" + terminalAnswer("ser", none) + terminalAnswer("ver", none) +
                             "HELP: COMMANDS\r\n";
    return Bytes(text.begin(), text.end());
}

void DeviceModel::setStreamOnOpen(std::size_t bytes) { streamOnOpen_ = bytes; }

void DeviceModel::streamText(std::size_t bytes, Clock::time_point now)
{
    if (!unplugged_) sendStream(bytes, now);
}

bool DeviceModel::streaming() const
{
    return std::any_of(out_.begin(), out_.end(), [](const Emission& e) { return e.text.has_value(); });
}

bool DeviceModel::restarting() const
{
    return std::any_of(out_.begin(), out_.end(), [](const Emission& e) { return !e.terminal; });
}

void DeviceModel::dropTerminalOutput()
{
    out_.erase(std::remove_if(out_.begin(), out_.end(), [](const Emission& e) { return e.terminal; }),
               out_.end());
}

void DeviceModel::sendText(const std::string& text, Clock::time_point t)
{
    Emission e;
    e.bytes.assign(text.begin(), text.end());
    e.earliest = t;
    e.terminal = true;
    out_.push_back(std::move(e));
}

void DeviceModel::sendStream(std::size_t bytes, Clock::time_point t)
{
    if (bytes == 0) return;
    Emission e;
    e.text.emplace();
    e.text->total = bytes;
    e.earliest = t;
    e.terminal = true;
    e.paced = true;
    out_.push_back(std::move(e));
}

// The answer's lines to a terminal line; `stream` is set to the stream text that follows them.
std::string DeviceModel::terminalAnswer(const std::string& line, std::size_t& stream) const
{
    const std::string command = trimmedLower(line);
    char text[96];
    stream = 0;
    if (command.empty()) {
        const Bytes b = banner();
        stream = streamOnOpen_;
        return std::string(b.begin(), b.end());
    }
    if (command == "help")
        return "HELP      THIS LIST\r\n"
               "VER       FIRMWARE, HARDWARE, LAYOUT, TYPE\r\n"
               "SER       SERIAL NUMBER\r\n"
               "STREAM N  N BYTES OF TEST TEXT\r\n";
    if (command == "ver") {
        std::snprintf(text, sizeof text, "FIRMWARE %u HW %u LAYOUT %u TYPE %u\r\n",
                      unsigned(image_[FirmwarePos] | image_[FirmwarePos + 1] << 8), unsigned(image_[HardwarePos]),
                      unsigned(image_[LayoutPos]), unsigned(image_[TypePos]));
        return text;
    }
    if (command == "ser") {
        std::snprintf(text, sizeof text, "SERIAL %02X%02X%02X%02X\r\n", unsigned(image_[SerialPos]),
                      unsigned(image_[SerialPos + 1]), unsigned(image_[SerialPos + 2]),
                      unsigned(image_[SerialPos + 3]));
        return text;
    }
    if (command.rfind("stream ", 0) == 0) {
        const std::string n = trimmedLower(command.substr(7));
        if (!n.empty() && n.size() <= 9 && n.find_first_not_of("0123456789") == std::string::npos &&
            std::stoul(n) <= MaxTypedStream) {
            stream = std::stoul(n);
            return {};
        }
    }
    return "OK " + line + "\r\n";
}

void DeviceModel::onLine(Clock::time_point t)
{
    lines_.push_back(line_);
    std::size_t stream = 0;
    const std::string answer = terminalAnswer(line_, stream);
    line_.clear();
    sendText("\r\n" + answer, t);
    sendStream(stream, t);
    sendText("> ", t);
}

void DeviceModel::setTunnelMode(bool on)
{
    if (on == (mode_ == Mode::Tunnel)) return;
    if (on) {
        line_.clear();
        frame_.clear();
        dropTerminalOutput();
        tunnelOpen_ = false;
        tunnelBody_.clear();
        mode_ = Mode::Tunnel;
    } else {
        out_.erase(std::remove_if(out_.begin(), out_.end(), [](const Emission& e) { return e.tunnel; }),
                   out_.end());
        mode_ = Mode::Command;
    }
    rateStart_.reset();
}

bool DeviceModel::tunnelMode() const { return mode_ == Mode::Tunnel; }

void DeviceModel::setTunnelBaud(std::uint32_t baud) { tunnelBaud_ = baud > 0 ? baud : wire::Baud; }

void DeviceModel::setTunnelFrameRate(double framesPerSecond)
{
    frameRate_ = framesPerSecond > 0 ? framesPerSecond : 0;
    rateStart_.reset();
}

void DeviceModel::onTunnelByte(std::uint8_t byte, Clock::time_point t)
{
    if (tunnelBody_.empty() && byte == wire::TunnelMark) {
        ++tunnelPackets_;
        tunnelOpen_ = true;
    } else if (!tunnelOpen_) {
        ++tunnelStray_;
    } else {
        tunnelBody_.push_back(byte);
        if (tunnelBody_.size() == wire::TunnelBodySize) {
            if (tunnelBodies_.size() == MaxBodiesKept) {
                tunnelBodies_.pop_front();
                tunnelBodyTimes_.pop_front();
            }
            auto& body = tunnelBodies_.emplace_back();
            std::copy(tunnelBody_.begin(), tunnelBody_.end(), body.begin());
            tunnelBodyTimes_.push_back(t);
            ++tunnelBodyCount_;
            tunnelBody_.clear();
        }
    }
}

Bytes DeviceModel::tunnelFrameBody(std::uint32_t k)
{
    Bytes body{static_cast<std::uint8_t>(k >> 24), static_cast<std::uint8_t>(k >> 16),
               static_cast<std::uint8_t>(k >> 8), static_cast<std::uint8_t>(k), 8};
    for (std::uint32_t j = 0; j < 8; ++j) body.push_back(static_cast<std::uint8_t>(k * 8 + j));
    if (k % 7 == 6) {
        body[5] = 'C';
        body[6] = 'A';
        body[7] = 'N';
    }
    body.push_back(wire::TunnelMark);
    body.push_back(wire::TunnelFrame);
    return body;
}

void DeviceModel::sendTunnel(Bytes bytes, Clock::time_point earliest, std::uint32_t firstFrame,
                             std::size_t frameCount)
{
    Emission e;
    e.bytes = std::move(bytes);
    e.earliest = earliest;
    e.paced = true;
    e.tunnel = true;
    e.firstFrame = firstFrame;
    e.frameCount = frameCount;
    out_.push_back(std::move(e));
}

void DeviceModel::tunnelBurst(int n, Clock::time_point now)
{
    if (mode_ != Mode::Tunnel || silent_ || unplugged_ || n <= 0) return;
    Bytes bytes;
    bytes.reserve(static_cast<std::size_t>(n) * wire::TunnelRecordSize);
    const std::uint32_t first = nextFrameNumber_;
    for (int i = 0; i < n; ++i) {
        bytes.push_back(wire::TunnelMark);
        bytes.push_back(wire::TunnelFrame);
        const Bytes body = tunnelFrameBody(nextFrameNumber_++);
        bytes.insert(bytes.end(), body.begin(), body.end());
    }
    sendTunnel(std::move(bytes), now, first, static_cast<std::size_t>(n));
}

void DeviceModel::tunnelChecksumError(Clock::time_point now)
{
    if (mode_ != Mode::Tunnel || silent_ || unplugged_) return;
    Bytes bytes(wire::TunnelRecordSize, 0);
    bytes[0] = wire::TunnelMark;
    bytes[1] = wire::TunnelChecksumError;
    sendTunnel(std::move(bytes), now);
}

void DeviceModel::tunnelSendError(std::uint8_t code, Clock::time_point now)
{
    if (mode_ != Mode::Tunnel || silent_ || unplugged_) return;
    Bytes bytes(wire::TunnelRecordSize, 0);
    bytes[0] = wire::TunnelMark;
    bytes[1] = wire::TunnelSendError;
    bytes.back() = code;
    sendTunnel(std::move(bytes), now);
}

std::vector<Bytes> DeviceModel::tunnelBodies() const
{
    std::vector<Bytes> bodies;
    bodies.reserve(tunnelBodies_.size());
    for (const auto& b : tunnelBodies_) bodies.emplace_back(b.begin(), b.end());
    return bodies;
}

std::vector<Clock::time_point> DeviceModel::tunnelBodyTimes() const
{
    return {tunnelBodyTimes_.begin(), tunnelBodyTimes_.end()};
}

std::vector<Bytes> DeviceModel::tunnelSentBodies() const
{
    std::vector<Bytes> bodies;
    bodies.reserve(tunnelSent_.size());
    for (std::uint32_t k : tunnelSent_) bodies.push_back(tunnelFrameBody(k));
    return bodies;
}

Clock::time_point DeviceModel::rateFrameDue(std::uint64_t i) const
{
    return *rateStart_ +
           std::chrono::round<Clock::duration>(std::chrono::duration<double>(static_cast<double>(i) / frameRate_));
}

// Frame i of the rate is due i/rate after the first, counted from the start so that late
// wake-ups do not make the rate drift. A controller that cannot get its frames onto the line
// loses the new ones, as its receive buffer would.
void DeviceModel::queueDueFrames(Clock::time_point now)
{
    if (mode_ != Mode::Tunnel || frameRate_ <= 0 || unplugged_) return;
    if (!rateStart_) {
        rateStart_ = now;
        rateFrames_ = 0;
    }
    for (Clock::time_point at = rateFrameDue(rateFrames_); at <= now; at = rateFrameDue(++rateFrames_)) {
        const std::uint32_t k = nextFrameNumber_++;
        const auto waiting = std::count_if(out_.begin(), out_.end(), [](const Emission& e) { return e.tunnel; });
        if (silent_ || static_cast<std::size_t>(waiting) >= MaxTunnelBacklog) continue;
        Bytes bytes{wire::TunnelMark, wire::TunnelFrame};
        const Bytes body = tunnelFrameBody(k);
        bytes.insert(bytes.end(), body.begin(), body.end());
        sendTunnel(std::move(bytes), at, k, 1);
    }
}

DeviceModel::Output DeviceModel::take(Clock::time_point now)
{
    queueDueFrames(now);
    Output result = takeQueued(now);
    if (mode_ == Mode::Tunnel && frameRate_ > 0 && rateStart_ && !unplugged_) {
        const Clock::time_point next = rateFrameDue(rateFrames_);
        if (!result.wake || next < *result.wake) {
            result.wake = next;
            result.looseWake = true;
        }
    }
    return result;
}

DeviceModel::Output DeviceModel::takeQueued(Clock::time_point now)
{
    Output result;
    while (!out_.empty()) {
        Emission& e = out_.front();
        const bool paced = lineRate_ || e.paced;
        const std::size_t size = e.size();
        if (!e.started) {
            e.started = true;
            e.start = std::max(e.earliest, lastEnd_ + e.gap);
            if (e.tunnel) e.baud = tunnelBaud_;
        }
        // On a paced line nothing can be handed over before the first byte has crossed it;
        // waking any earlier would only cost a second wake-up. Stream text waits for a piece,
        // a tunnel record or burst for all of it: the tool gets it in one write.
        const auto nextDue = [&] {
            if (!paced) return e.start;
            if (e.tunnel) return e.start + wireTime(size, e.baud);
            return e.start + wireTime(e.text ? std::min(size, e.sent + StreamPiece) : e.sent + 1, e.baud);
        };
        // Bulk text and tunnel records: waking a little late costs nothing.
        const bool loose = e.text.has_value() || e.tunnel;
        if (now < nextDue()) {
            result.wake = nextDue();
            result.looseWake = loose;
            return result;
        }
        std::size_t due = size;
        if (paced) {
            const auto elapsed =
                std::chrono::duration_cast<std::chrono::nanoseconds>(now - e.start).count();
            due = std::min<std::size_t>(
                due, static_cast<std::size_t>(elapsed * std::int64_t{e.baud} / (BitsPerByte * 1'000'000'000LL)));
        }
        if (due > e.sent) {
            if (e.text) {
                e.text->append(result.bytes, due - e.sent);
                streamed_ += due - e.sent;
            } else {
                result.bytes.insert(result.bytes.end(), e.bytes.begin() + static_cast<std::ptrdiff_t>(e.sent),
                                    e.bytes.begin() + static_cast<std::ptrdiff_t>(due));
            }
            e.sent = due;
        }
        if (e.sent < size) {
            result.wake = nextDue();
            result.looseWake = loose;
            return result;
        }
        // Gaps count from when the bytes were handed over, so a late wake-up never shortens them.
        // Tunnel records have no gaps: the next starts on the wire right behind this one, so
        // late wake-ups do not slow a queue of them down (they then share a write).
        lastEnd_ = e.tunnel ? e.start + wireTime(size, e.baud) : now;
        // A tunnel emission is handed over whole, so it ends the bytes taken so far.
        const std::size_t first = result.bytes.size() - size;
        for (std::size_t i = 0; i < e.frameCount; ++i) {
            const std::uint32_t k = e.firstFrame + static_cast<std::uint32_t>(i);
            if (tunnelSent_.size() == MaxSentKept) tunnelSent_.pop_front();
            tunnelSent_.push_back(k);
            result.frames.push_back({k, first + (i + 1) * wire::TunnelRecordSize});
        }
        const bool unplugNow = e.unplugAfter;
        out_.pop_front();
        if (unplugNow) {
            out_.clear();
            unplugged_ = true;
            result.unplug = true;
            return result;
        }
    }
    return result;
}

}  // namespace veltro::sim
