// Reading capture descriptions: every payload form gives the bytes the
// library will read, and every kind of bad input is one clear message that
// names the file and the position.
#include "Capture.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace kvhost {
namespace loader {
namespace {

// A capture whose frame holds the tag entries given (JSON text).
std::string withFrameTags(const std::string& tags) {
    return R"({"camera": {"cameraId": 0}, "input": {"width": 1920, "height": 1080},
               "frame": {"tags": [)" +
           tags + "]}}";
}

template <typename T>
std::vector<uint8_t> bytesOf(std::initializer_list<T> values) {
    std::vector<uint8_t> out(values.size() * sizeof(T));
    std::memcpy(out.data(), values.begin(), out.size());
    return out;
}

struct FormCase {
    const char* name;
    const char* entry;
    size_t count;
    std::vector<uint8_t> bytes;
};

class PayloadForm : public ::testing::TestWithParam<FormCase> {};

TEST_P(PayloadForm, GivesTheBytesTheLibraryReads) {
    const Capture c = parseCapture(withFrameTags(GetParam().entry), "capture.json");
    ASSERT_EQ(c.frame.size(), 1u);
    EXPECT_EQ(c.frame[0].count, GetParam().count);
    EXPECT_EQ(c.frame[0].bytes, GetParam().bytes);
}

INSTANTIATE_TEST_SUITE_P(
    Forms, PayloadForm,
    ::testing::Values(
        FormCase{"Int32ByName", R"({"tag": "kovani.flash.mode", "values": [2]})", 1,
                 bytesOf<int32_t>({2})},
        // Unsigned-looking words and hex strings wrap into int32.
        FormCase{"Int32Words", R"({"tag": "kovani.motion.capture.anchorInfo",
                                   "values": [4294967295, "0x1ff", "-0x10"]})",
                 3, bytesOf<int32_t>({-1, 0x1ff, -16})},
        FormCase{"AndroidTagById", R"({"tag": "0xD0000", "values": [1, 2, 3, 4]})", 4,
                 bytesOf<int32_t>({1, 2, 3, 4})},
        FormCase{"NumericId", R"({"tag": 851968, "type": "int32", "values": [1, 2, 3, 4]})", 4,
                 bytesOf<int32_t>({1, 2, 3, 4})},
        FormCase{"SignedByte", R"({"tag": "kovani.hdr.raw.enabled", "values": [-1, 255]})", 2,
                 bytesOf<uint8_t>({0xFF, 0xFF})},
        FormCase{"Int64", R"({"tag": "android.sensor.timestamp", "values": [86400123456789]})", 1,
                 bytesOf<int64_t>({86400123456789})},
        FormCase{"Float", R"({"tag": "android.control.zoomRatio", "values": [1.25, 3]})", 2,
                 bytesOf<float>({1.25f, 3.0f})},
        FormCase{"Rational", R"({"tag": "kovani.supernight.color.correction.transform",
                                 "values": [[1, 2], [-3, 4], [0, 1], [1, 1], [1, 1], [1, 1],
                                            [1, 1], [1, 1], [1, 1]]})",
                 9, bytesOf<int32_t>({1, 2, -3, 4, 0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1})},
        FormCase{"HexWithBlanks", R"({"tag": "com.kovani.orlo2.eyeclosure.status",
                                      "hex": "05 0a FF"})",
                 3, bytesOf<uint8_t>({0x05, 0x0a, 0xff})},
        FormCase{"HexIntoInt32", R"({"tag": "kovani.flash.mode", "hex": "01000000"})", 1,
                 bytesOf<int32_t>({1})},
        FormCase{"Base64Padded", R"({"tag": "com.kovani.orlo2.eyeclosure.status",
                                     "base64": "AQID"})",
                 3, bytesOf<uint8_t>({1, 2, 3})},
        FormCase{"Base64Unpadded", R"({"tag": "com.kovani.orlo2.eyeclosure.status",
                                       "base64": "/w"})",
                 1, bytesOf<uint8_t>({0xff})},
        FormCase{"TextEndsWithNul", R"({"tag": "kovani.snapshot.imageName", "text": "IMG"})", 4,
                 bytesOf<uint8_t>({'I', 'M', 'G', 0})},
        FormCase{"TextList", R"({"tag": "android.logicalMultiCamera.physicalIds",
                                 "text": ["2", "13"]})",
                 5, bytesOf<uint8_t>({'2', 0, '1', '3', 0})},
        FormCase{"PackedFieldsAndPad", R"({"tag": "com.kovani.statsconfigs.AecInfo",
                                           "packed": [{"float": -3.7}, {"pad": 4},
                                                      {"int32": [312, 7]}]})",
                 16,
                 [] {
                     std::vector<uint8_t> b = bytesOf<float>({-3.7f});
                     const std::vector<uint8_t> rest = bytesOf<int32_t>({0, 312, 7});
                     b.insert(b.end(), rest.begin(), rest.end());
                     return b;
                 }()},
        FormCase{"EmptyEntry", R"({"tag": "kovani.flash.mode", "values": []})", 0, {}},
        // Unwritten fields of a record are 0.
        FormCase{"CropTableEntries", R"({"tag": "com.kovani.camera.sensorpolicy.cropregions",
            "entries": [{"cameraId": 2, "left": 400, "top": 300, "width": 3200, "height": 2400},
                        {"cameraId": 3, "word1": 9}, {"cameraId": 4}, {"cameraId": 1}]})",
                 36, bytesOf<int32_t>({2, 0, 0, 0, 0, 400, 300, 3200, 2400,  //
                                       3, 9, 0, 0, 0, 0,   0,   0,    0,     //
                                       4, 0, 0, 0, 0, 0,   0,   0,    0,     //
                                       1, 0, 0, 0, 0, 0,   0,   0,    0})},
        FormCase{"Faces", R"({"tag": "kovani.bokeh.faceInfo",
            "faces": [{"left": 10, "top": 20, "right": 30, "bottom": 40, "word4": 4, "word5": 5,
                       "rotation": 90, "word7": 7, "word8": 8}]})",
                 9, bytesOf<int32_t>({10, 20, 30, 40, 4, 5, 90, 7, 8})},
        // The region count defaults to the number of regions written.
        FormCase{"AfRegionsCountByDefault", R"({"tag": "MTK_3A_FEATURE_AF_REGION", "afType": 3,
            "regions": [{"left": 1, "top": 2, "right": 3, "bottom": 4},
                        {"left": 5, "top": 6, "right": 7, "bottom": 8, "word4": 9}]})",
                 12, bytesOf<int32_t>({3, 2, 1, 2, 3, 4, 0, 5, 6, 7, 8, 9})},
        FormCase{"AfRegionsCountGiven", R"({"tag": "MTK_3A_FEATURE_AF_REGION", "count": 3,
            "regions": []})",
                 2, bytesOf<int32_t>({0, 3})}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(RecordsToJson, ReadsBackWhatWasWritten) {
    const char* entry = R"({"tag": "kovani.bokeh.faceInfo", "faces": [
        {"left": 10, "top": 20, "right": 30, "bottom": 40, "rotation": 90},
        {"left": 1, "top": 2, "right": 3, "bottom": 4, "word8": -1}]})";
    const Capture c = parseCapture(withFrameTags(entry), "capture.json");
    std::vector<int32_t> elements(c.frame[0].count + 2);  // a partial record is left out
    std::memcpy(elements.data(), c.frame[0].bytes.data(), c.frame[0].bytes.size());
    const Json back = recordsToJson("kovani.bokeh.faceInfo", elements.data(), elements.size());
    ASSERT_EQ(back["faces"].size(), 2u);
    EXPECT_EQ(back["faces"][0]["rotation"], 90);
    EXPECT_EQ(back["faces"][0]["word5"], 0);
    EXPECT_EQ(back["faces"][1]["right"], 3);
    EXPECT_EQ(back["faces"][1]["word8"], -1);
    EXPECT_TRUE(recordsToJson("kovani.flash.mode", elements.data(), 1).is_null());
}

