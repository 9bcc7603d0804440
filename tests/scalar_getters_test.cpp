// Getters built on the tag getter skeleton: one row per getter, every row put
// through the same checks (value, null output, absent tag, null container).
#include <cmath>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "TestSupport.h"

namespace kvtest {
namespace {

using kvalgo2::MetaUtils;
using kvhost::TagType;

using Invoke = std::function<int(MetaUtils&, std::shared_ptr<KvMetadata>, void*)>;

template <typename T>
Invoke Bind(int (MetaUtils::*method)(std::shared_ptr<KvMetadata>, T*)) {
    return [method](MetaUtils& u, std::shared_ptr<KvMetadata> m, void* out) {
        return (u.*method)(std::move(m), static_cast<T*>(out));
    };
}

// Getters with a trailing int that they ignore: called with an arbitrary value.
template <typename T>
Invoke Bind(int (MetaUtils::*method)(std::shared_ptr<KvMetadata>, T*, int), int extra) {
    return [method, extra](MetaUtils& u, std::shared_ptr<KvMetadata> m, void* out) {
        return (u.*method)(std::move(m), static_cast<T*>(out), extra);
    };
}

struct Payload {
    TagType type;
    std::vector<uint8_t> bytes;
    size_t count;
};

template <typename T>
Payload Of(TagType type, std::vector<T> values) {
    Payload p{type, std::vector<uint8_t>(values.size() * sizeof(T)), values.size()};
    std::memcpy(p.bytes.data(), values.data(), p.bytes.size());
    return p;
}
Payload Blob(std::vector<uint8_t> bytes) {
    return Payload{TagType::Byte, bytes, bytes.size()};
}

// Writes a payload of any element type under a tag id.
void Put(kvhost::Metadata& m, uint32_t id, const Payload& p) {
    int rc = -1;
    switch (p.type) {
        case TagType::Byte:
            rc = m.putBytes(id, p.bytes.data(), p.count);
            break;
        case TagType::Int32: {
            std::vector<int32_t> v(p.count);
            std::memcpy(v.data(), p.bytes.data(), p.bytes.size());
            rc = m.putInt32(id, v);
            break;
        }
        case TagType::Float: {
            std::vector<float> v(p.count);
            std::memcpy(v.data(), p.bytes.data(), p.bytes.size());
            rc = m.putFloat(id, v);
            break;
        }
        case TagType::Int64: {
            std::vector<int64_t> v(p.count);
            std::memcpy(v.data(), p.bytes.data(), p.bytes.size());
            rc = m.putInt64(id, v);
            break;
        }
        default:
            FAIL() << "payload type not used by these rows";
    }
    ASSERT_EQ(rc, 0) << "tag 0x" << std::hex << id;
}

struct Row {
    const char* method;
    const char* file;
    const char* tagName;  // vendor tag, or null for an id tag
    uint32_t tagId;
    Payload payload;
    Invoke invoke;
    std::vector<uint8_t> expected;  // the output's bytes after success
    const char* lookupFail;         // the getter's own lookup-failure message
    bool checksMetadata;
    std::vector<Line> successLines;
};

uint32_t IdOf(const Row& r) {
    if (r.tagName == nullptr) return r.tagId;
    uint32_t id = 0;
    EXPECT_EQ(KvMetadata::getTagFromName(r.tagName, &id), 0) << r.tagName;
    return id;
}

std::ostream& operator<<(std::ostream& os, const Row& r) {
    return os << r.method;
}

constexpr const char* kMU = "MetaUtils.cpp";
constexpr const char* kMtk = "MetaUtilsMtk.cpp";
constexpr const char* kDefaultFail = "GetMetadata err";

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
    {"GetPhyCameraId", kMU, "kovani.snapshot.physCameraId", 0, Of<int32_t>(TagType::Int32, {5}),
     Bind(&MetaUtils::GetPhyCameraId), Bytes<int>(5), kDefaultFail, false, {}},
    {"GetSensorExposureTime", kMU, nullptr, 0xE0000, Of<int64_t>(TagType::Int64, {33333333}),
     Bind(&MetaUtils::GetSensorExposureTime), Bytes<long>(33333333), kDefaultFail, false, {}},
    {"GetAndroidJpegOrientation", kMU, nullptr, 0x70003, Of<int32_t>(TagType::Int32, {270}),
     Bind(&MetaUtils::GetAndroidJpegOrientation), Bytes<int>(270), kDefaultFail, false, {}},
    {"GetStylizationType", kMU, "com.kovani.sessionparams.stylizationType", 0, Blob({0xFE}),
     Bind(&MetaUtils::GetStylizationType), Bytes<unsigned char>(0xFE), kDefaultFail, false, {}},
    {"GetSensorTimestamp", kMU, "kovani.mfnr.anchorTimeStamp", 0,
     Of<int64_t>(TagType::Int64, {-5000000000LL}), Bind(&MetaUtils::GetSensorTimestamp),
     Bytes<long>(-5000000000L), kDefaultFail, false, {}},
    {"GetWhiteBlackRatio", kMU, "com.kovani.statsaec.AECWhiteBlackFrameAdj", 0,
     Of<float>(TagType::Float, {0.75f}), Bind(&MetaUtils::GetWhiteBlackRatio), Bytes(0.75f),
     "GetMetadata AECWhiteBlackRatio err", false, {}},
    {"GetSensorDynamicWhiteLevel", kMU, nullptr, 0xE001D, Of<int32_t>(TagType::Int32, {1023}),
     Bind(&MetaUtils::GetSensorDynamicWhiteLevel), Bytes<int>(1023),
     "GetMetadata ANDROID_SENSOR_DYNAMIC_WHITE_LEVEL fail", false,
     {L(0, kMU, "GetSensorDynamicWhiteLevel", "ANDROID_SENSOR_DYNAMIC_WHITE_LEVEL: 1023")}},
    {"GetAndroidTimeStamp", kMU, nullptr, 0xE0010, Of<int64_t>(TagType::Int64, {123456789012LL}),
     Bind(&MetaUtils::GetAndroidTimeStamp), Bytes<long>(123456789012L),
     "GetMetadata ANDROID_SENSOR_TIMESTAMP fail", false, {}},
    {"GetfocusDistCm", kMU, nullptr, 0x80003, Of<float>(TagType::Float, {0.3f}),
     Bind(&MetaUtils::GetfocusDistCm), Bytes<int>(333), kDefaultFail, false, {}},
    {"GetSensitivity", kMU, nullptr, 0xE0002, Of<int32_t>(TagType::Int32, {3200}),
     Bind(&MetaUtils::GetSensitivity), Bytes<int>(3200), kDefaultFail, false, {}},
    {"GetAFState", kMU, nullptr, 0x10020, Blob({4}), Bind(&MetaUtils::GetAFState),
     Bytes<unsigned>(4), "GetMetadata ANDROID_CONTROL_AF_STATE err", false, {}},
    {"GetAFMode", kMU, nullptr, 0x10007, Blob({3}), Bind(&MetaUtils::GetAFMode), Bytes<unsigned>(3),
     "GetMetadata ANDROID_CONTROL_AF_MODE err", false, {}},
    {"GetIsZSLEnableReal", kMU, nullptr, 0x10029, Blob({0xFF}),
     Bind(&MetaUtils::GetIsZSLEnableReal), Bytes<int>(255),
     "GetMetadata ANDROID_CONTROL_ENABLE_ZSL fail", false, {}},
    {"GetANDROIDFlashMode", kMU, nullptr, 0x40002, Blob({2}), Bind(&MetaUtils::GetANDROIDFlashMode),
     Bytes<int>(2), "GetMetadata ANDROID_FLASH_MODE fail", false, {}},
    {"GetVXFlashMode", kMU, "kovani.flash.mode", 0, Of<int32_t>(TagType::Int32, {-3}),
     Bind(&MetaUtils::GetVXFlashMode), Bytes<int>(-3), "GetMetadata kovani.flash.mode fail", false,
     {}},
    {"GetAndroidSensorFrameDuration", kMU, nullptr, 0xE0001,
     Of<int64_t>(TagType::Int64, {33333333}), Bind(&MetaUtils::GetAndroidSensorFrameDuration),
     Bytes<long>(33333333), "GetMetadata ANDROID_SENSOR_FRAME_DURATION fail", false, {}},
    {"GetVXPanshotFeatureEnable", kMU, "com.kovani.panshotTruck.FeatureEnable", 0,
     Of<int32_t>(TagType::Int32, {1}), Bind(&MetaUtils::GetVXPanshotFeatureEnable), Bytes<int>(1),
     "GetMetadata com.kovani.panshotTruck.FeatureEnable fail", false, {}},
    {"GetAndroidZoomRatio", kMU, nullptr, 0x1002F, Of<float>(TagType::Float, {2.5f}),
     Bind(&MetaUtils::GetAndroidZoomRatio), Bytes(2.5f),
     "GetMetaData ANDROID_CONTROL_ZOOM_RATIO fail", true, {}},
    {"GetZoomEisEffective", kMU, "com.kovani.camera.zoomeis.effectiverate", 0,
     Of<float>(TagType::Float, {1.8f}), Bind(&MetaUtils::GetZoomEisEffective), Bytes(1.8f),
     "GetMetaData com.kovani.camera.zoomeis.effectiverate fail", true, {}},
    {"GetApertureValue", kMU, nullptr, 0x80000, Of<float>(TagType::Float, {1.8f}),
     Bind(&MetaUtils::GetApertureValue), Bytes(1.8f), "GetMetadata ANDROID_LENS_APERTURE err",
     false, {}},
    {"GetFwkCameraId", kMU, "kovani.snapshot.fwkCameraId", 0, Of<int32_t>(TagType::Int32, {2}),
     Bind(&MetaUtils::GetFwkCameraId), Bytes<int>(2), "Get fwkCameraId err", false, {}},
    {"GetThermalLevel", kMU, "kovani.thermal.thermalLevel", 0, Of<int32_t>(TagType::Int32, {4}),
     Bind(&MetaUtils::GetThermalLevel), Bytes<int>(4), "GetMetadata thermalLevel err", false, {}},
    {"GetLaserDist", kMU, "kovani.ai.kvsd.laserDist", 0, Of<int32_t>(TagType::Int32, {1234}),
     Bind(&MetaUtils::GetLaserDist), Laser(1234), kDefaultFail, false, {}},
    {"GetSmartAeInfo", kMU, "kovani.ai.asd.SmartAE", 0, Blob(Pattern(460)),
     Bind(&MetaUtils::GetSmartAeInfo), Pattern(448), kDefaultFail, false, {}},
    // Burst and preview exposure.
    {"GetTimestamp", kMtk, "org.quic.camera.qtimer.startOfExposure", 0,
     Of<int64_t>(TagType::Int64, {987654321012LL}), Bind(&MetaUtils::GetTimestamp),
     Bytes<long>(987654321012L), kDefaultFail, false, {}},
    {"GetCCT", kMtk, "com.mediatek.3afeature.awbColorTemperature", 0,
     Of<int32_t>(TagType::Int32, {5000}), Bind(&MetaUtils::GetCCT), Bytes(5000.0f), kDefaultFail,
     false, {}},
    {"GetBurstInfoFaceLuma", kMtk, "kovani.ae.average.face.luma", 0,
     Of<int32_t>(TagType::Int32, {-40}), Bind(&MetaUtils::GetBurstInfoFaceLuma), Bytes(-40.0f),
     "GetMetadata kovani.ae.average.face.luma err", false, {}},
    {"GetBurstInfoFrameLuma", kMtk, "kovani.ae.average.frame.luma", 0,
     Of<int32_t>(TagType::Int32, {118}), Bind(&MetaUtils::GetBurstInfoFrameLuma), Bytes(118.0f),
     "GetMetadata kovani.ae.average.frame.luma err", false, {}},
    // 5e9 ns: beyond 32 bits, exactly representable as a float.
    {"GetBurstInfoShutter", kMtk, nullptr, 0xE0000, Of<int64_t>(TagType::Int64, {5000000000LL}),
     Bind(&MetaUtils::GetBurstInfoShutter, 7), Bytes(5.0e9f),
     "GetMetadata ANDROID_SENSOR_EXPOSURE_TIME err", false, {}},
    {"GetBurstInfoLuxIndex", kMtk, "com.kovani.statsconfigs.AecInfo", 0, AecInfo(-3.7f, 412),
     Bind(&MetaUtils::GetBurstInfoLuxIndex), Bytes<int>(-3), kDefaultFail, false, {}},
    {"GetBurstInfoExpIndex", kMtk, "com.kovani.statsconfigs.AecInfo", 0, AecInfo(-3.7f, 412),
     Bind(&MetaUtils::GetBurstInfoExpIndex, -99), Bytes<int>(412),
     "GetMetadata com.kovani.statsconfigs.AecInfo err", false, {}},
    {"GetBurstInfoDarkBoostGain", kMtk, "kovani.ae.dark.tonegain", 0,
     Of<int32_t>(TagType::Int32, {1536}), Bind(&MetaUtils::GetBurstInfoDarkBoostGain),
     Bytes(1.5f), kDefaultFail, false, {}},
    {"GetPreviewAdrcGain", kMtk, "kovani.ae.mid.tonegain", 0, Of<int32_t>(TagType::Int32, {512}),
     Bind(&MetaUtils::GetPreviewAdrcGain), Bytes(0.5f), "GetMetadata PreviewAdrcGain err", false,
     {}},
    {"GetPreviewFrameLuma", kMtk, "kovani.longexposure.cwv", 0, Of<int32_t>(TagType::Int32, {64}),
     Bind(&MetaUtils::GetPreviewFrameLuma), Bytes(64.0f), "GetMetadata PreviewFrameLuma err",
     false, {}},
    {"GetPreviewTargetLuma", kMtk, "kovani.longexposure.cwr", 0,
     Of<int32_t>(TagType::Int32, {80}), Bind(&MetaUtils::GetPreviewTargetLuma), Bytes(80.0f),
     "GetMetadata PreviewTargetLuma err", false, {}},
    {"GetBurstInfoBpsIspGain", kMtk, nullptr, 0x80060011, Of<int32_t>(TagType::Int32, {6144}),
     Bind(&MetaUtils::GetBurstInfoBpsIspGain), Bytes(1.5f),
     "GetMetadata MTK_3A_FEATURE_AE_ISP_GAIN_VALUE err", false, {}},
    // The same first word, unsigned and signed.
    {"GetQTimeStamp", kMtk, "com.kovani.mtk.p1node.frameinfo", 0,
     Of<int64_t>(TagType::Int64, {-2, 5}), Bind(&MetaUtils::GetQTimeStamp),
     Bytes<unsigned long>(0xFFFFFFFFFFFFFFFEul), "GetMetadata com.kovani.mtk.p1node.frameinfo err",
     false, {}},
    {"GetFrameSyncTimestamp", kMtk, "com.kovani.mtk.p1node.frameinfo", 0,
     Of<int64_t>(TagType::Int64, {-2, 5}), Bind(&MetaUtils::GetFrameSyncTimestamp), Bytes<long>(-2),
     "GetMetadata com.kovani.mtk.p1node.frameinfo err", false, {}},
    {"GetSnapshotReqInfoUIEV", kMtk, "kovani.ae.exposureCompensation", 0,
     Of<int32_t>(TagType::Int32, {-6}), Bind(&MetaUtils::GetSnapshotReqInfoUIEV), Bytes<int>(-6),
     "GetMetadata kovani.supernight.real.manualev err", false, {}},
    {"GetPreviewISPGain", kMtk, "kovani.burst.last.preview.ispGain", 0,
     Of<int32_t>(TagType::Int32, {6144}), Bind(&MetaUtils::GetPreviewISPGain), Bytes(1.5f),
     "GetMetadata kovani.burst.last.preview.ispGain err", false, {}},
    {"GetPreviewExposure", kMtk, "kovani.burst.last.preview.exposure.time", 0,
     Of<int64_t>(TagType::Int64, {5000000000LL}), Bind(&MetaUtils::GetPreviewExposure),
     Bytes(5.0e9f), "GetMetadata PreviewExposure err", false, {}},
    {"GetFaceAverageBrightness", kMtk, "kovani.ai.asd.FaceAverageBrightness", 0,
     Of<float>(TagType::Float, {37.25f}), Bind(&MetaUtils::GetFaceAverageBrightness),
     Bytes(37.25f), "GetMetadata FaceAverageBrightness err", false, {}},
    {"GetMotionVelocity", kMtk, "kovani.ai.kvsd.motionVelocity", 0,
     Of<int32_t>(TagType::Int32, {-12}), Bind(&MetaUtils::GetMotionVelocity), Bytes(-12.0f),
     "GetMetadata motionVelocity err", false, {}},
    {"GetIsZSLEnable", kMtk, "kovani.control.zsl.enable", 0, Blob({0xFF}),
     Bind(&MetaUtils::GetIsZSLEnable), Bytes<int>(255),
     "GetMetadata kovani.control.zsl.enable fail", false, {}},
    // Reports presence only: the output keeps the caller's bytes.
    {"GetBurstInfoBpsIspGainShort", kMtk, "org.quic.camera2.statsconfigs.AECFrameControl", 0,
     Blob(Pattern(32)), Bind(&MetaUtils::GetBurstInfoBpsIspGainShort),
     std::vector<uint8_t>(4, 0xA5), kDefaultFail, false, {}},

