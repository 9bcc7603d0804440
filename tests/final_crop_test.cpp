// The final crop region end to end: crop table, in-sensor zoom, aspect
// correction, the shift from the platform or the frame, its scaling and the
// fit test.
#include <array>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "PlatformSupport.h"

namespace kvtest {
namespace {

using kvalgo2::ChiRect;
using kvalgo2::KvDimension;
using kvhost::AdapterOp;
using Box = std::array<uint32_t, 4>;

constexpr const char* kLambda = "operator()";
constexpr int kSat = 2;
constexpr int64_t kTs = 1000000000;
constexpr uint32_t kTimestampTag = 0xE0010;
constexpr uint32_t kZoomRatioTag = 0x1002F;
constexpr const char* kTable = "com.kovani.camera.sensorpolicy.cropregions";
constexpr const char* kEffective = "com.kovani.camera.zoomeis.effectiverate";
constexpr const char* kMetaShift = "kovani.sat.output.shift";
constexpr KvDimension kSensor{4000, 3000};
constexpr Box kCentre{1000, 750, 2000, 1500};
constexpr Box kZero{0, 0, 0, 0};

// Entries of nine words: camera id, four words the library skips, the crop.
std::vector<int32_t> Table(const std::vector<std::pair<int32_t, Box>>& entries) {
    std::vector<int32_t> words;
    for (const auto& e : entries) {
        words.insert(words.end(), {e.first, -11, -12, -13, -14});
        for (uint32_t v : e.second) words.push_back(static_cast<int32_t>(v));
    }
    return words;
}

class FinalCrop : public PlatformTest {
protected:
    void SetUp() override {
        PlatformTest::SetUp();
        utils.SetCameraId(9, kSat);  // only the second id counts
        stat = StaticFor(kSat);
        stat->putInt32(0xF0000u, {0, 0, 4000, 3000});
        stat->putFloat(kEffective, {1.5f});
        md->putInt64(kTimestampTag, {kTs});
        md->putFloat(kZoomRatioTag, {2.0f});
    }
    // Four entries, this camera's the third.
    void SatCrop(Box crop) {
        md->putInt32(kTable, Table({{0, {1, 1, 1, 1}}, {1, {2, 2, 2, 2}}, {kSat, crop}, {3, {3}}}));
    }
    void HolderShift(int32_t x, int32_t y, uint8_t isIsz) {
        Script([&](kvhost::AdapterScript& s) {
            s.shiftFound = true;
            s.shiftX = x;
            s.shiftY = y;
            s.shiftIsIsz = isIsz;
        });
    }
    Box Run(int expectedRet = 0, KvDimension sensor = kSensor, bool isz = false) {
        ChiRect crop{77, 77, 77, 77};
        EXPECT_EQ(utils.GetFinalCropRegion(md, crop, sensor, isz), expectedRet);
        return Box{crop.left, crop.top, crop.width, crop.height};
    }
    // Messages of the online lines, prefix removed, pairing not checked: the
    // metadata shift's success line reads past its arguments.
    std::vector<std::string> Texts() const {
        std::vector<std::string> out;
        for (const auto& r : capture.records(kvhost::LogSink::Online)) {
            out.push_back(r.text.substr(r.text.find("] ", r.text.find("()]:[")) + 2));
        }
        return out;
    }
    bool Logged(const std::string& message) const {
        const auto texts = Texts();
        return std::find(texts.begin(), texts.end(), message) != texts.end();
    }
    int ShiftNodeType() const {
        const auto calls = adapterCalls.calls(AdapterOp::GetShift);
        EXPECT_EQ(calls.size(), 1u);
        return calls.empty() ? -1 : calls[0].shift.nodeType;
    }

