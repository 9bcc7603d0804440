#!/usr/bin/env bash
# Builds the libFuzzer targets of fuzz/ (clang, AddressSanitizer and
# UndefinedBehaviorSanitizer, the library and the host stand-ins in the same
# tree) in ./build-fuzz and fuzzes them for a total time, default 300 s, each
# from a copy of its seed corpus in fuzz/corpus/.
#
#   scripts/fuzz.sh [total-seconds]
#
# The time is spent in two rounds: the first gives every target the same
# share of half of it; the second gives the other half by what each target
# found in the first (the features it added to its corpus), so that the
# time goes where coverage still grows. Each target keeps its corpus from
# one round to the next. The total is the targets' time: as many run at
# once as the machine has cores (FUZZ_JOBS), so on two cores it takes
# about half as long on the clock.
#
# Prints one line per target (inputs run and per second, coverage, result)
# and exits non-zero if a target found a crash, a sanitizer report or a
# broken rule, or did not run, or if the default and the hardened library
# disagree on a call of the getters' corpus. A failing input is kept as
# build-fuzz/runs/<target>/crash-* (or timeout-*, oom-*); replay it with
# build-fuzz/<target>_fuzzer <file>. The logs of each run are
# build-fuzz/runs/<target>/log.<round>; the replays' digests and logs are
# in build-fuzz/digests/.
set -euo pipefail
cd "$(dirname "$0")/.."

total=${1:-300}
if ! [[ "$total" =~ ^[0-9]+$ ]] || ((total < 1)); then
    echo "usage: $0 [total-seconds]" >&2
    exit 2
fi

build="build-fuzz"
cxx=${FUZZ_CXX:-clang++-14}
targets=(map_rect final_crop faces_focus dump_reader dump_render capture_reader capture_render
         sequence_reader sequence_render getters getters_wellformed)
# The rendering targets start from their reader's seeds.
declare -A seeds=([dump_render]=dump_reader [capture_render]=capture_reader
                  [sequence_render]=sequence_reader)

# The hardened library is built beside the default one (hardened/ in the
# tree): the getters target runs on it through the library path, and the
# well-formed corpus is replayed through both (below).
cmake -S fuzz -B "$build" -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j2 >/dev/null
twin=$(dirname "$(find "$build" -path '*/hardened/libcom.kovani.metautils.so' | head -n 1)")
[ -f "$twin/libcom.kovani.metautils.so" ] || { echo "fuzz: no hardened library in $build" >&2; exit 1; }
# Every getter and setter on tags of any type and length: the hardened library.
declare -A libpath=([getters]="$twin")

# Quiet library logs, stack traces for sanitizer reports.
export KVHOST_LOG_ECHO=0
export UBSAN_OPTIONS=print_stacktrace=1

runs="$build/runs"
rm -rf "$runs"
for t in "${targets[@]}"; do
    mkdir -p "$runs/$t/corpus"
    # The run grows its own copy; the tree's seeds stay as they are.
    cp fuzz/corpus/"${seeds[$t]:-$t}"/* "$runs/$t/corpus/"
done

# fuzz <target> <round> <seconds>: one run, its log in log.<round>.
fuzz() {
    local t=$1 dir=$runs/$1 max_len=4096
    # The readers' seeds are whole files.
    case $t in *_reader | *_render) max_len=16384 ;; esac
    LD_LIBRARY_PATH=${libpath[$t]:-} "$build/${t}_fuzzer" -max_total_time="$3" -timeout=10 -rss_limit_mb=2048 \
        -max_len=$max_len -print_final_stats=1 -artifact_prefix="$dir/" "$dir/corpus" \
        >"$dir/log.$2" 2>&1
}
features() {  # features <log> <INITED|DONE|last>: the ft: figure of that line
    local line
    case $2 in
        INITED) line=$(grep -E '^#[0-9]+[[:space:]]+INITED' "$1" | tail -n 1 || true) ;;
        *) line=$(grep -E '^#[0-9]+[[:space:]]' "$1" | tail -n 1 || true) ;;
    esac
    sed -nE 's/.* ft: ([0-9]+).*/\1/p' <<<"$line"
}

