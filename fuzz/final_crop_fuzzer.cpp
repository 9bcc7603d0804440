// GetFinalCropRegion on frames, static metadata and platform answers built
// from the input (the Case record): the framework camera id, the per-camera
// crop table (four entries of nine int32 words), the timestamp, the zoom ratio
// and the frame's shift tag; the framework camera's active array and the crop
// camera's zoom-stabilisation rate; the platform's role and shift answers;
// the sensor size and the in-sensor-zoom flag.
//
// Each input is run twice: without a shift source (no platform holder, no
// shift tag), then as built. Checks:
// - without an active array the result is non-zero, the crop untouched and
//   the platform never asked;
// - otherwise the result is 0, -1 or -2; a crop without area is all zeros
//   with result 0; a crop with area comes with result 0 exactly when the
//   frame has a timestamp;
// - the shift never changes the crop's size nor the result, moves it only
//   on a frame with a timestamp, and a moved crop lies on the sensor (in the
//   device's wrapping 32-bit sums);
// - the platform is asked at most once, with this camera's id, the frame's
//   timestamp (0 without one), node type 1 or 2 and the 1.5 s tolerance.
// The crop itself is checked once at start-up on hand-worked examples.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "FuzzSupport.h"

namespace {

using kvalgo2::ChiRect;
using kvhost::AdapterOp;

struct Entry {
    int32_t cameraId;
    int32_t unused[4];
    ChiRect crop;
};

struct Case {
    int64_t timestampNs;
    // The object's camera ids (the second selects the crop entry), the
    // frame's framework camera id and the camera of the one role entry.
    int8_t cameraId, satCameraId, fwkCameraId, roleCamera;
    // Presence: 0 absent, 1 without elements, other values present.
    uint8_t fwkIdTag, fwkStatic, activeTag, zoomEisTag;
    uint8_t tableTag, timestampTag, zoomRatioTag, shiftTag;
    uint8_t shiftCount;  // 1 + % 6 elements
    uint8_t isInSensorZoom, holderAvailable, shiftFound;
    int32_t roleId;
    int32_t holderShiftIsIsz;
    Entry entries[4];
    float zoomRatio, zoomEis, shift[6];
    ChiRect active;
    kvalgo2::KvDimension sensor;
    int32_t holderShiftX, holderShiftY;
};

struct Result {
    int rc;
    ChiRect crop;
    int nodeType;  // of the shift query, 0 without one
};

bool Has(uint8_t presence) {
    return presence > 1;
}

Result Call(const Case& c, const std::shared_ptr<kvhost::Metadata>& frame, bool withShift) {
    kvhost::AdapterScript script;
    script.holderAvailable = withShift && (c.holderAvailable & 1);
    script.shiftFound = c.shiftFound & 1;
    script.shiftX = c.holderShiftX;
    script.shiftY = c.holderShiftY;
    script.shiftIsIsz = c.holderShiftIsIsz;
    script.roleMap[c.roleCamera] = kvholder::RoleIdDescription{c.roleId, "", "", ""};
    kvhost::setAdapterScript(script);
    const kvhost::AdapterRecorder recorder;
    if (withShift) {
        std::vector<float> shift(c.shift, c.shift + 1 + c.shiftCount % 6);
        kvfuzz::Put(*frame, "kovani.sat.output.shift", c.shiftTag, shift);
    }

    kvalgo2::MetaUtils utils;
    utils.SetCameraId(c.cameraId, c.satCameraId);
    ChiRect crop;
    kvfuzz::Poison(crop, 0x5C);
    const ChiRect before = crop;
    Result r{utils.GetFinalCropRegion(frame, crop, c.sensor, c.isInSensorZoom & 1), crop, 0};
    frame->erase("kovani.sat.output.shift");

    const bool active = Has(c.fwkIdTag) && c.fwkStatic != 0 && Has(c.activeTag);
    const auto shifts = recorder.calls(AdapterOp::GetShift);
    if (!active) {
        KVFUZZ_CHECK(r.rc != 0 && kvfuzz::SameBytes(crop, before) &&
                         recorder.calls(AdapterOp::GetHolder).empty(),
                     "result %d without an active array", r.rc);
        return r;
    }
    KVFUZZ_CHECK(r.rc == 0 || r.rc == -1 || r.rc == -2, "result %d", r.rc);
    if (crop.width == 0 || crop.height == 0) {
        KVFUZZ_CHECK(kvfuzz::SameBytes(crop, ChiRect{0, 0, 0, 0}) && r.rc == 0 && shifts.empty(),
                     "crop (%u, %u, %u, %u) without area, result %d", crop.left, crop.top,
                     crop.width, crop.height, r.rc);
    } else {
        KVFUZZ_CHECK((r.rc == 0) == Has(c.timestampTag), "result %d, timestamp %d", r.rc,
                     c.timestampTag);
    }
    KVFUZZ_CHECK(shifts.size() <= (script.holderAvailable ? 1u : 0u), "%zu shift queries",
                 shifts.size());
    if (!shifts.empty()) {
        const adapter::ShiftData& q = shifts[0].shift;
        r.nodeType = q.nodeType;
        KVFUZZ_CHECK(q.cameraId == c.satCameraId && (q.nodeType == 1 || q.nodeType == 2) &&
                         q.timestamp == (Has(c.timestampTag) ? c.timestampNs : 0) &&
                         shifts[0].tolerance == 1500000000,
                     "shift query: camera %d, node %d, timestamp %lld, tolerance %d", q.cameraId,
                     q.nodeType, static_cast<long long>(q.timestamp), shifts[0].tolerance);
    }
    return r;
}

Result Run(const Case& c) {
    auto frame = kvhost::Metadata::create();
    kvfuzz::Put(*frame, "kovani.snapshot.fwkCameraId", c.fwkIdTag,
                std::vector<int32_t>{c.fwkCameraId});
    std::vector<int32_t> table;
    for (const Entry& e : c.entries) {
        table.push_back(e.cameraId);
        table.insert(table.end(), e.unused, e.unused + 4);
        for (int32_t w : kvfuzz::RectWords(e.crop)) table.push_back(w);
    }
    kvfuzz::Put(*frame, "com.kovani.camera.sensorpolicy.cropregions", c.tableTag, table);
    kvfuzz::Put(*frame, 0xE0010u, c.timestampTag, std::vector<int64_t>{c.timestampNs});
    kvfuzz::Put(*frame, 0x1002Fu, c.zoomRatioTag, std::vector<float>{c.zoomRatio});

    // The framework camera's static metadata and the crop camera's; one
    // container when the ids agree.
    kvhost::clearStaticMetadata();
    auto fwkStatic = kvhost::Metadata::create();
    kvfuzz::Put(*fwkStatic, 0xF0000u, c.activeTag, kvfuzz::RectWords(c.active));
    if (c.fwkStatic != 0)
        kvhost::setStaticMetadata(static_cast<uint32_t>(c.fwkCameraId), fwkStatic);
    auto satStatic =
        c.fwkStatic != 0 && c.satCameraId == c.fwkCameraId ? fwkStatic : kvhost::Metadata::create();
    kvfuzz::Put(*satStatic, "com.kovani.camera.zoomeis.effectiverate", c.zoomEisTag,
                std::vector<float>{c.zoomEis});
    if (c.zoomEisTag != 0)
        kvhost::setStaticMetadata(static_cast<uint32_t>(c.satCameraId), satStatic);

    const Result plain = Call(c, frame, false);
    const Result r = Call(c, frame, true);
    const ChiRect& a = plain.crop;
    const ChiRect& b = r.crop;
    KVFUZZ_CHECK(r.rc == plain.rc && a.width == b.width && a.height == b.height,
                 "shifted crop %ux%u with result %d, unshifted %ux%u with %d", b.width, b.height,
                 r.rc, a.width, a.height, plain.rc);
    if (a.left != b.left || a.top != b.top) {
        KVFUZZ_CHECK(r.rc == 0 && static_cast<int32_t>(b.left) >= 0 &&
                         static_cast<int32_t>(b.top) >= 0 && b.width + b.left <= c.sensor.width &&
                         b.height + b.top <= c.sensor.height,
                     "crop moved to (%u, %u, %u, %u) off sensor %ux%u or with result %d", b.left,
                     b.top, b.width, b.height, c.sensor.width, c.sensor.height, r.rc);
    }
    return r;
}

// Camera 2 of four crop table entries, active array and sensor 4000x3000,
// a timestamp, zoom ratio 2 and stabilisation rate 1.5.
Case Base(ChiRect crop) {
    Case c;
    std::memset(&c, 0, sizeof c);
    c.satCameraId = c.fwkCameraId = 2;
    c.fwkIdTag = c.fwkStatic = c.activeTag = c.zoomEisTag = 2;
    c.tableTag = c.timestampTag = c.zoomRatioTag = 2;
    for (int32_t i = 0; i < 4; ++i) c.entries[i] = Entry{i, {}, ChiRect{1, 1, 1, 1}};
    c.entries[2].crop = crop;
    c.timestampNs = 1000000000;
    c.zoomRatio = 2.0f;
    c.zoomEis = 1.5f;
    c.active = ChiRect{0, 0, 4000, 3000};
    c.sensor = kvalgo2::KvDimension{4000, 3000};
    return c;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    kvfuzz::InitProcess();
    struct Example {
        const char* name;
        Case c;
        Result want;
    };
    // The ratios agree; the platform's shift applies; role 20 at a zoom
    // above the stabilisation rate asks with node type 2.
    Example platform{
        "platform_shift", Base({1000, 750, 2000, 1500}), {0, {1010, 744, 2000, 1500}, 2}};
    platform.c.holderAvailable = platform.c.shiftFound = 1;
    platform.c.holderShiftX = 10;
    platform.c.holderShiftY = -6;
    platform.c.roleCamera = 2;
    platform.c.roleId = 20;
    // Height corrected to 1500 at top 750; the frame's shift of 4 floats.
    Example frame{"frame_shift", Base({1000, 1000, 2000, 1000}), {0, {1012, 742, 2000, 1500}, 0}};
    frame.c.shiftTag = 2;
    frame.c.shiftCount = 3;
    frame.c.shift[0] = 12.5f;
    frame.c.shift[1] = -8.0f;
    // In-sensor zoom: (1500, 1125, 1000, 750) becomes (1000, 750, 2000,
    // 1500); a shift measured in-sensor is taken as it is.
    Example isz{"in_sensor_zoom", Base({1500, 1125, 1000, 750}), {0, {960, 780, 2000, 1500}, 1}};
    isz.c.isInSensorZoom = isz.c.holderAvailable = isz.c.shiftFound = 1;
    isz.c.holderShiftX = -40;
    isz.c.holderShiftY = 30;
    isz.c.holderShiftIsIsz = 1;
    // Widened past the left edge: the sensor's whole width; no timestamp.
    Example wide{"sensor_width", Base({0, 0, 1000, 3000}), {-2, {0, 0, 4000, 3000}, 0}};
    wide.c.timestampTag = 0;
    for (const Example& e : {platform, frame, isz, wide}) {
        const Result r = Run(e.c);
        KVFUZZ_CHECK(r.rc == e.want.rc && kvfuzz::SameBytes(r.crop, e.want.crop) &&
                         r.nodeType == e.want.nodeType,
                     "%s: result %d, crop (%u, %u, %u, %u), node type %d", e.name, r.rc,
                     r.crop.left, r.crop.top, r.crop.width, r.crop.height, r.nodeType);
        kvfuzz::SaveSeed(e.name, e.c);
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Run(kvfuzz::Input(data, size).Take<Case>());
    return 0;
}
