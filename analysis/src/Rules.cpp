// Rules a user writes, one a line:
//
//   <name> <severity>: <expression>
//
// evaluated with muparser on every frame. Names in an expression: a tag
// ("android.control.zoomRatio", element k as ".k", an enum value's name as
// ".NAME"), a getter's output ("GetFinalCropRegion.crop.width", its result
// code ".result"), either with "prev." (the frame before) or "delta." (this
// frame's minus the frame before's) in front, and "frame" and "timestamp".
#include <muParser.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstring>
#include <deque>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>

#include "Engine.h"

namespace kvanalysis {
namespace {

// Frames whose names' values are read at once by a rule.
constexpr size_t kBlock = 4096;

constexpr const char* kNameChars =
    "0123456789_abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ.";

std::string trimmed(std::string_view s) {
    size_t a = 0, b = s.size();
    while (a < b && std::isspace(static_cast<unsigned char>(s[a]))) ++a;
    while (b > a && std::isspace(static_cast<unsigned char>(s[b - 1]))) --b;
    return std::string(s.substr(a, b - a));
}

// An expression parsed alone: syntax only, names unresolved. "" when it parses.
std::string syntaxError(const std::string& expression) {
    try {
        mu::Parser p;
        p.DefineNameChars(kNameChars);
        p.SetExpr(expression);
        p.GetUsedVar();
    } catch (const mu::Parser::exception_type& e) {
        return e.GetMsg();
    }
    return "";
}

// What a name of an expression stands for.
struct Binding {
    enum class Kind { Tag, Getter, Frame, Timestamp, Constant } kind = Kind::Constant;
    int back = 0;        // 1: the frame before
    bool delta = false;  // this frame's minus the frame before's
    const Track* track = nullptr;
    size_t element = 0;
    std::string getter;
    std::string field;  // "result" for the result code
    double constant = NAN;
};

// A rule's verdicts on the values they were made on, the latest in each of
// a few slots: values compared bit for bit.
class Verdicts {
public:
    explicit Verdicts(size_t names) : names_(names), keys_(kSlots * names), used_(kSlots) {}

    // The verdict on `values` (one a name), or null.
    double* find(const double* values) {
        slot_ = slotOf(values);
        const bool same = used_[slot_] && sameBits(key(), values);
        return same ? &verdicts_[slot_] : nullptr;
    }
    // The verdict on the values last looked for.
    double* add(const double* values, double verdict) {
        std::copy(values, values + names_, key());
        used_[slot_] = true;
        verdicts_[slot_] = verdict;
        return &verdicts_[slot_];
    }

private:
    static constexpr size_t kSlots = 64;

    double* key() { return keys_.data() + slot_ * names_; }
    // Equal bit for bit (a few names: compared inline).
    bool sameBits(const double* a, const double* b) const {
        for (size_t k = 0; k < names_; ++k) {
            if (bitsOf(a[k]) != bitsOf(b[k])) return false;
        }
        return true;
    }
    static uint64_t bitsOf(double v) {
        uint64_t bits;
        std::memcpy(&bits, &v, sizeof bits);
        return bits;
    }

    size_t slotOf(const double* values) const {
        uint64_t h = 0;
        for (size_t k = 0; k < names_; ++k) h = (h ^ bitsOf(values[k])) * 0x9E3779B97F4A7C15ull;
        return static_cast<size_t>(h >> 58);  // the top 6 bits: one of 64
    }

    size_t names_;
    std::vector<double> keys_;
    std::vector<bool> used_;
    double verdicts_[kSlots] = {};
    size_t slot_ = 0;
};

// The names of one rule, resolved against the session and the getters.
class Names {
public:
    Names(const Session& s, const std::vector<std::string>& getterNames)
        : s_(s), getterNames_(getterNames) {}

    static mu::value_type* create(const mu::char_type* name, void* self) {
        return static_cast<Names*>(self)->add(name);
    }

    mu::value_type* add(const std::string& name) {
        Binding b;
        std::string rest = name;
        if (rest.rfind("prev.", 0) == 0) {
            b.back = 1;
            rest = rest.substr(5);
        } else if (rest.rfind("delta.", 0) == 0) {
            b.delta = true;
            rest = rest.substr(6);
        }
        if (!resolve(rest, b) && error.empty()) {
            error = "\"" + name + "\" is neither a tag nor a getter's output";
        }
        bindings.push_back(b);
        labels.push_back(name);
        slots.push_back(NAN);
        return &slots.back();
    }

    // The value of binding k on frame i; NaN when unknown.
    double value(size_t k, size_t i, const GetterResults& getters) const {
        const Binding& b = bindings[k];
        if (b.kind == Binding::Kind::Constant) return b.constant;
        if (b.delta) {
            if (i == 0) return NAN;
            return raw(b, i, getters) - raw(b, i - 1, getters);
        }
        if (static_cast<size_t>(b.back) > i) return NAN;
        return raw(b, i - static_cast<size_t>(b.back), getters);
    }

