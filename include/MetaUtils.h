/**
 * @file
 * kvalgo2::MetaUtils: typed access to the camera metadata of a capture for the
 * image-processing plug-ins of the camera pipeline.
 *
 * Every method takes the caller's metadata container by shared pointer, looks
 * up one or a few tags, checks and converts what it finds and hands it back
 * through an output argument. The value of a method is a result code:
 *  -  0  success, the output was written
 *  - -1  tag found without data (setters: tag name unknown to the metadata library)
 *  - -2  bad argument or failed lookup
 *
 * A few methods deviate on purpose; their comments say so. A failing method
 * writes nothing unless its comment says otherwise.
 *
 * Android tags are looked up by numeric id, vendor tags by name. Most getters
 * share one shape, the tag getter:
 *  - a null output is "arg err" at log level 4 and -2;
 *  - a failed lookup (no container, tag absent, entry without data) is -2 after
 *    the lookup's own "GetMetadata err" line (level 3) and the getter's
 *    lookup-failure line (level 3);
 *  - full shape only: a lookup that hands back no data is the getter's
 *    empty-data line (level 3) and -1; short-shape getters have no such line;
 *  - otherwise the value is read at the start of the payload, converted and
 *    written once, and 0 is returned.
 *
 * The "default messages" are "GetMetadata err" (lookup failure) and
 * "get metadata err" (empty data); a getter whose messages name a word `W`
 * logs "GetMetadata W err" and "get metadata W err". Every line starts with
 * "[file][function()]:[line] ".
 *
 * The default build never compares a tag's element count with the read it
 * makes: each getter trusts its tag to be long enough. A build with
 * METAUTILS_HARDENED checks every read first: a payload too short for it is one
 * level-3 line naming the tag and -1, the output as it was.
 *
 * Static metadata: "the framework camera's static metadata" is the static
 * metadata of the camera named by the frame's `kovani.snapshot.fwkCameraId`
 * (read as GetFwkCameraId does; its failure is logged "GetMetadata FwkCameraId
 * fail" at level 3 and its code returned).
 */
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

class KvMetadata;

/// Marks the one exported class: the library exports it and hides everything else.
#if defined(__GNUC__)
#define METAUTILS_EXPORT __attribute__((visibility("default")))
#else
#define METAUTILS_EXPORT
#endif

// ---------------------------------------------------------------------------
// Records shared with the algorithm layer and the image-utility layer. Their
// layouts are a binary interface: every size and offset below is fixed.
// ---------------------------------------------------------------------------

/// Gyroscope samples of a frame, filled by MetaUtils::GetGyroData.
struct AIspGyroData {
    /// One gyroscope sample (24 bytes; bytes 12 to 15 are padding, never written).
    struct GyroElement {
        float x;             ///< Rate about the x axis, bit for bit as the platform gives it.
        float y;             ///< Rate about the y axis, bit for bit as the platform gives it.
        float z;             ///< Rate about the z axis, bit for bit as the platform gives it.
        uint64_t timestamp;  ///< Sample time in microseconds.
    };
    int32_t count;  ///< Number of samples written, 1 to 200.
    /// Room for 200 samples; GetGyroData writes its samples to a separate
    /// array and leaves this one alone.
    GyroElement elements[200];
    uint64_t startTimestamp;  ///< Time of the first sample as the platform ordered them, in
                              ///< microseconds.
    uint64_t endTimestamp;    ///< Time of the last sample kept, in microseconds.
};
static_assert(sizeof(AIspGyroData::GyroElement) == 24, "gyro element is 24 bytes");
static_assert(offsetof(AIspGyroData::GyroElement, z) == 8, "gyro element z");
static_assert(offsetof(AIspGyroData::GyroElement, timestamp) == 16, "gyro element timestamp");
static_assert(offsetof(AIspGyroData, elements) == 8, "gyro elements at byte 8");
static_assert(offsetof(AIspGyroData, startTimestamp) == 4808, "gyro start timestamp");
static_assert(offsetof(AIspGyroData, endTimestamp) == 4816, "gyro end timestamp");
static_assert(sizeof(AIspGyroData) == 4824, "gyro record size");

/// A gamma curve as knots (x) and values (y), both on the 10-bit scale 0 to 1023.
struct AIspGammaTbl {
    int32_t count;  ///< Number of points used: 257.
    float x[512];   ///< Input levels of the knots: every 2 up to 256, every 4 up to 512, every 8 up
                    ///< to 1016, then 1023.
    float y[512];   ///< Output level at each knot.
};
static_assert(offsetof(AIspGammaTbl, x) == 4, "gamma x at byte 4");
static_assert(offsetof(AIspGammaTbl, y) == 2052, "gamma y at byte 2052");

/// The scene detector's result as 16 opaque bytes.
struct AIspSceneResult {
    unsigned char bytes[16];  ///< First 16 bytes of `kovani.ai.asd.algoSceneDetectedAIResult`.
};
static_assert(sizeof(AIspSceneResult) == 16, "scene result is 16 bytes");

/// Eye-closure state of the anchor frame.
struct AIspAnchorMeta {
    bool eyeDet;   ///< True when eyes were detected (bit 2 of the status byte clear).
    bool eyeOpen;  ///< True when eyes were detected and are open (bit 0 set).
};
static_assert(offsetof(AIspAnchorMeta, eyeOpen) == offsetof(AIspAnchorMeta, eyeDet) + 1,
              "eye flags stand next to each other");

/// Faces in the algorithm layer's form, filled by MetaUtils::GetFaceInfo.
struct AIspFaceInfo {
    int32_t count;        ///< Number of faces.
    int32_t rect[50][4];  ///< Inclusive corners left, top, right, bottom, in input-image pixels.
    float luma[50];       ///< The frame's face luma, the same value for every face.
    int32_t faceExtra[50][3];  ///< Words 5, 6 and 7 of the face's source record (word 6: rotation
                               ///< in degrees).
};
static_assert(offsetof(AIspFaceInfo, rect) == 4, "face rectangles at byte 4");
static_assert(offsetof(AIspFaceInfo, luma) == 804, "face luma at byte 804");
static_assert(offsetof(AIspFaceInfo, faceExtra) == 1004, "face extras at byte 1004");
static_assert(sizeof(AIspFaceInfo) == 1604, "face info size");

/// The algorithm layer's sensor type of a camera; MetaUtils::GetAISPSensorType
/// also hands out the values 1, 2, 3, 5 and 6 of that layer.
enum AIspSensorType : int32_t {
    AISP_SENSOR_TYPE_UNKNOWN = 0,  ///< A camera that plays none of the known roles.
};
static_assert(sizeof(AIspSensorType) == 4, "sensor type is 32-bit");

/// The algorithm layer's sensor readout mode; MetaUtils::getAIspSensorMode
/// hands out its values as int.
enum AIspSensorMode : int32_t {
    AISP_SENSOR_MODE_UNKNOWN = 0,  ///< A sensor mode type without a mode.
};
static_assert(sizeof(AIspSensorMode) == 4, "sensor mode is 32-bit");

/// The image-utility layer's image buffer; only its size is read.
struct UtilsImageBuf {
    int32_t width;   ///< Width in pixels.
    int32_t height;  ///< Height in pixels.
};

/// A point of the image-utility layer, in image pixels.
struct __UtilsImage_point {
    int32_t x;  ///< Column.
    int32_t y;  ///< Row.
};
static_assert(sizeof(__UtilsImage_point) == 8, "image point size");

/// A rectangle of the image-utility layer, in pixels of an input image.
struct __UtilsImage_Rect {
    uint32_t left;    ///< Column of the top-left corner.
    uint32_t top;     ///< Row of the top-left corner.
    uint32_t width;   ///< Horizontal extent.
    uint32_t height;  ///< Vertical extent.
};
static_assert(sizeof(__UtilsImage_Rect) == 16, "image rectangle size");

/// Per-request bokeh settings, moved as 124 opaque bytes.
struct __bokehRequestInfoList {
    unsigned char
        bytes[124];  ///< The record as `com.kovani.camera.bokehConfig.request` carries it.
};
static_assert(sizeof(__bokehRequestInfoList) == 124, "bokeh request record size");

/// Bokeh capability list, moved as 21588 opaque bytes.
struct __bokehCapabilityInfoList {
    unsigned char bytes[21588];  ///< The record as `com.kovani.camera.bokehCaps.info` carries it.
};
static_assert(sizeof(__bokehCapabilityInfoList) == 21588, "bokeh capability record size");

