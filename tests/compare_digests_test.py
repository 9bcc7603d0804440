#!/usr/bin/env python3
"""The comparison of the two builds' fuzz digests (scripts/compare_digests.py)
on folders written here: a planted disagreement is reported with its input and
call, an input that ran twice is not."""
import os
import subprocess
import sys
import tempfile
import unittest

SCRIPT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "scripts",
                      "compare_digests.py")
CALLS = ["GetAFState 0 00000000000000aa 00000000000000bb",
         "GetAFMode -2 0000000000000000 00000000000000cc"]


class CompareDigests(unittest.TestCase):
    def run_on(self, default, hardened, log):
        with tempfile.TemporaryDirectory() as tmp:
            dirs = []
            for name, files in (("default", default), ("hardened", hardened)):
                d = os.path.join(tmp, name)
                os.mkdir(d)
                for key, lines in files.items():
                    with open(os.path.join(d, key), "w") as f:
                        f.write("".join(line + "\n" for line in lines))
                dirs.append(d)
            log_path = os.path.join(tmp, "replay.log")
            with open(log_path, "w") as f:
                f.write(log)
            r = subprocess.run([sys.executable, SCRIPT, *dirs, log_path], capture_output=True,
                               text=True)
            return r.returncode, r.stdout

    def test_cases(self):
        same = {"k1": CALLS, "k2": CALLS[:1]}
        # libFuzzer's replay log: an input repeated (a leak check's re-run)
        # writes its file again and names the same key.
        log = ("Running: corpus/a\nkvfuzz digest k1\nExecuted corpus/a\n"
               "Running: corpus/b\nkvfuzz digest k2\nkvfuzz digest k2\n")
        changed = {"k1": CALLS, "k2": ["GetAFState 0 00000000000000aa 00000000000000bd"]}
        cases = [
            ("agree, one input repeated", same, same, 0, ["2 inputs, 3 calls agree"]),
            ("planted disagreement", same, changed, 1,
             ["disagree: corpus/b: call 1 (GetAFState): default", "00bb\", hardened", "00bd\""]),
            ("a call missing", same, {"k1": CALLS[:1], "k2": CALLS[:1]}, 1,
             ["corpus/a: call 2 (GetAFMode)", "hardened \"(no call)\""]),
            ("an input on one build", same, {"k1": CALLS}, 1,
             ["corpus/b: ran only on the default build"]),
            ("an input not in the log", {"k9": CALLS}, {"k9": CALLS[:1]}, 1,
             ["input k9: call 2"]),
            ("nothing ran", {}, {}, 1, ["no input ran"]),
        ]
        for name, default, hardened, code, texts in cases:
            with self.subTest(name):
                rc, out = self.run_on(default, hardened, log)
                self.assertEqual(rc, code, out)
                for text in texts:
                    self.assertIn(text, out)


if __name__ == "__main__":
    unittest.main()