    // The values of binding k on frames [from, to) into out[0, to - from):
    // value() frame by frame, each frame's raw value read once.
    void values(size_t k, size_t from, size_t to, const GetterResults& getters, double* out) const {
        const Binding& b = bindings[k];
        if (b.kind == Binding::Kind::Constant || (!b.delta && b.back == 0)) {
            for (size_t i = from; i < to; ++i) out[i - from] = value(k, i, getters);
            return;
        }
        // The frame before each, or its own when it has none.
        double before = from > 0 ? raw(b, from - 1, getters) : NAN;
        for (size_t i = from; i < to; ++i) {
            const double now = raw(b, i, getters);
            out[i - from] = i == 0 ? NAN : b.delta ? now - before : before;
            before = now;
        }
    }

    std::deque<Binding> bindings;
    std::deque<std::string> labels;  // as the rule writes them
    std::deque<mu::value_type> slots;
    std::string error;
    std::set<std::string> tags;  // the tags the rule reads
    bool usesGetters = false;

private:
    bool resolve(const std::string& rest, Binding& b) {
        if (rest == "frame" || rest == "timestamp") {
            b.kind = rest == "frame" ? Binding::Kind::Frame : Binding::Kind::Timestamp;
            return true;
        }
        const size_t dot = rest.find('.');
        const std::string head = rest.substr(0, dot);
        if (std::find(getterNames_.begin(), getterNames_.end(), head) != getterNames_.end()) {
            if (dot == std::string::npos) return false;
            b.kind = Binding::Kind::Getter;
            b.getter = head;
            b.field = rest.substr(dot + 1);
            usesGetters = true;
            return true;
        }
        // A tag, a tag's element, or a tag's enum value.
        if (const Track* t = s_.track(rest)) {
            b.kind = Binding::Kind::Tag;
            b.track = t;
            tags.insert(rest);
            return true;
        }
        const size_t last = rest.rfind('.');
        if (last == std::string::npos) return false;
        const Track* t = s_.track(rest.substr(0, last));
        if (t == nullptr) return false;
        const std::string tail = rest.substr(last + 1);
        if (!tail.empty() && std::all_of(tail.begin(), tail.end(), [](char ch) {
                return std::isdigit(static_cast<unsigned char>(ch));
            })) {
            b.kind = Binding::Kind::Tag;
            b.track = t;
            b.element = std::stoul(tail);
            tags.insert(rest.substr(0, last));
            return tail.size() < 4;
        }
        if (const kvhost::EnumValue* e = kvhost::findEnum(*t->info, tail)) {
            b.kind = Binding::Kind::Constant;
            b.constant = e->value;
            b.back = 0;
            b.delta = false;
            return true;
        }
        return false;
    }

    double raw(const Binding& b, size_t i, const GetterResults& getters) const {
        switch (b.kind) {
            case Binding::Kind::Tag:
                return b.track->value(i, b.element);
            case Binding::Kind::Frame:
                return static_cast<double>(s_.number(i));
            case Binding::Kind::Timestamp:
                return static_cast<double>(s_.timestamp(i));
            case Binding::Kind::Getter: {
                const GetterCall* call = getters.find(i, b.getter);
                if (call == nullptr) return NAN;
                if (b.field == "result") return call->result ? *call->result : NAN;
                const auto at = call->numbers.find(b.field);
                return at == call->numbers.end() ? NAN : at->second;
            }
            case Binding::Kind::Constant:
                return b.constant;
        }
        return NAN;
    }

    const Session& s_;
    const std::vector<std::string>& getterNames_;
};

}  // namespace

std::vector<Rule> parseRules(std::string_view text, const std::string& file, std::string* error) {
    std::vector<Rule> rules;
    error->clear();
    std::set<std::string> names;
    size_t line = 0;
    size_t at = 0;
    while (at <= text.size()) {
        const size_t end = std::min(text.find('\n', at), text.size());
        const std::string_view raw = text.substr(at, end - at);
        at = end + 1;
        ++line;
        const std::string s = trimmed(raw);
        if (s.empty() || s[0] == '#') continue;
        const auto fail = [&](const std::string& what) {
            *error = file + ":" + std::to_string(line) + ": " + what;
            return std::vector<Rule>{};
        };
        const size_t colon = s.find(':');
        if (colon == std::string::npos) {
            return fail("expected \"<name> <severity>: <expression>\"");
        }
        std::istringstream head(s.substr(0, colon));
        Rule r;
        std::string severity, extra;
        head >> r.name >> severity >> extra;
        if (r.name.empty() || severity.empty() || !extra.empty()) {
            return fail("expected \"<name> <severity>: <expression>\"");
        }
        if (findCheck(r.name) != nullptr || !names.insert(r.name).second) {
            return fail("rule \"" + r.name + "\": the name is taken by a check or another rule");
        }
        if (!parseSeverity(severity, &r.severity)) {
            return fail("rule \"" + r.name + "\": severity \"" + severity +
                        "\" is not info, warning or error");
        }
        r.expression = trimmed(s.substr(colon + 1));
        if (r.expression.empty()) return fail("rule \"" + r.name + "\": no expression");
        const std::string syntax = syntaxError(r.expression);
        if (!syntax.empty()) return fail("rule \"" + r.name + "\": " + syntax);
        r.file = file;
        r.line = line;
        rules.push_back(std::move(r));
        if (end == text.size()) break;
    }
    return rules;
}

std::vector<Rule> readRules(const std::string& path, std::string* error) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        *error = path + ": cannot read the rules file";
        return {};
    }
    std::ostringstream text;
    text << in.rdbuf();
    return parseRules(text.str(), path, error);
}

