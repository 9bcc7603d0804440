// Helpers of the capture and dump readers' tests.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <initializer_list>
#include <string>
#include <vector>

namespace kvhost {
namespace loader {

// The bytes of `values`, as a payload holds them.
template <typename T>
std::vector<uint8_t> bytesOf(std::initializer_list<T> values) {
    std::vector<uint8_t> out(values.size() * sizeof(T));
    std::memcpy(out.data(), values.begin(), out.size());
    return out;
}

// A file of the test's, in the temporary directory (tests write nowhere
// else), removed when it goes out of scope.
struct ScratchFile {
    ScratchFile(const std::string& name, const std::string& content)
        : path(::testing::TempDir() + "kvhost-" + std::to_string(::getpid()) + "-" + name) {
        std::ofstream(path, std::ios::binary) << content;
    }
    ~ScratchFile() { std::remove(path.c_str()); }
    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;

    const std::string path;
};

}  // namespace loader
}  // namespace kvhost
