#!/usr/bin/env python3
"""The HTML report of metautils-inspect in a real browser (headless Chromium).

Each page of the table is written with --html and opened from disk. Every
call's data-method, data-result and data-output equal the --json report (for
a session at its first, a middle and its last frame through #frame=N); the
filter narrows the table; the browser logs no error; the page is drawn.

    html_test.py TOOL                       run the table
    html_test.py TOOL --screenshot OUT.png  write the sample session's page as a picture
"""
import json
import os
import shutil
import struct
import subprocess
import sys
import tempfile
import time
import zlib

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.support.ui import WebDriverWait

SOURCE = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", "..", ".."))
DUMPS = "tools/inspect/tests/dumps/"
INPUT = ["--input", "4000x3000"]
SESSION = ["samples/session-android13.txt", "--frames", "--getters", "all"]

# (files and options, what the page must also show)
PAGES = [
    (["samples/main-faces.json"], None),
    (["samples/isz-zoom.json"], None),
    (["samples/tele-shift.json"], None),
    (["samples/dumpsys-camera.txt"], None),
    (["samples/session-android13.txt"], None),
    (["tools/inspect/tests/captures/no-adapter.json"], None),
    (["tools/inspect/tests/captures/shading-map.json"], None),
    ([DUMPS + "static-only.txt"], None),
    ([DUMPS + "frame-only.txt", "--input", "1920x1080"], None),
    ([DUMPS + "no-geometry.txt"], None),
    ([DUMPS + "no-active-array.txt"] + INPUT, None),
    ([DUMPS + "elided-crlf.txt"] + INPUT, None),
    ([DUMPS + "fragment.txt"] + INPUT, None),
    ([DUMPS + "fragment-cut.txt"] + INPUT, None),
    ([DUMPS + "physical-ids.txt"], None),
    ([DUMPS + "usb-camera.txt"], None),
    # A vendor string that spells a script element: shown as text, never run.
    ([DUMPS + "script-tag.txt"], "<script>alert(1)</script>"),
    (SESSION, None),
    (["samples/session-android11.txt", "--frames"], None),
    # Watch output alone, and after a dump of the same phone.
    (["samples/session-watch.txt", "--frames"], None),
    (["samples/dumpsys-camera.txt", "samples/session-watch.txt", "--frames"], None),
    # The session checks' findings, in the panel and on the timelines.
    (["samples/session-crop-lag.txt", "--frames", "--check"], None),
]

CHROMIUM_FLAGS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic",
                  "--no-first-run", "--disable-background-networking",
                  "--disable-component-update", "--disable-sync", "--window-size=1100,900"]

CALLS = ("return Array.from(document.querySelectorAll('[data-method]'), e => "
         "[e.dataset.method, e.dataset.result, e.dataset.output, !e.hidden]);")
RECORDED = ("return Array.from(document.querySelectorAll('#recorded [data-tag]'), e => "
            "[e.dataset.tag, e.dataset.values]);")
FINDINGS = ("return Array.from(document.querySelectorAll('#findings li[data-finding]'), e => "
            "[e.dataset.check, e.querySelector('.severity').textContent, e.dataset.frames, "
            "e.querySelector('.message').textContent, "
            "e.querySelector('.values') ? e.querySelector('.values').textContent : '']);")
CHECKS = ("return Array.from(document.querySelectorAll('#findings dd[data-check]'), e => "
          "[e.dataset.check, e.dataset.status]);")
NOTES = "return Array.from(document.querySelectorAll('#read details div'), e => e.textContent);"


def browser(profile):
    options = webdriver.ChromeOptions()
    options.binary_location = shutil.which("chromium")
    for flag in CHROMIUM_FLAGS + ["--user-data-dir=" + profile]:
        options.add_argument(flag)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    return webdriver.Chrome(service=Service(shutil.which("chromedriver")), options=options)


def inspect(tool, args, scratch, *extra):
    done = subprocess.run([tool] + args + list(extra), cwd=SOURCE, capture_output=True)
    # With checks, status 2 says that a finding of error severity exists.
    if done.returncode not in ((0, 2) if "--check" in args else (0,)):
        raise subprocess.CalledProcessError(done.returncode, [tool] + args, done.stdout,
                                            done.stderr)
    return done.stdout


