// GetFinalCropRegion on generated frames, static metadata and platform
// answers.
//
// The input builds: the frame's framework camera id, the per-camera crop table
// (absent, empty or four entries of nine int32 words), the timestamp, the zoom
// ratio and the frame's shift tag with 0 to 6 floats; the static metadata of
// the framework camera (active array) and of the crop camera (zoom
// stabilisation rate); the adapter's role map and shift answer; the sensor
// size and the in-sensor-zoom flag.
//
// What holds for every input:
// - without an active array the result is non-zero, the crop untouched and
//   the platform never asked;
// - otherwise a crop with a zero width or height is all zeros with result 0;
//   a non-zero crop comes with result 0 exactly when the frame has a
//   timestamp;
// - the shift query reaches the platform once when there is a holder and a
//   non-zero crop, with the record fully initialised: the frame's timestamp
//   (0 without one), the crop camera's id, node type 2 only for role 20 at or
//   above the stabilisation rate, unit scales and the 1.5 s tolerance;
// - the crop equals the reference model below, step for step: table entry,
//   in-sensor-zoom move, aspect correction to the active array, shift source
//   (platform first, then the frame's tag of exactly 4 floats), its scaling,
//   and the fit test that decides whether it is applied;
// - where a float of the input leaves the 32-bit range, so that its
//   truncation is the device's business, the weaker rule still holds: the
//   shift never changes the crop's size, and a crop that moved fits on the
//   sensor.
//
// Not a rule: the final crop lying on the sensor. The table's crop is taken
// as the sensor policy wrote it and the aspect correction may widen it past
// the sensor; only a shifted crop is tested against the sensor.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <unordered_map>
#include <vector>

#include "FinalCropCase.h"
#include "FuzzSupport.h"

