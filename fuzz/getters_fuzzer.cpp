// Every getter and setter of kvalgo2::MetaUtils, from one table, on frames and
// static metadata whose tags have arbitrary element types and lengths.
//
// Input: call arguments first, then records until the input ends, each
// storing one tag (any tag of the host table) into the frame or into the
// static metadata of camera 0 to 3: present with count 0, or with a count
// drawn around the length the library reads (a few elements, that length
// minus one, plus one, or far more), of its declared element type or any
// other, its bytes from the input over a fill pattern.
//
// Two executables of this source:
// - getters_fuzzer: the frames above, on a container without payload padding
//   (kvhost::setExactPayloads), so AddressSanitizer reports any read past a
//   payload's end. Built on the hardened library, every input must run clean,
//   and a method that refuses a short tag must return -1 with its outputs
//   untouched.
// - getters_wellformed_fuzzer: every stored tag has its declared type and at least
//   the length the library reads (the image name ends with a NUL inside the
//   caller's 128 bytes, the shading map grid fits the map). With
//   KVFUZZ_DIGEST=<file> each call appends a line (method, result, hash of
//   the outputs, hash of the log lines) to the file: scripts/fuzz.sh replays
//   one corpus through this target built on the default and on the hardened
//   library and compares the two files.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "FuzzSupport.h"

