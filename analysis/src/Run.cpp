// Running the checks: the getters' results, each check's context and
// verdict, and what a session should record next time.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <set>

#include "Engine.h"
#include "Tags.h"

namespace kvanalysis {

// ---- The getters' results -----------------------------------------------------

std::mutex& standInLock() {
    static std::mutex lock;
    return lock;
}

bool operator==(const GetterCall& a, const GetterCall& b) {
    return a.getter == b.getter && a.result == b.result && a.numbers == b.numbers &&
           a.words == b.words && a.reads == b.reads && a.found == b.found;
}

void CallTimeline::add(std::vector<GetterCall> calls) {
    Calls frame;
    frame.reserve(calls.size());
    const Calls* before = frames_.empty() ? nullptr : &frames_.back();
    for (size_t k = 0; k < calls.size(); ++k) {
        if (before != nullptr && k < before->size() && *(*before)[k] == calls[k]) {
            frame.push_back((*before)[k]);
        } else {
            frame.push_back(std::make_shared<const GetterCall>(std::move(calls[k])));
        }
    }
    frames_.push_back(std::move(frame));
}

void CallTimeline::repeat() {
    if (frames_.empty()) return add({});
    frames_.push_back(frames_.back());
}

const CallTimeline::Calls& CallTimeline::at(size_t k) const {
    static const Calls kNone;
    return k < frames_.size() ? frames_[k] : kNone;
}

std::vector<GetterCall> CallTimeline::copyAt(size_t k) const {
    std::vector<GetterCall> out;
    for (const auto& call : at(k)) out.push_back(*call);
    return out;
}

void GetterResults::make() const {
    made_ = true;
    if (!available()) return;
    const size_t n = session_.frames();
    of_.resize(n);
    std::vector<uint32_t> reads;  // ids of the tags the last calls read
    for (size_t i = 0; i < n; ++i) {
        // Calls depend on the tags they read: made again only when one of
        // them changed, or when a new file may have brought other statics.
        bool again = calls_.size() == 0 || session_.number(i) <= session_.number(i - 1);
        for (size_t k = 0; !again && k < reads.size(); ++k) {
            again = session_.sequence().changed(i, reads[k]);
        }
        if (!again) {
            of_[i] = calls_.size() - 1;
            continue;
        }
        calls_.add(source_(session_.sequence(), i));
        of_[i] = calls_.size() - 1;
        reads.clear();
        for (const auto& c : calls_.at(of_[i])) {
            for (const std::string& name : c->reads) {
                if (const kvhost::TagInfo* t = kvhost::findTag(name.c_str()))
                    reads.push_back(t->id);
            }
        }
        std::sort(reads.begin(), reads.end());
        reads.erase(std::unique(reads.begin(), reads.end()), reads.end());
    }
}

const CallTimeline::Calls& GetterResults::at(size_t i) const {
    if (!made_) make();
    return calls_.at(i < of_.size() ? of_[i] : calls_.size());
}

const GetterCall* GetterResults::find(size_t i, const std::string& getter) const {
    for (const auto& c : at(i)) {
        if (c->getter == getter) return c.get();
    }
    return nullptr;
}

// ---- A check's context ----------------------------------------------------------

Context::Context(const Session& session, const CheckInfo& check,
                 const std::map<std::string, double>& settings, const GetterResults& results,
                 CheckResult& result, std::vector<Finding>& findings)
    : s(session),
      info(check),
      getters(results),
      settings_(settings),
      result_(result),
      findings_(findings) {}

double Context::param(const char* name) const {
    const auto set = settings_.find(std::string(info.id) + "." + name);
    if (set != settings_.end()) return set->second;
    for (const Parameter& p : info.parameters) {
        if (std::string(p.name) == name) return p.value;
    }
    return NAN;
}

const Track* Context::recorded(const char* name) const {
    const Track* t = s.track(name);
    return t != nullptr && t->recorded ? t : nullptr;
}

Context::Sampled Context::context(const char* name) const {
    Sampled sampled;
    sampled.track = recorded(name);
    if (sampled.track == nullptr) sampled.block = s.blockValue(name);
    return sampled;
}

std::vector<const Track*> Context::recordedOf(std::initializer_list<const char*> names) const {
    std::vector<const Track*> tracks;
    for (const char* name : names) {
        if (const Track* t = recorded(name)) tracks.push_back(t);
    }
    return tracks;
}

void Context::find(size_t first, size_t last, std::string message,
                   std::vector<std::pair<std::string, std::string>> values) {
    Finding f;
    f.check = info.id;
    f.severity = info.severity;
    f.first = first;
    f.last = last;
    f.firstNumber = s.number(first);
    f.lastNumber = s.number(last);
    f.message = std::move(message);
    f.values = std::move(values);
    findings_.push_back(std::move(f));
    ++found_;
    ++judged_;
}

void Context::finish() {
    if (found_ > 0) {
        result_.status = Status::Failed;
        result_.why = std::to_string(found_) + (found_ == 1 ? " finding" : " findings");
    } else if (judged_ > 0) {
        result_.status = Status::Passed;
        result_.why = std::to_string(judged_) + (judged_ == 1 ? " case" : " cases") + " judged";
    } else {
        result_.status = Status::NotDecidable;
        result_.why = idle_.empty() ? "nothing in the log to judge" : idle_;
    }
}

void appendNumber(std::string& out, double value) {
    if (std::isnan(value)) {
        out += "none";
        return;
    }
    // As printf's "%.0f" and "%.4g" print them, without their cost on the
    // thousands of findings of a long session.
    char text[32];
    const bool whole = value == std::floor(value) && std::fabs(value) < 1e15;
    // A whole number as an integer: what "%.0f" prints, for a fraction of
    // the cost of formatting a double.
    const std::to_chars_result r =
        whole ? std::to_chars(text, text + sizeof text, static_cast<int64_t>(value))
              : std::to_chars(text, text + sizeof text, value, std::chars_format::general, 4);
    out.append(text, r.ptr);
}

std::string numberText(double value) {
    std::string text;
    appendNumber(text, value);
    return text;
}

std::string valueText(const Track* track, double value) {
    std::string text = numberText(value);
    if (track != nullptr && !std::isnan(value) && !track->info->enums.empty()) {
        if (const char* name = kvhost::enumName(*track->info, static_cast<int32_t>(value))) {
            text += std::string(" ") + name;
        }
    }
    return text;
}

// ---- Running them -----------------------------------------------------------------

std::string validate(const CheckOptions& options) {
    for (const std::string& id : options.checks) {
        if (findCheck(id) == nullptr) return "unknown check \"" + id + "\" (--help lists them)";
    }
    for (const auto& [key, value] : options.settings) {
        const size_t dot = key.find('.');
        const CheckInfo* check = dot == std::string::npos ? nullptr : findCheck(key.substr(0, dot));
        if (check == nullptr) {
            return "\"" + key + "\": not <check>.<parameter> of a known check";
        }
        const std::string name = key.substr(dot + 1);
        const bool known = std::any_of(check->parameters.begin(), check->parameters.end(),
                                       [&](const Parameter& p) { return name == p.name; });
        if (!known) return "\"" + key + "\": " + check->id + " has no parameter \"" + name + "\"";
        if (!std::isfinite(value) || value < 0) {
            return "\"" + key + "\": a number at least 0 is needed";
        }
    }
    return "";
}

Results runChecks(const kvhost::Sequence& sequence, const CheckOptions& options,
                  std::string* error) {
    Results results;
    error->clear();
    *error = validate(options);
    if (!error->empty()) return results;
    const Session session(sequence);
    const GetterResults getters(session, options.getters);
    std::set<std::string> missing;
    for (const CheckInfo& info : checkTable()) {
        if (!options.builtIn) break;
        if (!options.checks.empty() && std::find(options.checks.begin(), options.checks.end(),
                                                 info.id) == options.checks.end()) {
            continue;
        }
        CheckResult r;
        r.id = info.id;
        for (const char* t : info.tags) {
            if (!session.recorded(t)) r.missing.push_back(t);
        }
        if (info.needsGetters && !getters.available()) {
            r.why = "needs the getters' results on each frame";
        } else if (session.frames() < 2) {
            r.why = "the session has fewer than 2 frames";
        } else if (!r.missing.empty()) {
            r.why = "needs ";
            for (size_t k = 0; k < r.missing.size(); ++k) {
                r.why += (k ? ", " : "") + r.missing[k];
            }
            r.why += " recorded frame by frame (add to -m)";
        } else {
            const size_t from = results.findings.size();
            Context c(session, info, options.settings, getters, r, results.findings);
            if (const CheckBody body = checkBody(info.id)) body(c);
            c.finish();
            // A check's findings in frame order (most checks find them so).
            const auto first = results.findings.begin() + static_cast<std::ptrdiff_t>(from);
            const auto byFrame = [](const Finding& a, const Finding& b) {
                return a.first < b.first;
            };
            if (!std::is_sorted(first, results.findings.end(), byFrame)) {
                std::stable_sort(first, results.findings.end(), byFrame);
            }
        }
        missing.insert(r.missing.begin(), r.missing.end());
        results.checks.push_back(std::move(r));
    }
    runRules(session, options.rules, options.getterNames, getters, results.checks, results.findings,
             error);
    if (!error->empty()) return Results{};
    for (const CheckResult& r : results.checks) missing.insert(r.missing.begin(), r.missing.end());
    if (!missing.empty()) {
        std::set<std::string> all = missing;
        for (const kvhost::RecordedTag& t : session.recordedTags()) all.insert(t.name);
        results.record.assign(all.begin(), all.end());
    }
    return results;
}

std::optional<Severity> worst(const Results& results) {
    std::optional<Severity> w;
    for (const Finding& f : results.findings) {
        if (!w || f.severity > *w) w = f.severity;
    }
    return w;
}

std::string monitorCommand(const Results& results) {
    if (results.record.empty()) return "";
    std::string out = "adb shell dumpsys media.camera -m ";
    for (size_t k = 0; k < results.record.size(); ++k) {
        out += (k ? "," : "") + results.record[k];
    }
    return out;
}

}  // namespace kvanalysis
