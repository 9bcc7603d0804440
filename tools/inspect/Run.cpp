#include "Run.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <charconv>
#include <cstdlib>
#include <exception>
#include <functional>
#include <map>
#include <new>
#include <optional>
#include <string_view>
#include <thread>

#include "Frames.h"
#include "Html.h"
#include "JsonReader.h"
#include "Load.h"
#include "Messages.h"
#include "Report.h"
#include "SessionChecks.h"
#include "Svg.h"
#include "kvhost/Capture.h"
#include "kvhost/LogCapture.h"

namespace inspect {
namespace {

// "<a><sep><b>" with two non-negative ints, as --static ID=N and --input WxH take them.
bool parsePair(const std::string& text, char sep, int* a, int* b) {
    const size_t at = text.find(sep);
    if (at == std::string::npos) return false;
    const auto one = [](const char* first, const char* last, int* v) {
        const auto [ptr, ec] = std::from_chars(first, last, *v);
        return first != last && ec == std::errc() && ptr == last && *v >= 0;
    };
    const char* s = text.data();
    return one(s, s + at, a) && one(s + at + 1, s + text.size(), b);
}

struct Arguments {
    std::vector<std::string> files;
    std::string path;  // the first file, which messages name
    std::string svgPath;
    std::string htmlPath;
    std::string savePath;
    bool json = false;
    bool jsonl = false;
    bool logs = false;
    bool tags = false;
    bool list = false;
    bool verbose = false;
    std::optional<int> camera;
    std::optional<int> frame;
    std::vector<std::string> statics;
    std::string input;
    bool frames = false;
    bool csv = false;
    std::string getters;
    std::string physical;
    std::string client;
    bool check = false;
    std::string checks;
    std::vector<std::string> checkSets;
    std::string rulesPath;
    std::string failOn = "error";
    bool each = false;

