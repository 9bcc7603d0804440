// Scene, motion-capture, eye-closure and bokeh getters beyond the plain rows.
#include <cstring>
#include <string>
#include <vector>

#include "TestSupport.h"

namespace kvtest {
namespace {

TEST_F(MetaTest, MotionCaptureAnchorNeedsBandingAndDeflicker) {
    auto line = [](const char* m) { return L(2, kMU, "GetMotionCaptureAnchorOrder", m); };
    const Line banding1 = line("zslMcBandingType: 0x80, isZslFlkMotionCap: 1");
    const LineList noLowByte = {line("zslMcBandingType: 0x100, isZslFlkMotionCap: 0")};
    const LineList succeeded = {banding1, line("anchorInfo: 0x1ff, isDeflickerSuccess: 1")};
    const LineList failed = {banding1, line("anchorInfo: 0xff, isDeflickerSuccess: 0")};
    const LineList bit9 = {banding1, line("anchorInfo: 0x2ff, isDeflickerSuccess: 0")};
    const LineList absent = {banding1, kLookupMiss,
                             L(3, kMU, "GetMotionCaptureAnchorOrder",
                               "GetMetadata kovani.motion.capture.anchorInfo err")};
    const struct {
        int32_t banding;
        int32_t anchor;  // -1: tag absent
        int rc;
        int order;
        const LineList& lines;
    } cases[] = {{0x100, 0x1FF, -1, 77, noLowByte},
                 {0x80, 0x1FF, 0, 255, succeeded},
                 {0x80, 0x0FF, -1, 77, failed},
                 {0x80, 0x2FF, -1, 77, bit9},
                 {0x80, -1, -2, 77, absent}};
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.banding << " " << c.anchor);
        capture.clear();
        md->clear();
        md->putInt32("kovani.ai.kvsd.zslMcBandingType", {c.banding});
        if (c.anchor >= 0) md->putInt32("kovani.motion.capture.anchorInfo", {c.anchor});
        int order = 77;
        EXPECT_EQ(utils.GetMotionCaptureAnchorOrder(md, &order), c.rc);
        EXPECT_EQ(order, c.order);
        EXPECT_EQ(Lines(), c.lines);
    }
}

TEST_F(MetaTest, EyeClosureStatusUnderBothNames) {
    AIspAnchorMeta meta{true, true};
    EXPECT_EQ(utils.GetEcdStatus(md, meta), -2);
    EXPECT_TRUE(meta.eyeDet && meta.eyeOpen);
    EXPECT_EQ(Lines().back(),
              L(3, kMU, "GetEcdStatus", "GetMetadata com.kovani.orlo2.eyeclosure.status fail"));

    const struct {
        uint8_t status;
        bool eyeDet, eyeOpen;
    } cases[] = {{0x05, false, false}, {0x01, true, true}, {0x00, true, false},
                 {0x02, true, false},  {0x81, true, true}, {0x84, false, false}};
    for (const auto& c : cases) {
        md->putBytes("com.kovani.orlo2.eyeclosure.status", &c.status, 1);
        for (bool lower : {false, true}) {
            capture.clear();
            meta = {!c.eyeDet, !c.eyeOpen};
            EXPECT_EQ(lower ? utils.getEcdStatus(md, meta) : utils.GetEcdStatus(md, meta), 0);
            EXPECT_EQ(meta.eyeDet, c.eyeDet) << int(c.status);
            EXPECT_EQ(meta.eyeOpen, c.eyeOpen) << int(c.status);
            char text[64];
            std::snprintf(text, sizeof text, "ecdRet:0x%x, eyeDet:%d, eyeOpen:%d", c.status,
                          c.eyeDet, c.eyeOpen);
            EXPECT_EQ(Lines(),
                      (LineList{L(0, kMU, lower ? "getEcdStatus" : "GetEcdStatus", text)}));
        }
    }
}

TEST_F(MetaTest, AiSceneResultCopiesSixteenBytes) {
    std::vector<uint8_t> blob(24);
    for (size_t i = 0; i < blob.size(); ++i) blob[i] = static_cast<uint8_t>(100 + i);
    md->putBytes("kovani.ai.asd.algoSceneDetectedAIResult", blob.data(), blob.size());
    AIspSceneResult result;
    std::memset(&result, 0, sizeof result);
    EXPECT_EQ(utils.GetAISceneResult(md, result), 0);
    EXPECT_EQ(std::memcmp(result.bytes, blob.data(), 16), 0);
}

TEST_F(MetaTest, BokehRequestRoundTrip) {
    __bokehRequestInfoList in;
    for (size_t i = 0; i < sizeof in.bytes; ++i) in.bytes[i] = static_cast<uint8_t>(255 - i);
    EXPECT_EQ(utils.SetBokehRequestInfoList(md, nullptr), -2);
    EXPECT_EQ(utils.SetBokehRequestInfoList(nullptr, &in), -2);
    EXPECT_EQ(Lines(), (LineList{L(4, kMU, "SetBokehRequestInfoList", "arg err"),
                                 L(4, kMU, "SetMetaData", "pArg is null"),
                                 L(3, kMU, "SetBokehRequestInfoList",
                                   "SetMetadata com.kovani.camera.bokehConfig.request err")}));
    capture.clear();
    EXPECT_EQ(utils.SetBokehRequestInfoList(md, &in), 0);
    EXPECT_EQ(md->find("com.kovani.camera.bokehConfig.request").count, 124u);
    __bokehRequestInfoList out{};
    EXPECT_EQ(utils.GetBokehRequestInfoList(md, &out), 0);
    EXPECT_EQ(std::memcmp(in.bytes, out.bytes, sizeof in.bytes), 0);
    EXPECT_TRUE(Lines().empty());
}

TEST_F(MetaTest, ImageNameUpToItsNul) {
    const std::string name(127, 'n');
    md->putBytes("kovani.snapshot.imageName", name.c_str(), name.size() + 1);
    char out[128];
    std::memset(out, 'x', sizeof out);
    EXPECT_EQ(utils.GetImageName(md, &out), 0);
    EXPECT_EQ(std::string(out), name);

    md->clear();
    EXPECT_EQ(utils.GetImageName(md, &out), -2);
    EXPECT_EQ(utils.GetImageName(md, nullptr), -2);
    EXPECT_EQ(Lines(),
              (LineList{kLookupMiss, L(3, kMU, "GetImageName", "GetMetadata imageName err"),
                        L(4, kMU, "GetImageName", "arg err")}));
}

}  // namespace
}  // namespace kvtest
