#include "Capture.h"

#include <limits>

#include "kvhost/Adapter.h"
#include "kvhost/Metadata.h"

namespace kvhost {
namespace loader {
namespace {

constexpr int64_t kIntMax = std::numeric_limits<int32_t>::max();

// A "tags" array: each tag at most once.
std::vector<TagPayload> readTags(const Node& node) {
    node.array();
    std::vector<TagPayload> tags;
    std::map<uint32_t, std::string> seen;
    for (size_t i = 0; i < node.json().size(); ++i) {
        const Node entry = node[i];
        TagPayload tag = readTag(entry);
        const auto [at, added] = seen.emplace(tag.info->id, entry.path());
        if (!added) {
            entry.fail("\"" + tag.info->name + "\" is already given at " + at->second);
        }
        tags.push_back(std::move(tag));
    }
    return tags;
}

std::pair<int, int> readSize(Fields& size) {
    const auto w = static_cast<int>(size.need("width").integer(1, kIntMax));
    const auto h = static_cast<int>(size.need("height").integer(1, kIntMax));
    return {w, h};
}

void readCamera(const Node& node, Capture& c) {
    Fields f(node);
    c.cameraId = f.need("cameraId").int32();
    const auto sat = f.take("satCameraId");
    c.satCameraId = sat ? sat->int32() : c.cameraId;
    f.finish();
}

void readInput(const Node& node, Capture& c) {
    Fields f(node);
    std::tie(c.inputWidth, c.inputHeight) = readSize(f);
    f.finish();
}

void readArguments(const Node& node, Capture& c) {
    Fields f(node);
    if (const auto sensor = f.take("sensorSize")) {
        Fields size(*sensor);
        const auto [w, h] = readSize(size);
        c.sensorSize.emplace(static_cast<uint32_t>(w), static_cast<uint32_t>(h));
        size.finish();
    }
    if (const auto v = f.take("isInSensorZoom")) c.isInSensorZoom = v->boolean();
    if (const auto v = f.take("useInSensorZoom")) {
        c.useInSensorZoom = v->int32();
    }
    if (const auto v = f.take("gyroKey")) c.gyroKey = v->string();
    if (const auto v = f.take("gyroQuery")) {
        c.gyroQuery = v->int32();
    }
    f.finish();
}

void readStatics(const Node& node, Capture& c) {
    node.array();
    for (size_t i = 0; i < node.json().size(); ++i) {
        Fields f(node[i]);
        const Node id = f.need("cameraId");
        const auto camera = static_cast<uint32_t>(id.integer(0, kIntMax));
        if (c.statics.count(camera) != 0) {
            id.fail("camera " + std::to_string(camera) + " is described twice");
        }
        c.statics[camera] = readTags(f.need("tags"));
        f.finish();
    }
}

void readAdapter(const Node& node, AdapterAnswers& a) {
    Fields f(node);
    if (const auto present = f.take("present")) a.present = present->boolean();
    if (const auto roles = f.take("roles")) {
        roles->array();
        for (size_t i = 0; i < roles->json().size(); ++i) {
            Fields role((*roles)[i]);
            const Node id = role.need("cameraId");
            const auto camera = id.int32();
            for (const auto& known : a.roles) {
                if (known.first == camera) id.fail("camera " + std::to_string(camera) + " twice");
            }
            a.roles.emplace_back(camera, role.need("roleId").int32());
            role.finish();
        }
    }
    if (const auto shift = f.take("shift")) {
        Fields s(*shift);
        a.shift.emplace(s.need("x").int32(), s.need("y").int32());
        if (const auto isz = s.take("inSensorZoom")) a.shiftInSensorZoom = isz->boolean();
        s.finish();
    }
    if (const auto gyro = f.take("gyro")) {
        Fields g(*gyro);
        if (const auto v = g.take("enable")) a.gyroEnable = v->int32();
        const Node samples = g.need("samples");
        samples.array();
        for (size_t i = 0; i < samples.json().size(); ++i) {
            Fields s(samples[i]);
            CaptureGyroSample sample;
            sample.x = static_cast<float>(s.need("x").number());
            sample.y = static_cast<float>(s.need("y").number());
            sample.z = static_cast<float>(s.need("z").number());
            sample.ticks = static_cast<uint64_t>(
                s.need("ticks").integer(0, std::numeric_limits<int64_t>::max()));
            s.finish();
            a.gyro.push_back(sample);
        }
        g.finish();
    }
    f.finish();
}

std::shared_ptr<kvhost::Metadata> makeMetadata(const std::vector<TagPayload>& tags) {
    auto md = kvhost::Metadata::create();
    for (const TagPayload& tag : tags) {
        const int rc = tag.count == 0
                           ? md->putEmpty(tag.info->id)
                           : md->put(tag.info->id, tag.info->type, tag.bytes.data(), tag.count);
        // Checked against the tag table when read; only memory can fail here.
        if (rc != 0)
            throw InputError("\"" + tag.info->name + "\": cannot be stored (" + std::to_string(rc) +
                             ")");
    }
    return md;
}

}  // namespace

namespace {

std::vector<std::string> strings(const Node& node) {
    std::vector<std::string> out;
    for (size_t i = 0; i < node.array().size(); ++i) out.push_back(node[i].string());
    return out;
}

Capture parseOnce(const std::string& text, const std::string& file) {
    try {
        const Json json = parseJson(text);
        Capture c;
        c.file = file;
        Fields top(Node(json, ""));
        top.only({"description", "notes", "warnings", "camera", "input", "arguments", "frame",
                  "static", "adapter"},
                 "section");
        if (const auto d = top.take("description")) c.description = d->string();
        if (const auto n = top.take("notes")) c.notes = strings(*n);
        if (const auto w = top.take("warnings")) c.warnings = strings(*w);
        readCamera(top.need("camera"), c);
        readInput(top.need("input"), c);
        if (const auto arguments = top.take("arguments")) readArguments(*arguments, c);
        Fields frame(top.need("frame"));
        c.frame = readTags(frame.need("tags"));
        frame.finish();
        if (const auto statics = top.take("static")) readStatics(*statics, c);
        if (const auto adapter = top.take("adapter")) readAdapter(*adapter, c.adapter);
        top.finish();
        return c;
    } catch (const InputError& e) {
        throw InputError(file + ": " + e.what());
    }
}

}  // namespace

Capture parseCapture(const std::string& text, const std::string& file) {
    // The first pass checks the whole description without registering the
    // vendor tags it names: a description that fails changes nothing.
    {
        const DryRun dry;
        parseOnce(text, file);
    }
    return parseOnce(text, file);
}

std::string captureText(const Capture& c) {
    // Laid out as the bundled samples are: one tag a line.
    const auto tags = [](const std::vector<TagPayload>& payloads, const char* indent) {
        std::string out = "[";
        for (size_t i = 0; i < payloads.size(); ++i) {
            out += (i == 0 ? "\n" : ",\n") + std::string(indent) + jsonText(tagToJson(payloads[i]));
        }
        return out + "\n" + std::string(indent).substr(2) + "]";
    };
    const auto lines = [](const std::vector<std::string>& texts) {
        std::string out = "[";
        for (size_t i = 0; i < texts.size(); ++i) {
            out += (i == 0 ? "\n    " : ",\n    ") + jsonText(texts[i]);
        }
        return out + (texts.empty() ? "]" : "\n  ]");
    };
    std::string out = "{\n  \"description\": " + jsonText(c.description) + ",\n";
    out += "  \"notes\": " + lines(c.notes) + ",\n";
    out += "  \"warnings\": " + lines(c.warnings) + ",\n";
    out +=
        "  \"camera\": " + Json{{"cameraId", c.cameraId}, {"satCameraId", c.satCameraId}}.dump() +
        ",\n";
    out +=
        "  \"input\": " + Json{{"width", c.inputWidth}, {"height", c.inputHeight}}.dump() + ",\n";
    out += "  \"frame\": {\"tags\": " + tags(c.frame, "    ") + "},\n";
    out += "  \"static\": [";
    for (auto it = c.statics.begin(); it != c.statics.end(); ++it) {
        out += std::string(it == c.statics.begin() ? "\n" : ",\n") +
               "    {\"cameraId\": " + std::to_string(it->first) +
               ", \"tags\": " + tags(it->second, "      ") + "}";
    }
    return out + "\n  ]\n}\n";
}

std::map<uint32_t, std::shared_ptr<kvhost::Metadata>> buildStatics(const Capture& capture) {
    std::map<uint32_t, std::shared_ptr<kvhost::Metadata>> statics;
    for (const auto& [camera, tags] : capture.statics) statics[camera] = makeMetadata(tags);
    return statics;
}

kvhost::Capture install(Capture&& capture) {
    auto statics = buildStatics(capture);
    return install(std::move(capture), std::move(statics));
}

kvhost::Capture install(Capture&& capture,
                        std::map<uint32_t, std::shared_ptr<kvhost::Metadata>> statics) {
    kvhost::Capture out;
    static_cast<CaptureInfo&>(out) = std::move(static_cast<CaptureInfo&>(capture));
    // Every container first: a failure here leaves the stand-ins as they were.
    out.statics = std::move(statics);
    out.frame = makeMetadata(capture.frame);

    const AdapterAnswers& a = out.adapter;
    kvhost::AdapterScript script;
    script.instanceAvailable = a.present;
    script.gyroEnableResult = a.gyroEnable;
    for (const CaptureGyroSample& g : a.gyro) {
        script.gyroSamples.push_back(adapter::GyroSample{g.x, g.y, g.z, 0, g.ticks});
    }
    for (const auto& [camera, role] : a.roles) script.roleMap[camera].roleId = role;
    script.shiftFound = a.shift.has_value();
    if (a.shift) std::tie(script.shiftX, script.shiftY) = *a.shift;
    script.shiftIsIsz = a.shiftInSensorZoom ? 1 : 0;

    kvhost::clearStaticMetadata();
    for (const auto& [camera, md] : out.statics) kvhost::setStaticMetadata(camera, md);
    kvhost::setAdapterScript(script);
    return out;
}

}  // namespace loader
}  // namespace kvhost