/// Configured bokeh streams, moved as 128 opaque bytes.
struct __bokehConfigStreamInfoList {
    unsigned char bytes[128];  ///< The record as `com.kovani.camera.bokehConfig.stream` carries it.
};
static_assert(sizeof(__bokehConfigStreamInfoList) == 128, "bokeh stream record size");

/// The smart auto-exposure layer's records.
namespace KV_SMARTAE {
/// Smart auto-exposure result, moved as 448 opaque bytes.
struct SmartAEProcOutput {
    unsigned char bytes[448];  ///< The record as `kovani.ai.asd.SmartAE` carries it.
};
static_assert(sizeof(SmartAEProcOutput) == 448, "smart AE record size");
}  // namespace KV_SMARTAE

/// The metadata utility interface and the records it shares with the algorithm layer.
namespace kvalgo2 {

/// A rectangle in sensor (active-array) pixels; the layout of Android's
/// four-int32 rectangle tags, copied without conversion.
struct ChiRect {
    uint32_t left;    ///< Column of the top-left corner.
    uint32_t top;     ///< Row of the top-left corner.
    uint32_t width;   ///< Horizontal extent.
    uint32_t height;  ///< Vertical extent.
};
static_assert(sizeof(ChiRect) == 16, "ChiRect size");
static_assert(offsetof(ChiRect, height) == 12, "ChiRect height");

/// A size in pixels.
struct KvDimension {
    uint32_t width;   ///< Horizontal extent.
    uint32_t height;  ///< Vertical extent.
};
static_assert(sizeof(KvDimension) == 8, "KvDimension size");

/// One face mapped into the input image.
struct KVFaceEntry {
    __UtilsImage_Rect
        rect;         ///< The face in input-image pixels (all zero when the mapping refused it).
    int32_t centerX;  ///< Column of the face's centre; the image centre when it falls outside the
                      ///< image.
    int32_t
        centerY;  ///< Row of the face's centre; the image centre when it falls outside the image.
    int32_t rotation;  ///< Face rotation in a quarter turn: 0, 90, 180 or 270 degrees.
};
static_assert(sizeof(KVFaceEntry) == 28, "face entry size");

/// Faces of a frame, filled by MetaUtils::GetFaceRect and MetaUtils::GetFacesNoMap.
struct KVFaceInfo {
    int32_t faceCount;  ///< Number of faces written, at most 10.
    int32_t
        largestFaceIndex;   ///< Index of the face with the largest mapped area (GetFaceRect only).
    KVFaceEntry faces[10];  ///< The faces, in the order of the source records.
    int32_t faceExtra[10][3];  ///< Words 5, 6 and 7 of each face's source record (word 6: rotation
                               ///< in degrees).
};
static_assert(offsetof(KVFaceInfo, largestFaceIndex) == 4, "largest face index at byte 4");
static_assert(offsetof(KVFaceInfo, faces) == 8, "face entries at byte 8");
static_assert(offsetof(KVFaceInfo, faceExtra) == 288, "face extras at byte 288");
static_assert(sizeof(KVFaceInfo) == 408, "face info size");

/// White-balance gains, plain multipliers.
struct AWBGain {
    float rGain;  ///< Red gain.
    float gGain;  ///< Green gain (the even green channel).
    float bGain;  ///< Blue gain.
};
static_assert(sizeof(AWBGain) == 12, "AWB gain size");

/// White-balance gain adjustment of the algorithm layer. Not written by this library.
struct AWBGainAdj {
    float rGain;  ///< Red gain adjustment.
    float gGain;  ///< Green gain adjustment.
    float bGain;  ///< Blue gain adjustment.
};

/// Luma histogram of the last preview frame.
struct PreviewBrightnessInfo {
    uint32_t binCount;   ///< Number of bins: 256.
    uint32_t bins[256];  ///< Pixel count of each bin, the four channels' counts summed (wrapping).
};
static_assert(offsetof(PreviewBrightnessInfo, bins) == 4, "histogram bins at byte 4");
static_assert(sizeof(PreviewBrightnessInfo) == 1028, "preview brightness size");

/// A rational number of two int32.
struct ChiRational {
    int32_t numerator;    ///< Numerator.
    int32_t denominator;  ///< Denominator.
};
static_assert(sizeof(ChiRational) == 8, "ChiRational size");

/// Laser distance record. Only the first 32-bit word is written by this library.
struct LaserDistance {
    int32_t distance;     ///< First word of `kovani.ai.kvsd.laserDist`, unconverted.
    int32_t reserved[3];  ///< Not written.
};
static_assert(offsetof(LaserDistance, distance) == 0, "laser distance first word");

/// Sunset scene detection, copied whole from `kovani.ai.asd.SunsetScene`.
struct Sunset_Scene_t {
    int32_t isSunset;    ///< Non-zero when the scene detector saw a sunset.
    int32_t confidence;  ///< The detector's confidence, as it wrote it.
};
static_assert(sizeof(Sunset_Scene_t) == 8, "sunset scene size");

/// The scene classifier's two best classes, copied whole from
/// `kovani.ai.asd.algoSceneDetectedAIResult`.
struct KvAiSceneClsResult {
    int32_t class0;     ///< First scene class.
    float confidence0;  ///< Confidence of the first class.
    int32_t class1;     ///< Second scene class.
    float confidence1;  ///< Confidence of the second class.
};
static_assert(sizeof(KvAiSceneClsResult) == 16, "AI scene result size");

/// Sensor mode information; a placeholder the library never fills.
struct KVSensorModeInfo {};
/// Sensor capabilities; a placeholder the library never fills.
struct KVSensorCaps {};

/**
 * Typed getters and setters of the camera metadata of a capture. Create one,
 * call SetCameraId, then call the getters with each frame's metadata. The
 * object keeps no metadata between calls; the only process-wide state is the
 * platform adapter client and the role statics of GetAISPSensorType.
 */
class METAUTILS_EXPORT MetaUtils {
public:
    /// Leaves both camera ids uninitialised: call SetCameraId before GetFinalCropRegion.
    MetaUtils();
    /// Does nothing; virtual so that the class can be derived from.
    virtual ~MetaUtils();

    // ---- Object and tag access ------------------------------------------

    /// Stores the plug-in's camera id (read by nothing) and the SAT camera id,
    /// which GetFinalCropRegion uses to pick its crop-table entry and the
    /// static metadata of `com.kovani.camera.zoomeis.effectiverate`.
    /// @return 0, always.
    int SetCameraId(int cameraId, int satCameraId);

    /**
     * The read primitive: finds the tag `tagName` (a vendor tag, when not null;
     * the name wins over the id) or `tagId` in `metadata` and sets `*data` to
     * its payload and `*count` (when not null) to its element count. Lines of
     * this primitive name GetMetaData, whichever getter reached it.
     * @return 0 with both written; -2 after "pArg is null" (level 4) for a
     * null container or neither name nor id; -2 after "GetMetadata err"
     * (level 3) for an entry with elements but no data (then `*data` is set to
     * null and `*count` written); for an absent or empty tag nothing is
     * written and the result is -2 after "GetMetadata err" (level 3), or a
     * silent -1 when `*data` is still set from an earlier lookup.
     */
    int GetMetaData(std::shared_ptr<KvMetadata> metadata, const char* tagName, uint32_t tagId,
                    void** data, uint32_t* count);

    /**
     * The write primitive: writes `count` elements of `data` into the tag
     * `tagName` (translated to its id by the metadata library) or, when the
     * name is null, `tagId`. Instantiated for float, int and unsigned char.
     * @return the container's update status (0 on success); -2 after "pArg is
     * null" (level 4) for a null container or neither name nor id; -1, with no
     * line, for a name the metadata library does not know.
     */
    template <typename T>
    int SetMetaData(std::shared_ptr<KvMetadata> metadata, const char* tagName, uint32_t tagId,
                    T* data, uint32_t count);

    // ---- Scalar getters ---------------------------------------------------

