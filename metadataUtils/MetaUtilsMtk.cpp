// MetaUtils, platform part: capture statistics and burst metadata, the final
// crop region, faces, sensor types and modes, and the remaining geometry and
// camera-identity methods.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <unordered_map>
#include <vector>

#include "AdapterClient.h"
#include "KvMetadata.h"
#include "MetaDefs.h"
#include "MetaLog.h"
#include "MetaUtils.h"
#include "TagGetter.h"

namespace kvalgo2 {

using detail::Convert;
using detail::Copy;
using detail::kDefaultMessages;
using detail::Truncate;

// ===========================================================================
// Burst and preview exposure
// ===========================================================================

namespace {

// Tone gains are Q10 fixed point, ISP gains Q12; the burst getters scale in
// single precision, the preview ISP gain divides in double and narrows.
void StoreToneGainQ10(const void* data, float* out) {
    *out = static_cast<float>(detail::Load<int32_t>(data)) * 0.0009765625f;
}
void StoreIspGainQ12(const void* data, float* out) {
    *out = static_cast<float>(detail::Load<int32_t>(data)) * 0.000244140625f;
}
void StorePreviewIspGainQ12(const void* data, float* out) {
    *out = static_cast<float>(static_cast<double>(detail::Load<int32_t>(data)) / 4096.0);
}
constexpr detail::Read<float> ToneGainQ10{StoreToneGainQ10, sizeof(int32_t)};
constexpr detail::Read<float> IspGainQ12{StoreIspGainQ12, sizeof(int32_t)};
constexpr detail::Read<float> PreviewIspGainQ12{StorePreviewIspGainQ12, sizeof(int32_t)};

}  // namespace

// clang-format off
KV_TAG_GETTER(GetTimestamp, long, "org.quic.camera.qtimer.startOfExposure", kDefaultMessages,
              Copy<long>)
KV_TAG_GETTER(GetCCT, float, "com.mediatek.3afeature.awbColorTemperature", kDefaultMessages,
              (Convert<int32_t, float>))
KV_TAG_GETTER(GetBurstInfoFaceLuma, float, "kovani.ae.average.face.luma",
              KV_TAG_MESSAGES("kovani.ae.average.face.luma"), (Convert<int32_t, float>))
KV_TAG_GETTER(GetBurstInfoFrameLuma, float, "kovani.ae.average.frame.luma",
              KV_TAG_MESSAGES("kovani.ae.average.frame.luma"), (Convert<int32_t, float>))
// Exposure time in nanoseconds, as a float.
KV_TAG_GETTER_IGNORING_INT(GetBurstInfoShutter, float, tag::ANDROID_SENSOR_EXPOSURE_TIME,
              KV_TAG_MESSAGES("ANDROID_SENSOR_EXPOSURE_TIME"), (Convert<int64_t, float>))
// The AEC info record: lux index as a float at byte 0, exposure index as an
// int32 at byte 8.
KV_TAG_GETTER(GetBurstInfoLuxIndex, int, "com.kovani.statsconfigs.AecInfo", kDefaultMessages,
              Truncate<int>)
KV_TAG_GETTER_IGNORING_INT(GetBurstInfoExpIndex, int, "com.kovani.statsconfigs.AecInfo",
              KV_TAG_MESSAGES("com.kovani.statsconfigs.AecInfo"), (Copy<int, 8>))
KV_TAG_GETTER(GetBurstInfoDarkBoostGain, float, "kovani.ae.dark.tonegain", kDefaultMessages,
              ToneGainQ10)
KV_TAG_GETTER(GetPreviewAdrcGain, float, "kovani.ae.mid.tonegain",
              KV_TAG_MESSAGES("PreviewAdrcGain"), ToneGainQ10)
KV_TAG_GETTER(GetPreviewFrameLuma, float, "kovani.longexposure.cwv",
              KV_TAG_MESSAGES("PreviewFrameLuma"), (Convert<int32_t, float>))
KV_TAG_GETTER(GetPreviewTargetLuma, float, "kovani.longexposure.cwr",
              KV_TAG_MESSAGES("PreviewTargetLuma"), (Convert<int32_t, float>))
KV_TAG_GETTER(GetBurstInfoBpsIspGain, float, tag::MTK_3A_FEATURE_AE_ISP_GAIN_VALUE,
              KV_TAG_MESSAGES("MTK_3A_FEATURE_AE_ISP_GAIN_VALUE"), IspGainQ12)
// The frame-info record starts with the frame's timestamp; one getter hands
// it out unsigned, the other signed.
KV_TAG_GETTER(GetQTimeStamp, unsigned long, "com.kovani.mtk.p1node.frameinfo",
              KV_TAG_MESSAGES("com.kovani.mtk.p1node.frameinfo"), Copy<unsigned long>)
KV_TAG_GETTER(GetFrameSyncTimestamp, long, "com.kovani.mtk.p1node.frameinfo",
              KV_TAG_MESSAGES("com.kovani.mtk.p1node.frameinfo"), Copy<long>)
// Reads the exposure compensation; its messages name the supernight manual
// EV tag, as the interface's log lines always have.
KV_TAG_GETTER(GetSnapshotReqInfoUIEV, int, "kovani.ae.exposureCompensation",
              KV_TAG_MESSAGES("kovani.supernight.real.manualev"), Copy<int>)
KV_TAG_GETTER(GetPreviewISPGain, float, "kovani.burst.last.preview.ispGain",
              KV_TAG_MESSAGES("kovani.burst.last.preview.ispGain"), PreviewIspGainQ12)
KV_TAG_GETTER(GetPreviewExposure, float, "kovani.burst.last.preview.exposure.time",
              KV_TAG_MESSAGES("PreviewExposure"), (Convert<int64_t, float>))
KV_TAG_GETTER(GetFaceAverageBrightness, float, "kovani.ai.asd.FaceAverageBrightness",
              KV_TAG_MESSAGES("FaceAverageBrightness"), Copy<float>)
KV_TAG_GETTER(GetMotionVelocity, float, "kovani.ai.kvsd.motionVelocity",
              KV_FULL("GetMetadata motionVelocity err", "get metadata motionVelocity Fail"),
              (Convert<int32_t, float>))
// Reports only whether the frame-control record has data: the output is
// never written.
KV_TAG_GETTER(GetBurstInfoBpsIspGainShort, float, "org.quic.camera2.statsconfigs.AECFrameControl",
              kDefaultMessages, detail::Ignore<float>)
KV_TAG_GETTER(GetIsZSLEnable, int, "kovani.control.zsl.enable",
              KV_SHORT("GetMetadata kovani.control.zsl.enable fail"), (Convert<uint8_t, int>))
// clang-format on

// The adjust ratio is an exposure ratio in thousandths of an EV step.
int MetaUtils::GetTFNRExpRatio(std::shared_ptr<KvMetadata> metadata, float* ratio) {
    if (ratio == nullptr) return detail::ArgErr(KV_HERE);
    constexpr detail::TagRef kTag("kovani.hdr.custom.adjustratio");
    detail::Payload payload;
    if (const int ret =
            detail::LookUp(KV_HERE, metadata, kTag,
                           KV_SHORT("GetMetadata kovani.hdr.custom.adjustratio fail"), &payload)) {
        return ret;
    }
    if (const int ret = detail::CheckPayload(KV_HERE, kTag, payload, sizeof(int32_t))) return ret;
    const int32_t milliEv = detail::Load<int32_t>(payload.data);
    if (milliEv == 0) {
        *ratio = 1.0f;
        KV_LOG(3, "GetMetadata kovani.hdr.custom.adjustratio = 0");
        return 0;
    }
    *ratio =
        static_cast<float>(std::exp2(static_cast<double>(static_cast<float>(milliEv) / 1000.0f)));
    return 0;
}

int MetaUtils::GetBurstInfoAdrcGain(std::shared_ptr<KvMetadata> metadata, float* gain) {
    if (gain == nullptr) return detail::ArgErr(KV_HERE);
    constexpr detail::TagRef kGainTag("kovani.ae.mid.tonegain");
    constexpr detail::TagRef kSafeTag("kovani.safe.exposure.enabled");
    detail::Payload payload;
    if (const int ret = detail::LookUp(KV_HERE, metadata, kGainTag, kDefaultMessages, &payload)) {
        return ret;
    }
    if (const int ret = detail::CheckPayload(KV_HERE, kGainTag, payload, sizeof(int32_t))) {
        return ret;
    }
    float value =
        static_cast<float>(static_cast<double>(detail::Load<int32_t>(payload.data)) / 1024.0);
    // The safe-exposure flag is looked up into the same pointer and its
    // result is what the caller gets. Without the tag the pointer still
    // addresses the tone gain, whose low byte is then tested, and the lookup
    // answers -1 silently although the gain is written.
    void* data = const_cast<void*>(payload.data);
    size_t bytes = payload.bytes;
    const int ret = detail::FindPayload(metadata, kSafeTag, &data, nullptr,
                                        detail::kHardened ? &bytes : nullptr);
    if (const int shortRet = detail::CheckPayload(KV_HERE, kSafeTag, bytes, sizeof(uint8_t))) {
        return shortRet;
    }
    if (detail::Load<uint8_t>(data) != 0) value = 1.0f;
    *gain = value;
    return ret;
}

// ===========================================================================
// Colour, tone and gain
// ===========================================================================

namespace {

constexpr int kGammaPoints = 257;

// Gamma knots: every 2 up to 256, every 4 up to 512, every 8 up to 1016,
// then 1023.
constexpr std::array<float, kGammaPoints> MakeGammaKnots() {
    std::array<float, kGammaPoints> x{};
    for (int i = 0; i < kGammaPoints - 1; ++i) {
        x[i] = static_cast<float>(i <= 128   ? 2 * i
                                  : i <= 192 ? 256 + 4 * (i - 128)
                                             : 512 + 8 * (i - 192));
    }
    x[kGammaPoints - 1] = 1023.0f;
    return x;
}
constexpr std::array<float, kGammaPoints> kGammaKnots = MakeGammaKnots();

// The platform's fixed gamma curve at those knots.
// clang-format off
constexpr std::array<float, kGammaPoints> kPlatformGamma = {
    0, 26, 51, 71, 87, 101, 113, 124, 135, 144, 153, 162, 170, 177, 185, 192,
    198, 205, 211, 217, 223, 229, 235, 240, 245, 250, 256, 260, 265, 270, 275, 279,
    284, 288, 292, 297, 301, 305, 309, 313, 317, 321, 325, 328, 332, 336, 339, 343,
    346, 350, 353, 357, 360, 363, 367, 370, 373, 376, 379, 382, 386, 389, 392, 395,
    398, 401, 403, 406, 409, 412, 415, 418, 420, 423, 426, 429, 431, 434, 437, 440,
    442, 445, 447, 450, 452, 455, 457, 460, 462, 465, 467, 470, 472, 474, 476, 479,
    481, 484, 486, 488, 490, 493, 495, 497, 499, 502, 504, 506, 508, 510, 512, 515,
    517, 519, 521, 523, 525, 527, 529, 531, 533, 536, 538, 540, 542, 544, 546, 548,
    550, 554, 557, 561, 565, 569, 573, 577, 580, 584, 587, 591, 594, 598, 602, 606,
    609, 612, 615, 619, 622, 626, 629, 632, 635, 639, 642, 645, 648, 652, 655, 658,
    661, 664, 667, 670, 673, 676, 679, 682, 685, 688, 691, 694, 697, 700, 703, 706,
    709, 712, 714, 717, 720, 723, 725, 728, 731, 734, 736, 739, 742, 745, 747, 750,
    752, 758, 763, 768, 773, 778, 783, 788, 793, 798, 803, 808, 812, 817, 822, 827,
    831, 836, 840, 845, 849, 854, 858, 863, 867, 871, 876, 880, 884, 889, 893, 897,
    901, 905, 909, 914, 918, 922, 926, 930, 934, 938, 942, 945, 949, 953, 957, 961,
    965, 968, 972, 976, 980, 983, 987, 991, 994, 998, 1002, 1005, 1009, 1012, 1016, 1020,
    1023,
};
// clang-format on

void StoreGammaKnots(AIspGammaTbl& tbl) {
    tbl.count = kGammaPoints;
    std::memcpy(tbl.x, kGammaKnots.data(), sizeof(kGammaKnots));
}

}  // namespace

int MetaUtils::GetGTMTable(std::shared_ptr<KvMetadata> metadata, int* table) {
    if (table == nullptr) return detail::ArgErr(KV_HERE);
    constexpr detail::TagRef kTag("kovani.hdr.gtm.curve");
    detail::Payload payload;
    if (const int ret = detail::LookUp(KV_HERE, metadata, kTag, kDefaultMessages, &payload)) {
        return ret;
    }
    if (const int ret = detail::CheckPayload(KV_HERE, kTag, payload, 1152 + sizeof(int32_t))) {
        return ret;
    }
    // Diagnostics only: the curve is logged and the caller's integer stays.
    KV_LOG(1, "gtm curve, binNum:%d (%d, %d)", detail::Load<int32_t>(payload.data),
           detail::Load<int32_t>(payload.data, 128), detail::Load<int32_t>(payload.data, 1152));
    return 0;
}

int MetaUtils::GetBurstInfoLinearGain(std::shared_ptr<KvMetadata> metadata, float* gain, int) {
    if (gain == nullptr) return detail::ArgErr(KV_HERE);
    constexpr detail::TagRef kTag(tag::MTK_3A_FEATURE_AE_SENSOR_GAIN_VALUE);
    detail::Payload payload;
    if (const int ret =
            detail::LookUp(KV_HERE, metadata, kTag,
                           KV_TAG_MESSAGES("MTK_3A_FEATURE_AE_SENSOR_GAIN_VALUE"), &payload)) {
        return ret;
    }
    if (const int ret = detail::CheckPayload(KV_HERE, kTag, payload, sizeof(int32_t))) return ret;
    const int32_t sensorGain = detail::Load<int32_t>(payload.data);
    float ispGain = 1.0f;
    if (const int ret = GetBurstInfoBpsIspGain(std::move(metadata), &ispGain)) {
        KV_LOG(3, "GetMetadata IspGain err");
        return ret;
    }
    *gain = static_cast<float>(sensorGain) / 1024.0f * ispGain;
    return 0;
}

int MetaUtils::GetAWBGain(std::shared_ptr<KvMetadata> metadata, AWBGain& gain, bool& valid) {
    valid = false;
    constexpr detail::TagRef kTag(tag::MTK_COLOR_CORRECTION_GAINS);
    detail::Payload payload;
    if (const int ret = detail::LookUp(KV_HERE, metadata, kTag,
                                       KV_TAG_MESSAGES("MTK_COLOR_CORRECTION_GAINS"), &payload)) {
        return ret;
    }
    if (const int ret = detail::CheckPayload(KV_HERE, kTag, payload, 4 * sizeof(float))) {
        return ret;
    }
    // Red, green-even, green-odd, blue: the odd green is skipped.
    gain.rGain = detail::Load<float>(payload.data, 0);
    gain.gGain = detail::Load<float>(payload.data, 4);
    gain.bGain = detail::Load<float>(payload.data, 12);
    valid = true;
    return 0;
}

// Reports only whether the frame-control record has data; `adj` is never
// written.
int MetaUtils::GetAWBGainAdj(std::shared_ptr<KvMetadata> metadata, AWBGainAdj& adj) {
    static constexpr detail::TagGetter<AWBGainAdj> kRow{
        "org.quic.camera2.statsconfigs.AECFrameControl", kDefaultMessages,
        detail::Ignore<AWBGainAdj>};
    return detail::ReadTag(KV_HERE, std::move(metadata), &adj, kRow);
}

int MetaUtils::GetBPSGammaOutput(std::shared_ptr<KvMetadata> metadata, bool* valid, float* gamma) {
    if (gamma == nullptr) return detail::ArgErr(KV_HERE);
    constexpr detail::TagRef kTag("kovani.supernight.gammainfo");
    float curve[kGammaPoints] = {};
    void* data = nullptr;
    size_t bytes = 0;
    const int ret =
        detail::FindPayload(metadata, kTag, &data, nullptr, detail::kHardened ? &bytes : nullptr);
    const bool isValid = ret == 0 && data != nullptr;
    if (isValid) {
        // The only -1 of this getter: a lookup into a null pointer never
        // answers it.
        if (const int shortRet =
                detail::CheckPayload(KV_HERE, kTag, bytes, (kGammaPoints - 1) * sizeof(int32_t))) {
            return shortRet;
        }
        for (int i = 0; i < kGammaPoints - 1; ++i) {
            curve[i] = static_cast<float>(detail::Load<int32_t>(data, 4 * i));
        }
        KV_LOG(2, "isGammaValid:%d gammaG:[%f %f %f %f]", 1, curve[0], curve[1], curve[2],
               curve[3]);
    }
    // Written in every case: an invalid curve is 257 zeros.
    std::memcpy(gamma, curve, sizeof(curve));
    *valid = isValid;
    return ret;
}

// The fixed curve; the metadata is not read.
int MetaUtils::GetPlatFormGamma(std::shared_ptr<KvMetadata>, AIspGammaTbl& tbl) {
    StoreGammaKnots(tbl);
    std::memcpy(tbl.y, kPlatformGamma.data(), sizeof(kPlatformGamma));
    return 0;
}

// The supernight curve (or zeros) at the fixed knots, always ending at 1023;
// a curve too short to read leaves the table as it was.
int MetaUtils::GetDynamicGamma(std::shared_ptr<KvMetadata> metadata, AIspGammaTbl& tbl) {
    bool valid = false;
    const int ret = GetBPSGammaOutput(std::move(metadata), &valid, tbl.y);
    if (detail::kHardened && ret == -1) return ret;
    StoreGammaKnots(tbl);
    tbl.y[kGammaPoints - 1] = 1023.0f;
    return ret;
}

int MetaUtils::GetPreviewBrightnessInfo(std::shared_ptr<KvMetadata> metadata,
                                        PreviewBrightnessInfo* info) {
    if (info == nullptr) return detail::ArgErr(KV_HERE);
    constexpr detail::TagRef kTag("kovani.histogram.stats");
    detail::Payload payload;
    if (const int ret = detail::LookUp(KV_HERE, metadata, kTag,
                                       KV_TAG_MESSAGES("kovani.histogram.stats"), &payload)) {
        return ret;
    }
    // 256 bins of four channel counts; each bin is their wrapping sum.
    if (const int ret = detail::CheckPayload(KV_HERE, kTag, payload, 256 * 4 * sizeof(uint32_t))) {
        return ret;
    }
    info->binCount = 256;
    for (size_t bin = 0; bin < 256; ++bin) {
        uint32_t sum = 0;
        for (size_t ch = 0; ch < 4; ++ch) {
            sum += detail::Load<uint32_t>(payload.data, 16 * bin + 4 * ch);
        }
        info->bins[bin] = sum;
    }
    return 0;
}

int MetaUtils::GetSensorDynamicBlackLevel(std::shared_ptr<KvMetadata> metadata, float* level) {
    if (level == nullptr) return detail::ArgErr(KV_HERE);
    constexpr detail::TagRef kLevelTag(tag::ANDROID_SENSOR_DYNAMIC_BLACK_LEVEL);
    constexpr detail::TagRef kBppTag("kovani.algoengine.input.raw.bpp");
    detail::Payload payload;
    if (const int ret = detail::LookUp(
            KV_HERE, metadata, kLevelTag,
            KV_SHORT("GetMetadata ANDROID_SENSOR_DYNAMIC_BLACK_LEVEL fail"), &payload)) {
        return ret;
    }
    float levels[4];
    if (const int ret = detail::CheckPayload(KV_HERE, kLevelTag, payload, sizeof levels)) {
        return ret;
    }
    std::memcpy(levels, payload.data, sizeof levels);
    // Normalise to 10-bit units. The bits-per-pixel lookup reuses the pointer,
    // so a missing tag answers -1 without a line and scales by 1/16 alone.
    float scale = 1.0f;
    void* data = const_cast<void*>(payload.data);
    size_t bytes = 0;
    if (detail::FindPayload(metadata, kBppTag, &data, nullptr,
                            detail::kHardened ? &bytes : nullptr) == 0) {
        if (const int ret = detail::CheckPayload(KV_HERE, kBppTag, bytes, sizeof(int32_t))) {
            return ret;
        }
        const int32_t bpp = detail::Load<int32_t>(data);
        if (bpp == 12) scale = 4.0f;
        if (bpp == 10) scale = 16.0f;
    }
    for (int i = 0; i < 4; ++i) {
        if (scale != 1.0f) levels[i] *= scale;
        levels[i] *= 0.0625f;
    }
    std::memcpy(level, levels, sizeof levels);
    return 0;
}

int MetaUtils::GetColorCorrectionTransform(std::shared_ptr<KvMetadata> metadata,
                                           ChiRational* transform) {
    if (transform == nullptr) return detail::ArgErr(KV_HERE);
    constexpr detail::TagRef kTag("kovani.supernight.color.correction.transform");
    void* data = nullptr;
    size_t bytes = 0;
    if (detail::FindPayload(metadata, kTag, &data, nullptr, detail::kHardened ? &bytes : nullptr) !=
        0) {
        KV_LOG(3, "get kovani.supernight.color.correction.transform fail");
        return -1;  // whatever the lookup answered
    }
    if (const int ret = detail::CheckPayload(KV_HERE, kTag, bytes, 9 * sizeof(ChiRational))) {
        return ret;
    }
    std::memcpy(transform, data, 9 * sizeof(ChiRational));
    for (int i = 0; i < 9; ++i) {
        KV_LOG(0, "transform[%d] - numerator:%d denominator:%d", i, transform[i].numerator,
               transform[i].denominator);
    }
    return 0;
}

// ===========================================================================
// HDR, tele-fusion and slave-anchor flags
// ===========================================================================

int MetaUtils::GetHdrEnabled(std::shared_ptr<KvMetadata> metadata, int* hdrEnabled) {
    if (hdrEnabled == nullptr) return detail::ArgErr(KV_HERE);
    // The raw-HDR flag wins whenever it is present, even as 0.
    detail::TagRef tag("kovani.hdr.raw.enabled");
    void* data = nullptr;
    size_t bytes = 0;
    size_t* bytesOut = detail::kHardened ? &bytes : nullptr;
    if (detail::FindPayload(metadata, tag, &data, nullptr, bytesOut) != 0) {
        KV_LOG(1, "cannot find kovani.hdr.raw.enabled");
        tag = detail::TagRef("kovani.hdr.enabled");
        if (const int ret = detail::FindPayload(metadata, tag, &data, nullptr, bytesOut)) {
            KV_LOG(3, "GetMetadata kovani.hdr.enabled err");
            return ret;
        }
    }
    if (data == nullptr) {
        KV_LOG(3, "get kovani.hdr.enabled err");
        return -1;
    }
    if (const int ret = detail::CheckPayload(KV_HERE, tag, bytes, sizeof(int8_t))) return ret;
    *hdrEnabled = detail::Load<int8_t>(data);
    KV_LOG(2, "hdrEnabled = %d", *hdrEnabled);
    return 0;
}

// Returns the flag itself (or, in a hardened build, -1 for a tag without a
// whole byte). The container must be present.
int MetaUtils::GetTeleFusionEnable(std::shared_ptr<KvMetadata> metadata) {
    constexpr detail::TagRef kTag("kovani.telefusion.enabled");
    const camera_metadata_ro_entry_t entry = metadata->find(kTag.name);
    if (detail::kHardened && entry.count != 0) {
        if (const int ret = detail::CheckPayload(KV_HERE, kTag, detail::PayloadBytes(entry), 1)) {
            return ret;
        }
    }
    const int enabled = entry.count != 0 && entry.data.u8[0] != 0 ? 1 : 0;
    KV_LOG(2, "isFusionEnable = %d", enabled);
    return enabled;
}

int MetaUtils::GetSlaveAnchorFrame(std::shared_ptr<KvMetadata> metadata, int* frame) {
    if (frame == nullptr) return detail::ArgErr(KV_HERE);
    if (!metadata) {
        KV_LOG(4, "mdata is null");
        return -2;
    }
    const camera_metadata_ro_entry_t entry = metadata->find(tag::KOVANI_BOKEH_AUX_ANCHOR_FRAME);
    if (entry.count == 0) {
        KV_LOG(3, "find kovani.bokeh.AuxAnchorFrame fail");
        return -1;
    }
    if (detail::kHardened) {
        if (const int ret = detail::CheckPayload(KV_HERE, tag::KOVANI_BOKEH_AUX_ANCHOR_FRAME,
                                                 detail::PayloadBytes(entry), sizeof(int32_t))) {
            return ret;
        }
    }
    *frame = detail::Load<int32_t>(entry.data.u8);
    KV_LOG(0, "count:%d slaveAnchorFrame[0]:%d", static_cast<int>(entry.count), *frame);
    return 0;
}

// Both setters treat a missing container as success and ignore the
// container's status.
int MetaUtils::SetSlaveAnchorFrame(std::shared_ptr<KvMetadata> metadata, int* frame) {
    if (frame == nullptr) return detail::ArgErr(KV_HERE);
    if (metadata) metadata->update(tag::KOVANI_BOKEH_AUX_ANCHOR_FRAME, frame, 1);
    return 0;
}

int MetaUtils::SetSlaveAnchorFrame(std::shared_ptr<KvMetadata> metadata, int frame) {
    if (metadata) metadata->update(tag::KOVANI_BOKEH_AUX_ANCHOR_FRAME, &frame, 1);
    return 0;
}

// ===========================================================================
// Image geometry: main array size, minimum digital zoom, faces, focus region
// ===========================================================================

namespace {

// The full array around a crop region centred in it: the crop's size plus
// its left and top margin twice over, in wrapping unsigned arithmetic.
void StoreCentredArraySize(const void* data, ChiRect* out) {
    const ChiRect crop = detail::Load<ChiRect>(data);
    *out = ChiRect{0, 0, crop.width + 2u * crop.left, crop.height + 2u * crop.top};
}
constexpr detail::Read<ChiRect> StoreMainActiveSize{StoreCentredArraySize, sizeof(ChiRect)};

void TraceMainActiveSize(const log::LogSite& at, const ChiRect& r) {
    log::Write(at, 2, KV_LOG_PREFIX "main active size [%d %d %d %d]", r.left, r.top, r.width,
               r.height);
}

}  // namespace

// clang-format off
KV_TAG_GETTER(GetActiveArraySizeMain, ChiRect, tag::ANDROID_SCALER_CROP_REGION, kDefaultMessages,
              StoreMainActiveSize, false, TraceMainActiveSize)
KV_STATIC_TAG_GETTER(GetRealAvailableMinDigitalZoom, float,
                     "com.kovani.scaler.availableMinDigitalZoom",
                     KV_SHORT("GetMetadata com.kovani.scaler.availableMinDigitalZoom fail"),
                     Copy<float>)
// clang-format on

// ---- Faces -----------------------------------------------------------------
//
// "kovani.bokeh.faceInfo" holds nine int32 per face, in active-array
// coordinates: left, top, right, bottom, an unused word, three words handed
// on as they are (the middle one being the rotation in degrees), and another
// unused word.

namespace {

constexpr uint32_t kFaceWords = 9;
using FaceWords = int32_t[kFaceWords];

// KVFaceInfo has room for 10 faces. The tag's writer promises no more; should
// a tag carry more anyway, only the first 10 are handed out and faceCount says
// 10, so nothing is written past the caller's record and callers that walk
// faceCount entries stay inside it. Up to 10 faces nothing changes.
constexpr uint32_t kMaxFaces = sizeof(KVFaceInfo::faces) / sizeof(KVFaceInfo::faces[0]);

// An in-sensor-zoom frame: the status tag is present and its first word is
// set. 1 or 0; -1 after the hardened check's line for a status shorter than
// its word.
int IsInSensorZoomFrame(const log::LogSite& at, const std::shared_ptr<KvMetadata>& metadata) {
    if (!metadata) return 0;
    constexpr detail::TagRef kTag("kovani.insensorzoom.status");
    const camera_metadata_ro_entry_t entry = metadata->find(kTag.name);
    if (entry.count == 0) return 0;
    if (detail::kHardened) {
        if (const int ret =
                detail::CheckPayload(at, kTag, detail::PayloadBytes(entry), sizeof(int32_t))) {
            return ret;
        }
    }
    return detail::Load<int32_t>(entry.data.u8) != 0 ? 1 : 0;
}

// Image sizes above which face coordinates are doubled.
bool IsLargeInput(int width, int height) {
    return width > 5000 && height > 4000;
}

// A coordinate of the in-sensor-zoom crop back in full-array coordinates.
uint32_t FromInSensorZoom(uint32_t coordinate, uint32_t activeExtent) {
    return (coordinate - (activeExtent >> 2)) * 2u;
}

struct FaceCorners {
    uint32_t left, top, right, bottom;
};

FaceCorners ReadCorners(const int* face) {
    return FaceCorners{static_cast<uint32_t>(face[0]), static_cast<uint32_t>(face[1]),
                       static_cast<uint32_t>(face[2]), static_cast<uint32_t>(face[3])};
}

void ToFullArray(FaceCorners& c, const ChiRect& active) {
    c.left = FromInSensorZoom(c.left, active.width);
    c.top = FromInSensorZoom(c.top, active.height);
    c.right = FromInSensorZoom(c.right, active.width);
    c.bottom = FromInSensorZoom(c.bottom, active.height);
}

void CopyFaceExtra(const int* face, int32_t (&extra)[3]) {
    extra[0] = face[5];
    extra[1] = face[6];
    extra[2] = face[7];
}

// Rotation in degrees to the quarter turn the algorithm layer expects.
int32_t QuarterTurn(int32_t degrees) {
    const uint32_t a = static_cast<uint32_t>(degrees);  // negative angles give 0
    if (a >= 45 && a <= 134) return 270;
    if (a >= 135 && a <= 224) return 180;
    if (a >= 225 && a <= 314) return 90;
    return 0;
}

}  // namespace

int MetaUtils::GetFacesInfoHolder(std::shared_ptr<KvMetadata> metadata, int** faces,
                                  uint32_t* count) {
    // Only the face pointer is checked: the interface trusts callers to pass
    // a count.
    if (faces == nullptr) return detail::ArgErr(KV_HERE);
    detail::Payload payload;
    if (const int ret = detail::LookUp(KV_HERE, metadata, "kovani.bokeh.faceInfo",
                                       KV_TAG_MESSAGES("kovani.bokeh.faceInfo"), &payload)) {
        return ret;
    }
    *faces = static_cast<int*>(const_cast<void*>(payload.data));
    // A hardened build counts the whole faces in the payload's bytes, so a
    // tag of another element type cannot promise more faces than it holds.
    *count =
        detail::kHardened
            ? static_cast<uint32_t>(std::min<size_t>(payload.bytes / sizeof(FaceWords), UINT32_MAX))
            : payload.count / kFaceWords;
    return 0;
}

int MetaUtils::GetFaceRect(std::shared_ptr<KvMetadata> metadata, int width, int height,
                           KVFaceInfo& info, int useInSensorZoom) {
    std::memset(&info, 0, sizeof(info));
    ChiRect crop = {0, 0, 0, 0};
    ChiRect active = {0, 0, 0, 0};
    const int cropRet = GetAndroidCropRegion(metadata, &crop);
    const int activeRet = GetActiveArraySize(metadata, &active);
    if (cropRet != 0 || activeRet != 0) {
        KV_LOG(3, "get active/crop size err");
        return -1;
    }
    int* faces = nullptr;
    uint32_t count = 0;
    const int ret = GetFacesInfoHolder(metadata, &faces, &count);
    if (faces == nullptr || count == 0) {
        KV_LOG(3, "no face");
        return -1;
    }
    count = std::min(count, kMaxFaces);
    const int inSensorZoom = useInSensorZoom != 0 ? IsInSensorZoomFrame(KV_HERE, metadata) : 0;
    if (inSensorZoom < 0) return inSensorZoom;
    const bool large = IsLargeInput(width, height);
    info.faceCount = static_cast<int32_t>(count);
    uint64_t maxArea = 0;
    for (uint32_t i = 0; i < count; ++i) {
        const int* face = faces + i * kFaceWords;
        KVFaceEntry& entry = info.faces[i];
        CopyFaceExtra(face, info.faceExtra[i]);
        FaceCorners c = ReadCorners(face);
        if (inSensorZoom) ToFullArray(c, active);
        // Deliberate: the doubling is applied to the active size kept across
        // the loop, so it compounds from face to face (face i is mapped with
        // 2^(i+1) times the array). Callers depend on these exact rectangles.
        if (large) {
            active.width *= 2u;
            active.height *= 2u;
        }
        const ChiRect src = {c.left, c.top, c.right - c.left, c.bottom - c.top};
        // A rejected face (zero size) keeps its cleared rectangle.
        MapRectToInput(src, crop, width, height, active, &entry.rect);
        entry.rotation = QuarterTurn(face[6]);
        entry.centerX = static_cast<int32_t>(entry.rect.left + (entry.rect.width >> 1));
        entry.centerY = static_cast<int32_t>(entry.rect.top + (entry.rect.height >> 1));
        if (entry.centerX > width || entry.centerX < 1 || entry.centerY < 1 ||
            entry.centerY > height) {
            entry.centerX = width / 2;
            entry.centerY = height / 2;
        }
        // Strictly larger: of equal faces the first stays the largest.
        const uint64_t area = static_cast<uint64_t>(entry.rect.width) * entry.rect.height;
        if (area > maxArea) {
            info.largestFaceIndex = static_cast<int32_t>(i);
            maxArea = area;
        }
        KV_LOG(1, "faces[%d/%d]:[%d %d %dx%d] point:[%d %d] angle:%d", i + 1, count,
               entry.rect.left, entry.rect.top, entry.rect.width, entry.rect.height, entry.centerX,
               entry.centerY, entry.rotation);
    }
    return ret;
}

int MetaUtils::GetFacesNoMap(std::shared_ptr<KvMetadata> metadata, int width, int height,
                             KVFaceInfo& info) {
    int* faces = nullptr;
    uint32_t count = 0;
    GetFacesInfoHolder(metadata, &faces, &count);
    if (faces == nullptr || count == 0) {
        KV_LOG(3, "no face");
        return -1;
    }
    count = std::min(count, kMaxFaces);
    // Without an active array the in-sensor-zoom conversion uses a zero size.
    ChiRect active = {0, 0, 0, 0};
    GetActiveArraySize(metadata, &active);
    const int inSensorZoom = IsInSensorZoomFrame(KV_HERE, metadata);
    if (inSensorZoom < 0) return inSensorZoom;
    const bool large = IsLargeInput(width, height);
    // Deliberate: only the rectangles, extras and count are written; the
    // rest of the caller's record keeps its values.
    info.faceCount = static_cast<int32_t>(count);
    // The face luma is read but not used; a missing tag is logged by its getter.
    float luma = 0.0f;
    GetBurstInfoFaceLuma(metadata, &luma);
    for (uint32_t i = 0; i < count; ++i) {
        const int* face = faces + i * kFaceWords;
        FaceCorners c = ReadCorners(face);
        if (inSensorZoom) ToFullArray(c, active);
        if (large) {
            c.left *= 2u;
            c.top *= 2u;
            c.right *= 2u;
            c.bottom *= 2u;
        }
        info.faces[i].rect = {c.left, c.top, c.right - c.left, c.bottom - c.top};
        CopyFaceExtra(face, info.faceExtra[i]);
    }
    return 0;
}

int MetaUtils::GetFaceInfo(std::shared_ptr<KvMetadata> metadata, AIspFaceInfo& info, int width,
                           int height) {
    KVFaceInfo mapped;
    std::memset(&mapped, 0, sizeof(mapped));
    GetFaceRect(metadata, width, height, mapped, 0);
    float luma = 0.0f;
    GetBurstInfoFaceLuma(metadata, &luma);
    info.count = mapped.faceCount;
    if (info.count < 1) return -1;
    for (int32_t i = 0; i < mapped.faceCount; ++i) {
        const __UtilsImage_Rect& r = mapped.faces[i].rect;
        // Inclusive corners; a size negative as a signed value collapses to
        // the first corner, a zero size gives one less than it.
        info.rect[i][0] = static_cast<int32_t>(r.left);
        info.rect[i][1] = static_cast<int32_t>(r.top);
        info.rect[i][2] = static_cast<int32_t>(r.width) < 0
                              ? static_cast<int32_t>(r.left)
                              : static_cast<int32_t>(r.left + r.width - 1u);
        info.rect[i][3] = static_cast<int32_t>(r.height) < 0
                              ? static_cast<int32_t>(r.top)
                              : static_cast<int32_t>(r.top + r.height - 1u);
        info.luma[i] = luma;
        std::memcpy(info.faceExtra[i], mapped.faceExtra[i], sizeof(info.faceExtra[i]));
    }
    return 0;
}

// ---- Focus region -------------------------------------------------------------

// The autofocus region of the platform's 3A layer, mapped into the image.
// Deliberately unchecked in the default build: the tag's element count is not
// compared with the words read; its writer always supplies the type word, the
// region count and the regions.
int MetaUtils::GetfocusROI(std::shared_ptr<KvMetadata> metadata, UtilsImageBuf* image,
                           __UtilsImage_Rect* roi) {
    if (roi == nullptr || image == nullptr || !metadata) {
        KV_LOG(4, "arg err");
        return -2;
    }
    ChiRect crop = {0, 0, 0, 0};
    int ret = GetAndroidCropRegion(metadata, &crop);
    if (ret != 0) {
        KV_LOG(3, "GetCropRegion err");
        return ret;
    }
    ChiRect active = {0, 0, 0, 0};
    ret = GetActiveArraySize(metadata, &active);
    if (ret != 0) {
        KV_LOG(3, "GetActiveArraySize err");
        return ret;
    }
    constexpr detail::TagRef kTag(tag::MTK_3A_FEATURE_AF_REGION);
    void* data = nullptr;
    size_t bytes = 0;
    size_t* bytesOut = detail::kHardened ? &bytes : nullptr;
    ret = detail::FindPayload(metadata, kTag, &data, nullptr, bytesOut);
    if (ret != 0 || data == nullptr) {
        KV_LOG(1, "fail to read AF region");
        return -1;
    }
    auto word = [data](int32_t i) {
        return detail::Load<int32_t>(data, 4 * static_cast<size_t>(i));
    };
    if (const int shortRet = detail::CheckPayload(KV_HERE, kTag, bytes, 2 * sizeof(int32_t))) {
        return shortRet;
    }
    const int32_t type = word(0);
    const int32_t regions = word(1);
    if (static_cast<uint32_t>(regions) - 1u >= 2u) {
        KV_LOG(1, "incorrect AF region %d %d", type, regions);
        return -1;
    }
    // With two regions the second one, from word 7, is used.
    const int32_t vs = regions == 1 ? 2 : 7;
    if (const int shortRet =
            detail::CheckPayload(KV_HERE, kTag, bytes, static_cast<size_t>(vs + 4) * 4)) {
        return shortRet;
    }
    const int32_t tlx = word(vs);
    const int32_t tly = word(vs + 1);
    const int32_t brx = word(vs + 2);
    const int32_t bry = word(vs + 3);
    KV_LOG(1, "af roi, info:[t:%d, n:%d, vs:%d, tlx:%d, tly:%d, brx:%d, bry:%d]", type, regions, vs,
           tlx, tly, brx, bry);
    // Corners are not checked for order: reversed ones wrap to a huge size.
    const ChiRect src = {static_cast<uint32_t>(tlx), static_cast<uint32_t>(tly),
                         static_cast<uint32_t>(brx) - static_cast<uint32_t>(tlx),
                         static_cast<uint32_t>(bry) - static_cast<uint32_t>(tly)};
    return MapRectToInput(src, crop, image->width, image->height, active, roi);
}

// ===========================================================================
// Platform: camera role, sensor type and sensor mode, final crop region and
// gyroscope samples
// ===========================================================================

// The role id as the request carries it, handed out bit for bit as unsigned.
KV_TAG_GETTER(GetCameraRoleId, unsigned int, "com.kovani.cameraid.role.cameraId", kDefaultMessages,
              Copy<unsigned int>)

int MetaUtils::GetAISPSensorType(int cameraId, AIspSensorType& type) {
    // The camera that plays `role` according to the platform, -1 when none.
    // The platform adapter must be present by the time this first runs: the
    // holder is used without a test.
    auto cameraOfRole = [](int role) {
        std::shared_ptr<adapter::PlatformInfoHolder> holder =
            adapter::AdapterClient::getInstance().getPlatformInfoHolder();
        const std::unordered_map<int, kvholder::RoleIdDescription> roles =
            holder->getRoleIdDescriptionMap();
        for (const auto& entry : roles) {
            if (entry.second.roleId == role) return entry.first;
        }
        return -1;
    };
    // Asked once per process, each under its own guard; later changes of the
    // platform's role map are not seen.
    static const int sCameraOfRole0 = cameraOfRole(0);
    static const int sCameraOfRole1 = cameraOfRole(1);
    // The platform is asked for role 22 too, although no sensor type uses it.
    [[maybe_unused]] static const int sCameraOfRole22 = cameraOfRole(22);
    static const int sCameraOfRole20 = cameraOfRole(20);
    static const int sCameraOfRole21 = cameraOfRole(21);
    static const int sCameraOfRole40 = cameraOfRole(40);

    // First match wins; an absent role is -1, which a cameraId of -1 matches.
    const struct {
        int cameraId;
        int32_t type;
    } kTypes[] = {{sCameraOfRole0, 1},
                  {sCameraOfRole21, 2},
                  {sCameraOfRole20, 3},
                  {sCameraOfRole1, 5},
                  {sCameraOfRole40, 6}};
    for (const auto& t : kTypes) {
        if (cameraId == t.cameraId) {
            type = static_cast<AIspSensorType>(t.type);
            return 0;
        }
    }
    type = AISP_SENSOR_TYPE_UNKNOWN;
    return -1;
}

int MetaUtils::getAIspSensorMode(int sensorModeType, bool& flagA, bool& flagB) {
    // AIspSensorMode of the platform's sensor mode types 0 to 17; -1 marks the
    // types that have none.
    constexpr int kModes[] = {0, 2, 3, 5, -1, 15, 4, 7, 10, 9, -1, -1, -1, -1, -1, 2, 1, 6};
    constexpr int kTypes = static_cast<int>(sizeof kModes / sizeof kModes[0]);
    int mode = AISP_SENSOR_MODE_UNKNOWN;
    if (sensorModeType >= 0 && sensorModeType < kTypes && kModes[sensorModeType] >= 0) {
        mode = kModes[sensorModeType];
    } else {
        // "unkown" is the text log readers search for; keep the spelling.
        KV_LOG(3, "unkown sensorModeType:%d", sensorModeType);
    }
    // Only type 5 sets the flags; no type clears them.
    if (sensorModeType == 5) {
        flagA = true;
        flagB = true;
    }
    KV_LOG(2, "get sensorModeType %d => AIspSensorMode %d ", sensorModeType, mode);
    return mode;
}

namespace {

// The sensor policy's frame result holds four (valid flag, mode type) pairs
// at a stride of 320 bytes; the last valid pair wins, and without one the
// caller's value stays. The record must reach the last pair's mode type.
void StoreSensorModeTypeOfLastValidPair(const void* data, int* out) {
    constexpr size_t kPairs = 4;
    constexpr size_t kStride = 320;
    constexpr size_t kValidAt = 380;
    constexpr size_t kModeTypeAt = 400;
    for (size_t i = kPairs; i-- > 0;) {
        if (detail::Load<uint8_t>(data, kValidAt + kStride * i) != 0) {
            *out = detail::Load<int32_t>(data, kModeTypeAt + kStride * i);
            return;
        }
    }
}
constexpr detail::Read<int> StoreLastValidSensorModeType{StoreSensorModeTypeOfLastValidPair,
                                                         400 + 3 * 320 + sizeof(int32_t)};

}  // namespace

// clang-format off
KV_TAG_GETTER(GetKovaniSensorModeType, int, "com.kovani.camera.sensorpolicy.frameresult",
              KV_TAG_MESSAGES("com.kovani.camera.sensorpolicy.frameresult"),
              StoreLastValidSensorModeType)
// The sensor mode is the tag's second element.
KV_TAG_GETTER(GetSensorMode, int, "kovani.streaming.sensormode",
              KV_TAG_MESSAGES("kovani.streaming.sensormode"), (Copy<int, sizeof(int32_t)>))
// clang-format on

// Placeholders of the interface: nothing to read, the output stays as it is.
int MetaUtils::GetKVSensorModeInfo(std::shared_ptr<KvMetadata>, KVSensorModeInfo&) {
    return 0;
}

int MetaUtils::GetStaticMetaKVSensorCaps(std::shared_ptr<KvMetadata>, KVSensorCaps&) {
    return 0;
}

namespace {

// A zoom-stabilisation shift and where it came from.
struct CropShift {
    int32_t x = 0;
    int32_t y = 0;
    bool isIsz = false;       // measured on an in-sensor-zoom frame
    bool isFromMeta = false;  // read from the frame instead of the platform
};

// Signed 32-bit sums, differences and doublings of the crop arithmetic wrap
// as the device's registers do.
int32_t Wrap(uint32_t value) {
    return static_cast<int32_t>(value);
}

// The zoom-stabilisation shift query record, every byte set: no shift, unit
// scales, no camera.
adapter::ShiftData EmptyShiftData() {
    adapter::ShiftData shiftData;
    std::memset(&shiftData, 0, sizeof shiftData);
    shiftData.reserved1 = 1.0;
    shiftData.reserved2 = 1.0;
    shiftData.cameraId = -1;
    return shiftData;
}

}  // namespace

int MetaUtils::GetFinalCropRegion(std::shared_ptr<KvMetadata> metadata, ChiRect& result,
                                  KvDimension sensorSize, bool isInSensorZoom) {
    ChiRect active;
    const int activeRet = GetActiveArraySize(metadata, &active);
    if (activeRet != 0) {
        KV_LOG(3, "allInOneCrop GetMetadata GetActiveArraySize ret = %d err", activeRet);
        return activeRet;
    }
    const int cameraId = mSatCameraId;
    // The crop is built here and handed out at the end, so that a hardened
    // build's refusal of a short tag on the way leaves the caller's crop.
    ChiRect cropRegion = result;
    constexpr detail::TagRef kTableTag("com.kovani.camera.sensorpolicy.cropregions");
    constexpr detail::TagRef kShiftTag("kovani.sat.output.shift");
    size_t bytes = 0;
    size_t* bytesOut = detail::kHardened ? &bytes : nullptr;

    // This camera's entry of the sensor policy's per-camera crop table; a zero
    // crop when the table or the entry is missing. 1 when the table was read,
    // 0 without it, -1 for a table too short for the entries examined.
    auto readPolicyCrop = [&]() {
        cropRegion = ChiRect{0, 0, 0, 0};
        void* data = nullptr;
        if (detail::FindPayload(metadata, kTableTag, &data, nullptr, bytesOut) != 0) {
            KV_LOG(3,
                   "allInOneCrop GetMetadata com.kovani.camera.sensorpolicy.cropregions ret err");
            return 0;
        }
        if (data == nullptr) {
            KV_LOG(3,
                   "allInOneCrop get metadata com.kovani.camera.sensorpolicy.cropregions null err");
            return 0;
        }
        // Entries of nine int32 words: camera id, four unused words, the crop.
        // Exactly four entries are examined whatever the tag's count; the
        // sensor policy always writes four.
        constexpr size_t kEntries = 4;
        constexpr size_t kEntryBytes = 36;
        constexpr size_t kCropAt = 20;
        ChiRect crop{0, 0, 0, 0};
        for (size_t i = 0; i < kEntries; ++i) {
            if (const int ret = detail::CheckPayload(KV_HERE, kTableTag, bytes,
                                                     kEntryBytes * i + sizeof(int32_t))) {
                return ret;
            }
            if (detail::Load<int32_t>(data, kEntryBytes * i) == cameraId) {
                if (const int ret =
                        detail::CheckPayload(KV_HERE, kTableTag, bytes, kEntryBytes * (i + 1))) {
                    return ret;
                }
                crop = detail::Load<ChiRect>(data, kEntryBytes * i + kCropAt);
                KV_LOG(2,
                       "allInOneCrop get crop region from SAT camId = %d cropregion: [%d %d %d %d]",
                       cameraId, crop.left, crop.top, crop.width, crop.height);
                break;
            }
        }
        cropRegion = crop;
        KV_LOG(2,
               "allInOneCrop get crop region from SAT camId = %d isInSensorZoom = %d cropregion: "
               "[%d %d %d %d]",
               cameraId, isInSensorZoom, crop.left, crop.top, crop.width, crop.height);
        return 1;
    };

    // An in-sensor-zoom frame shows the centre half of the sensor at twice the
    // scale: move the crop there, if it still fits on the sensor.
    auto convertForInSensorZoom = [&]() {
        if (isInSensorZoom) {
            const ChiRect c = cropRegion;
            const int32_t newLeft = Wrap((c.left - (sensorSize.width >> 2)) * 2u);
            const int32_t newTop = Wrap((c.top - (sensorSize.height >> 2)) * 2u);
            if (newLeft >= 0 && newTop >= 0) {
                const uint32_t newWidth = c.width * 2u;
                const uint32_t newHeight = c.height * 2u;
                if (newWidth + static_cast<uint32_t>(newLeft) <= sensorSize.width &&
                    newHeight + static_cast<uint32_t>(newTop) <= sensorSize.height) {
                    cropRegion = ChiRect{static_cast<uint32_t>(newLeft),
                                         static_cast<uint32_t>(newTop), newWidth, newHeight};
                }
            }
        }
        KV_LOG(2,
               "allInOneCrop get after isInSensorZoom = %d sensorsize(%d, %d) cropregion: [%d %d "
               "%d %d]",
               isInSensorZoom, sensorSize.width, sensorSize.height, cropRegion.left, cropRegion.top,
               cropRegion.width, cropRegion.height);
    };

    // Widen or heighten the crop about its centre to the active array's
    // aspect ratio; a crop that would then start before the sensor edge takes
    // the sensor's whole width or height instead.
    auto matchActiveAspect = [&]() {
        const ChiRect in = cropRegion;
        ChiRect out = in;
        const float fw = static_cast<float>(in.width) / static_cast<float>(active.width);
        const float fh = static_cast<float>(in.height) / static_cast<float>(active.height);
        // One axis takes the other's fraction of the active array, made even and
        // moved to keep its centre, or the sensor's whole extent from 0 when
        // that start would be negative.
        auto refit = [](uint32_t& pos, uint32_t& size, float fraction, uint32_t activeExtent,
                        uint32_t sensorExtent) {
            const int32_t newSize =
                detail::SaturateCast<int32_t>(fraction * static_cast<float>(activeExtent)) & ~1;
            const int32_t newPos = Wrap(pos + static_cast<uint32_t>(Wrap(size - newSize) >> 1));
            if (newPos < 0) {
                pos = 0;
                size = sensorExtent;
            } else {
                pos = static_cast<uint32_t>(newPos);
                size = static_cast<uint32_t>(newSize);
            }
        };
        if (fh > fw + 0.01f) {
            refit(out.left, out.width, fh, active.width, sensorSize.width);
        } else if (fw > fh + 0.01f) {
            refit(out.top, out.height, fw, active.height, sensorSize.height);
        }
        KV_DLOG_I("allInOneCrop input crop (%d, %d, %d, %d) output crop (%d, %d, %d, %d)", in.left,
                  in.top, in.width, in.height, out.left, out.top, out.width, out.height);
        cropRegion = out;
    };

    // The frame's timestamp; its lookup result becomes the method's result.
    auto readTimestamp = [&](long& ts) {
        const int ret = GetAndroidTimeStamp(metadata, &ts);
        if (ret == 0) {
            KV_LOG(2, "allInOneCrop [camera id:%d] tag ANDROID_SENSOR_TIMESTAMP %ld", cameraId, ts);
        } else {
            KV_LOG(2, "allInOneCrop [camera id:%d] tag ANDROID_SENSOR_TIMESTAMP not found!",
                   cameraId);
        }
        return ret;
    };

    // Asks the platform for the shift of this frame. False when there is no
    // holder or it has no shift for the frame.
    auto askPlatform = [&](adapter::ShiftData& shiftData, long ts, float zoomRatio,
                           float zoomEisEffective, CropShift& shift) {
        std::shared_ptr<adapter::PlatformInfoHolder> holder =
            adapter::AdapterClient::getInstance().getPlatformInfoHolder();
        if (!holder) return false;
        shiftData.cameraId = cameraId;
        shiftData.timestamp = ts;
        int roleId = 0;
        std::shared_ptr<adapter::PlatformInfoHolder> roleHolder =
            adapter::AdapterClient::getInstance().getPlatformInfoHolder();
        if (roleHolder) {
            const std::unordered_map<int, kvholder::RoleIdDescription> roles =
                roleHolder->getRoleIdDescriptionMap();
            const auto it = roles.find(cameraId);
            if (it != roles.end()) roleId = it->second.roleId;
        }
        // Role 20 at or beyond the effective zoom of the stabilisation: node 2.
        shiftData.nodeType = roleId == 20 && zoomRatio >= zoomEisEffective ? 2 : 1;
        constexpr int kToleranceNs = 1500000000;
        const bool shiftFlag = holder->getShift(&shiftData, kToleranceNs);
        KV_LOG(2, "allInOneCrop shiftFlag = %d", shiftFlag);
        if (!shiftFlag) return false;
        shift = CropShift{shiftData.shiftX, shiftData.shiftY, shiftData.isIsz != 0, false};
        return true;
    };

    // The shift the frame carries, when it has exactly four elements: x, y,
    // in-sensor-zoom flag and pre-anchor flag. -1 for four elements too short
    // for four floats.
    auto readMetadataShift = [&](CropShift& shift) {
        void* data = nullptr;
        uint32_t count = 0;
        const int ret = detail::FindPayload(metadata, kShiftTag, &data, &count, bytesOut);
        shift = CropShift{};
        if (ret == 0 && count == 4 && data != nullptr) {
            if (const int shortRet =
                    detail::CheckPayload(KV_HERE, kShiftTag, bytes, 4 * sizeof(float))) {
                return shortRet;
            }
            const float preAnchor = detail::Load<float>(data, 3 * sizeof(float));
            shift = CropShift{detail::SaturateCast<int32_t>(detail::Load<float>(data)),
                              detail::SaturateCast<int32_t>(detail::Load<float>(data, 4)),
                              detail::Load<float>(data, 8) != 0.0f, true};
            // The pre-anchor flag goes out as a double under "%d" and the
            // messages name "kovani.sr.shift.value": log readers match these
            // lines exactly as the platform has always printed them.
            log::Write(KV_HERE, 2,
                       KV_LOG_PREFIX
                       "allInOneCrop get shift successful shift(%d, %d) isPreAnchor = %d size = "
                       "%u, from kovani.sr.shift.value ",
                       shift.x, shift.y, static_cast<double>(preAnchor), count);
        } else {
            KV_LOG(2, "allInOneCrop get shift failed size = %u, from kovani.sr.shift.value...",
                   count);
        }
        return 0;
    };

    // Brings the shift to the frame's scale: doubled for an in-sensor-zoom
    // frame, halved for a full-sensor one, when it was measured on the other.
    auto scaleShift = [&](CropShift& shift, const adapter::ShiftData& shiftData, long ts,
                          float zoomEisEffective, float zoomRatio) {
        KV_LOG(2,
               "allInOneCrop zoom shift (%d,%d) timestamp = %ld cameraId = %d anchorTimeStamp = "
               "%ld subTimestamp = %ld isIsz = %d isFromMeta = %d shiftData.nodeType = %d "
               "zoomEisEffective = %f zoomRatio = %f",
               shift.x, shift.y, shiftData.timestamp, cameraId, ts, ts - shiftData.timestamp,
               shift.isIsz, shift.isFromMeta, shiftData.nodeType,
               static_cast<double>(zoomEisEffective), static_cast<double>(zoomRatio));
        if (!shift.isIsz && isInSensorZoom) {
            shift.x = Wrap(static_cast<uint32_t>(shift.x) * 2u);
            shift.y = Wrap(static_cast<uint32_t>(shift.y) * 2u);
        } else if (shift.isIsz && !isInSensorZoom) {
            shift.x /= 2;
            shift.y /= 2;
        }
        KV_LOG(2, "allInOneCrop zoom after isInSensorZoom = %d shift (%d,%d) ", isInSensorZoom,
               shift.x, shift.y);
    };

    // Moves the crop by the shift if it stays on the sensor.
    auto applyShift = [&](const CropShift& shift, int ret) {
        const int32_t newLeft = Wrap(cropRegion.left + static_cast<uint32_t>(shift.x));
        const int32_t newTop = Wrap(cropRegion.top + static_cast<uint32_t>(shift.y));
        if (ret == 0 && newLeft >= 0 && newTop >= 0 &&
            cropRegion.width + static_cast<uint32_t>(newLeft) <= sensorSize.width &&
            cropRegion.height + static_cast<uint32_t>(newTop) <= sensorSize.height) {
            cropRegion.left = static_cast<uint32_t>(newLeft);
            cropRegion.top = static_cast<uint32_t>(newTop);
            KV_LOG(2, "allInOneCrop using zoom eis shift (%d,%d)", shift.x, shift.y);
        } else {
            KV_LOG(2, "allInOneCrop not using zoom eis shift (%d,%d)", shift.x, shift.y);
        }
    };

    const int policy = readPolicyCrop();
    if (policy < 0) return policy;
    if (policy != 0) convertForInSensorZoom();
    matchActiveAspect();

    int ret = 0;
    if (cropRegion.width == 0 || cropRegion.height == 0) {
        cropRegion = ChiRect{0, 0, 0, 0};
    } else {
        long ts = 0;
        ret = readTimestamp(ts);
        float zoomEisEffective = 0.0f;
        std::shared_ptr<KvMetadata> stat =
            StaticMetadataWraper::getInstance()->getStaticMetadata(static_cast<uint32_t>(cameraId));
        if (stat) GetZoomEisEffective(stat, &zoomEisEffective);
        float zoomRatio = 0.0f;
        GetAndroidZoomRatio(metadata, &zoomRatio);

        adapter::ShiftData shiftData = EmptyShiftData();
        CropShift shift;
        if (!askPlatform(shiftData, ts, zoomRatio, zoomEisEffective, shift)) {
            if (const int shiftRet = readMetadataShift(shift)) return shiftRet;
        }
        scaleShift(shift, shiftData, ts, zoomEisEffective, zoomRatio);
        applyShift(shift, ret);
    }
    KV_LOG(2, "allInOneCrop get final crop = cropregion: [%d %d %d %d] ret = %d RET_OK = %d",
           cropRegion.left, cropRegion.top, cropRegion.width, cropRegion.height, ret, 0);
    result = cropRegion;
    return ret;
}

namespace {

constexpr size_t kMaxGyroSamples = 200;

// Ticks of the platform's 19.2 MHz timer to microseconds: nanoseconds first,
// multiplied before dividing in double precision, then truncated; that order
// fixes the rounding of large tick counts.
uint64_t GyroTicksToMicroseconds(uint64_t ticks) {
    const double nanoseconds = static_cast<double>(ticks) * 1e9 / 1.92e7;
    return detail::SaturateCast<uint64_t>(nanoseconds) / 1000;
}

}  // namespace

int MetaUtils::GetGyroData(std::shared_ptr<KvMetadata>, AIspGyroData& gyroData,
                           AIspGyroData::GyroElement* elements, int query, const char* key) {
    // The platform adapter must be present: the holder is used without a test.
    std::shared_ptr<adapter::PlatformInfoHolder> holder =
        adapter::AdapterClient::getInstance().getPlatformInfoHolder();
    if (holder->enableGyro(key, 1, 3) == 0) return -1;

    const std::vector<adapter::GyroSample> samples = holder->getGyroData(key, query);
    KV_DLOG_I("get Gyro from holder, gyros size: %d", static_cast<int>(samples.size()));
    int ret = -1;
    if (!samples.empty()) {
        // The first 200 in the holder's order; start and end are the first and
        // last of those as the holder gave them, not the extremes.
        const size_t kept = std::min(samples.size(), kMaxGyroSamples);
        gyroData.count = static_cast<int32_t>(kept);
        gyroData.startTimestamp = GyroTicksToMicroseconds(samples[0].timestamp);
        for (int32_t i = 0; i < gyroData.count; ++i) {
            // The rates bit for bit; the element's padding stays as it was.
            std::memcpy(&elements[i].x, &samples[i].x, 3 * sizeof(float));
            elements[i].timestamp = GyroTicksToMicroseconds(samples[i].timestamp);
        }
        gyroData.endTimestamp = GyroTicksToMicroseconds(samples[kept - 1].timestamp);
        std::sort(elements, elements + kept,
                  [](const AIspGyroData::GyroElement& a, const AIspGyroData::GyroElement& b) {
                      return a.timestamp < b.timestamp;
                  });
        ret = 0;
    }
    holder->disableGyro(key, 1);
    return ret;
}

}  // namespace kvalgo2
