// MetaUtils: the object, tag access, the scalar and record getters and
// setters, rectangles and array sizes, the mapping to the input image, lens
// static information, camera role ids, scene, anchor-frame and bokeh
// metadata.
#include "MetaUtils.h"

#include <cstring>

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
// Scene, motion-capture and anchor-frame
// ===========================================================================

// clang-format off
KV_TAG_GETTER(GetHighlightAnchorOrder, int, "kovani.aihighlight.anchorOrder", kDefaultMessages,
              Copy<int>)
KV_TAG_GETTER(GetStreetAnchorOrder, int, "com.kovani.ext.control.streetmode.anchor.order",
              kDefaultMessages, Copy<int>)
KV_TAG_GETTER(GetSunsetScene, Sunset_Scene_t, "kovani.ai.asd.SunsetScene",
              KV_FULL("GetMetadata kovani.ai.asd.SunsetScene err",
                      "get metadata kovani.ai.asd.SunsetScene err"),
              Copy<Sunset_Scene_t>)
KV_TAG_GETTER(GetAISceneIndoor, int, "kovani.ai.asd.algoSceneDetectedIndoor",
              KV_FULL("GetMetadata kovani.ai.asd.algoSceneDetectedIndoor err",
                      "get metadata kovani.ai.asd.algoSceneDetectedIndoor err"),
              Copy<int>)
// The motion-capture type and frame type read the same tag.
KV_TAG_GETTER(GetMotionCaptureType, unsigned int, "kovani.ai.kvsd.motionCaptureType",
              KV_FULL("GetMetadata kovani.ai.kvsd.motionCaptureType err",
                      "get metadata kovani.ai.kvsd.motionCaptureType err"),
              Copy<unsigned int>)
KV_TAG_GETTER(GetMotionCaptureFrameType, int, "kovani.ai.kvsd.motionCaptureType",
              KV_FULL("GetMetadata kovani.ai.kvsd.motionCaptureType err",
                      "get metadata kovani.ai.kvsd.motionCaptureType err"),
              Copy<int>)
KV_TAG_GETTER(GetVXAihighlightIs, int, "com.kv.node.kvaihighlight.isHighLight",
              KV_FULL("GetMetadata com.kv.node.kvaihighlight.isHighLight err",
                      "get metadata com.kv.node.kvaihighlight.isHighLight err"),
              Copy<int>)
KV_TAG_GETTER(GetBandingSceneType, int, "kovani.ai.kvsd.bandingSceneType",
              KV_FULL("GetMetadata kovani.ai.kvsd.bandingSceneType err",
                      "get metadata kovani.ai.kvsd.bandingSceneType err"),
              Copy<int>)
KV_TAG_GETTER(GetPreAnchorProcStatus, int, "com.kovani.orlo2.preAnchorProc",
              KV_FULL("GetMetadata com.kovani.orlo2.preAnchorProc err",
                      "get metadata com.kovani.orlo2.preAnchorProc err"),
              Copy<int>)
KV_TAG_GETTER(GetPreAnchorProcFrameNum, int, "com.kovani.orlo2.anchorFrameNum",
              KV_FULL("GetMetadata com.kovani.orlo2.anchorFrameNum err",
                      "get metadata com.kovani.orlo2.anchorFrameNum err"),
              Copy<int>)
// clang-format on

int MetaUtils::GetAISceneResult(std::shared_ptr<KvMetadata> metadata, AIspSceneResult& result) {
    static constexpr detail::TagGetter<AIspSceneResult> kRow{
        "kovani.ai.asd.algoSceneDetectedAIResult", kDefaultMessages, Copy<AIspSceneResult>};
    return detail::ReadTag(*this, KV_HERE, std::move(metadata), &result, kRow);
}

