// Checks over a recorded camera session: what Android's camera test suites
// and our own rules call a fault in a sequence of results (AE that never
// converges, AF that hunts, a crop that lags the zoom, a getter that fails
// on some frames), and rules a user writes, run over a kvhost::Sequence:
//
//   kvhost::SequenceResult s = kvhost::loadSequence({"session.txt"});
//   std::string error;
//   kvanalysis::Results r = kvanalysis::runChecks(*s.sequence, {}, &error);
//   for (const kvanalysis::Finding& f : r.findings) ...
//
// One table (checkTable) holds every check: its id, meaning, severity, the
// tags it needs recorded, its parameters with their defaults and the Android
// test each number comes from. The code, the tool's --help, the docs and the
// reports all read it. A check reasons only on tags the session recorded
// frame by frame (Sequence::recordedTags): a tag that comes from the dump's
// blocks is the same in every frame and decides nothing. A check whose tags
// are not recorded, or that found nothing to judge, is not decidable, and
// says what to record; it never passes for lack of data.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kvhost/Capture.h"

namespace kvanalysis {

enum class Severity { Info, Warning, Error };

// "info", "warning", "error"; parseSeverity is false for any other text.
const char* severityName(Severity severity);
bool parseSeverity(std::string_view text, Severity* severity);

struct Parameter {
    const char* name;     // set with "<check id>.<name>=<value>"
    double value;         // the default
    const char* meaning;  // what it is, with its unit
    const char* anchor;   // where the number comes from: an Android test, or "ours"
};

struct CheckInfo {
    const char* id;
    const char* meaning;  // one line
    Severity severity;    // of its findings
    const char* criterion;
    // Tags the check needs recorded frame by frame; those it uses as well
    // when they are recorded.
    std::vector<const char*> tags;
    std::vector<const char*> optionalTags;
    std::vector<Parameter> parameters;
    bool needsGetters = false;  // judges the getters' results (GetterSource)
};

const std::vector<CheckInfo>& checkTable();
// Null when no check has that id.
const CheckInfo* findCheck(std::string_view id);

// What a getter gave on one frame, as the checks and rules read it.
struct GetterCall {
    std::string getter;                        // "GetFinalCropRegion"
    std::optional<int> result;                 // absent for a method without a result code
    std::map<std::string, double> numbers;     // numeric output fields: "crop.width"
    std::map<std::string, std::string> words;  // text output fields: "stages.shift.from"
    std::vector<std::string> reads;            // the tags the call looked up, by name
    std::string found;                         // what the lookups found, in words
};

bool operator==(const GetterCall& a, const GetterCall& b);
inline bool operator!=(const GetterCall& a, const GetterCall& b) {
    return !(a == b);
}

// A session's calls as they come, frame by frame: a call equal to the same
// getter's call on the frame before is kept once, so what is held grows with
// the changes, not with the frames times the getters.
class CallTimeline {
public:
    using Calls = std::vector<std::shared_ptr<const GetterCall>>;
    // The calls of the next frame, in the getters' order.
    void add(std::vector<GetterCall> calls);
    // The next frame's calls are those of the frame before (nothing ran again).
    void repeat();
    // Frame k of those added; empty past the end.
    const Calls& at(size_t k) const;
    // The same as values.
    std::vector<GetterCall> copyAt(size_t k) const;
    size_t size() const { return frames_.size(); }

private:
    std::vector<Calls> frames_;
};

// The getters' results on frame i of a session; the source builds the frame
// (Sequence::frame) and runs its getters on it. The checks call it only on
// frames where a tag that the previous calls read has changed: the results
// of the other frames are those of the frame before. It is called only
// when a check or rule needs it.
//
// Sequence::frame installs the frame into the process-wide stand-ins: a
// source that may run beside other threads holds standInLock() while it
// builds a frame and runs getters on it, as the checks do when they build one.
using GetterSource =
    std::function<std::vector<GetterCall>(const kvhost::Sequence& sequence, size_t frame)>;

std::mutex& standInLock();

// A condition a user writes over a frame's values (docs/session-checks.md):
//   <name> <severity>: <expression>
struct Rule {
    std::string name;
    Severity severity = Severity::Warning;
    std::string expression;
    std::string file;
    size_t line = 0;
};

// The rules of `text` (the file `file`); empty with `error` set to
// "file:line: what" at the first line that is not a rule or whose
// expression does not parse.
std::vector<Rule> parseRules(std::string_view text, const std::string& file, std::string* error);
std::vector<Rule> readRules(const std::string& path, std::string* error);

struct CheckOptions {
    std::vector<std::string> checks;         // ids to run; empty: every check
    bool builtIn = true;                     // false: the rules alone
    std::map<std::string, double> settings;  // "ae-converge.frames" -> 60
    std::vector<Rule> rules;
    GetterSource getters;                  // none: the checks on getters are not decidable
    std::vector<std::string> getterNames;  // the getters the source runs, which rules may name
};

// "" when every check id and setting names a check and its parameter;
// else one line naming the first that does not.
std::string validate(const CheckOptions& options);

enum class Status { Passed, Failed, NotDecidable };
const char* statusName(Status status);  // "passed", "failed", "not decidable"

struct CheckResult {
    std::string id;  // a check's id, or a rule's name
    Status status = Status::NotDecidable;
    std::string why;
    std::vector<std::string> missing;  // tags to record to decide it
    bool rule = false;
};

struct Finding {
    std::string check;
    Severity severity = Severity::Warning;
    size_t first = 0, last = 0;  // frame indexes of the sequence
    int64_t firstNumber = 0, lastNumber = 0;
    std::string message;
    std::vector<std::pair<std::string, std::string>> values;  // what triggered it
};

struct Results {
    std::vector<CheckResult> checks;  // in table order, then the rules
    std::vector<Finding> findings;    // by check, each check's in frame order
    // The tags a session should record to decide every check run: those
    // recorded and those missing; empty when nothing is missing.
    std::vector<std::string> record;
};

// The checks and rules of `options` over `sequence`. An invalid option, or
// a rule naming a tag or getter that is not known, gives empty results with
// `error` set to one line naming it.
Results runChecks(const kvhost::Sequence& sequence, const CheckOptions& options,
                  std::string* error);

// The worst severity among the findings; none without a finding.
std::optional<Severity> worst(const Results& results);

// "adb shell dumpsys media.camera -m <tags>" for results.record; "" when
// nothing is missing.
std::string monitorCommand(const Results& results);

}  // namespace kvanalysis
