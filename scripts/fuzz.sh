#!/usr/bin/env bash
# Runs every fuzzer for a while, from its seeds.
#
#   scripts/fuzz.sh [SECONDS]     for each fuzzer; 60 by default
#
# What is found stays in build/fuzz/found. The corpus grows in build/fuzz/corpus from run to run.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-60}"

scripts/setup.sh checks
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz
mkdir -p build/fuzz/found
# Several write files, and would wait for the disk most of the time.
[ ! -w /dev/shm ] || export TMPDIR=/dev/shm
for fuzzer in build/fuzz/bin/fuzz_*; do
  name="$(basename "$fuzzer")"
  corpus="build/fuzz/corpus/$name"
  mkdir -p "$corpus"
  echo "$name: $seconds s"
  "$fuzzer" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 -verbosity=0 \
    -artifact_prefix="build/fuzz/found/$name-" "$corpus" "fuzz/seeds/${name#fuzz_}" 2>&1 | grep -v '^stat::\(slow\|new\|peak\)'
done