    std::shared_ptr<kvhost::Metadata> stat;
};

TEST_F(FinalCrop, NodeTypeFromRoleAndZoom) {
    const float nan = std::nanf("");
    const struct {
        const char* name;
        int role;  // role of this camera in the map, -1 for no entry
        float zoomRatio;
        float effective;  // NaN: the tags are absent
        int nodeType;
    } rows[] = {
        {"role 20 beyond effective zoom", 20, 2.0f, 1.5f, 2},
        {"role 20 at effective zoom", 20, 1.5f, 1.5f, 2},
        {"role 20 below effective zoom", 20, 1.0f, 1.5f, 1},
        {"role 20, zoom ratio NaN", 20, nan, 1.5f, 1},
        {"role 20 without zoom tags: 0.0 >= 0.0", 20, 0.0f, nan, 2},
        {"other role", 21, 2.0f, 1.5f, 1},
        {"camera not in the role map", -1, 2.0f, 1.5f, 1},
    };
    SatCrop(kCentre);
    for (const auto& r : rows) {
        SCOPED_TRACE(r.name);
        adapterCalls.clear();
        Script([&](kvhost::AdapterScript& s) {
            s.roleMap = r.role < 0 ? kvhost::makeRoleMap({{kSat + 1, 20}})
                                   : kvhost::makeRoleMap({{kSat, r.role}});
        });
        if (std::isnan(r.effective)) {
            md->erase(kZoomRatioTag);
            stat->erase(kEffective);
        } else {
            md->putFloat(kZoomRatioTag, {r.zoomRatio});
            stat->putFloat(kEffective, {r.effective});
        }
        Run();
        EXPECT_EQ(ShiftNodeType(), r.nodeType);
    }
}

TEST_F(FinalCrop, CropAfterZoomAndAspect) {
    // Active array 4000x3000 throughout; the shift is (0, 0) and always fits.
    const struct {
        const char* name;
        Box table;
        KvDimension sensor;
        bool isz;
        Box expected;
    } rows[] = {
        // clang-format off
        {"equal ratios unchanged", kCentre, kSensor, false, kCentre},
        {"wide crop gets taller", {1000, 1000, 2000, 1000}, kSensor, false, kCentre},
        // Refit to start exactly at 0: kept, not widened to the sensor.
        {"narrow crop gets wider", {500, 0, 1000, 1500}, kSensor, false, {0, 0, 2000, 1500}},
        // newLeft 0 + (1000 - 4000) / 2 < 0: the sensor's width, not the array's.
        {"past left edge", {0, 0, 1000, 3000}, {4096, 3072}, false, {0, 0, 4096, 3000}},
        {"past top edge", {0, 0, 4000, 500}, {4096, 3072}, false, {0, 0, 4000, 3072}},
        // 0.2505 x 3000 = 751.5 -> 751 -> 750; (599 - 750) >> 1 = -76, not -75.
        {"even height, floored half", {100, 100, 1002, 599}, kSensor, false, {100, 24, 1002, 750}},
        {"within tolerance", {1000, 750, 2000, 1510}, kSensor, false, {1000, 750, 2000, 1510}},
        {"within tolerance, wider", {1000, 750, 2010, 1500}, kSensor, false,
         {1000, 750, 2010, 1500}},
        {"isz doubles", {1500, 1125, 1000, 750}, kSensor, true, kCentre},
        {"isz, to the left edge", {1000, 1125, 1000, 750}, kSensor, true, {0, 750, 2000, 1500}},
        {"isz, to the bottom right edge", {2000, 1500, 1000, 750}, kSensor, true,
         {2000, 1500, 2000, 1500}},
        // Quarters 4002 >> 2 = 1000 and 3003 >> 2 = 750, taken before doubling.
        {"isz, sensor 4n+2 by 4n+3", {1500, 1125, 1000, 750}, {4002, 3003}, true, kCentre},
        // Doubled to height 1600: 1600 / 3000 x 4000 = 2133.3 -> 2132, left 1000 - 66.
        {"isz, then wider", {1500, 1125, 1000, 800}, kSensor, true, {934, 750, 2132, 1600}},
        {"isz, left of centre", {500, 1125, 1000, 750}, kSensor, true, {500, 1125, 1000, 750}},
        {"isz, above centre", {1500, 500, 1000, 750}, kSensor, true, {1500, 500, 1000, 750}},
        {"isz, past sensor", {2500, 1125, 1000, 750}, kSensor, true, {2500, 1125, 1000, 750}},
        {"not isz: kept", {1500, 1125, 1000, 750}, kSensor, false, {1500, 1125, 1000, 750}},
        {"empty crop cleared whole", {100, 200, 0, 0}, kSensor, false, kZero},
        // clang-format on
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.name);
        SatCrop(r.table);
        EXPECT_EQ(Run(0, r.sensor, r.isz), r.expected);
    }
}

TEST_F(FinalCrop, CropTableEntries) {
    // The fourth entry is examined, the first match wins, a fifth is never read.
    md->putInt32(kTable, Table({{0, {9}}, {1, {9}}, {3, {9}}, {kSat, kCentre}}));
    EXPECT_EQ(Run(), kCentre);
    md->putInt32(kTable, Table({{0, {9}}, {kSat, kCentre}, {1, {9}}, {kSat, {8, 8, 8, 8}}}));
    EXPECT_EQ(Run(), kCentre);
    capture.clear();
    adapterCalls.clear();
    md->putInt32(kTable, Table({{0, {9}}, {1, {9}}, {3, {9}}, {4, {9}}, {kSat, kCentre}}));
    EXPECT_EQ(Run(), kZero);
    // A zero crop ends the computation: no timestamp, no shift.
    EXPECT_EQ(Texts(),
              (std::vector<std::string>{
                  "allInOneCrop get crop region from SAT camId = 2 isInSensorZoom = 0 "
                  "cropregion: [0 0 0 0]",
                  "allInOneCrop get after isInSensorZoom = 0 sensorsize(4000, 3000) "
                  "cropregion: [0 0 0 0]",
                  "allInOneCrop get final crop = cropregion: [0 0 0 0] ret = 0 RET_OK = 0"}));
    EXPECT_TRUE(adapterCalls.calls().empty());
}

TEST_F(FinalCrop, MissingTableGivesZeroCrop) {
    EXPECT_EQ(Run(0, kSensor, true), kZero);
    EXPECT_EQ(Lines(), (LineList{kLookupMiss,
                                 L(3, kMtk, kLambda,
                                   "allInOneCrop GetMetadata com.kovani.camera.sensorpolicy."
                                   "cropregions ret err"),
                                 L(2, kMtk, "GetFinalCropRegion",
                                   "allInOneCrop get final crop = cropregion: [0 0 0 0] ret = 0 "
                                   "RET_OK = 0")}));
    EXPECT_EQ(DebugLines().size(), 1u);  // the aspect step still runs
}

TEST_F(FinalCrop, ActiveArrayFailureLeavesCropAlone) {
    SatCrop(kCentre);
    kvhost::clearStaticMetadata();
    EXPECT_EQ(Run(-2), (Box{77, 77, 77, 77}));
    ASSERT_FALSE(Lines().empty());
    EXPECT_EQ(Lines().back(), L(3, kMtk, "GetFinalCropRegion",
                                "allInOneCrop GetMetadata GetActiveArraySize ret = -2 err"));
    EXPECT_TRUE(adapterCalls.calls().empty());
}

TEST_F(FinalCrop, ShiftSourceScaleAndFit) {
    const struct {
        const char* name;
        std::vector<int32_t> holder;  // x, y, isIsz the holder finds; empty: none
        std::vector<float> meta;      // "kovani.sat.output.shift"; empty: absent
        bool isz;                     // in-sensor-zoom frame, the table crop converted
        const char* scaled;           // the shift at the frame's scale
        bool applied;
        Box expected;
    } rows[] = {
        // clang-format off
        {"holder", {40, -30, 0}, {}, false, "(40,-30)", true, {1040, 720, 2000, 1500}},
        {"holder beats metadata", {40, -30, 0}, {5, 5, 0, 0}, false, "(40,-30)", true,
         {1040, 720, 2000, 1500}},
        {"holder isz (2) halved on full frame", {-41, -31, 2}, {}, false, "(-20,-15)", true,
         {980, 735, 2000, 1500}},
        {"holder full doubled on isz frame", {40, -30, 0}, {}, true, "(80,-60)", true,
         {1080, 690, 2000, 1500}},
        {"holder isz on isz frame", {40, -30, 1}, {}, true, "(40,-30)", true,
         {1040, 720, 2000, 1500}},
        {"metadata", {}, {12.9f, -7.9f, 0.0f, 1.0f}, false, "(12,-7)", true,
         {1012, 743, 2000, 1500}},
        {"metadata isz (-1.0) halved", {}, {13.9f, -7.9f, -1.0f, 0.0f}, false, "(6,-3)", true,
         {1006, 747, 2000, 1500}},
        {"metadata doubled on isz", {}, {12.9f, -7.9f, 0.0f, 0.0f}, true, "(24,-14)", true,
         {1024, 736, 2000, 1500}},
        {"metadata of three ignored", {}, {12.0f, -7.0f, 0.0f}, false, "(0,0)", true, kCentre},
        {"metadata of five ignored", {}, {12, -7, 0, 0, 0}, false, "(0,0)", true, kCentre},
        {"to top left corner", {-1000, -750, 0}, {}, false, "(-1000,-750)", true,
         {0, 0, 2000, 1500}},
        {"to bottom right corner", {1000, 750, 0}, {}, false, "(1000,750)", true,
         {2000, 1500, 2000, 1500}},
        {"past left edge", {-1001, 0, 0}, {}, false, "(-1001,0)", false, kCentre},
        {"past top edge", {0, -751, 0}, {}, false, "(0,-751)", false, kCentre},
        {"past right edge", {1001, 0, 0}, {}, false, "(1001,0)", false, kCentre},
        {"past bottom edge", {0, 751, 0}, {}, false, "(0,751)", false, kCentre},
        {"sum wraps negative", {2147483647, 0, 0}, {}, false, "(2147483647,0)", false, kCentre},
        // clang-format on
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.name);
        capture.clear();
        kvhost::resetAdapter();
        md->erase(kMetaShift);
        SatCrop(r.isz ? Box{1500, 1125, 1000, 750} : kCentre);
        if (!r.holder.empty()) {
            HolderShift(r.holder[0], r.holder[1], static_cast<uint8_t>(r.holder[2]));
        }
        if (!r.meta.empty()) md->putFloat(kMetaShift, r.meta);
        EXPECT_EQ(Run(0, kSensor, r.isz), r.expected);
        EXPECT_TRUE(Logged("allInOneCrop zoom after isInSensorZoom = " + std::to_string(r.isz) +
                           " shift " + r.scaled + " "));
        EXPECT_TRUE(
            Logged(std::string(r.applied ? "allInOneCrop using" : "allInOneCrop not using") +
                   " zoom eis shift " + r.scaled));
    }
}

