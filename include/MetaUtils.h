// kvalgo2::MetaUtils: typed access to the camera metadata of a capture for the
// image-processing plug-ins of the camera pipeline.
//
// Every method takes the caller's metadata container by shared pointer, looks
// up one or a few tags, checks and converts what it finds and hands it back
// through an output argument. The value of a method is a result code:
//    0  success, the output was written
//   -1  tag found without data (setters: tag name unknown to the metadata library)
//   -2  bad argument or failed lookup
// A few methods deviate on purpose; their comments say so.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

class KvMetadata;

// The library exports this class and hides everything else.
#if defined(__GNUC__)
#define METAUTILS_EXPORT __attribute__((visibility("default")))
#else
#define METAUTILS_EXPORT
#endif

// ---------------------------------------------------------------------------
// Records shared with the algorithm layer and the image-utility layer. Their
// layouts are a binary interface: every size and offset below is fixed.
// ---------------------------------------------------------------------------

struct AIspGyroData {
    struct GyroElement {
        float x;
        float y;
        float z;
        uint64_t timestamp;  // microseconds
    };
    int32_t count;
    GyroElement elements[200];
    uint64_t startTimestamp;  // microseconds
    uint64_t endTimestamp;    // microseconds
};
static_assert(sizeof(AIspGyroData::GyroElement) == 24, "gyro element is 24 bytes");
static_assert(offsetof(AIspGyroData::GyroElement, z) == 8, "gyro element z");
static_assert(offsetof(AIspGyroData::GyroElement, timestamp) == 16, "gyro element timestamp");
static_assert(offsetof(AIspGyroData, elements) == 8, "gyro elements at byte 8");
static_assert(offsetof(AIspGyroData, startTimestamp) == 4808, "gyro start timestamp");
static_assert(offsetof(AIspGyroData, endTimestamp) == 4816, "gyro end timestamp");
static_assert(sizeof(AIspGyroData) == 4824, "gyro record size");

struct AIspGammaTbl {
    int32_t count;
    float x[512];
    float y[512];
};
static_assert(offsetof(AIspGammaTbl, x) == 4, "gamma x at byte 4");
static_assert(offsetof(AIspGammaTbl, y) == 2052, "gamma y at byte 2052");

struct AIspSceneResult {
    unsigned char bytes[16];
};
static_assert(sizeof(AIspSceneResult) == 16, "scene result is 16 bytes");

struct AIspAnchorMeta {
    bool eyeDet;
    bool eyeOpen;
};
static_assert(offsetof(AIspAnchorMeta, eyeOpen) == offsetof(AIspAnchorMeta, eyeDet) + 1,
              "eye flags stand next to each other");

struct AIspFaceInfo {
    int32_t count;
    int32_t rect[50][4];  // left, top, right, bottom
    float luma[50];
    int32_t faceExtra[50][3];
};
static_assert(offsetof(AIspFaceInfo, rect) == 4, "face rectangles at byte 4");
static_assert(offsetof(AIspFaceInfo, luma) == 804, "face luma at byte 804");
static_assert(offsetof(AIspFaceInfo, faceExtra) == 1004, "face extras at byte 1004");
static_assert(sizeof(AIspFaceInfo) == 1604, "face info size");

enum AIspSensorType : int32_t {
    AISP_SENSOR_TYPE_UNKNOWN = 0,
};
static_assert(sizeof(AIspSensorType) == 4, "sensor type is 32-bit");

enum AIspSensorMode : int32_t {
    AISP_SENSOR_MODE_UNKNOWN = 0,
};
static_assert(sizeof(AIspSensorMode) == 4, "sensor mode is 32-bit");

struct UtilsImageBuf {
    int32_t width;
    int32_t height;
};

struct __UtilsImage_point {
    int32_t x;
    int32_t y;
};
static_assert(sizeof(__UtilsImage_point) == 8, "image point size");

struct __UtilsImage_Rect {
    uint32_t left;
    uint32_t top;
    uint32_t width;
    uint32_t height;
};
static_assert(sizeof(__UtilsImage_Rect) == 16, "image rectangle size");

struct __bokehRequestInfoList {
    unsigned char bytes[124];
};
static_assert(sizeof(__bokehRequestInfoList) == 124, "bokeh request record size");

struct __bokehCapabilityInfoList {
    unsigned char bytes[21588];
};
static_assert(sizeof(__bokehCapabilityInfoList) == 21588, "bokeh capability record size");

