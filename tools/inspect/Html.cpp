#include "Html.h"

#include "JsonReader.h"

namespace inspect {
namespace {

// The page around the data: the styles, the places the script fills, the
// script. Nothing in it comes from a file; the data goes in at @DATA@.
const char* const kPage = R"PAGE(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>metautils-inspect</title>
<link rel="icon" href="data:,">
<style>
body { font: 14px/1.4 system-ui, sans-serif; margin: 1em 2em; color: #1d232a; background: #fff; }
h1 { font-size: 1.3em; margin: 0 0 .5em; }
h1 span { font-weight: normal; color: #555; }
dl#read { display: grid; grid-template-columns: max-content 1fr; gap: .1em 1em; margin: 0 0 1em; }
dl#read dt { color: #555; }
dl#read dd { margin: 0; white-space: pre-wrap; }
dl#read .warning { color: #a33; }
#session { margin: 1em 0; position: sticky; top: 0; background: #fff; z-index: 1; }
.pictures { display: flex; flex-wrap: wrap; gap: 1em; align-items: flex-start; }
.pictures > * { flex: 1 1 30em; min-width: 0; }
#timelines:empty { display: none; }
#timelines svg, #geometry svg { max-width: 100%; height: auto; }
#timelines [data-frame] { cursor: pointer; }
#timelines .selected { stroke: #000; stroke-width: 3; }
.frames { display: flex; align-items: center; gap: .5em; margin: .5em 0; }
.frames input[type=range] { flex: 1; }
.controls { display: flex; align-items: center; gap: 1.5em; margin: 1em 0 .5em; }
#filter { width: 20em; padding: .2em .4em; }
#count { color: #555; }
table { border-collapse: collapse; width: 100%; }
th, td { text-align: left; vertical-align: top; padding: .25em .6em; border-bottom: 1px solid #dde; }
th { background: #eef1f6; }
td.method { font-family: ui-monospace, monospace; }
td.result .code { font-family: ui-monospace, monospace; display: inline-block; min-width: 2em; }
td.result .meaning { color: #555; font-size: .9em; }
tr.failed td.result { color: #a33; }
tr.failed td.result .meaning { color: #a33; }
td.output pre { margin: 0; font: 13px/1.35 ui-monospace, monospace; white-space: pre-wrap; word-break: break-all; }
td.output .given { color: #555; font-size: .9em; }
td.output details summary { cursor: pointer; color: #2b5ea8; font-size: .9em; }
td.output pre.logs { color: #444; background: #f6f7f9; padding: .3em; }
td.output .blocks { color: #8a5a00; font-size: .9em; }
dl#read details summary { cursor: pointer; color: #2b5ea8; }
#findings { margin: 1em 0; }
#findings h2 { font-size: 1.1em; margin: 0 0 .3em; }
#findings ol { margin: 0; padding-left: 1.5em; }
#findings li { cursor: pointer; padding: .1em .3em; }
#findings li:hover, #findings li:focus { background: #eef1f6; }
#findings li.current { outline: 2px solid #888; }
#findings .check { font-family: ui-monospace, monospace; font-weight: bold; }
#findings .severity { display: inline-block; min-width: 4.5em; margin: 0 .5em; }
#findings .error { color: #a33; }
#findings .warning { color: #a60; }
#findings .frames, #findings .values, #findings .why { color: #555; }
#findings .values { font-family: ui-monospace, monospace; font-size: .9em; margin-left: .5em; }
#findings dl { display: grid; grid-template-columns: max-content 1fr; gap: .1em 1em; margin: .5em 0 0; }
#findings dd { margin: 0; }
#recorded { margin: 1em 0; }
#recorded td.value { font-family: ui-monospace, monospace; white-space: pre-wrap; word-break: break-all; }
#recorded td.changed { color: #555; font-size: .9em; }
</style>
</head>
<body>
<h1>metautils-inspect <span id="title"></span></h1>
<dl id="read"></dl>
<section id="findings" hidden>
<h2>Session checks</h2>
<ol></ol>
<dl></dl>
</section>
<section id="session" hidden>
<div class="frames">
<button id="prev" type="button" title="previous frame (left arrow)">&#9664;</button>
<input id="frame-slider" type="range" min="0" value="0" aria-label="frame">
<button id="next" type="button" title="next frame (right arrow)">&#9654;</button>
<span id="frame-label"></span>
</div>
</section>
<div class="pictures">
<div id="timelines"></div>
<section id="geometry"></section>
</div>
<div class="controls">
<input id="filter" type="search" placeholder="filter by method or subsystem" aria-label="filter">
<label><input id="failed" type="checkbox"> failed calls only</label>
<span id="count"></span>
</div>
<table id="recorded" hidden>
<thead><tr><th>recorded tag</th><th>value</th><th>in this frame</th></tr></thead>
<tbody></tbody>
</table>
<table id="calls">
<thead><tr><th>subsystem</th><th>method</th><th>result</th><th>output</th></tr></thead>
<tbody></tbody>
</table>
<script type="application/json" id="data">@DATA@</script>
<script>
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
  // The notes (what the reader chose and left out) folded under one line.
  const notes = data.read.filter(([label]) => label === "note").map(([, text]) => text);
  for (const [label, text] of data.read) {
    if (label === "note") continue;
    const cls = label === "warning" ? "warning" : "";
    $("read").append(el("dt", cls, label), el("dd", cls, text));
  }
  if (notes.length) {
    const details = el("details");
    details.append(el("summary", "", notes.length + (notes.length === 1 ? " note" : " notes") +
                                     ": what was read, chosen and left out"),
                   ...notes.map((n) => el("div", "", n)));
    const dd = el("dd");
    dd.append(details);
    $("read").append(el("dt", "", "notes"), dd);
  }

  // The pictures are the program's SVG, parsed as XML: a picture that is not
  // well-formed fails here instead of showing half.
  const svgNode = (text) => {
    const root = new DOMParser().parseFromString(text, "image/svg+xml").documentElement;
    if (root.namespaceURI !== "http://www.w3.org/2000/svg") throw new Error("picture is not SVG");
    return document.importNode(root, true);
  };
  const geometries = [];
  const geometry = (i) => geometries[i] || (geometries[i] = svgNode(data.geometries[i]));

  const rows = data.getters.map((g) => {
    const tr = el("tr");
    tr.dataset.method = g.method;
    tr.append(el("td", "subsystem", g.subsystem), el("td", "method", g.method),
              el("td", "result"), el("td", "output"));
    $("calls").tBodies[0].append(tr);
    return tr;
  });

  const showCall = (tr, v) => {
    tr.dataset.result = v.result === null ? "" : String(v.result);
    tr.dataset.output = JSON.stringify(v.output);
    tr.classList.toggle("failed", v.skipped !== undefined || (v.result !== null && v.result !== 0));
    const result = tr.cells[2];
    result.replaceChildren();
    if (v.skipped !== undefined) {
      result.append(el("span", "code", "--"), el("span", "meaning", "not called"));
    } else if (v.result !== null) {
      result.append(el("span", "code", String(v.result)),
                    el("span", "meaning", meanings[v.result] || "failed"));
    }
    const out = tr.cells[3];
    const open = out.querySelector("details") !== null && out.querySelector("details").open;
    out.replaceChildren(el("pre", "", v.text));
    if (v.given && v.given !== "frame") out.append(el("div", "given", "given the " + v.given));
    if (v.fromBlocks) {
      out.append(el("div", "blocks", "from the dump's request and result blocks, the same in " +
                                     "every frame (not recorded): " + v.fromBlocks.join(", ")));
    }
    // On expand: the call's log lines and the tags it looked up.
    const reads = v.reads || [];
    if (v.logs.length || reads.length) {
      const details = el("details");
      details.open = open;
      const where = (r) => r.in === "static" ? "the static metadata of camera " + r.camera
                                               : "the " + r.in;
      details.append(
          el("summary", "", v.logs.length + (v.logs.length === 1 ? " log line, " : " log lines, ") +
                            reads.length + (reads.length === 1 ? " tag read" : " tags read")),
          el("pre", "logs", v.logs.map((l) => l.sink + " L" + l.level + " " + l.text).join("\n")),
          el("pre", "reads", reads.map((r) => "reads " + r.tag + " (" + r.id + ") in " + where(r) +
                                              ": " + (r.found ? r.type + "[" + r.count + "]" : "not found"))
                                  .join("\n")));
      out.append(details);
    }
  };

  const applyFilter = () => {
    const query = $("filter").value.trim().toLowerCase();
    const failedOnly = $("failed").checked;
    let shown = 0;
    data.getters.forEach((g, i) => {
      const match = (!query || g.method.toLowerCase().includes(query) ||
                     g.subsystem.toLowerCase().includes(query)) &&
                    (!failedOnly || rows[i].classList.contains("failed"));
      rows[i].hidden = !match;
      if (match) shown++;
    });
    $("count").textContent = shown + " of " + rows.length + " calls";
  };
  $("filter").addEventListener("input", applyFilter);
  $("failed").addEventListener("change", applyFilter);

  const recordedRows = data.recorded.map((r) => {
    const tr = el("tr");
    tr.dataset.tag = r.tag;
    tr.append(el("td", "tag", r.tag), el("td", "value"), el("td", "changed"));
    $("recorded").tBodies[0].append(tr);
    return tr;
  });
  $("recorded").hidden = recordedRows.length === 0;
  const showRecorded = (tr, v) => {
    tr.dataset.values = JSON.stringify(v.values);
    tr.cells[1].textContent = v.text;
    tr.cells[2].textContent = v.changed ? "logged" : "kept from an earlier frame";
  };

  const frames = data.frames;
  const byNumber = new Map();
  frames.forEach((f, i) => { if (!byNumber.has(String(f.frame))) byNumber.set(String(f.frame), i); });
  let current = -1;
  // The session checks: each finding, a click selecting its first frame;
  // then the checks that passed and those not decidable.
  const findingItems = (data.findings || []).map((f, n) => {
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
      if (byNumber.has(String(f.frames[0]))) select(byNumber.get(String(f.frames[0])), true);
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
    for (const [status, label] of [["passed", "passed"], ["not decidable", "not decidable"]]) {
      for (const c of data.checks.filter((c) => c.status === status)) {
        const dd = el("dd");
        dd.dataset.check = c.id;
        dd.dataset.status = c.status;
        dd.append(el("span", "check", c.id), el("span", "why", ": " + c.why +
                                                  (c.record ? " (record " + c.record.join(", ") + ")" : "")));
        $("findings").querySelector("dl").append(el("dt", "", label), dd);
      }
    }
  }
  const markFindings = () => {
    const n = current < 0 ? null : frames[current].frame;
    (data.findings || []).forEach((f, k) => {
      findingItems[k].classList.toggle("current", n !== null && f.frames[0] <= n && n <= f.frames[1]);
    });
  };
  const markTimelines = () => {
    for (const e of $("timelines").querySelectorAll(".selected")) e.classList.remove("selected");
    if (current < 0) return;
    for (const e of $("timelines").querySelectorAll('[data-frame="' + frames[current].frame + '"]')) {
      e.classList.add("selected");
    }
  };
  const select = (i, updateAddress) => {
    i = Math.max(0, Math.min(frames.length - 1, i));
    current = i;
    const f = frames[i];
    f.calls.forEach((value, k) => showCall(rows[k], data.getters[k].values[value]));
    f.recorded.forEach((value, k) => showRecorded(recordedRows[k], data.recorded[k].values[value]));
    $("geometry").replaceChildren(geometry(f.geometry));
    if (data.session) {
      $("calls").dataset.frame = String(f.frame);
      $("frame-slider").value = String(i);
      $("frame-label").textContent = "frame " + f.frame + " (" + (i + 1) + " of " + frames.length +
                                     "), timestamp " + f.timestamp + " ns";
      markTimelines();
      markFindings();
      if (updateAddress) history.replaceState(null, "", "#frame=" + f.frame);
    }
    applyFilter();
  };
  const fromAddress = () => {
    const m = /^#frame=(-?\d+)$/.exec(location.hash);
    return m && byNumber.has(m[1]) ? byNumber.get(m[1]) : 0;
  };

  if (data.session) {
    $("session").hidden = false;
    $("frame-slider").max = String(frames.length - 1);
    $("frame-slider").addEventListener("input", (e) => select(Number(e.target.value), true));
    $("prev").addEventListener("click", () => select(current - 1, true));
    $("next").addEventListener("click", () => select(current + 1, true));
    $("timelines").addEventListener("click", (e) => {
      const point = e.target.closest("[data-frame]");
      if (point && byNumber.has(point.getAttribute("data-frame"))) {
        select(byNumber.get(point.getAttribute("data-frame")), true);
      }
    });
    document.addEventListener("keydown", (e) => {
      if (e.target.closest && e.target.closest("input, textarea, select")) return;
      if (e.key === "ArrowLeft") select(current - 1, true);
      else if (e.key === "ArrowRight") select(current + 1, true);
      else return;
      e.preventDefault();
    });
    window.addEventListener("hashchange", () => select(fromAddress(), false));
  }
  select(data.session ? fromAddress() : 0, false);
  performance.mark("frame-shown");
  // The timelines of a long session take longer to build than the frame:
  // they come after it.
  if (data.session) {
    setTimeout(() => {
      $("timelines").append(svgNode(data.timelines));
      markTimelines();
      performance.mark("timelines-shown");
    }, 0);
  }
})();
</script>
</body>
</html>
)PAGE";

}  // namespace

std::string scriptSafe(const std::string& json) {
    std::string out;
    out.reserve(json.size());
    for (size_t i = 0; i < json.size(); ++i) {
        const char c = json[i];
        if (c == '<') {
            out += "\\u003c";
        } else if (c == '>') {
            out += "\\u003e";
        } else if (c == '&') {
            out += "\\u0026";
        } else if (c == '\xE2' && i + 2 < json.size() && json[i + 1] == '\x80' &&
                   (json[i + 2] == '\xA8' || json[i + 2] == '\xA9')) {
            out += json[i + 2] == '\xA8' ? "\\u2028" : "\\u2029";
            i += 2;
        } else {
            out += c;
        }
    }
    return out;
}

void HtmlPage::addRead(const std::string& label, const std::string& text) {
    read_.push_back({label, text});
}

void HtmlPage::addFrame(const FrameCalls& frame, const std::string& geometrySvg) {
    if (getters_.empty()) {
        for (const CallRecord& call : frame.calls) getters_.push_back(call.getter);
        columns_.resize(getters_.size());
    }
    Json calls = Json::array();
    for (size_t k = 0; k < frame.calls.size() && k < columns_.size(); ++k) {
        Json value = callJson(frame.calls[k], true);
        value.erase("subsystem");
        value.erase("method");
        value["text"] = callText(frame.calls[k]);
        if (k < frame.fromBlocks.size() && !frame.fromBlocks[k].empty()) {
            value["fromBlocks"] = frame.fromBlocks[k];
        }
        Column& column = columns_[k];
        const std::string key = kvhost::loader::jsonText(value);
        const auto [at, added] = column.index.emplace(key, column.values.size());
        if (added) column.values.push_back(std::move(value));
        calls.push_back(at->second);
    }
    if (frames_.empty()) {
        for (const RecordedValue& v : frame.recorded) recordedTags_.push_back(v.tag);
        recorded_.resize(recordedTags_.size());
    }
    Json recorded = Json::array();
    for (size_t k = 0; k < frame.recorded.size() && k < recorded_.size(); ++k) {
        const RecordedValue& v = frame.recorded[k];
        Json value{{"values", v.values}, {"text", recordedText(v)}, {"changed", v.changed}};
        Column& column = recorded_[k];
        const std::string key = kvhost::loader::jsonText(value);
        const auto [at, added] = column.index.emplace(key, column.values.size());
        if (added) column.values.push_back(std::move(value));
        recorded.push_back(at->second);
    }
    const auto [at, added] = geometryIndex_.emplace(geometrySvg, geometries_.size());
    if (added) geometries_.push_back(geometrySvg);
    frames_.push_back({{"frame", session_ ? Json(frame.number) : Json()},
                       {"timestamp", session_ ? Json(frame.timestamp) : Json()},
                       {"geometry", at->second},
                       {"calls", std::move(calls)},
                       {"recorded", std::move(recorded)}});
}

std::string HtmlPage::html() const {
    Json data;
    data["title"] = title_;
    data["session"] = session_;
    data["read"] = read_;
    Json& getters = data["getters"] = Json::array();
    for (size_t k = 0; k < getters_.size(); ++k) {
        getters.push_back({{"subsystem", getters_[k]->subsystem},
                           {"method", getters_[k]->method},
                           {"values", columns_[k].values}});
    }
    Json& recorded = data["recorded"] = Json::array();
    for (size_t k = 0; k < recordedTags_.size(); ++k) {
        recorded.push_back({{"tag", recordedTags_[k]}, {"values", recorded_[k].values}});
    }
    data["geometries"] = geometries_;
    data["timelines"] = session_ ? Json(timelines_) : Json();
    data["frames"] = frames_;
    data["checks"] = checks_.is_object() ? checks_.value("checks", Json()) : Json();
    data["findings"] = checks_.is_object() ? checks_.value("findings", Json()) : Json();
    const std::string page = kPage;
    const size_t at = page.find("@DATA@");
    return page.substr(0, at) + scriptSafe(kvhost::loader::jsonText(data)) + page.substr(at + 6);
}

}  // namespace inspect