    bool checking() const { return check || !checks.empty() || !rulesPath.empty(); }
};

// What a run found that decides its exit status beside errors: the worst
// finding of its session checks.
struct Verdict {
    std::optional<kvanalysis::Severity> worst;
    // Notes for standard error, where the output has no room for them.
    std::vector<std::string> notes;
};

// A refusal of the run: its message, without the program's name.
struct Refusal {
    std::string message;
};

kvhost::SequenceOptions dumpOptions(const Arguments& a) {
    kvhost::SequenceOptions options;
    if (!a.physical.empty()) options.physical = a.physical;
    if (!a.client.empty()) options.client = a.client;
    options.camera = a.camera;
    options.frame = a.frame;
    for (const std::string& s : a.statics) {
        int id = 0;
        int block = 0;
        if (!parsePair(s, '=', &id, &block) || block < 1) {
            throw Refusal{"--static " + s + ": expected ID=N, N a block number"};
        }
        options.statics[static_cast<uint32_t>(id)] = block;
    }
    if (!a.input.empty()) {
        int w = 0;
        int h = 0;
        if (!parsePair(a.input, 'x', &w, &h) || w < 1 || h < 1) {
            throw Refusal{"--input " + a.input + ": expected WxH, both at least 1"};
        }
        options.input.emplace(w, h);
    }
    return options;
}

std::vector<const Getter*> gettersOf(const Arguments& a) {
    if (a.getters.empty()) {
        if (a.frames || a.checking()) return defaultFrameGetters();
        std::vector<const Getter*> all;
        for (const Getter& g : getterTable()) all.push_back(&g);
        return all;
    }
    std::string error;
    std::vector<const Getter*> chosen = chooseGetters(a.getters, &error);
    if (chosen.empty()) throw Refusal{error};
    return chosen;
}

// The checks, settings and rules the arguments ask for; refused when one
// is not known or a rule is bad.
kvanalysis::CheckOptions checkOptions(const Arguments& a) {
    kvanalysis::CheckOptions options;
    options.builtIn = a.check || !a.checks.empty();
    for (size_t at = 0; at < a.checks.size();) {
        const size_t comma = std::min(a.checks.find(',', at), a.checks.size());
        if (comma > at) options.checks.push_back(a.checks.substr(at, comma - at));
        at = comma + 1;
    }
    for (const std::string& set : a.checkSets) {
        const size_t eq = set.find('=');
        char* end = nullptr;
        const double value = eq == std::string::npos ? 0 : std::strtod(set.c_str() + eq + 1, &end);
        if (eq == std::string::npos || end == set.c_str() + eq + 1 || *end != '\0') {
            throw Refusal{"--check-set " + set + ": expected CHECK.PARAMETER=NUMBER"};
        }
        options.settings[set.substr(0, eq)] = value;
    }
    std::string error = kvanalysis::validate(options);
    if (!error.empty()) throw Refusal{error};
    if (!a.rulesPath.empty()) {
        options.rules = kvanalysis::readRules(a.rulesPath, &error);
        if (!error.empty()) throw Refusal{error};
    }
    for (const Getter& g : getterTable()) options.getterNames.push_back(g.method);
    return options;
}

kvanalysis::Results runSessionChecks(const kvhost::Sequence& sequence,
                                     kvanalysis::CheckOptions options, Verdict& verdict) {
    std::string error;
    kvanalysis::Results results = kvanalysis::runChecks(sequence, options, &error);
    if (!error.empty()) throw Refusal{error};
    verdict.worst = kvanalysis::worst(results);
    return results;
}

// The page's lines of the camera ids and input size a capture was run with.
void addIds(HtmlPage& page, const Capture& capture) {
    page.addRead("camera", std::to_string(capture.cameraId) + ", SAT camera " +
                               std::to_string(capture.satCameraId));
    page.addRead("input", capture.inputWidth > 0 ? std::to_string(capture.inputWidth) + "x" +
                                                       std::to_string(capture.inputHeight)
                                                 : std::string("unknown"));
}

// Whether a call failed for want of a tag: -1 or -2 with a lookup that found nothing.
bool lacksItsTags(const CallRecord& call) {
    const std::optional<int>& rc = call.outcome.result;
    return rc && (*rc == -1 || *rc == -2) &&
           std::any_of(call.reads.begin(), call.reads.end(),
                       [](const kvhost::LookupRecord& r) { return !r.found; });
}

// What the run prints on standard output. A run that fails prints one
// error line and nothing else: the views write only once the run has
// decided everything that can fail (start()), then a frame at a time,
// straight on, after what `ahead` prints first (the notes and warnings, on
// standard error). What is written before start() waits in memory.
class Output {
public:
    Output(std::ostream& out, std::function<void()> ahead) : out_(out), ahead_(std::move(ahead)) {}

    void write(std::string_view text) {
        buffer_ += text;
        if (started_ && buffer_.size() >= kBuffer) flush();
    }

    // From now on what is written goes on to the output; what waits goes now.
    void start() {
        if (!started_) ahead_();
        started_ = true;
        flush();
    }

private:
    static constexpr size_t kBuffer = size_t(1) << 20;

    void flush() {
        out_.write(buffer_.data(), static_cast<std::streamsize>(buffer_.size()));
        buffer_.clear();
    }