    /// Physical camera id of the frame, int32 from `kovani.snapshot.physCameraId`.
    /// Full shape, default messages.
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetPhyCameraId(std::shared_ptr<KvMetadata> metadata, int* out);
    /// Exposure time in nanoseconds, int64 from `android.sensor.exposureTime`
    /// (`ANDROID_SENSOR_EXPOSURE_TIME`) of the frame. Full shape, default messages.
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetSensorExposureTime(std::shared_ptr<KvMetadata> metadata, long* out);
    /// JPEG orientation in degrees, int32 from `android.jpeg.orientation`
    /// (`ANDROID_JPEG_ORIENTATION`) of the frame. Full shape, default messages.
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetAndroidJpegOrientation(std::shared_ptr<KvMetadata> metadata, int* out);
    /// Stylization type, one byte from `com.kovani.sessionparams.stylizationType`
    /// of the frame. Full shape, default messages.
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetStylizationType(std::shared_ptr<KvMetadata> metadata, unsigned char* out);
    /// Anchor frame timestamp, int64 copied from `kovani.mfnr.anchorTimeStamp`
    /// of the frame. Full shape, default messages.
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetSensorTimestamp(std::shared_ptr<KvMetadata> metadata, long* out);
    /// AEC white/black frame adjustment ratio, float from
    /// `com.kovani.statsaec.AECWhiteBlackFrameAdj` of the frame. Full shape;
    /// the messages name "AECWhiteBlackRatio".
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetWhiteBlackRatio(std::shared_ptr<KvMetadata> metadata, float* out);
    /// Dynamic white level in raw sensor units, int32 from
    /// `android.sensor.dynamicWhiteLevel` (`ANDROID_SENSOR_DYNAMIC_WHITE_LEVEL`)
    /// of the frame; logged at level 0 on success. Short shape, message
    /// "GetMetadata ANDROID_SENSOR_DYNAMIC_WHITE_LEVEL fail".
    /// @return 0; -2 null output or failed lookup.
    int GetSensorDynamicWhiteLevel(std::shared_ptr<KvMetadata> metadata, int* out);
    /// Sensor timestamp in nanoseconds, int64 from `android.sensor.timestamp`
    /// (`ANDROID_SENSOR_TIMESTAMP`) of the frame. Short shape, message
    /// "GetMetadata ANDROID_SENSOR_TIMESTAMP fail".
    /// @return 0; -2 null output or failed lookup.
    int GetAndroidTimeStamp(std::shared_ptr<KvMetadata> metadata, long* out);
    /// Focus distance in centimetres from `android.lens.focusDistance`
    /// (`ANDROID_LENS_FOCUS_DISTANCE`, diopters) of the frame: 100 / d
    /// truncated toward zero (saturating), or 1000 when d is 0, negative or
    /// not a number. Full shape, default messages.
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetfocusDistCm(std::shared_ptr<KvMetadata> metadata, int* out);
    /// ISO sensitivity, int32 from `android.sensor.sensitivity`
    /// (`ANDROID_SENSOR_SENSITIVITY`) of the frame. Full shape, default messages.
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetSensitivity(std::shared_ptr<KvMetadata> metadata, int* out);
    /// AF state from `android.control.afState` (`ANDROID_CONTROL_AF_STATE`) of
    /// the frame. Deliberate: the one-byte tag is read as a whole 32-bit word,
    /// so the state is in the low 8 bits and the rest is whatever the container
    /// holds after it (zeros in a hardened build). Full shape, messages naming
    /// ANDROID_CONTROL_AF_STATE.
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetAFState(std::shared_ptr<KvMetadata> metadata, unsigned int* out);
    /// AF mode from `android.control.afMode` (`ANDROID_CONTROL_AF_MODE`) of the
    /// frame. Deliberate: the one-byte tag is read as a whole 32-bit word (mode
    /// in the low 8 bits). Full shape, messages naming ANDROID_CONTROL_AF_MODE.
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetAFMode(std::shared_ptr<KvMetadata> metadata, unsigned int* out);
    /// ZSL flag, the byte of `android.control.enableZsl`
    /// (`ANDROID_CONTROL_ENABLE_ZSL`) of the frame zero-extended. Short shape,
    /// message "GetMetadata ANDROID_CONTROL_ENABLE_ZSL fail".
    /// @return 0; -2 null output or failed lookup.
    int GetIsZSLEnableReal(std::shared_ptr<KvMetadata> metadata, int* out);
    /// Flash mode from `android.flash.mode` (`ANDROID_FLASH_MODE`) of the frame.
    /// Deliberate: the one-byte tag is read as a whole 32-bit word (mode in the
    /// low 8 bits). Short shape, message "GetMetadata ANDROID_FLASH_MODE fail".
    /// @return 0; -2 null output or failed lookup.
    int GetANDROIDFlashMode(std::shared_ptr<KvMetadata> metadata, int* out);
    /// Vendor flash mode, int32 from `kovani.flash.mode` of the frame. Short
    /// shape, message "GetMetadata kovani.flash.mode fail".
    /// @return 0; -2 null output or failed lookup.
    int GetVXFlashMode(std::shared_ptr<KvMetadata> metadata, int* out);
    /// Frame duration in nanoseconds, int64 from `android.sensor.frameDuration`
    /// (`ANDROID_SENSOR_FRAME_DURATION`) of the frame. Short shape, message
    /// "GetMetadata ANDROID_SENSOR_FRAME_DURATION fail".
    /// @return 0; -2 null output or failed lookup.
    int GetAndroidSensorFrameDuration(std::shared_ptr<KvMetadata> metadata, long* out);
    /// Panshot feature flag, int32 from `com.kovani.panshotTruck.FeatureEnable`
    /// of the frame. Short shape, message naming the tag.
    /// @return 0; -2 null output or failed lookup.
    int GetVXPanshotFeatureEnable(std::shared_ptr<KvMetadata> metadata, int* out);
    /// Zoom ratio, float from `android.control.zoomRatio`
    /// (`ANDROID_CONTROL_ZOOM_RATIO`) of the frame. Full shape, messages
    /// "GetMetaData ANDROID_CONTROL_ZOOM_RATIO fail" / "get
    /// ANDROID_CONTROL_ZOOM_RATIO err"; a null container is refused with
    /// "arg err" like a null output.
    /// @return 0; -2 null output, null container or failed lookup; -1 without data.
    int GetAndroidZoomRatio(std::shared_ptr<KvMetadata> metadata, float* out);
    /// Zoom ratio from which zoom stabilisation takes effect, float from
    /// `com.kovani.camera.zoomeis.effectiverate` of the container given (a
    /// camera's static metadata). Full shape, messages naming the tag; a null
    /// container is refused with "arg err".
    /// @return 0; -2 null output, null container or failed lookup; -1 without data.
    int GetZoomEisEffective(std::shared_ptr<KvMetadata> metadata, float* out);
    /// Aperture as an f-number, float from `android.lens.aperture`
    /// (`ANDROID_LENS_APERTURE`) of the frame. Full shape, messages naming
    /// ANDROID_LENS_APERTURE.
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetApertureValue(std::shared_ptr<KvMetadata> metadata, float* out);
    /// Framework camera id, int32 from `kovani.snapshot.fwkCameraId` of the
    /// frame: the camera whose static metadata the static getters read. Short
    /// shape, message "Get fwkCameraId err".
    /// @return 0; -2 null output or failed lookup.
    int GetFwkCameraId(std::shared_ptr<KvMetadata> metadata, int* out);
    /// Thermal level, int32 from `kovani.thermal.thermalLevel` of the frame.
    /// Full shape, messages naming "thermalLevel".
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetThermalLevel(std::shared_ptr<KvMetadata> metadata, int* out);
    /// Laser distance: the first 32-bit word of `kovani.ai.kvsd.laserDist` of
    /// the frame into LaserDistance::distance; the rest of the record is not
    /// touched. Full shape, default messages.
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetLaserDist(std::shared_ptr<KvMetadata> metadata, LaserDistance* out);

    // ---- Record getters and setters -------------------------------------

