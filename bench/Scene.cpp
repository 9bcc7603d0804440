#include "Scene.h"

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "MetaDefs.h"
#include "kvhost/Adapter.h"
#include "kvhost/LogCapture.h"

namespace kvbench {
namespace {

namespace tag = kvalgo2::tag;

// Ten faces of 300x300 inside the crop, nine words each (active-array
// corners, an unused word, three words handed on, an unused word).
std::vector<int32_t> Faces() {
    std::vector<int32_t> faces;
    for (int32_t i = 0; i < kFaces; ++i) {
        const int32_t left = 500 + 280 * i;
        const int32_t top = 400 + 150 * i;
        faces.insert(faces.end(), {left, top, left + 300, top + 300, 0, i, 90 * (i % 4), 1, 0});
    }
    return faces;
}

// The sensor policy's crop table: four entries of camera id, four unused
// words and the crop.
std::vector<int32_t> PolicyCrops() {
    std::vector<int32_t> table;
    for (int32_t camera : {0, kSatCameraId, 3, 4}) {
        table.insert(table.end(), {camera, 0, 0, 0, 0, 400, 300, 3200, 2400});
    }
    return table;
}

// 200 samples a millisecond apart in ticks of the 19.2 MHz timer.
std::vector<adapter::GyroSample> Gyro() {
    std::vector<adapter::GyroSample> samples;
    for (uint64_t i = 0; i < kGyroSamples; ++i) {
        const float rate = 0.001f * static_cast<float>(i);
        samples.push_back({rate, -rate, 2 * rate, 0, 1658880000000ull + 19200 * i});
    }
    return samples;
}

void Require(int rc, const char* what) {
    if (rc != 0) {
        std::fprintf(stderr, "metautils_bench: building the scene: %s failed (%d)\n", what, rc);
        std::exit(1);
    }
}

Scene Build() {
    kvhost::setLogEcho(false);
    auto frame = kvhost::Metadata::create();
    Require(frame->putInt32("kovani.snapshot.fwkCameraId", {kCameraId}), "fwkCameraId");
    Require(frame->putInt32(tag::ANDROID_SENSOR_SENSITIVITY, {400}), "sensitivity");
    Require(frame->putInt64(tag::ANDROID_SENSOR_EXPOSURE_TIME, {10000000}), "exposure");
    Require(frame->putInt64(tag::ANDROID_SENSOR_TIMESTAMP, {86400123456789}), "timestamp");
    Require(frame->putFloat(tag::ANDROID_CONTROL_ZOOM_RATIO, {1.25f}), "zoom ratio");
    const uint8_t afState = 2;
    Require(frame->putBytes(tag::ANDROID_CONTROL_AF_STATE, &afState, 1), "AF state");
    Require(frame->putInt32(tag::ANDROID_JPEG_ORIENTATION, {90}), "orientation");
    Require(frame->putInt32(tag::ANDROID_SCALER_CROP_REGION, {400, 300, 3200, 2400}), "crop");
    Require(frame->putInt32("kovani.thermal.thermalLevel", {1}), "thermal level");
    const std::vector<uint8_t> smartAe(sizeof(KV_SMARTAE::SmartAEProcOutput), 7);
    Require(frame->putBytes("kovani.ai.asd.SmartAE", smartAe.data(), smartAe.size()), "smart AE");
    Require(frame->putInt32("kovani.bokeh.faceInfo", Faces()), "faces");
    Require(frame->putInt32("kovani.insensorzoom.status", {0}), "in-sensor zoom");
    Require(frame->putInt32("com.kovani.camera.sensorpolicy.cropregions", PolicyCrops()),
            "policy crops");
    Require(frame->putFloat("kovani.sat.output.shift", {6, -4, 0, 0}), "metadata shift");
    Require(frame->putInt32(tag::MTK_3A_FEATURE_AF_REGION, {3, 1, 1250, 1050, 1550, 1350, 1}),
            "AF region");

    auto stat = kvhost::Metadata::create();
    Require(stat->putInt32(tag::ANDROID_SENSOR_INFO_ACTIVE_ARRAY_SIZE, {0, 0, 4000, 3000}),
            "active array");
    auto satStat = kvhost::Metadata::create();
    Require(satStat->putInt32(tag::ANDROID_SENSOR_INFO_ACTIVE_ARRAY_SIZE, {0, 0, 4000, 3000}),
            "SAT active array");
    Require(satStat->putFloat("com.kovani.camera.zoomeis.effectiverate", {2.0f}), "zoom EIS");

    kvhost::AdapterScript script;
    script.roleMap = kvhost::makeRoleMap({{kCameraId, 0}, {kSatCameraId, 20}, {3, 21}});
    script.shiftFound = true;
    script.shiftX = 6;
    script.shiftY = -4;
    script.gyroSamples = Gyro();
    return Scene{frame, stat, satStat, script};
}

}  // namespace

const Scene& scene() {
    static const Scene s = [] {
        Scene built = Build();
        Install(built);
        kvalgo2::MetaUtils utils = Utils();
        Require(PluginFrame(utils, built.frame), "the plug-in frame");
        return built;
    }();
    return s;
}

void Install(const Scene& s) {
    kvhost::setLogEcho(false);
    kvhost::clearStaticMetadata();
    kvhost::setStaticMetadata(kCameraId, s.stat);
    kvhost::setStaticMetadata(kSatCameraId, s.satStat);
    kvhost::setAdapterScript(s.adapter);
}

kvalgo2::MetaUtils Utils() {
    kvalgo2::MetaUtils utils;
    utils.SetCameraId(kCameraId, kSatCameraId);
    return utils;
}

int PluginFrame(kvalgo2::MetaUtils& utils, const std::shared_ptr<KvMetadata>& frame) {
    int rc = 0;
    kvalgo2::ChiRect active;
    rc += utils.GetActiveArraySize(frame, &active);
    kvalgo2::ChiRect crop;
    rc += utils.GetAndroidCropRegion(frame, &crop);
    kvalgo2::ChiRect finalCrop;
    rc += utils.GetFinalCropRegion(frame, finalCrop, kSensorSize, false);
    long timestamp = 0;
    rc += utils.GetAndroidTimeStamp(frame, &timestamp);
    float zoom = 0;
    rc += utils.GetAndroidZoomRatio(frame, &zoom);
    int iso = 0;
    rc += utils.GetSensitivity(frame, &iso);
    long exposure = 0;
    rc += utils.GetSensorExposureTime(frame, &exposure);
    unsigned afState = 0;
    rc += utils.GetAFState(frame, &afState);
    int orientation = 0;
    rc += utils.GetAndroidJpegOrientation(frame, &orientation);
    int thermal = 0;
    rc += utils.GetThermalLevel(frame, &thermal);
    UtilsImageBuf image{kInputWidth, kInputHeight};
    __UtilsImage_Rect focus;
    rc += utils.GetfocusROI(frame, &image, &focus);
    kvalgo2::KVFaceInfo faces;
    rc += utils.GetFaceRect(frame, kInputWidth, kInputHeight, faces, 1);
    AIspSensorType type;
    rc += utils.GetAISPSensorType(kSatCameraId, type);
    benchmark::DoNotOptimize(faces);
    benchmark::DoNotOptimize(focus);
    benchmark::DoNotOptimize(finalCrop);
    return rc;
}

}  // namespace kvbench
