#!/usr/bin/env python3
"""Compares the getters' call digests of two builds, input by input.

    compare_digests.py DEFAULT_DIR HARDENED_DIR [REPLAY_LOG ...]

Each folder holds one file per input that the getters_wellformed fuzz target
ran with KVFUZZ_DIGEST=<folder>: named by a hash of the input's bytes, a line
per call (method, result, hash of the outputs, hash of the frame and log
lines). The replay logs map those names back to the corpus files (libFuzzer's
"Running: <file>" line, then the target's "kvfuzz digest <name>").

Prints one line per disagreement, naming the input and the first call that
differs, and exits 1 on any disagreement or when no input ran; prints the
number of inputs and calls that agree and exits 0 otherwise.
"""
import os
import sys


def digests(folder):
    out = {}
    for name in sorted(os.listdir(folder)):
        with open(os.path.join(folder, name)) as f:
            out[name] = f.read().splitlines()
    return out


def input_names(logs):
    names = {}
    for log in logs:
        running = None
        with open(log, errors="replace") as f:
            for line in f:
                if line.startswith("Running: "):
                    running = line[len("Running: "):].strip()
                elif line.startswith("kvfuzz digest ") and running is not None:
                    names.setdefault(line.split()[2], running)
    return names


def compare(default, hardened, names):
    """The disagreements, one message each, and the number of calls that agree."""
    problems = []
    calls = 0
    for key in sorted(set(default) | set(hardened)):
        which = names.get(key, "input " + key)
        if key not in hardened or key not in default:
            built = "default" if key in default else "hardened"
            problems.append(f"{which}: ran only on the {built} build")
            continue
        a, b = default[key], hardened[key]
        for i in range(max(len(a), len(b))):
            left = a[i] if i < len(a) else "(no call)"
            right = b[i] if i < len(b) else "(no call)"
            if left != right:
                method = (left if left != "(no call)" else right).split(" ")[0]
                problems.append(f"{which}: call {i + 1} ({method}): default \"{left}\", "
                                f"hardened \"{right}\"")
                break
        else:
            calls += len(a)
    return problems, calls


def main(argv):
    if len(argv) < 3:
        print(__doc__.strip().splitlines()[2].strip(), file=sys.stderr)
        return 2
    default, hardened = digests(argv[1]), digests(argv[2])
    problems, calls = compare(default, hardened, input_names(argv[3:]))
    for p in problems:
        print("disagree: " + p)
    if not default and not hardened:
        print("disagree: no input ran")
        return 1
    if problems:
        return 1
    print(f"{len(default)} inputs, {calls} calls agree")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