TEST(RecordsToJson, AfRegionsKeepTheirHeader) {
    const int32_t elements[] = {3, 1, 100, 200, 300, 400, 0};
    const Json back = recordsToJson("MTK_3A_FEATURE_AF_REGION", elements, 7);
    EXPECT_EQ(back["afType"], 3);
    EXPECT_EQ(back["count"], 1);
    ASSERT_EQ(back["regions"].size(), 1u);
    EXPECT_EQ(back["regions"][0]["bottom"], 400);
}

TEST(CaptureSections, CameraInputSensorStaticAndAdapter) {
    const Capture c = parseCapture(R"({
        "description": "tele",
        "camera": {"cameraId": 0, "satCameraId": 4},
        "input": {"width": 1600, "height": 1200},
        "arguments": {"sensorSize": {"width": 8000, "height": 6000}, "isInSensorZoom": true,
                      "useInSensorZoom": 1, "gyroKey": "eis", "gyroQuery": 2},
        "frame": {"tags": []},
        "static": [{"cameraId": 4, "tags": [{"tag": "com.kovani.cameraid.role.cameraId",
                                             "values": [20]}]}],
        "adapter": {"roles": [{"cameraId": 4, "roleId": 20}],
                    "shift": {"x": 24, "y": -16, "inSensorZoom": true},
                    "gyro": {"enable": 0,
                             "samples": [{"x": 0.5, "y": -0.25, "z": 0, "ticks": 19200000}]}}
    })",
                                   "capture.json");
    EXPECT_EQ(c.satCameraId, 4);
    EXPECT_TRUE(c.isInSensorZoom);
    EXPECT_EQ(c.useInSensorZoom, 1);
    EXPECT_EQ(c.gyroKey, "eis");
    EXPECT_EQ(c.gyroQuery, 2);
    EXPECT_EQ(c.adapter.gyroEnable, 0);
    ASSERT_TRUE(c.sensorSize.has_value());
    EXPECT_EQ(c.sensorSize->first, 8000u);
    ASSERT_EQ(c.statics.count(4), 1u);
    EXPECT_EQ(c.statics.at(4).at(0).info->name, "com.kovani.cameraid.role.cameraId");
    ASSERT_EQ(c.adapter.roles.size(), 1u);
    EXPECT_EQ(c.adapter.roles[0], std::make_pair(4, 20));
    ASSERT_TRUE(c.adapter.shift.has_value());
    EXPECT_EQ(c.adapter.shift->second, -16);
    EXPECT_TRUE(c.adapter.shiftInSensorZoom);
    ASSERT_EQ(c.adapter.gyro.size(), 1u);
    EXPECT_EQ(c.adapter.gyro[0].ticks, 19200000u);
    EXPECT_FLOAT_EQ(c.adapter.gyro[0].y, -0.25f);
}

