#!/usr/bin/env bash
# Measures what the library costs a plug-in (bench/), as ratios measured in
# one run:
#   1. build-bench: the default build with the benchmarks; every benchmark
#      with repetitions, its table of ratios and targets
#   2. build-bench-hardened: the same with -DMETAUTILS_HARDENED=ON; the
#      plug-in frame of both builds, run in turns, and the ratio of their
#      medians. Both builds give the same sonames and symbols, so they are
#      two processes. A tree without that option reports "not measured".
# Options: --quick (fewer repetitions); any other arguments go to the
# default build's benchmark binary (e.g. --benchmark_filter=getter).
set -euo pipefail
cd "$(dirname "$0")/.."

repetitions=9
turns=5
if [ "${1:-}" = "--quick" ]; then
    repetitions=3
    turns=2
    shift
fi
scripts/bootstrap.sh

configure() {  # configure <dir> [cmake args...]
    local dir=$1
    shift
    cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DMETAUTILS_BUILD_TESTS=OFF \
        -DMETAUTILS_BUILD_BENCH=ON "$@" >/dev/null
}
frame_median() {  # frame_median <bench binary>: the plug-in frame's median CPU ns
    "$1" --benchmark_filter='^frame/plug-in frame$' --benchmark_repetitions="$repetitions" \
        --benchmark_report_aggregates_only=true 2>/dev/null |
        awk -F'\t' '$1 == "median-ns" && $2 == "frame/plug-in frame" { print $3 }'
}

configure build-bench
cmake --build build-bench -j2 --target metautils_bench
hardened=0
# A tree that knows the option caches it as a BOOL; otherwise it is unused.
configure build-bench-hardened -DMETAUTILS_HARDENED=ON 2>/dev/null
if grep -q '^METAUTILS_HARDENED:BOOL=ON$' build-bench-hardened/CMakeCache.txt; then
    cmake --build build-bench-hardened -j2 --target metautils_bench
    hardened=1
fi

printf '\n=== every benchmark, %s repetitions, medians\n' "$repetitions"
# (Debian's Google Benchmark 1.7 stops on its own check when repetitions are
# interleaved at random and a benchmark's iteration count differs between
# them; repetitions run one after another.)
build-bench/bench/metautils_bench --benchmark_repetitions="$repetitions" \
    --benchmark_report_aggregates_only=true --benchmark_color=false "$@"

printf '\n=== hardened build against the default one: the plug-in frame\n'
if ((hardened)); then
    default_ns=()
    hardened_ns=()
    for ((i = 0; i < turns; i++)); do  # in turns, so that a change of load hits both
        default_ns+=("$(frame_median build-bench/bench/metautils_bench)")
        hardened_ns+=("$(frame_median build-bench-hardened/bench/metautils_bench)")
    done
    median() { printf '%s\n' "$@" | sort -g | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }
    d=$(median "${default_ns[@]}")
    h=$(median "${hardened_ns[@]}")
    awk -v d="$d" -v h="$h" 'BEGIN {
        r = h / d
        printf "  default %.0f ns, hardened %.0f ns per frame\n", d, h
        printf "  %-62s %7.2f  <= 1.10 %s\n", "plug-in frame: hardened / default", r,
               (r <= 1.10 ? "met" : "MISSED")
    }'
else
    echo "  plug-in frame: hardened / default: not measured (this tree has no METAUTILS_HARDENED option)"
fi
