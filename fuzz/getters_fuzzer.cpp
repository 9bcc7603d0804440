// Every getter and setter of kvalgo2::MetaUtils, from one table, on frames and
// static metadata whose tags have arbitrary element types and lengths.
//
// Input: the call arguments (Args), then records until the input ends, each
// storing one tag of the host table into the frame or into the static
// metadata of camera 0 to 3: present with count 0, or with a count drawn
// around the length the library reads (the capture loader's length rules
// give it: a few elements, one less, one more, or far more), of its declared
// element type or any other, its bytes from the input over a fill pattern.
//
// Two executables of this source:
// - getters_fuzzer: the frames above, on a container without payload padding
//   (kvhost::setExactPayloads), so AddressSanitizer reports any read past a
//   payload's end. Built on the hardened library, every input must run clean,
//   and a method that refuses a short tag must return -1 with its outputs
//   untouched.
// - getters_wellformed_fuzzer: only tags of their declared type that pass the
//   loader's length rules. With KVFUZZ_DIGEST=<file> each call appends a line
//   (method, result, hash of the outputs and of the frame, hash of the log
//   lines): scripts/fuzz.sh replays one corpus through this target built on
//   the default and on the hardened library and compares the two files.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "TagPayload.h"

namespace {

using kvalgo2::ChiRect;
using kvalgo2::MetaUtils;
using kvhost::TagType;

#if defined(KVFUZZ_WELL_FORMED)
constexpr bool kWellFormed = true;
#else
constexpr bool kWellFormed = false;
#endif
FILE* gDigest = nullptr;
std::vector<kvhost::TagInfo> gTags;
std::vector<size_t> gFit;  // Fit() of each tag

// ---- Input --------------------------------------------------------------

struct Args {
    int32_t width, height, query, intValue;
    float floatValue;
    ChiRect src, refer, sensorRect;
    kvalgo2::KvDimension sensor;
    int8_t grid[2], cameraId, satCameraId, sensorModeType;
    uint8_t inSensorZoom, useInSensorZoom, unused;
};

struct Record {
    uint8_t where, shape, typeSel, fill, head, unused;
    uint16_t which;
    uint32_t seed;
};

bool WellFormed(const kvhost::TagInfo& tag, size_t count, const std::vector<uint8_t>& bytes) {
    return kvhost::loader::lengthProblem({&tag, count, bytes}).empty();
}

// The fewest elements of the tag's declared type that its length rules accept.
size_t Fit(const kvhost::TagInfo& tag) {
    const auto fine = [&](size_t n) {
        return WellFormed(tag, n, std::vector<uint8_t>(n * kvhost::typeSize(tag.type)));
    };
    size_t hi = 1;
    while (!fine(hi) && hi < (size_t{1} << 20)) hi *= 2;
    size_t lo = hi / 2;
    while (hi - lo > 1) (fine((lo + hi) / 2) ? hi : lo) = (lo + hi) / 2;
    return hi;
}

void StoreTag(kvfuzz::Input& in, kvhost::Metadata* const (&containers)[5]) {
    const Record r = in.Take<Record>();
    const size_t t = r.which % gTags.size();
    const kvhost::TagInfo& tag = gTags[t];
    TagType type = tag.type;
    if (!kWellFormed && (r.typeSel & 0x80) != 0)
        type = static_cast<TagType>((r.typeSel & 0x7F) % 6);
    const size_t element = kvhost::typeSize(type);
    const size_t fit = (gFit[t] * kvhost::typeSize(tag.type) + element - 1) / element;
    const size_t spread[8] = {1, 1, 4, 4, 64, 512, 512, 512};
    size_t count = fit + r.seed % spread[r.shape % 8];
    if (!kWellFormed && r.shape % 8 < 2)
        count = r.shape % 8 == 0 ? 0 : std::max<size_t>(fit, 2) - 1;
    if (!kWellFormed && r.shape % 8 == 4) count = 1 + r.seed % 16;
    std::vector<uint8_t> bytes(count * element);
    uint32_t x = r.seed | 1;
    for (size_t i = 0; i < bytes.size(); ++i) {
        x ^= x << 13;
        x ^= x >> 17;
        x ^= x << 5;
        // Zeros, noise, small words (camera ids, flags, region counts), ones.
        const uint8_t fills[4] = {0, uint8_t(x), uint8_t(i % 4 == 0 ? x % 4 : 0), 0xFF};
        bytes[i] = i < r.head ? in.Take<uint8_t>() : fills[r.fill % 4];
    }
    if (kWellFormed && !WellFormed(tag, count, bytes)) return;
    kvfuzz::Stored(containers[r.where % 5]->putAnyType(tag.id, type, bytes.data(), count));
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
        for (size_t i = 0; i < b.size(); ++i) b[i] = uint8_t(0xA5 ^ (i + blocks_.size()));
        before_.push_back(b);
        return reinterpret_cast<T*>(b.data());
    }
    // Bytes the call produced that live elsewhere (a payload handed out).
    void Extra(const void* data, size_t n) { hash_ = Fnv(data, n, hash_); }
    bool Untouched() const { return blocks_ == before_; }
    uint64_t Hash() const {
        uint64_t h = hash_;
        for (const auto& b : blocks_) h = Fnv(b.data(), b.size(), h);
        return h;
    }

private:
    std::vector<std::vector<uint8_t>> blocks_, before_;
    uint64_t hash_ = 0;
};

