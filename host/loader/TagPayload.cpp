#include "TagPayload.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <limits>
#include <optional>
#include <string>

namespace kvhost {
namespace loader {
namespace {

using kvhost::TagType;

// Tags whose int32 payload is an array of records. Header fields come first
// and are written beside the records in the tag's object; a header field
// named "count" defaults to the number of records. Unwritten fields are 0.
struct RecordLayout {
    const char* tag;
    const char* key;
    std::vector<const char*> header;
    std::vector<const char*> fields;
};

const RecordLayout kRecordLayouts[] = {
    // 36-byte per-camera entries of the sensor policy's crop table.
    {"com.kovani.camera.sensorpolicy.cropregions",
     "entries",
     {},
     {"cameraId", "word1", "word2", "word3", "word4", "left", "top", "width", "height"}},
    // One face: corners in active-array coordinates, rotation in degrees.
    {"kovani.bokeh.faceInfo",
     "faces",
     {},
     {"left", "top", "right", "bottom", "word4", "word5", "rotation", "word7", "word8"}},
    // AF regions: a type word and the region count, then 5 words a region.
    {"MTK_3A_FEATURE_AF_REGION",
     "regions",
     {"afType", "count"},
     {"left", "top", "right", "bottom", "word4"}},
};

const RecordLayout* layoutOf(const char* tagName) {
    for (const RecordLayout& layout : kRecordLayouts) {
        if (std::strcmp(layout.tag, tagName) == 0) return &layout;
    }
    return nullptr;
}

// Element i of a payload of T.
template <typename T>
T load(const uint8_t* bytes, size_t i) {
    T value;
    std::memcpy(&value, bytes + i * sizeof(T), sizeof(T));
    return value;
}

// JSON has no NaN or infinity: a capture writes them as a dump prints them,
// "nan", "-nan", "inf" and "-inf".
std::optional<double> realOf(const Json& v) {
    if (v.is_number()) return v.get<double>();
    if (!v.is_string()) return std::nullopt;
    const std::string& s = v.get_ref<const std::string&>();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    if (s == "nan") return nan;
    if (s == "-nan") return -nan;
    if (s == "inf") return inf;
    if (s == "-inf") return -inf;
    return std::nullopt;
}

Json realToJson(double d) {
    if (std::isnan(d)) return std::signbit(d) ? "-nan" : "nan";
    if (std::isinf(d)) return d < 0 ? "-inf" : "inf";
    return d;
}

// One element of `type` from a JSON value; `what` names the expected values.
void appendValue(std::vector<uint8_t>& bytes, TagType type, const Node& v, const char* what) {
    switch (type) {
        case TagType::Byte:
            append(bytes, static_cast<uint8_t>(v.integer(-128, 255, what)));
            return;
        case TagType::Int32:
            append(bytes,
                   static_cast<uint32_t>(v.integer(std::numeric_limits<int32_t>::min(),
                                                   std::numeric_limits<uint32_t>::max(), what)));
            return;
        case TagType::Int64:
            append(bytes, v.integer(std::numeric_limits<int64_t>::min(),
                                    std::numeric_limits<int64_t>::max(), what));
            return;
        case TagType::Float:
        case TagType::Double: {
            // A float must be one: 1e300 is not silently infinity.
            const std::optional<double> d = realOf(v.json());
            if (!d || (type == TagType::Float && std::isfinite(*d) &&
                       std::fabs(*d) > std::numeric_limits<float>::max())) {
                v.fail(std::string("expected ") + what + ", got " + describe(v.json()));
            }
            if (type == TagType::Float) {
                append(bytes, static_cast<float>(*d));
            } else {
                append(bytes, *d);
            }
            return;
        }
        case TagType::Rational: {
            if (!v.json().is_array() || v.json().size() != 2) {
                v.fail(std::string("expected ") + what + ", got " + describe(v.json()));
            }
            for (size_t i = 0; i < 2; ++i) {
                append(bytes, static_cast<int32_t>(v[i].integer(std::numeric_limits<int32_t>::min(),
                                                                std::numeric_limits<int32_t>::max(),
                                                                what)));
            }
            return;
        }
    }
}

// "values": elements of the tag's own type.
void readValues(const Node& node, TagType type, std::vector<uint8_t>& bytes) {
    const std::string what =
        std::string(type == TagType::Rational ? "[numerator, denominator] " : "") +
        kvhost::typeName(type) + " values";
    node.array();
    for (size_t i = 0; i < node.json().size(); ++i) appendValue(bytes, type, node[i], what.c_str());
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// "hex": pairs of hex digits; blanks between bytes are allowed.
void readHex(const Node& node, std::vector<uint8_t>& bytes) {
    const std::string& s = node.string();
    int high = -1;
    for (size_t i = 0; i < s.size(); ++i) {
        if (s[i] == ' ' && high < 0) continue;
        const int d = hexDigit(s[i]);
        if (d < 0) node.fail("not a hex digit at character " + std::to_string(i + 1));
        if (high < 0) {
            high = d;
        } else {
            bytes.push_back(static_cast<uint8_t>(high << 4 | d));
            high = -1;
        }
    }
    if (high >= 0) node.fail("odd number of hex digits");
}

// "base64": the standard alphabet, padding optional.
void readBase64(const Node& node, std::vector<uint8_t>& bytes) {
    static const std::string kAlphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const std::string& s = node.string();
    const size_t end = s.find_last_not_of('=') + 1;
    if (s.size() - end > 2 || end % 4 == 1) node.fail("not valid base64");
    uint32_t bits = 0;
    int held = 0;
    for (size_t i = 0; i < end; ++i) {
        const size_t v = kAlphabet.find(s[i]);
        if (v == std::string::npos) {
            node.fail("not a base64 character at character " + std::to_string(i + 1));
        }
        bits = bits << 6 | static_cast<uint32_t>(v);
        held += 6;
        if (held >= 8) {
            held -= 8;
            bytes.push_back(static_cast<uint8_t>(bits >> held));
        }
    }
}

// "text": one string or several, each written with its ending NUL.
void readText(const Node& node, std::vector<uint8_t>& bytes) {
    const auto one = [&](const Node& s) {
        for (char c : s.string()) bytes.push_back(static_cast<uint8_t>(c));
        bytes.push_back(0);
    };
    if (!node.json().is_array()) return one(node);
    for (size_t i = 0; i < node.json().size(); ++i) one(node[i]);
}

// "packed": little-endian fields in order, each {"<type>": value or values}
// or {"pad": number of zero bytes}.
void readPacked(const Node& node, std::vector<uint8_t>& bytes) {
    static const TagType kTypes[] = {TagType::Byte, TagType::Int32, TagType::Float, TagType::Int64,
                                     TagType::Double};
    node.array();
    for (size_t i = 0; i < node.json().size(); ++i) {
        const Node field = node[i];
        if (!field.json().is_object() || field.json().size() != 1) {
            field.fail("expected one {\"<type>\": value} or {\"pad\": bytes}, got " +
                       describe(field.json()));
        }
        Fields f(field);
        if (auto pad = f.take("pad")) {
            bytes.resize(bytes.size() + static_cast<size_t>(pad->integer(0, 1 << 20)));
        }
        for (TagType type : kTypes) {
            const auto v = f.take(kvhost::typeName(type));
            if (!v) continue;
            const std::string what = std::string(kvhost::typeName(type)) + " values";
            if (!v->json().is_array()) {
                appendValue(bytes, type, *v, what.c_str());
                continue;
            }
            for (size_t k = 0; k < v->json().size(); ++k) {
                appendValue(bytes, type, (*v)[k], what.c_str());
            }
        }
        f.finish();
    }
}

// The record view of `layout`: header fields from the tag's object, then
// each record's fields.
void readRecords(Fields& tag, const RecordLayout& layout, std::vector<uint8_t>& bytes) {
    const Node records = tag.need(layout.key);
    records.array();
    const auto field = [&](Fields& object, const char* name, int64_t fallback) {
        const auto v = object.take(name);
        append(bytes, v ? v->int32() : static_cast<int32_t>(fallback));
    };
    for (const char* name : layout.header) {
        field(tag, name, std::strcmp(name, "count") == 0 ? records.json().size() : 0);
    }
    for (size_t i = 0; i < records.json().size(); ++i) {
        Fields record(records[i]);
        for (const char* name : layout.fields) field(record, name, 0);
        record.finish();
    }
}

// What the library reads of a tag, beyond its first element.
struct LengthRule {
    std::string_view tag;  // its length known: most names differ in it
    size_t min;            // elements
    size_t max;            // elements, 0 for no limit
    const char* what;
    // Further checks of the content; "" when it is fine.
    std::string (*check)(const TagPayload&);
};

std::string afRegionCheck(const TagPayload& p) {
    int32_t n = 0;
    std::memcpy(&n, p.bytes.data() + 4, sizeof n);
    const size_t needed = n == 1 ? 6 : n == 2 ? 11 : 2;
    if (p.count >= needed) return "";
    return std::to_string(p.count) + " int32 values, but with region count " + std::to_string(n) +
           " the library reads " + std::to_string(needed);
}

std::string imageNameCheck(const TagPayload& p) {
    const size_t limit = std::min<size_t>(p.bytes.size(), 128);
    if (std::memchr(p.bytes.data(), 0, limit) != nullptr) return "";
    return "the name needs its ending NUL within 128 bytes (the library copies it into a "
           "128-byte array)";
}

std::string physicalIdsCheck(const TagPayload& p) {
    if (p.bytes.back() == 0) return "";
    return "the last id needs its ending NUL (the library splits the ids at NULs)";
}

const LengthRule kLengthRules[] = {
    {"kovani.ai.asd.SmartAE", 448, 0, "the 448-byte smart AE record", nullptr},
    {"com.kovani.camera.bokehConfig.request", 124, 0, "the 124-byte bokeh request record", nullptr},
    {"com.kovani.camera.bokehCaps.info", 21588, 0, "the 21588-byte bokeh capability record",
     nullptr},
    {"com.kovani.camera.bokehConfig.stream", 128, 0, "the 128-byte bokeh stream record", nullptr},
    {"kovani.ai.asd.algoSceneDetectedAIResult", 16, 0, "two class and confidence pairs", nullptr},
    {"kovani.ai.asd.SunsetScene", 8, 0, "the 8-byte sunset record", nullptr},
    {"kovani.supernight.color.correction.transform", 9, 0, "a 3x3 matrix", nullptr},
    {"android.sensor.dynamicBlackLevel", 4, 0, "one level per colour channel", nullptr},
    {"android.colorCorrection.gains", 4, 0, "four channel gains", nullptr},
    {"kovani.supernight.gammainfo", 256, 0, "a 256-point curve", nullptr},
    {"kovani.histogram.stats", 1024, 0, "256 bins of 4 channel counts", nullptr},
    {"kovani.hdr.gtm.curve", 289, 0, "the value at byte 1152", nullptr},
    {"com.kovani.camera.sensorpolicy.frameresult", 1364, 0,
     "four sensor mode pairs, the last at byte 1360", nullptr},
    {"kovani.streaming.sensormode", 2, 0, "the sensor mode is element 1", nullptr},
    {"com.kovani.statsconfigs.AecInfo", 12, 0, "the exposure index at byte 8", nullptr},
    {"com.kovani.camera.sensorpolicy.cropregions", 36, 0, "four 9-value entries", nullptr},
    {"kovani.snapshot.cropRegion", 4, 0, "a rectangle", nullptr},
    {"android.scaler.cropRegion", 4, 0, "a rectangle", nullptr},
    {"android.sensor.info.activeArraySize", 4, 0, "a rectangle", nullptr},
    {"android.sensor.info.activeArraySizeMaximumResolution", 4, 0, "a rectangle", nullptr},
    {"android.lens.info.shadingMapSize", 2, 0, "width and height", nullptr},
    {"kovani.bokeh.faceInfo", 0, 98, "10 faces of 9 values fit the face record", nullptr},
    {"MTK_3A_FEATURE_AF_REGION", 2, 0, "the type word and the region count", afRegionCheck},
    {"kovani.snapshot.imageName", 0, 0, "", imageNameCheck},
    {"android.logicalMultiCamera.physicalIds", 0, 0, "", physicalIdsCheck},
};

}  // namespace

namespace {
thread_local DryRun* tDryRun = nullptr;
}

DryRun::DryRun() : outer_(tDryRun) {
    tDryRun = this;
}

DryRun::~DryRun() {
    tDryRun = outer_;
}

const kvhost::TagInfo* DryRun::add(const std::string& name, TagType type) {
    for (const kvhost::TagInfo& t : tags_) {
        if (t.name == name) return t.type == type ? &t : nullptr;
    }
    // An id of its own, as a registered tag would have: a reader tells tags
    // apart by id. Taken from the top down, where the table has none.
    while (kvhost::findTag(nextId_) != nullptr) --nextId_;
    tags_.push_back(kvhost::TagInfo{name, nextId_--, type, false, {}});
    return &tags_.back();
}

const kvhost::TagInfo* addVendorTag(const std::string& name, uint32_t id, TagType type, int* rc) {
    if (tDryRun != nullptr) {
        const kvhost::TagInfo* info = tDryRun->add(name, type);
        *rc = info != nullptr ? kvhost::kOk : kvhost::kExists;
        return info;
    }
    *rc = id != 0 ? kvhost::registerTag(name, id, type) : kvhost::kExists;
    if (*rc == kvhost::kExists) *rc = kvhost::registerTagOnFreshId(name, type, &id);
    return *rc == kvhost::kOk ? kvhost::findTag(id) : nullptr;
}

bool DryRun::registeredNone() const {
    return tags_.empty();
}

bool hasLengthRule(const kvhost::TagInfo& info) {
    return std::any_of(std::begin(kLengthRules), std::end(kLengthRules),
                       [&](const LengthRule& rule) { return info.name == rule.tag; });
}

std::string lengthProblem(const TagPayload& p) {
    if (p.count == 0) return "";  // an empty entry is never read
    for (const LengthRule& rule : kLengthRules) {
        if (p.info->name != rule.tag) continue;
        const auto held = [&] {
            return std::to_string(p.count) + " " + kvhost::typeName(p.info->type) + " values, but ";
        };
        if (p.count < rule.min) {
            return held() + "the library reads " + std::to_string(rule.min) + " (" + rule.what +
                   ")";
        }
        if (rule.max != 0 && p.count > rule.max) {
            return held() + "the library takes at most " + std::to_string(rule.max) + " (" +
                   rule.what + ")";
        }
        if (rule.check != nullptr) return rule.check(p);
    }
    return "";
}

namespace {

// A vendor name the table does not know is registered when its entry gives
// the type: a capture saved from a dump carries the dump's own vendor tags.
const kvhost::TagInfo* resolveTag(const Node& ref, const Node& type) {
    if (ref.json().is_string()) {
        const std::string& s = ref.string();
        if (s.rfind("0x", 0) != 0 && s.rfind("0X", 0) != 0) {
            const kvhost::TagInfo* info = kvhost::findTag(s.c_str());
            TagType t{};
            int rc = 0;
            if (info == nullptr && type.json().is_string() && s.rfind("android.", 0) != 0 &&
                kvhost::parseTypeName(type.string(), &t)) {
                info = addVendorTag(s, 0, t, &rc);
            }
            if (info == nullptr) ref.fail("unknown tag \"" + s + "\"");
            return info;
        }
    }
    const auto id = static_cast<uint32_t>(
        ref.integer(0, std::numeric_limits<uint32_t>::max(), "a tag name or a numeric tag id"));
    const kvhost::TagInfo* info = kvhost::findTag(id);
    if (info == nullptr) {
        char hex[16];
        std::snprintf(hex, sizeof hex, "0x%X", id);
        ref.fail(std::string("unknown tag id ") + hex);
    }
    return info;
}

}  // namespace

TagPayload readTag(const Node& entry) {
    Fields first(entry);
    TagPayload p;
    p.info = resolveTag(first.need("tag"), entry["type"]);
    // Below the entry, positions carry the tag's name: frame.tags[3] "name": values[1].
    Fields tag(Node(entry.json(), entry.path() + " \"" + p.info->name + "\"", ": "));
    tag.take("tag");
    const TagType type = p.info->type;
    if (const auto declared = tag.take("type")) {
        if (declared->string() != kvhost::typeName(type)) {
            declared->fail(std::string("the tag holds ") + kvhost::typeName(type) +
                           " values, not " + describe(declared->json()));
        }
    }

    const RecordLayout* layout = layoutOf(p.info->name.c_str());
    std::vector<const char*> forms = {"values", "hex", "base64", "text", "packed"};
    if (layout != nullptr) forms.push_back(layout->key);
    std::string choices;
    int given = 0;
    for (const char* form : forms) {
        given += tag.has(form) ? 1 : 0;
        choices += std::string(choices.empty() ? "\"" : ", \"") + form + "\"";
    }
    if (given != 1) tag.node().fail("give exactly one of " + choices);

    if (const auto v = tag.take("values")) readValues(*v, type, p.bytes);
    if (const auto v = tag.take("hex")) readHex(*v, p.bytes);
    if (const auto v = tag.take("base64")) readBase64(*v, p.bytes);
    if (const auto v = tag.take("text")) readText(*v, p.bytes);
    if (const auto v = tag.take("packed")) readPacked(*v, p.bytes);
    if (layout != nullptr && tag.has(layout->key)) readRecords(tag, *layout, p.bytes);
    tag.finish();

    const size_t size = kvhost::typeSize(type);
    if (p.bytes.size() % size != 0) {
        tag.node().fail(std::to_string(p.bytes.size()) + " bytes is not a whole number of " +
                        kvhost::typeName(type) + " values (" + std::to_string(size) +
                        " bytes each)");
    }
    p.count = p.bytes.size() / size;
    if (const std::string problem = lengthProblem(p); !problem.empty()) tag.node().fail(problem);
    return p;
}

namespace {

// The double of a float's shortest decimal: 1.9f is written "1.9", not
// "1.899999976158142", and reads back as the same float.
double shortestDouble(float f) {
    if (!std::isfinite(f)) return f;
    char text[32];
    const auto end = std::to_chars(text, text + sizeof text, f).ptr;
    double d = f;
    std::from_chars(text, end, d);
    return d;
}

}  // namespace

Json valuesToJson(const kvhost::TagInfo& info, const uint8_t* at, size_t count) {
    Json values = Json::array();
    values.get_ref<Json::array_t&>().reserve(count);
    for (size_t i = 0; i < count; ++i) {
        switch (info.type) {
            case TagType::Byte:
                values.push_back(at[i]);
                break;
            case TagType::Int32:
                values.push_back(load<int32_t>(at, i));
                break;
            case TagType::Float:
                values.push_back(realToJson(shortestDouble(load<float>(at, i))));
                break;
            case TagType::Int64:
                values.push_back(load<int64_t>(at, i));
                break;
            case TagType::Double:
                values.push_back(realToJson(load<double>(at, i)));
                break;
            case TagType::Rational:
                values.push_back({load<int32_t>(at, 2 * i), load<int32_t>(at, 2 * i + 1)});
                break;
        }
    }
    return values;
}

Json tagToJson(const TagPayload& p) {
    return Json{{"tag", p.info->name},
                {"type", kvhost::typeName(p.info->type)},
                {"values", valuesToJson(*p.info, p.bytes.data(), p.count)}};
}

Json recordsToJson(const char* tagName, const int32_t* elements, size_t count) {
    const RecordLayout* layout = layoutOf(tagName);
    if (layout == nullptr) return nullptr;
    Json out = Json::object();
    size_t at = 0;
    for (const char* name : layout->header) {
        if (at < count) out[name] = elements[at++];
    }
    Json records = Json::array();
    for (; at + layout->fields.size() <= count; at += layout->fields.size()) {
        Json record = Json::object();
        for (size_t i = 0; i < layout->fields.size(); ++i) {
            record[layout->fields[i]] = elements[at + i];
        }
        records.push_back(record);
    }
    out[layout->key] = records;
    return out;
}

}  // namespace loader
}  // namespace kvhost
