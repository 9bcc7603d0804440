// GetFaceRect, GetFacesNoMap, GetFaceInfo, GetfocusROI and GetfocusTP on
// generated frames: 0 to 10 faces (plus words that make no whole face), an
// optional in-sensor-zoom status, crop region, face luma and autofocus region
// of 11 to 16 words with any region count, the active array through the
// framework camera's static metadata, and any image size.
//
// What holds for every input:
// - GetFaceRect clears the whole record and fails with -1 without crop
//   region, active array or faces; otherwise it returns 0 with the face count,
//   and every face that MapRectToInput accepted lies inside the image with
//   even size; a refused face keeps a zero rectangle; every centre lies in
//   [1, width] x [1, height] or is the image centre; the largest face index
//   is the first face of largest area; the records equal the model below
//   (mapping of MappingModel.h, in-sensor-zoom conversion, the active size
//   doubling from face to face for large images, quarter-turn rotation);
// - GetFacesNoMap writes only count, rectangles and extras, leaving the rest
//   of the caller's record; its rectangles are not mapped, so they are not
//   inside anything and only the model applies;
// - GetFaceInfo writes the count always, and for each face the inclusive
//   corners of GetFaceRect's rectangle (without in-sensor zoom), the face
//   luma and the extras, leaving the rest;
// - GetfocusROI passes the lookups' codes through with the region untouched,
//   refuses a region count other than 1 or 2, maps the chosen region, and an
//   accepted region lies inside the image;
// - GetfocusTP's point is the centre of that region (or of a zero one), with
//   a centre on the origin replaced by the half size.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "FacesFocusCase.h"
#include "FuzzSupport.h"
#include "MappingModel.h"