struct __bokehConfigStreamInfoList {
    unsigned char bytes[128];
};
static_assert(sizeof(__bokehConfigStreamInfoList) == 128, "bokeh stream record size");

namespace KV_SMARTAE {
struct SmartAEProcOutput {
    unsigned char bytes[448];
};
static_assert(sizeof(SmartAEProcOutput) == 448, "smart AE record size");
}  // namespace KV_SMARTAE

namespace kvalgo2 {

struct ChiRect {
    uint32_t left;
    uint32_t top;
    uint32_t width;
    uint32_t height;
};
static_assert(sizeof(ChiRect) == 16, "ChiRect size");
static_assert(offsetof(ChiRect, height) == 12, "ChiRect height");

struct KvDimension {
    uint32_t width;
    uint32_t height;
};
static_assert(sizeof(KvDimension) == 8, "KvDimension size");

struct KVFaceEntry {
    __UtilsImage_Rect rect;
    int32_t centerX;
    int32_t centerY;
    int32_t rotation;  // 0, 90, 180 or 270
};
static_assert(sizeof(KVFaceEntry) == 28, "face entry size");

struct KVFaceInfo {
    int32_t faceCount;
    int32_t largestFaceIndex;
    KVFaceEntry faces[10];
    int32_t faceExtra[10][3];
};
static_assert(offsetof(KVFaceInfo, largestFaceIndex) == 4, "largest face index at byte 4");
static_assert(offsetof(KVFaceInfo, faces) == 8, "face entries at byte 8");
static_assert(offsetof(KVFaceInfo, faceExtra) == 288, "face extras at byte 288");
static_assert(sizeof(KVFaceInfo) == 408, "face info size");

struct AWBGain {
    float rGain;
    float gGain;
    float bGain;
};
static_assert(sizeof(AWBGain) == 12, "AWB gain size");

// Not written by this library.
struct AWBGainAdj {
    float rGain;
    float gGain;
    float bGain;
};

struct PreviewBrightnessInfo {
    uint32_t binCount;
    uint32_t bins[256];
};
static_assert(offsetof(PreviewBrightnessInfo, bins) == 4, "histogram bins at byte 4");
static_assert(sizeof(PreviewBrightnessInfo) == 1028, "preview brightness size");

struct ChiRational {
    int32_t numerator;
    int32_t denominator;
};
static_assert(sizeof(ChiRational) == 8, "ChiRational size");

// Only the first 32-bit word is written by this library.
struct LaserDistance {
    int32_t distance;
    int32_t reserved[3];
};
static_assert(offsetof(LaserDistance, distance) == 0, "laser distance first word");

struct Sunset_Scene_t {
    int32_t isSunset;
    int32_t confidence;
};
static_assert(sizeof(Sunset_Scene_t) == 8, "sunset scene size");

struct KvAiSceneClsResult {
    int32_t class0;
    float confidence0;
    int32_t class1;
    float confidence1;
};
static_assert(sizeof(KvAiSceneClsResult) == 16, "AI scene result size");

struct KVSensorModeInfo {};
struct KVSensorCaps {};

class METAUTILS_EXPORT MetaUtils {
public:
    MetaUtils();
    virtual ~MetaUtils();

    // ---- Object and tag access ------------------------------------------
    int SetCameraId(int cameraId, int satCameraId);
    int GetMetaData(std::shared_ptr<KvMetadata> metadata, const char* tagName, uint32_t tagId,
                    void** data, uint32_t* count);
    // Instantiated for float, int and unsigned char.
    template <typename T>
    int SetMetaData(std::shared_ptr<KvMetadata> metadata, const char* tagName, uint32_t tagId,
                    T* data, uint32_t count);

