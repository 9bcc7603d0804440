// Heap use of the getters that hand back no vector or map, and of the
// platform paths whose interface hands one to the library. This program
// replaces the global allocation functions to count calls, which can be done
// only once per program; it is therefore a binary of its own.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <new>
#include <vector>

#include "TestSupport.h"
#include "kvhost/Adapter.h"

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

using kvalgo2::MetaUtils;
using kvtest::Bind;
using Md = std::shared_ptr<KvMetadata>;

// Room for any getter's output, the 21588-byte bokeh record included.
alignas(8) unsigned char gOut[32768];

template <typename T>
T& Out() {
    return *reinterpret_cast<T*>(gOut);
}

// The getters that return no vector or map, on the path the container gives
// them. Those of the platform with a vector or a map are below, on their own.
const std::vector<kvtest::Invoke>& Getters() {
    static const std::vector<kvtest::Invoke> calls = {
        // The skeleton's rows differ only in data: one per shape and read,
        // and every row with a trace.
        Bind(&MetaUtils::GetPhyCameraId),
        Bind(&MetaUtils::GetVXFlashMode),
        Bind(&MetaUtils::GetSensorDynamicWhiteLevel),
        Bind(&MetaUtils::GetfocusDistCm),
        Bind(&MetaUtils::GetAFState),
        Bind(&MetaUtils::GetAndroidZoomRatio),
        Bind(&MetaUtils::GetCCT),
        Bind(&MetaUtils::GetBurstInfoShutter, 0),
        Bind(&MetaUtils::GetBurstInfoBpsIspGainShort),
        Bind(&MetaUtils::GetBokehCapsInfo),
        Bind(&MetaUtils::GetSceneDetectedAIResult),
        Bind(&MetaUtils::GetCropRegion),
        Bind(&MetaUtils::GetActiveArraySize),
        Bind(&MetaUtils::GetActiveArraySizeMain),
        Bind(&MetaUtils::GetSensorBayerPatten),
        // Special getters.
        Bind(&MetaUtils::GetTFNRExpRatio),
        Bind(&MetaUtils::GetBurstInfoAdrcGain),
        Bind(&MetaUtils::GetGTMTable),
        Bind(&MetaUtils::GetBurstInfoLinearGain, 0),
        Bind(&MetaUtils::GetPreviewBrightnessInfo),
        Bind(&MetaUtils::GetSensorDynamicBlackLevel),
        Bind(&MetaUtils::GetColorCorrectionTransform),
        Bind(&MetaUtils::GetHdrEnabled),
        Bind(&MetaUtils::GetSlaveAnchorFrame),
        Bind<int>(&MetaUtils::GetCameraRoleId),
        Bind<unsigned int>(&MetaUtils::GetCameraRoleId),
        Bind(&MetaUtils::GetCameraRoleIds),
        Bind(&MetaUtils::GetKovaniSensorModeType),
        Bind(&MetaUtils::GetSensorMode),
        Bind(&MetaUtils::GetMotionCaptureAnchorOrder),
        Bind(&MetaUtils::GetImageName),
        [](MetaUtils& u, Md m, void*) {
            void* data = nullptr;
            uint32_t count = 0;
            return u.GetMetaData(m, "kovani.thermal.thermalLevel", 0, &data, &count);
        },
        [](MetaUtils& u, Md m, void*) {
            int size[2] = {17, 13};
            return u.GetLSC(m, size, reinterpret_cast<float*>(gOut));
        },
        [](MetaUtils& u, Md m, void*) {
            bool valid = false;
            return u.GetAWBGain(m, Out<kvalgo2::AWBGain>(), valid);
        },
        Bind(&MetaUtils::GetAWBGainAdj),
        [](MetaUtils& u, Md m, void*) {
            bool valid = false;
            return u.GetBPSGammaOutput(m, &valid, reinterpret_cast<float*>(gOut));
        },
        Bind(&MetaUtils::GetPlatFormGamma),
        Bind(&MetaUtils::GetDynamicGamma),
        [](MetaUtils& u, Md m, void*) { return m ? u.GetTeleFusionEnable(m) : 0; },
        [](MetaUtils& u, Md m, void*) {
            uint32_t count = 0;
            return u.GetFacesInfoHolder(m, reinterpret_cast<int**>(gOut), &count);
        },
        // Ten faces, in-sensor zoom; the large input doubles the active size.
        [](MetaUtils& u, Md m, void*) {
            return u.GetFaceRect(m, 1920, 1080, Out<kvalgo2::KVFaceInfo>(), 1) +
                   u.GetFaceRect(m, 8000, 6000, Out<kvalgo2::KVFaceInfo>(), 1);
        },
        [](MetaUtils& u, Md, void*) {
            const kvalgo2::ChiRect full = {0, 0, 4000, 3000}, face = {1000, 1000, 400, 400};
            auto& dst = Out<__UtilsImage_Rect>();
            return u.MapRectToInput(face, full, 1920, 1080, full, &dst) +
                   u.MapRectToInput(face, full, 0, 1080, full, &dst);
        },
        [](MetaUtils& u, Md m, void*) {
            return u.GetFacesNoMap(m, 1920, 1080, Out<kvalgo2::KVFaceInfo>());
        },
        Bind(&MetaUtils::GetFaceInfo, 1920, 1080),
        [](MetaUtils& u, Md m, void*) {
            UtilsImageBuf image{1920, 1080};
            return u.GetfocusROI(m, &image, &Out<__UtilsImage_Rect>());
        },
        [](MetaUtils& u, Md m, void*) {
            UtilsImageBuf image{1920, 1080};
            return u.GetfocusTP(m, &image, &Out<__UtilsImage_point>());
        },
        [](MetaUtils& u, Md, void*) { return u.GetCameraRoleId(0, reinterpret_cast<int*>(gOut)); },
        [](MetaUtils& u, Md, void*) {
            bool a = false, b = false;
            return u.getAIspSensorMode(5, a, b) + u.getAIspSensorMode(99, a, b);
        },
        [](MetaUtils& u, Md m, void*) {
            return u.GetKVSensorModeInfo(m, Out<kvalgo2::KVSensorModeInfo>()) +
                   u.GetStaticMetaKVSensorCaps(m, Out<kvalgo2::KVSensorCaps>());
        },
        Bind(&MetaUtils::GetAISceneResult),
        [](MetaUtils& u, Md m, void*) {
            return u.GetEcdStatus(m, Out<AIspAnchorMeta>()) +
                   u.getEcdStatus(m, Out<AIspAnchorMeta>());
        },
        [](MetaUtils& u, Md, void*) {
            AIspSensorType type;
            return u.GetAISPSensorType(0, type);  // the roles were asked on first use
        },
    };
    return calls;
}

