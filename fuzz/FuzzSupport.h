// Shared pieces of the libFuzzer targets: the check that stops a run on a
// broken rule, the decoding of an input, the seeds and the per-process set-up.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include "MetaUtils.h"
#include "kvhost/Adapter.h"
#include "kvhost/LogCapture.h"
#include "kvhost/Metadata.h"

// A rule of the library was broken: say which and stop with a trap, which
// libFuzzer reports as a crash and saves the input for.
#define KVFUZZ_CHECK(cond, ...)                                                             \
    do {                                                                                    \
        if (!(cond)) {                                                                      \
            std::fprintf(stderr, "%s:%d: check failed: %s\n  ", __FILE__, __LINE__, #cond); \
            std::fprintf(stderr, __VA_ARGS__);                                              \
            std::fprintf(stderr, "\n");                                                     \
            __builtin_trap();                                                               \
        }                                                                                   \
    } while (0)

namespace kvfuzz {

// An input read front to back as plain records (a target's case record is
// its input format); past the end everything reads as zeros, so every input
// decodes to some case.
class Input {
public:
    Input(const uint8_t* data, size_t size) : data_(data), left_(size) {}
    size_t left() const { return left_; }

    template <typename T>
    T Take() {
        static_assert(std::is_trivially_copyable<T>::value, "a plain record");
        T value;
        std::memset(&value, 0, sizeof value);
        const size_t n = std::min(left_, sizeof value);
        if (n != 0) std::memcpy(&value, data_, n);
        data_ += n;
        left_ -= n;
        return value;
    }

private:
    const uint8_t* data_;
    size_t left_;
};

// With KVFUZZ_SEEDS=<dir> set, a target writes each of its hand-worked
// examples to <dir>/<name> as it checks them at start-up: the seed corpora
// in fuzz/corpus/<target>/ are these files.
template <typename T>
void SaveSeed(const char* name, const T& example) {
    const char* dir = std::getenv("KVFUZZ_SEEDS");
    if (dir == nullptr) return;
    const std::string path = std::string(dir) + "/" + name;
    FILE* f = std::fopen(path.c_str(), "wb");
    KVFUZZ_CHECK(f != nullptr && std::fwrite(&example, sizeof example, 1, f) == 1,
                 "cannot write %s", path.c_str());
    std::fclose(f);
}

template <typename T>
bool SameBytes(const T& a, const T& b) {
    return std::memcmp(&a, &b, sizeof(T)) == 0;
}

// Fills a record with a pattern that the library never produces by chance,
// so that untouched fields can be told from written ones.
template <typename T>
void Poison(T& value, uint8_t seed) {
    unsigned char* p = reinterpret_cast<unsigned char*>(&value);
    for (size_t i = 0; i < sizeof(T); ++i) p[i] = static_cast<unsigned char>(0xA5 ^ (seed + i));
}

// Every tag a target stores is one the host container knows, with its type.
inline void Stored(int rc) {
    KVFUZZ_CHECK(rc == 0, "the host container refused a tag: %d", rc);
}

// Stores a tag as `presence` says: 0 absent, 1 present without elements,
// any other value with `values`.
template <typename Tag, typename T>
void Put(kvhost::Metadata& md, Tag tag, uint8_t presence, const std::vector<T>& values) {
    using kvhost::TagType;
    const TagType type = std::is_same<T, float>::value     ? TagType::Float
                         : std::is_same<T, int64_t>::value ? TagType::Int64
                                                           : TagType::Int32;
    if (presence == 1) Stored(md.putEmpty(tag));
    if (presence > 1) Stored(md.put(tag, type, values.data(), values.size()));
}

inline std::vector<int32_t> RectWords(const kvalgo2::ChiRect& r) {
    return {static_cast<int32_t>(r.left), static_cast<int32_t>(r.top),
            static_cast<int32_t>(r.width), static_cast<int32_t>(r.height)};
}

// What every rectangle mapped into an image obeys: it starts inside the
// image, ends at its border at the latest, and has even width and height.
inline bool InsideImage(const __UtilsImage_Rect& r, int32_t width, int32_t height) {
    const uint64_t w = static_cast<uint32_t>(width);
    const uint64_t h = static_cast<uint32_t>(height);
    return r.left < w && r.left + static_cast<uint64_t>(r.width) <= w && r.top < h &&
           r.top + static_cast<uint64_t>(r.height) <= h && r.width % 2 == 0 && r.height % 2 == 0;
}

// Quiet logs and a loaded platform adapter: the adapter client loads once
// per process, so it is loaded here, before the first input, and every input
// then sees the same process state.
inline void InitProcess() {
    kvhost::setLogEcho(false);
    kvhost::resetAdapter();
    kvhost::AdapterScript script;
    script.gyroEnableResult = 0;  // the holder is fetched, nothing else happens
    kvhost::setAdapterScript(script);
    kvalgo2::MetaUtils utils;
    AIspGyroData gyro{};
    const kvhost::AdapterRecorder recorder;
    utils.GetGyroData(nullptr, gyro, gyro.elements, 0, "init");
    KVFUZZ_CHECK(!recorder.calls(kvhost::AdapterOp::Init).empty(),
                 "the platform adapter stand-in was not loaded");
    kvhost::resetAdapter();
}

}  // namespace kvfuzz
