// Without libFuzzer a fuzz target is a test: it feeds every file of the folders (or the files)
// named on the command line to LLVMFuzzerTestOneInput once. A failed property aborts.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {
int replay(const std::filesystem::path& file)
{
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "cannot read %s\n", file.c_str());
        return 1;
    }
    const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    return 0;
}
} // namespace

int main(int argc, char** argv)
{
    int failures = 0;
    int count = 0;
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path arg(argv[i]);
        if (std::filesystem::is_directory(arg)) {
            for (const auto& entry : std::filesystem::directory_iterator(arg))
                if (entry.is_regular_file()) {
                    failures += replay(entry.path());
                    ++count;
                }
        } else {
            failures += replay(arg);
            ++count;
        }
    }
    std::printf("%d inputs replayed\n", count);
    if (count == 0) {
        std::fprintf(stderr, "no corpus given or the corpus is empty\n");
        return 1;
    }
    return failures == 0 ? 0 : 1;
}
