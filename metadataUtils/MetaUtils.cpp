// MetaUtils: the object, tag access, the scalar and record getters and
// setters, rectangles and array sizes, the mapping to the input image, lens
// static information, camera role ids, scene, anchor-frame and bokeh
// metadata.
#include "MetaUtils.h"

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
    if (!metadata) {
        KV_LOG(4, "pArg is null");
        return -2;
    }
    if (tagName == nullptr && tagId == 0) {
        KV_LOG(4, "pArg is null");
        return -2;
    }
    // A name wins over an id when both are given.
    const camera_metadata_ro_entry_t entry =
        tagName != nullptr ? metadata->find(tagName) : metadata->find(tagId);
    if (entry.count != 0) {
        *data = const_cast<uint8_t*>(entry.data.u8);
        if (count != nullptr) *count = static_cast<uint32_t>(entry.count);
        if (*data != nullptr) return 0;
        KV_LOG(3, "GetMetadata err");
        return -2;
    }
    // Absent or empty: nothing is written. A caller whose pointer is still
    // set from an earlier lookup gets a silent -1.
    if (*data != nullptr) return -1;
    KV_LOG(3, "GetMetadata err");
    return -2;
}

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
void FocusDistanceToCm(const void* data, int* out) {
    const float diopters = detail::Load<float>(data);
    *out = diopters > 0.0f ? detail::SaturateCast<int>(100.0f / diopters) : 1000;
}

void TraceWhiteLevel(const log::LogSite& at, const int& value) {
    log::Write(at, 0, KV_LOG_PREFIX "ANDROID_SENSOR_DYNAMIC_WHITE_LEVEL: %d", value);
}

// The laser distance tag fills only the first word of the record.
void StoreLaserDistance(const void* data, LaserDistance* out) {
    out->distance = detail::Load<int32_t>(data);
}

constexpr bool kCheckMetadata = true;

}  // namespace

// AF state, AF mode and the Android flash mode are one-byte tags read as a
// whole 32-bit word: callers get the byte in the low 8 bits and whatever the
// container holds after it in the rest. This is the interface's behaviour.

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
              KV_FULL("GetMetadata AECWhiteBlackRatio err", "get metadata AECWhiteBlackRatio err"),
              Copy<float>)
KV_TAG_GETTER(GetSensorDynamicWhiteLevel, int, tag::ANDROID_SENSOR_DYNAMIC_WHITE_LEVEL,
              KV_SHORT("GetMetadata ANDROID_SENSOR_DYNAMIC_WHITE_LEVEL fail"), Copy<int>, false,
              TraceWhiteLevel)
KV_TAG_GETTER(GetAndroidTimeStamp, long, tag::ANDROID_SENSOR_TIMESTAMP,
              KV_SHORT("GetMetadata ANDROID_SENSOR_TIMESTAMP fail"), Copy<long>)
KV_TAG_GETTER(GetfocusDistCm, int, tag::ANDROID_LENS_FOCUS_DISTANCE, kDefaultMessages,
              FocusDistanceToCm)
KV_TAG_GETTER(GetSensitivity, int, tag::ANDROID_SENSOR_SENSITIVITY, kDefaultMessages, Copy<int>)
KV_TAG_GETTER(GetAFState, unsigned int, tag::ANDROID_CONTROL_AF_STATE,
              KV_FULL("GetMetadata ANDROID_CONTROL_AF_STATE err",
                      "get metadata ANDROID_CONTROL_AF_STATE err"),
              Copy<unsigned int>)
KV_TAG_GETTER(GetAFMode, unsigned int, tag::ANDROID_CONTROL_AF_MODE,
              KV_FULL("GetMetadata ANDROID_CONTROL_AF_MODE err",
                      "get metadata ANDROID_CONTROL_AF_MODE err"),
              Copy<unsigned int>)
KV_TAG_GETTER(GetIsZSLEnableReal, int, tag::ANDROID_CONTROL_ENABLE_ZSL,
              KV_SHORT("GetMetadata ANDROID_CONTROL_ENABLE_ZSL fail"), Convert<uint8_t, int>)
KV_TAG_GETTER(GetANDROIDFlashMode, int, tag::ANDROID_FLASH_MODE,
              KV_SHORT("GetMetadata ANDROID_FLASH_MODE fail"), Copy<int>)
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
              KV_FULL("GetMetadata ANDROID_LENS_APERTURE err",
                      "get metadata ANDROID_LENS_APERTURE err"),
              Copy<float>)
KV_TAG_GETTER(GetFwkCameraId, int, "kovani.snapshot.fwkCameraId", KV_SHORT("Get fwkCameraId err"),
              Copy<int>)
KV_TAG_GETTER(GetThermalLevel, int, "kovani.thermal.thermalLevel",
              KV_FULL("GetMetadata thermalLevel err", "get metadata thermalLevel err"), Copy<int>)
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
    if (map == nullptr) {
        KV_LOG(4, "arg err");
        return -2;
    }
    void* data = nullptr;
    const int ret = GetMetaData(std::move(metadata), nullptr,
                                tag::ANDROID_STATISTICS_LENS_SHADING_MAP, &data, nullptr);
    if (ret != 0) {
        KV_LOG(3, "GetMetadata ANDROID_STATISTICS_LENS_SHADING_MAP fail");
        return ret;
    }
    // Four float gains per grid point; the caller's grid size decides the
    // length, not the entry's count.
    const int64_t points = static_cast<int64_t>(size[0]) * static_cast<int64_t>(size[1]);
    std::memcpy(map, data, static_cast<size_t>(points * 16));
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
    return detail::ReadCameraStaticTag(*this, KV_HERE, cameraId, roleId, kCameraRoleId);
}

// clang-format off
KV_STATIC_TAG_GETTER(GetCameraRoleId, int, kCameraRoleId)
// Copies element 0 only, despite the plural name and the pointer: callers
// rely on exactly one int being written.
KV_TAG_GETTER(GetCameraRoleIds, int, "com.kovani.cameraid.role.cameraIds",
              KV_FULL("GetMetadata CameraRoleId err", "get metadata CameraRoleId err"), Copy<int>)
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

}  // namespace kvalgo2
