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
// The tick conversion and the limit of 200 are checked once at start-up on a
// hand-worked example.
#include "FuzzSupport.h"

namespace {

using Element = AIspGyroData::GyroElement;

constexpr size_t kCapacity = 200;

struct RawSample {
    uint32_t rates;     // bit patterns of x, y and z are derived from it
    uint32_t ticks[2];  // low and high word
};

struct Case {
    int32_t query;
    int8_t enableResult;
    uint8_t spread, nullKey, unused;  // ticks: any, below 2^40 (16 h of the timer), or 0 to 4
    uint16_t count, unused2;          // % 301
    RawSample samples[300];
};

// On the heap, the 200 elements last: AddressSanitizer reports a write past
// them.
struct Result {
    AIspGyroData gyro;
    Element elements[kCapacity];
};

std::unique_ptr<Result> Run(const Case& c) {
    std::vector<adapter::GyroSample> raw(c.count % 301u);
    for (size_t i = 0; i < raw.size(); ++i) {
        const RawSample& s = c.samples[i];
        const uint32_t bits[3] = {s.rates, s.rates * 2654435761u, ~s.rates};
        std::memcpy(&raw[i].x, bits, sizeof bits);
        const uint64_t ticks = s.ticks[0] | uint64_t{s.ticks[1]} << 32;
        raw[i].timestamp = c.spread % 3 == 1   ? ticks & ((uint64_t{1} << 40) - 1)
                           : c.spread % 3 == 2 ? ticks % 5
                                               : ticks;
    }
    kvhost::AdapterScript script;
    script.gyroEnableResult = c.enableResult;
    script.gyroSamples = raw;
    kvhost::setAdapterScript(script);
    const kvhost::AdapterRecorder recorder;  // this input's calls only

    auto r = std::make_unique<Result>(), before = std::make_unique<Result>();
    *before = kvfuzz::Poison(*r, 0x11);
    const int rc = kvalgo2::MetaUtils().GetGyroData(nullptr, r->gyro, r->elements, c.query,
                                                    c.nullKey & 1 ? nullptr : "gyro.fuzz");

    const bool enabled = c.enableResult != 0;
    const auto queries = recorder.calls(kvhost::AdapterOp::GetGyroData);
    KVFUZZ_CHECK(recorder.calls(kvhost::AdapterOp::DisableGyro).size() == (enabled ? 1u : 0u) &&
                     queries.size() == (enabled ? 1u : 0u) &&
                     (!enabled || queries[0].arg1 == c.query),
                 "holder calls for enable result %d", c.enableResult);
    const size_t n = enabled ? std::min(raw.size(), kCapacity) : 0;
    KVFUZZ_CHECK(rc == (n == 0 ? -1 : 0) && (n == 0 ? kvfuzz::SameBytes(r->gyro, before->gyro)
                                                    : r->gyro.count == int32_t(n)),
                 "result %d, count %d for %zu samples", rc, r->gyro.count, raw.size());
    KVFUZZ_CHECK(
        std::memcmp(r->elements + n, before->elements + n, (kCapacity - n) * sizeof(Element)) == 0,
        "elements past %zu written", n);
    if (n == 0) return r;
    std::vector<uint32_t> want, got;  // the rates' first words, as a multiset
    bool start = false, end = false;
    for (size_t i = 0; i < n; ++i) {
        const Element& e = r->elements[i];
        uint32_t bits[3];
        std::memcpy(bits, &e.x, sizeof bits);
        KVFUZZ_CHECK((i == 0 || r->elements[i - 1].timestamp <= e.timestamp) &&
                         bits[1] == bits[0] * 2654435761u && bits[2] == ~bits[0],
                     "element %zu out of order or not a sample's rates", i);
        start |= e.timestamp == r->gyro.startTimestamp;
        end |= e.timestamp == r->gyro.endTimestamp;
        want.push_back(c.samples[i].rates);
        got.push_back(bits[0]);
    }
    std::sort(want.begin(), want.end());
    std::sort(got.begin(), got.end());
    KVFUZZ_CHECK(want == got, "elements are not the first %zu raw samples", n);
    const uint64_t first = raw[0].timestamp, last = raw[n - 1].timestamp;
    const uint64_t from = r->gyro.startTimestamp, to = r->gyro.endTimestamp;
    KVFUZZ_CHECK(start && end && (first > last || from <= to) && (first < last || from >= to),
                 "start or end timestamp");
    return r;
}

}  // namespace

void Examples() {
    const auto c = std::make_unique<Case>();  // all zeros
    // 250 samples of a 19.2 MHz timer: 1919 ticks (99 microseconds), then
    // from one second on every 2 ms and 19 ticks (under a microsecond); the
    // first 200 are kept.
    c->enableResult = 1;
    c->count = 250;
    c->samples[0] = RawSample{0, {1919, 0}};
    for (uint32_t i = 1; i < 250; ++i)
        c->samples[i] = RawSample{i, {19200019 + 38400 * (i - 1), 0}};
    const auto r = Run(*c);
    const uint64_t got[5] = {uint64_t(r->gyro.count), r->gyro.startTimestamp, r->gyro.endTimestamp,
                             r->elements[0].timestamp, r->elements[1].timestamp};
    kvfuzz::Example("ticks_250", *c, got, {200, 99, 1396000, 99, 1000000});
}

KVFUZZ_TARGET(Case, Run, Examples)
