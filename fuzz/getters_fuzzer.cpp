// Every getter and setter of kvalgo2::MetaUtils, from one table, on frames and
// static metadata whose tags have arbitrary element types and lengths. A
// method's arguments come from its parameter types (Arg): the frame, the
// input's values and rectangles, poisoned outputs of the sizes it fills.
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
//   loader's length rules. With KVFUZZ_DIGEST=<dir> each input's calls go
//   into <dir>/<hash of the input>, a line per call (method, result, hash
//   of the outputs, hash of the frame and the log lines), written anew each
//   time the input runs; the hash is also printed on stderr after
//   libFuzzer's "Running: <file>". scripts/fuzz.sh replays one corpus
//   through this target built on the default and on the hardened library
//   and compares the two folders input by input
//   (scripts/compare_digests.py).
#include <cinttypes>

#include "FuzzSupport.h"
#include "TagPayload.h"

namespace {

using kvalgo2::ChiRect;
using kvalgo2::MetaUtils;

constexpr bool kWellFormed = KVFUZZ_WELL_FORMED;
const char* gDigestDir = nullptr;
std::vector<kvhost::TagInfo> gTags;
std::vector<size_t> gFit;  // Fit() of each tag

// ---- Input --------------------------------------------------------------

// The values a call's value parameters take, in turn.
struct Args {
    int32_t ints[5];
    ChiRect rects[3];
    kvalgo2::KvDimension sensor;
    int8_t grid[2], cameraId, satCameraId, unused[4];
};

struct Record {
    uint8_t where, shape, typeSel, fill, head, unused;
    uint16_t which;
    uint32_t seed;
};

bool WellFormed(const kvhost::TagInfo& tag, size_t count, std::vector<uint8_t> bytes) {
    return kvhost::loader::lengthProblem({&tag, count, std::move(bytes)}).empty();
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

void StoreTag(const uint8_t*& data, size_t& size,
              const std::shared_ptr<kvhost::Metadata> (&containers)[5]) {
    const Record r = kvfuzz::Take<Record>(data, size);
    const size_t t = r.which % gTags.size();
    const kvhost::TagInfo& tag = gTags[t];
    kvhost::TagType type = tag.type;
    if (!kWellFormed && (r.typeSel & 0x80) != 0)
        type = static_cast<kvhost::TagType>((r.typeSel & 0x7F) % 6);
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
        x = x * 1664525u + 1013904223u;
        // Zeros, noise, small words (camera ids, flags, region counts), ones.
        const uint8_t fills[4] = {0, uint8_t(x >> 24), uint8_t(i % 4 == 0 ? x >> 30 : 0), 0xFF};
        bytes[i] = i < r.head ? kvfuzz::Take<uint8_t>(data, size) : fills[r.fill % 4];
    }
    if (kWellFormed && !WellFormed(tag, count, bytes)) return;
    const int rc = containers[r.where % 5]->putAnyType(tag.id, type, bytes.data(), count);
    KVFUZZ_CHECK(rc == 0, "the host container refused a tag: %d", rc);
}

// ---- Calls ----------------------------------------------------------------

uint64_t Fnv(const void* data, size_t n, uint64_t h = 1469598103934665603ull) {
    const auto* p = static_cast<const uint8_t*>(data);
    for (size_t i = 0; i < n; ++i) h = (h ^ p[i]) * 1099511628211ull;
    return h;
}

// One input's calls: the object, the frame, the input's values, and the
// outputs of the call under way, each made poisoned before the call.
struct Session {
    MetaUtils utils;
    std::shared_ptr<kvhost::Metadata> frame;
    Args args;
    UtilsImageBuf image;
    void* data = nullptr;
    size_t ints = 0, rects = 0, elements = 1;
    std::vector<std::vector<uint8_t>> outs, before;
    uint64_t extra = 0;      // bytes the call produced elsewhere (a payload handed out)
    std::vector<int> roles;  // the role list a call fills