    // ---- Scalar getters ---------------------------------------------------
    int GetPhyCameraId(std::shared_ptr<KvMetadata> metadata, int* out);
    int GetSensorExposureTime(std::shared_ptr<KvMetadata> metadata, long* out);
    int GetAndroidJpegOrientation(std::shared_ptr<KvMetadata> metadata, int* out);
    int GetStylizationType(std::shared_ptr<KvMetadata> metadata, unsigned char* out);
    int GetSensorTimestamp(std::shared_ptr<KvMetadata> metadata, long* out);
    int GetWhiteBlackRatio(std::shared_ptr<KvMetadata> metadata, float* out);
    int GetSensorDynamicWhiteLevel(std::shared_ptr<KvMetadata> metadata, int* out);
    int GetAndroidTimeStamp(std::shared_ptr<KvMetadata> metadata, long* out);
    int GetfocusDistCm(std::shared_ptr<KvMetadata> metadata, int* out);
    int GetSensitivity(std::shared_ptr<KvMetadata> metadata, int* out);
    int GetAFState(std::shared_ptr<KvMetadata> metadata, unsigned int* out);
    int GetAFMode(std::shared_ptr<KvMetadata> metadata, unsigned int* out);
    int GetIsZSLEnableReal(std::shared_ptr<KvMetadata> metadata, int* out);
    int GetANDROIDFlashMode(std::shared_ptr<KvMetadata> metadata, int* out);
    int GetVXFlashMode(std::shared_ptr<KvMetadata> metadata, int* out);
    int GetAndroidSensorFrameDuration(std::shared_ptr<KvMetadata> metadata, long* out);
    int GetVXPanshotFeatureEnable(std::shared_ptr<KvMetadata> metadata, int* out);
    int GetAndroidZoomRatio(std::shared_ptr<KvMetadata> metadata, float* out);
    int GetZoomEisEffective(std::shared_ptr<KvMetadata> metadata, float* out);
    int GetApertureValue(std::shared_ptr<KvMetadata> metadata, float* out);
    int GetFwkCameraId(std::shared_ptr<KvMetadata> metadata, int* out);
    int GetThermalLevel(std::shared_ptr<KvMetadata> metadata, int* out);
    int GetLaserDist(std::shared_ptr<KvMetadata> metadata, LaserDistance* out);

    // ---- Record getters and setters -------------------------------------
    int GetSmartAeInfo(std::shared_ptr<KvMetadata> metadata, KV_SMARTAE::SmartAEProcOutput* out);
    int GetLSC(std::shared_ptr<KvMetadata> metadata, int* size, float* map);
    int SetIspGain(std::shared_ptr<KvMetadata> metadata, float* gain);
    int SetHazeratio(std::shared_ptr<KvMetadata> metadata, float* ratio);
    int SetAIToneFlag(std::shared_ptr<KvMetadata> metadata, int* flag);

    // ---- Burst and preview exposure -------------------------------------
    int GetTimestamp(std::shared_ptr<KvMetadata> metadata, long* out);
    int GetCCT(std::shared_ptr<KvMetadata> metadata, float* out);
    int GetBurstInfoFaceLuma(std::shared_ptr<KvMetadata> metadata, float* out);
    int GetBurstInfoFrameLuma(std::shared_ptr<KvMetadata> metadata, float* out);
    int GetBurstInfoShutter(std::shared_ptr<KvMetadata> metadata, float* out, int unused);
    int GetBurstInfoLuxIndex(std::shared_ptr<KvMetadata> metadata, int* out);
    int GetBurstInfoExpIndex(std::shared_ptr<KvMetadata> metadata, int* out, int unused);
    int GetBurstInfoDarkBoostGain(std::shared_ptr<KvMetadata> metadata, float* out);
    int GetPreviewAdrcGain(std::shared_ptr<KvMetadata> metadata, float* out);
    int GetPreviewFrameLuma(std::shared_ptr<KvMetadata> metadata, float* out);
    int GetPreviewTargetLuma(std::shared_ptr<KvMetadata> metadata, float* out);
    int GetBurstInfoBpsIspGain(std::shared_ptr<KvMetadata> metadata, float* out);
    int GetQTimeStamp(std::shared_ptr<KvMetadata> metadata, unsigned long* out);
    int GetFrameSyncTimestamp(std::shared_ptr<KvMetadata> metadata, long* out);
    int GetSnapshotReqInfoUIEV(std::shared_ptr<KvMetadata> metadata, int* out);
    int GetPreviewISPGain(std::shared_ptr<KvMetadata> metadata, float* out);
    int GetPreviewExposure(std::shared_ptr<KvMetadata> metadata, float* out);
    int GetFaceAverageBrightness(std::shared_ptr<KvMetadata> metadata, float* out);
    int GetMotionVelocity(std::shared_ptr<KvMetadata> metadata, float* out);
    int GetTFNRExpRatio(std::shared_ptr<KvMetadata> metadata, float* ratio);
    int GetBurstInfoAdrcGain(std::shared_ptr<KvMetadata> metadata, float* gain);
    int GetBurstInfoBpsIspGainShort(std::shared_ptr<KvMetadata> metadata, float* gain);
    int GetIsZSLEnable(std::shared_ptr<KvMetadata> metadata, int* enable);

