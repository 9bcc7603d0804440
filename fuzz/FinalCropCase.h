// Input of the GetFinalCropRegion target: the frame, the static metadata of
// the cameras involved, the platform adapter's answers and the arguments.
#pragma once

#include <cstdint>

#include "FuzzSupport.h"

namespace kvfuzz {

// One entry of the sensor policy's per-camera crop table: nine int32 words.
struct CropTableEntry {
    int32_t cameraId = 0;
    int32_t unused[4] = {};
    kvalgo2::ChiRect crop{};
};

struct RoleEntry {
    int32_t cameraId = 0;
    int32_t roleId = 0;
};

struct FinalCropCase {
    // The object's camera ids; only the second one selects the crop entry.
    int32_t cameraId = 0;
    int32_t satCameraId = 0;
    // Frame: framework camera id, crop table, timestamp, zoom ratio, shift.
    bool hasFwkCameraId = false;
    int32_t fwkCameraId = 0;
    uint8_t table = kAbsent;
    CropTableEntry entries[4];
    uint8_t timestamp = kAbsent;
    int64_t timestampNs = 0;
    bool hasZoomRatio = false;
    float zoomRatio = 0.0f;
    int32_t shiftCount = -1;  // -1 absent, 0 present without elements
    float shift[6] = {};
    // Static metadata: the framework camera's (active array) and the crop
    // camera's (zoom-stabilisation rate); one container when the ids agree.
    bool hasFwkStatic = false;
    bool hasActive = false;
    kvalgo2::ChiRect active{};
    bool hasZoomEis = false;
    float zoomEis = 0.0f;
    // Arguments.
    kvalgo2::KvDimension sensor{};
    bool isInSensorZoom = false;
    // Platform adapter.
    bool holderAvailable = false;
    bool shiftFound = false;
    int32_t holderShiftX = 0;
    int32_t holderShiftY = 0;
    uint8_t holderShiftIsIsz = 0;
    int32_t roleCount = 0;
    RoleEntry roles[3];
};

template <typename IO>
void Visit(IO& io, FinalCropCase& c) {
    io.range(c.cameraId, -1, 4);
    io.range(c.satCameraId, -1, 4);
    io.flag(c.hasFwkCameraId);
    io.range(c.fwkCameraId, -1, 4);
    io.range(c.table, uint8_t{kAbsent}, uint8_t{kPresent});
    for (CropTableEntry& e : c.entries) {
        io.range(e.cameraId, -1, 4);
        for (int32_t& w : e.unused) io.raw(w);
        VisitRect(io, e.crop);
    }
    io.range(c.timestamp, uint8_t{kAbsent}, uint8_t{kPresent});
    io.raw(c.timestampNs);
    io.flag(c.hasZoomRatio);
    io.real(c.zoomRatio);
    io.range(c.shiftCount, -1, 6);
    for (float& f : c.shift) io.real(f);
    io.flag(c.hasFwkStatic);
    io.flag(c.hasActive);
    VisitRect(io, c.active);
    io.flag(c.hasZoomEis);
    io.real(c.zoomEis);
    io.dim(c.sensor.width);
    io.dim(c.sensor.height);
    io.flag(c.isInSensorZoom);
    io.flag(c.holderAvailable);
    io.flag(c.shiftFound);
    io.sdim(c.holderShiftX);
    io.sdim(c.holderShiftY);
    io.raw(c.holderShiftIsIsz);
    io.range(c.roleCount, 0, 3);
    for (RoleEntry& r : c.roles) {
        io.range(r.cameraId, -1, 4);
        io.range(r.roleId, 0, 40);
    }
}

}  // namespace kvfuzz