void runRules(const Session& session, const std::vector<Rule>& rules,
              const std::vector<std::string>& getterNames, const GetterResults& getters,
              std::vector<CheckResult>& results, std::vector<Finding>& findings,
              std::string* error) {
    for (const Rule& rule : rules) {
        Names names(session, getterNames);
        mu::Parser p;
        try {
            p.DefineNameChars(kNameChars);
            p.SetVarFactory(Names::create, &names);
            p.SetExpr(rule.expression);
            p.Eval();  // parses; the factory binds every name
        } catch (const mu::Parser::exception_type& e) {
            *error = rule.file + ":" + std::to_string(rule.line) + ": rule \"" + rule.name +
                     "\": " + e.GetMsg();
            return;
        }
        if (!names.error.empty()) {
            *error = rule.file + ":" + std::to_string(rule.line) + ": rule \"" + rule.name +
                     "\": " + names.error;
            return;
        }
        CheckResult r;
        r.id = rule.name;
        r.rule = true;
        for (const std::string& t : names.tags) {
            if (!session.recorded(t)) r.missing.push_back(t);
        }
        if (!r.missing.empty()) {
            r.why = "needs ";
            for (size_t k = 0; k < r.missing.size(); ++k) r.why += (k ? ", " : "") + r.missing[k];
            r.why += " recorded frame by frame (add to -m)";
            results.push_back(std::move(r));
            continue;
        }
        if (names.usesGetters && !getters.available()) {
            r.why = "needs the getters' results on each frame";
            results.push_back(std::move(r));
            continue;
        }
        size_t judged = 0, found = 0;
        std::optional<std::pair<size_t, size_t>> open;
        const auto close = [&] {
            if (!open) return;
            Finding f;
            f.check = rule.name;
            f.severity = rule.severity;
            f.first = open->first;
            f.last = open->second;
            f.firstNumber = session.number(f.first);
            f.lastNumber = session.number(f.last);
            f.message = rule.expression;
            for (size_t k = 0; k < names.bindings.size(); ++k) {
                if (names.bindings[k].kind == Binding::Kind::Constant) continue;
                f.values.emplace_back(names.labels[k],
                                      numberText(names.value(k, f.first, getters)));
            }
            findings.push_back(std::move(f));
            ++found;
            open.reset();
        };
        // The names' values a block of frames at a time, each name's in one
        // pass; the expression evaluated only on values it has not seen
        // lately (an expression has no state: same values, same verdict;
        // a session's values repeat, as a zoom ratio steps through a few).
        const size_t count = names.bindings.size();
        std::vector<double> block(count * kBlock);
        Verdicts verdicts(count);
        std::vector<double> values(count);
        for (size_t start = 0; start < session.frames(); start += kBlock) {
            const size_t end = std::min(session.frames(), start + kBlock);
            for (size_t k = 0; k < count; ++k) {
                names.values(k, start, end, getters, &block[k * kBlock]);
            }
            for (size_t i = start; i < end; ++i) {
                bool known = true;
                for (size_t k = 0; k < count; ++k) {
                    values[k] = block[k * kBlock + i - start];
                    known = known && !std::isnan(values[k]);
                }
                if (!known) continue;
                ++judged;
                double* verdict = verdicts.find(values.data());
                if (verdict == nullptr) {
                    for (size_t k = 0; k < count; ++k) names.slots[k] = values[k];
                    double holds = 0;
                    try {
                        holds = p.Eval();
                    } catch (const mu::Parser::exception_type&) {
                        holds = 0;
                    }
                    verdict = verdicts.add(values.data(), holds);
                }
                const double holds = *verdict;
                if (holds == 0 || std::isnan(holds)) continue;
                if (open && open->second + 1 == i) {
                    open->second = i;
                } else {
                    close();
                    open.emplace(i, i);
                }
            }
        }
        close();
        r.status = found ? Status::Failed : judged ? Status::Passed : Status::NotDecidable;
        r.why = found    ? std::to_string(found) + (found == 1 ? " finding" : " findings")
                : judged ? "held on no frame of " + std::to_string(judged)
                         : "no frame with all of its values";
        results.push_back(std::move(r));
    }
}

}  // namespace kvanalysis
