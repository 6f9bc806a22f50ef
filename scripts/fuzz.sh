#!/usr/bin/env bash
# Builds the fuzz preset and runs every fuzz target for SECONDS each (default 60), starting
# from its seed corpus in fuzz/corpus/. Prints executions and findings per target and exits
# non-zero on any crash, leak, timeout or out-of-memory.
# Usage: scripts/fuzz.sh [SECONDS] [TARGET...]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-60}"; shift || true
bash scripts/setup.sh fuzz
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz
bin=build-fuzz/bin
targets=("$@")
if [ "${#targets[@]}" -eq 0 ]; then
  for f in fuzz/*_fuzz.cpp; do targets+=("$(basename "$f" .cpp)"); done
fi
failed=0
summary=$(printf '%-22s %14s %8s  %s\n' target executions exec/s result)
for t in "${targets[@]}"; do
  corpus="build-fuzz/corpus/$t"; artifacts="build-fuzz/artifacts/$t/"
  mkdir -p "$corpus" "$artifacts"
  [ -d "fuzz/corpus/$t" ] && cp -n fuzz/corpus/"$t"/* "$corpus"/ 2>/dev/null || true
  log="build-fuzz/$t.log"
  set +e
  # -timeout: one input taking longer is a hang; -rss_limit_mb: runaway memory is a finding.
  "$bin/$t" "$corpus" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
    -print_final_stats=1 -artifact_prefix="$artifacts" >"$log" 2>&1
  rc=$?
  set -e
  execs=$(awk '/stat::number_of_executed_units/{print $NF}' "$log" | tail -1)
  rate=$(awk '/stat::average_exec_per_sec/{print $NF}' "$log" | tail -1)
  result=ok
  if [ "$rc" -ne 0 ]; then
    result="FAILED (exit $rc): $(grep -m1 -E 'ERROR: |SUMMARY: |mismatch' "$log" || echo see "$log")"
    failed=1
  fi
  summary+=$(printf '\n%-22s %14s %8s  %s' "$t" "${execs:-?}" "${rate:-?}" "$result")
done
echo "$summary"
[ "$failed" -eq 0 ] || { echo "fuzz: findings kept in build-fuzz/artifacts/, logs in build-fuzz/*.log" >&2; exit 1; }
