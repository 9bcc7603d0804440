// MetaUtils, platform part: capture statistics and burst metadata, the final
// crop region, faces, sensor types and modes, and the remaining geometry and
// camera-identity methods.
#include <algorithm>
#include <cstring>

#include "KvMetadata.h"
#include "MetaDefs.h"
#include "MetaLog.h"
#include "MetaUtils.h"
#include "TagGetter.h"

namespace kvalgo2 {

using detail::Convert;
using detail::Copy;
using detail::kDefaultMessages;

// ===========================================================================
// Burst and preview exposure
// ===========================================================================

// clang-format off
KV_TAG_GETTER(GetBurstInfoFaceLuma, float, "kovani.ae.average.face.luma",
              KV_FULL("GetMetadata kovani.ae.average.face.luma err",
                      "get metadata kovani.ae.average.face.luma err"),
              (Convert<int32_t, float>))
// clang-format on

// ===========================================================================
// Image geometry: main array size, minimum digital zoom, faces, focus region
// ===========================================================================

namespace {

// The full array around a crop region centred in it: the crop's size plus
// its left and top margin twice over, in wrapping unsigned arithmetic.
void StoreMainActiveSize(const void* data, ChiRect* out) {
    const ChiRect crop = detail::Load<ChiRect>(data);
    *out = ChiRect{0, 0, crop.width + 2u * crop.left, crop.height + 2u * crop.top};
}

void TraceMainActiveSize(const log::LogSite& at, const ChiRect& r) {
    log::Write(at, 2, KV_LOG_PREFIX "main active size [%d %d %d %d]", r.left, r.top, r.width,
               r.height);
}

}  // namespace

// clang-format off
KV_TAG_GETTER(GetActiveArraySizeMain, ChiRect, tag::ANDROID_SCALER_CROP_REGION, kDefaultMessages,
              StoreMainActiveSize, false, TraceMainActiveSize)
KV_STATIC_TAG_GETTER(GetRealAvailableMinDigitalZoom, float,
                     "com.kovani.scaler.availableMinDigitalZoom",
                     KV_SHORT("GetMetadata com.kovani.scaler.availableMinDigitalZoom fail"),
                     Copy<float>)
// clang-format on

// ---- Faces -----------------------------------------------------------------
//
// "kovani.bokeh.faceInfo" holds nine int32 per face, in active-array
// coordinates: left, top, right, bottom, an unused word, three words handed
// on as they are (the middle one being the rotation in degrees), and another
// unused word.

namespace {

constexpr uint32_t kFaceWords = 9;

// KVFaceInfo has room for 10 faces. The tag's writer promises no more; should
// a tag carry more anyway, only the first 10 are handed out and faceCount says
// 10, so nothing is written past the caller's record and callers that walk
// faceCount entries stay inside it. Up to 10 faces nothing changes.
constexpr uint32_t kMaxFaces = sizeof(KVFaceInfo::faces) / sizeof(KVFaceInfo::faces[0]);

// An in-sensor-zoom frame: the status tag is present and its first word is set.
bool IsInSensorZoomFrame(const std::shared_ptr<KvMetadata>& metadata) {
    if (!metadata) return false;
    const camera_metadata_ro_entry_t entry = metadata->find("kovani.insensorzoom.status");
    return entry.count != 0 && detail::Load<int32_t>(entry.data.u8) != 0;
}

// Image sizes above which face coordinates are doubled.
bool IsLargeInput(int width, int height) {
    return width > 5000 && height > 4000;
}

// A coordinate of the in-sensor-zoom crop back in full-array coordinates.
uint32_t FromInSensorZoom(uint32_t coordinate, uint32_t activeExtent) {
    return (coordinate - (activeExtent >> 2)) * 2u;
}

struct FaceCorners {
    uint32_t left, top, right, bottom;
};

FaceCorners ReadCorners(const int* face) {
    return FaceCorners{static_cast<uint32_t>(face[0]), static_cast<uint32_t>(face[1]),
                       static_cast<uint32_t>(face[2]), static_cast<uint32_t>(face[3])};
}

void ToFullArray(FaceCorners& c, const ChiRect& active) {
    c.left = FromInSensorZoom(c.left, active.width);
    c.top = FromInSensorZoom(c.top, active.height);
    c.right = FromInSensorZoom(c.right, active.width);
    c.bottom = FromInSensorZoom(c.bottom, active.height);
}

void CopyFaceExtra(const int* face, int32_t (&extra)[3]) {
    extra[0] = face[5];
    extra[1] = face[6];
    extra[2] = face[7];
}

// Rotation in degrees to the quarter turn the algorithm layer expects.
int32_t QuarterTurn(int32_t degrees) {
    const uint32_t a = static_cast<uint32_t>(degrees);  // negative angles give 0
    if (a >= 45 && a <= 134) return 270;
    if (a >= 135 && a <= 224) return 180;
    if (a >= 225 && a <= 314) return 90;
    return 0;
}

}  // namespace

int MetaUtils::GetFacesInfoHolder(std::shared_ptr<KvMetadata> metadata, int** faces,
                                  uint32_t* count) {
    // Only the face pointer is checked: the interface trusts callers to pass
    // a count.
    if (faces == nullptr) {
        KV_LOG(4, "arg err");
        return -2;
    }
    void* data = nullptr;
    uint32_t elements = 0;
    const int ret = GetMetaData(std::move(metadata), "kovani.bokeh.faceInfo", 0, &data, &elements);
    if (ret != 0) {
        KV_LOG(3, "GetMetadata kovani.bokeh.faceInfo err");
        return ret;
    }
    if (data == nullptr) {
        KV_LOG(3, "get metadata kovani.bokeh.faceInfo err");
        return -1;
    }
    *faces = static_cast<int*>(data);
    *count = elements / kFaceWords;
    return 0;
}

int MetaUtils::GetFaceRect(std::shared_ptr<KvMetadata> metadata, int width, int height,
                           KVFaceInfo& info, int useInSensorZoom) {
    std::memset(&info, 0, sizeof(info));
    ChiRect crop = {0, 0, 0, 0};
    ChiRect active = {0, 0, 0, 0};
    const int cropRet = GetAndroidCropRegion(metadata, &crop);
    const int activeRet = GetActiveArraySize(metadata, &active);
    if (cropRet != 0 || activeRet != 0) {
        KV_LOG(3, "get active/crop size err");
        return -1;
    }
    int* faces = nullptr;
    uint32_t count = 0;
    const int ret = GetFacesInfoHolder(metadata, &faces, &count);
    if (faces == nullptr || count == 0) {
        KV_LOG(3, "no face");
        return -1;
    }
    count = std::min(count, kMaxFaces);
    const bool inSensorZoom = useInSensorZoom != 0 && IsInSensorZoomFrame(metadata);
    const bool large = IsLargeInput(width, height);
    info.faceCount = static_cast<int32_t>(count);
    uint64_t maxArea = 0;
    for (uint32_t i = 0; i < count; ++i) {
        const int* face = faces + i * kFaceWords;
        KVFaceEntry& entry = info.faces[i];
        CopyFaceExtra(face, info.faceExtra[i]);
        FaceCorners c = ReadCorners(face);
        if (inSensorZoom) ToFullArray(c, active);
        // Deliberate: the doubling is applied to the active size kept across
        // the loop, so it compounds from face to face (face i is mapped with
        // 2^(i+1) times the array). Callers depend on these exact rectangles.
        if (large) {
            active.width *= 2u;
            active.height *= 2u;
        }
        const ChiRect src = {c.left, c.top, c.right - c.left, c.bottom - c.top};
        // A rejected face (zero size) keeps its cleared rectangle.
        MapRectToInput(src, crop, width, height, active, &entry.rect);
        entry.rotation = QuarterTurn(face[6]);
        entry.centerX = static_cast<int32_t>(entry.rect.left + (entry.rect.width >> 1));
        entry.centerY = static_cast<int32_t>(entry.rect.top + (entry.rect.height >> 1));
        if (entry.centerX > width || entry.centerX < 1 || entry.centerY < 1 ||
            entry.centerY > height) {
            entry.centerX = width / 2;
            entry.centerY = height / 2;
        }
        // Strictly larger: of equal faces the first stays the largest.
        const uint64_t area = static_cast<uint64_t>(entry.rect.width) * entry.rect.height;
        if (area > maxArea) {
            info.largestFaceIndex = static_cast<int32_t>(i);
            maxArea = area;
        }
        KV_LOG(1, "faces[%d/%d]:[%d %d %dx%d] point:[%d %d] angle:%d", i + 1, count,
               entry.rect.left, entry.rect.top, entry.rect.width, entry.rect.height, entry.centerX,
               entry.centerY, entry.rotation);
    }
    return ret;
}

int MetaUtils::GetFacesNoMap(std::shared_ptr<KvMetadata> metadata, int width, int height,
                             KVFaceInfo& info) {
    int* faces = nullptr;
    uint32_t count = 0;
    GetFacesInfoHolder(metadata, &faces, &count);
    if (faces == nullptr || count == 0) {
        KV_LOG(3, "no face");
        return -1;
    }
    count = std::min(count, kMaxFaces);
    // Without an active array the in-sensor-zoom conversion uses a zero size.
    ChiRect active = {0, 0, 0, 0};
    GetActiveArraySize(metadata, &active);
    const bool inSensorZoom = IsInSensorZoomFrame(metadata);
    const bool large = IsLargeInput(width, height);
    // Deliberate: only the rectangles, extras and count are written; the
    // rest of the caller's record keeps its values.
    info.faceCount = static_cast<int32_t>(count);
    // The face luma is read but not used; a missing tag is logged by its getter.
    float luma = 0.0f;
    GetBurstInfoFaceLuma(metadata, &luma);
    for (uint32_t i = 0; i < count; ++i) {
        const int* face = faces + i * kFaceWords;
        FaceCorners c = ReadCorners(face);
        if (inSensorZoom) ToFullArray(c, active);
        if (large) {
            c.left *= 2u;
            c.top *= 2u;
            c.right *= 2u;
            c.bottom *= 2u;
        }
        info.faces[i].rect = {c.left, c.top, c.right - c.left, c.bottom - c.top};
        CopyFaceExtra(face, info.faceExtra[i]);
    }
    return 0;
}

int MetaUtils::GetFaceInfo(std::shared_ptr<KvMetadata> metadata, AIspFaceInfo& info, int width,
                           int height) {
    KVFaceInfo mapped;
    std::memset(&mapped, 0, sizeof(mapped));
    GetFaceRect(metadata, width, height, mapped, 0);
    float luma = 0.0f;
    GetBurstInfoFaceLuma(metadata, &luma);
    info.count = mapped.faceCount;
    if (info.count < 1) return -1;
    for (int32_t i = 0; i < mapped.faceCount; ++i) {
        const __UtilsImage_Rect& r = mapped.faces[i].rect;
        // Inclusive corners; a size negative as a signed value collapses to
        // the first corner, a zero size gives one less than it.
        info.rect[i][0] = static_cast<int32_t>(r.left);
        info.rect[i][1] = static_cast<int32_t>(r.top);
        info.rect[i][2] = static_cast<int32_t>(r.width) < 0
                              ? static_cast<int32_t>(r.left)
                              : static_cast<int32_t>(r.left + r.width - 1u);
        info.rect[i][3] = static_cast<int32_t>(r.height) < 0
                              ? static_cast<int32_t>(r.top)
                              : static_cast<int32_t>(r.top + r.height - 1u);
        info.luma[i] = luma;
        std::memcpy(info.faceExtra[i], mapped.faceExtra[i], sizeof(info.faceExtra[i]));
    }
    return 0;
}

// ---- Focus region -------------------------------------------------------------

// The autofocus region of the platform's 3A layer, mapped into the image.
// Deliberately unchecked: the tag's element count is not compared with the
// words read; its writer always supplies the type word, the region count and
// the regions.
int MetaUtils::GetfocusROI(std::shared_ptr<KvMetadata> metadata, UtilsImageBuf* image,
                           __UtilsImage_Rect* roi) {
    if (roi == nullptr || image == nullptr || !metadata) {
        KV_LOG(4, "arg err");
        return -2;
    }
    ChiRect crop = {0, 0, 0, 0};
    int ret = GetAndroidCropRegion(metadata, &crop);
    if (ret != 0) {
        KV_LOG(3, "GetCropRegion err");
        return ret;
    }
    ChiRect active = {0, 0, 0, 0};
    ret = GetActiveArraySize(metadata, &active);
    if (ret != 0) {
        KV_LOG(3, "GetActiveArraySize err");
        return ret;
    }
    void* data = nullptr;
    ret = GetMetaData(metadata, nullptr, tag::MTK_3A_FEATURE_AF_REGION, &data, nullptr);
    if (ret != 0 || data == nullptr) {
        KV_LOG(1, "fail to read AF region");
        return -1;
    }
    const int32_t* words = static_cast<const int32_t*>(data);
    const int32_t type = words[0];
    const int32_t regions = words[1];
    if (static_cast<uint32_t>(regions) - 1u >= 2u) {
        KV_LOG(1, "incorrect AF region %d %d", type, regions);
        return -1;
    }
    // With two regions the second one, from word 7, is used.
    const int32_t vs = regions == 1 ? 2 : 7;
    const int32_t tlx = words[vs];
    const int32_t tly = words[vs + 1];
    const int32_t brx = words[vs + 2];
    const int32_t bry = words[vs + 3];
    KV_LOG(1, "af roi, info:[t:%d, n:%d, vs:%d, tlx:%d, tly:%d, brx:%d, bry:%d]", type, regions, vs,
           tlx, tly, brx, bry);
    // Corners are not checked for order: reversed ones wrap to a huge size.
    const ChiRect src = {static_cast<uint32_t>(tlx), static_cast<uint32_t>(tly),
                         static_cast<uint32_t>(brx) - static_cast<uint32_t>(tlx),
                         static_cast<uint32_t>(bry) - static_cast<uint32_t>(tly)};
    return MapRectToInput(src, crop, image->width, image->height, active, roi);
}

}  // namespace kvalgo2
