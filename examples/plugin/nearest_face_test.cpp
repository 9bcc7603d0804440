// Tests of the example plug-in on frames built by hand with the host
// stand-ins (the metadata container, the static metadata of the camera and
// the platform adapter's script), and on frames loaded from the bundled
// capture description and device dump, and over a session's frames.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <tuple>
#include <vector>

#include "NearestFace.h"
#include "kvanalysis/Checks.h"
#include "kvhost/Adapter.h"
#include "kvhost/Capture.h"
#include "kvhost/LogCapture.h"
#include "kvhost/LookupRecorder.h"
#include "kvhost/Metadata.h"

namespace {

constexpr int kCamera = 0;  // framework camera id
constexpr int kSat = 2;     // physical camera, whose crop-table entry applies

// One frame as the plug-in receives it, with what the pipeline passes along.
struct FrameCase {
    std::shared_ptr<KvMetadata> frame;
    int cameraId = kCamera;
    int satCameraId = kSat;
    int width = 1920;
    int height = 1080;
    bool inSensorZoom = false;
};

using Corners = std::array<int32_t, 4>;  // left, top, right, bottom

int RunPlugin(const FrameCase& c, nearestface::Face* face) {
    nearestface::NearestFace plugin(c.cameraId, c.satCameraId);
    return plugin.Process({c.frame, c.width, c.height, c.inSensorZoom}, face);
}

auto Fields(const nearestface::Face& f) {
    return std::make_tuple(f.index, f.rect.left, f.rect.top, f.rect.width, f.rect.height);
}

class NearestFaceTest : public ::testing::Test {
protected:
    void SetUp() override {
        kvhost::setLogEcho(false);
        kvhost::resetAdapter();
        auto stat = kvhost::Metadata::create();
        stat->putInt32("android.sensor.info.activeArraySize", {0, 0, 4000, 3000});
        kvhost::setStaticMetadata(kCamera, stat);
    }
    void TearDown() override {
        kvhost::clearStaticMetadata();
        kvhost::resetAdapter();
    }

    // A frame of kCamera with the crop (1000, 750, 2000, 1500) for kSat in its
    // crop table (none when `withCrop` is false) and the given faces.
    static FrameCase Frame(const std::vector<Corners>& faces, bool withCrop = true) {
        auto md = kvhost::Metadata::create();
        md->putInt32("kovani.snapshot.fwkCameraId", {kCamera});
        md->putInt64("android.sensor.timestamp", {1000000000});
        if (withCrop) {
            std::vector<int32_t> table;
            for (int id : {0, 1, kSat, 3})
                table.insert(table.end(), {id, 0, 0, 0, 0, 1000, 750, 2000, 1500});
            md->putInt32("com.kovani.camera.sensorpolicy.cropregions", table);
        }
        std::vector<int32_t> values;
        for (const Corners& f : faces)
            values.insert(values.end(), {f[0], f[1], f[2], f[3], 0, 0, 0, 0, 0});
        if (!faces.empty()) md->putInt32("kovani.bokeh.faceInfo", values);
        return FrameCase{md};
    }
};

// Far top left, on the crop's centre (2000, 1500), lower right.
const std::vector<Corners> kThreeFaces = {
    {200, 200, 600, 600}, {1900, 1400, 2100, 1600}, {3000, 2000, 3400, 2400}};

TEST_F(NearestFaceTest, PicksTheFaceNearestTheFinalCropsCentre) {
    // The 2000x1500 crop fills the 1920 width of the 16:9 input (scale 0.96)
    // and 187 rows are cut above it; without a crop the whole 4000x3000 array
    // does (scale 0.48, 375 rows cut).
    const struct {
        const char* name;
        bool withCrop;
        int32_t holderShiftX;  // the platform's stabilisation shift, 0 for none
        std::tuple<int, uint32_t, uint32_t, uint32_t, uint32_t> expected;
    } rows[] = {
        // (1900 - 1000) x 0.96 = 864, (1400 - 750 - 187) x 0.96 = 444.48.
        {"centre face", true, 0, {1, 864, 444, 192, 192}},
        // The crop moves to (2000, 750): the lower right face is nearer now,
        // and its height is cut at the image's bottom edge, 1080 - 1020.
        {"shifted crop", true, 1000, {2, 960, 1020, 384, 60}},
        // 1900 x 0.48 = 912, (1400 - 375) x 0.48 = 492.
        {"no crop: the active array", false, 0, {1, 912, 492, 96, 96}},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.name);
        kvhost::AdapterScript script;
        script.shiftFound = r.holderShiftX != 0;
        script.shiftX = r.holderShiftX;
        kvhost::setAdapterScript(script);
        nearestface::Face face;
        EXPECT_EQ(RunPlugin(Frame(kThreeFaces, r.withCrop), &face), 0);
        EXPECT_EQ(Fields(face), r.expected);
    }
}

TEST_F(NearestFaceTest, FailuresLeaveTheFaceAlone) {
    FrameCase noStatic = Frame(kThreeFaces);
    noStatic.frame->update(kvhost::findTag("kovani.snapshot.fwkCameraId")->id,
                           std::vector<int32_t>{5}.data(), 1);
    FrameCase zeroSize = Frame(kThreeFaces);
    zeroSize.width = 0;
    const struct {
        const char* name;
        FrameCase frame;
        int rc;
    } rows[] = {
        {"no face", Frame({}), -2},  // the face tag's lookup fails
        {"no static metadata for the camera", noStatic, -2},
        {"input of width 0", zeroSize, -1},  // refused by the mapping
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.name);
        nearestface::Face face;
        face.index = 77;
        EXPECT_EQ(RunPlugin(r.frame, &face), r.rc);
        EXPECT_EQ(face.index, 77);
    }
}