def colours(png):
    """The distinct colours of an 8-bit RGB or RGBA PNG."""
    width, height, depth, kind = struct.unpack(">IIBB", png[16:26])
    assert depth == 8 and kind in (2, 6), (depth, kind)
    data, pos = b"", 8
    while pos < len(png):
        size, = struct.unpack(">I", png[pos:pos + 4])
        if png[pos + 4:pos + 8] == b"IDAT":
            data += png[pos + 8:pos + 8 + size]
        pos += 12 + size
    raw, bpp = zlib.decompress(data), 3 if kind == 2 else 4
    stride, seen, prev = width * bpp, set(), bytearray(width * bpp)
    for y in range(height):
        at = y * (stride + 1)
        kind_of_row, line = raw[at], bytearray(raw[at + 1:at + 1 + stride])
        for x in range(stride):
            a = line[x - bpp] if x >= bpp else 0
            b = prev[x]
            if kind_of_row == 1:
                line[x] = (line[x] + a) & 255
            elif kind_of_row == 2:
                line[x] = (line[x] + b) & 255
            elif kind_of_row == 3:
                line[x] = (line[x] + (a + b) // 2) & 255
            elif kind_of_row == 4:
                c = prev[x - bpp] if x >= bpp else 0
                p = a + b - c
                pa, pb, pc = abs(p - a), abs(p - b), abs(p - c)
                line[x] = (line[x] + (a if pa <= pb and pa <= pc else b if pb <= pc else c)) & 255
        if y % 8 == 0:
            seen.update(bytes(line[i:i + 3]) for i in range(0, stride, bpp * 4))
        prev = line
    return len(seen)


def check_calls(shown, calls, where):
    assert len(shown) == len(calls), (where, len(shown), len(calls))
    for (method, result, output, _), call in zip(shown, calls):
        assert method == call["method"], (where, method, call["method"])
        want = "" if call["result"] is None else str(call["result"])
        assert result == want, (where, method, result, want)
        assert json.loads(output) == call["output"], (where, method, output, call["output"])


def wait_for_frame(driver, number):
    WebDriverWait(driver, 60).until(lambda d: d.execute_script(
        "return document.getElementById('calls').dataset.frame") == str(number))


def check_findings(driver, url, report):
    """The panel lists the findings of --json, and the checks that passed or
    are not decidable; a click on a finding selects its first frame; each
    finding is a band on the timelines."""
    findings = report["findings"]
    assert findings, "no finding to show"
    driver.get(url + "#frame=%d" % report["frames"][-1]["frame"])
    wait_for_frame(driver, report["frames"][-1]["frame"])
    want = [[f["check"], f["severity"], "%d,%d" % tuple(f["frames"]), f["message"],
             "[" + ", ".join("%s %s" % item for item in f["values"].items()) + "]"
             if f["values"] else ""] for f in findings]
    assert driver.execute_script(FINDINGS) == want, (driver.execute_script(FINDINGS), want)
    want = [[c["id"], c["status"]] for c in report["checks"] if c["status"] == "passed"] + \
           [[c["id"], c["status"]] for c in report["checks"] if c["status"] == "not decidable"]
    assert driver.execute_script(CHECKS) == want, (driver.execute_script(CHECKS), want)
    for n in sorted({0, len(findings) - 1}):
        first = findings[n]["frames"][0]
        driver.execute_script("history.replaceState(null, '', '#frame=%d'); "
                              "dispatchEvent(new HashChangeEvent('hashchange'));"
                              % report["frames"][-1]["frame"])
        wait_for_frame(driver, report["frames"][-1]["frame"])
        item = driver.find_element(By.CSS_SELECTOR, '#findings li[data-finding="%d"]' % n)
        driver.execute_script("arguments[0].scrollIntoView({block: 'center'})", item)
        item.click()
        wait_for_frame(driver, first)
        assert driver.execute_script("return location.hash") == "#frame=%d" % first
    WebDriverWait(driver, 60).until(lambda d: d.execute_script(
        "return document.querySelectorAll('#timelines [data-finding]').length") == len(findings))


def check_page(driver, tool, args, text, scratch):
    name = args[0]
    page = os.path.join(scratch, "page.html")
    inspect(tool, args, scratch, "--html", page)
    report = json.loads(inspect(tool, args, scratch, "--json"))
    url = "file://" + page
    driver.get(url)
    if "--frames" in args:
        frames = report["frames"]
        for i in sorted({0, len(frames) // 2, len(frames) - 1}):
            driver.get(url + "#frame=%d" % frames[i]["frame"])
            wait_for_frame(driver, frames[i]["frame"])
            check_calls(driver.execute_script(CALLS), frames[i]["calls"], (name, i))
            shown = [(tag, json.loads(values)) for tag, values in driver.execute_script(RECORDED)]
            want = [(r["tag"], r["values"]) for r in frames[i]["recorded"]]
            assert shown == want, (name, i, shown, want)
        if len(frames) > 1:
            # The next frame by key, and the address follows.
            driver.get(url + "#frame=%d" % frames[0]["frame"])
            wait_for_frame(driver, frames[0]["frame"])
            driver.find_element(By.TAG_NAME, "body").send_keys("\ue014")  # right arrow
            wait_for_frame(driver, frames[1]["frame"])
            assert driver.execute_script("return location.hash") == "#frame=%d" % frames[1]["frame"]
        if "findings" in report:
            check_findings(driver, url, report)
        calls = frames[-1]["calls"]
    else:
        calls = report["calls"]
        check_calls(driver.execute_script(CALLS), calls, name)
    # The notes, folded under one line, as the JSON report gives them (but
    # the session report's last, on what its calls hold).
    notes = report["notes"]
    if "frames" in report:
        assert notes[-1].startswith("calls with"), (name, notes[-1])
        notes = notes[:-1]
    assert driver.execute_script(NOTES) == notes, (name, notes)
    # The filter keeps the calls whose method or subsystem holds the text.
    query = "crop"
    driver.find_element(By.ID, "filter").send_keys(query.upper())
    shown = [c for c in driver.execute_script(CALLS) if c[3]]
    want = [c for c in calls if query in c["method"].lower() or query in c["subsystem"].lower()]
    assert [c[0] for c in shown] == [c["method"] for c in want], (name, shown)
    assert 0 < len(shown) < len(calls), name
    if text is not None:
        cells = driver.execute_script("return document.getElementById('calls').textContent")
        assert text in cells, (name, text)
        assert driver.execute_script("return document.scripts.length") == 2, name
        assert driver.execute_script("return document.querySelectorAll('tbody script').length") == 0
    # Self-contained: the browser fetched nothing for the page.
    assert driver.execute_script("return performance.getEntriesByType('resource').length") == 0
    errors = [e for e in driver.get_log("browser") if e["level"] == "SEVERE"]
    assert not errors, (name, errors)
    assert colours(driver.get_screenshot_as_png()) > 8, (name, "blank page")


def main():
    tool = os.path.abspath(sys.argv[1])
    with tempfile.TemporaryDirectory() as scratch:
        driver = browser(os.path.join(scratch, "profile"))
        try:
            if sys.argv[2:3] == ["--screenshot"]:
                page = os.path.join(scratch, "session.html")
                inspect(tool, SESSION, scratch, "--html", page)
                driver.set_window_size(1400, 1400)
                driver.get("file://" + page + "#frame=115")  # in the middle of the zoom
                time.sleep(0.5)  # the timelines come after the frame
                with open(sys.argv[3], "wb") as out:
                    out.write(driver.get_screenshot_as_png())
                return 0
            failed = 0
            for args, text in PAGES:
                started = time.monotonic()
                try:
                    check_page(driver, tool, args, text, scratch)
                    print("ok   %s (%.1f s)" % (" ".join(args), time.monotonic() - started))
                except Exception as e:  # one line per page, then the next page
                    failed += 1
                    print("FAIL %s: %r" % (" ".join(args), e))
            return 1 if failed else 0
        finally:
            driver.quit()


if __name__ == "__main__":
    sys.exit(main())
