// Shared pieces of the libFuzzer targets: the byte format of their inputs,
// the check that stops a run on a broken rule, and the per-process set-up.
//
// Each target describes its case once, as a Visit(io, case) function that
// names every field in input order. Visit with a Reader decodes a fuzzer
// input; Visit with a Writer encodes a hand-written case, which is how the
// seed corpora are made (fuzz/seeds.cpp). Both therefore agree by
// construction.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
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

// ---- Input format -------------------------------------------------------
//
// Fields are little-endian and read front to back; an input that runs out
// reads as zeros, so every input decodes to some case.
//
// Sizes and coordinates are taken through a selector byte that makes the
// values that matter to the geometry common: small ones, arbitrary 32-bit
// patterns, and the neighbourhoods of INT32_MAX and UINT32_MAX where the
// signed and unsigned 32-bit rules part.

class Reader {
public:
    Reader(const uint8_t* data, size_t size) : data_(data), size_(size) {}

    size_t left() const { return size_ - pos_; }

    template <typename T>
    void raw(T& value) {
        unsigned char bytes[sizeof(T)] = {};
        const size_t n = size_ - pos_ < sizeof(T) ? size_ - pos_ : sizeof(T);
        if (n != 0) std::memcpy(bytes, data_ + pos_, n);
        pos_ += n;
        std::memcpy(&value, bytes, sizeof(T));
    }

    void flag(bool& value) {
        uint8_t b = 0;
        raw(b);
        value = (b & 1) != 0;
    }

    // A value in [lo, hi].
    template <typename T>
    void range(T& value, T lo, T hi) {
        uint32_t r = 0;
        raw(r);
        const uint64_t span = static_cast<uint64_t>(static_cast<int64_t>(hi) - lo) + 1;
        value = static_cast<T>(static_cast<int64_t>(lo) + static_cast<int64_t>(r % span));
    }

    // An unsigned 32-bit size or coordinate.
    void dim(uint32_t& value) {
        uint8_t sel = 0;
        uint32_t r = 0;
        raw(sel);
        raw(r);
        switch (sel & 3) {
            case 0:
                value = r % 8193;
                break;
            case 1:
                value = r;
                break;
            case 2:
                value = 0x7FFFFFFDu + r % 6;  // INT32_MAX - 2 .. INT32_MIN + 2
                break;
            default:
                value = 0xFFFFFFFFu - r % 8;
                break;
        }
    }

    // A signed 32-bit image extent or coordinate.
    void sdim(int32_t& value) {
        uint32_t u = 0;
        dim(u);
        value = static_cast<int32_t>(u);
    }

    // A float: a small multiple of 1/16 or any bit pattern.
    void real(float& value) {
        uint8_t sel = 0;
        uint32_t r = 0;
        raw(sel);
        raw(r);
        if (sel & 1) {
            std::memcpy(&value, &r, sizeof value);
        } else {
            value = static_cast<float>(static_cast<int16_t>(r)) / 16.0f;
        }
    }

private:
    const uint8_t* data_;
    size_t size_;
    size_t pos_ = 0;
};

// Encodes a case so that Reader decodes exactly that case.
class Writer {
public:
    template <typename T>
    void raw(T& value) {
        unsigned char bytes[sizeof(T)];
        std::memcpy(bytes, &value, sizeof(T));
        out_.insert(out_.end(), bytes, bytes + sizeof(T));
    }

    void flag(bool& value) {
        uint8_t b = value ? 1 : 0;
        raw(b);
    }

    template <typename T>
    void range(T& value, T lo, T) {
        uint32_t r = static_cast<uint32_t>(static_cast<int64_t>(value) - lo);
        raw(r);
    }

    void dim(uint32_t& value) {
        uint8_t sel = 1;
        raw(sel);
        raw(value);
    }

    void sdim(int32_t& value) {
        uint32_t u = static_cast<uint32_t>(value);
        dim(u);
    }

    void real(float& value) {
        uint8_t sel = 1;
        uint32_t r = 0;
        std::memcpy(&r, &value, sizeof r);
        raw(sel);
        raw(r);
    }

    const std::vector<uint8_t>& bytes() const { return out_; }

private:
    std::vector<uint8_t> out_;
};

// ---- Values -----------------------------------------------------------------

// Presence of a tag in a container: absent, present without elements, or
// present with its elements.
enum Presence : uint8_t { kAbsent = 0, kEmpty = 1, kPresent = 2 };

inline kvalgo2::ChiRect Rect(uint32_t l, uint32_t t, uint32_t w, uint32_t h) {
    return kvalgo2::ChiRect{l, t, w, h};
}

template <typename IO>
void VisitRect(IO& io, kvalgo2::ChiRect& r) {
    io.dim(r.left);
    io.dim(r.top);
    io.dim(r.width);
    io.dim(r.height);
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

inline std::vector<int32_t> RectWords(const kvalgo2::ChiRect& r) {
    return {static_cast<int32_t>(r.left), static_cast<int32_t>(r.top),
            static_cast<int32_t>(r.width), static_cast<int32_t>(r.height)};
}

// ---- Process set-up -------------------------------------------------------

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
