// MapRectToInput: hand-computed cases for every rule of the mapping (the
// map_rect fuzz target checks its invariants on arbitrary arguments).
#include <climits>
#include <string>
#include <vector>

#include "TestSupport.h"

namespace kvtest {
namespace {

using kvalgo2::ChiRect;

constexpr __UtilsImage_Rect kUntouched = {0xA5A5A5A5, 0xA5A5A5A5, 0xA5A5A5A5, 0xA5A5A5A5};
const Line kArgErr = L(3, kMU, "MapRectToInput", "arg err");

struct Case {
    const char* name;
    ChiRect src;
    ChiRect refer;
    int width;
    int height;
    ChiRect sensor;
    __UtilsImage_Rect expected;
};
std::ostream& operator<<(std::ostream& os, const Case& c) {
    return os << c.name;
}

// Single precision: 0.48f * 400 is exactly 192.0f, where double would floor
// to 191. 4000x3000 into 1920x1080: the width fills, scale 0.48, visible
// reference height 4000 * 1080 / 1920 = 2250, (3000 - 2250) / 2 = 375 rows cut.
const ChiRect kFull = Rect(0, 0, 4000, 3000);
const ChiRect kWide = Rect(0, 0, 6000, 2000);  // visible 3555 of 6000 when height fills
const ChiRect kHuge = Rect(0, 0, 1000, 750);   // scale 8 into 8000x6000
const ChiRect kFace = Rect(1000, 1000, 400, 400);
constexpr __UtilsImage_Rect kWorked = {480, 300, 192, 192};  // kFace mapped as below
constexpr __UtilsImage_Rect kByHeight = {360, 360, 144, 144};

// clang-format off
const Case kCases[] = {
    // top round(0.48 * (1000 - 375)) = 300, left 480, size floor(0.48 * 400) = 192
    {"WorkedExample", kFace, kFull, 1920, 1080, kFull, kWorked},
    // a corner in the cut-away margin goes to the edge, the size is not reduced
    {"CornerInTopMargin", Rect(1000, 200, 400, 400), kFull, 1920, 1080, kFull, {480, 0, 192, 192}},
    // offsets 0, not negative; scale 1920/3000 = 0.64, size 256
    {"LeftOfAndAboveReference", Rect(100, 100, 400, 400), Rect(500, 375, 3000, 2250),
     1920, 1080, kFull, {0, 0, 256, 256}},
    // floor(0.48 * 404) = 193 -> 192
    {"OddScaledSizeRoundedDown", Rect(1000, 1000, 404, 404), kFull, 1920, 1080, kFull, kWorked},
    // left round(1828.8) = 1829, width min(192, 91) -> 90
    {"PastRightEdge", Rect(3810, 1000, 400, 400), kFull, 1920, 1080, kFull, {1829, 300, 90, 192}},
    // top round(0.48 * 2135) = 1025, height min(192, 55) -> 54
    {"PastBottomEdge", Rect(1000, 2510, 400, 400), kFull, 1920, 1080, kFull, {480, 1025, 192, 54}},
    // left 2400 -> 1919, width min(192, 1) -> 0
    {"LeftBeyondImage", Rect(5000, 1000, 400, 400), kFull, 1920, 1080, kFull, {1919, 300, 0, 192}},
    {"EqualRatiosFillWidth", kFace, kFull, 1920, 1080, Rect(0, 0, 3840, 2160), kWorked},
    // height fills: scale 0.36, visible width 5333 > 4000, nothing cut
    {"ZeroSensorHeightFillsHeight", kFace, kFull, 1920, 1080, Rect(0, 0, 4000, 0), kByHeight},
    {"ZeroSensorWidthFillsWidth", kFace, kFull, 1920, 1080, Rect(0, 0, 0, 3000), kWorked},
    // 4:1 sensor, height fills: scale 0.54, (6000 - 3555) / 2 = 1222 columns
    // cut; left round(0.54 * 778) = 420, top 270, size 216
    {"HeightFillsWithCutColumns", Rect(2000, 500, 400, 400), kWide, 1920, 1080,
     Rect(0, 0, 4000, 1000), {420, 270, 216, 216}},
    {"CornerInLeftMargin", Rect(1000, 500, 400, 400), kWide, 1920, 1080, Rect(0, 0, 4000, 1000),
     {0, 270, 216, 216}},
    // the sensor, not the wide reference, picks the axis: scale 0.32
    {"SensorNotReferenceChoosesAxis", Rect(2000, 500, 400, 400), kWide, 1920, 1080, kFull,
     {640, 160, 128, 128}},
    // 0.5 * 1001 = 500.5 -> 501
    {"HalfRoundsAwayFromZero", Rect(1001, 1001, 400, 400), kFull, 2000, 1500, kFull,
     {501, 501, 200, 200}},
    // 100000 * 30000 wraps to -1294967296; / 40000 = -32374; (75000 + 32374) / 2
    // = 53687 rows cut; top round(0.4 * 6313) = 2525
    {"VisibleExtentProductWraps", Rect(10000, 60000, 1000, 1000), Rect(0, 0, 100000, 75000),
     40000, 30000, kFull, {4000, 2525, 400, 400}},
    // 8 * 2^29 = 2^32 saturates (no wrap to 0) and clamps to 7999
    {"HugeOffsetSaturates", Rect(0x20000000, 0, 2, 2), kHuge, 8000, 6000, kFull, {7999, 0, 0, 16}},
    {"HugeSizeSaturates", Rect(0, 0, 0xFFFFFFFF, 0xFFFFFFFF), kHuge, 8000, 6000, kFull,
     {0, 0, 8000, 6000}},
    // Offsets of 2^31 are past the reference (unsigned), clamped to the last
    // column and row, sizes 1 -> 0.
    {"OffsetsOfTwoToThe31", Rect(0x80000000, 0x80000000, 400, 400), kFull, 1920, 1080, kFull,
     {1919, 1079, 0, 0}},
    {"SensorWidthOfTwoToThe31FillsHeight", kFace, kFull, 1920, 1080, Rect(0, 0, 0x80000000, 3000),
     kByHeight},
    // Scale 1, visible 1080 of 1083 rows: (1083 - 1080) / 2 = 1 row cut, top 10 - 1.
    {"OddCutMarginHalvedDown", Rect(100, 10, 40, 40), Rect(0, 0, 1920, 1083), 1920, 1080, kFull,
     {100, 9, 40, 40}},
    // Height fills, scale 0.36; visible 3000 * 1 / 1080 = 2 columns, so left
    // 1000 lies in the cut margin; width min(144, 1) -> 0.
    {"OnePixelWideImage", kFace, kFull, 1, 1080, kFull, {0, 360, 0, 144}},
};
// clang-format on

class MapCase : public MetaTest, public ::testing::WithParamInterface<Case> {};

TEST_P(MapCase, MapsAsComputed) {
    const Case& c = GetParam();
    __UtilsImage_Rect dst = kUntouched;
    EXPECT_EQ(utils.MapRectToInput(c.src, c.refer, c.width, c.height, c.sensor, &dst), 0);
    EXPECT_EQ(Fields(dst), Fields(c.expected));
}

INSTANTIATE_TEST_SUITE_P(Cases, MapCase, ::testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(MetaTest, MapRectRejectsArguments) {
    const struct {
        ChiRect src;
        ChiRect refer;
        int width;
        int height;
    } cases[] = {
        // One of each argument; the map_rect fuzz target refuses them all.
        {kFace, kFull, 0, 1080},
        {kFace, kFull, -1, 1080},
        {kFace, kFull, 1920, 0},
        {kFace, kFull, 1920, INT_MIN},
        {Rect(1, 1, 0, 4), kFull, 1920, 1080},
        {kFace, Rect(0, 0, 4000, 0), 1920, 1080},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << &c - cases);
        capture.clear();
        __UtilsImage_Rect dst = kUntouched;
        EXPECT_EQ(utils.MapRectToInput(c.src, c.refer, c.width, c.height, kFull, &dst), -1);
        EXPECT_EQ(Fields(dst), Fields(kUntouched));
        EXPECT_EQ(Lines(), (LineList{kArgErr}));
    }
    // A null destination is refused the same way rather than written through.
    capture.clear();
    EXPECT_EQ(utils.MapRectToInput(kFace, kFull, 1920, 1080, kFull, nullptr), -1);
    EXPECT_EQ(Lines(), (LineList{kArgErr}));
}

}  // namespace
}  // namespace kvtest
