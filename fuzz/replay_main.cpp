// Runs a fuzz target over every file of a folder (the committed seed corpus), so the
// seeds are replayed as an ordinary test by any compiler.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s CORPUS_DIR\n", argv[0]);
        return 2;
    }
    size_t count = 0;
    std::error_code ec;
    if (!std::filesystem::is_directory(argv[1], ec)) {
        std::printf("no corpus at %s\n", argv[1]);
        return 0;
    }
    for (const auto& entry : std::filesystem::recursive_directory_iterator(argv[1])) {
        if (!entry.is_regular_file()) continue;
        std::ifstream in(entry.path(), std::ios::binary);
        std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
        ++count;
    }
    std::printf("replayed %zu inputs\n", count);
    return 0;
}
