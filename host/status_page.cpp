#include "host/status_page.h"

#include <cmath>
#include <jsoncons/json.hpp>

namespace corvanis::monitoring_modules::host {

namespace {

// ojson keeps the fields in the order of a JSON line.
using json = jsoncons::ojson;

constexpr const char* page_head = R"page(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<link rel="icon" href="data:,">
<title>tavo-probe</title>
<style>
:root{--bg:#f4f5f7;--card:#fff;--text:#1d2430;--muted:#667085;--line:#e3e6eb;
--ok:#1f9d55;--warning:#d98e04;--error:#d64545;--unknown:#7b8494}
@media (prefers-color-scheme:dark){:root{--bg:#14171c;--card:#1d2128;--text:#e6e9ee;
--muted:#98a2b3;--line:#2c323b}}
*{box-sizing:border-box}
body{margin:0;font:15px/1.4 system-ui,-apple-system,"Segoe UI",Roboto,sans-serif;
background:var(--bg);color:var(--text)}
header{display:flex;flex-wrap:wrap;gap:.5rem 1rem;align-items:center;padding:.9rem 1.2rem;
background:var(--card);border-bottom:1px solid var(--line);position:sticky;top:0;z-index:1}
header h1{font-size:1.1rem;margin:0 .5rem 0 0}
.counts{display:flex;gap:.4rem;flex-wrap:wrap}
.count{padding:.15rem .6rem;border-radius:999px;font-size:.85rem;font-weight:600;color:#fff}
.meta{margin-left:auto;color:var(--muted);font-size:.85rem}
main{padding:1rem 1.2rem 2rem;max-width:1400px;margin:0 auto}
h2{font-size:.9rem;text-transform:uppercase;letter-spacing:.06em;color:var(--muted);
margin:1.4rem 0 .6rem}
.grid{display:grid;grid-template-columns:repeat(auto-fill,minmax(300px,1fr));gap:.8rem}
.card{background:var(--card);border:1px solid var(--line);border-left:6px solid var(--unknown);
border-radius:10px;padding:.8rem 1rem;min-width:0}
.card .top{display:flex;justify-content:space-between;gap:.5rem;align-items:baseline}
.name{font-weight:650;overflow-wrap:anywhere}
.kind{color:var(--muted);font-size:.85rem}
.badge{font-size:.75rem;font-weight:700;padding:.1rem .5rem;border-radius:6px;color:#fff;
white-space:nowrap}
.message{margin:.45rem 0 0;overflow-wrap:anywhere}
.time{color:var(--muted);font-size:.8rem;margin-top:.3rem}
table{width:100%;border-collapse:collapse;margin-top:.5rem;font-size:.9rem}
td{padding:.25rem 0;border-top:1px solid var(--line);vertical-align:middle}
td.value{text-align:right;white-space:nowrap;font-variant-numeric:tabular-nums;padding-left:.5rem}
td.spark{width:96px;padding-left:.5rem}
svg{display:block}
.ok{--c:var(--ok)}.warning{--c:var(--warning)}.error{--c:var(--error)}.unknown{--c:var(--unknown)}
.card.ok,.card.warning,.card.error,.card.unknown{border-left-color:var(--c)}
.badge,.count{background:var(--c)}
polyline{stroke:var(--c);fill:none;stroke-width:1.5;stroke-linejoin:round;stroke-linecap:round}
#offline{display:none;background:var(--error);color:#fff;padding:.5rem 1.2rem}
.empty{color:var(--muted)}
</style>
</head>
<body>
<div id="offline">The probe does not answer; showing the last known results.</div>
<header><h1>tavo-probe</h1><div class="counts" id="counts"></div>
<div class="meta" id="meta"></div></header>
<main id="board"></main>
<script id="initial" type="application/json">)page";

constexpr const char* page_tail = R"page(</script>
<script>
"use strict";
const ORDER = ["error", "warning", "unknown", "ok"];
const WORDS = {error: "ERROR", warning: "WARNING", unknown: "UNKNOWN", ok: "OK"};
const SVG = "http://www.w3.org/2000/svg";

function el(tag, cls, text) {
  const e = document.createElement(tag);
  if (cls) e.className = cls;
  if (text !== undefined) e.textContent = text;
  return e;
}

function stateOf(s) {
  if (ORDER.includes(s.state)) return s.state;
  return "unknown";
}

function shown(v) {
  if (v === null || v === undefined) return "-";
  if (Number.isInteger(v)) return String(v);
  return String(Math.round(v * 1000) / 1000);
}

function sparkline(history, cls) {
  const w = 96, h = 24;
  const svg = document.createElementNS(SVG, "svg");
  svg.setAttribute("width", w);
  svg.setAttribute("height", h);
  svg.setAttribute("viewBox", "0 0 " + w + " " + h);
  svg.setAttribute("class", cls);
  const nums = (history || []).filter(v => typeof v === "number");
  if (nums.length < 2) return svg;
  const lo = Math.min(...nums), hi = Math.max(...nums), span = hi - lo || 1;
  const step = w / Math.max(history.length - 1, 1);
  let points = [];
  const flush = () => {
    if (points.length > 1) {
      const line = document.createElementNS(SVG, "polyline");
      line.setAttribute("points", points.join(" "));
      svg.appendChild(line);
    }
    points = [];
  };
  history.forEach((v, i) => {
    if (typeof v !== "number") { flush(); return; }
    const y = h - 2 - ((v - lo) / span) * (h - 4);
    points.push((i * step).toFixed(1) + "," + y.toFixed(1));
  });
  flush();
  return svg;
}

function card(s) {
  const state = stateOf(s);
  const c = el("article", "card " + state);
  c.dataset.sensor = s.sensor_id;
  const top = el("div", "top");
  const title = el("div");
  title.appendChild(el("div", "name", s.name ? s.name : "#" + s.sensor_id));
  title.appendChild(el("div", "kind", (s.display || s.kind) + (s.name ? " · #" + s.sensor_id : "")));
  top.appendChild(title);
  top.appendChild(el("span", "badge " + state, WORDS[state]));
  c.appendChild(top);
  if (s.message && s.message.text) c.appendChild(el("p", "message", s.message.text));
  const channels = s.channels || [];
  if (channels.length) {
    const table = el("table");
    for (const ch of channels) {
      const row = el("tr");
      row.appendChild(el("td", "", ch.name));
      const spark = el("td", "spark");
      spark.appendChild(sparkline(ch.history, ch.state && ORDER.includes(ch.state) ? ch.state : state));
      row.appendChild(spark);
      row.appendChild(el("td", "value", shown(ch.value) + (ch.unit ? " " + ch.unit : "")));
      table.appendChild(row);
    }
    c.appendChild(table);
  }
  if (s.time) c.appendChild(el("div", "time", "scanned " + new Date(s.time).toLocaleTimeString()));
  return c;
}

function render(data) {
  const groups = {error: [], warning: [], unknown: [], ok: []};
  for (const s of data.sensors) groups[stateOf(s)].push(s);
  const board = document.getElementById("board");
  const counts = document.getElementById("counts");
  board.replaceChildren();
  counts.replaceChildren();
  for (const state of ORDER) {
    if (!groups[state].length) continue;
    counts.appendChild(el("span", "count " + state, groups[state].length + " " + WORDS[state]));
    board.appendChild(el("h2", "", WORDS[state]));
    const grid = el("section", "grid");
    grid.dataset.state = state;
    for (const s of groups[state]) grid.appendChild(card(s));
    board.appendChild(grid);
  }
  if (!data.sensors.length) board.appendChild(el("p", "empty", "This probe runs no sensors."));
  const p = data.probe || {};
  document.getElementById("meta").textContent = "v" + p.version +
      (p.shard ? " · shard " + p.shard : "") + " · updated " + new Date().toLocaleTimeString();
  const problems = groups.error.length + groups.warning.length;
  document.title = (problems ? "(" + problems + ") " : "") + "tavo-probe";
}

async function refresh() {
  try {
    const response = await fetch("api/status", {cache: "no-store"});
    if (!response.ok) throw new Error(response.status);
    render(await response.json());
    document.getElementById("offline").style.display = "none";
  } catch (e) {
    document.getElementById("offline").style.display = "block";
  }
}

render(JSON.parse(document.getElementById("initial").textContent));
setInterval(refresh, 5000);
</script>
</body>
</html>
)page";

json probe_json(const probe_identity& probe) {
    json out;
    out.insert_or_assign("version", probe.version);
    out.insert_or_assign("module_version", probe.module_version);
    out.insert_or_assign("api_level", probe.api_level);
    out.insert_or_assign("shard", probe.shard);
    return out;
}

json sensor_json(const sensor_status& status) {
    json sensor = json::parse(json_line(status.latest));
    // The board's state and name, so the page and /metrics never disagree.
    sensor.insert_or_assign("state", status.latest.state);
    if (!sensor.contains("name")) {
        sensor.insert_or_assign(
            "name", status.latest.name.empty() ? json::null() : json(status.latest.name));
    }
    sensor.insert_or_assign("display", status.latest.display);
    if (!status.scanned) sensor.insert_or_assign("time", json::null());
    if (!sensor.contains("channels")) return sensor;
    for (auto& channel : sensor["channels"].array_range()) {
        const auto found = status.history.find(channel.at("id").as<int>());
        json history(jsoncons::json_array_arg);
        if (found != status.history.end()) {
            for (const float v : found->second.values()) {
                history.push_back(std::isfinite(v) ? json(static_cast<double>(v)) : json::null());
            }
        }
        channel.insert_or_assign("history", std::move(history));
    }
    return sensor;
}

}  // namespace

std::string status_json(const status_board& board, const probe_identity& probe) {
    json root;
    root.insert_or_assign("probe", probe_json(probe));
    // Parsing each JSON line is slow enough at thousands of sensors to stall the scans, so
    // it works on a copy.
    const auto statuses = board.snapshot();
    json sensors(jsoncons::json_array_arg);
    sensors.reserve(statuses.size());
    for (const auto& status : statuses) sensors.push_back(sensor_json(status));
    root.insert_or_assign("sensors", std::move(sensors));
    std::string out;
    root.dump(out);
    return out;
}

std::string status_page(const std::string& status_json) {
    std::string out = page_head;
    out.reserve(out.size() + status_json.size() + 8192);
    // "<" only occurs inside JSON strings, where \u003c means the same and cannot end the script.
    for (const char c : status_json) {
        if (c == '<') {
            out += "\\u003c";
        } else {
            out += c;
        }
    }
    out += page_tail;
    return out;
}

}  // namespace corvanis::monitoring_modules::host
