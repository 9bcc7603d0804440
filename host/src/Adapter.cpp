// Host stand-in of the platform adapter library: the entry point, the
// instance and the holder, answering from one process-wide script and
// recording every call.
#include "kvhost/Adapter.h"

#include <memory>
#include <mutex>

#include "PlatformAdapter.h"

namespace kvhost {
namespace {

struct State {
    std::mutex mutex;
    AdapterScript script;
    std::vector<AdapterCall> calls;
};

State& state() {
    static State s;
    return s;
}

AdapterScript scriptCopy() {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.script;
}

void record(AdapterCall call) {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.calls.push_back(std::move(call));
}

AdapterCall callOf(AdapterOp op, const char* key = nullptr, int arg1 = 0, int arg2 = 0) {
    AdapterCall c;
    c.op = op;
    c.keyIsNull = key == nullptr;
    if (key != nullptr) c.key = key;
    c.arg1 = arg1;
    c.arg2 = arg2;
    return c;
}

class Holder final : public adapter::PlatformInfoHolder {
public:
    ~Holder() = default;

    int enableGyro(const char* key, int a, int b) override {
        record(callOf(AdapterOp::EnableGyro, key, a, b));
        State& s = state();
        std::lock_guard<std::mutex> lock(s.mutex);
        return s.script.gyroEnableResult;
    }

    void disableGyro(const char* key, int a) override {
        record(callOf(AdapterOp::DisableGyro, key, a));
    }

    std::vector<adapter::GyroSample> getGyroData(const char* key, int query) override {
        record(callOf(AdapterOp::GetGyroData, key, query));
        State& s = state();
        std::lock_guard<std::mutex> lock(s.mutex);
        return s.script.gyroSamples;
    }

    std::unordered_map<int, kvholder::RoleIdDescription> getRoleIdDescriptionMap() override {
        record(callOf(AdapterOp::GetRoleMap));
        State& s = state();
        std::lock_guard<std::mutex> lock(s.mutex);
        return s.script.roleMap;
    }

    bool getShift(adapter::ShiftData* shift, int tolerance) override {
        AdapterCall c = callOf(AdapterOp::GetShift);
        if (shift != nullptr) c.shift = *shift;
        c.tolerance = tolerance;
        record(std::move(c));
        const AdapterScript script = scriptCopy();
        if (!script.shiftFound || shift == nullptr) return false;
        shift->shiftX = script.shiftX;
        shift->shiftY = script.shiftY;
        shift->isIsz = script.shiftIsIsz;
        return true;
    }
};

class Instance final : public adapter::AdapterInstance {
public:
    ~Instance() = default;

    void init() override { record(callOf(AdapterOp::Init)); }

    std::shared_ptr<adapter::PlatformInfoHolder> getPlatformInfoHolder() override {
        record(callOf(AdapterOp::GetHolder));
        if (!scriptCopy().holderAvailable) return nullptr;
        return std::make_shared<Holder>();
    }
};

}  // namespace

const char* adapterOpName(AdapterOp op) {
    switch (op) {
        case AdapterOp::GetInstance:
            return "GetInstance";
        case AdapterOp::Init:
            return "Init";
        case AdapterOp::GetHolder:
            return "GetHolder";
        case AdapterOp::EnableGyro:
            return "EnableGyro";
        case AdapterOp::DisableGyro:
            return "DisableGyro";
        case AdapterOp::GetGyroData:
            return "GetGyroData";
        case AdapterOp::GetRoleMap:
            return "GetRoleMap";
        case AdapterOp::GetShift:
            return "GetShift";
    }
    return "unknown";
}

void setAdapterScript(const AdapterScript& script) {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.script = script;
}

AdapterScript adapterScript() {
    return scriptCopy();
}

std::vector<AdapterCall> adapterCalls() {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.calls;
}

std::vector<AdapterCall> adapterCalls(AdapterOp op) {
    std::vector<AdapterCall> out;
    for (AdapterCall& c : adapterCalls()) {
        if (c.op == op) out.push_back(std::move(c));
    }
    return out;
}

void clearAdapterCalls() {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.calls.clear();
}

void resetAdapter() {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.script = AdapterScript{};
    s.calls.clear();
}

std::unordered_map<int, kvholder::RoleIdDescription> makeRoleMap(
    std::initializer_list<std::pair<int, int>> cameraRoles) {
    std::unordered_map<int, kvholder::RoleIdDescription> map;
    for (const auto& cr : cameraRoles)
        map[cr.first] = kvholder::RoleIdDescription{cr.second, "", "", ""};
    return map;
}

}  // namespace kvhost

// The library's entry point, looked up by name with dlsym.
extern "C" __attribute__((visibility("default"))) adapter::AdapterInstance* GetInstance() {
    kvhost::record(kvhost::callOf(kvhost::AdapterOp::GetInstance));
    static kvhost::Instance instance;
    return kvhost::scriptCopy().instanceAvailable ? &instance : nullptr;
}
