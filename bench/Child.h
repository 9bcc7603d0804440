// What the program a user runs costs: a run of metautils-inspect in a child
// process (the stand-ins fresh, as a user's run has them), its processor
// time and peak resident size, and the same for a shell command to compare
// with (grep -c over the same bytes). Figures are processor time, user and
// system: on a shared machine steadier than the wall clock's.
#pragma once

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

namespace kvbench {

struct ChildCost {
    bool ok = false;
    double cpuSeconds = 0;
    long peakKiB = 0;
};

// metautils-inspect with `args`, standard output into `out`.
ChildCost RunInspect(const std::vector<std::string>& args, const std::string& out);
// `command` through the shell.
ChildCost RunCommand(const std::string& command);

// Reports a child's runs of a benchmark: the time of an iteration is the
// child's processor time (the benchmark must use manual time); counters:
// child_cpu_s, the mean of it, which the ratio table takes for the
// benchmark's time, and peak_MB, the peak resident size.
class ChildTimer {
public:
    explicit ChildTimer(benchmark::State& state) : state_(state) {}
    // False (and the benchmark skipped with `what`) when the run failed.
    bool add(const ChildCost& cost, const char* what);
    ~ChildTimer();

private:
    benchmark::State& state_;
    long peakKiB_ = 0;
    double cpuSeconds_ = 0;
    int runs_ = 0;
};

}  // namespace kvbench
