// The bodies of the built-in checks. Each reasons on frame numbers (the
// log holds only frames where something changed), on the tags' values as
// the frame rule gives them, and holds a finding back where the log does
// not show enough: a false alarm costs more than a miss.
#include <algorithm>
#include <cmath>
#include <optional>
#include <tuple>

#include "Engine.h"
#include "Tags.h"

namespace kvanalysis {
namespace {

using namespace tag;
using Values = std::vector<std::pair<std::string, std::string>>;

// The tests of a frame's values below are made on every frame by most
// checks: always inlined.

[[gnu::always_inline]] inline bool is(double v, int value) {
    return !std::isnan(v) && static_cast<int>(v) == value;
}

// The request side of `t` was set anew to `value` on frame i.
[[gnu::always_inline]] inline bool requested(const Track* t, size_t i, int value) {
    return t != nullptr && t->changedOn(0, i) && is(t->at(0, i), value);
}

// Any of the request sides of `tracks` (Context::recordedOf) was set anew on frame i.
[[gnu::always_inline]] inline bool requestChanged(const std::vector<const Track*>& tracks,
                                                  size_t i) {
    for (const Track* t : tracks) {
        if (t->changedOn(0, i)) return true;
    }
    return false;
}

std::string frameText(const Context& c, size_t i) {
    return "frame " + std::to_string(c.s.number(i));
}

// Frames where a condition holds, each stretch one finding, described by
// its first frame. A stretch is consecutive frames, or with `gap`, frames
// at most `gap` frame numbers apart: a fault that comes and goes within the
// pipeline's latency is one finding, which says on how many of its frames
// the condition held.
class Stretches {
public:
    explicit Stretches(Context& c, double gap = 0) : c_(c), gap_(gap) {}
    ~Stretches() { close(); }
    // `describe()` gives a stretch's message and values, asked only for
    // the first frame of a stretch.
    template <typename Describe>
    void add(size_t i, Describe describe) {
        if (open_ && (i == last_ + 1 || c_.within(last_, i, gap_))) {
            last_ = i;
            ++held_;
            return;
        }
        close();
        open_ = true;
        first_ = last_ = i;
        held_ = 1;
        std::tie(message_, values_) = describe();
    }
    void close() {
        if (!open_) return;
        open_ = false;
        const size_t frames = last_ - first_ + 1;
        if (held_ < frames) {
            message_ +=
                " (on " + std::to_string(held_) + " of its " + std::to_string(frames) + " frames)";
        }
        c_.find(first_, last_, std::move(message_), std::move(values_));
    }

private:
    Context& c_;
    double gap_;
    bool open_ = false;
    size_t first_ = 0, last_ = 0, held_ = 0;
    std::string message_;
    Values values_;
};

// Events (frame indexes) in a sliding window of frame numbers: more than
// `allowed` of them within `window` frames is one finding over them,
// windows that overlap merged.
void crowded(Context& c, const std::vector<size_t>& events, double allowed, double window,
             std::string_view what) {
    // Called at every change of settings: most calls have nothing to judge.
    if (static_cast<double>(events.size()) <= allowed) return;
    size_t from = 0;
    std::optional<std::pair<size_t, size_t>> open;  // event positions
    const auto flush = [&] {
        if (!open) return;
        const size_t n = open->second - open->first + 1;
        c.find(
            events[open->first], events[open->second],
            cat(n, " ", what, " in ",
                c.s.number(events[open->second]) - c.s.number(events[open->first]) + 1, " frames"),
            {{"count", std::to_string(n)}});
        open.reset();
    };
    for (size_t k = 0; k < events.size(); ++k) {
        while (!c.within(events[from], events[k], window - 1)) ++from;
        if (static_cast<double>(k - from + 1) > allowed) {
            if (open && from <= open->second) {
                open->second = k;
            } else {
                flush();
                open.emplace(from, k);
            }
        }
    }
    flush();
}

// ---- AE ---------------------------------------------------------------------------

bool converged(double state) {
    return is(state, ae::kConverged) || is(state, ae::kFlashRequired) || is(state, ae::kLocked);
}

void aeConverge(Context& c) {
    const Track* state = c.recorded(kAeState);
    const Track* trigger = c.recorded(kAePrecapture);
    const Context::Sampled aeMode = c.context(kAeMode);
    const std::vector<const Track*> settings =
        c.recordedOf({kAeMode, kAeLock, kAeCompensation, kAeFps, kAeRegions});
    const double limit = c.param("frames");
    const double precapture = c.param("precapture-frames");
    std::optional<size_t> start;    // of the stretch not converged
    std::optional<size_t> trigged;  // a precapture trigger within it
    bool working = false;           // SEARCHING or PRECAPTURE seen in it
    // The stretch ends on frame `end`: converged on the frame after it when
    // `converged`, else cut (by the log, AE off or new settings).
    const auto judge = [&](size_t end, bool converged) {
        if (!start || !working) return;
        const bool late = !c.within(*start, end, limit);
        const bool lateAfterTrigger = trigged && !c.within(*trigged, end, precapture);
        if (!late && !lateAfterTrigger) {
            if (converged) c.judged();
            return;
        }
        const size_t from = late ? *start : *trigged;
        const double n = static_cast<double>(c.s.number(end) - c.s.number(from) + 1);
        c.find(from, end,
               cat("aeState not CONVERGED, FLASH_REQUIRED or LOCKED ",
                   converged ? "for " : "for at least ", n, " frames",
                   late ? "" : " after a precapture trigger", " (at most ",
                   late ? limit : precapture, ")"),
               {{"aeState", valueText(state, state->value(end))}});
    };
    const auto cut = [&](size_t i) {
        if (start && i > 0) judge(i - 1, false);
        start.reset();
    };
    // Values are read again only on the frames that change them.
    double v = NAN;
    bool off = false;  // AE mode OFF
    for (size_t i = 0; i < c.s.frames(); ++i) {
        if (i == 0 || state->changed(i)) v = state->value(i);
        if (i == 0 || aeMode.changed(i)) off = is(aeMode.at(i), ae::kModeOff);
        if (std::isnan(v) || off) {
            cut(i);
            continue;
        }
        if (converged(v)) {
            if (start && i > 0) judge(i - 1, true);
            start.reset();
            continue;
        }
        if (start && requestChanged(settings, i)) cut(i);
        if (!start) {
            start = i;
            trigged.reset();
            working = false;
        }
        if (requested(trigger, i, trigger::kStart)) trigged = i;
        working = working || is(v, ae::kSearching) || is(v, ae::kPrecapture);
    }
    // The log ends inside a stretch: a finding only if it is already too long.
    if (start) judge(c.s.frames() - 1, false);
    c.nothingToJudge("aeState never left CONVERGED in the log, or never converged within it");
}

void aePrecapture(Context& c) {
    const Track* state = c.recorded(kAeState);
    const Track* trigger = c.recorded(kAePrecapture);
    const Context::Sampled aeMode = c.context(kAeMode);
    const double limit = c.param("frames");
    const double after = c.param("after");
    const size_t n = c.s.frames();
    size_t triggers = 0;
    for (size_t t = 0; t < n; ++t) {
        if (!requested(trigger, t, trigger::kStart)) continue;
        if (is(aeMode.at(t), ae::kModeOff)) continue;
        ++triggers;
        bool seen = false;  // PRECAPTURE seen
        std::optional<size_t> done;
        bool ended = false;
        size_t j = t;
        for (; j < n && c.within(t, j, limit); ++j) {
            if (j > t && (requested(trigger, j, trigger::kStart) ||
                          requested(trigger, j, trigger::kCancel))) {
                ended = true;  // a new trigger or a cancel ends this sequence
                break;
            }
            const double v = state->value(j);
            if (is(v, ae::kPrecapture)) {
                seen = true;
            } else if (seen && !std::isnan(v)) {
                if (is(v, ae::kConverged) || is(v, ae::kFlashRequired)) {
                    done = j;
                } else {
                    c.find(t, j, "aeState left PRECAPTURE for " + valueText(state, v),
                           {{"aeState", valueText(state, v)}, {"trigger", frameText(c, t)}});
                }
                break;
            }
        }
        if (ended) continue;
        if (!done) {
            if (seen && j < n && is(state->value(j - 1), ae::kPrecapture) &&
                c.logGoesPast(t, limit)) {
                c.find(t, j - 1,
                       cat("the precapture sequence did not complete within ", limit, " frames"),
                       {{"aeState", "PRECAPTURE"}, {"trigger", frameText(c, t)}});
            }
            continue;
        }
        // Complete: not PRECAPTURE again soon without a new trigger.
        bool again = false;
        for (size_t k = *done + 1; k < n && c.within(*done, k, after); ++k) {
            if (requested(trigger, k, trigger::kStart)) break;
            if (is(state->value(k), ae::kPrecapture)) {
                c.find(*done, k,
                       "aeState PRECAPTURE again " +
                           std::to_string(c.s.number(k) - c.s.number(*done)) +
                           " frames after the sequence completed",
                       {{"aeState", "PRECAPTURE"}, {"trigger", frameText(c, t)}});
                again = true;
                break;
            }
        }
        if (!again && c.logGoesPast(*done, after)) c.judged();
    }
    c.nothingToJudge(triggers ? "every precapture sequence runs past the end of the log"
                              : "no precapture trigger START in the log");
}

void aeLock(Context& c) {
    const Track* lock = c.recorded(kAeLock);
    const Track* state = c.recorded(kAeState);
    const Track* exposure[] = {c.recorded(kExposureTime), c.recorded(kSensitivity)};
    if (state == nullptr && exposure[0] == nullptr && exposure[1] == nullptr) {
        c.nothingToJudge(std::string("needs ") + kAeState + ", " + kExposureTime + " or " +
                         kSensitivity + " recorded as well (add to -m)");
        return;
    }
    const Context::Sampled aeMode = c.context(kAeMode);
    const double settle = c.param("settle");
    const size_t n = c.s.frames();
    for (size_t i = 0; i < n; ++i) {
        if (!is(lock->value(i), 1) || (i > 0 && is(lock->value(i - 1), 1))) continue;
        // A lock from frame i; it began before the log when i is the first
        // frame that knows the lock.
        const bool known = i > 0 && !std::isnan(lock->value(i - 1));
        size_t end = i;
        while (end + 1 < n && is(lock->value(end + 1), 1)) ++end;
        if (!c.logGoesPast(i, settle) || c.within(i, end, settle)) continue;
        if (is(aeMode.at(i), ae::kModeOff)) continue;
        Stretches unlocked(c);
        for (size_t j = i; j <= end; ++j) {
            if (c.within(i, j, settle) && known) continue;
            const double v = state ? state->value(j) : NAN;
            if (state && !std::isnan(v) && !is(v, ae::kLocked) && known) {
                unlocked.add(j, [&] {
                    return std::make_pair(
                        std::string("aeState " + valueText(state, v) +
                                    " while AE is locked since " + frameText(c, i)),
                        Values{{"aeState", valueText(state, v)}, {"aeLock", "1 ON"}});
                });
            }
            for (const Track* e : exposure) {
                if (e == nullptr || j == i || !e->changedOn(1, j)) continue;
                const double before = e->at(1, j - 1);
                const double now = e->at(1, j);
                if (std::isnan(before) || std::isnan(now) || before == now) continue;
                c.find(j, j,
                       cat(e->info->name, " changed from ", before, " to ", now,
                           " while AE is locked since ", frameText(c, i)),
                       {{e->info->name, numberText(now)}, {"before", numberText(before)}});
            }
        }
        c.judged();
    }
    c.nothingToJudge(cat("no AE lock held longer than ", settle, " frames in the log"));
}

void aeOscillation(Context& c) {
    const Track* sensitivity = c.recorded(kSensitivity);
    const Track* exposure = c.recorded(kExposureTime);
    const Track* state = c.recorded(kAeState);
    const bool product = sensitivity != nullptr && exposure != nullptr;
    if (!product && state == nullptr) {
        c.nothingToJudge(std::string("needs ") + kSensitivity + " and " + kExposureTime + ", or " +
                         kAeState + ", recorded (add to -m)");
        return;
    }
    const Context::Sampled aeLock = c.context(kAeLock), aeMode = c.context(kAeMode);
    const std::vector<const Track*> settings =
        c.recordedOf({kAeMode, kAeLock, kAeCompensation, kAeFps, kAeRegions, kAePrecapture});
    const double step = c.param("step");
    const double allowed = c.param("reversals");
    const double window = c.param("window");
    const size_t n = c.s.frames();
    std::vector<size_t> reversals, researches;
    double anchor = NAN;
    int direction = 0;
    size_t seen = 0;
    const auto check = [&] {
        crowded(c, reversals, allowed, window, "reversals of exposure");
        crowded(c, researches, allowed, window, "returns from CONVERGED to SEARCHING");
        reversals.clear();
        researches.clear();
    };
    // Values are read again only on the frames that change them.
    bool locked = false;
    uint32_t exposureFrom[2] = {Track::kNone, Track::kNone};  // the changes e was made of
    bool exposed = false;                                     // e was a positive number
    for (size_t i = 0; i < n; ++i) {
        if (i == 0 || aeLock.changed(i) || aeMode.changed(i)) {
            locked = is(aeLock.at(i), 1) || is(aeMode.at(i), 0);
        }
        if (locked || requestChanged(settings, i)) {
            check();
            anchor = NAN;
            direction = 0;
            if (locked) continue;
        }
        if (product) {
            const uint32_t from[2] = {sensitivity->heldAt(1, i), exposure->heldAt(1, i)};
            // The exposure of the frame before, from an anchor: it moved
            // past the step then, or not at all.
            const bool same =
                !std::isnan(anchor) && from[0] == exposureFrom[0] && from[1] == exposureFrom[1];
            std::copy(from, from + 2, exposureFrom);
            if (!same) {
                const double e = sensitivity->at(1, i) * exposure->at(1, i);
                exposed = !std::isnan(e) && e > 0;
                if (exposed) {
                    if (std::isnan(anchor)) {
                        anchor = e;
                    } else if (std::fabs(e - anchor) > step * anchor) {
                        const int d = e > anchor ? 1 : -1;
                        if (direction != 0 && d != direction) reversals.push_back(i);
                        direction = d;
                        anchor = e;
                    }
                }
            }
            if (exposed) ++seen;
        }
        if (state == nullptr) continue;
        if (i > 0 && state->changed(i) && is(state->value(i), ae::kSearching) &&
            is(state->value(i - 1), ae::kConverged)) {
            researches.push_back(i);
        }
        if (seen < 2 && !std::isnan(state->value(i))) ++seen;
    }
    check();
    if (seen > 1) c.judged();
}

// ---- AF -----------------------------------------------------------------------------

bool afLocked(double v) {
    return is(v, af::kFocusedLocked) || is(v, af::kNotFocusedLocked);
}

void afSequence(Context& c) {
    const Track* state = c.recorded(kAfState);
    const Track* trigger = c.recorded(kAfTrigger);
    const Track* mode = c.recorded(kAfMode);
    const Context::Sampled afMode = c.context(kAfMode);
    const double limit = c.param("frames");
    const size_t n = c.s.frames();
    size_t triggers = 0;
    for (size_t t = 0; t < n; ++t) {
        if (!requested(trigger, t, trigger::kStart)) continue;
        const double m = afMode.at(t);
        if (is(m, af::kModeOff) || is(m, af::kEdof)) continue;
        ++triggers;
        const auto ends = [&](size_t j) {
            return j > t && (requested(trigger, j, trigger::kStart) ||
                             requested(trigger, j, trigger::kCancel) ||
                             (mode != nullptr && mode->changedOn(0, j)));
        };
        std::optional<size_t> locked;
        bool ended = false;
        size_t j = t;
        for (; j < n && c.within(t, j, limit); ++j) {
            if (ends(j)) {
                ended = true;
                break;
            }
            if (afLocked(state->value(j))) {
                locked = j;
                break;
            }
        }
        if (ended) continue;
        if (!locked) {
            if (c.logGoesPast(t, limit)) {
                c.find(t, j - 1,
                       cat("afState reached neither FOCUSED_LOCKED nor NOT_FOCUSED_LOCKED within ",
                           limit, " frames of the trigger"),
                       {{"afState", valueText(state, state->value(j - 1))}});
            }
            continue;
        }
        // The lock holds until a cancel, a new trigger or a mode change.
        bool lost = false;
        for (size_t k = *locked + 1; k < n && !ends(k); ++k) {
            const double v = state->value(k);
            if (!std::isnan(v) && !afLocked(v)) {
                c.find(*locked, k,
                       "the AF lock was lost (afState " + valueText(state, v) +
                           ") without a cancel, a new trigger or a change of AF mode",
                       {{"afState", valueText(state, v)}, {"trigger", frameText(c, t)}});
                lost = true;
                break;
            }
        }
        if (!lost) c.judged();
    }
    c.nothingToJudge(triggers ? "every AF trigger runs past the end of the log"
                              : "no AF trigger START in the log");
}

void afHunting(Context& c) {
    const Track* state = c.recorded(kAfState);
    const Track* mode = c.recorded(kAfMode);
    const std::vector<const Track*> settings = c.recordedOf({kAfMode, kAfRegions, kAfTrigger});
    const double allowed = c.param("scans");
    const double window = c.param("window");
    const size_t n = c.s.frames();
    std::vector<size_t> scans;
    size_t seen = 0;
    const auto check = [&] {
        crowded(c, scans, allowed, window, "scans (afState PASSIVE_SCAN) of continuous AF");
        scans.clear();
    };
    // Values are read again only on the frames that change them.
    bool continuous = false;
    bool known = false;  // afState has a value
    for (size_t i = 0; i < n; ++i) {
        if (i == 0 || mode->changed(i)) {
            const double m = mode->value(i);
            continuous = is(m, af::kContinuousVideo) || is(m, af::kContinuousPicture);
        }
        const bool stateChanged = i == 0 || state->changed(i);
        if (stateChanged) known = !std::isnan(state->value(i));
        if (!continuous || requestChanged(settings, i)) check();
        if (!continuous) continue;
        if (stateChanged && i > 0 && is(state->value(i), af::kPassiveScan) &&
            !is(state->value(i - 1), af::kPassiveScan) && !std::isnan(state->value(i - 1))) {
            scans.push_back(i);
        }
        seen += known;
    }
    check();
    if (seen > 1) c.judged();
    c.nothingToJudge("no frame in a continuous AF mode with a known afState");
}

// ---- Zoom and crop ----------------------------------------------------------------

void zoom(Context& c) {
    const Track* ratio = c.recorded(kZoomRatio);
    const Track* crop = c.recorded(kCropRegion);
    const size_t n = c.s.frames();
    const double tolerance = c.param("ratio");
    const std::vector<double> depth = c.s.staticValue(kPipelineMaxDepth);
    const double latency = !depth.empty() && depth[0] > 0 ? depth[0] : c.param("latency");
    const bool requests = ratio->sets(0);

    // The result within `tolerance` of a request of the last `latency` frames.
    if (requests) {
        Stretches off(c, latency);
        size_t first = 0;  // of the frames within the window, when the numbers ascend
        // The changes of the last verdict: the result's, and the first and
        // last request of its window. A frame judged has a result: none
        // matches this start.
        uint32_t judgedFor[3] = {Track::kNone, Track::kNone, Track::kNone};
        bool near = false;
        bool known = false;
        for (size_t i = 0; i < n; ++i) {
            const double res = ratio->at(1, i);
            if (std::isnan(res)) continue;
            // Frame j's request holds until the next frame of the log: it is
            // in the window when that frame is. The requests of the window
            // are the changes held from its first frame to frame i.
            size_t from = i;
            if (c.s.ascending()) {
                while (first < i && !c.within(first, i, latency - 1)) ++first;
                from = !c.within(first, i, latency - 1) ? first : first > 0 ? first - 1 : 0;
            } else {
                while (from > 0 && c.within(from, i, latency - 1)) --from;
            }
            // The same result and requests as the last frame judged: the same verdict.
            const uint32_t changes[3] = {ratio->heldAt(1, i), ratio->heldAt(0, from),
                                         ratio->heldAt(0, i)};
            if (changes[0] != judgedFor[0] || changes[1] != judgedFor[1] ||
                changes[2] != judgedFor[2]) {
                std::copy(changes, changes + 3, judgedFor);
                near = known = false;
                ratio->eachHeld(0, from, i, [&](const double* v) {
                    if (std::isnan(v[0])) return;
                    known = true;
                    // Printed to eight decimals: a ratio on the bound is within it.
                    near = near || std::fabs(res - v[0]) <= tolerance * v[0] + 1e-6;
                });
            }
            if (!known) continue;
            c.judged();
            if (!near) {
                off.add(i, [&] {
                    return std::make_pair(
                        cat("result zoom ratio ", res, " is none of those requested in the last ",
                            latency, " frames (", ratio->at(0, i), " on this frame)"),
                        Values{{"result", numberText(res)},
                               {"request", numberText(ratio->at(0, i))}});
                });
            }
        }
        // Monotonic while the request is: a result step against the
        // request's direction within a run of steps one way.
        int direction = 0;
        std::optional<size_t> runEnd;  // the last request step of the run
        for (size_t i = 1; i < n; ++i) {
            // Only a frame that sets a side anew can step it.
            if (ratio->changedOn(0, i)) {
                const double a = ratio->at(0, i - 1), b = ratio->at(0, i);
                if (!std::isnan(a) && !std::isnan(b) && a != b) {
                    direction = b > a ? 1 : -1;
                    runEnd = i;
                }
            }
            if (runEnd && !c.within(*runEnd, i, latency)) direction = 0;
            if (direction == 0 || !ratio->changedOn(1, i)) continue;
            const double ra = ratio->at(1, i - 1), rb = ratio->at(1, i);
            if (!std::isnan(ra) && !std::isnan(rb) && (rb - ra) * direction < -tolerance / 5 * ra) {
                c.find(i, i,
                       cat("result zoom ratio went from ", ra, " to ", rb,
                           " while the request moved the other way"),
                       {{"result", numberText(rb)}, {"before", numberText(ra)}});
            }
        }
    }

    // The crop's size and centre for the result's zoom.
    const std::vector<double> active = c.s.staticValue(kActiveArray);
    if (crop == nullptr || active.size() < 4 || active[2] <= 0 || active[3] <= 0) {
        if (!requests) {
            c.nothingToJudge(crop == nullptr
                                 ? std::string("no zoom request in the log, and ") + kCropRegion +
                                       " is not recorded"
                                 : "no zoom request in the log, and no active array size in "
                                   "the static metadata to place the crop in");
        }
        return;
    }
    const double size = c.param("crop-size");
    const double centre = c.param("crop-centre");
    Stretches wrong(c, latency);
    // A verdict per pair of the result's zoom and crop: frames that hold
    // the same pair share it.
    struct Verdict {
        double z, l, t, w, h, dx, dy;
        bool judged, offSize, wrong;
    } v{};
    std::pair<uint32_t, uint32_t> held{Track::kNone, Track::kNone};
    for (size_t i = 0; i < n; ++i) {
        const std::pair<uint32_t, uint32_t> now{ratio->heldAt(1, i), crop->heldAt(1, i)};
        if (i == 0 || now != held) {
            held = now;
            v.z = ratio->at(1, i);
            v.l = crop->at(1, i, 0);
            v.t = crop->at(1, i, 1);
            v.w = crop->at(1, i, 2);
            v.h = crop->at(1, i, 3);
            v.judged = !(std::isnan(v.z) || v.z <= 0 || std::isnan(v.h) || v.w <= 0 || v.h <= 0);
            if (!v.judged) continue;
            const double scale = std::max(1.0, v.z);
            // Android's zoom ratio leaves the crop at the whole array; a crop
            // that zooms as well is the array over the ratio.
            const auto off = [&](double got, double whole) {
                return std::min(std::fabs(got / whole - 1), std::fabs(got * v.z / whole - 1)) >
                       size * scale;
            };
            v.dx = std::fabs(v.l + v.w / 2 - active[2] / 2);
            v.dy = std::fabs(v.t + v.h / 2 - active[3] / 2);
            v.offSize = off(v.w, active[2]) || off(v.h, active[3]);
            v.wrong = !(!v.offSize && v.dx <= centre * scale * active[2] &&
                        v.dy <= centre * scale * active[3]);
        }
        if (!v.judged) continue;
        c.judged();
        if (!v.wrong) continue;
        wrong.add(i, [&] {
            return std::make_pair(v.offSize
                                      ? cat("crop region ", v.w, "x", v.h, " does not fit zoom ",
                                            v.z, " (expected ", std::round(active[2] / v.z), "x",
                                            std::round(active[3] / v.z), " or the whole array)")
                                      : cat("crop region off centre by (", v.dx, ", ", v.dy, ")"),
                                  Values{{"zoomRatio", numberText(v.z)},
                                         {"cropRegion", cat(v.l, " ", v.t, " ", v.w, " ", v.h)}});
        });
    }
}

void finalCrop(Context& c) {
    const Track* ratio = c.recorded(kZoomRatio);
    const Track* policy = c.recorded(kPolicyCrop);
    const double jump = c.param("jump");
    const size_t n = c.s.frames();
    struct Crop {
        double left = NAN, top = NAN, width = NAN, height = NAN;
        std::string from;
        bool ok = false;
    };
    const auto cropOf = [&](size_t i) {
        Crop k;
        const GetterCall* call = c.getters.find(i, "GetFinalCropRegion");
        if (call == nullptr || call->result.value_or(-1) != 0) return k;
        const auto get = [&](const char* f) {
            const auto at = call->numbers.find(f);
            return at == call->numbers.end() ? NAN : at->second;
        };
        k.left = get("crop.left");
        k.top = get("crop.top");
        k.width = get("crop.width");
        k.height = get("crop.height");
        const auto from = call->words.find("stages.shift.from");
        if (from != call->words.end()) k.from = from->second;
        k.ok = k.width > 0 && k.height > 0;
        return k;
    };
    bool any = false;
    Crop before = cropOf(0);
    for (size_t i = 1; i < n; ++i) {
        const Crop now = cropOf(i);
        const double za = ratio->value(i - 1), zb = ratio->value(i);
        if (!before.ok || !now.ok || std::isnan(za) || std::isnan(zb)) {
            before = now;
            continue;
        }
        any = true;
        c.judged();
        const bool zoomSame = std::fabs(zb - za) <= 1e-6 * za;
        const bool policySame = !policy->changed(i);
        const double move = std::hypot(now.left + now.width / 2 - before.left - before.width / 2,
                                       now.top + now.height / 2 - before.top - before.height / 2);
        const Values values = {
            {"finalCrop", cat(now.left, " ", now.top, " ", now.width, " ", now.height)},
            {"zoomRatio", numberText(zb)},
            {"shift", now.from.empty() ? "unknown" : now.from}};
        if (zoomSame && policySame && now.from == before.from && move > jump * before.width) {
            c.find(i - 1, i,
                   cat("final crop's centre moved ", std::round(move),
                       " pixels with zoom, sensor-policy crop and shift source unchanged"),
                   values);
        }
        if (!zoomSame) {
            const double grow = now.width / before.width - 1;
            if ((zb > za && grow > jump) || (zb < za && grow < -jump)) {
                c.find(i - 1, i,
                       cat("final crop's width went from ", before.width, " to ", now.width,
                           " while the zoom went from ", za, " to ", zb),
                       values);
            }
        }
        const bool moving = !zoomSame || (i > 1 && std::fabs(za - ratio->value(i - 2)) > 1e-6 * za);
        if (moving && !before.from.empty() && !now.from.empty() && before.from != now.from) {
            c.find(i - 1, i,
                   "final crop's shift source changed from " + before.from + " to " + now.from +
                       " while the zoom moved",
                   values);
        }
        before = now;
    }
    if (!any) c.nothingToJudge("GetFinalCropRegion gave no crop on two frames in a row");
}

void getterFlaps(Context& c) {
    const size_t n = c.s.frames();
    std::vector<std::string> names;
    for (size_t i = 0; i < n; ++i) {
        for (const auto& call : c.getters.at(i)) {
            if (call->result &&
                std::find(names.begin(), names.end(), call->getter) == names.end()) {
                names.push_back(call->getter);
            }
        }
    }
    for (const std::string& name : names) {
        std::optional<int> first;
        bool flaps = false;
        for (size_t i = 0; i < n; ++i) {
            const GetterCall* call = c.getters.find(i, name);
            if (call == nullptr || !call->result) continue;
            if (!first) first = call->result;
            flaps = flaps || *call->result != *first;
        }
        if (!first) continue;
        c.judged();
        if (!flaps) continue;
        Stretches failing(c);
        for (size_t i = 0; i < n; ++i) {
            const GetterCall* call = c.getters.find(i, name);
            if (call == nullptr || !call->result || *call->result == 0) continue;
            failing.add(i, [&] {
                return std::make_pair(std::string(name + " gives " + std::to_string(*call->result) +
                                                  (call->found.empty() ? "" : ": " + call->found)),
                                      Values{{"result", std::to_string(*call->result)}});
            });
        }
    }
    if (names.empty()) c.nothingToJudge("no getter with a result code was run");
}

// ---- Flash and timestamps ------------------------------------------------------------

void flashFires(Context& c) {
    const Track* state = c.recorded(kFlashState);
    const Track* mode = c.recorded(kFlashMode);
    const Track* ae = c.recorded(kAeState);
    const Track* intent = c.recorded(kCaptureIntent);
    if (mode == nullptr && (ae == nullptr || intent == nullptr)) {
        c.nothingToJudge(std::string("needs ") + kFlashMode + ", or " + kAeState + " and " +
                         kCaptureIntent + ", recorded as well (add to -m)");
        return;
    }
    const Context::Sampled aeMode = c.context(kAeMode);
    const double torchFrames = c.param("torch-frames");
    const double readyFrames = c.param("ready-frames");
    const size_t n = c.s.frames();
    // After a flash: READY or PARTIAL again in time.
    const auto recovers = [&](size_t fired) {
        for (size_t k = fired + 1; k < n && c.within(fired, k, readyFrames); ++k) {
            const double v = state->value(k);
            if (is(v, flash::kReady) || is(v, flash::kPartial)) return;
            if (mode != nullptr &&
                (is(mode->at(0, k), flash::kTorch) || is(mode->at(0, k), flash::kSingle))) {
                return;
            }
        }
        if (!c.logGoesPast(fired, readyFrames)) return;
        c.find(
            fired, fired,
            cat("flash state not READY or PARTIAL within ", readyFrames, " frames after it fired"),
            {{"flash.state", valueText(state, state->value(fired))}});
    };
    for (size_t i = 0; i < n; ++i) {
        const double m = aeMode.at(i);
        const bool autoFlash =
            is(m, ae::kAutoFlash) || is(m, ae::kAutoFlashRedeye) || is(m, ae::kAlwaysFlash);
        const double v = state->value(i);
        if (mode != nullptr && !autoFlash && requested(mode, i, flash::kSingle) && !std::isnan(v)) {
            c.judged();
            if (!is(v, flash::kFired)) {
                c.find(i, i, "flash mode SINGLE but flash state " + valueText(state, v),
                       {{"flash.mode", "1 SINGLE"}, {"flash.state", valueText(state, v)}});
            } else {
                recovers(i);
            }
        }
        if (mode != nullptr && !autoFlash && requested(mode, i, flash::kTorch)) {
            bool fired = false;
            size_t k = i;
            for (; k < n && c.within(i, k, torchFrames) && is(mode->at(0, k), flash::kTorch); ++k) {
                fired = fired || is(state->value(k), flash::kFired);
            }
            const bool held = k < n && is(mode->at(0, k), flash::kTorch);
            if (fired) {
                c.judged();
            } else if (held) {
                c.find(i, k - 1,
                       cat("torch on but flash state not FIRED within ", torchFrames, " frames"),
                       {{"flash.mode", "2 TORCH"},
                        {"flash.state", valueText(state, state->value(k - 1))}});
            }
        }
        if (ae != nullptr && intent != nullptr && i > 0 && requested(intent, i, kStillCapture) &&
            is(ae->value(i - 1), ae::kFlashRequired) && (autoFlash || std::isnan(m)) &&
            !std::isnan(v)) {
            c.judged();
            if (!is(v, flash::kFired)) {
                c.find(i, i,
                       "aeState FLASH_REQUIRED, then a still capture with flash state " +
                           valueText(state, v),
                       {{"aeState", "4 FLASH_REQUIRED"}, {"flash.state", valueText(state, v)}});
            } else {
                recovers(i);
            }
        }
    }
    c.nothingToJudge("no flash asked for in the log");
}

void timestamps(Context& c) {
    const size_t n = c.s.frames();
    Stretches back(c);
    for (size_t i = 1; i < n; ++i) {
        // A frame number that does not grow starts another file of the session.
        if (c.s.number(i) <= c.s.number(i - 1)) continue;
        const int64_t a = c.s.timestamp(i - 1), b = c.s.timestamp(i);
        if (a == 0 || b == 0) continue;
        c.judged();
        if (b <= a) {
            back.add(i, [&] {
                return std::make_pair(
                    std::string("sensor timestamp " + std::to_string(b) + " ns does not follow " +
                                std::to_string(a) + " ns of the frame before"),
                    Values{{"timestamp", std::to_string(b)}, {"before", std::to_string(a)}});
            });
        }
    }
    back.close();
    // Drops: with a tag that changes on every frame, every frame is in the
    // log, and an interval much longer than the usual is a frame missing.
    const std::vector<kvhost::RecordedTag>& tags = c.s.recordedTags();
    const bool everyFrame = n >= 10 && std::any_of(tags.begin(), tags.end(), [&](const auto& r) {
                                return r.resultFrames * 10 >= n * 9;
                            });
    if (!everyFrame) return;
    std::vector<int64_t> gaps;
    for (size_t i = 1; i < n; ++i) {
        if (c.s.number(i) == c.s.number(i - 1) + 1 && c.s.timestamp(i) > c.s.timestamp(i - 1)) {
            gaps.push_back(c.s.timestamp(i) - c.s.timestamp(i - 1));
        }
    }
    if (gaps.size() < 3) return;
    std::vector<int64_t> sorted = gaps;
    std::nth_element(sorted.begin(),
                     sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() / 2), sorted.end());
    const double median = static_cast<double>(sorted[sorted.size() / 2]);
    const double drop = c.param("drop");
    for (size_t i = 1; i < n; ++i) {
        if (c.s.number(i) != c.s.number(i - 1) + 1) continue;
        const double gap = static_cast<double>(c.s.timestamp(i) - c.s.timestamp(i - 1));
        if (gap > drop * median) {
            c.find(i - 1, i,
                   cat("frame interval ", gap / 1e6, " ms, over ", drop, " x the median ",
                       median / 1e6, " ms: a frame dropped"),
                   {{"interval_ns", numberText(gap)}, {"median_ns", numberText(median)}});
        }
    }
}

}  // namespace

CheckBody checkBody(const std::string& id) {
    static const std::map<std::string, CheckBody> bodies = {
        {"ae-converge", aeConverge},
        {"ae-precapture", aePrecapture},
        {"ae-lock", aeLock},
        {"ae-oscillation", aeOscillation},
        {"af-sequence", afSequence},
        {"af-hunting", afHunting},
        {"zoom", zoom},
        {"final-crop", finalCrop},
        {"getter-flaps", getterFlaps},
        {"flash", flashFires},
        {"timestamps", timestamps},
    };
    const auto body = bodies.find(id);
    return body == bodies.end() ? nullptr : body->second;
}

}  // namespace kvanalysis
