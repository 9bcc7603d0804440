// Burst exposure, colour and tone, HDR and anchor flags: the getters that do
// more than one read and convert.
#include <algorithm>
#include <vector>

#include "TestSupport.h"

namespace kvtest {
namespace {

// ---- Exposure ratio and tone gains ---------------------------------------------

TEST_F(MetaTest, TfnrExposureRatioIsTwoToTheThousandthsOfEv) {
    // A missing tag's code and line are in the samples' goldens.
    const struct {
        int32_t milliEv;
        float ratio;
        LineList lines;
    } cases[] = {
        {-1000, 0.5f, {}},
        {2500, 5.65685424949238f, {}},
        {0,
         1.0f,
         {L(3, kMtk, "GetTFNRExpRatio", "GetMetadata kovani.hdr.custom.adjustratio = 0")}}};
    for (const auto& c : cases) {
        capture.clear();
        md->putInt32("kovani.hdr.custom.adjustratio", {c.milliEv});
        float ratio = 9.0f;
        EXPECT_EQ(utils.GetTFNRExpRatio(md, &ratio), 0);
        EXPECT_EQ(ratio, c.ratio) << c.milliEv;
        EXPECT_EQ(Lines(), c.lines) << c.milliEv;
    }
}

// The tone gain without its flag, and without the tone gain, are in the
// samples' goldens.
TEST_F(MetaTest, AdrcGainAndTheSafeExposureFlag) {
    const struct {
        const char* what;
        int32_t toneGain;
        int safeFlag;  // -1: tag absent
        int rc;
        float gain;
    } cases[] = {
        {"flag absent: low byte of 1537 is 1", 1537, -1, -1, 1.0f},
        {"flag set", 1536, 1, 0, 1.0f},
        {"flag clear", 1536, 0, 0, 1.5f},
        {"fraction exact in double", 1000, 0, 0, 0.9765625f},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        md->clear();
        md->putInt32("kovani.ae.mid.tonegain", {c.toneGain});
        if (c.safeFlag >= 0) {
            const uint8_t flag = static_cast<uint8_t>(c.safeFlag);
            md->putBytes("kovani.safe.exposure.enabled", &flag, 1);
        }
        float gain = -1.0f;
        EXPECT_EQ(utils.GetBurstInfoAdrcGain(md, &gain), c.rc);
        EXPECT_EQ(gain, c.gain);
    }
    EXPECT_TRUE(Lines().empty());  // the missing flag is silent
}

TEST_F(MetaTest, LinearGainNeedsTheIspGain) {
    md->putInt32(0x80060010u, {1536});
    float gain = -1.0f;
    EXPECT_EQ(utils.GetBurstInfoLinearGain(md, &gain, 3), -2);
    EXPECT_EQ(gain, -1.0f);
    EXPECT_EQ(Lines(), (LineList{kLookupMiss,
                                 L(3, kMtk, "GetBurstInfoBpsIspGain",
                                   "GetMetadata MTK_3A_FEATURE_AE_ISP_GAIN_VALUE err"),
                                 L(3, kMtk, "GetBurstInfoLinearGain", "GetMetadata IspGain err")}));
    md->putInt32(0x80060011u, {8192});
    EXPECT_EQ(utils.GetBurstInfoLinearGain(md, &gain, 3), 0);
    EXPECT_EQ(gain, 3.0f);  // 1536 / 1024 = 1.5, not 1, times 2.0
}

// ---- White balance, gamma, histogram, black level, colour correction -------------

// The read itself, the odd green skipped, is checked by the samples' goldens.
TEST_F(MetaTest, AwbGainClearsValidFirst) {
    kvalgo2::AWBGain gain{7.0f, 7.0f, 7.0f};
    bool valid = true;
    EXPECT_EQ(utils.GetAWBGain(md, gain, valid), -2);
    EXPECT_FALSE(valid);
    EXPECT_EQ(gain.rGain, 7.0f);
    EXPECT_EQ(Lines(), (LineList{kLookupMiss, L(3, kMtk, "GetAWBGain",
                                                "GetMetadata MTK_COLOR_CORRECTION_GAINS err")}));
}

TEST_F(MetaTest, GtmTableOnlyLogs) {
    std::vector<int32_t> curve(300, 0);
    curve[0] = 257;
    curve[32] = 11;   // byte 128
    curve[288] = 22;  // byte 1152
    md->putInt32("kovani.hdr.gtm.curve", curve);
    int table = 42;
    EXPECT_EQ(utils.GetGTMTable(md, &table), 0);
    EXPECT_EQ(table, 42);
    EXPECT_EQ(Lines(), (LineList{L(1, kMtk, "GetGTMTable", "gtm curve, binNum:257 (11, 22)")}));
}

TEST_F(MetaTest, PlatformGammaKnotsFollowTheirSteps) {
    AIspGammaTbl tbl{};
    EXPECT_EQ(utils.GetPlatFormGamma(nullptr, tbl), 0);
    // Steps of 2 over 128 intervals, 4 over 64, 8 over 63, then 7 to 1023
    // (the first knots, the last and the count are in the samples' goldens).
    for (int i = 1; i < 257; ++i) {
        const float step = i <= 128 ? 2.0f : i <= 192 ? 4.0f : i <= 255 ? 8.0f : 7.0f;
        EXPECT_EQ(tbl.x[i] - tbl.x[i - 1], step) << i;
        EXPECT_GT(tbl.y[i], tbl.y[i - 1]) << i;
    }
    EXPECT_EQ((std::vector<float>{tbl.y[16], tbl.y[128], tbl.y[255]}),
              (std::vector<float>{198, 550, 1020}));
}

TEST_F(MetaTest, BpsGammaOutputConvertsTheSupernightCurve) {
    std::vector<int32_t> curve(256);
    for (int i = 0; i < 256; ++i) curve[i] = 4 * i - 3;
    md->putInt32("kovani.supernight.gammainfo", curve);
    std::vector<float> gamma(257, -1.0f);
    bool valid = false;
    EXPECT_EQ(utils.GetBPSGammaOutput(md, &valid, gamma.data()), 0);
    EXPECT_TRUE(valid);
    EXPECT_EQ(gamma[0], -3.0f);
    EXPECT_EQ(gamma[255], 1017.0f);
    EXPECT_EQ(gamma[256], 0.0f);
    EXPECT_EQ(Lines(),
              (LineList{L(2, kMtk, "GetBPSGammaOutput",
                          "isGammaValid:1 gammaG:[-3.000000 1.000000 5.000000 9.000000]")}));
}

TEST_F(MetaTest, PreviewBrightnessSumsChannelsWithWrapAround) {
    std::vector<int32_t> stats(1024);
    for (int i = 0; i < 1024; ++i) stats[i] = i / 4 + i % 4;  // bin + channel
    const int32_t wrapping[4] = {-1, 2, 0, 0};                // 0xFFFFFFFF + 2 + 0 + 0
    std::copy(wrapping, wrapping + 4, stats.begin() + 4 * 9);
    md->putInt32("kovani.histogram.stats", stats);
    kvalgo2::PreviewBrightnessInfo info{};
    EXPECT_EQ(utils.GetPreviewBrightnessInfo(md, &info), 0);
    EXPECT_EQ(info.binCount, 256u);
    EXPECT_EQ(info.bins[0], 6u);
    EXPECT_EQ(info.bins[255], 4u * 255 + 6);
    EXPECT_EQ(info.bins[9], 1u);
}

TEST_F(MetaTest, DynamicBlackLevelInTenBitUnits) {
    const struct {
        int32_t bpp;  // 0: tag absent
        float level;
    } cases[] = {{12, 64.0f}, {10, 256.0f}, {14, 16.0f}, {0, 16.0f}};
    md->putFloat(0xE001Cu, {256.0f, 256.0f, 256.0f, 256.0f});
    for (const auto& c : cases) {
        capture.clear();
        md->erase("kovani.algoengine.input.raw.bpp");
        if (c.bpp != 0) md->putInt32("kovani.algoengine.input.raw.bpp", {c.bpp});
        float level[4] = {};
        EXPECT_EQ(utils.GetSensorDynamicBlackLevel(md, level), 0);
        for (float l : level) EXPECT_EQ(l, c.level) << c.bpp;
        EXPECT_TRUE(Lines().empty());
    }
}

TEST_F(MetaTest, ColorCorrectionTransform) {
    std::vector<camera_metadata_rational_t> m(9);
    for (int i = 0; i < 9; ++i) m[i] = {i - 4, 128 + i};
    md->putRational("kovani.supernight.color.correction.transform", m);
    kvalgo2::ChiRational out[9] = {};
    EXPECT_EQ(utils.GetColorCorrectionTransform(md, out), 0);
    EXPECT_EQ(out[8].denominator, 136);  // all nine copied, at their size
    const auto lines = Lines();
    ASSERT_EQ(lines.size(), 9u);
    EXPECT_EQ(lines[8], L(0, kMtk, "GetColorCorrectionTransform",
                          "transform[8] - numerator:4 denominator:136"));
}

// ---- HDR, tele fusion, slave anchor ----------------------------------------------

TEST_F(MetaTest, HdrEnabledPrefersTheRawFlag) {
    auto value = [](const char* v) { return L(2, kMtk, "GetHdrEnabled", v); };
    const struct {
        int raw, hdr;  // -1: absent
        int value;
        LineList lines;
    } cases[] = {
        {0, 1, 0, {value("hdrEnabled = 0")}},
        {0xFF, -1, -1, {value("hdrEnabled = -1")}},
        {-1,
         1,
         1,
         {kLookupMiss, L(1, kMtk, "GetHdrEnabled", "cannot find kovani.hdr.raw.enabled"),
          value("hdrEnabled = 1")}},
    };  // neither flag: in the tele sample's golden log
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << "raw " << c.raw << " hdr " << c.hdr);
        capture.clear();
        md->clear();
        const uint8_t raw = static_cast<uint8_t>(c.raw), hdr = static_cast<uint8_t>(c.hdr);
        if (c.raw >= 0) md->putBytes("kovani.hdr.raw.enabled", &raw, 1);
        if (c.hdr >= 0) md->putBytes("kovani.hdr.enabled", &hdr, 1);
        int v = 99;
        EXPECT_EQ(utils.GetHdrEnabled(md, &v), 0);
        EXPECT_EQ(v, c.value);
        EXPECT_EQ(Lines(), c.lines);
    }
}