    /// Smart AE result: 448 bytes copied from `kovani.ai.asd.SmartAE` of the
    /// frame, whatever the entry's count. Full shape, default messages.
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetSmartAeInfo(std::shared_ptr<KvMetadata> metadata, KV_SMARTAE::SmartAEProcOutput* out);
    /**
     * Lens shading map: size[0] x size[1] grid points of four float gains
     * (16 bytes each) copied from `android.statistics.lensShadingMap`
     * (`ANDROID_STATISTICS_LENS_SHADING_MAP`) of the frame into `map`. The
     * caller's grid size (columns, rows; read, never written) decides the
     * length, not the entry's count; `size` is not checked for null. Short
     * shape, message "GetMetadata ANDROID_STATISTICS_LENS_SHADING_MAP fail".
     * @return 0; -2 null `map` or failed lookup.
     */
    int GetLSC(std::shared_ptr<KvMetadata> metadata, int* size, float* map);
    /// Writes one float, the BPS ISP gain, into `com.qti.sensorbps.gain`.
    /// Failures are logged "SetMetadata com.qti.sensorbps.gain err" (level 3).
    /// @return 0; -2 null `gain` ("arg err") or null container; -1 tag name
    /// unknown; otherwise the container's update status.
    int SetIspGain(std::shared_ptr<KvMetadata> metadata, float* gain);
    /// Writes one float, the AWB haze ratio, into `com.kovani.3AAlgo.awbHazeRatio`.
    /// Failures are logged "SetMetadata com.kovani.3AAlgo.awbHazeRatio err" (level 3).
    /// @return 0; -2 null `ratio` ("arg err") or null container; -1 tag name
    /// unknown; otherwise the container's update status.
    int SetHazeratio(std::shared_ptr<KvMetadata> metadata, float* ratio);
    /// Writes one int32, the AI tone flag, into `com.kovani.3AAlgo.aecAItoneFlag`.
    /// Failures are logged "SetMetadata com.kovani.3AAlgo.aecAItoneFlag err" (level 3).
    /// @return 0; -2 null `flag` ("arg err") or null container; -1 tag name
    /// unknown; otherwise the container's update status.
    int SetAIToneFlag(std::shared_ptr<KvMetadata> metadata, int* flag);

    // ---- Burst and preview exposure -------------------------------------

    /// Start-of-exposure time, int64 copied from
    /// `org.quic.camera.qtimer.startOfExposure` of the frame. Full shape,
    /// default messages.
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetTimestamp(std::shared_ptr<KvMetadata> metadata, long* out);
    /// Colour temperature in kelvin: the int32 of
    /// `com.mediatek.3afeature.awbColorTemperature` of the frame as a float.
    /// Full shape, default messages.
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetCCT(std::shared_ptr<KvMetadata> metadata, float* out);
    /// Average face luma: the int32 of `kovani.ae.average.face.luma` of the
    /// frame as a float. Full shape, messages naming the tag.
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetBurstInfoFaceLuma(std::shared_ptr<KvMetadata> metadata, float* out);
    /// Average frame luma: the int32 of `kovani.ae.average.frame.luma` of the
    /// frame as a float. Full shape, messages naming the tag.
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetBurstInfoFrameLuma(std::shared_ptr<KvMetadata> metadata, float* out);
    /// Exposure time in nanoseconds as a float, from the int64 of
    /// `android.sensor.exposureTime` (`ANDROID_SENSOR_EXPOSURE_TIME`) of the
    /// frame; the int argument is ignored. Full shape, messages naming
    /// ANDROID_SENSOR_EXPOSURE_TIME.
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetBurstInfoShutter(std::shared_ptr<KvMetadata> metadata, float* out, int unused);
    /// Lux index: the float at byte 0 of the AEC info record
    /// `com.kovani.statsconfigs.AecInfo` of the frame, truncated toward zero
    /// (saturating). Full shape, default messages.
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetBurstInfoLuxIndex(std::shared_ptr<KvMetadata> metadata, int* out);
    /// Exposure index: the int32 at byte 8 of `com.kovani.statsconfigs.AecInfo`
    /// of the frame; the int argument is ignored. Full shape, messages naming the tag.
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetBurstInfoExpIndex(std::shared_ptr<KvMetadata> metadata, int* out, int unused);
    /// Dark-boost tone gain: the Q10 int32 of `kovani.ae.dark.tonegain` of the
    /// frame times 1/1024 in single precision. Full shape, default messages.
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetBurstInfoDarkBoostGain(std::shared_ptr<KvMetadata> metadata, float* out);
    /// Preview ADRC gain: the Q10 int32 of `kovani.ae.mid.tonegain` of the frame
    /// times 1/1024 in single precision. Full shape, messages naming "PreviewAdrcGain".
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetPreviewAdrcGain(std::shared_ptr<KvMetadata> metadata, float* out);
    /// Preview frame luma: the int32 of `kovani.longexposure.cwv` of the frame
    /// as a float. Full shape, messages naming "PreviewFrameLuma".
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetPreviewFrameLuma(std::shared_ptr<KvMetadata> metadata, float* out);
    /// Preview target luma: the int32 of `kovani.longexposure.cwr` of the frame
    /// as a float. Full shape, messages naming "PreviewTargetLuma".
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetPreviewTargetLuma(std::shared_ptr<KvMetadata> metadata, float* out);
    /// ISP gain: the Q12 int32 of the platform tag
    /// `MTK_3A_FEATURE_AE_ISP_GAIN_VALUE` (id 0x80060011) of the frame times
    /// 1/4096 in single precision. Full shape, messages naming the constant.
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetBurstInfoBpsIspGain(std::shared_ptr<KvMetadata> metadata, float* out);
    /// Frame timestamp, the first 64-bit word of the frame-info record
    /// `com.kovani.mtk.p1node.frameinfo` of the frame, unsigned. Full shape,
    /// messages naming the tag.
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetQTimeStamp(std::shared_ptr<KvMetadata> metadata, unsigned long* out);
    /// Frame timestamp, the first 64-bit word of `com.kovani.mtk.p1node.frameinfo`
    /// of the frame, signed. Full shape, messages naming the tag.
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetFrameSyncTimestamp(std::shared_ptr<KvMetadata> metadata, long* out);
    /// User exposure compensation, int32 from `kovani.ae.exposureCompensation`
    /// of the frame. Full shape. Deliberate: the messages name another tag,
    /// "kovani.supernight.real.manualev", as log readers expect.
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetSnapshotReqInfoUIEV(std::shared_ptr<KvMetadata> metadata, int* out);
    /// Last preview ISP gain: the Q12 int32 of `kovani.burst.last.preview.ispGain`
    /// of the frame divided by 4096 in double precision, then narrowed. Full
    /// shape, messages naming the tag.
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetPreviewISPGain(std::shared_ptr<KvMetadata> metadata, float* out);
    /// Last preview exposure time in nanoseconds: the int64 of
    /// `kovani.burst.last.preview.exposure.time` of the frame as a float. Full
    /// shape, messages naming "PreviewExposure".
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetPreviewExposure(std::shared_ptr<KvMetadata> metadata, float* out);
    /// Average face brightness, float from `kovani.ai.asd.FaceAverageBrightness`
    /// of the frame. Full shape, messages naming "FaceAverageBrightness".
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetFaceAverageBrightness(std::shared_ptr<KvMetadata> metadata, float* out);
    /// Motion velocity: the int32 of `kovani.ai.kvsd.motionVelocity` of the
    /// frame as a float. Full shape, messages "GetMetadata motionVelocity err"
    /// / "get metadata motionVelocity Fail".
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetMotionVelocity(std::shared_ptr<KvMetadata> metadata, float* out);
    /**
     * Exposure ratio 2^(v / 1000) for the value v of
     * `kovani.hdr.custom.adjustratio` of the frame (thousandths of an EV step;
     * the division in single precision, the power in double). v = 0 writes
     * 1.0 and logs "GetMetadata kovani.hdr.custom.adjustratio = 0" at level 3.
     * Short shape, message "GetMetadata kovani.hdr.custom.adjustratio fail".
     * @return 0 (also for v = 0); -2 null `ratio` or failed lookup.
     */
    int GetTFNRExpRatio(std::shared_ptr<KvMetadata> metadata, float* ratio);
    /**
     * Burst ADRC gain: the Q10 int32 of `kovani.ae.mid.tonegain` of the frame
     * divided by 1024 in double precision; 1.0 instead when the byte of
     * `kovani.safe.exposure.enabled` is non-zero. The tone gain's lookup is
     * full shape with default messages. Deliberate: the safe-exposure flag is
     * looked up, without a line, into the pointer that still addresses the
     * tone gain, so without that tag the tone gain's low byte is tested.
     * @return the safe-exposure lookup's result: 0 when the tag is there, a
     * silent -1 when it is absent although `gain` was written; -2 null `gain`
     * or failed tone-gain lookup; -1 tone gain without data.
     */
    int GetBurstInfoAdrcGain(std::shared_ptr<KvMetadata> metadata, float* gain);
    /// Reports only whether `org.quic.camera2.statsconfigs.AECFrameControl` of
    /// the frame has data; `gain` is never written. Full shape, default messages.
    /// @return 0 when the tag has data; -2 null `gain` or failed lookup; -1 without data.
    int GetBurstInfoBpsIspGainShort(std::shared_ptr<KvMetadata> metadata, float* gain);
    /// ZSL flag, the byte of `kovani.control.zsl.enable` of the frame
    /// zero-extended. Short shape, message "GetMetadata kovani.control.zsl.enable fail".
    /// @return 0; -2 null `enable` or failed lookup.
    int GetIsZSLEnable(std::shared_ptr<KvMetadata> metadata, int* enable);