TEST_F(NearestFaceTest, FramesOfTheSamples) {
    const struct {
        const char* file;
        std::tuple<int, uint32_t, uint32_t, uint32_t, uint32_t> expected;
    } rows[] = {
        // Final crop (406, 296) 3200x2400 around (2006, 1496); the face of
        // (2300, 1100) 300x350 is nearest. Into 1920x1080 at 0.6, 180 rows cut:
        // (2300 - 406) x 0.6 = 1136.4, (1100 - 296) x 0.6 - 180 = 302.4.
        {"main-faces.json", {1, 1136, 302, 180, 210}},
        // The dump's SAT camera 0 has no crop table entry: the whole 4000x3000
        // array, centre (2000, 1500), shown at its own size as the input.
        {"dumpsys-camera.txt", {1, 2300, 1100, 300, 350}},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.file);
        const kvhost::LoadResult loaded =
            kvhost::loadCapture(std::string(SAMPLES_DIR "/") + r.file);
        ASSERT_TRUE(loaded) << loaded.error;
        nearestface::Face face;
        // The loader built the frame, registered the static metadata and
        // scripted the platform adapter, as metautils-inspect does.
        const kvhost::Capture& c = *loaded.capture;
        EXPECT_EQ(RunPlugin({c.frame, c.cameraId, c.satCameraId, c.inputWidth, c.inputHeight,
                             c.isInSensorZoom},
                            &face),
                  0);
        EXPECT_EQ(Fields(face), r.expected);
    }
}

// A session recorded on the phone (Android's tag monitor, dumpsys -m): over
// the zoom transition, the crop region the plug-in reads follows the zoom
// ratio on every frame: it never lags the ratio nor jumps past it.
TEST_F(NearestFaceTest, ZoomTransitionOfASession) {
    const kvhost::SequenceResult session =
        kvhost::loadSequence({SAMPLES_DIR "/session-android13.txt"});
    ASSERT_TRUE(session) << session.error;
    kvalgo2::MetaUtils utils;
    float zoom = 0;
    for (size_t i = 0; i < session.sequence->frameCount(); ++i) {
        const kvhost::LoadResult frame = session.sequence->frame(i);
        ASSERT_TRUE(frame) << frame.error;
        SCOPED_TRACE("frame " + std::to_string(session.sequence->info(i).number));
        kvalgo2::ChiRect crop{};
        ASSERT_EQ(utils.GetAndroidZoomRatio(frame.capture->frame, &zoom), 0);
        ASSERT_EQ(utils.GetAndroidCropRegion(frame.capture->frame, &crop), 0);
        // The 4000-pixel array seen at the zoom ratio, to a pixel.
        EXPECT_NEAR(crop.width * zoom, 4000.0f, zoom);
    }
    EXPECT_FLOAT_EQ(zoom, 2.0f);  // the transition's end
}

// The session checks over a recorded session, with the plug-in's own calls
// as the getters they judge: the sample's crop lags its zoom and its AF
// hunts; the plug-in, which finds no face list there, fails alike on every
// frame, which is no flap.
TEST_F(NearestFaceTest, SessionChecksOverARecordedSession) {
    const kvhost::SequenceResult session =
        kvhost::loadSequence({SAMPLES_DIR "/session-crop-lag.txt"});
    ASSERT_TRUE(session) << session.error;
    kvanalysis::CheckOptions options;
    options.getters = [](const kvhost::Sequence& sequence, size_t i) {
        const std::lock_guard<std::mutex> lock(kvanalysis::standInLock());
        const kvhost::LoadResult frame = sequence.frame(i);
        const kvhost::Capture& c = *frame.capture;
        nearestface::Face face;
        kvanalysis::GetterCall call;
        call.getter = "NearestFace::Process";
        call.result = nearestface::NearestFace(c.cameraId, c.satCameraId)
                          .Process({c.frame, c.inputWidth, c.inputHeight, c.isInSensorZoom}, &face);
        return std::vector<kvanalysis::GetterCall>{call};
    };
    std::string error;
    const kvanalysis::Results results = kvanalysis::runChecks(*session.sequence, options, &error);
    ASSERT_EQ(error, "");
    std::map<std::string, kvanalysis::Status> status;
    for (const kvanalysis::CheckResult& c : results.checks) status[c.id] = c.status;
    EXPECT_EQ(status["zoom"], kvanalysis::Status::Failed);
    EXPECT_EQ(status["af-hunting"], kvanalysis::Status::Failed);
    EXPECT_EQ(status["getter-flaps"], kvanalysis::Status::Passed);
    EXPECT_EQ(kvanalysis::worst(results), kvanalysis::Severity::Error);
}

// A soak of a million frames: the stand-ins keep no record of calls, lookups
// or lines while no test listens, so what they hold stays the same however long the run.
TEST_F(NearestFaceTest, AMillionFramesLeaveNothingBehind) {
    const FrameCase c = Frame(kThreeFaces);
    nearestface::NearestFace plugin(c.cameraId, c.satCameraId);
    const nearestface::Request request{c.frame, c.width, c.height, c.inSensorZoom};
    nearestface::Face face;
    const size_t tags = kvhost::knownTags().size();
    int failures = 0;
    for (int i = 0; i < 1000000; ++i) {
        if (plugin.Process(request, &face) != 0 || face.index != 1) ++failures;
    }
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(std::make_tuple(kvhost::retainedLogRecords(), kvhost::retainedAdapterCalls(),
                              kvhost::retainedLookupRecords(), kvhost::knownTags().size()),
              std::make_tuple(size_t{0}, size_t{0}, size_t{0}, tags));
}

}  // namespace
