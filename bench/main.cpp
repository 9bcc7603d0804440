// metautils_bench: what kvalgo2::MetaUtils costs a plug-in, against the bare
// container, on the host stand-ins. Google Benchmark's own flags apply; after
// the runs a table gives each figure as a ratio of median CPU times measured
// in this run, with its target, and one line per benchmark
// ("median-ns<TAB>name<TAB>ns") for scripts.
//
//   metautils_bench --frames=N   runs N plug-in frames and nothing else, for
//                                callgrind and perf (no timing, no table)
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "Ratios.h"
#include "Scene.h"

namespace kvbench {
namespace {

std::vector<Ratio>& ratios() {
    static std::vector<Ratio> all;
    return all;
}

// Console output as usual, and the median CPU time of every benchmark kept
// (the single run's time when there are no repetitions).
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            const std::string name = run.run_name.str();
            if (run.error_occurred) {
                ++errors;
                continue;
            }
            Median& m = medians[name];
            // A run of the program in a child: the child's processor time.
            const auto child = run.counters.find("child_cpu_s");
            const double ns = child != run.counters.end()
                                  ? child->second.value * 1e9
                                  : run.GetAdjustedCPUTime() * 1e9 /
                                        benchmark::GetTimeUnitMultiplier(run.time_unit);
            if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median") {
                m = Median{ns, true};
            } else if (run.run_type == Run::RT_Iteration && !m.fromAggregate) {
                m.ns = ns;
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }

    struct Median {
        double ns = 0;
        bool fromAggregate = false;
    };
    std::map<std::string, Median> medians;
    int errors = 0;
};

void PrintTable(const RatioReporter& r) {
    std::printf(
        "\nRatios: median CPU time of each benchmark (of its child, for a program run) over its "
        "reference's, this run\n");
    std::printf("  %-62s %7s  %-8s\n", "figure", "ratio", "target");
    for (const Ratio& ratio : ratios()) {
        const auto m = r.medians.find(ratio.measured);
        const auto ref = r.medians.find(ratio.reference);
        if (m == r.medians.end() || ref == r.medians.end() || ref->second.ns <= 0) continue;
        const double value = m->second.ns / ref->second.ns;
        char target[32] = "";
        if (ratio.target > 0) {
            std::snprintf(target, sizeof target, "<= %.2f %s", ratio.target,
                          value <= ratio.target ? "met" : "MISSED");
        }
        std::printf("  %-62s %7.2f  %-12s %s\n", ratio.what.c_str(), value, target,
                    ratio.note.c_str());
    }
    const auto frame = r.medians.find("frame/plug-in frame");
    if (frame != r.medians.end()) {
        constexpr double kFrameAt120FpsNs = 1e9 / 120;
        std::printf("\n  plug-in frame: %.2f us, %.3f %% of the %.2f ms of a frame at 120 fps\n",
                    frame->second.ns / 1e3, 100 * frame->second.ns / kFrameAt120FpsNs,
                    kFrameAt120FpsNs / 1e6);
    }
    std::printf("\n");
    for (const auto& [name, m] : r.medians) {
        std::printf("median-ns\t%s\t%.3f\n", name.c_str(), m.ns);
    }
}

// Out of line, so callgrind can count this function alone
// (--toggle-collect=*RunFrames*).
__attribute__((noinline)) int RunFrames(long frames) {
    kvalgo2::MetaUtils utils = Utils();
    const std::shared_ptr<KvMetadata> frame = scene().frame;
    int rc = 0;
    for (long i = 0; i < frames; ++i) rc |= PluginFrame(utils, frame);
    return rc;
}

}  // namespace

void AddRatio(Ratio ratio) {
    ratios().push_back(std::move(ratio));
}

benchmark::internal::Benchmark* Register(const std::string& name,
                                         std::function<void(benchmark::State&)> body) {
    return benchmark::RegisterBenchmark(name.c_str(),
                                        [body](benchmark::State& state) { body(state); });
}

}  // namespace kvbench

int main(int argc, char** argv) {
    // A camera pipeline runs many threads, so its reference counts are
    // atomic; libstdc++ counts non-atomically until a process's first thread
    // starts. One started here makes this process count as the pipeline does.
    std::thread([] {}).join();
    // Built first: the role statics of the sensor type are then the scene's.
    kvbench::scene();
    for (int i = 1; i < argc; ++i) {
        if (std::strncmp(argv[i], "--frames=", 9) == 0) {
            const long frames = std::atol(argv[i] + 9);
            const int rc = kvbench::RunFrames(frames);
            std::printf("%ld plug-in frames, result %d\n", frames, rc);
            return rc == 0 ? 0 : 1;
        }
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    kvbench::RegisterGetterBenchmarks();
    kvbench::RegisterGeometryBenchmarks();
    kvbench::RegisterHostBenchmarks();
    kvbench::RegisterCaptureBenchmarks();
    kvbench::RegisterSequenceBenchmarks();
    kvbench::RegisterBugReportBenchmarks();
    kvbench::RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    kvbench::PrintTable(reporter);
    if (reporter.errors != 0) {
        std::fprintf(stderr, "metautils_bench: %d benchmark(s) failed\n", reporter.errors);
        return 1;
    }
    return 0;
}
