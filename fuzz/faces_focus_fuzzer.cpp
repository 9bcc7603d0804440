// GetFaceRect, GetFacesNoMap, GetFaceInfo, GetfocusROI and GetfocusTP on
// frames built from the input (the Case record): 0 to 10 faces plus words
// that make no whole face, the in-sensor-zoom status, crop region, face luma,
// an autofocus region of 11 to 16 words, the active array through the
// framework camera's static metadata, and any image size.
//
// Checks, for every input:
// - GetFaceRect: -1 with the whole record cleared, or 0 with the count of
//   whole faces (at most 10); every face inside the image with even size (a
//   zero rectangle for an image without area), the extras of its words, the
//   largest face index the first face of largest area;
// - GetFacesNoMap: -1 exactly without whole faces;
// - GetFaceInfo: GetFaceRect's count and rectangles as inclusive corners,
//   the face luma and the extras;
// - GetfocusROI: 0, -1 or -2, the region untouched unless 0, a region count
//   other than 1 or 2 refused, an accepted region inside the image;
//   GetfocusTP: the same result and the centre of the region (of a zero one
//   on failure).
// A mapped face (its centre and rotation too) and focus region are checked
// once at start-up on a hand-worked example.
#include "FuzzSupport.h"

namespace {

using kvalgo2::ChiRect;
using kvalgo2::KVFaceEntry;
using kvalgo2::KVFaceInfo;

constexpr int kMaxFaces = 10;

struct Case {
    ChiRect active;
    ChiRect crop;
    int32_t faces[kMaxFaces + 1][9];  // left, top, right, bottom, -, three extras, -
    int32_t af[16];
    int32_t width, height, inSensorZoomStatus, faceLuma, useInSensorZoom;
    // Presence: 0 absent, 1 without elements, other values present.
    uint8_t fwkIdTag, fwkCameraId, fwkStatic, activeTag, cropTag, faceTag, inSensorZoomTag;
    uint8_t faceLumaTag, afTag, faceCount, spareWords, afWords;  // counts % 11, % 9, 11 + % 6
};

// The first face, the focus region and the touch point.
struct Result {
    KVFaceEntry face;
    __UtilsImage_Rect roi;
    __UtilsImage_point point;
};

Result Run(const Case& c) {
    auto frame = kvhost::Metadata::create();
    kvfuzz::FrameCamera(*frame, c.fwkIdTag, c.fwkCameraId, c.fwkStatic, c.activeTag, c.active);
    kvfuzz::Put(*frame, 0xD0000u, c.cropTag, kvfuzz::RectWords(c.crop));
    const int faces = c.faceTag > 1 ? c.faceCount % 11 : 0;
    // Whole faces, then words that make no whole face.
    std::vector<int32_t> words(&c.faces[0][0], &c.faces[0][0] + 9 * faces + c.spareWords % 9);
    kvfuzz::Put(*frame, "kovani.bokeh.faceInfo", c.faceTag, words);
    kvfuzz::Put(*frame, "kovani.insensorzoom.status", c.inSensorZoomTag,
                std::vector<int32_t>{c.inSensorZoomStatus});
    kvfuzz::Put(*frame, "kovani.ae.average.face.luma", c.faceLumaTag,
                std::vector<int32_t>{c.faceLuma});
    kvfuzz::Put(*frame, 0x80060001u, c.afTag,
                std::vector<int32_t>(c.af, c.af + 11 + c.afWords % 6));

    Result r;
    const __UtilsImage_Rect before = kvfuzz::Poison(r, 1).roi;
    KVFaceInfo info;
    kvfuzz::Poison(info, 2);
    kvalgo2::MetaUtils utils;
    const int rc = utils.GetFaceRect(frame, c.width, c.height, info, c.useInSensorZoom);
    // GetFaceRect: its result and record for `faces` whole faces.
    const KVFaceInfo zeros{};
    KVFUZZ_CHECK(rc == 0 ? info.faceCount == std::min(faces, kMaxFaces) && faces > 0
                         : rc == -1 && kvfuzz::SameBytes(info, zeros),
                 "GetFaceRect result %d", rc);
    uint64_t largest = 0;
    int32_t largestAt = 0;
    for (int32_t i = 0; rc == 0 && i < info.faceCount; ++i) {
        const KVFaceEntry& e = info.faces[i];
        const bool area = c.width >= 1 && c.height >= 1;  // else every face is refused
        KVFUZZ_CHECK((area ? kvfuzz::InsideImage(e.rect, c.width, c.height)
                           : kvfuzz::SameBytes(e.rect, zeros.faces[0].rect)) &&
                         std::memcmp(info.faceExtra[i], &c.faces[i][5], 12) == 0,
                     "face %d", i);
        const uint64_t size = uint64_t{e.rect.width} * e.rect.height;
        if (size > largest) largest = size, largestAt = i;
    }
    KVFUZZ_CHECK(rc != 0 || info.largestFaceIndex == largestAt, "largest face %d, expected %d",
                 info.largestFaceIndex, largestAt);
    r.face = info.faces[0];
    KVFaceInfo mapped;
    utils.GetFaceRect(frame, c.width, c.height, mapped, 0);
    // GetFacesNoMap's result, and GetFaceInfo as GetFaceRect's faces
    // (`mapped`) with inclusive corners and the face luma.
    KVFaceInfo unmapped;
    int listRc = utils.GetFacesNoMap(frame, c.width, c.height, unmapped);
    KVFUZZ_CHECK(listRc == (faces > 0 ? 0 : -1), "GetFacesNoMap result %d", listRc);
    const auto aisp = std::make_unique<AIspFaceInfo>();
    listRc = utils.GetFaceInfo(frame, *aisp, c.width, c.height);
    KVFUZZ_CHECK(aisp->count == mapped.faceCount && listRc == (aisp->count > 0 ? 0 : -1),
                 "GetFaceInfo result %d", listRc);
    const float luma = c.faceLumaTag > 1 ? static_cast<float>(c.faceLuma) : 0.0f;
    for (int32_t i = 0; i < aisp->count; ++i) {
        const __UtilsImage_Rect& m = mapped.faces[i].rect;
        const int32_t want[4] = {int32_t(m.left), int32_t(m.top), int32_t(m.left + m.width) - 1,
                                 int32_t(m.top + m.height) - 1};
        KVFUZZ_CHECK(std::memcmp(aisp->rect[i], want, sizeof want) == 0 && aisp->luma[i] == luma &&
                         std::memcmp(aisp->faceExtra[i], mapped.faceExtra[i], 12) == 0,
                     "GetFaceInfo face %d", i);
    }
    UtilsImageBuf image{c.width, c.height};
    const int roiRc = utils.GetfocusROI(frame, &image, &r.roi);
    const int32_t regions = c.af[1];
    KVFUZZ_CHECK(
        roiRc == 0 ? (regions == 1 || regions == 2) && kvfuzz::InsideImage(r.roi, c.width, c.height)
                   : (roiRc == -1 || roiRc == -2) && kvfuzz::SameBytes(r.roi, before),
        "GetfocusROI result %d", roiRc);
    const int tpRc = utils.GetfocusTP(frame, &image, &r.point);
    const __UtilsImage_Rect roi = roiRc == 0 ? r.roi : __UtilsImage_Rect{0, 0, 0, 0};
    KVFUZZ_CHECK(tpRc == roiRc && r.point.x == int32_t(roi.left + roi.width / 2) &&
                     r.point.y == int32_t(roi.top + roi.height / 2),
                 "GetfocusTP result %d", tpRc);
    return r;
}

}  // namespace

void Examples() {
    // Active array and crop 4000x3000 onto 1920x1080 (scale 0.48, 375 lines
    // cut above and below): face (1000, 1000)-(1400, 1400) at 90 degrees and
    // the focus region (100, 200)-(300, 400).
    Case c{};
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
    kvfuzz::Example("worked_example", c, Run(c),
                    {{{480, 300, 192, 192}, 576, 396, 270}, {48, 0, 96, 96}, {96, 48}});
}

KVFUZZ_TARGET(Case, Run, Examples)
