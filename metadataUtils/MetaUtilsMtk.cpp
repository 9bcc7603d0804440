// MetaUtils, platform part: capture statistics and burst metadata, the final
// crop region, faces, sensor types and modes, and the remaining geometry and
// camera-identity methods.
#include <algorithm>
#include <cstring>
#include <unordered_map>
#include <vector>

#include "AdapterClient.h"
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
// Platform: camera role, sensor type and sensor mode, final crop region and
// gyroscope samples
// ===========================================================================

// The role id as the request carries it, handed out bit for bit as unsigned.
KV_TAG_GETTER(GetCameraRoleId, unsigned int, "com.kovani.cameraid.role.cameraId", kDefaultMessages,
              Copy<unsigned int>)

int MetaUtils::GetAISPSensorType(int cameraId, AIspSensorType& type) {
    // The camera that plays `role` according to the platform, -1 when none.
    // The platform adapter must be present by the time this first runs: the
    // holder is used without a test.
    auto cameraOfRole = [](int role) {
        std::shared_ptr<adapter::PlatformInfoHolder> holder =
            adapter::AdapterClient::getInstance().getPlatformInfoHolder();
        const std::unordered_map<int, kvholder::RoleIdDescription> roles =
            holder->getRoleIdDescriptionMap();
        for (const auto& entry : roles) {
            if (entry.second.roleId == role) return entry.first;
        }
        return -1;
    };
    // Asked once per process, each under its own guard; later changes of the
    // platform's role map are not seen.
    static const int sCameraOfRole0 = cameraOfRole(0);
    static const int sCameraOfRole1 = cameraOfRole(1);
    // The platform is asked for role 22 too, although no sensor type uses it.
    [[maybe_unused]] static const int sCameraOfRole22 = cameraOfRole(22);
    static const int sCameraOfRole20 = cameraOfRole(20);
    static const int sCameraOfRole21 = cameraOfRole(21);
    static const int sCameraOfRole40 = cameraOfRole(40);

    // First match wins; an absent role is -1, which a cameraId of -1 matches.
    const struct {
        int cameraId;
        int32_t type;
    } kTypes[] = {{sCameraOfRole0, 1},
                  {sCameraOfRole21, 2},
                  {sCameraOfRole20, 3},
                  {sCameraOfRole1, 5},
                  {sCameraOfRole40, 6}};
    for (const auto& t : kTypes) {
        if (cameraId == t.cameraId) {
            type = static_cast<AIspSensorType>(t.type);
            return 0;
        }
    }
    type = AISP_SENSOR_TYPE_UNKNOWN;
    return -1;
}

int MetaUtils::getAIspSensorMode(int sensorModeType, bool& flagA, bool& flagB) {
    // AIspSensorMode of the platform's sensor mode types 0 to 17; -1 marks the
    // types that have none.
    constexpr int kModes[] = {0, 2, 3, 5, -1, 15, 4, 7, 10, 9, -1, -1, -1, -1, -1, 2, 1, 6};
    constexpr int kTypes = static_cast<int>(sizeof kModes / sizeof kModes[0]);
    int mode = AISP_SENSOR_MODE_UNKNOWN;
    if (sensorModeType >= 0 && sensorModeType < kTypes && kModes[sensorModeType] >= 0) {
        mode = kModes[sensorModeType];
    } else {
        // "unkown" is the text log readers search for; keep the spelling.
        KV_LOG(3, "unkown sensorModeType:%d", sensorModeType);
    }
    // Only type 5 sets the flags; no type clears them.
    if (sensorModeType == 5) {
        flagA = true;
        flagB = true;
    }
    KV_LOG(2, "get sensorModeType %d => AIspSensorMode %d ", sensorModeType, mode);
    return mode;
}

namespace {

// The sensor policy's frame result holds four (valid flag, mode type) pairs
// at a stride of 320 bytes; the last valid pair wins, and without one the
// caller's value stays.
void StoreLastValidSensorModeType(const void* data, int* out) {
    constexpr size_t kPairs = 4;
    constexpr size_t kStride = 320;
    constexpr size_t kValidAt = 380;
    constexpr size_t kModeTypeAt = 400;
    for (size_t i = kPairs; i-- > 0;) {
        if (detail::Load<uint8_t>(data, kValidAt + kStride * i) != 0) {
            *out = detail::Load<int32_t>(data, kModeTypeAt + kStride * i);
            return;
        }
    }
}

}  // namespace