    std::ostream& out_;
    std::function<void()> ahead_;
    std::string buffer_;
    bool started_ = false;
};

// The view of the frames on standard output.
enum class FramesView { Table, Csv, Json, Lines };

// A session's frames through the chosen getters, and their views. The
// table, the CSV and the JSON are written a frame at a time: a first pass
// builds every frame, which decides what can fail, the getters left out
// and what the table and the CSV measure; the second builds them again to
// write them, straight on to the output (Output::start).
std::string produceFrames(const Arguments& a, std::vector<std::string>& warnings, Verdict& verdict,
                          Output& output) {
    std::vector<const Getter*> getters = gettersOf(a);
    std::optional<kvanalysis::CheckOptions> checking;
    if (a.checking()) checking = checkOptions(a);
    const kvhost::SequenceResult loaded = kvhost::loadSequence(a.files, dumpOptions(a));
    if (!loaded) throw Refusal{loaded.error};
    warnings = loaded.warnings;
    const kvhost::Sequence& sequence = *loaded.sequence;
    // The checks alone, unless a picture or page is asked for: those show the frames.
    if (checking && !a.frames && a.svgPath.empty() && a.htmlPath.empty()) {
        checking->getters = getterSource(getters);
        const kvanalysis::Results results = runSessionChecks(sequence, *checking, verdict);
        if (a.json) return kvhost::loader::jsonText(checksJson(results), 2) + "\n";
        std::string out;
        for (const std::string& note : sequence.notes()) out += note + "\n";
        return out + checksText(results);
    }
    const FramesView view = a.jsonl  ? FramesView::Lines
                            : a.json ? FramesView::Json
                            : a.csv  ? FramesView::Csv
                                     : FramesView::Table;
    // The checks read the calls the views are made of.
    // Each call is kept once while it stands: memory grows with the changes.
    kvanalysis::CallTimeline checked;
    const std::vector<kvhost::RecordedTag> recorded = sequence.recordedTags();
    const bool html = !a.htmlPath.empty();
    // The timelines are drawn as the frames go by; the page keeps what changes.
    std::optional<TimelineDrawing> drawing;
    if (!a.svgPath.empty()) {
        const size_t n = sequence.frameCount();
        drawing.emplace(sequence.info(0).number, n == 0 ? 0 : sequence.info(n - 1).number);
    }
    std::optional<HtmlPage> page;
    if (html) page.emplace(sequence);
    std::optional<Capture> first;
    // By getter: whether some frame had the tags it reads; what its first
    // frame's lookups show.
    std::vector<bool> hasTags(getters.size(), false);
    std::vector<std::string> lookups(getters.size());
    bool anyFromBlocks = false;
    TableWriter table;
    CsvWriter csv;
    // Frame i through the getters; `firstPass` also gathers what the
    // session decides.
    std::optional<FrameBuilder> builder;
    builder.emplace(sequence, getters);
    // The platform adapter's first calls in a process (GetInstance, Init)
    // go to the call that first asks it, in the first pass. The JSON views of
    // chosen getters with nothing drawn and no checks once needed no first
    // pass and showed them: that frame is written as the first pass made it.
    const bool adapterFirst = !drawing && !html && !checking && !a.getters.empty() &&
                              (view == FramesView::Json || view == FramesView::Lines);
    std::optional<size_t> adapterFrame;
    std::string adapterText;
    const auto build = [&](size_t i, bool firstPass) -> const FrameCalls& {
        std::string error;
        const size_t ranBefore = builder->callsRun();
        const FrameCalls* built = builder->frame(i, &error);
        if (built == nullptr) throw Refusal{error};
        const FrameCalls& f = *built;
        if (!firstPass) return f;
        if (adapterFirst && !adapterFrame &&
            std::any_of(f.calls.begin(), f.calls.end(),
                        [](const CallRecord& c) { return !c.adapter.empty(); })) {
            adapterFrame = i;
            JsonFrameWriter(view == FramesView::Json, a.logs, a.tags).write(f, i == 0, adapterText);
        }
        if (checking) {
            // A frame whose getters none ran again has the calls before it.
            if (checked.size() > 0 && builder->callsRun() == ranBefore) {
                checked.repeat();
            } else {
                checked.add(checkCalls(f.calls));
            }
        }
        if (drawing) drawing->add(f);
        if (html) {
            if (i == 0 && builder->capture() != nullptr) first = *builder->capture();
            if (!page->addFrame(i, f, &error)) throw Refusal{error};
        }
        for (size_t k = 0; k < f.calls.size(); ++k) {
            hasTags[k] = hasTags[k] || !lacksItsTags(f.calls[k]);
            if (i == 0) lookups[k] = failureClause(f.calls[k]);
            anyFromBlocks = anyFromBlocks || !f.fromBlocks[k].empty();
        }
        if (view == FramesView::Table) table.measure(f);
        if (view == FramesView::Csv) csv.measure(f);
        return f;
    };
    for (size_t i = 0; i < sequence.frameCount(); ++i) build(i, true);
    std::vector<std::string> notes = sequence.notes();
    // A default getter whose tags no frame has: one note, not a column of failures.
    if (a.getters.empty() && sequence.frameCount() > 0) {
        for (size_t k = 0; k < getters.size(); ++k) {
            if (hasTags[k]) continue;
            notes.push_back(std::string(getters[k]->method) +
                            ": not shown, it found its tags in no frame (" + lookups[k] + ")");
        }
        for (size_t k = getters.size(); k-- > 0;) {
            if (hasTags[k]) continue;
            if (drawing) drawing->leaveOut(getters[k]->method);
            table.drop(getters[k]->method);
            csv.drop(getters[k]->method);
            getters.erase(getters.begin() + static_cast<std::ptrdiff_t>(k));
            if (page) page->dropGetter(k);
        }
    }
    builder.emplace(sequence, getters);
    if (recorded.empty()) {
        notes.push_back("recorded frame by frame: no tag");
    } else if (recorded.size() > kShownRecordedTags) {
        notes.push_back("recorded frame by frame: " + std::to_string(recorded.size()) +
                        " tags; the table and the timelines show the first " +
                        std::to_string(kShownRecordedTags) + ", --json and --csv all");
    }
    if (anyFromBlocks) notes.push_back(kFromBlocksNote);
    std::optional<kvanalysis::Results> results;
    if (checking) {
        checking->getters = [&checked](const kvhost::Sequence&, size_t i) {
            return checked.copyAt(i);
        };
        results = runSessionChecks(sequence, *checking, verdict);
    }
    const std::string timelines =
        drawing ? drawing->draw(a.path,
                                results ? results->findings : std::vector<kvanalysis::Finding>{})
                : "";
    if (!a.svgPath.empty()) kvhost::loader::writeFileAtomically(a.svgPath, timelines);
    if (html) {
        page->setTitle(a.path + (a.files.size() > 1
                                     ? " and " + std::to_string(a.files.size() - 1) + " more files"
                                     : ""));
        for (const std::string& file : a.files) page->addRead("file", file);
        page->addRead("frames", std::to_string(sequence.frameCount()));
        if (first) addIds(*page, *first);
        for (const std::string& note : messageLines(notes, a.verbose)) page->addRead("note", note);
        for (const std::string& warning : messageLines(warnings, a.verbose)) {
            page->addRead("warning", warning);
        }
        if (results) page->setChecks(checksJson(*results));
        kvhost::loader::writeFileAtomically(a.htmlPath, page->html());
    }
    // The view on standard output, a frame at a time.
    const auto each = [&](const auto& write) {
        for (size_t i = 0; i < sequence.frameCount(); ++i) write(build(i, false));
    };
    if (view == FramesView::Json || view == FramesView::Lines) {
        Json before = Json::object();
        if (results) before = checksJson(*results);
        notes.push_back(std::string("calls with") + (a.logs ? "" : "out") +
                        " their log lines (--logs), with" + (a.tags ? "" : "out") +
                        " their tag lookups (--tags)");
        // A line a frame and nothing else: the notes go to standard error.
        if (view == FramesView::Lines) verdict.notes = notes;
        output.start();
        if (view == FramesView::Json) output.write(jsonReportOpening(before));
        bool firstFrame = true;
        JsonFrameWriter writer(view == FramesView::Json, a.logs, a.tags);
        std::string text;
        size_t i = 0;
        each([&](const FrameCalls& f) {
            text.clear();
            if (adapterFrame == i++) {
                text = adapterText;
            } else {
                writer.write(f, firstFrame, text);
            }
            if (view == FramesView::Lines) text += '\n';
            output.write(text);
            firstFrame = false;
        });
        if (view == FramesView::Lines) return "";
        before["notes"] = notes;
        before["warnings"] = warnings;
        output.write(jsonReportClosing(before, !firstFrame));
        return "";
    }
    output.start();
    if (view == FramesView::Csv) {
        output.write(csv.header());
        each([&](const FrameCalls& f) { output.write(csv.row(f)); });
        return "";
    }
    for (const std::string& note : messageLines(notes, a.verbose)) output.write(note + "\n");
    output.write(table.header());
    each([&](const FrameCalls& f) { output.write(table.row(f)); });
    if (results) output.write("\n" + checksText(*results));
    return "";
}

// Each file its own session, checked on the machine's cores: a line a file
// and a total, the exit status the worst of them.
std::string produceEach(const Arguments& a, Verdict& verdict, bool& failed) {
    const kvanalysis::CheckOptions options = checkOptions(a);
    const std::vector<const Getter*> getters = gettersOf(a);
    struct One {
        std::string error;
        kvanalysis::Results results;
    };
    std::vector<One> done(a.files.size());
    std::atomic<size_t> next{0};
    const auto work = [&] {
        for (size_t k = next++; k < a.files.size(); k = next++) {
            try {
                const kvhost::SequenceResult loaded =
                    kvhost::loadSequence({a.files[k]}, dumpOptions(a));
                if (!loaded) {
                    done[k].error = loaded.error;
                    continue;
                }
                kvanalysis::CheckOptions mine = options;
                mine.getters = getterSource(getters);
                std::string error;
                done[k].results = kvanalysis::runChecks(*loaded.sequence, mine, &error);
                done[k].error = error;
            } catch (const std::exception& e) {
                done[k].error = a.files[k] + ": " + e.what();
            }
        }
    };
    const size_t threads =
        std::max<size_t>(1, std::min<size_t>(std::thread::hardware_concurrency(), a.files.size()));
    std::vector<std::thread> pool;
    for (size_t t = 1; t < threads; ++t) pool.emplace_back(work);
    work();
    for (std::thread& t : pool) t.join();

    std::string out;
    Json files = Json::array();
    size_t withFindings = 0, findings = 0, errors = 0;
    for (size_t k = 0; k < done.size(); ++k) {
        const One& one = done[k];
        if (!one.error.empty()) {
            ++errors;
            out += a.files[k] + ": error: " + one.error + "\n";
            files.push_back({{"file", a.files[k]}, {"error", one.error}});
            continue;
        }
        size_t counts[3] = {0, 0, 0};
        for (const kvanalysis::CheckResult& c : one.results.checks)
            ++counts[static_cast<int>(c.status)];
        const std::optional<kvanalysis::Severity> w = kvanalysis::worst(one.results);
        if (w && (!verdict.worst || *w > *verdict.worst)) verdict.worst = w;
        withFindings += one.results.findings.empty() ? 0 : 1;
        findings += one.results.findings.size();
        out += a.files[k] + ": " + std::to_string(one.results.findings.size()) + " findings" +
               (w ? std::string(" (worst ") + kvanalysis::severityName(*w) + ")" : "") + ", " +
               std::to_string(counts[0]) + " passed, " + std::to_string(counts[1]) + " failed, " +
               std::to_string(counts[2]) + " not decidable\n";
        Json file = checksJson(one.results);
        file["file"] = a.files[k];
        files.push_back(std::move(file));
    }
    failed = errors > 0;
    out += "total: " + std::to_string(a.files.size()) + " files, " + std::to_string(withFindings) +
           " with findings (" + std::to_string(findings) + "), " + std::to_string(errors) +
           " not read\n";
    if (a.json) return kvhost::loader::jsonText(Json{{"files", std::move(files)}}, 2) + "\n";
    return out;
}

// Everything the run prints on standard output: returned whole, or written
// into `output` once nothing but the writing can fail; the files it writes,
// written as they are made. The warnings are collected into `warnings`.
std::string produce(const Arguments& a, std::vector<std::string>& warnings, Verdict& verdict,
                    bool& failed, Output& output) {
    if (a.each) return produceEach(a, verdict, failed);
    if (a.frames || a.checking()) return produceFrames(a, warnings, verdict, output);
    if (a.files.size() != 1) {
        throw Refusal{"one file at a time; several make a session with --frames"};
    }
    const kvhost::DumpOptions options = dumpOptions(a);
    if (a.list) {
        kvhost::BlockList blocks = kvhost::listDumpBlocks(a.path);
        if (!blocks.error.empty()) throw Refusal{blocks.error};
        warnings = std::move(blocks.warnings);
        return std::move(blocks.text);
    }
    const kvhost::LoadResult loaded = kvhost::loadCapture(a.path, options, a.savePath);
    if (!loaded) throw Refusal{loaded.error};
    warnings = loaded.warnings;
    const kvhost::Capture& capture = *loaded.capture;
    const std::vector<CallRecord> calls = runGetters(capture, gettersOf(a));
    std::string report =
        a.json ? kvhost::loader::jsonText(jsonReport(capture, calls, a.logs), 2) + "\n"
               : textReport(capture, calls, a.logs, a.tags, a.verbose);
    const std::string geometry =
        a.svgPath.empty() && a.htmlPath.empty() ? "" : drawGeometry(capture, calls);
    if (!a.svgPath.empty()) kvhost::loader::writeFileAtomically(a.svgPath, geometry);
    if (!a.htmlPath.empty()) {
        HtmlPage page;
        page.setTitle(capture.file);
        page.addRead("file", capture.file);
        if (!capture.description.empty()) page.addRead("description", capture.description);
        addIds(page, capture);
        for (const std::string& note : messageLines(capture.notes, a.verbose)) {
            page.addRead("note", note);
        }
        for (const std::string& warning : messageLines(capture.warnings, a.verbose)) {
            page.addRead("warning", warning);
        }
        FrameCalls frame;
        frame.calls = calls;
        page.addFrame(frame, geometry);
        kvhost::loader::writeFileAtomically(a.htmlPath, page.html());
    }
    return report;
}

}  // namespace

int run(int argc, const char* const* argv, std::ostream& out, std::ostream& err) {
    CLI::App app{
        "Shows what every kvalgo2::MetaUtils getter returns for a capture: result code, decoded "
        "output and, on request, the library's log lines. FILE is a capture description "
        "(docs/capture-format.md) or a camera metadata dump, such as the output of "
        "`adb shell dumpsys media.camera` (docs/device-dumps.md)."};
    Arguments a;
    app.add_option("file", a.files,
                   "capture description (JSON) or camera metadata dump (text); with --frames, "
                   "the files of a session, one after the other")
        ->required();
    CLI::Option* json = app.add_flag("--json", a.json, "print the report as JSON");
    CLI::Option* logs = app.add_flag("--logs", a.logs, "show the log lines of each call");
    CLI::Option* tags = app.add_flag(
        "--tags", a.tags,
        "show the tags each call looked up, where, and what it found (with --frames, in "
        "--json and --jsonl)");
    app.add_flag("--verbose", a.verbose,
                 "list every note and warning, not one line per kind with its first places");
    CLI::Option* svg =
        app.add_option("--svg", a.svgPath, "draw the geometry of the capture into this SVG file");
    CLI::Option* html = app.add_option(
        "--html", a.htmlPath,
        "write the report as one self-contained HTML page (with --frames, the session's)");
    app.add_option("--camera", a.camera, "dump: the camera whose frame is read")
        ->check(CLI::NonNegativeNumber);
    app.add_option("--frame", a.frame, "dump: the frame is block N alone (see --list)")
        ->check(CLI::PositiveNumber);
    app.add_option("--static", a.statics, "dump: ID=N, camera ID's static metadata is block N");
    app.add_option("--input", a.input,
                   "dump: the input image size WxH (default: the active array)");
    CLI::Option* save =
        app.add_option("--save-capture", a.savePath,
                       "dump: also write the capture built from it as a capture description");
    CLI::Option* frames = app.add_flag(
        "--frames", a.frames,
        "read a session (a tag-monitor log, or many frame blocks) and show every frame");
    CLI::Option* jsonl = app.add_flag(
        "--jsonl", a.jsonl,
        "--frames: one frame a line, as JSON (the notes go to standard error with the warnings)");
    jsonl->needs(frames)->excludes(json);
    app.add_flag("--csv", a.csv, "--frames: one CSV row per frame, a column per output field")
        ->needs(frames)
        ->excludes(json)
        ->excludes(jsonl);
    app.add_option("--getters", a.getters,
                   "the getters to run, by name (GetAFState,GetSensitivity), or all; default: "
                   "every getter, or with --frames those a session is usually read for");
    app.add_option("--physical", a.physical,
                   "--frames: the events of this physical camera instead of the logical one's")
        ->needs(frames);
    CLI::Option* check = app.add_flag(
        "--check", a.check,
        "check the session of FILE... (read as --frames reads it) against every check below");
    CLI::Option* checks =
        app.add_option("--checks", a.checks, "the checks to run, by id (ae-converge,zoom)");
    app.add_option("--check-set", a.checkSets, "CHECK.PARAMETER=VALUE: a check's number");
    CLI::Option* rules =
        app.add_option("--rules", a.rulesPath,
                       "evaluate the rules of this file on every frame (docs/session-checks.md)");
    app.add_option("--fail-on", a.failOn,
                   "exit 2 when a finding of this severity or worse exists: info, warning, error "
                   "(default error)")
        ->check(CLI::IsMember({"info", "warning", "error"}));
    CLI::Option* each = app.add_flag(
        "--each", a.each, "check each FILE as a session of its own, in parallel: a line a file");
    each->excludes(frames)->excludes(svg)->excludes(html);
    app.footer(checksHelp() +
               "Exit status: 0, 1 on an error, 2 when a finding at or above --fail-on exists.");
    app.add_option("--client", a.client,
                   "--frames: the events of this app (package) of `cmd media.camera watch` "
                   "output; default: the active one")
        ->needs(frames);
    // The list runs no getter: there is no report, drawing or capture to give.
    app.add_flag("--list", a.list, "dump: list its metadata blocks and run nothing")
        ->excludes(json)
        ->excludes(logs)
        ->excludes(tags)
        ->excludes(svg)
        ->excludes(html)
        ->excludes(save)
        ->excludes(frames)
        ->excludes(check)
        ->excludes(checks)
        ->excludes(rules);
    save->excludes(frames);
    try {
        app.parse(argc, argv);
        a.path = a.files.front();
        if (a.each && !a.checking()) {
            throw CLI::ValidationError("--each", "needs --check, --checks or --rules");
        }
    } catch (const CLI::ParseError& e) {
        if (e.get_exit_code() == 0) return app.exit(e, out, err);  // --help
        err << "metautils-inspect: " << e.what() << " (--help lists the options)\n";
        return 1;
    }

    // Library lines go into the report, never straight to the terminal.
    kvhost::setLogEcho(false);
    std::string text;
    std::vector<std::string> warnings;
    std::string problem;
    Verdict verdict;
    bool failed = false;  // --each: a file that did not read
    // The notes and warnings, once, ahead of the output.
    bool told = false;
    const auto tell = [&] {
        if (told) return;
        told = true;
        for (const std::string& n : messageLines(verdict.notes, a.verbose))
            err << "note: " << n << "\n";
        for (const std::string& w : messageLines(warnings, a.verbose))
            err << "warning: " << w << "\n";
    };
    Output output(out, tell);
    // Whatever goes wrong while reading, running or writing ends the run
    // here with one line naming the file; nothing has been printed yet
    // (the output streams only once nothing but the output itself can fail).
    try {
        text = produce(a, warnings, verdict, failed, output);
    } catch (const Refusal& r) {
        problem = r.message;
    } catch (const kvhost::loader::InputError& e) {
        problem = e.what();
    } catch (const std::bad_alloc&) {
        problem = a.path + ": out of memory";
    } catch (const std::exception& e) {
        problem = a.path + ": " + e.what();
    }
    if (!problem.empty()) {
        err << "metautils-inspect: " << problem << "\n";
        return 1;
    }
    output.start();
    out << text << std::flush;
    if (!out) {
        err << "metautils-inspect: " << a.path << ": cannot print the report: standard output "
            << "is not writable\n";
        return 1;
    }
    if (failed) return 1;
    kvanalysis::Severity failOn = kvanalysis::Severity::Error;
    kvanalysis::parseSeverity(a.failOn, &failOn);
    return verdict.worst && *verdict.worst >= failOn ? 2 : 0;
}

}  // namespace inspect
