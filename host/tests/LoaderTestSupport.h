// Helpers of the capture and dump readers' tests.
#pragma once

#include <cstdint>
#include <cstring>
#include <initializer_list>
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

}  // namespace loader
}  // namespace kvhost