// clang-format off
KV_TAG_GETTER(GetKovaniSensorModeType, int, "com.kovani.camera.sensorpolicy.frameresult",
              KV_FULL("GetMetadata com.kovani.camera.sensorpolicy.frameresult err",
                      "get metadata com.kovani.camera.sensorpolicy.frameresult err"),
              StoreLastValidSensorModeType)
// The sensor mode is the tag's second element.
KV_TAG_GETTER(GetSensorMode, int, "kovani.streaming.sensormode",
              KV_FULL("GetMetadata kovani.streaming.sensormode err",
                      "get metadata kovani.streaming.sensormode err"),
              (Copy<int, sizeof(int32_t)>))
// clang-format on

// Placeholders of the interface: nothing to read, the output stays as it is.
int MetaUtils::GetKVSensorModeInfo(std::shared_ptr<KvMetadata>, KVSensorModeInfo&) {
    return 0;
}

int MetaUtils::GetStaticMetaKVSensorCaps(std::shared_ptr<KvMetadata>, KVSensorCaps&) {
    return 0;
}

namespace {

// A zoom-stabilisation shift and where it came from.
struct CropShift {
    int32_t x = 0;
    int32_t y = 0;
    bool isIsz = false;       // measured on an in-sensor-zoom frame
    bool isFromMeta = false;  // read from the frame instead of the platform
};

// Signed 32-bit sums, differences and doublings of the crop arithmetic wrap
// as the device's registers do.
int32_t Wrap(uint32_t value) {
    return static_cast<int32_t>(value);
}

// The zoom-stabilisation shift query record, every byte set: no shift, unit
// scales, no camera.
adapter::ShiftData EmptyShiftData() {
    adapter::ShiftData shiftData;
    std::memset(&shiftData, 0, sizeof shiftData);
    shiftData.reserved1 = 1.0;
    shiftData.reserved2 = 1.0;
    shiftData.cameraId = -1;
    return shiftData;
}

}  // namespace

