// MetaUtils: the object, tag access, the scalar and record getters and
// setters, rectangles and array sizes, the mapping to the input image, lens
// static information, camera role ids, scene, anchor-frame and bokeh
// metadata.
#include "MetaUtils.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>

#include "KvMetadata.h"
#include "MetaDefs.h"
#include "MetaLog.h"
#include "TagGetter.h"

namespace kvalgo2 {

using detail::Convert;
using detail::Copy;
using detail::kDefaultMessages;
using detail::WordAtByteTag;

// ===========================================================================
// Object and tag access
// ===========================================================================

// The camera ids stay unset until SetCameraId: callers set them first.
MetaUtils::MetaUtils() {}

MetaUtils::~MetaUtils() {}

int MetaUtils::SetCameraId(int cameraId, int satCameraId) {
    mCameraId = cameraId;
    mSatCameraId = satCameraId;
    return 0;
}

int MetaUtils::GetMetaData(std::shared_ptr<KvMetadata> metadata, const char* tagName,
                           uint32_t tagId, void** data, uint32_t* count) {
    detail::TagRef tag(tagId);
    tag.name = tagName;
    return detail::FindPayload(metadata, tag, data, count, nullptr);
}

namespace detail {

// The lookup primitive's lines name GetMetaData, whichever path reached it.
#define KV_LOOKUP_LOG(level, fmt) \
    log::Write(log::LogSite{__FILE__, "GetMetaData", __LINE__}, level, KV_LOG_PREFIX fmt)

int FindFailed(const std::shared_ptr<KvMetadata>& metadata, const camera_metadata_ro_entry_t* entry,
               void** data, uint32_t* count, size_t* bytes) {
    if (!metadata) {
        KV_LOOKUP_LOG(4, "pArg is null");
        return -2;
    }
    if (entry == nullptr) {  // neither tag name nor id
        KV_LOOKUP_LOG(4, "pArg is null");
        return -2;
    }
    if (entry->count != 0) {
        // Elements without data: the pointer is written as it is, null.
        *data = const_cast<uint8_t*>(entry->data.u8);
        if (count != nullptr) *count = static_cast<uint32_t>(entry->count);
        if (bytes != nullptr) *bytes = PayloadBytes(*entry);
        KV_LOOKUP_LOG(3, "GetMetadata err");
        return -2;
    }
    // Absent or empty: nothing is written. A caller whose pointer is still
    // set from an earlier lookup gets a silent -1.
    if (*data != nullptr) return -1;
    KV_LOOKUP_LOG(3, "GetMetadata err");
    return -2;
}

#undef KV_LOOKUP_LOG

size_t PayloadBytes(const camera_metadata_ro_entry_t& entry) {
    // Element sizes of Android's metadata types: byte, int32, float, int64,
    // double, rational. An unknown type holds nothing that can be read.
    constexpr size_t kElementBytes[] = {1, 4, 4, 8, 8, 8};
    if (entry.type >= sizeof kElementBytes / sizeof kElementBytes[0]) return 0;
    const size_t size = kElementBytes[entry.type];
    return entry.count > SIZE_MAX / size ? SIZE_MAX : entry.count * size;
}

int ShortPayload(const log::LogSite& at, TagRef tag, size_t bytes, size_t need) {
    if (tag.name != nullptr) {
        log::Write(at, 3, KV_LOG_PREFIX "%s too short: %zu bytes, read needs %zu", tag.name, bytes,
                   need);
    } else {
        log::Write(at, 3, KV_LOG_PREFIX "tag 0x%x too short: %zu bytes, read needs %zu", tag.id,
                   bytes, need);
    }
    return -1;
}

}  // namespace detail

template <typename T>
int MetaUtils::SetMetaData(std::shared_ptr<KvMetadata> metadata, const char* tagName,
                           uint32_t tagId, T* data, uint32_t count) {
    if (!metadata) {
        KV_LOG(4, "pArg is null");
        return -2;
    }
    if (tagName == nullptr && tagId == 0) {
        KV_LOG(4, "pArg is null");
        return -2;
    }
    if (tagName == nullptr) return metadata->update(tagId, data, count);
    uint32_t tag = 0;
    if (KvMetadata::getTagFromName(tagName, &tag) != 0) return -1;
    return metadata->update(tag, data, count);
}

template int MetaUtils::SetMetaData<float>(std::shared_ptr<KvMetadata>, const char*, uint32_t,
                                           float*, uint32_t);
template int MetaUtils::SetMetaData<int>(std::shared_ptr<KvMetadata>, const char*, uint32_t, int*,
                                         uint32_t);
template int MetaUtils::SetMetaData<unsigned char>(std::shared_ptr<KvMetadata>, const char*,
                                                   uint32_t, unsigned char*, uint32_t);

// ===========================================================================
// Scalar getters
// ===========================================================================

namespace {

// Focus distance in diopters to centimetres; 1000 for zero, negative or
// not-a-number distances.
void StoreFocusDistanceCm(const void* data, int* out) {
    const float diopters = detail::Load<float>(data);
    *out = diopters > 0.0f ? detail::SaturateCast<int>(100.0f / diopters) : 1000;
}
constexpr detail::Read<int> FocusDistanceToCm{StoreFocusDistanceCm, sizeof(float)};

void TraceWhiteLevel(const log::LogSite& at, const int& value) {
    log::Write(at, 0, KV_LOG_PREFIX "ANDROID_SENSOR_DYNAMIC_WHITE_LEVEL: %d", value);
}

// The laser distance tag fills only the first word of the record.
void StoreLaserDistanceWord(const void* data, LaserDistance* out) {
    out->distance = detail::Load<int32_t>(data);
}
constexpr detail::Read<LaserDistance> StoreLaserDistance{StoreLaserDistanceWord, sizeof(int32_t)};

constexpr bool kCheckMetadata = true;

}  // namespace

// AF state, AF mode and the Android flash mode are one-byte tags read as a
// whole 32-bit word: callers get the byte in the low 8 bits and whatever the
// container holds after it in the rest. This is the interface's behaviour
// (a hardened build reads zeros after the byte instead of the container's
// memory).

// clang-format off
KV_TAG_GETTER(GetPhyCameraId, int, "kovani.snapshot.physCameraId", kDefaultMessages, Copy<int>)
KV_TAG_GETTER(GetSensorExposureTime, long, tag::ANDROID_SENSOR_EXPOSURE_TIME, kDefaultMessages,
              Copy<long>)
KV_TAG_GETTER(GetAndroidJpegOrientation, int, tag::ANDROID_JPEG_ORIENTATION, kDefaultMessages,
              Copy<int>)
KV_TAG_GETTER(GetStylizationType, unsigned char, "com.kovani.sessionparams.stylizationType",
              kDefaultMessages, Copy<unsigned char>)
KV_TAG_GETTER(GetSensorTimestamp, long, "kovani.mfnr.anchorTimeStamp", kDefaultMessages,
              Copy<long>)
KV_TAG_GETTER(GetWhiteBlackRatio, float, "com.kovani.statsaec.AECWhiteBlackFrameAdj",
              KV_TAG_MESSAGES("AECWhiteBlackRatio"), Copy<float>)
KV_TAG_GETTER(GetSensorDynamicWhiteLevel, int, tag::ANDROID_SENSOR_DYNAMIC_WHITE_LEVEL,
              KV_SHORT("GetMetadata ANDROID_SENSOR_DYNAMIC_WHITE_LEVEL fail"), Copy<int>, false,
              TraceWhiteLevel)
KV_TAG_GETTER(GetAndroidTimeStamp, long, tag::ANDROID_SENSOR_TIMESTAMP,
              KV_SHORT("GetMetadata ANDROID_SENSOR_TIMESTAMP fail"), Copy<long>)
KV_TAG_GETTER(GetfocusDistCm, int, tag::ANDROID_LENS_FOCUS_DISTANCE, kDefaultMessages,
              FocusDistanceToCm)
KV_TAG_GETTER(GetSensitivity, int, tag::ANDROID_SENSOR_SENSITIVITY, kDefaultMessages, Copy<int>)
KV_TAG_GETTER(GetAFState, unsigned int, tag::ANDROID_CONTROL_AF_STATE,
              KV_TAG_MESSAGES("ANDROID_CONTROL_AF_STATE"), WordAtByteTag<unsigned int>)
KV_TAG_GETTER(GetAFMode, unsigned int, tag::ANDROID_CONTROL_AF_MODE,
              KV_TAG_MESSAGES("ANDROID_CONTROL_AF_MODE"), WordAtByteTag<unsigned int>)
KV_TAG_GETTER(GetIsZSLEnableReal, int, tag::ANDROID_CONTROL_ENABLE_ZSL,
              KV_SHORT("GetMetadata ANDROID_CONTROL_ENABLE_ZSL fail"), Convert<uint8_t, int>)
KV_TAG_GETTER(GetANDROIDFlashMode, int, tag::ANDROID_FLASH_MODE,
              KV_SHORT("GetMetadata ANDROID_FLASH_MODE fail"), WordAtByteTag<int>)
KV_TAG_GETTER(GetVXFlashMode, int, "kovani.flash.mode", KV_SHORT("GetMetadata kovani.flash.mode fail"),
              Copy<int>)
KV_TAG_GETTER(GetAndroidSensorFrameDuration, long, tag::ANDROID_SENSOR_FRAME_DURATION,
              KV_SHORT("GetMetadata ANDROID_SENSOR_FRAME_DURATION fail"), Copy<long>)
KV_TAG_GETTER(GetVXPanshotFeatureEnable, int, "com.kovani.panshotTruck.FeatureEnable",
              KV_SHORT("GetMetadata com.kovani.panshotTruck.FeatureEnable fail"), Copy<int>)
KV_TAG_GETTER(GetAndroidZoomRatio, float, tag::ANDROID_CONTROL_ZOOM_RATIO,
              KV_FULL("GetMetaData ANDROID_CONTROL_ZOOM_RATIO fail",
                      "get ANDROID_CONTROL_ZOOM_RATIO err"),
              Copy<float>, kCheckMetadata)
KV_TAG_GETTER(GetZoomEisEffective, float, "com.kovani.camera.zoomeis.effectiverate",
              KV_FULL("GetMetaData com.kovani.camera.zoomeis.effectiverate fail",
                      "get com.kovani.camera.zoomeis.effectiverate err"),
              Copy<float>, kCheckMetadata)
KV_TAG_GETTER(GetApertureValue, float, tag::ANDROID_LENS_APERTURE,
              KV_TAG_MESSAGES("ANDROID_LENS_APERTURE"), Copy<float>)
KV_TAG_GETTER(GetFwkCameraId, int, "kovani.snapshot.fwkCameraId", KV_SHORT("Get fwkCameraId err"),
              Copy<int>)
KV_TAG_GETTER(GetThermalLevel, int, "kovani.thermal.thermalLevel",
              KV_TAG_MESSAGES("thermalLevel"), Copy<int>)
KV_TAG_GETTER(GetLaserDist, LaserDistance, "kovani.ai.kvsd.laserDist", kDefaultMessages,
              StoreLaserDistance)
// clang-format on

// ===========================================================================
// Record getters and setters
// ===========================================================================

// The smart AE result is an opaque 448-byte record; writer and readers of the
// tag agree on that size, so the entry's count is not compared with it.
KV_TAG_GETTER(GetSmartAeInfo, KV_SMARTAE::SmartAEProcOutput, "kovani.ai.asd.SmartAE",
              kDefaultMessages, Copy<KV_SMARTAE::SmartAEProcOutput>)

int MetaUtils::GetLSC(std::shared_ptr<KvMetadata> metadata, int* size, float* map) {
    if (map == nullptr) return detail::ArgErr(KV_HERE);
    constexpr detail::TagRef kTag(tag::ANDROID_STATISTICS_LENS_SHADING_MAP);
    detail::Payload payload;
    if (const int ret = detail::LookUp(
            KV_HERE, std::move(metadata), kTag,
            KV_SHORT("GetMetadata ANDROID_STATISTICS_LENS_SHADING_MAP fail"), &payload)) {
        return ret;
    }
    // Four float gains per grid point; the caller's grid size decides the
    // length, not the entry's count.
    const int64_t points = static_cast<int64_t>(size[0]) * static_cast<int64_t>(size[1]);
    if (detail::kHardened) {
        // A negative grid or one beyond any payload needs more than there is.
        constexpr uint64_t kPointBytes = 16;
        const uint64_t need = points < 0 || static_cast<uint64_t>(points) > SIZE_MAX / kPointBytes
                                  ? SIZE_MAX
                                  : static_cast<uint64_t>(points) * kPointBytes;
        if (const int ret = detail::CheckPayload(KV_HERE, kTag, payload, need)) return ret;
    }
    std::memcpy(map, payload.data, static_cast<size_t>(points * 16));
    return 0;
}

int MetaUtils::SetIspGain(std::shared_ptr<KvMetadata> metadata, float* gain) {
    return detail::WriteTag(*this, KV_HERE, std::move(metadata), "com.qti.sensorbps.gain", gain, 1,
                            KV_LOG_PREFIX "SetMetadata com.qti.sensorbps.gain err");
}

int MetaUtils::SetHazeratio(std::shared_ptr<KvMetadata> metadata, float* ratio) {
    return detail::WriteTag(*this, KV_HERE, std::move(metadata), "com.kovani.3AAlgo.awbHazeRatio",
                            ratio, 1,
                            KV_LOG_PREFIX "SetMetadata com.kovani.3AAlgo.awbHazeRatio err");
}

int MetaUtils::SetAIToneFlag(std::shared_ptr<KvMetadata> metadata, int* flag) {
    return detail::WriteTag(*this, KV_HERE, std::move(metadata), "com.kovani.3AAlgo.aecAItoneFlag",
                            flag, 1,
                            KV_LOG_PREFIX "SetMetadata com.kovani.3AAlgo.aecAItoneFlag err");
}

// ===========================================================================
// Rectangles, crop regions and active-array sizes
// ===========================================================================

// The active array of the frame's camera, from its static metadata. The
// maximum-resolution twin logs its failure one level lower, at 2.
KV_STATIC_TAG_GETTER(GetActiveArraySize, ChiRect, tag::ANDROID_SENSOR_INFO_ACTIVE_ARRAY_SIZE,
                     KV_SHORT("Get ACTIVE_ARRAY_SIZE err"), Copy<ChiRect>)
KV_STATIC_TAG_GETTER(GetMaxActiveArraySize, ChiRect,
                     tag::ANDROID_SENSOR_INFO_ACTIVE_ARRAY_SIZE_MAXIMUM_RESOLUTION,
                     (detail::Messages{
                         KV_LOG_PREFIX
                         "Get ANDROID_SENSOR_INFO_ACTIVE_ARRAY_SIZE_MAXIMUM_RESOLUTION err",
                         nullptr, 2}),
                     Copy<ChiRect>)

namespace {

void TraceSnapshotCrop(const log::LogSite& at, const ChiRect& r) {
    log::Write(at, 2, KV_LOG_PREFIX "kovani.snapshot.cropRegion [%d %d %d %d]", r.left, r.top,
               r.width, r.height);
}

void TraceAndroidCrop(const log::LogSite& at, const ChiRect& r) {
    log::Write(at, 2, KV_LOG_PREFIX "ANDROID_SCALER_CROP_REGION [%d %d %d %d]", r.left, r.top,
               r.width, r.height);
}

void TraceStaticActiveArray(const log::LogSite& at, const ChiRect& r) {
    log::Write(at, 2, KV_LOG_PREFIX "Get ACTIVE_ARRAY_SIZE: (%d,%d,%d,%d)", r.left, r.top, r.width,
               r.height);
}

}  // namespace

// Crop regions of the frame and the active array of a static-metadata
// container handed in by the caller. Only the snapshot crop getter rejects an
// empty container itself; the others leave that to the lookup.
// clang-format off
KV_TAG_GETTER(GetCropRegion, ChiRect, "kovani.snapshot.cropRegion", kDefaultMessages,
              Copy<ChiRect>, kCheckMetadata, TraceSnapshotCrop)
KV_TAG_GETTER(GetAndroidCropRegion, ChiRect, tag::ANDROID_SCALER_CROP_REGION, kDefaultMessages,
              Copy<ChiRect>, false, TraceAndroidCrop)
KV_TAG_GETTER(GetStaticActiveArraySize, ChiRect, tag::ANDROID_SENSOR_INFO_ACTIVE_ARRAY_SIZE,
              KV_FULL("Get ANDROID_SENSOR_INFO_ACTIVE_ARRAY_SIZE err",
                      "get NULL ANDROID_SENSOR_INFO_ACTIVE_ARRAY_SIZE err"),
              Copy<ChiRect>, false, TraceStaticActiveArray)
// clang-format on

// ===========================================================================
// Mapping rectangles to the input image
// ===========================================================================
//
// The input image shows the reference region scaled uniformly: one axis of
// the reference fills the image exactly (the "fill" axis), the other is
// centre-cropped (the "cut" axis). Which axis fills is decided by the
// sensor's aspect ratio, not the reference region's. The choice of 32-bit
// signed or unsigned integer and single-precision float arithmetic at each
// step is part of the result, pixel for pixel; products that wrap are formed
// in unsigned arithmetic and float-to-integer conversions saturate, so every
// step is well-defined.

namespace {

// Half away from zero, then saturated into uint32 (negative values give 0).
uint32_t RoundToPixel(float value) {
    return detail::SaturateCast<uint32_t>(std::round(value));
}

uint32_t FloorToPixel(float value) {
    return detail::SaturateCast<uint32_t>(std::floor(value));
}

struct AxisMapping {
    float scale;
    uint32_t fillPos;  // mapped position on the fill axis
    uint32_t cutPos;   // mapped position on the cut axis
};

// `inputFill`/`inputCut` are the image's extents (both at least 1),
// `referFill`/`referCut` the reference region's, `relFill`/`relCut` the
// rectangle's offsets inside the reference region.
AxisMapping MapAxes(int32_t inputFill, int32_t inputCut, uint32_t referFill, uint32_t referCut,
                    uint32_t relFill, uint32_t relCut) {
    AxisMapping m;
    m.scale = static_cast<float>(inputFill) / static_cast<float>(referFill);
    // Reference extent visible on the cut axis: a signed 32-bit product that
    // may wrap, divided with truncation toward zero.
    const int32_t product = static_cast<int32_t>(referFill * static_cast<uint32_t>(inputCut));
    const int32_t visible = product / inputFill;
    // Reference lines cut away before the visible part; none when the
    // reference is shorter than the visible extent.
    const int32_t excess = static_cast<int32_t>(referCut - static_cast<uint32_t>(visible));
    const int32_t offset = excess < 0 ? 0 : excess / 2;
    // A position inside the cut-away margin goes to the image edge; the
    // rectangle keeps its full scaled size there (no shortening by the cut).
    m.cutPos =
        static_cast<float>(relCut) > static_cast<float>(offset)
            ? RoundToPixel(m.scale * static_cast<float>(relCut - static_cast<uint32_t>(offset)))
            : 0;
    m.fillPos = RoundToPixel(m.scale * static_cast<float>(relFill));
    return m;
}

}  // namespace

int MetaUtils::MapRectToInput(ChiRect srcRect, ChiRect srcRefer, int inputWidth, int inputHeight,
                              ChiRect sensorSize, __UtilsImage_Rect* dstRect) {
    // Rejected arguments are logged at level 3 with -1, unlike the getters'
    // level 4 and -2: callers of the mapping rely on these values. A null
    // destination is refused the same way instead of being written through.
    if (inputHeight < 1 || inputWidth < 1 || srcRect.width == 0 || srcRect.height == 0 ||
        srcRefer.width == 0 || srcRefer.height == 0 || dstRect == nullptr) {
        KV_LOG(3, "arg err");
        return -1;
    }
    const uint32_t relLeft = srcRect.left >= srcRefer.left ? srcRect.left - srcRefer.left : 0;
    const uint32_t relTop = srcRect.top > srcRefer.top ? srcRect.top - srcRefer.top : 0;

    const float sensorAspect =
        static_cast<float>(sensorSize.width) / static_cast<float>(sensorSize.height);
    const float inputAspect = static_cast<float>(inputWidth) / static_cast<float>(inputHeight);

    float scale;
    uint32_t mappedLeft;
    uint32_t mappedTop;
    // A sensor not wider than the image fills the image's width; a wider one,
    // or a ratio that is not a number (zero sensor height), fills its height.
    if (sensorAspect <= inputAspect) {
        const AxisMapping m =
            MapAxes(inputWidth, inputHeight, srcRefer.width, srcRefer.height, relLeft, relTop);
        scale = m.scale;
        mappedLeft = m.fillPos;
        mappedTop = m.cutPos;
    } else {
        const AxisMapping m =
            MapAxes(inputHeight, inputWidth, srcRefer.height, srcRefer.width, relTop, relLeft);
        scale = m.scale;
        mappedLeft = m.cutPos;
        mappedTop = m.fillPos;
    }

    // Clamp into the image; only the size is made even, the position is not.
    const uint32_t imageWidth = static_cast<uint32_t>(inputWidth);
    const uint32_t imageHeight = static_cast<uint32_t>(inputHeight);
    __UtilsImage_Rect dst;
    dst.left = std::min(mappedLeft, imageWidth - 1);
    dst.top = std::min(mappedTop, imageHeight - 1);
    dst.width =
        std::min(FloorToPixel(scale * static_cast<float>(srcRect.width)), imageWidth - dst.left) &
        ~1u;
    dst.height =
        std::min(FloorToPixel(scale * static_cast<float>(srcRect.height)), imageHeight - dst.top) &
        ~1u;
    *dstRect = dst;

    // "SrcRect" shows the offsets inside the reference region, not the corner.
    KV_LOG(1,
           "SrcRect[%d,%d,%d,%d] SrcRefer[%d,%d,%d,%d] DstRect[%d,%d,%d,%d] "
           "SensorSize[%d,%d,%d,%d]",
           relLeft, relTop, srcRect.width, srcRect.height, srcRefer.left, srcRefer.top,
           srcRefer.width, srcRefer.height, dst.left, dst.top, dst.width, dst.height,
           sensorSize.left, sensorSize.top, sensorSize.width, sensorSize.height);
    return 0;
}

// ===========================================================================
// Lens static information
// ===========================================================================

namespace {

// Shading map width and height: two ints, so the caller's pointer must
// address at least two.
void StoreWidthAndHeight(const void* data, int* out) {
    std::memcpy(out, data, 2 * sizeof(int));
}
constexpr detail::Read<int> StoreShadingMapSize{StoreWidthAndHeight, 2 * sizeof(int)};

void TraceBayerPattern(const log::LogSite& at, int cameraId, const unsigned char& value) {
    log::Write(at, 0,
               KV_LOG_PREFIX "fwkCameraId:%d ANDROID_SENSOR_INFO_COLOR_FILTER_ARRANGEMENT:%d",
               cameraId, value);
}

}  // namespace

// The Bayer pattern is Android's colour filter arrangement value itself (the
// method's name is the interface's own spelling).
// clang-format off
KV_STATIC_TAG_GETTER(GetLensInfoShadingMapSize, int, tag::ANDROID_LENS_INFO_SHADING_MAP_SIZE,
                     KV_SHORT("GetMetadata ANDROID_LENS_INFO_SHADING_MAP_SIZE fail"),
                     StoreShadingMapSize)
KV_STATIC_TAG_GETTER(GetSensorBayerPatten, unsigned char,
                     tag::ANDROID_SENSOR_INFO_COLOR_FILTER_ARRANGEMENT,
                     KV_SHORT("GetMetadata ANDROID_SENSOR_INFO_COLOR_FILTER_ARRANGEMENT fail"),
                     Copy<unsigned char>, TraceBayerPattern)
// clang-format on

// ===========================================================================
// Focus regions
// ===========================================================================

// The touch point: the centre of the mapped focus region. The point is
// written whatever the region read gave (from a zeroed region on failure),
// and the region's result is returned.
int MetaUtils::GetfocusTP(std::shared_ptr<KvMetadata> metadata, UtilsImageBuf* image,
                          __UtilsImage_point* point) {
    if (point == nullptr || image == nullptr || !metadata) {
        KV_LOG(4, "arg err");
        return -2;
    }
    __UtilsImage_Rect roi = {0, 0, 0, 0};
    const int ret = GetfocusROI(std::move(metadata), image, &roi);
    const uint32_t halfWidth = roi.width >> 1;
    const uint32_t halfHeight = roi.height >> 1;
    const uint32_t cx = roi.left + halfWidth;
    const uint32_t cy = roi.top + halfHeight;
    // Deliberate: a centre exactly on the origin is replaced by the half
    // size; callers rely on this point, so it stays.
    if (cx == 0 && cy == 0) {
        point->x = static_cast<int32_t>(halfWidth);
        point->y = static_cast<int32_t>(halfHeight);
    } else {
        point->x = static_cast<int32_t>(cx);
        point->y = static_cast<int32_t>(cy);
    }
    return ret;
}

// ===========================================================================
// Camera role ids
// ===========================================================================

namespace {

// The role id in a camera's static metadata. Both failures log the lookup
// message: the tag's absence and its emptiness are the same fault here.
constexpr detail::StaticTagGetter<int> kCameraRoleId{
    "com.kovani.cameraid.role.cameraId",
    KV_FULL("GetMetadata com.kovani.cameraid.role.cameraId err",
            "GetMetadata com.kovani.cameraid.role.cameraId err"),
    Copy<int>};

}  // namespace

int MetaUtils::GetCameraRoleId(int cameraId, int* roleId) {
    return detail::ReadCameraStaticTag(KV_HERE, cameraId, roleId, kCameraRoleId);
}

// clang-format off
KV_STATIC_TAG_GETTER(GetCameraRoleId, int, kCameraRoleId)
// Copies element 0 only, despite the plural name and the pointer: callers
// rely on exactly one int being written.
KV_TAG_GETTER(GetCameraRoleIds, int, "com.kovani.cameraid.role.cameraIds",
              KV_TAG_MESSAGES("CameraRoleId"), Copy<int>)
// clang-format on

int MetaUtils::GetMultiCameraPhyCameraRoleIds(int cameraId, std::vector<int>& roleIds) {
    std::shared_ptr<KvMetadata> stat =
        StaticMetadataWraper::getInstance()->getStaticMetadata(static_cast<uint32_t>(cameraId));
    void* data = nullptr;
    const int ret =
        GetMetaData(stat, nullptr, tag::ANDROID_LOGICAL_MULTI_CAMERA_PHYSICAL_IDS, &data, nullptr);
    if (ret != 0 || data == nullptr) {
        // Always -1, whatever the lookup returned.
        KV_LOG(3, "GetMetadata ANDROID_LOGICAL_MULTI_CAMERA_PHYSICAL_IDS err");
        return -1;
    }
    // The ids are decimal texts, each ended by a NUL, packed back to back;
    // the entry's count is their total length in bytes.
    const camera_metadata_ro_entry_t entry =
        stat->find(tag::ANDROID_LOGICAL_MULTI_CAMERA_PHYSICAL_IDS);
    const char* p = reinterpret_cast<const char*>(entry.data.u8);
    size_t remaining = entry.count;
    std::vector<int> physicalIds;
    while (remaining != 0) {
        // Bounded by the entry, so a last id without its NUL ends the list.
        const size_t len = strnlen(p, remaining);
        physicalIds.push_back(std::atoi(std::string(p, len).c_str()));
        const size_t step = len < remaining ? len + 1 : remaining;
        remaining -= step;
        p += step;
    }
    // One role per physical camera, 0 for a camera whose role is unreadable;
    // appended to what the caller's vector already holds.
    for (const int physicalId : physicalIds) {
        int role = 0;
        GetCameraRoleId(physicalId, &role);
        roleIds.push_back(role);
    }
    return 0;
}

int MetaUtils::GetMultiCameraPhyCameraRoleIds(std::shared_ptr<KvMetadata> metadata,
                                              std::vector<int>& roleIds) {
    int cameraId = -1;
    const int ret = GetFwkCameraId(std::move(metadata), &cameraId);
    if (ret != 0) {
        KV_LOG(3, "GetMetadata FwkCameraId fail");
        // Success on purpose: callers see an empty addition, not an error.
        return 0;
    }
    return GetMultiCameraPhyCameraRoleIds(cameraId, roleIds);
}

// ===========================================================================
// Scene, motion-capture and anchor-frame
// ===========================================================================

// clang-format off
KV_TAG_GETTER(GetHighlightAnchorOrder, int, "kovani.aihighlight.anchorOrder", kDefaultMessages,
              Copy<int>)
KV_TAG_GETTER(GetStreetAnchorOrder, int, "com.kovani.ext.control.streetmode.anchor.order",
              kDefaultMessages, Copy<int>)
KV_TAG_GETTER(GetSunsetScene, Sunset_Scene_t, "kovani.ai.asd.SunsetScene",
              KV_TAG_MESSAGES("kovani.ai.asd.SunsetScene"), Copy<Sunset_Scene_t>)
KV_TAG_GETTER(GetAISceneIndoor, int, "kovani.ai.asd.algoSceneDetectedIndoor",
              KV_TAG_MESSAGES("kovani.ai.asd.algoSceneDetectedIndoor"), Copy<int>)
// The motion-capture type and frame type read the same tag.
KV_TAG_GETTER(GetMotionCaptureType, unsigned int, "kovani.ai.kvsd.motionCaptureType",
              KV_TAG_MESSAGES("kovani.ai.kvsd.motionCaptureType"), Copy<unsigned int>)
KV_TAG_GETTER(GetMotionCaptureFrameType, int, "kovani.ai.kvsd.motionCaptureType",
              KV_TAG_MESSAGES("kovani.ai.kvsd.motionCaptureType"), Copy<int>)
KV_TAG_GETTER(GetVXAihighlightIs, int, "com.kv.node.kvaihighlight.isHighLight",
              KV_TAG_MESSAGES("com.kv.node.kvaihighlight.isHighLight"), Copy<int>)
KV_TAG_GETTER(GetBandingSceneType, int, "kovani.ai.kvsd.bandingSceneType",
              KV_TAG_MESSAGES("kovani.ai.kvsd.bandingSceneType"), Copy<int>)
KV_TAG_GETTER(GetPreAnchorProcStatus, int, "com.kovani.orlo2.preAnchorProc",
              KV_TAG_MESSAGES("com.kovani.orlo2.preAnchorProc"), Copy<int>)
KV_TAG_GETTER(GetPreAnchorProcFrameNum, int, "com.kovani.orlo2.anchorFrameNum",
              KV_TAG_MESSAGES("com.kovani.orlo2.anchorFrameNum"), Copy<int>)
// clang-format on

int MetaUtils::GetAISceneResult(std::shared_ptr<KvMetadata> metadata, AIspSceneResult& result) {
    static constexpr detail::TagGetter<AIspSceneResult> kRow{
        "kovani.ai.asd.algoSceneDetectedAIResult", kDefaultMessages, Copy<AIspSceneResult>};
    return detail::ReadTag(KV_HERE, std::move(metadata), &result, kRow);
}

// The anchor is taken only when the banding check flagged a flicker motion
// capture and the deflicker succeeded.
int MetaUtils::GetMotionCaptureAnchorOrder(std::shared_ptr<KvMetadata> metadata, int* order) {
    if (order == nullptr) return detail::ArgErr(KV_HERE);
    constexpr detail::TagRef kBandingTag("kovani.ai.kvsd.zslMcBandingType");
    constexpr detail::TagRef kAnchorTag("kovani.motion.capture.anchorInfo");
    detail::Payload payload;
    if (const int ret = detail::LookUp(KV_HERE, metadata, kBandingTag,
                                       KV_FULL("GetMetadata kovani.ai.kvsd.zslMcBandingType err",
                                               "get kovani.ai.kvsd.zslMcBandingType pData null"),
                                       &payload)) {
        return ret;
    }
    if (const int ret = detail::CheckPayload(KV_HERE, kBandingTag, payload, sizeof(uint32_t))) {
        return ret;
    }
    const uint32_t banding = detail::Load<uint32_t>(payload.data);
    const bool isZslFlkMotionCap = (banding & 0xFF) != 0;
    KV_LOG(2, "zslMcBandingType: 0x%x, isZslFlkMotionCap: %d", banding, isZslFlkMotionCap);
    if (!isZslFlkMotionCap) return -1;

    if (const int ret = detail::LookUp(KV_HERE, metadata, kAnchorTag,
                                       KV_FULL("GetMetadata kovani.motion.capture.anchorInfo err",
                                               "get kovani.motion.capture.anchorInfo pData null"),
                                       &payload)) {
        return ret;
    }
    if (const int ret = detail::CheckPayload(KV_HERE, kAnchorTag, payload, sizeof(uint32_t))) {
        return ret;
    }
    const uint32_t anchorInfo = detail::Load<uint32_t>(payload.data);
    const int isDeflickerSuccess = static_cast<int>((anchorInfo >> 8) & 1);
    KV_LOG(2, "anchorInfo: 0x%x, isDeflickerSuccess: %d", anchorInfo, isDeflickerSuccess);
    if (isDeflickerSuccess == 0) return -1;
    *order = static_cast<int>(anchorInfo & 0xFF);
    return 0;
}

namespace {

// Eye-closure status byte: bit 2 set means no eye was detected, bit 0 set
// means the detected eyes are open.
int ReadEyeClosure(const log::LogSite& at, std::shared_ptr<KvMetadata> metadata,
                   AIspAnchorMeta& meta) {
    constexpr detail::TagRef kTag("com.kovani.orlo2.eyeclosure.status");
    detail::Payload payload;
    if (const int ret = detail::LookUp(
            at, std::move(metadata), kTag,
            KV_SHORT("GetMetadata com.kovani.orlo2.eyeclosure.status fail"), &payload)) {
        return ret;
    }
    if (const int ret = detail::CheckPayload(at, kTag, payload, sizeof(uint8_t))) return ret;
    const uint8_t status = detail::Load<uint8_t>(payload.data);
    meta.eyeDet = (status & 0x04) == 0;
    meta.eyeOpen = meta.eyeDet && (status & 0x01) != 0;
    log::Write(at, 0, KV_LOG_PREFIX "ecdRet:0x%x, eyeDet:%d, eyeOpen:%d", status, meta.eyeDet,
               meta.eyeOpen);
    return 0;
}

}  // namespace

// Two names for one operation; only the function name in their lines differs.
int MetaUtils::GetEcdStatus(std::shared_ptr<KvMetadata> metadata, AIspAnchorMeta& meta) {
    return ReadEyeClosure(KV_HERE, std::move(metadata), meta);
}

int MetaUtils::getEcdStatus(std::shared_ptr<KvMetadata> metadata, AIspAnchorMeta& meta) {
    return ReadEyeClosure(KV_HERE, std::move(metadata), meta);
}

// ===========================================================================
// Bokeh request, capability and stream information
// ===========================================================================

namespace {

void TraceSceneResult(const log::LogSite& at, const KvAiSceneClsResult& r) {
    log::Write(at, 2, KV_LOG_PREFIX "sceneDetected(result/confidence):{%d/%f %d/%f}", r.class0,
               static_cast<double>(r.confidence0), r.class1, static_cast<double>(r.confidence1));
}

void TraceIndoor(const log::LogSite& at, const int& indoor) {
    log::Write(at, 0, KV_LOG_PREFIX "inDoor:%d", indoor);
}

}  // namespace

// The bokeh records travel as raw bytes of fixed sizes; the tags must be at
// least that long.
// clang-format off
KV_TAG_GETTER(GetBokehRequestInfoList, __bokehRequestInfoList,
              "com.kovani.camera.bokehConfig.request",
              KV_TAG_MESSAGES("bokehRequestConfig"), Copy<__bokehRequestInfoList>)
KV_TAG_GETTER(GetBokehCapsInfo, __bokehCapabilityInfoList, "com.kovani.camera.bokehCaps.info",
              KV_TAG_MESSAGES("BokehCapsInfo"), Copy<__bokehCapabilityInfoList>)
KV_TAG_GETTER(GetBokehConfigStream, __bokehConfigStreamInfoList,
              "com.kovani.camera.bokehConfig.stream",
              KV_TAG_MESSAGES("BokehConfigStream"), Copy<__bokehConfigStreamInfoList>)
KV_TAG_GETTER(GetInputNum, int, "kovani.multiframe.inputNum",
              KV_SHORT("GetMetadata kovani.multiframe.inputNum fail"), Copy<int>)
KV_TAG_GETTER(GetSceneDetectedAIResult, KvAiSceneClsResult,
              "kovani.ai.asd.algoSceneDetectedAIResult",
              KV_SHORT("get kovani.ai.asd.algoSceneDetectedAIResult fail"),
              Copy<KvAiSceneClsResult>, false, TraceSceneResult)
KV_TAG_GETTER(GetSceneDetectedIndoor, int, "kovani.ai.asd.algoSceneDetectedIndoor",
              KV_SHORT("get kovani.ai.asd.algoSceneDetectedIndoor fail"), Copy<int>, false,
              TraceIndoor)
// clang-format on

// The name is copied up to its NUL without a bound: the pipeline keeps image
// names shorter than the caller's 128 bytes. A hardened build checks both:
// the NUL must lie inside the payload and inside the caller's array.
int MetaUtils::GetImageName(std::shared_ptr<KvMetadata> metadata, char (*name)[128]) {
    if (name == nullptr) return detail::ArgErr(KV_HERE);
    constexpr detail::TagRef kTag("kovani.snapshot.imageName");
    detail::Payload payload;
    if (const int ret =
            detail::LookUp(KV_HERE, metadata, kTag, KV_TAG_MESSAGES("imageName"), &payload)) {
        return ret;
    }
    if (detail::kHardened) {
        const char* text = static_cast<const char*>(payload.data);
        const size_t need = strnlen(text, payload.bytes) + 1;
        if (const int ret = detail::CheckPayload(KV_HERE, kTag, payload, need)) return ret;
        if (need > sizeof *name) {
            KV_LOG(3, "kovani.snapshot.imageName too long: %zu bytes with its NUL, room for %zu",
                   need, sizeof *name);
            return -1;
        }
    }
    std::strcpy(*name, static_cast<const char*>(payload.data));
    return 0;
}

int MetaUtils::SetBokehRequestInfoList(std::shared_ptr<KvMetadata> metadata,
                                       __bokehRequestInfoList* info) {
    return detail::WriteTag(*this, KV_HERE, std::move(metadata),
                            "com.kovani.camera.bokehConfig.request",
                            reinterpret_cast<unsigned char*>(info), sizeof(__bokehRequestInfoList),
                            KV_LOG_PREFIX "SetMetadata com.kovani.camera.bokehConfig.request err");
}

}  // namespace kvalgo2
