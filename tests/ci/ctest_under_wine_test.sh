#!/usr/bin/env bash
# The runner of the Windows suite runs a test once more only when it died before printing
# a test line; a test that printed its failure fails the run at once, and a test that dies
# again fails it too. Checked on a throwaway CTest project whose tests count their runs.
set -euo pipefail
runner=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# A test that appends to its count file, then behaves as asked: "silent-once" dies without
# output on its first run only, "silent" always, "printed" prints a test line and fails,
# "pass" prints a test line and passes.
cat > "$work/fake_test.sh" <<'SCRIPT'
#!/usr/bin/env bash
count="$1.count"; echo run >> "$count"; runs=$(wc -l < "$count")
case "$2" in
  silent-once) [ "$runs" -gt 1 ] || exit 1 ;;
  silent) exit 1 ;;
  printed) echo "[ RUN      ] Suite.Printed"; echo "[  FAILED  ] Suite.Printed"; exit 1 ;;
esac
echo "[ RUN      ] Suite.$2"; echo "[       OK ] Suite.$2"
SCRIPT

# project NAME TEST:KIND...: a configured CTest build holding those tests.
project() {
  local name=$1; shift
  mkdir -p "$work/$name/src"
  {
    echo "cmake_minimum_required(VERSION 3.16)"
    echo "project($name LANGUAGES NONE)"
    echo "enable_testing()"
    for spec in "$@"; do
      echo "add_test(NAME ${spec%%:*} COMMAND bash $work/fake_test.sh $work/$name/${spec%%:*} ${spec#*:})"
    done
  } > "$work/$name/src/CMakeLists.txt"
  cmake -S "$work/$name/src" -B "$work/$name/build" >/dev/null
}

runs() { wc -l < "$work/$1/$2.count" | tr -d ' '; }
fail() { echo "FAILED: $*"; exit 1; }

project retried A:pass B:silent-once
python3 "$runner" "$work/retried/build" 2 > "$work/retried.log" 2>&1 || fail "a test that died once failed the run: $(cat "$work/retried.log")"
grep -q "B died under wine without printing a test line; running it once more" "$work/retried.log" || fail "no retry line"
[ "$(runs retried B)" = 2 ] && [ "$(runs retried A)" = 1 ] || fail "runs: A $(runs retried A), B $(runs retried B)"

project printed A:printed B:silent-once
if python3 "$runner" "$work/printed/build" 2 > "$work/printed.log" 2>&1; then fail "a printed failure passed"; fi
grep -q "failed: A" "$work/printed.log" || fail "the printed failure is not named: $(cat "$work/printed.log")"
[ "$(runs printed A)" = 1 ] || fail "a test that printed its failure ran $(runs printed A) times"

project again A:silent
if python3 "$runner" "$work/again/build" 1 > "$work/again.log" 2>&1; then fail "a test that died twice passed"; fi
grep -q "failed again: A" "$work/again.log" || fail "the second death is not named: $(cat "$work/again.log")"
[ "$(runs again A)" = 2 ] || fail "a test that keeps dying ran $(runs again A) times"

echo "ok"
