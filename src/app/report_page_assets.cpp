#include "app/report_page_assets.h"

namespace zv::app {

std::string_view reportPageStyle() {
  return R"CSS(
body { font: 14px/1.4 system-ui, sans-serif; margin: 0 1.5em 2em; color: #1d2430; background: #f6f7f9; }
h1 { font-size: 1.4em; margin: .8em 0 .3em; }
h2 { font-size: 1.1em; margin: 1.2em 0 .4em; }
.summary { display: flex; flex-wrap: wrap; gap: .6em; }
.summary div { background: #fff; border: 1px solid #d8dde5; border-radius: 6px; padding: .4em .8em; }
.summary b { display: block; font-size: 1.3em; }
.facts { color: #56606e; font-size: .9em; word-break: break-all; }
.groups { list-style: none; padding: 0; margin: 0; max-height: 16em; overflow: auto; }
.groups li { margin: 1px 0; }
.groups button { font: inherit; text-align: left; width: 100%; border: 1px solid transparent; background: #fff; padding: .15em .5em; cursor: pointer; border-radius: 4px; }
.groups button:hover, .groups button.on { border-color: #3b6fd8; }
.groups .n { display: inline-block; min-width: 4.5em; font-weight: 600; }
.groups .error .n { color: #b3261e; }
.controls { display: flex; gap: .6em; align-items: center; margin: 1em 0 .5em; flex-wrap: wrap; }
.controls input { font: inherit; padding: .2em .4em; min-width: 18em; }
table { border-collapse: collapse; background: #fff; width: 100%; }
th, td { border-bottom: 1px solid #e3e6eb; padding: .2em .4em; text-align: right; vertical-align: middle; }
th { position: sticky; top: 0; background: #eceff3; cursor: pointer; user-select: none; white-space: nowrap; }
th.sorted::after { content: " \25B2"; }
th.sorted.desc::after { content: " \25BC"; }
td.path, th.path, td.status { text-align: left; }
td.path { word-break: break-all; min-width: 24em; }
tr.model { cursor: pointer; }
tr.model:hover { background: #f0f4fb; }
tr.failed td.status { color: #b3261e; font-weight: 600; }
tr.skipped td.status { color: #6b7280; }
td.thumb { width: 96px; padding: 2px; }
td.thumb img { width: 96px; height: 96px; display: block; background: repeating-conic-gradient(#eee 0 25%, #fff 0 50%) 0 0 / 16px 16px; }
tr.details td { text-align: left; background: #fafbfc; }
tr.details ul { margin: .2em 0; padding-left: 1.4em; }
tr.details .error { color: #b3261e; }
.empty { color: #6b7280; padding: 1em; }
)CSS";
}

std::string_view reportPageScript() {
  return R"JS(
"use strict";
(function () {
  const data = JSON.parse(document.getElementById("data").textContent);
  const columns = [
    ["thumb", "", null], ["path", "Model", (r) => r.path], ["status", "Status", (r) => r.status],
    ["n", "Body parts", (r) => r.counts[0]], ["n", "Meshes", (r) => r.counts[1]],
    ["n", "Vertices", (r) => r.counts[2]], ["n", "Triangles", (r) => r.counts[3]],
    ["n", "Bones", (r) => r.counts[4]], ["n", "Animations", (r) => r.counts[5]],
    ["n", "Sequences", (r) => r.counts[6]], ["n", "Collision pieces", (r) => r.counts[7]],
    ["n", "Warnings", (r) => r.warnings.length], ["n", "Errors", (r) => r.errors.length],
    ["n", "Seconds", (r) => r.seconds]];
  const el = (tag, cls, text) => {
    const e = document.createElement(tag);
    if (cls) e.className = cls;
    if (text !== undefined) e.textContent = String(text);
    return e;
  };
  const bytes = (n) => n < 1e3 ? n + " B" : n < 1e6 ? (n / 1e3).toFixed(1) + " kB" :
      n < 1e9 ? (n / 1e6).toFixed(1) + " MB" : (n / 1e9).toFixed(2) + " GB";

  const rows = data.rows.map((a) => ({
    index: a[0], path: a[1], status: a[2], thumb: a[3], counts: a[4], seconds: a[5],
    warnings: a[6], errors: a[7], outputs: a[8], groups: new Set(a[9]), tr: null, details: null}));
  for (const r of rows) r.text = (r.path + "\n" + r.warnings.join("\n") + "\n" + r.errors.join("\n")).toLowerCase();

  function summary() {
    const t = data.totals, box = document.getElementById("summary");
    const items = [["Converted", t.converted], ["Failed", t.failed], ["Skipped", t.skipped],
      ["Files written", t.files], ["Bytes written", bytes(t.bytes)],
      ["Wall time", data.wall === null ? "\u2014" : data.wall.toFixed(1) + " s"]];
    for (const [label, value] of items) {
      const d = el("div");
      d.append(el("b", "", value), el("span", "", label));
      box.append(d);
    }
    document.getElementById("facts").textContent = "zv_mdl_import " + data.tool + " \u00b7 " + data.options;
  }

  // The filter lives in the address so that a link shows the same rows.
  const state = {status: "all", q: "", group: -1, sort: -1, desc: false};
  function readHash() {
    const p = new URLSearchParams(location.hash.slice(1));
    state.status = ["converted", "failed", "skipped"].includes(p.get("status")) ? p.get("status") : "all";
    state.q = p.get("q") || "";
    const g = parseInt(p.get("group") || "-1", 10), s = parseInt(p.get("sort") || "-1", 10);
    state.group = g >= 0 && g < data.groups.length ? g : -1;
    state.sort = s > 0 && s < columns.length ? s : -1;
    state.desc = p.get("desc") === "1";
  }
  function writeHash() {
    const p = new URLSearchParams();
    if (state.status !== "all") p.set("status", state.status);
    if (state.q) p.set("q", state.q);
    if (state.group >= 0) p.set("group", state.group);
    if (state.sort > 0) p.set("sort", state.sort);
    if (state.desc) p.set("desc", "1");
    history.replaceState(null, "", "#" + p.toString());
  }

  function groups() {
    const list = document.getElementById("groups");
    if (data.groups.length === 0) list.append(el("li", "empty", "No messages."));
    data.groups.forEach((g, i) => {
      const li = el("li", g.error ? "error" : "warning");
      const b = el("button");
      b.dataset.group = i;
      b.append(el("span", "n", "\u00d7" + g.count), document.createTextNode(" " + g.kind));
      b.addEventListener("click", () => { state.group = state.group === i ? -1 : i; update(); });
      li.append(b);
      list.append(li);
    });
  }

  function details(r) {
    const td = el("td");
    td.colSpan = columns.length;
    const add = (title, items, cls) => {
      if (items.length === 0) return;
      td.append(el("b", "", title));
      const ul = el("ul");
      for (const m of items) ul.append(el("li", cls, m));
      td.append(ul);
    };
    add("Errors", r.errors, "error");
    add("Warnings", r.warnings, "");
    if (r.outputs.length) {
      td.append(el("b", "", "Outputs"));
      const ul = el("ul");
      for (const [href, size] of r.outputs) {
        const li = el("li"), a = el("a", "", href.split("/").slice(-3).join("/"));
        a.href = href;
        li.append(a, document.createTextNode(" (" + bytes(size) + ")"));
        ul.append(li);
      }
      td.append(ul);
    }
    if (!td.childNodes.length) td.append(el("span", "empty", "No messages and no outputs."));
    const tr = el("tr", "details");
    tr.append(td);
    return tr;
  }

  function row(r) {
    const tr = el("tr", "model " + r.status);
    tr.dataset.index = r.index;
    tr.dataset.status = r.status;
    const thumb = el("td", "thumb");
    if (r.thumb) {
      const img = el("img");
      img.loading = "lazy";
      img.width = 160;
      img.height = 160;
      img.alt = "";
      img.src = r.thumb;
      thumb.append(img);
    }
    tr.append(thumb);
    for (let c = 1; c < columns.length; ++c) tr.append(el("td", columns[c][0], columns[c][2](r)));
    tr.addEventListener("click", () => {
      if (!r.details) {
        r.details = details(r);
        tr.after(r.details);
      } else {
        r.details.hidden = !r.details.hidden;
      }
    });
    return tr;
  }

  function table() {
    const head = document.getElementById("head");
    columns.forEach((c, i) => {
      const th = el("th", c[0], c[1]);
      if (i > 0) th.addEventListener("click", () => {
        state.desc = state.sort === i ? !state.desc : false;
        state.sort = i;
        update();
      });
      head.append(th);
    });
    const body = document.getElementById("rows"), all = document.createDocumentFragment();
    for (const r of rows) {
      r.tr = row(r);
      all.append(r.tr);
    }
    body.append(all);
  }

  let sortedBy = "";
  function sortRows() {
    const key = state.sort + (state.desc ? "d" : "a");
    if (key === sortedBy) return;
    sortedBy = key;
    const order = rows.slice();
    if (state.sort > 0) {
      const value = columns[state.sort][2], sign = state.desc ? -1 : 1;
      order.sort((a, b) => {
        const x = value(a), y = value(b);
        return sign * (x < y ? -1 : x > y ? 1 : 0) || a.index - b.index;
      });
    }
    const body = document.getElementById("rows"), all = document.createDocumentFragment();
    for (const r of order) {
      all.append(r.tr);
      if (r.details) all.append(r.details);
    }
    body.append(all);
    document.querySelectorAll("#head th").forEach((th, i) => {
      th.classList.toggle("sorted", i === state.sort);
      th.classList.toggle("desc", i === state.sort && state.desc);
    });
  }

  function update() {
    writeHash();
    sortRows();
    const q = state.q.toLowerCase();
    let shown = 0;
    for (const r of rows) {
      const visible = (state.status === "all" || r.status === state.status) && (!q || r.text.includes(q)) &&
          (state.group < 0 || r.groups.has(state.group));
      r.tr.hidden = !visible;
      if (r.details && !visible) r.details.hidden = true;
      shown += visible;
    }
    document.getElementById("status").value = state.status;
    const box = document.getElementById("q");
    if (box.value !== state.q) box.value = state.q;
    document.querySelectorAll("#groups button").forEach((b) => b.classList.toggle("on", +b.dataset.group === state.group));
    document.getElementById("shown").textContent = shown + " of " + rows.length + " models shown";
  }

  summary();
  groups();
  table();
  readHash();
  document.getElementById("status").addEventListener("change", (e) => { state.status = e.target.value; update(); });
  document.getElementById("q").addEventListener("input", (e) => { state.q = e.target.value; update(); });
  window.addEventListener("hashchange", () => { readHash(); update(); });
  update();
  document.body.dataset.ready = "1";
})();
)JS";
}

}  // namespace zv::app
