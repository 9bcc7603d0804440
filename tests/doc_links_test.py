#!/usr/bin/env python3
"""Every relative link and picture of the README and the documentation pages
points at a file that exists."""
import glob
import os
import re
import sys

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..")
LINK = re.compile(r"!?\[[^\]]*\]\(([^)\s]+)\)")


def main():
    pages = ["README.md", "fuzz/README.md", "host/README.md"] + sorted(
        os.path.relpath(p, ROOT) for p in glob.glob(os.path.join(ROOT, "docs", "*.md")))
    broken = []
    links = 0
    for page in pages:
        text = open(os.path.join(ROOT, page)).read()
        # Code blocks hold commands, not links.
        text = re.sub(r"```.*?```", "", text, flags=re.S)
        for target in LINK.findall(text):
            if re.match(r"[a-z]+:", target) or target.startswith("#"):
                continue
            links += 1
            path = os.path.normpath(os.path.join(ROOT, os.path.dirname(page),
                                                 target.split("#")[0]))
            if not os.path.exists(path):
                broken.append(f"{page}: {target}")
    for b in broken:
        print("broken link: " + b)
    print(f"{links} relative links in {len(pages)} pages, {len(broken)} broken")
    return 1 if broken or links == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
