#!/usr/bin/env bash
# Runs every fuzzer for a while from its seeds, one on each processor at a time.
#
#   scripts/fuzz.sh [SECONDS]     for each fuzzer; 60 by default
#
# Findings stay in build/fuzz/found. The corpus in build/fuzz/corpus grows from run to run.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-60}"

scripts/setup.sh checks
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz
mkdir -p build/fuzz/found
# Several fuzzers write files, and would wait for the disk most of the time.
room="$(df --output=avail /dev/shm 2>/dev/null | tail -n 1 || true)"
[ ! -w /dev/shm ] || [ "${room:-0}" -lt 100000 ] || export TMPDIR=/dev/shm

# The time limit for an input is longer than a busy machine may stall. xargs calls this in shells of their own, so that
# one runs on each processor.
run() {
  fuzzer="$1" seconds="$2" name="${1##*/}"
  corpus="build/fuzz/corpus/$name"
  log="build/fuzz/found/$name.log"
  mkdir -p "$corpus"
  if "$fuzzer" -max_total_time="$seconds" -timeout=60 -rss_limit_mb=2048 -print_final_stats=1 -verbosity=0 \
    -artifact_prefix="build/fuzz/found/$name-" "$corpus" "fuzz/seeds/${name#fuzz_}" >"$log" 2>&1; then
    printf '%s: %s s, %s inputs\n' "$name" "$seconds" "$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")"
    rm "$log"
  else
    printf '%s: found something\n' "$name"
  fi
}
export -f run
rm -f build/fuzz/found/*.log
touch build/fuzz/found/begun
printf '%s\0' build/fuzz/bin/fuzz_* | xargs -0 -P "$(nproc)" -I {} bash -c 'run "$@"' run {} "$seconds"

# Findings come last, where the reader of a long log looks.
status=0
for log in build/fuzz/found/*.log; do
  [ -e "$log" ] || continue
  status=1
  printf '\n%s\n' "$log"
  sed '/^stat::/d' "$log"
  for input in "${log%.log}"-*; do
    [ ! "$input" -nt build/fuzz/found/begun ] || { printf '%s, in base64:\n' "$input" && base64 "$input"; }
  done
done
exit "$status"
