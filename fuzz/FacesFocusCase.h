// Input of the faces and focus target: a frame with faces, in-sensor-zoom
// status, crop region, face luma and autofocus region, the static metadata
// holding the active array, and the image size.
#pragma once

#include <cstdint>

#include "FuzzSupport.h"

namespace kvfuzz {

constexpr int32_t kMaxFaces = 10;
constexpr int32_t kFaceWords = 9;
constexpr int32_t kMaxAfWords = 16;

struct FacesFocusCase {
    bool hasFwkCameraId = false;
    int32_t fwkCameraId = 0;
    bool hasStatic = false;
    bool hasActive = false;
    kvalgo2::ChiRect active{};
    bool hasCrop = false;
    kvalgo2::ChiRect crop{};
    // Faces: nine words each, followed by up to eight words that make no
    // whole face.
    uint8_t faceTag = kAbsent;
    int32_t faceCount = 0;
    int32_t spareWords = 0;
    int32_t faces[kMaxFaces][kFaceWords] = {};
    int32_t spare[kFaceWords - 1] = {};
    uint8_t inSensorZoomTag = kAbsent;
    int32_t inSensorZoomStatus = 0;
    bool hasFaceLuma = false;
    int32_t faceLuma = 0;
    // Autofocus region: 11 to 16 words; word 1 is the region count.
    bool hasAfRegion = false;
    int32_t afWords = 11;
    bool afCountAnyValue = false;
    int32_t af[kMaxAfWords] = {};
    // Arguments.
    int32_t width = 0;
    int32_t height = 0;
    int32_t useInSensorZoom = 0;
};

template <typename IO>
void Visit(IO& io, FacesFocusCase& c) {
    io.flag(c.hasFwkCameraId);
    io.range(c.fwkCameraId, 0, 3);
    io.flag(c.hasStatic);
    io.flag(c.hasActive);
    VisitRect(io, c.active);
    io.flag(c.hasCrop);
    VisitRect(io, c.crop);
    io.range(c.faceTag, uint8_t{kAbsent}, uint8_t{kPresent});
    io.range(c.faceCount, 0, kMaxFaces);
    io.range(c.spareWords, 0, kFaceWords - 1);
    for (int32_t i = 0; i < c.faceCount; ++i) {
        for (int32_t& w : c.faces[i]) io.sdim(w);
    }
    for (int32_t i = 0; i < c.spareWords; ++i) io.raw(c.spare[i]);
    io.range(c.inSensorZoomTag, uint8_t{kAbsent}, uint8_t{kPresent});
    io.range(c.inSensorZoomStatus, -1, 2);
    io.flag(c.hasFaceLuma);
    io.raw(c.faceLuma);
    io.flag(c.hasAfRegion);
    io.range(c.afWords, 11, kMaxAfWords);
    io.raw(c.af[0]);
    io.flag(c.afCountAnyValue);
    if (c.afCountAnyValue) {
        io.sdim(c.af[1]);
    } else {
        io.range(c.af[1], -2, 4);
    }
    for (int32_t i = 2; i < c.afWords; ++i) io.sdim(c.af[i]);
    io.sdim(c.width);
    io.sdim(c.height);
    io.range(c.useInSensorZoom, -1, 2);
}

}  // namespace kvfuzz
