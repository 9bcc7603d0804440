// GetGyroData with the platform holder scripted from the input: its enable
// result and 0 to 300 raw samples with arbitrary rates and tick counts.
//
// What holds for every input:
// - a refused enable gives -1 with nothing written and no further holder
//   call; no samples give -1 with nothing written, the holder disabled;
// - otherwise the result is 0, the count is min(samples, 200) (so at most
//   200), elements [0, count) are ascending by timestamp and hold exactly the
//   first count raw samples (rates bit for bit, ticks converted to
//   microseconds), the start and end timestamps are the converted ticks of
//   raw samples 0 and count - 1, in the holder's order;
// - nothing else is written: the record's padding and its own element
//   array, each element's bytes 12 to 15, and elements from count on keep
//   their values; the element array has exactly 200 places, so AddressSanitizer
//   reports any write past it;
// - the holder sees enable (key, 1, 3), the query (key, query) and disable
//   (key, 1), with the caller's key, also a null one.
//
// The tick conversion (ticks * 1e9 / 1.92e7 in double precision, truncated to
// nanoseconds, divided by 1000) is compared exactly where the nanoseconds fit
// in 64 bits; beyond that only the order and the rates are checked.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <tuple>
#include <vector>

#include "FuzzSupport.h"
#include "GyroCase.h"

