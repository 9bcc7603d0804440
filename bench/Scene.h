// The frame a face/crop plug-in sees, built once for every benchmark: the
// frame's metadata, the static metadata of its cameras and the platform
// adapter's answers, as on a phone with a main camera (framework id 0) whose
// stabilised crop comes from the platform.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <memory>

#include "MetaUtils.h"
#include "kvhost/Adapter.h"
#include "kvhost/Metadata.h"

namespace kvbench {

constexpr int kCameraId = 0;     // the framework camera
constexpr int kSatCameraId = 2;  // the physical camera whose crop applies
constexpr int kInputWidth = 1920;
constexpr int kInputHeight = 1080;
constexpr int kFaces = 10;
constexpr int kGyroSamples = 200;
constexpr kvalgo2::KvDimension kSensorSize = {4000, 3000};

struct Scene {
    std::shared_ptr<KvMetadata> frame;
    std::shared_ptr<KvMetadata> stat;     // camera 0's static metadata
    std::shared_ptr<KvMetadata> satStat;  // the SAT camera's
    kvhost::AdapterScript adapter;
};

// The scene, built and installed on first use, and every getter of the
// plug-in frame called once on it, so that one-time set-up (the adapter
// client, the role statics of the sensor type) is behind every benchmark.
const Scene& scene();

// Registers the scene's static metadata, scripts the adapter and turns log
// echo off: lines go nowhere, as on a device whose sinks write to
// preallocated buffers. For benchmarks that install captures of their own.
void Install(const Scene& s);

// The getters a face/crop plug-in calls for one frame, together; the sum of
// their result codes (0 when all succeed).
int PluginFrame(kvalgo2::MetaUtils& utils, const std::shared_ptr<KvMetadata>& frame);

// A MetaUtils with the scene's camera ids.
kvalgo2::MetaUtils Utils();

// Stops the benchmark with an error when a call did not give what the scene
// holds: a fast wrong answer must not pass for a fast answer.
inline bool Expect(benchmark::State& state, bool ok, const char* what) {
    if (!ok) state.SkipWithError(what);
    return ok;
}

}  // namespace kvbench