namespace {

using kvalgo2::ChiRect;
using kvfuzz::FinalCropCase;

constexpr const char* kTableTag = "com.kovani.camera.sensorpolicy.cropregions";
constexpr const char* kShiftTag = "kovani.sat.output.shift";
constexpr const char* kEffectiveRateTag = "com.kovani.camera.zoomeis.effectiverate";
constexpr const char* kFwkCameraIdTag = "kovani.snapshot.fwkCameraId";
constexpr uint32_t kTimestampTag = 0xE0010;
constexpr uint32_t kZoomRatioTag = 0x1002F;
constexpr uint32_t kActiveArrayTag = 0xF0000;
constexpr int kToleranceNs = 1500000000;

using RoleMap = std::unordered_map<int, kvholder::RoleIdDescription>;

// Truncation toward zero of a float that fits in int32; false when it does
// not (or is not a number).
bool TruncToInt32(float value, int32_t& out) {
    if (!(value >= -2147483648.0f && value < 2147483648.0f)) return false;
    out = static_cast<int32_t>(value);
    return true;
}

adapter::ShiftData FreshShiftQuery() {
    adapter::ShiftData q;
    std::memset(&q, 0, sizeof q);
    q.reserved1 = 1.0;
    q.reserved2 = 1.0;
    q.cameraId = -1;
    return q;
}

struct Expectation {
    bool activeOk = false;
    bool cropKnown = false;  // the crop before the shift is known
    ChiRect cropBeforeShift{};
    bool emptied = false;  // the crop has no area and is returned as zeros
    bool timestampOk = false;
    bool asksPlatform = false;
    adapter::ShiftData query{};
    bool finalKnown = false;
    ChiRect final{};
};

// The final crop region, rule by rule.
Expectation Model(const FinalCropCase& c, const RoleMap& roles) {
    Expectation e;
    e.activeOk = c.hasFwkCameraId && c.hasFwkStatic && c.hasActive;
    if (!e.activeOk) return e;
    const ChiRect& active = c.active;
    const kvalgo2::KvDimension& sensor = c.sensor;
    const int32_t camera = c.satCameraId;

    // This camera's entry of the table; zeros without the table or an entry.
    ChiRect crop{0, 0, 0, 0};
    if (c.table == kvfuzz::kPresent) {
        for (const kvfuzz::CropTableEntry& entry : c.entries) {
            if (entry.cameraId == camera) {
                crop = entry.crop;
                break;
            }
        }
        // In-sensor zoom shows the sensor's centre half at twice the scale.
        if (c.isInSensorZoom) {
            const int32_t left = static_cast<int32_t>((crop.left - (sensor.width >> 2)) * 2u);
            const int32_t top = static_cast<int32_t>((crop.top - (sensor.height >> 2)) * 2u);
            if (left >= 0 && top >= 0) {
                const uint32_t width = crop.width * 2u;
                const uint32_t height = crop.height * 2u;
                if (width + static_cast<uint32_t>(left) <= sensor.width &&
                    height + static_cast<uint32_t>(top) <= sensor.height) {
                    crop = ChiRect{static_cast<uint32_t>(left), static_cast<uint32_t>(top), width,
                                   height};
                }
            }
        }
    }

    // Aspect of the active array, about the crop's centre.
    const float fw = static_cast<float>(crop.width) / static_cast<float>(active.width);
    const float fh = static_cast<float>(crop.height) / static_cast<float>(active.height);
    if (fh > fw + 0.01f) {
        int32_t width = 0;
        if (!TruncToInt32(fh * static_cast<float>(active.width), width)) return e;
        width &= ~1;
        const int32_t half = static_cast<int32_t>(crop.width - static_cast<uint32_t>(width)) >> 1;
        const int32_t left = static_cast<int32_t>(crop.left + static_cast<uint32_t>(half));
        if (left < 0) {
            crop.left = 0;
            crop.width = sensor.width;
        } else {
            crop.left = static_cast<uint32_t>(left);
            crop.width = static_cast<uint32_t>(width);
        }
    } else if (fw > fh + 0.01f) {
        int32_t height = 0;
        if (!TruncToInt32(fw * static_cast<float>(active.height), height)) return e;
        height &= ~1;
        const int32_t half = static_cast<int32_t>(crop.height - static_cast<uint32_t>(height)) >> 1;
        const int32_t top = static_cast<int32_t>(crop.top + static_cast<uint32_t>(half));
        if (top < 0) {
            crop.top = 0;
            crop.height = sensor.height;
        } else {
            crop.top = static_cast<uint32_t>(top);
            crop.height = static_cast<uint32_t>(height);
        }
    }
    e.cropKnown = true;
    e.cropBeforeShift = crop;
    if (crop.width == 0 || crop.height == 0) {
        e.emptied = true;
        e.finalKnown = true;
        e.final = ChiRect{0, 0, 0, 0};
        return e;
    }

    e.timestampOk = c.timestamp == kvfuzz::kPresent;
    const int64_t ts = e.timestampOk ? c.timestampNs : 0;
    const float rate = c.hasZoomEis ? c.zoomEis : 0.0f;
    const float ratio = c.hasZoomRatio ? c.zoomRatio : 0.0f;

    // Shift: the platform's for this frame, else the frame's own tag.
    int32_t sx = 0;
    int32_t sy = 0;
    bool measuredInSensorZoom = false;
    bool fromPlatform = false;
    if (c.holderAvailable) {
        e.asksPlatform = true;
        e.query = FreshShiftQuery();
        e.query.cameraId = camera;
        e.query.timestamp = ts;
        const auto it = roles.find(camera);
        const int32_t role = it == roles.end() ? 0 : it->second.roleId;
        e.query.nodeType = role == 20 && ratio >= rate ? 2 : 1;
        if (c.shiftFound) {
            sx = c.holderShiftX;
            sy = c.holderShiftY;
            measuredInSensorZoom = c.holderShiftIsIsz != 0;
            fromPlatform = true;
        }
    }
    if (!fromPlatform && c.shiftCount == 4) {
        if (!TruncToInt32(c.shift[0], sx) || !TruncToInt32(c.shift[1], sy)) return e;
        measuredInSensorZoom = c.shift[2] != 0.0f;
    }
    if (!measuredInSensorZoom && c.isInSensorZoom) {
        sx = static_cast<int32_t>(static_cast<uint32_t>(sx) * 2u);
        sy = static_cast<int32_t>(static_cast<uint32_t>(sy) * 2u);
    } else if (measuredInSensorZoom && !c.isInSensorZoom) {
        sx /= 2;
        sy /= 2;
    }

    // Applied only to a frame with a timestamp, and only if it stays on the
    // sensor.
    const int32_t left = static_cast<int32_t>(crop.left + static_cast<uint32_t>(sx));
    const int32_t top = static_cast<int32_t>(crop.top + static_cast<uint32_t>(sy));
    if (e.timestampOk && left >= 0 && top >= 0 &&
        crop.width + static_cast<uint32_t>(left) <= sensor.width &&
        crop.height + static_cast<uint32_t>(top) <= sensor.height) {
        crop.left = static_cast<uint32_t>(left);
        crop.top = static_cast<uint32_t>(top);
    }
    e.finalKnown = true;
    e.final = crop;
    return e;
}

// Whether a crop at (left, top) passes the fit test of the shift.
bool FitsSensor(const ChiRect& crop, const kvalgo2::KvDimension& sensor) {
    return static_cast<int32_t>(crop.left) >= 0 && static_cast<int32_t>(crop.top) >= 0 &&
           crop.width + crop.left <= sensor.width && crop.height + crop.top <= sensor.height;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    kvfuzz::InitProcess();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FinalCropCase c;
    kvfuzz::Reader reader(data, size);
    kvfuzz::Visit(reader, c);

    // The frame.
    auto frame = kvhost::Metadata::create();
    if (c.hasFwkCameraId) kvfuzz::Stored(frame->putInt32(kFwkCameraIdTag, {c.fwkCameraId}));
    if (c.table == kvfuzz::kPresent) {
        std::vector<int32_t> words;
        for (const kvfuzz::CropTableEntry& e : c.entries) {
            words.push_back(e.cameraId);
            words.insert(words.end(), e.unused, e.unused + 4);
            for (int32_t w : kvfuzz::RectWords(e.crop)) words.push_back(w);
        }
        kvfuzz::Stored(frame->putInt32(kTableTag, words));
    } else if (c.table == kvfuzz::kEmpty) {
        kvfuzz::Stored(frame->putEmpty(kTableTag));
    }
    if (c.timestamp == kvfuzz::kPresent) {
        kvfuzz::Stored(frame->putInt64(kTimestampTag, {c.timestampNs}));
    } else if (c.timestamp == kvfuzz::kEmpty) {
        kvfuzz::Stored(frame->putEmpty(kTimestampTag));
    }
    if (c.hasZoomRatio) kvfuzz::Stored(frame->putFloat(kZoomRatioTag, {c.zoomRatio}));
    if (c.shiftCount == 0) {
        kvfuzz::Stored(frame->putEmpty(kShiftTag));
    } else if (c.shiftCount > 0) {
        kvfuzz::Stored(
            frame->putFloat(kShiftTag, std::vector<float>(c.shift, c.shift + c.shiftCount)));
    }

    // Static metadata.
    kvhost::clearStaticMetadata();
    std::shared_ptr<kvhost::Metadata> fwkStatic;
    if (c.hasFwkStatic) {
        fwkStatic = kvhost::Metadata::create();
        if (c.hasActive)
            kvfuzz::Stored(fwkStatic->putInt32(kActiveArrayTag, kvfuzz::RectWords(c.active)));
        kvhost::setStaticMetadata(static_cast<uint32_t>(c.fwkCameraId), fwkStatic);
    }
    if (c.hasZoomEis) {
        std::shared_ptr<kvhost::Metadata> satStatic =
            fwkStatic && c.satCameraId == c.fwkCameraId ? fwkStatic : kvhost::Metadata::create();
        kvfuzz::Stored(satStatic->putFloat(kEffectiveRateTag, {c.zoomEis}));
        kvhost::setStaticMetadata(static_cast<uint32_t>(c.satCameraId), satStatic);
    }

    // The platform.
    kvhost::AdapterScript script;
    script.holderAvailable = c.holderAvailable;
    script.shiftFound = c.shiftFound;
    script.shiftX = c.holderShiftX;
    script.shiftY = c.holderShiftY;
    script.shiftIsIsz = c.holderShiftIsIsz;
    for (int32_t i = 0; i < c.roleCount; ++i) {
        script.roleMap[c.roles[i].cameraId] =
            kvholder::RoleIdDescription{c.roles[i].roleId, "", "", ""};
    }
    kvhost::setAdapterScript(script);
    const kvhost::AdapterRecorder recorder;  // this input's calls only

    kvalgo2::MetaUtils utils;
    utils.SetCameraId(c.cameraId, c.satCameraId);
    ChiRect crop;
    kvfuzz::Poison(crop, static_cast<uint8_t>(size));
    const ChiRect before = crop;
    const int rc = utils.GetFinalCropRegion(frame, crop, c.sensor, c.isInSensorZoom);

    const Expectation e = Model(c, script.roleMap);
    const auto holders = recorder.calls(kvhost::AdapterOp::GetHolder).size();
    const auto roleMaps = recorder.calls(kvhost::AdapterOp::GetRoleMap).size();
    const auto shifts = recorder.calls(kvhost::AdapterOp::GetShift);

    if (!e.activeOk) {
        KVFUZZ_CHECK(rc != 0, "result 0 without an active array");
        KVFUZZ_CHECK(kvfuzz::SameBytes(crop, before), "crop written without an active array");
        KVFUZZ_CHECK(holders == 0, "platform asked without an active array");
        return 0;
    }

    // Rules that hold whatever the model knows.
    const bool zeroSized = crop.width == 0 || crop.height == 0;
    KVFUZZ_CHECK(!zeroSized || kvfuzz::SameBytes(crop, ChiRect{0, 0, 0, 0}),
                 "zero-sized crop (%u, %u, %u, %u) not cleared", crop.left, crop.top, crop.width,
                 crop.height);
    if (zeroSized) {
        KVFUZZ_CHECK(rc == 0, "result %d for an empty crop", rc);
    } else {
        KVFUZZ_CHECK((rc == 0) == (c.timestamp == kvfuzz::kPresent), "result %d, timestamp %d", rc,
                     c.timestamp);
    }
    KVFUZZ_CHECK(shifts.size() <= 1 && roleMaps == shifts.size(),
                 "%zu shift queries, %zu role map queries", shifts.size(), roleMaps);
    if (!shifts.empty()) {
        const adapter::ShiftData& q = shifts[0].shift;
        KVFUZZ_CHECK(c.holderAvailable && !zeroSized, "shift query without holder or crop");
        KVFUZZ_CHECK(shifts[0].tolerance == kToleranceNs, "tolerance %d", shifts[0].tolerance);
        adapter::ShiftData expected = FreshShiftQuery();
        expected.cameraId = c.satCameraId;
        expected.timestamp = c.timestamp == kvfuzz::kPresent ? c.timestampNs : 0;
        expected.nodeType = q.nodeType;
        KVFUZZ_CHECK(kvfuzz::SameBytes(q, expected),
                     "shift query: timestamp %lld camera %d node %d scales %f %f",
                     static_cast<long long>(q.timestamp), q.cameraId, q.nodeType, q.reserved1,
                     q.reserved2);
        KVFUZZ_CHECK(q.nodeType == 1 || q.nodeType == 2, "node type %d", q.nodeType);
    }

    if (!e.cropKnown) return 0;
    if (e.emptied) {
        KVFUZZ_CHECK(zeroSized, "crop (%u, %u, %u, %u), expected it emptied", crop.left, crop.top,
                     crop.width, crop.height);
        KVFUZZ_CHECK(holders == 0, "platform asked for an empty crop");
        return 0;
    }
    KVFUZZ_CHECK(crop.width == e.cropBeforeShift.width && crop.height == e.cropBeforeShift.height,
                 "crop size %ux%u, expected %ux%u", crop.width, crop.height,
                 e.cropBeforeShift.width, e.cropBeforeShift.height);
    KVFUZZ_CHECK(holders == (c.holderAvailable ? 2u : 1u), "%zu holder requests", holders);
    KVFUZZ_CHECK(shifts.size() == (e.asksPlatform ? 1u : 0u), "%zu shift queries", shifts.size());
    if (e.asksPlatform) {
        KVFUZZ_CHECK(kvfuzz::SameBytes(shifts[0].shift, e.query),
                     "shift query node type %d, expected %d", shifts[0].shift.nodeType,
                     e.query.nodeType);
    }
    if (crop.left != e.cropBeforeShift.left || crop.top != e.cropBeforeShift.top) {
        KVFUZZ_CHECK(rc == 0 && FitsSensor(crop, c.sensor),
                     "crop moved to (%u, %u, %u, %u) off sensor %ux%u or with result %d", crop.left,
                     crop.top, crop.width, crop.height, c.sensor.width, c.sensor.height, rc);
    }
    if (e.finalKnown) {
        KVFUZZ_CHECK(kvfuzz::SameBytes(crop, e.final),
                     "crop (%u, %u, %u, %u), model (%u, %u, %u, %u)", crop.left, crop.top,
                     crop.width, crop.height, e.final.left, e.final.top, e.final.width,
                     e.final.height);
    }
    return 0;
}