    // ---- Colour, tone and gain ------------------------------------------
    int GetGTMTable(std::shared_ptr<KvMetadata> metadata, int* table);
    int GetBurstInfoLinearGain(std::shared_ptr<KvMetadata> metadata, float* gain, int unused);
    int GetAWBGain(std::shared_ptr<KvMetadata> metadata, AWBGain& gain, bool& valid);
    int GetAWBGainAdj(std::shared_ptr<KvMetadata> metadata, AWBGainAdj& adj);
    int GetBPSGammaOutput(std::shared_ptr<KvMetadata> metadata, bool* valid, float* gamma);
    int GetPlatFormGamma(std::shared_ptr<KvMetadata> metadata, AIspGammaTbl& tbl);
    int GetDynamicGamma(std::shared_ptr<KvMetadata> metadata, AIspGammaTbl& tbl);
    int GetPreviewBrightnessInfo(std::shared_ptr<KvMetadata> metadata, PreviewBrightnessInfo* info);
    int GetSensorDynamicBlackLevel(std::shared_ptr<KvMetadata> metadata, float* level);
    int GetColorCorrectionTransform(std::shared_ptr<KvMetadata> metadata, ChiRational* transform);

    // ---- Gyroscope samples ----------------------------------------------
    int GetGyroData(std::shared_ptr<KvMetadata> metadata, AIspGyroData& gyroData,
                    AIspGyroData::GyroElement* elements, int query, const char* key);

    // ---- HDR, tele-fusion and slave-anchor flags ------------------------
    int GetHdrEnabled(std::shared_ptr<KvMetadata> metadata, int* hdrEnabled);
    // Returns the flag itself (1 or 0), not a result code.
    int GetTeleFusionEnable(std::shared_ptr<KvMetadata> metadata);
    int GetSlaveAnchorFrame(std::shared_ptr<KvMetadata> metadata, int* frame);
    int SetSlaveAnchorFrame(std::shared_ptr<KvMetadata> metadata, int* frame);
    int SetSlaveAnchorFrame(std::shared_ptr<KvMetadata> metadata, int frame);

    // ---- Rectangles, crop regions and active-array sizes ----------------
    int GetCropRegion(std::shared_ptr<KvMetadata> metadata, ChiRect* out);
    int GetAndroidCropRegion(std::shared_ptr<KvMetadata> metadata, ChiRect* out);
    int GetActiveArraySize(std::shared_ptr<KvMetadata> metadata, ChiRect* out);
    int GetMaxActiveArraySize(std::shared_ptr<KvMetadata> metadata, ChiRect* out);
    int GetStaticActiveArraySize(std::shared_ptr<KvMetadata> metadata, ChiRect* out);
    int GetActiveArraySizeMain(std::shared_ptr<KvMetadata> metadata, ChiRect* out);

    // ---- Mapping to the input image -------------------------------------
    int MapRectToInput(ChiRect srcRect, ChiRect srcRefer, int inputWidth, int inputHeight,
                       ChiRect sensorSize, __UtilsImage_Rect* dstRect);

    // ---- Final crop region ------------------------------------------------
    int GetFinalCropRegion(std::shared_ptr<KvMetadata> metadata, ChiRect& cropRegion,
                           KvDimension sensorSize, bool isInSensorZoom);

    // ---- Minimum digital zoom and lens static information ---------------
    int GetRealAvailableMinDigitalZoom(std::shared_ptr<KvMetadata> metadata, float* out);
    int GetLensInfoShadingMapSize(std::shared_ptr<KvMetadata> metadata, int* out);
    int GetSensorBayerPatten(std::shared_ptr<KvMetadata> metadata, unsigned char* out);

    // ---- Faces -------------------------------------------------------------
    int GetFacesInfoHolder(std::shared_ptr<KvMetadata> metadata, int** faces, uint32_t* count);
    int GetFaceRect(std::shared_ptr<KvMetadata> metadata, int width, int height, KVFaceInfo& info,
                    int useInSensorZoom);
    int GetFacesNoMap(std::shared_ptr<KvMetadata> metadata, int width, int height,
                      KVFaceInfo& info);
    int GetFaceInfo(std::shared_ptr<KvMetadata> metadata, AIspFaceInfo& info, int width,
                    int height);

    // ---- Focus regions -----------------------------------------------------
    int GetfocusROI(std::shared_ptr<KvMetadata> metadata, UtilsImageBuf* image,
                    __UtilsImage_Rect* roi);
    int GetfocusTP(std::shared_ptr<KvMetadata> metadata, UtilsImageBuf* image,
                   __UtilsImage_point* point);