// The anchor is taken only when the banding check flagged a flicker motion
// capture and the deflicker succeeded.
int MetaUtils::GetMotionCaptureAnchorOrder(std::shared_ptr<KvMetadata> metadata, int* order) {
    if (order == nullptr) return detail::ArgErr(KV_HERE);
    const void* data = nullptr;
    if (const int ret = detail::LookUp(*this, KV_HERE, metadata, "kovani.ai.kvsd.zslMcBandingType",
                                       KV_FULL("GetMetadata kovani.ai.kvsd.zslMcBandingType err",
                                               "get kovani.ai.kvsd.zslMcBandingType pData null"),
                                       &data)) {
        return ret;
    }
    const uint32_t banding = detail::Load<uint32_t>(data);
    const bool isZslFlkMotionCap = (banding & 0xFF) != 0;
    KV_LOG(2, "zslMcBandingType: 0x%x, isZslFlkMotionCap: %d", banding, isZslFlkMotionCap);
    if (!isZslFlkMotionCap) return -1;

    if (const int ret =
            detail::LookUp(*this, KV_HERE, std::move(metadata), "kovani.motion.capture.anchorInfo",
                           KV_FULL("GetMetadata kovani.motion.capture.anchorInfo err",
                                   "get kovani.motion.capture.anchorInfo pData null"),
                           &data)) {
        return ret;
    }
    const uint32_t anchorInfo = detail::Load<uint32_t>(data);
    const int isDeflickerSuccess = static_cast<int>((anchorInfo >> 8) & 1);
    KV_LOG(2, "anchorInfo: 0x%x, isDeflickerSuccess: %d", anchorInfo, isDeflickerSuccess);
    if (isDeflickerSuccess == 0) return -1;
    *order = static_cast<int>(anchorInfo & 0xFF);
    return 0;
}

namespace {

// Eye-closure status byte: bit 2 set means no eye was detected, bit 0 set
// means the detected eyes are open.
int ReadEyeClosure(MetaUtils& self, const log::LogSite& at, std::shared_ptr<KvMetadata> metadata,
                   AIspAnchorMeta& meta) {
    const void* data = nullptr;
    if (const int ret = detail::LookUp(
            self, at, std::move(metadata), "com.kovani.orlo2.eyeclosure.status",
            KV_SHORT("GetMetadata com.kovani.orlo2.eyeclosure.status fail"), &data)) {
        return ret;
    }
    const uint8_t status = detail::Load<uint8_t>(data);
    meta.eyeDet = (status & 0x04) == 0;
    meta.eyeOpen = meta.eyeDet && (status & 0x01) != 0;
    log::Write(at, 0, KV_LOG_PREFIX "ecdRet:0x%x, eyeDet:%d, eyeOpen:%d", status, meta.eyeDet,
               meta.eyeOpen);
    return 0;
}

}  // namespace

// Two names for one operation; only the function name in their lines differs.
int MetaUtils::GetEcdStatus(std::shared_ptr<KvMetadata> metadata, AIspAnchorMeta& meta) {
    return ReadEyeClosure(*this, KV_HERE, std::move(metadata), meta);
}

int MetaUtils::getEcdStatus(std::shared_ptr<KvMetadata> metadata, AIspAnchorMeta& meta) {
    return ReadEyeClosure(*this, KV_HERE, std::move(metadata), meta);
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
              KV_FULL("GetMetadata bokehRequestConfig err", "get metadata bokehRequestConfig err"),
              Copy<__bokehRequestInfoList>)
KV_TAG_GETTER(GetBokehCapsInfo, __bokehCapabilityInfoList, "com.kovani.camera.bokehCaps.info",
              KV_FULL("GetMetadata BokehCapsInfo err", "get metadata BokehCapsInfo err"),
              Copy<__bokehCapabilityInfoList>)
KV_TAG_GETTER(GetBokehConfigStream, __bokehConfigStreamInfoList,
              "com.kovani.camera.bokehConfig.stream",
              KV_FULL("GetMetadata BokehConfigStream err", "get metadata BokehConfigStream err"),
              Copy<__bokehConfigStreamInfoList>)
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
// names shorter than the caller's 128 bytes.
int MetaUtils::GetImageName(std::shared_ptr<KvMetadata> metadata, char (*name)[128]) {
    if (name == nullptr) return detail::ArgErr(KV_HERE);
    const void* data = nullptr;
    if (const int ret = detail::LookUp(
            *this, KV_HERE, std::move(metadata), "kovani.snapshot.imageName",
            KV_FULL("GetMetadata imageName err", "get metadata imageName err"), &data)) {
        return ret;
    }
    std::strcpy(*name, static_cast<const char*>(data));
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
