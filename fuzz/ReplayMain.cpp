// An ordinary main() for a fuzz target: runs it once over each input file, as
// libFuzzer does when it replays a corpus. Built into the normal test build,
// so the committed corpus (and every crash input added to it) is checked in
// every test run, without clang or libFuzzer.
//
// Usage: PROGRAM [FILE_OR_DIRECTORY...]
// Without arguments it replays the target's committed corpus directory.
// Exits 1 when an input cannot be read or there is none at all; an input
// that breaks an invariant aborts.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
    namespace fs = std::filesystem;
    std::vector<fs::path> inputs;
    for (const fs::path& path : argc > 1 ? std::vector<fs::path>(argv + 1, argv + argc)
                                         : std::vector<fs::path>{CHANLINK_FUZZ_CORPUS}) {
        // A directory gives its files; anything else is taken as a file.
        std::error_code error;
        for (const auto& entry : fs::directory_iterator(path, error)) {
            inputs.push_back(entry.path());
        }
        if (error) {
            inputs.push_back(path);
        }
    }
    std::sort(inputs.begin(), inputs.end());  // the same order in every run
    for (const fs::path& input : inputs) {
        std::ifstream file(input, std::ios::binary);
        if (!file || fs::is_directory(input)) {
            std::fprintf(stderr, "cannot read %s\n", input.c_str());
            return 1;
        }
        const std::vector<unsigned char> bytes{std::istreambuf_iterator<char>(file), {}};
        // Named first, so that the input that aborts is the last one printed.
        std::printf("%s (%zu bytes)\n", input.c_str(), bytes.size());
        std::fflush(stdout);
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
    std::printf("%zu inputs replayed\n", inputs.size());
    return inputs.empty() ? 1 : 0;
}
