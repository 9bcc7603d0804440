#include "Session.h"

#include <algorithm>
#include <cstring>
#include <mutex>

#include "kvanalysis/Checks.h"

namespace kvanalysis {

void numbersOf(kvhost::TagType type, const uint8_t* data, size_t count, std::vector<double>& out) {
    out.clear();
    out.reserve(count);
    const auto each = [&](auto sample) {
        using T = decltype(sample);
        for (size_t k = 0; k < count; ++k) {
            T v{};
            std::memcpy(&v, data + k * sizeof(T), sizeof(T));
            out.push_back(static_cast<double>(v));
        }
    };
    switch (type) {
        case kvhost::TagType::Byte:
            each(uint8_t{});
            break;
        case kvhost::TagType::Int32:
            each(int32_t{});
            break;
        case kvhost::TagType::Float:
            each(float{});
            break;
        case kvhost::TagType::Int64:
            each(int64_t{});
            break;
        case kvhost::TagType::Double:
            each(double{});
            break;
        case kvhost::TagType::Rational:
            for (size_t k = 0; k < count; ++k) {
                int32_t r[2];
                std::memcpy(r, data + k * sizeof r, sizeof r);
                out.push_back(r[1] != 0 ? static_cast<double>(r[0]) / r[1] : NAN);
            }
            break;
    }
}

Session::Session(const kvhost::Sequence& sequence)
    : sequence_(sequence), recorded_(sequence.recordedTags()) {
    const size_t n = sequence.frameCount();
    numbers_.reserve(n);
    timestamps_.reserve(n);
    for (size_t i = 0; i < n; ++i) {
        const kvhost::FrameInfo f = sequence.info(i);
        numbers_.push_back(f.number);
        timestamps_.push_back(f.timestamp);
    }
}

const Track* Session::track(const char* name) const {
    const auto known = byAddress_.find(name);
    if (known != byAddress_.end()) return known->second;
    return byAddress_[name] = track(std::string(name));
}

bool Session::recorded(const std::string& name) const {
    const Track* t = track(name);
    return t != nullptr && t->recorded;
}

const Track* Session::track(const std::string& name) const {
    std::unique_ptr<Track>& slot = tracks_[name];
    if (slot) return slot.get();
    const kvhost::TagInfo* info = kvhost::findTag(name.c_str());
    if (info == nullptr) return nullptr;
    auto t = std::make_unique<Track>();
    t->info = info;
    for (const kvhost::RecordedTag& r : recorded_) {
        if (r.id == info->id) {
            t->recorded = true;
            t->firstFrame = r.firstFrame;
        }
    }
    if (!t->recorded) {
        slot = std::move(t);
        return slot.get();
    }
    const size_t n = frames();
    const std::vector<kvhost::TagChange> changes = sequence_.changes(info->id);
    size_t count[2] = {0, 0};
    for (const kvhost::TagChange& c : changes) {
        if (c.frame >= n) continue;
        ++count[c.result ? 1 : 0];
        if (!c.removed) t->width = std::max(t->width, std::min<size_t>(c.count, Track::kMaxWidth));
    }
    const size_t w = t->width;
    for (int side = 0; side < 2; ++side) {
        // A side the log never set holds nothing.
        if (count[side] != 0) t->held[side].assign(n, Track::kNone);
        t->values[side].reserve(count[side] * w);
    }
    // Each change holds from its frame until the next one of its side.
    size_t from[2] = {0, 0};
    const auto hold = [&](int side, size_t until) {
        if (t->values[side].empty()) return;
        const auto change = static_cast<uint32_t>(t->values[side].size() / w - 1);
        std::fill(t->held[side].begin() + static_cast<std::ptrdiff_t>(from[side]),
                  t->held[side].begin() + static_cast<std::ptrdiff_t>(until), change);
    };
    std::vector<double> numbers;  // its storage reused: no allocation per change
    for (const kvhost::TagChange& c : changes) {
        const int side = c.result ? 1 : 0;
        if (c.frame >= n) continue;
        hold(side, c.frame);
        from[side] = c.frame;
        numbers.clear();
        if (!c.removed) {
            numbersOf(c.type, c.bytes, std::min<size_t>(c.count, Track::kMaxWidth), numbers);
        }
        numbers.resize(w, NAN);
        t->values[side].insert(t->values[side].end(), numbers.begin(), numbers.end());
    }
    hold(0, n);
    hold(1, n);
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
    std::vector<double> out;
    numbersOf(static_cast<kvhost::TagType>(e.type), e.data.u8, e.count, out);
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
    std::vector<double> numbers;
    numbersOf(static_cast<kvhost::TagType>(e.type), e.data.u8, 1, numbers);
    return value = numbers[0];
}

}  // namespace kvanalysis