int MetaUtils::GetFinalCropRegion(std::shared_ptr<KvMetadata> metadata, ChiRect& cropRegion,
                                  KvDimension sensorSize, bool isInSensorZoom) {
    ChiRect active;
    const int activeRet = GetActiveArraySize(metadata, &active);
    if (activeRet != 0) {
        KV_LOG(3, "allInOneCrop GetMetadata GetActiveArraySize ret = %d err", activeRet);
        return activeRet;
    }
    const int cameraId = mSatCameraId;

    // This camera's entry of the sensor policy's per-camera crop table; a zero
    // crop when the table or the entry is missing. True when the table was read.
    auto readPolicyCrop = [&]() {
        cropRegion = ChiRect{0, 0, 0, 0};
        void* data = nullptr;
        if (GetMetaData(metadata, "com.kovani.camera.sensorpolicy.cropregions", 0, &data,
                        nullptr) != 0) {
            KV_LOG(3,
                   "allInOneCrop GetMetadata com.kovani.camera.sensorpolicy.cropregions ret err");
            return false;
        }
        if (data == nullptr) {
            KV_LOG(3,
                   "allInOneCrop get metadata com.kovani.camera.sensorpolicy.cropregions null err");
            return false;
        }
        // Entries of nine int32 words: camera id, four unused words, the crop.
        // Exactly four entries are examined whatever the tag's count; the
        // sensor policy always writes four.
        constexpr size_t kEntries = 4;
        constexpr size_t kEntryBytes = 36;
        constexpr size_t kCropAt = 20;
        ChiRect crop{0, 0, 0, 0};
        for (size_t i = 0; i < kEntries; ++i) {
            if (detail::Load<int32_t>(data, kEntryBytes * i) == cameraId) {
                crop = detail::Load<ChiRect>(data, kEntryBytes * i + kCropAt);
                KV_LOG(2,
                       "allInOneCrop get crop region from SAT camId = %d cropregion: [%d %d %d %d]",
                       cameraId, crop.left, crop.top, crop.width, crop.height);
                break;
            }
        }
        cropRegion = crop;
        KV_LOG(2,
               "allInOneCrop get crop region from SAT camId = %d isInSensorZoom = %d cropregion: "
               "[%d %d %d %d]",
               cameraId, isInSensorZoom, crop.left, crop.top, crop.width, crop.height);
        return true;
    };

    // An in-sensor-zoom frame shows the centre half of the sensor at twice the
    // scale: move the crop there, if it still fits on the sensor.
    auto convertForInSensorZoom = [&]() {
        if (isInSensorZoom) {
            const ChiRect c = cropRegion;
            const int32_t newLeft = Wrap((c.left - (sensorSize.width >> 2)) * 2u);
            const int32_t newTop = Wrap((c.top - (sensorSize.height >> 2)) * 2u);
            if (newLeft >= 0 && newTop >= 0) {
                const uint32_t newWidth = c.width * 2u;
                const uint32_t newHeight = c.height * 2u;
                if (newWidth + static_cast<uint32_t>(newLeft) <= sensorSize.width &&
                    newHeight + static_cast<uint32_t>(newTop) <= sensorSize.height) {
                    cropRegion = ChiRect{static_cast<uint32_t>(newLeft),
                                         static_cast<uint32_t>(newTop), newWidth, newHeight};
                }
            }
        }
        KV_LOG(2,
               "allInOneCrop get after isInSensorZoom = %d sensorsize(%d, %d) cropregion: [%d %d "
               "%d %d]",
               isInSensorZoom, sensorSize.width, sensorSize.height, cropRegion.left, cropRegion.top,
               cropRegion.width, cropRegion.height);
    };

    // Widen or heighten the crop about its centre to the active array's
    // aspect ratio; a crop that would then start before the sensor edge takes
    // the sensor's whole width or height instead.
    auto matchActiveAspect = [&]() {
        const ChiRect in = cropRegion;
        ChiRect out = in;
        const float fw = static_cast<float>(in.width) / static_cast<float>(active.width);
        const float fh = static_cast<float>(in.height) / static_cast<float>(active.height);
        if (fh > fw + 0.01f) {
            const int32_t newWidth =
                detail::SaturateCast<int32_t>(fh * static_cast<float>(active.width)) & ~1;
            const int32_t newLeft =
                Wrap(in.left + static_cast<uint32_t>(Wrap(in.width - newWidth) >> 1));
            if (newLeft < 0) {
                out.left = 0;
                out.width = sensorSize.width;
            } else {
                out.left = static_cast<uint32_t>(newLeft);
                out.width = static_cast<uint32_t>(newWidth);
            }
        } else if (fw > fh + 0.01f) {
            const int32_t newHeight =
                detail::SaturateCast<int32_t>(fw * static_cast<float>(active.height)) & ~1;
            const int32_t newTop =
                Wrap(in.top + static_cast<uint32_t>(Wrap(in.height - newHeight) >> 1));
            if (newTop < 0) {
                out.top = 0;
                out.height = sensorSize.height;
            } else {
                out.top = static_cast<uint32_t>(newTop);
                out.height = static_cast<uint32_t>(newHeight);
            }
        }
        KV_DLOG_I("allInOneCrop input crop (%d, %d, %d, %d) output crop (%d, %d, %d, %d)", in.left,
                  in.top, in.width, in.height, out.left, out.top, out.width, out.height);
        cropRegion = out;
    };

    // The frame's timestamp; its lookup result becomes the method's result.
    auto readTimestamp = [&](long& ts) {
        const int ret = GetAndroidTimeStamp(metadata, &ts);
        if (ret == 0) {
            KV_LOG(2, "allInOneCrop [camera id:%d] tag ANDROID_SENSOR_TIMESTAMP %ld", cameraId, ts);
        } else {
            KV_LOG(2, "allInOneCrop [camera id:%d] tag ANDROID_SENSOR_TIMESTAMP not found!",
                   cameraId);
        }
        return ret;
    };

    // Asks the platform for the shift of this frame. False when there is no
    // holder or it has no shift for the frame.
    auto askPlatform = [&](adapter::ShiftData& shiftData, long ts, float zoomRatio,
                           float zoomEisEffective, CropShift& shift) {
        std::shared_ptr<adapter::PlatformInfoHolder> holder =
            adapter::AdapterClient::getInstance().getPlatformInfoHolder();
        if (!holder) return false;
        shiftData.cameraId = cameraId;
        shiftData.timestamp = ts;
        int roleId = 0;
        std::shared_ptr<adapter::PlatformInfoHolder> roleHolder =
            adapter::AdapterClient::getInstance().getPlatformInfoHolder();
        if (roleHolder) {
            const std::unordered_map<int, kvholder::RoleIdDescription> roles =
                roleHolder->getRoleIdDescriptionMap();
            const auto it = roles.find(cameraId);
            if (it != roles.end()) roleId = it->second.roleId;
        }
        // Role 20 at or beyond the effective zoom of the stabilisation: node 2.
        shiftData.nodeType = roleId == 20 && zoomRatio >= zoomEisEffective ? 2 : 1;
        constexpr int kToleranceNs = 1500000000;
        const bool shiftFlag = holder->getShift(&shiftData, kToleranceNs);
        KV_LOG(2, "allInOneCrop shiftFlag = %d", shiftFlag);
        if (!shiftFlag) return false;
        shift = CropShift{shiftData.shiftX, shiftData.shiftY, shiftData.isIsz != 0, false};
        return true;
    };

    // The shift the frame carries, when it has exactly four elements: x, y,
    // in-sensor-zoom flag and pre-anchor flag.
    auto readMetadataShift = [&]() {
        void* data = nullptr;
        uint32_t count = 0;
        const int ret = GetMetaData(metadata, "kovani.sat.output.shift", 0, &data, &count);
        CropShift shift;
        if (ret == 0 && count == 4 && data != nullptr) {
            const float preAnchor = detail::Load<float>(data, 3 * sizeof(float));
            shift = CropShift{detail::SaturateCast<int32_t>(detail::Load<float>(data)),
                              detail::SaturateCast<int32_t>(detail::Load<float>(data, 4)),
                              detail::Load<float>(data, 8) != 0.0f, true};
            // The pre-anchor flag goes out as a double under "%d" and the
            // messages name "kovani.sr.shift.value": log readers match these
            // lines exactly as the platform has always printed them.
            log::Write(KV_HERE, 2,
                       KV_LOG_PREFIX
                       "allInOneCrop get shift successful shift(%d, %d) isPreAnchor = %d size = "
                       "%u, from kovani.sr.shift.value ",
                       shift.x, shift.y, static_cast<double>(preAnchor), count);
        } else {
            KV_LOG(2, "allInOneCrop get shift failed size = %u, from kovani.sr.shift.value...",
                   count);
        }
        return shift;
    };

    // Brings the shift to the frame's scale: doubled for an in-sensor-zoom
    // frame, halved for a full-sensor one, when it was measured on the other.
    auto scaleShift = [&](CropShift& shift, const adapter::ShiftData& shiftData, long ts,
                          float zoomEisEffective, float zoomRatio) {
        KV_LOG(2,
               "allInOneCrop zoom shift (%d,%d) timestamp = %ld cameraId = %d anchorTimeStamp = "
               "%ld subTimestamp = %ld isIsz = %d isFromMeta = %d shiftData.nodeType = %d "
               "zoomEisEffective = %f zoomRatio = %f",
               shift.x, shift.y, shiftData.timestamp, cameraId, ts, ts - shiftData.timestamp,
               shift.isIsz, shift.isFromMeta, shiftData.nodeType,
               static_cast<double>(zoomEisEffective), static_cast<double>(zoomRatio));
        if (!shift.isIsz && isInSensorZoom) {
            shift.x = Wrap(static_cast<uint32_t>(shift.x) * 2u);
            shift.y = Wrap(static_cast<uint32_t>(shift.y) * 2u);
        } else if (shift.isIsz && !isInSensorZoom) {
            shift.x /= 2;
            shift.y /= 2;
        }
        KV_LOG(2, "allInOneCrop zoom after isInSensorZoom = %d shift (%d,%d) ", isInSensorZoom,
               shift.x, shift.y);
    };

    // Moves the crop by the shift if it stays on the sensor.
    auto applyShift = [&](const CropShift& shift, int ret) {
        const int32_t newLeft = Wrap(cropRegion.left + static_cast<uint32_t>(shift.x));
        const int32_t newTop = Wrap(cropRegion.top + static_cast<uint32_t>(shift.y));
        if (ret == 0 && newLeft >= 0 && newTop >= 0 &&
            cropRegion.width + static_cast<uint32_t>(newLeft) <= sensorSize.width &&
            cropRegion.height + static_cast<uint32_t>(newTop) <= sensorSize.height) {
            cropRegion.left = static_cast<uint32_t>(newLeft);
            cropRegion.top = static_cast<uint32_t>(newTop);
            KV_LOG(2, "allInOneCrop using zoom eis shift (%d,%d)", shift.x, shift.y);
        } else {
            KV_LOG(2, "allInOneCrop not using zoom eis shift (%d,%d)", shift.x, shift.y);
        }
    };

    if (readPolicyCrop()) convertForInSensorZoom();
    matchActiveAspect();

    int ret = 0;
    if (cropRegion.width == 0 || cropRegion.height == 0) {
        cropRegion = ChiRect{0, 0, 0, 0};
    } else {
        long ts = 0;
        ret = readTimestamp(ts);
        float zoomEisEffective = 0.0f;
        std::shared_ptr<KvMetadata> stat =
            StaticMetadataWraper::getInstance()->getStaticMetadata(static_cast<uint32_t>(cameraId));
        if (stat) GetZoomEisEffective(stat, &zoomEisEffective);
        float zoomRatio = 0.0f;
        GetAndroidZoomRatio(metadata, &zoomRatio);

        adapter::ShiftData shiftData = EmptyShiftData();
        CropShift shift;
        if (!askPlatform(shiftData, ts, zoomRatio, zoomEisEffective, shift)) {
            shift = readMetadataShift();
        }
        scaleShift(shift, shiftData, ts, zoomEisEffective, zoomRatio);
        applyShift(shift, ret);
    }
    KV_LOG(2, "allInOneCrop get final crop = cropregion: [%d %d %d %d] ret = %d RET_OK = %d",
           cropRegion.left, cropRegion.top, cropRegion.width, cropRegion.height, ret, 0);
    return ret;
}

