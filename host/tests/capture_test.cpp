// Reading capture descriptions: every payload form gives the bytes the
// library will read, and every kind of bad input is one clear message that
// names the file and the position.
#include "Capture.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "LoaderTestSupport.h"

namespace kvhost {
namespace loader {
namespace {

// A capture whose frame holds the tag entries given (JSON text).
std::string withFrameTags(const std::string& tags) {
    return R"({"camera": {"cameraId": 0}, "input": {"width": 1920, "height": 1080},
               "frame": {"tags": [)" +
           tags + "]}}";
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

// Each case of data/bad-captures.txt fails with its one message.
TEST(BadInput, IsOneMessageNamingFileAndPosition) {
    std::ifstream cases(KVTEST_SOURCE_DIR "/host/tests/data/bad-captures.txt");
    std::string name, text;
    size_t count = 0;
    for (std::string line; std::getline(cases, line);) {
        if (line.rfind("== ", 0) == 0) {
            name = line.substr(3);
            text.clear();
        } else if (line.rfind("-> ", 0) == 0) {
            ++count;
            try {
                parseCapture(text, "capture.json");
                ADD_FAILURE() << name << ": accepted";
            } catch (const InputError& e) {
                EXPECT_EQ(std::string(e.what()), line.substr(3)) << name;
            }
        } else if (!name.empty()) {
            text += (text.empty() ? "" : "\n") + line;
        }
    }
    EXPECT_EQ(count, 40u);
}

}  // namespace
}  // namespace loader
}  // namespace kvhost
