// Input of the gyroscope target: the platform's answers (enable result and
// 0 to 300 raw samples) and the call's arguments.
#pragma once

#include <cstdint>

#include "FuzzSupport.h"

namespace kvfuzz {

constexpr int32_t kMaxRawSamples = 300;

// How the raw tick counts are drawn: any 64-bit value, a realistic range of
// a 19.2 MHz timer (below 2^40, about 16 hours), or a handful of values so
// that equal timestamps are common.
enum TickSpread : uint8_t { kAnyTicks = 0, kTimerTicks = 1, kFewTicks = 2 };

struct GyroRawSample {
    uint32_t rates = 0;  // bit patterns of x, y and z are derived from it
    uint64_t ticks = 0;
};

struct GyroCase {
    int32_t enableResult = 1;
    int32_t sampleCount = 0;
    uint8_t spread = kAnyTicks;
    GyroRawSample samples[kMaxRawSamples];
    int32_t query = 0;
    bool nullKey = false;
    bool nullMetadata = false;
};

template <typename IO>
void Visit(IO& io, GyroCase& c) {
    io.range(c.enableResult, -2, 2);
    io.range(c.sampleCount, 0, kMaxRawSamples);
    io.range(c.spread, uint8_t{kAnyTicks}, uint8_t{kFewTicks});
    io.raw(c.query);
    io.flag(c.nullKey);
    io.flag(c.nullMetadata);
    for (int32_t i = 0; i < c.sampleCount; ++i) {
        io.raw(c.samples[i].rates);
        io.raw(c.samples[i].ticks);
    }
}

}  // namespace kvfuzz
