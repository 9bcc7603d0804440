// The process-wide tag table: names, ids and element types of every tag the
// library reads, preloaded from one table, plus run-time registrations.
#include <algorithm>
#include <deque>
#include <mutex>
#include <shared_mutex>
#include <string_view>
#include <unordered_map>

#include "kvhost/Metadata.h"

namespace kvhost {
namespace {

struct Row {
    const char* name;
    uint32_t id;
    TagType type;
};

// Ids are written out, never derived from a row's position, so that adding a
// row cannot renumber a tag. Android and MediaTek ids are the platforms'
// own; the vendor tags that are addressed by name get ids of our sections
// (0x8010 and up, above Android's vendor boundary 0x8000 << 16).
constexpr Row kBuiltinTags[] = {
    // Android tags.
    {"android.colorCorrection.gains", 0x00000002, TagType::Float},
    {"android.control.afMode", 0x00010007, TagType::Byte},
    {"android.control.afState", 0x00010020, TagType::Byte},
    {"android.control.enableZsl", 0x00010029, TagType::Byte},
    {"android.control.zoomRatio", 0x0001002F, TagType::Float},
    {"android.flash.mode", 0x00040002, TagType::Byte},
    {"android.jpeg.orientation", 0x00070003, TagType::Int32},
    {"android.lens.aperture", 0x00080000, TagType::Float},
    {"android.lens.focusDistance", 0x00080003, TagType::Float},
    {"android.lens.info.shadingMapSize", 0x00090006, TagType::Int32},
    {"android.scaler.cropRegion", 0x000D0000, TagType::Int32},
    {"android.sensor.exposureTime", 0x000E0000, TagType::Int64},
    {"android.sensor.frameDuration", 0x000E0001, TagType::Int64},
    {"android.sensor.sensitivity", 0x000E0002, TagType::Int32},
    {"android.sensor.timestamp", 0x000E0010, TagType::Int64},
    {"android.sensor.dynamicBlackLevel", 0x000E001C, TagType::Float},
    {"android.sensor.dynamicWhiteLevel", 0x000E001D, TagType::Int32},
    {"android.sensor.info.activeArraySize", 0x000F0000, TagType::Int32},
    {"android.sensor.info.colorFilterArrangement", 0x000F0002, TagType::Byte},
    {"android.sensor.info.activeArraySizeMaximumResolution", 0x000F000B, TagType::Int32},
    {"android.statistics.lensShadingMap", 0x0011000B, TagType::Float},
    {"android.logicalMultiCamera.physicalIds", 0x001A0000, TagType::Byte},
    // Tags the library addresses only by id, named after their platform
    // constants or the names its messages give them.
    {"MTK_3A_FEATURE_AF_REGION", 0x80060001, TagType::Int32},
    {"MTK_3A_FEATURE_AE_SENSOR_GAIN_VALUE", 0x80060010, TagType::Int32},
    {"MTK_3A_FEATURE_AE_ISP_GAIN_VALUE", 0x80060011, TagType::Int32},
    {"kovani.bokeh.AuxAnchorFrame", 0x80040006, TagType::Int32},
    // Maker tags, section 0x8010.
    {"kovani.snapshot.physCameraId", 0x80100000, TagType::Int32},
    {"kovani.flash.mode", 0x80100001, TagType::Int32},
    {"com.kovani.panshotTruck.FeatureEnable", 0x80100002, TagType::Int32},
    {"kovani.snapshot.fwkCameraId", 0x80100003, TagType::Int32},
    {"kovani.thermal.thermalLevel", 0x80100004, TagType::Int32},
    {"kovani.ai.kvsd.laserDist", 0x80100005, TagType::Int32},
    {"com.kovani.3AAlgo.aecAItoneFlag", 0x80100006, TagType::Int32},
    {"kovani.ae.average.face.luma", 0x80100007, TagType::Int32},
    {"kovani.ae.average.frame.luma", 0x80100008, TagType::Int32},
    {"kovani.ae.dark.tonegain", 0x80100009, TagType::Int32},
    {"kovani.ae.mid.tonegain", 0x8010000A, TagType::Int32},
    {"kovani.longexposure.cwv", 0x8010000B, TagType::Int32},
    {"kovani.longexposure.cwr", 0x8010000C, TagType::Int32},
    {"kovani.ae.exposureCompensation", 0x8010000D, TagType::Int32},
    {"kovani.burst.last.preview.ispGain", 0x8010000E, TagType::Int32},
    {"kovani.ai.kvsd.motionVelocity", 0x8010000F, TagType::Int32},
    {"kovani.hdr.custom.adjustratio", 0x80100010, TagType::Int32},
    {"kovani.hdr.gtm.curve", 0x80100011, TagType::Int32},
    {"kovani.histogram.stats", 0x80100012, TagType::Int32},
    {"kovani.supernight.gammainfo", 0x80100013, TagType::Int32},
    {"kovani.algoengine.input.raw.bpp", 0x80100014, TagType::Int32},
    {"kovani.snapshot.cropRegion", 0x80100015, TagType::Int32},
    {"com.kovani.camera.sensorpolicy.cropregions", 0x80100016, TagType::Int32},
    {"kovani.bokeh.faceInfo", 0x80100017, TagType::Int32},
    {"kovani.insensorzoom.status", 0x80100018, TagType::Int32},
    {"com.kovani.cameraid.role.cameraId", 0x80100019, TagType::Int32},
    {"com.kovani.cameraid.role.cameraIds", 0x8010001A, TagType::Int32},
    {"kovani.streaming.sensormode", 0x8010001B, TagType::Int32},
    {"kovani.aihighlight.anchorOrder", 0x8010001C, TagType::Int32},
    {"com.kovani.ext.control.streetmode.anchor.order", 0x8010001D, TagType::Int32},
    {"kovani.ai.asd.algoSceneDetectedIndoor", 0x8010001E, TagType::Int32},
    {"kovani.ai.kvsd.motionCaptureType", 0x8010001F, TagType::Int32},
    {"com.kv.node.kvaihighlight.isHighLight", 0x80100020, TagType::Int32},
    {"kovani.ai.kvsd.bandingSceneType", 0x80100021, TagType::Int32},
    {"com.kovani.orlo2.preAnchorProc", 0x80100022, TagType::Int32},
    {"com.kovani.orlo2.anchorFrameNum", 0x80100023, TagType::Int32},
    {"kovani.ai.kvsd.zslMcBandingType", 0x80100024, TagType::Int32},
    {"kovani.motion.capture.anchorInfo", 0x80100025, TagType::Int32},
    {"kovani.multiframe.inputNum", 0x80100026, TagType::Int32},
    {"kovani.mfnr.anchorTimeStamp", 0x80100027, TagType::Int64},
    {"com.kovani.mtk.p1node.frameinfo", 0x80100028, TagType::Int64},
    {"kovani.burst.last.preview.exposure.time", 0x80100029, TagType::Int64},
    {"com.kovani.statsaec.AECWhiteBlackFrameAdj", 0x8010002A, TagType::Float},
    {"com.kovani.camera.zoomeis.effectiverate", 0x8010002B, TagType::Float},
    {"com.kovani.3AAlgo.awbHazeRatio", 0x8010002C, TagType::Float},
    {"kovani.ai.asd.FaceAverageBrightness", 0x8010002D, TagType::Float},
    {"kovani.sat.output.shift", 0x8010002E, TagType::Float},
    {"com.kovani.scaler.availableMinDigitalZoom", 0x8010002F, TagType::Float},
    {"kovani.supernight.color.correction.transform", 0x80100030, TagType::Rational},
    {"com.kovani.sessionparams.stylizationType", 0x80100031, TagType::Byte},
    {"kovani.ai.asd.SmartAE", 0x80100032, TagType::Byte},
    {"com.kovani.statsconfigs.AecInfo", 0x80100033, TagType::Byte},
    {"kovani.safe.exposure.enabled", 0x80100034, TagType::Byte},
    {"kovani.control.zsl.enable", 0x80100035, TagType::Byte},
    {"kovani.hdr.raw.enabled", 0x80100036, TagType::Byte},
    {"kovani.hdr.enabled", 0x80100037, TagType::Byte},
    {"kovani.telefusion.enabled", 0x80100038, TagType::Byte},
    {"com.kovani.camera.sensorpolicy.frameresult", 0x80100039, TagType::Byte},
    {"kovani.ai.asd.SunsetScene", 0x8010003A, TagType::Byte},
    {"kovani.ai.asd.algoSceneDetectedAIResult", 0x8010003B, TagType::Byte},
    {"com.kovani.orlo2.eyeclosure.status", 0x8010003C, TagType::Byte},
    {"com.kovani.camera.bokehConfig.request", 0x8010003D, TagType::Byte},
    {"com.kovani.camera.bokehCaps.info", 0x8010003E, TagType::Byte},
    {"com.kovani.camera.bokehConfig.stream", 0x8010003F, TagType::Byte},
    {"kovani.snapshot.imageName", 0x80100040, TagType::Byte},
    // Qualcomm tags addressed by name, section 0x8011.
    {"org.quic.camera.qtimer.startOfExposure", 0x80110000, TagType::Int64},
    {"com.qti.sensorbps.gain", 0x80110001, TagType::Float},
    {"org.quic.camera2.statsconfigs.AECFrameControl", 0x80110002, TagType::Byte},
    // MediaTek tags addressed by name, section 0x8012.
    {"com.mediatek.3afeature.awbColorTemperature", 0x80120000, TagType::Int32},
};

class Registry {
public:
    Registry() {
        for (const Row& row : kBuiltinTags) addLocked(row.name, row.id, row.type);
    }

