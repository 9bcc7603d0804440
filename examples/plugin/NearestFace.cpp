#include "NearestFace.h"

#include <cstdint>
#include <limits>

namespace nearestface {

namespace {

// Twice the centre of a span, so that odd sizes need no rounding.
int64_t DoubleCentre(int64_t start, int64_t size) {
    return 2 * start + size;
}

}  // namespace

NearestFace::NearestFace(int cameraId, int satCameraId) {
    utils_.SetCameraId(cameraId, satCameraId);
}

int NearestFace::Process(const Request& request, Face* face) {
    if (face == nullptr) return -2;
    kvalgo2::ChiRect active{};
    int rc = utils_.GetActiveArraySize(request.frame, &active);
    if (rc != 0) return rc;

    // A frame without a timestamp still gets its crop, only not stabilised,
    // so the crop's code does not stop the plug-in; a zero crop means none.
    kvalgo2::ChiRect crop{};
    utils_.GetFinalCropRegion(request.frame, crop, {active.width, active.height},
                              request.inSensorZoom);
    if (crop.width == 0 || crop.height == 0) crop = active;

    // Faces as (left, top, right, bottom, ...) in active-array coordinates,
    // nine values each: the crop's coordinates too.
    int* faces = nullptr;
    uint32_t count = 0;
    rc = utils_.GetFacesInfoHolder(request.frame, &faces, &count);
    if (rc != 0) return rc;
    if (count == 0) return -1;

    const int64_t cx = DoubleCentre(crop.left, crop.width);
    const int64_t cy = DoubleCentre(crop.top, crop.height);
    uint32_t nearest = 0;
    double best = std::numeric_limits<double>::infinity();
    for (uint32_t i = 0; i < count; ++i) {
        const int* f = faces + 9 * i;
        const double dx = static_cast<double>(int64_t{f[0]} + f[2] - cx);
        const double dy = static_cast<double>(int64_t{f[1]} + f[3] - cy);
        if (dx * dx + dy * dy < best) {  // of equally near faces the first wins
            best = dx * dx + dy * dy;
            nearest = i;
        }
    }

    const int* f = faces + 9 * nearest;
    const kvalgo2::ChiRect source{static_cast<uint32_t>(f[0]), static_cast<uint32_t>(f[1]),
                                  static_cast<uint32_t>(int64_t{f[2]} - f[0]),
                                  static_cast<uint32_t>(int64_t{f[3]} - f[1])};
    __UtilsImage_Rect mapped{};
    rc = utils_.MapRectToInput(source, crop, request.inputWidth, request.inputHeight, active,
                               &mapped);
    if (rc != 0) return rc;
    face->index = static_cast<int>(nearest);
    face->rect = mapped;
    return 0;
}

}  // namespace nearestface
