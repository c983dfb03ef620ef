#!/usr/bin/env bash
# Runs the fuzzers of a fuzz build (default build-fuzz), FUZZ_SECONDS each (default 60), FUZZ_JOBS at a time
# (default: the number of cores; each fuzzer uses one).
# Each starts from a fresh corpus in a temporary folder, seeded with copies of its files from tests/data, so a
# run never writes into the source tree. FUZZ_TARGETS="project command" runs only those. A finding is kept as
# BUILD/fuzz/findings/fuzz_NAME-crash-... and makes the run fail.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build-fuzz}
seconds=${FUZZ_SECONDS:-60}
list=$build/fuzz/targets.txt
[ -f "$list" ] || { echo "fuzz: no $list; build with 'make fuzz'" >&2; exit 2; }
findings=$build/fuzz/findings
mkdir -p "$findings"
work=$(mktemp -d "${TMPDIR:-/tmp}/vmfuzz.XXXXXX")
trap 'rm -rf "$work"' EXIT

# Read the list once: a reconfigure of the build rewrites it.
mapfile -t entries <"$list"
jobs=${FUZZ_JOBS:-$(nproc)}

# One fuzzer; its summary and any finding are printed together when it ends, so parallel runs do not interleave.
run_one() {
  local name=$1 seeds=$2 corpus=$work/$1 out=$work/$1.out
  mkdir -p "$corpus"
  for pattern in $seeds; do
    for f in $pattern; do
      [ -f "$f" ] && cp "$f" "$corpus/$(echo "$f" | tr / _)"
    done
  done
  {
    echo "== $name: $(find "$corpus" -type f | wc -l) seed file(s), ${seconds} s"
    # 2.5 GB leaves room for the largest picture a reader accepts (20000 x 20000 x 4 bytes).
    if "$build/fuzz/$name" -max_total_time="$seconds" -timeout=20 -rss_limit_mb=2560 -print_final_stats=1 \
         -artifact_prefix="$findings/$name-" "$corpus" >"$work/$name.log" 2>&1; then
      grep -E '^Done [0-9]+ runs|^stat::(number_of_executed_units|average_exec_per_sec|peak_rss_mb)' "$work/$name.log" || true
    else
      echo "fuzz: $name found a fault; the input is in $findings"
      tail -n 80 "$work/$name.log"
      touch "$work/$name.failed"
    fi
  } >"$out" 2>&1
  cat "$out"
}

for entry in "${entries[@]}"; do
  read -r name seeds <<<"$entry"
  if [ -n "${FUZZ_TARGETS:-}" ] && [[ " $FUZZ_TARGETS " != *" ${name#fuzz_} "* ]]; then continue; fi
  while [ "$(jobs -rp | wc -l)" -ge "$jobs" ]; do wait -n || true; done
  run_one "$name" "$seeds" &
done
wait
status=0
if compgen -G "$work/*.failed" >/dev/null; then status=1; echo "fuzz: at least one fuzzer found a fault" >&2; fi
exit $status