struct Session {
    MetaUtils utils;
    std::shared_ptr<kvhost::Metadata> frame;
    Args args;
    UtilsImageBuf image;
    void* data = nullptr;
};

struct Method {
    const char* name;
    int (*run)(Session&, Outs&);
};

// int Method(std::shared_ptr<KvMetadata>, T* or T&[, int]) with `n` outputs.
template <typename T>
int Call(Session& s, Outs& o, int (MetaUtils::*m)(std::shared_ptr<KvMetadata>, T*), size_t n = 1) {
    return (s.utils.*m)(s.frame, o.Make<T>(n));
}
template <typename T>
int Call(Session& s, Outs& o, int (MetaUtils::*m)(std::shared_ptr<KvMetadata>, T*, int)) {
    return (s.utils.*m)(s.frame, o.Make<T>(), s.args.intValue);
}
template <typename T>
int Call(Session& s, Outs& o, int (MetaUtils::*m)(std::shared_ptr<KvMetadata>, T&)) {
    return (s.utils.*m)(s.frame, *o.Make<T>());
}
#define KV_CALL(name, ...)                                                \
    {                                                                     \
        name, [](Session& s, Outs& o) { return Call(s, o, __VA_ARGS__); } \
    }
#define KV_PTR(m) KV_CALL(#m, &MetaUtils::m)

template <typename T>
int SetMeta(Session& s, const char* name, uint32_t id) {
    T value = static_cast<T>(s.args.intValue);
    return s.utils.SetMetaData<T>(s.frame, name, id, &value, 1);
}

