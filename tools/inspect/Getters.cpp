#include "Getters.h"

#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "KvMetadata.h"

namespace inspect {
namespace {

using kvalgo2::MetaUtils;
using Md = std::shared_ptr<KvMetadata>;

constexpr const char* kCore = "Metadata access core";
constexpr const char* kStats = "Capture statistics and burst metadata";
constexpr const char* kGeometry = "Image geometry";
constexpr const char* kScene = "Scene detection, anchor-frame and bokeh metadata";

constexpr uint32_t kShadingMapSize = 0x90006;   // ANDROID_LENS_INFO_SHADING_MAP_SIZE
constexpr uint32_t kLensShadingMap = 0x11000B;  // ANDROID_STATISTICS_LENS_SHADING_MAP

// ---- Decoded values ---------------------------------------------------------

// The shortest decimal that reads back as the same float, so 0.48f prints
// as 0.48 and not as the double nearest to it.
Json value(float f) {
    if (std::isnan(f)) return "nan";
    if (std::isinf(f)) return f > 0 ? "inf" : "-inf";
    char text[32];
    for (int digits = 1; digits <= 9; ++digits) {
        std::snprintf(text, sizeof text, "%.*g", digits, static_cast<double>(f));
        if (std::strtof(text, nullptr) == f) break;
    }
    return std::strtod(text, nullptr);
}

template <typename T, typename = std::enable_if_t<std::is_integral_v<T>>>
Json value(T v) {
    return v;
}

Json floats(const float* v, size_t n) {
    Json out = Json::array();
    for (size_t i = 0; i < n; ++i) out.push_back(value(v[i]));
    return out;
}

// Opaque records of the algorithm layer: their size and bytes.
Json blob(const void* data, size_t size) {
    static const char kDigits[] = "0123456789abcdef";
    std::string hex;
    for (size_t i = 0; i < size; ++i) {
        const auto b = static_cast<const uint8_t*>(data)[i];
        hex += kDigits[b >> 4];
        hex += kDigits[b & 15];
    }
    return Json{{"size", size}, {"hex", hex}};
}

template <typename Record>
Json value(const Record& r, decltype(r.bytes)* = nullptr) {
    return blob(r.bytes, sizeof r.bytes);
}

Json value(const kvalgo2::ChiRect& r) {
    return Json{{"left", r.left}, {"top", r.top}, {"width", r.width}, {"height", r.height}};
}

Json value(const kvalgo2::LaserDistance& d) {
    return Json{{"distance", d.distance}};
}

Json value(const kvalgo2::Sunset_Scene_t& s) {
    return Json{{"isSunset", s.isSunset}, {"confidence", s.confidence}};
}

Json value(const kvalgo2::KvAiSceneClsResult& r) {
    return Json::array({Json{{"class", r.class0}, {"confidence", value(r.confidence0)}},
                        Json{{"class", r.class1}, {"confidence", value(r.confidence1)}}});
}

Json value(const AIspAnchorMeta& m) {
    return Json{{"eyeDet", m.eyeDet}, {"eyeOpen", m.eyeOpen}};
}

Json value(const char (&name)[128]) {
    return std::string(name, strnlen(name, sizeof name));
}

Json value(const kvalgo2::PreviewBrightnessInfo& h) {
    return Json{{"binCount", h.binCount}, {"bins", std::vector<uint32_t>(h.bins, h.bins + 256)}};
}

Json value(const AIspGammaTbl& t) {
    const size_t n = t.count >= 0 && t.count <= 512 ? static_cast<size_t>(t.count) : 0;
    return Json{{"count", t.count}, {"x", floats(t.x, n)}, {"y", floats(t.y, n)}};
}

Json value(const kvalgo2::AWBGainAdj&) {
    return nullptr;
}

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
    const Md stat = c.installed.staticOf(fwk);
    const camera_metadata_ro_entry_t size =
        stat ? stat->find(kShadingMapSize) : camera_metadata_ro_entry_t{};
    if (size.count < 2 || size.data.i32[0] < 0 || size.data.i32[1] < 0) {
        return Outcome{std::nullopt, nullptr,
                       "needs the shading map size (android.lens.info.shadingMapSize) in the "
                       "static metadata of the frame's camera"};
    }
    const int grid[2] = {size.data.i32[0], size.data.i32[1]};
    const size_t values = static_cast<size_t>(grid[0]) * static_cast<size_t>(grid[1]) * 4;
    const size_t held = c.md->find(kLensShadingMap).count;
    if (held != 0 && held < values) {
        return Outcome{std::nullopt, nullptr,
                       "android.statistics.lensShadingMap holds " + std::to_string(held) +
                           " floats; the library copies " + std::to_string(values) + " for a " +
                           std::to_string(grid[0]) + "x" + std::to_string(grid[1]) + " grid"};
    }
    std::vector<float> map(values);
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

#define PLAIN(subsystem, name) \
    { subsystem, #name, Given::Frame, plain<&MetaUtils::name> }
#define PRESENCE(subsystem, name) \
    { subsystem, #name, Given::Frame, presence<&MetaUtils::name> }

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
        PLAIN(kCore, GetAFState),
        PLAIN(kCore, GetAFMode),
        PLAIN(kCore, GetIsZSLEnableReal),
        PLAIN(kCore, GetANDROIDFlashMode),
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

        // Crop regions and active arrays.
        PLAIN(kGeometry, GetActiveArraySize),
        PLAIN(kGeometry, GetMaxActiveArraySize),

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
