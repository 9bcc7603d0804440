#!/usr/bin/env bash
# Mutation check of the test suite: applies one-line faults to the library,
# its hardened checks and the device-dump reader, one at a time, rebuilds and
# runs the CTest suite, and counts the faults the suite catches. A fault the
# suite misses is a test the suite lacks (or a fault that cannot change any
# result; the list keeps none of those knowingly).
#
#   scripts/mutate.sh [-k REGEX] [-l]
#
#   -k REGEX  only the mutations whose line in scripts/mutations.txt matches
#   -l        check that every mutation applies (its text found exactly once)
#             and list them, without building
#
# The faults are listed in scripts/mutations.txt, one per line:
#   tree <TAB> file <TAB> text <TAB> replacement <TAB> what it breaks
# where tree is "default" or "hardened" (the METAUTILS_HARDENED build, for
# faults in code that only that build runs) and a "¶" in the texts stands for
# a line break; a replacement of ";" deletes a statement. The two trees are
# build-mutate/ and build-mutate-hard/.
#
# Prints one line per mutation (caught, with the tests that caught it, or
# SURVIVED), then the score, and writes every fault with all the tests that
# catch it to build-mutate/kills.tsv (a test that is the only one to catch a
# fault must stay). Exits non-zero if a mutation did not apply or did not
# build. Sources are restored after each mutation and on interrupt.
set -euo pipefail
cd "$(dirname "$0")/.."

filter="" list=0
while getopts "k:l" opt; do
    case $opt in
        k) filter=$OPTARG ;;
        l) list=1 ;;
        *) sed -n '8,12p' "$0" >&2; exit 2 ;;
    esac
done

mutations=scripts/mutations.txt
# apply <file> <text> <replacement>: replaces the text, which must occur
# exactly once; a "¶" in either stands for a line break.
apply() {
    python3 - "$@" <<'EOF'
import sys
path, old, new = sys.argv[1], sys.argv[2].replace("¶", "\n"), sys.argv[3].replace("¶", "\n")
src = open(path).read()
if src.count(old) != 1:
    sys.exit(f"{path}: the text occurs {src.count(old)} times: {old!r}")
open(path, "w").write(src.replace(old, new))
EOF
}

declare -A tree_dir=([default]=build-mutate [hardened]=build-mutate-hard)
configure() {  # configure <tree>
    local hardened=OFF
    [ "$1" = hardened ] && hardened=ON
    cmake -S . -B "${tree_dir[$1]}" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DMETAUTILS_BUILD_TESTS=ON \
        -DMETAUTILS_HARDENED=$hardened >/dev/null
    cmake --build "${tree_dir[$1]}" -j2 >/dev/null
    ctest --test-dir "${tree_dir[$1]}" -j2 >/dev/null ||
        { echo "the unmutated $1 tree fails its tests" >&2; exit 1; }
}

saved="" saved_file=""
restore() {
    if [ -n "$saved_file" ]; then
        cp "$saved" "$saved_file"
        saved_file=""
    fi
}
saved=$(mktemp)
trap 'restore; rm -f "$saved"' EXIT
trap 'exit 130' INT TERM

declare -A configured=()
total=0 caught=0 broken=0
# Which tests catch which fault: file, fault, the catching tests.
kills=build-mutate/kills.tsv
((list)) || mkdir -p build-mutate
((list)) || : >"$kills"
while IFS=$'\t' read -r -u 3 tree file old new what; do
    [[ -z "$tree" || "$tree" == \#* ]] && continue
    line="$tree	$file	$old	$new	$what"
    [[ -n "$filter" && ! "$line" =~ $filter ]] && continue
    if [[ -z "${tree_dir[$tree]:-}" || -z "$what" ]]; then
        echo "malformed mutation: $line" >&2
        broken=$((broken + 1))
        continue
    fi
    total=$((total + 1))
    if ((!list)) && [ -z "${configured[$tree]:-}" ]; then
        configure "$tree"
        configured[$tree]=1
    fi
    cp "$file" "$saved" && saved_file=$file
    if ! apply "$file" "$old" "$new"; then
        broken=$((broken + 1))
        restore
        continue
    fi
    if ((list)); then
        printf '%-9s %s: %s\n' "$tree" "$file" "$what"
        restore
        continue
    fi
    dir=${tree_dir[$tree]}
    if ! cmake --build "$dir" -j2 >"$dir/mutant-build.log" 2>&1; then
        echo "NOT BUILT $file: $what (see $dir/mutant-build.log)"
        broken=$((broken + 1))
        restore
        continue
    fi
    # The whole suite, so that every test that catches the fault is known,
    # but for the HTML report in a browser: it compares each page with the
    # same build's JSON report, so a fault in the library shows in both alike,
    # and it takes longer than all the other tests together.
    if KVHOST_LOG_ECHO=0 ctest --test-dir "$dir" -j2 --timeout 60 -E '^inspect\.html$' \
        >/dev/null 2>&1; then
        echo "SURVIVED  $file: $what"
        printf '%s\t%s\t\n' "$file" "$what" >>"$kills"
    else
        # Failed CTest entries, and the GoogleTest cases inside them.
        by=$( (sed 's/^[0-9]*://' "$dir/Testing/Temporary/LastTestsFailed.log"
               sed -n 's/^\[  FAILED  \] \([A-Za-z_][A-Za-z0-9_/.]*\).*$/\1/p' \
                   "$dir/Testing/Temporary/LastTest.log") | sort -u | tr '\n' ' ')
        echo "caught    $file: $what (by $(wc -w <<<"$by") tests: $(cut -d' ' -f1-3 <<<"$by"))"
        printf '%s\t%s\t%s\n' "$file" "$what" "$by" >>"$kills"
        caught=$((caught + 1))
    fi
    restore
done 3<"$mutations"

# Rebuild the restored sources so the trees are left unmutated.
for tree in "${!configured[@]}"; do cmake --build "${tree_dir[$tree]}" -j2 >/dev/null; done

if ((list)); then
    echo "$total mutations, $broken not applicable"
else
    echo "score: $caught of $total caught"
    ((broken == 0)) || echo "$broken mutations not applied or not built"
fi
((broken == 0))