// Methods of the form int M(std::shared_ptr<KvMetadata>, T* or T&[, int]).
// clang-format off
const Method kPlain[] = {
    KV_PTR(GetPhyCameraId), KV_PTR(GetSensorExposureTime), KV_PTR(GetAndroidJpegOrientation),
    KV_PTR(GetStylizationType), KV_PTR(GetSensorTimestamp), KV_PTR(GetWhiteBlackRatio),
    KV_PTR(GetSensorDynamicWhiteLevel), KV_PTR(GetAndroidTimeStamp), KV_PTR(GetfocusDistCm),
    KV_PTR(GetSensitivity), KV_PTR(GetAFState), KV_PTR(GetAFMode), KV_PTR(GetIsZSLEnableReal),
    KV_PTR(GetANDROIDFlashMode), KV_PTR(GetVXFlashMode), KV_PTR(GetAndroidSensorFrameDuration),
    KV_PTR(GetVXPanshotFeatureEnable), KV_PTR(GetAndroidZoomRatio), KV_PTR(GetZoomEisEffective),
    KV_PTR(GetApertureValue), KV_PTR(GetFwkCameraId), KV_PTR(GetThermalLevel), KV_PTR(GetLaserDist),
    KV_PTR(GetSmartAeInfo), KV_PTR(SetIspGain), KV_PTR(SetHazeratio), KV_PTR(SetAIToneFlag),
    KV_PTR(GetTimestamp), KV_PTR(GetCCT), KV_PTR(GetBurstInfoFaceLuma),
    KV_PTR(GetBurstInfoFrameLuma), KV_PTR(GetBurstInfoShutter), KV_PTR(GetBurstInfoLuxIndex),
    KV_PTR(GetBurstInfoExpIndex), KV_PTR(GetBurstInfoDarkBoostGain), KV_PTR(GetPreviewAdrcGain),
    KV_PTR(GetPreviewFrameLuma), KV_PTR(GetPreviewTargetLuma), KV_PTR(GetBurstInfoBpsIspGain),
    KV_PTR(GetQTimeStamp), KV_PTR(GetFrameSyncTimestamp), KV_PTR(GetSnapshotReqInfoUIEV),
    KV_PTR(GetPreviewISPGain), KV_PTR(GetPreviewExposure), KV_PTR(GetFaceAverageBrightness),
    KV_PTR(GetMotionVelocity), KV_PTR(GetTFNRExpRatio), KV_PTR(GetBurstInfoAdrcGain),
    KV_PTR(GetBurstInfoBpsIspGainShort), KV_PTR(GetIsZSLEnable), KV_PTR(GetGTMTable),
    KV_PTR(GetBurstInfoLinearGain), KV_PTR(GetAWBGainAdj), KV_PTR(GetPlatFormGamma),
    KV_PTR(GetDynamicGamma), KV_PTR(GetPreviewBrightnessInfo), KV_PTR(GetHdrEnabled),
    KV_PTR(GetSlaveAnchorFrame), KV_PTR(GetCropRegion), KV_PTR(GetAndroidCropRegion),
    KV_PTR(GetActiveArraySize), KV_PTR(GetMaxActiveArraySize), KV_PTR(GetStaticActiveArraySize),
    KV_PTR(GetActiveArraySizeMain), KV_PTR(GetRealAvailableMinDigitalZoom),
    KV_PTR(GetSensorBayerPatten), KV_PTR(GetCameraRoleIds), KV_PTR(GetKovaniSensorModeType),
    KV_PTR(GetSensorMode), KV_PTR(GetKVSensorModeInfo), KV_PTR(GetStaticMetaKVSensorCaps),
    KV_PTR(GetHighlightAnchorOrder), KV_PTR(GetStreetAnchorOrder), KV_PTR(GetSunsetScene),
    KV_PTR(GetAISceneIndoor), KV_PTR(GetMotionCaptureType), KV_PTR(GetMotionCaptureFrameType),
    KV_PTR(GetVXAihighlightIs), KV_PTR(GetBandingSceneType), KV_PTR(GetPreAnchorProcStatus),
    KV_PTR(GetPreAnchorProcFrameNum), KV_PTR(GetAISceneResult), KV_PTR(GetMotionCaptureAnchorOrder),
    KV_PTR(GetEcdStatus), KV_PTR(getEcdStatus), KV_PTR(GetBokehRequestInfoList),
    KV_PTR(GetBokehCapsInfo), KV_PTR(GetBokehConfigStream), KV_PTR(GetInputNum),
    KV_PTR(GetSceneDetectedAIResult), KV_PTR(GetSceneDetectedIndoor),
    KV_PTR(SetBokehRequestInfoList), KV_PTR(GetImageName),
};
// clang-format on

int Lsc(Session& s, Outs& o) {
    int grid[2] = {s.args.grid[0], s.args.grid[1]};
    if (kWellFormed) {
        // A grid that fits the map, as the lens's static size promises.
        const int32_t points = static_cast<int32_t>(s.frame->find(0x11000Bu).count / 4);
        grid[0] = points == 0 ? 0 : std::abs(grid[0]) % (points + 1);
        grid[1] = grid[0] == 0 ? std::abs(grid[1]) : points / grid[0];
    }
    // The caller's map holds the grid it names.
    const size_t n = size_t(std::abs(grid[0])) * size_t(std::abs(grid[1])) * 4;
    return s.utils.GetLSC(s.frame, grid, o.Make<float>(n + 1));
}

int FacesHolder(Session& s, Outs& o) {
    int* faces = nullptr;
    uint32_t* count = o.Make<uint32_t>();
    const int rc = s.utils.GetFacesInfoHolder(s.frame, &faces, count);
    if (rc == 0) o.Extra(faces, size_t{*count} * 36);
    return rc;
}