# round <number> <target>=<seconds>...: the runs of a round, as many at a
# time as the machine has cores; each run's exit status in $runs/<target>/rc.<round>.
round() {
    local r=$1
    shift
    local job
    for job in "$@"; do
        while (($(jobs -rp | wc -l) >= parallel)); do wait -n || true; done
        (
            rc=0
            fuzz "${job%%=*}" "$r" "${job#*=}" || rc=$?
            echo "$rc" >"$runs/${job%%=*}/rc.$r"
        ) &
    done
    wait
}
parallel=${FUZZ_JOBS:-$(nproc)}

declare -A rc found
n=${#targets[@]}
first=$((total / (2 * n)))
((first >= 2)) || first=2
queue=()
for t in "${targets[@]}"; do queue+=("$t=$first"); done
round 1 "${queue[@]}"
for t in "${targets[@]}"; do
    rc[$t]=$(cat "$runs/$t/rc.1")
    start=$(features "$runs/$t/log.1" INITED)
    end=$(features "$runs/$t/log.1" last)
    found[$t]=$((${end:-0} - ${start:-0}))
done
# The second round: the rest of the time by the features found, each target
# at least a second.
rest=$((total - first * n))
sum=0
for t in "${targets[@]}"; do sum=$((sum + found[$t] + 1)); done
declare -A seconds
queue=()
for t in "${targets[@]}"; do
    seconds[$t]=$((rest * (found[$t] + 1) / sum))
    ((seconds[$t] >= 1)) || seconds[$t]=1
    if ((rc[$t] == 0)); then queue+=("$t=${seconds[$t]}"); fi
done
round 2 "${queue[@]}"
for t in "${targets[@]}"; do
    if [ -f "$runs/$t/rc.2" ]; then rc[$t]=$(cat "$runs/$t/rc.2"); fi
done

failed=0
for t in "${targets[@]}"; do
    dir="$runs/$t"
    units=0
    for log in "$dir"/log.*; do
        u=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)
        units=$((units + ${u:-0}))
    done
    last=$(ls "$dir"/log.* | tail -n 1)
    cov=$(grep -oE 'cov: [0-9]+ ft: [0-9]+' "$last" | tail -n 1 || true)
    corpus=$(find "$dir/corpus" -type f | wc -l)
    artifacts=$(find "$dir" -maxdepth 1 -type f \( -name 'crash-*' -o -name 'timeout-*' \
        -o -name 'oom-*' -o -name 'leak-*' \) | sort | tr '\n' ' ')
    time=$((first + seconds[$t]))
    if ((rc[$t] == 0)) && [ -z "$artifacts" ] && ((units > 0)); then
        result="ok"
    else
        result="FAILED (exit ${rc[$t]}) ${artifacts:-see $dir/log.*}"
        failed=$((failed + 1))
        # The report, for the CI log.
        grep -h -E -A 12 'check failed|ERROR: |runtime error|SUMMARY' "$dir"/log.* | head -n 40 >&2 || true
    fi
    printf 'fuzz %-18s %9d runs %7d/s  %-18s +%-5d corpus %-5d %3ss  %s\n' "$t" "$units" \
        $((units / time)) "${cov:-cov: ?}" "${found[$t]}" "$corpus" "$time" "$result"
done

# Both builds on the well-formed corpus, input by input: the same result,
# outputs and log lines for every call. Leak checking is off: it re-runs an
# input whose allocations did not balance. The first input is given twice:
# an input that runs again must not count as a disagreement.
mapfile -t corpus < <(find "$runs/getters_wellformed/corpus" -type f | sort)
rm -rf "$build/digests"
for lib in default hardened; do
    mkdir -p "$build/digests/$lib"
    path=""
    [ $lib = hardened ] && path=$twin
    LD_LIBRARY_PATH=$path KVFUZZ_DIGEST="$build/digests/$lib" "$build/getters_wellformed_fuzzer" \
        -detect_leaks=0 "${corpus[@]}" "${corpus[0]}" >"$build/digests/$lib.log" 2>&1 || true
done
if agree=$(python3 scripts/compare_digests.py "$build/digests/default" "$build/digests/hardened" \
    "$build/digests/default.log"); then
    printf 'fuzz %-18s %s between the default and the hardened build  ok\n' builds "$agree"
else
    echo "fuzz builds: the default and the hardened build disagree:" >&2
    head -n 20 <<<"$agree" >&2
    failed=$((failed + 1))
fi
echo "fuzz: $((n + 1 - failed)) passed, $failed failed"
((failed == 0))