    // ---- Colour, tone and gain ------------------------------------------

    /// Diagnostics only: logs the bin count and the int32 words at bytes 128
    /// and 1152 of `kovani.hdr.gtm.curve` of the frame at level 1; `table` is
    /// never written. Full shape, default messages.
    /// @return 0 when the tag has data; -2 null `table` or failed lookup; -1 without data.
    int GetGTMTable(std::shared_ptr<KvMetadata> metadata, int* table);
    /**
     * Linear gain: the Q10 sensor gain of the platform tag
     * `MTK_3A_FEATURE_AE_SENSOR_GAIN_VALUE` (id 0x80060010) of the frame, / 1024,
     * times the ISP gain that GetBurstInfoBpsIspGain reads from
     * `MTK_3A_FEATURE_AE_ISP_GAIN_VALUE` (id 0x80060011), in single precision.
     * The int argument is ignored. Full shape for the sensor gain, messages
     * naming its constant.
     * @return 0; -2 null `gain` or failed lookup; -1 without data; the ISP
     * gain getter's code after "GetMetadata IspGain err" (level 3).
     */
    int GetBurstInfoLinearGain(std::shared_ptr<KvMetadata> metadata, float* gain, int unused);
    /**
     * White-balance gains from the four floats (red, green-even, green-odd,
     * blue) of `android.colorCorrection.gains` (id 2, addressed as
     * `MTK_COLOR_CORRECTION_GAINS` and named so in the messages) of the frame;
     * the odd green is skipped. `valid` is set false first and true on success.
     * @return 0; -2 failed lookup; -1 without data.
     */
    int GetAWBGain(std::shared_ptr<KvMetadata> metadata, AWBGain& gain, bool& valid);
    /// Reports only whether `org.quic.camera2.statsconfigs.AECFrameControl` of
    /// the frame has data; `adj` is never written. Full shape, default messages.
    /// @return 0 when the tag has data; -2 failed lookup; -1 without data.
    int GetAWBGainAdj(std::shared_ptr<KvMetadata> metadata, AWBGainAdj& adj);
    /**
     * Supernight gamma curve: the 256 int32 of `kovani.supernight.gammainfo`
     * of the frame as floats into `gamma[0..255]`, `gamma[256]` zero. Written
     * in every case: 257 zeros when the tag is missing. `*valid` says whether
     * the curve was read (it must not be null). Logs the first four values at
     * level 2 when valid; no line of its own on failure.
     * @return the lookup's result (0 or -2); -2 null `gamma` ("arg err").
     */
    int GetBPSGammaOutput(std::shared_ptr<KvMetadata> metadata, bool* valid, float* gamma);
    /// The platform's fixed gamma curve: 257 points at the fixed knots. No tag is read.
    /// @return 0, always.
    int GetPlatFormGamma(std::shared_ptr<KvMetadata> metadata, AIspGammaTbl& tbl);
    /**
     * Supernight gamma curve at the fixed knots: `y` filled by
     * GetBPSGammaOutput from `kovani.supernight.gammainfo` of the frame (zeros
     * when missing), the last point forced to 1023, `count` 257 and the knots
     * in `x`. The table is written also when the tag is missing.
     * @return GetBPSGammaOutput's result (0 or -2).
     */
    int GetDynamicGamma(std::shared_ptr<KvMetadata> metadata, AIspGammaTbl& tbl);
    /// Preview luma histogram: each of the 256 bins of `kovani.histogram.stats`
    /// of the frame (four uint32 channel counts) summed, wrapping; `binCount`
    /// 256. Full shape, messages naming the tag.
    /// @return 0; -2 null `info` or failed lookup; -1 without data.
    int GetPreviewBrightnessInfo(std::shared_ptr<KvMetadata> metadata, PreviewBrightnessInfo* info);
    /**
     * Dynamic black level of the four channels in 10-bit units: the four
     * floats of `android.sensor.dynamicBlackLevel`
     * (`ANDROID_SENSOR_DYNAMIC_BLACK_LEVEL`) of the frame, times 4 when
     * `kovani.algoengine.input.raw.bpp` is 12, times 16 when it is 10, then
     * times 1/16. Without the bpp tag (looked up without a line) only 1/16
     * applies. Writes `level[0..3]`. Short shape, message "GetMetadata
     * ANDROID_SENSOR_DYNAMIC_BLACK_LEVEL fail".
     * @return 0; -2 null `level` or failed lookup.
     */
    int GetSensorDynamicBlackLevel(std::shared_ptr<KvMetadata> metadata, float* level);
    /// Colour-correction matrix: nine rationals copied from
    /// `kovani.supernight.color.correction.transform` of the frame into
    /// `transform[0..8]`, each logged at level 0.
    /// @return 0; -2 null `transform`; -1 for any failed lookup (whatever its
    /// code), after "get kovani.supernight.color.correction.transform fail" (level 3).
    int GetColorCorrectionTransform(std::shared_ptr<KvMetadata> metadata, ChiRational* transform);

    // ---- Gyroscope samples ----------------------------------------------

    /**
     * Gyroscope samples of the platform, not of the metadata (which is not
     * read and may be empty). Enables the gyro `key` on the platform info
     * holder, takes its samples for `query`, keeps the first 200, writes them
     * to `elements` (room for 200; rates bit for bit, timestamps from ticks of
     * the 19.2 MHz timer to microseconds) sorted by time, sets `gyroData`'s
     * count, start (first sample as given) and end (last kept) and disables the
     * gyro again. The platform adapter must be present.
     * @return 0; -1 when the gyro cannot be enabled or gives no sample.
     */
    int GetGyroData(std::shared_ptr<KvMetadata> metadata, AIspGyroData& gyroData,
                    AIspGyroData::GyroElement* elements, int query, const char* key);

    // ---- HDR, tele-fusion and slave-anchor flags ------------------------

    /**
     * HDR flag, the signed byte of `kovani.hdr.raw.enabled` of the frame, or of
     * `kovani.hdr.enabled` when the former is absent ("cannot find
     * kovani.hdr.raw.enabled" at level 1). The raw flag wins whenever present,
     * even as 0. Logs `hdrEnabled = %d` at level 2.
     * @return 0; -2 null `hdrEnabled`; the lookup's code of `kovani.hdr.enabled`
     * after "GetMetadata kovani.hdr.enabled err" (level 3); -1 without data
     * ("get kovani.hdr.enabled err").
     */
    int GetHdrEnabled(std::shared_ptr<KvMetadata> metadata, int* hdrEnabled);
    /// Tele-fusion flag from the byte of `kovani.telefusion.enabled` of the
    /// frame, logged at level 2. The container must not be null.
    /// @return the flag itself, 1 or 0 (0 without the tag), not a result code;
    /// a hardened build answers -1 for a tag without a whole byte.
    int GetTeleFusionEnable(std::shared_ptr<KvMetadata> metadata);
    /// Slave anchor frame, int32 from `kovani.bokeh.AuxAnchorFrame` (platform
    /// id 0x80040006, `KOVANI_BOKEH_AUX_ANCHOR_FRAME`) of the frame; logs the
    /// count and value at level 0.
    /// @return 0; -2 null `frame` ("arg err") or null container ("mdata is
    /// null", level 4); -1 for an absent tag ("find kovani.bokeh.AuxAnchorFrame fail").
    int GetSlaveAnchorFrame(std::shared_ptr<KvMetadata> metadata, int* frame);
    /// Writes `*frame` as one int32 into `kovani.bokeh.AuxAnchorFrame` (id
    /// 0x80040006). A null container is skipped and the container's status
    /// ignored, on purpose.
    /// @return 0; -2 null `frame` ("arg err").
    int SetSlaveAnchorFrame(std::shared_ptr<KvMetadata> metadata, int* frame);
    /// Writes `frame` as one int32 into `kovani.bokeh.AuxAnchorFrame` (id
    /// 0x80040006). A null container is skipped and the container's status
    /// ignored, on purpose.
    /// @return 0, always.
    int SetSlaveAnchorFrame(std::shared_ptr<KvMetadata> metadata, int frame);

    // ---- Rectangles, crop regions and active-array sizes ----------------