int RoleIds(Session& s, Outs& o) {
    std::vector<int> roles{-7}, frameRoles;
    roles.push_back(s.utils.GetMultiCameraPhyCameraRoleIds(s.args.cameraId, roles));
    const int rc = s.utils.GetMultiCameraPhyCameraRoleIds(s.frame, frameRoles);
    roles.insert(roles.end(), frameRoles.begin(), frameRoles.end());
    o.Extra(roles.data(), roles.size() * sizeof(int));
    return rc;
}

// The others: several outputs or elements, arguments, overloads.
#define KV_RUN(name, ...)                      \
    {                                          \
        name, [](Session& s, Outs& o) -> int { \
            const Args& a = s.args;            \
            (void)a, (void)o;                  \
            return __VA_ARGS__;                \
        }                                      \
    }
const Method kMethods[] = {
    KV_RUN("GetSensorDynamicBlackLevel", Call(s, o, &MetaUtils::GetSensorDynamicBlackLevel, 4)),
    KV_RUN("GetColorCorrectionTransform", Call(s, o, &MetaUtils::GetColorCorrectionTransform, 9)),
    KV_RUN("GetLensInfoShadingMapSize", Call(s, o, &MetaUtils::GetLensInfoShadingMapSize, 2)),
    KV_RUN("GetCameraRoleId(int*)", Call<int>(s, o, &MetaUtils::GetCameraRoleId)),
    KV_RUN("GetCameraRoleId(unsigned*)", Call<unsigned>(s, o, &MetaUtils::GetCameraRoleId)),
    KV_RUN("SetSlaveAnchorFrame(int*)", Call<int>(s, o, &MetaUtils::SetSlaveAnchorFrame)),
    KV_RUN("SetSlaveAnchorFrame(int)", s.utils.SetSlaveAnchorFrame(s.frame, a.intValue ^ 1)),
    KV_RUN("SetCameraId", s.utils.SetCameraId(a.cameraId, a.satCameraId)),
    KV_RUN("GetMetaData", s.utils.GetMetaData(s.frame, "kovani.snapshot.fwkCameraId", 0, &s.data,
                                              o.Make<uint32_t>())),
    KV_RUN("SetMetaData<float>", SetMeta<float>(s, nullptr, 0x1002F)),
    KV_RUN("SetMetaData<int>", SetMeta<int>(s, "kovani.thermal.thermalLevel", 0)),
    KV_RUN("SetMetaData<unsigned char>", SetMeta<unsigned char>(s, "kovani.hdr.enabled", 0)),
    KV_RUN("GetLSC", Lsc(s, o)),
    KV_RUN("GetAWBGain", s.utils.GetAWBGain(s.frame, *o.Make<kvalgo2::AWBGain>(), *o.Make<bool>())),
    KV_RUN("GetBPSGammaOutput",
           s.utils.GetBPSGammaOutput(s.frame, o.Make<bool>(), o.Make<float>(257))),
    KV_RUN("GetGyroData",
           s.utils.GetGyroData(s.frame, *o.Make<AIspGyroData>(),
                               o.Make<AIspGyroData::GyroElement>(200), a.query, "fuzz")),
    KV_RUN("GetTeleFusionEnable", s.utils.GetTeleFusionEnable(s.frame)),
    KV_RUN("MapRectToInput", s.utils.MapRectToInput(a.src, a.refer, a.width, a.height, a.sensorRect,
                                                    o.Make<__UtilsImage_Rect>())),
    KV_RUN("GetFinalCropRegion",
           s.utils.GetFinalCropRegion(s.frame, *o.Make<ChiRect>(), a.sensor, a.inSensorZoom & 1)),
    KV_RUN("GetFacesInfoHolder", FacesHolder(s, o)),
    KV_RUN("GetFaceRect",
           s.utils.GetFaceRect(s.frame, a.width, a.height, *o.Make<kvalgo2::KVFaceInfo>(),
                               a.useInSensorZoom & 1)),
    KV_RUN("GetFacesNoMap",
           s.utils.GetFacesNoMap(s.frame, a.width, a.height, *o.Make<kvalgo2::KVFaceInfo>())),
    KV_RUN("GetFaceInfo", s.utils.GetFaceInfo(s.frame, *o.Make<AIspFaceInfo>(), a.width, a.height)),
    KV_RUN("GetfocusROI", s.utils.GetfocusROI(s.frame, &s.image, o.Make<__UtilsImage_Rect>())),
    KV_RUN("GetfocusTP", s.utils.GetfocusTP(s.frame, &s.image, o.Make<__UtilsImage_point>())),
    KV_RUN("GetCameraRoleId(int)", s.utils.GetCameraRoleId(a.cameraId, o.Make<int>())),
    KV_RUN("GetMultiCameraPhyCameraRoleIds", RoleIds(s, o)),
    KV_RUN("GetAISPSensorType", s.utils.GetAISPSensorType(a.cameraId, *o.Make<AIspSensorType>())),
    KV_RUN("getAIspSensorMode",
           s.utils.getAIspSensorMode(a.sensorModeType, *o.Make<bool>(), *o.Make<bool>())),
};

