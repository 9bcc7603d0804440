// Getters built on the tag getter skeleton, crop regions, active-array sizes,
// the minimum digital zoom and the lens statics: one row per getter, every row
// put through the same checks (value, null output, absent tag, null container),
// then the record getters and setters.
#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "TestSupport.h"

namespace kvtest {
namespace {

using kvalgo2::MetaUtils;
using kvhost::TagType;

struct Payload {
    TagType type;
    std::vector<uint8_t> bytes;
    size_t count;
};
template <typename T>
Payload Of(TagType type, const std::vector<T>& values) {
    Payload p{type, std::vector<uint8_t>(values.size() * sizeof(T)), values.size()};
    std::memcpy(p.bytes.data(), values.data(), p.bytes.size());
    return p;
}
Payload I32(const std::vector<int32_t>& v) {
    return Of(TagType::Int32, v);
}
Payload I64(const std::vector<int64_t>& v) {
    return Of(TagType::Int64, v);
}
Payload F32(const std::vector<float>& v) {
    return Of(TagType::Float, v);
}
Payload Blob(const std::vector<uint8_t>& v) {
    return Of(TagType::Byte, v);
}

// A vendor tag by name or an Android/MediaTek tag by id, in the frame or in
// the framework camera's static metadata.
struct Tag {
    Tag(const char* n, bool s = false) : name(n), inStatic(s) {}
    Tag(uint32_t i, bool s = false) : id(i), inStatic(s) {}
    uint32_t Id() const {
        uint32_t out = id;
        if (name != nullptr) {
            EXPECT_EQ(KvMetadata::getTagFromName(name, &out), 0) << name;
        }
        return out;
    }
    const char* name = nullptr;
    uint32_t id = 0;
    bool inStatic = false;
};
Tag Static(const char* name) {
    return Tag(name, true);
}
Tag Static(uint32_t id) {
    return Tag(id, true);
}

constexpr const char* kDefaultFail = "GetMetadata err";

struct Row {
    const char* method;
    Invoke invoke;
    const char* file;
    Tag tag;
    Payload payload;
    std::vector<uint8_t> expected;  // the output's bytes after success
    const char* lookupFail = kDefaultFail;
    bool checksMetadata = false;
    LineList successLines = {};
    unsigned failLevel = 3;
};
std::ostream& operator<<(std::ostream& os, const Row& r) {
    return os << r.method;
}

#define G(method, ...) #method, Bind(&MetaUtils::method, ##__VA_ARGS__)

std::vector<uint8_t> Laser(int32_t distance) {
    kvalgo2::LaserDistance d;
    std::memset(&d, 0xA5, sizeof d);  // the rest of the record keeps the caller's bytes
    d.distance = distance;
    return Bytes(d);
}
std::vector<uint8_t> Pattern(size_t n) {
    std::vector<uint8_t> v(n);
    for (size_t i = 0; i < n; ++i) v[i] = static_cast<uint8_t>(i * 7 + 3);
    return v;
}
// The AEC info record: lux index float at byte 0, exposure index at byte 8.
Payload AecInfo(float lux, int32_t expIndex) {
    std::vector<uint8_t> b(12, 0);
    std::memcpy(b.data(), &lux, 4);
    std::memcpy(b.data() + 8, &expIndex, 4);
    return Blob(b);
}
Payload SceneResult(int32_t c0, float p0, int32_t c1, float p1) {
    return Blob(Bytes(kvalgo2::KvAiSceneClsResult{c0, p0, c1, p1}));
}

// AF state/mode and flash mode read a 32-bit word at a one-byte tag: the
// container pads payloads with zeros, so the word is the byte itself here.
// clang-format off
const Row kRows[] = {
    {G(GetStylizationType), kMU, "com.kovani.sessionparams.stylizationType", Blob({0xFE}),
     Bytes<unsigned char>(0xFE)},
    {G(GetWhiteBlackRatio), kMU, "com.kovani.statsaec.AECWhiteBlackFrameAdj", F32({0.75f}),
     Bytes(0.75f), "GetMetadata AECWhiteBlackRatio err"},
    {G(GetSensorDynamicWhiteLevel), kMU, 0xE001D, I32({1023}), Bytes<int>(1023),
     "GetMetadata ANDROID_SENSOR_DYNAMIC_WHITE_LEVEL fail", false,
     {L(0, kMU, "GetSensorDynamicWhiteLevel", "ANDROID_SENSOR_DYNAMIC_WHITE_LEVEL: 1023")}},
    {G(GetAndroidTimeStamp), kMU, 0xE0010, I64({123456789012LL}), Bytes<long>(123456789012L),
     "GetMetadata ANDROID_SENSOR_TIMESTAMP fail"},
    {G(GetfocusDistCm), kMU, 0x80003, F32({0.3f}), Bytes<int>(333)},
    {G(GetAFState), kMU, 0x10020, Blob({4}), Bytes<unsigned>(4),
     "GetMetadata ANDROID_CONTROL_AF_STATE err"},
    {G(GetAFMode), kMU, 0x10007, Blob({3}), Bytes<unsigned>(3),
     "GetMetadata ANDROID_CONTROL_AF_MODE err"},
    // Flag bytes above 127 are zero-extended.
    {G(GetIsZSLEnableReal), kMU, 0x10029, Blob({0x80}), Bytes<int>(128),
     "GetMetadata ANDROID_CONTROL_ENABLE_ZSL fail"},
    {G(GetAndroidSensorFrameDuration), kMU, 0xE0001, I64({33333333}), Bytes<long>(33333333),
     "GetMetadata ANDROID_SENSOR_FRAME_DURATION fail"},
    {G(GetVXPanshotFeatureEnable), kMU, "com.kovani.panshotTruck.FeatureEnable", I32({1}),
     Bytes<int>(1), "GetMetadata com.kovani.panshotTruck.FeatureEnable fail"},
    {G(GetAndroidZoomRatio), kMU, 0x1002F, F32({2.5f}), Bytes(2.5f),
     "GetMetaData ANDROID_CONTROL_ZOOM_RATIO fail", true},
    {G(GetZoomEisEffective), kMU, "com.kovani.camera.zoomeis.effectiverate", F32({1.8f}),
     Bytes(1.8f), "GetMetaData com.kovani.camera.zoomeis.effectiverate fail", true},
    {G(GetApertureValue), kMU, 0x80000, F32({1.8f}), Bytes(1.8f),
     "GetMetadata ANDROID_LENS_APERTURE err"},
    {G(GetFwkCameraId), kMU, "kovani.snapshot.fwkCameraId", I32({2}), Bytes<int>(2),
     "Get fwkCameraId err"},
    {G(GetLaserDist), kMU, "kovani.ai.kvsd.laserDist", I32({1234}), Laser(1234)},
    {G(GetSmartAeInfo), kMU, "kovani.ai.asd.SmartAE", Blob(Pattern(460)), Pattern(448)},
    // Burst and preview exposure.
    {G(GetTimestamp), kMtk, "org.quic.camera.qtimer.startOfExposure", I64({987654321012LL}),
     Bytes<long>(987654321012L)},
    {G(GetCCT), kMtk, "com.mediatek.3afeature.awbColorTemperature", I32({5000}), Bytes(5000.0f)},
    {G(GetBurstInfoFaceLuma), kMtk, "kovani.ae.average.face.luma", I32({-40}), Bytes(-40.0f),
     "GetMetadata kovani.ae.average.face.luma err"},
    {G(GetBurstInfoFrameLuma), kMtk, "kovani.ae.average.frame.luma", I32({118}), Bytes(118.0f),
     "GetMetadata kovani.ae.average.frame.luma err"},
    // 5e9 ns: beyond 32 bits, exactly representable as a float.
    {G(GetBurstInfoShutter, 7), kMtk, 0xE0000, I64({5000000000LL}), Bytes(5.0e9f),
     "GetMetadata ANDROID_SENSOR_EXPOSURE_TIME err"},
    {G(GetBurstInfoExpIndex, -99), kMtk, "com.kovani.statsconfigs.AecInfo", AecInfo(-3.7f, 412),
     Bytes<int>(412), "GetMetadata com.kovani.statsconfigs.AecInfo err"},
    // Truncated toward zero, not floored.
    {G(GetBurstInfoLuxIndex), kMtk, "com.kovani.statsconfigs.AecInfo", AecInfo(-3.7f, 412),
     Bytes<int>(-3)},
    // Q10 and Q12 gains are signed: -1536 / 1024 and -6144 / 4096 are -1.5.
    {G(GetPreviewAdrcGain), kMtk, "kovani.ae.mid.tonegain", I32({-1536}), Bytes(-1.5f),
     "GetMetadata PreviewAdrcGain err"},
    {G(GetPreviewFrameLuma), kMtk, "kovani.longexposure.cwv", I32({64}), Bytes(64.0f),
     "GetMetadata PreviewFrameLuma err"},
    {G(GetPreviewTargetLuma), kMtk, "kovani.longexposure.cwr", I32({80}), Bytes(80.0f),
     "GetMetadata PreviewTargetLuma err"},
    {G(GetBurstInfoBpsIspGain), kMtk, 0x80060011, I32({-6144}), Bytes(-1.5f),
     "GetMetadata MTK_3A_FEATURE_AE_ISP_GAIN_VALUE err"},
    // The same first word, unsigned and signed.
    {G(GetQTimeStamp), kMtk, "com.kovani.mtk.p1node.frameinfo", I64({-2, 5}),
     Bytes<unsigned long>(0xFFFFFFFFFFFFFFFEul), "GetMetadata com.kovani.mtk.p1node.frameinfo err"},
    {G(GetFrameSyncTimestamp), kMtk, "com.kovani.mtk.p1node.frameinfo", I64({-2, 5}),
     Bytes<long>(-2), "GetMetadata com.kovani.mtk.p1node.frameinfo err"},
    {G(GetPreviewISPGain), kMtk, "kovani.burst.last.preview.ispGain", I32({-6144}), Bytes(-1.5f),
     "GetMetadata kovani.burst.last.preview.ispGain err"},
    {G(GetPreviewExposure), kMtk, "kovani.burst.last.preview.exposure.time", I64({5000000000LL}),
     Bytes(5.0e9f), "GetMetadata PreviewExposure err"},
    {G(GetFaceAverageBrightness), kMtk, "kovani.ai.asd.FaceAverageBrightness", F32({37.25f}),
     Bytes(37.25f), "GetMetadata FaceAverageBrightness err"},
    {G(GetMotionVelocity), kMtk, "kovani.ai.kvsd.motionVelocity", I32({-12}), Bytes(-12.0f),
     "GetMetadata motionVelocity err"},
    // Reports presence only: the output keeps the caller's bytes.
    {G(GetBurstInfoBpsIspGainShort), kMtk, "org.quic.camera2.statsconfigs.AECFrameControl",
     Blob(Pattern(32)), std::vector<uint8_t>(4, 0xA5)},
    {G(GetIsZSLEnable), kMtk, "kovani.control.zsl.enable", Blob({0xFF}), Bytes<int>(255),
     "GetMetadata kovani.control.zsl.enable fail"},
    // Scene, motion-capture and anchor-frame.
    {G(GetHighlightAnchorOrder), kMU, "kovani.aihighlight.anchorOrder", I32({3}), Bytes<int>(3)},
    {G(GetStreetAnchorOrder), kMU, "com.kovani.ext.control.streetmode.anchor.order", I32({2}),
     Bytes<int>(2)},
    {G(GetSunsetScene), kMU, "kovani.ai.asd.SunsetScene", Blob(Pattern(12)), Pattern(8),
     "GetMetadata kovani.ai.asd.SunsetScene err"},
    {G(GetMotionCaptureType), kMU, "kovani.ai.kvsd.motionCaptureType", I32({-1}),
     Bytes<unsigned>(0xFFFFFFFFu), "GetMetadata kovani.ai.kvsd.motionCaptureType err"},
    {G(GetMotionCaptureFrameType), kMU, "kovani.ai.kvsd.motionCaptureType", I32({-1}),
     Bytes<int>(-1), "GetMetadata kovani.ai.kvsd.motionCaptureType err"},
    {G(GetVXAihighlightIs), kMU, "com.kv.node.kvaihighlight.isHighLight", I32({1}), Bytes<int>(1),
     "GetMetadata com.kv.node.kvaihighlight.isHighLight err"},
    {G(GetBandingSceneType), kMU, "kovani.ai.kvsd.bandingSceneType", I32({50}), Bytes<int>(50),
     "GetMetadata kovani.ai.kvsd.bandingSceneType err"},
    {G(GetPreAnchorProcStatus), kMU, "com.kovani.orlo2.preAnchorProc", I32({1}), Bytes<int>(1),
     "GetMetadata com.kovani.orlo2.preAnchorProc err"},
    {G(GetPreAnchorProcFrameNum), kMU, "com.kovani.orlo2.anchorFrameNum", I32({6}), Bytes<int>(6),
     "GetMetadata com.kovani.orlo2.anchorFrameNum err"},
    // Bokeh records and per-frame scene values.
    {G(GetBokehRequestInfoList), kMU, "com.kovani.camera.bokehConfig.request", Blob(Pattern(124)),
     Pattern(124), "GetMetadata bokehRequestConfig err"},
    {G(GetBokehCapsInfo), kMU, "com.kovani.camera.bokehCaps.info", Blob(Pattern(21588)),
     Pattern(21588), "GetMetadata BokehCapsInfo err"},
    {G(GetBokehConfigStream), kMU, "com.kovani.camera.bokehConfig.stream", Blob(Pattern(200)),
     Pattern(128), "GetMetadata BokehConfigStream err"},
    {G(GetInputNum), kMU, "kovani.multiframe.inputNum", I32({8}), Bytes<int>(8),
     "GetMetadata kovani.multiframe.inputNum fail"},
    {G(GetSceneDetectedAIResult), kMU, "kovani.ai.asd.algoSceneDetectedAIResult",
     SceneResult(3, 0.5f, 7, 0.25f), SceneResult(3, 0.5f, 7, 0.25f).bytes,
     "get kovani.ai.asd.algoSceneDetectedAIResult fail", false,
     {L(2, kMU, "GetSceneDetectedAIResult",
        "sceneDetected(result/confidence):{3/0.500000 7/0.250000}")}},
    {G(GetSceneDetectedIndoor), kMU, "kovani.ai.asd.algoSceneDetectedIndoor", I32({1}),
     Bytes<int>(1), "get kovani.ai.asd.algoSceneDetectedIndoor fail", false,
     {L(0, kMU, "GetSceneDetectedIndoor", "inDoor:1")}},
    // Crop regions and active-array sizes; payloads longer than the value read.
    {G(GetCropRegion), kMU, "kovani.snapshot.cropRegion", I32({12, 34, 560, -1, 99}),
     Bytes(Rect(12, 34, 560, 0xFFFFFFFF)), kDefaultFail, true,
     {L(2, kMU, "GetCropRegion", "kovani.snapshot.cropRegion [12 34 560 -1]")}},
    {G(GetAndroidCropRegion), kMU, 0xD0000, I32({500, 375, 3000, 2250, 7}),
     Bytes(Rect(500, 375, 3000, 2250)), kDefaultFail, false,
     {L(2, kMU, "GetAndroidCropRegion", "ANDROID_SCALER_CROP_REGION [500 375 3000 2250]")}},
    {G(GetStaticActiveArraySize), kMU, 0xF0000, I32({8, 16, 4000, 3000, 1}),
     Bytes(Rect(8, 16, 4000, 3000)), "Get ANDROID_SENSOR_INFO_ACTIVE_ARRAY_SIZE err", false,
     {L(2, kMU, "GetStaticActiveArraySize", "Get ACTIVE_ARRAY_SIZE: (8,16,4000,3000)")}},
    {G(GetActiveArraySizeMain), kMtk, 0xD0000, I32({500, 375, 3000, 2250, 5}),
     Bytes(Rect(0, 0, 4000, 3000)), kDefaultFail, false,
     {L(2, kMtk, "GetActiveArraySizeMain", "main active size [0 0 4000 3000]")}},
    // From the framework camera's static metadata.
    {G(GetActiveArraySize), kMU, Static(0xF0000), I32({3, 2, 4000, 3000, 77}),
     Bytes(Rect(3, 2, 4000, 3000)), "Get ACTIVE_ARRAY_SIZE err"},
    {G(GetMaxActiveArraySize), kMU, Static(0xF000B), I32({3, 0, 8000, 6000}),
     Bytes(Rect(3, 0, 8000, 6000)),
     "Get ANDROID_SENSOR_INFO_ACTIVE_ARRAY_SIZE_MAXIMUM_RESOLUTION err", false, {}, 2},
    {G(GetRealAvailableMinDigitalZoom), kMtk, Static("com.kovani.scaler.availableMinDigitalZoom"),
     F32({0.75f, 9.0f}), Bytes(0.75f), "GetMetadata com.kovani.scaler.availableMinDigitalZoom fail"},
    // Two ints: width, height.
    {G(GetLensInfoShadingMapSize), kMU, Static(0x90006), I32({20, 13, 99}),
     Bytes(uint64_t{13} << 32 | 20), "GetMetadata ANDROID_LENS_INFO_SHADING_MAP_SIZE fail"},
    // A monochrome sensor's arrangement, handed out untranslated.
    {G(GetSensorBayerPatten), kMU, Static(0xF0002), Blob({5, 1}), Bytes<uint8_t>(5),
     "GetMetadata ANDROID_SENSOR_INFO_COLOR_FILTER_ARRANGEMENT fail", false,
     {L(0, kMU, "GetSensorBayerPatten",
        "fwkCameraId:3 ANDROID_SENSOR_INFO_COLOR_FILTER_ARRANGEMENT:5")}},
};
// clang-format on
#undef G

class SkeletonGetter : public MetaTest, public ::testing::WithParamInterface<Row> {
protected:
    void SetUp() override {
        utils.SetCameraId(1, 1);  // the object's ids play no part
        if (GetParam().tag.inStatic) stat = StaticFor(3);
    }
    // The caller's output before the call: 0xA5 bytes, with 8 guard bytes after it.
    std::vector<uint8_t> Before() const {
        return std::vector<uint8_t>(GetParam().expected.size() + 8, 0xA5);
    }
    kvhost::Metadata& Holder() { return GetParam().tag.inStatic ? *stat : *md; }
    std::shared_ptr<kvhost::Metadata> stat;
};

// The row's value, its lookup-failure line, and its container check; the
// skeleton's remaining steps are each row's alike.
TEST_P(SkeletonGetter, ReadsTheRowsTag) {
    const Row& r = GetParam();
    const Line fail = L(r.failLevel, r.file, r.method, r.lookupFail);
    std::vector<uint8_t> out = Before();
    EXPECT_EQ(r.invoke(utils, md, out.data()), -2);  // absent
    EXPECT_EQ(r.invoke(utils, md, nullptr), -2);
    LineList lines{kLookupMiss, fail, L(4, r.file, r.method, "arg err")};
    if (r.tag.inStatic) {
        // No framework camera id: the preset -1 must not be used as one.
        auto decoy = kvhost::Metadata::create();
        ASSERT_EQ(decoy->put(r.tag.Id(), r.payload.type, r.payload.bytes.data(), r.payload.count),
                  0);
        kvhost::setStaticMetadata(static_cast<uint32_t>(-1), decoy);
        md->erase("kovani.snapshot.fwkCameraId");
        EXPECT_EQ(r.invoke(utils, md, out.data()), -2);
        lines.insert(lines.end(), {kLookupMiss, L(3, kMU, "GetFwkCameraId", "Get fwkCameraId err"),
                                   L(3, r.file, r.method, "GetMetadata FwkCameraId fail")});
        md->putInt32("kovani.snapshot.fwkCameraId", {3});
    } else {
        EXPECT_EQ(r.invoke(utils, nullptr, out.data()), -2);
        if (r.checksMetadata) {
            lines.push_back(L(4, r.file, r.method, "arg err"));
        } else {
            lines.insert(lines.end(), {kArgNull, fail});
        }
    }
    EXPECT_EQ(out, Before());
    EXPECT_EQ(Lines(), lines);

    // Static rows: only the framework camera 3 holds the tag, not the frame nor camera 1.
    capture.clear();
    ASSERT_EQ(Holder().put(r.tag.Id(), r.payload.type, r.payload.bytes.data(), r.payload.count), 0);
    EXPECT_EQ(r.invoke(utils, md, out.data()), 0);
    std::vector<uint8_t> expected = r.expected;
    expected.resize(out.size(), 0xA5);
    EXPECT_EQ(out, expected);
    EXPECT_EQ(Lines(), r.successLines);
}

// Payload bytes a row's read takes where that is not the output's size.
size_t ReadBytes(const Row& r) {
    static const std::map<std::string, size_t> kOther = {
        {"GetLaserDist", 4},       {"GetBurstInfoShutter", 8}, {"GetBurstInfoExpIndex", 12},
        {"GetPreviewExposure", 8}, {"GetAFState", 1},          {"GetAFMode", 1},
        {"GetIsZSLEnableReal", 1}, {"GetIsZSLEnable", 1},      {"GetBurstInfoBpsIspGainShort", 0},
    };
    const auto it = kOther.find(r.method);
    return it != kOther.end() ? it->second : r.expected.size();
}

// A payload of bytes one short of the read. The default build trusts the tag
// and reads on into the container's zero padding; the hardened build, on a
// container without padding, refuses it with one line naming the tag and
// keeps the output. (AF state and mode and the flash mode read a word from a
// one-byte tag: their shortest payload is the byte.)
TEST_P(SkeletonGetter, PayloadOneByteShortOfTheRead) {
    const Row& r = GetParam();
    const size_t reads = ReadBytes(r);
    if (reads < 2) GTEST_SKIP() << "a shorter payload is an empty one";
    kvhost::setExactPayloads(Hardened());
    std::vector<uint8_t> bytes = r.payload.bytes;
    bytes.resize(reads - 1);
    const int put = Holder().putAnyType(r.tag.Id(), TagType::Byte, bytes.data(), bytes.size());
    kvhost::setExactPayloads(false);
    ASSERT_EQ(put, 0);
    std::vector<uint8_t> out = Before();
    const int rc = r.invoke(utils, md, out.data());
    if (!Hardened()) {
        EXPECT_EQ(rc, 0);
        return;
    }
    EXPECT_EQ(rc, -1);
    EXPECT_EQ(out, Before());
    char tag[16];
    std::snprintf(tag, sizeof tag, "tag 0x%x", r.tag.id);
    EXPECT_EQ(Lines(), (LineList{L(3, r.file, r.method,
                                   std::string(r.tag.name ? r.tag.name : tag) +
                                       " too short: " + std::to_string(reads - 1) +
                                       " bytes, read needs " + std::to_string(reads))}));
}

INSTANTIATE_TEST_SUITE_P(Rows, SkeletonGetter, ::testing::ValuesIn(kRows),
                         [](const auto& info) { return std::string(info.param.method); });

// ---- Conversions with more than one interesting value -----------------------

TEST_F(MetaTest, FocusDistanceInCentimetres) {
    const struct {
        float diopters;
        int cm;
    } cases[] = {{0.0f, 1000},  {0.3f, 333},           {3.0f, 33},          {200.0f, 0},
                 {-1.0f, 1000}, {std::nanf(""), 1000}, {1e-40f, 2147483647}};
    for (const auto& c : cases) {
        md->putFloat(0x80003u, {c.diopters});
        int cm = -7;
        EXPECT_EQ(utils.GetfocusDistCm(md, &cm), 0);
        EXPECT_EQ(cm, c.cm) << c.diopters;
    }
}

TEST_F(MetaTest, AfStateReadsAWholeWord) {
    md->putBytes(0x10020u, std::vector<uint8_t>{1, 2, 3, 4}.data(), 4);
    unsigned state = 0;
    EXPECT_EQ(utils.GetAFState(md, &state), 0);
    EXPECT_EQ(state, 0x04030201u);
}

TEST_F(MetaTest, MainActiveSizeFromCentredCrops) {
    // Size plus twice the margin, wrapping at 32 bits in the last case.
    const struct {
        std::vector<int32_t> crop;
        kvalgo2::ChiRect main;
    } cases[] = {{{0, 0, 4000, 3000}, Rect(0, 0, 4000, 3000)},
                 {{500, 375, 3000, 2250}, Rect(0, 0, 4000, 3000)},
                 {{100, 50, 800, 600}, Rect(0, 0, 1000, 700)},
                 {{INT32_MIN, -1, 16, 5}, Rect(0, 0, 16, 3)}};
    for (const auto& c : cases) {
        md->putInt32(0xD0000u, c.crop);
        kvalgo2::ChiRect out = Rect(9, 9, 9, 9);
        EXPECT_EQ(utils.GetActiveArraySizeMain(md, &out), 0);
        EXPECT_EQ(Bytes(out), Bytes(c.main)) << c.crop[0];
    }
}

// ---- Record getters and setters ---------------------------------------------

TEST_F(MetaTest, LensShadingMapCopiesTheCallersGrid) {
    std::vector<float> map(17 * 13 * 4 + 8);
    for (size_t i = 0; i < map.size(); ++i) map[i] = static_cast<float>(i) * 0.5f;
    md->putFloat(0x11000Bu, map);
    int size[2] = {17, 13};
    std::vector<float> out(map.size(), -1.0f);
    EXPECT_EQ(utils.GetLSC(md, size, out.data()), 0);
    EXPECT_TRUE(std::equal(out.begin(), out.begin() + 17 * 13 * 4, map.begin()));
    EXPECT_EQ(out[17 * 13 * 4], -1.0f);  // 3536 bytes, not one more
    EXPECT_EQ(size[0], 17);

    int empty[2] = {0, 13};
    std::fill(out.begin(), out.end(), -1.0f);
    EXPECT_EQ(utils.GetLSC(md, empty, out.data()), 0);
    EXPECT_EQ(out[0], -1.0f);
    int negative[2] = {-1, -1};  // a signed product: one point, 16 bytes
    EXPECT_EQ(utils.GetLSC(md, negative, out.data()), 0);
    EXPECT_EQ(out[3], map[3]);
    EXPECT_EQ(out[4], -1.0f);

    capture.clear();
    md->clear();
    EXPECT_EQ(utils.GetLSC(md, size, nullptr), -2);
    EXPECT_EQ(utils.GetLSC(md, nullptr, out.data()), -2);  // absent tag: size never read
    EXPECT_EQ(
        Lines(),
        (LineList{L(4, kMU, "GetLSC", "arg err"), kLookupMiss,
                  L(3, kMU, "GetLSC", "GetMetadata ANDROID_STATISTICS_LENS_SHADING_MAP fail")}));
}

using SetterCall = std::function<int(MetaUtils&, std::shared_ptr<KvMetadata>, bool nullValue)>;
template <typename T>
SetterCall Setter(int (MetaUtils::*method)(std::shared_ptr<KvMetadata>, T*), T value) {
    return [=](MetaUtils& u, std::shared_ptr<KvMetadata> m, bool nullValue) {
        T v = value;
        return (u.*method)(std::move(m), nullValue ? nullptr : &v);
    };
}

TEST_F(MetaTest, SettersWriteOneElement) {
    const struct {
        const char* method;
        const char* tag;
        SetterCall call;
        std::vector<uint8_t> written;  // element bytes the tag must hold afterwards
    } rows[] = {
        {"SetIspGain", "com.qti.sensorbps.gain", Setter(&MetaUtils::SetIspGain, 1.25f),
         Bytes(1.25f)},
        {"SetHazeratio", "com.kovani.3AAlgo.awbHazeRatio", Setter(&MetaUtils::SetHazeratio, 0.4f),
         Bytes(0.4f)},
        {"SetAIToneFlag", "com.kovani.3AAlgo.aecAItoneFlag", Setter(&MetaUtils::SetAIToneFlag, 1),
         Bytes<int32_t>(1)},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.method);
        capture.clear();
        md->clear();
        EXPECT_EQ(r.call(utils, md, true), -2);
        EXPECT_EQ(r.call(utils, nullptr, false), -2);
        EXPECT_EQ(md->size(), 0u);
        EXPECT_EQ(
            Lines(),
            (LineList{L(4, kMU, r.method, "arg err"), L(4, kMU, "SetMetaData", "pArg is null"),
                      L(3, kMU, r.method, std::string("SetMetadata ") + r.tag + " err")}));
        capture.clear();
        EXPECT_EQ(r.call(utils, md, false), 0);
        const auto e = md->find(r.tag);
        ASSERT_EQ(e.count, 1u);
        EXPECT_EQ(std::memcmp(e.data.u8, r.written.data(), r.written.size()), 0);
        EXPECT_TRUE(Lines().empty());
    }
}

}  // namespace
}  // namespace kvtest
