// Host stand-in of the platform adapter library: the entry point, the
// instance and the holder, answering from one process-wide script and
// recording the calls it receives while a recorder is alive.
#include "kvhost/Adapter.h"

#include <memory>
#include <mutex>

#include "PlatformAdapter.h"

namespace kvhost {
namespace {

struct State {
    std::mutex mutex;
    AdapterScript script;
    // Live recorders; calls are kept only while there is one.
    int recorders = 0;
    std::vector<AdapterCall> calls;
};

State& state() {
    static State s;
    return s;
}

// What `read` takes out of the script, under the lock; the holder's
// answers copy only the part they hand out.
template <typename Read>
auto fromScript(Read read) {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return read(s.script);
}

// Keeps one call while a recorder is alive; otherwise nothing is built.
void record(AdapterOp op, const char* key = nullptr, int arg1 = 0, int arg2 = 0,
            const adapter::ShiftData* shift = nullptr, int tolerance = 0) {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (s.recorders == 0) return;
    try {
        AdapterCall c;
        c.op = op;
        c.keyIsNull = key == nullptr;
        if (key != nullptr) c.key = key;
        c.arg1 = arg1;
        c.arg2 = arg2;
        if (shift != nullptr) c.shift = *shift;
        c.tolerance = tolerance;
        s.calls.push_back(std::move(c));
    } catch (...) {
        // Out of memory: the call goes unrecorded, the caller is not disturbed.
    }
}

class Holder final : public adapter::PlatformInfoHolder {
public:
    ~Holder() = default;

    int enableGyro(const char* key, int a, int b) override {
        record(AdapterOp::EnableGyro, key, a, b);
        return fromScript([](const AdapterScript& a) { return a.gyroEnableResult; });
    }

    void disableGyro(const char* key, int a) override { record(AdapterOp::DisableGyro, key, a); }

    std::vector<adapter::GyroSample> getGyroData(const char* key, int query) override {
        record(AdapterOp::GetGyroData, key, query);
        return fromScript([](const AdapterScript& a) { return a.gyroSamples; });
    }

    std::unordered_map<int, kvholder::RoleIdDescription> getRoleIdDescriptionMap() override {
        record(AdapterOp::GetRoleMap);
        return fromScript([](const AdapterScript& a) { return a.roleMap; });
    }

    bool getShift(adapter::ShiftData* shift, int tolerance) override {
        record(AdapterOp::GetShift, nullptr, 0, 0, shift, tolerance);
        if (shift == nullptr) return false;
        return fromScript([shift](const AdapterScript& a) {
            if (!a.shiftFound) return false;
            shift->shiftX = a.shiftX;
            shift->shiftY = a.shiftY;
            shift->isIsz = a.shiftIsIsz;
            return true;
        });
    }
};

class Instance final : public adapter::AdapterInstance {
public:
    ~Instance() = default;

    void init() override { record(AdapterOp::Init); }

    std::shared_ptr<adapter::PlatformInfoHolder> getPlatformInfoHolder() override {
        record(AdapterOp::GetHolder);
        if (!fromScript([](const AdapterScript& a) { return a.holderAvailable; })) return nullptr;
        // One holder for the process, as a device's adapter keeps one: handing
        // it out costs a reference count, not an allocation on every call.
        static const std::shared_ptr<Holder> holder = std::make_shared<Holder>();
        return holder;
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
    return fromScript([](const AdapterScript& a) { return a; });
}

AdapterRecorder::AdapterRecorder() {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (s.recorders++ == 0) s.calls.clear();
}

AdapterRecorder::~AdapterRecorder() {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (--s.recorders == 0) {
        s.calls.clear();
        s.calls.shrink_to_fit();
    }
}

std::vector<AdapterCall> AdapterRecorder::calls() const {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.calls;
}

std::vector<AdapterCall> AdapterRecorder::calls(AdapterOp op) const {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    std::vector<AdapterCall> out;
    for (const AdapterCall& c : s.calls) {
        if (c.op == op) out.push_back(c);
    }
    return out;
}

void AdapterRecorder::clear() {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.calls.clear();
}

size_t retainedAdapterCalls() {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.calls.size();
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
    kvhost::record(kvhost::AdapterOp::GetInstance);
    static kvhost::Instance instance;
    const bool available =
        kvhost::fromScript([](const kvhost::AdapterScript& a) { return a.instanceAvailable; });
    return available ? &instance : nullptr;
}
