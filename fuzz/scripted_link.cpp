#include "scripted_link.h"

#include <algorithm>

namespace veltro::fuzz {

ScriptedLink::ScriptedLink(const std::uint8_t* script, std::size_t size, Answer answer, bool openFails)
    : answer_(answer), openFails_(openFails)
{
    std::size_t pos = 0;
    auto next = [&]() -> std::uint8_t { return pos < size ? script[pos++] : 0; };
    while (pos < size) {
        const std::uint8_t op = next();
        Event e;
        const int step = op >> 3;
        e.delay = std::chrono::milliseconds(step * step * 3);
        switch (op & 7) {
        case 0:
        case 6:
            e.kind = Kind::Echo;
            break;
        case 1: {
            e.kind = Kind::Chunk;
            const std::size_t n = std::min<std::size_t>(next(), size - pos);
            e.bytes.assign(script + pos, script + pos + n);
            pos += n;
            break;
        }
        case 2:
        case 7:
            e.kind = Kind::Answer;
            e.seed = next();
            e.layout = next();
            e.flags = next();
            break;
        case 3:
            e.kind = Kind::Lose;
            break;
        default:
            e.kind = Kind::Idle;
            break;
        }
        events_.push_back(std::move(e));
    }
}

bool ScriptedLink::open()
{
    ++opens_;
    if (openFails_ || lost_) {
        error_ = "Port nicht vorhanden";
        return false;
    }
    open_ = true;
    return true;
}

bool ScriptedLink::write(const std::uint8_t* data, std::size_t size)
{
    if (!open_ || lost_) return false;
    written_.insert(written_.end(), data, data + size);
    return true;
}

std::vector<std::uint8_t> ScriptedLink::readAll()
{
    if (!open_) return {};
    Bytes out;
    out.swap(rx_);
    if (out.size() == 1 && !written_.empty() && out[0] == written_.back())
        ++loneEchoReads_;
    return out;
}

bool ScriptedLink::waitForData(Deadline deadline)
{
    if (!open_ || lost_) return false;
    const std::size_t before = rx_.size();
    while (next_ < events_.size()) {
        Event& e = events_[next_];
        if (!e.due) e.due = now_ + e.delay;
        if (*e.due > deadline) break;
        now_ = std::max(now_, *e.due);
        ++next_;
        apply(e);
        if (lost_) return false;
        if (rx_.size() > before) return true;
    }
    now_ = std::max(now_, deadline);
    return !rx_.empty();
}

void ScriptedLink::apply(const Event& e)
{
    switch (e.kind) {
    case Kind::Echo:
        if (!written_.empty()) rx_.push_back(written_.back());
        break;
    case Kind::Chunk:
        rx_.insert(rx_.end(), e.bytes.begin(), e.bytes.end());
        break;
    case Kind::Answer: {
        const Bytes a = answerBytes(e);
        rx_.insert(rx_.end(), a.begin(), a.end());
        break;
    }
    case Kind::Lose:
        lost_ = true;
        open_ = false;
        error_ = "Input/output error";
        break;
    case Kind::Idle:
        break;
    }
}

Bytes ScriptedLink::answerBytes(const Event& e) const
{
    const std::size_t size = answer_ == Answer::Image ? 1028 : answer_ == Answer::DataBlock ? 129 : 2;
    Bytes a(size);
    std::uint32_t state = e.seed * 2654435761u + 1;
    for (auto& b : a) {
        state = state * 1103515245u + 12345u;
        b = std::uint8_t(state >> 16);
    }
    // Sum of everything before the checksum byte, skipping the byte between image and sum.
    std::size_t sumEnd = size - 1;
    if (answer_ == Answer::Image) {
        a[1012] = e.layout;
        if (e.flags & 4) a[127] = 5;
        sumEnd = 1026;
    }
    if (answer_ != Answer::Word) {
        unsigned sum = 0;
        for (std::size_t i = 0; i < sumEnd; ++i) sum = (sum + a[i]) & 0xFF;
        a.back() = std::uint8_t(sum + ((e.flags & 1) ? 1 : 0));
    }
    if (e.flags & 2) a.resize(std::min<std::size_t>(a.size(), std::size_t(e.seed) * 4));
    return a;
}

} // namespace veltro::fuzz
