// Runs a fuzz target once on each file of the given folders, so that ordinary builds keep testing inputs that once
// found a fault. A folder that is missing or empty is a failure, because nothing would be tested.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

bool replayFile(const std::filesystem::path& path) {
    std::ifstream stream(path, std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(stream), {});
    if (!stream.is_open() || stream.bad()) return false;
    // An exact allocation, so that a sanitizer sees a read past the end.
    const std::vector<std::uint8_t> input(bytes.begin(), bytes.end());
    LLVMFuzzerTestOneInput(input.data(), input.size());
    return true;
}

// Returns the number of files; -1 if one could not be read.
int replayFolder(const char* folder) {
    int count = 0;
    std::error_code error;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder, error)) {
        if (!entry.is_regular_file()) continue;
        if (!replayFile(entry.path())) {
            std::fprintf(stderr, "%s: cannot be read\n", entry.path().string().c_str());
            return -1;
        }
        ++count;
    }
    return count;
}

}  // namespace

int main(int argc, char** argv) {
    bool good = argc > 1;
    for (int i = 1; i < argc; ++i) {
        const int count = replayFolder(argv[i]);
        std::printf("%s: %d inputs\n", argv[i], count);
        good = good && count > 0;
    }
    return good ? 0 : 1;
}
