#!/usr/bin/env bash
# The report page in a real browser: converts the samples and two broken models with
# -report-html, opens the page headless with the failed filter in its address, and checks
# the DOM the page's script built: one row per model, exactly the failed ones shown, no
# console message. Keeps a screenshot of the page as a CI artifact.
# Usage: report_page_browser_test.sh TOOL SAMPLES_DIR ARTIFACT_DIR
set -euo pipefail
tool=$1 samples=$2 artifacts=$3
browser=$(command -v chromium || command -v chromium-browser || true)
if [ -z "$browser" ]; then
  echo "chromium is not installed (make deps installs it): the browser test is skipped"
  exit 77
fi
work=$(mktemp -d "${TMPDIR:-/tmp}/report_page.XXXXXX")
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/game/models" "$artifacts"
cp -r "$samples"/. "$work/game/models/"
printf 'not a model' > "$work/game/models/zombie <b>&amp; \"q\".mdl"
printf 'IDSQ' > "$work/game/models/truncated.mdl"
cd "$work/game"
status=0
"$tool" -i . -o out -r "models/*.mdl" -j 2 -report run.json -report-html report/run.html > convert.log 2>&1 || status=$?
[ "$status" = 1 ] || { cat convert.log; echo "expected exit status 1 (two models fail), got $status"; exit 1; }

# Every wait is bounded: the browser gets two minutes, then is stopped. Each opening has a
# profile of its own, and a virtual-time budget lets anything the page scheduled run
# before the DOM is taken.
open_page() {
  local name=$1
  shift
  timeout -k 10 120 "$browser" --headless --no-sandbox --disable-gpu --disable-dev-shm-usage --disable-quic --no-first-run \
    --disable-background-networking --disable-component-update --disable-sync --virtual-time-budget=5000 \
    --user-data-dir="$work/profile-$name" --enable-logging=stderr --v=0 "$@" 2> "$work/$name.stderr"
}
page="file://$work/game/report/run.html"
rm -f "$artifacts/report_page.png"  # a screenshot from an earlier run proves nothing
open_page all --dump-dom "$page" > all.html
open_page failed --dump-dom "$page#status=failed" > failed.html
open_page zombie --dump-dom "$page#status=failed&q=zombie" > zombie.html
open_page shot --window-size=1280,900 --screenshot="$artifacts/report_page.png" "$page" > /dev/null

python3 - "$work" <<'PY'
import html.parser, json, re, sys
work = sys.argv[1]
report = json.load(open(f"{work}/game/run.json"))
models = report["models"]
failed = sorted(m["input"] for m in models if m["status"] == "failed")
converted = [m for m in models if m["status"] == "converted"]
assert len(failed) == 2 and len(converted) == len(models) - 2, (failed, len(models))

class Rows(html.parser.HTMLParser):
    def __init__(self):
        super().__init__()
        self.rows, self.cell, self.images, self.ready = [], None, 0, False
    def handle_starttag(self, tag, attrs):
        a = dict(attrs)
        if tag == "body" and a.get("data-ready") == "1":
            self.ready = True
        if tag == "tr" and "model" in a.get("class", "").split():
            self.rows.append({"status": a.get("data-status"), "hidden": "hidden" in a, "path": ""})
        if tag == "td" and self.rows and "path" in a.get("class", "").split():
            self.cell = self.rows[-1]
        if tag == "img" and a.get("loading") == "lazy" and a.get("src", "").startswith("run_files/"):
            self.images += 1
    def handle_endtag(self, tag):
        if tag == "td":
            self.cell = None
    def handle_data(self, data):
        if self.cell is not None:
            self.cell["path"] += data

def rows_of(name):
    parser = Rows()
    parser.feed(open(f"{work}/game/{name}.html", encoding="utf-8").read())
    assert parser.ready, f"{name}: the page's script did not finish"
    assert len(parser.rows) == len(models), f"{name}: {len(parser.rows)} rows for {len(models)} models"
    stderr = open(f"{work}/{name}.stderr", encoding="utf-8", errors="replace").read()
    console = [l for l in stderr.splitlines() if "CONSOLE" in l or "Uncaught" in l]
    assert not console, f"{name}: console says {console}"
    return parser

everything = rows_of("all")
assert not any(r["hidden"] for r in everything.rows), "unfiltered page hides rows"
assert everything.images == len(converted), (everything.images, len(converted))
shown = sorted(r["path"] for r in rows_of("failed").rows if not r["hidden"])
assert shown == failed, (shown, failed)
zombie = [r["path"] for r in rows_of("zombie").rows if not r["hidden"]]
assert len(zombie) == 1 and '<b>&amp; "q"' in zombie[0], zombie
print(f"{len(models)} rows, {len(failed)} failed shown by the filter, {everything.images} thumbnails")
PY
[ -s "$artifacts/report_page.png" ] || { echo "no screenshot"; exit 1; }
echo "screenshot: $artifacts/report_page.png"