    // Scene, motion-capture and anchor-frame.
    {"GetHighlightAnchorOrder", kMU, "kovani.aihighlight.anchorOrder", 0,
     Of<int32_t>(TagType::Int32, {3}), Bind(&MetaUtils::GetHighlightAnchorOrder), Bytes<int>(3),
     kDefaultFail, false, {}},
    {"GetStreetAnchorOrder", kMU, "com.kovani.ext.control.streetmode.anchor.order", 0,
     Of<int32_t>(TagType::Int32, {2}), Bind(&MetaUtils::GetStreetAnchorOrder), Bytes<int>(2),
     kDefaultFail, false, {}},
    {"GetSunsetScene", kMU, "kovani.ai.asd.SunsetScene", 0, Blob(Pattern(12)),
     Bind(&MetaUtils::GetSunsetScene), Pattern(8), "GetMetadata kovani.ai.asd.SunsetScene err",
     false, {}},
    {"GetAISceneIndoor", kMU, "kovani.ai.asd.algoSceneDetectedIndoor", 0,
     Of<int32_t>(TagType::Int32, {1}), Bind(&MetaUtils::GetAISceneIndoor), Bytes<int>(1),
     "GetMetadata kovani.ai.asd.algoSceneDetectedIndoor err", false, {}},
    {"GetMotionCaptureType", kMU, "kovani.ai.kvsd.motionCaptureType", 0,
     Of<int32_t>(TagType::Int32, {-1}), Bind(&MetaUtils::GetMotionCaptureType),
     Bytes<unsigned>(0xFFFFFFFFu), "GetMetadata kovani.ai.kvsd.motionCaptureType err", false, {}},
    {"GetMotionCaptureFrameType", kMU, "kovani.ai.kvsd.motionCaptureType", 0,
     Of<int32_t>(TagType::Int32, {-1}), Bind(&MetaUtils::GetMotionCaptureFrameType),
     Bytes<int>(-1), "GetMetadata kovani.ai.kvsd.motionCaptureType err", false, {}},
    {"GetVXAihighlightIs", kMU, "com.kv.node.kvaihighlight.isHighLight", 0,
     Of<int32_t>(TagType::Int32, {1}), Bind(&MetaUtils::GetVXAihighlightIs), Bytes<int>(1),
     "GetMetadata com.kv.node.kvaihighlight.isHighLight err", false, {}},
    {"GetBandingSceneType", kMU, "kovani.ai.kvsd.bandingSceneType", 0,
     Of<int32_t>(TagType::Int32, {50}), Bind(&MetaUtils::GetBandingSceneType), Bytes<int>(50),
     "GetMetadata kovani.ai.kvsd.bandingSceneType err", false, {}},
    {"GetPreAnchorProcStatus", kMU, "com.kovani.orlo2.preAnchorProc", 0,
     Of<int32_t>(TagType::Int32, {1}), Bind(&MetaUtils::GetPreAnchorProcStatus), Bytes<int>(1),
     "GetMetadata com.kovani.orlo2.preAnchorProc err", false, {}},
    {"GetPreAnchorProcFrameNum", kMU, "com.kovani.orlo2.anchorFrameNum", 0,
     Of<int32_t>(TagType::Int32, {6}), Bind(&MetaUtils::GetPreAnchorProcFrameNum), Bytes<int>(6),
     "GetMetadata com.kovani.orlo2.anchorFrameNum err", false, {}},