    template <typename T>
    T* Make(size_t n = 1) {
        outs.emplace_back(sizeof(T) * n);
        auto& b = outs.back();
        for (size_t i = 0; i < b.size(); ++i) b[i] = uint8_t(0xA5 ^ (i + outs.size()));
        before.push_back(b);
        return reinterpret_cast<T*>(b.data());
    }
    uint64_t Hash() const {
        uint64_t h = Fnv(roles.data(), roles.size() * sizeof(int), extra);
        for (const auto& b : outs) h = Fnv(b.data(), b.size(), h);
        return h;
    }
};

using Frame = std::shared_ptr<KvMetadata>;
using Roles = std::vector<int>&;  // a role list a call fills

// The argument of type T of a call: the frame, the image, where a payload
// handed out goes, a tag name (or gyro query key), the sensor size, the next
// rectangle or value of the input, or a poisoned output of `elements`
// elements (one for a reference).
template <typename T>
T Arg(Session& s) {
    const std::tuple<Frame, UtilsImageBuf*, void**, const char*, kvalgo2::KvDimension,
                     std::vector<int>&>
        fixed{s.frame, &s.image, &s.data, "kovani.snapshot.fwkCameraId", s.args.sensor, s.roles};
    using Out = std::remove_pointer_t<std::remove_reference_t<T>>;
    if constexpr (std::is_same<T, ChiRect>::value) {
        return s.args.rects[s.rects++ % 3];
    } else if constexpr (std::is_pointer<T>::value && !std::is_same<T, UtilsImageBuf*>::value &&
                         !std::is_same<T, void**>::value && !std::is_same<T, const char*>::value) {
        return s.Make<Out>(s.elements);
    } else if constexpr (std::is_reference<T>::value &&
                         !std::is_same<Out, std::vector<int>>::value) {
        return *s.Make<Out>();
    } else if constexpr (std::is_arithmetic<T>::value) {
        return static_cast<T>(s.args.ints[s.ints++ % 5]);
    } else {
        return std::get<T>(fixed);
    }
}

template <typename... A>
int Call(Session& s, int (MetaUtils::*m)(A...)) {
    return (s.utils.*m)(Arg<A>(s)...);
}

using Method = std::pair<const char*, int (*)(Session&)>;  // name, call

int Lsc(Session& s) {
    int grid[2] = {s.args.grid[0], s.args.grid[1]};
    if (kWellFormed) {
        // A grid that fits the map, as the lens's static size promises.
        const int32_t points = static_cast<int32_t>(s.frame->find(0x11000Bu).count / 4);
        grid[0] = points == 0 ? 0 : std::abs(grid[0]) % (points + 1);
        grid[1] = grid[0] == 0 ? std::abs(grid[1]) : points / grid[0];
    }
    // The caller's map holds the grid it names.
    const size_t n = size_t(std::abs(grid[0])) * size_t(std::abs(grid[1])) * 4;
    return s.utils.GetLSC(s.frame, grid, s.Make<float>(n + 1));
}

int FacesHolder(Session& s) {
    int* faces = nullptr;
    uint32_t* count = s.Make<uint32_t>();
    const int rc = s.utils.GetFacesInfoHolder(s.frame, &faces, count);
    if (rc == 0) s.extra = Fnv(faces, size_t{*count} * 36);
    return rc;
}

// SetMetaData<T> on a tag of T's type, by name or by id.
template <typename T>
int SetMeta(Session& s, const char* name, uint32_t id = 0) {
    T value = static_cast<T>(s.args.ints[4]);
    return s.utils.SetMetaData<T>(s.frame, name, id, &value, 1);
}

// Every method: its arguments made by Arg from its parameter types (KV),
// with `n` elements for each pointer output (KV_N), an overload named by its
// parameters (KV_AS), SetMetaData<T> (KV_SET), or by a function of its own.
// clang-format off
#define KV_N(m, n) {#m, [](Session& s) { s.elements = n; return Call(s, &MetaUtils::m); }}
#define KV(m) KV_N(m, 1)
#define KV_AS(m, ...) {#m "(" #__VA_ARGS__ ")", [](Session& s) { \
    return Call(s, static_cast<int (MetaUtils::*)(__VA_ARGS__)>(&MetaUtils::m)); }}
#define KV_SET(T, ...) {"SetMetaData<" #T ">", [](Session& s) { \
    return SetMeta<T>(s, __VA_ARGS__); }}
