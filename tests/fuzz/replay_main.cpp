// Runs a fuzz target over files, without a fuzzer and with any compiler: every file of a corpus is
// a test. Arguments are files and folders.

#include "fuzz_input.h"

#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

size_t Replay(const std::filesystem::path& path)
{
    size_t files = 0;
    if (std::filesystem::is_directory(path)) {
        for (const auto& entry : std::filesystem::directory_iterator(path)) {
            files += Replay(entry.path());
        }
        return files;
    }
    std::ifstream file(path, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(file)),
                            std::istreambuf_iterator<char>());
    // On the heap and exactly as large, so that a read beyond the input is seen.
    const std::vector<uint8_t> input(bytes.begin(), bytes.end());
    std::fprintf(stderr, "%s\n", path.filename().c_str()); // names the culprit of a crash
    LLVMFuzzerTestOneInput(input.data(), input.size());
    return 1;
}

} // namespace

int main(int argc, char** argv)
{
    size_t files = 0;
    for (int i = 1; i < argc; ++i) {
        files += Replay(argv[i]);
    }
    std::fprintf(stderr, "%zu inputs replayed\n", files);
    return files > 0 ? 0 : 1; // no input is no test
}