TEST_F(FinalCrop, MetadataShiftLines) {
    SatCrop(kCentre);
    md->putFloat(kMetaShift, {12.9f, -7.9f, 1.0f, 1.0f});
    Run();
    // The pre-anchor flag is handed over as a double under "%d", so the text
    // after "isPreAnchor = " is the platform's business; the format is fixed.
    bool found = false;
    for (const auto& r : capture.records(kvhost::LogSink::Online)) {
        if (r.format.find("get shift successful") == std::string::npos) continue;
        found = true;
        EXPECT_EQ(r.format,
                  "[%s][%s()]:[%d] allInOneCrop get shift successful shift(%d, %d) isPreAnchor = "
                  "%d size = %u, from kovani.sr.shift.value ");
        EXPECT_NE(r.text.find("][operator()()]:["), std::string::npos) << r.text;
        EXPECT_NE(r.text.find("] allInOneCrop get shift successful shift(12, -7) isPreAnchor = "),
                  std::string::npos)
            << r.text;
    }
    EXPECT_TRUE(found);
    md->putFloat(kMetaShift, {12.0f, -7.0f, 0.0f});
    capture.clear();
    Run();
    EXPECT_TRUE(Logged("allInOneCrop get shift failed size = 3, from kovani.sr.shift.value..."));
}

TEST_F(FinalCrop, WithoutTimestampNoShiftAndItsCode) {
    SatCrop({1000, 1000, 2000, 1000});
    md->erase(kTimestampTag);
    HolderShift(40, -30, 0);
    EXPECT_EQ(Run(-2), kCentre);  // aspect-corrected, not moved
    EXPECT_TRUE(Logged("allInOneCrop [camera id:2] tag ANDROID_SENSOR_TIMESTAMP not found!"));
    EXPECT_TRUE(Logged("allInOneCrop not using zoom eis shift (40,-30)"));
    EXPECT_TRUE(Logged(
        "allInOneCrop get final crop = cropregion: [1000 750 2000 1500] ret = -2 RET_OK = 0"));
    EXPECT_EQ(adapterCalls.calls(AdapterOp::GetShift).size(), 1u);
    EXPECT_EQ(adapterCalls.calls(AdapterOp::GetShift)[0].shift.timestamp, 0);
}

}  // namespace
}  // namespace kvtest