namespace {

using Element = AIspGyroData::GyroElement;
using kvhost::AdapterOp;

constexpr size_t kCapacity = 200;
constexpr const char* kKey = "gyro.fuzz";

uint64_t Ticks(const kvfuzz::GyroRawSample& s, uint8_t spread) {
    switch (spread) {
        case kvfuzz::kTimerTicks:
            return s.ticks & ((uint64_t{1} << 40) - 1);
        case kvfuzz::kFewTicks:
            return s.ticks % 5;
        default:
            return s.ticks;
    }
}

adapter::GyroSample RawSample(const kvfuzz::GyroRawSample& s, uint8_t spread) {
    adapter::GyroSample out;
    const uint32_t bits[3] = {s.rates, s.rates * 2654435761u, ~s.rates};
    std::memcpy(&out.x, &bits[0], 4);
    std::memcpy(&out.y, &bits[1], 4);
    std::memcpy(&out.z, &bits[2], 4);
    out.reserved = 0x5A5A5A5A;
    out.timestamp = Ticks(s, spread);
    return out;
}

// Microseconds of a tick count of the 19.2 MHz timer; false when the
// nanoseconds do not fit in 64 bits.
bool TicksToMicros(uint64_t ticks, uint64_t& micros) {
    const double ns = static_cast<double>(ticks) * 1e9 / 1.92e7;
    if (!(ns < 18446744073709551616.0)) return false;
    micros = static_cast<uint64_t>(ns) / 1000;
    return true;
}

template <typename T>
std::vector<unsigned char> Bytes(const T* records, size_t count) {
    const unsigned char* p = reinterpret_cast<const unsigned char*>(records);
    return std::vector<unsigned char>(p, p + count * sizeof(T));
}

// Rates of an element or sample as bits, with a timestamp.
using Key = std::tuple<uint64_t, uint32_t, uint32_t, uint32_t>;

Key RateBits(uint64_t ts, const float* xyz) {
    uint32_t b[3];
    std::memcpy(b, xyz, sizeof b);
    return Key{ts, b[0], b[1], b[2]};
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    kvfuzz::InitProcess();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kvfuzz::GyroCase c;
    kvfuzz::Reader reader(data, size);
    kvfuzz::Visit(reader, c);

    std::vector<adapter::GyroSample> raw;
    for (int32_t i = 0; i < c.sampleCount; ++i) raw.push_back(RawSample(c.samples[i], c.spread));
    kvhost::AdapterScript script;
    script.gyroEnableResult = c.enableResult;
    script.gyroSamples = raw;
    kvhost::setAdapterScript(script);
    const kvhost::AdapterRecorder recorder;  // this input's calls only

    // Before-images are kept as bytes: padding is not copied with the records.
    auto gyro = std::make_unique<AIspGyroData>();
    kvfuzz::Poison(*gyro, static_cast<uint8_t>(size));
    const std::vector<unsigned char> gyroBefore = Bytes(gyro.get(), 1);
    // Exactly the 200 places the method may fill.
    std::unique_ptr<Element[]> elements(new Element[kCapacity]);
    // The padding of every element is alike: the sort may move it along with
    // the element, and the moved padding must still be the caller's.
    for (size_t i = 0; i < kCapacity; ++i) {
        kvfuzz::Poison(elements[i], static_cast<uint8_t>(i));
        std::memset(reinterpret_cast<unsigned char*>(&elements[i]) + 12, 0xC3, 4);
    }
    const std::vector<unsigned char> elementsBefore = Bytes(elements.get(), kCapacity);

    const char* key = c.nullKey ? nullptr : kKey;
    std::shared_ptr<kvhost::Metadata> md = c.nullMetadata ? nullptr : kvhost::Metadata::create();
    kvalgo2::MetaUtils utils;
    const int rc = utils.GetGyroData(md, *gyro, elements.get(), c.query, key);

    // The holder's calls.
    const auto calls = recorder.calls();
    std::vector<kvhost::AdapterCall> gyroCalls;
    for (const kvhost::AdapterCall& call : calls) {
        if (call.op == AdapterOp::EnableGyro || call.op == AdapterOp::GetGyroData ||
            call.op == AdapterOp::DisableGyro) {
            gyroCalls.push_back(call);
            KVFUZZ_CHECK(call.keyIsNull == (key == nullptr) && (key == nullptr || call.key == key),
                         "holder call with key \"%s\"", call.key.c_str());
        }
    }
    const bool enabled = c.enableResult != 0;
    KVFUZZ_CHECK(gyroCalls.size() == (enabled ? 3u : 1u), "%zu gyro calls", gyroCalls.size());
    KVFUZZ_CHECK(gyroCalls[0].op == AdapterOp::EnableGyro && gyroCalls[0].arg1 == 1 &&
                     gyroCalls[0].arg2 == 3,
                 "enable called as (%d, %d)", gyroCalls[0].arg1, gyroCalls[0].arg2);
    if (enabled) {
        KVFUZZ_CHECK(gyroCalls[1].op == AdapterOp::GetGyroData && gyroCalls[1].arg1 == c.query,
                     "sample query with %d, expected %d", gyroCalls[1].arg1, c.query);
        KVFUZZ_CHECK(gyroCalls[2].op == AdapterOp::DisableGyro && gyroCalls[2].arg1 == 1,
                     "disable called with %d", gyroCalls[2].arg1);
    }

    if (!enabled || raw.empty()) {
        KVFUZZ_CHECK(rc == -1, "result %d without samples", rc);
        KVFUZZ_CHECK(Bytes(gyro.get(), 1) == gyroBefore, "record written without samples");
        KVFUZZ_CHECK(Bytes(elements.get(), kCapacity) == elementsBefore,
                     "elements written without samples");
        return 0;
    }

    const size_t n = std::min(raw.size(), kCapacity);
    KVFUZZ_CHECK(rc == 0, "result %d with %zu samples", rc, raw.size());
    KVFUZZ_CHECK(gyro->count == static_cast<int32_t>(n) && gyro->count <= 200,
                 "count %d for %zu samples", gyro->count, raw.size());

    // Nothing written but count, start and end.
    const std::vector<unsigned char> gyroAfter = Bytes(gyro.get(), 1);
    const size_t countEnd = offsetof(AIspGyroData, count) + sizeof(int32_t);
    const size_t startAt = offsetof(AIspGyroData, startTimestamp);
    KVFUZZ_CHECK(std::equal(gyroAfter.begin() + countEnd, gyroAfter.begin() + startAt,
                            gyroBefore.begin() + countEnd),
                 "record written beyond its three fields");
    for (size_t i = 0; i < kCapacity; ++i) {
        const unsigned char* now = reinterpret_cast<const unsigned char*>(&elements[i]);
        const unsigned char* was = elementsBefore.data() + i * sizeof(Element);
        if (i >= n) {
            KVFUZZ_CHECK(std::memcmp(now, was, sizeof(Element)) == 0, "element %zu of %zu written",
                         i, n);
        } else {
            KVFUZZ_CHECK(std::memcmp(now + 12, was + 12, 4) == 0, "padding of element %zu written",
                         i);
        }
    }

    // Ascending by timestamp.
    for (size_t i = 1; i < n; ++i) {
        KVFUZZ_CHECK(elements[i - 1].timestamp <= elements[i].timestamp,
                     "element %zu at %llu before element %zu at %llu", i - 1,
                     static_cast<unsigned long long>(elements[i - 1].timestamp), i,
                     static_cast<unsigned long long>(elements[i].timestamp));
    }

    // Start, end and the elements as a multiset of the first n raw samples.
    bool exact = true;
    std::vector<Key> want;
    std::vector<Key> got;
    for (size_t i = 0; i < n; ++i) {
        uint64_t us = 0;
        if (!TicksToMicros(raw[i].timestamp, us)) exact = false;
        want.push_back(RateBits(us, &raw[i].x));
        got.push_back(RateBits(elements[i].timestamp, &elements[i].x));
    }
    uint64_t start = 0;
    if (TicksToMicros(raw[0].timestamp, start)) {
        KVFUZZ_CHECK(gyro->startTimestamp == start, "start %llu, expected %llu",
                     static_cast<unsigned long long>(gyro->startTimestamp),
                     static_cast<unsigned long long>(start));
    }
    uint64_t end = 0;
    if (TicksToMicros(raw[n - 1].timestamp, end)) {
        KVFUZZ_CHECK(gyro->endTimestamp == end, "end %llu, expected %llu",
                     static_cast<unsigned long long>(gyro->endTimestamp),
                     static_cast<unsigned long long>(end));
    }
    if (!exact) {
        for (Key& k : want) std::get<0>(k) = 0;
        for (Key& k : got) std::get<0>(k) = 0;
    }
    std::sort(want.begin(), want.end());
    std::sort(got.begin(), got.end());
    KVFUZZ_CHECK(want == got, "elements are not the first %zu raw samples", n);
    return 0;
}