const Method kMethods[] = {
    KV(GetPhyCameraId), KV(GetSensorExposureTime), KV(GetAndroidJpegOrientation),
    KV(GetStylizationType), KV(GetSensorTimestamp), KV(GetWhiteBlackRatio),
    KV(GetSensorDynamicWhiteLevel), KV(GetAndroidTimeStamp), KV(GetfocusDistCm), KV(GetSensitivity),
    KV(GetAFState), KV(GetAFMode), KV(GetIsZSLEnableReal), KV(GetANDROIDFlashMode),
    KV(GetVXFlashMode), KV(GetAndroidSensorFrameDuration), KV(GetVXPanshotFeatureEnable),
    KV(GetAndroidZoomRatio), KV(GetZoomEisEffective), KV(GetApertureValue), KV(GetFwkCameraId),
    KV(GetThermalLevel), KV(GetLaserDist), KV(GetSmartAeInfo), KV(SetIspGain), KV(SetHazeratio),
    KV(SetAIToneFlag), KV(GetTimestamp), KV(GetCCT), KV(GetBurstInfoFaceLuma),
    KV(GetBurstInfoFrameLuma), KV(GetBurstInfoShutter), KV(GetBurstInfoLuxIndex),
    KV(GetBurstInfoExpIndex), KV(GetBurstInfoDarkBoostGain), KV(GetPreviewAdrcGain),
    KV(GetPreviewFrameLuma), KV(GetPreviewTargetLuma), KV(GetBurstInfoBpsIspGain),
    KV(GetQTimeStamp), KV(GetFrameSyncTimestamp), KV(GetSnapshotReqInfoUIEV), KV(GetPreviewISPGain),
    KV(GetPreviewExposure), KV(GetFaceAverageBrightness), KV(GetMotionVelocity),
    KV(GetTFNRExpRatio), KV(GetBurstInfoAdrcGain), KV(GetBurstInfoBpsIspGainShort),
    KV(GetIsZSLEnable), KV(GetGTMTable), KV(GetBurstInfoLinearGain), KV(GetAWBGainAdj),
    KV(GetPlatFormGamma), KV(GetDynamicGamma), KV(GetPreviewBrightnessInfo), KV(GetHdrEnabled),
    KV(GetSlaveAnchorFrame), KV(GetCropRegion), KV(GetAndroidCropRegion), KV(GetActiveArraySize),
    KV(GetMaxActiveArraySize), KV(GetStaticActiveArraySize), KV(GetActiveArraySizeMain),
    KV(GetRealAvailableMinDigitalZoom), KV(GetSensorBayerPatten), KV(GetCameraRoleIds),
    KV(GetKovaniSensorModeType), KV(GetSensorMode), KV(GetKVSensorModeInfo),
    KV(GetStaticMetaKVSensorCaps), KV(GetHighlightAnchorOrder), KV(GetStreetAnchorOrder),
    KV(GetSunsetScene), KV(GetAISceneIndoor), KV(GetMotionCaptureType),
    KV(GetMotionCaptureFrameType), KV(GetVXAihighlightIs), KV(GetBandingSceneType),
    KV(GetPreAnchorProcStatus), KV(GetPreAnchorProcFrameNum), KV(GetAISceneResult),
    KV(GetMotionCaptureAnchorOrder), KV(GetEcdStatus), KV(getEcdStatus),
    KV(GetBokehRequestInfoList), KV(GetBokehCapsInfo), KV(GetBokehConfigStream), KV(GetInputNum),
    KV(GetSceneDetectedAIResult), KV(GetSceneDetectedIndoor), KV(SetBokehRequestInfoList),
    KV(GetImageName), KV(GetAWBGain), KV(GetTeleFusionEnable), KV(SetCameraId), KV(GetMetaData),
    KV(MapRectToInput), KV(GetFinalCropRegion), KV(GetFaceRect), KV(GetFacesNoMap), KV(GetFaceInfo),
    KV(GetfocusROI), KV(GetfocusTP), KV(GetAISPSensorType), KV(getAIspSensorMode),
    KV_N(GetSensorDynamicBlackLevel, 4), KV_N(GetColorCorrectionTransform, 9),
    KV_N(GetLensInfoShadingMapSize, 2), KV_N(GetGyroData, 200),
    KV_AS(GetCameraRoleId, Frame, int*), KV_AS(GetCameraRoleId, Frame, unsigned*),
    KV_AS(GetCameraRoleId, int, int*), KV_AS(SetSlaveAnchorFrame, Frame, int*),
    KV_AS(SetSlaveAnchorFrame, Frame, int), KV_AS(GetMultiCameraPhyCameraRoleIds, int, Roles),
    KV_AS(GetMultiCameraPhyCameraRoleIds, Frame, Roles), {"GetLSC", Lsc},
    {"GetFacesInfoHolder", FacesHolder},
    KV_SET(float, nullptr, 0x1002F), KV_SET(int, "kovani.thermal.thermalLevel"),
    KV_SET(uint8_t, "kovani.hdr.enabled"),
    {"GetBPSGammaOutput", [](Session& s) {
        return s.utils.GetBPSGammaOutput(s.frame, s.Make<bool>(), s.Make<float>(257)); }},
};
// clang-format on

