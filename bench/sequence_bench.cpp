// Sessions (metautils-inspect --frames): reading a tag monitor event log of
// N events, building every frame of it, running the default frame getters
// on 10,000 frames, the session checks over it (metautils-inspect --check,
// target: under 10 % of the reading), and the memory a 100,000-event log
// takes. The logs are
// generated: the sample session's dump with its event log replaced by N
// events, newest first as dumpsys prints them, over five monitored tags, two
// events a frame. Absolute times, each with its time per event so that the
// growth shows; the targets are in the labels.
//
// The 500,000-event log (50 MB; 1,000,000 events pass the reader's 64 MiB
// limit for a file) runs with KVBENCH_SEQUENCE_LARGE=1 only (a few
// seconds to write and read).
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "Child.h"
#include "Frames.h"
#include "Ratios.h"
#include "Report.h"
#include "Run.h"
#include "Scene.h"
#include "kvanalysis/Checks.h"
#include "kvhost/Capture.h"
#include "tests/LongSession.h"

namespace kvbench {
namespace {

constexpr int64_t kFramesThroughGetters = 10000;

std::string ReadSample(const char* name) {
    std::ifstream in(std::string(KVBENCH_SAMPLES_DIR) + "/" + name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Event k of the log: frame 100 + k / 2, one of the five tags in turn.
void AppendEvent(std::string& out, int64_t k) {
    const int64_t frame = 100 + k / 2;
    out += "        f" + std::to_string(frame) + ":" +
           std::to_string(86400000000000 + frame * 33333333) +
           "ns:                            RES:";
    switch (k % 5) {
        case 0:
            out +=
                "android.control.zoomRatio: [" + std::to_string(1 + (k / 5) % 8) + ".00000000]\n";
            break;
        case 1: {
            const int64_t s = 100 * ((k / 5) % 16);
            out += "android.scaler.cropRegion: [" + std::to_string(s) + " " + std::to_string(s) +
                   " " + std::to_string(4000 - 2 * s) + " " + std::to_string(3000 - 2 * s) + " ]\n";
            break;
        }
        case 2:
            out += (k / 5) % 2 ? "android.control.afState: [FOCUSED_LOCKED]\n"
                               : "android.control.afState: [PASSIVE_SCAN]\n";
            break;
        case 3:
            out +=
                "android.sensor.sensitivity: [" + std::to_string(100 + (k / 5) % 64 * 100) + " ]\n";
            break;
        default:
            out += "android.sensor.exposureTime: [" +
                   std::to_string(1000000 + (k / 5) % 30 * 1000000) + " ]\n";
    }
}

// The log of `events` events, written once per size to a temporary file
// that is removed at exit.
class Logs {
public:
    ~Logs() {
        for (const auto& item : paths_) std::remove(item.second.c_str());
    }

    const std::string& path(int64_t events) {
        std::string& path = paths_[events];
        if (!path.empty()) return path;
        const std::string sample = ReadSample("session-android13.txt");
        const std::string list = "     Tag monitoring enabled for tags:\n";
        const std::string log = "     Monitored tag event log:\n";
        const size_t listAt = sample.find(list);
        const size_t logEnd = sample.find("\n\n", sample.find(log));
        if (listAt == std::string::npos || logEnd == std::string::npos) return path;
        std::string text = sample.substr(0, listAt) + list +
                           "        android.control.zoomRatio\n"
                           "        android.scaler.cropRegion\n"
                           "        android.control.afState\n"
                           "        android.sensor.sensitivity\n"
                           "        android.sensor.exposureTime\n" +
                           log;
        text.reserve(text.size() + static_cast<size_t>(events) * 100 + sample.size() - logEnd);
        for (int64_t k = events - 1; k >= 0; --k) AppendEvent(text, k);
        text += sample.substr(logEnd + 1);
        path = (std::filesystem::temp_directory_path() /
                ("metautils_bench_session_" + std::to_string(events) + ".txt"))
                   .string();
        std::ofstream(path, std::ios::binary) << text;
        return path;
    }

private:
    std::map<int64_t, std::string> paths_;
};

Logs& logs() {
    static Logs all;
    return all;
}

// The sequence of the log of `events` events; empty, with the benchmark
// skipped, when it does not load whole.
std::optional<kvhost::Sequence> Load(benchmark::State& state, int64_t events) {
    const kvhost::SequenceResult loaded = kvhost::loadSequence({logs().path(events)});
    if (!Expect(state, loaded.sequence && loaded.sequence->frameCount() == size_t(events / 2),
                loaded ? "the generated log did not read whole" : loaded.error.c_str())) {
        return std::nullopt;
    }
    return loaded.sequence;
}

// Time per event, as a counter beside the time.
void PerEvent(benchmark::State& state, int64_t events) {
    state.counters["per_event"] = benchmark::Counter(
        static_cast<double>(events),
        benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void LoadSequence(benchmark::State& state) {
    const int64_t events = state.range(0);
    if (!Load(state, events)) return;
    for (auto _ : state) benchmark::DoNotOptimize(kvhost::loadSequence({logs().path(events)}));
    PerEvent(state, events);
    if (events == 100000) state.SetLabel("target < 200 ms");
}

void BuildAllFrames(benchmark::State& state) {
    const int64_t events = state.range(0);
    const std::optional<kvhost::Sequence> sequence = Load(state, events);
    if (!sequence) return;
    for (auto _ : state) {
        for (size_t i = 0; i < sequence->frameCount(); ++i) {
            benchmark::DoNotOptimize(sequence->frame(i));
        }
    }
    PerEvent(state, events);
    state.SetLabel(std::to_string(sequence->frameCount()) + " frames");
    Install(scene());  // the frames replaced the scene's static metadata
}

// What --frames does for each frame: build it, run the default getters.
void FramesThroughGetters(benchmark::State& state) {
    const std::optional<kvhost::Sequence> sequence = Load(state, 2 * kFramesThroughGetters);
    if (!sequence) return;
    const std::vector<const inspect::Getter*> getters = inspect::defaultFrameGetters();
    for (auto _ : state) {
        for (size_t i = 0; i < sequence->frameCount(); ++i) {
            const kvhost::LoadResult frame = sequence->frame(i);
            benchmark::DoNotOptimize(inspect::runGetters(*frame.capture, getters));
        }
    }
    state.SetItemsProcessed(state.iterations() * kFramesThroughGetters);
    state.SetLabel("target < 1 s");
    Install(scene());
}

// Every check that reads the tags, and a rule, over `sequence`: what
// --check adds to reading a session, the getters aside (those checks run
// only on the frames where a tag a getter read has changed). False, with
// the benchmark skipped, when they do not run.
bool RunChecks(benchmark::State& state, const kvhost::Sequence& sequence) {
    std::string error;
    kvanalysis::CheckOptions options;
    options.rules = kvanalysis::parseRules(
        "zoom-jump warning: abs(delta.android.control.zoomRatio) > 4\n", "bench.rules", &error);
    kvanalysis::Results results;
    for (auto _ : state) {
        results = kvanalysis::runChecks(sequence, options, &error);
        benchmark::DoNotOptimize(results);
    }
    if (!Expect(state, error.empty() && !results.checks.empty(), "the checks did not run")) {
        return false;
    }
    state.SetLabel(std::to_string(results.findings.size()) + " findings");
    return true;
}

void CheckSequence(benchmark::State& state) {
    const int64_t events = state.range(0);
    const std::optional<kvhost::Sequence> sequence = Load(state, events);
    if (!sequence || !RunChecks(state, *sequence)) return;
    PerEvent(state, events);
    Install(scene());
}

size_t ResidentBytes() {
    long pages = 0, resident = 0;
    if (FILE* f = std::fopen("/proc/self/statm", "r")) {
        if (std::fscanf(f, "%ld %ld", &pages, &resident) != 2) resident = 0;
        std::fclose(f);
    }
    return static_cast<size_t>(resident) * static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

// The resident memory and the heap that loading the 100,000-event log adds,
// the sequence held; freed memory is first given back so that it is not
// counted as reused.
void SequenceMemory(benchmark::State& state) {
    constexpr int64_t kEvents = 100000;
    logs().path(kEvents);
    double resident = 0, heap = 0;
    for (auto _ : state) {
        malloc_trim(0);
        const size_t residentBefore = ResidentBytes();
        const size_t heapBefore = mallinfo2().uordblks;
        const std::optional<kvhost::Sequence> sequence = Load(state, kEvents);
        if (!sequence) return;
        resident = static_cast<double>(ResidentBytes() - residentBefore) / 1e6;
        heap = static_cast<double>(mallinfo2().uordblks - heapBefore) / 1e6;
    }
    state.counters["resident_MB"] = resident;
    state.counters["heap_MB"] = heap;
    state.SetLabel("target < 50 MB");
}

// ---- The real layout through the program ---------------------------------
//
// 100,000 events of `cmd media.camera watch dump` output: the sessions of
// the tree repeated (tests/LongSession.h), request and result lines
// interleaved, about half a frame an event. Each figure is processor time
// (cpu_s) and its ratio to that of `grep -c RES:` over the same file in the
// same run (x_grep), and each output is the program's own, run in a child
// (as a user runs it: the stand-ins fresh) writing to a temporary file; the
// child's peak resident size is a counter. The ratios are counters, not
// lines of the ratio table: grep's time is its child's, not the process's.

// KVBENCH_REAL_EVENTS makes it shorter: the test command's quick pass runs
// every benchmark once, and a few thousand events exercise the same paths.
int64_t RealEvents() {
    const char* events = std::getenv("KVBENCH_REAL_EVENTS");
    return events != nullptr && std::atoll(events) > 0 ? std::atoll(events) : 100000;
}

const std::string& RealSession() {
    static const std::string path = [] {
        const std::string samples = KVBENCH_SAMPLES_DIR;
        const std::string p = (std::filesystem::temp_directory_path() /
                               ("metautils_bench_watch_" + std::to_string(RealEvents()) + ".txt"))
                                  .string();
        std::ofstream(p, std::ios::binary) << inspect::testing::longWatchSession(
            {samples + "/session-watch.txt", samples + "/session-android13.txt"}, RealEvents());
        std::atexit([] { std::remove(RealSession().c_str()); });
        return p;
    }();
    return path;
}

// The processor time of `grep -c RES:` over the session: the median of 21
// runs, measured once, the reference of every figure below.
double GrepSeconds() {
    static const double seconds = [] {
        const std::string command = "grep -c RES: " + RealSession() + " > /dev/null";
        std::vector<double> runs;
        for (int i = 0; i < 21; ++i) {
            const ChildCost cost = RunCommand(command);
            if (!cost.ok) return 0.0;
            runs.push_back(cost.cpuSeconds);
        }
        std::nth_element(runs.begin(), runs.begin() + 10, runs.end());
        return runs[10];
    }();
    return seconds;
}

// `seconds` of processor time as a counter, and as times grep's.
void AgainstGrep(benchmark::State& state, double seconds) {
    state.counters["cpu_s"] = seconds;
    if (GrepSeconds() > 0) state.counters["x_grep"] = seconds / GrepSeconds();
}

void GrepCount(benchmark::State& state) {
    if (!Expect(state, GrepSeconds() > 0, "grep failed")) return;
    for (auto _ : state) {
    }
    AgainstGrep(state, GrepSeconds());
}

double ProcessSeconds() {
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) / 1e9;
}

void ReadReal(benchmark::State& state) {
    const std::string& session = RealSession();  // written before the timing
    // Read once untimed, as the generated session is: a first read in a
    // process pays for its new memory, and the checks' figure below is
    // measured warm.
    kvhost::loadSequence({session});
    size_t frames = 0;
    std::vector<double> runs;
    for (auto _ : state) {
        const double before = ProcessSeconds();
        const kvhost::SequenceResult loaded = kvhost::loadSequence({session});
        runs.push_back(ProcessSeconds() - before);
        if (!Expect(state, bool(loaded), loaded.error.c_str())) return;
        frames = loaded.sequence->frameCount();
    }
    std::nth_element(runs.begin(), runs.begin() + runs.size() / 2, runs.end());
    AgainstGrep(state, runs[runs.size() / 2]);
    state.SetLabel(std::to_string(frames) + " frames; target < 3x grep -c");
}

// The checks over that session, in this process, against reading it: its
// requests and results interleave, and it records more tags, both sides.
void CheckReal(benchmark::State& state) {
    const kvhost::SequenceResult loaded = kvhost::loadSequence({RealSession()});
    if (!Expect(state, bool(loaded), loaded.error.c_str())) return;
    RunChecks(state, *loaded.sequence);
    Install(scene());
}

// metautils-inspect with `args` after the session, in a child; an argument
// "@FILE" names a temporary file, the output measured in its stead.
void Inspect(benchmark::State& state, std::vector<std::string> args, const char* target) {
    const std::string out = RealSession() + ".out", file = RealSession() + ".file";
    std::string measured = out;
    args.insert(args.begin(), {RealSession(), "--frames"});
    for (std::string& a : args) {
        if (a == "@FILE") a = measured = file;
    }
    double seconds = 0;
    {
        ChildTimer timer(state);
        for (auto _ : state) {
            const ChildCost cost = RunInspect(args, out);
            if (!timer.add(cost, "the run failed")) return;
            seconds += cost.cpuSeconds;
        }
    }
    AgainstGrep(state, seconds / static_cast<double>(state.iterations()));
    state.counters["output_MB"] = static_cast<double>(std::filesystem::file_size(measured)) / 1e6;
    std::remove(out.c_str());
    std::remove(file.c_str());
    state.SetLabel(std::string(target) + ", peak < 200 MB");
}

}  // namespace

void RegisterSequenceBenchmarks() {
    const bool large = std::getenv("KVBENCH_SEQUENCE_LARGE") != nullptr;
    for (const auto& [name, body] :
         {std::pair{"sequence/loadSequence", LoadSequence},
          std::pair{"sequence/frame(i) for every frame", BuildAllFrames}}) {
        auto* b = Register(name, body)->ArgName("events")->Arg(10000)->Arg(100000);
        if (large) b->Arg(500000);
        b->Unit(benchmark::kMillisecond);
    }
    Register("sequence/checks", CheckSequence)
        ->ArgName("events")
        ->Arg(10000)
        ->Arg(100000)
        ->Unit(benchmark::kMillisecond);
    AddRatio({"session checks / reading the session, 100000 events",
              "sequence/checks/events:100000", "sequence/loadSequence/events:100000", 0.10, ""});
    Register("sequence/10000 frames through the default getters", FramesThroughGetters)
        ->Unit(benchmark::kMillisecond);
    Register("sequence/memory of a 100000-event log", SequenceMemory)
        ->Iterations(1)
        ->Unit(benchmark::kMillisecond);
    const std::string real = "sequence/watch layout, 100000 events/";
    Register(real + "grep -c RES:", GrepCount)->Iterations(1)->Unit(benchmark::kMillisecond);
    Register(real + "read", ReadReal)->Iterations(5)->Unit(benchmark::kMillisecond);
    Register(real + "checks", CheckReal)->Unit(benchmark::kMillisecond);
    AddRatio({"session checks / reading the session, watch layout", real + "checks",
              real + "read/iterations:5", 0.10, ""});
    const struct {
        const char* name;
        std::vector<std::string> args;
        const char* target;
    } outputs[] = {
        {"table", {}, "target < 1 s"},
        {"--csv", {"--csv"}, "target < 1 s"},
        {"--getters GetAFState --csv", {"--getters", "GetAFState", "--csv"}, "target < 0.5 s"},
        {"--getters all --json", {"--getters", "all", "--json"}, "target < 5 s"},
        {"--getters all --jsonl", {"--getters", "all", "--jsonl"}, "target < 5 s"},
        {"--svg (the drawing)", {"--svg", "@FILE"}, "target < 1 s, < 2 MB"},
        {"--html (the page)", {"--html", "@FILE"}, "target < 3 s, < 15 MB"},
        {"--check", {"--check"}, ""},
    };
    for (const auto& o : outputs) {
        const std::string name = real + "metautils-inspect --frames " + o.name;
        const std::vector<std::string> args = o.args;
        const char* target = o.target;
        Register(name, [args, target](benchmark::State& state) { Inspect(state, args, target); })
            ->UseManualTime()
            ->Iterations(1)
            ->Unit(benchmark::kMillisecond);
    }
}

}  // namespace kvbench
