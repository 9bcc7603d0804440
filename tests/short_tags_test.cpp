// Special getters on tags too short for what they read: record tables, indexes
// read from the metadata, the caller's grid size, second tags. The hardened
// build refuses each with -1 and one line naming the tag, the outputs as they
// were; the default build trusts the tag and, where its read ends inside the
// host container's zero padding, gives its usual result.
#include <algorithm>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "PlatformSupport.h"

namespace kvtest {
namespace {

using kvalgo2::KvDimension;
using kvalgo2::MetaUtils;
using kvhost::Metadata;
using kvhost::TagType;

struct ShortCase {
    const char* name;
    const char* method;
    std::string shortLine;  // the hardened build's line
    std::function<void(Metadata& frame)> put;
    size_t outputBytes;
    Invoke call;
    int defaultRc;  // INT32_MIN: the default build reads past the padding, not run
};

void PutBytes(Metadata& m, const char* name, const std::vector<uint8_t>& bytes) {
    ASSERT_EQ(m.putAnyType(kvhost::findTag(name)->id, TagType::Byte, bytes.data(), bytes.size()),
              0);
}
std::string Short(const std::string& tag, size_t bytes, size_t need) {
    return tag + " too short: " + std::to_string(bytes) + " bytes, read needs " +
           std::to_string(need);
}
// A crop table of `entries` entries, none of them camera 2's.
std::vector<int32_t> OtherCameras(int entries) {
    std::vector<int32_t> words;
    for (int i = 0; i < entries; ++i) words.insert(words.end(), {7, 0, 0, 0, 0, 1, 1, 8, 8});
    return words;
}
Invoke Lsc(int width) {
    return [=](MetaUtils& u, std::shared_ptr<KvMetadata> m, void* out) {
        int grid[2] = {width, 2};
        return u.GetLSC(std::move(m), grid, static_cast<float*>(out));
    };
}
const Invoke kRoi = [](MetaUtils& u, std::shared_ptr<KvMetadata> m, void* out) {
    UtilsImageBuf image{1000, 750};
    return u.GetfocusROI(std::move(m), &image, static_cast<__UtilsImage_Rect*>(out));
};
const Invoke kFinalCrop = Bind(&MetaUtils::GetFinalCropRegion, KvDimension{4000, 3000}, false);
const Invoke kFaces = [](MetaUtils& u, std::shared_ptr<KvMetadata> m, void* out) {
    return u.GetFacesNoMap(std::move(m), 1000, 750, *static_cast<kvalgo2::KVFaceInfo*>(out));
};
const Invoke kImageName = Bind(&MetaUtils::GetImageName);
const std::vector<float> kFifteen(15, 1.0f);

constexpr int kNotRun = INT32_MIN;

// clang-format off
const ShortCase kCases[] = {
    {"ShadingMapSmallerThanTheGrid", "GetLSC", Short("tag 0x11000b", 60, 64),
     [](Metadata& m) { m.putFloat(0x11000Bu, kFifteen); }, 64, Lsc(2), 0},
    {"ShadingMapOfANegativeGrid", "GetLSC", Short("tag 0x11000b", 60, SIZE_MAX),
     [](Metadata& m) { m.putFloat(0x11000Bu, kFifteen); }, 64, Lsc(-2), kNotRun},
    // Two regions promised, the second one missing.
    {"AfRegionShortOfItsSecondRegion", "GetfocusROI", Short("tag 0x80060001", 40, 44),
     [](Metadata& m) { m.putInt32(0x80060001u, {0, 2, 10, 10, 20, 20, 1, 10, 10, 30}); }, 16,
     kRoi, kNotRun},
    {"AfRegionShortOfItsOnlyRegion", "GetfocusROI", Short("tag 0x80060001", 20, 24),
     [](Metadata& m) { m.putInt32(0x80060001u, {0, 1, 10, 10, 20}); }, 16, kRoi, 0},
    {"InSensorZoomStatusOfOneByte", "GetFacesNoMap", Short("kovani.insensorzoom.status", 1, 4),
     [](Metadata& m) {
         m.putInt32("kovani.bokeh.faceInfo", {1, 1, 9, 9, 0, 0, 0, 0, 0});
         PutBytes(m, "kovani.insensorzoom.status", {1});
     }, sizeof(kvalgo2::KVFaceInfo), kFaces, 0},
    // The fourth entry's camera id lies past the three entries there are.
    {"CropTableOfThreeEntries", "operator()",
     Short("com.kovani.camera.sensorpolicy.cropregions", 108, 112),
     [](Metadata& m) { m.putInt32("com.kovani.camera.sensorpolicy.cropregions", OtherCameras(3)); },
     16, kFinalCrop, 0},
    {"CropEntryShortOfItsHeight", "operator()",
     Short("com.kovani.camera.sensorpolicy.cropregions", 32, 36),
     [](Metadata& m) { m.putInt32("com.kovani.camera.sensorpolicy.cropregions", {2, 0, 0, 0, 0, 1, 1, 8}); },
     16, kFinalCrop, kNotRun},
    {"ShiftOfFourBytes", "operator()", Short("kovani.sat.output.shift", 4, 16),
     [](Metadata& m) {
         std::vector<int32_t> table = OtherCameras(4);
         table[0] = 2;  // camera 2's crop (1, 1, 8, 8)
         m.putInt32("com.kovani.camera.sensorpolicy.cropregions", table);
         PutBytes(m, "kovani.sat.output.shift", {1, 2, 3, 4});
     }, 16, kFinalCrop, kNotRun},
    // 255 of the 256 words of the curve.
    {"GammaCurveOneWordShort", "GetBPSGammaOutput", Short("kovani.supernight.gammainfo", 1020, 1024),
     [](Metadata& m) { m.putInt32("kovani.supernight.gammainfo", std::vector<int32_t>(255, 9)); },
     sizeof(AIspGammaTbl), Bind(&MetaUtils::GetDynamicGamma), 0},
    {"HistogramOneWordShort", "GetPreviewBrightnessInfo", Short("kovani.histogram.stats", 4092, 4096),
     [](Metadata& m) { m.putInt32("kovani.histogram.stats", std::vector<int32_t>(1023, 1)); },
     sizeof(kvalgo2::PreviewBrightnessInfo), Bind(&MetaUtils::GetPreviewBrightnessInfo), 0},
    {"TransformOfBytes", "GetColorCorrectionTransform",
     Short("kovani.supernight.color.correction.transform", 71, 72),
     [](Metadata& m) {
         PutBytes(m, "kovani.supernight.color.correction.transform", std::vector<uint8_t>(71));
     }, 72, Bind(&MetaUtils::GetColorCorrectionTransform), 0},
    // The second tag is the short one; the levels are not written either.
    {"BitsPerPixelOfOneByte", "GetSensorDynamicBlackLevel",
     Short("kovani.algoengine.input.raw.bpp", 1, 4),
     [](Metadata& m) {
         m.putFloat(0xE001Cu, {64, 64, 64, 64});
         PutBytes(m, "kovani.algoengine.input.raw.bpp", {10});
     }, 16, Bind(&MetaUtils::GetSensorDynamicBlackLevel), 0},
    {"ImageNameWithoutItsNul", "GetImageName", Short("kovani.snapshot.imageName", 3, 4),
     [](Metadata& m) { PutBytes(m, "kovani.snapshot.imageName", {'a', 'b', 'c'}); }, 128,
     kImageName, 0},
    {"ImageNameLongerThanTheCallersArray", "GetImageName",
     "kovani.snapshot.imageName too long: 129 bytes with its NUL, room for 128",
     [](Metadata& m) {
         std::vector<uint8_t> name(129, 'n');
         name.back() = 0;
         PutBytes(m, "kovani.snapshot.imageName", name);
     }, 128, kImageName, kNotRun},
    {"AwbGainsOfThreeFloats", "GetAWBGain", Short("tag 0x2", 12, 16),
     [](Metadata& m) { m.putFloat(0x2u, {2, 1, 1}); }, sizeof(kvalgo2::AWBGain),
     [](MetaUtils& u, std::shared_ptr<KvMetadata> m, void* out) {
         bool valid = false;
         return u.GetAWBGain(std::move(m), *static_cast<kvalgo2::AWBGain*>(out), valid);
     }, 0},
    {"GtmCurveShortOfItsLastWord", "GetGTMTable", Short("kovani.hdr.gtm.curve", 1152, 1156),
     [](Metadata& m) { m.putInt32("kovani.hdr.gtm.curve", std::vector<int32_t>(288, 1)); }, 4,
     Bind(&MetaUtils::GetGTMTable), kNotRun},
    {"SlaveAnchorFrameOfOneByte", "GetSlaveAnchorFrame", Short("tag 0x80040006", 1, 4),
     [](Metadata& m) { ASSERT_EQ(m.putAnyType(0x80040006u, TagType::Byte, "\x05", 1), 0); }, 4,
     Bind(&MetaUtils::GetSlaveAnchorFrame), 0},
    {"FrameResultShortOfTheLastPair", "GetKovaniSensorModeType",
     Short("com.kovani.camera.sensorpolicy.frameresult", 1363, 1364),
     [](Metadata& m) {
         PutBytes(m, "com.kovani.camera.sensorpolicy.frameresult", std::vector<uint8_t>(1363));
     }, 4, Bind(&MetaUtils::GetKovaniSensorModeType), 0},
};
// clang-format on

class ShortTag : public PlatformTest, public ::testing::WithParamInterface<ShortCase> {};

TEST_P(ShortTag, RefusedByTheHardenedBuild) {
    const ShortCase& c = GetParam();
    if (!Hardened() && c.defaultRc == kNotRun) {
        GTEST_SKIP() << "the default build reads past the container's padding";
    }
    utils.SetCameraId(2, 2);
    StaticFor(2)->putInt32(0xF0000u, {0, 0, 4000, 3000});
    md->putInt32(0xD0000u, {0, 0, 4000, 3000});
    kvhost::setExactPayloads(Hardened());
    c.put(*md);
    kvhost::setExactPayloads(false);
    std::vector<uint8_t> out(c.outputBytes, 0xA5);
    capture.clear();
    const int rc = c.call(utils, md, out.data());
    const auto lines = Lines();
    const std::string file =
        std::string(c.method) == "GetLSC" || std::string(c.method) == "GetImageName" ? kMU : kMtk;
    const Line refusal = L(3, file, c.method, c.shortLine);
    const bool refused = std::find(lines.begin(), lines.end(), refusal) != lines.end();
    if (!Hardened()) {
        EXPECT_EQ(rc, c.defaultRc);
        EXPECT_FALSE(refused);
        return;
    }
    EXPECT_EQ(rc, -1);
    EXPECT_EQ(out, std::vector<uint8_t>(c.outputBytes, 0xA5));
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back(), refusal);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), refusal), 1);
}

INSTANTIATE_TEST_SUITE_P(Cases, ShortTag, ::testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

// A face record of another element type: the hardened build counts the whole
// faces in its bytes, the default build its elements.
TEST_F(MetaTest, FacesCountedInTheirBytes) {
    PutBytes(*md, "kovani.bokeh.faceInfo", std::vector<uint8_t>(40));
    int* faces = nullptr;
    uint32_t count = 77;
    EXPECT_EQ(utils.GetFacesInfoHolder(md, &faces, &count), 0);
    EXPECT_EQ(count, Hardened() ? 1u : 4u);
}

}  // namespace
}  // namespace kvtest
