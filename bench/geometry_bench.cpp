// The methods with logic and the plug-in's frame, each measured in by-id
// floors (a bare find and copy of one tag), so that they read the same on
// any machine; the gyro samples also against the platform's own calls.
#include "PlatformAdapter.h"
#include "Ratios.h"
#include "Scene.h"

extern "C" adapter::AdapterInstance* GetInstance();  // the adapter stand-in's entry

namespace kvbench {
namespace {

constexpr const char* kFloor = "getter/by-id scalar/floor";
constexpr const char* kGyroKey = "bench";

void MapRect(benchmark::State& state) {
    kvalgo2::MetaUtils utils = Utils();
    const kvalgo2::ChiRect face = {1000, 1000, 300, 300};
    const kvalgo2::ChiRect crop = {400, 300, 3200, 2400};
    const kvalgo2::ChiRect active = {0, 0, 4000, 3000};
    __UtilsImage_Rect dst;
    if (!Expect(state,
                utils.MapRectToInput(face, crop, kInputWidth, kInputHeight, active, &dst) == 0,
                "MapRectToInput failed")) {
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            utils.MapRectToInput(face, crop, kInputWidth, kInputHeight, active, &dst));
        benchmark::DoNotOptimize(dst);
    }
}

void FinalCrop(benchmark::State& state) {
    const std::shared_ptr<KvMetadata> md = scene().frame;
    kvalgo2::MetaUtils utils = Utils();
    kvalgo2::ChiRect crop{};
    // The platform's shift (6, -4) moves the table's crop (400, 300).
    if (!Expect(state,
                utils.GetFinalCropRegion(md, crop, kSensorSize, false) == 0 && crop.left == 406 &&
                    crop.top == 296,
                "GetFinalCropRegion did not apply the platform's shift")) {
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(utils.GetFinalCropRegion(md, crop, kSensorSize, false));
        benchmark::DoNotOptimize(crop);
    }
}

void FaceRect(benchmark::State& state) {
    const std::shared_ptr<KvMetadata> md = scene().frame;
    kvalgo2::MetaUtils utils = Utils();
    kvalgo2::KVFaceInfo info;
    if (!Expect(state,
                utils.GetFaceRect(md, kInputWidth, kInputHeight, info, 1) == 0 &&
                    info.faceCount == kFaces,
                "GetFaceRect did not give the ten faces")) {
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(utils.GetFaceRect(md, kInputWidth, kInputHeight, info, 1));
        benchmark::DoNotOptimize(info);
    }
}

void Gyro(benchmark::State& state) {
    const std::shared_ptr<KvMetadata> md = scene().frame;
    kvalgo2::MetaUtils utils = Utils();
    static AIspGyroData data;
    if (!Expect(state,
                utils.GetGyroData(md, data, data.elements, 0, kGyroKey) == 0 &&
                    data.count == kGyroSamples,
                "GetGyroData did not give 200 samples")) {
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(utils.GetGyroData(md, data, data.elements, 0, kGyroKey));
        benchmark::ClobberMemory();
    }
}

// What GetGyroData asks of the platform, alone: the holder, enable, the
// samples (a vector, by the platform's interface), disable.
void GyroPlatform(benchmark::State& state) {
    adapter::AdapterInstance* instance = GetInstance();
    for (auto _ : state) {
        std::shared_ptr<adapter::PlatformInfoHolder> holder = instance->getPlatformInfoHolder();
        benchmark::DoNotOptimize(holder->enableGyro(kGyroKey, 1, 3));
        std::vector<adapter::GyroSample> samples = holder->getGyroData(kGyroKey, 0);
        benchmark::DoNotOptimize(samples.data());
        holder->disableGyro(kGyroKey, 1);
    }
}

void SensorType(benchmark::State& state) {
    kvalgo2::MetaUtils utils = Utils();
    AIspSensorType type;
    // The SAT camera plays role 20: sensor type 3.
    if (!Expect(state, utils.GetAISPSensorType(kSatCameraId, type) == 0 && type == 3,
                "GetAISPSensorType did not give type 3")) {
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(utils.GetAISPSensorType(kSatCameraId, type));
        benchmark::DoNotOptimize(type);
    }
}

void Frame(benchmark::State& state) {
    const std::shared_ptr<KvMetadata> md = scene().frame;
    kvalgo2::MetaUtils utils = Utils();
    if (!Expect(state, PluginFrame(utils, md) == 0, "a getter of the frame failed")) return;
    for (auto _ : state) benchmark::DoNotOptimize(PluginFrame(utils, md));
}

}  // namespace

void RegisterGeometryBenchmarks() {
    scene();
    Register("geometry/MapRectToInput", MapRect);
    Register("geometry/GetFinalCropRegion, platform shift", FinalCrop);
    Register("geometry/GetFaceRect, 10 faces", FaceRect);
    Register("platform/GetGyroData, 200 samples", Gyro);
    Register("platform/gyro calls alone", GyroPlatform);
    Register("platform/GetAISPSensorType, after first use", SensorType);
    Register("frame/plug-in frame", Frame);
    const char* inFloors = "in by-id floors";
    AddRatio({"MapRectToInput", "geometry/MapRectToInput", kFloor, 0, inFloors});
    AddRatio({"GetFinalCropRegion, platform shift", "geometry/GetFinalCropRegion, platform shift",
              kFloor, 0, inFloors});
    AddRatio({"GetFaceRect, 10 faces", "geometry/GetFaceRect, 10 faces", kFloor, 0, inFloors});
    AddRatio(
        {"GetGyroData, 200 samples", "platform/GetGyroData, 200 samples", kFloor, 0, inFloors});
    AddRatio({"GetGyroData, 200 samples / the platform's gyro calls alone",
              "platform/GetGyroData, 200 samples", "platform/gyro calls alone", 0, ""});
    AddRatio({"GetAISPSensorType, after first use", "platform/GetAISPSensorType, after first use",
              kFloor, 0, inFloors});
    AddRatio({"plug-in frame (13 calls, 10 faces)", "frame/plug-in frame", kFloor, 0, inFloors});
}

}  // namespace kvbench