// The refusal line of a hardened build, logged by the method `name` itself.
bool RefusedByItself(const std::vector<kvhost::LogRecord>& lines, const std::string& name) {
    const std::string site = "][" + name.substr(0, name.find_first_of("(<")) + "()]:[";
    return std::any_of(lines.begin(), lines.end(), [&](const kvhost::LogRecord& r) {
        return r.sink == kvhost::LogSink::Online && r.level == 3 &&
               r.text.find(site) != std::string::npos &&
               (r.text.find(" too short: ") != std::string::npos ||
                r.text.find(" too long: ") != std::string::npos);
    });
}

// Every tag of the frame: what the setters left there.
uint64_t FrameHash(const kvhost::Metadata& frame) {
    uint64_t h = Fnv(nullptr, 0);
    for (const kvhost::TagInfo& tag : gTags) {
        const camera_metadata_ro_entry_t e = frame.find(tag.id);
        h = Fnv(&e.count, sizeof e.count, h);
        if (e.count != 0) h = Fnv(e.data.u8, e.count * kvhost::typeSize(TagType(e.type)), h);
    }
    return h;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    kvfuzz::InitProcess();
    if (const char* path = std::getenv("KVFUZZ_DIGEST")) gDigest = std::fopen(path, "w");
    // Without padding every read past a payload reaches AddressSanitizer; a
    // well-formed frame is read inside its payloads by both builds.
    kvhost::setExactPayloads(!kWellFormed);
    gTags = kvhost::knownTags();
    for (const kvhost::TagInfo& tag : gTags) gFit.push_back(Fit(tag));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kvfuzz::Input in(data, size);
    Session s;
    s.args = in.Take<Args>();
    s.image = UtilsImageBuf{s.args.width, s.args.height};
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
    std::vector<Method> methods(std::begin(kPlain), std::end(kPlain));
    methods.insert(methods.end(), std::begin(kMethods), std::end(kMethods));
    for (const Method& m : methods) {
        capture.clear();
        Outs outs;
        const int rc = m.run(s, outs);
        const auto lines = capture.records();
        // GetAWBGain clears its flag and GetFaceRect its record first.
        const bool clears =
            std::strcmp(m.name, "GetAWBGain") == 0 || std::strcmp(m.name, "GetFaceRect") == 0;
        if (!clears && RefusedByItself(lines, m.name)) {
            KVFUZZ_CHECK(rc == -1, "%s refused a short tag with %d", m.name, rc);
            KVFUZZ_CHECK(outs.Untouched(), "%s refused a short tag but wrote its output", m.name);
        }
        if (gDigest != nullptr) {
            uint64_t h = Fnv(nullptr, 0);
            for (const auto& r : lines) {
                h = Fnv(r.text.data(), r.text.size(), Fnv(&r.level, sizeof r.level, h));
            }
            std::fprintf(gDigest, "%s %d %016llx %016llx %016llx\n", m.name, rc,
                         static_cast<unsigned long long>(outs.Hash()),
                         static_cast<unsigned long long>(FrameHash(*s.frame)),
                         static_cast<unsigned long long>(h));
        }
    }
    if (gDigest != nullptr) std::fflush(gDigest);
    kvhost::clearStaticMetadata();
    return 0;
}