    // ---- Camera role ids ---------------------------------------------------
    int GetCameraRoleId(int cameraId, int* roleId);
    int GetCameraRoleId(std::shared_ptr<KvMetadata> metadata, int* roleId);
    int GetCameraRoleId(std::shared_ptr<KvMetadata> metadata, unsigned int* roleId);
    int GetCameraRoleIds(std::shared_ptr<KvMetadata> metadata, int* roleIds);
    int GetMultiCameraPhyCameraRoleIds(int cameraId, std::vector<int>& roleIds);
    int GetMultiCameraPhyCameraRoleIds(std::shared_ptr<KvMetadata> metadata,
                                       std::vector<int>& roleIds);

    // ---- Sensor type and sensor mode mapping ---------------------------
    int GetAISPSensorType(int cameraId, AIspSensorType& type);
    // Returns the AIspSensorMode value, not a result code.
    int getAIspSensorMode(int sensorModeType, bool& flagA, bool& flagB);
    int GetKovaniSensorModeType(std::shared_ptr<KvMetadata> metadata, int* sensorModeType);
    int GetSensorMode(std::shared_ptr<KvMetadata> metadata, int* sensorMode);
    int GetKVSensorModeInfo(std::shared_ptr<KvMetadata> metadata, KVSensorModeInfo& info);
    int GetStaticMetaKVSensorCaps(std::shared_ptr<KvMetadata> metadata, KVSensorCaps& caps);

    // ---- Scene, motion-capture and anchor-frame --------------------------
    int GetHighlightAnchorOrder(std::shared_ptr<KvMetadata> metadata, int* out);
    int GetStreetAnchorOrder(std::shared_ptr<KvMetadata> metadata, int* out);
    int GetSunsetScene(std::shared_ptr<KvMetadata> metadata, Sunset_Scene_t* out);
    int GetAISceneIndoor(std::shared_ptr<KvMetadata> metadata, int* out);
    int GetMotionCaptureType(std::shared_ptr<KvMetadata> metadata, unsigned int* out);
    int GetMotionCaptureFrameType(std::shared_ptr<KvMetadata> metadata, int* out);
    int GetVXAihighlightIs(std::shared_ptr<KvMetadata> metadata, int* out);
    int GetBandingSceneType(std::shared_ptr<KvMetadata> metadata, int* out);
    int GetPreAnchorProcStatus(std::shared_ptr<KvMetadata> metadata, int* out);
    int GetPreAnchorProcFrameNum(std::shared_ptr<KvMetadata> metadata, int* out);
    int GetAISceneResult(std::shared_ptr<KvMetadata> metadata, AIspSceneResult& result);
    int GetMotionCaptureAnchorOrder(std::shared_ptr<KvMetadata> metadata, int* order);
    int GetEcdStatus(std::shared_ptr<KvMetadata> metadata, AIspAnchorMeta& meta);
    int getEcdStatus(std::shared_ptr<KvMetadata> metadata, AIspAnchorMeta& meta);

    // ---- Bokeh request, capability and stream information ---------------
    int GetBokehRequestInfoList(std::shared_ptr<KvMetadata> metadata, __bokehRequestInfoList* out);
    int GetBokehCapsInfo(std::shared_ptr<KvMetadata> metadata, __bokehCapabilityInfoList* out);
    int GetBokehConfigStream(std::shared_ptr<KvMetadata> metadata,
                             __bokehConfigStreamInfoList* out);
    int GetInputNum(std::shared_ptr<KvMetadata> metadata, int* out);
    int GetImageName(std::shared_ptr<KvMetadata> metadata, char (*name)[128]);
    int GetSceneDetectedAIResult(std::shared_ptr<KvMetadata> metadata, KvAiSceneClsResult* out);
    int GetSceneDetectedIndoor(std::shared_ptr<KvMetadata> metadata, int* out);
    int SetBokehRequestInfoList(std::shared_ptr<KvMetadata> metadata, __bokehRequestInfoList* info);

private:
    int mCameraId;     // stored by SetCameraId, read by nothing
    int mSatCameraId;  // selects this camera's entry of the per-camera crop table
};
static_assert(sizeof(void*) != 8 || sizeof(MetaUtils) == 16,
              "MetaUtils is a vtable pointer and two ints");

}  // namespace kvalgo2