    // Bokeh records and per-frame scene values.
    {"GetBokehRequestInfoList", kMU, "com.kovani.camera.bokehConfig.request", 0,
     Blob(Pattern(124)), Bind(&MetaUtils::GetBokehRequestInfoList), Pattern(124),
     "GetMetadata bokehRequestConfig err", false, {}},
    {"GetBokehCapsInfo", kMU, "com.kovani.camera.bokehCaps.info", 0, Blob(Pattern(21588)),
     Bind(&MetaUtils::GetBokehCapsInfo), Pattern(21588), "GetMetadata BokehCapsInfo err", false,
     {}},
    {"GetBokehConfigStream", kMU, "com.kovani.camera.bokehConfig.stream", 0, Blob(Pattern(200)),
     Bind(&MetaUtils::GetBokehConfigStream), Pattern(128), "GetMetadata BokehConfigStream err",
     false, {}},
    {"GetInputNum", kMU, "kovani.multiframe.inputNum", 0, Of<int32_t>(TagType::Int32, {8}),
     Bind(&MetaUtils::GetInputNum), Bytes<int>(8), "GetMetadata kovani.multiframe.inputNum fail",
     false, {}},
    {"GetSceneDetectedAIResult", kMU, "kovani.ai.asd.algoSceneDetectedAIResult", 0,
     SceneResult(3, 0.5f, 7, 0.25f), Bind(&MetaUtils::GetSceneDetectedAIResult),
     SceneResult(3, 0.5f, 7, 0.25f).bytes, "get kovani.ai.asd.algoSceneDetectedAIResult fail", false,
     {L(2, kMU, "GetSceneDetectedAIResult",
        "sceneDetected(result/confidence):{3/0.500000 7/0.250000}")}},
    {"GetSceneDetectedIndoor", kMU, "kovani.ai.asd.algoSceneDetectedIndoor", 0,
     Of<int32_t>(TagType::Int32, {1}), Bind(&MetaUtils::GetSceneDetectedIndoor), Bytes<int>(1),
     "get kovani.ai.asd.algoSceneDetectedIndoor fail", false,
     {L(0, kMU, "GetSceneDetectedIndoor", "inDoor:1")}},
};
// clang-format on

class SkeletonGetter : public MetaTest, public ::testing::WithParamInterface<Row> {
protected:
    // The caller's output before the call: recognisable bytes.
    std::vector<uint8_t> Before() const {
        return std::vector<uint8_t>(GetParam().expected.size(), 0xA5);
    }
};

TEST_P(SkeletonGetter, ReadsAndConvertsThePayload) {
    const Row& r = GetParam();
    Put(*md, IdOf(r), r.payload);
    std::vector<uint8_t> out = Before();
    EXPECT_EQ(r.invoke(utils, md, out.data()), 0);
    EXPECT_EQ(out, r.expected);
    EXPECT_EQ(Lines(), r.successLines);
}

TEST_P(SkeletonGetter, NullOutputIsArgErr) {
    const Row& r = GetParam();
    Put(*md, IdOf(r), r.payload);
    EXPECT_EQ(r.invoke(utils, md, nullptr), -2);
    EXPECT_EQ(Lines(), (std::vector<Line>{L(4, r.file, r.method, "arg err")}));
}

TEST_P(SkeletonGetter, AbsentTagLeavesOutputAndLogsBothStatements) {
    const Row& r = GetParam();
    std::vector<uint8_t> out = Before();
    EXPECT_EQ(r.invoke(utils, md, out.data()), -2);
    EXPECT_EQ(out, Before());
    EXPECT_EQ(Lines(), (std::vector<Line>{L(3, kMU, "GetMetaData", "GetMetadata err"),
                                          L(3, r.file, r.method, r.lookupFail)}));
}

TEST_P(SkeletonGetter, EmptyEntryIsALookupFailure) {
    const Row& r = GetParam();
    ASSERT_EQ(md->putEmpty(IdOf(r)), 0);
    std::vector<uint8_t> out = Before();
    EXPECT_EQ(r.invoke(utils, md, out.data()), -2);
    EXPECT_EQ(out, Before());
}

TEST_P(SkeletonGetter, NullMetadata) {
    const Row& r = GetParam();
    std::vector<uint8_t> out = Before();
    EXPECT_EQ(r.invoke(utils, nullptr, out.data()), -2);
    EXPECT_EQ(out, Before());
    const std::vector<Line> expected =
        r.checksMetadata ? std::vector<Line>{L(4, r.file, r.method, "arg err")}
                         : std::vector<Line>{L(4, kMU, "GetMetaData", "pArg is null"),
                                             L(3, r.file, r.method, r.lookupFail)};
    EXPECT_EQ(Lines(), expected);
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

TEST_F(MetaTest, SensorDynamicWhiteLevelLogsOnlyOnSuccess) {
    int level = 0;
    EXPECT_EQ(utils.GetSensorDynamicWhiteLevel(md, &level), -2);
    for (const Line& l : Lines()) EXPECT_NE(l.level, 0u) << l;
}

TEST_F(MetaTest, AfStateReadsAWholeWord) {
    // Four bytes in a one-byte tag: the word carries all of them.
    md->putBytes(0x10020u, std::vector<uint8_t>{1, 2, 3, 4}.data(), 4);
    unsigned state = 0;
    EXPECT_EQ(utils.GetAFState(md, &state), 0);
    EXPECT_EQ(state, 0x04030201u);
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
}

TEST_F(MetaTest, LensShadingMapFailures) {
    float map[4];
    int size[2] = {1, 1};
    EXPECT_EQ(utils.GetLSC(md, size, nullptr), -2);
    EXPECT_EQ(utils.GetLSC(md, nullptr, map), -2);  // absent tag: size never read
    EXPECT_EQ(Lines(),
              (std::vector<Line>{
                  L(4, kMU, "GetLSC", "arg err"), L(3, kMU, "GetMetaData", "GetMetadata err"),
                  L(3, kMU, "GetLSC", "GetMetadata ANDROID_STATISTICS_LENS_SHADING_MAP fail")}));
}

struct SetterRow {
    const char* method;
    const char* tag;
    std::function<int(MetaUtils&, std::shared_ptr<KvMetadata>, bool nullValue)> call;
    std::vector<uint8_t> written;  // element bytes the tag must hold afterwards
};

std::ostream& operator<<(std::ostream& os, const SetterRow& r) {
    return os << r.method;
}

const SetterRow kSetters[] = {
    {"SetIspGain", "com.qti.sensorbps.gain",
     [](MetaUtils& u, std::shared_ptr<KvMetadata> m, bool n) {
         float v = 1.25f;
         return u.SetIspGain(std::move(m), n ? nullptr : &v);
     },
     Bytes(1.25f)},
    {"SetHazeratio", "com.kovani.3AAlgo.awbHazeRatio",
     [](MetaUtils& u, std::shared_ptr<KvMetadata> m, bool n) {
         float v = 0.4f;
         return u.SetHazeratio(std::move(m), n ? nullptr : &v);
     },
     Bytes(0.4f)},
    {"SetAIToneFlag", "com.kovani.3AAlgo.aecAItoneFlag",
     [](MetaUtils& u, std::shared_ptr<KvMetadata> m, bool n) {
         int v = 1;
         return u.SetAIToneFlag(std::move(m), n ? nullptr : &v);
     },
     Bytes<int32_t>(1)},
};

class Setter : public MetaTest, public ::testing::WithParamInterface<SetterRow> {};

TEST_P(Setter, WritesOneElement) {
    const SetterRow& r = GetParam();
    EXPECT_EQ(r.call(utils, md, false), 0);
    const auto e = md->find(r.tag);
    ASSERT_EQ(e.count, 1u);
    EXPECT_EQ(std::memcmp(e.data.u8, r.written.data(), r.written.size()), 0);
    EXPECT_TRUE(Lines().empty());
}

TEST_P(Setter, Failures) {
    const SetterRow& r = GetParam();
    const std::string fail = std::string("SetMetadata ") + r.tag + " err";
    EXPECT_EQ(r.call(utils, md, true), -2);
    EXPECT_EQ(r.call(utils, nullptr, false), -2);
    EXPECT_EQ(Lines(), (std::vector<Line>{L(4, kMU, r.method, "arg err"),
                                          L(4, kMU, "SetMetaData", "pArg is null"),
                                          L(3, kMU, r.method, fail)}));
    EXPECT_EQ(md->size(), 0u);
}

INSTANTIATE_TEST_SUITE_P(Rows, Setter, ::testing::ValuesIn(kSetters),
                         [](const auto& info) { return std::string(info.param.method); });

}  // namespace
}  // namespace kvtest
