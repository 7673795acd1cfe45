#!/usr/bin/env bash
# Builds everything and runs all tests, and first installs what is missing.
#
#   scripts/test.sh [PRESET] [CTEST-OPTION…]     PRESET: debug (the default), release, clang, asan, tsan
#
# KESTOR_LONG_TESTS=1 runs the long forms of the race and kill tests (an hour instead of minutes).
set -euo pipefail
cd "$(dirname "$0")/.."

preset="${1:-debug}"
[ $# -eq 0 ] || shift
scripts/setup.sh tests
cmake --preset "$preset" -DKESTOR_BENCH=OFF >/dev/null
cmake --build --preset "$preset"

log="build/$preset/test.log"
status=0
ctest --preset "$preset" -j "$(nproc)" "$@" | tee "$log" || status=$?
# Repeats the failures at the end of a long log.
awk '/\*\*\*/ { shown = 1 } /Test +#.* Passed |^ +Start +[0-9]+:/ { shown = 0 } /% tests passed/ { shown = 0 } shown' "$log"
awk '/tests failed out of/ { failed = $4; total = $NF }
     END { if (total == "") exit 1; printf "%d passed, %d failed\n", total - failed, failed }' "$log"
exit "$status"