    /// Snapshot crop region in sensor pixels, 16 bytes of
    /// `kovani.snapshot.cropRegion` of the frame; logged at level 2. Full
    /// shape, default messages; a null container is refused with "arg err".
    /// @return 0; -2 null output, null container or failed lookup; -1 without data.
    int GetCropRegion(std::shared_ptr<KvMetadata> metadata, ChiRect* out);
    /// Android crop region in sensor pixels, 16 bytes of
    /// `android.scaler.cropRegion` (`ANDROID_SCALER_CROP_REGION`) of the frame;
    /// logged at level 2. Full shape, default messages.
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetAndroidCropRegion(std::shared_ptr<KvMetadata> metadata, ChiRect* out);
    /// Active array in sensor pixels, 16 bytes of
    /// `android.sensor.info.activeArraySize` (`ANDROID_SENSOR_INFO_ACTIVE_ARRAY_SIZE`)
    /// of the framework camera's static metadata (found through
    /// `kovani.snapshot.fwkCameraId`). Short shape, message "Get ACTIVE_ARRAY_SIZE err".
    /// @return 0; -2 null output or failed lookup (also no static metadata);
    /// GetFwkCameraId's code.
    int GetActiveArraySize(std::shared_ptr<KvMetadata> metadata, ChiRect* out);
    /// Maximum-resolution active array, 16 bytes of
    /// `android.sensor.info.activeArraySizeMaximumResolution`
    /// (`ANDROID_SENSOR_INFO_ACTIVE_ARRAY_SIZE_MAXIMUM_RESOLUTION`) of the
    /// framework camera's static metadata (found through
    /// `kovani.snapshot.fwkCameraId`). Short shape; deliberately its lookup
    /// failure is logged at level 2, one lower than its twin GetActiveArraySize.
    /// @return 0; -2 null output or failed lookup; GetFwkCameraId's code.
    int GetMaxActiveArraySize(std::shared_ptr<KvMetadata> metadata, ChiRect* out);
    /// Active array, 16 bytes of `android.sensor.info.activeArraySize`
    /// (`ANDROID_SENSOR_INFO_ACTIVE_ARRAY_SIZE`) of the container given (the
    /// caller passes static metadata); logged at level 2. Full shape, messages
    /// "Get ANDROID_SENSOR_INFO_ACTIVE_ARRAY_SIZE err" / "get NULL
    /// ANDROID_SENSOR_INFO_ACTIVE_ARRAY_SIZE err".
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetStaticActiveArraySize(std::shared_ptr<KvMetadata> metadata, ChiRect* out);
    /// Main camera's full array around a centred crop: from
    /// `android.scaler.cropRegion` (`ANDROID_SCALER_CROP_REGION`) of the
    /// container given, (0, 0, width + 2 left, height + 2 top) in wrapping
    /// unsigned arithmetic; logged at level 2. Full shape, default messages.
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetActiveArraySizeMain(std::shared_ptr<KvMetadata> metadata, ChiRect* out);

    // ---- Mapping to the input image -------------------------------------

    /**
     * Maps `srcRect` (sensor pixels) into the pixels of an input image of
     * `inputWidth` x `inputHeight` that shows `srcRefer` scaled uniformly: the
     * axis chosen by the sensor's width-to-height ratio (`sensorSize`) fills the image,
     * the other is centre-cropped. Positions are rounded half away from zero,
     * sizes floored, clamped into the image and made even. Reads no tag. Logs
     * the rectangles at level 1 ("SrcRect" shows the offsets inside the
     * reference region).
     * @return 0 with `*dstRect` written; -1 after "arg err" at level 3 (not the
     * getters' -2 and level 4, on purpose) for an image size below 1, a zero
     * width or height of `srcRect` or `srcRefer`, or a null `dstRect`.
     */
    int MapRectToInput(ChiRect srcRect, ChiRect srcRefer, int inputWidth, int inputHeight,
                       ChiRect sensorSize, __UtilsImage_Rect* dstRect);

    // ---- Final crop region ------------------------------------------------

    /**
     * Final crop region of a capture, in sensor pixels. Steps:
     *  1. the active array, `android.sensor.info.activeArraySize` of the
     *     framework camera's static metadata (through
     *     `kovani.snapshot.fwkCameraId`);
     *  2. the entry of the SAT camera id (SetCameraId) among the first four
     *     36-byte entries of `com.kovani.camera.sensorpolicy.cropregions` of
     *     the frame (camera id, four unused words, the crop); a zero crop
     *     without the tag or the entry;
     *  3. when the table was read and `isInSensorZoom`: moved to the centre
     *     half of `sensorSize` at twice the scale, if it still fits;
     *  4. widened or heightened about its centre to the active array's width-to-height
     *     ratio (tolerance 0.01), the sensor's whole extent when it would start
     *     before the edge;
     *  5. a zero width or height gives the zero crop; otherwise
     *     `android.sensor.timestamp`, `com.kovani.camera.zoomeis.effectiverate`
     *     of the SAT camera's static metadata and `android.control.zoomRatio`
     *     of the frame are read and the zoom-stabilisation shift is asked of
     *     the platform info holder or, failing that, read from the four floats
     *     of `kovani.sat.output.shift` of the frame (x, y, in-sensor-zoom flag,
     *     pre-anchor flag); the shift is doubled or halved to the frame's scale
     *     and applied when the crop stays on the sensor.
     *
     * Every stage is logged at level 2. Deliberate: the shift lines name
     * "kovani.sr.shift.value", not the tag read, and print the pre-anchor flag
     * as a double under `%d`, as log readers expect. A zero rectangle means no
     * crop.
     * @return 0 with `cropRegion` written; GetActiveArraySize's code (logged
     * at level 3, `cropRegion` untouched); GetAndroidTimeStamp's -2 when the
     * frame has no timestamp, `cropRegion` written without a shift.
     */
    int GetFinalCropRegion(std::shared_ptr<KvMetadata> metadata, ChiRect& cropRegion,
                           KvDimension sensorSize, bool isInSensorZoom);

    // ---- Minimum digital zoom and lens static information ---------------

    /// Real minimum digital zoom ratio, float from
    /// `com.kovani.scaler.availableMinDigitalZoom` of the framework camera's
    /// static metadata (found through `kovani.snapshot.fwkCameraId`). Short
    /// shape, message naming the tag.
    /// @return 0; -2 null output or failed lookup; GetFwkCameraId's code.
    int GetRealAvailableMinDigitalZoom(std::shared_ptr<KvMetadata> metadata, float* out);
    /// Lens shading map size: columns and rows, the two int32 of
    /// `android.lens.info.shadingMapSize` (`ANDROID_LENS_INFO_SHADING_MAP_SIZE`)
    /// of the framework camera's static metadata (found through
    /// `kovani.snapshot.fwkCameraId`), into out[0] and out[1]. Short shape,
    /// message naming ANDROID_LENS_INFO_SHADING_MAP_SIZE.
    /// @return 0; -2 null output or failed lookup; GetFwkCameraId's code.
    int GetLensInfoShadingMapSize(std::shared_ptr<KvMetadata> metadata, int* out);
    /// Bayer pattern: the byte of `android.sensor.info.colorFilterArrangement`
    /// (`ANDROID_SENSOR_INFO_COLOR_FILTER_ARRANGEMENT`) of the framework
    /// camera's static metadata (found through `kovani.snapshot.fwkCameraId`),
    /// Android's value unchanged; logged at level 0. The name's spelling is the
    /// interface's own. Short shape, message naming the constant.
    /// @return 0; -2 null output or failed lookup; GetFwkCameraId's code.
    int GetSensorBayerPatten(std::shared_ptr<KvMetadata> metadata, unsigned char* out);

    // ---- Faces -------------------------------------------------------------