    int add(const std::string& name, uint32_t id, TagType type) {
        if (name.empty() || typeSize(type) == 0) return kInvalid;
        std::unique_lock<std::shared_mutex> lock(mutex_);
        return addLocked(name, id, type);
    }

    const TagInfo* find(const char* name) const {
        if (name == nullptr) return nullptr;
        std::shared_lock<std::shared_mutex> lock(mutex_);
        const auto it = byName_.find(std::string_view(name));
        return it != byName_.end() ? it->second : nullptr;
    }

    const TagInfo* find(uint32_t id) const {
        std::shared_lock<std::shared_mutex> lock(mutex_);
        const auto it = byId_.find(id);
        return it != byId_.end() ? it->second : nullptr;
    }

    std::vector<TagInfo> all() const {
        std::vector<TagInfo> out;
        {
            std::shared_lock<std::shared_mutex> lock(mutex_);
            out.assign(infos_.begin(), infos_.end());
        }
        std::sort(out.begin(), out.end(),
                  [](const TagInfo& a, const TagInfo& b) { return a.id < b.id; });
        return out;
    }

private:
    int addLocked(const std::string& name, uint32_t id, TagType type) {
        const auto byName = byName_.find(std::string_view(name));
        const auto byId = byId_.find(id);
        if (byName != byName_.end() || byId != byId_.end()) {
            // Registering the same definition again is harmless.
            const bool same = byName != byName_.end() && byId != byId_.end() &&
                              byName->second == byId->second && byName->second->type == type;
            return same ? kOk : kExists;
        }
        // A deque never moves its elements, so the TagInfo pointers handed out
        // and the views into their names stay valid.
        infos_.push_back(TagInfo{name, id, type});
        const TagInfo& info = infos_.back();
        byName_.emplace(std::string_view(info.name), &info);
        byId_.emplace(id, &info);
        return kOk;
    }

