#!/usr/bin/env bash
# Builds the programs into build/release/bin, and first installs what is missing. Shows the progress. The output of the
# tools goes to build/release/build.log; its end is shown if the build fails.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh programs
log=build/release/build.log
mkdir -p build/release

# Updates one line on a terminal; otherwise prints a line for each quarter.
show_progress() {
  local line built total shown=0
  while IFS= read -r line; do
    [[ "$line" =~ ^\[([0-9]+)/([0-9]+)\] ]] || continue
    built="${BASH_REMATCH[1]}" total="${BASH_REMATCH[2]}"
    if [ -t 1 ]; then
      printf '\rBuilding (log: %s): %d of %d' "$log" "$built" "$total"
      [ "$built" -ne "$total" ] || echo
    elif [ $((4 * built / total)) -gt "$shown" ]; then
      shown=$((4 * built / total))
      printf 'Building (log: %s): %d of %d\n' "$log" "$built" "$total"
    fi
  done
}

{
  cmake --preset release -DKESTOR_TESTS=OFF -DKESTOR_BENCH=OFF >/dev/null &&
    cmake --build --preset release --target kestor kestorctl
} 2>&1 | tee "$log" | show_progress || {
  printf '\nThe build failed. The end of %s:\n' "$log" >&2
  tail -n 30 "$log" >&2
  exit 1
}
