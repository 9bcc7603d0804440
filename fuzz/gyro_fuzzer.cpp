// GetGyroData with the platform holder scripted from the input (the Case
// record): its enable result and 0 to 300 raw samples.
//
// Checks, for every input:
// - a refused enable or no samples: -1 with the record and the elements
//   untouched;
// - otherwise 0, count min(samples, 200) (the element array has exactly 200
//   places, so AddressSanitizer reports any write past it), elements from
//   count on untouched, elements [0, count) ascending by timestamp and holding
//   the rates of the first count samples bit for bit, start and end
//   timestamps among the elements' and ordered as the first and the last kept
//   raw sample;
// - the holder is disabled exactly when it was enabled, the query passed on.
// The tick conversion is checked once at start-up on a hand-worked example.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "FuzzSupport.h"

namespace {

using Element = AIspGyroData::GyroElement;
using kvhost::AdapterOp;

constexpr size_t kCapacity = 200;

struct RawSample {
    uint32_t rates;     // bit patterns of x, y and z are derived from it
    uint32_t ticks[2];  // low and high word
};

struct Case {
    int32_t query;
    int8_t enableResult;
    uint8_t spread;  // ticks: any, below 2^40 (16 h of the timer), or 0 to 4
    uint8_t nullKey;
    uint8_t unused;
    uint16_t count;  // % 301
    uint16_t unused2;
    RawSample samples[300];
};

struct Result {
    int rc;
    AIspGyroData gyro;
    Element elements[kCapacity];
};

adapter::GyroSample Convert(const RawSample& s, uint8_t spread) {
    adapter::GyroSample out;
    const uint32_t bits[3] = {s.rates, s.rates * 2654435761u, ~s.rates};
    std::memcpy(&out.x, bits, sizeof bits);
    out.reserved = 0x5A5A5A5A;
    const uint64_t ticks = s.ticks[0] | uint64_t{s.ticks[1]} << 32;
    out.timestamp = spread % 3 == 1   ? ticks & ((uint64_t{1} << 40) - 1)
                    : spread % 3 == 2 ? ticks % 5
                                      : ticks;
    return out;
}

std::array<uint32_t, 3> Rates(const float* xyz) {
    std::array<uint32_t, 3> b;
    std::memcpy(b.data(), xyz, sizeof b);
    return b;
}

void Run(const Case& c, Result& r) {
    std::vector<adapter::GyroSample> raw;
    for (size_t i = 0; i < c.count % 301u; ++i) raw.push_back(Convert(c.samples[i], c.spread));
    kvhost::AdapterScript script;
    script.gyroEnableResult = c.enableResult;
    script.gyroSamples = raw;
    kvhost::setAdapterScript(script);
    const kvhost::AdapterRecorder recorder;  // this input's calls only

    kvfuzz::Poison(r, 0x11);
    const auto before = std::make_unique<Result>();
    std::memcpy(before.get(), &r, sizeof r);
    // Exactly the 200 places the method may fill.
    std::unique_ptr<Element[]> elements(new Element[kCapacity]);
    std::memcpy(elements.get(), r.elements, sizeof r.elements);
    kvalgo2::MetaUtils utils;
    r.rc = utils.GetGyroData(nullptr, r.gyro, elements.get(), c.query,
                             c.nullKey & 1 ? nullptr : "gyro.fuzz");
    std::memcpy(r.elements, elements.get(), sizeof r.elements);

    const bool enabled = c.enableResult != 0;
    const auto queries = recorder.calls(AdapterOp::GetGyroData);
    KVFUZZ_CHECK(recorder.calls(AdapterOp::DisableGyro).size() == (enabled ? 1u : 0u) &&
                     queries.size() == (enabled ? 1u : 0u) &&
                     (!enabled || queries[0].arg1 == c.query),
                 "holder calls for enable result %d", c.enableResult);
    if (!enabled || raw.empty()) {
        KVFUZZ_CHECK(r.rc == -1, "result %d without samples", r.rc);
        KVFUZZ_CHECK(std::memcmp(&r.gyro, &before->gyro, sizeof r.gyro) == 0 &&
                         std::memcmp(r.elements, before->elements, sizeof r.elements) == 0,
                     "written without samples");
        return;
    }
    const size_t n = std::min(raw.size(), kCapacity);
    KVFUZZ_CHECK(r.rc == 0 && r.gyro.count == static_cast<int32_t>(n),
                 "result %d, count %d for %zu samples", r.rc, r.gyro.count, raw.size());
    KVFUZZ_CHECK(
        std::memcmp(r.elements + n, before->elements + n, (kCapacity - n) * sizeof(Element)) == 0,
        "elements past %zu written", n);
    std::vector<std::array<uint32_t, 3>> want, got;
    bool start = false, end = false;
    for (size_t i = 0; i < n; ++i) {
        const Element& e = r.elements[i];
        KVFUZZ_CHECK(i == 0 || r.elements[i - 1].timestamp <= e.timestamp,
                     "element %zu out of order", i);
        start |= e.timestamp == r.gyro.startTimestamp;
        end |= e.timestamp == r.gyro.endTimestamp;
        want.push_back(Rates(&raw[i].x));
        got.push_back(Rates(&e.x));
    }
    std::sort(want.begin(), want.end());
    std::sort(got.begin(), got.end());
    KVFUZZ_CHECK(want == got, "elements are not the first %zu raw samples", n);
    const uint64_t first = raw[0].timestamp, last = raw[n - 1].timestamp;
    KVFUZZ_CHECK(start && end && (first > last || r.gyro.startTimestamp <= r.gyro.endTimestamp) &&
                     (first < last || r.gyro.startTimestamp >= r.gyro.endTimestamp),
                 "start %llu, end %llu", static_cast<unsigned long long>(r.gyro.startTimestamp),
                 static_cast<unsigned long long>(r.gyro.endTimestamp));
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    kvfuzz::InitProcess();
    const auto c = std::make_unique<Case>();
    const auto r = std::make_unique<Result>();
    std::memset(c.get(), 0, sizeof *c);
    c->enableResult = 1;
    // 19.2 MHz ticks: one second, 99 microseconds, 0 microseconds.
    c->count = 3;
    const uint32_t ticks[3] = {19200000, 1919, 19};
    for (int i = 0; i < 3; ++i) c->samples[i] = RawSample{0x3F800000u + i, {ticks[i], 0}};
    Run(*c, *r);
    KVFUZZ_CHECK(r->gyro.startTimestamp == 1000000 && r->gyro.endTimestamp == 0 &&
                     r->elements[0].timestamp == 0 && r->elements[1].timestamp == 99 &&
                     r->elements[2].timestamp == 1000000,
                 "tick conversion: start %llu, end %llu",
                 static_cast<unsigned long long>(r->gyro.startTimestamp),
                 static_cast<unsigned long long>(r->gyro.endTimestamp));
    kvfuzz::SaveSeed("conversion", *c);
    // 250 ascending samples: the first 200 are kept.
    c->count = 250;
    c->spread = 1;
    for (uint32_t i = 0; i < 250; ++i) c->samples[i] = RawSample{i, {19200000 + 38400 * i, 0}};
    Run(*c, *r);
    kvfuzz::SaveSeed("ascending_250", *c);
    c->enableResult = 0;
    kvfuzz::SaveSeed("refused", *c);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto r = std::make_unique<Result>();
    Run(kvfuzz::Input(data, size).Take<Case>(), *r);
    return 0;
}
