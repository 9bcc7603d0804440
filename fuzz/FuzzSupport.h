// Shared pieces of the libFuzzer targets: the check that stops a run on a
// broken rule, the decoding of an input, the hand-worked examples and their
// seeds, and the per-process set-up. It includes the standard headers the
// targets use.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <tuple>
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

// Reads a plain record (a target's case record is its input format) from
// the front of an input; past the end everything reads as zeros, so every
// input decodes to some case.
template <typename T>
T Take(const uint8_t*& data, size_t& size) {
    static_assert(std::is_trivially_copyable<T>::value, "a plain record");
    T value;
    std::memset(&value, 0, sizeof value);
    const size_t n = std::min(size, sizeof value);
    if (n != 0) std::memcpy(&value, data, n);
    data += n;
    size -= n;
    return value;
}

template <typename T>
bool SameBytes(const T& a, const T& b) {
    return std::memcmp(&a, &b, sizeof(T)) == 0;
}

// Fills a record with a pattern that the library never produces by chance
// and returns the filled copy, so that untouched fields can be told from
// written ones.
template <typename T>
T Poison(T& value, uint8_t seed) {
    unsigned char* p = reinterpret_cast<unsigned char*>(&value);
    for (size_t i = 0; i < sizeof(T); ++i) p[i] = static_cast<unsigned char>(0xA5 ^ (seed + i));
    return value;
}

// A hand-worked example: what the target computed from the case must be
// `want`, byte for byte. With KVFUZZ_SEEDS=<dir> set the case is written to
// <dir>/<name>: the seed corpora in fuzz/corpus/<target>/ are these files.
template <typename Case, typename T>
void Example(const char* name, const Case& c, const T& got, const T& want) {
    KVFUZZ_CHECK(SameBytes(got, want), "%s: the hand-worked example gives another result", name);
    if (const char* dir = std::getenv("KVFUZZ_SEEDS")) {
        const std::string path = std::string(dir) + "/" + name;
        FILE* f = std::fopen(path.c_str(), "wb");
        KVFUZZ_CHECK(f != nullptr && std::fwrite(&c, sizeof c, 1, f) == 1, "cannot write %s",
                     path.c_str());
        std::fclose(f);
    }
}

// Stores a tag as `presence` says: 0 absent, 1 present without elements,
// any other value with `values`.
template <typename Tag, typename T>
void Put(kvhost::Metadata& md, Tag tag, uint8_t presence, const std::vector<T>& values) {
    using kvhost::TagType;
    const TagType type = std::is_same<T, float>::value     ? TagType::Float
                         : std::is_same<T, int64_t>::value ? TagType::Int64
                                                           : TagType::Int32;
    const int rc = presence == 0   ? 0
                   : presence == 1 ? md.putEmpty(tag)
                                   : md.put(tag, type, values.data(), values.size());
    KVFUZZ_CHECK(rc == 0, "the host container refused a tag: %d", rc);
}

inline std::vector<int32_t> RectWords(const kvalgo2::ChiRect& r) {
    return {static_cast<int32_t>(r.left), static_cast<int32_t>(r.top),
            static_cast<int32_t>(r.width), static_cast<int32_t>(r.height)};
}

// The frame's framework camera id and that camera's static metadata with
// the active array, each present as the presence bytes say (no static
// metadata at all for `withStatic` 0); returns the static metadata.
inline std::shared_ptr<kvhost::Metadata> FrameCamera(kvhost::Metadata& frame, uint8_t idTag,
                                                     int32_t id, uint8_t withStatic,
                                                     uint8_t activeTag,
                                                     const kvalgo2::ChiRect& active) {
    Put(frame, "kovani.snapshot.fwkCameraId", idTag, std::vector<int32_t>{id});
    kvhost::clearStaticMetadata();
    auto stat = kvhost::Metadata::create();
    Put(*stat, 0xF0000u, activeTag, RectWords(active));
    if (withStatic != 0) kvhost::setStaticMetadata(static_cast<uint32_t>(id), stat);
    return stat;
}

// What every rectangle mapped into an image obeys: it starts inside the
// image, ends at its border at the latest, and has even width and height.
inline bool InsideImage(const __UtilsImage_Rect& r, int32_t width, int32_t height) {
    const uint64_t w = uint32_t(width), h = uint32_t(height);
    return r.left < w && r.left + uint64_t{r.width} <= w && r.top < h &&
           r.top + uint64_t{r.height} <= h && r.width % 2 == 0 && r.height % 2 == 0;
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
    AIspGyroData gyro{};
    const kvhost::AdapterRecorder recorder;
    kvalgo2::MetaUtils().GetGyroData(nullptr, gyro, gyro.elements, 0, "init");
    KVFUZZ_CHECK(!recorder.calls(kvhost::AdapterOp::Init).empty(),
                 "the platform adapter stand-in was not loaded");
    kvhost::resetAdapter();
}

}  // namespace kvfuzz

// The entry points of a target whose input is one Case record, checked by
// Run, and whose hand-worked examples Examples() checks at start-up.
#define KVFUZZ_TARGET(Case, Run, Examples)                                    \
    extern "C" int LLVMFuzzerInitialize(int*, char***) {                      \
        kvfuzz::InitProcess();                                                \
        Examples();                                                           \
        return 0;                                                             \
    }                                                                         \
    extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) { \
        Run(kvfuzz::Take<Case>(data, size));                                  \
        return 0;                                                             \
    }