// A container with every tag of the table, zero-filled and long enough for
// any getter's read, so each getter takes its success path; with ten faces,
// in-sensor zoom, an AF region and the framework camera 0, whose static
// metadata is the same.
std::shared_ptr<kvhost::Metadata> FullContainer() {
    auto md = kvhost::Metadata::create();
    const std::vector<uint8_t> zeros(24 * 1024);
    for (const kvhost::TagInfo& t : kvhost::knownTags()) {
        md->put(t.id, t.type, zeros.data(), zeros.size() / kvhost::typeSize(t.type));
    }
    std::vector<int32_t> faces;
    for (int i = 0; i < 10; ++i)
        faces.insert(faces.end(),
                     {100 * i, 50 * i, 100 * i + 300, 50 * i + 300, 0, i, 45 * i, i, 0});
    md->putInt32("kovani.bokeh.faceInfo", faces);
    md->putInt32("kovani.insensorzoom.status", {1});
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
    const std::vector<kvtest::Invoke>& calls = Getters();
    // First calls are not judged: one-time set-up (the adapter client, the
    // role statics of the sensor type).
    for (const auto& call : calls) call(utils, full, gOut);
    for (size_t i = 0; i < calls.size(); ++i) {
        // The success path on the full container, the lookup failures and
        // their lines on the empty one, the argument checks on none.
        for (const Md& md : {full, empty, Md()}) {
            EXPECT_EQ(AllocationsOf([&] { calls[i](utils, md, gOut); }), 0) << "getter row " << i;
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
