#include "sim/device_model.h"

#include <algorithm>
#include <stdexcept>
#include <string>

namespace veltro::sim {

namespace {

constexpr std::int64_t BitsPerByte = 10;
constexpr std::int64_t Baud = 921600;

constexpr std::size_t SerialPos = 1008;
constexpr std::size_t LayoutPos = 1012;
constexpr std::size_t HardwarePos = 1013;
constexpr std::size_t TypePos = 1014;
constexpr std::size_t FirmwarePos = 1024;
constexpr std::size_t ChecksumPos = 1027;
constexpr std::size_t ConfigSize = 1008;

std::size_t index(Request r) { return static_cast<std::size_t>(r); }

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

std::chrono::nanoseconds wireTime(std::size_t byteCount)
{
    // Rounded up, so that at this time the last of the bytes has really arrived.
    const std::int64_t bitNs = static_cast<std::int64_t>(byteCount) * BitsPerByte * 1'000'000'000LL;
    return std::chrono::nanoseconds((bitNs + Baud - 1) / Baud);
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
    if (!out_.empty()) return;

    switch (byte) {
    case wire::Identify:
        if (takesRequest(Request::Identify)) answer(Request::Identify, byte, image(), t);
        break;
    case wire::DataBlock:
        if (takesRequest(Request::DataBlock)) answer(Request::DataBlock, byte, dataBlock(), t);
        break;
    case wire::Word:
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
        break;
    }
}

void DeviceModel::answer(Request request, std::uint8_t echo, Bytes reply, Clock::time_point t)
{
    const std::size_t i = index(request);
    const AnswerFaults& f = faults_[i];
    Bytes first;
    if (!f.garbageBeforeEcho.empty() &&
        (f.garbageRequests < 0 || garbageSent_[i] < f.garbageRequests)) {
        ++garbageSent_[i];
        first = f.garbageBeforeEcho;
    }
    first.push_back(echo);
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

DeviceModel::Output DeviceModel::take(Clock::time_point now)
{
    Output result;
    while (!out_.empty()) {
        Emission& e = out_.front();
        if (!e.started) {
            e.started = true;
            e.start = std::max(e.earliest, lastEnd_ + e.gap);
        }
        // On a paced line nothing can be handed over before the first byte has crossed it;
        // waking any earlier would only cost a second wake-up.
        const auto firstDue = lineRate_ ? e.start + wireTime(e.sent + 1) : e.start;
        if (now < firstDue) {
            result.wake = firstDue;
            return result;
        }
        std::size_t due = e.bytes.size();
        if (lineRate_) {
            const auto elapsed =
                std::chrono::duration_cast<std::chrono::nanoseconds>(now - e.start).count();
            due = std::min<std::size_t>(
                due, static_cast<std::size_t>(elapsed * Baud / (BitsPerByte * 1'000'000'000LL)));
        }
        result.bytes.insert(result.bytes.end(), e.bytes.begin() + static_cast<std::ptrdiff_t>(e.sent),
                            e.bytes.begin() + static_cast<std::ptrdiff_t>(due));
        e.sent = std::max(e.sent, due);
        if (e.sent < e.bytes.size()) {
            result.wake = lineRate_ ? e.start + wireTime(e.sent + 1) : e.start;
            return result;
        }
        // Gaps count from when the bytes were handed over, so a late wake-up never shortens them.
        lastEnd_ = now;
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
