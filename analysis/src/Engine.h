// What every check is handed: the session's values, its parameters, the
// getters' results, and where its findings and verdict go.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "Session.h"
#include "kvanalysis/Checks.h"

namespace kvanalysis {

// The getters' results frame by frame, each frame's pointing at the calls
// of the last frame where they were made.
class GetterResults {
public:
    // Nothing is called until a result is asked for.
    GetterResults(const Session& session, const GetterSource& source)
        : session_(session), source_(source) {}
    bool available() const { return static_cast<bool>(source_) && session_.frames() > 0; }
    // The calls of frame i; empty when there is no source.
    const CallTimeline::Calls& at(size_t i) const;
    // The call of `getter` on frame i; null when it was not made.
    const GetterCall* find(size_t i, const std::string& getter) const;

private:
    void make() const;

    const Session& session_;
    const GetterSource& source_;
    mutable bool made_ = false;
    mutable CallTimeline calls_;
    mutable std::vector<size_t> of_;  // by frame: index into calls_
};

class Context {
public:
    Context(const Session& s, const CheckInfo& info, const std::map<std::string, double>& settings,
            const GetterResults& getters, CheckResult& result, std::vector<Finding>& findings);

    const Session& s;
    const CheckInfo& info;
    const GetterResults& getters;

    double param(const char* name) const;
    // The tag's track when it is recorded, else null.
    const Track* recorded(const char* name) const;
    // A tag's value frame by frame, recorded or from the blocks: for context
    // that only ever holds a finding back. NaN when unknown.
    struct Sampled {
        const Track* track = nullptr;  // when recorded
        double block = NAN;            // else the blocks' value, the same on every frame
        double at(size_t i) const { return track != nullptr ? track->value(i) : block; }
        // Whether frame i's value may differ from the frame before's.
        bool changed(size_t i) const { return track != nullptr && track->changed(i); }
    };
    Sampled context(const char* name) const;
    // The tracks of those of the tags that are recorded.
    std::vector<const Track*> recordedOf(std::initializer_list<const char*> names) const;
    // Frames i and j are at most n frame numbers apart.
    bool within(size_t i, size_t j, double n) const {
        return static_cast<double>(s.number(j) - s.number(i)) <= n;
    }
    // Some frame of the log lies more than n frame numbers after frame i.
    bool logGoesPast(size_t i, double n) const {
        return static_cast<double>(s.number(s.frames() - 1) - s.number(i)) > n;
    }

    void find(size_t first, size_t last, std::string message,
              std::vector<std::pair<std::string, std::string>> values = {});
    // One situation was judged to the end, with or without a finding.
    void judged() { ++judged_; }
    // Why nothing could be judged, when nothing was.
    void nothingToJudge(std::string why) { idle_ = std::move(why); }
    // The verdict: failed with findings, passed when something was judged,
    // else not decidable.
    void finish();

private:
    const std::map<std::string, double>& settings_;
    CheckResult& result_;
    std::vector<Finding>& findings_;
    size_t judged_ = 0;
    size_t found_ = 0;
    std::string idle_;
};

// A value as the reports show it: the number, with its enum name ("2 CONVERGED").
std::string valueText(const Track* track, double value);
std::string numberText(double value);
void appendNumber(std::string& out, double value);

// Words and numbers (as numberText prints them) in one string, built in
// place: the messages of thousands of findings.
inline void appendPiece(std::string& out, std::string_view words) {
    out += words;
}
inline void appendPiece(std::string& out, double number) {
    appendNumber(out, number);
}
template <typename... Pieces>
std::string cat(const Pieces&... pieces) {
    std::string out;
    out.reserve(96);
    (appendPiece(out, pieces), ...);
    return out;
}

// The checks' bodies, by id.
using CheckBody = void (*)(Context&);
CheckBody checkBody(const std::string& id);

// The rules over the session: a result per rule, findings for the frames
// where a rule holds. `error` names a rule that names an unknown tag or getter.
void runRules(const Session& session, const std::vector<Rule>& rules,
              const std::vector<std::string>& getterNames, const GetterResults& getters,
              std::vector<CheckResult>& results, std::vector<Finding>& findings,
              std::string* error);

}  // namespace kvanalysis
