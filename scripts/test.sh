#!/usr/bin/env bash
# Builds and runs every test stage, as CI does:
#   1. host build with the test suite (GoogleTest through CTest), the
#      benchmarks built and run once briefly, so that they do not rot, and the
#      reference of the public header built (target docs), which fails on any
#      undocumented public member
#   2. that build installed into a temporary prefix, and the example plug-in
#      (examples/plugin) built against the installed package and tested
#   3. the whole suite under AddressSanitizer and UndefinedBehaviorSanitizer
#   4. the whole suite on the hardened library (METAUTILS_HARDENED, built
#      beside the default one in the same tree), under the same sanitizers
#   5. the concurrency test under ThreadSanitizer
#   6. 64-bit Arm cross build, the library's suite and the tool's reports
#      under qemu-user
#   7. the libFuzzer targets for a bounded total time (FUZZ_SECONDS, default
#      300, two targets at a time on two cores), and the default and
#      hardened builds compared call by call
# The browser test of the HTML report and the 100,000-event session test
# run in stage 1 only: the page's script is the same whatever the build, the
# sanitizer stages render every page through the outputs test, and the
# session test's reading of 100,000 events would take minutes under the
# sanitizers and qemu for nothing the smaller sessions do not exercise. Each stage prints its time; the last line is the
# host suite's summary.
# scripts/test.sh --quick runs stages 1 and 2 only.
set -euo pipefail
cd "$(dirname "$0")/.."

quick=0
[ "${1:-}" = "--quick" ] && quick=1
if ((quick)); then scripts/bootstrap.sh; else scripts/bootstrap.sh --all; fi

started=$SECONDS
stage_start=$SECONDS
stage() {
    ((SECONDS == started)) || printf '=== (%d s)\n' $((SECONDS - stage_start))
    stage_start=$SECONDS
    printf '\n=== %s\n' "$*"
}
build() {  # build <dir> [cmake args...]
    local dir=$1
    shift
    cmake -S . -B "$dir" -DMETAUTILS_BUILD_TESTS=ON "$@" >/dev/null
    cmake --build "$dir" -j2
}

# Line tables only (-g1): what a backtrace or a sanitizer report needs; full
# debug information took a third of every build's time.
lines="-g1"
stage "host build and tests"
build build -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O2 $lines -DNDEBUG" \
    -DMETAUTILS_BUILD_BENCH=ON
ctest --test-dir build --output-on-failure -j2 | tee build/ctest-summary.log
# Every benchmark once, for a moment: it fails on a getter that stops giving
# the scene's values. Measuring is scripts/bench.sh's.
# The program's outputs on a session and a bug report of real size: smaller here.
KVBENCH_REAL_EVENTS=3000 KVBENCH_BUGREPORT_MB=4 build/bench/metautils_bench --benchmark_min_time=0.001 >/dev/null
# The reference of include/MetaUtils.h: a public member without a comment
# fails here.
cmake --build build --target docs

stage "installed package: the example plug-in built and tested against it"
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
cmake --install build --prefix "$prefix" >/dev/null
rm -rf build-plugin  # nothing cached from an earlier prefix
cmake -S examples/plugin -B build-plugin -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build build-plugin -j2
ctest --test-dir build-plugin --output-on-failure
((quick)) && exit 0

san="-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer"
export GTEST_FILTER='-LongSession.*'  # from here on
stage "AddressSanitizer and UndefinedBehaviorSanitizer"
# The tree also builds the hardened library into build-asan/hardened/.
build build-asan -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG="$lines" \
    -DCMAKE_CXX_FLAGS="$san" -DMETAUTILS_HARDENED_TWIN=ON \
    -DCMAKE_EXE_LINKER_FLAGS="$san" -DCMAKE_SHARED_LINKER_FLAGS="$san"
ASAN_OPTIONS=detect_leaks=1 ctest --test-dir build-asan --output-on-failure -j2 -E '^inspect\.html\.[0-9]+$'

stage "hardened library: the same suite under the same sanitizers"
# The same executables, the hardened library first on the library path; the
# tool's own unit tests (host code, run under the sanitizers just before) are
# left out, its reports of the samples stay.
LD_LIBRARY_PATH="$PWD/build-asan/hardened" KVTEST_HARDENED=1 ASAN_OPTIONS=detect_leaks=1 \
    ctest --test-dir build-asan --output-on-failure -j2 -E '^(inspect\.html\.[0-9]+|inspect_tests\..*|library_.*)$'

stage "ThreadSanitizer: concurrent first use"
tsan="-fsanitize=thread"
cmake -S . -B build-tsan -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS="$tsan" \
    -DCMAKE_EXE_LINKER_FLAGS="$tsan" -DCMAKE_SHARED_LINKER_FLAGS="$tsan" >/dev/null
cmake --build build-tsan -j2 --target platform_process_tests
TSAN_OPTIONS="halt_on_error=1" ctest --test-dir build-tsan --output-on-failure \
    -R 'platform_process\.ConcurrentFirstUse'

stage "64-bit Arm: cross build, tests under qemu"
# What runs on the phone: the library's suite, and the tool's reports of the
# samples (the same bytes as on the build machine); the tools' own unit tests
# ran in the stages above.
build build-arm64 -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O2 $lines -DNDEBUG" \
    -DMETAUTILS_BUILD_TOOL_TESTS=OFF \
    -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-aarch64-linux-gnu.cmake
ctest --test-dir build-arm64 --output-on-failure -j2

stage "fuzzing"
scripts/fuzz.sh "${FUZZ_SECONDS:-300}"

stage "all stages passed in $((SECONDS - started)) s"
# Closing summary: the host suite's, from stage 1.
tail -n 3 build/ctest-summary.log
