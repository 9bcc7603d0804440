#include "Getters.h"

#include <dlfcn.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <typeinfo>

#include "KvMetadata.h"
#include "TagPayload.h"
#include "Values.h"

namespace inspect {
namespace {

using kvalgo2::MetaUtils;
using Md = std::shared_ptr<KvMetadata>;

constexpr const char* kCore = "Metadata access core";
constexpr const char* kStats = "Capture statistics and burst metadata";
constexpr const char* kGeometry = "Image geometry";
constexpr const char* kIdentity = "Camera identity, sensor modes and platform adapter";
constexpr const char* kScene = "Scene detection, anchor-frame and bokeh metadata";

constexpr uint32_t kShadingMapSize = 0x90006;   // ANDROID_LENS_INFO_SHADING_MAP_SIZE
constexpr uint32_t kLensShadingMap = 0x11000B;  // ANDROID_STATISTICS_LENS_SHADING_MAP

// ---- Calls of the common shapes ---------------------------------------------

// The library writes its outputs only on success, so only then is there an
// output to show.
template <typename T>
Outcome done(int rc, const T& v) {
    return Outcome{rc, rc == 0 ? value(v) : Json(), ""};
}

template <typename T>
Outcome read(Call& c, int (MetaUtils::*f)(Md, T*)) {
    T v{};
    const int rc = (c.utils.*f)(c.md, &v);
    return done(rc, v);
}

// The trailing int of these getters is ignored by the library.
template <typename T>
Outcome read(Call& c, int (MetaUtils::*f)(Md, T*, int)) {
    T v{};
    const int rc = (c.utils.*f)(c.md, &v, 0);
    return done(rc, v);
}

template <typename T>
Outcome read(Call& c, int (MetaUtils::*f)(Md, T&)) {
    T v{};
    const int rc = (c.utils.*f)(c.md, v);
    return done(rc, v);
}

// A getter with one output.
template <auto F>
Outcome plain(Call& c) {
    return read(c, F);
}

// A getter that only reports whether its tag is there: it writes nothing.
template <auto F>
Outcome presence(Call& c) {
    Outcome o = read(c, F);
    o.output = nullptr;
    return o;
}

// The gamma tables are written whatever the result.
template <auto F>
Outcome gammaTable(Call& c) {
    AIspGammaTbl table{};
    const int rc = (c.utils.*F)(c.md, table);
    return Outcome{rc, value(table), ""};
}

// ---- Getters with outputs of their own shape ---------------------------------

Outcome lensShadingMap(Call& c) {
    const int fwk = c.quietly([&] {
        int id = -1;
        return c.utils.GetFwkCameraId(c.md, &id) == 0 ? id : -1;
    });
    const Md stat = c.capture.staticOf(fwk);
    // This program's own lookups, which are not the method's reads.
    const camera_metadata_ro_entry_t size = c.quietly(
        [&] { return stat ? stat->find(kShadingMapSize) : camera_metadata_ro_entry_t{}; });
    if (size.count < 2 || size.data.i32[0] < 0 || size.data.i32[1] < 0) {
        return Outcome{std::nullopt, nullptr,
                       "needs the shading map size (android.lens.info.shadingMapSize) in the "
                       "static metadata of the frame's camera"};
    }
    const int grid[2] = {size.data.i32[0], size.data.i32[1]};
    const size_t values = static_cast<size_t>(grid[0]) * static_cast<size_t>(grid[1]) * 4;
    const size_t held = c.quietly([&] { return c.md->find(kLensShadingMap).count; });
    if (held != 0 && held < values) {
        return Outcome{std::nullopt, nullptr,
                       "android.statistics.lensShadingMap holds " + std::to_string(held) +
                           " floats; the library copies " + std::to_string(values) + " for a " +
                           std::to_string(grid[0]) + "x" + std::to_string(grid[1]) + " grid"};
    }
    // Room for what the tag holds: without the tag the library copies nothing.
    std::vector<float> map(std::max<size_t>(held >= values ? values : 0, 1));
    int arg[2] = {grid[0], grid[1]};
    const int rc = c.utils.GetLSC(c.md, arg, map.data());
    return Outcome{rc, rc == 0 ? Json{{"grid", grid}, {"map", floats(map.data(), values)}} : Json(),
                   ""};
}

Outcome adrcGain(Call& c) {
    // Written as soon as the tone gain is read, even when the result is -1
    // because the safe-exposure tag is absent.
    float gain = NAN;
    const int rc = c.utils.GetBurstInfoAdrcGain(c.md, &gain);
    return Outcome{rc, std::isnan(gain) ? Json() : value(gain), ""};
}

Outcome awbGain(Call& c) {
    kvalgo2::AWBGain gain{};
    bool valid = true;  // cleared by the library first thing
    const int rc = c.utils.GetAWBGain(c.md, gain, valid);
    Json out{{"valid", valid}};
    if (rc == 0) {
        out["rGain"] = value(gain.rGain);
        out["gGain"] = value(gain.gGain);
        out["bGain"] = value(gain.bGain);
    }
    return Outcome{rc, out, ""};
}

Outcome bpsGamma(Call& c) {
    bool valid = false;
    float gamma[257] = {};
    const int rc = c.utils.GetBPSGammaOutput(c.md, &valid, gamma);
    return Outcome{rc, Json{{"valid", valid}, {"gamma", floats(gamma, 257)}}, ""};
}

Outcome blackLevel(Call& c) {
    float level[4] = {};
    const int rc = c.utils.GetSensorDynamicBlackLevel(c.md, level);
    return Outcome{rc, rc == 0 ? floats(level, 4) : Json(), ""};
}

Outcome colorTransform(Call& c) {
    kvalgo2::ChiRational m[9] = {};
    const int rc = c.utils.GetColorCorrectionTransform(c.md, m);
    if (rc != 0) return Outcome{rc, nullptr, ""};
    Json rows = Json::array();
    for (int r = 0; r < 3; ++r) {
        Json row = Json::array();
        for (int k = 0; k < 3; ++k) {
            row.push_back(std::to_string(m[r * 3 + k].numerator) + "/" +
                          std::to_string(m[r * 3 + k].denominator));
        }
        rows.push_back(row);
    }
    return Outcome{rc, rows, ""};
}

Outcome teleFusion(Call& c) {
    return Outcome{std::nullopt, Json{{"enabled", c.utils.GetTeleFusionEnable(c.md)}}, ""};
}

// ---- Image geometry -----------------------------------------------------------

// The stages of the final crop region, as its log lines tell them: each a
// rectangle at `first` among the numbers of its line.
struct CropStage {
    const char* key;
    const char* message;
    size_t first;
};

const CropStage kCropStages[] = {
    {"sensorPolicy",
     "allInOneCrop get crop region from SAT camId = %d isInSensorZoom = %d cropregion: "
     "[%d %d %d %d]",
     2},
    {"afterInSensorZoom",
     "allInOneCrop get after isInSensorZoom = %d sensorsize(%d, %d) cropregion: [%d %d %d %d]", 3},
    {"aspectCorrected", "allInOneCrop input crop (%d, %d, %d, %d) output crop (%d, %d, %d, %d)", 4},
};

Json rectAt(const std::vector<long long>& n, size_t first) {
    return Json{{"left", n[first]},
                {"top", n[first + 1]},
                {"width", n[first + 2]},
                {"height", n[first + 3]}};
}

Json cropStages(const std::vector<kvhost::LogRecord>& logs) {
    Json stages = Json::object();
    for (const CropStage& stage : kCropStages) {
        const std::vector<long long> n = loggedNumbers(logs, stage.message);
        if (n.size() >= stage.first + 4) stages[stage.key] = rectAt(n, stage.first);
    }
    std::vector<long long> shift = loggedNumbers(logs, "allInOneCrop using zoom eis shift (%d,%d)");
    const bool applied = shift.size() == 2;
    if (!applied) shift = loggedNumbers(logs, "allInOneCrop not using zoom eis shift (%d,%d)");
    if (shift.size() != 2) return stages;
    const std::vector<long long> flag = loggedNumbers(logs, "allInOneCrop shiftFlag = %d");
    const bool fromMeta = !loggedNumbers(logs,
                                         "allInOneCrop get shift successful shift(%d, %d) "
                                         "isPreAnchor = %d size = %u, from kovani.sr.shift.value ")
                               .empty();
    stages["shift"] = {{"x", shift[0]},
                       {"y", shift[1]},
                       {"from", flag == std::vector<long long>{1} ? "platform"
                                : fromMeta                        ? "metadata"
                                                                  : "none"},
                       {"applied", applied}};
    return stages;
}

Outcome finalCrop(Call& c) {
    kvalgo2::KvDimension sensor{};
    if (c.capture.sensorSize) {
        sensor = {c.capture.sensorSize->first, c.capture.sensorSize->second};
    } else {
        c.quietly([&] {
            kvalgo2::ChiRect active{};
            const int rc = c.utils.GetActiveArraySize(c.md, &active);
            sensor = {active.width, active.height};
            return rc;
        });
    }
    // Every path but a missing active array writes the crop.
    kvalgo2::ChiRect crop{~0u, ~0u, ~0u, ~0u};
    const int rc = c.utils.GetFinalCropRegion(c.md, crop, sensor, c.capture.isInSensorZoom);
    const bool written =
        crop.left != ~0u || crop.top != ~0u || crop.width != ~0u || crop.height != ~0u;
    return Outcome{rc,
                   Json{{"crop", written ? value(crop) : Json()},
                        {"sensorSize", sizeValue(sensor.width, sensor.height)},
                        {"isInSensorZoom", c.capture.isInSensorZoom},
                        {"stages", cropStages(c.logs.records())}},
                   ""};
}

// Android's colour filter arrangements, by value.
constexpr const char* kColorFilter = "android.sensor.info.colorFilterArrangement";

Outcome bayerPattern(Call& c) {
    unsigned char cfa = 0;
    const int rc = c.utils.GetSensorBayerPatten(c.md, &cfa);
    if (rc != 0) return Outcome{rc, nullptr, ""};
    const kvhost::TagInfo* tag = kvhost::findTag(kColorFilter);
    const char* name = tag != nullptr ? kvhost::enumName(*tag, cfa) : nullptr;
    return Outcome{rc, Json{{"value", cfa}, {"pattern", name != nullptr ? name : "unknown"}}, ""};
}

Outcome shadingMapSize(Call& c) {
    int grid[2] = {};
    const int rc = c.utils.GetLensInfoShadingMapSize(c.md, grid);
    return Outcome{rc, rc == 0 ? Json{{"width", grid[0]}, {"height", grid[1]}} : Json(), ""};
}

Outcome facesHolder(Call& c) {
    int* faces = nullptr;
    uint32_t count = 0;
    const int rc = c.utils.GetFacesInfoHolder(c.md, &faces, &count);
    if (rc != 0) return Outcome{rc, nullptr, ""};
    Json out{{"count", count}};
    out.update(kvhost::loader::recordsToJson("kovani.bokeh.faceInfo", faces, size_t{count} * 9));
    return Outcome{rc, out, ""};
}

Outcome faceRect(Call& c) {
    kvalgo2::KVFaceInfo info{};
    const int rc = c.utils.GetFaceRect(c.md, c.capture.inputWidth, c.capture.inputHeight, info,
                                       c.capture.useInSensorZoom);
    return done(rc, info);
}

Outcome facesNoMap(Call& c) {
    kvalgo2::KVFaceInfo info{};
    const int rc = c.utils.GetFacesNoMap(c.md, c.capture.inputWidth, c.capture.inputHeight, info);
    if (rc != 0) return Outcome{rc, nullptr, ""};
    // Only the rectangles and extras are written: centres, rotations and the
    // largest face stay as the caller had them.
    Json out = value(info);
    out.erase("largestFaceIndex");
    for (Json& face : out["faces"]) {
        face.erase("center");
        face.erase("rotation");
    }
    return Outcome{rc, out, ""};
}

Outcome faceInfo(Call& c) {
    AIspFaceInfo info{};
    const int rc = c.utils.GetFaceInfo(c.md, info, c.capture.inputWidth, c.capture.inputHeight);
    return done(rc, info);
}

Outcome focusRoi(Call& c) {
    UtilsImageBuf image{c.capture.inputWidth, c.capture.inputHeight};
    __UtilsImage_Rect roi{};
    const int rc = c.utils.GetfocusROI(c.md, &image, &roi);
    Json out{{"roi", rc == 0 ? value(roi) : Json()}};
    // The region in sensor coordinates, as the library took it.
    const std::vector<long long> n = loggedNumbers(
        c.logs.records(), "af roi, info:[t:%d, n:%d, vs:%d, tlx:%d, tly:%d, brx:%d, bry:%d]");
    if (n.size() == 7) {
        out["sensorRect"] = {{"left", n[3]},
                             {"top", n[4]},
                             {"width", static_cast<uint32_t>(n[5] - n[3])},
                             {"height", static_cast<uint32_t>(n[6] - n[4])}};
    }
    return Outcome{rc, out, ""};
}

Outcome focusPoint(Call& c) {
    UtilsImageBuf image{c.capture.inputWidth, c.capture.inputHeight};
    __UtilsImage_point point{};
    const int rc = c.utils.GetfocusTP(c.md, &image, &point);
    return Outcome{rc, Json{{"x", point.x}, {"y", point.y}}, ""};  // written whatever the result
}

// A call that maps into the input image, made only when its size is known
// (a session without static metadata has none).
template <Outcome (*F)(Call&)>
Outcome mapped(Call& c) {
    if (c.capture.inputWidth > 0 && c.capture.inputHeight > 0) return F(c);
    return Outcome{std::nullopt, nullptr,
                   "needs the input image size, which is unknown (no active array size in the "
                   "static metadata); give it with --input WxH"};
}

// ---- Camera identity, sensor modes and the platform adapter --------------------

// Whether the library will reach the scripted stand-in: the adapter path it
// opens ($ORIGIN being its own directory) must name the copy this program
// has loaded.
bool libraryReachesStandIn() {
    static const bool reaches = [] {
        std::string path = METAUTILS_ADAPTER_FILE;
        Dl_info library{};
        if (path.rfind("$ORIGIN", 0) == 0 && dladdr(&typeid(MetaUtils), &library) != 0) {
            const std::string file = library.dli_fname;
            path.replace(0, 7, file.substr(0, file.find_last_of('/')));
        }
        void* handle = dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD);
        if (handle != nullptr) dlclose(handle);
        return handle != nullptr;
    }();
    return reaches;
}

// The library uses the adapter's holder without testing it in these calls.
std::string needsAdapter(const Call& c) {
    if (!c.capture.adapter.present) {
        return "the platform adapter is absent, and the library would use its holder unchecked";
    }
    if (!libraryReachesStandIn()) {
        return std::string("the library opens its platform adapter at ") + METAUTILS_ADAPTER_FILE +
               ", not the stand-in this program scripts";
    }
    return "";
}

Outcome roleOfCamera(Call& c) {
    int role = 0;
    const int rc = c.utils.GetCameraRoleId(c.capture.cameraId, &role);
    return Outcome{
        rc, Json{{"cameraId", c.capture.cameraId}, {"roleId", rc == 0 ? Json(role) : Json()}}, ""};
}

// The md overloads: of the frame's camera's static metadata (int) or of the
// frame itself (unsigned).
template <typename T>
Outcome frameRole(Call& c) {
    T role = 0;
    const int rc = c.utils.GetCameraRoleId(c.md, &role);
    return Outcome{rc, rc == 0 ? Json(role) : Json(), ""};
}

Outcome physicalRolesOfCamera(Call& c) {
    std::vector<int> roles;
    const int rc = c.utils.GetMultiCameraPhyCameraRoleIds(c.capture.cameraId, roles);
    return Outcome{rc, Json{{"cameraId", c.capture.cameraId}, {"roleIds", roles}}, ""};
}

Outcome physicalRolesOfFrame(Call& c) {
    std::vector<int> roles;
    const int rc = c.utils.GetMultiCameraPhyCameraRoleIds(c.md, roles);
    return Outcome{rc, Json{{"roleIds", roles}}, ""};
}

Outcome sensorType(Call& c) {
    if (const std::string why = needsAdapter(c); !why.empty()) return Outcome{{}, nullptr, why};
    AIspSensorType type = AISP_SENSOR_TYPE_UNKNOWN;
    const int rc = c.utils.GetAISPSensorType(c.capture.satCameraId, type);
    return Outcome{rc, Json{{"cameraId", c.capture.satCameraId}, {"type", static_cast<int>(type)}},
                   ""};  // the type is written whatever the result
}

Outcome sensorModeType(Call& c) {
    // Left alone when no pair of the frame result is valid.
    int mode = INT32_MIN;
    const int rc = c.utils.GetKovaniSensorModeType(c.md, &mode);
    return Outcome{rc, rc == 0 && mode != INT32_MIN ? Json(mode) : Json(), ""};
}

Outcome sensorMode(Call& c) {
    const int type = c.quietly([&] {
        int t = 0;
        c.utils.GetKovaniSensorModeType(c.md, &t);
        return t;
    });
    bool flagA = false;
    bool flagB = false;
    const int mode = c.utils.getAIspSensorMode(type, flagA, flagB);
    return Outcome{
        std::nullopt,
        Json{{"sensorModeType", type}, {"mode", mode}, {"flagA", flagA}, {"flagB", flagB}}, ""};
}

Outcome gyro(Call& c) {
    if (const std::string why = needsAdapter(c); !why.empty()) return Outcome{{}, nullptr, why};
    AIspGyroData data{};
    AIspGyroData::GyroElement elements[200] = {};
    const int rc =
        c.utils.GetGyroData(c.md, data, elements, c.capture.gyroQuery, c.capture.gyroKey.c_str());
    if (rc != 0) return Outcome{rc, nullptr, ""};
    Json samples = Json::array();
    for (int i = 0; i < data.count; ++i) {
        const AIspGyroData::GyroElement& e = elements[i];
        samples.push_back(
            {{"x", value(e.x)}, {"y", value(e.y)}, {"z", value(e.z)}, {"timestamp", e.timestamp}});
    }
    return Outcome{rc,
                   Json{{"count", data.count},
                        {"startTimestamp", data.startTimestamp},
                        {"endTimestamp", data.endTimestamp},
                        {"samples", samples}},
                   ""};
}

#define PLAIN(subsystem, name) \
    { subsystem, #name, Given::Frame, plain<&MetaUtils::name> }
#define PRESENCE(subsystem, name) \
    { subsystem, #name, Given::Frame, presence<&MetaUtils::name> }
#define NAMED(subsystem, name, tag) \
    { subsystem, #name, Given::Frame, plain<&MetaUtils::name>, tag }

}  // namespace

std::vector<long long> loggedNumbers(const std::vector<kvhost::LogRecord>& records,
                                     const char* message) {
    static const std::string kPrefix = "[%s][%s()]:[%d] ";
    for (const kvhost::LogRecord& r : records) {
        const bool prefixed = r.format.compare(0, kPrefix.size(), kPrefix) == 0;
        if (r.format.compare(prefixed ? kPrefix.size() : 0, std::string::npos, message) != 0) {
            continue;
        }
        // "[file][func()]:[line] message": the numbers of the message only.
        const size_t body = prefixed ? r.text.find("] ", r.text.find("]:[")) + 2 : 0;
        std::vector<long long> numbers;
        const char* p = r.text.c_str() + body;
        while (*p != '\0') {
            char* end = nullptr;
            const bool starts = (*p == '-' && std::isdigit(static_cast<unsigned char>(p[1]))) ||
                                std::isdigit(static_cast<unsigned char>(*p));
            if (!starts) {
                ++p;
                continue;
            }
            numbers.push_back(std::strtoll(p, &end, 10));
            p = end;
        }
        return numbers;
    }
    return {};
}

const char* valueName(const Getter& getter, const Json& output) {
    if (getter.namedBy == nullptr || !output.is_number_integer()) return nullptr;
    const kvhost::TagInfo* tag = kvhost::findTag(getter.namedBy);
    const int64_t value = output.get<int64_t>();
    if (tag == nullptr || value < INT32_MIN || value > INT32_MAX) return nullptr;
    return kvhost::enumName(*tag, static_cast<int32_t>(value));
}

const std::vector<Getter>& getterTable() {
    static const std::vector<Getter> table = {
        // Scalar and record getters.
        PLAIN(kCore, GetPhyCameraId),
        PLAIN(kCore, GetFwkCameraId),
        PLAIN(kCore, GetSensorExposureTime),
        PLAIN(kCore, GetAndroidSensorFrameDuration),
        PLAIN(kCore, GetSensitivity),
        PLAIN(kCore, GetAndroidTimeStamp),
        PLAIN(kCore, GetSensorTimestamp),
        PLAIN(kCore, GetAndroidJpegOrientation),
        PLAIN(kCore, GetStylizationType),
        PLAIN(kCore, GetWhiteBlackRatio),
        PLAIN(kCore, GetSensorDynamicWhiteLevel),
        PLAIN(kCore, GetfocusDistCm),
        NAMED(kCore, GetAFState, "android.control.afState"),
        NAMED(kCore, GetAFMode, "android.control.afMode"),
        NAMED(kCore, GetIsZSLEnableReal, "android.control.enableZsl"),
        NAMED(kCore, GetANDROIDFlashMode, "android.flash.mode"),
        PLAIN(kCore, GetVXFlashMode),
        PLAIN(kCore, GetVXPanshotFeatureEnable),
        PLAIN(kCore, GetAndroidZoomRatio),
        {kCore, "GetZoomEisEffective", Given::SatStatic, plain<&MetaUtils::GetZoomEisEffective>},
        PLAIN(kCore, GetApertureValue),
        PLAIN(kCore, GetThermalLevel),
        PLAIN(kCore, GetLaserDist),
        PLAIN(kCore, GetSmartAeInfo),
        {kCore, "GetLSC", Given::Frame, lensShadingMap},

        // Burst and preview exposure.
        PLAIN(kStats, GetTimestamp),
        PLAIN(kStats, GetQTimeStamp),
        PLAIN(kStats, GetFrameSyncTimestamp),
        PLAIN(kStats, GetCCT),
        PLAIN(kStats, GetBurstInfoFaceLuma),
        PLAIN(kStats, GetBurstInfoFrameLuma),
        PLAIN(kStats, GetBurstInfoShutter),
        PLAIN(kStats, GetBurstInfoLuxIndex),
        PLAIN(kStats, GetBurstInfoExpIndex),
        PLAIN(kStats, GetBurstInfoDarkBoostGain),
        {kStats, "GetBurstInfoAdrcGain", Given::Frame, adrcGain},
        PLAIN(kStats, GetBurstInfoBpsIspGain),
        PRESENCE(kStats, GetBurstInfoBpsIspGainShort),
        PLAIN(kStats, GetPreviewAdrcGain),
        PLAIN(kStats, GetPreviewFrameLuma),
        PLAIN(kStats, GetPreviewTargetLuma),
        PLAIN(kStats, GetPreviewISPGain),
        PLAIN(kStats, GetPreviewExposure),
        PLAIN(kStats, GetSnapshotReqInfoUIEV),
        PLAIN(kStats, GetFaceAverageBrightness),
        PLAIN(kStats, GetMotionVelocity),
        PLAIN(kStats, GetTFNRExpRatio),
        PLAIN(kStats, GetIsZSLEnable),
        // Colour, tone and gain.
        PLAIN(kStats, GetBurstInfoLinearGain),
        {kStats, "GetAWBGain", Given::Frame, awbGain},
        PRESENCE(kStats, GetAWBGainAdj),
        PRESENCE(kStats, GetGTMTable),
        {kStats, "GetBPSGammaOutput", Given::Frame, bpsGamma},
        {kStats, "GetDynamicGamma", Given::Frame, gammaTable<&MetaUtils::GetDynamicGamma>},
        {kStats, "GetPlatFormGamma", Given::Nothing, gammaTable<&MetaUtils::GetPlatFormGamma>},
        PLAIN(kStats, GetPreviewBrightnessInfo),
        {kStats, "GetSensorDynamicBlackLevel", Given::Frame, blackLevel},
        {kStats, "GetColorCorrectionTransform", Given::Frame, colorTransform},
        // HDR, tele-fusion and slave-anchor flags.
        PLAIN(kStats, GetHdrEnabled),
        {kStats, "GetTeleFusionEnable", Given::Frame, teleFusion},
        PLAIN(kStats, GetSlaveAnchorFrame),

        // Gyroscope samples.
        {kStats, "GetGyroData", Given::Nothing, gyro},

        // Crop regions and active arrays.
        PLAIN(kGeometry, GetCropRegion),
        PLAIN(kGeometry, GetAndroidCropRegion),
        PLAIN(kGeometry, GetActiveArraySize),
        PLAIN(kGeometry, GetMaxActiveArraySize),
        {kGeometry, "GetStaticActiveArraySize", Given::FrameStatic,
         plain<&MetaUtils::GetStaticActiveArraySize>},
        PLAIN(kGeometry, GetActiveArraySizeMain),
        {kGeometry, "GetFinalCropRegion", Given::Frame, finalCrop},
        // Minimum zoom and lens static information.
        PLAIN(kGeometry, GetRealAvailableMinDigitalZoom),
        {kGeometry, "GetLensInfoShadingMapSize", Given::Frame, shadingMapSize},
        {kGeometry, "GetSensorBayerPatten", Given::Frame, bayerPattern},
        // Faces and focus regions, mapped into the input image.
        {kGeometry, "GetFacesInfoHolder", Given::Frame, facesHolder},
        {kGeometry, "GetFaceRect", Given::Frame, mapped<faceRect>},
        {kGeometry, "GetFacesNoMap", Given::Frame, mapped<facesNoMap>},
        {kGeometry, "GetFaceInfo", Given::Frame, mapped<faceInfo>},
        {kGeometry, "GetfocusROI", Given::Frame, mapped<focusRoi>},
        {kGeometry, "GetfocusTP", Given::Frame, mapped<focusPoint>},

        // Camera roles.
        {kIdentity, "GetCameraRoleId(cameraId)", Given::Nothing, roleOfCamera},
        {kIdentity, "GetCameraRoleId(md, int*)", Given::Frame, frameRole<int>},
        {kIdentity, "GetCameraRoleId(md, uint*)", Given::Frame, frameRole<unsigned int>},
        PLAIN(kIdentity, GetCameraRoleIds),
        {kIdentity, "GetMultiCameraPhyCameraRoleIds(id)", Given::Nothing, physicalRolesOfCamera},
        {kIdentity, "GetMultiCameraPhyCameraRoleIds(md)", Given::Frame, physicalRolesOfFrame},
        // Sensor types and modes.
        {kIdentity, "GetAISPSensorType", Given::Nothing, sensorType},
        {kIdentity, "GetKovaniSensorModeType", Given::Frame, sensorModeType},
        {kIdentity, "getAIspSensorMode", Given::Nothing, sensorMode},
        PLAIN(kIdentity, GetSensorMode),
        PRESENCE(kIdentity, GetKVSensorModeInfo),
        PRESENCE(kIdentity, GetStaticMetaKVSensorCaps),

        // Scene, motion capture and anchor frames.
        PLAIN(kScene, GetAISceneIndoor),
        PLAIN(kScene, GetAISceneResult),
        PLAIN(kScene, GetSunsetScene),
        PLAIN(kScene, GetBandingSceneType),
        PLAIN(kScene, GetMotionCaptureType),
        PLAIN(kScene, GetMotionCaptureFrameType),
        PLAIN(kScene, GetMotionCaptureAnchorOrder),
        PLAIN(kScene, GetHighlightAnchorOrder),
        PLAIN(kScene, GetStreetAnchorOrder),
        PLAIN(kScene, GetVXAihighlightIs),
        PLAIN(kScene, GetPreAnchorProcStatus),
        PLAIN(kScene, GetPreAnchorProcFrameNum),
        PLAIN(kScene, GetEcdStatus),
        PLAIN(kScene, getEcdStatus),
        // Bokeh and multi-frame information.
        PLAIN(kScene, GetBokehRequestInfoList),
        PLAIN(kScene, GetBokehCapsInfo),
        PLAIN(kScene, GetBokehConfigStream),
        PLAIN(kScene, GetInputNum),
        PLAIN(kScene, GetImageName),
        PLAIN(kScene, GetSceneDetectedAIResult),
        PLAIN(kScene, GetSceneDetectedIndoor),
    };
    return table;
}

}  // namespace inspect