TEST(CaptureSections, SatCameraDefaultsToCameraAndAdapterToPresent) {
    const Capture c = parseCapture(withFrameTags(""), "capture.json");
    EXPECT_EQ(c.satCameraId, 0);
    EXPECT_FALSE(c.sensorSize.has_value());
    EXPECT_TRUE(c.adapter.present);
    EXPECT_FALSE(c.adapter.shift.has_value());
}

struct BadCase {
    const char* name;
    std::string text;
    const char* message;
};

class BadInput : public ::testing::TestWithParam<BadCase> {};

TEST_P(BadInput, IsOneMessageNamingFileAndPosition) {
    try {
        parseCapture(GetParam().text, "capture.json");
        FAIL() << "accepted";
    } catch (const InputError& e) {
        EXPECT_EQ(std::string(e.what()), GetParam().message);
    }
}

const std::string kHead =
    R"({"camera": {"cameraId": 0}, "input": {"width": 1920, "height": 1080},)";

INSTANTIATE_TEST_SUITE_P(
    Cases, BadInput,
    ::testing::Values(
        BadCase{"Malformed", "{\n  \"camera\": {\"cameraId\": 0,}\n}",
                "capture.json: malformed JSON: parse error at line 2, column 28: syntax error "
                "while parsing object key - unexpected '}'; expected string literal"},
        BadCase{"Empty", "",
                "capture.json: malformed JSON: parse error at line 1, column 1: syntax error "
                "while parsing value - unexpected end of input; expected '[', '{', or a literal"},
        BadCase{"NotAnObject", "[1]", "capture.json: expected an object, got [1]"},
        BadCase{"UnknownSection", kHead + R"("frame": {"tags": []}, "statics": []})",
                "capture.json: unknown section \"statics\""},
        BadCase{"MissingSection", R"({"camera": {"cameraId": 0}, "frame": {"tags": []}})",
                "capture.json: missing key \"input\""},
        BadCase{"NegativeSize",
                R"({"camera": {"cameraId": 0}, "input": {"width": -1920, "height": 1080},
                    "frame": {"tags": []}})",
                "capture.json: input.width: expected an integer from 1 to 2147483647, got -1920"},
        BadCase{"ZeroSensorHeight",
                kHead + R"("arguments": {"sensorSize": {"width": 4000, "height": 0}},
                          "frame": {"tags": []}})",
                "capture.json: arguments.sensorSize.height: expected an integer from 1 to "
                "2147483647, got 0"},
        BadCase{"FloatCameraId",
                R"({"camera": {"cameraId": 0.5}, "input": {"width": 1, "height": 1},
                    "frame": {"tags": []}})",
                "capture.json: camera.cameraId: expected an integer from -2147483648 to "
                "2147483647, got 0.5"},
        BadCase{"UnknownKeyInSection",
                R"({"camera": {"cameraId": 0, "satCamera": 2}, "input": {"width": 1, "height": 1},
                    "frame": {"tags": []}})",
                "capture.json: camera: unknown key \"satCamera\""},
        BadCase{"UnknownTagName", withFrameTags(R"({"tag": "kovani.flash.mdoe", "values": [1]})"),
                "capture.json: frame.tags[0].tag: unknown tag \"kovani.flash.mdoe\""},
        BadCase{"UnknownTagId", withFrameTags(R"({"tag": "0x80990000", "values": [1]})"),
                "capture.json: frame.tags[0].tag: unknown tag id 0x80990000"},
        BadCase{"WrongValueType",
                withFrameTags(R"({"tag": "android.control.zoomRatio", "values": [1.0]},
                                 {"tag": "kovani.flash.mode", "values": [1, "on"]})"),
                "capture.json: frame.tags[1] \"kovani.flash.mode\": values[1]: expected int32 "
                "values, got \"on\""},
        BadCase{"FloatForInt", withFrameTags(R"({"tag": "kovani.flash.mode", "values": [1.5]})"),
                "capture.json: frame.tags[0] \"kovani.flash.mode\": values[0]: expected int32 "
                "values, got 1.5"},
        BadCase{"ByteOutOfRange",
                withFrameTags(R"({"tag": "kovani.hdr.enabled", "values": [256]})"),
                "capture.json: frame.tags[0] \"kovani.hdr.enabled\": values[0]: expected byte "
                "values, got 256"},
        BadCase{"StringForFloat",
                withFrameTags(R"({"tag": "android.control.zoomRatio", "values": ["2x"]})"),
                "capture.json: frame.tags[0] \"android.control.zoomRatio\": values[0]: expected "
                "float values, got \"2x\""},
        BadCase{"FloatOutOfRange",
                withFrameTags(R"({"tag": "android.control.zoomRatio", "values": [1e300]})"),
                "capture.json: frame.tags[0] \"android.control.zoomRatio\": values[0]: expected "
                "float values, got 1e+300"},
        BadCase{"TypeMismatch",
                withFrameTags(R"({"tag": "kovani.flash.mode", "type": "float", "values": [1]})"),
                "capture.json: frame.tags[0] \"kovani.flash.mode\": type: the tag holds int32 "
                "values, not \"float\""},
        BadCase{"TwoForms",
                withFrameTags(R"({"tag": "kovani.flash.mode", "values": [1], "hex": "01000000"})"),
                "capture.json: frame.tags[0] \"kovani.flash.mode\": give exactly one of "
                "\"values\", \"hex\", \"base64\", \"text\", \"packed\""},
        BadCase{"NoForm", withFrameTags(R"({"tag": "kovani.bokeh.faceInfo"})"),
                "capture.json: frame.tags[0] \"kovani.bokeh.faceInfo\": give exactly one of "
                "\"values\", \"hex\", \"base64\", \"text\", \"packed\", \"faces\""},
        BadCase{"NotWholeElements", withFrameTags(R"({"tag": "kovani.flash.mode", "hex": "0102"})"),
                "capture.json: frame.tags[0] \"kovani.flash.mode\": 2 bytes is not a whole "
                "number of int32 values (4 bytes each)"},
        BadCase{"OddHex",
                withFrameTags(R"({"tag": "com.kovani.orlo2.eyeclosure.status", "hex": "051"})"),
                "capture.json: frame.tags[0] \"com.kovani.orlo2.eyeclosure.status\": hex: odd "
                "number of hex digits"},
        BadCase{"BadHexDigit",
                withFrameTags(R"({"tag": "com.kovani.orlo2.eyeclosure.status", "hex": "0g"})"),
                "capture.json: frame.tags[0] \"com.kovani.orlo2.eyeclosure.status\": hex: not a "
                "hex digit at character 2"},
        BadCase{"BadBase64",
                withFrameTags(R"({"tag": "com.kovani.orlo2.eyeclosure.status", "base64": "A*=="})"),
                "capture.json: frame.tags[0] \"com.kovani.orlo2.eyeclosure.status\": base64: not "
                "a base64 character at character 2"},
        BadCase{"UnknownKeyInTag",
                withFrameTags(R"({"tag": "kovani.flash.mode", "values": [1], "unit": "ms"})"),
                "capture.json: frame.tags[0] \"kovani.flash.mode\": unknown key \"unit\""},
        BadCase{"UnknownRecordField", withFrameTags(R"({"tag": "kovani.bokeh.faceInfo",
                                                       "faces": [{"left": 1, "rigth": 2}]})"),
                "capture.json: frame.tags[0] \"kovani.bokeh.faceInfo\": faces[0]: unknown key "
                "\"rigth\""},
        BadCase{
            "PackedItem", withFrameTags(R"({"tag": "com.kovani.statsconfigs.AecInfo",
                                 "packed": [{"float": 1, "int32": 2}]})"),
            "capture.json: frame.tags[0] \"com.kovani.statsconfigs.AecInfo\": packed[0]: "
            "expected one {\"<type>\": value} or {\"pad\": bytes}, got {\"float\":1,\"int32\":2}"},
        BadCase{"DuplicateTag",
                withFrameTags(R"({"tag": "android.scaler.cropRegion", "values": [0, 0, 8, 6]},
                                 {"tag": "0xD0000", "values": [0, 0, 8, 6]})"),
                "capture.json: frame.tags[1]: \"android.scaler.cropRegion\" is already given at "
                "frame.tags[0]"},
        BadCase{"RecordTooShort",
                withFrameTags(R"({"tag": "kovani.ai.asd.SmartAE", "hex": "00112233"})"),
                "capture.json: frame.tags[0] \"kovani.ai.asd.SmartAE\": 4 byte values, but the "
                "library reads 448 (the 448-byte smart AE record)"},
        BadCase{"CropTableShort",
                withFrameTags(R"({"tag": "com.kovani.camera.sensorpolicy.cropregions",
                                 "entries": [{"cameraId": 2}, {"cameraId": 3}]})"),
                "capture.json: frame.tags[0] \"com.kovani.camera.sensorpolicy.cropregions\": 18 "
                "int32 values, but the library reads 36 (four 9-value entries)"},
        BadCase{"RectangleShort",
                withFrameTags(R"({"tag": "android.scaler.cropRegion", "values": [0, 0, 8]})"),
                "capture.json: frame.tags[0] \"android.scaler.cropRegion\": 3 int32 values, but "
                "the library reads 4 (a rectangle)"},
        BadCase{"TooManyFaces", withFrameTags(R"({"tag": "kovani.bokeh.faceInfo", "faces":
                    [{}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}]})"),
                "capture.json: frame.tags[0] \"kovani.bokeh.faceInfo\": 99 int32 values, but the "
                "library takes at most 98 (10 faces of 9 values fit the face record)"},
        BadCase{"SecondAfRegionMissing",
                withFrameTags(R"({"tag": "MTK_3A_FEATURE_AF_REGION", "values": [3, 2, 1, 2, 3,
                                 4, 0]})"),
                "capture.json: frame.tags[0] \"MTK_3A_FEATURE_AF_REGION\": 7 int32 values, but "
                "with region count 2 the library reads 11"},
        BadCase{"ImageNameUnended",
                withFrameTags(R"({"tag": "kovani.snapshot.imageName", "values": [73, 77, 71]})"),
                "capture.json: frame.tags[0] \"kovani.snapshot.imageName\": the name needs its "
                "ending NUL within 128 bytes (the library copies it into a 128-byte array)"},
        BadCase{"ImageNameTooLong",
                withFrameTags(R"({"tag": "kovani.snapshot.imageName", "text": ")" +
                              std::string(128, 'x') + R"("})"),
                "capture.json: frame.tags[0] \"kovani.snapshot.imageName\": the name needs its "
                "ending NUL within 128 bytes (the library copies it into a 128-byte array)"},
        BadCase{"PhysicalIdsUnended",
                withFrameTags(R"({"tag": "android.logicalMultiCamera.physicalIds",
                                 "hex": "3200 33"})"),
                "capture.json: frame.tags[0] \"android.logicalMultiCamera.physicalIds\": the last "
                "id needs its ending NUL (the library splits the ids at NULs)"},
        BadCase{"StaticCameraTwice", kHead + R"("frame": {"tags": []},
                    "static": [{"cameraId": 1, "tags": []}, {"cameraId": 1, "tags": []}]})",
                "capture.json: static[1].cameraId: camera 1 is described twice"},
        BadCase{"StaticTagBad", kHead + R"("frame": {"tags": []},
                    "static": [{"cameraId": 1, "tags": [{"tag": "android.sensor.info.activeArraySize",
                                                         "values": [0, 0, -4000, 3000.5]}]}]})",
                "capture.json: static[0].tags[0] \"android.sensor.info.activeArraySize\": "
                "values[3]: expected int32 values, got 3000.5"},
        BadCase{"RoleTwice", kHead + R"("frame": {"tags": []},
                    "adapter": {"roles": [{"cameraId": 2, "roleId": 0},
                                          {"cameraId": 2, "roleId": 20}]}})",
                "capture.json: adapter.roles[1].cameraId: camera 2 twice"},
        BadCase{"GyroTicksNegative", kHead + R"("frame": {"tags": []},
                    "adapter": {"gyro": {"samples": [{"x": 0, "y": 0, "z": 0, "ticks": -5}]}}})",
                "capture.json: adapter.gyro.samples[0].ticks: expected an integer from 0 to "
                "9223372036854775807, got -5"},
        BadCase{"NumberOutOfRange", kHead + R"("frame": {"tags": [
                    {"tag": "android.sensor.timestamp", "values": [1E6789]}]}})",
                "capture.json: malformed JSON: number overflow parsing '1E6789'"},
        BadCase{"ShiftNotNumber", kHead + R"("frame": {"tags": []},
                    "adapter": {"shift": {"x": "left", "y": 0}}})",
                "capture.json: adapter.shift.x: expected an integer from -2147483648 to "
                "2147483647, got \"left\""}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace loader
}  // namespace kvhost
