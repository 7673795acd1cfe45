#!/usr/bin/env bash
# Runs the long form of all checks: hours instead of minutes. Says what it does, stops at the first failure, and prints
# the figures at the end.
#
#   scripts/prove.sh [SECONDS]     for each fuzzer; 600 by default
#
# KESTOR_CONTENTION_MINUTES is how long the stations contend; 5 by default. The logs stay in build/prove.
set -euo pipefail
cd "$(dirname "$0")/.."
fuzz_seconds="${1:-600}"
logs=build/prove
# These run alone, so that other tests do not affect what they measure.
alone=(contention peers faults)
# Test programs that work only in their own process and its forks: they start no server and no other executable.
in_process=(platform files registry channel contract marshal common marcacao document legacy migration store
  registration server)
# Cases that depend on the clock, take hours under memcheck, or start a process under a name of its own.
left_out='CommandLine.*:Registry.ManyWriters*:Registry.AFileOfCountless*'

started=$SECONDS
figures=()
say() { printf '\n== %s (%d s)\n' "$1" "$((SECONDS - started))"; }

# step NAME COMMAND…: runs the command with its output copied to a log, and keeps its figure. If the command is a
# function, it must check for failures itself.
step() {
  local name="$1" begun=$SECONDS log
  shift
  say "$name"
  log="$logs/$(tr -c 'a-zA-Z0-9\n' '_' <<<"$name").log"
  "$@" 2>&1 | tee "$log" || { printf '\nFailed: %s. The whole log is %s.\n' "$name" "$log" >&2; exit 1; }
  figures+=("$(printf '%6d s  %s: %s' "$((SECONDS - begun))" "$name" "$(figure "$log")")")
}

# Prints the figures in a log: lines that begin with the subject of tests, and the counts of tests, runs and programs.
figure() {
  {
    grep -oE '(contention|peers|faults): .*' "$1" || true
    grep -E '^[0-9]+ passed, [0-9]+ failed$' "$1" || true
    awk '/^stat::number_of_executed_units/ { runs += $2 } END { if (runs) print runs " runs" }' "$1"
    grep -E '^[0-9]+ programs without an error$|^The packages work ' "$1" || true
  } | paste -s -d ';' | sed 's/;/; /g'
}

under_memcheck() {
  local subject
  cmake --preset debug -DKESTOR_BENCH=OFF >/dev/null && cmake --build --preset debug || return
  for subject in "${in_process[@]}"; do
    echo "$subject"
    # AddressSanitizer checks for leaks: here, memory that the parent's threads hold would count as lost in a fork.
    KESTOR_LONG_TESTS=0 valgrind --quiet --error-exitcode=99 --leak-check=no \
      "build/debug/bin/${subject}_test" --gtest_brief=1 --gtest_filter="-$left_out" || return
  done
  echo "${#in_process[@]} programs without an error"
}

# This check alone takes as long as all others together, so .clang-tidy leaves it out.
values_as_parameters() {
  cmake --preset debug >/dev/null && git ls-files 'src/*.cpp' 'tests/*.cpp' |
    xargs -P "$(nproc)" -n 1 clang-tidy --quiet --checks='-*,performance-unnecessary-value-param' -p build/debug
}

scripts/setup.sh prove
mkdir -p "$logs"

step "All tests in their long forms, AddressSanitizer and UndefinedBehaviorSanitizer" \
  env KESTOR_LONG_TESTS=1 scripts/test.sh asan --exclude-regex "^($(IFS='|'; echo "${alone[*]}"))\\."
for subject in "${alone[@]}"; do
  step "${subject^} by itself, in the long form" \
    env KESTOR_LONG_TESTS=1 scripts/test.sh asan --verbose --no-tests=error --tests-regex "^$subject\\."
done
step "Network file systems, three times" scripts/network.sh 3
step "Fuzzers, $fuzz_seconds s each" scripts/fuzz.sh "$fuzz_seconds"
step "All tests, ThreadSanitizer" env KESTOR_LONG_TESTS=0 scripts/test.sh tsan
step "Packages" scripts/package.sh --check
step "Parameters by value, clang-tidy" values_as_parameters
step "Tests within one process, memcheck" under_memcheck

say "Everything holds"
printf '%s\n' "${figures[@]}"