namespace {

using kvalgo2::ChiRect;
using kvalgo2::KVFaceInfo;
using kvfuzz::FacesFocusCase;

constexpr const char* kFwkCameraIdTag = "kovani.snapshot.fwkCameraId";
constexpr const char* kFaceTag = "kovani.bokeh.faceInfo";
constexpr const char* kInSensorZoomTag = "kovani.insensorzoom.status";
constexpr const char* kFaceLumaTag = "kovani.ae.average.face.luma";
constexpr uint32_t kCropRegionTag = 0xD0000;
constexpr uint32_t kActiveArrayTag = 0xF0000;
constexpr uint32_t kAfRegionTag = 0x80060001;

// What the frame offers, as the methods see it.
struct Frame {
    bool activeOk = false;
    ChiRect active{};
    bool cropOk = false;
    ChiRect crop{};
    int32_t faceCount = 0;  // whole faces in the face tag
    const int32_t (*faces)[kvfuzz::kFaceWords] = nullptr;
    bool inSensorZoom = false;  // the frame's status
    float luma = 0.0f;          // 0 without the tag
};

Frame Describe(const FacesFocusCase& c) {
    Frame f;
    f.activeOk = c.hasFwkCameraId && c.hasStatic && c.hasActive;
    f.active = c.active;
    f.cropOk = c.hasCrop;
    f.crop = c.crop;
    if (c.faceTag == kvfuzz::kPresent) f.faceCount = c.faceCount;
    f.faces = c.faces;
    f.inSensorZoom = c.inSensorZoomTag == kvfuzz::kPresent && c.inSensorZoomStatus != 0;
    f.luma = c.hasFaceLuma ? static_cast<float>(c.faceLuma) : 0.0f;
    return f;
}

struct Corners {
    uint32_t left, top, right, bottom;
};

Corners CornersOf(const int32_t* face) {
    return Corners{static_cast<uint32_t>(face[0]), static_cast<uint32_t>(face[1]),
                   static_cast<uint32_t>(face[2]), static_cast<uint32_t>(face[3])};
}

// In-sensor zoom: the frame shows the centre half of the array at twice the
// scale.
void ToFullArray(Corners& k, uint32_t activeWidth, uint32_t activeHeight) {
    k.left = (k.left - (activeWidth >> 2)) * 2u;
    k.top = (k.top - (activeHeight >> 2)) * 2u;
    k.right = (k.right - (activeWidth >> 2)) * 2u;
    k.bottom = (k.bottom - (activeHeight >> 2)) * 2u;
}

int32_t QuarterTurn(int32_t degrees) {
    const uint32_t a = static_cast<uint32_t>(degrees);
    if (a >= 45 && a < 135) return 270;
    if (a >= 135 && a < 225) return 180;
    if (a >= 225 && a < 315) return 90;
    return 0;
}

bool LargeImage(int32_t width, int32_t height) {
    return width > 5000 && height > 4000;
}

struct FaceRectResult {
    int result = -1;
    KVFaceInfo info{};
    bool accepted[kvfuzz::kMaxFaces] = {};
};

FaceRectResult ModelFaceRect(const Frame& f, int32_t width, int32_t height,
                             int32_t useInSensorZoom) {
    FaceRectResult out;
    std::memset(&out.info, 0, sizeof out.info);
    if (!f.cropOk || !f.activeOk || f.faceCount == 0) return out;
    const bool inSensorZoom = useInSensorZoom != 0 && f.inSensorZoom;
    const bool large = LargeImage(width, height);
    uint32_t activeWidth = f.active.width;
    uint32_t activeHeight = f.active.height;
    uint64_t largestArea = 0;
    out.info.faceCount = f.faceCount;
    for (int32_t i = 0; i < f.faceCount; ++i) {
        const int32_t* face = f.faces[i];
        kvalgo2::KVFaceEntry& entry = out.info.faces[i];
        out.info.faceExtra[i][0] = face[5];
        out.info.faceExtra[i][1] = face[6];
        out.info.faceExtra[i][2] = face[7];
        Corners k = CornersOf(face);
        if (inSensorZoom) ToFullArray(k, activeWidth, activeHeight);
        // The array size grows with every face of a large image.
        if (large) {
            activeWidth *= 2u;
            activeHeight *= 2u;
        }
        const ChiRect src{k.left, k.top, k.right - k.left, k.bottom - k.top};
        const ChiRect sensor{f.active.left, f.active.top, activeWidth, activeHeight};
        const kvfuzz::MappedRect m = kvfuzz::ModelMapRect(src, f.crop, width, height, sensor);
        out.accepted[i] = m.result == 0;
        if (m.result == 0) entry.rect = m.rect;
        entry.rotation = QuarterTurn(face[6]);
        entry.centerX = static_cast<int32_t>(entry.rect.left + (entry.rect.width >> 1));
        entry.centerY = static_cast<int32_t>(entry.rect.top + (entry.rect.height >> 1));
        if (entry.centerX < 1 || entry.centerX > width || entry.centerY < 1 ||
            entry.centerY > height) {
            entry.centerX = width / 2;
            entry.centerY = height / 2;
        }
        const uint64_t area = static_cast<uint64_t>(entry.rect.width) * entry.rect.height;
        if (area > largestArea) {
            largestArea = area;
            out.info.largestFaceIndex = i;
        }
    }
    out.result = 0;
    return out;
}

// `info` holds the caller's record on entry and the expected one on return.
int ModelFacesNoMap(const Frame& f, int32_t width, int32_t height, KVFaceInfo& info) {
    if (f.faceCount == 0) return -1;
    const uint32_t activeWidth = f.activeOk ? f.active.width : 0;
    const uint32_t activeHeight = f.activeOk ? f.active.height : 0;
    const bool large = LargeImage(width, height);
    info.faceCount = f.faceCount;
    for (int32_t i = 0; i < f.faceCount; ++i) {
        const int32_t* face = f.faces[i];
        Corners k = CornersOf(face);
        if (f.inSensorZoom) ToFullArray(k, activeWidth, activeHeight);
        if (large) k = Corners{k.left * 2u, k.top * 2u, k.right * 2u, k.bottom * 2u};
        info.faces[i].rect = __UtilsImage_Rect{k.left, k.top, k.right - k.left, k.bottom - k.top};
        info.faceExtra[i][0] = face[5];
        info.faceExtra[i][1] = face[6];
        info.faceExtra[i][2] = face[7];
    }
    return 0;
}

int ModelFaceInfo(const Frame& f, int32_t width, int32_t height, AIspFaceInfo& info) {
    const FaceRectResult mapped = ModelFaceRect(f, width, height, 0);
    info.count = mapped.info.faceCount;
    if (info.count < 1) return -1;
    for (int32_t i = 0; i < info.count; ++i) {
        const __UtilsImage_Rect& r = mapped.info.faces[i].rect;
        info.rect[i][0] = static_cast<int32_t>(r.left);
        info.rect[i][1] = static_cast<int32_t>(r.top);
        info.rect[i][2] = static_cast<int32_t>(r.width) < 0
                              ? static_cast<int32_t>(r.left)
                              : static_cast<int32_t>(r.left + r.width - 1u);
        info.rect[i][3] = static_cast<int32_t>(r.height) < 0
                              ? static_cast<int32_t>(r.top)
                              : static_cast<int32_t>(r.top + r.height - 1u);
        info.luma[i] = f.luma;
        std::memcpy(info.faceExtra[i], mapped.info.faceExtra[i], sizeof info.faceExtra[i]);
    }
    return 0;
}

// `roi` holds the caller's rectangle on entry and the expected one on return.
int ModelFocusRoi(const FacesFocusCase& c, const Frame& f, __UtilsImage_Rect& roi) {
    if (!f.cropOk || !f.activeOk) return -2;  // absent tag: the lookup's code
    if (!c.hasAfRegion) return -1;
    const int32_t regions = c.af[1];
    if (regions != 1 && regions != 2) return -1;
    const int32_t* corner = c.af + (regions == 1 ? 2 : 7);
    const uint32_t tlx = static_cast<uint32_t>(corner[0]);
    const uint32_t tly = static_cast<uint32_t>(corner[1]);
    const ChiRect src{tlx, tly, static_cast<uint32_t>(corner[2]) - tlx,
                      static_cast<uint32_t>(corner[3]) - tly};
    const kvfuzz::MappedRect m = kvfuzz::ModelMapRect(src, f.crop, c.width, c.height, f.active);
    if (m.result == 0) roi = m.rect;
    return m.result;
}

void BuildFrame(const FacesFocusCase& c, kvhost::Metadata& frame) {
    if (c.hasFwkCameraId) kvfuzz::Stored(frame.putInt32(kFwkCameraIdTag, {c.fwkCameraId}));
    if (c.hasCrop) kvfuzz::Stored(frame.putInt32(kCropRegionTag, kvfuzz::RectWords(c.crop)));
    if (c.faceTag == kvfuzz::kPresent) {
        std::vector<int32_t> words;
        for (int32_t i = 0; i < c.faceCount; ++i) {
            words.insert(words.end(), c.faces[i], c.faces[i] + kvfuzz::kFaceWords);
        }
        words.insert(words.end(), c.spare, c.spare + c.spareWords);
        kvfuzz::Stored(frame.putInt32(kFaceTag, words));
    } else if (c.faceTag == kvfuzz::kEmpty) {
        kvfuzz::Stored(frame.putEmpty(kFaceTag));
    }
    if (c.inSensorZoomTag == kvfuzz::kPresent) {
        kvfuzz::Stored(frame.putInt32(kInSensorZoomTag, {c.inSensorZoomStatus}));
    } else if (c.inSensorZoomTag == kvfuzz::kEmpty) {
        kvfuzz::Stored(frame.putEmpty(kInSensorZoomTag));
    }
    if (c.hasFaceLuma) kvfuzz::Stored(frame.putInt32(kFaceLumaTag, {c.faceLuma}));
    if (c.hasAfRegion)
        kvfuzz::Stored(frame.putInt32(kAfRegionTag, std::vector<int32_t>(c.af, c.af + c.afWords)));
}

void CheckFaceRect(kvalgo2::MetaUtils& utils, const std::shared_ptr<kvhost::Metadata>& frame,
                   const FacesFocusCase& c, const Frame& f) {
    KVFaceInfo info;
    kvfuzz::Poison(info, 1);
    const int rc = utils.GetFaceRect(frame, c.width, c.height, info, c.useInSensorZoom);
    const FaceRectResult model = ModelFaceRect(f, c.width, c.height, c.useInSensorZoom);
    KVFUZZ_CHECK(rc == model.result, "GetFaceRect result %d, model %d", rc, model.result);
    if (rc == 0) {
        KVFUZZ_CHECK(info.faceCount == f.faceCount && info.faceCount <= kvfuzz::kMaxFaces,
                     "GetFaceRect count %d of %d faces", info.faceCount, f.faceCount);
        KVFUZZ_CHECK(info.largestFaceIndex >= 0 && info.largestFaceIndex < info.faceCount,
                     "largest face %d of %d", info.largestFaceIndex, info.faceCount);
        for (int32_t i = 0; i < info.faceCount; ++i) {
            const kvalgo2::KVFaceEntry& e = info.faces[i];
            if (model.accepted[i]) {
                KVFUZZ_CHECK(kvfuzz::InsideImage(e.rect, c.width, c.height),
                             "face %d at (%u, %u, %u, %u) outside image %dx%d", i, e.rect.left,
                             e.rect.top, e.rect.width, e.rect.height, c.width, c.height);
            } else {
                KVFUZZ_CHECK(kvfuzz::SameBytes(e.rect, __UtilsImage_Rect{0, 0, 0, 0}),
                             "refused face %d has a rectangle", i);
            }
            const bool centred = e.centerX == c.width / 2 && e.centerY == c.height / 2;
            const bool inside =
                e.centerX >= 1 && e.centerX <= c.width && e.centerY >= 1 && e.centerY <= c.height;
            KVFUZZ_CHECK(centred || inside, "face %d centre (%d, %d) in image %dx%d", i, e.centerX,
                         e.centerY, c.width, c.height);
        }
    }
    KVFUZZ_CHECK(kvfuzz::SameBytes(info, model.info),
                 "GetFaceRect record differs from the model (count %d, largest %d / %d)",
                 info.faceCount, info.largestFaceIndex, model.info.largestFaceIndex);
}

void CheckFacesNoMap(kvalgo2::MetaUtils& utils, const std::shared_ptr<kvhost::Metadata>& frame,
                     const FacesFocusCase& c, const Frame& f) {
    KVFaceInfo info;
    kvfuzz::Poison(info, 2);
    KVFaceInfo expected = info;
    const int rc = utils.GetFacesNoMap(frame, c.width, c.height, info);
    const int modelRc = ModelFacesNoMap(f, c.width, c.height, expected);
    KVFUZZ_CHECK(rc == modelRc, "GetFacesNoMap result %d, model %d", rc, modelRc);
    KVFUZZ_CHECK(kvfuzz::SameBytes(info, expected),
                 "GetFacesNoMap record differs from the model (count %d)", info.faceCount);
}

void CheckFaceInfo(kvalgo2::MetaUtils& utils, const std::shared_ptr<kvhost::Metadata>& frame,
                   const FacesFocusCase& c, const Frame& f) {
    AIspFaceInfo info;
    kvfuzz::Poison(info, 3);
    AIspFaceInfo expected = info;
    const int rc = utils.GetFaceInfo(frame, info, c.width, c.height);
    const int modelRc = ModelFaceInfo(f, c.width, c.height, expected);
    KVFUZZ_CHECK(rc == modelRc, "GetFaceInfo result %d, model %d", rc, modelRc);
    if (rc == 0 && c.width >= 1 && c.height >= 1) {
        // Inclusive corners of rectangles inside the image (a refused face is
        // the zero rectangle): a face of width w spans [left, left + w - 1],
        // so right < width and right >= left - 1.
        for (int32_t i = 0; i < info.count; ++i) {
            const int64_t l = info.rect[i][0], t = info.rect[i][1];
            const int64_t r = info.rect[i][2], b = info.rect[i][3];
            KVFUZZ_CHECK(l >= 0 && l < c.width && r < c.width && r >= l - 1 && t >= 0 &&
                             t < c.height && b < c.height && b >= t - 1,
                         "face %d corners (%lld, %lld, %lld, %lld) in image %dx%d", i,
                         static_cast<long long>(l), static_cast<long long>(t),
                         static_cast<long long>(r), static_cast<long long>(b), c.width, c.height);
        }
    }
    KVFUZZ_CHECK(kvfuzz::SameBytes(info, expected),
                 "GetFaceInfo record differs from the model (count %d)", info.count);
}

void CheckFocus(kvalgo2::MetaUtils& utils, const std::shared_ptr<kvhost::Metadata>& frame,
                const FacesFocusCase& c, const Frame& f) {
    UtilsImageBuf image{c.width, c.height};
    __UtilsImage_Rect roi;
    kvfuzz::Poison(roi, 4);
    __UtilsImage_Rect expected = roi;
    const int rc = utils.GetfocusROI(frame, &image, &roi);
    const int modelRc = ModelFocusRoi(c, f, expected);
    KVFUZZ_CHECK(rc == modelRc, "GetfocusROI result %d, model %d", rc, modelRc);
    if (rc == 0) {
        KVFUZZ_CHECK(kvfuzz::InsideImage(roi, c.width, c.height),
                     "focus region (%u, %u, %u, %u) outside image %dx%d", roi.left, roi.top,
                     roi.width, roi.height, c.width, c.height);
    }
    KVFUZZ_CHECK(kvfuzz::SameBytes(roi, expected),
                 "focus region (%u, %u, %u, %u), model (%u, %u, %u, %u)", roi.left, roi.top,
                 roi.width, roi.height, expected.left, expected.top, expected.width,
                 expected.height);

    // The touch point: centre of the region, or of a zero one when it failed.
    __UtilsImage_point point;
    kvfuzz::Poison(point, 5);
    const int tpRc = utils.GetfocusTP(frame, &image, &point);
    KVFUZZ_CHECK(tpRc == rc, "GetfocusTP result %d, GetfocusROI %d", tpRc, rc);
    const __UtilsImage_Rect r = rc == 0 ? roi : __UtilsImage_Rect{0, 0, 0, 0};
    const uint32_t cx = r.left + (r.width >> 1);
    const uint32_t cy = r.top + (r.height >> 1);
    const __UtilsImage_point want =
        cx == 0 && cy == 0 ? __UtilsImage_point{static_cast<int32_t>(r.width >> 1),
                                                static_cast<int32_t>(r.height >> 1)}
                           : __UtilsImage_point{static_cast<int32_t>(cx), static_cast<int32_t>(cy)};
    KVFUZZ_CHECK(point.x == want.x && point.y == want.y, "touch point (%d, %d), expected (%d, %d)",
                 point.x, point.y, want.x, want.y);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    kvfuzz::InitProcess();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FacesFocusCase c;
    kvfuzz::Reader reader(data, size);
    kvfuzz::Visit(reader, c);

    auto frame = kvhost::Metadata::create();
    BuildFrame(c, *frame);
    kvhost::clearStaticMetadata();
    if (c.hasStatic) {
        auto stat = kvhost::Metadata::create();
        if (c.hasActive)
            kvfuzz::Stored(stat->putInt32(kActiveArrayTag, kvfuzz::RectWords(c.active)));
        kvhost::setStaticMetadata(static_cast<uint32_t>(c.fwkCameraId), stat);
    }
    const Frame f = Describe(c);

    kvalgo2::MetaUtils utils;
    CheckFaceRect(utils, frame, c, f);
    CheckFacesNoMap(utils, frame, c, f);
    CheckFaceInfo(utils, frame, c, f);
    CheckFocus(utils, frame, c, f);
    return 0;
}
