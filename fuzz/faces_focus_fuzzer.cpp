// GetFaceRect, GetFacesNoMap, GetFaceInfo, GetfocusROI and GetfocusTP on
// frames built from the input (the Case record): 0 to 10 faces plus words
// that make no whole face, the in-sensor-zoom status, crop region, face luma,
// an autofocus region of 11 to 16 words, the active array through the
// framework camera's static metadata, and any image size.
//
// Checks, for every input:
// - GetFaceRect: -1 with the whole record cleared, or 0 with the count of
//   whole faces (at most 10); every face inside the image with even size (a
//   zero rectangle for an image without area), its centre inside the image
//   or at its centre, a quarter-turn rotation, the extras of its words, the
//   largest face index the first face of largest area;
// - GetFacesNoMap: -1 without whole faces; only count, rectangles and extras
//   written;
// - GetFaceInfo: GetFaceRect's count and rectangles as inclusive corners,
//   the face luma and the extras;
// - GetfocusROI: 0, -1 or -2, the region untouched unless 0, a region count
//   other than 1 or 2 refused, an accepted region inside the image;
//   GetfocusTP: the same result and the centre of the region (of a zero one
//   on failure).
// Mapped faces and focus regions are checked once at start-up on a
// hand-worked example.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "FuzzSupport.h"

