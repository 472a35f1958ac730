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

// A read that begins like a framed record ("}x", "}" 0xC8, or a lone "}" that may become one).
bool startsFramedRecord(std::string_view rest)
{
    return rest.front() == kRecordStart && (rest.size() == 1 || rest[1] == kFrame || rest[1] == kSendError);
}

template <typename T>
void append(std::vector<T>& to, std::vector<T>&& from)
{
    for (T& item : from)
        to.push_back(std::move(item));
}
} // namespace

void RelayOutput::add(RelayOutput&& more)
{
    toDevice += more.toDevice;
    append(toServer, std::move(more.toServer));
    append(view, std::move(more.view));
    append(file, std::move(more.file));
    txLamp = txLamp || more.txLamp;
    rxLamp = rxLamp || more.rxLamp;
    waiting = waiting || more.waiting;
}

RelayOutput TunnelRelay::serialRead(std::string_view bytes, bool connected)
{
    RelayOutput out;
    out.txLamp = true;
    const std::string data = serialPending_ + std::string(bytes);
    serialPending_.clear();
    std::string_view rest = data;
    while (!rest.empty()) {
        if (!startsFramedRecord(rest)) {
            // Anything else is one record up to the end of the read, as the device tool took
            // every read.
            out.add(handleRecord(rest, connected));
            break;
        }
        if (rest.size() < kRecordSize) {
            serialPending_ = std::string(rest);
            out.waiting = true;
            break;
        }
        out.add(handleRecord(rest.substr(0, kRecordSize), connected));
        rest.remove_prefix(kRecordSize);
    }
    return out;
}

RelayOutput TunnelRelay::serialWaitOver(bool connected)
{
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
        if (connected) {
            out.toServer.push_back(std::string(kTag) + std::string(body));
            out.file.push_back("TX TO SERVER:" + raw);
            ++counts_.relayed;
        } else {
            out.file.push_back("NO TX:" + raw);
            out.view.push_back(HexBytesBlank(reinterpret_cast<const std::uint8_t*>(body.data()), body.size()));
            ++counts_.refused;
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

RelayOutput TunnelRelay::overrun(Overrun kind)
{
    RelayOutput out;
    const char* line = kind == Overrun::Receive ? "RECEIVE-BUFFER OVERUN" : "TRANSMIT-BUFFER OVERUN";
    out.view.push_back(line);
    out.file.push_back(line);
    ++counts_.lost;
    return out;
}

RelayOutput TunnelRelay::serverChunk(std::string_view bytes, bool loopback)
{
    RelayOutput out;
    out.rxLamp = true;
    const std::string data = serverPending_ + std::string(bytes);
    serverPending_.clear();
    std::string bodies;
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
        const std::string body = data.substr(start, kBodySize);
        bodies += body;
        out.file.push_back("RX FROM SERVER:" + body);
        if (loopback)
            out.toServer.push_back(std::string(kTag) + body);
        ++counts_.toDevice;
        pos = start + kBodySize;
    }
    // One 0x7D per chunk before its bodies; a chunk that only started a message sends nothing
    // yet, so the 0x7D comes with the body.
    if (!bodies.empty() || serverPending_.empty())
        out.toDevice = kRecordStart + bodies;
    return out;
}

void TunnelRelay::reset()
{
    serialPending_.clear();
    serverPending_.clear();
}

int TunnelRelay::recordWaitMs(int baud)
{
    const double bitsPerSecond = baud > 0 ? baud : 9600;
    return int(std::ceil(kRecordSize * 10 * 1000.0 / bitsPerSecond)) + 2;
}

} // namespace veltro
