// Crop regions, active-array sizes, the minimum digital zoom and the lens
// statics: one row per getter, every row put through the same checks.
#include <functional>
#include <string>
#include <vector>

#include "TestSupport.h"

namespace kvtest {
namespace {

using kvalgo2::ChiRect;
using kvalgo2::MetaUtils;

constexpr const char* kMU = "MetaUtils.cpp";
constexpr const char* kMtk = "MetaUtilsMtk.cpp";

using Call = std::function<int(MetaUtils&, std::shared_ptr<KvMetadata>, void*)>;
using Put = std::function<int(kvhost::Metadata&)>;

template <typename T>
Call Bind(int (MetaUtils::*method)(std::shared_ptr<KvMetadata>, T*)) {
    return [method](MetaUtils& u, std::shared_ptr<KvMetadata> m, void* out) {
        return (u.*method)(std::move(m), static_cast<T*>(out));
    };
}

// The caller's output: recognisable bytes, with 8 guard bytes after it.
std::vector<uint8_t> Buffer(size_t bytes) {
    return std::vector<uint8_t>(bytes + 8, 0xA5);
}
std::vector<uint8_t> Written(std::vector<uint8_t> bytes) {
    bytes.resize(bytes.size() + 8, 0xA5);
    return bytes;
}

struct Row {
    const char* method;
    const char* file;
    Call call;
    bool fromStatic;  // read from the framework camera's static metadata
    Put put;
    std::vector<uint8_t> expected;
    unsigned failLevel;
    const char* fail;  // the getter's lookup-failure message
    bool checksMetadata;
    std::vector<Line> success;
};

std::ostream& operator<<(std::ostream& os, const Row& r) {
    return os << r.method;
}

ChiRect Rect(uint32_t l, uint32_t t, uint32_t w, uint32_t h) {
    return ChiRect{l, t, w, h};
}
Put Ints(uint32_t id, std::vector<int32_t> v) {
    return [id, v](kvhost::Metadata& m) { return m.putInt32(id, v); };
}

// Payloads are longer than the value read: only the first elements count.
// clang-format off
const Row kRows[] = {
    {"GetCropRegion", kMU, Bind(&MetaUtils::GetCropRegion), false,
     [](kvhost::Metadata& m) { return m.putInt32("kovani.snapshot.cropRegion", {12, 34, 560, -1, 99}); },
     Bytes(Rect(12, 34, 560, 0xFFFFFFFF)), 3, "GetMetadata err", true,
     {L(2, kMU, "GetCropRegion", "kovani.snapshot.cropRegion [12 34 560 -1]")}},
    {"GetAndroidCropRegion", kMU, Bind(&MetaUtils::GetAndroidCropRegion), false,
     Ints(0xD0000, {500, 375, 3000, 2250, 7}), Bytes(Rect(500, 375, 3000, 2250)), 3,
     "GetMetadata err", false,
     {L(2, kMU, "GetAndroidCropRegion", "ANDROID_SCALER_CROP_REGION [500 375 3000 2250]")}},
    {"GetStaticActiveArraySize", kMU, Bind(&MetaUtils::GetStaticActiveArraySize), false,
     Ints(0xF0000, {8, 16, 4000, 3000, 1}), Bytes(Rect(8, 16, 4000, 3000)), 3,
     "Get ANDROID_SENSOR_INFO_ACTIVE_ARRAY_SIZE err", false,
     {L(2, kMU, "GetStaticActiveArraySize", "Get ACTIVE_ARRAY_SIZE: (8,16,4000,3000)")}},
    {"GetActiveArraySizeMain", kMtk, Bind(&MetaUtils::GetActiveArraySizeMain), false,
     Ints(0xD0000, {500, 375, 3000, 2250, 5}), Bytes(Rect(0, 0, 4000, 3000)), 3,
     "GetMetadata err", false,
     {L(2, kMtk, "GetActiveArraySizeMain", "main active size [0 0 4000 3000]")}},
    {"GetActiveArraySize", kMU, Bind(&MetaUtils::GetActiveArraySize), true,
     Ints(0xF0000, {3, 2, 4000, 3000, 77}), Bytes(Rect(3, 2, 4000, 3000)), 3,
     "Get ACTIVE_ARRAY_SIZE err", false, {}},
    // One level lower than its twin.
    {"GetMaxActiveArraySize", kMU, Bind(&MetaUtils::GetMaxActiveArraySize), true,
     Ints(0xF000B, {3, 0, 8000, 6000}), Bytes(Rect(3, 0, 8000, 6000)), 2,
     "Get ANDROID_SENSOR_INFO_ACTIVE_ARRAY_SIZE_MAXIMUM_RESOLUTION err", false, {}},
    {"GetRealAvailableMinDigitalZoom", kMtk, Bind(&MetaUtils::GetRealAvailableMinDigitalZoom), true,
     [](kvhost::Metadata& m) { return m.putFloat("com.kovani.scaler.availableMinDigitalZoom", {0.75f, 9.0f}); },
     Bytes(0.75f), 3, "GetMetadata com.kovani.scaler.availableMinDigitalZoom fail", false, {}},
    // Two ints: width, height.
    {"GetLensInfoShadingMapSize", kMU, Bind(&MetaUtils::GetLensInfoShadingMapSize), true,
     Ints(0x90006, {20, 13, 99}), Bytes(uint64_t{13} << 32 | 20), 3,
     "GetMetadata ANDROID_LENS_INFO_SHADING_MAP_SIZE fail", false, {}},
    // A monochrome sensor's arrangement, handed out untranslated.
    {"GetSensorBayerPatten", kMU, Bind(&MetaUtils::GetSensorBayerPatten), true,
     [](kvhost::Metadata& m) { const uint8_t b[2] = {5, 1}; return m.putBytes(0xF0002u, b, 2); },
     Bytes<uint8_t>(5), 3, "GetMetadata ANDROID_SENSOR_INFO_COLOR_FILTER_ARRANGEMENT fail", false,
     {L(0, kMU, "GetSensorBayerPatten", "fwkCameraId:3 ANDROID_SENSOR_INFO_COLOR_FILTER_ARRANGEMENT:5")}},
};
// clang-format on

class RectGetter : public MetaTest, public ::testing::WithParamInterface<Row> {
protected:
    void SetUp() override {
        utils.SetCameraId(1, 1);  // the object's ids play no part
        if (GetParam().fromStatic) stat = StaticFor(3);
    }
    std::shared_ptr<kvhost::Metadata> stat;
};

TEST_P(RectGetter, ReadsTheValue) {
    const Row& r = GetParam();
    // Static rows: neither the frame nor camera 1 (the object's id) holds the
    // tag, only the framework camera 3.
    ASSERT_EQ(r.put(r.fromStatic ? *stat : *md), 0);
    std::vector<uint8_t> out = Buffer(r.expected.size());
    EXPECT_EQ(r.call(utils, md, out.data()), 0);
    EXPECT_EQ(out, Written(r.expected));
    EXPECT_EQ(Lines(), r.success);
}

TEST_P(RectGetter, FailuresLeaveTheOutput) {
    const Row& r = GetParam();
    const std::vector<uint8_t> before = Buffer(r.expected.size());
    std::vector<uint8_t> out = before;
    EXPECT_EQ(r.call(utils, md, nullptr), -2);
    EXPECT_EQ(r.call(utils, md, out.data()), -2);  // tag absent
    std::vector<Line> expected = {L(4, r.file, r.method, "arg err"),
                                  L(3, kMU, "GetMetaData", "GetMetadata err"),
                                  L(r.failLevel, r.file, r.method, r.fail)};
    if (r.fromStatic) {
        // A camera without static metadata.
        md->putInt32("kovani.snapshot.fwkCameraId", {6});
        EXPECT_EQ(r.call(utils, md, out.data()), -2);
        expected.push_back(L(4, kMU, "GetMetaData", "pArg is null"));
        expected.push_back(L(r.failLevel, r.file, r.method, r.fail));
        // No framework camera id: the preset -1 must not be used as one.
        auto decoy = kvhost::Metadata::create();
        ASSERT_EQ(r.put(*decoy), 0);
        kvhost::setStaticMetadata(static_cast<uint32_t>(-1), decoy);
        md->erase("kovani.snapshot.fwkCameraId");
        EXPECT_EQ(r.call(utils, md, out.data()), -2);
        expected.insert(expected.end(), {L(3, kMU, "GetMetaData", "GetMetadata err"),
                                         L(3, kMU, "GetFwkCameraId", "Get fwkCameraId err"),
                                         L(3, r.file, r.method, "GetMetadata FwkCameraId fail")});
    } else {
        EXPECT_EQ(r.call(utils, nullptr, out.data()), -2);
        if (r.checksMetadata) {
            expected.push_back(L(4, r.file, r.method, "arg err"));
        } else {
            expected.push_back(L(4, kMU, "GetMetaData", "pArg is null"));
            expected.push_back(L(3, r.file, r.method, r.fail));
        }
    }
    EXPECT_EQ(out, before);
    EXPECT_EQ(Lines(), expected);
}

INSTANTIATE_TEST_SUITE_P(Rows, RectGetter, ::testing::ValuesIn(kRows),
                         [](const auto& info) { return std::string(info.param.method); });

TEST_F(MetaTest, MainActiveSizeFromCentredCrops) {
    const std::vector<std::vector<int32_t>> crops = {
        {0, 0, 4000, 3000}, {500, 375, 3000, 2250}, {100, 50, 800, 600}, {INT32_MIN, -1, 16, 5}};
    // Size plus twice the margin, wrapping at 32 bits in the last case.
    const ChiRect mains[] = {Rect(0, 0, 4000, 3000), Rect(0, 0, 4000, 3000), Rect(0, 0, 1000, 700),
                             Rect(0, 0, 16, 3)};
    for (size_t i = 0; i < crops.size(); ++i) {
        md->putInt32(0xD0000u, crops[i]);
        ChiRect out = Rect(9, 9, 9, 9);
        EXPECT_EQ(utils.GetActiveArraySizeMain(md, &out), 0);
        EXPECT_EQ(Bytes(out), Bytes(mains[i])) << i;
    }
}

}  // namespace
}  // namespace kvtest