namespace {

using kvalgo2::ChiRect;
using kvalgo2::MetaUtils;
using kvhost::TagType;

#if defined(KVFUZZ_WELL_FORMED)
constexpr bool gWellFormed = true;
#else
constexpr bool gWellFormed = false;
#endif
FILE* gDigest = nullptr;
std::vector<kvhost::TagInfo> gTags;

// Payload bytes the library reads at most from a tag, where more than one
// element of the tag's declared type.
size_t LongestRead(const std::string& name) {
    static const struct {
        const char* name;
        size_t bytes;
    } kReads[] = {
        {"android.colorCorrection.gains", 16},
        {"android.lens.info.shadingMapSize", 8},
        {"android.scaler.cropRegion", 16},
        {"android.sensor.dynamicBlackLevel", 16},
        {"android.sensor.info.activeArraySize", 16},
        {"android.sensor.info.activeArraySizeMaximumResolution", 16},
        {"MTK_3A_FEATURE_AF_REGION", 44},
        {"kovani.hdr.gtm.curve", 1156},
        {"kovani.histogram.stats", 4096},
        {"kovani.supernight.gammainfo", 1024},
        {"kovani.snapshot.cropRegion", 16},
        {"com.kovani.camera.sensorpolicy.cropregions", 144},
        {"kovani.streaming.sensormode", 8},
        {"kovani.supernight.color.correction.transform", 72},
        {"kovani.ai.asd.SmartAE", 448},
        {"com.kovani.statsconfigs.AecInfo", 12},
        {"com.kovani.camera.sensorpolicy.frameresult", 1364},
        {"kovani.ai.asd.SunsetScene", 8},
        {"kovani.ai.asd.algoSceneDetectedAIResult", 16},
        {"com.kovani.camera.bokehConfig.request", 124},
        {"com.kovani.camera.bokehCaps.info", 21588},
        {"com.kovani.camera.bokehConfig.stream", 128},
    };
    for (const auto& r : kReads) {
        if (name == r.name) return r.bytes;
    }
    return 1;
}

// ---- Input --------------------------------------------------------------

struct Args {
    int32_t width = 0, height = 0;
    int32_t grid[2] = {0, 0};
    kvalgo2::KvDimension sensor{0, 0};
    bool inSensorZoom = false;
    int32_t useInSensorZoom = 0;
    int32_t cameraId = 0, satCameraId = 0, sensorModeType = 0, query = 0, intValue = 0;
    float floatValue = 0.0f;
    ChiRect src{}, refer{}, sensorRect{};
};

void ReadArgs(kvfuzz::Reader& in, Args& a) {
    in.sdim(a.width);
    in.sdim(a.height);
    in.range(a.grid[0], -2, 64);
    in.range(a.grid[1], -2, 64);
    in.dim(a.sensor.width);
    in.dim(a.sensor.height);
    in.flag(a.inSensorZoom);
    in.range(a.useInSensorZoom, 0, 1);
    in.range(a.cameraId, -1, 4);
    in.range(a.satCameraId, -1, 4);
    in.range(a.sensorModeType, -1, 18);
    in.raw(a.query);
    in.raw(a.intValue);
    in.real(a.floatValue);
    kvfuzz::VisitRect(in, a.src);
    kvfuzz::VisitRect(in, a.refer);
    kvfuzz::VisitRect(in, a.sensorRect);
}

// One record: the tag, its container, its type and count, its bytes.
void StoreTag(kvfuzz::Reader& in, kvhost::Metadata* const (&containers)[5]) {
    uint8_t where = 0, which = 0, shape = 0, typeSel = 0, fill = 0, head = 0;
    uint32_t seed = 0;
    in.raw(where);
    in.raw(which);
    in.raw(shape);
    in.raw(typeSel);
    in.raw(seed);
    in.raw(fill);
    in.raw(head);
    const kvhost::TagInfo& tag = gTags[which % gTags.size()];
    kvhost::Metadata& md = *containers[where % 5];
    TagType type = tag.type;
    if (!gWellFormed && (typeSel & 0x80) != 0) type = static_cast<TagType>((typeSel & 0x7F) % 6);
    const size_t element = kvhost::typeSize(type);
    const size_t reads = LongestRead(tag.name);
    const size_t fit = (reads + element - 1) / element;  // elements for the read
    size_t count = 0;
    switch (shape % 8) {
        case 0:
            count = gWellFormed ? fit : 0;
            break;
        case 1:
            count = gWellFormed ? fit : (fit > 1 ? fit - 1 : 1);
            break;
        case 2:
        case 3:
            count = fit + seed % 4;
            break;
        case 4:
            count = gWellFormed ? fit + seed % 64 : 1 + seed % 16;
            break;
        default:
            count = fit + seed % 512;
            break;
    }
    std::vector<uint8_t> bytes(count * element);
    uint32_t x = seed | 1;
    for (size_t i = 0; i < bytes.size(); ++i) {
        x ^= x << 13;
        x ^= x >> 17;
        x ^= x << 5;
        switch (fill % 4) {
            case 0:
                bytes[i] = 0;
                break;
            case 1:
                bytes[i] = static_cast<uint8_t>(x);
                break;
            case 2:  // small words: camera ids, flags, region counts
                bytes[i] = i % 4 == 0 ? static_cast<uint8_t>(x % 4) : 0;
                break;
            default:
                bytes[i] = 0xFF;
                break;
        }
    }
    for (size_t i = 0; i < head && i < bytes.size(); ++i) in.raw(bytes[i]);
    if (gWellFormed && tag.name == "kovani.snapshot.imageName") {
        bytes.resize(std::min<size_t>(bytes.size(), 128));
        bytes.back() = 0;
    }
    kvfuzz::Stored(md.putAnyType(tag.id, type, bytes.data(), bytes.size() / element));
}

// ---- Calls ----------------------------------------------------------------

uint64_t Fnv(const void* data, size_t n, uint64_t h = 1469598103934665603ull) {
    const auto* p = static_cast<const uint8_t*>(data);
    for (size_t i = 0; i < n; ++i) h = (h ^ p[i]) * 1099511628211ull;
    return h;
}

// The outputs of one call, each made poisoned before the call.
class Outs {
public:
    template <typename T>
    T* Make(size_t n = 1) {
        blocks_.emplace_back(sizeof(T) * n);
        auto& b = blocks_.back();
        for (size_t i = 0; i < b.size(); ++i)
            b[i] = static_cast<uint8_t>(0xA5 ^ (i + blocks_.size()));
        before_.push_back(b);
        return reinterpret_cast<T*>(b.data());
    }
    // Bytes the call produced that live elsewhere (a payload handed out).
    void Extra(const void* data, size_t n) {
        const auto* p = static_cast<const uint8_t*>(data);
        extra_.insert(extra_.end(), p, p + n);
    }
    bool Untouched() const {
        for (size_t i = 0; i < blocks_.size(); ++i) {
            if (blocks_[i] != before_[i]) return false;
        }
        return true;
    }
    uint64_t Hash() const {
        uint64_t h = Fnv(extra_.data(), extra_.size());
        for (const auto& b : blocks_) h = Fnv(b.data(), b.size(), h);
        return h;
    }

private:
    std::vector<std::vector<uint8_t>> blocks_, before_;
    std::vector<uint8_t> extra_;
};

struct Session {
    MetaUtils utils;
    std::shared_ptr<kvhost::Metadata> frame;
    Args args;
};

using Run = int (*)(Session&, Outs&);
struct Method {
    const char* name;
    Run run;
    bool keepsOutputsOnRefusal = true;
};

// int Method(std::shared_ptr<KvMetadata>, T* or T&[, int])
#define KV_PTR(m)                                                           \
    {                                                                       \
#m, [](Session & s, Outs & o) { return Call(s, o, &MetaUtils::m); } \
    }
template <typename T>
int Call(Session& s, Outs& o, int (MetaUtils::*m)(std::shared_ptr<KvMetadata>, T*)) {
    return (s.utils.*m)(s.frame, o.Make<T>());
}
template <typename T>
int Call(Session& s, Outs& o, int (MetaUtils::*m)(std::shared_ptr<KvMetadata>, T*, int)) {
    return (s.utils.*m)(s.frame, o.Make<T>(), s.args.intValue);
}
template <typename T>
int Call(Session& s, Outs& o, int (MetaUtils::*m)(std::shared_ptr<KvMetadata>, T&)) {
    return (s.utils.*m)(s.frame, *o.Make<T>());
}

// What a setter left in its tag.
void Written(Outs& o, const KvMetadata& md, const char* name, uint32_t id) {
    const camera_metadata_ro_entry_t e = name != nullptr ? md.find(name) : md.find(id);
    o.Extra(&e.count, sizeof e.count);
    if (e.count != 0) o.Extra(e.data.u8, e.count * kvhost::typeSize(static_cast<TagType>(e.type)));
}

template <typename T>
int Setter(Session& s, Outs& o, int (MetaUtils::*m)(std::shared_ptr<KvMetadata>, T*),
           const char* tag, T value) {
    const int rc = (s.utils.*m)(s.frame, &value);
    Written(o, *s.frame, tag, 0);
    return rc;
}

const Method kMethods[] = {
    {"SetCameraId",
     [](Session& s, Outs&) { return s.utils.SetCameraId(s.args.cameraId, s.args.satCameraId); }},
    {"GetMetaData",
     [](Session& s, Outs& o) {
         void* data = nullptr;
         uint32_t* count = o.Make<uint32_t>();
         return s.utils.GetMetaData(s.frame, "kovani.snapshot.fwkCameraId", 0, &data, count);
     }},
    {"SetMetaData<float>",
     [](Session& s, Outs& o) {
         float v[2] = {s.args.floatValue, 1.0f};
         const int rc = s.utils.SetMetaData<float>(s.frame, nullptr, 0x1002F, v, 2);
         Written(o, *s.frame, nullptr, 0x1002F);
         return rc;
     }},
    {"SetMetaData<int>",
     [](Session& s, Outs& o) {
         int v = s.args.intValue;
         const int rc = s.utils.SetMetaData<int>(s.frame, "kovani.thermal.thermalLevel", 0, &v, 1);
         Written(o, *s.frame, "kovani.thermal.thermalLevel", 0);
         return rc;
     }},
    {"SetMetaData<unsigned char>",
     [](Session& s, Outs& o) {
         unsigned char v = static_cast<unsigned char>(s.args.intValue);
         const int rc = s.utils.SetMetaData<unsigned char>(s.frame, "kovani.hdr.enabled", 0, &v, 1);
         Written(o, *s.frame, "kovani.hdr.enabled", 0);
         return rc;
     }},
    KV_PTR(GetPhyCameraId),
    KV_PTR(GetSensorExposureTime),
    KV_PTR(GetAndroidJpegOrientation),
    KV_PTR(GetStylizationType),
    KV_PTR(GetSensorTimestamp),
    KV_PTR(GetWhiteBlackRatio),
    KV_PTR(GetSensorDynamicWhiteLevel),
    KV_PTR(GetAndroidTimeStamp),
    KV_PTR(GetfocusDistCm),
    KV_PTR(GetSensitivity),
    KV_PTR(GetAFState),
    KV_PTR(GetAFMode),
    KV_PTR(GetIsZSLEnableReal),
    KV_PTR(GetANDROIDFlashMode),
    KV_PTR(GetVXFlashMode),
    KV_PTR(GetAndroidSensorFrameDuration),
    KV_PTR(GetVXPanshotFeatureEnable),
    KV_PTR(GetAndroidZoomRatio),
    KV_PTR(GetZoomEisEffective),
    KV_PTR(GetApertureValue),
    KV_PTR(GetFwkCameraId),
    KV_PTR(GetThermalLevel),
    KV_PTR(GetLaserDist),
    KV_PTR(GetSmartAeInfo),
    {"GetLSC",
     [](Session& s, Outs& o) {
         int grid[2] = {s.args.grid[0], s.args.grid[1]};
         if (gWellFormed) {
             // A grid that fits the map, as the lens's static size promises.
             const auto e = s.frame->find(0x11000Bu);
             const int32_t points = static_cast<int32_t>(e.count / 4);
             grid[0] = points == 0 ? 0 : std::abs(grid[0]) % (points + 1);
             grid[1] = grid[0] == 0 ? std::abs(grid[1]) : points / grid[0];
         }
         // The caller's map holds the grid it names.
         const size_t n = size_t(std::abs(grid[0])) * size_t(std::abs(grid[1])) * 4;
         return s.utils.GetLSC(s.frame, grid, o.Make<float>(n + 1));
     }},
    {"SetIspGain",
     [](Session& s, Outs& o) {
         return Setter(s, o, &MetaUtils::SetIspGain, "com.qti.sensorbps.gain", s.args.floatValue);
     }},
    {"SetHazeratio",
     [](Session& s, Outs& o) {
         return Setter(s, o, &MetaUtils::SetHazeratio, "com.kovani.3AAlgo.awbHazeRatio",
                       s.args.floatValue);
     }},
    {"SetAIToneFlag",
     [](Session& s, Outs& o) {
         return Setter(s, o, &MetaUtils::SetAIToneFlag, "com.kovani.3AAlgo.aecAItoneFlag",
                       static_cast<int>(s.args.intValue));
     }},
    KV_PTR(GetTimestamp),
    KV_PTR(GetCCT),
    KV_PTR(GetBurstInfoFaceLuma),
    KV_PTR(GetBurstInfoFrameLuma),
    KV_PTR(GetBurstInfoShutter),
    KV_PTR(GetBurstInfoLuxIndex),
    KV_PTR(GetBurstInfoExpIndex),
    KV_PTR(GetBurstInfoDarkBoostGain),
    KV_PTR(GetPreviewAdrcGain),
    KV_PTR(GetPreviewFrameLuma),
    KV_PTR(GetPreviewTargetLuma),
    KV_PTR(GetBurstInfoBpsIspGain),
    KV_PTR(GetQTimeStamp),
    KV_PTR(GetFrameSyncTimestamp),
    KV_PTR(GetSnapshotReqInfoUIEV),
    KV_PTR(GetPreviewISPGain),
    KV_PTR(GetPreviewExposure),
    KV_PTR(GetFaceAverageBrightness),
    KV_PTR(GetMotionVelocity),
    KV_PTR(GetTFNRExpRatio),
    KV_PTR(GetBurstInfoAdrcGain),
    KV_PTR(GetBurstInfoBpsIspGainShort),
    KV_PTR(GetIsZSLEnable),
    KV_PTR(GetGTMTable),
    KV_PTR(GetBurstInfoLinearGain),
    {"GetAWBGain",
     [](Session& s, Outs& o) {
         return s.utils.GetAWBGain(s.frame, *o.Make<kvalgo2::AWBGain>(), *o.Make<bool>());
     },
     false},  // clears its flag first
    KV_PTR(GetAWBGainAdj),
    {"GetBPSGammaOutput",
     [](Session& s, Outs& o) {
         return s.utils.GetBPSGammaOutput(s.frame, o.Make<bool>(), o.Make<float>(257));
     }},
    KV_PTR(GetPlatFormGamma),
    KV_PTR(GetDynamicGamma),
    KV_PTR(GetPreviewBrightnessInfo),
    {"GetSensorDynamicBlackLevel",
     [](Session& s, Outs& o) {
         return s.utils.GetSensorDynamicBlackLevel(s.frame, o.Make<float>(4));
     }},
    {"GetColorCorrectionTransform",
     [](Session& s, Outs& o) {
         return s.utils.GetColorCorrectionTransform(s.frame, o.Make<kvalgo2::ChiRational>(9));
     }},
    {"GetGyroData",
     [](Session& s, Outs& o) {
         auto* gyro = o.Make<AIspGyroData>();
         return s.utils.GetGyroData(s.frame, *gyro, gyro->elements, s.args.query, "fuzz");
     }},
    KV_PTR(GetHdrEnabled),
    {"GetTeleFusionEnable", [](Session& s, Outs&) { return s.utils.GetTeleFusionEnable(s.frame); }},
    KV_PTR(GetSlaveAnchorFrame),
    {"SetSlaveAnchorFrame(int*)",
     [](Session& s, Outs& o) {
         int frame = s.args.intValue;
         const int rc = s.utils.SetSlaveAnchorFrame(s.frame, &frame);
         Written(o, *s.frame, nullptr, 0x80040006);
         return rc;
     }},
    {"SetSlaveAnchorFrame(int)",
     [](Session& s, Outs& o) {
         const int rc = s.utils.SetSlaveAnchorFrame(s.frame, s.args.intValue ^ 1);
         Written(o, *s.frame, nullptr, 0x80040006);
         return rc;
     }},
    KV_PTR(GetCropRegion),
    KV_PTR(GetAndroidCropRegion),
    KV_PTR(GetActiveArraySize),
    KV_PTR(GetMaxActiveArraySize),
    KV_PTR(GetStaticActiveArraySize),
    KV_PTR(GetActiveArraySizeMain),
    {"MapRectToInput",
     [](Session& s, Outs& o) {
         const Args& a = s.args;
         return s.utils.MapRectToInput(a.src, a.refer, a.width, a.height, a.sensorRect,
                                       o.Make<__UtilsImage_Rect>());
     }},
    {"GetFinalCropRegion",
     [](Session& s, Outs& o) {
         return s.utils.GetFinalCropRegion(s.frame, *o.Make<ChiRect>(), s.args.sensor,
                                           s.args.inSensorZoom);
     }},
    KV_PTR(GetRealAvailableMinDigitalZoom),
    {"GetLensInfoShadingMapSize",
     [](Session& s, Outs& o) {
         return s.utils.GetLensInfoShadingMapSize(s.frame, o.Make<int>(2));
     }},
    KV_PTR(GetSensorBayerPatten),
    {"GetFacesInfoHolder",
     [](Session& s, Outs& o) {
         int* faces = nullptr;
         uint32_t* count = o.Make<uint32_t>();
         const int rc = s.utils.GetFacesInfoHolder(s.frame, &faces, count);
         if (rc == 0) o.Extra(faces, size_t{*count} * 36);
         return rc;
     }},
    {"GetFaceRect",
     [](Session& s, Outs& o) {
         return s.utils.GetFaceRect(s.frame, s.args.width, s.args.height,
                                    *o.Make<kvalgo2::KVFaceInfo>(), s.args.useInSensorZoom);
     },
     false},  // clears its record first
    {"GetFacesNoMap",
     [](Session& s, Outs& o) {
         return s.utils.GetFacesNoMap(s.frame, s.args.width, s.args.height,
                                      *o.Make<kvalgo2::KVFaceInfo>());
     }},
    {"GetFaceInfo",
     [](Session& s, Outs& o) {
         return s.utils.GetFaceInfo(s.frame, *o.Make<AIspFaceInfo>(), s.args.width, s.args.height);
     }},
    {"GetfocusROI",
     [](Session& s, Outs& o) {
         UtilsImageBuf image{s.args.width, s.args.height};
         return s.utils.GetfocusROI(s.frame, &image, o.Make<__UtilsImage_Rect>());
     }},
    {"GetfocusTP",
     [](Session& s, Outs& o) {
         UtilsImageBuf image{s.args.width, s.args.height};
         return s.utils.GetfocusTP(s.frame, &image, o.Make<__UtilsImage_point>());
     }},
    {"GetCameraRoleId(int)",
     [](Session& s, Outs& o) { return s.utils.GetCameraRoleId(s.args.cameraId, o.Make<int>()); }},
    {"GetCameraRoleId",
     [](Session& s, Outs& o) {
         return Call<int>(s, o,
                          static_cast<int (MetaUtils::*)(std::shared_ptr<KvMetadata>, int*)>(
                              &MetaUtils::GetCameraRoleId));
     }},
    {"GetCameraRoleId(unsigned)",
     [](Session& s, Outs& o) {
         return Call<unsigned>(
             s, o,
             static_cast<int (MetaUtils::*)(std::shared_ptr<KvMetadata>, unsigned*)>(
                 &MetaUtils::GetCameraRoleId));
     }},
    KV_PTR(GetCameraRoleIds),
    {"GetMultiCameraPhyCameraRoleIds(int)",
     [](Session& s, Outs& o) {
         std::vector<int> roles{-7};
         const int rc = s.utils.GetMultiCameraPhyCameraRoleIds(s.args.cameraId, roles);
         o.Extra(roles.data(), roles.size() * sizeof(int));
         return rc;
     }},
    {"GetMultiCameraPhyCameraRoleIds",
     [](Session& s, Outs& o) {
         std::vector<int> roles;
         const int rc = s.utils.GetMultiCameraPhyCameraRoleIds(s.frame, roles);
         o.Extra(roles.data(), roles.size() * sizeof(int));
         return rc;
     }},
    {"GetAISPSensorType",
     [](Session& s, Outs& o) {
         return s.utils.GetAISPSensorType(s.args.cameraId, *o.Make<AIspSensorType>());
     }},
    {"getAIspSensorMode",
     [](Session& s, Outs& o) {
         return s.utils.getAIspSensorMode(s.args.sensorModeType, *o.Make<bool>(), *o.Make<bool>());
     }},
    KV_PTR(GetKovaniSensorModeType),
    KV_PTR(GetSensorMode),
    KV_PTR(GetKVSensorModeInfo),
    KV_PTR(GetStaticMetaKVSensorCaps),
    KV_PTR(GetHighlightAnchorOrder),
    KV_PTR(GetStreetAnchorOrder),
    KV_PTR(GetSunsetScene),
    KV_PTR(GetAISceneIndoor),
    KV_PTR(GetMotionCaptureType),
    KV_PTR(GetMotionCaptureFrameType),
    KV_PTR(GetVXAihighlightIs),
    KV_PTR(GetBandingSceneType),
    KV_PTR(GetPreAnchorProcStatus),
    KV_PTR(GetPreAnchorProcFrameNum),
    KV_PTR(GetAISceneResult),
    KV_PTR(GetMotionCaptureAnchorOrder),
    KV_PTR(GetEcdStatus),
    KV_PTR(getEcdStatus),
    KV_PTR(GetBokehRequestInfoList),
    KV_PTR(GetBokehCapsInfo),
    KV_PTR(GetBokehConfigStream),
    KV_PTR(GetInputNum),
    {"GetImageName",
     [](Session& s, Outs& o) {
         return s.utils.GetImageName(s.frame, reinterpret_cast<char(*)[128]>(o.Make<char>(128)));
     }},
    KV_PTR(GetSceneDetectedAIResult),
    KV_PTR(GetSceneDetectedIndoor),
    {"SetBokehRequestInfoList",
     [](Session& s, Outs& o) {
         __bokehRequestInfoList info;
         kvfuzz::Poison(info, static_cast<uint8_t>(s.args.intValue));
         const int rc = s.utils.SetBokehRequestInfoList(s.frame, &info);
         Written(o, *s.frame, "com.kovani.camera.bokehConfig.request", 0);
         return rc;
     }},
};

// The refusal line of a hardened build, logged by `method` itself.
bool RefusedByItself(const std::vector<kvhost::LogRecord>& lines, const std::string& method) {
    const std::string site = "][" + method + "()]:[";
    for (const auto& r : lines) {
        if (r.sink == kvhost::LogSink::Online && r.level == 3 &&
            r.text.find(site) != std::string::npos &&
            (r.text.find(" too short: ") != std::string::npos ||
             r.text.find(" too long: ") != std::string::npos)) {
            return true;
        }
    }
    return false;
}

// The method's bare name, as its log lines give it.
std::string Bare(const char* name) {
    std::string n = name;
    return n.substr(0, n.find_first_of("(<"));
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    kvfuzz::InitProcess();
    if (const char* path = std::getenv("KVFUZZ_DIGEST")) gDigest = std::fopen(path, "w");
    // Without padding every read past a payload reaches AddressSanitizer; a
    // well-formed frame is read inside its payloads by both builds.
    kvhost::setExactPayloads(!gWellFormed);
    gTags = kvhost::knownTags();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kvfuzz::Reader in(data, size);
    Session s;
    ReadArgs(in, s.args);
    s.frame = kvhost::Metadata::create();
    std::shared_ptr<kvhost::Metadata> stat[4];
    for (uint32_t i = 0; i < 4; ++i) {
        stat[i] = kvhost::Metadata::create();
        kvhost::setStaticMetadata(i, stat[i]);
    }
    s.frame->putInt32("kovani.snapshot.fwkCameraId", {1});
    kvhost::Metadata* const containers[5] = {s.frame.get(), stat[0].get(), stat[1].get(),
                                             stat[2].get(), stat[3].get()};
    for (int records = 0; in.left() != 0 && records < 64; ++records) StoreTag(in, containers);
    s.utils.SetCameraId(s.args.cameraId, s.args.satCameraId);

    kvhost::LogCapture capture;
    for (const Method& m : kMethods) {
        capture.clear();
        Outs outs;
        const int rc = m.run(s, outs);
        const auto lines = capture.records();
        if (m.keepsOutputsOnRefusal && RefusedByItself(lines, Bare(m.name))) {
            KVFUZZ_CHECK(rc == -1, "%s refused a short tag with %d", m.name, rc);
            KVFUZZ_CHECK(outs.Untouched(), "%s refused a short tag but wrote its output", m.name);
        }
        if (gDigest != nullptr) {
            uint64_t h = 1469598103934665603ull;
            for (const auto& r : lines) {
                h = Fnv(r.text.data(), r.text.size(), Fnv(&r.level, sizeof r.level, h));
            }
            std::fprintf(gDigest, "%s %d %016llx %016llx\n", m.name, rc,
                         static_cast<unsigned long long>(outs.Hash()),
                         static_cast<unsigned long long>(h));
        }
    }
    if (gDigest != nullptr) std::fflush(gDigest);
    kvhost::clearStaticMetadata();
    return 0;
}
