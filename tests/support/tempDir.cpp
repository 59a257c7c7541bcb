#include "support/tempDir.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <unistd.h>

TempDir::TempDir() : owner_(getpid()) {
    std::string pattern = (std::filesystem::temp_directory_path() / "qntestXXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr)
        ADD_FAILURE() << "mkdtemp failed";
    path_ = pattern;
}

TempDir::~TempDir() {
    if (getpid() == owner_) {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
}

std::string TempDir::write(const std::string &name, const std::string &bytes) const {
    std::ofstream stream(file(name), std::ios::binary | std::ios::trunc);
    stream << bytes;
    stream.close();
    EXPECT_TRUE(stream.good()) << "cannot write " << file(name);
    return file(name);
}

std::string TempDir::read(const std::string &name) const {
    std::ifstream stream(file(name), std::ios::binary);
    EXPECT_TRUE(stream.good()) << "cannot read " << file(name);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}
