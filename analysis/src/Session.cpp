#include "Session.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <type_traits>

#include "kvanalysis/Checks.h"

namespace kvanalysis {

namespace {

struct Rational {
    int32_t numerator, denominator;
};

// Element k of a payload of T as a number: a rational as its quotient.
template <typename T>
double numberAt(const uint8_t* data, size_t k) {
    T v{};
    std::memcpy(&v, data + k * sizeof(T), sizeof(T));
    if constexpr (std::is_same_v<T, Rational>) {
        return v.denominator != 0 ? static_cast<double>(v.numerator) / v.denominator : NAN;
    } else {
        return static_cast<double>(v);
    }
}

// each(T{}) with the element type of `type`.
template <typename Each>
void byType(kvhost::TagType type, Each each) {
    switch (type) {
        case kvhost::TagType::Byte:
            return each(uint8_t{});
        case kvhost::TagType::Int32:
            return each(int32_t{});
        case kvhost::TagType::Float:
            return each(float{});
        case kvhost::TagType::Int64:
            return each(int64_t{});
        case kvhost::TagType::Double:
            return each(double{});
        case kvhost::TagType::Rational:
            return each(Rational{});
    }
}

// The changes' values, `width` numbers each (NaN past a change's own): the
// type chosen once for each run of changes of one type, not once a change.
void valuesOf(const std::vector<kvhost::TagChange>& changes, size_t width, double* out) {
    for (size_t k = 0; k < changes.size();) {
        const kvhost::TagType type = changes[k].type;
        byType(type, [&](auto sample) {
            using T = decltype(sample);
            for (; k < changes.size() && (changes[k].removed || changes[k].type == type); ++k) {
                const kvhost::TagChange& c = changes[k];
                double* v = out + k * width;
                const size_t m = c.removed ? 0 : std::min<size_t>(c.count, width);
                for (size_t e = 0; e < m; ++e) v[e] = numberAt<T>(c.bytes, e);
                std::fill(v + m, v + width, NAN);
            }
        });
    }
}

}  // namespace

void numbersOf(kvhost::TagType type, const uint8_t* data, size_t count, double* out) {
    byType(type, [&](auto sample) {
        using T = decltype(sample);
        for (size_t k = 0; k < count; ++k) out[k] = numberAt<T>(data, k);
    });
}

Session::Session(const kvhost::Sequence& sequence)
    : sequence_(sequence), frames_(sequence.infos()), recorded_(sequence.recordedTags()) {
    for (size_t i = 1; i < frames_.size() && ascending_; ++i) {
        ascending_ = frames_[i].number > frames_[i - 1].number;
    }
}

const Track* Session::track(const char* name) const {
    const auto known = byAddress_.find(name);
    if (known != byAddress_.end()) return known->second;
    return byAddress_[name] = track(std::string(name));
}

const kvhost::RecordedTag* Session::recordedTag(const kvhost::TagInfo* info) const {
    if (info == nullptr) return nullptr;
    const auto r = std::find_if(recorded_.begin(), recorded_.end(),
                                [&](const kvhost::RecordedTag& t) { return t.id == info->id; });
    return r == recorded_.end() ? nullptr : &*r;
}

bool Session::recorded(const std::string& name) const {
    // From the list: a check that cannot run builds no track.
    return recordedTag(kvhost::findTag(name.c_str())) != nullptr;
}

const Track* Session::track(const std::string& name) const {
    std::unique_ptr<Track>& slot = tracks_[name];
    if (slot) return slot.get();
    const kvhost::TagInfo* info = kvhost::findTag(name.c_str());
    if (info == nullptr) return nullptr;
    auto t = std::make_unique<Track>();
    t->info = info;
    const kvhost::RecordedTag* r = recordedTag(info);
    t->recorded = r != nullptr;
    if (!t->recorded) {
        slot = std::move(t);
        return slot.get();
    }
    t->firstFrame = r->firstFrame;
    const size_t n = frames();
    std::vector<kvhost::TagChange> sides[2] = {sequence_.changes(info->id, false),
                                               sequence_.changes(info->id, true)};
    for (std::vector<kvhost::TagChange>& changes : sides) {
        // In frame order: those past the frames (none that a reader makes) go.
        while (!changes.empty() && changes.back().frame >= n) changes.pop_back();
        for (const kvhost::TagChange& c : changes) {
            if (!c.removed) {
                t->width = std::max(t->width, std::min<size_t>(c.count, Track::kMaxWidth));
            }
        }
    }
    const size_t w = t->width;
    for (int side = 0; side < 2; ++side) {
        const std::vector<kvhost::TagChange>& changes = sides[side];
        // A side the log never set holds nothing.
        if (changes.empty()) continue;
        // Each change holds from its frame until the next one.
        auto& held = t->held[side];
        held.resize(n);
        std::fill(held.begin(), held.begin() + static_cast<std::ptrdiff_t>(changes[0].frame),
                  Track::kNone);
        for (size_t k = 0; k < changes.size(); ++k) {
            const size_t until = k + 1 < changes.size() ? changes[k + 1].frame : n;
            std::fill(held.begin() + static_cast<std::ptrdiff_t>(changes[k].frame),
                      held.begin() + static_cast<std::ptrdiff_t>(until), static_cast<uint32_t>(k));
        }
        t->values[side].resize(changes.size() * w);
        valuesOf(changes, w, t->values[side].data());
    }
    slot = std::move(t);
    return slot.get();
}

const kvhost::Capture* Session::firstFrame() const {
    if (!first_ && frames() > 0) {
        const std::lock_guard<std::mutex> lock(standInLock());
        kvhost::LoadResult f = sequence_.frame(0);
        if (f) first_ = std::move(*f.capture);
    }
    return first_ ? &*first_ : nullptr;
}

std::vector<double> Session::staticValue(const char* name) const {
    const kvhost::Capture* first = firstFrame();
    const kvhost::TagInfo* info = kvhost::findTag(name);
    if (first == nullptr || info == nullptr) return {};
    const std::shared_ptr<kvhost::Metadata> statics = first->staticOf(first->cameraId);
    if (!statics) return {};
    const camera_metadata_ro_entry_t e = statics->find(info->id);
    if (e.count == 0 || e.data.u8 == nullptr) return {};
    std::vector<double> out(e.count);
    numbersOf(static_cast<kvhost::TagType>(e.type), e.data.u8, e.count, out.data());
    return out;
}

double Session::blockValue(const char* name) const {
    const auto known = blockValues_.find(name);
    if (known != blockValues_.end()) return known->second;
    double& value = blockValues_[name];
    value = NAN;
    const kvhost::Capture* first = firstFrame();
    const kvhost::TagInfo* info = kvhost::findTag(name);
    if (first == nullptr || info == nullptr || !first->frame) return NAN;
    const camera_metadata_ro_entry_t e = first->frame->find(info->id);
    if (e.count == 0 || e.data.u8 == nullptr) return NAN;
    numbersOf(static_cast<kvhost::TagType>(e.type), e.data.u8, 1, &value);
    return value;
}

}  // namespace kvanalysis
