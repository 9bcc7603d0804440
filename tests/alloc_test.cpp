// Heap use of every getter that hands back no vector or map, and of the
// platform paths whose interface hands one to the library. This program replaces the global
// allocation functions to count calls, which can be done only once per program; it is therefore a
// binary of its own.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <new>
#include <vector>

#include "MetaUtils.h"
#include "kvhost/Adapter.h"
#include "kvhost/LogCapture.h"
#include "kvhost/Metadata.h"

namespace {

std::atomic<bool> gCounting{false};
std::atomic<long> gAllocations{0};

void* Allocate(std::size_t size) {
    if (gCounting.load()) ++gAllocations;
    return std::malloc(size != 0 ? size : 1);
}

}  // namespace

// Every replaceable form except the aligned ones goes through malloc/free, so
// sanitizer builds see matching pairs.
void* operator new(std::size_t size) {
    if (void* p = Allocate(size)) return p;
    throw std::bad_alloc();
}
void* operator new[](std::size_t size) {
    if (void* p = Allocate(size)) return p;
    throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size);
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete[](void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete(void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}
void operator delete[](void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}

namespace {

// Counts the allocations of `f`; the log sinks are quiet (no capture alive,
// no echo), as on a device where they write to preallocated buffers.
template <typename F>
long AllocationsOf(F f) {
    const bool echo = kvhost::logEcho();
    kvhost::setLogEcho(false);
    gAllocations = 0;
    gCounting = true;
    f();
    gCounting = false;
    kvhost::setLogEcho(echo);
    return gAllocations.load();
}

TEST(Allocation, FaceRectForTenFacesAllocatesNothing) {
    auto md = kvhost::Metadata::create();
    auto stat = kvhost::Metadata::create();
    ASSERT_EQ(stat->putInt32(0xF0000u, {0, 0, 4000, 3000}), 0);
    kvhost::setStaticMetadata(0, stat);
    ASSERT_EQ(md->putInt32("kovani.snapshot.fwkCameraId", {0}), 0);
    ASSERT_EQ(md->putInt32(0xD0000u, {0, 0, 4000, 3000}), 0);
    ASSERT_EQ(md->putInt32("kovani.insensorzoom.status", {1}), 0);
    std::vector<int32_t> faces;
    for (int i = 0; i < 10; ++i) {
        faces.insert(faces.end(),
                     {100 * i, 50 * i, 100 * i + 300, 50 * i + 300, 0, i, 45 * i, i, 0});
    }
    ASSERT_EQ(md->putInt32("kovani.bokeh.faceInfo", faces), 0);

    kvalgo2::MetaUtils utils;
    kvalgo2::KVFaceInfo info;
    int rc = -9;
    // A first call is not judged: it may meet one-time set-up of the stand-ins.
    AllocationsOf([&] { utils.GetFaceRect(md, 1920, 1080, info, 1); });
    EXPECT_EQ(AllocationsOf([&] { rc = utils.GetFaceRect(md, 1920, 1080, info, 1); }), 0);
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(info.faceCount, 10);
    // Also on the large-input path, where the active size is doubled.
    EXPECT_EQ(AllocationsOf([&] { rc = utils.GetFaceRect(md, 8000, 6000, info, 1); }), 0);
    EXPECT_EQ(rc, 0);
    kvhost::clearStaticMetadata();
}

TEST(Allocation, MapRectToInputAllocatesNothing) {
    kvalgo2::MetaUtils utils;
    __UtilsImage_Rect dst;
    int accepted = -9;
    int rejected = -9;
    const kvalgo2::ChiRect full = {0, 0, 4000, 3000};
    const kvalgo2::ChiRect face = {1000, 1000, 400, 400};
    EXPECT_EQ(AllocationsOf([&] {
                  accepted = utils.MapRectToInput(face, full, 1920, 1080, full, &dst);
                  rejected = utils.MapRectToInput(face, full, 0, 1080, full, &dst);
              }),
              0);
    EXPECT_EQ(accepted, 0);
    EXPECT_EQ(rejected, -1);
}

using kvalgo2::MetaUtils;
using Md = std::shared_ptr<KvMetadata>;
using Call = std::function<int(MetaUtils&, const Md&)>;

// Room for any getter's output, the 21588-byte bokeh record included.
alignas(8) unsigned char gOut[32768];

template <typename T, typename... Extra>
Call Into(int (MetaUtils::*method)(Md, T*, Extra...), Extra... extra) {
    return [=](MetaUtils& u, const Md& m) {
        return (u.*method)(m, reinterpret_cast<T*>(gOut), extra...);
    };
}
template <typename T>
T& Out() {
    return *reinterpret_cast<T*>(gOut);
}

// Every getter of the interface that returns no vector or map, on the path
// the container gives it. Those of the platform with a vector or a map are
// below, on their own.
const std::vector<Call>& Getters() {
    static const std::vector<Call> calls = {
        Into(&MetaUtils::GetPhyCameraId),
        Into(&MetaUtils::GetSensorExposureTime),
        Into(&MetaUtils::GetAndroidJpegOrientation),
        Into(&MetaUtils::GetStylizationType),
        Into(&MetaUtils::GetSensorTimestamp),
        Into(&MetaUtils::GetWhiteBlackRatio),
        Into(&MetaUtils::GetSensorDynamicWhiteLevel),
        Into(&MetaUtils::GetAndroidTimeStamp),
        Into(&MetaUtils::GetfocusDistCm),
        Into(&MetaUtils::GetSensitivity),
        Into(&MetaUtils::GetAFState),
        Into(&MetaUtils::GetAFMode),
        Into(&MetaUtils::GetIsZSLEnableReal),
        Into(&MetaUtils::GetANDROIDFlashMode),
        Into(&MetaUtils::GetVXFlashMode),
        Into(&MetaUtils::GetAndroidSensorFrameDuration),
        Into(&MetaUtils::GetVXPanshotFeatureEnable),
        Into(&MetaUtils::GetAndroidZoomRatio),
        Into(&MetaUtils::GetZoomEisEffective),
        Into(&MetaUtils::GetApertureValue),
        Into(&MetaUtils::GetFwkCameraId),
        Into(&MetaUtils::GetThermalLevel),
        Into(&MetaUtils::GetLaserDist),
        Into(&MetaUtils::GetSmartAeInfo),
        Into(&MetaUtils::GetTimestamp),
        Into(&MetaUtils::GetCCT),
        Into(&MetaUtils::GetBurstInfoFaceLuma),
        Into(&MetaUtils::GetBurstInfoFrameLuma),
        Into(&MetaUtils::GetBurstInfoShutter, 0),
        Into(&MetaUtils::GetBurstInfoLuxIndex),
        Into(&MetaUtils::GetBurstInfoExpIndex, 0),
        Into(&MetaUtils::GetBurstInfoDarkBoostGain),
        Into(&MetaUtils::GetPreviewAdrcGain),
        Into(&MetaUtils::GetPreviewFrameLuma),
        Into(&MetaUtils::GetPreviewTargetLuma),
        Into(&MetaUtils::GetBurstInfoBpsIspGain),
        Into(&MetaUtils::GetQTimeStamp),
        Into(&MetaUtils::GetFrameSyncTimestamp),
        Into(&MetaUtils::GetSnapshotReqInfoUIEV),
        Into(&MetaUtils::GetPreviewISPGain),
        Into(&MetaUtils::GetPreviewExposure),
        Into(&MetaUtils::GetFaceAverageBrightness),
        Into(&MetaUtils::GetMotionVelocity),
        Into(&MetaUtils::GetTFNRExpRatio),
        Into(&MetaUtils::GetBurstInfoAdrcGain),
        Into(&MetaUtils::GetBurstInfoBpsIspGainShort),
        Into(&MetaUtils::GetIsZSLEnable),
        Into(&MetaUtils::GetGTMTable),
        Into(&MetaUtils::GetBurstInfoLinearGain, 0),
        Into(&MetaUtils::GetPreviewBrightnessInfo),
        Into(&MetaUtils::GetSensorDynamicBlackLevel),
        Into(&MetaUtils::GetColorCorrectionTransform),
        Into(&MetaUtils::GetHdrEnabled),
        Into(&MetaUtils::GetSlaveAnchorFrame),
        Into(&MetaUtils::GetCropRegion),
        Into(&MetaUtils::GetAndroidCropRegion),
        Into(&MetaUtils::GetActiveArraySize),
        Into(&MetaUtils::GetMaxActiveArraySize),
        Into(&MetaUtils::GetStaticActiveArraySize),
        Into(&MetaUtils::GetActiveArraySizeMain),
        Into(&MetaUtils::GetRealAvailableMinDigitalZoom),
        Into(&MetaUtils::GetLensInfoShadingMapSize),
        Into(&MetaUtils::GetSensorBayerPatten),
        Into<int>(&MetaUtils::GetCameraRoleId),
        Into<unsigned int>(&MetaUtils::GetCameraRoleId),
        Into(&MetaUtils::GetCameraRoleIds),
        Into(&MetaUtils::GetKovaniSensorModeType),
        Into(&MetaUtils::GetSensorMode),
        Into(&MetaUtils::GetHighlightAnchorOrder),
        Into(&MetaUtils::GetStreetAnchorOrder),
        Into(&MetaUtils::GetSunsetScene),
        Into(&MetaUtils::GetAISceneIndoor),
        Into(&MetaUtils::GetMotionCaptureType),
        Into(&MetaUtils::GetMotionCaptureFrameType),
        Into(&MetaUtils::GetVXAihighlightIs),
        Into(&MetaUtils::GetBandingSceneType),
        Into(&MetaUtils::GetPreAnchorProcStatus),
        Into(&MetaUtils::GetPreAnchorProcFrameNum),
        Into(&MetaUtils::GetMotionCaptureAnchorOrder),
        Into(&MetaUtils::GetBokehRequestInfoList),
        Into(&MetaUtils::GetBokehCapsInfo),
        Into(&MetaUtils::GetBokehConfigStream),
        Into(&MetaUtils::GetInputNum),
        Into(&MetaUtils::GetImageName),
        Into(&MetaUtils::GetSceneDetectedAIResult),
        Into(&MetaUtils::GetSceneDetectedIndoor),
        [](MetaUtils& u, const Md& m) {
            void* data = nullptr;
            uint32_t count = 0;
            return u.GetMetaData(m, "kovani.thermal.thermalLevel", 0, &data, &count);
        },
        [](MetaUtils& u, const Md& m) {
            int size[2] = {17, 13};
            return u.GetLSC(m, size, reinterpret_cast<float*>(gOut));
        },
        [](MetaUtils& u, const Md& m) {
            bool valid = false;
            return u.GetAWBGain(m, Out<kvalgo2::AWBGain>(), valid);
        },
        [](MetaUtils& u, const Md& m) { return u.GetAWBGainAdj(m, Out<kvalgo2::AWBGainAdj>()); },
        [](MetaUtils& u, const Md& m) {
            bool valid = false;
            return u.GetBPSGammaOutput(m, &valid, reinterpret_cast<float*>(gOut));
        },
        [](MetaUtils& u, const Md& m) { return u.GetPlatFormGamma(m, Out<AIspGammaTbl>()); },
        [](MetaUtils& u, const Md& m) { return u.GetDynamicGamma(m, Out<AIspGammaTbl>()); },
        [](MetaUtils& u, const Md& m) { return m ? u.GetTeleFusionEnable(m) : 0; },
        [](MetaUtils& u, const Md& m) {
            uint32_t count = 0;
            return u.GetFacesInfoHolder(m, reinterpret_cast<int**>(gOut), &count);
        },
        [](MetaUtils& u, const Md& m) {
            return u.GetFaceRect(m, 8000, 6000, Out<kvalgo2::KVFaceInfo>(), 1);
        },
        [](MetaUtils& u, const Md& m) {
            return u.GetFacesNoMap(m, 1920, 1080, Out<kvalgo2::KVFaceInfo>());
        },
        [](MetaUtils& u, const Md& m) { return u.GetFaceInfo(m, Out<AIspFaceInfo>(), 1920, 1080); },
        [](MetaUtils& u, const Md& m) {
            UtilsImageBuf image{1920, 1080};
            return u.GetfocusROI(m, &image, &Out<__UtilsImage_Rect>());
        },
        [](MetaUtils& u, const Md& m) {
            UtilsImageBuf image{1920, 1080};
            return u.GetfocusTP(m, &image, &Out<__UtilsImage_point>());
        },
        [](MetaUtils& u, const Md&) { return u.GetCameraRoleId(0, reinterpret_cast<int*>(gOut)); },
        [](MetaUtils& u, const Md&) {
            bool a = false, b = false;
            return u.getAIspSensorMode(5, a, b) + u.getAIspSensorMode(99, a, b);
        },
        [](MetaUtils& u, const Md& m) {
            return u.GetKVSensorModeInfo(m, Out<kvalgo2::KVSensorModeInfo>()) +
                   u.GetStaticMetaKVSensorCaps(m, Out<kvalgo2::KVSensorCaps>());
        },
        [](MetaUtils& u, const Md& m) { return u.GetAISceneResult(m, Out<AIspSceneResult>()); },
        [](MetaUtils& u, const Md& m) {
            return u.GetEcdStatus(m, Out<AIspAnchorMeta>()) +
                   u.getEcdStatus(m, Out<AIspAnchorMeta>());
        },
        [](MetaUtils& u, const Md&) {
            AIspSensorType type;
            return u.GetAISPSensorType(0, type);  // the roles were asked on first use
        },
    };
    return calls;
}

// A container with every tag of the table, zero-filled and long enough for
// any getter's read, so each getter takes its success path; with faces, an
// AF region and the framework camera 0, whose static metadata is the same.
std::shared_ptr<kvhost::Metadata> FullContainer() {
    auto md = kvhost::Metadata::create();
    const std::vector<uint8_t> zeros(24 * 1024);
    for (const kvhost::TagInfo& t : kvhost::knownTags()) {
        md->put(t.id, t.type, zeros.data(), zeros.size() / kvhost::typeSize(t.type));
    }
    std::vector<int32_t> faces;
    for (int i = 0; i < 3; ++i)
        faces.insert(faces.end(), {100 * i, 50, 100 * i + 90, 140, 0, i, 90, i, 0});
    md->putInt32("kovani.bokeh.faceInfo", faces);
    md->putInt32(0x80060001u, {3, 1, 100, 100, 300, 300, 0});
    md->putInt32(0xF0000u, {0, 0, 4000, 3000});
    md->putInt32(0xD0000u, {0, 0, 4000, 3000});
    kvhost::setStaticMetadata(0, md);
    return md;
}

TEST(Allocation, EveryGetterWithoutVectorOrMapAllocatesNothing) {
    kvhost::resetAdapter();
    const Md full = FullContainer();
    const Md empty = kvhost::Metadata::create();
    MetaUtils utils;
    utils.SetCameraId(0, 0);
    const std::vector<Call>& calls = Getters();
    // First calls are not judged: one-time set-up (the adapter client, the
    // role statics of the sensor type).
    for (const Call& call : calls) call(utils, full);
    for (size_t i = 0; i < calls.size(); ++i) {
        // The success path on the full container, the lookup failures and
        // their lines on the empty one, the argument checks on none.
        for (const Md& md : {full, empty, Md()}) {
            EXPECT_EQ(AllocationsOf([&] { calls[i](utils, md); }), 0) << "getter row " << i;
        }
    }
    kvhost::clearStaticMetadata();
}

// The platform hands the role map and the gyro samples over by value: those
// copies are the interface's, and the library adds no allocation of its own.
TEST(Allocation, PlatformPathsAllocateOnlyWhatThePlatformHandsOver) {
    kvhost::AdapterScript script;
    script.roleMap = kvhost::makeRoleMap({{0, 0}, {2, 20}, {3, 21}});
    script.shiftFound = true;
    for (uint64_t i = 0; i < 200; ++i) script.gyroSamples.push_back({0, 0, 0, 0, 200 - i});
    kvhost::setAdapterScript(script);
    const auto md = FullContainer();
    md->putInt32("com.kovani.camera.sensorpolicy.cropregions",
                 {0, 0, 0, 0, 0, 400, 300, 3200, 2400});
    md->putInt64(0xE0010u, {1});
    MetaUtils utils;
    utils.SetCameraId(0, 0);
    kvalgo2::ChiRect crop;
    static AIspGyroData gyro;
    const auto finalCrop = [&] { utils.GetFinalCropRegion(md, crop, {4000, 3000}, false); };
    const auto gyroData = [&] { utils.GetGyroData(md, gyro, gyro.elements, 0, "k"); };
    finalCrop();
    gyroData();
    const long roleMapCopy = AllocationsOf([&] { auto copy = script.roleMap; });
    const long samplesCopy = AllocationsOf([&] { auto copy = script.gyroSamples; });
    EXPECT_EQ(AllocationsOf(finalCrop), roleMapCopy);
    EXPECT_EQ(AllocationsOf(gyroData), samplesCopy);
    EXPECT_EQ(gyro.count, 200);
    // Without a holder the shift comes from the frame: nothing at all.
    script.holderAvailable = false;
    kvhost::setAdapterScript(script);
    EXPECT_EQ(AllocationsOf(finalCrop), 0);
    kvhost::resetAdapter();
    kvhost::clearStaticMetadata();
}

// The counter itself: a live capture stores each line on the heap.
TEST(Allocation, CountingSeesTheCapturesAllocations) {
    kvhost::LogCapture capture;
    kvalgo2::MetaUtils utils;
    __UtilsImage_Rect dst;
    const kvalgo2::ChiRect full = {0, 0, 4000, 3000};
    EXPECT_GT(AllocationsOf([&] { utils.MapRectToInput(full, full, 0, 1080, full, &dst); }), 0);
    EXPECT_EQ(capture.texts(kvhost::LogSink::Online).size(), 1u);
}

}  // namespace
