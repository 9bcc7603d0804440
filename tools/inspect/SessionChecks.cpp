#include "SessionChecks.h"

#include <mutex>
#include <set>

namespace inspect {
namespace {

void flatten(const Json& value, const std::string& key, kvanalysis::GetterCall& call) {
    if (value.is_object()) {
        for (const auto& [k, v] : value.items()) flatten(v, key.empty() ? k : key + "." + k, call);
    } else if (value.is_array()) {
        for (size_t k = 0; k < value.size(); ++k) {
            flatten(value[k], key.empty() ? std::to_string(k) : key + "." + std::to_string(k),
                    call);
        }
    } else if (value.is_boolean()) {
        call.numbers[key.empty() ? "value" : key] = value.get<bool>() ? 1 : 0;
    } else if (value.is_number()) {
        call.numbers[key.empty() ? "value" : key] = value.get<double>();
    } else if (value.is_string()) {
        call.words[key.empty() ? "value" : key] = value.get<std::string>();
    }
}

std::string parametersText(const kvanalysis::CheckInfo& info) {
    std::string out;
    for (const kvanalysis::Parameter& p : info.parameters) {
        out += (out.empty() ? "" : "; ") + std::string(p.name) + " " + Json(p.value).dump() + " (" +
               p.anchor + ")";
    }
    return out;
}

}  // namespace

std::vector<kvanalysis::GetterCall> checkCalls(const std::vector<CallRecord>& calls) {
    std::vector<kvanalysis::GetterCall> out;
    out.reserve(calls.size());
    for (const CallRecord& c : calls) {
        kvanalysis::GetterCall g;
        g.getter = c.getter->method;
        g.result = c.outcome.result;
        flatten(c.outcome.output, "", g);
        std::set<std::string> read;
        for (const kvhost::LookupRecord& r : c.reads) {
            if (!r.tag.empty() && read.insert(r.tag).second) g.reads.push_back(r.tag);
        }
        g.found = failureClause(c);
        out.push_back(std::move(g));
    }
    return out;
}

kvanalysis::GetterSource getterSource(std::vector<const Getter*> getters) {
    return [getters](const kvhost::Sequence& sequence, size_t i) {
        const std::lock_guard<std::mutex> lock(kvanalysis::standInLock());
        const kvhost::LoadResult frame = sequence.frame(i);
        if (!frame) return std::vector<kvanalysis::GetterCall>{};
        return checkCalls(runGetters(*frame.capture, getters));
    };
}

std::string checksText(const kvanalysis::Results& results) {
    std::string out;
    std::string current;
    for (const kvanalysis::Finding& f : results.findings) {
        if (f.check != current) {
            current = f.check;
            const kvanalysis::CheckInfo* info = kvanalysis::findCheck(f.check);
            out += (out.empty() ? "Findings\n" : "") + std::string("  ") + f.check + " (" +
                   kvanalysis::severityName(f.severity) + ")" +
                   (info ? std::string(": ") + info->meaning : std::string(": a rule")) + "\n";
            if (info) {
                out += "    criterion: " + std::string(info->criterion) + "\n";
                if (!info->parameters.empty())
                    out += "    numbers: " + parametersText(*info) + "\n";
            }
        }
        out += "    frames " + std::to_string(f.firstNumber) +
               (f.lastNumber != f.firstNumber ? ".." + std::to_string(f.lastNumber) : "") + ": " +
               f.message;
        std::string values;
        for (const auto& [name, value] : f.values) {
            values += (values.empty() ? "" : ", ") + name + " " + value;
        }
        out += (values.empty() ? "" : " [" + values + "]") + "\n";
    }
    std::string passed, undecided;
    for (const kvanalysis::CheckResult& c : results.checks) {
        if (c.status == kvanalysis::Status::Passed) {
            passed += "  " + c.id + ": " + c.why + "\n";
        } else if (c.status == kvanalysis::Status::NotDecidable) {
            undecided += "  " + c.id + ": " + c.why + "\n";
        }
    }
    if (!passed.empty()) out += "Passed\n" + passed;
    if (!undecided.empty()) out += "Not decidable\n" + undecided;
    const std::string m = kvanalysis::monitorCommand(results);
    if (!m.empty()) out += "To decide them, record the session with:\n  " + m + "\n";
    return out;
}

Json checksJson(const kvanalysis::Results& results) {
    Json checks = Json::array();
    for (const kvanalysis::CheckResult& c : results.checks) {
        Json one{{"id", c.id}, {"status", kvanalysis::statusName(c.status)}, {"why", c.why}};
        if (!c.missing.empty()) one["record"] = c.missing;
        checks.push_back(std::move(one));
    }
    Json findings = Json::array();
    for (const kvanalysis::Finding& f : results.findings) {
        Json values = Json::object();
        for (const auto& [name, value] : f.values) values[name] = value;
        findings.push_back({{"check", f.check},
                            {"severity", kvanalysis::severityName(f.severity)},
                            {"frames", {f.firstNumber, f.lastNumber}},
                            {"message", f.message},
                            {"values", std::move(values)}});
    }
    return Json{{"checks", std::move(checks)}, {"findings", std::move(findings)}};
}

std::string checksHelp() {
    std::string out = "Checks (--check, --checks ID,ID; --check-set ID.PARAMETER=VALUE):\n";
    for (const kvanalysis::CheckInfo& c : kvanalysis::checkTable()) {
        out += "  " + std::string(c.id) + ": " + c.meaning + " [" +
               kvanalysis::severityName(c.severity) + "]";
        const std::string params = parametersText(c);
        out += (params.empty() ? "" : "; " + params) + "\n";
    }
    return out;
}

}  // namespace inspect