    /**
     * Points `*faces` at the face records of `kovani.bokeh.faceInfo` of the
     * frame (nine int32 per face, active-array coordinates: left, top, right,
     * bottom, unused, three words handed on, unused; not a copy, valid while
     * the container is) and sets `*count` to the element count / 9. `count` is
     * not checked for null. Full shape, messages naming the tag.
     * @return 0; -2 null `faces` or failed lookup; -1 without data.
     */
    int GetFacesInfoHolder(std::shared_ptr<KvMetadata> metadata, int** faces, uint32_t* count);
    /**
     * Faces mapped into an input image of `width` x `height`: clears `info`,
     * reads `android.scaler.cropRegion` of the frame and
     * `android.sensor.info.activeArraySize` of the framework camera's static
     * metadata (through `kovani.snapshot.fwkCameraId`), the faces of
     * `kovani.bokeh.faceInfo` (at most 10) and, when `useInSensorZoom` is
     * non-zero, `kovani.insensorzoom.status` (a set first word converts the
     * faces from the in-sensor-zoom crop). Each face is mapped with
     * MapRectToInput, given a centre, a quarter-turn rotation and its extras;
     * the largest mapped area (first of equals) is marked. Deliberate: for an
     * image above 5000 x 4000 the active size is doubled for every face in
     * turn, compounding. Each face is logged at level 1.
     * @return 0; -1 when the crop or active array is missing ("get
     * active/crop size err") or there is no face ("no face"), both at level 3.
     */
    int GetFaceRect(std::shared_ptr<KvMetadata> metadata, int width, int height, KVFaceInfo& info,
                    int useInSensorZoom);
    /**
     * Faces of `kovani.bokeh.faceInfo` of the frame (at most 10) as rectangles
     * in active-array coordinates, not mapped: converted from the
     * in-sensor-zoom crop when `kovani.insensorzoom.status` is set (using
     * `android.sensor.info.activeArraySize` of the framework camera's static
     * metadata through `kovani.snapshot.fwkCameraId`, zero when missing) and
     * doubled for an image above 5000 x 4000. Deliberate: only `faceCount`,
     * the rectangles and the extras are written. Also reads
     * `kovani.ae.average.face.luma` and discards it.
     * @return 0; -1 when there is no face ("no face", level 3).
     */
    int GetFacesNoMap(std::shared_ptr<KvMetadata> metadata, int width, int height,
                      KVFaceInfo& info);
    /**
     * Faces for the algorithm layer: GetFaceRect without in-sensor zoom
     * (`android.scaler.cropRegion` of the frame,
     * `android.sensor.info.activeArraySize` of the framework camera's static
     * metadata through `kovani.snapshot.fwkCameraId`, `kovani.bokeh.faceInfo`)
     * repacked as inclusive corners, with the luma of
     * `kovani.ae.average.face.luma` (0 when missing) for every face.
     * @return 0; -1, with no line of its own, when there is no face (`count`
     * written as 0 first).
     */
    int GetFaceInfo(std::shared_ptr<KvMetadata> metadata, AIspFaceInfo& info, int width,
                    int height);

    // ---- Focus regions -----------------------------------------------------

    /**
     * Autofocus region in the pixels of `image`: the region of the platform
     * tag `MTK_3A_FEATURE_AF_REGION` (id 0x80060001) of the frame (type word,
     * region count 1 or 2, then corners; with two regions the second, from
     * word 7), mapped with MapRectToInput against `android.scaler.cropRegion`
     * of the frame and `android.sensor.info.activeArraySize` of the framework
     * camera's static metadata (through `kovani.snapshot.fwkCameraId`). The
     * tag's length is trusted; corners are not checked for order.
     * @return MapRectToInput's result (0 or -1); -2 null `roi`, `image` or
     * container ("arg err"); the crop or active-array getter's code (after
     * "GetCropRegion err" / "GetActiveArraySize err", level 3); -1 for a
     * missing AF region ("fail to read AF region") or a region count other than
     * 1 or 2 ("incorrect AF region"), both at level 1.
     */
    int GetfocusROI(std::shared_ptr<KvMetadata> metadata, UtilsImageBuf* image,
                    __UtilsImage_Rect* roi);
    /**
     * Touch point: the centre of GetfocusROI's region (from the platform tag
     * `MTK_3A_FEATURE_AF_REGION`, id 0x80060001, `android.scaler.cropRegion`,
     * and `android.sensor.info.activeArraySize` of the framework camera's
     * static metadata through `kovani.snapshot.fwkCameraId`). Written whatever
     * the region read gave (from a zero region on failure); deliberately a
     * centre exactly on the origin is replaced by the half size.
     * @return GetfocusROI's result; -2 null `point`, `image` or container ("arg err").
     */
    int GetfocusTP(std::shared_ptr<KvMetadata> metadata, UtilsImageBuf* image,
                   __UtilsImage_point* point);

    // ---- Camera role ids ---------------------------------------------------

    /// Role id, int32 from `com.kovani.cameraid.role.cameraId` of the static
    /// metadata of `cameraId`. Full shape; both messages are "GetMetadata
    /// com.kovani.cameraid.role.cameraId err".
    /// @return 0; -2 null `roleId` or failed lookup (also no static metadata); -1 without data.
    int GetCameraRoleId(int cameraId, int* roleId);
    /// Role id, int32 from `com.kovani.cameraid.role.cameraId` of the framework
    /// camera's static metadata (found through `kovani.snapshot.fwkCameraId`).
    /// Full shape; both messages are "GetMetadata com.kovani.cameraid.role.cameraId err".
    /// @return 0; -2 null `roleId` or failed lookup; -1 without data; GetFwkCameraId's code.
    int GetCameraRoleId(std::shared_ptr<KvMetadata> metadata, int* roleId);
    /// Role id as the request carries it, `com.kovani.cameraid.role.cameraId`
    /// of the frame itself, bit for bit as unsigned. Full shape, default messages.
    /// @return 0; -2 null `roleId` or failed lookup; -1 without data.
    int GetCameraRoleId(std::shared_ptr<KvMetadata> metadata, unsigned int* roleId);
    /// Role id of the request: element 0 of `com.kovani.cameraid.role.cameraIds`
    /// of the frame. Deliberate: despite the name exactly one int is written.
    /// Full shape, messages naming "CameraRoleId".
    /// @return 0; -2 null `roleIds` or failed lookup; -1 without data.
    int GetCameraRoleIds(std::shared_ptr<KvMetadata> metadata, int* roleIds);
    /**
     * Role ids of the physical cameras behind the logical camera `cameraId`:
     * the NUL-ended decimal ids of `android.logicalMultiCamera.physicalIds`
     * (`ANDROID_LOGICAL_MULTI_CAMERA_PHYSICAL_IDS`) of its static metadata, and
     * for each the role of `com.kovani.cameraid.role.cameraId` of that
     * camera's static metadata (0 when unreadable), appended to `roleIds`.
     * @return 0; -1 for any failed lookup of the id list (whatever its code),
     * after "GetMetadata ANDROID_LOGICAL_MULTI_CAMERA_PHYSICAL_IDS err" (level 3).
     */
    int GetMultiCameraPhyCameraRoleIds(int cameraId, std::vector<int>& roleIds);
    /**
     * The same for the framework camera (found through
     * `kovani.snapshot.fwkCameraId`): `android.logicalMultiCamera.physicalIds`
     * of its static metadata and `com.kovani.cameraid.role.cameraId` of each
     * physical camera's static metadata.
     * @return the int overload's result; deliberately 0, nothing appended,
     * when the framework camera id is missing (logged "GetMetadata FwkCameraId
     * fail", level 3).
     */
    int GetMultiCameraPhyCameraRoleIds(std::shared_ptr<KvMetadata> metadata,
                                       std::vector<int>& roleIds);

    // ---- Sensor type and sensor mode mapping ---------------------------

    /**
     * Sensor type of `cameraId` from the platform's role map: the camera of
     * role 0 is type 1, role 21 type 2, role 20 type 3, role 1 type 5, role 40
     * type 6 (first match wins; an absent role is camera -1). Reads no tag.
     * The role-to-camera ids are asked of the platform once per process (role
     * 22 too, unused) and never refreshed; the platform adapter must be
     * present on the first call.
     * @return 0; -1 with AISP_SENSOR_TYPE_UNKNOWN for any other camera.
     */
    int GetAISPSensorType(int cameraId, AIspSensorType& type);
    /**
     * AIspSensorMode of a platform sensor mode type 0 to 17 (0 0, 1 2, 2 3,
     * 3 5, 5 15, 6 4, 7 7, 8 10, 9 9, 15 2, 16 1, 17 6); other types give
     * AISP_SENSOR_MODE_UNKNOWN after "unkown sensorModeType" at level 3 (the
     * misspelling is what log readers search for). Type 5 sets both flags true;
     * no type clears them. Logs the mapping at level 2. Reads no tag.
     * @return the AIspSensorMode value, not a result code.
     */
    int getAIspSensorMode(int sensorModeType, bool& flagA, bool& flagB);
    /// Sensor mode type: of the four (valid byte at 380 + 320 i, int32 mode
    /// type at 400 + 320 i) pairs of `com.kovani.camera.sensorpolicy.frameresult`
    /// of the frame the last valid one; without one the output stays. Full
    /// shape, messages naming the tag.
    /// @return 0 (also without a valid pair); -2 null output or failed lookup; -1 without data.
    int GetKovaniSensorModeType(std::shared_ptr<KvMetadata> metadata, int* sensorModeType);
    /// Sensor mode, the second int32 of `kovani.streaming.sensormode` of the
    /// frame. Full shape, messages naming the tag.
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetSensorMode(std::shared_ptr<KvMetadata> metadata, int* sensorMode);
    /// Placeholder: reads nothing and leaves `info` as it is.
    /// @return 0, always.
    int GetKVSensorModeInfo(std::shared_ptr<KvMetadata> metadata, KVSensorModeInfo& info);
    /// Placeholder: reads nothing and leaves `caps` as it is.
    /// @return 0, always.
    int GetStaticMetaKVSensorCaps(std::shared_ptr<KvMetadata> metadata, KVSensorCaps& caps);

