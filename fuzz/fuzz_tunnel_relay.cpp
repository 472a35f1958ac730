// The tunnel relay fed streams of well-formed device records and server messages mixed with
// noise, cut into reads and chunks at any points. The input drives both: its bytes pick the
// items (frame, error record, noise, server message), their contents and the cut points.
// Every frame is relayed exactly once and in order, whatever the cuts; with a server link
// that fills up, the frames that go out are still in order and relayed + lost adds up; error
// records are all reported; every server message reaches the device once, whole and in order,
// after a 0x7D in the same write, and comes back in order with loopback.
#include "fuzz_check.h"
#include "remote/tunnel_relay.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

using namespace veltro;

namespace {

class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
    bool done() const { return pos_ >= size_; }
    std::uint8_t next() { return pos_ < size_ ? data_[pos_++] : 0; }
    std::string bytes(std::size_t n)
    {
        std::string out;
        for (std::size_t i = 0; i < n; ++i)
            out += char(next());
        return out;
    }
    // Cut points after the stream is made: cycle through the input again.
    std::size_t cut()
    {
        if (size_ == 0)
            return 17;
        return 1 + data_[cutPos_++ % size_] % 40;
    }

private:
    const std::uint8_t* data_;
    std::size_t size_;
    std::size_t pos_ = 0;
    std::size_t cutPos_ = 0;
};

std::vector<std::string> cutInto(const std::string& stream, Input& in)
{
    std::vector<std::string> pieces;
    for (std::size_t pos = 0; pos < stream.size();) {
        const std::size_t n = std::min(in.cut(), stream.size() - pos);
        pieces.push_back(stream.substr(pos, n));
        pos += n;
    }
    return pieces;
}

int count(const std::vector<std::string>& lines, const std::string& prefix)
{
    return int(std::count_if(lines.begin(), lines.end(), [&](const std::string& l) { return l.rfind(prefix, 0) == 0; }));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input in(data, size);
    std::string device, server;
    std::vector<std::string> frames, messages;
    int checksumErrors = 0, sendErrors = 0;
    while (!in.done()) {
        switch (in.next() % 5) {
        case 0:
            frames.push_back(in.bytes(15));
            device += "}x" + frames.back();
            break;
        case 1: {
            const bool checksum = in.next() & 1;
            device += std::string("}") + (checksum ? char(0xF0) : char(0xC8)) + in.bytes(15);
            ++(checksum ? checksumErrors : sendErrors);
            break;
        }
        case 2: { // noise between device records: anything but a record start
            std::string noise = in.bytes(1 + in.next() % 8);
            std::replace(noise.begin(), noise.end(), '}', '~');
            device += noise;
            break;
        }
        case 3:
            messages.push_back(in.bytes(15));
            server += "CAN" + messages.back();
            break;
        default: { // noise between server messages: without an "N" it never forms a tag
            std::string noise = in.bytes(1 + in.next() % 8);
            std::replace(noise.begin(), noise.end(), 'N', 'n');
            server += noise;
            break;
        }
        }
    }
    const std::vector<std::string> reads = cutInto(device, in), chunks = cutInto(server, in);

    // Device -> server, a link that takes everything.
    {
        TunnelRelay relay;
        RelayOutput all;
        for (const std::string& read : reads)
            all.add(relay.serialRead(read, true));
        all.add(relay.serialWaitOver(true));
        FUZZ_CHECK(all.toServer.size() == frames.size());
        for (std::size_t i = 0; i < frames.size(); ++i)
            FUZZ_CHECK(all.toServer[i] == "CAN" + frames[i]);
        FUZZ_CHECK(relay.counts().relayed == long(frames.size()) && relay.counts().lost == 0);
        FUZZ_CHECK(count(all.file, "TX TO SERVER:}x") == int(frames.size()));
        FUZZ_CHECK(count(all.view, "CKS-ERROR") == checksumErrors);
        FUZZ_CHECK(count(all.view, "CAN TX-ERROR CLIENT: ") == sendErrors);
    }
    // Device -> server, a link whose room comes and goes.
    {
        TunnelRelay relay;
        RelayOutput all;
        Input rooms(data, size);
        for (const std::string& read : reads)
            all.add(relay.serialRead(read, true, long(rooms.cut() % 4)));
        all.add(relay.serialWaitOver(true, 0));
        FUZZ_CHECK(relay.counts().relayed + relay.counts().lost == long(frames.size()));
        FUZZ_CHECK(long(all.toServer.size()) == relay.counts().relayed);
        FUZZ_CHECK(count(all.file, "TX TO SERVER:") == relay.counts().relayed);
        std::size_t next = 0; // the relayed frames are the frames in order, some left out
        for (const std::string& sent : all.toServer) {
            while (next < frames.size() && "CAN" + frames[next] != sent)
                ++next;
            FUZZ_CHECK(next < frames.size());
            ++next;
        }
    }
    // Server -> device, with loopback.
    {
        TunnelRelay relay;
        std::vector<std::string> bodies, looped;
        const auto take = [&](const RelayOutput& out) {
            FUZZ_CHECK(out.toDevice.empty() || out.deviceStart);
            bodies.insert(bodies.end(), out.toDevice.begin(), out.toDevice.end());
            looped.insert(looped.end(), out.toServer.begin(), out.toServer.end());
        };
        for (const std::string& chunk : chunks)
            take(relay.serverChunk(chunk, true));
        take(relay.serverWaitOver(true));
        FUZZ_CHECK(bodies == messages);
        FUZZ_CHECK(looped.size() == messages.size());
        for (std::size_t i = 0; i < messages.size(); ++i)
            FUZZ_CHECK(looped[i] == "CAN" + messages[i]);
    }
    return 0;
}
