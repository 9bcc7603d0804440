#!/usr/bin/env bash
# Builds the libFuzzer targets of fuzz/ (clang, AddressSanitizer and
# UndefinedBehaviorSanitizer, the library and the host stand-ins in the same
# tree) in ./build-fuzz and runs each target for the given time, default 60 s,
# from a copy of its seed corpus in fuzz/corpus/<target>/.
#
#   scripts/fuzz.sh [seconds-per-target]
#
# Prints one line per target (runs, coverage, result) and exits non-zero if a
# target found a crash, a sanitizer report or a broken rule, or did not run.
# A failing input is kept as build-fuzz/runs/<target>/crash-* (or timeout-*,
# oom-*); replay it with build-fuzz/<target>_fuzzer <file>. The log of each
# run is build-fuzz/runs/<target>/log.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-60}
if ! [[ "$seconds" =~ ^[0-9]+$ ]] || ((seconds < 1)); then
    echo "usage: $0 [seconds-per-target]" >&2
    exit 2
fi

build="build-fuzz"
targets=(map_rect final_crop faces_focus dump_reader capture_reader sequence_reader)
cxx=${FUZZ_CXX:-clang++-14}

cmake -S fuzz -B "$build" -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j2 >/dev/null

# Every getter and setter: on tags of any type and length against the
# hardened library (its own tree), on well-formed tags against the default
# one; the well-formed corpus is then replayed through both (below).
hardened="build-fuzz-hardened"
cmake -S fuzz -B "$hardened" -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DMETAUTILS_HARDENED=ON >/dev/null
cmake --build "$hardened" -j2 --target getters_fuzzer getters_wellformed_fuzzer >/dev/null
targets+=(getters getters_wellformed)
declare -A binary=([getters]="$hardened/getters_fuzzer")

# Quiet library logs, stack traces for sanitizer reports.
export KVHOST_LOG_ECHO=0
export UBSAN_OPTIONS=print_stacktrace=1

runs="$build/runs"
rm -rf "$runs"
failed=0
for t in "${targets[@]}"; do
    dir="$runs/$t"
    mkdir -p "$dir/corpus"
    # The run grows its own copy; the tree's seeds stay as they are.
    cp fuzz/corpus/"$t"/* "$dir/corpus/"
    seeds=$(find "$dir/corpus" -type f | wc -l)
    rc=0
    # The readers' seeds are whole files.
    case $t in *_reader) max_len=16384 ;; *) max_len=4096 ;; esac
    "${binary[$t]:-$build/${t}_fuzzer}" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
        -max_len=$max_len -print_final_stats=1 -artifact_prefix="$dir/" "$dir/corpus" \
        >"$dir/log" 2>&1 || rc=$?

    units=$(sed -n 's/^stat::number_of_executed_units: *//p' "$dir/log" | tail -n 1)
    cov=$(grep -oE 'cov: [0-9]+ ft: [0-9]+' "$dir/log" | tail -n 1 || true)
    corpus=$(find "$dir/corpus" -type f | wc -l)
    artifacts=$(find "$dir" -maxdepth 1 -type f \( -name 'crash-*' -o -name 'timeout-*' \
        -o -name 'oom-*' -o -name 'leak-*' \) | sort | tr '\n' ' ')
    if ((rc == 0)) && [ -z "$artifacts" ] && [ -n "$units" ]; then
        result="ok"
    else
        result="FAILED (exit $rc) ${artifacts:-see $dir/log}"
        failed=$((failed + 1))
        # The report, for the CI log.
        grep -E -A 12 'check failed|ERROR: |runtime error|SUMMARY' "$dir/log" | head -n 40 >&2 || true
    fi
    printf 'fuzz %-15s %10s runs  %-18s corpus %d (%d seeds)  %ss  %s\n' "$t" "${units:-0}" \
        "${cov:-cov: ?}" "$corpus" "$seeds" "$seconds" "$result"
done

# Both builds on the well-formed corpus: the same result, outputs and log
# lines for every call (one digest line per call and input).
corpus=$(find "$runs/getters_wellformed/corpus" -type f | sort)
for tree in "$build" "$hardened"; do
    # shellcheck disable=SC2086
    KVFUZZ_DIGEST="$tree/getters.digest" "$tree/getters_wellformed_fuzzer" $corpus \
        >"$tree/getters.replay.log" 2>&1 || true
done
calls=$(wc -l <"$build/getters.digest")
if ((calls > 0)) && cmp -s "$build/getters.digest" "$hardened/getters.digest"; then
    printf 'fuzz %-15s %10s calls agree between the default and the hardened build  ok\n' builds "$calls"
else
    echo "fuzz builds: the default and the hardened build disagree (or did not run):" >&2
    diff "$build/getters.digest" "$hardened/getters.digest" | head -n 20 >&2 || true
    failed=$((failed + 1))
fi
targets+=(builds)
echo "fuzz: $((${#targets[@]} - failed)) passed, $failed failed"
((failed == 0))
