// The figures the benchmarks are run for: ratios of one benchmark's median
// time to another's, measured in the same run, each with its target if it
// has one. Absolute times vary from machine to machine; these do much less.
#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <string>

namespace kvbench {

struct Ratio {
    std::string what;
    std::string measured;   // benchmark name
    std::string reference;  // benchmark name
    double target = 0;      // the ratio must not exceed it; 0: no target
    std::string note;       // printed beside the figure
};

void AddRatio(Ratio ratio);

// Registers a benchmark under `name`; `body` runs the timing loop.
benchmark::internal::Benchmark* Register(const std::string& name,
                                         std::function<void(benchmark::State&)> body);

// The benchmarks of each file.
void RegisterGetterBenchmarks();
void RegisterGeometryBenchmarks();
void RegisterHostBenchmarks();
void RegisterCaptureBenchmarks();
void RegisterSequenceBenchmarks();
void RegisterBugReportBenchmarks();

}  // namespace kvbench
