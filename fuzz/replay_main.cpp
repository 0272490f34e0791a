// SPDX-License-Identifier: Apache-2.0
// Runs a fuzz target on files, and on the files of folders, without libFuzzer.
#include "fuzz/fuzz_target.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> filesOf(const fs::path& path) {
    if (!fs::is_directory(path))
        return {path};
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator(path))
        files.push_back(entry.path());
    return files;
}

bool replay(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    const std::string input((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (!file) {
        std::fprintf(stderr, "%s cannot be read\n", path.c_str());
        return false;
    }
    // A copy of the exact size, so that the address sanitizer sees a read past the end.
    const std::vector<char> exact(input.begin(), input.end());
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(exact.data()), exact.size());
    return true;
}

} // namespace

int main(int argc, char** argv) {
    int replayed = 0;
    for (int i = 1; i < argc; ++i) {
        if (!fs::exists(argv[i])) {
            std::fprintf(stderr, "%s does not exist\n", argv[i]);
            return 1;
        }
        for (const auto& file : filesOf(argv[i])) {
            if (!replay(file))
                return 1;
            ++replayed;
        }
    }
    std::printf("%d inputs replayed\n", replayed);
    return replayed > 0 ? 0 : 1; // an empty corpus tests nothing
}
