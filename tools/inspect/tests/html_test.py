#!/usr/bin/env python3
"""The HTML report of metautils-inspect in a real browser (headless Chromium).

Each page of the table is written with --html and opened from disk. Every
call's data-method, data-result and data-output equal the --json report (for
a session at its first, a middle and its last frame through #frame=N); the
filter narrows the table; the browser logs no error; the page is drawn.

    html_test.py TOOL                       run the table
    html_test.py TOOL --shard I/N           run every N-th page of it, from the I-th (0-based)
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
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.actions.wheel_input import ScrollOrigin
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
         "[e.dataset.method, e.dataset.result, e.dataset.output, !e.hidden, "
         "e.querySelector('.why') ? e.querySelector('.why').textContent : null, "
         "e.querySelector('.flag') ? e.querySelector('.flag').textContent : null]);")
RECORDED = ("return Array.from(document.querySelectorAll('#recorded [data-tag]'), e => "
            "[e.dataset.tag, e.dataset.values]);")
FINDINGS = ("return Array.from(document.querySelectorAll('#findings li[data-finding]'), e => "
            "[e.dataset.check, e.querySelector('.severity').textContent, e.dataset.frames, "
            "e.querySelector('.message').textContent, "
            "e.querySelector('.values') ? e.querySelector('.values').textContent : '']);")
CHECKS = ("return Array.from(document.querySelectorAll('#findings dd[data-check]'), e => "
          "[e.dataset.check, e.dataset.status]);")
NOTES = "return Array.from(document.querySelectorAll('#read .note'), e => e.textContent);"
# Every word (a run of letters, digits and _) of the output and log lines of
# the first rows (their details opened) that is split over two lines though
# narrower than its cell.
SPLIT_WORDS = """
const split = [];
for (const d of Array.from(document.querySelectorAll('#calls tr:not([hidden]) details')).slice(0, 20)) {
  d.open = true;
  for (const pre of d.querySelectorAll('pre')) {
    const width = pre.getBoundingClientRect().width;
    const walker = document.createTreeWalker(pre, NodeFilter.SHOW_TEXT);
    for (let node = walker.nextNode(); node; node = walker.nextNode()) {
      for (const m of node.data.matchAll(/\\w+/g)) {
        const range = document.createRange();
        range.setStart(node, m.index);
        range.setEnd(node, m.index + m[0].length);
        const rects = Array.from(range.getClientRects());
        if (rects.length > 1 && rects.reduce((sum, r) => sum + r.width, 0) < width) {
          split.push(m[0]);
        }
      }
    }
  }
}
return split;
"""
# The smallest text of a picture, in pixels on the screen.
SMALLEST_TEXT = """
let smallest = Infinity;
for (const t of document.querySelectorAll(arguments[0] + ' svg text')) {
  if (!t.textContent.trim()) continue;
  const size = parseFloat(getComputedStyle(t).fontSize) * t.getScreenCTM().a;
  smallest = Math.min(smallest, size);
}
return smallest;
"""


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


def lacks_tags(call):
    """Whether a call found none of the tags it looked up."""
    return bool(call["reads"]) and not any(r["found"] for r in call["reads"])


def check_calls(shown, calls, where):
    assert len(shown) == len(calls), (where, len(shown), len(calls))
    for (method, result, output, _, why, flag), call in zip(shown, calls):
        assert method == call["method"], (where, method, call["method"])
        want = "" if call["result"] is None else str(call["result"])
        assert result == want, (where, method, result, want)
        assert json.loads(output) == call["output"], (where, method, output, call["output"])
        # A failed call's reason on its row; a success that is empty, flagged.
        assert why == call.get("why"), (where, method, why, call.get("why"))
        assert call["result"] not in (-1, -2) or why, (where, method, "no reason")
        want = "empty: " + call["empty"] if "empty" in call else None
        assert flag == want, (where, method, flag, want)


def check_widths(driver, url, session):
    """At a laptop's widths: the pictures' text at 11 px or more, the
    geometry picture as wide as the charts, words kept whole in the lines."""
    try:
        check_each_width(driver, url, session)
    finally:
        driver.set_window_size(1100, 900)


def check_each_width(driver, url, session):
    for width in (900, 1400):
        driver.set_window_size(width, 900)
        driver.get(url)
        if session:
            timelines_shown(driver)
        for picture in ("#geometry",) + (("#timelines",) if session else ()):
            smallest = driver.execute_script(SMALLEST_TEXT, picture)
            assert smallest >= 11 - 1e-3, (width, picture, smallest)
        if session:
            # Each chart labels its frames along its axis, the labels apart.
            ticks = {}
            for chart, left, right, _ in driver.execute_script(TICKS):
                ticks.setdefault(chart, []).append((left, right))
            assert ticks, width
            for chart, boxes in ticks.items():
                assert len(boxes) >= 3, (width, chart, boxes)
                assert all(a[1] < b[0] for a, b in zip(boxes, boxes[1:])), (width, chart, boxes)
            boxes = driver.execute_script(
                "return ['#geometry', '#timelines'].map(s => "
                "document.querySelector(s).getBoundingClientRect().width);")
            assert abs(boxes[0] - boxes[1]) < 1, (width, boxes)
        # Nothing to scroll sideways: the page and the picture fit the window.
        overflow = driver.execute_script(
            "const g = document.getElementById('geometry'), d = document.documentElement;"
            "return [g.scrollWidth - g.clientWidth, d.scrollWidth - d.clientWidth];")
        assert max(overflow) <= 1, (width, overflow)
        split = driver.execute_script(SPLIT_WORDS)
        assert not split, (width, split[:5])


def wait_for_frame(driver, number):
    WebDriverWait(driver, 60).until(lambda d: d.execute_script(
        "return document.getElementById('calls').dataset.frame") == str(number))


# The charts' step paths: their commands, and the width they are drawn in.
PATHS = ("return Array.from(document.querySelectorAll('#timelines path.series'), "
         "p => p.getAttribute('d'));")
VIEW = "return document.getElementById('timelines').dataset.view.split(',').map(Number);"
# Per chart, the frame labels along its axis, left to right, as boxes.
TICKS = """
return Array.from(document.querySelectorAll('#timelines svg.charts text.tick'), t => {
  const b = t.getBoundingClientRect();
  return [t.getAttribute('data-chart'), b.left, b.right, t.textContent];
});
"""


def timelines_shown(driver):
    WebDriverWait(driver, 60).until(lambda d: d.execute_script(
        "return performance.getEntriesByName('timelines-shown').length") == 1)


def check_timelines(driver, url, report):
    """The charts draw steps, at most one minimum and maximum per pixel
    column, with frame numbers along each axis; the wheel zooms down to a
    few frames, a drag pans, the strip chooses a range, a click selects the
    frame under the pointer."""
    frames = [f["frame"] for f in report["frames"]]
    driver.get(url)
    timelines_shown(driver)
    charts = driver.find_element(By.CSS_SELECTOR, "#timelines svg.charts")
    width = charts.size["width"]
    for d in driver.execute_script(PATHS):
        commands = [c for c in d if c.isalpha()]
        assert set(commands) <= set("MHV"), d[:80]
        assert len(commands) <= 5 * width, (len(commands), width)
    assert driver.execute_script(VIEW) == [0, len(frames)]
    # The wheel over the middle of the charts: fewer frames, around the pointer.
    for _ in range(12):
        ActionChains(driver).scroll_from_origin(ScrollOrigin.from_element(charts, 100, 0), 0, -400) \
            .perform()
    WebDriverWait(driver, 10).until(lambda d: d.execute_script(VIEW)[1] - d.execute_script(VIEW)[0]
                                    == min(8, len(frames)))
    lo, hi = driver.execute_script(VIEW)
    # Frame by frame: a click on the charts selects the frame under it.
    ActionChains(driver).move_to_element_with_offset(charts, 100, 0).click().perform()
    at = int(driver.execute_script("return document.getElementById('calls').dataset.frame"))
    assert at in frames[lo:hi], (at, lo, hi)
    cursor = driver.find_element(By.CSS_SELECTOR, "#timelines .cursor").rect
    middle = charts.rect["x"] + charts.rect["width"] / 2 + 100
    assert cursor["x"] <= middle <= cursor["x"] + cursor["width"] + 1, (cursor, middle)
    # Each frame in view labelled along the axis.
    labels = [int(t[3]) for t in driver.execute_script(TICKS) if t[0] == "0"]
    first = frames.index(labels[0])
    assert labels == frames[first:first + len(labels)] and len(labels) >= hi - lo - 1, (labels, lo, hi)
    # A drag to the left shows later frames.
    ActionChains(driver).move_to_element(charts).click_and_hold().move_by_offset(-200, 0) \
        .release().perform()
    WebDriverWait(driver, 10).until(lambda d: d.execute_script(VIEW)[0] > lo or hi == len(frames))
    # Along the strip, the middle half of the session.
    strip = driver.find_element(By.CSS_SELECTOR, "#timelines svg.strip")
    track = driver.find_element(By.CSS_SELECTOR, "#timelines .track").rect
    left = track["x"] - strip.rect["x"] - strip.rect["width"] / 2
    ActionChains(driver).move_to_element_with_offset(strip, left + track["width"] / 4, 0) \
        .click_and_hold().move_by_offset(track["width"] / 2, 0).release().perform()
    WebDriverWait(driver, 10).until(lambda d: abs(d.execute_script(VIEW)[0] - len(frames) / 4) <= 1
                                    and abs(d.execute_script(VIEW)[1] - len(frames) * 3 / 4) <= 1)
    driver.find_element(By.XPATH, "//button[text()='whole session']").click()
    WebDriverWait(driver, 10).until(lambda d: d.execute_script(VIEW) == [0, len(frames)])


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
    # With the lookups, which a session's JSON gives only with --tags.
    report = json.loads(inspect(tool, args, scratch, "--json",
                                *(["--tags"] if "--frames" in args else [])))
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
        if len(frames) > 16:
            check_timelines(driver, url, report)
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
    driver.find_element(By.ID, "filter").clear()
    # One switch hides the calls whose tags the capture does not hold, and
    # the count says how many.
    if "--frames" in args:
        at = driver.execute_script("return document.getElementById('calls').dataset.frame")
        calls = next(f["calls"] for f in report["frames"] if str(f["frame"]) == at)
    driver.find_element(By.ID, "absent").click()
    shown = [c[0] for c in driver.execute_script(CALLS) if c[3]]
    lacking = sum(lacks_tags(c) for c in calls)
    assert shown == [c["method"] for c in calls if not lacks_tags(c)], (name, shown)
    count = driver.find_element(By.ID, "count").text
    assert count.startswith("%d of %d calls shown, %d hidden" % (len(shown), len(calls), lacking)), \
        (name, count)
    if text is not None:
        cells = driver.execute_script("return document.getElementById('calls').textContent")
        assert text in cells, (name, text)
        assert driver.execute_script("return document.scripts.length") == 2, name
        assert driver.execute_script("return document.querySelectorAll('tbody script').length") == 0
    # Self-contained: the browser fetched nothing for the page.
    assert driver.execute_script("return performance.getEntriesByType('resource').length") == 0
    assert colours(driver.get_screenshot_as_png()) > 8, (name, "blank page")
    check_widths(driver, url, "--frames" in args)
    # Nothing in the browser's console: no error, no warning.
    logged = [e for e in driver.get_log("browser") if e["level"] in ("SEVERE", "WARNING")]
    assert not logged, (name, logged)


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
            pages = PAGES
            if sys.argv[2:3] == ["--shard"]:
                shard, shards = (int(n) for n in sys.argv[3].split("/"))
                pages = PAGES[shard::shards]
            failed = 0
            for args, text in pages:
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
