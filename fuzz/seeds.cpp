// Writes the seed corpora of the fuzz targets: a few hand-picked cases per
// target, encoded with the targets' own input format.
//
//   metautils_fuzz_seeds <corpus dir>    writes <corpus dir>/<target>/<case>
//
// The corpora in the tree (fuzz/corpus/) were written with it; run it again
// after changing a target's input format.
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "FacesFocusCase.h"
#include "FinalCropCase.h"
#include "FuzzSupport.h"
#include "GyroCase.h"
#include "MapRectCase.h"

namespace {

using kvfuzz::Rect;

std::string gRoot;

template <typename Case>
void Write(const char* target, const char* name, Case c) {
    const std::string dir = gRoot + "/" + target;
    mkdir(dir.c_str(), 0755);
    kvfuzz::Writer w;
    kvfuzz::Visit(w, c);
    const std::string path = dir + "/" + name;
    FILE* f = std::fopen(path.c_str(), "wb");
    if (f == nullptr || std::fwrite(w.bytes().data(), 1, w.bytes().size(), f) != w.bytes().size()) {
        std::perror(path.c_str());
        std::exit(1);
    }
    std::fclose(f);
}

// ---- MapRectToInput: the worked example and the rules around it -------------

void MapRectSeeds() {
    const auto full = Rect(0, 0, 4000, 3000);
    kvfuzz::MapRectCase c{Rect(1000, 1000, 400, 400), full, 1920, 1080, full};
    Write("map_rect", "worked_example", c);  // (480, 300, 192, 192)
    c.src = Rect(1000, 200, 400, 400);
    Write("map_rect", "corner_in_top_margin", c);  // (480, 0, 192, 192)
    c.src = Rect(3810, 1000, 400, 400);
    Write("map_rect", "past_right_edge", c);  // (1829, 300, 90, 192)
    c.src = Rect(1000, 1000, 400, 400);
    c.sensor = Rect(0, 0, 4000, 0);
    Write("map_rect", "zero_sensor_height", c);  // height fills: (360, 360, 144, 144)
    c.sensor = Rect(0, 0, 6000, 2000);
    c.refer = Rect(0, 0, 6000, 2000);
    Write("map_rect", "wide_sensor", c);
    c.inputWidth = 0;
    Write("map_rect", "refused_zero_width", c);
}

// ---- GetFinalCropRegion ---------------------------------------------------

kvfuzz::FinalCropCase CropBase(kvalgo2::ChiRect crop) {
    kvfuzz::FinalCropCase c;
    c.cameraId = 0;
    c.satCameraId = 2;
    c.hasFwkCameraId = true;
    c.fwkCameraId = 2;
    c.table = kvfuzz::kPresent;
    for (int32_t i = 0; i < 4; ++i) {
        c.entries[i].cameraId = i;
        c.entries[i].crop = Rect(1, 1, 1, 1);
    }
    c.entries[2].crop = crop;  // this camera's entry is the third
    c.timestamp = kvfuzz::kPresent;
    c.timestampNs = 1000000000;
    c.hasZoomRatio = true;
    c.zoomRatio = 2.0f;
    c.hasFwkStatic = true;
    c.hasActive = true;
    c.active = Rect(0, 0, 4000, 3000);
    c.hasZoomEis = true;
    c.zoomEis = 1.5f;
    c.sensor = kvalgo2::KvDimension{4000, 3000};
    return c;
}

void FinalCropSeeds() {
    // Ratios equal, platform shift applied; role 20 above the rate: node 2.
    auto c = CropBase(Rect(1000, 750, 2000, 1500));
    c.holderAvailable = true;
    c.shiftFound = true;
    c.holderShiftX = 10;
    c.holderShiftY = -6;
    c.roleCount = 1;
    c.roles[0] = kvfuzz::RoleEntry{2, 20};
    Write("final_crop", "platform_shift", c);

    // Height corrected to 1500 at top 750; the frame's shift of 4 floats.
    c = CropBase(Rect(1000, 1000, 2000, 1000));
    c.shiftCount = 4;
    c.shift[0] = 12.5f;
    c.shift[1] = -8.0f;
    c.shift[3] = 1.0f;
    Write("final_crop", "ratio_and_frame_shift", c);

    // Widened past the left edge: left 0 and the sensor's width; no timestamp.
    c = CropBase(Rect(0, 0, 1000, 3000));
    c.timestamp = kvfuzz::kAbsent;
    Write("final_crop", "sensor_width_without_timestamp", c);

    // In-sensor zoom: (1500, 1125, 1000, 750) becomes (1000, 750, 2000, 1500);
    // a shift measured in-sensor kept as it is.
    c = CropBase(Rect(1500, 1125, 1000, 750));
    c.isInSensorZoom = true;
    c.holderAvailable = true;
    c.shiftFound = true;
    c.holderShiftX = -40;
    c.holderShiftY = 30;
    c.holderShiftIsIsz = 1;
    Write("final_crop", "in_sensor_zoom", c);

    // A frame shift of 3 floats is ignored.
    c = CropBase(Rect(1000, 750, 2000, 1500));
    c.shiftCount = 3;
    c.shift[0] = 100.0f;
    c.shift[1] = 100.0f;
    Write("final_crop", "frame_shift_of_three", c);

    c.hasActive = false;
    Write("final_crop", "no_active_array", c);
}

// ---- Faces and focus --------------------------------------------------------

kvfuzz::FacesFocusCase FacesBase() {
    kvfuzz::FacesFocusCase c;
    c.hasFwkCameraId = true;
    c.fwkCameraId = 1;
    c.hasStatic = true;
    c.hasActive = true;
    c.active = Rect(0, 0, 4000, 3000);
    c.hasCrop = true;
    c.crop = Rect(0, 0, 4000, 3000);
    c.faceTag = kvfuzz::kPresent;
    c.faceCount = 1;
    // Face (1000, 1000, 400, 400) maps to (480, 300, 192, 192) in 1920x1080.
    const int32_t face[9] = {1000, 1000, 1400, 1400, 0, 7, 90, 8, 0};
    std::copy(face, face + 9, c.faces[0]);
    c.hasAfRegion = true;
    c.afWords = 11;
    const int32_t af[11] = {3, 1, 100, 200, 300, 400, 0, 0, 0, 0, 0};
    std::copy(af, af + 11, c.af);
    c.width = 1920;
    c.height = 1080;
    return c;
}

void FacesSeeds() {
    auto c = FacesBase();
    Write("faces_focus", "worked_example", c);

    // Three faces in a large image (active size doubling from face to face);
    // the second focus region.
    c = FacesBase();
    c.faceCount = 3;
    const int32_t more[2][9] = {{200, 300, 600, 700, 0, 1, 180, 2, 0},
                                {2000, 1500, 2100, 1600, 0, 3, 300, 4, 0}};
    std::copy(more[0], more[0] + 9, c.faces[1]);
    std::copy(more[1], more[1] + 9, c.faces[2]);
    c.width = 8000;
    c.height = 6000;
    c.af[1] = 2;
    const int32_t second[4] = {500, 600, 900, 1000};
    std::copy(second, second + 4, c.af + 7);
    Write("faces_focus", "large_image_three_faces", c);

    // In-sensor zoom, face luma, two words that make no face.
    c = FacesBase();
    c.inSensorZoomTag = kvfuzz::kPresent;
    c.inSensorZoomStatus = 1;
    c.useInSensorZoom = 1;
    c.hasFaceLuma = true;
    c.faceLuma = 77;
    c.spareWords = 2;
    c.faces[0][0] = 1500;
    c.faces[0][2] = 1700;
    Write("faces_focus", "in_sensor_zoom", c);

    // No crop region; an unknown region count.
    c = FacesBase();
    c.hasCrop = false;
    c.af[1] = 3;
    Write("faces_focus", "no_crop_region", c);
}

// ---- Gyroscope ----------------------------------------------------------------

void GyroSeeds() {
    kvfuzz::GyroCase c;
    c.spread = kvfuzz::kTimerTicks;
    c.sampleCount = 250;  // the first 200 are kept
    for (int32_t i = 0; i < c.sampleCount; ++i) {
        c.samples[i].rates = 0x3F800000u + static_cast<uint32_t>(i);
        c.samples[i].ticks = 19200000ull + 38400ull * static_cast<uint64_t>(i);
    }
    Write("gyro", "ascending_250", c);

    c.sampleCount = 10;
    for (int32_t i = 0; i < c.sampleCount; ++i) {
        c.samples[i].ticks = 19200000ull - 1000ull * static_cast<uint64_t>(i);
    }
    Write("gyro", "descending_10", c);

    // One second, 99 microseconds, 0 microseconds.
    c.sampleCount = 3;
    c.samples[0].ticks = 19200000;
    c.samples[1].ticks = 1919;
    c.samples[2].ticks = 19;
    Write("gyro", "conversion", c);

    c.enableResult = 0;
    Write("gyro", "refused", c);

    c.enableResult = 1;
    c.sampleCount = 0;
    c.nullKey = true;
    c.nullMetadata = true;
    Write("gyro", "no_samples", c);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s <corpus dir>\n", argv[0]);
        return 2;
    }
    gRoot = argv[1];
    mkdir(gRoot.c_str(), 0755);
    MapRectSeeds();
    FinalCropSeeds();
    FacesSeeds();
    GyroSeeds();
    return 0;
}