namespace {

using kvalgo2::ChiRect;
using kvalgo2::KVFaceInfo;

constexpr int kMaxFaces = 10;

struct Case {
    ChiRect active;
    ChiRect crop;
    int32_t faces[kMaxFaces][9];  // left, top, right, bottom, -, three extras, -
    int32_t spare[8];
    int32_t af[16];
    int32_t width, height;
    int32_t inSensorZoomStatus, faceLuma;
    // Presence: 0 absent, 1 without elements, other values present.
    uint8_t fwkIdTag, fwkCameraId, fwkStatic, activeTag;
    uint8_t cropTag, faceTag, inSensorZoomTag, faceLumaTag;
    uint8_t afTag;
    uint8_t faceCount;   // % 11
    uint8_t spareWords;  // % 9
    uint8_t afWords;     // 11 + % 6
    int32_t useInSensorZoom;
};

struct Result {
    KVFaceInfo rect;
    __UtilsImage_Rect roi;
    __UtilsImage_point point;
};

// Whether the image has area; an image without it refuses every face.
bool Area(const Case& c) {
    return c.width >= 1 && c.height >= 1;
}

void CheckFaceRect(const Case& c, int rc, const KVFaceInfo& info, int faces) {
    KVFaceInfo zeros;
    std::memset(&zeros, 0, sizeof zeros);
    if (rc != 0) {
        KVFUZZ_CHECK(rc == -1 && kvfuzz::SameBytes(info, zeros), "GetFaceRect result %d", rc);
        return;
    }
    KVFUZZ_CHECK(info.faceCount == std::min(faces, kMaxFaces) && faces > 0,
                 "GetFaceRect count %d of %d faces", info.faceCount, faces);
    uint64_t largest = 0;
    int32_t largestAt = 0;
    for (int32_t i = 0; i < info.faceCount; ++i) {
        const kvalgo2::KVFaceEntry& e = info.faces[i];
        KVFUZZ_CHECK(Area(c) ? kvfuzz::InsideImage(e.rect, c.width, c.height)
                             : kvfuzz::SameBytes(e.rect, zeros.faces[0].rect),
                     "face %d at (%u, %u, %u, %u) in image %dx%d", i, e.rect.left, e.rect.top,
                     e.rect.width, e.rect.height, c.width, c.height);
        const bool centred = e.centerX == c.width / 2 && e.centerY == c.height / 2;
        KVFUZZ_CHECK(
            centred ||
                (e.centerX >= 1 && e.centerX <= c.width && e.centerY >= 1 && e.centerY <= c.height),
            "face %d centre (%d, %d) in image %dx%d", i, e.centerX, e.centerY, c.width, c.height);
        KVFUZZ_CHECK(e.rotation % 90 == 0 && e.rotation >= 0 && e.rotation < 360, "rotation %d",
                     e.rotation);
        KVFUZZ_CHECK(std::memcmp(info.faceExtra[i], &c.faces[i][5], 12) == 0, "face %d extras", i);
        const uint64_t area = uint64_t{e.rect.width} * e.rect.height;
        if (area > largest) {
            largest = area;
            largestAt = i;
        }
    }
    KVFUZZ_CHECK(info.largestFaceIndex == largestAt, "largest face %d, expected %d",
                 info.largestFaceIndex, largestAt);
}

// GetFacesNoMap writes count, rectangles and extras only.
void CheckFacesNoMap(const Case& c, const std::shared_ptr<kvhost::Metadata>& frame, int faces) {
    KVFaceInfo info, before;
    kvfuzz::Poison(info, 2);
    std::memcpy(&before, &info, sizeof info);
    const int rc = kvalgo2::MetaUtils().GetFacesNoMap(frame, c.width, c.height, info);
    KVFUZZ_CHECK(rc == (faces > 0 ? 0 : -1) && info.largestFaceIndex == before.largestFaceIndex,
                 "GetFacesNoMap result %d for %d faces", rc, faces);
    for (int32_t i = 0; rc == 0 && i < kMaxFaces; ++i) {
        const kvalgo2::KVFaceEntry& e = info.faces[i];
        const kvalgo2::KVFaceEntry& was = before.faces[i];
        KVFUZZ_CHECK(
            e.centerX == was.centerX && e.centerY == was.centerY && e.rotation == was.rotation &&
                (i >= info.faceCount || std::memcmp(info.faceExtra[i], &c.faces[i][5], 12) == 0),
            "GetFacesNoMap face %d", i);
    }
}

// GetFaceInfo: GetFaceRect's faces as inclusive corners, with the face luma.
void CheckFaceInfo(const Case& c, const std::shared_ptr<kvhost::Metadata>& frame,
                   const KVFaceInfo& mapped) {
    const auto info = std::make_unique<AIspFaceInfo>();
    const int rc = kvalgo2::MetaUtils().GetFaceInfo(frame, *info, c.width, c.height);
    KVFUZZ_CHECK(info->count == mapped.faceCount && rc == (info->count > 0 ? 0 : -1),
                 "GetFaceInfo result %d, count %d, GetFaceRect's %d", rc, info->count,
                 mapped.faceCount);
    const float luma = c.faceLumaTag > 1 ? static_cast<float>(c.faceLuma) : 0.0f;
    for (int32_t i = 0; i < info->count; ++i) {
        const __UtilsImage_Rect& r = mapped.faces[i].rect;
        const int32_t want[4] = {int32_t(r.left), int32_t(r.top), int32_t(r.left + r.width) - 1,
                                 int32_t(r.top + r.height) - 1};
        KVFUZZ_CHECK(std::memcmp(info->rect[i], want, sizeof want) == 0 && info->luma[i] == luma &&
                         std::memcmp(info->faceExtra[i], mapped.faceExtra[i], 12) == 0,
                     "GetFaceInfo face %d: (%d, %d, %d, %d)", i, info->rect[i][0], info->rect[i][1],
                     info->rect[i][2], info->rect[i][3]);
    }
}

Result Run(const Case& c) {
    auto frame = kvhost::Metadata::create();
    kvfuzz::Put(*frame, "kovani.snapshot.fwkCameraId", c.fwkIdTag,
                std::vector<int32_t>{c.fwkCameraId});
    kvfuzz::Put(*frame, 0xD0000u, c.cropTag, kvfuzz::RectWords(c.crop));
    const int faces = c.faceTag > 1 ? c.faceCount % 11 : 0;
    std::vector<int32_t> words(&c.faces[0][0], &c.faces[0][0] + 9 * faces);
    words.insert(words.end(), c.spare, c.spare + c.spareWords % 9);
    kvfuzz::Put(*frame, "kovani.bokeh.faceInfo", c.faceTag, words);
    kvfuzz::Put(*frame, "kovani.insensorzoom.status", c.inSensorZoomTag,
                std::vector<int32_t>{c.inSensorZoomStatus});
    kvfuzz::Put(*frame, "kovani.ae.average.face.luma", c.faceLumaTag,
                std::vector<int32_t>{c.faceLuma});
    kvfuzz::Put(*frame, 0x80060001u, c.afTag,
                std::vector<int32_t>(c.af, c.af + 11 + c.afWords % 6));
    kvhost::clearStaticMetadata();
    auto stat = kvhost::Metadata::create();
    kvfuzz::Put(*stat, 0xF0000u, c.activeTag, kvfuzz::RectWords(c.active));
    if (c.fwkStatic != 0) kvhost::setStaticMetadata(c.fwkCameraId, stat);

    Result r;
    kvfuzz::Poison(r, 1);
    kvalgo2::MetaUtils utils;
    const int rc = utils.GetFaceRect(frame, c.width, c.height, r.rect, c.useInSensorZoom);
    CheckFaceRect(c, rc, r.rect, faces);
    CheckFacesNoMap(c, frame, faces);
    KVFaceInfo mapped;
    utils.GetFaceRect(frame, c.width, c.height, mapped, 0);
    CheckFaceInfo(c, frame, mapped);

    UtilsImageBuf image{c.width, c.height};
    const __UtilsImage_Rect before = r.roi;
    const int roiRc = utils.GetfocusROI(frame, &image, &r.roi);
    const int32_t regions = c.af[1];
    KVFUZZ_CHECK(roiRc == 0 || roiRc == -1 || roiRc == -2, "GetfocusROI result %d", roiRc);
    KVFUZZ_CHECK(roiRc != 0 ? kvfuzz::SameBytes(r.roi, before)
                            : (regions == 1 || regions == 2) &&
                                  kvfuzz::InsideImage(r.roi, c.width, c.height),
                 "GetfocusROI result %d, region (%u, %u, %u, %u) of %d in image %dx%d", roiRc,
                 r.roi.left, r.roi.top, r.roi.width, r.roi.height, regions, c.width, c.height);
    const int tpRc = utils.GetfocusTP(frame, &image, &r.point);
    const __UtilsImage_Rect roi = roiRc == 0 ? r.roi : __UtilsImage_Rect{0, 0, 0, 0};
    KVFUZZ_CHECK(tpRc == roiRc && r.point.x == int32_t(roi.left + roi.width / 2) &&
                     r.point.y == int32_t(roi.top + roi.height / 2),
                 "GetfocusTP result %d, point (%d, %d)", tpRc, r.point.x, r.point.y);
    return r;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    kvfuzz::InitProcess();
    // Active array and crop 4000x3000 onto 1920x1080 (scale 0.48, 375 lines
    // cut above and below): face (1000, 1000)-(1400, 1400) at 90 degrees and
    // the focus region (100, 200)-(300, 400).
    Case c;
    std::memset(&c, 0, sizeof c);
    c.active = c.crop = ChiRect{0, 0, 4000, 3000};
    const int32_t face[9] = {1000, 1000, 1400, 1400, 0, 7, 90, 8, 0};
    std::memcpy(c.faces[0], face, sizeof face);
    const int32_t af[6] = {3, 1, 100, 200, 300, 400};
    std::memcpy(c.af, af, sizeof af);
    c.width = 1920;
    c.height = 1080;
    c.fwkIdTag = c.fwkStatic = c.activeTag = c.cropTag = c.faceTag = c.afTag = 2;
    c.fwkCameraId = 1;
    c.faceCount = 1;
    const Result r = Run(c);
    const kvalgo2::KVFaceEntry& e = r.rect.faces[0];
    KVFUZZ_CHECK(kvfuzz::SameBytes(e.rect, __UtilsImage_Rect{480, 300, 192, 192}) &&
                     e.centerX == 576 && e.centerY == 396 && e.rotation == 270,
                 "face (%u, %u, %u, %u) centre (%d, %d) rotation %d", e.rect.left, e.rect.top,
                 e.rect.width, e.rect.height, e.centerX, e.centerY, e.rotation);
    KVFUZZ_CHECK(kvfuzz::SameBytes(r.roi, __UtilsImage_Rect{48, 0, 96, 96}) && r.point.x == 96 &&
                     r.point.y == 48,
                 "focus region (%u, %u, %u, %u), point (%d, %d)", r.roi.left, r.roi.top,
                 r.roi.width, r.roi.height, r.point.x, r.point.y);
    kvfuzz::SaveSeed("worked_example", c);
    // Three faces in a large image, the second focus region.
    c.faceCount = 3;
    const int32_t more[2][9] = {{200, 300, 600, 700, 0, 1, 180, 2, 0},
                                {2000, 1500, 2100, 1600, 0, 3, 300, 4, 0}};
    std::memcpy(c.faces[1], more, sizeof more);
    c.width = 8000;
    c.height = 6000;
    c.af[1] = 2;
    const int32_t second[4] = {500, 600, 900, 1000};
    std::memcpy(c.af + 7, second, sizeof second);
    Run(c);
    kvfuzz::SaveSeed("large_image_three_faces", c);
    // In-sensor zoom, face luma, two words that make no face.
    c.inSensorZoomTag = c.faceLumaTag = 2;
    c.inSensorZoomStatus = c.useInSensorZoom = 1;
    c.faceLuma = 77;
    c.spareWords = 2;
    Run(c);
    kvfuzz::SaveSeed("in_sensor_zoom", c);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Run(kvfuzz::Input(data, size).Take<Case>());
    return 0;
}