    // ---- Scene, motion-capture and anchor-frame --------------------------

    /// AI highlight anchor order, int32 from `kovani.aihighlight.anchorOrder`
    /// of the frame. Full shape, default messages.
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetHighlightAnchorOrder(std::shared_ptr<KvMetadata> metadata, int* out);
    /// Street-mode anchor order, int32 from
    /// `com.kovani.ext.control.streetmode.anchor.order` of the frame. Full
    /// shape, default messages.
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetStreetAnchorOrder(std::shared_ptr<KvMetadata> metadata, int* out);
    /// Sunset scene, 8 bytes of `kovani.ai.asd.SunsetScene` of the frame. Full
    /// shape, messages naming the tag.
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetSunsetScene(std::shared_ptr<KvMetadata> metadata, Sunset_Scene_t* out);
    /// Indoor flag, int32 from `kovani.ai.asd.algoSceneDetectedIndoor` of the
    /// frame. Full shape, messages naming the tag.
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetAISceneIndoor(std::shared_ptr<KvMetadata> metadata, int* out);
    /// Motion-capture type, 32 bits of `kovani.ai.kvsd.motionCaptureType` of
    /// the frame, unsigned. Full shape, messages naming the tag.
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetMotionCaptureType(std::shared_ptr<KvMetadata> metadata, unsigned int* out);
    /// Motion-capture frame type: deliberately the same tag as
    /// GetMotionCaptureType, `kovani.ai.kvsd.motionCaptureType` of the frame,
    /// signed. Full shape, messages naming the tag.
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetMotionCaptureFrameType(std::shared_ptr<KvMetadata> metadata, int* out);
    /// Highlight flag, int32 from `com.kv.node.kvaihighlight.isHighLight` of
    /// the frame. Full shape, messages naming the tag.
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetVXAihighlightIs(std::shared_ptr<KvMetadata> metadata, int* out);
    /// Banding scene type, int32 from `kovani.ai.kvsd.bandingSceneType` of the
    /// frame. Full shape, messages naming the tag.
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetBandingSceneType(std::shared_ptr<KvMetadata> metadata, int* out);
    /// Pre-anchor processing status, int32 from `com.kovani.orlo2.preAnchorProc`
    /// of the frame. Full shape, messages naming the tag.
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetPreAnchorProcStatus(std::shared_ptr<KvMetadata> metadata, int* out);
    /// Pre-anchor frame number, int32 from `com.kovani.orlo2.anchorFrameNum` of
    /// the frame. Full shape, messages naming the tag.
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetPreAnchorProcFrameNum(std::shared_ptr<KvMetadata> metadata, int* out);
    /// Scene detector result, 16 bytes of
    /// `kovani.ai.asd.algoSceneDetectedAIResult` of the frame. Full shape
    /// without the argument check (a reference), default messages.
    /// @return 0; -2 failed lookup; -1 without data.
    int GetAISceneResult(std::shared_ptr<KvMetadata> metadata, AIspSceneResult& result);
    /**
     * Motion-capture anchor order, the low byte (0 to 255) of
     * `kovani.motion.capture.anchorInfo` of the frame, taken only when the
     * low byte of `kovani.ai.kvsd.zslMcBandingType` flags a flicker motion
     * capture and bit 8 of the anchor word says the deflicker succeeded. Both
     * words are logged at level 2. Lookup failures and empty data are logged
     * at level 3 naming the tag ("GetMetadata ... err" / "get ... pData null").
     * @return 0; -2 null `order` or failed lookup; -1 for a tag without data,
     * no flicker flag or no deflicker success.
     */
    int GetMotionCaptureAnchorOrder(std::shared_ptr<KvMetadata> metadata, int* order);
    /// Eye-closure state from the byte of `com.kovani.orlo2.eyeclosure.status`
    /// of the frame: `eyeDet` when bit 2 is clear, `eyeOpen` when also bit 0 is
    /// set; logged at level 0. Short shape without the argument check, message
    /// naming the tag. Twin of getEcdStatus; only the function name in the
    /// lines differs.
    /// @return 0; -2 failed lookup.
    int GetEcdStatus(std::shared_ptr<KvMetadata> metadata, AIspAnchorMeta& meta);
    /// Eye-closure state from `com.kovani.orlo2.eyeclosure.status` of the
    /// frame, exactly as GetEcdStatus; the lower-case twin is kept for its callers.
    /// @return 0; -2 failed lookup.
    int getEcdStatus(std::shared_ptr<KvMetadata> metadata, AIspAnchorMeta& meta);

    // ---- Bokeh request, capability and stream information ---------------

    /// Bokeh request settings, 124 bytes of `com.kovani.camera.bokehConfig.request`
    /// of the frame. Full shape, messages naming "bokehRequestConfig".
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetBokehRequestInfoList(std::shared_ptr<KvMetadata> metadata, __bokehRequestInfoList* out);
    /// Bokeh capabilities, 21588 bytes of `com.kovani.camera.bokehCaps.info` of
    /// the frame. Full shape, messages naming "BokehCapsInfo".
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetBokehCapsInfo(std::shared_ptr<KvMetadata> metadata, __bokehCapabilityInfoList* out);
    /// Configured bokeh streams, 128 bytes of `com.kovani.camera.bokehConfig.stream`
    /// of the frame. Full shape, messages naming "BokehConfigStream".
    /// @return 0; -2 null output or failed lookup; -1 without data.
    int GetBokehConfigStream(std::shared_ptr<KvMetadata> metadata,
                             __bokehConfigStreamInfoList* out);
    /// Number of input frames, int32 from `kovani.multiframe.inputNum` of the
    /// frame. Short shape, message naming the tag.
    /// @return 0; -2 null output or failed lookup.
    int GetInputNum(std::shared_ptr<KvMetadata> metadata, int* out);
    /// Snapshot image name, the NUL-ended text of `kovani.snapshot.imageName`
    /// of the frame, copied without a bound (the pipeline keeps names shorter
    /// than 128 bytes; a hardened build refuses longer ones with -1). Full
    /// shape, messages naming "imageName".
    /// @return 0; -2 null `name` or failed lookup; -1 without data.
    int GetImageName(std::shared_ptr<KvMetadata> metadata, char (*name)[128]);
    /// Scene classes and confidences, 16 bytes of
    /// `kovani.ai.asd.algoSceneDetectedAIResult` of the frame; logged at level
    /// 2. Short shape, message "get kovani.ai.asd.algoSceneDetectedAIResult fail".
    /// @return 0; -2 null output or failed lookup.
    int GetSceneDetectedAIResult(std::shared_ptr<KvMetadata> metadata, KvAiSceneClsResult* out);
    /// Indoor flag, int32 from `kovani.ai.asd.algoSceneDetectedIndoor` of the
    /// frame; logged at level 0. Short shape, message "get
    /// kovani.ai.asd.algoSceneDetectedIndoor fail".
    /// @return 0; -2 null output or failed lookup.
    int GetSceneDetectedIndoor(std::shared_ptr<KvMetadata> metadata, int* out);
    /// Writes the 124 bytes of `*info` into `com.kovani.camera.bokehConfig.request`.
    /// Failures are logged "SetMetadata com.kovani.camera.bokehConfig.request err" (level 3).
    /// @return 0; -2 null `info` ("arg err") or null container; -1 tag name
    /// unknown; otherwise the container's update status.
    int SetBokehRequestInfoList(std::shared_ptr<KvMetadata> metadata, __bokehRequestInfoList* info);

private:
    int mCameraId;     // stored by SetCameraId, read by nothing
    int mSatCameraId;  // selects this camera's entry of the per-camera crop table
};
static_assert(sizeof(void*) != 8 || sizeof(MetaUtils) == 16,
              "MetaUtils is a vtable pointer and two ints");

}  // namespace kvalgo2