// The refusal line of a hardened build, logged by the method `name` itself.
bool RefusedByItself(const std::vector<kvhost::LogRecord>& lines, const std::string& name) {
    const std::string site = "][" + name.substr(0, name.find_first_of("(<")) + "()]:[";
    return std::any_of(lines.begin(), lines.end(), [&](const kvhost::LogRecord& r) {
        return r.sink == kvhost::LogSink::Online && r.level == 3 &&
               r.text.find(site) != std::string::npos && r.text.find(" too ") != std::string::npos;
    });
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    kvfuzz::InitProcess();
    gDigestDir = std::getenv("KVFUZZ_DIGEST");
    // Without padding every read past a payload reaches AddressSanitizer; a
    // well-formed frame is read inside its payloads by both builds.
    kvhost::setExactPayloads(!kWellFormed);
    gTags = kvhost::knownTags();
    for (const kvhost::TagInfo& tag : gTags) gFit.push_back(Fit(tag));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const uint8_t* const data0 = data;
    const size_t size0 = size;
    Session s;
    s.args = kvfuzz::Take<Args>(data, size);
    s.image = UtilsImageBuf{s.args.ints[0], s.args.ints[1]};
    // The frame, then the static metadata of cameras 0 to 3.
    std::shared_ptr<kvhost::Metadata> containers[5];
    for (uint32_t i = 0; i < 5; ++i) {
        containers[i] = kvhost::Metadata::create();
        if (i > 0) kvhost::setStaticMetadata(i - 1, containers[i]);
    }
    s.frame = containers[0];
    s.frame->putInt32("kovani.snapshot.fwkCameraId", {1});
    for (int records = 0; size != 0 && records < 64; ++records) StoreTag(data, size, containers);
    s.utils.SetCameraId(s.args.cameraId, s.args.satCameraId);

    // The input's digest file, named by the input's bytes: an input that
    // runs twice writes the same file twice.
    FILE* digest = nullptr;
    if (gDigestDir != nullptr) {
        char key[17];
        std::snprintf(key, sizeof key, "%016" PRIx64, Fnv(data0, size0));
        const std::string path = std::string(gDigestDir) + "/" + key;
        digest = std::fopen(path.c_str(), "w");
        KVFUZZ_CHECK(digest != nullptr, "cannot write %s", path.c_str());
        std::fprintf(stderr, "kvfuzz digest %s\n", key);
    }
    kvhost::LogCapture capture;
    for (const auto& [name, run] : kMethods) {
        capture.clear();
        s.ints = s.rects = 0;
        s.elements = 1;
        s.outs.clear();
        s.before.clear();
        s.extra = 0;
        s.roles = {-7};
        const int rc = run(s);
        const auto lines = capture.records();
        // GetAWBGain clears its flag and GetFaceRect its record first.
        const bool clears =
            std::strcmp(name, "GetAWBGain") == 0 || std::strcmp(name, "GetFaceRect") == 0;
        if (!clears && RefusedByItself(lines, name)) {
            KVFUZZ_CHECK(rc == -1 && s.outs == s.before,
                         "%s refused a short tag with %d or wrote its output", name, rc);
        }
        if (digest != nullptr) {
            // Every tag of the frame (what the setters left there) and the log lines.
            uint64_t h = Fnv(nullptr, 0);
            for (const kvhost::TagInfo& tag : gTags) {
                const camera_metadata_ro_entry_t e = s.frame->find(tag.id);
                h = Fnv(e.data.u8,
                        e.count == 0 ? 0 : e.count * kvhost::typeSize(kvhost::TagType(e.type)),
                        Fnv(&e.count, sizeof e.count, h));
            }
            for (const auto& r : lines)
                h = Fnv(r.text.data(), r.text.size(), Fnv(&r.level, sizeof r.level, h));
            std::fprintf(digest, "%s %d %016" PRIx64 " %016" PRIx64 "\n", name, rc, s.Hash(), h);
        }
    }
    if (digest != nullptr) std::fclose(digest);
    kvhost::clearStaticMetadata();
    return 0;
}