TEST_F(MetaTest, TeleFusionFlagIsTheResult) {
    EXPECT_EQ(utils.GetTeleFusionEnable(md), 0);  // absent
    const uint8_t high = 0x80;                    // any nonzero byte, 128 too
    md->putBytes("kovani.telefusion.enabled", &high, 1);
    EXPECT_EQ(utils.GetTeleFusionEnable(md), 1);
    EXPECT_EQ(Lines(), (LineList{L(2, kMtk, "GetTeleFusionEnable", "isFusionEnable = 0"),
                                 L(2, kMtk, "GetTeleFusionEnable", "isFusionEnable = 1")}));
}

TEST_F(MetaTest, SlaveAnchorFrame) {
    int frame = 5;
    EXPECT_EQ(utils.SetSlaveAnchorFrame(nullptr, &frame), 0);  // missing metadata is success
    EXPECT_EQ(utils.SetSlaveAnchorFrame(nullptr, 3), 0);
    EXPECT_EQ(utils.GetSlaveAnchorFrame(nullptr, &frame), -2);
    EXPECT_EQ(utils.GetSlaveAnchorFrame(md, &frame), -1);
    EXPECT_EQ(utils.SetSlaveAnchorFrame(md, nullptr), -2);
    // Both absent: the output is tested first, in the getter and the setter.
    EXPECT_EQ(utils.GetSlaveAnchorFrame(nullptr, nullptr), -2);
    EXPECT_EQ(utils.SetSlaveAnchorFrame(nullptr, nullptr), -2);
    EXPECT_EQ(frame, 5);
    EXPECT_EQ(Lines(),
              (LineList{L(4, kMtk, "GetSlaveAnchorFrame", "mdata is null"),
                        L(3, kMtk, "GetSlaveAnchorFrame", "find kovani.bokeh.AuxAnchorFrame fail"),
                        L(4, kMtk, "SetSlaveAnchorFrame", "arg err"),
                        L(4, kMtk, "GetSlaveAnchorFrame", "arg err"),
                        L(4, kMtk, "SetSlaveAnchorFrame", "arg err")}));
    // The read's line is in the tele sample's golden log.
    int seven = 7;
    EXPECT_EQ(utils.SetSlaveAnchorFrame(md, &seven), 0);
    EXPECT_EQ(utils.GetSlaveAnchorFrame(md, &frame), 0);
    EXPECT_EQ(frame, 7);
    EXPECT_EQ(utils.SetSlaveAnchorFrame(md, 12), 0);
    EXPECT_EQ(utils.GetSlaveAnchorFrame(md, &frame), 0);
    EXPECT_EQ(frame, 12);
}

}  // namespace
}  // namespace kvtest