namespace {

constexpr size_t kMaxGyroSamples = 200;

// Ticks of the platform's 19.2 MHz timer to microseconds: nanoseconds first,
// multiplied before dividing in double precision, then truncated; that order
// fixes the rounding of large tick counts.
uint64_t GyroTicksToMicroseconds(uint64_t ticks) {
    const double nanoseconds = static_cast<double>(ticks) * 1e9 / 1.92e7;
    return detail::SaturateCast<uint64_t>(nanoseconds) / 1000;
}

}  // namespace

int MetaUtils::GetGyroData(std::shared_ptr<KvMetadata>, AIspGyroData& gyroData,
                           AIspGyroData::GyroElement* elements, int query, const char* key) {
    // The platform adapter must be present: the holder is used without a test.
    std::shared_ptr<adapter::PlatformInfoHolder> holder =
        adapter::AdapterClient::getInstance().getPlatformInfoHolder();
    if (holder->enableGyro(key, 1, 3) == 0) return -1;

    const std::vector<adapter::GyroSample> samples = holder->getGyroData(key, query);
    KV_DLOG_I("get Gyro from holder, gyros size: %d", static_cast<int>(samples.size()));
    int ret = -1;
    if (!samples.empty()) {
        // The first 200 in the holder's order; start and end are the first and
        // last of those as the holder gave them, not the extremes.
        const size_t kept = std::min(samples.size(), kMaxGyroSamples);
        gyroData.count = static_cast<int32_t>(kept);
        gyroData.startTimestamp = GyroTicksToMicroseconds(samples[0].timestamp);
        for (int32_t i = 0; i < gyroData.count; ++i) {
            // The rates bit for bit; the element's padding stays as it was.
            std::memcpy(&elements[i].x, &samples[i].x, 3 * sizeof(float));
            elements[i].timestamp = GyroTicksToMicroseconds(samples[i].timestamp);
        }
        gyroData.endTimestamp = GyroTicksToMicroseconds(samples[kept - 1].timestamp);
        std::sort(elements, elements + kept,
                  [](const AIspGyroData::GyroElement& a, const AIspGyroData::GyroElement& b) {
                      return a.timestamp < b.timestamp;
                  });
        ret = 0;
    }
    holder->disableGyro(key, 1);
    return ret;
}

}  // namespace kvalgo2
