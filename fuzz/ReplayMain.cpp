// An ordinary main() for a fuzz target: runs it once over each input file, as
// libFuzzer does when it replays a corpus. Built into the normal test build,
// so the committed corpus (and every crash input added to it) is checked in
// every test run, without clang or libFuzzer.
//
// Usage: PROGRAM [FILE_OR_DIRECTORY...]
// Without arguments it replays the target's committed corpus directory.
// Exits 1 when it finds no input at all; an input that breaks an invariant
// aborts.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

namespace fs = std::filesystem;

// The regular files at path (itself, or the files directly inside it), sorted
// so that every run replays them in the same order.
bool collectInputs(const fs::path& path, std::vector<fs::path>& inputs) {
    std::error_code error;
    if (fs::is_regular_file(path, error)) {
        inputs.push_back(path);
        return true;
    }
    if (!fs::is_directory(path, error)) {
        std::fprintf(stderr, "no such file or directory: %s\n", path.c_str());
        return false;
    }
    std::vector<fs::path> found;
    for (const fs::directory_entry& entry : fs::directory_iterator(path, error)) {
        if (entry.is_regular_file(error)) {
            found.push_back(entry.path());
        }
    }
    std::sort(found.begin(), found.end());
    inputs.insert(inputs.end(), found.begin(), found.end());
    return !error;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<fs::path> inputs;
    bool ok = true;
    if (argc < 2) {
        ok = collectInputs(CHANLINK_FUZZ_CORPUS, inputs);
    }
    for (int i = 1; i < argc; ++i) {
        ok = collectInputs(argv[i], inputs) && ok;
    }
    if (!ok || inputs.empty()) {
        std::fprintf(stderr, "no inputs to replay\n");
        return 1;
    }

    for (const fs::path& input : inputs) {
        std::ifstream file(input, std::ios::binary);
        if (!file) {
            std::fprintf(stderr, "cannot read %s\n", input.c_str());
            return 1;
        }
        const std::vector<unsigned char> bytes{std::istreambuf_iterator<char>(file),
                                               std::istreambuf_iterator<char>()};
        // Named first, so that the input that aborts is the last one printed.
        std::printf("%s (%zu bytes)\n", input.c_str(), bytes.size());
        std::fflush(stdout);
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
    std::printf("%zu inputs replayed\n", inputs.size());
    return 0;
}
