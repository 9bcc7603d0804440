"use strict";
(function () {
  const data = JSON.parse(document.getElementById("data").textContent);
  const $ = (id) => document.getElementById(id);
  // Every text from the data goes in as text, never as markup.
  const el = (tag, cls, text) => {
    const e = document.createElement(tag);
    if (cls) e.className = cls;
    if (text !== undefined) e.textContent = text;
    return e;
  };
  const meanings = { "0": "success", "-1": "tag without data", "-2": "bad argument or failed lookup" };

  document.title = "metautils-inspect: " + data.title;
  $("title").textContent = data.title;
  // What was read, folded under one line: the file, the camera, and how
  // many notes (what the reader chose and left out) and warnings there are.
  const plural = (n, one, many) => n + " " + (n === 1 ? one : many);
  const notes = data.read.filter(([label]) => label === "note").map(([, text]) => text);
  const warnings = data.read.filter(([label]) => label === "warning").map(([, text]) => text);
  const read = $("read").querySelector("dl");
  const summary = [];
  for (const [label, text] of data.read) {
    if (label === "note" || label === "warning") continue;
    read.append(el("dt", "", label), el("dd", "", text));
    if (label !== "description") summary.push(label + " " + text);
  }
  for (const [label, texts] of [["notes", notes], ["warnings", warnings]]) {
    if (!texts.length) continue;
    const dd = el("dd");
    dd.append(...texts.map((t) => el("div", label === "notes" ? "note" : "warning", t)));
    read.append(el("dt", label === "warnings" ? "warning" : "", label), dd);
  }
  $("read-summary").append(document.createTextNode(summary.join(" \u00b7 ") + " \u00b7 " +
                                                   plural(notes.length, "note", "notes")));
  if (warnings.length) {
    $("read-summary").append(document.createTextNode(", "),
                             el("span", "warning", plural(warnings.length, "warning", "warnings")));
  }

  // The pictures are the program's SVG, parsed as XML: a picture that is not
  // well-formed fails here instead of showing half.
  const svgNode = (text) => {
    const root = new DOMParser().parseFromString(text, "image/svg+xml").documentElement;
    if (root.namespaceURI !== "http://www.w3.org/2000/svg") throw new Error("picture is not SVG");
    return document.importNode(root, true);
  };

  // The data holds what changes: each getter's and recorded tag's distinct
  // values once, with the frames where the value changes ("changes": the
  // frames since the change before and the value's place, in pairs); frame
  // numbers and timestamps as steps from the one before.
  const sums = (steps) => {
    const out = new Float64Array(steps.length);
    let sum = 0;
    steps.forEach((step, i) => { sum += step; out[i] = sum; });
    return out;
  };
  const numbers = sums(data.frames.numbers);
  const timestamps = sums(data.frames.timestamps);
  const frameCount = numbers.length;
  const column = (changes) => {
    const at = new Int32Array(changes.length / 2);
    const value = new Int32Array(changes.length / 2);
    let frame = 0;
    for (let k = 0; k < at.length; k++) {
      frame += changes[2 * k];
      at[k] = frame;
      value[k] = changes[2 * k + 1];
    }
    return { at, value };
  };
  // The last place in the ascending `at` whose frame is at most i (0 for none).
  const placeOf = (at, i) => {
    let lo = 0;
    let hi = at.length - 1;
    while (lo < hi) {
      const mid = (lo + hi + 1) >> 1;
      if (at[mid] <= i) lo = mid;
      else hi = mid - 1;
    }
    return lo;
  };
  const valueAt = (c, i) => c.value[placeOf(c.at, i)];
  const callColumns = data.getters.map((g) => column(g.changes));
  const recordedColumns = data.recorded.map((r) => column(r.changes));
  const logged = data.recorded.map((r) => sums(r.logged));
  const geometryColumn = column(data.geometries.changes);
  const geometries = [];
  const geometry = (i) => geometries[i] || (geometries[i] = svgNode(data.geometries.values[i]));

  // The geometry picture is two panels side by side (the sensor's on the
  // left of x = 620, the input image's on the right), 1,240 units wide with
  // 13-unit text. Where the page is too narrow to show it whole with its text
  // at 11 px, the panels are shown one above the other, and the lines that
  // span both (the description, what the capture lacks) as text beside them.
  const PICTURE_WIDTH = 1240;
  const SMALLEST_TEXT = 11 / 13;
  let shownPicture = null;
  const showGeometry = (picture) => {
    shownPicture = picture;
    const place = $("geometry");
    if (place.clientWidth >= PICTURE_WIDTH * SMALLEST_TEXT) {
      place.classList.remove("split");
      place.replaceChildren(picture);
      return;
    }
    place.classList.add("split");
    const height = picture.viewBox.baseVal.height;
    const above = el("div", "wide");
    const below = el("div", "wide");
    const halves = [0, PICTURE_WIDTH / 2].map((left) => {
      const half = picture.cloneNode(true);
      half.setAttribute("viewBox", left + " 0 " + PICTURE_WIDTH / 2 + " " + height);
      half.setAttribute("width", PICTURE_WIDTH / 2);
      for (const t of Array.from(half.querySelectorAll("text"))) {
        // A line of the whole picture's width, as Svg.cpp wraps them (7 units a character).
        if (Number(t.getAttribute("x")) !== 30 || t.textContent.length * 7 <= PICTURE_WIDTH / 2 - 60) continue;
        if (left === 0) {
          const line = el("div", "", t.textContent);
          line.style.color = t.getAttribute("fill") || "";
          (Number(t.getAttribute("y")) < 80 ? above : below).append(line);
        }
        t.remove();
      }
      return half;
    });
    place.replaceChildren(above, halves[0], halves[1], below);
  };
  window.addEventListener("resize", () => { if (shownPicture) showGeometry(shownPicture); });

  const rows = data.getters.map((g) => {
    const tr = el("tr");
    tr.dataset.method = g.method;
    tr.append(el("td", "subsystem", g.subsystem), el("td", "method", g.method),
              el("td", "result"), el("td", "output"));
    $("calls").tBodies[0].append(tr);
    return tr;
  });

  // Whether a call found none of the tags it looked up: the capture does
  // not hold them.
  const lacksTags = (v) => v.reads !== undefined && v.reads.length > 0 && v.reads.every((r) => !r.found);

  const showCall = (tr, v) => {
    tr.dataset.result = v.result === null ? "" : String(v.result);
    tr.dataset.output = JSON.stringify(v.output);
    tr.classList.toggle("failed", v.skipped !== undefined || (v.result !== null && v.result !== 0));
    tr.classList.toggle("empty", v.empty !== undefined);
    tr.classList.toggle("absent", lacksTags(v));
    const result = tr.cells[2];
    result.replaceChildren();
    if (v.skipped !== undefined) {
      result.append(el("span", "code", "--"), el("span", "meaning", "not called"));
    } else if (v.result !== null) {
      const meaning = el("span", "meaning", meanings[v.result] || "failed");
      result.append(el("span", "code", String(v.result)), meaning);
    }
    const out = tr.cells[3];
    const open = out.querySelector("details") !== null && out.querySelector("details").open;
    out.replaceChildren();
    // A success that hands back nothing usable, flagged with the tags whose
    // absence made it so.
    if (v.empty !== undefined) out.append(el("div", "flag", "empty: " + v.empty));
    // A failed call's reason on its row, as the text report prints it.
    if (v.why) out.append(el("div", "why", v.why));
    out.append(el("pre", "", v.text));
    if (v.given && v.given !== "frame") out.append(el("div", "given", "given the " + v.given));
    if (v.fromBlocks) {
      out.append(el("div", "blocks", "from the dump's request and result blocks, the same in " +
                                     "every frame (not recorded): " + v.fromBlocks.join(", ")));
    }
    // On expand: the call's log lines and the tags it looked up.
    const reads = v.reads || [];
    const logs = v.logs || [];
    if (logs.length || reads.length) {
      const details = el("details");
      details.open = open;
      const where = (r) => r.in === "static" ? "the static metadata of camera " + r.camera
                                               : "the " + r.in;
      details.append(
          el("summary", "", plural(logs.length, "log line", "log lines") + ", " +
                            plural(reads.length, "tag read", "tags read")),
          el("pre", "logs", logs.map((l) => l.sink + " L" + l.level + " " + l.text).join("\n")),
          el("pre", "reads", reads.map((r) => "reads " + r.tag + " (" + r.id + ") in " + where(r) +
                                              ": " + (r.found ? r.type + "[" + r.count + "]" : "not found"))
                                  .join("\n")));
      out.append(details);
    }
  };

  const applyFilter = () => {
    const query = $("filter").value.trim().toLowerCase();
    const failedOnly = $("failed").checked;
    const hideAbsent = $("absent").checked;
    let shown = 0;
    let absent = 0;
    data.getters.forEach((g, i) => {
      const lacking = rows[i].classList.contains("absent");
      if (lacking) absent++;
      const match = (!query || g.method.toLowerCase().includes(query) ||
                     g.subsystem.toLowerCase().includes(query)) &&
                    (!failedOnly || rows[i].classList.contains("failed")) &&
                    !(hideAbsent && lacking);
      rows[i].hidden = !match;
      if (match) shown++;
    });
    $("count").textContent = shown + " of " + plural(rows.length, "call", "calls") + " shown" +
                             (hideAbsent ? ", " + absent + " hidden for want of their tags"
                                         : "; " + absent + " lack their tags");
  };
  $("filter").addEventListener("input", applyFilter);
  $("failed").addEventListener("change", applyFilter);
  $("absent").addEventListener("change", applyFilter);


  const recordedRows = data.recorded.map((r) => {
    const tr = el("tr");
    tr.dataset.tag = r.tag;
    tr.append(el("td", "tag", r.tag), el("td", "value"), el("td", "changed"));
    $("recorded").tBodies[0].append(tr);
    return tr;
  });
  $("recorded").hidden = recordedRows.length === 0;
  const showRecorded = (tr, v, changed) => {
    tr.dataset.values = JSON.stringify(v.values);
    tr.cells[1].textContent = v.text;
    tr.cells[2].textContent = changed ? "logged" : "kept from an earlier frame";
  };
  const wasLogged = (k, i) => {
    const frames = logged[k];
    return frames.length > 0 && frames[placeOf(frames, i)] === i;
  };

  // A frame number's first frame.
  const byNumber = new Map();
  numbers.forEach((n, i) => { if (!byNumber.has(n)) byNumber.set(n, i); });
  // Whether the frame numbers rise from frame to frame; the first frame
  // numbered n or more, where they do.
  const rising = numbers.every((n, i) => i === 0 || n > numbers[i - 1]);
  const firstFrom = (n) => {
    const i = placeOf(numbers, n - 1);
    return numbers[i] >= n ? i : i + 1;
  };
  const findings = data.findings || [];
  let current = -1;
  let timelines = null;  // drawn after the first frame is shown
  // The session checks: each finding, a click selecting its first frame;
  // then the checks that passed and those not decidable.
  const findingItems = findings.map((f, n) => {
    const li = el("li", f.severity);
    li.dataset.finding = String(n);
    li.dataset.check = f.check;
    li.dataset.frames = f.frames.join(",");
    li.tabIndex = 0;
    const values = Object.entries(f.values).map(([name, value]) => name + " " + value).join(", ");
    li.append(el("span", "check", f.check), el("span", "severity " + f.severity, f.severity),
              el("span", "frames", f.frames[0] === f.frames[1] ? "frame " + f.frames[0]
                                                                : "frames " + f.frames[0] + ".." + f.frames[1]),
              document.createTextNode(": "), el("span", "message", f.message));
    if (values) li.append(el("span", "values", "[" + values + "]"));
    const go = () => {
      if (byNumber.has(f.frames[0])) select(byNumber.get(f.frames[0]), true);
    };
    li.addEventListener("click", go);
    li.addEventListener("keydown", (e) => {
      if (e.key !== "Enter" && e.key !== " ") return;
      e.preventDefault();
      go();
    });
    $("findings").querySelector("ol").append(li);
    return li;
  });
  if (data.checks) {
    $("findings").hidden = false;
    if (!findingItems.length) $("findings").querySelector("ol").append(el("li", "", "no finding"));
    for (const status of ["passed", "not decidable"]) {
      for (const c of data.checks.filter((check) => check.status === status)) {
        const dd = el("dd");
        dd.dataset.check = c.id;
        dd.dataset.status = c.status;
        dd.append(el("span", "check", c.id), el("span", "why", ": " + c.why +
                                                  (c.record ? " (record " + c.record.join(", ") + ")" : "")));
        $("findings").querySelector("dl").append(el("dt", "", status), dd);
      }
    }
  }
  const markFindings = () => {
    const n = current < 0 ? null : numbers[current];
    findings.forEach((f, k) => {
      findingItems[k].classList.toggle("current", n !== null && f.frames[0] <= n && n <= f.frames[1]);
    });
  };

  const select = (i, updateAddress) => {
    i = Math.max(0, Math.min(frameCount - 1, i));
    current = i;
    callColumns.forEach((c, k) => showCall(rows[k], data.getters[k].values[valueAt(c, i)]));
    recordedColumns.forEach((c, k) => showRecorded(recordedRows[k], data.recorded[k].values[valueAt(c, i)],
                                                   wasLogged(k, i)));
    showGeometry(geometry(valueAt(geometryColumn, i)));
    if (data.session) {
      $("calls").dataset.frame = String(numbers[i]);
      $("frame-slider").value = String(i);
      $("frame-label").textContent = "frame " + numbers[i] + " (" + (i + 1) + " of " + frameCount +
                                     "), timestamp " + timestamps[i] + " ns";
      if (timelines) timelines.follow(i);
      markFindings();
      if (updateAddress) history.replaceState(null, "", "#frame=" + numbers[i]);
    }
    applyFilter();
  };
  const fromAddress = () => {
    const m = /^#frame=(-?\d+)$/.exec(location.hash);
    return m && byNumber.has(Number(m[1])) ? byNumber.get(Number(m[1])) : 0;
  };

  // ---- The timelines ----
  // One chart per quantity over the frames, one step a frame: the recorded
  // tags' own values first (up to 4 numbers a frame; enum values as named
  // steps), then what the getters gave. A value holds until it changes, so
  // it is drawn as steps, with at most one minimum and maximum per pixel
  // column; the frames where a getter failed are marked under its chart,
  // each finding of the session checks is a band in its check's lane. The
  // wheel zooms, a drag pans, the strip above chooses a range, a click
  // selects a frame.
  const SVG = "http://www.w3.org/2000/svg";
  const node = (tag, attributes, text) => {
    const e = document.createElementNS(SVG, tag);
    for (const [name, value] of Object.entries(attributes)) e.setAttribute(name, String(value));
    if (text !== undefined) e.textContent = text;
    return e;
  };
  const num = (v) => (typeof v === "number" && isFinite(v) ? v : NaN);
  const field = (v, name) => (v !== null && typeof v === "object" ? num(v[name]) : NaN);
  const centre = (v, at, size) => field(v, at) + field(v, size) / 2;
  const GETTER_CHARTS = [
    ["zoom ratio", false, [["zoom ratio", "GetAndroidZoomRatio", num]]],
    ["crop region size", false, [["width", "GetAndroidCropRegion", (v) => field(v, "width")],
                                 ["height", "GetAndroidCropRegion", (v) => field(v, "height")]]],
    ["crop region centre", false, [["x", "GetAndroidCropRegion", (v) => centre(v, "left", "width")],
                                   ["y", "GetAndroidCropRegion", (v) => centre(v, "top", "height")]]],
    ["final crop", false, [["width", "GetFinalCropRegion", (v) => field(v && v.crop, "width")],
                           ["centre x", "GetFinalCropRegion", (v) => centre(v && v.crop, "left", "width")]]],
    ["AF state", true, [["AF state", "GetAFState", num]]],
    ["AF mode", true, [["AF mode", "GetAFMode", num]]],
    ["sensitivity (ISO)", false, [["ISO", "GetSensitivity", num]]],
    ["exposure time (ms)", false, [["ms", "GetSensorExposureTime", (v) => num(v) / 1e6]]],
  ];
  const SHOWN_RECORDED = 12;
  const MOST_SERIES = 4;
  const COLOURS = ["#1f77b4", "#ff7f0e", "#2ca02c", "#9467bd"];
  const failedValue = (v) => v.skipped !== undefined || (v.result !== null && v.result !== 0);

  // Each chart: its series (a column, a number per distinct value, NaN for
  // none), the names of its enum values, and which values failed.
  const chartsOf = () => {
    const charts = [];
    const notDrawn = [];
    data.recorded.slice(0, SHOWN_RECORDED).forEach((r, k) => {
      let width = 0;
      const drawable = r.values.every((v) => v.values === null ||
          (Array.isArray(v.values) && v.values.length > 0 && v.values.length <= MOST_SERIES &&
           v.values.every((e) => typeof e === "number")));
      if (drawable) for (const v of r.values) width = Math.max(width, v.values ? v.values.length : 0);
      if (!width) {
        notDrawn.push(r.tag + ": not drawn (no value, or not up to " + MOST_SERIES +
                      " numbers a frame); the table and --csv show it");
        return;
      }
      const names = new Map();
      for (const v of r.values) if (v.name !== undefined && v.values) names.set(v.values[0], v.name);
      const series = [];
      for (let s = 0; s < width; s++) {
        series.push({ label: "[" + s + "]", column: recordedColumns[k],
                      values: Float64Array.from(r.values, (v) => (v.values && s < v.values.length ? num(v.values[s]) : NaN)) });
      }
      charts.push({ title: r.tag, named: names.size > 0, names, series, failed: null });
    });
    for (const [title, named, list] of GETTER_CHARTS) {
      const k = data.getters.findIndex((g) => g.method === list[0][1]);
      if (k < 0) continue;
      const g = data.getters[k];
      const failed = Uint8Array.from(g.values, (v) => (failedValue(v) ? 1 : 0));
      const names = new Map();
      for (const v of g.values) if (v.name !== undefined) names.set(num(v.output), v.name);
      const series = list.map(([label, , of]) => ({
        label, column: callColumns[k],
        values: Float64Array.from(g.values, (v) => (failedValue(v) ? NaN : of(v.output))),
      }));
      const fromBlocks = g.values.some((v) => v.fromBlocks !== undefined);
      charts.push({ title: title + (fromBlocks ? " (reads tags of the dump's blocks, not recorded)" : ""),
                    named, names, series, failed: { column: callColumns[k], failed } });
    }
    return { charts, notDrawn };
  };

  const LEFT = 190;
  const RIGHT = 90;
  const CHART = 90;
  const GAP = 56;
  const LANE = 18;
  const MIN_SPAN = Math.min(frameCount, 8);
  const tickText = (v) => String(Math.round(v * 1000) / 1000);

  const Timelines = () => {
    const { charts, notDrawn } = chartsOf();
    // The range of each chart's values, over the whole session.
    for (const c of charts) {
      let lo = Infinity;
      let hi = -Infinity;
      const ticks = new Set();
      for (const s of c.series) {
        for (const v of s.values) {
          if (isNaN(v)) continue;
          lo = Math.min(lo, v);
          hi = Math.max(hi, v);
          if (c.named) ticks.add(v);
        }
      }
      if (lo === Infinity) { lo = 0; hi = 1; }
      if (hi - lo < 1e-9) hi = lo + 1;
      c.lo = lo;
      c.hi = hi;
      c.ticks = c.named ? Array.from(ticks) : lo === 0 && hi === 1 ? [] : [lo, hi];
    }
    const lanes = [];
    for (const f of findings) if (!lanes.includes(f.check)) lanes.push(f.check);
    const firstOf = (n) => (byNumber.has(n) ? byNumber.get(n) : placeOf(numbers, n));
    const view = { lo: 0, hi: frameCount };
    const root = $("timelines");
    const bar = el("div", "view");
    const whole = el("button", "", "whole session");
    whole.type = "button";
    const range = el("span", "range");
    bar.append(whole, range, el("span", "hint", "wheel: zoom; drag: pan; drag along the strip: frames to show; click: select a frame"));
    const strip = document.createElementNS(SVG, "svg");
    strip.classList.add("strip");
    const svg = document.createElementNS(SVG, "svg");
    svg.classList.add("charts");
    const box = el("div", "box");
    box.append(svg);
    root.append(bar, strip, box);
    let width = 0;
    let cw = 1;
    const x = (i) => LEFT + (i - view.lo) / (view.hi - view.lo) * cw;
    const frameAt = (px) => view.lo + (px - LEFT) / cw * (view.hi - view.lo);
    const cursor = node("rect", { class: "cursor", y: 0, width: 1, height: 0 });

    // A series as steps over the frames in view: a segment narrower than a
    // pixel joins its column's minimum and maximum.
    const stepPath = (s, py) => {
      const { at, value } = s.column;
      let d = "";
      let down = false;  // the pen
      let col = null;    // the pixel column gathered: {px, min, max, last}
      const flush = () => {
        if (!col) return;
        d += (down ? "H" + col.px + "V" : "M" + col.px + " ") + col.min + "V" + col.max + "V" + col.last;
        down = true;
        col = null;
      };
      for (let k = placeOf(at, Math.floor(view.lo)); k < at.length && at[k] < view.hi; k++) {
        const start = Math.max(at[k], view.lo);
        const end = Math.min(k + 1 < at.length ? at[k + 1] : frameCount, view.hi);
        if (end <= start) continue;
        const v = s.values[value[k]];
        const xs = x(start);
        const xe = x(end);
        if (isNaN(v)) {
          if (xe - xs >= 1) { flush(); down = false; }
          continue;
        }
        const y = Math.round(py(v) * 10) / 10;
        if (xe - xs < 1) {
          const px = Math.floor(xs);
          if (col && col.px !== px) flush();
          if (!col) col = { px, min: y, max: y, last: y };
          col.min = Math.min(col.min, y);
          col.max = Math.max(col.max, y);
          col.last = y;
          continue;
        }
        flush();
        d += (down ? "V" + y : "M" + Math.round(xs * 10) / 10 + " " + y) + "H" + Math.round(xe * 10) / 10;
        down = true;
      }
      flush();
      return d;
    };
    // The frames in view where the chart's getter failed, as marks at least
    // 2 pixels wide, neighbours joined.
    const failureMarks = (g, top) => {
      const { at, value } = g.column;
      const marks = [];
      for (let k = placeOf(at, Math.floor(view.lo)); k < at.length && at[k] < view.hi; k++) {
        if (!g.failed[value[k]]) continue;
        const start = Math.max(at[k], view.lo);
        const end = Math.min(k + 1 < at.length ? at[k + 1] : frameCount, view.hi);
        if (end <= start) continue;
        const a = x(start);
        const b = Math.max(x(end), a + 2);
        const last = marks[marks.length - 1];
        if (last && a <= last[1] + 1) last[1] = Math.max(last[1], b);
        else marks.push([a, b]);
      }
      return marks.map(([a, b]) => node("rect", { class: "failed", x: a, y: top, width: b - a, height: 8 }));
    };
    // Frame numbers along an axis, at least 56 pixels apart: every 1, 2, 5,
    // 10... frames, at round frame numbers where the numbers rise with few
    // gaps (a frame the session lacks is labelled at the next one it has,
    // but for steps of one).
    const axis = (y, chart) => {
      const out = [];
      const first = Math.max(0, Math.floor(view.lo));
      const last = Math.min(frameCount, Math.ceil(view.hi)) - 1;
      // By frame number where the numbers in view rise with few gaps.
      const byNumbers = rising && numbers[last] > numbers[first] &&
                        numbers[last] - numbers[first] <= 2 * (last - first);
      const span = byNumbers ? (numbers[last] - numbers[first] + 1) / (last - first + 1) * (view.hi - view.lo)
                             : view.hi - view.lo;
      let step = 1;
      for (let k = 0; step / span * cw < 56; k++) step *= k % 3 === 1 ? 2.5 : 2;
      const base = byNumbers ? numbers[first] : first;
      let before = -1;
      for (let t = Math.ceil(base / step) * step; ; t += step) {
        const i = byNumbers ? firstFrom(t) : t;
        if (i > last || i >= view.hi) break;
        if (i < view.lo || i === before || (byNumbers && step === 1 && numbers[i] !== t)) continue;
        before = i;
        const at = x(i + 0.5);
        out.push(node("path", { d: "M" + at + " " + (y - 14) + "v4", stroke: "#888" }),
                 node("text", { class: "tick", x: at, y, "text-anchor": "middle", "font-size": 11,
                                "data-chart": chart }, String(byNumbers ? t : numbers[i])));
      }
      return out;
    };

    const draw = () => {
      width = box.clientWidth;
      cw = Math.max(100, width - LEFT - RIGHT);
      const span = view.hi - view.lo;
      root.dataset.view = Math.round(view.lo) + "," + Math.round(view.hi);
      range.textContent = "frames " + numbers[Math.max(0, Math.floor(view.lo))] + " to " +
                          numbers[Math.min(frameCount - 1, Math.ceil(view.hi) - 1)] + " (" +
                          Math.round(span) + " of " + frameCount + ")";
      // The strip: the whole session, the frames in view, the findings.
      strip.setAttribute("width", width);
      strip.setAttribute("height", 26);
      const wx = (i) => LEFT + i / frameCount * cw;
      const stripItems = [node("rect", { class: "track", x: LEFT, y: 4, width: cw, height: 18 })];
      for (const f of findings) {
        const a = wx(firstOf(f.frames[0]));
        stripItems.push(node("rect", { class: "finding " + f.severity, x: a, y: 4,
                                       width: Math.max(2, wx(firstOf(f.frames[1]) + 1) - a), height: 18 }));
      }
      stripItems.push(node("rect", { class: "window", x: wx(view.lo), y: 2,
                                     width: Math.max(2, wx(view.hi) - wx(view.lo)), height: 22 }),
                      node("text", { x: LEFT - 6, y: 17, "text-anchor": "end", "font-size": 11 }, "frames in view"));
      strip.replaceChildren(...stripItems);

      const items = [];
      let y = 8;
      if (lanes.length) {
        items.push(node("text", { x: 8, y: y + 12, "font-weight": "bold" }, "findings of the session checks"));
        y += 20;
        lanes.forEach((lane, k) => {
          items.push(node("text", { x: LEFT - 6, y: y + k * LANE + 13, "text-anchor": "end", "font-size": 11 }, lane),
                     node("rect", { x: LEFT, y: y + k * LANE, width: cw, height: LANE - 2, fill: "#fafafa", stroke: "#ddd" }));
        });
        findings.forEach((f, n) => {
          const first = firstOf(f.frames[0]);
          const a = Math.max(LEFT, x(first));
          const b = Math.min(LEFT + cw, x(firstOf(f.frames[1]) + 1));
          const band = node("rect", { class: "band " + f.severity, x: Math.min(a, LEFT + cw - 3),
                                      y: y + lanes.indexOf(f.check) * LANE + 1, width: Math.max(3, b - a),
                                      height: LANE - 4, "data-frame": f.frames[0], "data-finding": n });
          band.append(node("title", {}, f.check + ", frames " + f.frames[0] + ".." + f.frames[1] + ": " + f.message));
          items.push(band);
        });
        y += lanes.length * LANE + 16;
      }
      const chartsTop = y;
      charts.forEach((c, n) => {
        const top = y + 20;
        const bottom = top + CHART;
        const py = (v) => bottom - (v - c.lo) / (c.hi - c.lo) * CHART;
        items.push(node("text", { x: 8, y: y + 12, "font-weight": "bold" }, c.title),
                   node("rect", { x: LEFT, y: top, width: cw, height: CHART, fill: "#fafafa", stroke: "#bbb" }));
        for (const t of c.ticks) {
          const name = c.names.get(t);
          items.push(node("text", { x: LEFT - 6, y: py(t) + 4, "text-anchor": "end", "font-size": 11 },
                          tickText(t) + (c.named && name ? " " + name : "")));
        }
        c.series.forEach((s, k) => {
          const colour = COLOURS[k % COLOURS.length];
          const d = stepPath(s, py);
          if (d) items.push(node("path", { class: "series", d, fill: "none", stroke: colour, "stroke-width": 1.5 }));
          if (c.series.length > 1) {
            items.push(node("text", { x: LEFT + cw + 8, y: top + 14 + 16 * k, fill: colour }, s.label));
          }
        });
        if (c.failed) items.push(...failureMarks(c.failed, bottom + 3));
        items.push(...axis(bottom + 26, n));
        y = bottom + GAP - 16;
      });
      for (const line of notDrawn) {
        items.push(node("text", { x: 8, y: y + 16 }, line));
        y += 24;
      }
      if (!charts.length) {
        items.push(node("text", { x: 8, y: y + 16 }, "no chart: no recorded tag, and none of the getters " +
                                                        "run has a timeline (zoom, crop, final crop, AF, sensitivity, exposure)"));
        y += 24;
      }
      // The findings' frames across the charts, faint.
      for (const f of findings) {
        const a = Math.max(LEFT, x(firstOf(f.frames[0])));
        const b = Math.min(LEFT + cw, x(firstOf(f.frames[1]) + 1));
        if (b > LEFT && a < LEFT + cw) {
          items.push(node("rect", { class: "overlay " + f.severity, x: a, y: chartsTop,
                                    width: Math.max(1, b - a), height: y - chartsTop }));
        }
      }
      items.push(node("text", { x: 8, y: y + 16, fill: "#d62728" },
                      "red marks: frames where the getter failed (result not 0, or not called)"));
      y += 24;
      if (findings.length) {
        items.push(node("text", { x: 8, y: y + 16 }, "bands: the frames of each finding of the session " +
                                                       "checks (red error, orange warning, blue info)"));
        y += 24;
      }
      cursor.setAttribute("height", y);
      items.push(cursor);
      svg.setAttribute("width", width);
      svg.setAttribute("height", y);
      svg.replaceChildren(...items);
      place();
    };
    // The selected frame: a line through the charts.
    const place = () => {
      const inView = current >= view.lo && current < view.hi;
      cursor.style.display = inView ? "" : "none";
      cursor.setAttribute("x", x(current));
      cursor.setAttribute("width", Math.max(1, x(current + 1) - x(current)));
    };
    let pending = false;
    const redraw = () => {
      if (pending) return;
      pending = true;
      requestAnimationFrame(() => { pending = false; draw(); });
    };
    const show = (lo, hi) => {
      const span = Math.max(MIN_SPAN, Math.min(frameCount, hi - lo));
      lo = Math.max(0, Math.min(frameCount - span, lo));
      view.lo = lo;
      view.hi = lo + span;
      redraw();
    };
    whole.addEventListener("click", () => show(0, frameCount));
    svg.addEventListener("wheel", (e) => {
      e.preventDefault();
      const bounds = svg.getBoundingClientRect();
      const at = Math.max(view.lo, Math.min(view.hi, frameAt(e.clientX - bounds.left)));
      const factor = Math.exp(e.deltaY * (e.deltaMode === 1 ? 40 : 1) * 0.002);
      const span = Math.max(MIN_SPAN, Math.min(frameCount, (view.hi - view.lo) * factor));
      const lo = at - (at - view.lo) / (view.hi - view.lo) * span;
      show(lo, lo + span);
    }, { passive: false });
    // A drag pans; a press and release in place selects the frame there, or
    // a finding's first frame on its band.
    let drag = null;
    svg.addEventListener("pointerdown", (e) => {
      if (e.button !== 0) return;
      drag = { x: e.clientX, lo: view.lo, moved: false };
      svg.setPointerCapture(e.pointerId);
    });
    svg.addEventListener("pointermove", (e) => {
      if (!drag) return;
      const dx = e.clientX - drag.x;
      if (Math.abs(dx) > 3) drag.moved = true;
      const span = view.hi - view.lo;
      if (drag.moved) show(drag.lo - dx / cw * span, drag.lo - dx / cw * span + span);
    });
    svg.addEventListener("pointerup", (e) => {
      if (!drag) return;
      const moved = drag.moved;
      drag = null;
      if (moved) return;
      // The pointer is captured: what lies under it is found by its place.
      const under = document.elementFromPoint(e.clientX, e.clientY);
      const band = under && under.closest ? under.closest("[data-finding]") : null;
      if (band) {
        const f = findings[Number(band.getAttribute("data-finding"))];
        if (byNumber.has(f.frames[0])) select(byNumber.get(f.frames[0]), true);
        return;
      }
      const px = e.clientX - svg.getBoundingClientRect().left;
      if (px >= LEFT && px < LEFT + cw) select(Math.floor(frameAt(px)), true);
    });
    // Along the strip, a drag chooses the frames to show; a click centres them.
    let brush = null;
    const stripFrame = (e) => (e.clientX - strip.getBoundingClientRect().left - LEFT) / cw * frameCount;
    strip.addEventListener("pointerdown", (e) => {
      if (e.button !== 0) return;
      brush = { from: stripFrame(e), moved: false };
      strip.setPointerCapture(e.pointerId);
    });
    strip.addEventListener("pointermove", (e) => {
      if (!brush) return;
      const to = stripFrame(e);
      if (Math.abs(to - brush.from) / frameCount * cw > 3) brush.moved = true;
      if (brush.moved) show(Math.min(brush.from, to), Math.max(brush.from, to));
    });
    strip.addEventListener("pointerup", (e) => {
      if (!brush) return;
      const { moved } = brush;
      brush = null;
      if (moved) return;
      const span = view.hi - view.lo;
      show(stripFrame(e) - span / 2, stripFrame(e) + span / 2);
    });
    window.addEventListener("resize", redraw);
    draw();
    return {
      // Keeps the selected frame in view.
      follow: (i) => {
        if (i < view.lo || i >= view.hi) {
          const span = view.hi - view.lo;
          show(i - span / 2, i + span / 2);
        } else {
          place();
        }
      },
      show,
    };
  };

  if (data.session) {
    $("session").hidden = false;
    $("frame-slider").max = String(frameCount - 1);
    $("frame-slider").addEventListener("input", (e) => select(Number(e.target.value), true));
    $("prev").addEventListener("click", () => select(current - 1, true));
    $("next").addEventListener("click", () => select(current + 1, true));
    document.addEventListener("keydown", (e) => {
      if (e.target.closest && e.target.closest("input, textarea, select")) return;
      if (e.key === "ArrowLeft") select(current - 1, true);
      else if (e.key === "ArrowRight") select(current + 1, true);
      else return;
      e.preventDefault();
    });
    window.addEventListener("hashchange", () => select(fromAddress(), false));
  }
  if (frameCount > 0) select(data.session ? fromAddress() : 0, false);
  performance.mark("frame-shown");
  // The timelines come after the first frame is shown.
  if (data.session && frameCount > 0) {
    setTimeout(() => {
      timelines = Timelines();
      timelines.follow(current);
      performance.mark("timelines-shown");
    }, 0);
  }
})();
