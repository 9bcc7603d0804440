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
// The crop itself is checked once at start-up on a hand-worked example.
#include "FuzzSupport.h"

namespace {

using kvalgo2::ChiRect;

struct Case {
    int64_t timestampNs;
    // The object's camera ids (the second selects the crop entry), the
    // frame's framework camera id and the camera of the one role entry.
    int8_t cameraId, satCameraId, fwkCameraId, roleCamera;
    // Presence: 0 absent, 1 without elements, other values present.
    uint8_t fwkIdTag, fwkStatic, activeTag, zoomEisTag, tableTag, timestampTag, zoomRatioTag;
    uint8_t shiftTag, shiftCount, isInSensorZoom, holderAvailable, shiftFound;  // 1 + % 6 shifts
    int32_t roleId, holderShiftIsIsz;
    int32_t table[4][9];  // entries: camera id, four unused words, crop
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
        kvfuzz::Put(*frame, "kovani.sat.output.shift", c.shiftTag,
                    std::vector<float>(c.shift, c.shift + 1 + c.shiftCount % 6));
    }
    kvalgo2::MetaUtils utils;
    utils.SetCameraId(c.cameraId, c.satCameraId);
    Result r{0, {}, 0};
    const ChiRect before = kvfuzz::Poison(r.crop, 0x5C);
    r.rc = utils.GetFinalCropRegion(frame, r.crop, c.sensor, c.isInSensorZoom & 1);
    frame->erase("kovani.sat.output.shift");

    const ChiRect& crop = r.crop;
    const bool timestamp = c.timestampTag > 1;
    const auto shifts = recorder.calls(kvhost::AdapterOp::GetShift);
    if (c.fwkIdTag < 2 || c.fwkStatic == 0 || c.activeTag < 2) {
        KVFUZZ_CHECK(r.rc != 0 && kvfuzz::SameBytes(crop, before) &&
                         recorder.calls(kvhost::AdapterOp::GetHolder).empty(),
                     "result %d without an active array", r.rc);
        return r;
    }
    KVFUZZ_CHECK(crop.width != 0 && crop.height != 0
                     ? (r.rc == 0 || r.rc == -1 || r.rc == -2) && (r.rc == 0) == timestamp
                     : kvfuzz::SameBytes(crop, ChiRect{0, 0, 0, 0}) && r.rc == 0 && shifts.empty(),
                 "result %d", r.rc);
    if (!shifts.empty()) {
        const adapter::ShiftData& q = shifts[0].shift;
        r.nodeType = q.nodeType;
        KVFUZZ_CHECK(shifts.size() == 1 && script.holderAvailable && q.cameraId == c.satCameraId &&
                         (q.nodeType == 1 || q.nodeType == 2) &&
                         q.timestamp == (timestamp ? c.timestampNs : 0) &&
                         shifts[0].tolerance == 1500000000,
                     "shift query of camera %d", q.cameraId);
    }
    return r;
}

Result Run(const Case& c) {
    auto frame = kvhost::Metadata::create();
    kvfuzz::Put(*frame, "com.kovani.camera.sensorpolicy.cropregions", c.tableTag,
                std::vector<int32_t>(&c.table[0][0], &c.table[0][0] + 36));
    kvfuzz::Put(*frame, 0xE0010u, c.timestampTag, std::vector<int64_t>{c.timestampNs});
    kvfuzz::Put(*frame, 0x1002Fu, c.zoomRatioTag, std::vector<float>{c.zoomRatio});

    // The framework camera's static metadata and the crop camera's; one
    // container when the ids agree.
    const auto fwkStatic =
        kvfuzz::FrameCamera(*frame, c.fwkIdTag, c.fwkCameraId, c.fwkStatic, c.activeTag, c.active);
    auto satStatic =
        c.fwkStatic != 0 && c.satCameraId == c.fwkCameraId ? fwkStatic : kvhost::Metadata::create();
    kvfuzz::Put(*satStatic, "com.kovani.camera.zoomeis.effectiverate", c.zoomEisTag,
                std::vector<float>{c.zoomEis});
    if (c.zoomEisTag != 0)
        kvhost::setStaticMetadata(static_cast<uint32_t>(c.satCameraId), satStatic);

    const Result plain = Call(c, frame, false);
    const ChiRect& a = plain.crop;
    const Result r = Call(c, frame, true);
    const ChiRect& b = r.crop;
    KVFUZZ_CHECK(r.rc == plain.rc && a.width == b.width && a.height == b.height &&
                     ((a.left == b.left && a.top == b.top) ||
                      (r.rc == 0 && int32_t(b.left) >= 0 && int32_t(b.top) >= 0 &&
                       b.width + b.left <= c.sensor.width && b.height + b.top <= c.sensor.height)),
                 "shifted crop, result %d", r.rc);
    return r;
}

}  // namespace

void Examples() {
    // Camera 2 of four crop table entries, active array and sensor 4000x3000,
    // a timestamp, zoom ratio 2 and stabilisation rate 1.5.
    Case c{};
    c.satCameraId = c.fwkCameraId = 2;
    c.fwkIdTag = c.fwkStatic = c.activeTag = c.zoomEisTag = 2;
    c.tableTag = c.timestampTag = c.zoomRatioTag = 2;
    for (int32_t i = 0; i < 4; ++i) {
        c.table[i][0] = i;
        std::fill(c.table[i] + 5, c.table[i] + 9, i == 2 ? 1000 : 1);  // (1000, 1000, 2000, 1000)
    }
    c.table[2][7] = 2000;
    c.timestampNs = 1000000000;
    c.zoomRatio = 2.0f;
    c.zoomEis = 1.5f;
    c.active = ChiRect{0, 0, 4000, 3000};
    c.sensor = kvalgo2::KvDimension{4000, 3000};
    // Height corrected to 1500 at top 750; the zoom ratio agrees with the
    // crop's; the platform's shift applies; role 20 at a zoom above the
    // stabilisation rate asks with node type 2.
    c.holderAvailable = c.shiftFound = 1;
    c.holderShiftX = 10;
    c.holderShiftY = -6;
    c.roleCamera = 2;
    c.roleId = 20;
    kvfuzz::Example("platform_shift", c, Run(c), {0, {1010, 744, 2000, 1500}, 2});
}

KVFUZZ_TARGET(Case, Run, Examples)
