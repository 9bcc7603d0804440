// The process-wide tag table: names, ids and element types of every tag the
// library reads, preloaded from one table, plus run-time registrations.
#include <algorithm>
#include <charconv>
#include <deque>
#include <mutex>
#include <shared_mutex>
#include <string_view>
#include <unordered_map>

#include "AndroidTags.h"
#include "kvhost/Metadata.h"

namespace kvhost {
namespace {

struct Row {
    const char* name;
    uint32_t id;
    TagType type;
    bool fixedId = false;  // the platform's own id, the same on every device
};

// Android's own tags come from the data file host/data/android-camera-tags.tsv
// (kAndroidTagsTsv, embedded at build time). The rows below are the vendor
// tags the library reads. Ids are written out, never derived from a row's
// position, so that adding a row cannot renumber a tag. MediaTek ids and the
// slave anchor frame's are the platforms' own (the library reads them by id);
// the vendor tags that are addressed by name get ids of our sections (0x8010
// and up, above Android's vendor boundary 0x8000 << 16), since a device gives
// them ids of its own.
constexpr Row kVendorTags[] = {
    // Tags the library addresses only by id, named after their platform
    // constants or the names its messages give them.
    {"MTK_3A_FEATURE_AF_REGION", 0x80060001, TagType::Int32, true},
    {"MTK_3A_FEATURE_AE_SENSOR_GAIN_VALUE", 0x80060010, TagType::Int32, true},
    {"MTK_3A_FEATURE_AE_ISP_GAIN_VALUE", 0x80060011, TagType::Int32, true},
    {"kovani.bokeh.AuxAnchorFrame", 0x80040006, TagType::Int32, true},
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

// Android's tags from the data file: "id<TAB>name<TAB>type<TAB>enums", the
// enums "NAME=value,..." (empty for tags without). Lines starting with '#'
// are comments. The file is part of the build, so a row that does not read is
// a build defect: the table stops at it rather than guess.
std::vector<TagInfo> androidTags() {
    std::vector<TagInfo> tags;
    std::string_view rest = kAndroidTagsTsv;
    while (!rest.empty()) {
        const size_t eol = std::min(rest.find('\n'), rest.size());
        std::string_view line = rest.substr(0, eol);
        rest.remove_prefix(std::min(eol + 1, rest.size()));
        if (line.empty() || line[0] == '#') continue;
        std::string_view field[4];
        for (std::string_view& f : field) {
            const size_t tab = std::min(line.find('\t'), line.size());
            f = line.substr(0, tab);
            line.remove_prefix(std::min(tab + 1, line.size()));
        }
        TagInfo info{std::string(field[1]), 0, TagType::Byte, true, {}};
        const char* idEnd = field[0].data() + field[0].size();
        const bool idOk = field[0].size() > 2 &&
                          std::from_chars(field[0].data() + 2, idEnd, info.id, 16).ptr == idEnd;
        const bool typeOk = parseTypeName(field[2], &info.type);
        if (!idOk || !typeOk || info.name.empty()) break;
        for (std::string_view enums = field[3]; !enums.empty();) {
            const size_t comma = std::min(enums.find(','), enums.size());
            const std::string_view item = enums.substr(0, comma);
            enums.remove_prefix(std::min(comma + 1, enums.size()));
            const size_t eq = item.rfind('=');
            int32_t value = 0;
            if (eq == std::string_view::npos ||
                std::from_chars(item.data() + eq + 1, item.data() + item.size(), value).ptr !=
                    item.data() + item.size()) {
                continue;
            }
            info.enums.push_back(EnumValue{std::string(item.substr(0, eq)), value});
        }
        tags.push_back(std::move(info));
    }
    return tags;
}

constexpr uint32_t kFreshIdBase = 0x80FF0000;  // ids given to tags whose own id is taken

class Registry {
public:
    Registry() {
        for (TagInfo& info : androidTags()) addLocked(std::move(info));
        for (const Row& row : kVendorTags) {
            addLocked(TagInfo{row.name, row.id, row.type, row.fixedId, {}});
        }
    }

    int add(const std::string& name, uint32_t id, TagType type) {
        if (name.empty() || typeSize(type) == 0) return kInvalid;
        std::unique_lock<std::shared_mutex> lock(mutex_);
        return addLocked(TagInfo{name, id, type, false, {}});
    }

    int addOnFreshId(const std::string& name, TagType type, uint32_t* id) {
        if (name.empty() || typeSize(type) == 0 || id == nullptr) return kInvalid;
        std::unique_lock<std::shared_mutex> lock(mutex_);
        if (const auto known = byName_.find(std::string_view(name)); known != byName_.end()) {
            if (known->second->type != type) return kExists;
            *id = known->second->id;
            return kOk;
        }
        while (byId_.count(nextFreshId_) != 0) ++nextFreshId_;
        if (nextFreshId_ < kFreshIdBase) return kNoMemory;  // wrapped: the section is full
        *id = nextFreshId_;
        return addLocked(TagInfo{name, nextFreshId_++, type, false, {}});
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
    int addLocked(TagInfo info) {
        const auto byName = byName_.find(std::string_view(info.name));
        const auto byId = byId_.find(info.id);
        if (byName != byName_.end() || byId != byId_.end()) {
            // Registering the same definition again is harmless.
            const bool same = byName != byName_.end() && byId != byId_.end() &&
                              byName->second == byId->second && byName->second->type == info.type;
            return same ? kOk : kExists;
        }
        // A deque never moves its elements, so the TagInfo pointers handed out
        // and the views into their names stay valid.
        infos_.push_back(std::move(info));
        const TagInfo& stored = infos_.back();
        byName_.emplace(std::string_view(stored.name), &stored);
        byId_.emplace(stored.id, &stored);
        return kOk;
    }

    mutable std::shared_mutex mutex_;
    std::deque<TagInfo> infos_;
    std::unordered_map<std::string_view, const TagInfo*> byName_;
    std::unordered_map<uint32_t, const TagInfo*> byId_;
    uint32_t nextFreshId_ = kFreshIdBase;
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

int registerTagOnFreshId(const std::string& name, TagType type, uint32_t* id) {
    try {
        return registry().addOnFreshId(name, type, id);
    } catch (...) {
        return kNoMemory;
    }
}

const EnumValue* findEnum(const TagInfo& tag, std::string_view name) {
    for (const EnumValue& e : tag.enums) {
        if (e.name == name) return &e;
    }
    return nullptr;
}

const char* enumName(const TagInfo& tag, int32_t value) {
    for (const EnumValue& e : tag.enums) {
        if (e.value == value) return e.name.c_str();
    }
    return nullptr;
}

bool parseTypeName(std::string_view text, TagType* type) {
    for (const TagType t : {TagType::Byte, TagType::Int32, TagType::Float, TagType::Int64,
                            TagType::Double, TagType::Rational}) {
        if (text == typeName(t)) {
            *type = t;
            return true;
        }
    }
    return false;
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
