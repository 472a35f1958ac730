#include "remote/tunnel_relay.h"

#include "util/hex.h"

#include <cmath>

namespace veltro {

namespace {
constexpr char kRecordStart = 0x7D;    // "}"
constexpr char kFrame = 'x';
constexpr char kChecksumError = char(0xF0);
constexpr char kSendError = char(0xC8);
constexpr std::string_view kTag = "CAN";

// The n-th byte (from 1) of a record; a position beyond its end reads 0.
std::uint8_t byteAt(std::string_view record, std::size_t position)
{
    return position <= record.size() ? std::uint8_t(record[position - 1]) : 0;
}

template <typename T>
void append(std::vector<T>& to, std::vector<T>&& from)
{
    for (T& item : from)
        to.push_back(std::move(item));
}

int lineTimeMs(std::size_t bytes, int baud)
{
    const double bitsPerSecond = baud > 0 ? baud : 9600;
    return int(std::ceil(double(bytes) * 10 * 1000.0 / bitsPerSecond));
}
} // namespace

void RelayOutput::add(RelayOutput&& more)
{
    deviceStart = deviceStart || more.deviceStart;
    append(toDevice, std::move(more.toDevice));
    append(toServer, std::move(more.toServer));
    append(view, std::move(more.view));
    append(file, std::move(more.file));
    txLamp = txLamp || more.txLamp;
    rxLamp = rxLamp || more.rxLamp;
    waiting = waiting || more.waiting;
    serverWaiting = serverWaiting || more.serverWaiting;
}

RelayOutput TunnelRelay::serialRead(std::string_view bytes, bool connected, long room)
{
    RelayOutput out;
    out.txLamp = true;
    room_ = room;
    const std::string data = serialPending_ + std::string(bytes);
    serialPending_.clear();
    std::string_view rest = data;
    while (!rest.empty()) {
        if (rest.front() != kRecordStart) {
            // Bytes that start no record are one, up to where the next one starts.
            const std::size_t end = std::min(rest.find(kRecordStart), rest.size());
            out.add(handleRecord(rest.substr(0, end), connected));
            rest.remove_prefix(end);
        } else if (rest.size() < kRecordSize) {
            serialPending_ = std::string(rest);
            out.waiting = true;
            break;
        } else {
            out.add(handleRecord(rest.substr(0, kRecordSize), connected));
            rest.remove_prefix(kRecordSize);
        }
    }
    return out;
}

RelayOutput TunnelRelay::serialWaitOver(bool connected, long room)
{
    room_ = room;
    const std::string record = std::move(serialPending_);
    serialPending_.clear();
    return record.empty() ? RelayOutput{} : handleRecord(record, connected);
}

RelayOutput TunnelRelay::handleRecord(std::string_view record, bool connected)
{
    RelayOutput out;
    const std::uint8_t b1 = byteAt(record, 1), b2 = byteAt(record, 2);
    const std::string raw(record);
    // The four tests are independent, as the device tool made them.
    if (b1 == std::uint8_t(kRecordStart) && b2 == std::uint8_t(kFrame)) {
        const std::string_view body = record.substr(2, kBodySize);
        if (!connected) {
            out.file.push_back("NO TX:" + raw);
            out.view.push_back(HexBytesBlank(reinterpret_cast<const std::uint8_t*>(body.data()), body.size()));
            ++counts_.refused;
        } else if (room_ <= 0) {
            // The server takes nothing for long: the frame is lost, and said once a stretch.
            if (!dropping_) {
                out.view.push_back("RECEIVE-BUFFER OVERUN");
                out.file.push_back("RECEIVE-BUFFER OVERUN");
            }
            dropping_ = true;
            ++counts_.lost;
        } else {
            out.toServer.push_back(std::string(kTag) + std::string(body));
            out.file.push_back("TX TO SERVER:" + raw);
            ++counts_.relayed;
            --room_;
            dropping_ = false;
        }
    }
    if (b1 == std::uint8_t(kRecordStart) && b2 == std::uint8_t(kChecksumError)) {
        out.view.push_back("CKS-ERROR");
        out.file.push_back("CKS-ERROR");
    }
    if (b1 == std::uint8_t(kRecordStart) && b2 == std::uint8_t(kSendError)) {
        const std::string code = std::to_string(byteAt(record, kRecordSize));
        out.view.push_back("CAN TX-ERROR CLIENT: " + code);
        out.file.push_back("CAN TX-ERROR" + code);
    }
    // A command error needs both bytes to differ: "}" followed by anything, or anything
    // followed by "x", never is one.
    if (b2 != std::uint8_t(kFrame) && b1 != std::uint8_t(kRecordStart)) {
        out.view.push_back("COMMAND-ERROR: " + raw);
        out.file.push_back("COMMAND-ERROR:" + raw);
    }
    return out;
}

void TunnelRelay::toDevice(RelayOutput& out, std::string body, bool loopback)
{
    if (loopback)
        out.toServer.push_back(std::string(kTag) + body);
    out.toDevice.push_back(std::move(body));
}

RelayOutput TunnelRelay::serverChunk(std::string_view bytes, bool loopback)
{
    RelayOutput out;
    out.rxLamp = true;
    const std::string data = serverPending_ + std::string(bytes);
    serverPending_.clear();
    std::size_t pos = 0;
    for (;;) {
        const std::size_t tag = data.find(kTag, pos);
        if (tag == std::string::npos) {
            // Bytes before a message are skipped, but the end may be the first letters of one.
            for (std::size_t keep = kTag.size() - 1; keep > 0; --keep) {
                if (data.size() >= pos + keep && data.compare(data.size() - keep, keep, kTag.substr(0, keep)) == 0) {
                    serverPending_ = data.substr(data.size() - keep);
                    break;
                }
            }
            break;
        }
        const std::size_t start = tag + kTag.size();
        if (data.size() - start < kBodySize) {
            serverPending_ = data.substr(tag);
            break;
        }
        toDevice(out, data.substr(start, kBodySize), loopback);
        pos = start + kBodySize;
    }
    // One 0x7D per chunk before its bodies; a chunk that only started a message sends nothing
    // yet, so the 0x7D comes with the body.
    out.deviceStart = !out.toDevice.empty() || serverPending_.empty();
    out.serverWaiting = !serverPending_.empty();
    return out;
}

RelayOutput TunnelRelay::serverWaitOver(bool loopback)
{
    RelayOutput out;
    const std::string pending = std::move(serverPending_);
    serverPending_.clear();
    // A message cut short goes out with what it has; the first letters of a tag are no message.
    if (pending.size() >= kTag.size()) {
        out.deviceStart = true;
        toDevice(out, pending.substr(kTag.size()), loopback);
    }
    return out;
}

RelayOutput TunnelRelay::discarded(long bodies)
{
    RelayOutput out;
    if (bodies <= 0)
        return out;
    counts_.lost += bodies;
    const std::string line = "NICHT ZUM GER\xC4T: " + std::to_string(bodies) + " Frames verworfen";
    out.view.push_back(line);
    out.file.push_back(line);
    return out;
}

void TunnelRelay::reset()
{
    serialPending_.clear();
    serverPending_.clear();
    dropping_ = false;
}

int TunnelRelay::recordWaitMs(int baud)
{
    return lineTimeMs(kRecordSize, baud) + 2;
}

int TunnelRelay::messageWaitMs(int baud)
{
    return lineTimeMs(kMessageSize, baud) + 20;
}

} // namespace veltro
