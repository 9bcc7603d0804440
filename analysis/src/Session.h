// A session's recorded tags as numbers, frame by frame and side by side,
// filled from the sequence's changes (Sequence::changes) without building a
// frame: what the checks and the rules read.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "kvhost/Capture.h"

namespace kvanalysis {

// An allocator whose resize() leaves new numbers unwritten: a track writes
// every one of its frames and values once, and the zeros before would be
// a second pass over megabytes.
template <typename T>
struct Unwritten : std::allocator<T> {
    template <typename U>
    struct rebind {
        using other = Unwritten<U>;
    };
    Unwritten() = default;
    template <typename U>
    Unwritten(const Unwritten<U>&) {}
    template <typename U>
    void construct(U* p) noexcept {
        ::new (static_cast<void*>(p)) U;
    }
    template <typename U, typename... Args>
    void construct(U* p, Args&&... args) {
        ::new (static_cast<void*>(p)) U(std::forward<Args>(args)...);
    }
};

// A tag's values over the frames. Absent values are NaN; a tag that is not
// recorded holds none. Each side keeps its changes' values once and, per
// frame, which change holds there. The accessors are read on every frame
// by every check: always inlined.
struct Track {
    static constexpr size_t kMaxWidth = 8;         // elements kept of each value
    static constexpr uint32_t kNone = UINT32_MAX;  // no change yet

    const kvhost::TagInfo* info = nullptr;
    bool recorded = false;
    int64_t firstFrame = 0;  // the frame number of its first event
    size_t width = 1;
    // [side][frame]: the change holding, request 0, result 1
    std::vector<uint32_t, Unwritten<uint32_t>> held[2];
    std::vector<double, Unwritten<double>> values[2];  // [side][change * width + k]

    // Element k of side `side` (0 request, 1 result) on frame i.
    [[gnu::always_inline]] double at(int side, size_t i, size_t k = 0) const {
        if (k >= width || i >= held[side].size()) return NAN;
        const uint32_t c = held[side][i];
        return c == kNone ? NAN : values[side][c * width + k];
    }
    // The change side `side` holds on frame i; kNone before its first.
    [[gnu::always_inline]] uint32_t heldAt(int side, size_t i) const {
        return i < held[side].size() ? held[side][i] : kNone;
    }
    // Whether the log set side `side` at all.
    bool sets(int side) const { return !held[side].empty(); }
    // The frame rule: the result's value where it has one, else the request's.
    [[gnu::always_inline]] double value(size_t i, size_t k = 0) const {
        const double r = at(1, i, k);
        return std::isnan(r) ? at(0, i, k) : r;
    }
    // Whether the log set side `side` on frame i.
    [[gnu::always_inline]] bool changedOn(int side, size_t i) const {
        if (i >= held[side].size()) return false;
        const uint32_t c = held[side][i];
        return c != kNone && (i == 0 || held[side][i - 1] != c);
    }
    [[gnu::always_inline]] bool changed(size_t i) const {
        return changedOn(0, i) || changedOn(1, i);
    }
    // The values side `side` holds on frames first to last, each change's
    // once: each(const double* value), `width` elements.
    template <typename Each>
    void eachHeld(int side, size_t first, size_t last, Each each) const {
        if (last >= held[side].size() || first > last) return;
        const uint32_t to = held[side][last];
        if (to == kNone) return;
        // Changes are in frame order: frames hold ever later ones.
        const uint32_t from = held[side][first] == kNone ? 0 : held[side][first];
        for (uint32_t c = from; c <= to; ++c) each(&values[side][c * width]);
    }
};

class Session {
public:
    explicit Session(const kvhost::Sequence& sequence);

    const kvhost::Sequence& sequence() const { return sequence_; }
    size_t frames() const { return frames_.size(); }
    int64_t number(size_t i) const { return frames_[i].number; }
    int64_t timestamp(size_t i) const { return frames_[i].timestamp; }
    // Whether the frame numbers rise from each frame to the next (one file,
    // or files in order).
    bool ascending() const { return ascending_; }
    // The track of a tag, built when first asked; null for a name the tag
    // table does not know. A tag that is not recorded has a track of NaNs.
    const Track* track(const std::string& name) const;
    // The same for a name that lives as long as the session (the checks'
    // constants), found again by its address.
    const Track* track(const char* name) const;
    bool recorded(const std::string& name) const;
    const std::vector<kvhost::RecordedTag>& recordedTags() const { return recorded_; }

    // An entry of the static metadata of the session's camera, as numbers;
    // empty when absent.
    std::vector<double> staticValue(const char* name) const;
    // The first element of a tag as frame 0 holds it (for a tag not
    // recorded, the dump blocks' value); NaN when absent.
    double blockValue(const char* name) const;  // `name` as for track(const char*)

private:
    const kvhost::Capture* firstFrame() const;
    // The session's entry for a tag; null when it did not record it.
    const kvhost::RecordedTag* recordedTag(const kvhost::TagInfo* info) const;

    const kvhost::Sequence& sequence_;
    std::vector<kvhost::FrameInfo> frames_;
    bool ascending_ = true;
    std::vector<kvhost::RecordedTag> recorded_;
    mutable std::map<std::string, std::unique_ptr<Track>> tracks_;
    mutable std::optional<kvhost::Capture> first_;  // frame 0, for its static metadata
    mutable std::unordered_map<const char*, const Track*> byAddress_;
    mutable std::unordered_map<const char*, double> blockValues_;
};

// The `count` elements of a payload as numbers: integers and floats as they
// are, a rational as its quotient; into out[0, count).
void numbersOf(kvhost::TagType type, const uint8_t* data, size_t count, double* out);

}  // namespace kvanalysis
