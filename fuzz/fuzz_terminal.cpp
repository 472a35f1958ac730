// The terminal's text as the device output reaches it: in chunks, with the view taking what is
// new at any moment. The input's first byte says how many size bytes follow (1 to 8); each size
// byte gives a chunk length (low 7 bits, 0 allowed), and its high bit has the view take the
// unshown text after that chunk. The sizes repeat until the rest of the input, the device
// output, is used up. The first chunk is also typed as a line and sent with Enter after the key
// the next two bytes name.
#include "fuzz_check.h"
#include "terminal/terminal.h"

#include <cstdint>
#include <string>
#include <string_view>

using namespace veltro;

namespace {

void checkText(std::string_view sizes, std::string_view output)
{
    TerminalText t;
    std::string shown;
    auto take = [&] {
        // The view copies it at once: it is only good until the next append.
        const std::string_view part = t.takeUnshown();
        FUZZ_CHECK(!t.hasUnshown());
        shown.append(part);
        FUZZ_CHECK(shown == t.text());
    };
    std::size_t at = 0;
    auto append = [&](std::string_view chunk) {
        at += chunk.size();
        t.append(chunk);
        FUZZ_CHECK(t.text() == output.substr(0, at)); // every byte kept, bare CR and 0x00 too
        FUZZ_CHECK(t.hasUnshown() == (shown.size() < at));
    };
    // With sizes of 0 only the rest comes as one last chunk.
    for (std::size_t i = 0; at < output.size() && i <= output.size() + sizes.size(); ++i) {
        const auto size = static_cast<unsigned char>(sizes[i % sizes.size()]);
        append(output.substr(at, size & 0x7F));
        if (size & 0x80) take();
    }
    append(output.substr(at));
    take();
    FUZZ_CHECK(shown == output);
}

void checkLineEntry(const std::string& line, int key, int shift)
{
    const std::string lastKey = lastKeyText(key, shift);
    FUZZ_CHECK((lastKey == "27-0") == (key == 27 && shift == 0));
    const LineEntry e = lineEntry(line, lastKey);
    if (line.size() >= 10 && line.compare(0, 10, "SENDEEPROM") == 0) {
        FUZZ_CHECK(e.mailImage && e.bytes.empty());
    } else {
        FUZZ_CHECK(!e.mailImage);
        FUZZ_CHECK(e.bytes == (lastKey == "27-0" ? line : line + "\r"));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::string_view input(reinterpret_cast<const char*>(data), size);
    if (input.empty()) return 0;
    const std::size_t count = static_cast<unsigned char>(input[0]) % 8 + 1;
    input.remove_prefix(1);
    if (input.size() < count + 2) return 0;
    const std::string_view sizes = input.substr(0, count);
    const int key = static_cast<unsigned char>(input[count]);
    const int shift = static_cast<unsigned char>(input[count + 1]) % 8;
    const std::string_view output = input.substr(count + 2);
    checkText(sizes, output);
    checkLineEntry(std::string(output.substr(0, static_cast<unsigned char>(sizes[0]) & 0x7F)), key, shift);
    return 0;
}