    mutable std::shared_mutex mutex_;
    std::deque<TagInfo> infos_;
    std::unordered_map<std::string_view, const TagInfo*> byName_;
    std::unordered_map<uint32_t, const TagInfo*> byId_;
};

Registry& registry() {
    // Never destroyed: lookups may come from static destructors elsewhere.
    static Registry* const instance = new Registry;
    return *instance;
}

}  // namespace

int registerTag(const std::string& name, uint32_t id, TagType type) {
    try {
        return registry().add(name, id, type);
    } catch (...) {
        return kNoMemory;
    }
}

const TagInfo* findTag(const char* name) {
    return registry().find(name);
}

const TagInfo* findTag(uint32_t id) {
    return registry().find(id);
}

std::vector<TagInfo> knownTags() {
    return registry().all();
}

const char* typeName(TagType type) {
    switch (type) {
        case TagType::Byte:
            return "byte";
        case TagType::Int32:
            return "int32";
        case TagType::Float:
            return "float";
        case TagType::Int64:
            return "int64";
        case TagType::Double:
            return "double";
        case TagType::Rational:
            return "rational";
    }
    return "unknown";
}

size_t typeSize(TagType type) {
    switch (type) {
        case TagType::Byte:
            return 1;
        case TagType::Int32:
            return 4;
        case TagType::Float:
            return 4;
        case TagType::Int64:
            return 8;
        case TagType::Double:
            return 8;
        case TagType::Rational:
            return sizeof(camera_metadata_rational_t);
    }
    return 0;
}

}  // namespace kvhost
