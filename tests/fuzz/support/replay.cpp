/* Runs a fuzz target on committed inputs, without a fuzzer: each argument is an input or a folder
   of them. Fails when there is none to run. */
#include "support/scratch.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <vector>

static int replayed;

static void replay(const std::filesystem::path &path) {
    std::ifstream file(path, std::ios::binary);
    const std::string contents{std::istreambuf_iterator<char>(file), {}};
    // A block of just its size: a sanitizer then sees the first byte that is read past it.
    const auto block = std::make_unique<uint8_t[]>(contents.size());
    std::copy(contents.begin(), contents.end(), block.get());
    fprintf(stderr, "%s\n", path.c_str());
    LLVMFuzzerTestOneInput(block.get(), contents.size());
    ++replayed;
}

int main(int argc, char **argv) {
    std::vector<std::filesystem::path> inputs;
    for (int i = 1; i < argc; ++i) {
        if (!std::filesystem::is_directory(argv[i])) {
            inputs.emplace_back(argv[i]);
            continue;
        }
        for (const auto &entry : std::filesystem::directory_iterator(argv[i]))
            inputs.push_back(entry.path());
    }
    std::sort(inputs.begin(), inputs.end());
    for (const auto &input : inputs)
        replay(input);
    fprintf(stderr, "%d inputs replayed\n", replayed);
    return replayed > 0 ? 0 : 1;
}
